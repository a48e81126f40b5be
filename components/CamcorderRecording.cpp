// The camcorder's recording: attaching to a camera, the event handler with
// its pre-record ring, the save thread, file naming and the search for the
// last recorded index.
#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "components/LUMCamcorderImpl.h"
#include "text/FileName.h"
#include "text/REFString.h"
#include "text/ValueConversion.h"

namespace {

/// Per-image extension, indexed by the file format (AVI recordings name
/// their frames as JPEG files).
const wchar_t* const kExtensions[] = {L"jpg", L"bmp", L"jpg"};

const wchar_t* ExtensionOf(int32_t format) {
    return format >= 0 && format < 3 ? kExtensions[format] : kExtensions[0];
}

/// The narrow text that a "%s" conversion of a wide format reads when handed
/// a wide string: its bytes up to the first zero byte, which for a name
/// starting with an ASCII character is that character alone.
std::string NarrowPrefix(IString* text) {
    std::string bytes;
    wchar_t* characters = nullptr;
    int32_t length = 0;
    if (!text || text->GetText(&characters, &length) < 0 || !characters || length <= 0) return bytes;
    const auto* raw = reinterpret_cast<const unsigned char*>(characters);
    for (size_t i = 0; i < static_cast<size_t>(length) * sizeof(wchar_t) && raw[i] != 0; ++i)
        bytes += static_cast<char>(raw[i]);
    return bytes;
}

bool HasText(IString* text) { return !ISText(text).empty(); }

/// The cached creation function of "LUMImageDIB", looked up once per process.
CreateInstanceFunction ImageFactory() {
    static CreateInstanceFunction factory = [] {
        void* creator = nullptr;
        if (SmartPtr<IComponentCollection> components = SmartPtr<IComponentCollection>::Adopt(GLOBALComponents()))
            components->GetCreateFunction(REFStr(L"LUMImageDIB"), &creator);
        return reinterpret_cast<CreateInstanceFunction>(creator);
    }();
    return factory;
}

}  // namespace

// ---- Names -------------------------------------------------------------

HRESULT CLUMCamcorder::ImageName(IString** name, int32_t index) {
    SmartPtr<IString> path = PathString();
    if (!HasText(path.Get())) return E_FAIL;
    // The offset is cleared before every use, so it never shifts a name.
    m_FileIndexOffset = 0;
    const int32_t number = index + m_FileIndexOffset;
    const wchar_t* extension = ExtensionOf(m_FileFormat);
    SmartPtr<IString> base = BaseNameString();
    wchar_t buffer[256];
    if (HasText(base.Get())) {
        std::string prefix = NarrowPrefix(base.Get());
        _swprintf(buffer, 256, L"%ls%c%s_#%04d.%ls", ISText(path.Get()).c_str(), L'/', prefix.c_str(), number, extension);
    } else {
        _swprintf(buffer, 256, L"%ls%c%04d.%ls", ISText(path.Get()).c_str(), L'/', number, extension);
    }
    if (!name) return E_POINTER;
    *name = MakeString(buffer).Detach();
    return S_OK;
}

SmartPtr<IString> CLUMCamcorder::AviName() {
    SmartPtr<IString> path = PathString();
    SmartPtr<IString> base = BaseNameString();
    wchar_t buffer[256];
    if (HasText(base.Get())) {
        std::string prefix = NarrowPrefix(base.Get());
        _swprintf(buffer, 256, L"%ls%c%s.avi", ISText(path.Get()).c_str(), L'/', prefix.c_str());
    } else {
        _swprintf(buffer, 256, L"%ls.avi", ISText(path.Get()).c_str());
    }
    return SmartPtr<IString>::Adopt(ISCreate(buffer));
}

bool CLUMCamcorder::FileExists(IString* name) {
    std::string file;
    if (!FILENAMEToMultibyte(ISText(name), file) || file.empty()) return false;
    if (DIR* folder = opendir(file.c_str())) {
        closedir(folder);
        return true;
    }
    if (FILE* handle = std::fopen(file.c_str(), "rb")) {
        std::fclose(handle);
        return true;
    }
    return false;
}

int32_t CLUMCamcorder::GetLastFileIndex() {
    // Probe in strides of 15, then walk on from one past the last probe found.
    constexpr int32_t kStride = 15;
    int32_t probe = 1;
    for (;;) {
        SmartPtr<IString> name;
        if (ImageName(name.Out(), probe) < 0 || !FileExists(name.Get())) break;
        probe += kStride;
    }
    if (probe <= 1) return 0;
    int32_t i = probe - kStride + 1;
    for (;;) {
        SmartPtr<IString> name;
        if (ImageName(name.Out(), i) < 0 || !HasText(name.Get()) || !FileExists(name.Get())) return i - 1;
        ++i;
    }
}

// ---- Arming and recording ----------------------------------------------

HRESULT CLUMCamcorder::AttachCamera(IUnknown* camera) {
    SmartPtr<IUnknown> keepAlive(PrimaryUnknown());
    if (camera && IdentityOf(camera).Get() == PrimaryUnknown()) return E_FAIL;
    // A plain pointer comparison: the same camera through another interface
    // pointer goes through the whole switch.
    if (static_cast<IUnknown*>(m_CameraEvents.Get()) != camera) {
        if (m_CameraEvents) m_CameraEvents->Advise(static_cast<_ICameraEvents*>(this), 0);
        m_CameraEvents = QueryAs<IEventSource>(camera, IID_IEventSource);
        StopLive();
        if (m_CameraEvents) m_CameraEvents->Advise(static_cast<_ICameraEvents*>(this), 1);
    }
    return S_OK;
}

HRESULT CLUMCamcorder::Arm(IUnknown* camera) {
    if (AttachCamera(camera) < 0) return E_FAIL;
    m_State = CameraStateArmed;
    m_ActiveIndex = GetLastFileIndex();
    return S_OK;
}

HRESULT CLUMCamcorder::Record(IUnknown* camera) {
    if (AttachCamera(camera) < 0) return E_FAIL;
    m_State = m_FrameLimit != 0 ? CameraStateRecording : CameraStateRecorded;
    m_ActiveIndex = GetLastFileIndex();
    if (m_RecordOptions != 0) StartSaveThread();
    return S_OK;
}

HRESULT CLUMCamcorder::StopRecording() {
    if (m_State == CameraStateRecording) {
        if (m_CameraEvents) m_CameraEvents->Advise(static_cast<_ICameraEvents*>(this), 0);
        // Everything appended to the ring so far is seen by a save thread
        // that sees the new state.
        m_State.StoreRelease(CameraStateRecorded);
    }
    return S_OK;
}

HRESULT CLUMCamcorder::IsRecording() { return m_State == CameraStateRecording ? S_OK : E_FAIL; }

HRESULT CLUMCamcorder::ImageGrabbed(IUnknown* camera, IUnknown* item, int32_t count) {
    Lock();
    const int32_t state = m_State;
    if (state != CameraStateArmed && state != CameraStateRecording) {
        Unlock();
        return S_OK;
    }
    if (++m_SkipCounter < m_RecordRate) {
        Unlock();
        return S_OK;
    }
    m_SkipCounter = 0;
    SmartPtr<ILUM> image = QueryAs<ILUM>(item, IID_ILUM);
    if (m_Stack) {
        if (m_RecordOptions == 2) {
            SmartPtr<ILUMImageDIB> copy;
            if (CreateInstanceFunction create = ImageFactory())
                create(nullptr, &IID_ILUMImageDIB, copy.OutVoid());
            if (copy) copy->Copy(image.Get(), 255);
            m_Stack->Add(copy.Get());
        } else {
            m_Stack->Add(image.Get());
        }
    }
    if (state == CameraStateArmed) {
        int32_t ringCount = 0;
        if (m_Stack) m_Stack->GetSize(nullptr, &ringCount);
        m_RingCount = ringCount;
        while (m_Stack && m_RingCount > m_PreRecord) {
            SmartPtr<IUnknown> oldest;
            if (m_Stack->RemoveOldest(oldest.Out()) < 0) break;
            --m_RingCount;
        }
        Unlock();
        return S_OK;
    }
    if (m_RecordOptions == 0) {
        // Written at once; the ring keeps what it holds.
        SmartPtr<IString> name;
        if (ImageName(name.Out(), m_ActiveIndex) >= 0) {
            ++m_ActiveIndex;
            if (m_Archive) m_Archive->Write(name.Get(), image.Get(), 100);
        }
    } else {
        StartSaveThread();
    }
    if (m_FrameLimit >= 0 && ++m_KeptImages >= m_FrameLimit) {
        StopRecording();
        m_KeptImages = 0;
    }
    Unlock();
    return S_OK;
}

// ---- The save thread ---------------------------------------------------

void CLUMCamcorder::ReapFinishedThreads() {
    std::vector<std::unique_ptr<OSThread>> finished;
    {
        std::lock_guard<std::mutex> threads(m_ThreadsMutex);
        finished.swap(m_Finished);
    }
    for (auto& thread : finished) thread->Join();
}

void CLUMCamcorder::StartSaveThread() {
    ReapFinishedThreads();
    std::lock_guard<std::mutex> threads(m_ThreadsMutex);
    if (m_Save.thread) return;
    m_Save.stop = std::make_shared<std::atomic<int32_t>>(0);
    m_Save.thread = std::make_unique<OSThread>(&CLUMCamcorder::SaveThreadEntry, this);
    if (m_Save.thread->Start() < 0) {
        m_Save.thread.reset();
        m_Save.stop.reset();
    }
}

void* CLUMCamcorder::SaveThreadEntry(void* self) {
    static_cast<CLUMCamcorder*>(self)->SaveThread();
    return nullptr;
}

void CLUMCamcorder::SaveThread() {
    std::shared_ptr<std::atomic<int32_t>> stop;
    {
        std::lock_guard<std::mutex> threads(m_ThreadsMutex);
        stop = m_Save.stop;
    }
    const int32_t format = m_FileFormat;
    SmartPtr<ICreatableSimpleCollection> frames;
    if (format == FileFormatAVI)
        frames = CreateObjectAs<ICreatableSimpleCollection>(L"LUMMJPEG", IID_ICreatableSimpleCollection);
    usleep(static_cast<useconds_t>(static_cast<int64_t>(m_SaveDelay) * 1000));

    for (;;) {
        SmartPtr<IUnknown> item;
        if (!m_Stack || m_Stack->RemoveOldest(item.Out()) < 0) {
            // An empty ring while recording is polled again at once.
            if (m_State.LoadAcquire() == CameraStateRecording) {
                if (stop && stop->load(std::memory_order_relaxed)) break;
                continue;
            }
            // The recording has ended. The image that ended it may have been
            // appended after the ring was found empty: look once more before
            // leaving (the state change was published with release order).
            if (!m_Stack || m_Stack->RemoveOldest(item.Out()) < 0) break;
        }
        SmartPtr<ILUM> image = QueryAs<ILUM>(item.Get(), IID_ILUM);
        if (format == FileFormatAVI) {
            if (frames) frames->Add(image.Get());
        } else {
            SmartPtr<IString> name;
            if (ImageName(name.Out(), m_ActiveIndex) >= 0) {
                if (m_Archive) m_Archive->Write(name.Get(), image.Get(), 100);
                ++m_ActiveIndex;
            }
        }
        if (stop && stop->load(std::memory_order_relaxed)) break;
    }

    Lock();
    if (format == FileFormatAVI && frames) {
        if (SmartPtr<ILUMAVI> avi = frames.As<ILUMAVI>(IID_ILUMAVI))
            avi->SetOption(10, static_cast<int32_t>(static_cast<double>(m_PlayBackSpeed)));
        if (SmartPtr<IFileArchive> file = frames.As<IFileArchive>(IID_IFileArchive)) {
            file->put_Filename(AviName().Get());
            file->Save();
        }
    }
    {
        std::lock_guard<std::mutex> threads(m_ThreadsMutex);
        // Joined later by whoever starts the next thread, or at release.
        if (m_Save.thread) m_Finished.push_back(std::move(m_Save.thread));
        m_Save.stop.reset();
    }
    Unlock();
    m_State = CameraStateIdle;
}
