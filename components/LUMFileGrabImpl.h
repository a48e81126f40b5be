// CLUMFileGrab: a camera whose images are the new files of a watched folder.
//
// Its camera operations are its first declared virtual operations, so that
// in the primary table they follow the seven CObject slots in ICamera order:
// the ICamera request is answered with the primary pointer.
#pragma once

#include "components/ComponentBase.h"

class CLUMFileGrab final : public CObject<CLUMFileGrab>,
                           public IObjectInfoImpl<CLUMFileGrab>,
                           public _IFileNameCollectionEvent,
                           public IEventSourceImpl<CLUMFileGrab, &IID__ICameraEvents>,
                           public IUIPropertyPageSpecify,
                           public _FIRECameraEvents<CLUMFileGrab> {
public:
    // Camera operations, in ICamera order: declared before anything else.
    virtual HRESULT Grab(int32_t mode, int16_t wait, IUnknown* reserved) { return E_NOTIMPL; }
    virtual HRESULT Live() { return E_NOTIMPL; }
    virtual HRESULT StopLive() { return E_NOTIMPL; }
    virtual HRESULT get_CameraState(CameraStateConstants* state) { return E_NOTIMPL; }
    virtual HRESULT get_Image(int32_t index, ILUM** image) { return E_NOTIMPL; }
    virtual HRESULT get_NumberOfFrames(int32_t* count) { return E_NOTIMPL; }
    virtual HRESULT put_NumberOfFrames(int32_t count) { return E_NOTIMPL; }
    virtual HRESULT LoadParameters(tagREFString text) { return E_NOTIMPL; }
    virtual HRESULT Inquire(int32_t id, int32_t* value);
    virtual HRESULT Control(int32_t id, int32_t value) { return E_FAIL; }

    LUM_OBJECT_UNKNOWN(CLUMFileGrab)

public:
    HRESULT FinalConstruct() override;
    void FinalRelease() override;

    // _IFileNameCollectionEvent
    HRESULT NewFile(IUnknown* collection, IString* fileName) override { return E_NOTIMPL; }

    // IUIPropertyPageSpecify
    HRESULT GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) override {
        return E_NOTIMPL;
    }

private:
    SmartPtr<IFileNameCollection> m_Files;
    int32_t m_GrabTimeLimit = 5000;
    int32_t m_State = 0;
    SmartPtr<IString> m_Folder;
};
