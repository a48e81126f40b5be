// IFileArchiveImpl<T, Interface>: a file of the component's own, holding its
// settings as XML or as a folder stream, chosen by the file name's
// extension (x...: XML, t...: folder stream).
//
// T derives from IUIPropInterrogateImpl as well: the folder-stream archive
// holds its parameter list. The XML archive holds what T's IDataPersist
// writes. In a component, IFileArchive's Control and Inquire slots are
// served by the component's own parameter operations; the archive options
// below stay reachable from inside the module as IFileArchiveImpl::Control
// and IFileArchiveImpl::Inquire.
#pragma once

#include "archive/FileArchive.h"
#include "lum/lum.h"

template <class T, class Interface>
class IFileArchiveImpl : public Interface {
public:
    /// Archive option codes of Control and Inquire.
    enum ArchiveOption {
        ArchiveChanged = 0,
        ArchiveCurrent = 1,
        ArchiveOption2 = 2,
        ArchiveOption3 = 3,
        ArchiveTextEncoding = 4,
    };

    HRESULT get_Filename(IString** name) override {
        if (!name) return E_POINTER;
        m_FileName.CopyTo(name);
        return *name ? S_OK : E_FAIL;
    }

    /// A name that really changes (letter case aside) marks the archive as
    /// changed and not current.
    HRESULT put_Filename(IString* name) override {
        if (ARCHIVENameChanged(m_FileName.Get(), name)) {
            m_Current = 0;
            m_Changed = 1;
        }
        m_FileName.Assign(name);
        return S_OK;
    }

    HRESULT get_Filter(IString** filter, int16_t reserved) override {
        if (!filter) return E_POINTER;
        m_Filter.CopyTo(filter);
        return *filter ? S_OK : E_FAIL;
    }

    /// The component's class name.
    HRESULT get_Name(IString** name) override {
        if (!name) return E_POINTER;
        *name = ARCHIVEClassName(Component()).Detach();
        return *name ? S_OK : E_FAIL;
    }

    /// E_INVALIDARG, with nothing read, for an extension that selects
    /// neither format.
    HRESULT Load() override {
        if (!ARCHIVEHasName(m_FileName.Get())) return E_FAIL;
        switch (ARCHIVEFormatOf(m_FileName.Get())) {
            case ArchiveFormatXML: {
                static const wchar_t* const streams[] = {L"XMLStream", nullptr};
                return ARCHIVELoadXML(Component(), m_FileName.Get(), streams);
            }
            case ArchiveFormatFolder: return LoadFolderStream();
            default: return E_INVALIDARG;
        }
    }

    /// E_INVALIDARG, with nothing written, for an extension that selects
    /// neither format.
    HRESULT Save() override {
        if (!ARCHIVEHasName(m_FileName.Get())) return E_FAIL;
        switch (ARCHIVEFormatOf(m_FileName.Get())) {
            case ArchiveFormatXML: return SaveXML(nullptr, 0);
            case ArchiveFormatFolder: return SaveFolderStream();
            default: return E_INVALIDARG;
        }
    }

    HRESULT Control(int32_t code, int32_t value) override {
        switch (code) {
            case ArchiveChanged: m_Changed = value; return S_OK;
            case ArchiveCurrent: m_Current = value; return S_OK;
            case ArchiveOption2: m_Option2 = value; return S_OK;
            case ArchiveOption3: m_Option3 = value; return S_OK;
            case ArchiveTextEncoding: m_TextEncoding = value; return S_OK;
            default: return E_INVALIDARG;
        }
    }

    /// Codes 0 and 1 answer with the flags word of a switch parameter
    /// (0x40013), codes 2 and 3 with 0, code 4 with 19 while the encoding
    /// is not negative.
    HRESULT Inquire(int32_t code, int32_t* value) override {
        int32_t answer = 0;
        HRESULT result = S_OK;
        switch (code) {
            case ArchiveChanged: answer = m_Changed; result = 0x40013; break;
            case ArchiveCurrent: answer = m_Current; result = 0x40013; break;
            case ArchiveOption2: answer = m_Option2; break;
            case ArchiveOption3: answer = m_Option3; break;
            case ArchiveTextEncoding:
                if (m_TextEncoding < 0) return E_INVALIDARG;
                answer = m_TextEncoding;
                result = 19;
                break;
            default: return E_INVALIDARG;
        }
        if (value) *value = answer;
        return result;
    }

    HRESULT Unload() override { return E_NOTIMPL; }

    /// The parameter list into a folder-stream file, after an "Info" record
    /// of the component's origin.
    virtual HRESULT SaveFolderStream() {
        if (!ARCHIVEHasName(m_FileName.Get())) return E_FAIL;
        SmartPtr<IFolderStream> folder = ARCHIVEOpenFolder(m_FileName.Get(), 1);
        if (!folder) return E_FAIL;
        ARCHIVEWriteInfo(Component(), folder.Get());
        static_cast<T*>(this)->UIPropInterrogate_SaveFolderStream(nullptr, folder.Get(), 0);
        return folder->Commit() < 0 ? E_FAIL : S_OK;
    }

    /// The parameter list from a folder-stream file.
    virtual HRESULT LoadFolderStream() {
        if (!ARCHIVEHasName(m_FileName.Get())) return E_FAIL;
        SmartPtr<IFolderStream> folder = ARCHIVEOpenFolder(m_FileName.Get(), 0);
        if (!folder) return E_FAIL;
        return static_cast<T*>(this)->UIPropInterrogate_LoadFolderStream(folder.Get(), 0);
    }

    /// Writes the XML archive; bit 23 of `flags` hands `flags` to the
    /// stream as its options.
    HRESULT SaveXML(IString* stylesheet, int32_t flags) {
        if (!ARCHIVEHasName(m_FileName.Get())) return E_FAIL;
        return ARCHIVESaveXML(Component(), m_FileName.Get(), stylesheet, flags, m_TextEncoding);
    }

    /// Reads the XML archive like Load, through an "XMLStreamEx" (or, when
    /// there is none, an "XMLStream").
    HRESULT LoadXML(int32_t flags) {
        if (!ARCHIVEHasName(m_FileName.Get())) return E_FAIL;
        static const wchar_t* const streams[] = {L"XMLStreamEx", L"XMLStream", nullptr};
        return ARCHIVELoadXML(Component(), m_FileName.Get(), streams);
    }

protected:
    IFileArchiveImpl() = default;
    ~IFileArchiveImpl() = default;

    SmartPtr<IString> m_FileName;
    int32_t m_Changed = 0;
    int32_t m_Current = 0;
    int32_t m_Option2 = 0;
    SmartPtr<IString> m_Filter;
    int32_t m_Option3 = 0;
    /// Below 1: XML is written as UTF-16; 1 or more: as 8-bit text.
    int32_t m_TextEncoding = 0;

private:
    IUnknown* Component() { return static_cast<Interface*>(this); }
};
