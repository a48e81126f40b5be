#include "tests/support/ModuleHost.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

void* LoadedModule::Symbol(const char* name) const { return handle ? dlsym(handle, name) : nullptr; }

LoadedModule LoadModule(const std::string& name) {
    LoadedModule module;
    std::string file = "./" + name + ".so";
    module.handle = dlopen(file.c_str(), RTLD_NOW);
    if (!module.handle) {
        ADD_FAILURE() << "cannot load " << file << ": " << dlerror();
        return module;
    }
    module.initialize = reinterpret_cast<InitializeModuleFunction>(dlsym(module.handle, "InitializeModule"));
    module.create = reinterpret_cast<ModuleCreateFunction>(dlsym(module.handle, "CreateFunction"));
    return module;
}

CreateInstanceFunction CreatorOf(const LoadedModule& module, const wchar_t* className) {
    if (!module.create) return nullptr;
    void* creator = nullptr;
    tagREFString name = REFStr(className);
    if (module.create(name.length, name.text, &creator) != S_OK) return nullptr;
    return reinterpret_cast<CreateInstanceFunction>(creator);
}

SmartPtr<IComponentCollection> GlobalCollection() {
    static LoadedModule collections = LoadModule("CollectionsEx");
    return CreateFrom<IComponentCollection>(collections, L"GlobalComponentCollection",
                                            IID_IComponentCollection);
}

std::wstring TextOf(IString* string) {
    if (!string) return {};
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (string->GetText(&text, &length) < 0 || !text || length <= 0) return {};
    return std::wstring(text, static_cast<size_t>(length));
}

uint32_t RefCountOf(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

IUnknown* IdentityPointer(IUnknown* object) {
    if (!object) return nullptr;
    IUnknown* identity = nullptr;
    if (object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)) < 0) return nullptr;
    identity->Release();
    return identity;
}
