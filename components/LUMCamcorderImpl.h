// CLUMCamcorder: records a camera's images to numbered image files or one AVI
// per recording, with a pre-record ring, a record rate, a frame limit and an
// optional save thread; and plays recordings back as a camera of its own.
//
// Threads: the wrapped camera's thread runs ImageGrabbed under the component
// lock; the save thread drains the ring into files; the live thread steps
// playback. State read across threads is held in Relaxed<> values.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "components/ComponentBase.h"
#include "components/Relaxed.h"
#include "module/object/OSThread.h"

class CLUMCamcorder final : public CObject<CLUMCamcorder>,
                            public IObjectInfoImpl<CLUMCamcorder>,
                            public ILUMCamcorder,
                            public ICamcorderArm,
                            public IDataPersist,
                            public IMMControlEx,
                            public IEventSourceImpl<CLUMCamcorder, &IID__ICameraEvents>,
                            public IUIPropInterrogateImpl<CLUMCamcorder, IUIPropInterrogateEx, 10>,
                            public _FIRECameraEvents<CLUMCamcorder>,
                            public _ICameraEvents,
                            public IUIPropertyPageSpecify {
    LUM_OBJECT_UNKNOWN(CLUMCamcorder)

public:
    CLUMCamcorder();
    ~CLUMCamcorder();

    HRESULT FinalConstruct() override;
    void FinalRelease() override;
    HRESULT Lock() override { return m_Lock.Lock(); }
    HRESULT Unlock() override { return m_Lock.Unlock(); }

    // ICamera: playback as a camera.
    HRESULT Grab(int32_t mode, int16_t option, IUnknown* reserved) override;
    HRESULT Live() override;
    HRESULT StopLive() override;
    HRESULT get_CameraState(CameraStateConstants* state) override;
    HRESULT get_Image(int32_t index, ILUM** image) override;
    HRESULT get_NumberOfFrames(int32_t* count) override { return S_OK; }
    HRESULT put_NumberOfFrames(int32_t count) override { return E_NOTIMPL; }
    HRESULT LoadParameters(tagREFString text) override { return E_NOTIMPL; }
    // Shared by ICamera and IUIPropInterrogate: the state code, then the
    // parameter table.
    HRESULT Inquire(int32_t code, int32_t* value) override;
    HRESULT Control(int32_t code, int32_t value) override;
    HRESULT ControlEx(int32_t code, IUnknown* value) override;

    // ILUMCamcorder
    int32_t GetLastFileIndex() override;
    HRESULT get_RecordedSpeed(double* framesPerSecond) override;
    HRESULT get_RecordRate(int32_t* rate) override;
    HRESULT put_RecordRate(int32_t rate) override;
    HRESULT get_RecordOptions(int32_t* options) override;
    HRESULT put_RecordOptions(int32_t options) override;
    HRESULT get_RecordasSeparateThreadDelayTime(int32_t* milliseconds) override;
    HRESULT put_RecordasSeparateThreadDelayTime(int32_t milliseconds) override;
    HRESULT get_FileFormat(FileFormatConstants* format) override;
    HRESULT put_FileFormat(FileFormatConstants format) override;
    HRESULT get_Path(IString** path) override;
    HRESULT put_Path(tagREFString path) override;
    HRESULT get_BaseFileName(IString** name) override;
    HRESULT put_BaseFileName(tagREFString name) override;
    HRESULT get_ActiveIndex(int32_t* index) override;
    HRESULT put_ActiveIndex(int32_t index) override;
    HRESULT get_PlayDirection(int32_t* forward) override;
    HRESULT put_PlayDirection(int32_t forward) override;
    HRESULT get_PlayBackSpeed(double* framesPerSecond) override;
    HRESULT put_PlayBackSpeed(double framesPerSecond) override;

    // ICamcorder, ICamcorderArm
    HRESULT Record(IUnknown* camera) override;
    HRESULT IsRecording() override;
    HRESULT StopRecording() override;
    HRESULT Arm(IUnknown* camera) override;
    HRESULT get_NumberImagesPreRecord(int32_t* count) override;
    HRESULT put_NumberImagesPreRecord(int32_t count) override;

    // IDataPersist
    HRESULT Save(IDataStream* stream, int32_t flags) override;
    HRESULT Load(IDataStream* stream, int32_t flags) override;

    // IMMControl, IMMControlEx
    HRESULT Play() override;
    HRESULT Stop() override;
    HRESULT Pause() override;
    HRESULT GetPositions(int32_t* start, int32_t* end) override;
    HRESULT SetPositions(int32_t start, int32_t end) override;
    HRESULT get_CurrentPosition(int32_t* position) override;
    HRESULT get_Loop(int32_t* loop) override;
    HRESULT put_Loop(int32_t loop) override;
    HRESULT get_Duration(int32_t* duration) override;
    HRESULT Forward(double speed) override;
    HRESULT Rewind(double speed) override;
    HRESULT Reverse() override;
    HRESULT Seek(int32_t position) override;
    HRESULT IsPlaying() override;
    HRESULT get_Units(IString** units) override;
    HRESULT get_Capablities() override { return 0xE3F; }
    HRESULT Next() override;
    HRESULT Previous() override;

    // _ICameraEvents: images of the wrapped camera.
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override;

    // IUIPropertyPageSpecify
    HRESULT GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) override;

    /// The file name of recorded image `index`; E_FAIL without a path.
    HRESULT ImageName(IString** name, int32_t index);

private:
    static void* SaveThreadEntry(void* self);
    static void* LiveThreadEntry(void* start);
    /// One of the component's own threads and the flag that stops it. The
    /// flag is shared with the thread, which outlives the component when a
    /// sink destroys the component from inside an event on that thread.
    struct Worker {
        std::unique_ptr<OSThread> thread;
        std::shared_ptr<std::atomic<int32_t>> stop;
    };

    HRESULT AttachCamera(IUnknown* camera);
    void StartSaveThread();
    void SaveThread();
    void LiveThread(const std::shared_ptr<std::atomic<int32_t>>& stop);
    /// Joins the threads that have ended by themselves.
    void ReapFinishedThreads();
    /// Raises the live thread's stop flag, if it runs.
    void RaiseLiveStop();
    bool FileExists(IString* name);
    /// The AVI file of a recording: "<path>/<b>.avi" or "<path>.avi".
    SmartPtr<IString> AviName();
    /// Reads the image file of `index` through the archive.
    HRESULT ReadImage(int32_t index, ILUM** image);
    void ResetPlayback();
    SmartPtr<IString> PathString();
    SmartPtr<IString> BaseNameString();
    void DeclareParameters();

    CResourceLock m_Lock;

    // Recording.
    Relaxed<int32_t> m_State{0};
    Relaxed<int32_t> m_FileFormat{FileFormatJPEG};
    Relaxed<int32_t> m_RecordRate{0};
    int32_t m_SkipCounter = 0;  // under the lock
    Relaxed<int32_t> m_RecordOptions{0};
    Relaxed<int32_t> m_SaveDelay{1000};
    Relaxed<int32_t> m_FrameLimit{-1};
    Relaxed<int32_t> m_FileIndexOffset{0};
    Relaxed<int32_t> m_ActiveIndex{0};
    Relaxed<int32_t> m_PreRecord{1000};
    Relaxed<int32_t> m_RingCount{0};
    Relaxed<int32_t> m_Parameter74{999};
    int32_t m_KeptImages = 0;  // under the lock
    /// Path and base name; guarded by m_NamesMutex (a leaf lock).
    std::mutex m_NamesMutex;
    SmartPtr<IString> m_Path;
    SmartPtr<IString> m_BaseFileName;
    SmartPtr<ILUMArchive> m_Archive;
    SmartPtr<IStackCollection> m_Stack;
    SmartPtr<IEventSource> m_CameraEvents;

    // Playback.
    uint32_t m_RecordedFrameInterval = 0;
    Relaxed<int32_t> m_PlayDirection{1};
    Relaxed<int32_t> m_StartPosition{0};
    Relaxed<int32_t> m_EndPosition{0};
    Relaxed<int32_t> m_Loop{1};
    Relaxed<double> m_PlayBackSpeed{10.0};

    /// The save and live threads; fields guarded by m_ThreadsMutex (a leaf lock).
    std::mutex m_ThreadsMutex;
    Worker m_Save;
    Worker m_Live;
    std::vector<std::unique_ptr<OSThread>> m_Finished;
};
