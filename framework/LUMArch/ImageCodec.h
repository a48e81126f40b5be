// Image file formats of "LUMArch": JPEG, BMP and PNG, decoded by content and
// encoded by the file name's extension. Decoders write straight into the
// rows of a target image; encoders read straight from the source rows.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "lum/lum.h"

enum class ImageFormat { None, Jpeg, Bmp, Png };

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

/// The format of a file from its first bytes, or None.
ImageFormat SniffFormat(const uint8_t* data, size_t size);

/// The format named by a file name's extension ("jpg", "jpeg", "bmp",
/// "png", any letter case), or None.
ImageFormat FormatOfName(const std::wstring& name);

/// The layout of `image`; E_INVALIDARG for an empty image or one whose
/// layout is not 8, 24 or 32 bits with a stride that holds a row.
HRESULT ViewOf(ILUM* image, ImageView& view);

/// Reads a whole file and decodes it by content. E_FAIL when the file
/// cannot be read, is not one of the three formats, or is damaged.
HRESULT ReadImageFile(const std::string& path, ImageTarget& target);

/// Writes `image` to `path` (replacing it) in `format`; `quality` 1-100 is
/// used by JPEG. E_FAIL when the file cannot be created or written; a file
/// that was begun is removed again.
HRESULT WriteImageFile(const std::string& path, ImageFormat format, const ImageView& image, int quality);

// The formats one by one. Decoders return E_FAIL for damaged or truncated
// data and pass on a failure of the target; encoders return E_FAIL when
// writing fails.
HRESULT DecodeJpeg(const uint8_t* data, size_t size, ImageTarget& target);
HRESULT DecodeBmp(const uint8_t* data, size_t size, ImageTarget& target);
HRESULT DecodePng(const uint8_t* data, size_t size, ImageTarget& target);
HRESULT EncodeJpeg(std::FILE* file, const ImageView& image, int quality);
HRESULT EncodeBmp(std::FILE* file, const ImageView& image);
HRESULT EncodePng(std::FILE* file, const ImageView& image);
