// Files, file names and file archives.
#pragma once

#include "lum/collections.h"

struct IExtCollection;

/// One file of a component or a file-backed object.
struct IFileArchive : IUnknown {
    virtual HRESULT get_Filename(IString** name) = 0;
    virtual HRESULT put_Filename(IString* name) = 0;
    virtual HRESULT get_Filter(IString** filter, int16_t reserved) = 0;
    virtual HRESULT get_Name(IString** name) = 0;
    virtual HRESULT Load() = 0;
    virtual HRESULT Save() = 0;
    virtual HRESULT Control(int32_t code, int32_t value) = 0;
    virtual HRESULT Inquire(int32_t code, int32_t* value) = 0;
    virtual HRESULT Unload() = 0;
};

struct IFileAttributes : IUnknown {
    virtual HRESULT get_FileName(IString** name) = 0;
    virtual HRESULT get_Size(int64_t* bytes) = 0;
    virtual HRESULT get_Attributes(int32_t* attributes) = 0;
    virtual HRESULT get_Time(int32_t kind, int64_t* seconds) = 0;
};

struct IFileNameCollection : IUnknown {
    virtual HRESULT get_Pattern(IString** pattern) = 0;
    virtual HRESULT put_Extensions(IExtCollection* table) = 0;
    virtual HRESULT Rescan() = 0;
    virtual HRESULT get_Extensions(IExtCollection** table) = 0;
    virtual HRESULT get_Folder(IString** folder) = 0;
    virtual HRESULT put_Pattern(IString* pattern) = 0;
    virtual HRESULT get_Tracking(int32_t* on) = 0;
    virtual HRESULT get_Option(int32_t option, int32_t* value) = 0;
    virtual HRESULT put_Tracking(int32_t on) = 0;
    virtual HRESULT Stop() = 0;
    virtual HRESULT IsRunning() = 0;
    virtual HRESULT put_Option(int32_t option, int32_t value) = 0;
    virtual HRESULT Start(int32_t announceExisting) = 0;
    virtual HRESULT get_Entry(int32_t index, IUnknown** entry) = 0;
};

struct IExtCollection : IUnknown {
    virtual HRESULT get_ExtensionCount(int32_t* count) = 0;
    virtual HRESULT get_Extension(int32_t index, IString** extension) = 0;
    virtual HRESULT get_ExtensionClass(int32_t index, IString** className) = 0;
    virtual int32_t FindExtension(tagREFString extension) = 0;
    virtual HRESULT get_ClassFor(tagREFString extension, IString** className) = 0;
    virtual HRESULT RemoveExtension(tagREFString extension) = 0;
    virtual HRESULT CopyExtensions(IExtCollection* source) = 0;
    virtual HRESULT CreateFor(tagREFString fileName, const IID* iid, void** object) = 0;
    virtual HRESULT AddExtension(tagREFString extension, tagREFString className) = 0;
    virtual HRESULT get_MatchCase(int32_t* on) = 0;
    virtual HRESULT put_MatchCase(int32_t on) = 0;
    virtual HRESULT ClearExtensions() = 0;
};
