// Baseline JPEG through libjpeg-turbo, shared by the image-file module
// ("LUMArch") and the video module ("LUMVideo"). 8-bit images are coded as
// single-component gray, 24 and 32 bits as colour (the fourth byte is not
// kept); colour at quality 90 and above keeps full chroma resolution.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "framework/LUMArch/CodecTypes.h"

/// A growable block of bytes in plain heap memory, so that the library's C
/// callbacks can grow it without C++ exceptions. Reused from one encoding
/// to the next.
struct JpegBlock {
    uint8_t* data = nullptr;
    size_t size = 0;      // bytes of the last encoding
    size_t capacity = 0;  // bytes allocated

    JpegBlock() = default;
    JpegBlock(const JpegBlock&) = delete;
    JpegBlock& operator=(const JpegBlock&) = delete;
    ~JpegBlock();

    /// Makes room for at least `bytes`, keeping the bytes held (`size`).
    /// False when memory runs out; the block is then unchanged.
    bool Reserve(size_t bytes);
    /// Appends `bytes` at `size`, growing the block as needed.
    bool Append(const uint8_t* bytes, size_t count);
};

/// A piece of a JPEG file held somewhere in memory.
struct JpegChunk {
    const uint8_t* data;
    size_t size;
};

/// Decodes a JPEG held in memory into the target: gray files give 8 bits,
/// colour (and CMYK) files 24. E_FAIL for damaged or truncated data; a
/// failure of the target is passed on. A file whose restart intervals are
/// whole MCU rows is decoded on every core.
HRESULT DecodeJpeg(const uint8_t* data, size_t size, ImageTarget& target);
/// The same on the calling thread only.
HRESULT DecodeJpegPlain(const uint8_t* data, size_t size, ImageTarget& target);
/// Decodes, on the calling thread, the file that `count` chunks make when
/// put one after the other, without copying them together.
HRESULT DecodeJpegChunks(const JpegChunk* chunks, size_t count, ImageTarget& target);

/// Encodes into a stdio stream; `quality` 1-100. E_FAIL when writing fails.
/// Images large enough are coded in bands on every core.
HRESULT EncodeJpeg(std::FILE* file, const ImageView& image, int quality);

/// Encodes into `out` (its size set to the coded bytes); `quality` 1-100.
/// E_FAIL when memory runs out or the image cannot be coded (a side above
/// 65500 pixels); `out` then holds no valid data.
HRESULT EncodeJpegToMemory(const ImageView& image, int quality, JpegBlock& out);
/// The same on the calling thread only, with a restart marker after every
/// `restartMcuRows` MCU rows (none when 0).
HRESULT EncodeJpegPlainToMemory(const ImageView& image, int quality, JpegBlock& out, int restartMcuRows = 0);
