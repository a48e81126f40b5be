// CLUMFilePlayer: replays the images of a folder at a fixed rate as a live
// camera, and records another camera to JPEG files.
//
// Replay, recording and settings are not built yet: those operations answer
// E_NOTIMPL. Creation (file list, extension table, image writer), identity
// and the event source are.
#pragma once

#include "components/ComponentBase.h"
#include "components/LiveThread.h"

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
    HRESULT FinalConstruct() override;
    void FinalRelease() override;
    HRESULT Lock() override { return m_Lock.Lock(); }
    HRESULT Unlock() override { return m_Lock.Unlock(); }

    // ICamera
    HRESULT Grab(int32_t mode, int16_t option, IUnknown* reserved) override { return E_NOTIMPL; }
    HRESULT Live() override { return E_NOTIMPL; }
    HRESULT StopLive() override { return E_NOTIMPL; }
    HRESULT get_CameraState(CameraStateConstants* state) override { return E_NOTIMPL; }
    HRESULT get_Image(int32_t index, ILUM** image) override { return E_NOTIMPL; }
    HRESULT get_NumberOfFrames(int32_t* count) override { return E_NOTIMPL; }
    HRESULT put_NumberOfFrames(int32_t count) override { return E_NOTIMPL; }
    HRESULT LoadParameters(tagREFString text) override { return E_NOTIMPL; }
    // Shared by ICamera, IUIPropInterrogate and IFileArchive.
    HRESULT Inquire(int32_t code, int32_t* value) override;
    HRESULT Control(int32_t code, int32_t value) override;

    // Recording another camera: the player's own operations (no interface).
    HRESULT Record(IUnknown* camera) { return E_NOTIMPL; }
    HRESULT IsRecording() { return E_FAIL; }
    HRESULT StopRecording() { return E_NOTIMPL; }

    // IMMControl, IMMControlEx
    HRESULT Play() override { return E_NOTIMPL; }
    HRESULT Stop() override { return E_NOTIMPL; }
    HRESULT Pause() override { return E_NOTIMPL; }
    HRESULT GetPositions(int32_t* start, int32_t* end) override { return E_NOTIMPL; }
    HRESULT SetPositions(int32_t start, int32_t end) override { return E_NOTIMPL; }
    HRESULT get_CurrentPosition(int32_t* position) override { return E_NOTIMPL; }
    HRESULT get_Loop(int32_t* loop) override { return E_NOTIMPL; }
    HRESULT put_Loop(int32_t loop) override { return E_NOTIMPL; }
    HRESULT get_Duration(int32_t* duration) override { return E_NOTIMPL; }
    HRESULT Forward(double speed) override { return E_NOTIMPL; }
    HRESULT Rewind(double speed) override { return E_NOTIMPL; }
    HRESULT Reverse() override { return E_NOTIMPL; }
    HRESULT Seek(int32_t position) override { return E_NOTIMPL; }
    HRESULT IsPlaying() override { return S_FALSE; }
    HRESULT get_Units(IString** units) override { return E_NOTIMPL; }
    HRESULT get_Capablities() override { return 0xE3F; }
    HRESULT Next() override { return E_NOTIMPL; }
    HRESULT Previous() override { return E_NOTIMPL; }

    // IDataPersist
    HRESULT Save(IDataStream* stream, int32_t flags) override { return E_NOTIMPL; }
    HRESULT Load(IDataStream* stream, int32_t flags) override { return E_NOTIMPL; }
    using IFileArchiveImpl::Load;
    using IFileArchiveImpl::Save;

    // IUIPropertyPageSpecify
    HRESULT GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) override {
        return E_NOTIMPL;
    }

    // _ICameraEvents
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override { return E_NOTIMPL; }

private:
    CResourceLock m_Lock;
    /// The files to replay; the collection interfaces are forwarded to it.
    SmartPtr<IFileNameCollection> m_FileList;
    SmartPtr<ILUM> m_CurrentImage;
    SmartPtr<IEventSource> m_RecordSource;
    SmartPtr<ILUMArchive> m_ImageWriter;
};
