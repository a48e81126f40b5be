// "ExtCollection": an ordered table of (extension, class name), initially
// empty. Internally locked, since a file list's watch thread reads the table
// it was given while the host may still change it.
#pragma once

#include <mutex>

#include "framework/FileNames/ExtTable.h"
#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CExtCollection final : public CObject<CExtCollection>,
                             public IExtCollection,
                             public IObjectInfoImpl<CExtCollection> {
    LUM_OBJECT_UNKNOWN(CExtCollection)
public:
    HRESULT get_ExtensionCount(int32_t* count) override;
    HRESULT get_Extension(int32_t index, IString** extension) override;
    HRESULT get_ExtensionClass(int32_t index, IString** className) override;
    int32_t FindExtension(tagREFString extension) override;
    HRESULT get_ClassFor(tagREFString extension, IString** className) override;
    /// E_FAIL when the extension is not in the table.
    HRESULT RemoveExtension(tagREFString extension) override;
    /// Takes the rows and the comparison mode of `source`.
    HRESULT CopyExtensions(IExtCollection* source) override;
    /// Creates an object of the class of the name's extension through the
    /// module's collection; the name only selects the class. E_FAIL when the
    /// extension has no class.
    HRESULT CreateFor(tagREFString fileName, const IID* iid, void** object) override;
    /// E_INVALIDARG for an empty extension or class name.
    HRESULT AddExtension(tagREFString extension, tagREFString className) override;
    HRESULT get_MatchCase(int32_t* on) override;
    HRESULT put_MatchCase(int32_t on) override;
    HRESULT ClearExtensions() override;

private:
    std::mutex m_Lock;
    ExtTable m_Table;
};
LUM_KIT_OBJECT_NAME_DECLARE(CExtCollection)

/// Creates an object of `className` asking for `iid` through the module's
/// collection (the name may be dotted, "Module.Class").
HRESULT ExtCreateObject(const std::wstring& className, const IID& iid, void** object);
