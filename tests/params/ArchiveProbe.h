// A component declared with the module's own templates, holding one
// parameter of every kind that is saved and loaded, for parameter and
// archive tests. Its parameter names come from a string file of its own
// ("ArchiveProbe.txt") in a temporary string folder set up for the tests.
#pragma once

#include <string>

#include "archive/FileArchiveImpl.h"
#include "lum/lum.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "module/object/ObjectInfo.h"
#include "params/PropInterrogateImpl.h"

/// Parameter numbers of the probe; the names are those of its string file.
enum ProbeParameter : int32_t {
    ProbeByte = 1,      // "Byte Value", type 1
    ProbeShort = 2,     // "Short Value", type 2
    ProbeLong = 3,      // "Frame Rate", type 3
    ProbeColour = 4,    // "Colour", flags 0x23
    ProbeFloat = 5,     // "Float Value", type 4
    ProbeDouble = 6,    // "Double Value", type 5
    ProbeLabel = 7,     // "Label", type 6
    ProbeFile = 8,      // "File Name", type 6 with 0x100
    ProbeObject = 9,    // "Object", type 7
    ProbeVolatile = 10, // "Volatile", type 3 not persisted
    ProbeChoice = 11,   // "Speed", choices of string 20
};

class CArchiveProbe final : public CObject<CArchiveProbe>,
                            public IObjectInfoImpl<CArchiveProbe>,
                            public IDataPersist,
                            public IUIPropInterrogateImpl<CArchiveProbe, IUIPropInterrogateEx, 10>,
                            public IFileArchiveImpl<CArchiveProbe, IFileArchive> {
    LUM_OBJECT_UNKNOWN(CArchiveProbe)

public:
    HRESULT FinalConstruct() override;
    void FinalRelease() override;
    HRESULT Lock() override { ++m_Locks; return S_OK; }

    // One override serves IUIPropInterrogate and IFileArchive, as in the
    // module's components.
    HRESULT Inquire(int32_t code, int32_t* value) override { return IUIPropInterrogateImpl::Inquire(code, value); }
    HRESULT Control(int32_t code, int32_t value) override { return IUIPropInterrogateImpl::Control(code, value); }

    /// XML when the stream offers it, else the folder stream.
    HRESULT Save(IDataStream* stream, int32_t flags) override;
    HRESULT Load(IDataStream* stream, int32_t flags) override;
    using IFileArchiveImpl::Load;
    using IFileArchiveImpl::Save;

    HRESULT ArchiveControl(int32_t code, int32_t value) { return IFileArchiveImpl::Control(code, value); }
    HRESULT ArchiveInquire(int32_t code, int32_t* value) { return IFileArchiveImpl::Inquire(code, value); }
    using IUIPropInterrogateImpl::DeclareParameter;
    using IUIPropInterrogateImpl::PropE;
    using IUIPropInterrogateImpl::m_Parameters;

    uint8_t m_Byte = 0;
    int16_t m_Short = 0;
    int32_t m_Long = 0;
    int32_t m_Colour = 0;
    float m_Float = 0.0f;
    double m_Double = 0.0;
    SmartPtr<IString> m_Label;
    SmartPtr<IString> m_File;
    SmartPtr<IUnknown> m_Object;
    int32_t m_Volatile = 0;
    int32_t m_Choice = 0;
    int m_Locks = 0;
};

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
