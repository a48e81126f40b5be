// The parameter list: growth, lookup, teardown and the typed integer access
// shared by Inquire and Control.
#include "params/PropList.h"

#include <cstring>
#include <new>

CPropList::~CPropList() {
    for (int32_t i = 0; i < m_Count; ++i) {
        PropRecord* record = m_Items[i];
        const uint32_t type = record->Type();
        // The component releases its own string and object members.
        if (type == PropTypeString || type == PropTypeObject || type == PropTypeForeign) record->value = nullptr;
        if (record->kind == PROP_KIND_ENUMERATION && record->enumeration) record->enumeration->Release();
        delete record;
    }
    delete[] m_Items;
}

PropRecord* CPropList::Append() {
    if (m_Count >= m_Capacity) {
        const int32_t capacity = m_Capacity + m_GrowthStep;
        PropRecord** items = new (std::nothrow) PropRecord*[capacity];
        if (!items) return nullptr;
        for (int32_t i = 0; i < m_Count; ++i) items[i] = m_Items[i];
        delete[] m_Items;
        m_Items = items;
        m_Capacity = capacity;
    }
    PropRecord* record = new (std::nothrow) PropRecord{};
    if (!record) return nullptr;
    m_Items[m_Count++] = record;
    return record;
}

PropRecord* CPropList::Find(int32_t id) const {
    for (int32_t i = 0; i < m_Count; ++i)
        if (m_Items[i]->id == id) return m_Items[i];
    return nullptr;
}

HRESULT CPropList::DeclareRange(int32_t id, void* member, int32_t flags, int32_t minimum, int32_t maximum) {
    PropRecord* record = Append();
    if (!record) return E_FAIL;
    record->id = id;
    record->value = member;
    record->flags = static_cast<uint32_t>(flags);
    if ((record->flags & PROP_TYPE_MASK) == PropTypeNone) record->flags += PropTypeLong;
    record->kind = PROP_KIND_RANGE;
    record->range.minimum = minimum;
    record->range.maximum = maximum;
    return S_OK;
}

int32_t PROPFloatBits(float value) {
    int32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

float PROPBitsFloat(int32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

HRESULT PROPReadInteger(const PropRecord& record, int32_t* value) {
    if (!value || !record.value) return static_cast<HRESULT>(record.flags);
    switch (record.Type()) {
        case PropTypeByte: *value = PROPLoad<uint8_t>(record.value); break;
        case PropTypeShort: *value = PROPLoad<int16_t>(record.value); break;
        case PropTypeLong: *value = PROPLoad<int32_t>(record.value); break;
        case PropTypeFloat: *value = PROPFloatBits(PROPLoad<float>(record.value)); break;
        case PropTypeDouble: *value = PROPFloatBits(static_cast<float>(PROPLoad<double>(record.value))); break;
        case PropTypeVoid: *value = 0; break;
        default: return E_FAIL;
    }
    return static_cast<HRESULT>(record.flags);
}

void PROPWriteInteger(const PropRecord& record, int32_t value) {
    if (!record.value) return;
    switch (record.Type()) {
        case PropTypeByte: PROPStore<uint8_t>(record.value, static_cast<uint8_t>(value)); break;
        case PropTypeShort: PROPStore<int16_t>(record.value, static_cast<int16_t>(value)); break;
        case PropTypeLong: PROPStore<int32_t>(record.value, value); break;
        case PropTypeFloat: PROPStore<float>(record.value, PROPBitsFloat(value)); break;
        case PropTypeDouble: PROPStore<double>(record.value, PROPBitsFloat(value)); break;
        default: break;
    }
}
