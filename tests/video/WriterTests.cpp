// "LUMMJPEG": what it accepts, what it hands back, the files it writes (plain
// and OpenDML), and those files read back by "LUMAVI" and by ffprobe.
#include <sys/stat.h>

#include <random>

#include "tests/video/VideoTestSupport.h"

namespace {

class WriterTest : public ::testing::Test {
protected:
    std::string File(const std::string& name) const { return folder.File(name); }
    bool Exists(const std::string& name) const {
        struct stat status {};
        return ::stat(File(name).c_str(), &status) == 0;
    }
    ScratchFolder folder;
};

TEST_F(WriterTest, AddTakesImagesOfTheFirstFramesSizeAndKindWithoutKeepingThem) {
    auto writer = CreateByName<ICreatableSimpleCollection>(L"LUMMJPEG", IID_ICreatableSimpleCollection);
    ASSERT_TRUE(writer);
    EXPECT_EQ(E_POINTER, writer->Add(nullptr));
    EXPECT_EQ(E_NOINTERFACE, writer->Add(MakeFake<KitPlainObject, IUnknown>().Get()));
    auto empty = CreateByName<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    EXPECT_EQ(E_INVALIDARG, writer->Add(empty.Get()));

    SmartPtr<ILUMImageDIB> first = SequenceFrame(64, 48, 24, 1);
    const uint32_t references = RefCountOf(first.Get());
    EXPECT_EQ(S_OK, writer->Add(first.Get()));
    EXPECT_EQ(references, RefCountOf(first.Get()));
    EXPECT_EQ(E_INVALIDARG, writer->Add(SequenceFrame(64, 32, 24, 2).Get()));
    EXPECT_EQ(E_INVALIDARG, writer->Add(SequenceFrame(64, 48, 8, 2).Get()));
    EXPECT_EQ(S_OK, writer->Add(SequenceFrame(64, 48, 32, 2).Get()));  // colour too
    EXPECT_EQ(2, CountOf(writer.Get()));

    // Once empty, the next frame fixes size and kind anew.
    EXPECT_EQ(S_OK, writer->RemoveAll());
    EXPECT_EQ(S_OK, writer->Add(SequenceFrame(32, 32, 8, 3).Get()));
    EXPECT_EQ(3, FrameNumber(FrameOf(writer.Get(), 0).Get()));
}

TEST_F(WriterTest, ItemsAreNewDecodedImagesInOrderOfAddition) {
    auto writer = WriterWith(5, 64, 48, 24);
    ASSERT_TRUE(writer);
    SmartPtr<ILUM> a = FrameOf(writer.Get(), 3), b = FrameOf(writer.Get(), 3);
    ASSERT_TRUE(a && b);
    EXPECT_NE(IdentityPointer(a.Get()), IdentityPointer(b.Get()));
    HRESULT hr = S_OK;
    EXPECT_FALSE(FrameOf(writer.Get(), 5, &hr));
    EXPECT_EQ(E_INVALIDARG, hr);

    EXPECT_EQ(S_OK, writer->Remove(1));
    EXPECT_EQ(E_INVALIDARG, writer->Remove(4));
    std::vector<int> numbers;
    for (int32_t i = 0; i < CountOf(writer.Get()); ++i) {
        SmartPtr<ILUM> frame = FrameOf(writer.Get(), i);
        numbers.push_back(FrameNumber(frame.Get()));
        EXPECT_LE(DifferenceToFrame(frame.Get(), 24, numbers.back()), 6);
    }
    EXPECT_EQ((std::vector<int>{0, 2, 3, 4}), numbers);
}

TEST_F(WriterTest, RateAndQualityOptions) {
    auto options = CreateByName<ILUMAVI>(L"LUMMJPEG", IID_ILUMAVI);
    EXPECT_EQ(15, RateOf(options.Get()));
    EXPECT_EQ(S_OK, options->SetOption(10, 0));
    EXPECT_EQ(1, RateOf(options.Get()));
    EXPECT_EQ(E_INVALIDARG, options->SetOption(12, 1));
    EXPECT_EQ(E_INVALIDARG, options->SetOption(kPartLimitOption, 100));
    EXPECT_EQ(E_NOTIMPL, options.As<IFileArchive>(IID_IFileArchive)->Load());

    // Quality (default 90) applies to the frames added after it is set.
    SmartPtr<ILUMImageDIB> noise =
        MakeImage(64, 64, 8, [](int32_t i, int32_t y) { return uint8_t((i * 7919 + y * 104729) >> 3); });
    std::vector<size_t> sizes;
    for (int32_t quality : {90, 100, 10}) {
        auto writer = options.As<ICreatableSimpleCollection>(IID_ICreatableSimpleCollection);
        writer->RemoveAll();
        if (quality != 90) options->SetOption(11, quality);
        ASSERT_EQ(S_OK, writer->Add(noise.Get()));
        ASSERT_EQ(S_OK, SaveAs(writer.Get(), File("q.avi")));
        sizes.push_back(ReadFile(File("q.avi")).size());
    }
    EXPECT_GT(sizes[1], sizes[0]);
    EXPECT_GT(sizes[0], 2 * sizes[2]);
}

TEST_F(WriterTest, SaveNeedsFramesAWritableNameAndMakesNoFileOtherwise) {
    auto empty = CreateByName<ICreatableSimpleCollection>(L"LUMMJPEG", IID_ICreatableSimpleCollection);
    EXPECT_EQ(E_FAIL, SaveAs(empty.Get(), File("none.avi")));
    EXPECT_FALSE(Exists("none.avi"));
    auto writer = WriterWith(2, 32, 32, 8);
    EXPECT_EQ(E_FAIL, writer.As<IFileArchive>(IID_IFileArchive)->Save());
    EXPECT_EQ(E_FAIL, SaveAs(writer.Get(), File("missing/folder.avi")));
}

TEST_F(WriterTest, PlainFileHasOneMjpegStreamFramesInOrderAndIdx1) {
    auto writer = WriterWith(6, 64, 48, 8, 25);
    ASSERT_TRUE(writer);
    ASSERT_EQ(S_OK, SaveAs(writer.Get(), File("plain.avi")));
    const std::string bytes = ReadFile(File("plain.avi"));
    const RiffNode root = ParseRiff(bytes);
    ASSERT_EQ(1u, root.children.size());
    const RiffNode& riff = root.children[0];
    EXPECT_EQ("AVI ", riff.type);
    EXPECT_EQ(bytes.size(), riff.size + 8u);
    const RiffNode* strl = riff.Find("LIST", "hdrl")->Find("LIST", "strl");
    ASSERT_TRUE(strl);
    const RiffNode* strh = strl->Find("strh");
    EXPECT_EQ("vidsMJPG", bytes.substr(strh->offset + 8, 8));
    EXPECT_EQ(25u, Le32(bytes, strh->offset + 8 + 24) / Le32(bytes, strh->offset + 8 + 20));
    EXPECT_FALSE(strl->Find("indx"));  // no OpenDML parts needed

    const std::vector<const RiffNode*> frames = riff.Find("LIST", "movi")->All("00dc");
    ASSERT_EQ(6u, frames.size());
    const RiffNode* idx1 = riff.Find("idx1");
    ASSERT_TRUE(idx1);
    EXPECT_EQ(6u * 16, idx1->size);
    // Gray frames are single-component JPEGs: SOF0's component count.
    const std::string jpeg = bytes.substr(frames[0]->offset + 8, frames[0]->size);
    const size_t sof = jpeg.find("\xFF\xC0");
    ASSERT_NE(std::string::npos, sof);
    EXPECT_EQ(1, jpeg[sof + 9]);
}

TEST_F(WriterTest, GrayAndColourFilesReadBackWithTheirRateWithinJpegTolerance) {
    for (int32_t bits : {8, 24, 32}) {
        SCOPED_TRACE(bits);
        const std::string name = File("round" + std::to_string(bits) + ".avi");
        ASSERT_EQ(S_OK, SaveAs(WriterWith(7, 64, 48, bits, 12).Get(), name));
        HRESULT hr = E_FAIL;
        SmartPtr<IFileArchive> reader = LoadAvi(name, &hr);
        ASSERT_EQ(S_OK, hr);
        EXPECT_EQ(7, CountOf(reader.Get()));
        EXPECT_EQ(12, RateOf(reader.Get()));
        for (int32_t i = 0; i < 7; ++i) {
            SmartPtr<ILUM> frame = FrameOf(reader.Get(), i);
            ASSERT_TRUE(frame);
            int32_t frameBits = 0;
            frame->get_BitsPerPixel(&frameBits);
            EXPECT_EQ(bits == 8 ? 8 : 24, frameBits);
            EXPECT_EQ(i, FrameNumber(frame.Get()));
            EXPECT_LE(DifferenceToFrame(frame.Get(), bits, i), 6);
        }
    }
}

TEST_F(WriterTest, FfprobeCountsTheFramesAndReadsTheRate) {
    if (!HaveTool("ffprobe")) GTEST_SKIP() << "ffprobe is not installed";
    ASSERT_EQ(S_OK, SaveAs(WriterWith(9, 64, 48, 8, 20).Get(), File("probe.avi")));
    auto values = Probe(File("probe.avi"));
    EXPECT_EQ("mjpeg", values["codec_name"]);
    EXPECT_EQ("9", values["nb_read_frames"]);
    EXPECT_EQ("20/1", values["r_frame_rate"]);
    EXPECT_EQ("64", values["width"]);
}

// The OpenDML layout, with parts of at most 8 KiB instead of 1 GiB.
class OpenDmlTest : public WriterTest {
protected:
    static constexpr int kFrames = 40;
    static constexpr uint32_t kLimit = 8192;
    void SetUp() override {
        auto writer = WriterWith(kFrames, 64, 48, 24, 30);
        ASSERT_TRUE(writer);
        ASSERT_EQ(S_OK, writer.As<ILUMAVI>(IID_ILUMAVI)->SetOption(kPartLimitOption, kLimit));
        ASSERT_EQ(S_OK, SaveAs(writer.Get(), File("odml.avi")));
        bytes = ReadFile(File("odml.avi"));
    }
    void ExpectWholeSequence(const std::string& name) {
        SmartPtr<IFileArchive> reader = LoadAvi(File(name));
        ASSERT_EQ(kFrames, CountOf(reader.Get()));
        for (int32_t i = 0; i < kFrames; ++i) EXPECT_EQ(i, FrameNumber(FrameOf(reader.Get(), i).Get()));
    }
    /// The file with the codes at the given offsets overwritten by "JUNK".
    std::string Without(std::initializer_list<uint64_t> offsets) {
        std::string changed = bytes;
        for (uint64_t offset : offsets) changed.replace(offset, 4, "JUNK");
        return changed;
    }
    std::string bytes;
};

TEST_F(OpenDmlTest, PartsStayUnderTheLimitAndEveryIndexCountsTheFrames) {
    const RiffNode root = ParseRiff(bytes);
    ASSERT_GE(root.children.size(), 3u);
    const RiffNode& first = root.children[0];
    const RiffNode* strl = first.Find("LIST", "hdrl")->Find("LIST", "strl");
    const RiffNode* indx = strl->Find("indx");
    ASSERT_TRUE(indx);
    EXPECT_EQ(root.children.size(), Le32(bytes, indx->offset + 8 + 4));  // entries in use

    uint32_t inParts = 0;
    for (size_t p = 0; p < root.children.size(); ++p) {
        const RiffNode& part = root.children[p];
        EXPECT_EQ(p == 0 ? "AVI " : "AVIX", part.type);
        EXPECT_LE(part.size + 8u, kLimit);
        const RiffNode* movi = part.Find("LIST", "movi");
        ASSERT_TRUE(movi);
        const uint32_t frames = static_cast<uint32_t>(movi->All("00dc").size());
        const RiffNode* ix = movi->Find("ix00");
        ASSERT_TRUE(ix);
        EXPECT_EQ(frames, Le32(bytes, ix->offset + 8 + 4));
        // The super index names this part's standard index and its frames.
        EXPECT_EQ(ix->offset, Le32(bytes, indx->offset + 8 + 24 + 16 * p));
        EXPECT_EQ(frames, Le32(bytes, indx->offset + 8 + 24 + 16 * p + 12));
        if (p == 0) {
            EXPECT_EQ(frames * 16, part.Find("idx1")->size);
            EXPECT_EQ(frames, Le32(bytes, first.Find("LIST", "hdrl")->Find("avih")->offset + 8 + 16));
        }
        inParts += frames;
    }
    EXPECT_EQ(uint32_t(kFrames), inParts);
    const RiffNode* dmlh = first.Find("LIST", "hdrl")->Find("LIST", "odml")->Find("dmlh");
    EXPECT_EQ(uint32_t(kFrames), Le32(bytes, dmlh->offset + 8));
    ExpectWholeSequence("odml.avi");
}

TEST_F(OpenDmlTest, FramesOfEveryPartAreFoundWithoutTheSuperIndexOrAnyIndex) {
    const RiffNode root = ParseRiff(bytes);
    const RiffNode& first = root.children[0];
    const uint64_t indx = first.Find("LIST", "hdrl")->Find("LIST", "strl")->Find("indx")->offset;
    WriteFile(File("no-indx.avi"), Without({indx}));
    ExpectWholeSequence("no-indx.avi");
    WriteFile(File("no-index.avi"), Without({indx, first.Find("idx1")->offset}));
    ExpectWholeSequence("no-index.avi");
}

TEST_F(OpenDmlTest, FfprobeCountsEveryPart) {
    if (!HaveTool("ffprobe")) GTEST_SKIP() << "ffprobe is not installed";
    auto values = Probe(File("odml.avi"));
    EXPECT_EQ(std::to_string(kFrames), values["nb_read_frames"]);
    EXPECT_EQ("30/1", values["r_frame_rate"]);
}

}  // namespace
