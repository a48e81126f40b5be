// CLUMStackCamcorder: records a camera's images into an in-memory image
// stack and serves them back as a camera.
//
// Recording, playback and the stack files are not built yet: those
// operations answer E_NOTIMPL. Creation, identity and the event source are.
#pragma once

#include "components/ComponentBase.h"

class CLUMStackCamcorder final : public CObject<CLUMStackCamcorder>,
                                 public IObjectInfoImpl<CLUMStackCamcorder>,
                                 public ICamera,
                                 public ICamcorder,
                                 public IDataPersist,
                                 public IUIPropertyPageSpecify,
                                 public IEventSourceImpl<CLUMStackCamcorder, &IID__ICameraEvents>,
                                 public _FIRECameraEvents<CLUMStackCamcorder>,
                                 public IUIPropInterrogateImpl<CLUMStackCamcorder, IUIPropInterrogateEx, 10>,
                                 public IFileArchiveImpl<CLUMStackCamcorder, IFileArchive>,
                                 public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(CLUMStackCamcorder)

public:
    HRESULT FinalConstruct() override;
    void FinalRelease() override;

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

    // ICamcorder
    HRESULT Record(IUnknown* camera) override { return E_NOTIMPL; }
    HRESULT IsRecording() override { return E_FAIL; }
    HRESULT StopRecording() override { return E_NOTIMPL; }

    // IDataPersist
    HRESULT Save(IDataStream* stream, int32_t flags) override { return E_NOTIMPL; }
    HRESULT Load(IDataStream* stream, int32_t flags) override { return E_NOTIMPL; }
    // IFileArchive's Load()/Save() are the archive part's.
    using IFileArchiveImpl::Load;
    using IFileArchiveImpl::Save;

    // IUIPropertyPageSpecify
    HRESULT GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) override {
        return E_NOTIMPL;
    }

    // _ICameraEvents
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override { return E_NOTIMPL; }

private:
    /// The recorded images; IStackCollection and ISimpleCollection are forwarded to it.
    SmartPtr<IStackCollection> m_Stack;
    /// Event source of the camera being recorded, if any.
    SmartPtr<IEventSource> m_CameraEvents;
};
