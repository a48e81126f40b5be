#include "framework/CollectionsEx/ComponentString.h"

#include <new>

#include "framework/CollectionsEx/CollectionsEx.h"
#include "framework/CollectionsEx/GlobalComponentCollection.h"
#include "framework/common/KitString.h"
#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CComponentString, L"ComponentString")

const InterfaceEntry<CComponentString> CComponentString::kInterfaces[] = {
    InterfaceEntry<CComponentString>::Of<IComponentString>(IID_IComponentString),
    InterfaceEntry<CComponentString>::Of<IDataPersist>(IID_IDataPersist),
    InterfaceEntry<CComponentString>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CComponentString>::End(),
};

namespace {

const wchar_t kLibraryKey[] = L"Library";
const wchar_t kClassKey[] = L"Class";

}  // namespace

void CComponentString::SetPart(int32_t kind, std::wstring text) {
    if (text.empty())
        m_Parts.erase(kind);
    else
        m_Parts[kind] = std::move(text);
    if (kind == kClassKind) {
        const std::wstring* cls = Part(kClassKind);
        m_OwnCreator = cls ? CollectionsExFindClass(static_cast<int32_t>(cls->size()), cls->c_str())
                           : nullptr;
    }
}

const std::wstring* CComponentString::Part(int32_t kind) const {
    auto found = m_Parts.find(kind);
    return found == m_Parts.end() ? nullptr : &found->second;
}

HRESULT CComponentString::Register(int32_t kind, tagREFString name) {
    std::wstring text;
    if (!KitViewText(name, text)) return E_POINTER;
    try {
        SetPart(kind, std::move(text));
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CComponentString::CreateInstance(const IID* iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!iid) return E_POINTER;
    if (m_OwnCreator) return m_OwnCreator(nullptr, iid, object);
    const std::wstring* cls = Part(kClassKind);
    if (!cls) return E_FAIL;
    // Other classes go through the collection given to this module, else
    // the process's global collection (this module's own instance).
    SmartPtr<IComponentCollection> collection = KitGivenCollection();
    if (!collection) collection.Assign(CGlobalComponentCollection::Instance());
    if (!collection) return E_FAIL;
    HRESULT hr = collection->CreateObject(KitView(*cls), iid, object);
    if (hr < 0) *object = nullptr;
    return hr;
}

HRESULT CComponentString::put_Object(IUnknown* object) {
    if (!object) return E_POINTER;
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object, IID_IObjectInfo);
    if (!info) return E_NOINTERFACE;
    tagREFString name{0, nullptr};
    HRESULT hr = info->GetName(0, &name);
    if (hr < 0) return hr;
    std::wstring text;
    if (!KitViewText(name, text) || text.empty()) return E_FAIL;
    try {
        SetPart(kClassKind, std::move(text));
        m_Parts.erase(kLibraryKind);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CComponentString::GetNameString(int32_t index, IString** name) {
    if (!name) return E_POINTER;
    *name = nullptr;
    std::wstring text;
    try {
        if (index == 0) {
            // "library.class", or the class alone without a library.
            const std::wstring* cls = Part(kClassKind);
            if (!cls) return E_FAIL;
            const std::wstring* library = Part(kLibraryKind);
            text = library ? *library + L"." + *cls : *cls;
        } else {
            const std::wstring* part = Part(index);
            if (!part) return E_FAIL;
            text = *part;
        }
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    SmartPtr<IString> result = KitNewString(text);
    if (!result) return E_FAIL;
    *name = result.Detach();
    return S_OK;
}

HRESULT CComponentString::Save(IDataStream* stream, int32_t /*flags*/) {
    if (!stream) return E_POINTER;
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_NOINTERFACE;
    const std::wstring* library = Part(kLibraryKind);
    const std::wstring* cls = Part(kClassKind);
    SmartPtr<IString> libraryKey = KitNewString(kLibraryKey);
    SmartPtr<IString> libraryValue = KitNewString(library ? *library : std::wstring());
    SmartPtr<IString> classKey = KitNewString(kClassKey);
    SmartPtr<IString> classValue = KitNewString(cls ? *cls : std::wstring());
    if (!libraryKey || !libraryValue || !classKey || !classValue) return E_FAIL;
    HRESULT hr = folder->WriteString(libraryKey.Get(), libraryValue.Get());
    if (hr < 0) return hr;
    return folder->WriteString(classKey.Get(), classValue.Get());
}

HRESULT CComponentString::Load(IDataStream* stream, int32_t /*flags*/) {
    if (!stream) return E_POINTER;
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_NOINTERFACE;
    SmartPtr<IString> libraryKey = KitNewString(kLibraryKey);
    SmartPtr<IString> libraryValue = KitNewString(std::wstring());
    SmartPtr<IString> classKey = KitNewString(kClassKey);
    SmartPtr<IString> classValue = KitNewString(std::wstring());
    if (!libraryKey || !libraryValue || !classKey || !classValue) return E_FAIL;
    if (folder->ReadString(classKey.Get(), classValue.Get()) < 0) return E_FAIL;
    bool hasLibrary = folder->ReadString(libraryKey.Get(), libraryValue.Get()) >= 0;
    try {
        SetPart(kClassKind, KitTextOf(classValue.Get()));
        SetPart(kLibraryKind, hasLibrary ? KitTextOf(libraryValue.Get()) : std::wstring());
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}
