#include "tools/lumhost/FrameworkHost.h"

#include <dlfcn.h>

#include <cstdio>

namespace {

void* Open(const char* file, std::string& error) {
    void* library = dlopen(file, RTLD_NOW);
    if (!library) error = std::string("cannot load ") + file + ": " + dlerror();
    return library;
}

}  // namespace

bool FrameworkHost::Start() {
    void* collections = Open("./CollectionsEx.so", m_Error);
    if (!collections) return false;
    auto create = reinterpret_cast<ModuleCreateFunction>(dlsym(collections, "CreateFunction"));
    void* creator = nullptr;
    tagREFString name = REFStr(L"GlobalComponentCollection");
    if (!create || create(name.length, name.text, &creator) != S_OK || !creator) {
        m_Error = "./CollectionsEx.so has no GlobalComponentCollection";
        return false;
    }
    HRESULT hr = reinterpret_cast<CreateInstanceFunction>(creator)(nullptr, &IID_IComponentCollection,
                                                                  m_Collection.OutVoid());
    if (hr != S_OK || !m_Collection) {
        m_Error = "cannot create the global component collection: " + ResultText(hr);
        return false;
    }
    void* camera = Open("./LUMCamcorder.so", m_Error);
    if (!camera) return false;
    m_InitializeCamera = reinterpret_cast<InitializeModuleFunction>(dlsym(camera, "InitializeModule"));
    if (!m_InitializeCamera) {
        m_Error = "./LUMCamcorder.so does not export InitializeModule";
        return false;
    }
    m_InitializeCamera(nullptr, m_Collection.Get());
    return true;
}

void FrameworkHost::Stop() {
    if (m_InitializeCamera) m_InitializeCamera(nullptr, nullptr);
    m_Collection.Reset();
}

std::string ResultText(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
    return text;
}
