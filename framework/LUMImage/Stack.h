// "LUMStack": a bounded sequence of counted items, oldest first. Internally
// locked, so one thread may append while another removes or reads.
#pragma once

#include <deque>
#include <mutex>

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CStack final : public CObject<CStack>,
                     public IStackCollection,
                     public ISimpleCollection,
                     public IObjectInfoImpl<CStack> {
    LUM_OBJECT_UNKNOWN(CStack)
public:
    // IStackCollection. A null item is kept as an empty entry (a recorder
    // appends whatever the camera announced); taking or reading it succeeds
    // with a null pointer.
    HRESULT Add(IUnknown* item) override;
    HRESULT RemoveNewest(IUnknown** item) override;
    HRESULT RemoveOldest(IUnknown** item) override;
    HRESULT get_Newest(IUnknown** item) override;
    HRESULT get_Oldest(IUnknown** item) override;
    HRESULT RemoveAll() override;
    HRESULT GetSize(int32_t* capacity, int32_t* count) override;
    /// mode != 0: a ring of `capacity` items that drops the oldest; mode 0:
    /// `capacity` is only a reserve. A capacity below 1 means no limit.
    HRESULT SetSize(int32_t capacity, int32_t mode) override;

    // ISimpleCollection: index 0 is the oldest item.
    HRESULT get_Count(int32_t* count) override;
    HRESULT get_Item(int32_t index, IUnknown** item) override;

private:
    /// True when the ring rule applies and drops items beyond the capacity.
    bool Bounded() const { return m_Mode != 0 && m_Capacity >= 1; }
    /// Hands out `entry`'s item, or E_FAIL and null for a missing entry.
    static HRESULT HandOut(const SmartPtr<IUnknown>* entry, IUnknown** item);

    std::mutex m_Lock;
    std::deque<SmartPtr<IUnknown>> m_Items;
    int32_t m_Capacity = 0;
    int32_t m_Mode = 0;
};
LUM_KIT_OBJECT_NAME_DECLARE(CStack)
