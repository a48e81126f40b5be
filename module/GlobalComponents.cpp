// The module's global component collection.
#include "module/GlobalComponents.h"

#include "module/ModuleLoader.h"

namespace {

// Initialised before the identifier-dependent code runs; at unload the
// pointer is cleared and its reference given back.
SmartPtr<IComponentCollection> g_Components;

}  // namespace

void SetGlobalComponents(IComponentCollection* collection) {
    // Take the new reference before dropping the old, so that passing the
    // collection already held never releases it to zero in between.
    g_Components.Assign(collection);
}

extern "C" __attribute__((visibility("default"))) IComponentCollection* GLOBALComponents() {
    if (!g_Components) {
        CreateInstanceFunction create =
            MODULECreateFunction(REFStr(L"CollectionsEx"), REFStr(L"GlobalComponentCollection"));
        if (!create) return nullptr;
        IComponentCollection* created = nullptr;
        create(nullptr, &IID_IComponentCollection, reinterpret_cast<void**>(&created));
        // The creation reference becomes the module's own; nothing is cached
        // when creation gave nothing, so the next call tries again.
        g_Components = SmartPtr<IComponentCollection>::Adopt(created);
        if (!g_Components) return nullptr;
    }
    g_Components->AddRef();
    return g_Components.Get();
}
