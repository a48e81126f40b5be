// "GlobalComponentCollection": the process-wide resolver of class names.
#pragma once

#include <mutex>
#include <string>
#include <unordered_map>

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CGlobalComponentCollection final : public CObject<CGlobalComponentCollection>,
                                         public IComponentCollection,
                                         public IObjectInfoImpl<CGlobalComponentCollection> {
    LUM_OBJECT_UNKNOWN(CGlobalComponentCollection)
public:
    /// Creation function of the class: every call hands out the one shared
    /// instance with one more reference.
    static HRESULT CreateShared(void* outer, const IID* iid, void** object);

    /// The shared instance (not counted for the caller), or null when it
    /// could not be allocated. Intentionally never destroyed, so that it
    /// stays valid while other modules release it at process exit.
    static CGlobalComponentCollection* Instance();

    HRESULT CreateObject(tagREFString className, const IID* iid, void** object) override;
    HRESULT GetCreateFunction(tagREFString className, void** creator) override;
    HRESULT RegisterCreateFunction(tagREFString className, void* creator) override;

private:
    /// The creation function for a class name: a registered name, else a
    /// dotted "Module.Class[.Version]", else the class table, else "<Name>.so".
    HRESULT Resolve(tagREFString className, CreateInstanceFunction* create);
    /// The CreateFunction entry of module `module` ("./<module>.so"), loading
    /// the file and initialising the module the first time.
    HRESULT ModuleEntry(const std::wstring& module, ModuleCreateFunction* entry);

    std::mutex m_Lock;  // guards the three maps
    std::unordered_map<std::wstring, CreateInstanceFunction> m_Registered;
    std::unordered_map<std::wstring, CreateInstanceFunction> m_Resolved;
    std::unordered_map<std::wstring, ModuleCreateFunction> m_Modules;  // null: no CreateFunction
    // Serialises loading, so that each file is loaded and initialised once;
    // recursive because a module's InitializeModule may create objects.
    std::recursive_mutex m_LoadLock;
};
LUM_KIT_OBJECT_NAME_DECLARE(CGlobalComponentCollection)
