// "LUMAVI": files of other writers (ffmpeg, hand-made uncompressed and
// motion-JPEG files), damaged and hostile files, and memory use of long
// recordings on both sides.
#include <malloc.h>

#include <random>

#include "framework/LUMVideo/FrameDecoding.h"
#include "tests/video/VideoTestSupport.h"

#if defined(__SANITIZE_ADDRESS__)
// From the sanitizer runtime (its header is not always installed).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

// Bytes currently allocated on the heap.
size_t HeapInUse() {
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

class ReaderTest : public ::testing::Test {
protected:
    std::string File(const std::string& name) const { return folder.File(name); }
    /// Writes `bytes` and loads them; the reader (its Load result in `*result`).
    SmartPtr<IFileArchive> LoadBytes(const std::string& bytes, HRESULT* result = nullptr) {
        WriteFile(File("case.avi"), bytes);
        return LoadAvi(File("case.avi"), result);
    }
    /// Loads and reads every frame; the number that decoded. A failed Load
    /// must leave no frames.
    int DecodableFrames(const std::string& bytes) {
        HRESULT hr = S_OK;
        SmartPtr<IFileArchive> reader = LoadBytes(bytes, &hr);
        const int32_t count = CountOf(reader.Get());
        if (hr < 0) {
            EXPECT_EQ(0, count);
        }
        int decoded = 0;
        for (int32_t i = 0; i < count; ++i) decoded += FrameOf(reader.Get(), i) ? 1 : 0;
        EXPECT_FALSE(FrameOf(reader.Get(), count));
        return decoded;
    }
    std::string Ffmpeg(const std::string& arguments) {
        int status = -1;
        std::string output = RunCommand("ffmpeg -v error -y " + arguments + " 2>&1", &status);
        EXPECT_EQ(0, status) << output;
        return output;
    }
    ScratchFolder folder;
};

// A JPEG of frame `f` of the test sequence, as "LUMArchive" writes it.
std::string JpegOf(const ScratchFolder& folder, int32_t bits, int f) {
    auto archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    const std::string name = folder.File("frame.jpg");
    archive->Write(FileNameString(name).Get(), SequenceFrame(64, 48, bits, f).Get(), 90);
    return ReadFile(name);
}

// The JPEG without its DHT segments, as many cameras send their frames.
std::string WithoutHuffmanTables(std::string jpeg) {
    for (size_t i = 2; i + 4 <= jpeg.size() && jpeg.compare(i, 2, "\xFF\xDA") != 0;) {
        const size_t length = size_t(uint8_t(jpeg[i + 2])) << 8 | uint8_t(jpeg[i + 3]);
        if (jpeg.compare(i, 2, "\xFF\xC4") == 0)
            jpeg.erase(i, 2 + length);
        else
            i += 2 + length;
    }
    return jpeg;
}

TEST_F(ReaderTest, FfmpegMotionJpegReadsAsFfmpegDecodesIt) {
    if (!HaveTool("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
    Ffmpeg("-f lavfi -i testsrc=size=160x120:rate=12 -frames:v 24 -c:v mjpeg -q:v 3 '" + File("src.avi") + "'");
    Ffmpeg("-i '" + File("src.avi") + "' -vf select='eq(n\\,17)' -frames:v 1 -f rawvideo -pix_fmt bgr24 '" +
           File("17.raw") + "'");
    HRESULT hr = E_FAIL;
    SmartPtr<IFileArchive> reader = LoadAvi(File("src.avi"), &hr);
    ASSERT_EQ(S_OK, hr);
    EXPECT_EQ(24, CountOf(reader.Get()));
    EXPECT_EQ(12, RateOf(reader.Get()));
    const ImageBytes ours = BytesOf(FrameOf(reader.Get(), 17).Get());
    const std::string theirs = ReadFile(File("17.raw"));
    ASSERT_EQ(160, ours.width);
    ASSERT_EQ(24, ours.bits);
    ASSERT_EQ(size_t(160 * 120 * 3), theirs.size());
    // Chroma upsampling differs between decoders at colour edges; on
    // average the pictures agree closely.
    double total = 0;
    for (int y = 0; y < 120; ++y)
        for (int i = 0; i < 160 * 3; ++i) total += std::abs(ours.rows[y][i] - uint8_t(theirs[y * 160 * 3 + i]));
    EXPECT_LT(total / (160 * 120 * 3), 3.0);
}

TEST_F(ReaderTest, FfmpegUncompressedFramesMatchExactly) {
    if (!HaveTool("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
    struct Case { const char* format; int32_t bits; };
    for (const Case& c : {Case{"bgr24", 24}, Case{"bgra", 32}, Case{"gray", 8}}) {
        SCOPED_TRACE(c.format);
        const std::string avi = File(std::string(c.format) + ".avi"), raw = File(std::string(c.format) + ".raw");
        Ffmpeg("-f lavfi -i testsrc=size=36x20:rate=5 -frames:v 3 -c:v rawvideo -pix_fmt " + std::string(c.format) +
               " '" + avi + "'");
        Ffmpeg("-i '" + avi + "' -frames:v 1 -f rawvideo -pix_fmt " + c.format + " '" + raw + "'");
        SmartPtr<IFileArchive> reader = LoadAvi(avi);
        ASSERT_EQ(3, CountOf(reader.Get()));
        const ImageBytes ours = BytesOf(FrameOf(reader.Get(), 0).Get());
        EXPECT_EQ(c.bits, ours.bits);
        std::string flat;
        for (const auto& row : ours.rows) flat.append(row.begin(), row.end());
        EXPECT_EQ(ReadFile(raw), flat);
    }
}

TEST_F(ReaderTest, UncompressedRowsAreTurnedTopDownAndPalettesApplied) {
    // 3 x 2 frames; file rows bottom-up unless the height is negative.
    const std::string bottom = std::string("\x01\x02\x03\x04\x05\x06\x07\x08\x09", 9) + '\0' + '\0' + '\0';
    const std::string top = std::string("\x11\x12\x13\x14\x15\x16\x17\x18\x19", 9) + '\0' + '\0' + '\0';
    SmartPtr<IFileArchive> reader =
        LoadBytes(AviFile(VideoStreamList("", 3, 2, 24, 30000, 1001), {Chunk("00db", bottom + top)}));
    ImageBytes frame = BytesOf(FrameOf(reader.Get(), 0).Get());
    EXPECT_EQ(30, RateOf(reader.Get()));
    EXPECT_EQ(top.substr(0, 9), std::string(frame.rows[0].begin(), frame.rows[0].end()));

    reader = LoadBytes(AviFile(VideoStreamList("", 3, -2, 24, 5), {Chunk("00db", bottom + top)}));
    frame = BytesOf(FrameOf(reader.Get(), 0).Get());
    EXPECT_EQ(bottom.substr(0, 9), std::string(frame.rows[0].begin(), frame.rows[0].end()));

    // 8 bits: a gray palette (or none) stays gray, a colour one gives BGR.
    const std::string indexes = std::string("\x00\x01\x02\x00", 4) + std::string("\x02\x01\x00\x00", 4);
    std::string grayPalette, colourPalette;
    for (int k = 0; k < 3; ++k) grayPalette += std::string(3, char(100 + k)) + '\0';
    colourPalette = std::string("\x10\x20\x30\x00\x40\x50\x60\x00\x70\x80\x90\x00", 12);
    reader = LoadBytes(AviFile(VideoStreamList("", 3, 2, 8, 5, 1, grayPalette), {Chunk("00db", indexes)}));
    frame = BytesOf(FrameOf(reader.Get(), 0).Get());
    EXPECT_EQ(8, frame.bits);
    EXPECT_EQ((std::vector<uint8_t>{102, 101, 100}), frame.rows[0]);
    reader = LoadBytes(AviFile(VideoStreamList("", 3, 2, 8, 5, 1, colourPalette), {Chunk("00db", indexes)}));
    frame = BytesOf(FrameOf(reader.Get(), 0).Get());
    EXPECT_EQ(24, frame.bits);
    EXPECT_EQ((std::vector<uint8_t>{0x70, 0x80, 0x90, 0x40, 0x50, 0x60, 0x10, 0x20, 0x30}), frame.rows[0]);

    // A frame shorter than its rows fails alone.
    reader = LoadBytes(AviFile(VideoStreamList("", 3, 2, 24, 5), {Chunk("00db", bottom), Chunk("00db", bottom + top)}));
    EXPECT_EQ(2, CountOf(reader.Get()));
    EXPECT_FALSE(FrameOf(reader.Get(), 0));
    EXPECT_TRUE(FrameOf(reader.Get(), 1));
}

TEST_F(ReaderTest, FramesWithoutHuffmanTablesDecodeWithTheStandardOnes) {
    for (int32_t bits : {8, 24}) {
        const std::string whole = JpegOf(folder, bits, 5), bare = WithoutHuffmanTables(whole);
        ASSERT_EQ(std::string::npos, bare.find("\xFF\xC4"));
        ASSERT_LT(bare.size(), whole.size());
        // Found by walking the movi list inside a "rec " list: no idx1.
        const std::string movi = ListOf("LIST", "rec ", Chunk("00dc", bare)) + Chunk("00dc", whole);
        SmartPtr<IFileArchive> reader =
            LoadBytes(AviFile(VideoStreamList("MJPG", 64, 48, 24, 15), {movi}, false));
        ASSERT_EQ(2, CountOf(reader.Get()));
        SmartPtr<ILUM> fromBare = FrameOf(reader.Get(), 0), fromWhole = FrameOf(reader.Get(), 1);
        ASSERT_TRUE(fromBare && fromWhole);
        EXPECT_EQ(0, MaxDifference(BytesOf(fromWhole.Get()), BytesOf(fromBare.Get())));
        EXPECT_EQ(5, FrameNumber(fromBare.Get()));
    }
}

TEST_F(ReaderTest, StandardTablesGoBeforeTheScanOnlyWhenAFrameHasNone) {
    // The library codes colour with exactly the four standard tables, just
    // before the scan: taking them out and putting them back restores it.
    const std::string whole = JpegOf(folder, 24, 3);
    std::vector<uint8_t> frame(whole.begin(), whole.end());
    AddStandardHuffmanTables(frame);
    EXPECT_EQ(whole, std::string(frame.begin(), frame.end()));
    const std::string bare = WithoutHuffmanTables(whole);
    frame.assign(bare.begin(), bare.end());
    AddStandardHuffmanTables(frame);
    EXPECT_EQ(whole, std::string(frame.begin(), frame.end()));
    // Not a JPEG, or cut before its scan: left alone for the decoder to refuse.
    for (const std::string& odd : {std::string("not a jpeg"), bare.substr(0, bare.find("\xFF\xDA"))}) {
        frame.assign(odd.begin(), odd.end());
        AddStandardHuffmanTables(frame);
        EXPECT_EQ(odd, std::string(frame.begin(), frame.end()));
    }
}

TEST_F(ReaderTest, Idx1OffsetsFromTheFileStartAreRecognised) {
    std::string file = AviFile(VideoStreamList("MJPG", 64, 48, 24, 15), {Chunk("00dc", JpegOf(folder, 24, 9))});
    const size_t idx1 = file.find("idx1"), movi = file.find("movi");
    file.replace(idx1 + 16, 4, U32(uint32_t(movi + 4)));  // the frame chunk's file offset
    SmartPtr<IFileArchive> reader = LoadBytes(file);
    ASSERT_EQ(1, CountOf(reader.Get()));
    EXPECT_EQ(9, FrameNumber(FrameOf(reader.Get(), 0).Get()));
}

TEST_F(ReaderTest, WhatIsNoReadableAviFailsWithoutFrames) {
    const std::string jpeg = JpegOf(folder, 24, 1);
    const std::string frames = Chunk("00dc", jpeg);
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"empty", ""},
        {"text", "this is not a video file at all"},
        {"wave", ListOf("RIFF", "WAVE", Chunk("fmt ", std::string(16, '\0')))},
        {"header only", "RIFF\xFF\xFF\xFF\xFF" "AVI "},
        {"no video stream", AviFile(ListOf("LIST", "strl", Chunk("strh", "auds" + std::string(52, '\0'))), {frames})},
        {"unknown coding", AviFile(VideoStreamList("H264", 64, 48, 24, 15), {frames})},
        {"16 bits", AviFile(VideoStreamList("", 4, 4, 16, 15), {Chunk("00db", std::string(32, '\0'))})},
        {"huge raw frames", AviFile(VideoStreamList("", 1 << 30, 1 << 20, 32, 15), {Chunk("00db", "x")})},
        // Row bytes times rows beyond 64 bits: refused, not wrapped around.
        {"raw frame size beyond 64 bits",
         AviFile(VideoStreamList("", INT32_MAX, INT32_MAX, 32, 15), {Chunk("00db", "x")})},
        {"no frames", AviFile(VideoStreamList("MJPG", 64, 48, 24, 15), {})},
        {"other stream's frames", AviFile(VideoStreamList("MJPG", 64, 48, 24, 15), {Chunk("01dc", jpeg)})},
    };
    for (const auto& [name, bytes] : cases) {
        SCOPED_TRACE(name);
        HRESULT hr = S_OK;
        SmartPtr<IFileArchive> reader = LoadBytes(bytes, &hr);
        EXPECT_EQ(E_FAIL, hr);
        EXPECT_EQ(0, CountOf(reader.Get()));
    }
    HRESULT hr = S_OK;
    LoadAvi(File("missing.avi"), &hr);
    EXPECT_EQ(E_FAIL, hr);
    EXPECT_EQ(E_NOTIMPL, LoadAvi(File("missing.avi"))->Save());
}

TEST_F(ReaderTest, DamagedIndexesAndSizesGiveTheFramesThatCanBeRead) {
    std::vector<std::string> chunks;
    for (int f = 0; f < 4; ++f) chunks.push_back(Chunk("00dc", JpegOf(folder, 8, f)));
    const std::string good = AviFile(VideoStreamList("MJPG", 64, 48, 8, 15), chunks);
    const size_t idx1 = good.find("idx1");

    // Entries past the end (or all of idx1 garbage): the movi list is walked.
    std::string broken = good;
    for (int e = 0; e < 4; ++e) broken.replace(idx1 + 8 + 16 * e + 8, 4, U32(0x7FFFFF00u + e));
    EXPECT_EQ(4, DecodableFrames(broken));
    // One entry past the end, one pointing into a frame: the rest are read.
    broken = good;
    broken.replace(idx1 + 8 + 16 + 8, 4, U32(0x7FFFFF00u));
    broken.replace(idx1 + 8 + 32 + 8, 4, U32(Le32(good, idx1 + 8 + 32 + 8) + 100));
    EXPECT_EQ(2, DecodableFrames(broken));
    // Sizes claiming gigabytes: idx1, a frame chunk, the RIFF itself.
    broken = good;
    broken.replace(idx1 + 4, 4, U32(0xFFFFFFF0u));
    EXPECT_EQ(4, DecodableFrames(broken));
    broken = good;
    broken.replace(broken.find("00dc", broken.find("movi")) + 4, 4, U32(0xFFFFFFF0u));
    broken.replace(idx1 + 4, 4, U32(0));  // no index: walk into the giant chunk
    EXPECT_EQ(0, DecodableFrames(broken));
    // A super index whose entries point anywhere, with huge counts.
    const std::string indx = Chunk("indx", U16(4) + '\0' + '\0' + U32(0xFFFFFFFFu) + "00dc" + std::string(12, '\0') +
                                              std::string(8, '\x7F') + U32(32) + U32(4) + U32(16) + U32(0) + U32(4));
    std::string strl = VideoStreamList("MJPG", 64, 48, 8, 15);
    strl = ListOf("LIST", "strl", strl.substr(12) + indx);
    EXPECT_EQ(4, DecodableFrames(AviFile(strl, chunks)));
}

TEST_F(ReaderTest, CutOrScrambledFilesNeverCrashAndKeepWhatIsWhole) {
    auto writer = WriterWith(12, 64, 48, 24);
    writer.As<ILUMAVI>(IID_ILUMAVI)->SetOption(kPartLimitOption, 4096);  // several parts
    ASSERT_EQ(S_OK, SaveAs(writer.Get(), File("whole.avi")));
    const std::string whole = ReadFile(File("whole.avi"));
    for (size_t cut = 0; cut < whole.size(); cut += 97) EXPECT_LE(DecodableFrames(whole.substr(0, cut)), 12);
    // Cut inside the second part: the frames before the cut remain.
    const RiffNode root = ParseRiff(whole);
    ASSERT_GE(root.children.size(), 3u);
    const size_t firstPart = root.children[0].All("LIST")[1]->All("00dc").size();
    const uint64_t third = root.children[2].offset;
    EXPECT_EQ(int(firstPart + root.children[1].Find("LIST", "movi")->All("00dc").size()),
              DecodableFrames(whole.substr(0, third)));

    std::mt19937 random(7);
    for (int round = 0; round < 150; ++round) {
        std::string scrambled = whole;
        for (int k = 0; k < 6; ++k) {
            // Mostly the headers and indexes, where sizes and offsets live.
            const size_t at = random() % 2 ? random() % 600 : random() % scrambled.size();
            scrambled[at] = char(random());
        }
        EXPECT_LE(DecodableFrames(scrambled), 12);
    }
}

TEST_F(ReaderTest, LongRecordingsStayOutOfMemoryOnBothSides) {
    constexpr int kFrames = 2000;
    std::mt19937 random(3);
    SmartPtr<ILUMImageDIB> noise = MakeImage(128, 128, 8, [&](int32_t, int32_t) { return uint8_t(random()); });
    auto writer = CreateByName<ICreatableSimpleCollection>(L"LUMMJPEG", IID_ICreatableSimpleCollection);
    writer.As<ILUMAVI>(IID_ILUMAVI)->SetOption(11, 100);
    const size_t before = HeapInUse();
    for (int f = 0; f < kFrames; ++f) ASSERT_EQ(S_OK, writer->Add(noise.Get()));
    const size_t writing = HeapInUse() - before;
    ASSERT_EQ(S_OK, SaveAs(writer.Get(), File("long.avi")));
    const std::string name = File("long.avi");
    const size_t fileSize = ReadFile(name).size();
    ASSERT_GT(fileSize, size_t(kFrames) * 10000);
    EXPECT_LT(writing, fileSize / 4);

    const size_t beforeLoad = HeapInUse();
    SmartPtr<IFileArchive> reader = LoadAvi(name);
    const size_t loading = HeapInUse() - beforeLoad;
    ASSERT_EQ(kFrames, CountOf(reader.Get()));
    EXPECT_LT(loading, size_t(1) << 20);
    SmartPtr<ILUM> last = FrameOf(reader.Get(), kFrames - 1);
    EXPECT_LE(MaxDifference(BytesOf(noise.Get()), BytesOf(last.Get())), 2);
}

}  // namespace
