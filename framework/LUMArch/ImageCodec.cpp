#include "framework/LUMArch/ImageCodec.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <new>
#include <vector>

namespace {

// Files above this size are not images this kit reads.
constexpr int64_t kMaxFileBytes = int64_t(1) << 31;
// Output buffer of the stdio stream an image is written through.
constexpr size_t kWriteBuffer = size_t(1) << 18;

bool ReadWholeFile(const std::string& path, std::vector<uint8_t>& bytes) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat status {};
    bool ok = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= kMaxFileBytes;
    if (ok) {
        try {
            bytes.resize(static_cast<size_t>(status.st_size));
        } catch (const std::bad_alloc&) {
            ok = false;
        }
    }
    size_t done = 0;
    while (ok && done < bytes.size()) {
        const ssize_t got = ::read(fd, bytes.data() + done, bytes.size() - done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            bytes.resize(done);  // the file shrank meanwhile: decode what is there
            break;
        }
        done += static_cast<size_t>(got);
    }
    ::close(fd);
    return ok;
}

}  // namespace

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

HRESULT ReadImageFile(const std::string& path, ImageTarget& target) {
    std::vector<uint8_t> bytes;
    if (!ReadWholeFile(path, bytes)) return E_FAIL;
    HRESULT hr = E_FAIL;
    switch (SniffFormat(bytes.data(), bytes.size())) {
        case ImageFormat::Jpeg: hr = DecodeJpeg(bytes.data(), bytes.size(), target); break;
        case ImageFormat::Bmp: hr = DecodeBmp(bytes.data(), bytes.size(), target); break;
        case ImageFormat::Png: hr = DecodePng(bytes.data(), bytes.size(), target); break;
        case ImageFormat::None: break;
    }
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
