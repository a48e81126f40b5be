// The file player's settings (parameters and archive file name), its
// archive of the current image, and its property page.
#include "components/LUMFilePlayerImpl.h"
#include "text/FileName.h"
#include "text/REFString.h"
#include "text/ValueConversion.h"

HRESULT CLUMFilePlayer::Save(IDataStream* stream, int32_t flags) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    UIPropInterrogate_SaveFolderStream(nullptr, folder.Get(), flags);
    SmartPtr<IString> name;
    Lock();
    name = m_FileName;
    Unlock();
    SmartPtr<IString> relative;
    if (name) FILENAMECreateRelative(name.Get(), relative.Out());
    if (!relative) relative = MakeString(L"");
    return folder->WriteString(MakeString(L"Filename").Get(), relative.Get()) < 0 ? E_FAIL : S_OK;
}

HRESULT CLUMFilePlayer::Load(IDataStream* stream, int32_t flags) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    UIPropInterrogate_LoadFolderStream(folder.Get(), flags);

    SmartPtr<IString> stored = MakeString(L"");
    if (stored && folder->ReadString(MakeString(L"Filename").Get(), stored.Get()) >= 0) {
        SmartPtr<IString> absolute;
        if (!ISText(stored.Get()).empty()) FILENAMECreateAbsolute(stored.Get(), absolute.Out());
        Lock();
        m_FileName = std::move(absolute);
        Unlock();
    }
    // A loaded pattern is what the list shows from the next step on.
    Lock();
    if (m_FileList && m_RecordSuffix) {
        m_FileList->put_Pattern(m_RecordSuffix.Get());
        m_Scanned = 0;
    }
    Unlock();
    return S_OK;
}

HRESULT CLUMFilePlayer::get_Filename(IString** name) {
    Lock();
    HRESULT hr = IFileArchiveImpl::get_Filename(name);
    Unlock();
    return hr;
}

HRESULT CLUMFilePlayer::put_Filename(IString* name) {
    Lock();
    HRESULT hr = IFileArchiveImpl::put_Filename(name);
    Unlock();
    return hr;
}

HRESULT CLUMFilePlayer::Save() {
    SmartPtr<IString> name;
    SmartPtr<ILUM> image;
    SmartPtr<ILUMArchive> writer;
    Lock();
    name = m_FileName;
    image = m_CurrentImage;
    writer = m_ImageWriter;
    Unlock();
    if (!writer || !name) return E_FAIL;
    return writer->Write(name.Get(), image.Get(), 100);
}

HRESULT CLUMFilePlayer::Load() {
    SmartPtr<IString> name;
    SmartPtr<ILUMArchive> writer;
    Lock();
    name = m_FileName;
    writer = m_ImageWriter;
    Unlock();
    if (!writer || !name) return E_FAIL;
    SmartPtr<ILUM> image;
    HRESULT hr = writer->Read(name.Get(), image.Out());
    if (hr < 0 || !image) return hr < 0 ? hr : E_FAIL;
    Fire_ImageGrabbed(static_cast<ICamera*>(this), image.Get(), 0);
    return S_OK;
}

HRESULT CLUMFilePlayer::GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) {
    if (!pages) return E_POINTER;
    *pages = nullptr;
    SmartPtr<ISuperCollection> collection = SmartPtr<ISuperCollection>::Adopt(CREFString::CreateCollection());
    if (!collection) return E_FAIL;
    // The generic parameter page, named by the entry's name.
    collection->AddNamed(REFStr(L"UIPropPages.UIPropInterrogatePropPage"), MakeString(L"").Get());
    *pages = collection.Detach();
    return S_OK;
}
