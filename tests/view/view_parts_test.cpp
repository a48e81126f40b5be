// The parts the live view and the contact sheet are made of, tested on
// their own: the bitmap font, the canvas that scales an image and draws the
// overlay, the script of the scripted mode, and the hand-over of images and
// actions between threads.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include "tests/support/ModuleHost.h"
#include "tools/lumhost/BitmapFont.h"
#include "tools/lumhost/ViewCanvas.h"
#include "tools/lumhost/ViewScript.h"
#include "tools/lumhost/ViewSession.h"

namespace {

// ---- Font ----------------------------------------------------------------

std::vector<std::string> Lit(const std::string& text, int scale) {
    const int width = BitmapFont::TextWidth(text, scale), height = BitmapFont::kGlyphHeight * scale;
    std::vector<std::string> rows(static_cast<size_t>(height), std::string(static_cast<size_t>(width), '.'));
    BitmapFont::Render(text, 0, 0, scale, [&](int x, int y) {
        ASSERT_TRUE(x >= 0 && y >= 0 && x < width && y < height) << text << " draws outside at " << x << "," << y;
        rows[static_cast<size_t>(y)][static_cast<size_t>(x)] = '#';
    });
    return rows;
}

TEST(BitmapFontTest, EveryPrintableCharacterHasItsOwnGlyph) {
    std::set<std::vector<uint8_t>> seen;
    for (char c = BitmapFont::kFirst; c <= BitmapFont::kLast; ++c) {
        const uint8_t* rows = BitmapFont::Glyph(c);
        std::vector<uint8_t> glyph(rows, rows + BitmapFont::kGlyphHeight);
        EXPECT_TRUE(seen.insert(glyph).second) << "'" << c << "' looks like another character";
        int lit = 0;
        for (uint8_t row : glyph) {
            EXPECT_EQ(row & ~0x1Fu, 0u) << "'" << c << "' is wider than 5 pixels";
            lit += __builtin_popcount(row);
        }
        EXPECT_EQ(lit == 0, c == ' ') << "'" << c << "'";
        // Only letters that go below the line use the descender row.
        const bool descends = std::string("gjpqy,;").find(c) != std::string::npos;
        EXPECT_EQ(glyph[7] != 0, descends) << "'" << c << "'";
    }
}

TEST(BitmapFontTest, DrawsKnownShapesAtAnyScale) {
    const std::vector<std::string> one = Lit("1", 1);
    EXPECT_EQ(one, (std::vector<std::string>{"..#..", ".##..", "..#..", "..#..", "..#..", "..#..", ".###.", "....."}));
    // Scale 3: each font pixel is a 3 x 3 block.
    const std::vector<std::string> big = Lit("1", 3);
    ASSERT_EQ(big.size(), 24u);
    for (int y = 0; y < 24; ++y)
        for (int x = 0; x < 15; ++x) EXPECT_EQ(big[static_cast<size_t>(y)][static_cast<size_t>(x)], one[static_cast<size_t>(y / 3)][static_cast<size_t>(x / 3)]);
    // Characters stand one blank column apart.
    const std::vector<std::string> pair = Lit("||", 1);
    EXPECT_EQ(pair[0], "..#.....#..");
    EXPECT_EQ(BitmapFont::TextWidth("", 2), 0);
    EXPECT_EQ(BitmapFont::TextWidth("ab", 1), 11);
    EXPECT_EQ(BitmapFont::TextWidth("ab", 2), 22);
}

TEST(BitmapFontTest, NonAsciiAndControlCharactersShowAsQuestionMarks) {
    EXPECT_EQ(BitmapFont::Printable("caf\xc3\xa9.png"), "caf?.png");      // one mark per UTF-8 sequence
    EXPECT_EQ(BitmapFont::Printable("\xe2\x82\xac" "1"), "?1");
    EXPECT_EQ(BitmapFont::Printable("a\tb\x7f"), "a?b?");
    EXPECT_EQ(BitmapFont::TextWidth("\xc3\xa9", 1), BitmapFont::TextWidth("?", 1));
    EXPECT_EQ(Lit("\x01", 1), Lit("?", 1));
}

TEST(BitmapFontTest, LongTextIsShortenedInTheMiddle) {
    const std::string name = "a_very_long_recording_name_0042.png";
    for (int width : {30, 59, 60, 100, 160}) {
        const std::string fitted = BitmapFont::FitWidth(name, width, 1);
        EXPECT_LE(BitmapFont::TextWidth(fitted, 1), width) << fitted;
        EXPECT_NE(fitted.find("..."), std::string::npos) << fitted;
        // One more character would not have fitted.
        EXPECT_GT(BitmapFont::TextWidth(fitted + "x", 1), width) << fitted;
    }
    EXPECT_EQ(BitmapFont::FitWidth(name, 160, 1).substr(0, 7), "a_very_");
    EXPECT_EQ(BitmapFont::FitWidth(name, 100, 1), "a_ve..._0042.png");  // 16 characters fit in 100 pixels
    EXPECT_EQ(BitmapFont::FitWidth("short.png", 100, 1), "short.png");
    EXPECT_EQ(BitmapFont::FitWidth(name, 10, 1), ".");
    EXPECT_EQ(BitmapFont::FitWidth(name, 0, 1), "");
    EXPECT_LE(BitmapFont::TextWidth(BitmapFont::FitWidth(name, 100, 2), 2), 100);
}

// ---- Canvas --------------------------------------------------------------

ViewImage Pattern(int width, int height, int bits, int padding) {
    const int bytes = bits / 8, stride = width * bytes + padding;
    std::vector<uint8_t> pixels(static_cast<size_t>(stride) * height, 0xEE);  // padding holds junk
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int b = 0; b < bytes; ++b)
                pixels[static_cast<size_t>(y) * stride + static_cast<size_t>(x) * bytes + b] =
                    static_cast<uint8_t>(x * 16 + y * 4 + b * 50);
    ViewImage image;
    EXPECT_TRUE(image.Assign(pixels.data(), width, height, bits, stride));
    return image;
}

TEST(ViewCanvasTest, ImagesKeepTheirShapeAndAreCentred) {
    ViewRect r = ViewLayout::FitImage(640, 480, 320, 240);
    EXPECT_EQ((std::vector<int>{r.x, r.y, r.width, r.height}), (std::vector<int>{0, 0, 640, 480}));
    r = ViewLayout::FitImage(640, 480, 200, 100);  // wide: bands above and below
    EXPECT_EQ((std::vector<int>{r.x, r.y, r.width, r.height}), (std::vector<int>{0, 80, 640, 320}));
    r = ViewLayout::FitImage(640, 480, 100, 200);  // tall: bands left and right
    EXPECT_EQ((std::vector<int>{r.x, r.y, r.width, r.height}), (std::vector<int>{200, 0, 240, 480}));
    r = ViewLayout::FitImage(100, 100, 4000, 10);  // never thinner than a pixel
    EXPECT_EQ(r.height, 1);
    r = ViewLayout::FitImage(0, 100, 10, 10);
    EXPECT_EQ(r.width, 0);
}

TEST(ViewCanvasTest, EveryFormatIsScaledByTheNearestPixel) {
    for (int bits : {8, 24, 32}) {
        const ViewImage image = Pattern(5, 3, bits, 3);
        ASSERT_EQ(image.stride, 5 * bits / 8) << "the copy is packed";
        ViewCanvas canvas;
        canvas.Resize(20, 20);
        canvas.DrawImage(image);
        const ViewRect rect = ViewLayout::FitImage(20, 20, 5, 3);
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 20; ++x) {
                const bool inside = y >= rect.y && y < rect.y + rect.height;
                const uint32_t expected =
                    inside ? image.RGB(x * 5 / 20, (y - rect.y) * 3 / rect.height) : ViewLayout::kBackground;
                ASSERT_EQ(canvas.At(x, y), expected) << bits << " bits at " << x << "," << y;
            }
    }
    // The channels: gray repeats, BGR and BGRA put red highest.
    const uint8_t gray = 7, bgr[3] = {1, 2, 3}, bgra[4] = {1, 2, 3, 4};
    ViewImage image;
    ASSERT_TRUE(image.Assign(&gray, 1, 1, 8, 1));
    EXPECT_EQ(image.RGB(0, 0), 0x070707u);
    ASSERT_TRUE(image.Assign(bgr, 1, 1, 24, 3));
    EXPECT_EQ(image.RGB(0, 0), 0x030201u);
    ASSERT_TRUE(image.Assign(bgra, 1, 1, 32, 4));
    EXPECT_EQ(image.RGB(0, 0), 0x030201u);
}

TEST(ViewCanvasTest, ImagesThatCannotBeShownAreRefused) {
    const uint8_t pixels[64] = {};
    ViewImage image;
    EXPECT_FALSE(image.Assign(pixels, 4, 4, 16, 8));  // 16 bits per pixel
    EXPECT_TRUE(image.Empty());
    EXPECT_FALSE(image.Assign(pixels, 4, 4, 24, 8));  // stride shorter than a row
    EXPECT_FALSE(image.Assign(nullptr, 4, 4, 8, 4));
    EXPECT_FALSE(image.Assign(pixels, 0, 4, 8, 4));
    // An empty image leaves the background.
    ViewCanvas canvas;
    canvas.Resize(8, 8);
    canvas.Fill(0x123456);
    canvas.DrawImage(image);
    EXPECT_EQ(canvas.At(3, 3), ViewLayout::kBackground);
}

TEST(ViewCanvasTest, OverlaySitsBottomLeftWithItsText) {
    ViewCanvas canvas;
    canvas.Resize(300, 200);
    canvas.Fill(0x808080);
    const std::vector<std::string> lines = {"frame 12", "25.0 fps", "live"};
    canvas.DrawOverlay(lines);
    const ViewRect box = ViewLayout::OverlayBox(300, 200, lines);
    EXPECT_EQ(box.x, ViewLayout::kMargin);
    EXPECT_EQ(box.y + box.height, 200 - ViewLayout::kMargin);
    EXPECT_EQ(box.width, BitmapFont::TextWidth("frame 12", 2) + 2 * ViewLayout::kPadding);
    for (size_t i = 0; i < lines.size(); ++i) {
        int x = 0, y = 0;
        ViewLayout::LineOrigin(300, 200, 3, static_cast<int>(i), x, y);
        EXPECT_GE(y, box.y + ViewLayout::kPadding);
        const int width = BitmapFont::TextWidth(lines[i], 2);
        std::vector<bool> lit(static_cast<size_t>(width) * 16, false);
        BitmapFont::Render(lines[i], 0, 0, 2, [&](int px, int py) { lit[static_cast<size_t>(py) * width + px] = true; });
        for (int py = 0; py < 16; ++py)
            for (int px = 0; px < width; ++px)
                ASSERT_EQ(canvas.At(x + px, y + py),
                          lit[static_cast<size_t>(py) * width + px] ? ViewLayout::kTextColour : ViewLayout::kBoxColour)
                    << lines[i] << " at " << px << "," << py;
    }
    // Outside the box the canvas is untouched.
    EXPECT_EQ(canvas.At(box.x - 1, box.y + 2), 0x808080u);
    EXPECT_EQ(canvas.At(box.x + box.width, box.y + 2), 0x808080u);
    EXPECT_EQ(canvas.At(box.x + 2, box.y - 1), 0x808080u);
}

TEST(ViewCanvasTest, LongLinesAreShortenedToTheCanvas) {
    ViewCanvas canvas;
    canvas.Resize(200, 100);
    const std::string name = "a_folder_name_far_too_long_for_the_window_0123.png";
    canvas.DrawOverlay({"frame 1", name});
    const std::vector<std::string> fitted = ViewLayout::FitLines(200, {"frame 1", name});
    EXPECT_EQ(fitted[0], "frame 1");
    EXPECT_NE(fitted[1].find("..."), std::string::npos);
    EXPECT_EQ(fitted[1].substr(fitted[1].size() - 8), "0123.png");
    const ViewRect box = ViewLayout::OverlayBox(200, 100, {"frame 1", name});
    EXPECT_LE(box.x + box.width, 200 - ViewLayout::kMargin);
    int x = 0, y = 0;
    ViewLayout::LineOrigin(200, 100, 2, 1, x, y);
    // The shortened line is what is drawn.
    EXPECT_EQ(canvas.At(x + BitmapFont::TextWidth(fitted[1], 2) + 1, y + 4), ViewLayout::kBoxColour);
    int lit = 0;
    BitmapFont::Render(fitted[1], x, y, 2, [&](int px, int py) { lit += canvas.At(px, py) == ViewLayout::kTextColour; });
    EXPECT_EQ(lit, [&] {
        int count = 0;
        BitmapFont::Render(fitted[1], 0, 0, 2, [&](int, int) { ++count; });
        return count;
    }());
}

TEST(ViewCanvasTest, TinyCanvasesClipTheOverlay) {
    ViewCanvas canvas;
    canvas.Resize(20, 10);
    const ViewImage image = Pattern(4, 4, 24, 0);
    canvas.DrawImage(image);
    // Four lines need more height than there is: the box starts at the top
    // and is cut at the edges (AddressSanitizer checks that nothing is
    // written outside).
    canvas.DrawOverlay({"a long line of text that does not fit", "x", "y", "z"});
    EXPECT_EQ(ViewLayout::OverlayBox(20, 10, {"a", "b", "c", "d"}).y, 0);
    EXPECT_EQ(canvas.At(0, 0), ViewLayout::kBackground);  // left of the 10 x 10 image
    EXPECT_EQ(canvas.At(6, 0), image.RGB(0, 0));         // the image, left of the box
    EXPECT_EQ(canvas.At(ViewLayout::kMargin, 0), ViewLayout::kBoxColour);
    canvas.Resize(0, 0);
    canvas.DrawImage(Pattern(4, 4, 8, 0));
    canvas.DrawOverlay({"x"});
    EXPECT_TRUE(canvas.Pixels().empty());
}

// ---- Script --------------------------------------------------------------

TEST(ViewScriptTest, StepsAreReadInOrder) {
    std::vector<ViewStep> steps;
    std::string error;
    ASSERT_TRUE(ParseViewScript(" frames:5, SPACE wait:300 right,left r l shot:out/a.png q escape ", steps, error))
        << error;
    ASSERT_EQ(steps.size(), 10u);
    EXPECT_EQ(steps[0].kind, ViewStep::Frames);
    EXPECT_EQ(steps[0].number, 5);
    EXPECT_EQ(steps[1].kind, ViewStep::Key);
    EXPECT_EQ(steps[1].key, ViewKey::Space);
    EXPECT_EQ(steps[2].kind, ViewStep::Wait);
    EXPECT_EQ(steps[2].number, 300);
    EXPECT_EQ(steps[3].key, ViewKey::Right);
    EXPECT_EQ(steps[4].key, ViewKey::Left);
    EXPECT_EQ(steps[5].key, ViewKey::Reverse);
    EXPECT_EQ(steps[6].key, ViewKey::Loop);
    EXPECT_EQ(steps[7].kind, ViewStep::Shot);
    EXPECT_EQ(steps[7].file, "out/a.png");
    EXPECT_EQ(steps[8].key, ViewKey::Quit);
    EXPECT_EQ(steps[9].key, ViewKey::Quit);
    EXPECT_STREQ(ViewKeyName(ViewKey::Reverse), "r");
    ASSERT_TRUE(ParseViewScript("", steps, error));
    EXPECT_TRUE(steps.empty());
}

TEST(ViewScriptTest, MistakesAreNamed) {
    std::vector<ViewStep> steps;
    std::string error;
    const std::vector<std::pair<std::string, std::string>> wrong = {
        {"space jump", "unknown key 'jump'"},     {"wait:", "wait needs"},       {"wait:-5", "wait needs"},
        {"wait:600001", "wait needs"},            {"frames:0", "frames needs"},  {"frames:x", "frames needs"},
        {"shot:a.gif", "shot needs a file name"}, {"shot:", "shot needs"},       {"shot:dir/.png", "shot needs"},
        {"zoom:2", "unknown step 'zoom:2'"},
    };
    for (const auto& [text, says] : wrong) {
        EXPECT_FALSE(ParseViewScript(text, steps, error)) << text;
        EXPECT_NE(error.find(says), std::string::npos) << text << ": " << error;
    }
    EXPECT_TRUE(IsScreenshotName("a.BMP"));
    EXPECT_TRUE(IsScreenshotName("dir/a.jpeg"));
    EXPECT_FALSE(IsScreenshotName("a.tif"));
    EXPECT_FALSE(IsScreenshotName(".png"));
}

// ---- Hand-over between threads --------------------------------------------

/// A source that counts what the control thread asks of it.
class CountingSource final : public ViewSource {
public:
    std::string Describe() const override { return "counting"; }
    bool Start(IUnknown*, std::string& error) override {
        starts++;
        thread = std::this_thread::get_id();
        if (refuse) error = "refused";
        return !refuse;
    }
    void Finish() override { finishes++; }
    void TogglePause() override {
        EXPECT_EQ(std::this_thread::get_id(), thread);
        order.push_back('p');
        paused = !paused;
        if (paused) m_Message = "paused";
    }
    void Step(bool forward) override { order.push_back(forward ? '>' : '<'); }
    int32_t State() override { return paused ? 0 : 2; }
    double TickPeriodMs() override { return paused ? 0 : 20; }
    void Tick() override { ticks++; }
    std::string FrameText(int32_t count, uint64_t sequence) override {
        return std::to_string(count) + "#" + std::to_string(sequence);
    }

    bool refuse = false;
    bool paused = false;
    std::atomic<int> starts{0}, finishes{0}, ticks{0};
    std::string order;
    std::thread::id thread;
};

TEST(ViewControllerTest, ActionsRunInOrderOnTheControlThread) {
    CountingSource source;
    {
        ViewController controller(source);
        std::string error;
        ASSERT_TRUE(controller.Start(nullptr, error));
        EXPECT_NE(source.thread, std::this_thread::get_id());
        controller.Post([](ViewSource& s) { s.Step(true); });
        controller.Post([](ViewSource& s) { s.TogglePause(); });
        controller.Post([](ViewSource& s) { s.Step(false); });
        ASSERT_TRUE(controller.WaitIdle(std::chrono::seconds(10)));
        EXPECT_EQ(controller.Pending(), 0u);
        EXPECT_EQ(source.order, ">p<");
        // The status and the message reflect the last action.
        const ViewStatus status = controller.Status();
        EXPECT_EQ(status.state, 0);
        EXPECT_EQ(status.stateName, "idle");
        EXPECT_FALSE(status.hasDirection);
        std::chrono::steady_clock::time_point when;
        EXPECT_EQ(controller.Message(when), "paused");
    }
    EXPECT_EQ(source.starts, 1);
    EXPECT_EQ(source.finishes, 1);  // stopping the controller finishes the source
}

TEST(ViewControllerTest, SourcesWithoutAThreadArePaced) {
    CountingSource source;
    ViewController controller(source);
    std::string error;
    ASSERT_TRUE(controller.Start(nullptr, error));
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    const int running = source.ticks;
    EXPECT_GE(running, 8);   // every 20 ms
    EXPECT_LE(running, 30);  // without catching up in bursts
    controller.Post([](ViewSource& s) { s.TogglePause(); });
    ASSERT_TRUE(controller.WaitIdle(std::chrono::seconds(10)));
    const int paused = source.ticks;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(source.ticks, paused);
    EXPECT_EQ(controller.Status().stateName, "idle");
    controller.Stop();
    controller.Post([](ViewSource& s) { s.Step(true); });  // after the end: dropped
    EXPECT_EQ(source.order, "p");
}

TEST(ViewControllerTest, ASourceThatDoesNotStartSaysWhy) {
    CountingSource source;
    source.refuse = true;
    ViewController controller(source);
    std::string error;
    EXPECT_FALSE(controller.Start(nullptr, error));
    EXPECT_EQ(error, "refused");
    controller.Stop();
    EXPECT_EQ(source.finishes, 1);
}

class FrameSlotTest : public ::testing::Test {
protected:
    SmartPtr<ILUMImageDIB> Image(int width, int height, int bits, uint8_t value) {
        SmartPtr<ILUMImageDIB> image = CreateByName<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
        EXPECT_TRUE(image);
        if (!image) return image;
        EXPECT_GE(image->Create(width, height, bits), 0);
        uint8_t* pixels = nullptr;
        int32_t stride = 0;
        image->get_Bits(&pixels);
        image->get_Stride(&stride);
        for (int i = 0; i < stride * height; ++i) pixels[i] = value;
        return image;
    }
};

TEST_F(FrameSlotTest, TheNewestImageIsCopiedOnceWithItsText) {
    CountingSource source;
    auto slot = std::make_shared<FrameSlot>();
    slot->Attach(&source);
    SmartPtr<IUnknown> sink = CreateViewSink(slot);
    ASSERT_TRUE(sink);
    SmartPtr<_ICameraEvents> events = QueryAs<_ICameraEvents>(sink.Get(), IID__ICameraEvents);
    ASSERT_TRUE(events);

    ViewFrame frame;
    EXPECT_FALSE(slot->TakeNewer(frame));
    SmartPtr<ILUMImageDIB> first = Image(6, 4, 24, 10), second = Image(3, 2, 8, 20);
    events->ImageGrabbed(nullptr, first.Get(), 41);
    events->ImageGrabbed(nullptr, second.Get(), 42);
    // The sink keeps no reference to what it was lent.
    EXPECT_EQ(RefCountOf(first.Get()), 1u);
    // Only the newest is taken, and only once.
    ASSERT_TRUE(slot->TakeNewer(frame));
    EXPECT_EQ(frame.sequence, 2u);
    EXPECT_EQ(frame.frameText, "42#2");
    EXPECT_EQ(frame.image.width, 3);
    EXPECT_EQ(frame.image.RGB(2, 1), 0x141414u);
    EXPECT_FALSE(slot->TakeNewer(frame));
    // A copy: changing the source's pixels afterwards changes nothing shown.
    uint8_t* pixels = nullptr;
    second->get_Bits(&pixels);
    pixels[0] = 99;
    EXPECT_EQ(frame.image.RGB(0, 0), 0x141414u);

    // What is not an image is counted, not shown; the last image stays.
    events->ImageGrabbed(nullptr, nullptr, 43);
    ASSERT_TRUE(slot->TakeNewer(frame));
    EXPECT_EQ(frame.image.width, 3);
    EXPECT_FALSE(frame.problem.empty());

    // Closed: later deliveries are dropped without asking the source.
    slot->Detach();
    events->ImageGrabbed(nullptr, first.Get(), 44);
    EXPECT_EQ(slot->Delivered(), 3u);
}

TEST_F(FrameSlotTest, DeliveriesFromManyThreadsWhileTheWindowTakes) {
    CountingSource source;
    auto slot = std::make_shared<FrameSlot>();
    slot->Attach(&source);
    SmartPtr<IUnknown> sink = CreateViewSink(slot);
    SmartPtr<_ICameraEvents> events = QueryAs<_ICameraEvents>(sink.Get(), IID__ICameraEvents);
    std::atomic<bool> done{false};
    std::vector<std::thread> senders;
    for (int t = 0; t < 3; ++t)
        senders.emplace_back([&, t] {
            SmartPtr<ILUMImageDIB> image = Image(64, 48, 24, static_cast<uint8_t>(t + 1));
            for (int i = 0; i < 200; ++i) events->ImageGrabbed(nullptr, image.Get(), i);
        });
    std::thread window([&] {
        ViewFrame frame;
        while (!done) {
            if (slot->TakeNewer(frame)) {
                // Never a torn image: every pixel comes from one sender.
                const uint32_t first = frame.image.RGB(0, 0);
                EXPECT_EQ(frame.image.RGB(63, 47), first);
            }
            slot->Rate(std::chrono::steady_clock::now());
        }
    });
    for (std::thread& s : senders) s.join();
    done = true;
    window.join();
    EXPECT_EQ(slot->Delivered(), 600u);
}

TEST_F(FrameSlotTest, RateFollowsTheArrivalsAndDropsToZero) {
    CountingSource source;
    auto slot = std::make_shared<FrameSlot>();
    slot->Attach(&source);
    SmartPtr<IUnknown> sink = CreateViewSink(slot);
    SmartPtr<_ICameraEvents> events = QueryAs<_ICameraEvents>(sink.Get(), IID__ICameraEvents);
    SmartPtr<ILUMImageDIB> image = Image(2, 2, 8, 1);
    EXPECT_EQ(slot->Rate(std::chrono::steady_clock::now()), 0);
    for (int i = 0; i < 8; ++i) {
        events->ImageGrabbed(nullptr, image.Get(), i);
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    const auto now = std::chrono::steady_clock::now();
    const double rate = slot->Rate(now);
    EXPECT_GT(rate, 15);  // 40 images/s asked for, on a loaded machine
    EXPECT_LE(rate, 41);
    EXPECT_EQ(slot->Rate(now + std::chrono::seconds(2)), 0);
}

}  // namespace
