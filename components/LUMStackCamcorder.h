// CLUMStackCamcorder: records a camera's images into an in-memory image
// stack (private copies) and serves them back as a camera; the archive side
// saves the whole stack as an image series or one AVI file and loads it
// from an AVI file or a folder of images.
//
// Recording runs on the wrapped camera's thread and playback on the
// caller's; they share only the stack, which is internally locked. State
// read across those threads is held in Relaxed<> values.
#pragma once

#include "components/ComponentBase.h"
#include "components/Relaxed.h"

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
    HRESULT Grab(int32_t mode, int16_t option, IUnknown* reserved) override;
    HRESULT Live() override;
    HRESULT StopLive() override;
    HRESULT get_CameraState(CameraStateConstants* state) override;
    HRESULT get_Image(int32_t index, ILUM** image) override;
    HRESULT get_NumberOfFrames(int32_t* count) override { return E_NOTIMPL; }
    HRESULT put_NumberOfFrames(int32_t count) override { return E_NOTIMPL; }
    HRESULT LoadParameters(tagREFString text) override { return E_NOTIMPL; }
    // Shared by ICamera, IUIPropInterrogate and IFileArchive: the parameter
    // table (the archive's own option codes are reached inside the module).
    HRESULT Inquire(int32_t code, int32_t* value) override;
    HRESULT Control(int32_t code, int32_t value) override;

    // ICamcorder
    HRESULT Record(IUnknown* camera) override;
    HRESULT IsRecording() override;
    HRESULT StopRecording() override;

    // IDataPersist: the settings.
    HRESULT Save(IDataStream* stream, int32_t flags) override;
    HRESULT Load(IDataStream* stream, int32_t flags) override;
    // IFileArchive: the stack's images.
    HRESULT Save() override;
    HRESULT Load() override;

    // IUIPropertyPageSpecify
    HRESULT GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) override;

    // _ICameraEvents: images of the wrapped camera.
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override;

private:
    HRESULT SaveAvi(ISimpleCollection* images);
    HRESULT SaveSeries(ISimpleCollection* images, const std::wstring& stem, const std::wstring& extension);
    void LoadAvi(IString* name);
    void LoadFolder(const std::wstring& name);
    void ShowMessage(const wchar_t* text);
    int32_t StackCount();

    /// A live thread's record; nothing here starts one.
    void* m_LiveThread[2] = {nullptr, nullptr};
    /// The recorded images; IStackCollection and ISimpleCollection are forwarded to it.
    SmartPtr<IStackCollection> m_Stack;
    /// Event source of the camera being recorded, if any.
    SmartPtr<IEventSource> m_CameraEvents;
    int32_t m_Parameter52 = 30;
    Relaxed<int32_t> m_Forward{0};
    Relaxed<int32_t> m_SkipRate{0};
    Relaxed<int32_t> m_State{0};
    Relaxed<int32_t> m_Index{0};
    Relaxed<int32_t> m_Loop{1};
    int32_t m_IdleWord = 0;
    int32_t m_AviRate = 15;
    int32_t m_Quiet = 0;
    Relaxed<int32_t> m_SkipCounter{0};
};
