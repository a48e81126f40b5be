// Windows bitmaps. Reading accepts the usual uncompressed kinds: 1, 4 and 8
// bits with a palette, 16 and 32 bits with or without channel masks, and 24
// bits, bottom-up or top-down; run-length and embedded JPEG/PNG data are not
// read. Every offset and size from the file is checked against the file's
// length before it is used, so a header claiming more pixels than the file
// holds fails before anything is allocated.
#include <bit>
#include <climits>
#include <cstring>

#include "framework/LUMArch/ImageCodec.h"

namespace {

constexpr uint32_t kCompressionNone = 0;
constexpr uint32_t kCompressionBitFields = 3;
constexpr uint32_t kCompressionAlphaBitFields = 6;
constexpr size_t kFileHeaderSize = 14;
constexpr uint32_t kInfoHeaderSize = 40;
constexpr uint32_t kV4HeaderSize = 108;
constexpr uint32_t kPixelsPerMetre = 2835;  // 72 dots per inch

uint16_t Get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t Get32(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24; }
void Put16(uint8_t* p, uint32_t v) { p[0] = uint8_t(v), p[1] = uint8_t(v >> 8); }
void Put32(uint8_t* p, uint32_t v) { Put16(p, v), Put16(p + 2, v >> 16); }

// One colour channel of a masked pixel, scaled to 0-255.
struct Channel {
    uint32_t mask = 0;
    int shift = 0;
    uint32_t maximum = 0;

    explicit Channel(uint32_t m) : mask(m) {
        if (!mask) return;
        shift = std::countr_zero(mask);
        maximum = mask >> shift;
    }
    uint8_t Of(uint32_t pixel) const {
        if (!maximum) return 0;
        const uint64_t value = (pixel & mask) >> shift;
        return static_cast<uint8_t>((value * 255 + maximum / 2) / maximum);
    }
};

struct Colour {
    uint8_t blue, green, red;
};

}  // namespace

HRESULT DecodeBmp(const uint8_t* data, size_t size, ImageTarget& target) {
    if (size < kFileHeaderSize + 4) return E_FAIL;
    const uint32_t pixelOffset = Get32(data + 10);
    const uint32_t headerSize = Get32(data + 14);
    if (headerSize < 12 || kFileHeaderSize + uint64_t(headerSize) > size) return E_FAIL;
    const uint8_t* header = data + kFileHeaderSize;

    int64_t width = 0, height = 0;
    unsigned bitCount = 0;
    uint32_t compression = kCompressionNone, coloursUsed = 0;
    size_t paletteEntry = 4;
    uint32_t masks[4] = {0, 0, 0, 0};
    if (headerSize == 12) {  // the old core header: 16-bit sizes, 3-byte palette entries
        width = Get16(header + 4);
        height = Get16(header + 6);
        bitCount = Get16(header + 10);
        paletteEntry = 3;
    } else if (headerSize >= kInfoHeaderSize) {
        width = static_cast<int32_t>(Get32(header + 4));
        height = static_cast<int32_t>(Get32(header + 8));
        bitCount = Get16(header + 14);
        compression = Get32(header + 16);
        coloursUsed = Get32(header + 32);
        for (uint32_t i = 0; i < 4 && kInfoHeaderSize + 4 * (i + 1) <= headerSize; ++i)
            masks[i] = Get32(header + kInfoHeaderSize + 4 * i);
    } else {
        return E_FAIL;
    }

    size_t position = kFileHeaderSize + headerSize;
    const bool masked = compression == kCompressionBitFields || compression == kCompressionAlphaBitFields;
    if (masked) {
        if (bitCount != 16 && bitCount != 32) return E_FAIL;
        if (headerSize == kInfoHeaderSize) {  // the masks follow the short header
            const size_t count = compression == kCompressionAlphaBitFields ? 4 : 3;
            if (position + 4 * count > size) return E_FAIL;
            for (size_t i = 0; i < count; ++i) masks[i] = Get32(data + position + 4 * i);
            position += 4 * count;
        }
    } else if (compression != kCompressionNone) {
        return E_FAIL;
    } else if (bitCount == 16) {
        masks[0] = 0x7C00, masks[1] = 0x03E0, masks[2] = 0x001F, masks[3] = 0;
    } else if (bitCount == 32) {
        masks[0] = 0xFF0000, masks[1] = 0xFF00, masks[2] = 0xFF, masks[3] = 0;
    }
    if (width <= 0 || height == 0 || height == INT32_MIN) return E_FAIL;
    const bool bottomUp = height > 0;
    const int64_t rows = bottomUp ? height : -height;

    Colour palette[256] = {};  // indices beyond the palette read as black
    bool grayPalette = true;
    if (bitCount == 1 || bitCount == 4 || bitCount == 8) {
        const uint32_t limit = 1u << bitCount;
        const uint32_t count = (coloursUsed == 0 || coloursUsed > limit) ? limit : coloursUsed;
        if (position + paletteEntry * count > size) return E_FAIL;
        for (uint32_t i = 0; i < count; ++i) {
            const uint8_t* entry = data + position + paletteEntry * i;
            palette[i] = Colour{entry[0], entry[1], entry[2]};
            grayPalette = grayPalette && entry[0] == entry[1] && entry[1] == entry[2];
        }
    } else if (bitCount != 16 && bitCount != 24 && bitCount != 32) {
        return E_FAIL;
    }

    // At least 4 bytes; rows times row size is compared by division, as a
    // header may claim sizes whose product does not fit 64 bits.
    const int64_t rowSize = (width * bitCount + 31) / 32 * 4;
    if (pixelOffset < kFileHeaderSize + headerSize || pixelOffset > size ||
        rows > static_cast<int64_t>(size - pixelOffset) / rowSize)
        return E_FAIL;

    int32_t bits = 24;
    if (bitCount <= 8 && grayPalette) bits = 8;
    if (bitCount == 32 && masked && masks[3] != 0) bits = 32;
    uint8_t* pixels = nullptr;
    int32_t stride = 0;
    const HRESULT allocated =
        target.Allocate(static_cast<int32_t>(width), static_cast<int32_t>(rows), bits, &pixels, &stride);
    if (allocated != S_OK) return allocated == S_FALSE ? S_OK : allocated;

    const Channel red(masks[0]), green(masks[1]), blue(masks[2]), alpha(masks[3]);
    const bool plain32 = bitCount == 32 && masks[0] == 0xFF0000 && masks[1] == 0xFF00 && masks[2] == 0xFF &&
                         (masks[3] == 0 || masks[3] == 0xFF000000u);
    const int32_t columns = static_cast<int32_t>(width);
    for (int64_t y = 0; y < rows; ++y) {
        const uint8_t* from = data + pixelOffset + rowSize * (bottomUp ? rows - 1 - y : y);
        uint8_t* to = pixels + int64_t(stride) * y;
        if (bitCount <= 8) {
            for (int32_t x = 0; x < columns; ++x) {
                unsigned index = 0;
                if (bitCount == 8)
                    index = from[x];
                else if (bitCount == 4)
                    index = (from[x >> 1] >> ((x & 1) ? 0 : 4)) & 0x0F;
                else
                    index = (from[x >> 3] >> (7 - (x & 7))) & 0x01;
                const Colour& colour = palette[index];
                if (bits == 8) {
                    to[x] = colour.blue;
                } else {
                    to[3 * x] = colour.blue, to[3 * x + 1] = colour.green, to[3 * x + 2] = colour.red;
                }
            }
        } else if (bitCount == 24) {
            std::memcpy(to, from, static_cast<size_t>(3 * width));
        } else if (plain32 && bits == 32) {
            std::memcpy(to, from, static_cast<size_t>(4 * width));
        } else if (plain32) {
            for (int32_t x = 0; x < columns; ++x)
                to[3 * x] = from[4 * x], to[3 * x + 1] = from[4 * x + 1], to[3 * x + 2] = from[4 * x + 2];
        } else {
            const int step = bits / 8;
            for (int32_t x = 0; x < columns; ++x) {
                const uint32_t pixel = bitCount == 16 ? Get16(from + 2 * x) : Get32(from + 4 * x);
                uint8_t* out = to + step * x;
                out[0] = blue.Of(pixel), out[1] = green.Of(pixel), out[2] = red.Of(pixel);
                if (step == 4) out[3] = alpha.Of(pixel);
            }
        }
    }
    return S_OK;
}

HRESULT EncodeBmp(std::FILE* file, const ImageView& image) {
    // 8 bits: a 256-entry gray palette; 24 bits: plain; 32 bits: a V4 header
    // whose channel masks mark the fourth byte as alpha. Rows bottom-up.
    const uint32_t headerSize = image.bits == 32 ? kV4HeaderSize : kInfoHeaderSize;
    const uint32_t paletteSize = image.bits == 8 ? 256 * 4 : 0;
    const uint32_t pixelOffset = static_cast<uint32_t>(kFileHeaderSize) + headerSize + paletteSize;
    const int64_t rowBytes = image.RowBytes();
    const int64_t rowSize = (rowBytes + 3) / 4 * 4;
    const int64_t total = pixelOffset + rowSize * image.height;
    if (total > int64_t(UINT32_MAX)) return E_FAIL;

    uint8_t header[kFileHeaderSize + kV4HeaderSize + 256 * 4] = {};
    header[0] = 'B', header[1] = 'M';
    Put32(header + 2, static_cast<uint32_t>(total));
    Put32(header + 10, pixelOffset);
    uint8_t* info = header + kFileHeaderSize;
    Put32(info, headerSize);
    Put32(info + 4, static_cast<uint32_t>(image.width));
    Put32(info + 8, static_cast<uint32_t>(image.height));
    Put16(info + 12, 1);
    Put16(info + 14, static_cast<uint32_t>(image.bits));
    Put32(info + 16, image.bits == 32 ? kCompressionBitFields : kCompressionNone);
    Put32(info + 20, static_cast<uint32_t>(rowSize * image.height));
    Put32(info + 24, kPixelsPerMetre);
    Put32(info + 28, kPixelsPerMetre);
    if (image.bits == 8) Put32(info + 32, 256);
    if (image.bits == 32) {
        Put32(info + 40, 0x00FF0000);
        Put32(info + 44, 0x0000FF00);
        Put32(info + 48, 0x000000FF);
        Put32(info + 52, 0xFF000000);
        Put32(info + 56, 0x73524742);  // colour space "sRGB"
    }
    for (uint32_t i = 0; i < paletteSize / 4; ++i) {
        uint8_t* entry = info + headerSize + 4 * i;
        entry[0] = entry[1] = entry[2] = static_cast<uint8_t>(i);
    }
    if (std::fwrite(header, 1, pixelOffset, file) != pixelOffset) return E_FAIL;

    static const uint8_t kZeros[4] = {};
    const size_t padding = static_cast<size_t>(rowSize - rowBytes);
    for (int32_t y = image.height - 1; y >= 0; --y) {
        if (std::fwrite(image.Row(y), 1, static_cast<size_t>(rowBytes), file) != static_cast<size_t>(rowBytes))
            return E_FAIL;
        if (padding && std::fwrite(kZeros, 1, padding, file) != padding) return E_FAIL;
    }
    return std::ferror(file) ? E_FAIL : S_OK;
}
