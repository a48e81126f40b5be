// "ASCIIStream": wide text (4-byte wchar_t units) to UTF-8.
#pragma once

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CASCIIStream final : public CObject<CASCIIStream>,
                           public IStreamTransform,
                           public IObjectInfoImpl<CASCIIStream> {
    LUM_OBJECT_UNKNOWN(CASCIIStream)
public:
    /// Reads all of `source`'s bytes as wchar_t units (a partial unit at the
    /// end is ignored) and appends them to `target` as UTF-8 without a
    /// byte-order mark; characters that are not Unicode scalar values
    /// become U+FFFD.
    HRESULT Transform(IDataStream* source, IDataStream* target) override;
};
LUM_KIT_OBJECT_NAME_DECLARE(CASCIIStream)
