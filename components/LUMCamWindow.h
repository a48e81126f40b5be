// CLUMCamWindow: the camera wrapper bound to a host window (handle and
// rectangle); relays grabs to its sinks without capturing.
//
// The window operations and the state machine are not built yet: they answer
// E_NOTIMPL. Creation (with its canvas images) and identity are.
#pragma once

#include "components/ComponentBase.h"

class CLUMCamWindow final : public CObject<CLUMCamWindow>,
                            public IObjectInfoImpl<CLUMCamWindow>,
                            public ILUMCamWindow,
                            public IUIPropertyPageSpecify,
                            public IEventSourceImpl<CLUMCamWindow, &IID__ICameraEvents>,
                            public _FIRECameraEvents<CLUMCamWindow>,
                            public IUIPropInterrogateImpl<CLUMCamWindow, IUIPropInterrogateEx, 10>,
                            public IFileArchiveImpl<CLUMCamWindow, IFileArchive>,
                            public IStep,
                            public IDataPersist,
                            public ICamcorder {
    LUM_OBJECT_UNKNOWN(CLUMCamWindow)

public:
    HRESULT FinalConstruct() override;

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

    // ILUMCamWindow
    HRESULT get_AttachHWND(int32_t* window) override { return E_NOTIMPL; }
    HRESULT put_AttachHWND(int32_t window) override { return E_NOTIMPL; }
    HRESULT get_AttachRECT(CANVASRect* rect) override { return E_NOTIMPL; }
    HRESULT put_AttachRECT(CANVASRect rect) override { return E_NOTIMPL; }

    // IUIPropertyPageSpecify
    HRESULT GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) override {
        return E_NOTIMPL;
    }

    // IStep
    HRESULT TurnOn() override { return E_NOTIMPL; }
    HRESULT TurnOff() override { return E_NOTIMPL; }
    HRESULT IsRunning() override { return 0; }
    HRESULT get_ExecutionTime(double* milliseconds) override { return E_NOTIMPL; }

    // IDataPersist
    HRESULT Save(IDataStream* stream, int32_t flags) override { return E_NOTIMPL; }
    HRESULT Load(IDataStream* stream, int32_t flags) override { return E_NOTIMPL; }
    using IFileArchiveImpl::Load;
    using IFileArchiveImpl::Save;

    // ICamcorder
    HRESULT Record(IUnknown* camera) override { return E_NOTIMPL; }
    HRESULT IsRecording() override { return E_FAIL; }
    HRESULT StopRecording() override { return E_NOTIMPL; }

private:
    SmartPtr<IString> m_DisplayName;
    SmartPtr<ILUMImageCANVAS> m_Canvas[3];
    /// The choices of the display parameter.
    SmartPtr<ISuperCollection> m_Displays;
    int32_t m_Parameter10 = 0;
};
