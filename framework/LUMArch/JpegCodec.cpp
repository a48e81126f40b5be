// JPEG through libjpeg(-turbo). The library reports fatal errors through an
// exit routine that by default ends the process; here it jumps back to the
// caller, which destroys the codec object and returns E_FAIL. Functions that
// call setjmp hold no C++ objects with destructors: memory the codec needs
// comes from the library's own pools, freed by jpeg_destroy_*.
#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <jerror.h>
#include <jpeglib.h>

#include "framework/LUMArch/JpegCodec.h"
#include "framework/LUMArch/JpegBands.h"
#include "framework/LUMImage/Pixels.h"

namespace {

// Rows handed to the library per call.
constexpr int kRowBatch = 16;
// Bytes collected before one fwrite.
constexpr size_t kOutputBuffer = size_t(1) << 18;

struct JpegError {
    jpeg_error_mgr base;
    jmp_buf jump;
};

[[noreturn]] void JpegExit(j_common_ptr codec) { std::longjmp(reinterpret_cast<JpegError*>(codec->err)->jump, 1); }

// Warnings about lost or damaged data (a truncated file is decoded by the
// library as gray padding behind a warning) end the decoding as an error;
// harmless ones, such as stray bytes between markers, are ignored. Nothing
// is printed.
void JpegMessage(j_common_ptr codec, int level) {
    if (level >= 0) return;
    switch (codec->err->msg_code) {
        case JWRN_JPEG_EOF:
        case JWRN_HIT_MARKER:
        case JWRN_HUFF_BAD_CODE:
        case JWRN_MUST_RESYNC:
        case JWRN_NOT_SEQUENTIAL:
        case JWRN_BOGUS_PROGRESSION:
        case JWRN_TOO_MUCH_DATA:
            JpegExit(codec);
        default:
            break;
    }
}

void JpegSilent(j_common_ptr) {}

void InstallErrorHandler(JpegError& error) {
    jpeg_std_error(&error.base);
    error.base.error_exit = JpegExit;
    error.base.emit_message = JpegMessage;
    error.base.output_message = JpegSilent;
}

// CMYK and YCCK files are decoded to CMYK and turned into BGR here. Adobe
// writes the ink values inverted, which the library reports as an Adobe marker.
void CmykRowToBgr(const JSAMPLE* cmyk, uint8_t* bgr, JDIMENSION width, bool inverted) {
    for (JDIMENSION x = 0; x < width; ++x, cmyk += 4, bgr += 3) {
        unsigned c = cmyk[0], m = cmyk[1], y = cmyk[2], k = cmyk[3];
        if (!inverted) c = 255 - c, m = 255 - m, y = 255 - y, k = 255 - k;
        bgr[0] = static_cast<uint8_t>((y * k + 127) / 255);
        bgr[1] = static_cast<uint8_t>((m * k + 127) / 255);
        bgr[2] = static_cast<uint8_t>((c * k + 127) / 255);
    }
}

struct FileDestination {
    jpeg_destination_mgr base;
    std::FILE* file;
    JOCTET* buffer;
};

void DestinationStart(j_compress_ptr codec) {
    auto* destination = reinterpret_cast<FileDestination*>(codec->dest);
    destination->buffer = static_cast<JOCTET*>(
        (*codec->mem->alloc_large)(reinterpret_cast<j_common_ptr>(codec), JPOOL_IMAGE, kOutputBuffer));
    destination->base.next_output_byte = destination->buffer;
    destination->base.free_in_buffer = kOutputBuffer;
}

boolean DestinationFull(j_compress_ptr codec) {
    auto* destination = reinterpret_cast<FileDestination*>(codec->dest);
    if (std::fwrite(destination->buffer, 1, kOutputBuffer, destination->file) != kOutputBuffer)
        ERREXIT(codec, JERR_FILE_WRITE);
    destination->base.next_output_byte = destination->buffer;
    destination->base.free_in_buffer = kOutputBuffer;
    return TRUE;
}

void DestinationEnd(j_compress_ptr codec) {
    auto* destination = reinterpret_cast<FileDestination*>(codec->dest);
    const size_t used = kOutputBuffer - destination->base.free_in_buffer;
    if (used && std::fwrite(destination->buffer, 1, used, destination->file) != used) ERREXIT(codec, JERR_FILE_WRITE);
}

// Output into a JpegBlock, doubled with realloc when full.
struct MemoryDestination {
    jpeg_destination_mgr base;
    JpegBlock* block;
};

// First size of an empty block; most frames fit at once.
constexpr size_t kFirstBlock = size_t(1) << 16;

void MemoryStart(j_compress_ptr codec) {
    auto* destination = reinterpret_cast<MemoryDestination*>(codec->dest);
    JpegBlock& block = *destination->block;
    block.size = 0;
    if (block.capacity == 0) {
        block.data = static_cast<uint8_t*>(std::malloc(kFirstBlock));
        if (!block.data) ERREXIT1(codec, JERR_OUT_OF_MEMORY, 0);
        block.capacity = kFirstBlock;
    }
    destination->base.next_output_byte = block.data;
    destination->base.free_in_buffer = block.capacity;
}

boolean MemoryFull(j_compress_ptr codec) {
    auto* destination = reinterpret_cast<MemoryDestination*>(codec->dest);
    JpegBlock& block = *destination->block;
    // The library calls this only when the whole block is used.
    const size_t used = block.capacity;
    auto* grown = static_cast<uint8_t*>(std::realloc(block.data, used * 2));
    if (!grown) ERREXIT1(codec, JERR_OUT_OF_MEMORY, 0);
    block.data = grown;
    block.capacity = used * 2;
    destination->base.next_output_byte = block.data + used;
    destination->base.free_in_buffer = block.capacity - used;
    return TRUE;
}

// Input from a list of chunks in memory, read one after the other. Past the
// last chunk the library is given an end-of-image marker behind a warning,
// as its own memory source does, so that a truncated file ends as an error.
struct ChunkSource {
    jpeg_source_mgr base;
    const JpegChunk* chunks;
    size_t count;
    size_t next;
};

void ChunkStart(j_decompress_ptr) {}
void ChunkTerm(j_decompress_ptr) {}

boolean ChunkFill(j_decompress_ptr codec) {
    static const JOCTET kEnd[2] = {0xFF, JPEG_EOI};
    auto* source = reinterpret_cast<ChunkSource*>(codec->src);
    while (source->next < source->count && source->chunks[source->next].size == 0) ++source->next;
    if (source->next == source->count) {
        WARNMS(codec, JWRN_JPEG_EOF);
        source->base.next_input_byte = kEnd;
        source->base.bytes_in_buffer = sizeof kEnd;
        return TRUE;
    }
    source->base.next_input_byte = source->chunks[source->next].data;
    source->base.bytes_in_buffer = source->chunks[source->next].size;
    ++source->next;
    return TRUE;
}

void ChunkSkip(j_decompress_ptr codec, long bytes) {
    if (bytes <= 0) return;
    auto* source = reinterpret_cast<ChunkSource*>(codec->src);
    while (static_cast<unsigned long>(bytes) > source->base.bytes_in_buffer) {
        bytes -= static_cast<long>(source->base.bytes_in_buffer);
        ChunkFill(codec);
    }
    source->base.next_input_byte += bytes;
    source->base.bytes_in_buffer -= static_cast<size_t>(bytes);
}

void MemoryEnd(j_compress_ptr codec) {
    auto* destination = reinterpret_cast<MemoryDestination*>(codec->dest);
    JpegBlock& block = *destination->block;
    block.size = block.capacity - destination->base.free_in_buffer;
}

// Codes `image` into the destination manager, whose callbacks may jump out
// through the error handler.
HRESULT Compress(jpeg_destination_mgr* destination, const ImageView& image, int quality, int restartMcuRows = 0) {
    jpeg_compress_struct codec;
    JpegError error;
    codec.err = &error.base;
    InstallErrorHandler(error);
    if (setjmp(error.jump)) {
        jpeg_destroy_compress(&codec);
        return E_FAIL;
    }
    jpeg_create_compress(&codec);
    codec.dest = destination;

    codec.image_width = static_cast<JDIMENSION>(image.width);
    codec.image_height = static_cast<JDIMENSION>(image.height);
    // The library reads blue, green, red (and an ignored fourth byte) itself,
    // so rows go in exactly as the image holds them.
    switch (image.bits) {
        case 8:
            codec.input_components = 1;
            codec.in_color_space = JCS_GRAYSCALE;
            break;
        case 24:
            codec.input_components = 3;
            codec.in_color_space = JCS_EXT_BGR;
            break;
        default:
            codec.input_components = 4;
            codec.in_color_space = JCS_EXT_BGRX;
            break;
    }
    jpeg_set_defaults(&codec);  // gray input gives a single-component gray file
    jpeg_set_quality(&codec, quality, TRUE);
    if (image.bits != 8 && quality >= 90) {
        // Full-resolution colour at high quality (4:4:4).
        codec.comp_info[0].h_samp_factor = 1;
        codec.comp_info[0].v_samp_factor = 1;
    }
    codec.restart_in_rows = restartMcuRows;
    jpeg_start_compress(&codec, TRUE);
    JSAMPROW rows[kRowBatch];
    while (codec.next_scanline < codec.image_height) {
        const JDIMENSION first = codec.next_scanline;
        const JDIMENSION batch = std::min<JDIMENSION>(kRowBatch, codec.image_height - first);
        for (JDIMENSION i = 0; i < batch; ++i)
            rows[i] = const_cast<JSAMPROW>(image.Row(static_cast<int32_t>(first + i)));
        jpeg_write_scanlines(&codec, rows, batch);
    }
    jpeg_finish_compress(&codec);
    jpeg_destroy_compress(&codec);
    return S_OK;
}

}  // namespace

JpegBlock::~JpegBlock() { std::free(data); }

bool JpegBlock::Reserve(size_t bytes) {
    if (bytes <= capacity) return true;
    auto* grown = static_cast<uint8_t*>(std::realloc(data, bytes));
    if (!grown) return false;
    data = grown;
    capacity = bytes;
    return true;
}

bool JpegBlock::Append(const uint8_t* bytes, size_t count) {
    if (count > capacity - size && !Reserve(std::max(size + count, capacity * 2))) return false;
    if (count) std::memcpy(data + size, bytes, count);
    size += count;
    return true;
}

HRESULT DecodeJpeg(const uint8_t* data, size_t size, ImageTarget& target) {
    const HRESULT hr = DecodeJpegBands(data, size, target);
    return hr == S_FALSE ? DecodeJpegPlain(data, size, target) : hr;
}

HRESULT DecodeJpegPlain(const uint8_t* data, size_t size, ImageTarget& target) {
    const JpegChunk whole{data, size};
    return DecodeJpegChunks(&whole, 1, target);
}

HRESULT DecodeJpegChunks(const JpegChunk* chunks, size_t count, ImageTarget& target) {
    jpeg_decompress_struct codec;
    JpegError error;
    codec.err = &error.base;
    InstallErrorHandler(error);
    if (setjmp(error.jump)) {
        jpeg_destroy_decompress(&codec);
        return E_FAIL;
    }
    jpeg_create_decompress(&codec);
    // Bounds the library's own buffers (progressive files buffer every
    // coefficient) the way the image block is bounded.
    codec.mem->max_memory_to_use = CPixels::kMaxBytes;
    ChunkSource source;
    source.base.init_source = ChunkStart;
    source.base.fill_input_buffer = ChunkFill;
    source.base.skip_input_data = ChunkSkip;
    source.base.resync_to_restart = jpeg_resync_to_restart;
    source.base.term_source = ChunkTerm;
    source.base.next_input_byte = nullptr;
    source.base.bytes_in_buffer = 0;
    source.chunks = chunks;
    source.count = count;
    source.next = 0;
    codec.src = &source.base;
    jpeg_read_header(&codec, TRUE);

    int32_t bits = 24;
    bool cmyk = false;
    switch (codec.jpeg_color_space) {
        case JCS_GRAYSCALE:
            codec.out_color_space = JCS_GRAYSCALE;
            bits = 8;
            break;
        case JCS_CMYK:
        case JCS_YCCK:
            codec.out_color_space = JCS_CMYK;
            cmyk = true;
            break;
        default:
            codec.out_color_space = JCS_EXT_BGR;
            break;
    }
    uint8_t* pixels = nullptr;
    int32_t stride = 0;
    const HRESULT allocated = target.Allocate(static_cast<int32_t>(codec.image_width),
                                              static_cast<int32_t>(codec.image_height), bits, &pixels, &stride);
    if (allocated != S_OK) {
        jpeg_destroy_decompress(&codec);
        return allocated == S_FALSE ? S_OK : allocated;
    }
    jpeg_start_decompress(&codec);
    JSAMPARRAY inks = nullptr;
    if (cmyk)
        inks = (*codec.mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(&codec), JPOOL_IMAGE,
                                          codec.output_width * 4, 1);
    JSAMPROW rows[kRowBatch];
    while (codec.output_scanline < codec.output_height) {
        const JDIMENSION first = codec.output_scanline;
        if (cmyk) {
            jpeg_read_scanlines(&codec, inks, 1);
            CmykRowToBgr(inks[0], pixels + int64_t(stride) * first, codec.output_width, codec.saw_Adobe_marker);
            continue;
        }
        const JDIMENSION batch = std::min<JDIMENSION>(kRowBatch, codec.output_height - first);
        for (JDIMENSION i = 0; i < batch; ++i) rows[i] = pixels + int64_t(stride) * (first + i);
        jpeg_read_scanlines(&codec, rows, batch);
    }
    jpeg_finish_decompress(&codec);
    jpeg_destroy_decompress(&codec);
    return S_OK;
}

HRESULT EncodeJpeg(std::FILE* file, const ImageView& image, int quality) {
    // Bands are written as they are coded, while later bands are still being
    // coded on the other cores.
    struct FileOutput final : JpegOutput {
        std::FILE* file;
        bool Put(const uint8_t* bytes, size_t count) override {
            return std::fwrite(bytes, 1, count, file) == count;
        }
    } output;
    output.file = file;
    const HRESULT hr = EncodeJpegBands(image, quality, output);
    if (hr != S_FALSE) return hr;
    FileDestination destination;
    destination.base.init_destination = DestinationStart;
    destination.base.empty_output_buffer = DestinationFull;
    destination.base.term_destination = DestinationEnd;
    destination.file = file;
    destination.buffer = nullptr;
    return Compress(&destination.base, image, quality);
}

HRESULT EncodeJpegToMemory(const ImageView& image, int quality, JpegBlock& out) {
    const HRESULT hr = EncodeJpegBands(image, quality, out);
    if (hr < 0) out.size = 0;
    return hr == S_FALSE ? EncodeJpegPlainToMemory(image, quality, out) : hr;
}

HRESULT EncodeJpegPlainToMemory(const ImageView& image, int quality, JpegBlock& out, int restartMcuRows) {
    MemoryDestination destination;
    destination.base.init_destination = MemoryStart;
    destination.base.empty_output_buffer = MemoryFull;
    destination.base.term_destination = MemoryEnd;
    destination.block = &out;
    const HRESULT hr = Compress(&destination.base, image, quality, restartMcuRows);
    if (hr < 0) out.size = 0;
    return hr;
}
