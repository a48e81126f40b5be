// The stack camcorder's archive side: the whole stack saved as a numbered
// image series or one AVI file, and loaded from an AVI file or a folder.
#include <dirent.h>

#include <cwctype>
#include <string>

#include "components/LUMStackCamcorder.h"
#include "text/FileName.h"
#include "text/ValueConversion.h"

namespace {

/// True when `extension` and "avi" agree, case-blind, over the shorter of
/// the two and neither is empty: "AVI", "a" and "avix" all select AVI.
bool SelectsAvi(const std::wstring& extension) {
    static const std::wstring avi = L"avi";
    const size_t n = std::min(extension.size(), avi.size());
    if (n == 0) return false;
    for (size_t i = 0; i < n; ++i)
        if (std::towlower(static_cast<wint_t>(extension[i])) != static_cast<wint_t>(avi[i])) return false;
    return true;
}

/// Extensions read when a folder is loaded, each by the file-entry class.
const wchar_t* const kFolderExtensions[] = {L"lum", L"bmp", L"jpg", L"jpeg", L"png",
                                            L"gif", L"tif", L"tiff", L"wmf", L"emf"};

}  // namespace

void CLUMStackCamcorder::ShowMessage(const wchar_t* text) {
    if (m_Quiet != 0) return;
    if (SmartPtr<IMessageWindow> window = CreateObjectAs<IMessageWindow>(L"MessageWindow", IID_IMessageWindow))
        window->ShowText(REFStr(text));
}

HRESULT CLUMStackCamcorder::Save() {
    SmartPtr<ISimpleCollection> images = m_Stack.As<ISimpleCollection>(IID_ISimpleCollection);
    const std::wstring name = ISText(m_FileName.Get());
    // Stem and extension around the last '.'; without one (or with it first)
    // the whole name is the extension.
    const size_t dot = name.rfind(L'.');
    std::wstring stem, extension;
    if (dot == std::wstring::npos || dot == 0) {
        extension = name;
    } else {
        stem = name.substr(0, dot);
        extension = name.substr(dot + 1);
    }
    if (SelectsAvi(extension)) return SaveAvi(images.Get());
    return SaveSeries(images.Get(), stem, extension.empty() ? L"jpg" : extension);
}

HRESULT CLUMStackCamcorder::SaveAvi(ISimpleCollection* images) {
    ShowMessage(L"Creating AVI File. This may take some time...");
    if (SmartPtr<ICreatableSimpleCollection> frames =
            CreateObjectAs<ICreatableSimpleCollection>(L"LUMMJPEG", IID_ICreatableSimpleCollection)) {
        int32_t count = 0;
        if (images) images->get_Count(&count);
        // From one past the last image down to the second: the writer is
        // handed items n, n-1, ..., 1, and the first image is never written.
        for (int32_t i = count; i >= 1; --i) {
            SmartPtr<IUnknown> item;
            if (images) images->get_Item(i, item.Out());
            frames->Add(item.Get());
        }
        if (SmartPtr<ILUMAVI> avi = frames.As<ILUMAVI>(IID_ILUMAVI)) avi->SetOption(10, m_AviRate);
        if (SmartPtr<IFileArchive> file = frames.As<IFileArchive>(IID_IFileArchive)) {
            file->put_Filename(m_FileName.Get());
            file->Save();
        }
    }
    // Reported as a failure also when the file was written.
    return E_FAIL;
}

HRESULT CLUMStackCamcorder::SaveSeries(ISimpleCollection* images, const std::wstring& stem,
                                       const std::wstring& extension) {
    SmartPtr<ILUMArchive> archive = CreateObjectAs<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    if (!archive) return E_FAIL;
    int32_t count = 0;
    if (images) images->get_Count(&count);
    for (int32_t i = 0; i < count; ++i) {
        wchar_t number[16];
        _swprintf(number, 16, L"%04d", i + 1);
        const std::wstring file = stem + number + L"." + extension;
        SmartPtr<IUnknown> item;
        images->get_Item(i, item.Out());
        SmartPtr<IString> name = SmartPtr<IString>::Adopt(ISCreate(file.c_str()));
        archive->Write(name.Get(), QueryAs<ILUM>(item.Get(), IID_ILUM).Get(), 100);
    }
    return S_OK;
}

HRESULT CLUMStackCamcorder::Load() {
    const std::wstring name = ISText(m_FileName.Get());
    if (name.empty()) return E_FAIL;
    // Case-sensitive on purpose: "run.AVI" is loaded as a folder.
    if (name.find(L".avi") != std::wstring::npos)
        LoadAvi(m_FileName.Get());
    else
        LoadFolder(name);
    m_Index = 0;
    return S_OK;
}

void CLUMStackCamcorder::LoadAvi(IString* name) {
    ShowMessage(L"Loading AVI File. This may take some time...");
    SmartPtr<IFileArchive> file = CreateObjectAs<IFileArchive>(L"LUMAVI", IID_IFileArchive);
    if (!file) return;
    file->put_Filename(name);
    file->Load();
    SmartPtr<ISimpleCollection> frames = file.As<ISimpleCollection>(IID_ISimpleCollection);
    if (!frames || !m_Stack) return;
    int32_t count = 0;
    frames->get_Count(&count);
    m_Stack->SetSize(count, m_Loop);
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IUnknown> frame;
        frames->get_Item(i, frame.Out());
        m_Stack->Add(frame.Get());
    }
}

void CLUMStackCamcorder::LoadFolder(const std::wstring& name) {
    SmartPtr<IFileNameCollection> files =
        CreateObjectAs<IFileNameCollection>(L"FileNameCollection", IID_IFileNameCollection);
    SmartPtr<IExtCollection> extensions = CreateObjectAs<IExtCollection>(L"ExtCollection", IID_IExtCollection);
    if (!files) return;
    if (extensions) {
        extensions->ClearExtensions();
        for (const wchar_t* extension : kFolderExtensions)
            extensions->AddExtension(REFStr(extension), REFStr(L"LUMArch.LUMFileEx.1"));
    }
    // An existing folder is taken whole; otherwise the folder part of the name.
    std::wstring folder = name;
    std::string narrow;
    DIR* directory = FILENAMEToMultibyte(name, narrow) ? opendir(narrow.c_str()) : nullptr;
    if (directory) {
        closedir(directory);
    } else {
        const size_t slash = name.rfind(L'/');
        folder = slash == std::wstring::npos ? std::wstring() : name.substr(0, slash);
    }
    files->put_Extensions(extensions.Get());
    files->put_Pattern(SmartPtr<IString>::Adopt(ISCreate(folder.c_str())).Get());
    files->Rescan();
    SmartPtr<ISuperCollection> entries = files.As<ISuperCollection>(IID_ISuperCollection);
    if (!entries || !m_Stack) return;
    int32_t count = 0;
    entries->get_Count(&count);
    m_Stack->SetSize(count, m_Loop);
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IUnknown> entry;
        entries->get_Item(i, entry.Out());
        if (SmartPtr<IFileArchive> file = QueryAs<IFileArchive>(entry.Get(), IID_IFileArchive)) file->Load();
        m_Stack->Add(entry.Get());
    }
}
