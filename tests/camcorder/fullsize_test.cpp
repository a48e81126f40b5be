// Full-size recordings: 1280x1024 gray at quality 100, 300 frames, with each
// way of writing. Every file must decode with a standard decoder, and the
// frame numbers read back from the pixels must run on without a gap.
#include <cstdlib>

#include "tests/camcorder/CamcorderHost.h"

namespace {

constexpr int kWidth = 1280, kHeight = 1024, kFrames = 300;

bool HaveTool(const char* tool) { return std::system((std::string("command -v ") + tool + " >/dev/null").c_str()) == 0; }

/// The synthetic camera's gray pattern is (x + y + f) mod 256: the frame
/// number modulo 256 is the most common residue over an interior block,
/// which survives the small errors of JPEG coding.
int FrameResidue(ILUM* image) {
    uint8_t* bits = nullptr;
    int32_t stride = 0;
    if (!image || image->get_Bits(&bits) < 0 || image->get_Stride(&stride) < 0 || !bits) return -1;
    int votes[256] = {};
    for (int y = 64; y < 96; ++y)
        for (int x = 64; x < 96; ++x) ++votes[(bits[y * stride + x] - x - y + 512) & 255];
    int best = 0;
    for (int r = 1; r < 256; ++r)
        if (votes[r] > votes[best]) best = r;
    return best;
}

class FullSize : public CamcorderTest, public ::testing::WithParamInterface<int32_t> {
protected:
    /// Records kFrames frames of the live synthetic camera with `options`.
    void RecordLive(ILUMCamcorder* camcorder, int32_t options) {
        SmartPtr<ICamera> camera = NewCamera(kWidth, kHeight, 8);
        camera->Control(4, options == 0 ? 100 : 200);
        camcorder->put_RecordOptions(options);
        camcorder->Control(73, kFrames);
        SmartPtr<ICamcorderArm> recorder = QueryAs<ICamcorderArm>(camcorder, IID_ICamcorderArm);
        recorder->Record(camera.Get());
        camera->Live();
        const int32_t done = options == 0 ? CameraStateRecorded : CameraStateIdle;
        ASSERT_TRUE(WaitFor(
            [&] {
                int32_t state = -1;
                camcorder->Inquire(10, &state);
                return state == done;
            },
            120));
        camera->StopLive();
        recorder->Arm(nullptr);
    }
};

TEST_P(FullSize, EveryFrameIsWrittenNamedAndDecodable) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder(FileFormatJPEG);
    RecordLive(camcorder.Get(), GetParam());

    std::vector<std::string> files = Files();
    ASSERT_EQ(files.size(), static_cast<size_t>(kFrames));
    SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    int previous = -1;
    for (int i = 0; i < kFrames; ++i) {
        char expected[16];
        std::snprintf(expected, sizeof expected, "%04d.jpg", i);
        ASSERT_EQ(files[i], expected);
        std::wstring path = (folder / files[i]).wstring();
        SmartPtr<IString> name = CreateByName<IString>(L"CreatableString", IID_IString);
        name->SetText(static_cast<int32_t>(path.size()), path.c_str());
        SmartPtr<ILUM> image;
        ASSERT_EQ(archive->Read(name.Get(), image.Out()), S_OK) << files[i];
        int32_t width = 0, bits = 0;
        image->get_Width(&width);
        image->get_BitsPerPixel(&bits);
        EXPECT_EQ(width, kWidth);
        EXPECT_EQ(bits, 8);
        const int residue = FrameResidue(image.Get());
        if (previous >= 0) {
            EXPECT_EQ(residue, (previous + 1) & 255) << "frame lost or repeated at " << files[i];
        }
        previous = residue;
    }
    if (HaveTool("djpeg")) {
        const std::string command = "for f in '" + folder.string() +
                                    "'/*.jpg; do djpeg -grayscale \"$f\" >/dev/null 2>&1 || exit 1; done";
        EXPECT_EQ(std::system(command.c_str()), 0) << "a file that djpeg cannot decode";
    }
}

INSTANTIATE_TEST_SUITE_P(Options, FullSize, ::testing::Values(0, 1, 2));

class AviRecording : public FullSize {};

TEST_F(AviRecording, OneFilePerRecordingWithThePlaybackRate) {
    if (!HaveTool("ffprobe")) GTEST_SKIP() << "ffprobe is not installed";
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder(FileFormatAVI);
    camcorder->put_PlayBackSpeed(25.0);
    RecordLive(camcorder.Get(), 1);
    const fs::path avi = folder.string() + ".avi";
    ASSERT_TRUE(fs::exists(avi));
    const std::string command = "ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                                "stream=nb_read_frames,r_frame_rate,codec_name -of csv=p=0 '" +
                                avi.string() + "'";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    char line[256] = {};
    ASSERT_NE(std::fgets(line, sizeof line, pipe), nullptr);
    pclose(pipe);
    fs::remove(avi);
    EXPECT_EQ(std::string(line), "mjpeg,25/1," + std::to_string(kFrames) + "\n");
}

}  // namespace
