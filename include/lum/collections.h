// Collections.
#pragma once

#include "lum/strings.h"

struct IFileAttributes;

struct ISimpleCollection : IUnknown {
    virtual HRESULT get_Count(int32_t* count) = 0;
    virtual HRESULT get_Item(int32_t index, IUnknown** item) = 0;
};

struct ICreatableSimpleCollection : ISimpleCollection {
    virtual HRESULT Add(IUnknown* item) = 0;
    virtual HRESULT Remove(int32_t index) = 0;
    virtual HRESULT RemoveAll() = 0;
};

struct INamedCollection : ISimpleCollection {
    virtual int32_t IndexOf(IUnknown* item) = 0;
    virtual HRESULT get_Name(int32_t index, IString** name) = 0;
    virtual HRESULT get_ItemByName(tagREFString name, IUnknown** item) = 0;
    virtual HRESULT AddNamed(tagREFString name, IUnknown* item) = 0;
    virtual HRESULT Remove(int32_t index) = 0;
    virtual HRESULT RemoveAll() = 0;
};

struct ISuperCollection : INamedCollection {
    virtual HRESULT get_FileAttributes(int32_t index, IFileAttributes** attributes) = 0;
    virtual HRESULT Add(IUnknown* item) = 0;
    virtual HRESULT Insert(int32_t index, tagREFString name, IUnknown* item) = 0;
    virtual HRESULT put_Name(int32_t index, tagREFString name) = 0;
    virtual HRESULT Replace(int32_t index, IUnknown* item) = 0;
    virtual int32_t IndexOfName(tagREFString name) = 0;
    virtual HRESULT get_OverlayCount(int32_t* count) = 0;
    virtual HRESULT get_Overlay(int32_t index, IUnknown** overlay) = 0;
    virtual HRESULT AddOverlay(IUnknown* overlay) = 0;
    virtual HRESULT RemoveOverlays() = 0;
};

struct IParametersCreatable : IUnknown {
    virtual HRESULT AddParameter(tagREFString name, IUnknown* value) = 0;
    virtual HRESULT AddText(tagREFString name, tagREFString text) = 0;
    virtual HRESULT get_Parameter(tagREFString name, IUnknown** value) = 0;
};

struct IStackCollection : IUnknown {
    virtual HRESULT Add(IUnknown* item) = 0;
    virtual HRESULT RemoveNewest(IUnknown** item) = 0;
    virtual HRESULT RemoveOldest(IUnknown** item) = 0;
    virtual HRESULT get_Newest(IUnknown** item) = 0;
    virtual HRESULT get_Oldest(IUnknown** item) = 0;
    virtual HRESULT RemoveAll() = 0;
    virtual HRESULT GetSize(int32_t* capacity, int32_t* count) = 0;
    virtual HRESULT SetSize(int32_t capacity, int32_t mode) = 0;
};
