#include "framework/CollectionsEx/Variant.h"

#include <cmath>
#include <utility>

LUM_KIT_OBJECT_NAME(CVariant, L"Variant")

const InterfaceEntry<CVariant> CVariant::kInterfaces[] = {
    InterfaceEntry<CVariant>::Of<IVariant>(IID_IVariant),
    InterfaceEntry<CVariant>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CVariant>::End(),
};

HRESULT CVariant::get_Type(int16_t* type) {
    if (!type) return E_POINTER;
    *type = m_Kind == kInteger ? 1 : m_Kind == kDouble ? 2 : 0;
    return S_OK;
}

HRESULT CVariant::get_Double(double* value) {
    if (!value) return E_POINTER;
    switch (m_Kind) {
        case kInteger: *value = m_Integer; return S_OK;
        case kDouble: *value = m_Double; return S_OK;
        default: *value = 0.0; return S_FALSE;
    }
}

HRESULT CVariant::get_Integer(int32_t* value) {
    if (!value) return E_POINTER;
    switch (m_Kind) {
        case kInteger: *value = m_Integer; return S_OK;
        case kDouble: {
            double truncated = std::trunc(m_Double);
            if (std::isnan(truncated))
                *value = 0;
            else if (truncated >= 2147483647.0)
                *value = INT32_MAX;
            else if (truncated <= -2147483648.0)
                *value = INT32_MIN;
            else
                *value = static_cast<int32_t>(truncated);
            return S_OK;
        }
        default: *value = 0; return S_FALSE;
    }
}

HRESULT CVariant::get_Object(IUnknown** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (m_Kind != kObject) return S_FALSE;
    m_Object.CopyTo(object);
    return S_OK;
}

HRESULT CVariant::IsString(int16_t* isString) {
    if (!isString) return E_POINTER;
    *isString = m_Kind == kString ? 1 : 0;
    return S_OK;
}

HRESULT CVariant::get_String(IString** text) {
    if (!text) return E_POINTER;
    *text = nullptr;
    if (m_Kind != kString) return E_FAIL;
    m_String.CopyTo(text);
    return S_OK;
}

HRESULT CVariant::put_Integer(int32_t value) {
    Clear();
    m_Kind = kInteger;
    m_Integer = value;
    return S_OK;
}

HRESULT CVariant::put_Double(double value) {
    Clear();
    m_Kind = kDouble;
    m_Double = value;
    return S_OK;
}

HRESULT CVariant::put_String(IString* text) {
    if (!text) return E_POINTER;
    SmartPtr<IString> held(text);  // taken before Clear: `text` may be the string held now
    Clear();
    m_String = std::move(held);
    m_Kind = kString;
    return S_OK;
}

HRESULT CVariant::put_Object(IUnknown* object) {
    if (!object) return E_POINTER;
    SmartPtr<IUnknown> held(object);
    Clear();
    m_Object = std::move(held);
    m_Kind = kObject;
    return S_OK;
}

HRESULT CVariant::Clear() {
    // The old value is released last, after the variant is consistent.
    SmartPtr<IString> oldString = std::move(m_String);
    SmartPtr<IUnknown> oldObject = std::move(m_Object);
    m_Kind = kEmpty;
    m_Integer = 0;
    m_Double = 0.0;
    return S_OK;
}
