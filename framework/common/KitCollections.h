// Ordered (name, item) entries: the INamedCollection operations shared by
// "SuperCollection", "Parameters" and every kit class that lists named
// items, and the "SuperCollection" class itself.
#pragma once

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "framework/common/KitModule.h"
#include "framework/common/KitString.h"
#include "framework/common/KitText.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

/// Object identity (the IUnknown answer); the pointer itself for an object
/// that does not answer IUnknown, null for null.
IUnknown* KitIdentityOf(IUnknown* object);

/// The INamedCollection operations over `m_Entries`, for a class whose
/// interface `Base` is INamedCollection or derives from it. Not locked: the
/// objects using it are used by one thread at a time.
template <class Base>
class INamedCollectionImpl : public Base {
public:
    HRESULT get_Count(int32_t* count) override {
        if (!count) return E_POINTER;
        *count = static_cast<int32_t>(m_Entries.size());
        return S_OK;
    }

    /// An entry whose item is null gives S_FALSE and null.
    HRESULT get_Item(int32_t index, IUnknown** item) override {
        if (!item) return E_POINTER;
        *item = nullptr;
        if (!ValidIndex(index)) return E_INVALIDARG;
        m_Entries[static_cast<size_t>(index)].item.CopyTo(item);
        return *item ? S_OK : S_FALSE;
    }

    /// The first entry whose item is the same object; null finds the first
    /// entry without an item.
    int32_t IndexOf(IUnknown* item) override {
        IUnknown* identity = KitIdentityOf(item);
        for (size_t i = 0; i < m_Entries.size(); ++i)
            if (m_Entries[i].identity == identity) return static_cast<int32_t>(i);
        return E_FAIL;
    }

    HRESULT get_Name(int32_t index, IString** name) override {
        if (!name) return E_POINTER;
        *name = nullptr;
        if (!ValidIndex(index)) return E_INVALIDARG;
        SmartPtr<IString> text = KitNewString(m_Entries[static_cast<size_t>(index)].name);
        if (!text) return E_FAIL;
        *name = text.Detach();
        return S_OK;
    }

    HRESULT get_ItemByName(tagREFString name, IUnknown** item) override {
        if (!item) return E_POINTER;
        *item = nullptr;
        std::wstring wanted;
        if (!KitViewText(name, wanted)) return E_POINTER;
        int32_t index = FindName(wanted);
        if (index < 0) return E_FAIL;
        m_Entries[static_cast<size_t>(index)].item.CopyTo(item);
        return *item ? S_OK : S_FALSE;
    }

    HRESULT AddNamed(tagREFString name, IUnknown* item) override {
        return InsertEntry(m_Entries.size(), name, item);
    }

    HRESULT Remove(int32_t index) override {
        if (!ValidIndex(index)) return E_INVALIDARG;
        // The item is released after the entry is gone, so that its
        // destruction never sees a half-changed list.
        SmartPtr<IUnknown> released = std::move(m_Entries[static_cast<size_t>(index)].item);
        m_Entries.erase(m_Entries.begin() + index);
        return S_OK;
    }

    HRESULT RemoveAll() override {
        std::vector<Entry> released;
        released.swap(m_Entries);
        return S_OK;
    }

protected:
    struct Entry {
        std::wstring name;
        SmartPtr<IUnknown> item;
        IUnknown* identity = nullptr;  // the item's IUnknown answer, fixed for its life
    };

    bool ValidIndex(int32_t index) const {
        return index >= 0 && static_cast<size_t>(index) < m_Entries.size();
    }

    int32_t FindName(const std::wstring& name) const {
        for (size_t i = 0; i < m_Entries.size(); ++i)
            if (m_Entries[i].name == name) return static_cast<int32_t>(i);
        return E_FAIL;
    }

    /// Inserts (name, item) before `position` (<= count); the item gets a reference.
    HRESULT InsertEntry(size_t position, tagREFString name, IUnknown* item) {
        Entry entry;
        if (!KitViewText(name, entry.name)) return E_POINTER;
        entry.item.Assign(item);
        entry.identity = KitIdentityOf(item);
        try {
            m_Entries.insert(m_Entries.begin() + static_cast<std::ptrdiff_t>(position),
                             std::move(entry));
        } catch (const std::bad_alloc&) {
            return E_FAIL;
        }
        return S_OK;
    }

    /// Puts `item` in place of the entry's item; the old one is released last.
    HRESULT ReplaceItem(int32_t index, IUnknown* item) {
        if (!ValidIndex(index)) return E_INVALIDARG;
        Entry& entry = m_Entries[static_cast<size_t>(index)];
        SmartPtr<IUnknown> old(item);  // the new reference, swapped in below
        std::swap(old, entry.item);
        entry.identity = KitIdentityOf(item);
        return S_OK;
    }

    std::vector<Entry> m_Entries;
};

/// "SuperCollection": named entries with replacement, insertion and a
/// separate list of overlays.
class CSuperCollection final : public CObject<CSuperCollection>,
                               public INamedCollectionImpl<ISuperCollection>,
                               public ICreatableSimpleCollection,
                               public IObjectInfoImpl<CSuperCollection> {
    LUM_OBJECT_UNKNOWN(CSuperCollection)
    using Named = INamedCollectionImpl<ISuperCollection>;

public:
    // One override serves the slot of the same name in both interfaces.
    HRESULT get_Count(int32_t* count) override { return Named::get_Count(count); }
    HRESULT get_Item(int32_t index, IUnknown** item) override { return Named::get_Item(index, item); }
    HRESULT Remove(int32_t index) override { return Named::Remove(index); }
    HRESULT RemoveAll() override { return Named::RemoveAll(); }
    /// Appends an entry with an empty name (a null item is allowed).
    HRESULT Add(IUnknown* item) override;

    HRESULT get_FileAttributes(int32_t index, IFileAttributes** attributes) override;
    HRESULT Insert(int32_t index, tagREFString name, IUnknown* item) override;
    HRESULT put_Name(int32_t index, tagREFString name) override;
    HRESULT Replace(int32_t index, IUnknown* item) override;
    int32_t IndexOfName(tagREFString name) override;
    HRESULT get_OverlayCount(int32_t* count) override;
    HRESULT get_Overlay(int32_t index, IUnknown** overlay) override;
    HRESULT AddOverlay(IUnknown* overlay) override;
    HRESULT RemoveOverlays() override;

private:
    std::vector<SmartPtr<IUnknown>> m_Overlays;
};
LUM_KIT_OBJECT_NAME_DECLARE(CSuperCollection)

/// A new, empty "SuperCollection" (the only reference), or null.
SmartPtr<ISuperCollection> KitNewSuperCollection();
