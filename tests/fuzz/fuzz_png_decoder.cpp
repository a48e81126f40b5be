// The PNG decoder of the kit on arbitrary files: every colour type and bit
// depth, palettes (gray ones mapped afterwards), transparency, interlacing.
// The check sums of the chunks are put right before decoding, so that the
// changes the fuzzer makes reach the decoder instead of failing the check.
#include <zlib.h>

#include <cstring>
#include <vector>

#include "framework/LUMArch/ImageCodec.h"
#include "tests/fuzz/FuzzImageTarget.h"

namespace {

uint32_t Get32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }
void Put32(uint8_t* p, uint32_t v) { p[0] = uint8_t(v >> 24), p[1] = uint8_t(v >> 16), p[2] = uint8_t(v >> 8), p[3] = uint8_t(v); }

/// Recomputes the check sum of every whole chunk after the signature.
void FixChecksums(std::vector<uint8_t>& file) {
    size_t at = 8;
    while (at + 12 <= file.size()) {
        const uint64_t length = Get32(&file[at]);
        if (at + 12 + length > file.size()) break;
        const uLong sum = crc32(0L, &file[at + 4], static_cast<uInt>(length + 4));
        Put32(&file[at + 8 + length], static_cast<uint32_t>(sum));
        at += 12 + length;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<uint8_t> file(data, data + size);
    FixChecksums(file);
    FuzzImageTarget target;
    const HRESULT hr = DecodePng(file.data(), file.size(), target);
    FUZZ_CHECK(hr == S_OK || hr == E_FAIL);
    if (hr == S_OK) FUZZ_CHECK(target.Asked() && !target.Pixels().Empty());
    return 0;
}
