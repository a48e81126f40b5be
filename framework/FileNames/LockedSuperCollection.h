// ISuperCollection over named entries and a list of overlays, every
// operation under one mutex: for the kit objects that other threads reach
// while the host uses them (the file list with its watch thread, the viewer
// fed by a camera thread). Header only; "UIPropPages" uses it too.
//
// Items given back (removed, replaced, cleared) are released after the
// mutex is let go, so that an item's destruction may call into the owner.
#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "framework/common/KitCollections.h"

class LockedSuperCollectionImpl : public INamedCollectionImpl<ISuperCollection> {
    using Named = INamedCollectionImpl<ISuperCollection>;

public:
    HRESULT get_Count(int32_t* count) override {
        std::lock_guard<std::mutex> guard(m_Lock);
        return Named::get_Count(count);
    }

    HRESULT get_Item(int32_t index, IUnknown** item) override {
        std::lock_guard<std::mutex> guard(m_Lock);
        return Named::get_Item(index, item);
    }

    int32_t IndexOf(IUnknown* item) override {
        // The identity is asked for before the lock is taken: the item is
        // a foreign object.
        IUnknown* identity = KitIdentityOf(item);
        std::lock_guard<std::mutex> guard(m_Lock);
        for (size_t i = 0; i < m_Entries.size(); ++i)
            if (m_Entries[i].identity == identity) return static_cast<int32_t>(i);
        return E_FAIL;
    }

    HRESULT get_Name(int32_t index, IString** name) override {
        std::lock_guard<std::mutex> guard(m_Lock);
        return Named::get_Name(index, name);
    }

    HRESULT get_ItemByName(tagREFString name, IUnknown** item) override {
        std::lock_guard<std::mutex> guard(m_Lock);
        return Named::get_ItemByName(name, item);
    }

    HRESULT AddNamed(tagREFString name, IUnknown* item) override {
        std::lock_guard<std::mutex> guard(m_Lock);
        return Named::AddNamed(name, item);
    }

    HRESULT Remove(int32_t index) override {
        SmartPtr<IUnknown> released;
        std::lock_guard<std::mutex> guard(m_Lock);
        if (ValidIndex(index)) released = m_Entries[static_cast<size_t>(index)].item;
        return Named::Remove(index);
    }

    HRESULT RemoveAll() override {
        std::vector<Entry> released;
        std::lock_guard<std::mutex> guard(m_Lock);
        released.swap(m_Entries);
        return S_OK;
    }

    HRESULT get_FileAttributes(int32_t index, IFileAttributes** attributes) override {
        if (!attributes) return E_POINTER;
        *attributes = nullptr;
        SmartPtr<IUnknown> item;
        {
            std::lock_guard<std::mutex> guard(m_Lock);
            if (!ValidIndex(index)) return E_INVALIDARG;
            item = m_Entries[static_cast<size_t>(index)].item;
        }
        if (!item) return E_NOINTERFACE;
        HRESULT hr = item->QueryInterface(IID_IFileAttributes, reinterpret_cast<void**>(attributes));
        if (hr < 0) *attributes = nullptr;
        return hr;
    }

    /// Appends an entry with an empty name (a null item is allowed).
    HRESULT Add(IUnknown* item) override {
        std::lock_guard<std::mutex> guard(m_Lock);
        return InsertEntry(m_Entries.size(), tagREFString{0, nullptr}, item);
    }

    HRESULT Insert(int32_t index, tagREFString name, IUnknown* item) override {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (index < 0 || static_cast<size_t>(index) > m_Entries.size()) return E_INVALIDARG;
        return InsertEntry(static_cast<size_t>(index), name, item);
    }

    HRESULT put_Name(int32_t index, tagREFString name) override {
        std::wstring text;
        if (!KitViewText(name, text)) return E_POINTER;
        std::lock_guard<std::mutex> guard(m_Lock);
        if (!ValidIndex(index)) return E_INVALIDARG;
        m_Entries[static_cast<size_t>(index)].name.swap(text);
        return S_OK;
    }

    HRESULT Replace(int32_t index, IUnknown* item) override {
        SmartPtr<IUnknown> released;
        std::lock_guard<std::mutex> guard(m_Lock);
        if (ValidIndex(index)) released = m_Entries[static_cast<size_t>(index)].item;
        return ReplaceItem(index, item);
    }

    int32_t IndexOfName(tagREFString name) override {
        std::wstring wanted;
        if (!KitViewText(name, wanted)) return E_POINTER;
        std::lock_guard<std::mutex> guard(m_Lock);
        return FindName(wanted);
    }

    HRESULT get_OverlayCount(int32_t* count) override {
        if (!count) return E_POINTER;
        std::lock_guard<std::mutex> guard(m_Lock);
        *count = static_cast<int32_t>(m_Overlays.size());
        return S_OK;
    }

    HRESULT get_Overlay(int32_t index, IUnknown** overlay) override {
        if (!overlay) return E_POINTER;
        *overlay = nullptr;
        std::lock_guard<std::mutex> guard(m_Lock);
        if (index < 0 || static_cast<size_t>(index) >= m_Overlays.size()) return E_INVALIDARG;
        m_Overlays[static_cast<size_t>(index)].CopyTo(overlay);
        return S_OK;
    }

    HRESULT AddOverlay(IUnknown* overlay) override {
        if (!overlay) return E_POINTER;
        std::lock_guard<std::mutex> guard(m_Lock);
        try {
            m_Overlays.emplace_back(overlay);
        } catch (const std::bad_alloc&) {
            return E_FAIL;
        }
        return S_OK;
    }

    HRESULT RemoveOverlays() override {
        std::vector<SmartPtr<IUnknown>> released;
        std::lock_guard<std::mutex> guard(m_Lock);
        released.swap(m_Overlays);
        return S_OK;
    }

protected:
    LockedSuperCollectionImpl() = default;
    ~LockedSuperCollectionImpl() = default;

    /// Guards the entries and the overlays; a deriving class may guard its
    /// own state with it too.
    std::mutex m_Lock;
    std::vector<SmartPtr<IUnknown>> m_Overlays;
};
