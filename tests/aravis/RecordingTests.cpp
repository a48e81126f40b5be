// Recording Aravis's fake device through the camcorder while a second sink
// on the same camera keeps every frame it is given: the files on disk must
// hold those frames, in order, with nothing dropped.
#include <algorithm>

#include "tests/aravis/AravisTestSupport.h"
#include "tests/camcorder/CamcorderHost.h"

namespace {

// JPEG at quality 100 is not lossless: the decoded file may differ from the
// frame by a level or two here and there (measured on the fake's frames: at
// most 1, 0.006 on average), while neighbouring frames differ by about one
// level everywhere.
constexpr int kJpegLargestDifference = 2;
constexpr double kJpegMeanDifference = 0.1;

class AravisRecording : public CamcorderTest {
protected:
    void SetUp() override {
        CamcorderTest::SetUp();
        if (HasFatalFailure()) return;
        id = FakeDeviceId();
        ASSERT_FALSE(id.empty()) << "Aravis lists no fake device";
    }

    void TearDown() override {
        if (camera) {
            camera->StopLive();
            QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(nullptr, 0);
        }
        camera.Reset();
        CamcorderTest::TearDown();
    }

    /// Records `frames` frames of the live camera with the camcorder's save
    /// thread (`options`), a second sink advised first; waits until the
    /// camcorder has written everything.
    void RecordLive(FileFormatConstants format, int32_t options, int32_t frames) {
        SmartPtr<ILUMCamcorder> camcorder = NewCamcorder(format);
        ASSERT_TRUE(camcorder);
        sink = NewSink();
        SmartPtr<IEventSource> events = camera.As<IEventSource>(IID_IEventSource);
        ASSERT_EQ(events->Advise(sink->PrimaryUnknown(), 1), S_OK);
        camcorder->put_RecordOptions(options);
        ASSERT_EQ(camcorder->Control(73, frames), S_OK);  // frame limit
        ASSERT_EQ(camcorder.As<ICamcorder>(IID_ICamcorder)->Record(camera.Get()), S_OK);
        ASSERT_EQ(camera->Live(), S_OK);
        const bool done = WaitFor(
            [&] {
                int32_t state = -1;
                camcorder->Inquire(10, &state);
                return state == CameraStateIdle && Files().size() == static_cast<size_t>(frames);
            },
            120);
        ASSERT_EQ(camera->StopLive(), S_OK);
        ASSERT_TRUE(done) << Files().size() << " files";
        EXPECT_EQ(events->GetAdviseCount(), 1) << "the camcorder unsubscribed at its frame limit";
    }

    SmartPtr<ILUM> ReadFile(const std::string& name) {
        SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
        SmartPtr<IString> text = CreateByName<IString>(L"CreatableString", IID_IString);
        const std::wstring path = (folder / name).wstring();
        text->SetText(static_cast<int32_t>(path.size()), path.c_str());
        SmartPtr<ILUM> image;
        EXPECT_EQ(archive->Read(text.Get(), image.Out()), S_OK) << name;
        return image;
    }

    /// The numbers of the first `count` frames the sink saw run on without a gap.
    void ExpectConsecutive(size_t count) {
        const std::vector<int32_t> numbers = sink->Numbers();
        ASSERT_GE(numbers.size(), count);
        for (size_t i = 1; i < count; ++i)
            EXPECT_TRUE(FollowsFrame(numbers[i - 1], numbers[i])) << numbers[i - 1] << " then " << numbers[i];
    }

    void ExpectNothingLost() {
        EXPECT_EQ(ParameterOf(camera.Get(), kDropped), 0);
        EXPECT_EQ(ParameterOf(camera.Get(), kIncomplete), 0);
        EXPECT_EQ(ParameterOf(camera.Get(), kDelivered), static_cast<int32_t>(sink->Size()));
    }

    std::string id;
    SmartPtr<ICamera> camera;
    SmartPtr<KeepingSink> sink;
};

TEST_F(AravisRecording, TwoHundredJpegFilesHoldTheFramesAravisDeliveredAtTheFakesDefaultRate) {
    constexpr int kFrames = 200;
    camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    RecordLive(FileFormatJPEG, 1, kFrames);
    if (HasFatalFailure()) return;

    std::vector<std::string> files = Files();
    ASSERT_EQ(files.size(), static_cast<size_t>(kFrames));
    const std::vector<SmartPtr<ILUM>> frames = sink->Images();
    ASSERT_GE(frames.size(), static_cast<size_t>(kFrames));
    int worst = 0;
    double worstMean = 0;
    for (int i = 0; i < kFrames; ++i) {
        char expected[16];
        std::snprintf(expected, sizeof expected, "%04d.jpg", i);
        ASSERT_EQ(files[i], expected);
        const ImageBytes file = BytesOf(ReadFile(files[i]).Get());
        const Difference own = DifferenceOf(file, BytesOf(frames[i].Get()));
        ASSERT_GE(own.largest, 0) << files[i] << ": " << file.width << "x" << file.height << " at " << file.bits;
        EXPECT_LE(own.largest, kJpegLargestDifference) << files[i];
        EXPECT_LE(own.mean, kJpegMeanDifference) << files[i];
        worst = std::max(worst, own.largest);
        worstMean = std::max(worstMean, own.mean);
        // The neighbouring frames differ from this file by more than its
        // own frame does: the files are in the order the frames came.
        for (int j : {i - 1, i + 1}) {
            if (j < 0 || j >= kFrames) continue;
            EXPECT_LT(own.mean, DifferenceOf(file, BytesOf(frames[j].Get())).mean) << files[i] << " vs frame " << j;
        }
    }
    RecordProperty("jpeg_largest_difference", worst);
    RecordProperty("jpeg_mean_difference_x1000", static_cast<int>(worstMean * 1000));
    ExpectConsecutive(kFrames);
    ExpectNothingLost();
}

TEST_F(AravisRecording, BmpFilesOfAChangedWidthAndFormatEqualTheFramesExactly) {
    constexpr int kFrames = 30;
    camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    // Color frames copied by the camcorder in the camera's thread: a gentler
    // rate leaves room for sanitizer builds on a busy machine.
    ASSERT_EQ(camera->Control(kFrameRate, 10), S_OK);
    ASSERT_EQ(camera->Control(kWidth, 318), S_OK);
    ASSERT_EQ(camera->Control(kHeight, 240), S_OK);
    ASSERT_EQ(camera->Control(kBits, 24), S_OK);
    RecordLive(FileFormatBMP, 2, kFrames);
    if (HasFatalFailure()) return;

    std::vector<std::string> files = Files();
    ASSERT_EQ(files.size(), static_cast<size_t>(kFrames));
    const std::vector<SmartPtr<ILUM>> frames = sink->Images();
    for (int i = 0; i < kFrames; ++i) {
        const ImageBytes file = BytesOf(ReadFile(files[i]).Get());
        EXPECT_EQ(file.width, 318);
        EXPECT_EQ(file.height, 240);
        EXPECT_EQ(file.bits, 24);
        const ImageBytes frame = BytesOf(frames[i].Get());
        EXPECT_TRUE(file.bytes == frame.bytes) << files[i] << " differs from frame " << i;
    }
    ExpectConsecutive(kFrames);
    ExpectNothingLost();
}

}  // namespace
