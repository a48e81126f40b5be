#include "framework/common/KitString.h"

#include <cwchar>
#include <new>

LUM_KIT_OBJECT_NAME(CCreatableString, L"CreatableString")

const InterfaceEntry<CCreatableString> CCreatableString::kInterfaces[] = {
    InterfaceEntry<CCreatableString>::Of<ICreatableString>(IID_IString),
    InterfaceEntry<CCreatableString>::Of<ICreatableString>(IID_ICreatableString),
    InterfaceEntry<CCreatableString>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CCreatableString>::End(),
};

namespace {

// The argument rules of SetText and Append: a negative length reads up to
// the terminator, a null text with a length of at most 0 is empty text, a
// null text with a positive length is an error.
HRESULT ArgumentText(int32_t length, const wchar_t* text, const wchar_t** begin, size_t* count) {
    if (!text) {
        if (length > 0) return E_POINTER;
        *begin = L"";
        *count = 0;
        return S_OK;
    }
    *begin = text;
    *count = length < 0 ? std::wcslen(text) : static_cast<size_t>(length);
    return S_OK;
}

}  // namespace

HRESULT CCreatableString::GetText(wchar_t** text, int32_t* length) {
    if (text) *text = const_cast<wchar_t*>(m_Text.c_str());
    if (length) *length = static_cast<int32_t>(m_Text.size());
    return S_OK;
}

HRESULT CCreatableString::SetText(int32_t length, const wchar_t* text) {
    const wchar_t* begin;
    size_t count;
    HRESULT hr = ArgumentText(length, text, &begin, &count);
    if (hr != S_OK) return hr;
    try {
        // assign() copes with a source inside the string's own characters.
        m_Text.assign(begin, count);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CCreatableString::Append(int32_t length, const wchar_t* text) {
    const wchar_t* begin;
    size_t count;
    HRESULT hr = ArgumentText(length, text, &begin, &count);
    if (hr != S_OK) return hr;
    if (m_Text.size() + count > static_cast<size_t>(INT32_MAX)) return E_INVALIDARG;
    try {
        m_Text.append(begin, count);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CCreatableString::get_Length(int32_t* length) {
    if (!length) return E_POINTER;
    *length = static_cast<int32_t>(m_Text.size());
    return S_OK;
}

SmartPtr<IString> KitNewString(const std::wstring& text) {
    auto* created = new (std::nothrow) CCreatableString();
    if (!created) return nullptr;
    SmartPtr<IString> string = SmartPtr<IString>::Adopt(static_cast<ICreatableString*>(created));
    if (string->SetText(static_cast<int32_t>(text.size()), text.c_str()) != S_OK) return nullptr;
    return string;
}
