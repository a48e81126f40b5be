// The JPEG decoder of the kit on arbitrary files: the banded decoder (files
// whose restart intervals are whole MCU rows, cut at their restart markers
// and decoded in parallel) and the one-thread decoder. Where both decode a
// file, they must give the same pixels.
#include <cstring>

#include "framework/LUMArch/JpegBands.h"
#include "framework/LUMArch/JpegCodec.h"
#include "tests/fuzz/FuzzImageTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzImageTarget banded;
    const HRESULT hr = DecodeJpegBands(data, size, banded);
    FUZZ_CHECK(hr == S_OK || hr == S_FALSE || hr == E_FAIL);
    FuzzImageTarget plain;
    const HRESULT plainHr = DecodeJpegPlain(data, size, plain);
    FUZZ_CHECK(plainHr == S_OK || plainHr == E_FAIL);
    if (hr == S_FALSE) {
        FUZZ_CHECK(!banded.Asked());
        return 0;
    }
    if (hr == S_OK && plainHr == S_OK) {
        const CPixels& a = banded.Pixels();
        const CPixels& b = plain.Pixels();
        FUZZ_CHECK(a.Width() == b.Width() && a.Height() == b.Height() && a.Bits() == b.Bits());
        FUZZ_CHECK(std::memcmp(a.Data(), b.Data(), static_cast<size_t>(a.Stride()) * a.Height()) == 0);
    }
    return 0;
}
