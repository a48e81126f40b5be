#include "framework/LUMImage/PixelBlock.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstring>

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

namespace pixel_block {
namespace {

constexpr uintptr_t kSmallPage = 4096;
// Blocks from this size on are populated in one call.
constexpr size_t kPopulatedFrom = size_t(256) << 10;
// Blank blocks above this size (larger than any camera's frame) are left to
// the kernel's zero pages: an image declared huge, by a damaged file's
// header say, then costs only the pages that are written.
constexpr size_t kLargestPrepared = size_t(64) << 20;

bool HugePagesWanted() {
    static const bool wanted = [] {
        const char* setting = std::getenv("LUM_IMAGE_HUGE_PAGES");
        return !(setting && std::strcmp(setting, "0") == 0);
    }();
    return wanted;
}

// The bytes reserved for a huge-page block of `bytes`: rounded up to whole
// huge pages when that adds at most an eighth, so that the tail is a huge
// page too; otherwise `bytes`, and the tail uses small pages.
size_t ReservedSize(size_t bytes) {
    const size_t rounded = (bytes + kHugePage - 1) & ~(kHugePage - 1);
    return rounded - bytes <= bytes / 8 ? rounded : bytes;
}

// Gives `advice` for the whole pages of `page` bytes that lie inside the
// block; the partial pages at its ends are shared with other memory.
void AdviseWholePages(void* block, size_t bytes, uintptr_t page, int advice) {
    const uintptr_t first = (reinterpret_cast<uintptr_t>(block) + page - 1) & ~(page - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(block) + bytes) & ~(page - 1);
    if (end > first) madvise(reinterpret_cast<void*>(first), end - first, advice);
}

// Maps the pages of a fresh block in one call instead of one page fault for
// each page on first touch, which costs about a third of a frame copy's time
// on a virtual machine. Advice only: kernels before 5.14 refuse it.
void Populate(void* block, size_t bytes) { AdviseWholePages(block, bytes, kSmallPage, MADV_POPULATE_WRITE); }

}  // namespace

void* Allocate(size_t bytes, bool zeroed) {
    if (zeroed && bytes > kLargestPrepared) {
        // Fresh mapped memory, which calloc does not clear again.
        void* block = std::calloc(bytes, 1);
        if (block && HugePagesWanted()) AdviseWholePages(block, bytes, kHugePage, MADV_HUGEPAGE);
        return block;
    }
    if (bytes < kHugePage || !HugePagesWanted()) {
        void* block = zeroed ? std::calloc(bytes, 1) : std::malloc(bytes);
        if (block && bytes >= kPopulatedFrom) Populate(block, bytes);
        return block;
    }
    const size_t size = ReservedSize(bytes);
    void* block = nullptr;
    if (posix_memalign(&block, kHugePage, size) != 0) return nullptr;
    // Advice only: a kernel without transparent huge pages refuses it and
    // the block works as before.
    madvise(block, size & ~(kHugePage - 1), MADV_HUGEPAGE);
    // The block may be reused heap memory, so zeroing cannot be left to the
    // kernel here.
    if (zeroed) std::memset(block, 0, bytes);
    return block;
}

}  // namespace pixel_block
