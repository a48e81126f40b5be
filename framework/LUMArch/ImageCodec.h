// Image file formats of "LUMArch": JPEG, BMP and PNG, decoded by content and
// encoded by the file name's extension. Decoders write straight into the
// rows of a target image; encoders read straight from the source rows.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "framework/LUMArch/JpegCodec.h"
#include "framework/LUMArch/ReadAhead.h"
#include "lum/lum.h"

enum class ImageFormat { None, Jpeg, Bmp, Png };

/// The format of a file from its first bytes, or None.
ImageFormat SniffFormat(const uint8_t* data, size_t size);

/// The format named by a file name's extension ("jpg", "jpeg", "bmp",
/// "png", any letter case), or None.
ImageFormat FormatOfName(const std::wstring& name);

/// Reads a whole file and decodes it by content. E_FAIL when the file
/// cannot be read, is not one of the three formats, or is damaged. A read
/// of pixels that continues a numbered run of files has the next files of
/// the run decoded ahead (see ReadAhead.h), by `ahead`.
HRESULT ReadImageFile(const std::string& path, ImageTarget& target, ReadAhead& ahead = ReadAhead::Shared());

/// Reads the whole regular file at `path` into `bytes` (its size set to the
/// bytes read). A file that shrinks meanwhile gives what is there. False
/// when it cannot be opened, is not a regular file or is too large.
bool ReadFileBytes(const std::string& path, JpegBlock& bytes);

/// Decodes file bytes by content; a JPEG laid out in bands is decoded on
/// every core when `inBands`, else on the calling thread (same pixels).
/// `sequential` tells whether the file decoded on one thread (any JPEG
/// but a banded one decoded in bands, a PNG), so that decoding the next
/// file ahead would use another core.
HRESULT DecodeImageBytes(const uint8_t* data, size_t size, ImageTarget& target, bool inBands, bool& sequential);

/// Writes `image` to `path` (replacing it) in `format`; `quality` 1-100 is
/// used by JPEG. E_FAIL when the file cannot be created or written; a file
/// that was begun is removed again.
HRESULT WriteImageFile(const std::string& path, ImageFormat format, const ImageView& image, int quality);

// The other formats one by one (JPEG is in JpegCodec.h). Decoders return
// E_FAIL for damaged or truncated data and pass on a failure of the target;
// encoders return E_FAIL when writing fails.
HRESULT DecodeBmp(const uint8_t* data, size_t size, ImageTarget& target);
HRESULT DecodePng(const uint8_t* data, size_t size, ImageTarget& target);
HRESULT EncodeBmp(std::FILE* file, const ImageView& image);
HRESULT EncodePng(std::FILE* file, const ImageView& image);
