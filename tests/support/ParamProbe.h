// A test component built from the module's own templates, with one
// parameter of every kind that is saved and loaded, and saved and loaded as
// the components are: as XML when the stream offers it, else through the
// folder stream. The derived class `T` gives the parameters' display names
// through `static INamedCollection* Names()` (null: its string file) and
// its interface table through LUM_PARAM_PROBE_INTERFACES.
#pragma once

#include "archive/FileArchiveImpl.h"
#include "lum/lum.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "module/object/ObjectInfo.h"
#include "params/PropInterrogateImpl.h"

/// Parameter numbers of a probe, with the names its tests give them.
enum ProbeParameter : int32_t {
    ProbeByte = 1,      // "Byte Value", type 1
    ProbeShort = 2,     // "Short Value", type 2
    ProbeLong = 3,      // "Frame Rate", type 0 (stored as 3)
    ProbeColour = 4,    // "Colour", flags 0x23
    ProbeFloat = 5,     // "Float Value", type 4
    ProbeDouble = 6,    // "Double Value", type 5
    ProbeLabel = 7,     // "Label", type 6
    ProbeFile = 8,      // "File Name", type 6 with 0x100
    ProbeObject = 9,    // "Object", type 7
    ProbeVolatile = 10, // "Volatile", type 3, never persisted
};

template <class T>
class ParamProbe : public CObject<T>,
                   public IObjectInfoImpl<T>,
                   public IDataPersist,
                   public IUIPropInterrogateImpl<T, IUIPropInterrogateEx, 10>,
                   public IFileArchiveImpl<T, IFileArchive> {
public:
    using Props = IUIPropInterrogateImpl<T, IUIPropInterrogateEx, 10>;
    using Archive = IFileArchiveImpl<T, IFileArchive>;

    void FinalRelease() override {
        m_Label.Reset();
        m_File.Reset();
        m_Object.Reset();
    }

    // One override serves IUIPropInterrogate and IFileArchive, as in the
    // module's components.
    HRESULT Inquire(int32_t code, int32_t* value) override { return Props::Inquire(code, value); }
    HRESULT Control(int32_t code, int32_t value) override { return Props::Control(code, value); }

    HRESULT Save(IDataStream* stream, int32_t flags) override {
        if (QueryAs<IXMLStream>(stream, IID_IXMLStream)) return this->UIPropInterrogate_SaveXML(T::Names(), stream, flags);
        SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
        if (!folder) return E_FAIL;
        return this->UIPropInterrogate_SaveFolderStream(T::Names(), folder.Get(), flags);
    }
    HRESULT Load(IDataStream* stream, int32_t flags) override {
        if (QueryAs<IXMLStream>(stream, IID_IXMLStream)) return this->UIPropInterrogate_LoadXML(T::Names(), stream, flags);
        SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
        if (!folder) return E_FAIL;
        return this->UIPropInterrogate_LoadFolderStream(folder.Get(), flags);
    }
    using Archive::Load;
    using Archive::Save;

    HRESULT ArchiveControl(int32_t code, int32_t value) { return Archive::Control(code, value); }
    HRESULT ArchiveInquire(int32_t code, int32_t* value) { return Archive::Inquire(code, value); }

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

protected:
    /// Declares the ten parameters over the members above.
    void DeclareProbeParameters() {
        this->DeclareParameter(ProbeByte, &m_Byte, 1);
        this->DeclareParameter(ProbeShort, &m_Short, 2);
        this->DeclareParameter(ProbeLong, &m_Long, 0);
        this->DeclareParameter(ProbeColour, &m_Colour, 0x23);
        this->DeclareParameter(ProbeFloat, &m_Float, 4);
        this->DeclareParameter(ProbeDouble, &m_Double, 5);
        this->DeclareParameter(ProbeLabel, &m_Label, 6);
        this->DeclareParameter(ProbeFile, &m_File, 0x106);
        this->DeclareParameter(ProbeObject, &m_Object, 7);
        this->DeclareParameter(ProbeVolatile, &m_Volatile, 0x04000003);
    }
};

/// The interface table of probe class `T`, in one source file of it.
#define LUM_PARAM_PROBE_INTERFACES(T)                                                                \
    const InterfaceEntry<T> T::kInterfaces[] = {                                                     \
        InterfaceEntry<T>::Of<IObjectInfoImpl<T>>(IID_IObjectInfo),                                  \
        InterfaceEntry<T>::Of<IDataPersist>(IID_IDataPersist),                                       \
        InterfaceEntry<T>::Of<IUIPropInterrogateImpl<T, IUIPropInterrogateEx, 10>>(IID_IUIPropInterrogate), \
        InterfaceEntry<T>::Of<IUIPropInterrogateImpl<T, IUIPropInterrogateEx, 10>>(IID_IUIPropInterrogateEx), \
        InterfaceEntry<T>::Of<IFileArchiveImpl<T, IFileArchive>>(IID_IFileArchive),                  \
        InterfaceEntry<T>::End(),                                                                    \
    }
