// JPEG coded in bands on every core: the joined file is a standard baseline
// JPEG with restart markers between the bands, it holds exactly the pixels
// of a one-thread coding, and it decodes band by band to the same pixels as
// a whole decoding. Files of other encoders decode as before.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "framework/LUMArch/JpegBands.h"
#include "framework/LUMArch/JpegCodec.h"
#include "tests/image/CodecTestSupport.h"

namespace {

std::vector<uint8_t> Bytes(const JpegBlock& block) { return std::vector<uint8_t>(block.data, block.data + block.size); }

int CountMarkers(const std::vector<uint8_t>& file, uint8_t first, uint8_t last) {
    int count = 0;
    for (size_t i = 0; i + 1 < file.size(); ++i)
        if (file[i] == 0xFF && file[i + 1] >= first && file[i + 1] <= last) ++count;
    return count;
}

/// True when the file's restart markers run RST0, RST1 .. RST7, RST0 ..
/// without a gap, as a decoder expects them.
bool RestartMarkersInSequence(const std::vector<uint8_t>& file) {
    int next = 0;
    for (size_t i = 0; i + 1 < file.size(); ++i) {
        if (file[i] != 0xFF || file[i + 1] < 0xD0 || file[i + 1] > 0xD7) continue;
        if (file[i + 1] != 0xD0 + next) return false;
        next = (next + 1) % 8;
    }
    return true;
}

/// The restart interval of a file's DRI segment, or 0.
int RestartInterval(const std::vector<uint8_t>& file) {
    for (size_t i = 0; i + 5 < file.size(); ++i)
        if (file[i] == 0xFF && file[i + 1] == 0xDD) return file[i + 4] << 8 | file[i + 5];
    return 0;
}

struct Case {
    int width, height, bits, quality;
};

class JpegBands : public testing::TestWithParam<Case> {};

TEST_P(JpegBands, JoinedFileHoldsTheOneThreadPixelsAndDecodesInBands) {
    if (JpegBandThreads() < 2) GTEST_SKIP() << "one core: nothing is banded";
    const Case c = GetParam();
    const std::vector<uint8_t> source = Pattern(c.width, c.height, c.bits / 8, 7);
    const ImageView view{source.data(), c.width, c.height, c.bits, c.width * (c.bits / 8)};

    JpegBlock banded, plain;
    ASSERT_EQ(S_OK, EncodeJpegBands(view, c.quality, banded));
    ASSERT_EQ(S_OK, EncodeJpegPlainToMemory(view, c.quality, plain));
    const std::vector<uint8_t> file = Bytes(banded);
    EXPECT_EQ(1, CountMarkers(file, 0xDD, 0xDD)) << "one restart interval";
    const bool subsampled = c.bits != 8 && c.quality < 90;
    const int mcuHeight = subsampled ? 16 : 8;
    // The restart interval is whole MCU rows, one marker between two
    // intervals, and there are bands enough for every thread.
    const int mcusPerRow = (c.width + mcuHeight - 1) / mcuHeight;
    const int mcuRows = (c.height + mcuHeight - 1) / mcuHeight;
    const int interval = RestartInterval(file);
    ASSERT_GT(interval, 0);
    EXPECT_EQ(0, interval % mcusPerRow);
    const int rowsPerInterval = interval / mcusPerRow;
    const int markers = CountMarkers(file, 0xD0, 0xD7);
    EXPECT_EQ((mcuRows + rowsPerInterval - 1) / rowsPerInterval - 1, markers) << "a restart marker between two intervals";
    EXPECT_GE(markers + 1, JpegBandThreads());
    // Markers written between the bands and those written inside a band by
    // its own coder make one sequence.
    EXPECT_TRUE(RestartMarkersInSequence(file));

    // The same pixels as the one-thread coding, decoded whole.
    Decoded fromBanded, fromPlain, inBands;
    ASSERT_EQ(S_OK, DecodeJpegPlain(banded.data, banded.size, fromBanded));
    ASSERT_EQ(S_OK, DecodeJpegPlain(plain.data, plain.size, fromPlain));
    EXPECT_EQ(c.width, fromBanded.width);
    EXPECT_EQ(c.height, fromBanded.height);
    EXPECT_TRUE(fromBanded.pixels == fromPlain.pixels) << "banding changed pixels";

    // Decoded band by band, the same again. Subsampled colour is smoothed
    // across rows when decoded, so it is decoded whole.
    if (subsampled) {
        EXPECT_EQ(S_FALSE, DecodeJpegBands(banded.data, banded.size, inBands));
    } else {
        ASSERT_EQ(S_OK, DecodeJpegBands(banded.data, banded.size, inBands));
        EXPECT_TRUE(inBands.pixels == fromPlain.pixels);
    }
    Decoded viaDefault;
    ASSERT_EQ(S_OK, DecodeJpeg(banded.data, banded.size, viaDefault));
    EXPECT_TRUE(viaDefault.pixels == fromPlain.pixels);
}

INSTANTIATE_TEST_SUITE_P(Layouts, JpegBands,
                         testing::Values(Case{1280, 1024, 8, 100}, Case{1280, 1024, 24, 100}, Case{1283, 771, 8, 90},
                                         Case{1001, 517, 24, 75}, Case{640, 480, 32, 95}, Case{1920, 1080, 8, 95}));

TEST(JpegBandsEdges, SmallImagesAndOtherFilesTakeTheOrdinaryPath) {
    const std::vector<uint8_t> small = Pattern(200, 150, 1, 3);
    JpegBlock out;
    EXPECT_EQ(S_FALSE, EncodeJpegBands({small.data(), 200, 150, 8, 200}, 90, out));

    // A one-thread file has no restart markers: not decoded in bands.
    const std::vector<uint8_t> large = Pattern(800, 600, 1, 4);
    JpegBlock plain;
    ASSERT_EQ(S_OK, EncodeJpegPlainToMemory({large.data(), 800, 600, 8, 800}, 90, plain));
    Decoded target;
    EXPECT_EQ(S_FALSE, DecodeJpegBands(plain.data, plain.size, target));
    EXPECT_EQ(0, target.width) << "the target was not asked";
    // Damaged data: refused, never read out of bounds.
    EXPECT_EQ(S_FALSE, DecodeJpegBands(plain.data, 3, target));
}

// Segments shorter than their fields, at the very end of the data: refused
// without reading past it (each file sits in a block of exactly its size).
TEST(JpegBandsEdges, ShortSegmentsAreNotReadPastTheirEnd) {
    const std::vector<std::vector<uint8_t>> files = {
        {0xFF, 0xD8, 0xFF, 0xDD, 0x00, 0x02},  // a DRI without its interval
        {0xFF, 0xD8, 0xFF, 0xC0, 0x00, 0x0B, 0x08, 0x00, 0x10, 0x00, 0x10, 0x01, 0x01, 0x11, 0x00,
         0xFF, 0xDA, 0x00, 0x02},  // an SOS without its component count
    };
    for (const std::vector<uint8_t>& file : files) {
        std::unique_ptr<uint8_t[]> exact(new uint8_t[file.size()]);
        std::copy(file.begin(), file.end(), exact.get());
        Decoded target;
        EXPECT_EQ(S_FALSE, DecodeJpegBands(exact.get(), file.size(), target));
        EXPECT_EQ(E_FAIL, DecodeJpeg(exact.get(), file.size(), target));
    }
}

TEST(JpegBandsEdges, DamagedBandedFilesFailCleanly) {
    if (JpegBandThreads() < 2) GTEST_SKIP() << "one core: nothing is banded";
    const std::vector<uint8_t> source = Pattern(1024, 768, 1, 5);
    JpegBlock banded;
    ASSERT_EQ(S_OK, EncodeJpegBands({source.data(), 1024, 768, 8, 1024}, 95, banded));
    std::vector<uint8_t> file = Bytes(banded);
    std::mt19937 random(11);
    for (int round = 0; round < 200; ++round) {
        std::vector<uint8_t> damaged = file;
        const size_t cut = 2 + random() % (damaged.size() - 2);
        if (round % 2) damaged.resize(cut);
        else damaged[cut] ^= static_cast<uint8_t>(1 + random() % 255);
        Decoded target;
        const HRESULT hr = DecodeJpeg(damaged.data(), damaged.size(), target);
        EXPECT_TRUE(hr == S_OK || hr == E_FAIL) << std::hex << hr;
    }
}

// Fill bytes inside the coded data, or before a restart marker, are damage
// that the library makes good in ways that depend on how much input it
// holds at once: such files are decoded whole, so that every decoding of a
// file gives the pixels of the one-thread decoder.
TEST(JpegBandsEdges, FillBytesInTheCodedDataAreDecodedWhole) {
    if (JpegBandThreads() < 2) GTEST_SKIP() << "one core: nothing is banded";
    const std::vector<uint8_t> source = Pattern(1024, 768, 3, 6);
    JpegBlock banded;
    ASSERT_EQ(S_OK, EncodeJpegBands({source.data(), 1024, 768, 24, 1024 * 3}, 100, banded));
    const std::vector<uint8_t> file = Bytes(banded);
    Decoded clean;
    ASSERT_EQ(S_OK, DecodeJpegBands(file.data(), file.size(), clean));

    // Stuffed 0xFF bytes spread over the coded data, and the second restart
    // marker, each in turn get fill bytes before them.
    std::vector<size_t> stuffed, places;
    for (size_t i = 0; i + 1 < file.size(); ++i) {
        if (file[i] != 0xFF) continue;
        if (file[i + 1] == 0x00) stuffed.push_back(i);
        if (file[i + 1] == 0xD1 && places.empty()) places.push_back(i);
    }
    ASSERT_EQ(1u, places.size());
    ASSERT_GT(stuffed.size(), 100u);
    for (size_t k = 1; k <= 24; ++k) places.push_back(stuffed[stuffed.size() * k / 25]);
    for (size_t at : places) {
        std::vector<uint8_t> filled = file;
        filled.insert(filled.begin() + static_cast<std::ptrdiff_t>(at), {0xFF, 0xFF, 0xFF});
        Decoded inBands, whole, viaDefault;
        EXPECT_EQ(S_FALSE, DecodeJpegBands(filled.data(), filled.size(), inBands)) << "fill at " << at;
        EXPECT_EQ(0, inBands.width) << "the target was not asked";
        const HRESULT plainHr = DecodeJpegPlain(filled.data(), filled.size(), whole);
        ASSERT_EQ(plainHr, DecodeJpeg(filled.data(), filled.size(), viaDefault)) << "fill at " << at;
        EXPECT_TRUE(viaDefault.pixels == whole.pixels) << "fill at " << at;
    }
}

TEST(JpegBandsEdges, SeveralWritersAtOnceShareThePool) {
    if (JpegBandThreads() < 2) GTEST_SKIP() << "one core: nothing is banded";
    const std::vector<uint8_t> source = Pattern(1280, 1024, 1, 9);
    const ImageView view{source.data(), 1280, 1024, 8, 1280};
    JpegBlock reference;
    ASSERT_EQ(S_OK, EncodeJpegBands(view, 100, reference));
    const std::vector<uint8_t> expected = Bytes(reference);
    std::vector<std::thread> writers;
    std::vector<int> same(4, 0);
    for (int w = 0; w < 4; ++w)
        writers.emplace_back([&, w] {
            for (int i = 0; i < 5; ++i) {
                JpegBlock out;
                if (EncodeJpegBands(view, 100, out) == S_OK && Bytes(out) == expected) ++same[size_t(w)];
            }
        });
    for (std::thread& t : writers) t.join();
    for (int w = 0; w < 4; ++w) EXPECT_EQ(5, same[size_t(w)]) << "writer " << w;
}

// A standard decoder reads the joined file: djpeg, when it is installed.
TEST(JpegBandsEdges, AStandardDecoderReadsTheJoinedFile) {
    if (JpegBandThreads() < 2) GTEST_SKIP() << "one core: nothing is banded";
    if (std::system("command -v djpeg >/dev/null 2>&1") != 0) GTEST_SKIP() << "djpeg not installed";
    const std::vector<uint8_t> source = Pattern(1280, 1024, 1, 12);
    JpegBlock banded;
    ASSERT_EQ(S_OK, EncodeJpegBands({source.data(), 1280, 1024, 8, 1280}, 100, banded));
    char name[] = "/tmp/lum-bands-XXXXXX";
    const int fd = mkstemp(name);
    ASSERT_GE(fd, 0);
    FILE* out = fdopen(fd, "wb");
    ASSERT_EQ(banded.size, std::fwrite(banded.data, 1, banded.size, out));
    std::fclose(out);
    const std::string pgm = std::string(name) + ".pgm";
    const std::string command = "djpeg -pnm -outfile " + pgm + " " + name + " 2>/dev/null";
    EXPECT_EQ(0, std::system(command.c_str()));
    FILE* in = std::fopen(pgm.c_str(), "rb");
    ASSERT_TRUE(in);
    int width = 0, height = 0, maximum = 0;
    ASSERT_EQ(3, std::fscanf(in, "P5 %d %d %d", &width, &height, &maximum));
    std::fgetc(in);
    std::vector<uint8_t> pixels(size_t(width) * height);
    ASSERT_EQ(pixels.size(), std::fread(pixels.data(), 1, pixels.size(), in));
    std::fclose(in);
    std::remove(name);
    std::remove(pgm.c_str());
    Decoded ours;
    ASSERT_EQ(S_OK, DecodeJpegPlain(banded.data, banded.size, ours));
    EXPECT_EQ(1280, width);
    EXPECT_EQ(1024, height);
    EXPECT_TRUE(pixels == ours.pixels);
}

}  // namespace

// An output that refuses bytes after a limit (a full disk): the coding ends
// with a failure, the bytes before the limit came in file order, and the
// pool is left able to code the next image.
TEST(JpegBandsEdges, AnOutputThatFillsUpEndsTheCodingCleanly) {
    if (JpegBandThreads() < 2) GTEST_SKIP() << "one core: nothing is banded";
    const std::vector<uint8_t> source = Pattern(1280, 1024, 1, 21);
    const ImageView view{source.data(), 1280, 1024, 8, 1280};
    JpegBlock whole;
    ASSERT_EQ(S_OK, EncodeJpegBands(view, 95, whole));
    const std::vector<uint8_t> expected = Bytes(whole);

    struct LimitedOutput final : JpegOutput {
        size_t limit = 0;
        std::vector<uint8_t> taken;
        bool Put(const uint8_t* bytes, size_t count) override {
            if (taken.size() + count > limit) return false;
            taken.insert(taken.end(), bytes, bytes + count);
            return true;
        }
    };
    for (size_t limit : {size_t(0), size_t(100), expected.size() / 3, expected.size() - 1}) {
        LimitedOutput output;
        output.limit = limit;
        EXPECT_EQ(E_FAIL, EncodeJpegBands(view, 95, output)) << "limit " << limit;
        ASSERT_LE(output.taken.size(), limit);
        EXPECT_TRUE(std::equal(output.taken.begin(), output.taken.end(), expected.begin())) << "limit " << limit;
    }
    LimitedOutput enough;
    enough.limit = expected.size();
    EXPECT_EQ(S_OK, EncodeJpegBands(view, 95, enough));
    EXPECT_TRUE(enough.taken == expected);
}

// A file handed to the decoder in pieces decodes as the whole file, however
// it is cut, including a segment the decoder skips across several pieces;
// pieces that end early make a truncated file, which fails.
TEST(JpegChunks, PiecesDecodeAsTheWholeFile) {
    const std::vector<uint8_t> source = Pattern(320, 200, 3, 17);
    JpegBlock plain;
    ASSERT_EQ(S_OK, EncodeJpegPlainToMemory({source.data(), 320, 200, 24, 320 * 3}, 90, plain));
    std::vector<uint8_t> file = Bytes(plain);
    // An application segment of 3,000 bytes after SOI, which is skipped.
    std::vector<uint8_t> segment = {0xFF, 0xEF, 3000 >> 8, 3000 & 0xFF};
    segment.resize(3002, 0x5A);
    file.insert(file.begin() + 2, segment.begin(), segment.end());
    Decoded whole;
    ASSERT_EQ(S_OK, DecodeJpegPlain(file.data(), file.size(), whole));

    for (size_t piece : {size_t(1), size_t(7), size_t(1000), size_t(4096)}) {
        std::vector<JpegChunk> chunks;
        for (size_t at = 0; at < file.size(); at += piece) {
            chunks.push_back({file.data() + at, std::min(piece, file.size() - at)});
            chunks.push_back({nullptr, 0});  // empty pieces are passed over
        }
        Decoded cut;
        ASSERT_EQ(S_OK, DecodeJpegChunks(chunks.data(), chunks.size(), cut)) << "pieces of " << piece;
        EXPECT_TRUE(cut.pixels == whole.pixels) << "pieces of " << piece;
        chunks.resize(chunks.size() / 2);
        Decoded truncated;
        EXPECT_EQ(E_FAIL, DecodeJpegChunks(chunks.data(), chunks.size(), truncated)) << "pieces of " << piece;
    }
    // Only the skipped segment, cut short.
    const JpegChunk header{file.data(), 1500};
    Decoded shortOne;
    EXPECT_EQ(E_FAIL, DecodeJpegChunks(&header, 1, shortOne));
}
