// The probe component of the parameter and archive tests. Its parameter
// names come from a string file of its own ("ArchiveProbe.txt") in a
// temporary string folder set up for the tests.
#pragma once

#include <string>

#include "tests/support/ParamProbe.h"

/// The probe's own parameter beside the ten of every probe; the names are
/// those of its string file.
constexpr int32_t ProbeChoice = 11;  // "Speed", choices of string 20

class CArchiveProbe final : public ParamProbe<CArchiveProbe> {
    LUM_OBJECT_UNKNOWN(CArchiveProbe)

public:
    HRESULT FinalConstruct() override;
    HRESULT Lock() override { ++m_Locks; return S_OK; }
    /// The names come from the string file.
    static INamedCollection* Names() { return nullptr; }

    using Props::DeclareParameter;
    using Props::PropE;
    using Props::m_Parameters;

    int32_t m_Choice = 0;
    int m_Locks = 0;
};

/// Defined with the class's interface table.
template <>
const tagREFString IObjectInfoImpl<CArchiveProbe>::m_ObjectName;

/// A new probe with one reference.
SmartPtr<CArchiveProbe> NewProbe();
/// A probe's interrogation interface.
IUIPropInterrogateEx* Props(CArchiveProbe* probe);

/// A new framework string with `text`.
SmartPtr<IString> Str(const std::wstring& text);
/// The install path that file-name parameters are stored relative to.
std::wstring InstallPath();
/// The folder of the probe's string file.
const std::string& ProbeStringFolder();
/// A fresh empty folder for files written by a test.
std::string ScratchFolder();
