#include "framework/LUMImage/Pixels.h"

#include "framework/LUMImage/PixelBlock.h"

#include <algorithm>
#include <cstring>
#include <utility>

HRESULT CPixels::Allocate(int32_t width, int32_t height, int32_t bits, bool zeroed) {
    if (width <= 0 || height <= 0 || !ValidBits(bits)) return E_INVALIDARG;
    const int64_t stride = StrideFor(width, bits);
    if (stride > kMaxBytes || stride * height > kMaxBytes) return E_FAIL;
    const size_t bytes = static_cast<size_t>(stride * height);
    void* block = pixel_block::Allocate(bytes, zeroed);
    if (!block) return E_FAIL;
    m_Data.reset(static_cast<uint8_t*>(block));
    m_Width = width;
    m_Height = height;
    m_Bits = bits;
    m_Stride = static_cast<int32_t>(stride);
    return S_OK;
}

void CPixels::Clear() {
    m_Data.reset();
    m_Width = m_Height = m_Bits = m_Stride = 0;
}

void CPixels::TakeFrom(CPixels& other) {
    if (&other == this) return;
    m_Data = std::move(other.m_Data);
    m_Width = other.m_Width;
    m_Height = other.m_Height;
    m_Bits = other.m_Bits;
    m_Stride = other.m_Stride;
    other.Clear();
}

HRESULT CPixels::CopyFrom(ILUM* source) {
    if (!source) {
        Clear();
        return E_POINTER;
    }
    int32_t width = 0, height = 0, bits = 0, stride = 0;
    uint8_t* data = nullptr;
    HRESULT hr = S_OK;
    if ((hr = source->get_Width(&width)) < 0 || (hr = source->get_Height(&height)) < 0 ||
        (hr = source->get_BitsPerPixel(&bits)) < 0 || (hr = source->get_Stride(&stride)) < 0 ||
        (hr = source->get_Bits(&data)) < 0) {
        Clear();
        return hr;
    }
    if (data && data == m_Data.get()) return S_OK;  // a copy of itself
    if (!data || width <= 0 || height <= 0 || bits == 0) {
        Clear();
        return S_OK;
    }
    const int64_t rowBytes = ValidBits(bits) ? RowBytes(width, bits) : 0;
    // Readers always go by the reported stride, which may be wider than ours
    // or negative (rows bottom-up in memory); it must at least hold a row.
    if (rowBytes == 0 || std::abs(int64_t(stride)) < rowBytes) {
        Clear();
        return E_INVALIDARG;
    }
    CPixels copy;
    if ((hr = copy.Allocate(width, height, bits, false)) < 0) {
        Clear();
        return hr;
    }
    if (stride == copy.m_Stride) {
        std::memcpy(copy.m_Data.get(), data, static_cast<size_t>(int64_t(stride) * height));
    } else {
        const size_t padding = static_cast<size_t>(copy.m_Stride - rowBytes);
        for (int32_t y = 0; y < height; ++y) {
            uint8_t* to = copy.m_Data.get() + int64_t(copy.m_Stride) * y;
            std::memcpy(to, data + int64_t(stride) * y, static_cast<size_t>(rowBytes));
            std::memset(to + rowBytes, 0, padding);
        }
    }
    TakeFrom(copy);
    return S_OK;
}
