// "SimpleCollection": ordered counted items.
#pragma once

#include <vector>

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CSimpleCollection final : public CObject<CSimpleCollection>,
                                public ICreatableSimpleCollection,
                                public IObjectInfoImpl<CSimpleCollection> {
    LUM_OBJECT_UNKNOWN(CSimpleCollection)
public:
    HRESULT get_Count(int32_t* count) override;
    HRESULT get_Item(int32_t index, IUnknown** item) override;
    /// Appends with a reference; null gives E_POINTER.
    HRESULT Add(IUnknown* item) override;
    HRESULT Remove(int32_t index) override;
    HRESULT RemoveAll() override;

private:
    std::vector<SmartPtr<IUnknown>> m_Items;
};
LUM_KIT_OBJECT_NAME_DECLARE(CSimpleCollection)
