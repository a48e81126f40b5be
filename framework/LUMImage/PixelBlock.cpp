#include "framework/LUMImage/PixelBlock.h"

#include <sys/mman.h>

#include <cstring>

namespace pixel_block {
namespace {

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

}  // namespace

void* Allocate(size_t bytes, bool zeroed) {
    if (bytes < kHugePage || !HugePagesWanted())
        return zeroed ? std::calloc(bytes, 1) : std::malloc(bytes);
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
