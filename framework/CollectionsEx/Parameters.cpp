#include "framework/CollectionsEx/Parameters.h"

LUM_KIT_OBJECT_NAME(CParameters, L"Parameters")

const InterfaceEntry<CParameters> CParameters::kInterfaces[] = {
    InterfaceEntry<CParameters>::Of<IParametersCreatable>(IID_IParametersCreatable),
    InterfaceEntry<CParameters>::Of<INamedCollection>(IID_INamedCollection),
    InterfaceEntry<CParameters>::Of<INamedCollection>(IID_ISimpleCollection),
    InterfaceEntry<CParameters>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CParameters>::End(),
};

HRESULT CParameters::AddParameter(tagREFString name, IUnknown* value) {
    return InsertEntry(m_Entries.size(), name, value);
}

HRESULT CParameters::AddText(tagREFString name, tagREFString text) {
    std::wstring characters;
    if (!KitViewText(text, characters)) return E_POINTER;
    SmartPtr<IString> string = KitNewString(characters);
    if (!string) return E_FAIL;
    return InsertEntry(m_Entries.size(), name, string.Get());
}

HRESULT CParameters::get_Parameter(tagREFString name, IUnknown** value) {
    return get_ItemByName(name, value);
}
