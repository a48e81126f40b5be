// How a host reaches the camera operations of a "LUMFileGrab".
//
// The file grab answers ICamera with its primary pointer, whose table is not
// laid out as ICamera: after IUnknown's three slots come four internal
// operations of the object that a host must never call, then the ten camera
// operations in ICamera order. Cast the ICamera answer to LUMFileGrabCamera
// and call the camera operations through it.
#pragma once

#include "lum/camera.h"

struct LUMFileGrabCamera : IUnknown {
    // Internal slots 3 to 6: never call these.
    virtual HRESULT Internal3() = 0;
    virtual void Internal4() = 0;
    virtual HRESULT Internal5() = 0;
    virtual HRESULT Internal6() = 0;
    // The camera operations, in ICamera order.
    virtual HRESULT Grab(int32_t mode, int16_t wait, IUnknown* reserved) = 0;
    virtual HRESULT Live() = 0;
    virtual HRESULT StopLive() = 0;
    virtual HRESULT get_CameraState(CameraStateConstants* state) = 0;
    virtual HRESULT get_Image(int32_t index, ILUM** image) = 0;
    virtual HRESULT get_NumberOfFrames(int32_t* count) = 0;
    virtual HRESULT put_NumberOfFrames(int32_t count) = 0;
    virtual HRESULT LoadParameters(tagREFString text) = 0;
    virtual HRESULT Inquire(int32_t code, int32_t* value) = 0;
    virtual HRESULT Control(int32_t code, int32_t value) = 0;
};
