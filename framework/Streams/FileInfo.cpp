#include "framework/Streams/FileInfo.h"

#include <ctime>
#include <new>

#include "framework/Streams/StreamsCommon.h"
#include "framework/common/KitString.h"
#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CFileInfo, L"FileInfo")

const InterfaceEntry<CFileInfo> CFileInfo::kInterfaces[] = {
    InterfaceEntry<CFileInfo>::Of<IFileInfo>(IID_IFileInfo),
    InterfaceEntry<CFileInfo>::Of<IDataPersist>(IID_IDataPersist),
    InterfaceEntry<CFileInfo>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CFileInfo>::End(),
};

namespace {

// 2000-01-01 00:00:00 UTC in seconds since 1970-01-01 00:00:00 UTC.
constexpr int64_t kEpoch2000 = 946684800;
constexpr int32_t kVersion = 1;

}  // namespace

CFileInfo::CFileInfo() { Reset(); }

HRESULT CFileInfo::Reset() {
    m_Time = static_cast<int64_t>(std::time(nullptr)) - kEpoch2000;
    return S_OK;
}

HRESULT CFileInfo::put_Component(IUnknown* component) {
    if (!component) return E_POINTER;
    std::wstring name;
    if (SmartPtr<IComponentString> string = QueryAs<IComponentString>(component, IID_IComponentString)) {
        SmartPtr<IString> full;
        HRESULT hr = string->GetNameString(0, full.Out());
        if (hr < 0) return hr;
        name = KitTextOf(full.Get());
    } else if (SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(component, IID_IObjectInfo)) {
        tagREFString view{0, nullptr};
        HRESULT hr = info->GetName(0, &view);
        if (hr < 0) return hr;
        name = KitViewString(view);
    } else {
        return E_NOINTERFACE;
    }
    if (name.empty()) return E_FAIL;
    m_ClassName = std::move(name);
    return S_OK;
}

HRESULT CFileInfo::get_ClassName(IString** name) {
    if (!name) return E_POINTER;
    *name = nullptr;
    SmartPtr<IString> text = KitNewString(m_ClassName);
    if (!text) return E_FAIL;
    *name = text.Detach();
    return S_OK;
}

HRESULT CFileInfo::get_Time(int64_t* seconds) {
    if (!seconds) return E_POINTER;
    *seconds = m_Time;
    return S_OK;
}

HRESULT CFileInfo::Save(IDataStream* stream, int32_t /*flags*/) {
    if (!stream) return E_POINTER;
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_NOINTERFACE;
    bool xml = static_cast<bool>(QueryAs<IUnknown>(stream, IID_StreamsXMLFolder));
    SmartPtr<IString> classKey = KitNewString(L"Class");
    SmartPtr<IString> classValue = KitNewString(m_ClassName);
    SmartPtr<IString> timeKey = KitNewString(L"Time");
    SmartPtr<IString> timeText = KitNewString(std::to_wstring(m_Time));
    SmartPtr<IString> versionKey = KitNewString(L"Version");
    if (!classKey || !classValue || !timeKey || !timeText || !versionKey) return E_FAIL;

    HRESULT hr = folder->WriteString(classKey.Get(), classValue.Get());
    if (hr < 0) return hr;
    hr = xml ? folder->WriteString(timeKey.Get(), timeText.Get())
             : folder->WriteValue(timeKey.Get(), &m_Time, sizeof m_Time, 0);
    if (hr < 0) return hr;
    return folder->WriteValue(versionKey.Get(), &kVersion, sizeof kVersion, 0);
}

HRESULT CFileInfo::Load(IDataStream* stream, int32_t /*flags*/) {
    if (!stream) return E_POINTER;
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_NOINTERFACE;
    bool xml = static_cast<bool>(QueryAs<IUnknown>(stream, IID_StreamsXMLFolder));
    SmartPtr<IString> classKey = KitNewString(L"Class");
    SmartPtr<IString> timeKey = KitNewString(L"Time");
    SmartPtr<IString> text = KitNewString(L"");
    if (!classKey || !timeKey || !text) return E_FAIL;

    int64_t time = 0;
    if (xml) {
        if (folder->ReadString(timeKey.Get(), text.Get()) < 0 || !StreamsParseInt64(KitTextOf(text.Get()), &time))
            return E_FAIL;
    } else if (folder->ReadValue(timeKey.Get(), &time, sizeof time, 0) < 0) {
        return E_FAIL;
    }
    if (folder->ReadString(classKey.Get(), text.Get()) < 0) return E_FAIL;
    try {
        m_ClassName = KitTextOf(text.Get());
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    m_Time = time;
    return S_OK;
}
