#include "framework/LUMVideo/MJPEG.h"

#include <algorithm>
#include <climits>
#include <new>

#include "framework/LUMVideo/AviWriter.h"
#include "framework/LUMVideo/FrameDecoding.h"

LUM_KIT_OBJECT_NAME(CMJPEG, L"LUMMJPEG")

const InterfaceEntry<CMJPEG> CMJPEG::kInterfaces[] = {
    InterfaceEntry<CMJPEG>::Of<ICreatableSimpleCollection>(IID_ICreatableSimpleCollection),
    InterfaceEntry<CMJPEG>::Of<ICreatableSimpleCollection>(IID_ISimpleCollection),
    InterfaceEntry<CMJPEG>::Of<ILUMAVI>(IID_ILUMAVI),
    InterfaceEntry<CMJPEG>::Of<IFileArchive>(IID_IFileArchive),
    InterfaceEntry<CMJPEG>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CMJPEG>::End(),
};

namespace {

// Smallest part limit a test may set: room for the headers and a frame.
constexpr int32_t kSmallestPartLimit = 4096;

}  // namespace

HRESULT CMJPEG::get_Count(int32_t* count) {
    if (!count) return E_POINTER;
    *count = static_cast<int32_t>(m_Frames.Count());
    return S_OK;
}

HRESULT CMJPEG::get_Item(int32_t index, IUnknown** item) {
    if (!item) return E_POINTER;
    *item = nullptr;
    if (index < 0 || size_t(index) >= m_Frames.Count()) return E_INVALIDARG;
    std::vector<uint8_t> coded;
    SmartPtr<ILUMImageDIB> image;
    if (m_Frames.Read(size_t(index), coded) < 0 || DecodeJpegFrame(coded, image) < 0) return E_FAIL;
    return image->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(item));
}

HRESULT CMJPEG::Add(IUnknown* item) {
    if (!item) return E_POINTER;
    SmartPtr<ILUM> image = QueryAs<ILUM>(item, IID_ILUM);
    if (!image) return E_NOINTERFACE;
    ImageView view{};
    if (ViewOf(image.Get(), view) < 0) return E_INVALIDARG;
    const bool gray = view.bits == 8;
    if (m_Frames.Count() > 0 && (view.width != m_Width || view.height != m_Height || gray != m_Gray))
        return E_INVALIDARG;
    if (m_Frames.Count() >= size_t(INT32_MAX)) return E_FAIL;
    if (EncodeJpegToMemory(view, m_Quality, m_Coded) < 0 || m_Coded.size > kAviMaxFrameBytes) return E_FAIL;
    if (m_Frames.Append(m_Coded.data, m_Coded.size) < 0) return E_FAIL;
    if (m_Frames.Count() == 1) {
        m_Width = view.width;
        m_Height = view.height;
        m_Gray = gray;
    }
    return S_OK;
}

HRESULT CMJPEG::Remove(int32_t index) {
    if (index < 0 || size_t(index) >= m_Frames.Count()) return E_INVALIDARG;
    m_Frames.Remove(size_t(index));
    return S_OK;
}

HRESULT CMJPEG::RemoveAll() {
    m_Frames.Clear();
    return S_OK;
}

HRESULT CMJPEG::SetOption(int32_t option, int32_t value) {
    switch (option) {
        case kOptionRate:
            m_Rate = std::max(value, 1);
            return S_OK;
        case kOptionQuality:
            m_Quality = std::clamp(value, 1, 100);
            return S_OK;
        case kOptionPartLimit:
            if (value != 0 && (value < kSmallestPartLimit || uint64_t(value) > kAviPartLimit)) return E_INVALIDARG;
            m_PartLimit = value;
            return S_OK;
        default:
            return E_INVALIDARG;
    }
}

HRESULT CMJPEG::GetOption(int32_t option, int32_t* value) {
    if (!value) return E_POINTER;
    switch (option) {
        case kOptionRate: *value = m_Rate; return S_OK;
        case kOptionQuality: *value = m_Quality; return S_OK;
        case kOptionPartLimit: *value = m_PartLimit; return S_OK;
        default: return E_INVALIDARG;
    }
}

HRESULT CMJPEG::Save() {
    if (m_Frames.Count() == 0) return E_FAIL;
    std::string path;
    if (!m_FileName.Path(path)) return E_FAIL;
    AviWriteSettings settings;
    settings.width = m_Width;
    settings.height = m_Height;
    settings.rate = m_Rate;
    settings.partLimit = uint64_t(m_PartLimit);
    return WriteMjpegAvi(path, settings, m_Frames);
}
