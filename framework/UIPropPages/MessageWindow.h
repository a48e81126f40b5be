// "MessageWindow": headless messages. ShowText writes the text and a line
// end to standard error, as UTF-8, in one piece so that lines of several
// threads do not mix; Close has nothing to remove.
#pragma once

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CMessageWindow final : public CObject<CMessageWindow>,
                             public IMessageWindow,
                             public IObjectInfoImpl<CMessageWindow> {
    LUM_OBJECT_UNKNOWN(CMessageWindow)
public:
    HRESULT ShowText(tagREFString text) override;
    HRESULT Close() override;
};
LUM_KIT_OBJECT_NAME_DECLARE(CMessageWindow)
