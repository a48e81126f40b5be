// Loads framework modules with dlopen and creates objects through their
// exported entry points, exactly as a host does. Tests run with the output
// folder as working directory.
#pragma once

#include <string>

#include "lum/lum.h"

struct LoadedModule {
    void* handle = nullptr;
    InitializeModuleFunction initialize = nullptr;
    ModuleCreateFunction create = nullptr;
    void* Symbol(const char* name) const;
};

/// Loads "./<name>.so" (never closed); fails the current test when missing.
LoadedModule LoadModule(const std::string& name);

/// The creation function of `className` in `module`, or null.
CreateInstanceFunction CreatorOf(const LoadedModule& module, const wchar_t* className);

/// Creates `className` from `module` asking for `iid`; null on failure, with
/// the result code in `*result` when given.
template <class I>
SmartPtr<I> CreateFrom(const LoadedModule& module, const wchar_t* className, const IID& iid,
                       HRESULT* result = nullptr) {
    SmartPtr<I> object;
    HRESULT hr = E_FAIL;
    if (CreateInstanceFunction create = CreatorOf(module, className))
        hr = create(nullptr, &iid, object.OutVoid());
    if (result) *result = hr;
    return object;
}

/// The process-wide "GlobalComponentCollection" of "./CollectionsEx.so".
SmartPtr<IComponentCollection> GlobalCollection();

/// Creates an object by class name through the global collection.
template <class I>
SmartPtr<I> CreateByName(const wchar_t* className, const IID& iid, HRESULT* result = nullptr) {
    SmartPtr<I> object;
    HRESULT hr = E_FAIL;
    if (SmartPtr<IComponentCollection> collection = GlobalCollection())
        hr = collection->CreateObject(REFStr(className), &iid, object.OutVoid());
    if (result) *result = hr;
    return object;
}

/// Text of an IString (empty for null).
std::wstring TextOf(IString* string);

/// The identity (IUnknown answer) of an object, as a plain pointer value.
IUnknown* IdentityPointer(IUnknown* object);

/// Reference count of an object, read by an AddRef/Release pair.
uint32_t RefCountOf(IUnknown* object);
