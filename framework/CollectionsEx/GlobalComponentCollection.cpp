#include "framework/CollectionsEx/GlobalComponentCollection.h"

#include <dlfcn.h>

#include <new>
#include <string_view>

#include "framework/CollectionsEx/CollectionsEx.h"
#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CGlobalComponentCollection, L"GlobalComponentCollection")

const InterfaceEntry<CGlobalComponentCollection> CGlobalComponentCollection::kInterfaces[] = {
    InterfaceEntry<CGlobalComponentCollection>::Of<IComponentCollection>(IID_IComponentCollection),
    InterfaceEntry<CGlobalComponentCollection>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CGlobalComponentCollection>::End(),
};

namespace {

constexpr std::wstring_view kOwnModule = L"CollectionsEx";

// Which module file serves each bare class name of the framework.
struct ClassHome {
    std::wstring_view className;
    std::wstring_view module;
};

constexpr ClassHome kClassTable[] = {
    {L"GlobalComponentCollection", L"CollectionsEx"},
    {L"ComponentString", L"CollectionsEx"},
    {L"CreatableString", L"CollectionsEx"},
    {L"Variant", L"CollectionsEx"},
    {L"SimpleCollection", L"CollectionsEx"},
    {L"SuperCollection", L"CollectionsEx"},
    {L"Parameters", L"CollectionsEx"},
    {L"XMLStream", L"Streams"},
    {L"XMLStreamEx", L"Streams"},
    {L"FolderStream", L"Streams"},
    {L"ASCIIStream", L"Streams"},
    {L"DataStream", L"Streams"},
    {L"FileInfo", L"Streams"},
    {L"LUMImageDIB", L"LUMImage"},
    {L"LUMImageCANVAS", L"LUMImage"},
    {L"LUMStack", L"LUMImage"},
    {L"LUMTestCamera", L"LUMImage"},
    {L"LUMAravisCamera", L"LUMAravis"},
    {L"LUMArchive", L"LUMArch"},
    {L"LUMFileEx", L"LUMArch"},
    {L"LUMMJPEG", L"LUMVideo"},
    {L"LUMAVI", L"LUMVideo"},
    {L"FileNameCollection", L"FileNames"},
    {L"ExtCollection", L"FileNames"},
    {L"UIPropInterrogatePropPage", L"UIPropPages"},
    {L"UIFileArchivePropPage", L"UIPropPages"},
    {L"UIParametersSlidePropPage", L"UIPropPages"},
    {L"LUMCollectionPropPage", L"UIPropPages"},
    {L"LUMViewer", L"UIPropPages"},
    {L"MessageWindow", L"UIPropPages"},
    {L"Registry", L"Registry"},
    {L"StringTable", L"Registry"},
    {L"LUMCamcorder", L"LUMCamcorder"},
    {L"LUMCamWindow", L"LUMCamcorder"},
    {L"LUMStackCamcorder", L"LUMCamcorder"},
    {L"LUMFileGrab", L"LUMCamcorder"},
    {L"LUMFilePlayer", L"LUMCamcorder"},
};

// Splits a class name into its module and bare class. False for a name that
// cannot name a class: a dotted name with an empty module or class part, or
// a name with a 0 character or a "/" (module files live in the working
// directory only).
bool SplitClassName(std::wstring_view name, std::wstring& module, std::wstring& className) {
    if (name.find(L'\0') != std::wstring_view::npos || name.find(L'/') != std::wstring_view::npos)
        return false;
    size_t firstDot = name.find(L'.');
    if (firstDot != std::wstring_view::npos) {
        // "Module.Class" or "Module.Class.Version": the version is ignored.
        size_t secondDot = name.find(L'.', firstDot + 1);
        std::wstring_view cls = name.substr(firstDot + 1, secondDot == std::wstring_view::npos
                                                              ? std::wstring_view::npos
                                                              : secondDot - firstDot - 1);
        if (firstDot == 0 || cls.empty()) return false;
        module.assign(name.substr(0, firstDot));
        className.assign(cls);
        return true;
    }
    className.assign(name);
    for (const ClassHome& home : kClassTable) {
        if (home.className == name) {
            module.assign(home.module);
            return true;
        }
    }
    // An unknown bare name is tried as the class of a module of its own name.
    module.assign(name);
    return true;
}

}  // namespace

CGlobalComponentCollection* CGlobalComponentCollection::Instance() {
    // Reachable from this static for the life of the process; its creation
    // reference is never given back.
    static CGlobalComponentCollection* const instance = new (std::nothrow) CGlobalComponentCollection();
    return instance;
}

HRESULT CGlobalComponentCollection::CreateShared(void* /*outer*/, const IID* iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!iid) return E_POINTER;
    CGlobalComponentCollection* instance = Instance();
    if (!instance) return E_FAIL;
    return instance->QueryInterface(*iid, object);
}

HRESULT CGlobalComponentCollection::CreateObject(tagREFString className, const IID* iid,
                                                 void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!iid) return E_POINTER;
    CreateInstanceFunction create = nullptr;
    HRESULT hr = Resolve(className, &create);
    if (hr < 0) return hr;
    hr = create(nullptr, iid, object);
    if (hr < 0) *object = nullptr;
    return hr;
}

HRESULT CGlobalComponentCollection::GetCreateFunction(tagREFString className, void** creator) {
    if (!creator) return E_POINTER;
    *creator = nullptr;
    CreateInstanceFunction create = nullptr;
    HRESULT hr = Resolve(className, &create);
    if (hr < 0) return hr;
    *creator = reinterpret_cast<void*>(create);
    return S_OK;
}

HRESULT CGlobalComponentCollection::RegisterCreateFunction(tagREFString className, void* creator) {
    std::wstring name;
    if (!KitViewText(className, name)) return E_POINTER;
    if (name.empty()) return E_INVALIDARG;
    try {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (creator)
            m_Registered[name] = reinterpret_cast<CreateInstanceFunction>(creator);
        else
            m_Registered.erase(name);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CGlobalComponentCollection::Resolve(tagREFString className, CreateInstanceFunction* create) {
    std::wstring name;
    if (!KitViewText(className, name)) return E_POINTER;
    if (name.empty()) return E_INVALIDARG;
    try {
        {
            std::lock_guard<std::mutex> guard(m_Lock);
            auto registered = m_Registered.find(name);
            if (registered != m_Registered.end()) {
                *create = registered->second;
                return S_OK;
            }
            auto resolved = m_Resolved.find(name);
            if (resolved != m_Resolved.end()) {
                *create = resolved->second;
                return S_OK;
            }
        }

        std::wstring module, bareClass;
        if (!SplitClassName(name, module, bareClass)) return E_INVALIDARG;

        CreateInstanceFunction found = nullptr;
        if (module == kOwnModule) {
            // This module's own classes need no lookup of a file.
            found = CollectionsExFindClass(static_cast<int32_t>(bareClass.size()), bareClass.c_str());
        } else {
            ModuleCreateFunction entry = nullptr;
            HRESULT hr = ModuleEntry(module, &entry);
            if (hr < 0) return hr;
            void* creator = nullptr;
            if (entry(static_cast<int32_t>(bareClass.size()), bareClass.c_str(), &creator) == S_OK)
                found = reinterpret_cast<CreateInstanceFunction>(creator);
        }
        if (!found) return E_FAIL;

        std::lock_guard<std::mutex> guard(m_Lock);
        m_Resolved.emplace(name, found);
        *create = found;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
}

HRESULT CGlobalComponentCollection::ModuleEntry(const std::wstring& module, ModuleCreateFunction* entry) {
    auto lookup = [&]() -> bool {
        std::lock_guard<std::mutex> guard(m_Lock);
        auto loaded = m_Modules.find(module);
        if (loaded == m_Modules.end()) return false;
        *entry = loaded->second;
        return true;
    };
    if (!lookup()) {
        std::lock_guard<std::recursive_mutex> loading(m_LoadLock);
        if (!lookup()) {
            std::string narrow;
            if (!KitNarrowFileName(module, narrow)) return E_FAIL;
            // A missing file is not remembered: it may appear later.
            void* library = KitOpenModuleFile("./" + narrow + ".so");
            if (!library) return E_FAIL;
            auto create = reinterpret_cast<ModuleCreateFunction>(dlsym(library, "CreateFunction"));
            auto initialize = reinterpret_cast<InitializeModuleFunction>(dlsym(library, "InitializeModule"));
            {
                // Recorded before the module is initialised, so that objects
                // its InitializeModule creates do not load it a second time.
                std::lock_guard<std::mutex> guard(m_Lock);
                m_Modules.emplace(module, create);
            }
            if (initialize) initialize(nullptr, this);
            *entry = create;
        }
    }
    return *entry ? S_OK : E_FAIL;
}
