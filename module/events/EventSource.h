// IEventSourceImpl<T, &IID__ICameraEvents>: the advise list of a component.
//
// Sinks are kept in order of registration with one reference each. The list
// is guarded by the owner's Lock/Unlock (a mutex for the camcorder and the
// file player, nothing for the others). GetAdviseCount, GetAdviseItem and the
// replacement of the flags-2 sink read and write it without the lock.
#pragma once

#include <atomic>
#include <vector>

#include "lum/camera.h"
#include "lum/iid.h"
#include "lum/SmartPtr.h"

/// The identity (IUnknown answer) of an object; null for null.
inline SmartPtr<IUnknown> IdentityOf(IUnknown* object) {
    return QueryAs<IUnknown>(object, IID_IUnknown);
}

/// Two identities are the same object when both are null, or when both answer
/// the same IUnknown pointer when asked once more.
inline bool SameIdentity(IUnknown* a, IUnknown* b) {
    if (!a || !b) return a == b;
    return IdentityOf(a).Get() == IdentityOf(b).Get();
}

template <class T, const IID* EventIID>
class IEventSourceImpl : public IEventSource {
public:
    /// Capacity grows in steps of this many slots.
    static constexpr int kGrowthStep = 8;

    HRESULT Advise(IUnknown* sink, int32_t flags) override { return Advise(sink, flags, *EventIID); }

    HRESULT GetAdviseCount() override { return m_Count.load(std::memory_order_relaxed); }

    HRESULT GetAdviseItem(uint32_t index, IUnknown** sink, int32_t* flags) override {
        if (static_cast<int32_t>(index) >= m_Count.load(std::memory_order_relaxed) ||
            static_cast<int32_t>(index) < 0)
            return E_FAIL;
        const Item& item = m_Items[index];
        if (flags) *flags = item.flags;
        if (!sink) return S_OK;
        *sink = item.sink.Get();
        if (!*sink) return E_FAIL;
        (*sink)->AddRef();
        return S_OK;
    }

    /// Registers `sink` for the event interface `iid` (flags 0: removal,
    /// 2: replace the single replaceable sink, other: add).
    virtual HRESULT Advise(IUnknown* sink, int32_t flags, const IID& iid) {
        if (flags == 0) return ClearAdvise(sink);
        if (flags == 2) {
            for (int32_t i = 0; i < m_Count.load(std::memory_order_relaxed); ++i) {
                if (m_Items[i].flags == 2) {
                    m_Items[i].sink.Assign(sink);
                    return S_OK;
                }
            }
        }
        if (!sink) return E_POINTER;
        {
            SmartPtr<IUnknown> events;
            HRESULT hr = sink->QueryInterface(iid, events.OutVoid());
            if (hr < 0) return hr;
        }
        SmartPtr<IUnknown> identity = IdentityOf(sink);
        Owner()->Lock();
        for (const Item& item : m_Items) {
            if (SameIdentity(identity.Get(), IdentityOf(item.sink.Get()).Get())) {
                Owner()->Unlock();
                return S_FALSE;
            }
        }
        if (m_Items.size() == m_Items.capacity()) m_Items.reserve(m_Items.capacity() + kGrowthStep);
        m_Items.push_back(Item{SmartPtr<IUnknown>(sink), flags});
        m_Count.store(static_cast<int32_t>(m_Items.size()), std::memory_order_relaxed);
        Owner()->Unlock();
        return S_OK;
    }

    /// Removes `sink` (the first registration of the same object), or every
    /// sink when `sink` is null. E_FAIL when it is not registered.
    HRESULT ClearAdvise(IUnknown* sink) {
        if (!sink) {
            if (m_Count.load(std::memory_order_relaxed) == 0) return S_OK;
            Owner()->Lock();
            std::vector<Item> removed;
            removed.swap(m_Items);
            m_Items.reserve(removed.capacity());
            m_Count.store(0, std::memory_order_relaxed);
            Owner()->Unlock();
            return S_OK;  // `removed` releases every sink in order, outside the lock
        }
        SmartPtr<IUnknown> identity = IdentityOf(sink);
        Owner()->Lock();
        for (size_t i = 0; i < m_Items.size(); ++i) {
            if (SameIdentity(identity.Get(), IdentityOf(m_Items[i].sink.Get()).Get())) {
                SmartPtr<IUnknown> removed = std::move(m_Items[i].sink);
                m_Items.erase(m_Items.begin() + static_cast<std::ptrdiff_t>(i));
                m_Count.store(static_cast<int32_t>(m_Items.size()), std::memory_order_relaxed);
                Owner()->Unlock();
                return S_OK;
            }
        }
        Owner()->Unlock();
        return E_FAIL;
    }

    /// The sink at `index` with a reference for the caller, read under the
    /// owner's lock; null past the end or for an empty slot.
    /// A caller that already holds the (non-recursive) lock gets EDEADLK
    /// back from Lock: the lock it holds is then left alone.
    SmartPtr<IUnknown> SinkAt(int32_t index) {
        SmartPtr<IUnknown> sink;
        const bool locked = Owner()->Lock() == 0;
        if (index >= 0 && index < static_cast<int32_t>(m_Items.size())) sink = m_Items[index].sink;
        if (locked) Owner()->Unlock();
        return sink;
    }

    /// Slots allocated for sinks (grows by kGrowthStep).
    int32_t AdviseCapacity() const { return static_cast<int32_t>(m_Items.capacity()); }

protected:
    IEventSourceImpl() = default;
    ~IEventSourceImpl() = default;  // the vector releases every sink in order

private:
    struct Item {
        SmartPtr<IUnknown> sink;
        int32_t flags;
    };

    T* Owner() { return static_cast<T*>(this); }

    std::atomic<int32_t> m_Count{0};
    std::vector<Item> m_Items;
};
