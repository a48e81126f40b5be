#include "framework/LUMImage/Stack.h"

#include <new>
#include <utility>
#include <vector>

LUM_KIT_OBJECT_NAME(CStack, L"LUMStack")

const InterfaceEntry<CStack> CStack::kInterfaces[] = {
    InterfaceEntry<CStack>::Of<IStackCollection>(IID_IStackCollection),
    InterfaceEntry<CStack>::Of<ISimpleCollection>(IID_ISimpleCollection),
    InterfaceEntry<CStack>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CStack>::End(),
};

// Items leave the stack under the lock but are released after it: releasing
// an item may run arbitrary code, even code that uses this stack again.

HRESULT CStack::HandOut(const SmartPtr<IUnknown>* entry, IUnknown** item) {
    if (!entry) return E_FAIL;
    entry->CopyTo(item);
    return S_OK;
}

HRESULT CStack::Add(IUnknown* item) {
    SmartPtr<IUnknown> kept(item);
    SmartPtr<IUnknown> dropped;
    std::lock_guard<std::mutex> guard(m_Lock);
    try {
        m_Items.push_back(std::move(kept));
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    if (Bounded() && m_Items.size() > static_cast<size_t>(m_Capacity)) {
        dropped = std::move(m_Items.front());
        m_Items.pop_front();
    }
    return S_OK;
}

HRESULT CStack::RemoveNewest(IUnknown** item) {
    if (!item) return E_POINTER;
    *item = nullptr;
    std::lock_guard<std::mutex> guard(m_Lock);
    if (m_Items.empty()) return E_FAIL;
    *item = m_Items.back().Detach();
    m_Items.pop_back();
    return S_OK;
}

HRESULT CStack::RemoveOldest(IUnknown** item) {
    if (!item) return E_POINTER;
    *item = nullptr;
    std::lock_guard<std::mutex> guard(m_Lock);
    if (m_Items.empty()) return E_FAIL;
    *item = m_Items.front().Detach();
    m_Items.pop_front();
    return S_OK;
}

HRESULT CStack::get_Newest(IUnknown** item) {
    if (!item) return E_POINTER;
    *item = nullptr;
    std::lock_guard<std::mutex> guard(m_Lock);
    return HandOut(m_Items.empty() ? nullptr : &m_Items.back(), item);
}

HRESULT CStack::get_Oldest(IUnknown** item) {
    if (!item) return E_POINTER;
    *item = nullptr;
    std::lock_guard<std::mutex> guard(m_Lock);
    return HandOut(m_Items.empty() ? nullptr : &m_Items.front(), item);
}

HRESULT CStack::RemoveAll() {
    std::deque<SmartPtr<IUnknown>> released;
    std::lock_guard<std::mutex> guard(m_Lock);
    released.swap(m_Items);
    return S_OK;  // the guard unlocks before `released` lets go of the items
}

HRESULT CStack::GetSize(int32_t* capacity, int32_t* count) {
    std::lock_guard<std::mutex> guard(m_Lock);
    if (capacity) *capacity = m_Capacity;
    if (count) *count = static_cast<int32_t>(m_Items.size());
    return S_OK;
}

HRESULT CStack::SetSize(int32_t capacity, int32_t mode) {
    std::vector<SmartPtr<IUnknown>> dropped;
    std::lock_guard<std::mutex> guard(m_Lock);
    if (mode != 0 && capacity >= 1 && m_Items.size() > static_cast<size_t>(capacity)) {
        try {
            dropped.reserve(m_Items.size() - static_cast<size_t>(capacity));
        } catch (const std::bad_alloc&) {
            return E_FAIL;
        }
        while (m_Items.size() > static_cast<size_t>(capacity)) {
            dropped.push_back(std::move(m_Items.front()));
            m_Items.pop_front();
        }
    }
    m_Capacity = capacity;
    m_Mode = mode;
    return S_OK;
}

HRESULT CStack::get_Count(int32_t* count) {
    if (!count) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    *count = static_cast<int32_t>(m_Items.size());
    return S_OK;
}

HRESULT CStack::get_Item(int32_t index, IUnknown** item) {
    if (!item) return E_POINTER;
    *item = nullptr;
    std::lock_guard<std::mutex> guard(m_Lock);
    if (index < 0 || static_cast<size_t>(index) >= m_Items.size()) return E_INVALIDARG;
    m_Items[static_cast<size_t>(index)].CopyTo(item);
    return S_OK;
}
