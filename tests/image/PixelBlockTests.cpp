// Pixel blocks: blank blocks read as zero whatever memory they reuse, and a
// blank block far larger than a frame costs only the pages written to it.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "framework/LUMImage/PixelBlock.h"

namespace {

// Resident memory of the process, from /proc/self/statm; -1 when unknown.
long long ResidentBytes() {
    std::FILE* statm = std::fopen("/proc/self/statm", "r");
    if (!statm) return -1;
    long long pages = 0, resident = 0;
    const bool read = std::fscanf(statm, "%lld %lld", &pages, &resident) == 2;
    std::fclose(statm);
    return read ? resident * 4096 : -1;
}

TEST(PixelBlock, BlankBlocksOfEverySizeReadAsZeroAfterReusedMemory) {
    for (size_t bytes : {size_t(1000), size_t(300) << 10, size_t(4) << 20, size_t(80) << 20}) {
        // Leave dirty memory behind for the allocator to hand out again.
        void* dirty = std::malloc(bytes);
        ASSERT_NE(nullptr, dirty);
        std::memset(dirty, 0xAB, bytes);
        std::free(dirty);
        auto* block = static_cast<unsigned char*>(pixel_block::Allocate(bytes, true));
        ASSERT_NE(nullptr, block) << bytes;
        size_t nonzero = 0;
        for (size_t i = 0; i < bytes; i += 997) nonzero += block[i] != 0;
        nonzero += block[bytes - 1] != 0;
        EXPECT_EQ(0u, nonzero) << bytes;
        std::free(block);
    }
}

TEST(PixelBlock, HugeBlankBlockTakesOnlyThePagesWritten) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer's allocator clears what calloc gives";
#endif
    const size_t bytes = size_t(512) << 20;
    const long long before = ResidentBytes();
    if (before < 0) GTEST_SKIP() << "no /proc/self/statm";
    auto* block = static_cast<unsigned char*>(pixel_block::Allocate(bytes, true));
    ASSERT_NE(nullptr, block);
    for (size_t i = 0; i < bytes; i += size_t(16) << 20) block[i] = 1;  // 32 pages written
    const long long grown = ResidentBytes() - before;
    EXPECT_LT(grown, 128ll << 20) << "a 512 MiB blank block made " << grown << " bytes resident";
    EXPECT_EQ(1, block[size_t(16) << 20]);
    EXPECT_EQ(0, block[(size_t(16) << 20) + 1]);
    std::free(block);
}

}  // namespace
