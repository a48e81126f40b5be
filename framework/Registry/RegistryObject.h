// "Registry": configuration values by section and key from "Registry.ini"
// in the working directory, or the file named by LUM_REGISTRY.
#pragma once

#include <sys/stat.h>

#include <mutex>
#include <string>

#include "framework/Registry/IniDocument.h"
#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CRegistry final : public CObject<CRegistry>, public IRegistryEx, public IObjectInfoImpl<CRegistry> {
    LUM_OBJECT_UNKNOWN(CRegistry)
public:
    HRESULT ReadString(tagREFString section, tagREFString key, wchar_t* buffer, int32_t capacity) override;
    /// Sets the value and rewrites the file (created when missing). Names
    /// must be non-blank; no part may hold a line end, a key no "=" and no
    /// leading ";", "#" or "[", a section no "]": otherwise E_INVALIDARG.
    HRESULT WriteString(tagREFString section, tagREFString key, tagREFString value) override;
    /// The value as a decimal integer (optional sign, digits only, within
    /// 32 bits); E_INVALIDARG for other text, `*value` then unchanged.
    HRESULT ReadInteger(tagREFString section, tagREFString key, int32_t* value) override;

private:
    /// Re-reads the file when it changed since the last read (or when the
    /// last read was too close to its modification to trust the time
    /// stamp). Call with m_Lock held. False when there is no file.
    bool Refresh();
    /// A copy of the value, or E_FAIL; E_POINTER for bad views.
    HRESULT Lookup(tagREFString section, tagREFString key, std::wstring& value);

    std::mutex m_Lock;
    std::string m_Path;  // file the document was read from
    bool m_Loaded = false;
    bool m_Settled = false;  // the file's time stamp was old enough when it was read
    struct stat m_Stamp {};
    CIniDocument m_Document;
};
LUM_KIT_OBJECT_NAME_DECLARE(CRegistry)

/// The registry file's name: $LUM_REGISTRY when set and not empty, else "Registry.ini".
std::string RegistryFileName();
