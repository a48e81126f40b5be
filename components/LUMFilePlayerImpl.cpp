#include "components/LUMFilePlayerImpl.h"

template <>
const tagREFString IObjectInfoImpl<CLUMFilePlayer>::m_ObjectName = {13, const_cast<wchar_t*>(L"LUMFilePlayer")};

using Entry = InterfaceEntry<CLUMFilePlayer>;
// _IFileNameCollectionEvent is answered with the primary pointer although the
// player has no such part: hosts must never advise a player on a file list.
const Entry CLUMFilePlayer::kInterfaces[] = {
    Entry::Of<IObjectInfoImpl<CLUMFilePlayer>>(IID_IObjectInfo),
    Entry::Of<ICamera>(IID_ICamera),
    Entry::Of<IDataPersist>(IID_IDataPersist),
    Entry::Of<IEventSourceImpl<CLUMFilePlayer, &IID__ICameraEvents>>(IID_IEventSource),
    Entry::Of<IFileArchiveImpl<CLUMFilePlayer, IFileArchive>>(IID_IFileArchive),
    Entry::Of<IUIPropInterrogateImpl<CLUMFilePlayer, IUIPropInterrogateEx, 10>>(IID_IUIPropInterrogate),
    Entry::Of<IUIPropInterrogateImpl<CLUMFilePlayer, IUIPropInterrogateEx, 10>>(IID_IUIPropInterrogateEx),
    Entry::Of<IUIPropertyPageSpecify>(IID_IUIPropertyPageSpecify),
    Entry::Of<_ICameraEvents>(IID__ICameraEvents),
    Entry::Of<CObject<CLUMFilePlayer>>(IID__IFileNameCollectionEvent),
    Entry::Of<IMMControlEx>(IID_IMMControlEx),
    Entry::Of<IMMControlEx>(IID_IMMControl),
    Entry::Forward<&CLUMFilePlayer::m_FileList>(IID_IFileNameCollection),
    Entry::Forward<&CLUMFilePlayer::m_FileList>(IID_ISuperCollection),
    Entry::Forward<&CLUMFilePlayer::m_FileList>(IID_INamedCollection),
    Entry::Forward<&CLUMFilePlayer::m_FileList>(IID_ISimpleCollection),
    Entry::Forward<&CLUMFilePlayer::m_FileList>(IID_IExtCollection),
    Entry::End(),
};

HRESULT CLUMFilePlayer::FinalConstruct() {
    // A framework module that cannot be created leaves its member empty; the
    // player's operations then fail softly.
    m_FileList = CreateObjectAs<IFileNameCollection>(L"FileNameCollection", IID_IFileNameCollection);
    if (SmartPtr<IExtCollection> extensions = CreateObjectAs<IExtCollection>(L"ExtCollection", IID_IExtCollection)) {
        extensions->ClearExtensions();
        for (const wchar_t* extension : {L"bmp", L"jpg", L"jpeg", L"png"})
            extensions->AddExtension(REFStr(extension), REFStr(L"LUMArch.LUMFileEx"));
        if (m_FileList) m_FileList->put_Extensions(extensions.Get());
    }
    m_ImageWriter = CreateObjectAs<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    return S_OK;
}

void CLUMFilePlayer::FinalRelease() {
    if (m_FileList) m_FileList->Stop();
    Stop();
    if (m_RecordSource) m_RecordSource->Advise(static_cast<_ICameraEvents*>(this), 0);
    m_CurrentImage.Reset();
}

HRESULT CLUMFilePlayer::Inquire(int32_t code, int32_t* value) {
    return IUIPropInterrogateImpl::Inquire(code, value);
}

HRESULT CLUMFilePlayer::Control(int32_t code, int32_t value) {
    return IUIPropInterrogateImpl::Control(code, value);
}
