// Playing a recording back through the camcorder as a camera.
#include "tests/camcorder/CamcorderHost.h"

namespace {

class Playback : public CamcorderTest {
protected:
    void SetUp() override {
        CamcorderTest::SetUp();
        WriteRecording(1, 5);
        camcorder = NewCamcorder(FileFormatBMP);
        ASSERT_TRUE(camcorder);
        camcorders.pop_back();  // never subscribed to a camera; released by the tests
        player = camcorder.As<IMMControlEx>(IID_IMMControlEx);
        sink = CObject<FrameSink>::New();
        camcorder.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1);
    }
    void TearDown() override {
        if (camcorder) camcorder->StopLive();
        player.Reset();
        camcorder.Reset();
        CamcorderTest::TearDown();
    }
    int32_t ActiveIndex() {
        int32_t index = -1;
        camcorder->get_ActiveIndex(&index);
        return index;
    }
    int32_t State() {
        int32_t state = -1;
        camcorder->Inquire(10, &state);
        return state;
    }

    SmartPtr<ILUMCamcorder> camcorder;
    SmartPtr<IMMControlEx> player;
    SmartPtr<FrameSink> sink;
};

TEST_F(Playback, ForwardWithLoopWrapsAfterTheLastFile) {
    std::vector<HRESULT> results;
    for (int i = 0; i < 7; ++i) results.push_back(camcorder->Grab(0, 0, nullptr));
    EXPECT_EQ(sink->Frames(), (std::vector<int32_t>{1, 2, 3, 4, 5, 1}));
    EXPECT_LT(results[5], 0) << "the sixth step finds no file 0006";
    EXPECT_EQ(results[6], S_OK);
    EXPECT_EQ(State(), CameraStateIdle);
}

TEST_F(Playback, ForwardWithoutLoopStopsAtTheEnd) {
    player->put_Loop(0);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(camcorder->Grab(0, 0, nullptr), S_OK);
    EXPECT_LT(camcorder->Grab(0, 0, nullptr), 0);
    EXPECT_EQ(ActiveIndex(), 5);
}

TEST_F(Playback, LiveWithoutLoopEndsByItselfAtTheLastFile) {
    player->put_Loop(0);
    camcorder->put_PlayBackSpeed(200.0);
    ASSERT_EQ(player->Play(), S_OK);
    EXPECT_EQ(player->IsPlaying(), 1);
    ASSERT_TRUE(WaitFor([&] { return State() == CameraStateIdle; }));
    EXPECT_EQ(sink->Frames(), (std::vector<int32_t>{1, 2, 3, 4, 5}));
    for (int32_t count : sink->Counts()) EXPECT_EQ(count, CameraStateLive);
    EXPECT_EQ(ActiveIndex(), 5);
}

TEST_F(Playback, BackwardAfterStopStartsWithTheLastFile) {
    camcorder->put_PlayDirection(0);
    player->Stop();
    EXPECT_EQ(ActiveIndex(), 6);
    camcorder->Grab(0, 0, nullptr);
    camcorder->Grab(0, 0, nullptr);
    EXPECT_EQ(sink->Frames(), (std::vector<int32_t>{5, 4}));
    int32_t position = -1;
    player->get_CurrentPosition(&position);
    EXPECT_EQ(position, 3);
}

TEST_F(Playback, IsPlayingTellsTheDirectionWhileLive) {
    camcorder->put_PlayBackSpeed(2.0);
    EXPECT_EQ(player->IsPlaying(), 0);
    player->Reverse();
    EXPECT_EQ(player->IsPlaying(), -1);
    player->Pause();
    EXPECT_EQ(player->IsPlaying(), 0);
    EXPECT_EQ(State(), CameraStateIdle);
}

TEST_F(Playback, SeekShowsTheFileOnceAndNextStepsOn) {
    EXPECT_EQ(player->Seek(3), S_OK);
    EXPECT_EQ(player->Seek(3), S_OK);
    EXPECT_EQ(sink->Frames(), (std::vector<int32_t>{3}));
    EXPECT_EQ(player->Next(), S_OK);
    EXPECT_EQ(player->Previous(), S_OK);
    EXPECT_EQ(sink->Frames(), (std::vector<int32_t>{3, 4, 3}));
    EXPECT_EQ(player->Seek(42), S_OK) << "a missing file is no failure";
    EXPECT_EQ(sink->Size(), 3u);
}

TEST_F(Playback, ImagesByIndexAndTheDuration) {
    SmartPtr<ILUM> image;
    EXPECT_EQ(camcorder->get_Image(4, image.Out()), S_OK);
    EXPECT_EQ(FrameNumberOf(image.Get()), 4);
    EXPECT_LT(camcorder->get_Image(9, image.Out()), 0);
    EXPECT_EQ(camcorder->get_Image(1, nullptr), E_POINTER);
    int32_t duration = 0;
    player->get_Duration(&duration);
    EXPECT_EQ(duration, 5);
}

TEST_F(Playback, ReleasingWhileLiveStopsTheThread) {
    camcorder->put_PlayBackSpeed(1000.0);
    player->Play();
    ASSERT_TRUE(WaitFor([&] { return sink->Size() >= 3; }));
    player.Reset();
    camcorder.Reset();  // joins the live thread
    const size_t delivered = sink->Size();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(sink->Size(), delivered);
}

}  // namespace
