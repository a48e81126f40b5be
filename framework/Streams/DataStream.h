// "DataStream": a growable byte buffer with a read position.
#pragma once

#include <vector>

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CDataStream final : public CObject<CDataStream>, public IDataStream, public IObjectInfoImpl<CDataStream> {
    LUM_OBJECT_UNKNOWN(CDataStream)
public:
    HRESULT Write(const void* bytes, int32_t count) override;
    /// The whole content; valid until the next change or release. `count` may be null.
    HRESULT GetBytes(uint8_t** bytes, int32_t* count) override;
    /// S_FALSE when fewer than `count` bytes were left.
    HRESULT Read(void* buffer, int32_t count, int32_t* done) override;
    HRESULT Clear() override;
    HRESULT get_Size(int32_t* count) override;

private:
    std::vector<uint8_t> m_Bytes;
    size_t m_ReadPos = 0;
};
LUM_KIT_OBJECT_NAME_DECLARE(CDataStream)
