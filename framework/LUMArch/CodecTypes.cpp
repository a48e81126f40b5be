#include "framework/LUMArch/CodecTypes.h"

#include <cstdlib>

HRESULT ViewOf(ILUM* image, ImageView& view) {
    if (!image) return E_POINTER;
    uint8_t* pixels = nullptr;
    HRESULT hr = S_OK;
    if ((hr = image->get_Width(&view.width)) < 0 || (hr = image->get_Height(&view.height)) < 0 ||
        (hr = image->get_BitsPerPixel(&view.bits)) < 0 || (hr = image->get_Stride(&view.stride)) < 0 ||
        (hr = image->get_Bits(&pixels)) < 0)
        return hr;
    view.pixels = pixels;
    if (!pixels || view.width <= 0 || view.height <= 0) return E_INVALIDARG;
    if (view.bits != 8 && view.bits != 24 && view.bits != 32) return E_INVALIDARG;
    if (std::abs(int64_t(view.stride)) < view.RowBytes()) return E_INVALIDARG;
    return S_OK;
}
