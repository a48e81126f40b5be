// PNG through libpng. libpng reports errors by calling back and expecting
// the callback not to return; the callbacks here are silent and jump back to
// the setjmp of the step in progress. Each step that may fail is one member
// function whose frame holds nothing with a destructor, so a jump skips no
// C++ clean-up; the row pointers live in the caller.
#include <png.h>

#include <csetjmp>
#include <cstring>
#include <new>
#include <vector>

#include "framework/LUMArch/ImageCodec.h"

namespace {

struct MemorySource {
    const uint8_t* data;
    size_t size;
    size_t offset;
};

[[noreturn]] void PngFail(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void PngWarn(png_structp, png_const_charp) {}

void ReadFromMemory(png_structp png, png_bytep out, size_t length) {
    auto* source = static_cast<MemorySource*>(png_get_io_ptr(png));
    if (length > source->size - source->offset) png_error(png, "truncated");
    std::memcpy(out, source->data + source->offset, length);
    source->offset += length;
}

void WriteToFile(png_structp png, png_bytep bytes, size_t length) {
    if (std::fwrite(bytes, 1, length, static_cast<std::FILE*>(png_get_io_ptr(png))) != length)
        png_error(png, "write failed");
}

void FlushFile(png_structp png) { std::fflush(static_cast<std::FILE*>(png_get_io_ptr(png))); }

class PngReader {
public:
    PngReader(const uint8_t* data, size_t size) : m_Source{data, size, 0} {
        m_Png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, PngFail, PngWarn);
        if (m_Png) m_Info = png_create_info_struct(m_Png);
    }
    ~PngReader() { png_destroy_read_struct(&m_Png, m_Info ? &m_Info : nullptr, nullptr); }

    /// Reads the header and sets up the conversion to gray (8 bits), BGR
    /// (24) or BGRA (32): 16-bit samples scaled to 8, low bit depths and
    /// palettes expanded, transparency turned into alpha. A palette of gray
    /// entries without transparency is read as indices and mapped to gray
    /// afterwards (MapGrayPalette).
    bool ReadHeader() {
        if (!m_Info) return false;
        if (setjmp(png_jmpbuf(m_Png))) return false;
        png_set_read_fn(m_Png, &m_Source, ReadFromMemory);
        png_read_info(m_Png, m_Info);
        const int colourType = png_get_color_type(m_Png, m_Info);
        const int depth = png_get_bit_depth(m_Png, m_Info);
        const bool transparency = png_get_valid(m_Png, m_Info, PNG_INFO_tRNS) != 0;
        if (depth == 16) png_set_scale_16(m_Png);
        switch (colourType) {
            case PNG_COLOR_TYPE_PALETTE: {
                png_colorp palette = nullptr;
                int count = 0;
                png_get_PLTE(m_Png, m_Info, &palette, &count);
                bool gray = !transparency && count > 0;
                for (int i = 0; gray && i < count; ++i)
                    gray = palette[i].red == palette[i].green && palette[i].green == palette[i].blue;
                if (gray) {
                    for (int i = 0; i < count; ++i) m_Gray[i] = palette[i].red;
                    m_GrayCount = count;
                    png_set_packing(m_Png);
                    m_Bits = 8;
                } else {
                    png_set_palette_to_rgb(m_Png);
                    if (transparency) png_set_tRNS_to_alpha(m_Png);
                    m_Bits = transparency ? 32 : 24;
                }
                break;
            }
            case PNG_COLOR_TYPE_GRAY:
                if (depth < 8) png_set_expand_gray_1_2_4_to_8(m_Png);
                if (transparency) {
                    png_set_tRNS_to_alpha(m_Png);
                    png_set_gray_to_rgb(m_Png);
                }
                m_Bits = transparency ? 32 : 8;
                break;
            case PNG_COLOR_TYPE_GRAY_ALPHA:
                png_set_gray_to_rgb(m_Png);
                m_Bits = 32;
                break;
            case PNG_COLOR_TYPE_RGB:
                if (transparency) png_set_tRNS_to_alpha(m_Png);
                m_Bits = transparency ? 32 : 24;
                break;
            default:  // RGB with alpha
                m_Bits = 32;
                break;
        }
        if (m_Bits != 8) png_set_bgr(m_Png);
        png_set_interlace_handling(m_Png);
        png_read_update_info(m_Png, m_Info);
        m_Width = png_get_image_width(m_Png, m_Info);
        m_Height = png_get_image_height(m_Png, m_Info);
        // The conversions must have produced exactly the layout promised.
        return png_get_rowbytes(m_Png, m_Info) == size_t(m_Width) * size_t(m_Bits / 8);
    }

    /// Reads every row (all passes of an interlaced file) and the end of the file.
    bool ReadRows(png_bytepp rows) {
        if (setjmp(png_jmpbuf(m_Png))) return false;
        png_read_image(m_Png, rows);
        png_read_end(m_Png, nullptr);
        return true;
    }

    /// Turns palette indices into the palette's gray values.
    void MapGrayPalette(uint8_t* pixels, int32_t stride) const {
        if (!m_GrayCount) return;
        for (png_uint_32 y = 0; y < m_Height; ++y) {
            uint8_t* row = pixels + int64_t(stride) * y;
            for (png_uint_32 x = 0; x < m_Width; ++x) row[x] = m_Gray[row[x]];  // missing entries are black
        }
    }

    png_uint_32 Width() const { return m_Width; }
    png_uint_32 Height() const { return m_Height; }
    int32_t Bits() const { return m_Bits; }

private:
    MemorySource m_Source;
    png_structp m_Png = nullptr;
    png_infop m_Info = nullptr;
    png_uint_32 m_Width = 0;
    png_uint_32 m_Height = 0;
    int32_t m_Bits = 0;
    uint8_t m_Gray[256] = {};
    int m_GrayCount = 0;
};

class PngWriter {
public:
    explicit PngWriter(std::FILE* file) : m_File(file) {
        m_Png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, PngFail, PngWarn);
        if (m_Png) m_Info = png_create_info_struct(m_Png);
    }
    ~PngWriter() { png_destroy_write_struct(&m_Png, m_Info ? &m_Info : nullptr); }

    bool Write(const ImageView& image, png_bytepp rows) {
        if (!m_Info) return false;
        if (setjmp(png_jmpbuf(m_Png))) return false;
        png_set_write_fn(m_Png, m_File, WriteToFile, FlushFile);
        const int colourType = image.bits == 8    ? PNG_COLOR_TYPE_GRAY
                               : image.bits == 24 ? PNG_COLOR_TYPE_RGB
                                                  : PNG_COLOR_TYPE_RGB_ALPHA;
        png_set_IHDR(m_Png, m_Info, static_cast<png_uint_32>(image.width), static_cast<png_uint_32>(image.height),
                     8, colourType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_write_info(m_Png, m_Info);
        if (image.bits != 8) png_set_bgr(m_Png);
        png_write_image(m_Png, rows);
        png_write_end(m_Png, nullptr);
        return true;
    }

private:
    std::FILE* m_File;
    png_structp m_Png = nullptr;
    png_infop m_Info = nullptr;
};

}  // namespace

HRESULT DecodePng(const uint8_t* data, size_t size, ImageTarget& target) {
    PngReader reader(data, size);
    if (!reader.ReadHeader()) return E_FAIL;
    if (reader.Width() > INT32_MAX || reader.Height() > INT32_MAX) return E_FAIL;
    uint8_t* pixels = nullptr;
    int32_t stride = 0;
    const HRESULT allocated = target.Allocate(static_cast<int32_t>(reader.Width()),
                                              static_cast<int32_t>(reader.Height()), reader.Bits(), &pixels, &stride);
    if (allocated != S_OK) return allocated == S_FALSE ? S_OK : allocated;
    std::vector<png_bytep> rows;
    try {
        rows.resize(reader.Height());
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    for (png_uint_32 y = 0; y < reader.Height(); ++y) rows[y] = pixels + int64_t(stride) * y;
    if (!reader.ReadRows(rows.data())) return E_FAIL;
    reader.MapGrayPalette(pixels, stride);
    return S_OK;
}

HRESULT EncodePng(std::FILE* file, const ImageView& image) {
    std::vector<png_bytep> rows;
    try {
        rows.resize(static_cast<size_t>(image.height));
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    for (int32_t y = 0; y < image.height; ++y) rows[static_cast<size_t>(y)] = const_cast<png_bytep>(image.Row(y));
    PngWriter writer(file);
    return writer.Write(image, rows.data()) ? S_OK : E_FAIL;
}
