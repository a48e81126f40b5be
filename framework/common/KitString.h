// "CreatableString": the framework's string object, shared by every kit
// module that hands out text (IString, ICreatableString).
#pragma once

#include <string>

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CCreatableString final : public CObject<CCreatableString>,
                               public ICreatableString,
                               public IObjectInfoImpl<CCreatableString> {
    LUM_OBJECT_UNKNOWN(CCreatableString)
public:
    HRESULT GetText(wchar_t** text, int32_t* length) override;
    HRESULT SetText(int32_t length, const wchar_t* text) override;
    HRESULT Append(int32_t length, const wchar_t* text) override;
    HRESULT get_Length(int32_t* length) override;

private:
    // Always terminated by std::wstring itself; c_str() of an empty string
    // is a pointer to a 0 character, never null.
    std::wstring m_Text;
};
LUM_KIT_OBJECT_NAME_DECLARE(CCreatableString)

/// A new string holding `text` (the only reference), or null when memory ran out.
SmartPtr<IString> KitNewString(const std::wstring& text);
