// "StringTable": texts per owner, one file "<Owner>.txt" per owner in the
// folder "strings" of the working directory or the folder named by
// LUM_STRINGS; read again on every request.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CStringTable final : public CObject<CStringTable>,
                           public IStringTable,
                           public IObjectInfoImpl<CStringTable> {
    LUM_OBJECT_UNKNOWN(CStringTable)
public:
    /// A new named collection (names = the numbers in decimal, items =
    /// IString) in file order; E_FAIL and null when the owner has no strings.
    HRESULT GetCollection(IString* owner, INamedCollection** strings) override;
    /// The first string of that number; E_FAIL and null when there is none.
    HRESULT GetString(IString* owner, int32_t number, IString** text) override;
};
LUM_KIT_OBJECT_NAME_DECLARE(CStringTable)

/// The folder of the string files: $LUM_STRINGS when set and not empty, else "strings".
std::string StringFolder();

/// The (number, text) lines of an owner's file, in file order. E_FAIL when
/// the file is missing, E_INVALIDARG for an owner name that cannot name a
/// file (empty, or holding "/" or a 0 character).
HRESULT ReadOwnerStrings(const std::wstring& owner, std::vector<std::pair<int32_t, std::wstring>>& strings);
