// The camcorder's construction, identity, accessors, parameters, settings
// and property pages. Recording and playback live in their own files.
#include "components/LUMCamcorderImpl.h"

#include "text/FileName.h"
#include "text/REFString.h"
#include "text/ValueConversion.h"

template <>
const tagREFString IObjectInfoImpl<CLUMCamcorder>::m_ObjectName = {12, const_cast<wchar_t*>(L"LUMCamcorder")};

using Entry = InterfaceEntry<CLUMCamcorder>;
const Entry CLUMCamcorder::kInterfaces[] = {
    Entry::Of<IObjectInfoImpl<CLUMCamcorder>>(IID_IObjectInfo),
    Entry::Of<IDataPersist>(IID_IDataPersist),
    Entry::Of<ILUMCamcorder>(IID_ICamera),
    Entry::Of<ICamcorderArm>(IID_ICamcorder),
    Entry::Of<ICamcorderArm>(IID_ICamcorderArm),
    Entry::Of<ILUMCamcorder>(IID_ILUMCamcorder),
    Entry::Of<IEventSourceImpl<CLUMCamcorder, &IID__ICameraEvents>>(IID_IEventSource),
    Entry::Of<IUIPropInterrogateImpl<CLUMCamcorder, IUIPropInterrogateEx, 10>>(IID_IUIPropInterrogate),
    Entry::Of<IUIPropInterrogateImpl<CLUMCamcorder, IUIPropInterrogateEx, 10>>(IID_IUIPropInterrogateEx),
    Entry::Of<IUIPropertyPageSpecify>(IID_IUIPropertyPageSpecify),
    Entry::Of<IMMControlEx>(IID_IMMControlEx),
    Entry::Of<IMMControlEx>(IID_IMMControl),
    Entry::Of<_ICameraEvents>(IID__ICameraEvents),
    Entry::Forward<&CLUMCamcorder::m_Stack>(IID_IStackCollection),
    Entry::Forward<&CLUMCamcorder::m_Stack>(IID_ISimpleCollection),
    Entry::End(),
};

namespace {

// Parameter numbers of the camcorder's table.
enum : int32_t {
    kParamPath = 61,
    kParamBaseFileName = 62,
    kParamFileFormat = 63,
    kParamRecordOptions = 64,
    kParamSaveDelay = 65,
    kParamRecordRate = 66,
    kParamPlayDirection = 67,
    kParamPlayBackSpeed = 68,
    kParamActiveIndex = 69,
    kParamLoop = 70,
    kParamFileIndexOffset = 71,
    kParamPreRecord = 72,
    kParamFrameLimit = 73,
    kParam74 = 74,
    kParamCameraState = 75,
};

constexpr int32_t kDefaultRingCapacity = 1000;

/// A key string for the settings folder.
SmartPtr<IString> Key(const wchar_t* text) { return SmartPtr<IString>::Adopt(ISCreate(text)); }

void WriteInt(IFolderStream* folder, const wchar_t* key, int32_t value) {
    folder->WriteValue(Key(key).Get(), &value, sizeof value, 0);
}

template <class T>
void ReadInto(IFolderStream* folder, const wchar_t* key, Relaxed<T>& field) {
    T value = field;
    if (folder->ReadValue(Key(key).Get(), &value, sizeof value, 0) >= 0) field = value;
}

}  // namespace

CLUMCamcorder::CLUMCamcorder() = default;

CLUMCamcorder::~CLUMCamcorder() = default;

HRESULT CLUMCamcorder::FinalConstruct() {
    SmartPtr<IString> install;
    FILENAMEGetInstallPath(install.Out());
    if (install) install->Append(-1, L"\\Images");
    {
        std::lock_guard<std::mutex> names(m_NamesMutex);
        m_Path = SmartPtr<IString>::Adopt(ISCreate(install.Get()));
    }
    // A missing framework module leaves the member empty; recording or
    // playback then fails when it first needs it.
    m_Archive = CreateObjectAs<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    m_Stack = CreateObjectAs<IStackCollection>(L"LUMStack", IID_IStackCollection);
    if (m_Stack) m_Stack->SetSize(kDefaultRingCapacity, 0);
    DeclareParameters();
    return S_OK;
}

void CLUMCamcorder::DeclareParameters() {
    DeclareParameter(kParamPath, &m_Path, 0x126);
    DeclareParameter(kParamBaseFileName, &m_BaseFileName, 0x6);
    PropE(kParamFileFormat, m_FileFormat.Address(), 0x43, nullptr, 163);
    PropE(kParamRecordOptions, m_RecordOptions.Address(), 0x43, nullptr, 164);
    DeclareParameter(kParamSaveDelay, m_SaveDelay.Address(), 3, 0, 0);
    DeclareParameter(kParamRecordRate, m_RecordRate.Address(), 3, 0, 0);
    DeclareParameter(kParamPlayDirection, m_PlayDirection.Address(), 0x13, 0, 1);
    DeclareParameter(kParamPlayBackSpeed, m_PlayBackSpeed.Address(), 5, 0, 0);
    DeclareParameter(kParamActiveIndex, m_ActiveIndex.Address(), 3, 0, 0);
    DeclareParameter(kParamLoop, m_Loop.Address(), 0x13, 0, 1);
    DeclareParameter(kParamFileIndexOffset, m_FileIndexOffset.Address(), 3, 0, 0);
    DeclareParameter(kParamPreRecord, m_PreRecord.Address(), 3, 0, 0);
    DeclareParameter(kParamFrameLimit, m_FrameLimit.Address(), 3, 0, 0);
    DeclareParameter(kParam74, m_Parameter74.Address(), 3, 0, 0);
    DeclareParameter(kParamCameraState, m_State.Address(), 3, 0, 0);
}

void CLUMCamcorder::FinalRelease() {
    // Let a draining save thread finish: it writes every queued image, then
    // ends because the state is no longer "recording". A live thread is
    // stopped. Neither may outlive the component.
    Worker save, live;
    {
        std::lock_guard<std::mutex> threads(m_ThreadsMutex);
        save = std::move(m_Save);
        live = std::move(m_Live);
    }
    if (save.thread) {
        m_State.StoreRelease(CameraStateIdle);  // see StopRecording
        save.thread->Join();
    }
    if (live.thread) {
        live.stop->store(1, std::memory_order_relaxed);
        if (pthread_equal(live.thread->Handle(), pthread_self())) {
            // Released by a sink inside an event of the live thread itself:
            // this runs at the end of that step, after which the thread ends
            // without touching us again.
            pthread_detach(pthread_self());
        } else {
            live.thread->Join();
        }
    }
    ReapFinishedThreads();
    ClearAdvise(nullptr);
    m_Archive.Reset();
}

// ---- Parameters --------------------------------------------------------

HRESULT CLUMCamcorder::Inquire(int32_t code, int32_t* value) {
    if (code == 10) {
        if (value) *value = m_State;
        return S_OK;
    }
    return IUIPropInterrogateImpl::Inquire(code, value);
}

HRESULT CLUMCamcorder::Control(int32_t code, int32_t value) {
    // The whole lookup and store under the component lock.
    Lock();
    const PropRecord* record = FindParameter(code);
    if (record) PROPWriteInteger(*record, value);
    Unlock();
    return record ? S_OK : E_INVALIDARG;
}

HRESULT CLUMCamcorder::ControlEx(int32_t code, IUnknown* value) {
    if (code != kParamPath && code != kParamBaseFileName) return IUIPropInterrogateImpl::ControlEx(code, value);
    // A new folder or base name starts playback afresh, whatever happened to
    // the value itself.
    {
        SmartPtr<IString> text = QueryAs<IString>(value, IID_IString);
        std::lock_guard<std::mutex> names(m_NamesMutex);
        (code == kParamPath ? m_Path : m_BaseFileName) = std::move(text);
    }
    ResetPlayback();
    return S_OK;
}

void CLUMCamcorder::ResetPlayback() {
    m_StartPosition = 0;
    m_EndPosition = 0;
    m_ActiveIndex = 0;
}

// ---- Accessors ---------------------------------------------------------

HRESULT CLUMCamcorder::get_RecordedSpeed(double* framesPerSecond) {
    *framesPerSecond = 1000.0 / static_cast<double>(m_RecordedFrameInterval);
    return S_OK;
}

HRESULT CLUMCamcorder::get_RecordRate(int32_t* rate) {
    if (!rate) return E_POINTER;
    *rate = m_RecordRate;
    return S_OK;
}

HRESULT CLUMCamcorder::put_RecordRate(int32_t rate) {
    Lock();
    m_RecordRate = rate;
    m_SkipCounter = 0;
    Unlock();
    return S_OK;
}

HRESULT CLUMCamcorder::get_RecordOptions(int32_t* options) {
    if (!options) return E_POINTER;
    *options = m_RecordOptions;
    return S_OK;
}

HRESULT CLUMCamcorder::put_RecordOptions(int32_t options) {
    m_RecordOptions = options;
    return S_OK;
}

HRESULT CLUMCamcorder::get_RecordasSeparateThreadDelayTime(int32_t* milliseconds) {
    if (!milliseconds) return E_POINTER;
    *milliseconds = m_SaveDelay;
    return S_OK;
}

HRESULT CLUMCamcorder::put_RecordasSeparateThreadDelayTime(int32_t milliseconds) {
    m_SaveDelay = milliseconds;
    return S_OK;
}

HRESULT CLUMCamcorder::get_FileFormat(FileFormatConstants* format) {
    if (!format) return E_POINTER;
    *format = static_cast<FileFormatConstants>(static_cast<int32_t>(m_FileFormat));
    return S_OK;
}

HRESULT CLUMCamcorder::put_FileFormat(FileFormatConstants format) {
    m_FileFormat = format;
    return S_OK;
}

SmartPtr<IString> CLUMCamcorder::PathString() {
    std::lock_guard<std::mutex> names(m_NamesMutex);
    return m_Path;
}

SmartPtr<IString> CLUMCamcorder::BaseNameString() {
    std::lock_guard<std::mutex> names(m_NamesMutex);
    return m_BaseFileName;
}

HRESULT CLUMCamcorder::get_Path(IString** path) {
    if (!path) return E_POINTER;
    PathString().CopyTo(path);
    return *path ? S_OK : E_FAIL;
}

HRESULT CLUMCamcorder::put_Path(tagREFString path) {
    SmartPtr<IString> text = SmartPtr<IString>::Adopt(ISCreate(path));
    std::lock_guard<std::mutex> names(m_NamesMutex);
    m_Path = std::move(text);
    return S_OK;
}

HRESULT CLUMCamcorder::get_BaseFileName(IString** name) {
    if (!name) return E_POINTER;
    BaseNameString().CopyTo(name);
    return *name ? S_OK : E_FAIL;
}

HRESULT CLUMCamcorder::put_BaseFileName(tagREFString name) {
    SmartPtr<IString> text = SmartPtr<IString>::Adopt(ISCreate(name));
    std::lock_guard<std::mutex> names(m_NamesMutex);
    m_BaseFileName = std::move(text);
    return S_OK;
}

HRESULT CLUMCamcorder::get_ActiveIndex(int32_t* index) {
    if (!index) return E_POINTER;
    *index = m_ActiveIndex;
    return S_OK;
}

HRESULT CLUMCamcorder::put_ActiveIndex(int32_t index) {
    m_ActiveIndex = index;
    return S_OK;
}

HRESULT CLUMCamcorder::get_PlayDirection(int32_t* forward) {
    if (!forward) return E_POINTER;
    *forward = m_PlayDirection;
    return S_OK;
}

HRESULT CLUMCamcorder::put_PlayDirection(int32_t forward) {
    m_PlayDirection = forward;
    return S_OK;
}

HRESULT CLUMCamcorder::get_PlayBackSpeed(double* framesPerSecond) {
    if (!framesPerSecond) return E_POINTER;
    *framesPerSecond = m_PlayBackSpeed;
    return S_OK;
}

HRESULT CLUMCamcorder::put_PlayBackSpeed(double framesPerSecond) {
    m_PlayBackSpeed = framesPerSecond;
    return S_OK;
}

HRESULT CLUMCamcorder::get_NumberImagesPreRecord(int32_t* count) {
    if (!count) return E_POINTER;
    *count = m_PreRecord;
    return S_OK;
}

HRESULT CLUMCamcorder::put_NumberImagesPreRecord(int32_t count) {
    // The ring's own capacity stays as it is.
    m_PreRecord = count;
    return S_OK;
}

// ---- Settings ----------------------------------------------------------

HRESULT CLUMCamcorder::Save(IDataStream* stream, int32_t flags) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    UIPropInterrogate_SaveFolderStream(nullptr, folder.Get(), flags);

    int32_t capacity = 0;
    if (m_Stack) m_Stack->GetSize(&capacity, nullptr);
    WriteInt(folder.Get(), L"StackSize", capacity);
    SmartPtr<IString> relative;
    FILENAMECreateRelative(PathString().Get(), relative.Out());
    folder->WriteString(Key(L"Path").Get(), relative.Get());
    folder->WriteString(Key(L"BaseName").Get(), BaseNameString().Get());
    WriteInt(folder.Get(), L"Format", m_FileFormat);
    WriteInt(folder.Get(), L"PlayDirection", m_PlayDirection);
    WriteInt(folder.Get(), L"RecordSkipCount", m_RecordRate);
    WriteInt(folder.Get(), L"fUseSaveThread", m_RecordOptions);
    WriteInt(folder.Get(), L"InitialRecordSleepTime", m_SaveDelay);
    double speed = m_PlayBackSpeed;
    folder->WriteValue(Key(L"PlayBackSpeed").Get(), &speed, sizeof speed, 0);
    return S_OK;
}

HRESULT CLUMCamcorder::Load(IDataStream* stream, int32_t flags) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    UIPropInterrogate_LoadFolderStream(folder.Get(), flags);

    int32_t capacity = 0;
    if (folder->ReadValue(Key(L"StackSize").Get(), &capacity, sizeof capacity, 0) >= 0 && m_Stack)
        m_Stack->SetSize(capacity, 0);
    SmartPtr<IString> path = SmartPtr<IString>::Adopt(CREFString::CreateString());
    if (path) folder->ReadString(Key(L"Path").Get(), path.Get());
    // The base name is read into the string already held, so a base name is
    // only taken over when one is set.
    if (SmartPtr<IString> base = BaseNameString()) folder->ReadString(Key(L"BaseName").Get(), base.Get());
    ReadInto(folder.Get(), L"Format", m_FileFormat);
    ReadInto(folder.Get(), L"PlayDirection", m_PlayDirection);
    ReadInto(folder.Get(), L"RecordSkipCount", m_RecordRate);
    ReadInto(folder.Get(), L"fUseSaveThread", m_RecordOptions);
    ReadInto(folder.Get(), L"InitialRecordSleepTime", m_SaveDelay);
    ReadInto(folder.Get(), L"PlayBackSpeed", m_PlayBackSpeed);

    SmartPtr<IString> absolute;
    FILENAMECreateAbsolute(path.Get(), absolute.Out());
    {
        std::lock_guard<std::mutex> names(m_NamesMutex);
        m_Path = std::move(absolute);
    }
    m_ActiveIndex = 0;
    return S_OK;
}

HRESULT CLUMCamcorder::GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) {
    return HandOutPages({L"UIPropPages.UIPropInterrogatePropPage", L"LUMCollectionPropPage"}, pages);
}

HRESULT CLUMCamcorder::get_Units(IString** units) {
    if (!units) return E_POINTER;
    *units = MakeString(L"Image#").Detach();
    return S_OK;
}
