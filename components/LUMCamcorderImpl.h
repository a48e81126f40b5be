// CLUMCamcorder: records a camera's images to numbered image files or one AVI
// per recording, and plays recordings back as a camera.
//
// Recording and playback are not built yet: those operations answer
// E_NOTIMPL. Creation, identity, the event source and the objects it owns are.
#pragma once

#include "components/ComponentBase.h"

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
    // Shared by ICamera and IUIPropInterrogate: the camcorder's own codes,
    // then its parameter list.
    HRESULT Inquire(int32_t code, int32_t* value) override;
    HRESULT Control(int32_t code, int32_t value) override;

    // ILUMCamcorder
    int32_t GetLastFileIndex() override { return 0; }
    HRESULT get_RecordedSpeed(double* framesPerSecond) override { return E_NOTIMPL; }
    HRESULT get_RecordRate(int32_t* rate) override { return E_NOTIMPL; }
    HRESULT put_RecordRate(int32_t rate) override { return E_NOTIMPL; }
    HRESULT get_RecordOptions(int32_t* options) override { return E_NOTIMPL; }
    HRESULT put_RecordOptions(int32_t options) override { return E_NOTIMPL; }
    HRESULT get_RecordasSeparateThreadDelayTime(int32_t* milliseconds) override { return E_NOTIMPL; }
    HRESULT put_RecordasSeparateThreadDelayTime(int32_t milliseconds) override { return E_NOTIMPL; }
    HRESULT get_FileFormat(FileFormatConstants* format) override { return E_NOTIMPL; }
    HRESULT put_FileFormat(FileFormatConstants format) override { return E_NOTIMPL; }
    HRESULT get_Path(IString** path) override { return E_NOTIMPL; }
    HRESULT put_Path(tagREFString path) override { return E_NOTIMPL; }
    HRESULT get_BaseFileName(IString** name) override { return E_NOTIMPL; }
    HRESULT put_BaseFileName(tagREFString name) override { return E_NOTIMPL; }
    HRESULT get_ActiveIndex(int32_t* index) override { return E_NOTIMPL; }
    HRESULT put_ActiveIndex(int32_t index) override { return E_NOTIMPL; }
    HRESULT get_PlayDirection(int32_t* forward) override { return E_NOTIMPL; }
    HRESULT put_PlayDirection(int32_t forward) override { return E_NOTIMPL; }
    HRESULT get_PlayBackSpeed(double* framesPerSecond) override { return E_NOTIMPL; }
    HRESULT put_PlayBackSpeed(double framesPerSecond) override { return E_NOTIMPL; }

    // ICamcorder, ICamcorderArm
    HRESULT Record(IUnknown* camera) override { return E_NOTIMPL; }
    HRESULT IsRecording() override { return E_FAIL; }
    HRESULT StopRecording() override { return E_NOTIMPL; }
    HRESULT Arm(IUnknown* camera) override { return E_NOTIMPL; }
    HRESULT get_NumberImagesPreRecord(int32_t* count) override { return E_NOTIMPL; }
    HRESULT put_NumberImagesPreRecord(int32_t count) override { return E_NOTIMPL; }

    // IDataPersist
    HRESULT Save(IDataStream* stream, int32_t flags) override { return E_NOTIMPL; }
    HRESULT Load(IDataStream* stream, int32_t flags) override { return E_NOTIMPL; }

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

    // _ICameraEvents
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override { return E_NOTIMPL; }

    // IUIPropertyPageSpecify
    HRESULT GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) override {
        return E_NOTIMPL;
    }

private:
    friend struct InterfaceEntry<CLUMCamcorder>;
    CResourceLock m_Lock;
    SmartPtr<ILUMArchive> m_Archive;
    /// The pre-record ring; IStackCollection and ISimpleCollection are forwarded to it.
    SmartPtr<IStackCollection> m_Stack;
};
