#include "components/ComponentBase.h"

#include "text/REFString.h"

SmartPtr<IString> MakeString(const wchar_t* text) {
    SmartPtr<IString> string = SmartPtr<IString>::Adopt(CREFString::CreateString());
    if (string) string->SetText(-1, text);
    return string;
}

HRESULT HandOutPages(std::initializer_list<const wchar_t*> pages, INamedCollection** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    SmartPtr<ISuperCollection> collection = SmartPtr<ISuperCollection>::Adopt(CREFString::CreateCollection());
    if (!collection) return E_FAIL;
    for (const wchar_t* page : pages) collection->AddNamed(REFStr(L""), MakeString(page).Get());
    *out = collection.Detach();
    return S_OK;
}
