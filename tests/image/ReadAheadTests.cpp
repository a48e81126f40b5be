// Read-ahead of numbered image files: a run read in order is served from
// files decoded ahead, with exactly the pixels of a plain decode; a file
// that changed or vanished after it was decoded ahead is read as it is now;
// reads of sizes only, out of order or of banded files start nothing.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "framework/LUMArch/ImageCodec.h"
#include "framework/LUMArch/JpegBands.h"
#include "framework/LUMArch/ReadAhead.h"
#include "tests/image/CodecTestSupport.h"

namespace {

using namespace std::chrono_literals;

// Threads of the read-ahead under test end after this long without work.
constexpr std::chrono::milliseconds kIdle = 10s;

TEST(NextNumberedName, CountsUpTheFileNamesLastNumberKeepingItsWidth) {
    EXPECT_EQ("/d/0002.jpg", NextNumberedName("/d/0001.jpg"));
    EXPECT_EQ("/d/a0010.jpg", NextNumberedName("/d/a0009.jpg"));
    EXPECT_EQ("/d/a100.jpg", NextNumberedName("/d/a99.jpg"));
    EXPECT_EQ("/d/1000.jpg", NextNumberedName("/d/999.jpg"));
    EXPECT_EQ("/d/cam2_0100.png", NextNumberedName("/d/cam2_0099.png"));
    EXPECT_EQ("run8", NextNumberedName("run7"));
    // Digits of the folder are not the file's number.
    EXPECT_EQ("", NextNumberedName("/run7/image.jpg"));
    EXPECT_EQ("", NextNumberedName("image.jpg"));
    EXPECT_EQ("", NextNumberedName(""));
}

// Keeps only the size a decoder reports, as a reader of headers does.
struct SizeOnly final : ImageTarget {
    HRESULT Allocate(int32_t, int32_t, int32_t, uint8_t**, int32_t*) override { return S_FALSE; }
};

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void WriteAll(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

class ReadAheadTest : public testing::Test {
protected:
    static constexpr int kFiles = 8;

    void SetUp() override {
        char pattern[] = "/tmp/lumahead-XXXXXX";
        ASSERT_NE(nullptr, ::mkdtemp(pattern));
        m_Folder = pattern;
        for (int i = 1; i <= kFiles; ++i) WriteJpeg(Name(i), static_cast<unsigned>(i));
    }
    void TearDown() override { std::filesystem::remove_all(m_Folder); }

    std::string Name(int index) const {
        char name[32];
        std::snprintf(name, sizeof name, "/%04d.jpg", index);
        return m_Folder + name;
    }
    /// A small colour JPEG, coded on one thread.
    static void WriteJpeg(const std::string& path, unsigned seed) {
        const std::vector<uint8_t> pixels = Pattern(96, 64, 3, seed);
        const ImageView view{pixels.data(), 96, 64, 24, 96 * 3};
        ASSERT_EQ(S_OK, WriteImageFile(path, ImageFormat::Jpeg, view, 90));
    }
    /// The file's pixels as a plain one-thread decode of its bytes gives them.
    static std::vector<uint8_t> Plain(const std::string& path) {
        const std::string bytes = ReadAll(path);
        Decoded decoded;
        EXPECT_EQ(S_OK, DecodeJpegPlain(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), decoded));
        return decoded.pixels;
    }
    static std::vector<uint8_t> Read(const std::string& path, ReadAhead& ahead, HRESULT expected = S_OK) {
        Decoded decoded;
        EXPECT_EQ(expected, ReadImageFile(path, decoded, ahead)) << path;
        return decoded.pixels;
    }

    std::string m_Folder;
};

TEST_F(ReadAheadTest, RunReadInOrderIsServedAheadWithThePixelsOfAPlainDecode) {
    ReadAhead ahead(2, 2, kIdle);
    for (int i = 1; i <= kFiles; ++i) {
        EXPECT_EQ(Plain(Name(i)), Read(Name(i), ahead)) << i;
        ahead.Settle();
    }
    // The second read shows the run; every file after it was decoded ahead.
    EXPECT_EQ(uint64_t(kFiles - 2), ahead.Served());

    // Read again from the start, without waiting: the same pixels.
    for (int i = 1; i <= kFiles; ++i) EXPECT_EQ(Plain(Name(i)), Read(Name(i), ahead)) << i;
}

TEST_F(ReadAheadTest, FilesChangedOrRemovedAfterTheyWereDecodedAheadAreReadAsTheyAreNow) {
    ReadAhead ahead(2, 2, kIdle);
    const std::vector<uint8_t> before = Plain(Name(3));
    Read(Name(1), ahead);
    Read(Name(2), ahead);
    ahead.Settle();  // 3 and 4 are decoded ahead
    ASSERT_EQ(2u, ahead.Held());

    // The same size and the same time are not enough: one quantisation
    // value of file 3 changes, so its pixels change and its size does not.
    std::string bytes = ReadAll(Name(3));
    const size_t table = bytes.find("\xFF\xDB");
    ASSERT_NE(std::string::npos, table);
    bytes[table + 5] = static_cast<char>(bytes[table + 5] + 1);
    WriteAll(Name(3), bytes);
    ASSERT_EQ(0, std::remove(Name(4).c_str()));

    const std::vector<uint8_t> after = Read(Name(3), ahead);
    EXPECT_NE(before, after);
    EXPECT_EQ(Plain(Name(3)), after);
    Read(Name(4), ahead, E_FAIL);
    EXPECT_EQ(0u, ahead.Served());

    // A file replaced by another image.
    ahead.Settle();
    WriteJpeg(Name(5), 99);
    EXPECT_EQ(Plain(Name(5)), Read(Name(5), ahead));
    EXPECT_EQ(0u, ahead.Served());
}

TEST_F(ReadAheadTest, SizesOnlyReadsOutOfOrderAndOneThreadMachinesDecodeNothingAhead) {
    ReadAhead sizes(2, 2, kIdle);
    for (int i = 1; i <= kFiles; ++i) {
        SizeOnly size;
        EXPECT_EQ(S_OK, ReadImageFile(Name(i), size, sizes));
    }
    EXPECT_EQ(0u, sizes.Held());

    ReadAhead backwards(2, 2, kIdle);
    for (int i = kFiles; i >= 1; --i) EXPECT_EQ(Plain(Name(i)), Read(Name(i), backwards));
    EXPECT_EQ(0u, backwards.Held());

    ReadAhead skipping(2, 2, kIdle);
    for (int i = 1; i <= kFiles; i += 2) Read(Name(i), skipping);
    EXPECT_EQ(0u, skipping.Held());

    ReadAhead none(0, 0, kIdle);
    for (int i = 1; i <= kFiles; ++i) EXPECT_EQ(Plain(Name(i)), Read(Name(i), none));
    EXPECT_EQ(0u, none.Held());
}

TEST_F(ReadAheadTest, RunOfBandedFilesIsNotReadAheadButABandedFileWithinARunIs) {
    if (JpegBandThreads() < 2) GTEST_SKIP() << "one core: nothing is banded";
    const std::vector<uint8_t> pixels = Pattern(800, 600, 1, 5);
    const ImageView view{pixels.data(), 800, 600, 8, 800};
    JpegBlock banded;
    ASSERT_EQ(S_OK, EncodeJpegBands(view, 90, banded));
    const std::string bytes(reinterpret_cast<const char*>(banded.data), banded.size);
    for (int i = 1; i <= 3; ++i) WriteAll(Name(i), bytes);

    ReadAhead ahead(2, 2, kIdle);
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(Plain(Name(i)), Read(Name(i), ahead));
    EXPECT_EQ(0u, ahead.Held());

    // Met within a run of one-thread files, a banded file is decoded ahead
    // like the others, on one thread, to the same pixels.
    WriteAll(Name(6), bytes);
    ReadAhead mixed(2, 2, kIdle);
    for (int i = 4; i <= 7; ++i) {
        EXPECT_EQ(Plain(Name(i)), Read(Name(i), mixed)) << i;
        mixed.Settle();
    }
    EXPECT_EQ(2u, mixed.Served());
}

TEST_F(ReadAheadTest, ReadersOnSeveralThreadsEachGetTheirFilesPixels) {
    std::vector<std::vector<uint8_t>> plain;
    for (int i = 1; i <= kFiles; ++i) plain.push_back(Plain(Name(i)));
    ReadAhead ahead(2, 2, kIdle);
    std::vector<std::thread> readers;
    std::vector<int> wrong(3, 0);
    for (int r = 0; r < 3; ++r)
        readers.emplace_back([&, r] {
            for (int pass = 0; pass < 3; ++pass)
                for (int i = 1; i <= kFiles; ++i) {
                    Decoded decoded;
                    if (ReadImageFile(Name(i), decoded, ahead) != S_OK || decoded.pixels != plain[size_t(i - 1)]) ++wrong[size_t(r)];
                }
        });
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(std::vector<int>(3, 0), wrong);
}

TEST_F(ReadAheadTest, ThreadsEndWhenIdleAndComeBackForTheNextFiles) {
    ReadAhead ahead(2, 2, 20ms);
    EXPECT_EQ(0, ahead.Threads());
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(Plain(Name(i)), Read(Name(i), ahead));
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (ahead.Threads() > 0 && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(5ms);
    ASSERT_EQ(0, ahead.Threads());
    const uint64_t before = ahead.Served();
    for (int i = 4; i <= kFiles; ++i) {
        EXPECT_EQ(Plain(Name(i)), Read(Name(i), ahead));
        ahead.Settle();
    }
    // Files 5 and later came from threads started again for them.
    EXPECT_GE(ahead.Served(), before + 3);
}

TEST_F(ReadAheadTest, EndsWhileFilesAreBeingDecodedAhead) {
    for (int round = 0; round < 5; ++round) {
        ReadAhead ahead(2, 2, kIdle);
        EXPECT_EQ(Plain(Name(1)), Read(Name(1), ahead));
        EXPECT_EQ(Plain(Name(2)), Read(Name(2), ahead));
        EXPECT_EQ(2u, ahead.Held());
    }  // each ends with files 3 and 4 queued or being decoded
}

}  // namespace
