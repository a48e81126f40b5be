#include "framework/LUMVideo/FrameDecoding.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "framework/LUMArch/JpegCodec.h"
#include "framework/common/KitModule.h"

namespace {

// A new framework image sized by the decoder.
class NewImageTarget final : public ImageTarget {
public:
    HRESULT Allocate(int32_t width, int32_t height, int32_t bits, uint8_t** pixels, int32_t* stride) override {
        HRESULT hr = E_FAIL;
        image = KitCreate<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB, &hr);
        if (!image) return hr < 0 ? hr : E_FAIL;
        if ((hr = image->Create(width, height, bits)) < 0 || (hr = image->get_Bits(pixels)) < 0 ||
            (hr = image->get_Stride(stride)) < 0) {
            image = nullptr;
            return hr;
        }
        return S_OK;
    }
    SmartPtr<ILUMImageDIB> image;
};

// The DHT segments of the standard tables (annex K of the JPEG standard),
// taken once from a tiny colour image coded by the library, which uses
// exactly these tables unless asked to optimise them.
const std::vector<uint8_t>& StandardHuffmanSegments() {
    static const std::vector<uint8_t> segments = [] {
        std::vector<uint8_t> found;
        uint8_t pixels[8 * 8 * 3] = {};
        const ImageView view{pixels, 8, 8, 24, 8 * 3};
        JpegBlock block;
        if (EncodeJpegToMemory(view, 75, block) < 0) return found;
        for (size_t i = 2; i + 4 <= block.size;) {
            if (block.data[i] != 0xFF) break;
            const uint8_t marker = block.data[i + 1];
            if (marker == 0xDA) break;  // SOS: the tables all come before it
            const size_t length = size_t(block.data[i + 2]) << 8 | block.data[i + 3];
            if (i + 2 + length > block.size) break;
            if (marker == 0xC4) found.insert(found.end(), block.data + i, block.data + i + 2 + length);
            i += 2 + length;
        }
        return found;
    }();
    return segments;
}

}  // namespace

void AddStandardHuffmanTables(std::vector<uint8_t>& frame) {
    if (frame.size() < 4 || frame[0] != 0xFF || frame[1] != 0xD8) return;
    size_t i = 2;
    while (i + 4 <= frame.size()) {
        if (frame[i] != 0xFF) return;
        const uint8_t marker = frame[i + 1];
        if (marker == 0xFF) {  // fill byte
            ++i;
            continue;
        }
        if (marker == 0xC4) return;  // the frame brings its own
        if (marker == 0xDA) break;
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) {  // no length
            i += 2;
            continue;
        }
        i += 2 + (size_t(frame[i + 2]) << 8 | frame[i + 3]);
    }
    if (i + 4 > frame.size()) return;
    const std::vector<uint8_t>& tables = StandardHuffmanSegments();
    frame.insert(frame.begin() + static_cast<ptrdiff_t>(i), tables.begin(), tables.end());
}

HRESULT DecodeJpegFrame(std::vector<uint8_t>& frame, SmartPtr<ILUMImageDIB>& image) {
    try {
        AddStandardHuffmanTables(frame);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    NewImageTarget target;
    const HRESULT hr = DecodeJpeg(frame.data(), frame.size(), target);
    if (hr < 0 || !target.image) return E_FAIL;
    image = target.image;
    return S_OK;
}

HRESULT DecodeRawFrame(const std::vector<uint8_t>& frame, const AviVideo& video, SmartPtr<ILUMImageDIB>& image) {
    const int64_t rowBytes = video.rowBytes;
    if (int64_t(frame.size()) < rowBytes * video.height) return E_FAIL;

    // An 8-bit palette of gray entries (or none) keeps the frame gray.
    const std::vector<uint8_t>& palette = video.palette;
    bool gray = true;
    for (size_t k = 0; k + 3 < palette.size() && gray; k += 4)
        gray = palette[k] == palette[k + 1] && palette[k] == palette[k + 2];
    uint8_t lookup[256][3] = {};
    for (size_t k = 0; k < 256; ++k) {
        if (palette.empty()) {
            lookup[k][0] = lookup[k][1] = lookup[k][2] = static_cast<uint8_t>(k);
        } else if (k * 4 + 3 < palette.size()) {
            std::memcpy(lookup[k], &palette[k * 4], 3);
        }
    }
    const int32_t bits = video.bits == 8 && !gray ? 24 : video.bits;

    NewImageTarget target;
    uint8_t* pixels = nullptr;
    int32_t stride = 0;
    if (target.Allocate(video.width, video.height, bits, &pixels, &stride) < 0) return E_FAIL;
    for (int32_t y = 0; y < video.height; ++y) {
        const uint8_t* source = frame.data() + rowBytes * (video.topDown ? y : video.height - 1 - y);
        uint8_t* row = pixels + int64_t(stride) * y;
        if (video.bits != 8) {
            std::memcpy(row, source, size_t(video.width) * (video.bits / 8));
        } else if (gray) {
            for (int32_t x = 0; x < video.width; ++x) row[x] = lookup[source[x]][0];
        } else {
            for (int32_t x = 0; x < video.width; ++x) std::memcpy(row + 3 * x, lookup[source[x]], 3);
        }
    }
    image = target.image;
    return S_OK;
}
