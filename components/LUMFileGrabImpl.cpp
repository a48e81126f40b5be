#include "components/LUMFileGrabImpl.h"

#include <chrono>
#include <thread>

#include "text/REFString.h"

template <>
const tagREFString IObjectInfoImpl<CLUMFileGrab>::m_ObjectName = {11, const_cast<wchar_t*>(L"LUMFileGrab")};

using Entry = InterfaceEntry<CLUMFileGrab>;
// ICamera is deliberately answered with the primary pointer: the camera
// operations follow the seven object slots there.
const Entry CLUMFileGrab::kInterfaces[] = {
    Entry::Of<IObjectInfoImpl<CLUMFileGrab>>(IID_IObjectInfo),
    Entry::Of<CObject<CLUMFileGrab>>(IID_ICamera),
    Entry::Of<IEventSourceImpl<CLUMFileGrab, &IID__ICameraEvents>>(IID_IEventSource),
    Entry::Of<_IFileNameCollectionEvent>(IID__IFileNameCollectionEvent),
    Entry::Of<IUIPropertyPageSpecify>(IID_IUIPropertyPageSpecify),
    Entry::End(),
};

namespace {

// Options of the file list.
enum : int32_t { kOptionAnnounce = 8, kOptionOrder = 9, kOptionPeriod = 10 };
constexpr int32_t kOrderNewestFirst = 0;
constexpr int32_t kWatchPeriod = 100;

constexpr auto kGrabPoll = std::chrono::milliseconds(100);

}  // namespace

// ---- Life --------------------------------------------------------------

HRESULT CLUMFileGrab::FinalConstruct() {
    m_Files = CreateObjectAs<IFileNameCollection>(L"FileNameCollection", IID_IFileNameCollection);
    if (!m_Files) return E_FAIL;
    // The list keeps the plain pointer without a reference and compares
    // plain pointers: the grab registers, and later repeats, its primary one.
    if (SmartPtr<IEventSource> events = m_Files.As<IEventSource>(IID_IEventSource))
        events->Advise(PrimaryUnknown(), 1);
    m_Files->put_Option(kOptionAnnounce, 1);
    m_Files->put_Option(kOptionOrder, kOrderNewestFirst);
    return S_OK;
}

void CLUMFileGrab::FinalRelease() {
    if (!m_Files) return;
    // No NewFile may start once the grab is going: the watch is stopped
    // (and its thread joined, unless this is that thread) before anything
    // else is given up.
    m_Files->Stop();
    // Advising again with the registration's own pointer and flags changes
    // nothing; the list goes away with the collection.
    if (SmartPtr<IEventSource> events = m_Files.As<IEventSource>(IID_IEventSource))
        events->Advise(PrimaryUnknown(), 1);
    m_Files.Reset();
}

// ---- Camera ------------------------------------------------------------

int32_t CLUMFileGrab::FileCount() {
    int32_t count = 0;
    if (SmartPtr<ISimpleCollection> files = m_Files.As<ISimpleCollection>(IID_ISimpleCollection))
        files->get_Count(&count);
    return count;
}

HRESULT CLUMFileGrab::Grab(int32_t /*mode*/, int16_t wait, IUnknown* /*reserved*/) {
    if (m_Files->IsRunning() != S_OK) Live();
    if (wait == 0) return S_OK;
    const int32_t before = FileCount();
    // A monotonic clock: a change of the time of day does not shorten or
    // stretch the wait.
    const auto start = std::chrono::steady_clock::now();
    for (;;) {
        const auto elapsed =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
        if (m_GrabTimeLimit <= elapsed) return E_FAIL;
        if (m_State == CameraStateIdle) {
            // NewFile came: take the state back and look whether the list grew.
            m_State = CameraStateLive;
            if (FileCount() != before) return S_OK;
        }
        std::this_thread::sleep_for(kGrabPoll);
    }
}

HRESULT CLUMFileGrab::Live() {
    if (m_Files->IsRunning() != S_OK) {
        m_Files->put_Pattern(m_Folder.Get());
        m_Files->put_Option(kOptionPeriod, kWatchPeriod);
        m_Files->put_Option(kOptionOrder, kOrderNewestFirst);
        m_Files->put_Option(kOptionAnnounce, 1);
        // A folder that cannot be watched leaves the list stopped: the state
        // tells, and a waiting Grab runs into its time limit.
        m_Files->Start(0);
    }
    m_State = CameraStateLive;
    return S_OK;
}

HRESULT CLUMFileGrab::StopLive() {
    m_Files->Stop();
    m_State = CameraStateIdle;
    return S_OK;
}

HRESULT CLUMFileGrab::get_CameraState(CameraStateConstants* state) {
    if (!state) return E_POINTER;
    *state = m_Files->IsRunning() == S_OK ? CameraStateLive : CameraStateIdle;
    return S_OK;
}

HRESULT CLUMFileGrab::LoadEntry(IUnknown* entry, ILUM** image) {
    std::lock_guard<std::mutex> guard(m_LoadLock);
    // The entry holds the file's pixels once loaded: it is the image.
    if (SmartPtr<IFileArchive> file = QueryAs<IFileArchive>(entry, IID_IFileArchive)) file->Load();
    return entry->QueryInterface(IID_ILUM, reinterpret_cast<void**>(image));
}

HRESULT CLUMFileGrab::get_Image(int32_t index, ILUM** image) {
    if (!image) return E_POINTER;
    *image = nullptr;
    SmartPtr<IUnknown> entry;
    HRESULT hr = m_Files->get_Entry(index, entry.Out());
    if (hr < 0) return hr;
    if (!entry) return E_FAIL;
    return LoadEntry(entry.Get(), image);
}

HRESULT CLUMFileGrab::get_NumberOfFrames(int32_t* count) {
    if (!count) return E_POINTER;
    *count = 0;
    if (SmartPtr<ISuperCollection> files = m_Files.As<ISuperCollection>(IID_ISuperCollection))
        files->get_Count(count);
    return S_OK;
}

HRESULT CLUMFileGrab::LoadParameters(tagREFString text) {
    SmartPtr<IString> folder = SmartPtr<IString>::Adopt(CREFString::CreateString());
    if (!folder) return E_FAIL;
    if (text.length > 0 && text.text) folder->SetText(text.length, text.text);
    m_Folder = folder;
    return S_OK;
}

HRESULT CLUMFileGrab::Inquire(int32_t id, int32_t* value) {
    switch (id) {
        case 10:
            if (value) *value = m_State;
            return S_OK;
        case 11:
            return S_OK;
        case 13:
        case 14:
            if (value) *value = 0;
            return S_OK;
        default:
            return E_FAIL;
    }
}

// ---- Events and pages --------------------------------------------------

HRESULT CLUMFileGrab::NewFile(IUnknown* /*collection*/, IString* fileName) {
    // The announced file itself, found by its name: several files may be
    // announced one after another after the list took them in together, and
    // each is delivered once. Without a name, the newest file.
    SmartPtr<IUnknown> entry;
    if (fileName) {
        wchar_t* text = nullptr;
        int32_t length = 0;
        SmartPtr<INamedCollection> files = m_Files.As<INamedCollection>(IID_INamedCollection);
        if (!files || fileName->GetText(&text, &length) < 0 || !text) return S_OK;
        if (files->get_ItemByName(tagREFString{length, text}, entry.Out()) < 0) return S_OK;
    } else if (m_Files->get_Entry(0, entry.Out()) < 0) {
        return S_OK;
    }
    SmartPtr<ILUM> image;
    if (!entry || LoadEntry(entry.Get(), image.Out()) < 0 || !image) return S_OK;
    Fire_ImageGrabbed(PrimaryUnknown(), image.Get(), 0);
    ForgetPixels(entry.Get());
    // A waiting Grab sees the new file.
    m_State = CameraStateIdle;
    return S_OK;
}

void CLUMFileGrab::ForgetPixels(IUnknown* entry) {
    // The delivered entry is replaced in the list by a fresh, unloaded one of
    // the same file: a long watch does not keep every image it delivered,
    // and a sink that kept the delivered image keeps it unchanged.
    SmartPtr<IFileArchive> delivered = QueryAs<IFileArchive>(entry, IID_IFileArchive);
    SmartPtr<ISuperCollection> list = m_Files.As<ISuperCollection>(IID_ISuperCollection);
    SmartPtr<IExtCollection> classes = m_Files.As<IExtCollection>(IID_IExtCollection);
    SmartPtr<IString> name;
    if (!delivered || !list || !classes || delivered->get_Filename(name.Out()) < 0 || !name) return;
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (name->GetText(&text, &length) < 0 || !text) return;
    SmartPtr<IFileArchive> fresh;
    if (classes->CreateFor(tagREFString{length, text}, &IID_IFileArchive, fresh.OutVoid()) < 0 || !fresh) return;
    fresh->put_Filename(name.Get());
    std::lock_guard<std::mutex> guard(m_LoadLock);
    const int32_t index = list->IndexOf(entry);
    if (index >= 0) list->Replace(index, fresh.Get());
}

HRESULT CLUMFileGrab::GetPages(int32_t /*selector*/, INamedCollection** pages, IUnknown** /*reserved*/) {
    return HandOutPages({L"UIPropPages.UIPropInterrogatePropPage", L"UIPropPages.UIFileArchivePropPage"}, pages);
}
