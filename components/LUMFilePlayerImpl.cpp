// The file player's construction, identity, replay step, live replay, play
// controls and parameters. Recording and settings live in
// FilePlayerRecording.cpp and FilePlayerSettings.cpp.
#include "components/LUMFilePlayerImpl.h"


#include "components/MonotonicClock.h"
#include "text/ValueConversion.h"

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

namespace {

// Parameter numbers of the player's table.
enum : int32_t {
    kParamPattern = 50,
    kParamFrameRate = 52,
    kParamBackwards = 54,
    kParamPosition = 55,
    kParam56 = 56,
    kParamRetention = 57,
    kParamShowOverlay = 64,
    kParamOverlayName = 65,
    kParamRescan = 66,
};

// Retention (parameter 57): what happens to an image after it was shown.
enum : int32_t {
    kDropAfterShowing = 0,
    kRescanAfterShowing = 1,
};

// The grab mode of a step that keeps live replay running.
constexpr int16_t kKeepLive = 999;
// One paced step never waits longer, so that a stop is honoured in time.
constexpr double kLongestPauseMs = 5000.0;

}  // namespace

CLUMFilePlayer::CLUMFilePlayer() : m_LastRecordTime(MonotonicMicroseconds()) {}

CLUMFilePlayer::~CLUMFilePlayer() = default;

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
    DeclareParameters();
    m_ImageWriter = CreateObjectAs<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    return S_OK;
}

void CLUMFilePlayer::DeclareParameters() {
    DeclareParameter(kParamPattern, &m_RecordSuffix, 0x126);
    DeclareParameter(kParamFrameRate, m_FrameRate.Address(), 5);
    DeclareParameter(kParamBackwards, m_Backwards.Address(), 0x13, 0, 1);
    DeclareParameter(kParamPosition, m_Position.Address(), 3);
    DeclareParameter(kParam56, m_Parameter56.Address(), 3);
    PropE(kParamRetention, m_Retention.Address(), 0x43, nullptr, 58);
    DeclareParameter(kParamShowOverlay, m_ShowOverlay.Address(), 0x13, 0, 1);
    DeclareParameter(kParamOverlayName, &m_OverlayName, 0x116, 0, 1);
    DeclareParameter(kParamRescan, &m_RescanTrigger, 8);
}

void CLUMFilePlayer::FinalRelease() {
    if (m_FileList) m_FileList->Stop();
    StopLiveThreadForGood();
    Stop();
    SmartPtr<IEventSource> source;
    Lock();
    source = std::move(m_RecordSource);
    m_CurrentImage.Reset();
    Unlock();
    if (source) source->Advise(static_cast<_ICameraEvents*>(this), 0);
}

// ---- The replay step ---------------------------------------------------

HRESULT CLUMFilePlayer::Grab(int32_t index, int16_t mode, IUnknown* reserved) {
    if (mode != kKeepLive) {
        Stop();
        m_CameraState = CameraStateIdle;
    }
    Lock();
    SmartPtr<ISuperCollection> list = QueryAs<ISuperCollection>(m_FileList.Get(), IID_ISuperCollection);
    if (!list) {
        Unlock();
        return S_OK;
    }
    if (!m_Scanned) Rescan();
    int32_t count = 0;
    list->get_Count(&count);
    const int32_t end = m_EndPosition;
    if (end != 0) {
        if (end > count) m_EndPosition = count;
        if (m_StartPosition > m_EndPosition) m_StartPosition = static_cast<int32_t>(m_EndPosition);
        count = m_EndPosition;
    }
    Step(count);
    const int32_t position = m_Position;

    SmartPtr<IUnknown> entry = LoadEntry(list.Get(), position);
    if (SmartPtr<ILUM> image = QueryAs<ILUM>(entry.Get(), IID_ILUM)) {
        m_CurrentImage = image;
        Unlock();
        Fire_ImageGrabbed(static_cast<ICamera*>(this), image.Get(), 0);
        // Sinks are read under the lock, so the viewer is looked up before
        // the lock is taken again.
        SmartPtr<ILUMViewer> viewer = FirstViewer();
        Lock();
        if (viewer && m_OverlayName && m_ShowOverlay != 0 && !ISText(m_OverlayName.Get()).empty())
            ShowOverlay(list.Get(), position, viewer.Get());
    }

    switch (m_Retention) {
        case kDropAfterShowing: DropShownImage(list.Get(), position); break;
        case kRescanAfterShowing: m_FileList->Rescan(); break;
        default: break;  // everything stays loaded
    }
    entry.Reset();
    Unlock();
    return S_OK;
}

void CLUMFilePlayer::Step(int32_t count) {
    // Replay wraps around in both directions, whatever the loop setting.
    int32_t position = m_Position;
    if (m_Backwards != 0) {
        if (--position < 0) position = count - 1;
        if (position >= count) position = 0;
    } else {
        if (++position >= count) position = 0;
    }
    m_Position = position;
}

SmartPtr<IUnknown> CLUMFilePlayer::LoadEntry(ISuperCollection* list, int32_t index) {
    SmartPtr<IUnknown> entry;
    if (list->get_Item(index, entry.Out()) < 0) return nullptr;
    if (SmartPtr<IFileArchive> archive = QueryAs<IFileArchive>(entry.Get(), IID_IFileArchive)) {
        if (SmartPtr<ILUMFileEx> file = QueryAs<ILUMFileEx>(entry.Get(), IID_ILUMFileEx))
            file->SetLoadOptions(1, 0, 0);
        archive->Load();
    }
    return entry;
}

SmartPtr<ILUMViewer> CLUMFilePlayer::FirstViewer() {
    for (int32_t i = 0;; ++i) {
        SmartPtr<IUnknown> sink = SinkAt(i);
        if (!sink) return nullptr;
        if (SmartPtr<ILUMViewer> viewer = QueryAs<ILUMViewer>(sink.Get(), IID_ILUMViewer)) return viewer;
    }
}

void CLUMFilePlayer::ShowOverlay(ISuperCollection* list, int32_t index, ILUMViewer* viewer) {
    SmartPtr<IFileAttributes> attributes;
    list->get_FileAttributes(index, attributes.Out());
    if (!attributes) return;
    if (SmartPtr<ISuperCollection> overlays = QueryAs<ISuperCollection>(viewer, IID_ISuperCollection))
        overlays->RemoveOverlays();

    SmartPtr<IParametersCreatable> parameters =
        CreateObjectAs<IParametersCreatable>(L"Parameters", IID_IParametersCreatable);
    if (!parameters) return;
    SmartPtr<IString> fileName;
    attributes->get_FileName(fileName.Out());
    int64_t modified = 0;
    attributes->get_Time(2, &modified);
    const std::wstring name = ISText(fileName.Get());
    const std::wstring time = FormatTime(modified);
    parameters->AddText(REFStr(L"_Name_"), REFStr(name.c_str()));
    parameters->AddText(REFStr(L"_Time_"), REFStr(time.c_str()));

    SmartPtr<IUIPropertyPage> page =
        CreateObjectAs<IUIPropertyPage>(L"UIParametersSlidePropPage", IID_IUIPropertyPage);
    SmartPtr<ICreatableSimpleCollection> objects =
        CreateObjectAs<ICreatableSimpleCollection>(L"SimpleCollection", IID_ICreatableSimpleCollection);
    if (!page || !objects) return;
    objects->Add(parameters.Get());
    objects->Add(viewer);
    page->Show(objects.Get(), m_OverlayName.Get(), 1, static_cast<ICamera*>(this));
}

std::wstring CLUMFilePlayer::FormatTime(int64_t seconds) {
    // Every year is counted as 366 days; the day of the month is the day of
    // the year minus the days of the months before, so January runs from 0
    // to 31 and later months are shifted by one.
    constexpr int64_t kYearSeconds = 31622400;
    const int64_t year = 2000 + seconds / kYearSeconds;
    const int64_t rest = seconds - (year - 2000) * kYearSeconds;
    const int64_t dayOfYear = rest / 86400;
    const int64_t secondOfDay = rest - dayOfYear * 86400;
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    auto daysOf = [leap](int month) -> int64_t {
        switch (month) {
            case 1: case 3: case 5: case 7: case 8: case 10: case 12: return 31;
            case 2: return leap ? 29 : 28;
            default: return 30;
        }
    };
    int month = 1;
    int64_t cumulative = 0;
    while (dayOfYear > cumulative + daysOf(month)) {
        cumulative += daysOf(month);
        ++month;
    }
    const int64_t day = dayOfYear - cumulative;
    const int64_t hour = secondOfDay / 3600;
    const int64_t minute = (secondOfDay % 3600) / 60;
    const double second = static_cast<double>(secondOfDay - hour * 3600 - minute * 60);
    wchar_t text[256];
    _swprintf(text, 256, L"%d-%02d-%02d %d:%d:%0.1f", static_cast<int>(year), month, static_cast<int>(day),
              static_cast<int>(hour), static_cast<int>(minute), second);
    return text;
}

void CLUMFilePlayer::DropShownImage(ISuperCollection* list, int32_t index) {
    if (!m_CurrentImage || list->IndexOf(m_CurrentImage.Get()) < 0) return;
    SmartPtr<IFileArchive> shown = QueryAs<IFileArchive>(m_CurrentImage.Get(), IID_IFileArchive);
    SmartPtr<IFileArchive> fresh = CreateObjectAs<IFileArchive>(L"LUMFileEx", IID_IFileArchive);
    if (!shown || !fresh) return;
    SmartPtr<IString> name;
    shown->get_Filename(name.Out());
    fresh->put_Filename(name.Get());
    list->Replace(index, fresh.Get());
}

void CLUMFilePlayer::Rescan() {
    if (m_FileList) m_FileList->Rescan();
    m_Scanned = 1;
}

HRESULT CLUMFilePlayer::get_Image(int32_t index, ILUM** image) {
    if (!image) return E_POINTER;
    *image = nullptr;
    Lock();
    if (m_CurrentImage) {
        *image = SmartPtr<ILUM>(m_CurrentImage).Detach();
        Unlock();
        return S_OK;
    }
    // Nothing shown yet: the entry at the position, without making it current.
    SmartPtr<ISuperCollection> list = QueryAs<ISuperCollection>(m_FileList.Get(), IID_ISuperCollection);
    SmartPtr<IUnknown> entry = list ? LoadEntry(list.Get(), m_Position) : nullptr;
    SmartPtr<ILUM> loaded = QueryAs<ILUM>(entry.Get(), IID_ILUM);
    Unlock();
    if (!loaded) return E_FAIL;
    *image = loaded.Detach();
    return S_OK;
}

HRESULT CLUMFilePlayer::get_CameraState(CameraStateConstants* state) {
    if (state) *state = static_cast<CameraStateConstants>(static_cast<int32_t>(m_CameraState));
    return S_OK;
}

// ---- Live replay -------------------------------------------------------

HRESULT CLUMFilePlayer::Live() {
    if (m_CameraState == CameraStateLive) return S_OK;
    if (m_CameraState == CameraStateArmed) StopRecording();
    m_CameraState = CameraStateLive;
    Lock();
    Rescan();
    Unlock();
    if (StartLiveThread() < 0) {
        m_CameraState = CameraStateIdle;
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CLUMFilePlayer::StopLive() {
    m_CameraState = CameraStateIdle;
    StopLiveThread();
    return S_OK;
}

double CLUMFilePlayer::OnGrab() {
    const int64_t start = MonotonicMicroseconds();
    Grab(0, kKeepLive, nullptr);
    double rate = m_FrameRate;
    if (!(rate > 0)) {
        rate = 1.0;
        m_FrameRate = rate;
    }
    const double period = 1000.0 / rate;
    const double elapsed = static_cast<double>(MonotonicMicroseconds() - start) / 1000.0;
    const double remaining = period - elapsed;
    if (remaining > kLongestPauseMs) return kLongestPauseMs;
    return remaining > 0 ? remaining : 0;
}

// ---- Play controls -----------------------------------------------------

HRESULT CLUMFilePlayer::Play() {
    m_Backwards = 1;
    return Live();
}

HRESULT CLUMFilePlayer::Forward(double speed) {
    m_Backwards = 1;
    return Live();
}

HRESULT CLUMFilePlayer::Reverse() {
    m_Backwards = 0;
    return Live();
}

HRESULT CLUMFilePlayer::Rewind(double speed) {
    m_Backwards = 0;
    return Live();
}

HRESULT CLUMFilePlayer::Stop() {
    StopLive();
    return S_OK;
}

HRESULT CLUMFilePlayer::Pause() { return StopLive(); }

HRESULT CLUMFilePlayer::Next() {
    m_Backwards = 1;
    return Grab(0, 0, nullptr);
}

HRESULT CLUMFilePlayer::Previous() {
    m_Backwards = 0;
    return Grab(0, 0, nullptr);
}

HRESULT CLUMFilePlayer::GetPositions(int32_t* start, int32_t* end) {
    if (start) *start = m_StartPosition;
    if (end) *end = m_EndPosition;
    return S_OK;
}

HRESULT CLUMFilePlayer::SetPositions(int32_t start, int32_t end) {
    m_StartPosition = start;
    m_EndPosition = end;
    return S_OK;
}

HRESULT CLUMFilePlayer::get_CurrentPosition(int32_t* position) {
    if (position) *position = m_Position;
    return S_OK;
}

HRESULT CLUMFilePlayer::get_Loop(int32_t* loop) {
    if (loop) *loop = m_Loop;
    return S_OK;
}

HRESULT CLUMFilePlayer::put_Loop(int32_t loop) {
    m_Loop = loop;
    return S_OK;
}

HRESULT CLUMFilePlayer::IsPlaying() { return m_CameraState == CameraStateLive ? 1 : E_FAIL; }

HRESULT CLUMFilePlayer::get_Units(IString** units) {
    if (!units) return E_POINTER;
    *units = MakeString(L"Image#").Detach();
    return *units ? S_OK : E_FAIL;
}

// ---- Parameters --------------------------------------------------------

HRESULT CLUMFilePlayer::Inquire(int32_t code, int32_t* value) {
    return IUIPropInterrogateImpl::Inquire(code, value);
}

HRESULT CLUMFilePlayer::Control(int32_t code, int32_t value) {
    if (code == kParamShowOverlay && value == 0) {
        // Hiding the overlay clears what every advised viewer draws.
        for (int32_t i = 0;; ++i) {
            SmartPtr<IUnknown> sink = SinkAt(i);
            if (!sink) break;
            if (!QueryAs<ILUMViewer>(sink.Get(), IID_ILUMViewer)) continue;
            if (SmartPtr<ISuperCollection> overlays = QueryAs<ISuperCollection>(sink.Get(), IID_ISuperCollection))
                overlays->RemoveOverlays();
            if (SmartPtr<IUIRefreshableObject> refresh =
                    QueryAs<IUIRefreshableObject>(sink.Get(), IID_IUIRefreshableObject))
                refresh->Refresh(0);
        }
    }
    if (code == kParamRescan) {
        Lock();
        Rescan();
        m_Position = 0;
        Unlock();
        // The trigger holds no value: the store is refused.
        IUIPropInterrogateImpl::Control(code, value);
        return E_INVALIDARG;
    }
    return IUIPropInterrogateImpl::Control(code, value);
}

HRESULT CLUMFilePlayer::ControlEx(int32_t code, IUnknown* value) {
    if (code == kParamPattern && m_FileList) {
        SmartPtr<IString> pattern = QueryAs<IString>(value, IID_IString);
        Lock();
        m_FileList->put_Pattern(pattern.Get());
        Rescan();
        m_FileList->put_Tracking(0);
        int32_t count = 0;
        if (SmartPtr<ISimpleCollection> list = QueryAs<ISimpleCollection>(m_FileList.Get(), IID_ISimpleCollection))
            list->get_Count(&count);
        if (m_EndPosition > count) m_EndPosition = count;
        if (m_StartPosition > m_EndPosition) m_StartPosition = static_cast<int32_t>(m_EndPosition);
        Unlock();
    }
    return IUIPropInterrogateImpl::ControlEx(code, value);
}
