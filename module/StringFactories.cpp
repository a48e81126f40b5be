// The three cached factories of strings, variants and super collections.
//
// Each keeps one "ComponentString" of "CollectionsEx" configured for its
// class and asks it for a new object on every call. Without the collections
// module the module cannot work at all: the process ends after the loader's
// message instead of continuing with a null component.
#include <cstdio>
#include <cstdlib>

#include "module/ModuleLoader.h"
#include "text/REFString.h"

namespace {

SmartPtr<IComponentString> MakeComponentString(const wchar_t* registeredName) {
    ModuleCreateFunction entry = MODULELoadEntry(REFStr(L"CollectionsEx"));
    SmartPtr<IComponentString> component;
    if (entry) {
        void* creator = nullptr;
        tagREFString cls = REFStr(L"ComponentString");
        entry(cls.length, cls.text, &creator);
        if (creator)
            reinterpret_cast<CreateInstanceFunction>(creator)(nullptr, &IID_IComponentString,
                                                                component.OutVoid());
    }
    if (!component) {
        std::fprintf(stderr, "LUMCamcorder: the string component of \"CollectionsEx\" is required\n");
        std::fflush(stdout);
        std::abort();
    }
    component->Register(4, REFStr(L"Collections"));
    component->Register(1, REFStr(registeredName));
    return component;
}

template <class I>
I* CreateFrom(SmartPtr<IComponentString>& cache, const wchar_t* registeredName, const IID& iid) {
    if (!cache) cache = MakeComponentString(registeredName);
    void* object = nullptr;
    cache->CreateInstance(&iid, &object);
    return static_cast<I*>(object);
}

}  // namespace

ICreatableString* CREFString::CreateString() {
    static SmartPtr<IComponentString> cache;
    return CreateFrom<ICreatableString>(cache, L"CreatableString", IID_ICreatableString);
}

IVariant* CREFString::CreateVariant() {
    static SmartPtr<IComponentString> cache;
    return CreateFrom<IVariant>(cache, L"Variant", IID_IVariant);
}

ISuperCollection* CREFString::CreateCollection() {
    static SmartPtr<IComponentString> cache;
    return CreateFrom<ISuperCollection>(cache, L"SuperCollection", IID_ISuperCollection);
}
