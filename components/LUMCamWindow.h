// CLUMCamWindow: the camera wrapper bound to a host window (handle and
// rectangle); relays grabs to its sinks without capturing.
//
// The window handle is only kept (and deliberately never read back). The
// attached rectangle is the area the component shows: once it has a width
// and a height, the first canvas image is sized to it and becomes the image
// that get_Image hands out and Grab announces; the host draws into it. The
// state is a switch between stopped (0), live (2) and recording (3) that the
// host drives; nothing runs on a thread of its own, and every call is
// expected from the host's thread (Lock and Unlock do nothing).
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
    /// Bit depth of the canvas when it is sized to the attached rectangle.
    static constexpr int32_t kCanvasBits = 24;

    HRESULT FinalConstruct() override;

    // ICamera
    /// Announces the current image to the sinks with the state (0, 2 or 3)
    /// as its number; the arguments are not used. Without an image there is
    /// nothing to announce.
    HRESULT Grab(int32_t mode, int16_t option, IUnknown* reserved) override;
    HRESULT Live() override;
    HRESULT StopLive() override;
    HRESULT get_CameraState(CameraStateConstants* state) override;
    /// The current image (the index is not used); E_FAIL while there is none.
    HRESULT get_Image(int32_t index, ILUM** image) override;
    HRESULT get_NumberOfFrames(int32_t* count) override { return E_NOTIMPL; }
    HRESULT put_NumberOfFrames(int32_t count) override { return E_NOTIMPL; }
    HRESULT LoadParameters(tagREFString text) override { return E_NOTIMPL; }
    // Shared by ICamera, IUIPropInterrogate and IFileArchive: the parameter list.
    HRESULT Inquire(int32_t code, int32_t* value) override;
    HRESULT Control(int32_t code, int32_t value) override;

    // IUIPropInterrogate: parameter 1 offers the display "Desktop".
    HRESULT ParameterEnumeration(int32_t code, IUnknown** list) override;

    // ILUMCamWindow
    /// The handle is write-only: S_OK, and nothing is written.
    HRESULT get_AttachHWND(int32_t* window) override { return S_OK; }
    HRESULT put_AttachHWND(int32_t window) override;
    HRESULT get_AttachRECT(CANVASRect* rect) override;
    HRESULT put_AttachRECT(CANVASRect rect) override;

    // IUIPropertyPageSpecify
    HRESULT GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) override;

    // IStep: one step is one Grab.
    HRESULT TurnOn() override { return Grab(0, 0, nullptr); }
    HRESULT TurnOff() override { return S_OK; }
    HRESULT IsRunning() override { return S_OK; }
    HRESULT get_ExecutionTime(double* milliseconds) override { return E_NOTIMPL; }

    // IDataPersist: the parameters, through the stream's folder view.
    HRESULT Save(IDataStream* stream, int32_t flags) override;
    HRESULT Load(IDataStream* stream, int32_t flags) override;
    using IFileArchiveImpl::Load;
    using IFileArchiveImpl::Save;

    // ICamcorder: a switch only; the camera argument is not used.
    HRESULT Record(IUnknown* camera) override;
    HRESULT IsRecording() override;
    HRESULT StopRecording() override;

private:
    /// Sizes the first canvas to the attached rectangle when the rectangle
    /// changed, and makes it the current image; a rectangle without area
    /// leaves no current image.
    void FollowRectangle();

    /// A live thread's record; nothing here starts one.
    void* m_LiveSlots[2] = {nullptr, nullptr};
    int32_t m_Window = 0;
    CANVASRect m_Rect{0, 0, 0, 0};
    int32_t m_Parameter10 = 0;
    int32_t m_State = CameraStateIdle;
    int32_t m_GrabToggle = 0;
    SmartPtr<IString> m_DisplayName;
    SmartPtr<ILUMImageCANVAS> m_Canvas[3];
    SmartPtr<ILUM> m_Image;
    /// The choices of the display parameter.
    SmartPtr<ISuperCollection> m_Displays;
    /// The rectangle the current image was last sized to.
    CANVASRect m_ShownRect{0, 0, 0, 0};
};
