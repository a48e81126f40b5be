// A component declared with the module's own templates, with one parameter
// of every kind that is saved and loaded, for the fuzz targets that feed
// settings to a component and for the seeds written from it.
#pragma once

#include "archive/FileArchiveImpl.h"
#include "lum/lum.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "module/object/ObjectInfo.h"
#include "params/PropInterrogateImpl.h"

enum FuzzProbeParameter : int32_t {
    FuzzByte = 1,
    FuzzShort = 2,
    FuzzLong = 3,
    FuzzColour = 4,
    FuzzFloat = 5,
    FuzzDouble = 6,
    FuzzLabel = 7,
    FuzzFile = 8,
    FuzzObject = 9,
    FuzzVolatile = 10,
};

/// The value the parameter that is never persisted always keeps.
constexpr int32_t kFuzzVolatileValue = 0x5A5A;

class CFuzzProbe final : public CObject<CFuzzProbe>,
                         public IObjectInfoImpl<CFuzzProbe>,
                         public IDataPersist,
                         public IUIPropInterrogateImpl<CFuzzProbe, IUIPropInterrogateEx, 10>,
                         public IFileArchiveImpl<CFuzzProbe, IFileArchive> {
    LUM_OBJECT_UNKNOWN(CFuzzProbe)

public:
    HRESULT FinalConstruct() override;
    void FinalRelease() override;

    HRESULT Inquire(int32_t code, int32_t* value) override { return IUIPropInterrogateImpl::Inquire(code, value); }
    HRESULT Control(int32_t code, int32_t value) override { return IUIPropInterrogateImpl::Control(code, value); }

    /// XML when the stream offers it, else the folder stream; the names are
    /// those of FuzzProbeNames().
    HRESULT Save(IDataStream* stream, int32_t flags) override;
    HRESULT Load(IDataStream* stream, int32_t flags) override;
    using IFileArchiveImpl::Load;
    using IFileArchiveImpl::Save;
    HRESULT ArchiveControl(int32_t code, int32_t value) { return IFileArchiveImpl::Control(code, value); }

    uint8_t m_Byte = 7;
    int16_t m_Short = -3;
    int32_t m_Long = 25;
    int32_t m_Colour = 0x00FF8040;
    float m_Float = 1.5f;
    double m_Double = 0.1;
    SmartPtr<IString> m_Label;
    SmartPtr<IString> m_File;
    SmartPtr<IUnknown> m_Object;
    int32_t m_Volatile = kFuzzVolatileValue;
};

/// A new probe with one reference (null when the framework is missing).
SmartPtr<CFuzzProbe> NewFuzzProbe();

/// The display names of the probe's parameters ("Frame Rate" and so on),
/// made once.
INamedCollection* FuzzProbeNames();
