// Components whose last reference goes while their threads run: released
// from the host's thread, and released by a sink from inside an event on
// the thread that fires it. Release must neither hang nor crash, must not
// leave threads behind, and must not lose what was queued for writing.
#include <atomic>
#include <fstream>
#include <functional>
#include <set>

#include "lum/filegrab.h"
#include "tests/camcorder/CamcorderHost.h"
#include "tests/faults/FaultSupport.h"

namespace {

using namespace std::chrono_literals;

/// Threads of this process, from /proc/self/status.
int ThreadCount() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("Threads:", 0) == 0) return std::atoi(line.c_str() + 8);
    return -1;
}

/// Runs `work` on a thread of its own and waits at most `seconds`; on time
/// out the thread is left behind and false is returned (the hang is the
/// failure reported).
bool FinishesWithin(double seconds, std::function<void()> work) {
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::thread([done, work = std::move(work)] {
        work();
        done->store(true);
    }).detach();
    return faults::WaitUntil([&] { return done->load(); }, seconds);
}

/// A sink that holds a component's last reference and drops it inside the
/// `releaseAt`-th event it receives, on whichever thread fires it.
class ReleasingSink final : public CObject<ReleasingSink>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(ReleasingSink)
public:
    HRESULT ImageGrabbed(IUnknown*, IUnknown*, int32_t) override {
        if (++m_Events >= m_ReleaseAt && !m_Released.exchange(true)) {
            if (m_Before) m_Before();
            m_Held.Reset();
            m_Done.store(true);
        }
        return S_OK;
    }
    SmartPtr<IUnknown> m_Held;
    std::function<void()> m_Before;  ///< runs in the event just before the release
    int m_ReleaseAt = 3;
    std::atomic<int> m_Events{0};
    std::atomic<bool> m_Released{false};
    std::atomic<bool> m_Done{false};
};

const InterfaceEntry<ReleasingSink> ReleasingSink::kInterfaces[] = {
    InterfaceEntry<ReleasingSink>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<ReleasingSink>::End(),
};

class ReleaseTest : public CamcorderTest {
protected:
    void SetUp() override {
        CamcorderTest::SetUp();
        // A first thread, so that helpers started with the first thread of
        // the process (ThreadSanitizer's own) are counted in the baseline;
        // and let threads of earlier tests finish before counting.
        std::thread([] {}).join();
        std::this_thread::sleep_for(20ms);
        baseline = ThreadCount();
    }
    /// The process is back to the threads it had before the test.
    bool ThreadsBack() {
        return faults::WaitUntil([&] { return ThreadCount() <= baseline; }, 10);
    }
    /// A camcorder that nobody else keeps (not in the fixture's list).
    SmartPtr<ILUMCamcorder> LoneCamcorder(FileFormatConstants format) {
        SmartPtr<ILUMCamcorder> camcorder = CreateFrom<ILUMCamcorder>(module, L"LUMCamcorder", IID_ILUMCamcorder);
        if (!camcorder) return camcorder;
        const std::wstring path = folder.wstring();
        camcorder->put_Path(tagREFString{static_cast<int32_t>(path.size()), const_cast<wchar_t*>(path.c_str())});
        camcorder->put_FileFormat(format);
        camcorder->put_RecordasSeparateThreadDelayTime(0);
        return camcorder;
    }
    /// Every file of the folder decodes; returns how many there are.
    size_t DecodableFiles() {
        size_t good = 0;
        for (const std::string& name : Files()) good += FrameNumberInFile(folder / name) > 0;
        return good;
    }

    int baseline = 0;
};

constexpr int kQueued = 30;

// The save thread still has images queued when the camcorder goes: the
// release waits for them, and every one is written.
TEST_F(ReleaseTest, CamcorderWithBusySaveThreadReleasedFromTheHost) {
    for (int32_t options : {1, 2}) {
        SCOPED_TRACE("options " + std::to_string(options));
        SmartPtr<ICamera> camera = NewCamera(640, 480, 24);
        SmartPtr<ILUMCamcorder> camcorder = LoneCamcorder(FileFormatBMP);
        camcorder->put_RecordOptions(options);
        SmartPtr<ICamcorderArm> arm = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
        ASSERT_EQ(arm->Record(camera.Get()), S_OK);
        for (int i = 0; i < kQueued; ++i) camera->Grab(0, 0, nullptr);
        arm->StopRecording();
        arm.Reset();
        EXPECT_TRUE(FinishesWithin(60, [c = std::move(camcorder)]() mutable { c.Reset(); })) << "release hangs";
        EXPECT_EQ(DecodableFiles(), static_cast<size_t>(kQueued));
        EXPECT_TRUE(ThreadsBack());
        for (const std::string& file : Files()) fs::remove(folder / file);
    }
}

// The camera detached while the recording is still on (Record with no
// camera): the save thread would wait for more images; releasing the
// camcorder ends it all the same.
TEST_F(ReleaseTest, CamcorderStillRecordingReleasedFromTheHost) {
    SmartPtr<ICamera> camera = NewCamera(320, 240, 24);
    SmartPtr<ILUMCamcorder> camcorder = LoneCamcorder(FileFormatBMP);
    camcorder->put_RecordOptions(1);
    SmartPtr<ICamcorderArm> arm = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
    ASSERT_EQ(arm->Record(camera.Get()), S_OK);
    for (int i = 0; i < kQueued; ++i) camera->Grab(0, 0, nullptr);
    ASSERT_EQ(arm->Record(nullptr), S_OK);
    EXPECT_EQ(arm->IsRecording(), S_OK);
    arm.Reset();
    EXPECT_TRUE(FinishesWithin(60, [c = std::move(camcorder)]() mutable { c.Reset(); })) << "release hangs";
    // Record restarts the numbering at the last file present, so the file
    // written last before it is written again: the queue is still drained
    // to its end and every file left is whole.
    std::set<int32_t> frames;
    for (const std::string& name : Files()) frames.insert(FrameNumberInFile(folder / name));
    EXPECT_EQ(frames.count(-1), 0u) << "a file that does not decode";
    EXPECT_EQ(frames.count(kQueued), 1u) << "the last queued image was not written";
    EXPECT_GE(frames.size(), static_cast<size_t>(kQueued - 2));
    EXPECT_TRUE(ThreadsBack());
}

// Playback running at full speed when the host lets go.
TEST_F(ReleaseTest, CamcorderPlaybackReleasedFromTheHost) {
    WriteRecording(1, 12);
    for (int round = 0; round < 5; ++round) {
        SmartPtr<ILUMCamcorder> camcorder = LoneCamcorder(FileFormatBMP);
        SmartPtr<FrameSink> sink = CObject<FrameSink>::New();
        camcorder.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1);
        camcorder->put_PlayBackSpeed(1000.0);
        ASSERT_EQ(camcorder->Live(), S_OK);
        ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 5; }));
        EXPECT_TRUE(FinishesWithin(10, [c = std::move(camcorder)]() mutable { c.Reset(); })) << "release hangs";
        const size_t after = sink->Size();
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(sink->Size(), after) << "images delivered after the release";
        EXPECT_TRUE(ThreadsBack());
    }
}

// A sink holding the only reference drops it inside an event of the
// playback thread.
TEST_F(ReleaseTest, CamcorderPlaybackReleasedInsideItsEvent) {
    WriteRecording(1, 12);
    for (int round = 0; round < 5; ++round) {
        SmartPtr<ILUMCamcorder> camcorder = LoneCamcorder(FileFormatBMP);
        SmartPtr<ReleasingSink> sink = CObject<ReleasingSink>::New();
        camcorder.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1);
        camcorder->put_PlayBackSpeed(1000.0);
        sink->m_Held = camcorder.As<IUnknown>(IID_IUnknown);
        ASSERT_EQ(camcorder->Live(), S_OK);
        camcorder.Reset();
        ASSERT_TRUE(WaitFor([&] { return sink->m_Done.load(); })) << "the event never came";
        EXPECT_TRUE(ThreadsBack());
        const int events = sink->m_Events.load();
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(sink->m_Events.load(), events) << "events after the release";
    }
}

// ---- The file player's live replay -------------------------------------

class PlayerRelease : public ReleaseTest {
protected:
    SmartPtr<ICamera> LivePlayer(IUnknown* sink) {
        SmartPtr<ICamera> player = CreateFrom<ICamera>(module, L"LUMFilePlayer", IID_ICamera);
        if (!player) return player;
        player.As<IEventSource>(IID_IEventSource)->Advise(sink, 1);
        SmartPtr<IString> text = CreateByName<IString>(L"CreatableString", IID_IString);
        const std::wstring path = folder.wstring();
        text->SetText(static_cast<int32_t>(path.size()), path.c_str());
        player.As<IUIPropInterrogateEx>(IID_IUIPropInterrogateEx)->ControlEx(50, text.Get());
        float rate = 1000.0f;
        int32_t bits = 0;
        std::memcpy(&bits, &rate, sizeof bits);
        player->Control(52, bits);
        return player;
    }
};

TEST_F(PlayerRelease, LiveReplayReleasedFromTheHost) {
    WriteRecording(1, 8);
    for (int round = 0; round < 5; ++round) {
        SmartPtr<FrameSink> sink = CObject<FrameSink>::New();
        SmartPtr<ICamera> player = LivePlayer(sink->PrimaryUnknown());
        ASSERT_TRUE(player);
        ASSERT_EQ(player->Live(), S_OK);
        ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 5; }));
        EXPECT_TRUE(FinishesWithin(10, [p = std::move(player)]() mutable { p.Reset(); })) << "release hangs";
        const size_t after = sink->Size();
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(sink->Size(), after) << "images delivered after the release";
        EXPECT_TRUE(ThreadsBack());
    }
}

TEST_F(PlayerRelease, LiveReplayReleasedInsideItsEvent) {
    WriteRecording(1, 8);
    for (int round = 0; round < 5; ++round) {
        SmartPtr<ReleasingSink> sink = CObject<ReleasingSink>::New();
        SmartPtr<ICamera> player = LivePlayer(sink->PrimaryUnknown());
        ASSERT_TRUE(player);
        sink->m_Held = player.As<IUnknown>(IID_IUnknown);
        ASSERT_EQ(player->Live(), S_OK);
        player.Reset();
        ASSERT_TRUE(WaitFor([&] { return sink->m_Done.load(); })) << "the event never came";
        EXPECT_TRUE(ThreadsBack());
        const int events = sink->m_Events.load();
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(sink->m_Events.load(), events) << "events after the release";
    }
}

// ---- The file grab watching a folder while files arrive -----------------

class FileGrabRelease : public ReleaseTest {
protected:
    void TearDown() override {
        stopWriting.store(true);
        if (writer.joinable()) writer.join();
        ReleaseTest::TearDown();
    }
    /// A file grab watching `watched`, with `sink` advised, already live;
    /// `beforeLive` sees the grab just before it goes live.
    SmartPtr<IUnknown> Watching(IUnknown* sink, const std::function<void(const SmartPtr<IUnknown>&)>& beforeLive = {}) {
        SmartPtr<IUnknown> grab = CreateFrom<IUnknown>(module, L"LUMFileGrab", IID_IUnknown);
        if (!grab) return grab;
        void* answer = nullptr;
        grab->QueryInterface(IID_ICamera, &answer);
        SmartPtr<LUMFileGrabCamera> camera =
            SmartPtr<LUMFileGrabCamera>::Adopt(static_cast<LUMFileGrabCamera*>(static_cast<IUnknown*>(answer)));
        grab.As<IEventSource>(IID_IEventSource)->Advise(sink, 1);
        const std::wstring path = watched.wstring();
        camera->LoadParameters(tagREFString{static_cast<int32_t>(path.size()), const_cast<wchar_t*>(path.c_str())});
        if (beforeLive) beforeLive(grab);
        camera->Live();
        return grab;
    }
    /// Moves a new BMP into the watched folder every few milliseconds.
    void StartWriting() {
        fs::create_directories(watched);
        writer = std::thread([this] {
            for (int n = 0; !stopWriting.load(); ++n) {
                const fs::path staged = folder / ("staged" + std::to_string(n) + ".bmp");
                faults::WriteBmp(staged, 16, 8, static_cast<uint8_t>(n));
                std::error_code ignored;
                fs::rename(staged, watched / ("f" + std::to_string(n) + ".bmp"), ignored);
                std::this_thread::sleep_for(3ms);
            }
        });
    }
    fs::path watched = folder / "watched";
    std::thread writer;
    std::atomic<bool> stopWriting{false};
};

TEST_F(FileGrabRelease, WatchReleasedFromTheHostWhileFilesArrive) {
    watched = folder / "watched";
    StartWriting();
    for (int round = 0; round < 5; ++round) {
        SmartPtr<FrameSink> sink = CObject<FrameSink>::New();
        SmartPtr<IUnknown> grab = Watching(sink->PrimaryUnknown());
        ASSERT_TRUE(grab);
        ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 3; }));
        EXPECT_TRUE(FinishesWithin(10, [g = std::move(grab)]() mutable { g.Reset(); })) << "release hangs";
        // A delivery under way when the host let go holds the grab until it
        // returns; the grab then goes on the watch thread, giving its sinks
        // back.
        EXPECT_TRUE(WaitFor([&] { return RefCountOf(sink->PrimaryUnknown()) == 1u; })) << "the grab kept its sink";
        const size_t after = sink->Size();
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(sink->Size(), after) << "files delivered after the grab went";
    }
    stopWriting.store(true);
    writer.join();
    EXPECT_TRUE(ThreadsBack());
}

TEST_F(FileGrabRelease, WatchReleasedInsideItsEventWhileFilesArrive) {
    watched = folder / "watched";
    StartWriting();
    for (int round = 0; round < 5; ++round) {
        SmartPtr<ReleasingSink> sink = CObject<ReleasingSink>::New();
        // The sink holds the grab before the first file can arrive.
        SmartPtr<IUnknown> grab =
            Watching(sink->PrimaryUnknown(), [&](const SmartPtr<IUnknown>& live) { sink->m_Held = live; });
        ASSERT_TRUE(grab);
        grab.Reset();
        ASSERT_TRUE(WaitFor([&] { return sink->m_Done.load(); })) << "no file was delivered";
        const int events = sink->m_Events.load();
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(sink->m_Events.load(), events) << "files delivered after the release";
    }
    stopWriting.store(true);
    writer.join();
    EXPECT_TRUE(ThreadsBack());
}

// ---- The stack camcorder recording a live camera -----------------------

TEST_F(ReleaseTest, StackRecordingReleasedFromTheHost) {
    SmartPtr<ICamera> camera = NewCamera(64, 48, 24);
    camera->Control(4, 1000);
    ASSERT_EQ(camera->Live(), S_OK);
    for (int round = 0; round < 10; ++round) {
        SmartPtr<ICamera> stack = CreateFrom<ICamera>(module, L"LUMStackCamcorder", IID_ICamera);
        ASSERT_TRUE(stack);
        SmartPtr<ICamcorder> recorder = stack.As<ICamcorder>(IID_ICamcorder);
        recorder->Record(camera.Get());
        ASSERT_EQ(recorder->IsRecording(), S_OK);
        ASSERT_TRUE(WaitFor([&] {
            int32_t count = 0;
            stack.As<ISimpleCollection>(IID_ISimpleCollection)->get_Count(&count);
            return count >= 3;
        }));
        recorder->StopRecording();
        recorder.Reset();
        stack.Reset();
    }
    camera->StopLive();
    EXPECT_TRUE(ThreadsBack());
}

// A second sink of the camera stops the stack camcorder's recording and
// drops its last reference, on the camera's thread, between two of its
// frames.
TEST_F(ReleaseTest, StackRecordingReleasedInsideTheCamerasEvent) {
    SmartPtr<ICamera> camera = NewCamera(64, 48, 24);
    camera->Control(4, 1000);
    SmartPtr<IEventSource> events = camera.As<IEventSource>(IID_IEventSource);
    for (int round = 0; round < 10; ++round) {
        SmartPtr<ICamera> stack = CreateFrom<ICamera>(module, L"LUMStackCamcorder", IID_ICamera);
        ASSERT_TRUE(stack);
        SmartPtr<ICamcorder> recorder = stack.As<ICamcorder>(IID_ICamcorder);
        recorder->Record(camera.Get());
        recorder.Reset();
        SmartPtr<ReleasingSink> sink = CObject<ReleasingSink>::New();
        sink->m_ReleaseAt = 5;
        ICamcorder* held = stack.As<ICamcorder>(IID_ICamcorder).Get();
        sink->m_Before = [held] { held->StopRecording(); };
        sink->m_Held = stack.As<IUnknown>(IID_IUnknown);
        stack.Reset();
        ASSERT_EQ(events->Advise(sink->PrimaryUnknown(), 1), S_OK);
        ASSERT_EQ(camera->Live(), S_OK);
        ASSERT_TRUE(WaitFor([&] { return sink->m_Done.load(); }));
        camera->StopLive();
        events->Advise(sink->PrimaryUnknown(), 0);
    }
    EXPECT_TRUE(ThreadsBack());
}

}  // namespace
