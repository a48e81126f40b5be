#include "framework/CollectionsEx/SimpleCollection.h"

#include <new>
#include <utility>

LUM_KIT_OBJECT_NAME(CSimpleCollection, L"SimpleCollection")

const InterfaceEntry<CSimpleCollection> CSimpleCollection::kInterfaces[] = {
    InterfaceEntry<CSimpleCollection>::Of<ICreatableSimpleCollection>(IID_ICreatableSimpleCollection),
    InterfaceEntry<CSimpleCollection>::Of<ICreatableSimpleCollection>(IID_ISimpleCollection),
    InterfaceEntry<CSimpleCollection>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CSimpleCollection>::End(),
};

HRESULT CSimpleCollection::get_Count(int32_t* count) {
    if (!count) return E_POINTER;
    *count = static_cast<int32_t>(m_Items.size());
    return S_OK;
}

HRESULT CSimpleCollection::get_Item(int32_t index, IUnknown** item) {
    if (!item) return E_POINTER;
    *item = nullptr;
    if (index < 0 || static_cast<size_t>(index) >= m_Items.size()) return E_INVALIDARG;
    m_Items[static_cast<size_t>(index)].CopyTo(item);
    return S_OK;
}

HRESULT CSimpleCollection::Add(IUnknown* item) {
    if (!item) return E_POINTER;
    try {
        m_Items.emplace_back(item);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CSimpleCollection::Remove(int32_t index) {
    if (index < 0 || static_cast<size_t>(index) >= m_Items.size()) return E_INVALIDARG;
    SmartPtr<IUnknown> released = std::move(m_Items[static_cast<size_t>(index)]);
    m_Items.erase(m_Items.begin() + index);
    return S_OK;
}

HRESULT CSimpleCollection::RemoveAll() {
    std::vector<SmartPtr<IUnknown>> released;
    released.swap(m_Items);
    return S_OK;
}
