// Memory for pixel blocks. Blocks of 2 MiB and more are aligned to 2 MiB and
// marked for transparent huge pages: a 1280x1024 colour frame is then faulted
// in with two page faults instead of about a thousand, and released as fast,
// which is most of the cost of copying a frame into a fresh image. Smaller
// blocks come from malloc/calloc as any buffer; those of 256 KiB and more
// have their pages mapped in one call rather than a fault for each page.
// Blank blocks above 64 MiB, larger than any frame, take their pages only
// as they are written.
//
// LUM_IMAGE_HUGE_PAGES=0 in the environment turns the huge-page request off
// (blocks are then plain malloc memory of the exact size).
#pragma once

#include <cstddef>
#include <cstdlib>

namespace pixel_block {

/// Blocks at least this large are aligned for huge pages.
constexpr size_t kHugePage = size_t(2) << 20;

/// A block of `bytes` (> 0), all zero when `zeroed`; null when memory runs
/// out. Release it with std::free.
void* Allocate(size_t bytes, bool zeroed);

}  // namespace pixel_block
