// Streams.
#pragma once

#include "lum/strings.h"

struct IDataStream : IUnknown {
    virtual HRESULT Write(const void* bytes, int32_t count) = 0;
    virtual HRESULT GetBytes(uint8_t** bytes, int32_t* count) = 0;
    virtual HRESULT Read(void* buffer, int32_t count, int32_t* done) = 0;
    virtual HRESULT Clear() = 0;
    virtual HRESULT get_Size(int32_t* count) = 0;
};

struct IXMLStream : IUnknown {
    virtual HRESULT WriteElement(tagREFString tag, IString* text) = 0;
    virtual HRESULT OpenElement(tagREFString tag) = 0;
    virtual HRESULT CloseElement() = 0;
    virtual HRESULT WriteText(tagREFString text) = 0;
    virtual HRESULT ReadToken(tagREFString* token) = 0;
};

struct IXMLStreamEx : IXMLStream {
    virtual HRESULT SetOptions(int32_t mask, int32_t value) = 0;
    virtual HRESULT get_Options(int32_t* options) = 0;
    virtual HRESULT Reset() = 0;
};

struct IStreamTransform : IUnknown {
    virtual HRESULT Transform(IDataStream* source, IDataStream* target) = 0;
};

struct IFolderStream : IUnknown {
    virtual HRESULT Open(IString* fileName, int32_t mode) = 0;
    virtual HRESULT Commit() = 0;
    virtual HRESULT get_Name(IString** name) = 0;
    virtual HRESULT CreateFolder(IString* name, IFolderStream** folder) = 0;
    virtual HRESULT OpenFolder(struct IVariant* which, IFolderStream** folder) = 0;
    virtual HRESULT get_FolderCount(int32_t* count) = 0;
    virtual HRESULT WriteObject(IString* key, IUnknown* object) = 0;
    virtual HRESULT ReadObject(IString* key, IUnknown** object) = 0;
    virtual HRESULT WriteValue(IString* key, const void* bytes, int32_t count, int32_t reserved) = 0;
    virtual HRESULT WriteString(IString* key, IString* value) = 0;
    virtual HRESULT WriteRecord(IString* key, const void* field, int32_t typeCode) = 0;
    virtual HRESULT ReadRecord(IString* key, void* field, int32_t typeCode) = 0;
    virtual HRESULT RemoveEntry(IString* key) = 0;
    virtual HRESULT ReadValue(IString* key, void* bytes, int32_t count, int32_t reserved) = 0;
    virtual HRESULT ReadString(IString* key, IString* value) = 0;
    virtual HRESULT HasEntry(IString* key) = 0;
};

struct IFileInfo : IUnknown {
    virtual HRESULT Reset() = 0;
    virtual HRESULT put_Component(IUnknown* component) = 0;
    virtual HRESULT get_ClassName(IString** name) = 0;
    virtual HRESULT get_Time(int64_t* seconds) = 0;
};
