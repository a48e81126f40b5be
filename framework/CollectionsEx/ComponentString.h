// "ComponentString": a component's name (library and class parts by kind)
// that creates objects of the named class.
#pragma once

#include <map>
#include <string>

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CComponentString final : public CObject<CComponentString>,
                               public IComponentString,
                               public IDataPersist,
                               public IObjectInfoImpl<CComponentString> {
    LUM_OBJECT_UNKNOWN(CComponentString)
public:
    static constexpr int32_t kClassKind = 1;
    static constexpr int32_t kLibraryKind = 4;

    /// Sets the name part of `kind`; an empty name clears it.
    HRESULT Register(int32_t kind, tagREFString name) override;
    /// A new object of the kind-1 class: this module's classes directly,
    /// others through the module's collection. E_FAIL without a class name.
    HRESULT CreateInstance(const IID* iid, void** object) override;
    HRESULT put_Object(IUnknown* object) override;
    HRESULT GetNameString(int32_t index, IString** name) override;

    /// Writes the string entries "Library" and "Class" into a folder stream.
    HRESULT Save(IDataStream* stream, int32_t flags) override;
    /// Reads them back; E_FAIL (nothing changed) without a "Class" entry.
    HRESULT Load(IDataStream* stream, int32_t flags) override;

private:
    void SetPart(int32_t kind, std::wstring text);
    const std::wstring* Part(int32_t kind) const;

    std::map<int32_t, std::wstring> m_Parts;  // only non-empty parts
    // Set while the class part names one of this module's own classes: the
    // fast path for the strings, variants and collections a host makes.
    CreateInstanceFunction m_OwnCreator = nullptr;
};
LUM_KIT_OBJECT_NAME_DECLARE(CComponentString)
