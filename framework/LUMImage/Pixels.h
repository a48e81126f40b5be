// CPixels: the pixel store behind every image of the kit. Rows are stored
// top-down, each row starting at a multiple of 4 bytes; 8 bits per pixel is
// one gray byte, 24 is blue, green, red, 32 is blue, green, red, alpha.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "lum/lum.h"

class CPixels {
public:
    /// Largest pixel block an image may hold (1 GiB). Larger requests fail
    /// with E_FAIL instead of exhausting memory on a bogus size.
    static constexpr int64_t kMaxBytes = int64_t(1) << 30;

    static bool ValidBits(int32_t bits) { return bits == 8 || bits == 24 || bits == 32; }
    /// Bytes of one row's pixels (no padding), computed without overflow.
    static int64_t RowBytes(int32_t width, int32_t bits) { return int64_t(width) * (bits / 8); }
    /// The row size rounded up to a multiple of 4.
    static int64_t StrideFor(int32_t width, int32_t bits) { return (RowBytes(width, bits) + 3) & ~int64_t(3); }

    /// Replaces the pixels by a new block of width x height. E_INVALIDARG
    /// unless width, height > 0 and bits is 8, 24 or 32; E_FAIL when the
    /// block is larger than kMaxBytes or memory runs out. On failure the
    /// image keeps what it held. `zeroed` = false leaves the bytes undefined
    /// for a caller that writes every row.
    HRESULT Allocate(int32_t width, int32_t height, int32_t bits, bool zeroed);

    /// Becomes a copy of `source` (any ILUM, read through its stride). An
    /// empty source gives an empty image. A null source, a source that does
    /// not report itself, or one with an unsupported layout leaves the image
    /// empty and returns the failure (E_POINTER, its own code, E_INVALIDARG).
    HRESULT CopyFrom(ILUM* source);

    /// Drops the pixels: 0 x 0, 0 bits, no block.
    void Clear();
    /// Takes over another store's pixels, leaving it empty.
    void TakeFrom(CPixels& other);

    int32_t Width() const { return m_Width; }
    int32_t Height() const { return m_Height; }
    int32_t Bits() const { return m_Bits; }
    int32_t Stride() const { return m_Stride; }
    uint8_t* Data() const { return m_Data.get(); }
    bool Empty() const { return !m_Data; }

private:
    struct FreeBlock {
        void operator()(uint8_t* block) const { std::free(block); }
    };

    std::unique_ptr<uint8_t, FreeBlock> m_Data;
    int32_t m_Width = 0;
    int32_t m_Height = 0;
    int32_t m_Bits = 0;
    int32_t m_Stride = 0;
};

/// ILUM and ILUMImageDIB over a CPixels member, for every class whose
/// interface derives from ILUMImageDIB (Base = ILUMImageDIB or ILUMImageCANVAS).
template <class Base>
class ImageDIBImpl : public Base {
public:
    HRESULT get_Width(int32_t* width) override { return Report(width, m_Pixels.Width()); }
    HRESULT get_Height(int32_t* height) override { return Report(height, m_Pixels.Height()); }
    HRESULT get_BitsPerPixel(int32_t* bits) override { return Report(bits, m_Pixels.Bits()); }
    HRESULT get_Stride(int32_t* bytes) override { return Report(bytes, m_Pixels.Stride()); }
    HRESULT get_Bits(uint8_t** pixels) override {
        if (!pixels) return E_POINTER;
        *pixels = m_Pixels.Data();
        return S_OK;
    }
    HRESULT Create(int32_t width, int32_t height, int32_t bitsPerPixel) override {
        return m_Pixels.Allocate(width, height, bitsPerPixel, true);
    }
    /// The mask names extra attributes; these images have none, so every
    /// mask gives the same full copy.
    HRESULT Copy(ILUM* source, int32_t /*mask*/) override { return m_Pixels.CopyFrom(source); }

protected:
    ImageDIBImpl() = default;
    ~ImageDIBImpl() = default;

    CPixels m_Pixels;

private:
    static HRESULT Report(int32_t* out, int32_t value) {
        if (!out) return E_POINTER;
        *out = value;
        return S_OK;
    }
};
