// IUnknown and the object-model interfaces of the framework.
#pragma once

#include "lum/types.h"

struct IString;
struct INamedCollection;

struct IUnknown {
    virtual HRESULT QueryInterface(const IID& iid, void** object) = 0;
    virtual uint32_t AddRef() = 0;
    virtual uint32_t Release() = 0;
};

/// The resolver of class names ("GlobalComponentCollection").
struct IComponentCollection : IUnknown {
    virtual HRESULT CreateObject(tagREFString className, const IID* iid, void** object) = 0;
    virtual HRESULT GetCreateFunction(tagREFString className, void** creator) = 0;
    virtual HRESULT RegisterCreateFunction(tagREFString className, void* creator) = 0;
};

/// A component's name (library and class) that can create objects of that class.
struct IComponentString : IUnknown {
    virtual HRESULT Register(int32_t kind, tagREFString name) = 0;
    virtual HRESULT CreateInstance(const IID* iid, void** object) = 0;
    virtual HRESULT put_Object(IUnknown* object) = 0;
    virtual HRESULT GetNameString(int32_t index, IString** name) = 0;
};

struct IObjectInfo : IUnknown {
    virtual HRESULT GetName(int32_t selector, tagREFString* name) = 0;
};
