// The stack's images saved as a series or an AVI file, and loaded back.
#include <cstdlib>
#include <fstream>

#include "tests/stack/StackHost.h"

namespace {

bool HaveTool(const char* tool) { return std::system((std::string("command -v ") + tool + " >/dev/null").c_str()) == 0; }

/// Frame number modulo 256 of an 8-bit frame of the synthetic camera, read
/// from its (x + y + f) pattern so that JPEG coding does not disturb it.
int Residue(ILUM* image) {
    uint8_t* bits = nullptr;
    int32_t stride = 0;
    if (!image || image->get_Bits(&bits) < 0 || !bits) return -1;
    image->get_Stride(&stride);
    int votes[256] = {};
    for (int y = 8; y < 16; ++y)
        for (int x = 8; x < 24; ++x) ++votes[(bits[y * stride + x] - x - y + 512) & 255];
    int best = 0;
    for (int r = 1; r < 256; ++r)
        if (votes[r] > votes[best]) best = r;
    return best;
}

class StackFiles : public StackTest {
protected:
    HRESULT SaveTo(const std::wstring& name) {
        Archive()->put_Filename(Text(name).Get());
        return Archive()->Save();
    }
    HRESULT LoadFrom(const std::wstring& name) {
        Archive()->put_Filename(Text(name).Get());
        return Archive()->Load();
    }
    std::vector<int32_t> StackFrames(bool residue) {
        std::vector<int32_t> frames;
        for (int32_t i = 0; i < Count(); ++i) {
            SmartPtr<ILUM> image;
            stack->get_Image(i, image.Out());
            if (!image) frames.push_back(-1);
            else frames.push_back(residue ? Residue(image.Get()) : FrameNumberOf(image.Get()));
        }
        return frames;
    }
};

TEST_F(StackFiles, SeriesHoldsEveryImageInOrder) {
    NewStack();
    RecordFrames(50);
    EXPECT_EQ(SaveTo((folder / "run.png").wstring()), S_OK);
    std::vector<std::string> files = Files();
    ASSERT_EQ(files.size(), 50u);
    for (int i = 0; i < 50; ++i) {
        char expected[32];
        std::snprintf(expected, sizeof expected, "run%04d.png", i + 1);
        EXPECT_EQ(files[i], expected);
        EXPECT_EQ(FrameNumberInFile(folder / files[i]), i + 1) << "PNG keeps the pixels exactly";
    }
}

TEST_F(StackFiles, EmptyExtensionWritesJpeg) {
    NewStack();
    RecordFrames(2);
    EXPECT_EQ(SaveTo((folder / "run.").wstring()), S_OK);
    EXPECT_EQ(Files(), (std::vector<std::string>{"run0001.jpg", "run0002.jpg"}));
}

TEST_F(StackFiles, AviHoldsTheItemsFromTheLastDownToTheSecond) {
    NewStack();
    RecordFrames(6, 8, 64, 32);
    const fs::path avi = folder / "clip.Avi";
    EXPECT_EQ(SaveTo(avi.wstring()), E_FAIL) << "an AVI save reports failure even when written";
    ASSERT_TRUE(fs::exists(avi));
    if (HaveTool("ffprobe")) {
        const std::string command = "ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                                    "stream=nb_read_frames -of csv=p=0 '" + avi.string() + "'";
        FILE* pipe = popen(command.c_str(), "r");
        char line[64] = {};
        ASSERT_NE(std::fgets(line, sizeof line, pipe), nullptr);
        pclose(pipe);
        EXPECT_EQ(std::string(line), "5\n");
    }
    // Loading "clip.Avi" takes the folder route (no ".avi" in the name), so
    // read the file back through a name with the lower-case extension.
    fs::rename(avi, folder / "clip.avi");
    NewStack();
    EXPECT_EQ(LoadFrom((folder / "clip.avi").wstring()), S_OK);
    EXPECT_EQ(StackFrames(true), (std::vector<int32_t>{6, 5, 4, 3, 2}));
    EXPECT_EQ(Parameter(55), 0);
}

TEST_F(StackFiles, LoadsAnAviWrittenByFfmpeg) {
    if (!HaveTool("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
    const fs::path avi = folder / "tool.avi";
    const std::string command = "ffmpeg -v error -f lavfi -i testsrc=size=64x48:rate=10 -frames:v 12 -c:v mjpeg '" +
                                avi.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    NewStack();
    EXPECT_EQ(LoadFrom(avi.wstring()), S_OK);
    EXPECT_EQ(Count(), 12);
    stack->Control(54, 1);
    stack->Control(60, 0);
    stack->Live();
    // Forward play starts at index 0 and steps before showing: frames 1 to 11.
    for (int i = 0; i < 11; ++i) EXPECT_EQ(stack->Grab(-1, 0, nullptr), S_OK);
    EXPECT_EQ(stack->Grab(-1, 0, nullptr), E_FAIL);
    EXPECT_EQ(sink->Size(), 11u);
}

TEST_F(StackFiles, BadFilesLeaveTheStackUsable) {
    NewStack();
    EXPECT_EQ(LoadFrom(L""), E_FAIL);
    const fs::path empty = folder / "empty.avi", junk = folder / "junk.avi";
    { std::ofstream(empty.string()); }
    {
        std::ofstream out(junk.string(), std::ios::binary);
        for (int i = 0; i < 4096; ++i) out.put(static_cast<char>(i * 131 % 251));
    }
    EXPECT_EQ(LoadFrom(empty.wstring()), S_OK);
    EXPECT_EQ(LoadFrom(junk.wstring()), S_OK);
    EXPECT_EQ(LoadFrom((folder / "missing.avi").wstring()), S_OK);
    EXPECT_EQ(Count(), 0);
    RecordFrames(2);
    EXPECT_EQ(Count(), 2);
}

TEST_F(StackFiles, TruncatedAviGivesTheFramesBeforeTheCut) {
    NewStack();
    RecordFrames(11, 8, 64, 32);
    const fs::path avi = folder / "cut.avi";
    SaveTo(avi.wstring());  // ten frames: 11 down to 2
    ASSERT_TRUE(fs::exists(avi));
    fs::resize_file(avi, fs::file_size(avi) * 6 / 10);
    NewStack();
    EXPECT_EQ(LoadFrom(avi.wstring()), S_OK);
    std::vector<int32_t> frames = StackFrames(true);
    ASSERT_GT(frames.size(), 2u);
    ASSERT_LT(frames.size(), 10u);
    for (size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(frames[i], 11 - static_cast<int32_t>(i)) << i;
}

TEST_F(StackFiles, LoadsEveryImageOfAFolderInNameOrder) {
    // Three formats, one file of another kind, and a corrupt image.
    SmartPtr<ICamera> camera = NewCamera(32, 24, 8);
    SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    const char* names[] = {"a.jpg", "b.png", "c.bmp"};
    for (const char* name : names) {
        camera->Grab(0, 0, nullptr);
        SmartPtr<ILUM> image;
        camera->get_Image(0, image.Out());
        ASSERT_EQ(archive->Write(Text((folder / name).wstring()).Get(), image.Get(), 100), S_OK);
    }
    { std::ofstream(folder / "notes.txt") << "not an image"; }
    { std::ofstream(folder / "d.jpg") << "corrupt"; }

    NewStack();
    ASSERT_EQ(LoadFrom(folder.wstring()), S_OK);
    ASSERT_EQ(Count(), 4) << "every listed image file is an entry";
    EXPECT_EQ(StackFrames(true), (std::vector<int32_t>{1, 2, 3, -1})) << "the corrupt file holds no image";

    // A file name inside the folder lists the folder.
    NewStack();
    ASSERT_EQ(LoadFrom((folder / "b.png").wstring()), S_OK);
    EXPECT_EQ(Count(), 4);
    stack->Control(54, 1);
    stack->Live();
    EXPECT_EQ(stack->Grab(-1, 0, nullptr), S_OK);
    EXPECT_EQ(sink->Size(), 1u);
}

TEST_F(StackFiles, FolderThatDoesNotExistLoadsNothing) {
    NewStack();
    EXPECT_EQ(LoadFrom((folder / "missing" / "run0001.png").wstring()), S_OK);
    EXPECT_EQ(Count(), 0);
}

}  // namespace
