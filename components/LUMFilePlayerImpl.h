// CLUMFilePlayer: replays the images of a folder at a fixed rate as a live
// camera, and records another camera to JPEG files.
//
// Threads: the host calls every operation; the live thread steps replay
// (OnGrab, Grab with mode 999); the recorded camera's thread delivers
// ImageGrabbed. Grab and get_Image hold the component lock except while the
// event is fired, so sinks may call back. Values that the live thread reads
// while the host changes them are Relaxed<>.
#pragma once

#include <string>

#include "components/ComponentBase.h"
#include "components/LiveThread.h"
#include "components/Relaxed.h"

class CLUMFilePlayer final : public CObject<CLUMFilePlayer>,
                             public IObjectInfoImpl<CLUMFilePlayer>,
                             public IEventSourceImpl<CLUMFilePlayer, &IID__ICameraEvents>,
                             public _FIRECameraEvents<CLUMFilePlayer>,
                             public IUIPropInterrogateImpl<CLUMFilePlayer, IUIPropInterrogateEx, 10>,
                             public IFileArchiveImpl<CLUMFilePlayer, IFileArchive>,
                             public ICamera,
                             public IMMControlEx,
                             public IDataPersist,
                             public IUIPropertyPageSpecify,
                             public CLiveThread<CLUMFilePlayer>,
                             public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(CLUMFilePlayer)

public:
    CLUMFilePlayer();
    ~CLUMFilePlayer();

    HRESULT FinalConstruct() override;
    void FinalRelease() override;
    HRESULT Lock() override { return m_Lock.Lock(); }
    HRESULT Unlock() override { return m_Lock.Unlock(); }

    // ICamera
    /// One replay step; mode 999 keeps live replay running, any other mode
    /// stops it first. Always S_OK.
    HRESULT Grab(int32_t index, int16_t mode, IUnknown* reserved) override;
    HRESULT Live() override;
    HRESULT StopLive() override;
    HRESULT get_CameraState(CameraStateConstants* state) override;
    HRESULT get_Image(int32_t index, ILUM** image) override;
    HRESULT get_NumberOfFrames(int32_t* count) override { return E_NOTIMPL; }
    HRESULT put_NumberOfFrames(int32_t count) override { return E_NOTIMPL; }
    HRESULT LoadParameters(tagREFString text) override { return E_NOTIMPL; }
    // Shared by ICamera, IUIPropInterrogate and IFileArchive: the special
    // codes 64 and 66, then the parameter table.
    HRESULT Inquire(int32_t code, int32_t* value) override;
    HRESULT Control(int32_t code, int32_t value) override;
    HRESULT ControlEx(int32_t code, IUnknown* value) override;

    // Recording another camera. These are the player's own operations: no
    // interface of the player reaches them.
    /// Subscribes to `camera`; answers E_FAIL even when recording started.
    HRESULT Record(IUnknown* camera);
    HRESULT IsRecording();
    HRESULT StopRecording();
    /// Least time between two recorded images in milliseconds (default 1.0);
    /// 0 records nothing.
    void SetRecordInterval(double milliseconds) { m_RecordInterval = milliseconds; }

    // IMMControl, IMMControlEx. The direction words are inverted against
    // their names: Play, Forward and Next step to the lower index.
    HRESULT Play() override;
    HRESULT Stop() override;
    HRESULT Pause() override;
    HRESULT GetPositions(int32_t* start, int32_t* end) override;
    HRESULT SetPositions(int32_t start, int32_t end) override;
    HRESULT get_CurrentPosition(int32_t* position) override;
    HRESULT get_Loop(int32_t* loop) override;
    HRESULT put_Loop(int32_t loop) override;
    HRESULT get_Duration(int32_t* duration) override { return S_OK; }
    HRESULT Forward(double speed) override;
    HRESULT Rewind(double speed) override;
    HRESULT Reverse() override;
    HRESULT Seek(int32_t position) override { return S_OK; }
    HRESULT IsPlaying() override;
    HRESULT get_Units(IString** units) override;
    HRESULT get_Capablities() override { return 0xE3F; }
    HRESULT Next() override;
    HRESULT Previous() override;

    // IDataPersist: the parameters and the archive file name.
    HRESULT Save(IDataStream* stream, int32_t flags) override;
    HRESULT Load(IDataStream* stream, int32_t flags) override;
    // IFileArchive: the current image to and from the archive file.
    HRESULT Save() override;
    HRESULT Load() override;
    HRESULT get_Filename(IString** name) override;
    HRESULT put_Filename(IString* name) override;

    // IUIPropertyPageSpecify
    HRESULT GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) override;

    // _ICameraEvents: images of the camera being recorded.
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override;

    /// One paced replay step of the live thread: a grab that keeps replay
    /// running, then the milliseconds left of the frame period (at most
    /// 5000), which the thread waits before the next step. A frame rate of
    /// 0 or less is replaced by 1.0.
    double OnGrab();

    /// The time of a file, seconds since 2000-01-01 00:00, as the overlay
    /// shows it: "%d-%02d-%02d %d:%d:%0.1f". The year is counted in 366-day
    /// steps and the day of the month runs from 0 in January.
    static std::wstring FormatTime(int64_t seconds);

private:
    /// Moves position one step in the current direction, wrapping around.
    void Step(int32_t count);
    /// The entry at position, loaded when it is a file archive.
    SmartPtr<IUnknown> LoadEntry(ISuperCollection* list, int32_t index);
    /// Shows file name and time of the entry at `index` over the first
    /// advised viewer. Called with the lock held.
    void ShowOverlay(ISuperCollection* list, int32_t index, ILUMViewer* viewer);
    /// Replaces the shown entry by a fresh, unloaded one. Lock held.
    void DropShownImage(ISuperCollection* list, int32_t index);
    /// The first advised sink that is a viewer.
    SmartPtr<ILUMViewer> FirstViewer();
    /// Rescans the list and marks it scanned. Lock held.
    void Rescan();
    /// Clamps the positions to the list's count after a pattern change.
    void ClampPositions(int32_t count);
    /// Names the next recorded image and makes it the archive file name.
    SmartPtr<IString> GenerateName();
    void DeclareParameters();

    CResourceLock m_Lock;
    /// The files to replay; the collection interfaces are forwarded to it.
    SmartPtr<IFileNameCollection> m_FileList;
    SmartPtr<ILUM> m_CurrentImage;
    SmartPtr<IEventSource> m_RecordSource;
    SmartPtr<ILUMArchive> m_ImageWriter;
    SmartPtr<IString> m_OverlayName;
    SmartPtr<IString> m_RecordSuffix;
    Relaxed<int32_t> m_ShowOverlay{1};
    Relaxed<double> m_FrameRate{0.0};
    Relaxed<double> m_RecordInterval{1.0};
    Relaxed<int32_t> m_Position{0};
    Relaxed<int32_t> m_CameraState{0};
    Relaxed<int32_t> m_Loop{0};
    Relaxed<int32_t> m_Backwards{0};
    Relaxed<int32_t> m_Parameter56{1};
    Relaxed<int32_t> m_Retention{0};
    int32_t m_Scanned = 0;  // under the lock
    Relaxed<int32_t> m_StartPosition{0};
    Relaxed<int32_t> m_EndPosition{0};
    int32_t m_RescanTrigger = 0;
    /// When the last image was recorded (steady clock, microseconds);
    /// only the recorded camera's thread uses it after construction.
    int64_t m_LastRecordTime = 0;
    /// The next number tried for a recorded file name.
    int32_t m_RecordCounter = 1;
};
