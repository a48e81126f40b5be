#include "framework/Streams/DataStream.h"

#include <cstring>
#include <new>

LUM_KIT_OBJECT_NAME(CDataStream, L"DataStream")

const InterfaceEntry<CDataStream> CDataStream::kInterfaces[] = {
    InterfaceEntry<CDataStream>::Of<IDataStream>(IID_IDataStream),
    InterfaceEntry<CDataStream>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CDataStream>::End(),
};

HRESULT CDataStream::Write(const void* bytes, int32_t count) {
    if (count < 0) return E_INVALIDARG;
    if (count == 0) return S_OK;
    if (!bytes) return E_POINTER;
    // The size must stay reportable as an int32.
    if (static_cast<size_t>(count) > static_cast<size_t>(INT32_MAX) - m_Bytes.size()) return E_INVALIDARG;
    try {
        const auto* source = static_cast<const uint8_t*>(bytes);
        m_Bytes.insert(m_Bytes.end(), source, source + count);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CDataStream::GetBytes(uint8_t** bytes, int32_t* count) {
    if (!bytes) return E_POINTER;
    static uint8_t empty = 0;
    *bytes = m_Bytes.empty() ? &empty : m_Bytes.data();
    if (count) *count = static_cast<int32_t>(m_Bytes.size());
    return S_OK;
}

HRESULT CDataStream::Read(void* buffer, int32_t count, int32_t* done) {
    if (done) *done = 0;
    if (count < 0) return E_INVALIDARG;
    if (!buffer && count > 0) return E_POINTER;
    size_t copied = std::min(static_cast<size_t>(count), m_Bytes.size() - m_ReadPos);
    if (copied) std::memcpy(buffer, m_Bytes.data() + m_ReadPos, copied);
    m_ReadPos += copied;
    if (done) *done = static_cast<int32_t>(copied);
    return copied < static_cast<size_t>(count) ? S_FALSE : S_OK;
}

HRESULT CDataStream::Clear() {
    std::vector<uint8_t>().swap(m_Bytes);
    m_ReadPos = 0;
    return S_OK;
}

HRESULT CDataStream::get_Size(int32_t* count) {
    if (!count) return E_POINTER;
    *count = static_cast<int32_t>(m_Bytes.size());
    return S_OK;
}
