// "FileInfo": the origin record of a file, the class identity of the
// component that wrote it and when.
#pragma once

#include <string>

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CFileInfo final : public CObject<CFileInfo>,
                        public IFileInfo,
                        public IDataPersist,
                        public IObjectInfoImpl<CFileInfo> {
    LUM_OBJECT_UNKNOWN(CFileInfo)
public:
    CFileInfo();

    // IFileInfo
    HRESULT Reset() override;
    /// Of an IComponentString its full name, of any other object its
    /// IObjectInfo name; E_NOINTERFACE when it has neither.
    HRESULT put_Component(IUnknown* component) override;
    /// A new string; empty until a component was given.
    HRESULT get_ClassName(IString** name) override;
    HRESULT get_Time(int64_t* seconds) override;

    // IDataPersist: "Class" (string), "Time" and "Version" (value 1) in a
    // folder stream. A binary folder keeps Time as 8 raw bytes; an XML
    // stream's folder as decimal text, so the elements read plainly.
    HRESULT Save(IDataStream* stream, int32_t flags) override;
    /// Needs Class and Time; the record is unchanged when either is missing.
    HRESULT Load(IDataStream* stream, int32_t flags) override;

private:
    std::wstring m_ClassName;
    int64_t m_Time = 0;
};
LUM_KIT_OBJECT_NAME_DECLARE(CFileInfo)
