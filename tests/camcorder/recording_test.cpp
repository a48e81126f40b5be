// Recording through the camcorder with the synthetic camera: naming, record
// rate, pre-record ring, frame limit, resuming, and the save thread.
#include "tests/camcorder/CamcorderHost.h"

namespace {

int32_t StateOf(ICamera* camera) {
    int32_t state = -1;
    camera->Inquire(10, &state);
    return state;
}


class Recording : public CamcorderTest {
protected:
    std::vector<int32_t> FramesOnDisk() {
        std::vector<int32_t> frames;
        for (const std::string& f : Files()) frames.push_back(FrameNumberInFile(folder / f));
        return frames;
    }
};

TEST_F(Recording, NamesFilesByIndexAndTheBaseNamesFirstCharacter) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder(FileFormatBMP);
    SmartPtr<ICamera> camera = NewCamera();
    ASSERT_TRUE(camcorder && camera);
    SmartPtr<ICamcorder> recorder = camcorder.As<ICamcorder>(IID_ICamcorder);
    ASSERT_EQ(recorder->Record(camera.Get()), S_OK);
    EXPECT_EQ(recorder->IsRecording(), S_OK);
    camera->Grab(0, 0, nullptr);
    camcorder->put_BaseFileName(REFStr(L"run"));
    camera->Grab(0, 0, nullptr);
    camcorder->put_FileFormat(FileFormatJPEG);
    camera->Grab(0, 0, nullptr);
    recorder->StopRecording();
    // An empty folder starts at index 0; a base name contributes only its
    // first character.
    EXPECT_EQ(Files(), (std::vector<std::string>{"0000.bmp", "r_#0001.bmp", "r_#0002.jpg"}));
    EXPECT_EQ(FrameNumberInFile(folder / "0000.bmp"), 1);
    EXPECT_EQ(FrameNumberInFile(folder / "r_#0001.bmp"), 2);
}

TEST_F(Recording, RecordRateKeepsEveryNthImage) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    SmartPtr<ICamera> camera = NewCamera();
    camcorder->put_RecordRate(3);
    camcorder.As<ICamcorder>(IID_ICamcorder)->Record(camera.Get());
    for (int i = 0; i < 9; ++i) camera->Grab(0, 0, nullptr);
    EXPECT_EQ(FramesOnDisk(), (std::vector<int32_t>{3, 6, 9}));
}

TEST_F(Recording, ArmedRingKeepsTheNewestImages) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    SmartPtr<ICamera> camera = NewCamera();
    SmartPtr<ICamcorderArm> arm = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
    arm->put_NumberImagesPreRecord(5);
    ASSERT_EQ(arm->Arm(camera.Get()), S_OK);
    EXPECT_EQ(StateOf(camcorder.Get()), CameraStateArmed);
    for (int i = 0; i < 12; ++i) camera->Grab(0, 0, nullptr);
    SmartPtr<IStackCollection> ring = camcorder.As<IStackCollection>(IID_IStackCollection);
    ASSERT_TRUE(ring);
    int32_t capacity = 0, count = 0;
    ring->GetSize(&capacity, &count);
    EXPECT_EQ(count, 5);
    EXPECT_EQ(capacity, 1000) << "the ring's own capacity is not the pre-record count";
    SmartPtr<IUnknown> oldest;
    ASSERT_EQ(ring->get_Oldest(oldest.Out()), S_OK);
    EXPECT_EQ(FrameNumberOf(QueryAs<ILUM>(oldest.Get(), IID_ILUM).Get()), 8);
    EXPECT_TRUE(Files().empty()) << "arming writes nothing";
}

TEST_F(Recording, FrameLimitEndsTheRecordingAndUnsubscribes) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    SmartPtr<ICamera> camera = NewCamera();
    ASSERT_EQ(camcorder->Control(73, 10), S_OK);
    camcorder.As<ICamcorder>(IID_ICamcorder)->Record(camera.Get());
    SmartPtr<IEventSource> events = camera.As<IEventSource>(IID_IEventSource);
    EXPECT_EQ(events->GetAdviseCount(), 1);
    for (int i = 0; i < 12; ++i) camera->Grab(0, 0, nullptr);
    EXPECT_EQ(FramesOnDisk(), (std::vector<int32_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    EXPECT_EQ(StateOf(camcorder.Get()), CameraStateRecorded);
    EXPECT_EQ(events->GetAdviseCount(), 0);
}

TEST_F(Recording, FrameLimitZeroFinishesAtOnce) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    SmartPtr<ICamera> camera = NewCamera();
    camcorder->Control(73, 0);
    camcorder.As<ICamcorder>(IID_ICamcorder)->Record(camera.Get());
    EXPECT_EQ(StateOf(camcorder.Get()), CameraStateRecorded);
    camera->Grab(0, 0, nullptr);
    EXPECT_TRUE(Files().empty());
}

TEST_F(Recording, ResumingOverwritesTheLastExistingFile) {
    WriteRecording(1, 3);
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    EXPECT_EQ(camcorder->GetLastFileIndex(), 3);
    SmartPtr<ICamera> camera = NewCamera();
    camcorder.As<ICamcorder>(IID_ICamcorder)->Record(camera.Get());
    int32_t index = -1;
    camcorder->get_ActiveIndex(&index);
    EXPECT_EQ(index, 3);
    camera->Grab(0, 0, nullptr);
    EXPECT_EQ(Files(), (std::vector<std::string>{"0001.bmp", "0002.bmp", "0003.bmp"}));
    EXPECT_EQ(FrameNumberInFile(folder / "0003.bmp"), 1) << "the first new image replaced file 0003";
}

TEST_F(Recording, LastFileIndexStridesOverLongRecordings) {
    WriteRecording(1, 40);
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    EXPECT_EQ(camcorder->GetLastFileIndex(), 40);
    fs::remove(folder / "0040.bmp");
    EXPECT_EQ(camcorder->GetLastFileIndex(), 39);
}

TEST_F(Recording, WithoutAPathNothingIsWrittenAndTheIndexStays) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    camcorder->put_Path(REFStr(L""));
    SmartPtr<ICamera> camera = NewCamera();
    camcorder.As<ICamcorder>(IID_ICamcorder)->Record(camera.Get());
    camera->Grab(0, 0, nullptr);
    int32_t index = -1;
    camcorder->get_ActiveIndex(&index);
    EXPECT_EQ(index, 0);
}

TEST_F(Recording, RefusesToRecordItselfAndDetachesOnANullCamera) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    SmartPtr<ICamcorderArm> arm = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
    EXPECT_EQ(arm->Record(camcorder.Get()), E_FAIL);
    EXPECT_EQ(arm->Arm(arm.Get()), E_FAIL);
    EXPECT_EQ(StateOf(camcorder.Get()), CameraStateIdle);

    SmartPtr<ICamera> camera = NewCamera();
    arm->Arm(camera.Get());
    SmartPtr<IEventSource> events = camera.As<IEventSource>(IID_IEventSource);
    EXPECT_EQ(events->GetAdviseCount(), 1);
    arm->Record(nullptr);
    EXPECT_EQ(events->GetAdviseCount(), 0);
    EXPECT_EQ(StateOf(camcorder.Get()), CameraStateRecording);
}

// The save thread, with the camera's images (1) and with private copies (2).
class SaveThread : public Recording, public ::testing::WithParamInterface<int32_t> {};

TEST_P(SaveThread, WritesEveryImageInOrderAndReturnsToIdle) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    SmartPtr<ICamera> camera = NewCamera();
    camcorder->put_RecordOptions(GetParam());
    SmartPtr<ICamcorder> recorder = camcorder.As<ICamcorder>(IID_ICamcorder);
    recorder->Record(camera.Get());
    for (int i = 0; i < 40; ++i) camera->Grab(0, 0, nullptr);
    recorder->StopRecording();
    ASSERT_TRUE(WaitFor([&] { return StateOf(camcorder.Get()) == CameraStateIdle; }));
    std::vector<int32_t> expected(40);
    for (int i = 0; i < 40; ++i) expected[i] = i + 1;
    EXPECT_EQ(FramesOnDisk(), expected);
}

TEST_P(SaveThread, RecordsALiveCameraWithoutLosingFrames) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    SmartPtr<ICamera> camera = NewCamera(64, 48, 8);
    camera->Control(4, 500);
    camcorder->put_RecordOptions(GetParam());
    camcorder->Control(73, 60);
    camcorder.As<ICamcorder>(IID_ICamcorder)->Record(camera.Get());
    camera->Live();
    ASSERT_TRUE(WaitFor([&] { return Files().size() == 60 && StateOf(camcorder.Get()) == CameraStateIdle; }))
        << Files().size() << " files, state " << StateOf(camcorder.Get());
    camera->StopLive();
    std::vector<int32_t> frames = FramesOnDisk();
    ASSERT_EQ(frames.size(), 60u);
    for (size_t i = 1; i < frames.size(); ++i) EXPECT_EQ(frames[i], frames[i - 1] + 1) << i;
}

TEST_P(SaveThread, ReleaseWhileDrainingLosesNothing) {
    SmartPtr<ICamera> camera = NewCamera();
    {
        SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
        camcorders.pop_back();  // this test lets go of the camcorder itself
        camcorder->put_RecordOptions(GetParam());
        camcorder->put_RecordasSeparateThreadDelayTime(100);
        SmartPtr<ICamcorder> recorder = camcorder.As<ICamcorder>(IID_ICamcorder);
        recorder->Record(camera.Get());
        for (int i = 0; i < 25; ++i) camera->Grab(0, 0, nullptr);
        recorder->StopRecording();
    }  // the last reference goes while the save thread still sleeps
    EXPECT_EQ(Files().size(), 25u);
}

INSTANTIATE_TEST_SUITE_P(Options, SaveThread, ::testing::Values(1, 2));

}  // namespace
