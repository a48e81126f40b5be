// "LUMFileGrab" driven as a host drives it: the folder given as text, the
// camera operations called through its ICamera answer (its primary table),
// sinks advised on its event source, and image files copied into the
// watched folder by another party. Every watch case runs with the kernel's
// notification and with periodic looks at the folder. Also run under
// ThreadSanitizer.
#include <algorithm>
#include <clocale>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>

#include "lum/filegrab.h"
#include "tests/window/WindowHost.h"

// The file grab's ICamera answer is its primary pointer, laid out as the
// public header describes it.
using FileGrabCamera = LUMFileGrabCamera;

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::wstring Wide(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

/// A gray image of one level, or a smooth colour image.
SmartPtr<ILUMImageDIB> Gray(uint8_t level) {
    return MakeImage(16, 16, 8, [level](int32_t, int32_t) { return level; });
}
SmartPtr<ILUMImageDIB> Colour() {
    return MakeImage(40, 30, 24,
                     [](int32_t i, int32_t y) { return static_cast<uint8_t>(i / 3 * 3 + y * 2 + i % 3 * 30); });
}

void WriteJpeg(const std::string& path, ILUM* image) {
    SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    ASSERT_TRUE(archive);
    ASSERT_EQ(S_OK, archive->Write(FileNameString(path).Get(), image, 95));
}

/// The pixels of an image file as the framework decodes them.
ImageBytes Decoded(const std::string& path) {
    SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    SmartPtr<ILUM> image;
    if (!archive || archive->Read(FileNameString(path).Get(), image.Out()) < 0 || !image) return {};
    return BytesOf(image.Get());
}

double Mean(const ImageBytes& bytes) {
    double sum = 0;
    size_t n = 0;
    for (const auto& row : bytes.rows)
        for (uint8_t b : row) sum += b, ++n;
    return n ? sum / static_cast<double>(n) : -1;
}

class FileGrabHost : public WindowHostTest {
protected:
    void SetUp() override {
        WindowHostTest::SetUp();
        // File names reach the operating system in the process locale.
        m_Locale = std::setlocale(LC_CTYPE, nullptr);
        ASSERT_TRUE(std::setlocale(LC_CTYPE, "C.UTF-8"));
        NewGrab();
        ASSERT_EQ(S_OK, camera->LoadParameters(ViewOf(Wide(folder.Path()))));
    }
    void TearDown() override {
        if (camera) camera->StopLive();
        if (events) events->Advise(sink->PrimaryUnknown(), 0);
        camera.Reset();
        events.Reset();
        grab.Reset();
        std::setlocale(LC_CTYPE, m_Locale.c_str());
        WindowHostTest::TearDown();
    }

    void NewGrab() {
        grab = CreateFrom<IUnknown>(module, L"LUMFileGrab", IID_IUnknown);
        ASSERT_TRUE(grab);
        void* answer = nullptr;
        ASSERT_EQ(S_OK, grab->QueryInterface(IID_ICamera, &answer));
        ASSERT_EQ(answer, grab.Get());
        camera = SmartPtr<FileGrabCamera>::Adopt(static_cast<FileGrabCamera*>(static_cast<IUnknown*>(answer)));
        events = grab.As<IEventSource>(IID_IEventSource);
        ASSERT_TRUE(events);
        sink = CObject<GrabSink>::New();
        ASSERT_EQ(S_OK, events->Advise(sink->PrimaryUnknown(), 1));
    }

    int32_t State() {
        int32_t state = -1;
        EXPECT_EQ(S_OK, camera->Inquire(10, &state));
        return state;
    }
    int32_t Watching() {
        CameraStateConstants state = static_cast<CameraStateConstants>(-1);
        EXPECT_EQ(S_OK, camera->get_CameraState(&state));
        return state;
    }
    int32_t Frames() {
        int32_t count = -1;
        EXPECT_EQ(S_OK, camera->get_NumberOfFrames(&count));
        return count;
    }
    /// Copies a file written beforehand into the watched folder.
    void CopyIn(const std::string& from, const std::string& name) {
        std::filesystem::copy_file(from, folder.File(name));
    }
    /// Waits for `count` deliveries, then a little longer, in which no
    /// further one may come.
    bool DeliveriesSettleAt(size_t count, double seconds = 20) {
        const bool reached = WaitFor([&] { return sink->Count() >= count; }, seconds);
        std::this_thread::sleep_for(400ms);
        return reached && sink->Count() == count;
    }

    ScratchFolder folder, source;
    SmartPtr<IUnknown> grab;
    SmartPtr<FileGrabCamera> camera;
    SmartPtr<IEventSource> events;
    SmartPtr<GrabSink> sink;

private:
    std::string m_Locale;
};

enum class Mode { Notify, Poll };

class FileGrabTest : public FileGrabHost, public testing::WithParamInterface<Mode> {
protected:
    void SetUp() override {
        if (GetParam() == Mode::Poll) m_Polling = std::make_unique<ScopedEnv>("LUM_WATCH_POLLING", "1");
        FileGrabHost::SetUp();
    }

private:
    std::unique_ptr<ScopedEnv> m_Polling;
};

// ---- Delivery ------------------------------------------------------------

TEST_P(FileGrabTest, AJpegCopiedInIsDeliveredWithItsPixelsOnTheWatchThread) {
    SmartPtr<ILUMImageDIB> original = Colour();
    ASSERT_NO_FATAL_FAILURE(WriteJpeg(source.File("shot.jpg"), original.Get()));
    const ImageBytes reference = Decoded(source.File("shot.jpg"));
    ASSERT_EQ(40, reference.width);

    ASSERT_EQ(S_OK, camera->Live());
    EXPECT_EQ(CameraStateLive, State());
    EXPECT_EQ(CameraStateLive, Watching());
    EXPECT_EQ(0, Frames());
    CopyIn(source.File("shot.jpg"), "shot.jpg");
    ASSERT_TRUE(DeliveriesSettleAt(1));

    const GrabEvent event = sink->Events()[0];
    EXPECT_EQ(0, event.count);
    EXPECT_EQ(IdentityPointer(grab.Get()), event.source);
    EXPECT_NE(std::this_thread::get_id(), event.thread);
    EXPECT_EQ(Wide(folder.File("shot.jpg")), event.file);
    EXPECT_EQ(0, MaxDifference(reference, event.bytes));
    EXPECT_LE(MaxDifference(BytesOf(original.Get()), event.bytes), 12);
    // The delivery sets the state to 0 for a waiting Grab once its sinks
    // had the image.
    EXPECT_TRUE(WaitFor([&] { return State() == CameraStateIdle; }));

    EXPECT_EQ(1, Frames());
    SmartPtr<ILUM> image;
    ASSERT_EQ(S_OK, camera->get_Image(0, image.Out()));
    EXPECT_EQ(0, MaxDifference(reference, BytesOf(image.Get())));
    SmartPtr<ILUM> none;
    EXPECT_EQ(E_INVALIDARG, camera->get_Image(1, none.Out()));
    EXPECT_FALSE(none);

    ASSERT_EQ(S_OK, camera->StopLive());
    EXPECT_EQ(CameraStateIdle, Watching());
    EXPECT_EQ(CameraStateIdle, State());
}

TEST_P(FileGrabTest, EveryFileOfABurstOfAHundredIsDeliveredOnceWithItsOwnPixels) {
    std::map<std::wstring, int> levels;
    for (int i = 0; i < 100; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "f%03d.jpg", i);
        const int level = 20 + 2 * i;
        ASSERT_NO_FATAL_FAILURE(WriteJpeg(source.File(name), Gray(static_cast<uint8_t>(level)).Get()));
        levels[Wide(folder.File(name))] = level;
    }
    ASSERT_EQ(S_OK, camera->Live());
    for (const auto& [name, level] : levels) {
        const std::string file(name.begin() + static_cast<std::ptrdiff_t>(folder.Path().size()) + 1, name.end());
        CopyIn(source.File(file), file);
    }
    ASSERT_TRUE(DeliveriesSettleAt(100)) << sink->Count();

    std::set<std::wstring> delivered;
    for (const GrabEvent& event : sink->Events()) {
        ASSERT_TRUE(levels.count(event.file)) << "unexpected delivery";
        EXPECT_TRUE(delivered.insert(event.file).second) << "delivered twice";
        // The image is the named file's, not merely the newest one's.
        EXPECT_NEAR(levels[event.file], Mean(event.bytes), 1.0);
    }
    EXPECT_EQ(100u, delivered.size());
    EXPECT_EQ(100, Frames());
}

// ---- Waiting Grab --------------------------------------------------------

TEST_P(FileGrabTest, GrabStartsTheWatchAndAWaitingGrabReturnsSoonAfterANewFile) {
    ASSERT_NO_FATAL_FAILURE(WriteJpeg(source.File("next.jpg"), Gray(90).Get()));
    auto start = Clock::now();
    ASSERT_EQ(S_OK, camera->Grab(0, 0, nullptr));
    EXPECT_LT(Clock::now() - start, 1s);
    EXPECT_EQ(CameraStateLive, Watching());
    EXPECT_EQ(CameraStateLive, State());

    std::atomic<int64_t> deliveredAt{0};
    sink->onEvent = [&](GrabSink&) { deliveredAt = Clock::now().time_since_epoch().count(); };
    std::thread copier([&] {
        std::this_thread::sleep_for(300ms);
        CopyIn(source.File("next.jpg"), "next.jpg");
    });
    start = Clock::now();
    const HRESULT hr = camera->Grab(0, 1, nullptr);
    const auto returned = Clock::now();
    copier.join();
    ASSERT_EQ(S_OK, hr);
    EXPECT_GE(returned - start, 250ms);
    ASSERT_NE(0, deliveredAt.load());
    // Grab looks every 100 ms.
    EXPECT_LT(returned - Clock::time_point(Clock::duration(deliveredAt.load())), 400ms);
    EXPECT_EQ(CameraStateLive, State());
    EXPECT_EQ(1u, sink->Count());
}

using FileGrabTimeLimit = FileGrabHost;

TEST_F(FileGrabTimeLimit, AWaitingGrabWithoutANewFileFailsAfterFiveSeconds) {
    const auto start = Clock::now();
    EXPECT_EQ(E_FAIL, camera->Grab(0, 1, nullptr));
    const auto waited = Clock::now() - start;
    EXPECT_GE(waited, 5000ms);
    EXPECT_LT(waited, 6500ms);
    EXPECT_EQ(0u, sink->Count());
}

// ---- Bad input -----------------------------------------------------------

TEST_P(FileGrabTest, FilesThatAreNotImagesOrNotCompleteAreNeverDeliveredBroken) {
    const std::string umlaut = "bild-\xC3\xA4\xE2\x82\xAC.jpg";
    const std::wstring umlautWide = L"bild-\u00E4\u20AC.jpg";
    for (auto [name, level] : {std::pair<const char*, int>{"part.jpg", 40}, {"slow.jpg", 80}, {"u.jpg", 120},
                               {"good.jpg", 160}})
        ASSERT_NO_FATAL_FAILURE(WriteJpeg(source.File(name), Gray(static_cast<uint8_t>(level)).Get()));
    const std::string part = ReadFile(source.File("part.jpg"));
    const std::string slow = ReadFile(source.File("slow.jpg"));
    ASSERT_GT(slow.size(), 30u);

    ASSERT_EQ(S_OK, camera->Live());
    WriteFile(folder.File("notes.txt"), "not an image at all");
    WriteFile(folder.File("fake.jpg"), "not a JPEG either, despite its name");
    WriteFile(folder.File("part.jpg"), part.substr(0, part.size() / 2));
    {
        // Written in pieces through one open file.
        FILE* file = std::fopen(folder.File("slow.jpg").c_str(), "wb");
        ASSERT_TRUE(file);
        const size_t third = slow.size() / 3;
        for (size_t at = 0; at < slow.size(); at += third) {
            std::fwrite(slow.data() + at, 1, std::min(third, slow.size() - at), file);
            std::fflush(file);
            std::this_thread::sleep_for(30ms);
        }
        std::fclose(file);
    }
    CopyIn(source.File("u.jpg"), umlaut);
    CopyIn(source.File("good.jpg"), "good.jpg");
    // Files the list takes in together are announced one after another, in
    // no particular order.
    const std::wstring umlautPath = Wide(folder.Path()) + L"/" + umlautWide;
    for (const std::wstring& name : {Wide(folder.File("slow.jpg")), umlautPath, Wide(folder.File("good.jpg"))})
        ASSERT_TRUE(WaitFor([&] { return sink->Deliveries(name) >= 1; }, 20)) << std::string(name.begin(), name.end());

    // The rest of the partial file arrives later.
    {
        FILE* file = std::fopen(folder.File("part.jpg").c_str(), "ab");
        ASSERT_TRUE(file);
        std::fwrite(part.data() + part.size() / 2, 1, part.size() - part.size() / 2, file);
        std::fclose(file);
    }
    // Time for what must never come, and for the completed partial file,
    // which may or may not come.
    std::this_thread::sleep_for(600ms);

    // One look at the deliveries, so that the counts below agree with each
    // other even if one more is under way.
    const std::vector<GrabEvent> events = sink->Events();
    const auto deliveries = [&events](const std::wstring& name) {
        return static_cast<int>(
            std::count_if(events.begin(), events.end(), [&name](const GrabEvent& event) { return event.file == name; }));
    };
    EXPECT_EQ(0, deliveries(Wide(folder.File("notes.txt"))));
    EXPECT_EQ(0, deliveries(Wide(folder.File("fake.jpg"))));
    EXPECT_EQ(1, deliveries(Wide(folder.File("slow.jpg"))));
    EXPECT_EQ(1, deliveries(umlautPath));
    EXPECT_EQ(1, deliveries(Wide(folder.File("good.jpg"))));
    const int parts = deliveries(Wide(folder.File("part.jpg")));
    EXPECT_LE(parts, 1);
    const std::map<std::wstring, int> levels = {{L"part.jpg", 40}, {L"slow.jpg", 80}, {umlautWide, 120},
                                                {L"good.jpg", 160}};
    for (const GrabEvent& event : events) {
        SCOPED_TRACE(std::string(event.file.begin(), event.file.end()));
        ASSERT_TRUE(event.answersImage);
        const std::wstring name = event.file.substr(event.file.rfind(L'/') + 1);
        ASSERT_TRUE(levels.count(name));
        EXPECT_NEAR(levels.at(name), Mean(event.bytes), 1.0);
    }
    EXPECT_EQ(3u + static_cast<size_t>(parts), events.size());
}

TEST_P(FileGrabTest, AFolderDeletedWhileWatchedIsSurvivedAndWatchedAgainWhenItReturns) {
    ASSERT_NO_FATAL_FAILURE(WriteJpeg(source.File("a.jpg"), Gray(30).Get()));
    ASSERT_NO_FATAL_FAILURE(WriteJpeg(source.File("b.jpg"), Gray(60).Get()));
    ASSERT_EQ(S_OK, camera->Live());
    CopyIn(source.File("a.jpg"), "a.jpg");
    ASSERT_TRUE(DeliveriesSettleAt(1));

    std::filesystem::remove_all(folder.Path());
    std::this_thread::sleep_for(300ms);
    // The list still names the vanished file; it cannot be loaded.
    SmartPtr<ILUM> image;
    EXPECT_LT(camera->get_Image(0, image.Out()), 0);
    EXPECT_FALSE(image);

    std::filesystem::create_directory(folder.Path());
    CopyIn(source.File("b.jpg"), "b.jpg");
    ASSERT_TRUE(DeliveriesSettleAt(2));
    EXPECT_EQ(1, sink->Deliveries(Wide(folder.File("a.jpg"))));
    EXPECT_EQ(1, sink->Deliveries(Wide(folder.File("b.jpg"))));
    EXPECT_NEAR(60, Mean(sink->Events()[1].bytes), 1.0);
}

// ---- Going away ----------------------------------------------------------

TEST_P(FileGrabTest, ReleasingTheGrabWhileFilesArriveEndsTheDeliveries) {
    ASSERT_NO_FATAL_FAILURE(WriteJpeg(source.File("s.jpg"), Gray(50).Get()));
    ASSERT_EQ(S_OK, camera->Live());
    std::atomic<bool> stop{false};
    std::thread copier([&] {
        for (int i = 0; i < 200 && !stop; ++i) {
            CopyIn(source.File("s.jpg"), "s" + std::to_string(i) + ".jpg");
            std::this_thread::sleep_for(5ms);
        }
    });
    // Sinks come and go on the host's thread while files are delivered.
    SmartPtr<GrabSink> passing = CObject<GrabSink>::New();
    ASSERT_TRUE(WaitFor([&] {
        events->Advise(passing->PrimaryUnknown(), 1);
        events->Advise(passing->PrimaryUnknown(), 0);
        return sink->Count() >= 5;
    }));
    // A delivery under way holds the sink it is calling until it returns.
    EXPECT_TRUE(WaitFor([&] { return RefCountOf(passing->PrimaryUnknown()) == 1u; }));
    const auto before = Clock::now();
    camera.Reset();
    events.Reset();
    grab.Reset();  // the host's last reference
    EXPECT_LT(Clock::now() - before, 2s);
    const size_t delivered = sink->Count();
    // A delivery under way holds a reference of the list's: it may still
    // end after the host let go, and the grab then goes with it, giving its
    // sinks back.
    EXPECT_TRUE(WaitFor([&] { return RefCountOf(sink->PrimaryUnknown()) == 1u; }));
    const size_t settled = sink->Count();
    EXPECT_LE(settled, delivered + 1);
    std::this_thread::sleep_for(300ms);
    stop = true;
    copier.join();
    EXPECT_EQ(settled, sink->Count());
}

TEST_P(FileGrabTest, ASinkMayReleaseTheLastReferenceInsideTheEvent) {
    for (const char* name : {"x.jpg", "y.jpg", "z.jpg"})
        ASSERT_NO_FATAL_FAILURE(WriteJpeg(source.File(name), Gray(70).Get()));
    ASSERT_EQ(S_OK, camera->Live());
    // The sink holds the only reference and lets go of it in its first
    // event, on the watch thread.
    std::atomic<IUnknown*> owned{nullptr};
    sink->onEvent = [&owned](GrabSink&) {
        if (IUnknown* last = owned.exchange(nullptr)) last->Release();
    };
    camera.Reset();
    events.Reset();
    owned = grab.Detach();
    for (const char* name : {"x.jpg", "y.jpg", "z.jpg"}) CopyIn(source.File(name), name);
    ASSERT_TRUE(WaitFor([&] { return owned.load() == nullptr; }));
    ASSERT_TRUE(DeliveriesSettleAt(1));
    EXPECT_TRUE(WaitFor([&] { return RefCountOf(sink->PrimaryUnknown()) == 1u; }));
}

INSTANTIATE_TEST_SUITE_P(Watch, FileGrabTest, testing::Values(Mode::Notify, Mode::Poll),
                         [](const testing::TestParamInfo<Mode>& info) {
                             return info.param == Mode::Notify ? "Notify" : "Poll";
                         });

// ---- Camera operations through the primary table -------------------------

using FileGrabCameraOperations = FileGrabHost;

TEST_F(FileGrabCameraOperations, AnswerAsTheirTableSaysAndGuardTheirOutputs) {
    int32_t value = -5;
    EXPECT_EQ(S_OK, camera->Inquire(11, &value));
    EXPECT_EQ(-5, value);
    EXPECT_EQ(S_OK, camera->Inquire(14, &value));
    EXPECT_EQ(0, value);
    EXPECT_EQ(E_FAIL, camera->Inquire(12, &value));
    EXPECT_EQ(E_FAIL, camera->Control(10, 2));
    EXPECT_EQ(E_POINTER, camera->get_NumberOfFrames(nullptr));
    EXPECT_EQ(E_POINTER, camera->get_CameraState(nullptr));
    EXPECT_EQ(E_POINTER, camera->get_Image(0, nullptr));
    ILUM* image = reinterpret_cast<ILUM*>(&value);
    EXPECT_LT(camera->get_Image(0, &image), 0);
    EXPECT_EQ(nullptr, image);

    SmartPtr<INamedCollection> pages;
    ASSERT_EQ(S_OK, grab.As<IUIPropertyPageSpecify>(IID_IUIPropertyPageSpecify)->GetPages(0, pages.Out(), nullptr));
    std::vector<std::wstring> names;
    int32_t count = 0;
    pages->get_Count(&count);
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IUnknown> item;
        pages->get_Item(i, item.Out());
        names.push_back(TextOf(item.As<IString>(IID_IString).Get()));
    }
    EXPECT_EQ(names, (std::vector<std::wstring>{L"UIPropPages.UIPropInterrogatePropPage",
                                                L"UIPropPages.UIFileArchivePropPage"}));
}

TEST_F(FileGrabCameraOperations, FilesPresentAtTheStartAreListedButNotDelivered) {
    ASSERT_NO_FATAL_FAILURE(WriteJpeg(folder.File("old.jpg"), Gray(200).Get()));
    // Without a folder the watch cannot start; the state says live all the same.
    ASSERT_EQ(S_OK, camera->LoadParameters(REFStr(L"")));
    ASSERT_EQ(S_OK, camera->Live());
    EXPECT_EQ(CameraStateLive, State());
    EXPECT_EQ(CameraStateIdle, Watching());

    ASSERT_EQ(S_OK, camera->LoadParameters(ViewOf(Wide(folder.Path()))));
    ASSERT_EQ(S_OK, camera->Live());
    EXPECT_EQ(CameraStateLive, Watching());
    EXPECT_EQ(1, Frames());
    SmartPtr<ILUM> image;
    ASSERT_EQ(S_OK, camera->get_Image(0, image.Out()));
    EXPECT_NEAR(200, Mean(BytesOf(image.Get())), 1.0);
    EXPECT_TRUE(DeliveriesSettleAt(0, 0.1));
}

}  // namespace
