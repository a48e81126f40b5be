// Files that vanish, shrink or turn into folders while they are replayed:
// the camcorder's own playback and the file player's live replay keep
// running over what is left (both wrap around), deliver nothing from a file
// that cannot be read, and stop when asked.

#include <atomic>
#include <fstream>

#include "tests/camcorder/CamcorderHost.h"
#include "tests/player/PlayerHost.h"
#include "tests/support/StandsStill.h"

namespace {

using namespace std::chrono_literals;

/// The ways a replayed file is damaged.
enum class Damage { Delete, Truncate, EmptyFile, Directory };

const char* NameOf(Damage damage) {
    switch (damage) {
        case Damage::Delete: return "deleted";
        case Damage::Truncate: return "truncated";
        case Damage::EmptyFile: return "emptied";
        case Damage::Directory: return "replaced by a folder";
    }
    return "?";
}

void Inflict(const fs::path& file, Damage damage) {
    std::error_code ignored;
    switch (damage) {
        case Damage::Delete:
            fs::remove(file, ignored);
            break;
        case Damage::Truncate:
            // Keep the header and a part of the pixels.
            fs::resize_file(file, std::max<uintmax_t>(fs::file_size(file, ignored) / 3, 20), ignored);
            break;
        case Damage::EmptyFile:
            fs::resize_file(file, 0, ignored);
            break;
        case Damage::Directory:
            fs::remove(file, ignored);
            fs::create_directory(file, ignored);
            break;
    }
}

const Damage kDamages[] = {Damage::Delete, Damage::Truncate, Damage::EmptyFile, Damage::Directory};

// ---- The camcorder's playback ------------------------------------------

class CamcorderReplay : public CamcorderTest {
protected:
    void TearDown() override {
        if (camcorder) camcorder->StopLive();
        camcorder.Reset();
        CamcorderTest::TearDown();
    }
    void Start(int loop) {
        WriteRecording(1, 12);
        camcorder = NewCamcorder(FileFormatBMP);
        ASSERT_TRUE(camcorder);
        sink = CObject<FrameSink>::New();
        camcorder.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1);
        camcorder.As<IMMControlEx>(IID_IMMControlEx)->put_Loop(loop);
        camcorder->put_PlayBackSpeed(1000.0);
        ASSERT_EQ(camcorder->Live(), S_OK);
        ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 12; }));
    }
    CameraStateConstants State() {
        CameraStateConstants state = CameraStateConstants(-1);
        camcorder->get_CameraState(&state);
        return state;
    }
    fs::path File(int index) {
        char name[16];
        std::snprintf(name, sizeof name, "%04d.bmp", index);
        return folder / name;
    }

    SmartPtr<ILUMCamcorder> camcorder;
    SmartPtr<FrameSink> sink;
};

// With looping on, a file that cannot be read ends the pass early and the
// playback starts again from the first file: the files before the damaged
// one keep coming, the damaged one never, and everything delivered is a
// frame that was recorded.
TEST_F(CamcorderReplay, LoopingPlaybackOutlivesDamagedFiles) {
    for (Damage damage : kDamages) {
        SCOPED_TRACE(NameOf(damage));
        Start(1);
        Inflict(File(8), damage);
        const size_t before = sink->Size();
        ASSERT_TRUE(WaitFor([&] { return sink->Size() >= before + 40; })) << "playback stopped";
        EXPECT_EQ(State(), 2);
        const std::vector<int32_t> frames = sink->Frames();
        // The first passes may still show file 8 before it was damaged.
        for (size_t i = before + 12; i < frames.size(); ++i) {
            EXPECT_GE(frames[i], 1);
            EXPECT_LE(frames[i], 7) << "a frame at or past the damaged file was delivered";
        }
        EXPECT_EQ(camcorder->StopLive(), S_OK);
        EXPECT_TRUE(WaitFor([&] { return State() == 0; }));
        TearDown();
        SetUp();
    }
}

// Without looping, the damaged file ends live playback at once.
TEST_F(CamcorderReplay, PlaybackWithoutLoopEndsAtADamagedFile) {
    for (Damage damage : kDamages) {
        SCOPED_TRACE(NameOf(damage));
        WriteRecording(1, 12);
        camcorder = NewCamcorder(FileFormatBMP);
        ASSERT_TRUE(camcorder);
        sink = CObject<FrameSink>::New();
        camcorder.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1);
        camcorder.As<IMMControlEx>(IID_IMMControlEx)->put_Loop(0);
        camcorder->put_PlayBackSpeed(1000.0);
        Inflict(File(5), damage);
        ASSERT_EQ(camcorder->Live(), S_OK);
        ASSERT_TRUE(WaitFor([&] { return State() == 0; })) << "playback did not end";
        EXPECT_EQ(sink->Frames(), (std::vector<int32_t>{1, 2, 3, 4}));
        TearDown();
        SetUp();
    }
}

// The whole recording deleted under a looping playback: it goes on
// stepping without delivering anything, and stops when asked.
TEST_F(CamcorderReplay, LoopingPlaybackOfAVanishedRecordingStops) {
    Start(1);
    for (int i = 1; i <= 12; ++i) fs::remove(File(i));
    ASSERT_TRUE(StandsStill([&] { return sink->Size(); }, 200ms)) << "images delivered from deleted files";
    const size_t settled = sink->Size();
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(sink->Size(), settled);
    EXPECT_EQ(State(), 2);
    EXPECT_EQ(camcorder->StopLive(), S_OK);
    EXPECT_TRUE(WaitFor([&] { return State() == 0; }));
}

// ---- The file player's live replay -------------------------------------

class PlayerReplay : public PlayerTest {
protected:
    /// A live player over `count` files at a high rate, keeping `retention`.
    void Start(int count, int32_t retention) {
        files = WriteSeries(count, "img", ".bmp");
        player = NewPlayer();
        ASSERT_TRUE(player);
        sink = AdviseSink(player.Get());
        ASSERT_EQ(PointAtFolder(player.Get()), S_OK);
        ASSERT_EQ(player->Control(57, retention), S_OK);
        ASSERT_EQ(player->Control(52, FloatBits(500.0f)), S_OK);
        ASSERT_EQ(player->Live(), S_OK);
        ASSERT_TRUE(WaitFor([&] { return sink->Size() >= count; }));
    }
    void Stop() {
        SmartPtr<ICamera> p = player;
        EXPECT_TRUE(FinishesWithin(10, [p] { p->StopLive(); })) << "StopLive hangs";
        EXPECT_EQ(State(player.Get()), 0);
    }
    /// Every delivery since `from` came from an intact file.
    void ExpectOnlyIntact(size_t from, const std::vector<int32_t>& damaged) {
        const std::vector<Delivery> deliveries = sink->Deliveries();
        for (size_t i = from; i < deliveries.size(); ++i) {
            EXPECT_GE(deliveries[i].index, 0) << "an image that is no file of the folder";
            for (int32_t d : damaged) EXPECT_NE(deliveries[i].index, d) << "a damaged file was delivered";
        }
    }

    std::vector<fs::path> files;
    SmartPtr<ICamera> player;
    SmartPtr<ReplaySink> sink;
};

// Each way of damaging files, with each way of keeping what was shown: the
// player skips what it cannot load and keeps replaying the rest.
TEST_F(PlayerReplay, LiveReplaySkipsDamagedFiles) {
    for (int32_t retention : {0, 1, 2}) {
        for (Damage damage : kDamages) {
            SCOPED_TRACE(std::string(NameOf(damage)) + ", retention " + std::to_string(retention));
            Start(8, retention);
            Inflict(files[2], damage);
            Inflict(files[5], damage);
            // Let the images loaded before the damage go by.
            const int before = sink->Size();
            ASSERT_TRUE(WaitFor([&] { return sink->Size() >= before + 8; }));
            const size_t from = static_cast<size_t>(sink->Size());
            ASSERT_TRUE(WaitFor([&] { return sink->Size() >= static_cast<int>(from) + 24; })) << "replay stopped";
            if (retention == 2) {
                // Kept loaded: images read before the damage may still come.
                ExpectOnlyIntact(from, {});
            } else {
                ExpectOnlyIntact(from, {2, 5});
            }
            Stop();
            TearDown();
            SetUp();
        }
    }
}

// Every file deleted while replay runs: the player keeps stepping over an
// unloadable list (or an empty one after a rescan) and stops when asked.
TEST_F(PlayerReplay, LiveReplayOfAVanishedFolderStops) {
    for (int32_t retention : {0, 1}) {
        SCOPED_TRACE("retention " + std::to_string(retention));
        Start(6, retention);
        for (const fs::path& file : files) fs::remove(file);
        ASSERT_TRUE(StandsStill([&] { return static_cast<size_t>(sink->Size()); }, 200ms))
            << "images delivered from deleted files";
        const int settled = sink->Size();
        std::this_thread::sleep_for(100ms);
        EXPECT_EQ(sink->Size(), settled) << "images delivered from deleted files";
        EXPECT_EQ(State(player.Get()), 2);
        Stop();
        TearDown();
        SetUp();
    }
}

}  // namespace
