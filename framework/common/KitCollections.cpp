#include "framework/common/KitCollections.h"

LUM_KIT_OBJECT_NAME(CSuperCollection, L"SuperCollection")

// ISuperCollection derives from INamedCollection and ISimpleCollection, so
// its part answers all three.
const InterfaceEntry<CSuperCollection> CSuperCollection::kInterfaces[] = {
    InterfaceEntry<CSuperCollection>::Of<ISuperCollection>(IID_ISuperCollection),
    InterfaceEntry<CSuperCollection>::Of<ISuperCollection>(IID_INamedCollection),
    InterfaceEntry<CSuperCollection>::Of<ISuperCollection>(IID_ISimpleCollection),
    InterfaceEntry<CSuperCollection>::Of<ICreatableSimpleCollection>(IID_ICreatableSimpleCollection),
    InterfaceEntry<CSuperCollection>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CSuperCollection>::End(),
};

IUnknown* KitIdentityOf(IUnknown* object) {
    if (!object) return nullptr;
    IUnknown* identity = nullptr;
    if (object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)) < 0 || !identity)
        return object;
    // Only the address is kept; the entry's own reference keeps the object alive.
    identity->Release();
    return identity;
}

HRESULT CSuperCollection::Add(IUnknown* item) {
    return InsertEntry(m_Entries.size(), tagREFString{0, nullptr}, item);
}

HRESULT CSuperCollection::get_FileAttributes(int32_t index, IFileAttributes** attributes) {
    if (!attributes) return E_POINTER;
    *attributes = nullptr;
    if (!ValidIndex(index)) return E_INVALIDARG;
    IUnknown* item = m_Entries[static_cast<size_t>(index)].item.Get();
    if (!item) return E_NOINTERFACE;
    HRESULT hr = item->QueryInterface(IID_IFileAttributes, reinterpret_cast<void**>(attributes));
    if (hr < 0) *attributes = nullptr;
    return hr;
}

HRESULT CSuperCollection::Insert(int32_t index, tagREFString name, IUnknown* item) {
    // index == count appends.
    if (index < 0 || static_cast<size_t>(index) > m_Entries.size()) return E_INVALIDARG;
    return InsertEntry(static_cast<size_t>(index), name, item);
}

HRESULT CSuperCollection::put_Name(int32_t index, tagREFString name) {
    if (!ValidIndex(index)) return E_INVALIDARG;
    std::wstring text;
    if (!KitViewText(name, text)) return E_POINTER;
    m_Entries[static_cast<size_t>(index)].name.swap(text);
    return S_OK;
}

HRESULT CSuperCollection::Replace(int32_t index, IUnknown* item) { return ReplaceItem(index, item); }

int32_t CSuperCollection::IndexOfName(tagREFString name) {
    std::wstring wanted;
    if (!KitViewText(name, wanted)) return E_POINTER;
    return FindName(wanted);
}

HRESULT CSuperCollection::get_OverlayCount(int32_t* count) {
    if (!count) return E_POINTER;
    *count = static_cast<int32_t>(m_Overlays.size());
    return S_OK;
}

HRESULT CSuperCollection::get_Overlay(int32_t index, IUnknown** overlay) {
    if (!overlay) return E_POINTER;
    *overlay = nullptr;
    if (index < 0 || static_cast<size_t>(index) >= m_Overlays.size()) return E_INVALIDARG;
    m_Overlays[static_cast<size_t>(index)].CopyTo(overlay);
    return S_OK;
}

HRESULT CSuperCollection::AddOverlay(IUnknown* overlay) {
    if (!overlay) return E_POINTER;
    try {
        m_Overlays.emplace_back(overlay);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CSuperCollection::RemoveOverlays() {
    std::vector<SmartPtr<IUnknown>> released;
    released.swap(m_Overlays);
    return S_OK;
}

SmartPtr<ISuperCollection> KitNewSuperCollection() {
    auto* created = new (std::nothrow) CSuperCollection();
    if (!created) return nullptr;
    return SmartPtr<ISuperCollection>::Adopt(static_cast<ISuperCollection*>(created));
}
