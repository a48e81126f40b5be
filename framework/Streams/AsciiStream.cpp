#include "framework/Streams/AsciiStream.h"

#include <cstring>
#include <new>
#include <string>

#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CASCIIStream, L"ASCIIStream")

const InterfaceEntry<CASCIIStream> CASCIIStream::kInterfaces[] = {
    InterfaceEntry<CASCIIStream>::Of<IStreamTransform>(IID_IStreamTransform),
    InterfaceEntry<CASCIIStream>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CASCIIStream>::End(),
};

HRESULT CASCIIStream::Transform(IDataStream* source, IDataStream* target) {
    if (!source || !target) return E_POINTER;
    uint8_t* bytes = nullptr;
    int32_t count = 0;
    HRESULT hr = source->GetBytes(&bytes, &count);
    if (hr < 0) return hr;
    if (count <= 0) return S_OK;
    if (!bytes) return E_FAIL;
    std::string utf8;
    try {
        // Copied out first: the source's view may be unaligned, and writing
        // to the target could change it when both are the same stream.
        std::wstring text(static_cast<size_t>(count) / sizeof(wchar_t), L'\0');
        if (!text.empty()) std::memcpy(text.data(), bytes, text.size() * sizeof(wchar_t));
        utf8 = KitEncodeUtf8(text);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    if (utf8.size() > static_cast<size_t>(INT32_MAX)) return E_FAIL;
    if (utf8.empty()) return S_OK;
    return target->Write(utf8.data(), static_cast<int32_t>(utf8.size()));
}
