// Where the image decoders put their pixels in the fuzz targets: a pixel
// store of the kit, as the framework's images hold them, with a smaller
// limit on the size so that a header claiming a huge image costs no more
// than a moment.
#pragma once

#include "framework/LUMArch/CodecTypes.h"
#include "framework/LUMImage/Pixels.h"
#include "tests/fuzz/FuzzSupport.h"

class FuzzImageTarget final : public ImageTarget {
public:
    /// Largest pixel block decoded: 16 MiB.
    static constexpr int64_t kMostBytes = int64_t(1) << 24;

    HRESULT Allocate(int32_t width, int32_t height, int32_t bits, uint8_t** pixels, int32_t* stride) override {
        // A decoder asks once, with a valid layout.
        FUZZ_CHECK(!m_Asked);
        m_Asked = true;
        FUZZ_CHECK(width > 0 && height > 0 && CPixels::ValidBits(bits));
        if (CPixels::StrideFor(width, bits) * height > kMostBytes) return E_FAIL;
        const HRESULT hr = m_Pixels.Allocate(width, height, bits, true);
        if (hr < 0) return hr;
        *pixels = m_Pixels.Data();
        *stride = m_Pixels.Stride();
        return S_OK;
    }

    const CPixels& Pixels() const { return m_Pixels; }
    bool Asked() const { return m_Asked; }

private:
    CPixels m_Pixels;
    bool m_Asked = false;
};
