// User interface (headless pages), registry and string table.
#pragma once

#include "lum/collections.h"

struct IUIPropertyPage : IUnknown {
    virtual HRESULT Show(ISimpleCollection* objects, IString* name, int32_t mode, IUnknown* owner) = 0;
    virtual HRESULT Apply() = 0;
    virtual HRESULT Close() = 0;
    virtual HRESULT GetShown(ISimpleCollection** objects, IString** name, int32_t* mode, IUnknown** owner) = 0;
};

struct IUIRefreshableObject : IUnknown {
    virtual HRESULT Refresh(int32_t what) = 0;
};

struct IMessageWindow : IUnknown {
    virtual HRESULT ShowText(tagREFString text) = 0;
    virtual HRESULT Close() = 0;
};

struct IRegistryEx : IUnknown {
    virtual HRESULT ReadString(tagREFString section, tagREFString key, wchar_t* buffer, int32_t capacity) = 0;
    virtual HRESULT WriteString(tagREFString section, tagREFString key, tagREFString value) = 0;
    virtual HRESULT ReadInteger(tagREFString section, tagREFString key, int32_t* value) = 0;
};

struct IStringTable : IUnknown {
    virtual HRESULT GetCollection(IString* owner, INamedCollection** strings) = 0;
    virtual HRESULT GetString(IString* owner, int32_t number, IString** text) = 0;
};
