// The file name that "LUMMJPEG" and "LUMAVI" keep for IFileArchive, and the
// IFileArchive answers that do not depend on the class.
#pragma once

#include <string>

#include "lum/lum.h"

class CVideoFileName {
public:
    /// E_FAIL (and null) while no name was given.
    HRESULT Get(IString** name) const;
    /// A null name clears it.
    HRESULT Put(IString* name);
    /// The name without its folder; E_FAIL while there is none.
    HRESULT GetShort(IString** name) const;
    /// The name for the operating system; false without one.
    bool Path(std::string& path) const;

private:
    std::wstring m_Name;
    bool m_Has = false;
};

/// "AVI files|*.avi||", as a new string.
HRESULT VideoFilter(IString** filter);

// Option numbers of ILUMAVI (and of IFileArchive's Control and Inquire on
// both classes).
constexpr int32_t kOptionRate = 10;
constexpr int32_t kOptionQuality = 11;
/// Largest RIFF part of the files "LUMMJPEG" writes, in bytes (0 = the
/// standard 1 GiB). For tests that need the multi-part layout without
/// writing gigabytes; not part of the public options.
constexpr int32_t kOptionPartLimit = 0x4C56;

constexpr int32_t kDefaultRate = 15;
constexpr int32_t kDefaultQuality = 90;
