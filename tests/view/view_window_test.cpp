// The live view run as a user runs it, in a window on an X server of the
// test's own (Xvfb), driven by its scripted mode. Each screenshot is read
// back by pixels: the image region must hold the source's pixels (the
// synthetic camera's pattern for the frame number it carries in its first
// bytes, or the recorded file's pixels), and the overlay must show, in the
// host's bitmap font, that same frame number, the rate and the state.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include "tests/view/ViewTestSupport.h"
#include "tools/lumhost/ViewCanvas.h"

namespace {

constexpr int kWindowWidth = 640;
constexpr int kWindowHeight = 480;

/// A screenshot with the overlay's lines read back.
struct Shot {
    Picture picture;
    std::vector<std::string> lines;
    ViewRect box;

    const std::string& Line(size_t i) const {
        static const std::string none = "<no line>";
        return i < lines.size() ? lines[i] : none;
    }
};

Shot ReadShot(const std::string& file, int lineCount) {
    Shot shot;
    shot.picture = ReadBmp(file);
    if (shot.picture.Empty()) return shot;
    for (int i = 0; i < lineCount; ++i) {
        int x = 0, y = 0;
        ViewLayout::LineOrigin(shot.picture.width, shot.picture.height, lineCount, i, x, y);
        shot.lines.push_back(ReadText(shot.picture, x, y, ViewLayout::kTextScale, ViewLayout::kTextColour,
                                      ViewLayout::kBoxColour));
    }
    shot.box = ViewLayout::OverlayBox(shot.picture.width, shot.picture.height, shot.lines);
    return shot;
}

bool InBox(const ViewRect& box, int x, int y) {
    return x >= box.x && y >= box.y && x < box.x + box.width && y < box.y + box.height;
}

/// The synthetic camera's pixel (x, y) of frame f, as 0x00RRGGBB.
uint32_t CameraPixel(int x, int y, uint32_t f, int bits) {
    if (bits == 8) return ((static_cast<uint32_t>(x + y) + f) % 256) * 0x010101u;
    const uint32_t blue = (static_cast<uint32_t>(x) + f) % 256, green = (static_cast<uint32_t>(y) + 2 * f) % 256,
                   red = static_cast<uint32_t>(x + y) % 256;
    return red << 16 | green << 8 | blue;
}

/// The frame number that the synthetic camera writes into the first four
/// bytes of its top row, read from the screenshot.
uint32_t FrameNumberShown(const Picture& picture, const ViewRect& rect, int imageWidth, int bits) {
    // The first window column that shows image column x.
    auto image = [&](int x) { return picture.At(rect.x + (x * rect.width + imageWidth - 1) / imageWidth, rect.y); };
    if (bits == 8) {
        uint32_t f = 0;
        for (int i = 0; i < 4; ++i) f |= (image(i) & 0xFF) << (8 * i);
        return f;
    }
    const uint32_t first = image(0);  // bytes 0, 1, 2: blue, green, red
    uint32_t f = (first & 0xFF) | ((first >> 8) & 0xFF) << 8 | ((first >> 16) & 0xFF) << 16;
    if (bits == 24) f |= (image(1) & 0xFF) << 24;  // byte 3: the next pixel's blue
    return f;
}

/// Pixels that differ from `expected(imageX, imageY)` inside the image's
/// rectangle, or from the background outside it; the overlay box and the
/// image pixels listed in `skipped` are not compared.
template <class Expected>
int Mismatches(const Shot& shot, const ViewRect& rect, int imageWidth, int imageHeight, Expected expected,
               int skippedTopPixels = 0) {
    int wrong = 0;
    for (int y = 0; y < shot.picture.height; ++y)
        for (int x = 0; x < shot.picture.width; ++x) {
            if (InBox(shot.box, x, y)) continue;
            const bool inside = x >= rect.x && y >= rect.y && x < rect.x + rect.width && y < rect.y + rect.height;
            if (!inside) {
                wrong += shot.picture.At(x, y) != ViewLayout::kBackground;
                continue;
            }
            const int ix = (x - rect.x) * imageWidth / rect.width, iy = (y - rect.y) * imageHeight / rect.height;
            if (iy == 0 && ix < skippedTopPixels) continue;
            wrong += shot.picture.At(x, y) != expected(ix, iy);
        }
    return wrong;
}

int FrameIndex(const std::string& line) {
    std::smatch match;
    if (!std::regex_match(line, match, std::regex(R"(frame (\d+)(/\d+)?)"))) return -1;
    return std::stoi(match[1]);
}

double Rate(const std::string& line) {
    std::smatch match;
    if (!std::regex_match(line, match, std::regex(R"((\d+\.\d) fps)"))) return -1;
    return std::stod(match[1]);
}

class ViewWindowTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        server = new XServer;
        if (!server->Start(serverError)) {
            delete server;
            server = nullptr;
        }
    }
    static void TearDownTestSuite() {
        delete server;
        server = nullptr;
    }

    void SetUp() override {
        if (!server) GTEST_SKIP() << "no X server for the window tests: " << serverError;
        folder = MakeTempFolder();
        ASSERT_FALSE(folder.empty());
    }
    void TearDown() override { RemoveTree(folder); }

    Environment WithDisplay() const {
        Environment environment = LeakSuppressions();
        environment["DISPLAY"] = server->Display();
        return environment;
    }

    ProcessResult Host(std::vector<std::string> args, double seconds = 120) {
        args.insert(args.begin(), "./lumhost");
        return RunProgram(args, WithDisplay(), folder, seconds);
    }
    std::string File(const std::string& name) const { return folder + "/" + name; }

    /// A lossless recording of the synthetic camera: `count` BMP files of 64 x 48.
    void RecordBmp(const std::string& name, int count) {
        const ProcessResult run = Host({"record", "--frames", std::to_string(count), "--fps", "200", "--size", "64x48",
                              "--bits", "24", "--format", "bmp", "--folder", File(name)});
        ASSERT_EQ(run.status, 0) << run.err;
    }
    Picture Recorded(const std::string& name, int index) {
        char file[32];
        std::snprintf(file, sizeof file, "/%04d.bmp", index);
        return ReadBmp(File(name) + file);
    }

    /// The screenshot against a 64 x 48 recorded file shown in the 640 x 480 window.
    int FileMismatches(const Shot& shot, const Picture& file) {
        const ViewRect rect = ViewLayout::FitImage(kWindowWidth, kWindowHeight, file.width, file.height);
        return Mismatches(shot, rect, file.width, file.height, [&](int x, int y) { return file.At(x, y); });
    }

    static XServer* server;
    static std::string serverError;
    std::string folder;
};

XServer* ViewWindowTest::server = nullptr;
std::string ViewWindowTest::serverError;

// ---- The synthetic camera ------------------------------------------------

TEST_F(ViewWindowTest, CameraFrameAndOverlayMatchByPixels) {
    const ProcessResult run = Host({"view", "camera", "--size", "320x240", "--bits", "24", "--fps", "25", "--frames", "3",
                          "--keys", "space wait:300", "--screenshot", File("shot.bmp")});
    ASSERT_EQ(run.status, 0) << run.err;
    const Shot shot = ReadShot(File("shot.bmp"), 3);
    ASSERT_EQ(shot.picture.width, kWindowWidth);
    ASSERT_EQ(shot.picture.height, kWindowHeight);

    // The image fills the window at twice its size; its first bytes carry the frame number.
    const ViewRect rect = ViewLayout::FitImage(kWindowWidth, kWindowHeight, 320, 240);
    EXPECT_EQ(rect.width, 640);
    const uint32_t f = FrameNumberShown(shot.picture, rect, 320, 24);
    EXPECT_GE(f, 3u);
    EXPECT_EQ(Mismatches(shot, rect, 320, 240, [&](int x, int y) { return CameraPixel(x, y, f, 24); }, 2), 0);

    // The overlay names that very frame, in the host's font, where the layout puts it.
    int x = 0, y = 0;
    ViewLayout::LineOrigin(kWindowWidth, kWindowHeight, 3, 0, x, y);
    EXPECT_TRUE(ShowsText(shot.picture, "frame " + std::to_string(f), x, y, ViewLayout::kTextScale,
                          ViewLayout::kTextColour, ViewLayout::kBoxColour));
    EXPECT_EQ(shot.Line(0), "frame " + std::to_string(f));
    EXPECT_GE(Rate(shot.Line(1)), 0) << shot.Line(1);
    EXPECT_EQ(shot.Line(2), "idle");
    // The box is drawn: black around the text, the margin left of it is image.
    EXPECT_EQ(shot.picture.At(shot.box.x, shot.box.y), ViewLayout::kBoxColour);
    EXPECT_EQ(shot.box.y + shot.box.height, kWindowHeight - ViewLayout::kMargin);
    EXPECT_NE(run.out.find("saved " + File("shot.bmp") + ": frame " + std::to_string(f) + ", idle"), std::string::npos)
        << run.out;
}

TEST_F(ViewWindowTest, GrayAndFourByteFramesAndLetterboxing) {
    // 8 bits, and a shape that leaves bands above and below the image.
    ProcessResult run = Host({"view", "camera", "--size", "200x100", "--bits", "8", "--fps", "50", "--frames", "2", "--keys",
                    "space wait:200", "--screenshot", File("gray.bmp")});
    ASSERT_EQ(run.status, 0) << run.err;
    Shot shot = ReadShot(File("gray.bmp"), 3);
    ViewRect rect = ViewLayout::FitImage(kWindowWidth, kWindowHeight, 200, 100);
    EXPECT_EQ(rect.y, 80);
    EXPECT_EQ(rect.height, 320);
    uint32_t f = FrameNumberShown(shot.picture, rect, 200, 8);
    EXPECT_EQ(shot.Line(0), "frame " + std::to_string(f));
    EXPECT_EQ(Mismatches(shot, rect, 200, 100, [&](int x, int y) { return CameraPixel(x, y, f, 8); }, 4), 0);

    // 32 bits (the alpha byte is not shown), taller than the window's shape.
    run = Host({"view", "camera", "--size", "100x150", "--bits", "32", "--fps", "50", "--frames", "2", "--keys",
                "space wait:200", "--screenshot", File("wide.bmp")});
    ASSERT_EQ(run.status, 0) << run.err;
    shot = ReadShot(File("wide.bmp"), 3);
    rect = ViewLayout::FitImage(kWindowWidth, kWindowHeight, 100, 150);
    EXPECT_EQ(rect.height, kWindowHeight);
    EXPECT_EQ(rect.width, 320);
    f = FrameNumberShown(shot.picture, rect, 100, 32);
    EXPECT_EQ(shot.Line(0), "frame " + std::to_string(f));
    EXPECT_EQ(Mismatches(shot, rect, 100, 150, [&](int x, int y) { return CameraPixel(x, y, f, 24); }, 1), 0);
}

TEST_F(ViewWindowTest, PauseHoldsTheFrameAndResumeGoesOn) {
    const ProcessResult run = Host({"view", "camera", "--size", "160x120", "--fps", "25", "--keys",
                          "frames:3 space wait:300 shot:" + File("a.bmp") + " wait:700 shot:" + File("b.bmp") +
                              " space frames:3 shot:" + File("c.bmp")});
    ASSERT_EQ(run.status, 0) << run.err;
    const ViewRect rect = ViewLayout::FitImage(kWindowWidth, kWindowHeight, 160, 120);
    const Shot a = ReadShot(File("a.bmp"), 3), b = ReadShot(File("b.bmp"), 3), c = ReadShot(File("c.bmp"), 3);
    const uint32_t fa = FrameNumberShown(a.picture, rect, 160, 24), fb = FrameNumberShown(b.picture, rect, 160, 24),
                   fc = FrameNumberShown(c.picture, rect, 160, 24);
    // Paused: the same frame 700 ms later, the state idle and the rate down to 0.
    EXPECT_EQ(fa, fb);
    EXPECT_EQ(a.Line(0), "frame " + std::to_string(fa));
    EXPECT_EQ(b.Line(0), "frame " + std::to_string(fb));
    EXPECT_EQ(a.Line(2), "idle");
    EXPECT_EQ(b.Line(2), "idle");
    EXPECT_EQ(b.Line(1), "0.0 fps");
    int changed = 0;  // outside the overlay nothing moved
    for (int y = 0; y < kWindowHeight; ++y)
        for (int x = 0; x < kWindowWidth; ++x)
            if (!InBox(a.box, x, y) && !InBox(b.box, x, y)) changed += a.picture.At(x, y) != b.picture.At(x, y);
    EXPECT_EQ(changed, 0);
    // Resumed: later frames, live, at about the camera's rate.
    EXPECT_GE(fc, fb + 3);
    EXPECT_EQ(c.Line(0), "frame " + std::to_string(fc));
    EXPECT_EQ(c.Line(2), "live");
    EXPECT_GT(Rate(c.Line(1)), 5.0) << c.Line(1);
    EXPECT_EQ(Mismatches(c, rect, 160, 120, [&](int x, int y) { return CameraPixel(x, y, fc, 24); }, 2), 0);
}

TEST_F(ViewWindowTest, StepsGrabOneFrameEach) {
    const ProcessResult run = Host({"view", "camera", "--size", "160x120", "--fps", "25", "--keys",
                          "frames:2 space wait:300 shot:" + File("a.bmp") + " right shot:" + File("b.bmp") +
                              " right shot:" + File("c.bmp") + " left shot:" + File("d.bmp")});
    ASSERT_EQ(run.status, 0) << run.err;
    const ViewRect rect = ViewLayout::FitImage(kWindowWidth, kWindowHeight, 160, 120);
    uint32_t frames[4];
    const char* names[4] = {"a.bmp", "b.bmp", "c.bmp", "d.bmp"};
    for (int i = 0; i < 4; ++i) {
        const Shot shot = ReadShot(File(names[i]), 3);
        frames[i] = FrameNumberShown(shot.picture, rect, 160, 24);
        EXPECT_EQ(shot.Line(0), "frame " + std::to_string(frames[i])) << names[i];
        EXPECT_EQ(shot.Line(2), "idle") << names[i];
    }
    // A camera cannot go back: either arrow grabs the next frame.
    EXPECT_EQ(frames[1], frames[0] + 1);
    EXPECT_EQ(frames[2], frames[0] + 2);
    EXPECT_EQ(frames[3], frames[0] + 3);
}

TEST_F(ViewWindowTest, QuitKeysEndTheViewAtOnce) {
    for (const char* key : {"q", "escape"}) {
        const auto start = std::chrono::steady_clock::now();
        const ProcessResult run = Host({"view", "camera", "--size", "64x48", "--keys", std::string("frames:1 ") + key +
                                                                                  " frames:100000"},
                             60);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_EQ(run.status, 0) << key << ": " << run.err;
        EXPECT_LT(seconds, 30) << key;
    }
}

// ---- Recordings, stacks and folders ---------------------------------------

TEST_F(ViewWindowTest, PlaybackStepsReversesAndLoops) {
    RecordBmp("take", 12);
    const ProcessResult run = Host({"view", "play", "--folder", File("take"), "--format", "bmp", "--fps", "20", "--keys",
                          "frames:5 space wait:300 shot:" + File("a.bmp") + " right shot:" + File("b.bmp") +
                              " left left shot:" + File("c.bmp") + " r space frames:2 space wait:300 shot:" +
                              File("d.bmp") + " l shot:" + File("e.bmp")});
    ASSERT_EQ(run.status, 0) << run.err;
    const Shot a = ReadShot(File("a.bmp"), 3), b = ReadShot(File("b.bmp"), 3), c = ReadShot(File("c.bmp"), 3),
               d = ReadShot(File("d.bmp"), 3), e = ReadShot(File("e.bmp"), 3);
    const int i = FrameIndex(a.Line(0));
    ASSERT_GE(i, 4) << a.Line(0);
    EXPECT_EQ(a.Line(0), "frame " + std::to_string(i) + "/11");  // the last file index is 11
    EXPECT_EQ(a.Line(2), "idle  fwd  once");
    EXPECT_EQ(FrameIndex(b.Line(0)), i + 1);
    EXPECT_EQ(FrameIndex(c.Line(0)), i - 1);
    EXPECT_EQ(c.Line(2), "idle  fwd  once");  // stepping leaves the direction alone
    // Reversed and resumed: earlier files, shown while going backward.
    EXPECT_LT(FrameIndex(d.Line(0)), i - 1);
    EXPECT_EQ(d.Line(2), "idle  rev  once");
    EXPECT_EQ(e.Line(2), "idle  rev  loop");
    // Each screenshot shows the very file its overlay names.
    for (const Shot* shot : {&a, &b, &c, &d}) {
        const int index = FrameIndex(shot->Line(0));
        ASSERT_GE(index, 0);
        const Picture file = Recorded("take", index);
        ASSERT_FALSE(file.Empty());
        EXPECT_EQ(FileMismatches(*shot, file), 0) << shot->Line(0);
    }
}

TEST_F(ViewWindowTest, StackOfAFolderStepsWrapsAndReverses) {
    RecordBmp("take", 6);
    const ProcessResult run = Host({"view", "stack", "--in", File("take"), "--fps", "20", "--keys",
                          "frames:2 space wait:300 shot:" + File("a.bmp") + " right shot:" + File("b.bmp") +
                              " r l shot:" + File("c.bmp")});
    ASSERT_EQ(run.status, 0) << run.err;
    // The stack holds the folder's files: their names are shown too.
    const Shot a = ReadShot(File("a.bmp"), 4), b = ReadShot(File("b.bmp"), 4), c = ReadShot(File("c.bmp"), 4);
    const int k = FrameIndex(a.Line(0));
    ASSERT_GE(k, 1) << a.Line(0);
    EXPECT_EQ(a.Line(0), "frame " + std::to_string(k) + "/6");
    char name[16];
    std::snprintf(name, sizeof name, "%04d.bmp", k - 1);
    EXPECT_EQ(a.Line(3), name);
    EXPECT_EQ(a.Line(2), "idle  fwd  once");
    EXPECT_EQ(FrameIndex(b.Line(0)), k % 6 + 1);  // a single step wraps around
    EXPECT_EQ(c.Line(2), "idle  rev  loop");
    // The k-th image of the stack is the k-th file in name order.
    EXPECT_EQ(FileMismatches(a, Recorded("take", k - 1)), 0);
    EXPECT_EQ(FileMismatches(b, Recorded("take", k % 6)), 0);
}

TEST_F(ViewWindowTest, ReplayShowsFileNamesAndSteps) {
    RecordBmp("take", 5);
    const ProcessResult run = Host({"view", "replay", File("take"), "--fps", "20", "--keys",
                          "frames:2 space wait:300 shot:" + File("a.bmp") + " right shot:" + File("b.bmp") +
                              " left left shot:" + File("c.bmp") + " r shot:" + File("d.bmp")});
    ASSERT_EQ(run.status, 0) << run.err;
    const Shot a = ReadShot(File("a.bmp"), 4), b = ReadShot(File("b.bmp"), 4), c = ReadShot(File("c.bmp"), 4),
               d = ReadShot(File("d.bmp"), 4);
    const int k = FrameIndex(a.Line(0));
    ASSERT_GE(k, 1) << a.Line(0);
    EXPECT_EQ(a.Line(2), "idle  fwd  loop");
    EXPECT_EQ(FrameIndex(b.Line(0)), k % 5 + 1);
    EXPECT_EQ(FrameIndex(c.Line(0)), (k + 3) % 5 + 1);  // two back from k + 1, wrapping
    EXPECT_EQ(d.Line(2), "idle  rev  loop");
    for (const Shot* shot : {&a, &b, &c}) {
        const int index = FrameIndex(shot->Line(0)) - 1;
        char name[16];
        std::snprintf(name, sizeof name, "%04d.bmp", index);
        EXPECT_EQ(shot->Line(3), name);
        EXPECT_EQ(FileMismatches(*shot, Recorded("take", index)), 0) << name;
    }
}

TEST_F(ViewWindowTest, WatchShowsEachNewFile) {
    RecordBmp("take", 3);
    const std::string incoming = File("incoming");
    std::filesystem::create_directory(incoming);
    Child view;
    ASSERT_TRUE(view.Start({"./lumhost", "view", "watch", incoming, "--frames", "2", "--screenshot", File("w.bmp"),
                            "--timeout", "60"},
                           WithDisplay(), folder));
    // Once the view watches, two files are moved in one after the other.
    for (int i = 0; i < 600 && view.Output().find("showing") == std::string::npos; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::filesystem::copy_file(File("take/0001.bmp"), File("first.bmp"));
    std::filesystem::rename(File("first.bmp"), incoming + "/first.bmp");
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    std::filesystem::copy_file(File("take/0002.bmp"), File("second.bmp"));
    std::filesystem::rename(File("second.bmp"), incoming + "/second.bmp");
    const ProcessResult run = view.Wait(90);
    ASSERT_EQ(run.status, 0) << run.err;
    const Shot shot = ReadShot(File("w.bmp"), 4);
    EXPECT_EQ(shot.Line(0), "image 2");
    EXPECT_EQ(shot.Line(2), "live");
    EXPECT_EQ(shot.Line(3), "second.bmp");
    EXPECT_EQ(FileMismatches(shot, Recorded("take", 2)), 0);
}

// ---- What the X server shows ---------------------------------------------

TEST_F(ViewWindowTest, WindowOnTheServerShowsTheScreenshot) {
    if (!OnPath("xwd")) GTEST_SKIP() << "xwd (Debian package x11-apps) is not installed";
    Child view;
    ASSERT_TRUE(view.Start({"./lumhost", "view", "camera", "--size", "320x240", "--keys",
                            "frames:2 space wait:300 shot:" + File("own.bmp") + " wait:5000"},
                           WithDisplay(), folder));
    for (int i = 0; i < 600 && view.Output().find("saved") == std::string::npos; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_NE(view.Output().find("saved"), std::string::npos);
    // The whole screen, as the server holds it, by a program of its own.
    const ProcessResult dump = RunProgram({"xwd", "-root", "-silent", "-display", server->Display(), "-out", File("root.xwd")},
                                {}, folder, 60);
    ASSERT_EQ(dump.status, 0) << dump.err;
    const ProcessResult ended = view.Wait(60);
    EXPECT_EQ(ended.status, 0) << ended.err;

    const Picture root = ReadXwd(File("root.xwd")), own = ReadBmp(File("own.bmp"));
    ASSERT_EQ(root.width, 1024);
    ASSERT_EQ(root.height, 768);
    ASSERT_EQ(own.width, kWindowWidth);
    // Without a window manager the window sits where the view centred it.
    const int left = (root.width - own.width) / 2, top = (root.height - own.height) / 2;
    int wrong = 0;
    for (int y = 0; y < own.height; ++y)
        for (int x = 0; x < own.width; ++x) wrong += root.At(left + x, top + y) != own.At(x, y);
    EXPECT_EQ(wrong, 0);
}

// ---- Bad input -----------------------------------------------------------

TEST_F(ViewWindowTest, BadSourcesAreRefusedWithAReason) {
    std::filesystem::create_directory(File("empty"));
    std::filesystem::create_directory(File("junk"));
    {
        std::ofstream junk(File("junk/broken.jpg"), std::ios::binary);
        junk << "this is not a picture";
    }
    struct Case {
        std::vector<std::string> args;
        int status;
        const char* says;
    };
    const std::vector<Case> cases = {
        {{"view", "replay", File("missing")}, 1, "no folder"},
        {{"view", "replay", File("empty")}, 1, "no images"},
        {{"view", "watch", File("missing")}, 1, "no folder"},
        {{"view", "play", "--folder", File("empty")}, 1, "no recording"},
        {{"view", "play", "--folder", File("missing")}, 1, "no folder"},
        {{"view", "stack", "--in", File("missing")}, 1, "no file or folder"},
        {{"view", "stack", "--in", File("junk"), "--frames", "1", "--timeout", "20"}, 1, "nothing could be read"},
        {{"view", "stack"}, 2, "--in is required"},
        {{"view", "replay"}, 2, "which folder"},
        {{"view", "film"}, 2, "unknown source"},
        {{"view"}, 2, "usage"},
        {{"view", "camera", "--camera", "phone"}, 2, "--camera"},
        {{"view", "camera", "--size", "0x5"}, 2, "--size"},
        {{"view", "camera", "--bits", "16"}, 2, "--bits"},
        {{"view", "camera", "--window", "big"}, 2, "--window"},
        {{"view", "camera", "--keys", "space jump"}, 2, "unknown key 'jump'"},
        {{"view", "camera", "--keys", "wait:soon"}, 2, "wait needs milliseconds"},
        {{"view", "camera", "--keys", "shot:picture"}, 2, "shot needs a file name"},
        {{"view", "camera", "--screenshot", File("x.gif")}, 2, "--screenshot"},
        {{"view", "camera", "--frames", "0"}, 2, "--frames"},
        {{"view", "camera", "--loop"}, 2, "unknown argument"},
    };
    for (const Case& c : cases) {
        const ProcessResult run = Host(c.args, 60);
        std::string line;
        for (const std::string& a : c.args) line += a + " ";
        EXPECT_EQ(run.status, c.status) << line << "\n" << run.err;
        EXPECT_NE(run.err.find(c.says), std::string::npos) << line << "\n" << run.err;
        EXPECT_TRUE(run.out.empty()) << line << "\n" << run.out;
    }
}

TEST_F(ViewWindowTest, FailuresWhileShowingEndTheViewWithAReason) {
    // A script that cannot finish in time.
    ProcessResult run = Host({"view", "camera", "--size", "64x48", "--fps", "1", "--frames", "1000", "--timeout", "1.5"});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("did not finish within 1.5 s"), std::string::npos) << run.err;
    // A screenshot that cannot be written.
    run = Host({"view", "camera", "--size", "64x48", "--frames", "1", "--screenshot", File("missing/shot.png")});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("cannot write"), std::string::npos) << run.err;
    EXPECT_FALSE(std::filesystem::exists(File("missing/shot.png")));
    // No display at all.
    Environment none = LeakSuppressions();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "SDL_VIDEODRIVER"}) none[name] = std::nullopt;
    run = RunProgram({"./lumhost", "view", "camera", "--frames", "1"}, none, folder);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("cannot open a window"), std::string::npos) << run.err;
}

TEST_F(ViewWindowTest, ScreenshotsInEveryFormatTheFrameworkWrites) {
    const ProcessResult run = Host({"view", "camera", "--size", "320x240", "--window", "240x180", "--keys",
                                    "frames:2 space wait:300 shot:" + File("s.bmp") + " shot:" + File("s.png") +
                                        " shot:" + File("s.jpg")});
    ASSERT_EQ(run.status, 0) << run.err;
    const Picture bmp = ReadBmp(File("s.bmp")), png = ReadPng(File("s.png"));
    ASSERT_EQ(bmp.width, 240);
    ASSERT_EQ(bmp.height, 180);
    EXPECT_TRUE(bmp.rgb == png.rgb);  // both lossless, the same paused window
    // The JPEG, decoded by a standard decoder, is the same picture within
    // the losses of the format.
    if (!OnPath("djpeg")) GTEST_SKIP() << "djpeg (Debian package libjpeg-turbo-progs) is not installed";
    const ProcessResult decoded =
        RunProgram({"djpeg", "-bmp", "-outfile", File("s-jpg.bmp"), File("s.jpg")}, {}, folder, 60);
    ASSERT_EQ(decoded.status, 0) << decoded.err;
    const Picture jpg = ReadBmp(File("s-jpg.bmp"));
    ASSERT_EQ(jpg.width, 240);
    ASSERT_EQ(jpg.height, 180);
    double difference = 0;
    for (size_t i = 0; i < bmp.rgb.size(); ++i)
        for (int shift : {0, 8, 16})
            difference += std::abs(static_cast<int>((bmp.rgb[i] >> shift) & 0xFF) -
                                   static_cast<int>((jpg.rgb[i] >> shift) & 0xFF));
    EXPECT_LT(difference / (3.0 * bmp.rgb.size()), 4.0);
}

// Without any X server: SDL's offscreen driver, asked for by name, runs the
// scripted mode and draws the same pixels.
TEST(ViewWithoutDisplayTest, OffscreenDriverRunsTheScriptWhenAskedFor) {
    const std::string folder = MakeTempFolder();
    ASSERT_FALSE(folder.empty());
    Environment environment = LeakSuppressions();
    environment["DISPLAY"] = std::nullopt;
    environment["WAYLAND_DISPLAY"] = std::nullopt;
    environment["SDL_VIDEODRIVER"] = "offscreen";
    const ProcessResult run = RunProgram({"./lumhost", "view", "camera", "--size", "320x240", "--frames", "2", "--keys",
                                          "space wait:200", "--screenshot", folder + "/off.bmp"},
                                         environment, folder, 120);
    EXPECT_EQ(run.status, 0) << run.err;
    const Shot shot = ReadShot(folder + "/off.bmp", 3);
    ASSERT_EQ(shot.picture.width, kWindowWidth);
    const ViewRect rect = ViewLayout::FitImage(kWindowWidth, kWindowHeight, 320, 240);
    const uint32_t f = FrameNumberShown(shot.picture, rect, 320, 24);
    EXPECT_EQ(shot.Line(0), "frame " + std::to_string(f));
    EXPECT_EQ(Mismatches(shot, rect, 320, 240, [&](int x, int y) { return CameraPixel(x, y, f, 24); }, 2), 0);
    RemoveTree(folder);
}

}  // namespace
