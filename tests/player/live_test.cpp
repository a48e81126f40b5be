// Replay on the player's own live thread: pacing, starting and stopping from
// any thread (the live thread included), releasing a playing player, and
// sinks that call back into the player while an image is being fired.
#include <memory>

#include "tests/player/PlayerHost.h"

namespace {

using V = std::vector<int32_t>;

class Live : public PlayerTest {
protected:
    /// A player over `files` images, replaying at `rate` images per second.
    void Start(int32_t files, float rate) {
        WriteSeries(files);
        player = NewPlayer();
        ASSERT_TRUE(player);
        ASSERT_GE(PointAtFolder(player.Get()), 0);
        if (rate != 0.0f) {
            ASSERT_EQ(player->Control(52, FloatBits(rate)), S_OK);
        }
        sink = AdviseSink(player.Get());
    }
    /// A player of the test's own (not `player`) over three images at 200
    /// images per second, with `sink` advised to it.
    SmartPtr<ICamera> OwnPlayer() {
        WriteSeries(3);
        SmartPtr<ICamera> own = CreateFrom<ICamera>(module, L"LUMFilePlayer", IID_ICamera);
        if (!own) return own;
        PointAtFolder(own.Get());
        own->Control(52, FloatBits(200.0f));
        sink = AdviseSink(own.Get());
        return own;
    }
    /// StopLive, failing the test when it does not return within 10 s.
    void StopWithin10s() {
        ICamera* p = player.Get();
        p->AddRef();
        EXPECT_TRUE(FinishesWithin(10, [p] {
            EXPECT_EQ(p->StopLive(), S_OK);
            p->Release();
        })) << "StopLive hangs";
    }
    /// Waits until the sink count stays put for a while.
    void ExpectNoMoreEvents(const char* why) {
        const int before = sink->Size();
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        EXPECT_EQ(sink->Size(), before) << why;
    }
    /// Checks that the deliveries from `first` on step by +1 (or -1) with wrap-around.
    void ExpectDirection(size_t first, int32_t step, int32_t files) {
        const std::vector<int32_t> indexes = sink->Indexes();
        ASSERT_GT(indexes.size(), first + 1);
        for (size_t i = first + 1; i < indexes.size(); ++i)
            EXPECT_EQ(indexes[i], (indexes[i - 1] + step + files) % files) << "delivery " << i;
    }

    SmartPtr<ICamera> player;
    SmartPtr<ReplaySink> sink;
};

TEST_F(Live, ReplaysOnItsOwnThreadUntilStopped) {
    Start(3, 200.0f);
    WriteImage("img03.png", 3);
    EXPECT_EQ(player->Live(), S_OK);
    EXPECT_EQ(Count(player.Get()), 4) << "Live rescans the folder";
    EXPECT_EQ(Controls(player.Get())->IsPlaying(), 1);
    EXPECT_EQ(State(player.Get()), CameraStateLive);
    EXPECT_EQ(player->Live(), S_OK) << "already live";
    ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 20; })) << "only " << sink->Size() << " images";
    StopWithin10s();
    EXPECT_EQ(State(player.Get()), CameraStateIdle);
    EXPECT_EQ(Controls(player.Get())->IsPlaying(), E_FAIL);
    ExpectNoMoreEvents("one StopLive ends replay, however often Live was called");

    const std::thread::id host = std::this_thread::get_id();
    for (const Delivery& d : sink->Deliveries()) {
        EXPECT_NE(d.thread, host);
        EXPECT_EQ(d.camera, IdentityPointer(player.Get()));
        EXPECT_EQ(d.count, 0);
    }
    ExpectDirection(0, +1, 4);
    EXPECT_EQ(sink->Indexes().front(), 1);
    EXPECT_EQ(Param(player.Get(), 52), FloatBits(200.0f)) << "a positive rate is kept";

    // Live again after a stop.
    const int before = sink->Size();
    ASSERT_EQ(player->Live(), S_OK);
    EXPECT_TRUE(WaitFor([&] { return sink->Size() >= before + 3; }));
    StopWithin10s();
}

TEST_F(Live, FirstPacedStepTurnsRateZeroIntoOne) {
    Start(2, 0.0f);
    EXPECT_EQ(Param(player.Get(), 52), 0);
    ASSERT_EQ(player->Live(), S_OK);
    ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 1; }));
    StopWithin10s();
    EXPECT_EQ(Param(player.Get(), 52), FloatBits(1.0f));
}

TEST_F(Live, NoPauseBetweenImagesIsLongerThanFiveSeconds) {
    // 0.05 images per second asks for 20 s between images; the pause is
    // capped at 5 s, so the second image comes well within 15 s.
    Start(2, 0.05f);
    ASSERT_EQ(player->Live(), S_OK);
    EXPECT_TRUE(WaitFor([&] { return sink->Size() >= 2; }, 15.0)) << "the pause is not capped";
    StopWithin10s();
    EXPECT_EQ(Param(player.Get(), 52), FloatBits(0.05f));
}

TEST_F(Live, StopLiveFromAnotherThread) {
    Start(3, 200.0f);
    ASSERT_EQ(player->Live(), S_OK);
    ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 5; }));
    ICamera* p = player.Get();
    std::thread stopper([p] { EXPECT_EQ(p->StopLive(), S_OK); });
    stopper.join();
    EXPECT_EQ(State(player.Get()), CameraStateIdle);
    ExpectNoMoreEvents("stopped from another thread");
}

TEST_F(Live, ReleasingAPlayingPlayerEndsItsThread) {
    SmartPtr<ICamera> own = OwnPlayer();
    ASSERT_TRUE(own);
    ASSERT_EQ(own->Live(), S_OK);
    ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 5; }));
    ICamera* last = own.Detach();
    EXPECT_TRUE(FinishesWithin(10, [last] { last->Release(); })) << "releasing a playing player hangs";
    EXPECT_EQ(RefCountOf(sink->PrimaryUnknown()), 1u) << "the player gave its sink back";
    ExpectNoMoreEvents("the live thread ended with the player");
}

TEST_F(Live, SinkMayDropTheLastReferenceOnTheLiveThread) {
    SmartPtr<ICamera> own = OwnPlayer();
    ASSERT_TRUE(own);
    auto held = std::make_shared<std::atomic<ICamera*>>(nullptr);
    auto released = std::make_shared<std::atomic<bool>>(false);
    sink->m_OnEvent = [held, released](IUnknown*, IUnknown*) {
        if (ICamera* last = held->exchange(nullptr)) {
            last->Release();
            released->store(true);
        }
    };
    ASSERT_EQ(own->Live(), S_OK);
    held->store(own.Detach());  // from now on the sink holds the only reference
    ASSERT_TRUE(WaitFor([&] { return released->load(); })) << "the sink's Release does not return";
    EXPECT_TRUE(WaitFor([&] { return RefCountOf(sink->PrimaryUnknown()) == 1u; }))
        << "the player, destroyed on its own thread, gave its sink back";
    ExpectNoMoreEvents("the live thread ended with the player");
}

TEST_F(Live, AHostReleaseWaitsForTheStepInFlight) {
    // The last release by the host while a step fires its event returns
    // only after that step: no event reaches a sink after it, also when a
    // sink had stopped replay from inside that very event.
    for (bool sinkStops : {false, true}) {
        SmartPtr<ICamera> own = OwnPlayer();
        ASSERT_TRUE(own);
        ICamera* raw = own.Get();
        auto inEvent = std::make_shared<std::atomic<bool>>(false);
        auto eventReturned = std::make_shared<std::atomic<bool>>(false);
        sink->m_OnEvent = [raw, sinkStops, inEvent, eventReturned](IUnknown*, IUnknown*) {
            if (inEvent->exchange(true)) return;
            if (sinkStops) raw->StopLive();
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            eventReturned->store(true);
        };
        ASSERT_EQ(own->Live(), S_OK);
        ASSERT_TRUE(WaitFor([&] { return inEvent->load(); }));
        ICamera* last = own.Detach();
        EXPECT_TRUE(FinishesWithin(10, [last] { last->Release(); })) << "the release hangs";
        EXPECT_TRUE(eventReturned->load()) << "the release returned during the step's event, sink stops: " << sinkStops;
        EXPECT_EQ(RefCountOf(sink->PrimaryUnknown()), 1u) << "the player gave its sink back";
        const int delivered = sink->Size();
        ExpectNoMoreEvents("the live thread ended with the player");
        EXPECT_EQ(sink->Size(), delivered);
    }
}

TEST_F(Live, PlayControlsStartReplayInTheirDirection) {
    Start(4, 200.0f);
    SmartPtr<IMMControlEx> controls = Controls(player.Get());
    ASSERT_EQ(controls->Play(), S_OK);
    EXPECT_EQ(State(player.Get()), CameraStateLive);
    EXPECT_EQ(controls->IsPlaying(), 1);
    ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 5; }));
    EXPECT_EQ(controls->Stop(), S_OK);
    EXPECT_EQ(State(player.Get()), CameraStateIdle);
    EXPECT_EQ(Param(player.Get(), 54), 1);
    const std::vector<int32_t> played = sink->Indexes();
    ASSERT_GE(played.size(), 4u);
    EXPECT_EQ(V(played.begin(), played.begin() + 4), (V{3, 2, 1, 0}))
        << "Play at position 0 shows the last file first, then goes down";

    struct Case {
        const char* name;
        std::function<HRESULT()> start;
        int32_t backwards;
    };
    const Case cases[] = {
        {"Reverse", [&] { return controls->Reverse(); }, 0},
        {"Forward", [&] { return controls->Forward(2.0); }, 1},
        {"Rewind", [&] { return controls->Rewind(0.5); }, 0},
    };
    for (const Case& c : cases) {
        const size_t first = static_cast<size_t>(sink->Size());
        ASSERT_EQ(c.start(), S_OK) << c.name;
        EXPECT_EQ(State(player.Get()), CameraStateLive) << c.name;
        ASSERT_TRUE(WaitFor([&] { return sink->Size() >= static_cast<int>(first) + 5; })) << c.name;
        EXPECT_EQ(controls->Pause(), S_OK) << c.name;
        EXPECT_EQ(State(player.Get()), CameraStateIdle) << c.name;
        EXPECT_EQ(Param(player.Get(), 54), c.backwards) << c.name;
        ExpectDirection(first, c.backwards ? -1 : +1, 4);
    }
}

TEST_F(Live, GrabStopsReplayUnlessItsModeIs999) {
    Start(3, 200.0f);
    ASSERT_EQ(player->Live(), S_OK);
    ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 3; }));
    EXPECT_EQ(player->Grab(0, 999, nullptr), S_OK);
    EXPECT_EQ(State(player.Get()), CameraStateLive) << "mode 999 grabs beside the replay";
    const int before = sink->Size();
    EXPECT_TRUE(WaitFor([&] { return sink->Size() >= before + 3; })) << "and replay goes on";

    EXPECT_EQ(player->Grab(0, 0, nullptr), S_OK);
    EXPECT_EQ(State(player.Get()), CameraStateIdle);
    EXPECT_EQ(Controls(player.Get())->IsPlaying(), E_FAIL);
    ExpectNoMoreEvents("any other mode stops the replay first");
}

TEST_F(Live, HostReadsTheCurrentImageWhileReplaying) {
    Start(3, 200.0f);
    ASSERT_EQ(player->Live(), S_OK);
    ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 1; }));
    int good = 0;
    for (int i = 0; i < 300; ++i) {
        SmartPtr<ILUM> image;
        if (player->get_Image(0, image.Out()) == S_OK) {
            const int32_t index = IndexOfImage(image.Get());
            good += index >= 0 && index < 3 && MiddleGray(image.Get()) >= GrayOf(index) - 3;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    EXPECT_EQ(good, 300);
    StopWithin10s();
}

// A sink's callback that must not wait for the player's lock: each event
// asks the player for its image from a second thread and waits for the
// answer, which can only come if the event is fired outside the lock.
class CallbackThreads {
public:
    explicit CallbackThreads(ICamera* player) : m_Player(player) {}
    ~CallbackThreads() { JoinAll(); }

    void OnEvent(IUnknown* image) {
        auto answered = std::make_shared<std::atomic<bool>>(false);
        auto identity = std::make_shared<std::atomic<IUnknown*>>(nullptr);
        ICamera* player = m_Player;
        std::thread helper([player, answered, identity] {
            SmartPtr<ILUM> current;
            if (player->get_Image(0, current.Out()) == S_OK) identity->store(IdentityPointer(current.Get()));
            int32_t position = -1;
            QueryAs<IMMControlEx>(player, IID_IMMControlEx)->get_CurrentPosition(&position);
            answered->store(true);
        });
        const bool inTime = PlayerTest::WaitFor([&] { return answered->load(); }, 10.0);
        std::lock_guard<std::mutex> lock(m_Mutex);
        if (inTime) {
            helper.join();
            m_Results.push_back(identity->load() == IdentityPointer(image) ? 1 : 2);
        } else {
            // The event holds the lock: let the helper finish once it is released.
            m_Pending.push_back(std::move(helper));
            m_Results.push_back(0);
        }
    }
    /// 1 = answered with the event's image, 2 = answered with another, 0 = blocked.
    std::vector<int> Results() {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Results;
    }
    void JoinAll() {
        std::lock_guard<std::mutex> lock(m_Mutex);
        for (std::thread& t : m_Pending) t.join();
        m_Pending.clear();
    }

private:
    ICamera* m_Player;
    std::mutex m_Mutex;
    std::vector<int> m_Results;
    std::vector<std::thread> m_Pending;
};

TEST_F(Live, EventsAreFiredOutsideThePlayersLock) {
    Start(3, 200.0f);
    auto threads = std::make_shared<CallbackThreads>(player.Get());
    sink->m_OnEvent = [threads](IUnknown*, IUnknown* image) { threads->OnEvent(image); };

    // From a host Grab ...
    ASSERT_EQ(player->Grab(0, 0, nullptr), S_OK);
    ASSERT_EQ(player->Grab(0, 0, nullptr), S_OK);
    threads->JoinAll();
    EXPECT_EQ(threads->Results(), (std::vector<int>{1, 1})) << "0: a sink calling into the player deadlocks";

    // ... and from the live thread.
    ASSERT_EQ(player->Live(), S_OK);
    ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 5; }, 40.0));
    StopWithin10s();
    threads->JoinAll();
    for (int result : threads->Results()) EXPECT_EQ(result, 1);
}

TEST_F(Live, SinkMayStopReplayFromTheLiveThread) {
    Start(3, 200.0f);
    auto stopped = std::make_shared<std::atomic<int>>(0);  // 0 not yet, 1 returned S_OK, 2 other result
    auto calls = std::make_shared<std::atomic<int>>(0);
    ICamera* p = player.Get();
    sink->m_OnEvent = [p, stopped, calls](IUnknown*, IUnknown*) {
        if (++*calls != 3) return;
        const HRESULT hr = p->StopLive();
        stopped->store(hr == S_OK ? 1 : 2);
    };
    ASSERT_EQ(player->Live(), S_OK);
    ASSERT_TRUE(WaitFor([&] { return stopped->load() != 0; }))
        << "StopLive called by a sink on the live thread does not return";
    EXPECT_EQ(stopped->load(), 1);
    EXPECT_EQ(State(player.Get()), CameraStateIdle);
    ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 3; }));
    ExpectNoMoreEvents("the live thread ends after the step that stopped it");

    // The player can be started and stopped again as usual.
    sink->m_OnEvent = nullptr;
    const int before = sink->Size();
    ASSERT_EQ(player->Live(), S_OK);
    EXPECT_TRUE(WaitFor([&] { return sink->Size() >= before + 3; })) << "Live after a self-stop";
    StopWithin10s();
    ExpectNoMoreEvents("stopped by the host");
}

}  // namespace
