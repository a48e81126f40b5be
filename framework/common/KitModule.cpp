#include "framework/common/KitModule.h"

#include <dlfcn.h>

#include <cstdio>
#include <mutex>

namespace {

// Module-wide state. Plain pointers and a mutex without a destructor worth
// the name: nothing here runs at process exit, so the state stays valid in
// whatever order the modules' exit handlers run. The references kept here
// are intentionally never given back at exit (the objects stay reachable).
std::mutex g_StateLock;
IComponentCollection* g_Given = nullptr;   // from InitializeModule
IComponentCollection* g_Global = nullptr;  // the process's global collection, once found

SmartPtr<IComponentCollection> Counted(IComponentCollection* collection) {
    return SmartPtr<IComponentCollection>(collection);
}

}  // namespace

bool KitSameName(const tagREFString& name, int32_t length, const wchar_t* text) {
    if (length != name.length) return false;
    if (length <= 0) return true;
    if (!text) return false;
    for (int32_t i = 0; i < length; ++i)
        if (text[i] != name.text[i]) return false;
    return true;
}

CreateInstanceFunction KitFindClass(const KitClass* table, size_t count, int32_t length,
                                    const wchar_t* text) {
    for (size_t i = 0; i < count; ++i)
        if (KitSameName(*table[i].name, length, text)) return table[i].create;
    return nullptr;
}

HRESULT KitCreateFunction(const KitClass* table, size_t count, int32_t length, const wchar_t* text,
                          void** creator) {
    if (!creator) return E_POINTER;
    CreateInstanceFunction create = KitFindClass(table, count, length, text);
    if (!create) return E_FAIL;
    *creator = reinterpret_cast<void*>(create);
    return S_OK;
}

HRESULT KitInitializeModule(IComponentCollection* collection) {
    // The new reference is taken before the old one is dropped, so handing
    // in the collection already kept never releases it to zero in between.
    if (collection) collection->AddRef();
    IComponentCollection* old;
    {
        std::lock_guard<std::mutex> guard(g_StateLock);
        old = g_Given;
        g_Given = collection;
    }
    if (old) old->Release();
    return S_OK;
}

SmartPtr<IComponentCollection> KitGivenCollection() {
    std::lock_guard<std::mutex> guard(g_StateLock);
    return Counted(g_Given);
}

void* KitOpenModuleFile(const std::string& file) {
    void* handle = dlopen(file.c_str(), RTLD_NOW);
    if (!handle) {
        const char* reason = dlerror();
        std::fprintf(stderr, "Module not available %s, error %s\n", file.c_str(),
                     reason ? reason : "unknown");
        std::fflush(stderr);
    }
    return handle;
}

SmartPtr<IComponentCollection> KitModuleCollection() {
    {
        std::lock_guard<std::mutex> guard(g_StateLock);
        if (g_Given) return Counted(g_Given);
        if (g_Global) return Counted(g_Global);
    }
    void* library = KitOpenModuleFile("./CollectionsEx.so");
    if (!library) return nullptr;
    auto entry = reinterpret_cast<ModuleCreateFunction>(dlsym(library, "CreateFunction"));
    if (!entry) return nullptr;
    void* creator = nullptr;
    tagREFString name = REFStr(L"GlobalComponentCollection");
    if (entry(name.length, name.text, &creator) != S_OK || !creator) return nullptr;
    IComponentCollection* created = nullptr;
    reinterpret_cast<CreateInstanceFunction>(creator)(nullptr, &IID_IComponentCollection,
                                                      reinterpret_cast<void**>(&created));
    if (!created) return nullptr;
    IComponentCollection* surplus = nullptr;
    SmartPtr<IComponentCollection> result;
    {
        std::lock_guard<std::mutex> guard(g_StateLock);
        // The creation reference becomes the module's own; a thread that lost
        // the race gives its reference back.
        if (!g_Global)
            g_Global = created;
        else
            surplus = created;
        result = Counted(g_Global);
    }
    if (surplus) surplus->Release();
    return result;
}

HRESULT KitCreateObject(tagREFString className, const IID& iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    SmartPtr<IComponentCollection> collection = KitModuleCollection();
    if (!collection) return E_FAIL;
    HRESULT hr = collection->CreateObject(className, &iid, object);
    if (hr < 0) *object = nullptr;
    return hr;
}
