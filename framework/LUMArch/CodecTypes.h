// How pixels travel between images and the codecs: a decoder asks a target
// for rows once it knows the size; an encoder reads the rows of a view.
// Shared by the image-file module and the video module.
#pragma once

#include <cstdint>

#include "lum/lum.h"

/// Where a decoder puts its pixels, asked once the decoder knows the size.
class ImageTarget {
public:
    /// Provides a block of width x height at `bits` (8, 24 or 32) and its
    /// stride. S_FALSE: the size was all that was wanted; the decoder stops
    /// and reports success. A failure ends the decoding with that code.
    virtual HRESULT Allocate(int32_t width, int32_t height, int32_t bits, uint8_t** pixels, int32_t* stride) = 0;

protected:
    ~ImageTarget() = default;
};

/// The pixels of an image to encode: a valid, non-empty layout.
struct ImageView {
    const uint8_t* pixels;
    int32_t width;
    int32_t height;
    int32_t bits;
    int32_t stride;

    const uint8_t* Row(int32_t y) const { return pixels + int64_t(stride) * y; }
    int64_t RowBytes() const { return int64_t(width) * (bits / 8); }
};

/// The layout of `image`; E_INVALIDARG for an empty image or one whose
/// layout is not 8, 24 or 32 bits with a stride that holds a row.
HRESULT ViewOf(ILUM* image, ImageView& view);
