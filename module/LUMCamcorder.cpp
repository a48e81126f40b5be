// The module's exported entry points and its class factory.
#include "components/LUMCamWindow.h"
#include "components/LUMCamcorderImpl.h"
#include "components/LUMFileGrabImpl.h"
#include "components/LUMFilePlayerImpl.h"
#include "components/LUMStackCamcorder.h"
#include "module/GlobalComponents.h"

#define LUM_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

struct ClassRow {
    const tagREFString* name;  // the class's own object-name record
    CreateInstanceFunction create;
};

// Tried in this order; the first exact match wins.
const ClassRow kClasses[] = {
    {&IObjectInfoImpl<CLUMCamcorder>::m_ObjectName, &CObject<CLUMCamcorder>::_CreateInstance},
    {&IObjectInfoImpl<CLUMCamWindow>::m_ObjectName, &CObject<CLUMCamWindow>::_CreateInstance},
    {&IObjectInfoImpl<CLUMStackCamcorder>::m_ObjectName, &CObject<CLUMStackCamcorder>::_CreateInstance},
    {&IObjectInfoImpl<CLUMFileGrab>::m_ObjectName, &CObject<CLUMFileGrab>::_CreateInstance},
    {&IObjectInfoImpl<CLUMFilePlayer>::m_ObjectName, &CObject<CLUMFilePlayer>::_CreateInstance},
};

bool NameMatches(const tagREFString& row, int32_t length, const wchar_t* name) {
    if (length != row.length) return false;
    if (length <= 0) return true;
    if (!name) return false;
    for (int32_t i = 0; i < length; ++i)
        if (static_cast<uint32_t>(name[i]) != static_cast<uint32_t>(row.text[i])) return false;
    return true;
}

}  // namespace

/// Keeps the host's collection (one reference); null drops the one held.
LUM_EXPORT HRESULT InitializeModule(void* /*host*/, IComponentCollection* collection) {
    SetGlobalComponents(collection);
    return S_OK;
}

/// The creation function of a class by its exact, case-sensitive name.
LUM_EXPORT HRESULT CreateFunction(int32_t length, const wchar_t* name, void** creator) {
    for (const ClassRow& row : kClasses) {
        if (NameMatches(*row.name, length, name)) {
            if (!creator) return E_POINTER;
            *creator = reinterpret_cast<void*>(row.create);
            return S_OK;
        }
    }
    return E_FAIL;
}
