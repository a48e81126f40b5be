// The BMP decoder of the kit on arbitrary files: core, info and V4/V5
// headers, palettes, channel masks, bottom-up and top-down rows.
#include "framework/LUMArch/ImageCodec.h"
#include "tests/fuzz/FuzzImageTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzImageTarget target;
    const HRESULT hr = DecodeBmp(data, size, target);
    FUZZ_CHECK(hr == S_OK || hr == E_FAIL);
    if (hr == S_OK) FUZZ_CHECK(target.Asked() && !target.Pixels().Empty());
    return 0;
}
