#include "framework/LUMArch/ImageCodec.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <memory>
#include <new>

#include "framework/LUMArch/JpegBands.h"
#include "framework/LUMArch/ReadAhead.h"
#include "framework/LUMArch/Recycler.h"

namespace {

// Files above this size are not images this kit reads.
constexpr int64_t kMaxFileBytes = int64_t(1) << 31;
// Output buffer of the stdio stream an image is written through.
constexpr size_t kWriteBuffer = size_t(1) << 18;

// File contents are read into buffers kept from one file to the next, so
// that replaying a folder does not allocate (and clear) a frame's bytes
// for every file. Buffers of files above this size are not kept.
constexpr size_t kLargestKeptFile = size_t(64) << 20;

Recycler<JpegBlock>& FileBuffers() {
    static Recycler<JpegBlock> buffers(8);
    return buffers;
}

// Passes a decoder's requests on, noting whether the reader wanted pixels
// (and not only the size).
class WatchedTarget final : public ImageTarget {
public:
    explicit WatchedTarget(ImageTarget& inner) : m_Inner(inner) {}
    HRESULT Allocate(int32_t width, int32_t height, int32_t bits, uint8_t** pixels, int32_t* stride) override {
        const HRESULT hr = m_Inner.Allocate(width, height, bits, pixels, stride);
        m_PixelsWanted = hr == S_OK;
        return hr;
    }
    bool PixelsWanted() const { return m_PixelsWanted; }

private:
    ImageTarget& m_Inner;
    bool m_PixelsWanted = false;
};

}  // namespace

bool ReadFileBytes(const std::string& path, JpegBlock& bytes) {
    bytes.size = 0;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat status {};
    const bool ok = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= kMaxFileBytes &&
                    bytes.Reserve(static_cast<size_t>(status.st_size));
    const size_t wanted = ok ? static_cast<size_t>(status.st_size) : 0;
    while (bytes.size < wanted) {
        const ssize_t got = ::read(fd, bytes.data + bytes.size, wanted - bytes.size);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        bytes.size += static_cast<size_t>(got);
    }
    ::close(fd);
    return ok;
}

HRESULT DecodeImageBytes(const uint8_t* data, size_t size, ImageTarget& target, bool inBands, bool& sequential) {
    sequential = false;
    switch (SniffFormat(data, size)) {
        case ImageFormat::Jpeg: {
            const HRESULT hr = inBands ? DecodeJpegBands(data, size, target) : S_FALSE;
            if (hr != S_FALSE) return hr;
            sequential = true;
            return DecodeJpegPlain(data, size, target);
        }
        case ImageFormat::Bmp: return DecodeBmp(data, size, target);
        case ImageFormat::Png: sequential = true; return DecodePng(data, size, target);
        case ImageFormat::None: break;
    }
    return E_FAIL;
}

ImageFormat SniffFormat(const uint8_t* data, size_t size) {
    static const uint8_t kPng[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    if (size >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF) return ImageFormat::Jpeg;
    if (size >= 8 && std::memcmp(data, kPng, 8) == 0) return ImageFormat::Png;
    if (size >= 2 && data[0] == 'B' && data[1] == 'M') return ImageFormat::Bmp;
    return ImageFormat::None;
}

ImageFormat FormatOfName(const std::wstring& name) {
    const size_t slash = name.find_last_of(L'/');
    const size_t dot = name.find_last_of(L'.');
    if (dot == std::wstring::npos || (slash != std::wstring::npos && dot < slash)) return ImageFormat::None;
    std::wstring extension = name.substr(dot + 1);
    for (wchar_t& c : extension)
        if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
    if (extension == L"jpg" || extension == L"jpeg") return ImageFormat::Jpeg;
    if (extension == L"bmp") return ImageFormat::Bmp;
    if (extension == L"png") return ImageFormat::Png;
    return ImageFormat::None;
}

HRESULT ReadImageFile(const std::string& path, ImageTarget& target, ReadAhead& ahead) {
    std::unique_ptr<JpegBlock> bytes;
    try {
        bytes = FileBuffers().Take();
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    HRESULT hr = E_FAIL;
    if (ReadFileBytes(path, *bytes)) {
        WatchedTarget watched(target);
        bool sequential = false;
        if (!ahead.Serve(path, bytes->data, bytes->size, watched, hr, sequential))
            hr = DecodeImageBytes(bytes->data, bytes->size, watched, true, sequential);
        if (hr >= 0 && watched.PixelsWanted()) ahead.Follow(path, sequential);
    }
    if (bytes->capacity <= kLargestKeptFile) FileBuffers().Give(std::move(bytes));
    return hr;
}

HRESULT WriteImageFile(const std::string& path, ImageFormat format, const ImageView& image, int quality) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return E_FAIL;
    std::setvbuf(file, nullptr, _IOFBF, kWriteBuffer);
    HRESULT hr = E_INVALIDARG;
    switch (format) {
        case ImageFormat::Jpeg: hr = EncodeJpeg(file, image, std::clamp(quality, 1, 100)); break;
        case ImageFormat::Bmp: hr = EncodeBmp(file, image); break;
        case ImageFormat::Png: hr = EncodePng(file, image); break;
        case ImageFormat::None: break;
    }
    if (std::fclose(file) != 0 && hr >= 0) hr = E_FAIL;
    if (hr < 0) std::remove(path.c_str());
    return hr;
}
