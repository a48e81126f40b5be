#include "framework/LUMVideo/AVI.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "framework/LUMImage/Pixels.h"
#include "framework/LUMVideo/FrameDecoding.h"
#include "framework/LUMVideo/FrameStore.h"

LUM_KIT_OBJECT_NAME(CAVI, L"LUMAVI")

const InterfaceEntry<CAVI> CAVI::kInterfaces[] = {
    InterfaceEntry<CAVI>::Of<IFileArchive>(IID_IFileArchive),
    InterfaceEntry<CAVI>::Of<ISimpleCollection>(IID_ISimpleCollection),
    InterfaceEntry<CAVI>::Of<ILUMAVI>(IID_ILUMAVI),
    InterfaceEntry<CAVI>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CAVI>::End(),
};

CAVI::~CAVI() { Unload(); }

HRESULT CAVI::Unload() {
    if (m_File >= 0) ::close(m_File);
    m_File = -1;
    m_Video = AviVideo();
    return S_OK;
}

HRESULT CAVI::Load() {
    Unload();
    m_Rate = kDefaultRate;
    std::string path;
    if (!m_FileName.Path(path)) return E_FAIL;
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return E_FAIL;
    struct stat status {};
    AviVideo video;
    if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode) ||
        ReadAviStructure(file, uint64_t(status.st_size), video) < 0) {
        ::close(file);
        return E_FAIL;
    }
    m_File = file;
    m_Video = std::move(video);
    m_Rate = m_Video.rate;
    return S_OK;
}

HRESULT CAVI::get_Count(int32_t* count) {
    if (!count) return E_POINTER;
    *count = static_cast<int32_t>(m_Video.frames.size());
    return S_OK;
}

HRESULT CAVI::get_Item(int32_t index, IUnknown** item) {
    if (!item) return E_POINTER;
    *item = nullptr;
    if (index < 0 || size_t(index) >= m_Video.frames.size()) return E_INVALIDARG;
    const AviFrameRef frame = m_Video.frames[size_t(index)];
    // The frame's own chunk header comes along, to check that the index
    // really points at a frame of this stream.
    if (frame.size > uint64_t(CPixels::kMaxBytes)) return E_FAIL;
    std::vector<uint8_t> bytes;
    try {
        bytes.resize(size_t(frame.size) + 8);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    if (!ReadFully(m_File, frame.offset - 8, bytes.data(), bytes.size())) return E_FAIL;
    const uint32_t digits = uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8;
    const uint32_t expected = uint32_t('0' + m_Video.stream / 10) | uint32_t('0' + m_Video.stream % 10) << 8;
    if (digits != expected) return E_FAIL;
    bytes.erase(bytes.begin(), bytes.begin() + 8);

    SmartPtr<ILUMImageDIB> image;
    const HRESULT hr = m_Video.coding == AviCoding::Jpeg ? DecodeJpegFrame(bytes, image)
                                                          : DecodeRawFrame(bytes, m_Video, image);
    if (hr < 0) return E_FAIL;
    return image->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(item));
}

HRESULT CAVI::SetOption(int32_t option, int32_t value) {
    switch (option) {
        case kOptionRate: m_Rate = std::max(value, 1); return S_OK;
        case kOptionQuality: m_Quality = std::clamp(value, 1, 100); return S_OK;
        default: return E_INVALIDARG;
    }
}

HRESULT CAVI::GetOption(int32_t option, int32_t* value) {
    if (!value) return E_POINTER;
    switch (option) {
        case kOptionRate: *value = m_Rate; return S_OK;
        case kOptionQuality: *value = m_Quality; return S_OK;
        default: return E_INVALIDARG;
    }
}
