// Interfaces implemented by the camera module (and by framework cameras).
#pragma once

#include "lum/files.h"
#include "lum/imaging.h"
#include "lum/streams.h"

struct IDataPersist : IUnknown {
    virtual HRESULT Save(IDataStream* stream, int32_t flags) = 0;
    virtual HRESULT Load(IDataStream* stream, int32_t flags) = 0;
};

struct IUIPropertyPageSpecify : IUnknown {
    virtual HRESULT GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) = 0;
};

/// Numbered parameters; a successful Inquire returns the parameter's flags word.
struct IUIPropInterrogate : IUnknown {
    virtual HRESULT Inquire(int32_t code, int32_t* value) = 0;
    virtual HRESULT Control(int32_t code, int32_t value) = 0;
    virtual HRESULT ParameterRange(int32_t code, int32_t* minimum, int32_t* maximum) = 0;
    virtual HRESULT ParameterEnumeration(int32_t code, IUnknown** list) = 0;
};

struct IUIPropInterrogateEx : IUIPropInterrogate {
    virtual HRESULT InquireEx(int32_t code, IUnknown** value) = 0;
    virtual HRESULT ControlEx(int32_t code, IUnknown* value) = 0;
};

/// Flags 0 = remove the sink, 2 = the single replaceable sink, other = add.
struct IEventSource : IUnknown {
    virtual HRESULT Advise(IUnknown* sink, int32_t flags) = 0;
    virtual HRESULT GetAdviseCount() = 0;
    virtual HRESULT GetAdviseItem(uint32_t index, IUnknown** sink, int32_t* flags) = 0;
};

struct _ICameraEvents : IUnknown {
    virtual HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) = 0;
};

struct _IFileNameCollectionEvent : IUnknown {
    virtual HRESULT NewFile(IUnknown* collection, IString* fileName) = 0;
};

/// Exactly ten operations.
struct ICamera : IUnknown {
    virtual HRESULT Grab(int32_t mode, int16_t option, IUnknown* reserved) = 0;
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

struct ILUMCamcorder : ICamera {
    virtual int32_t GetLastFileIndex() = 0;
    virtual HRESULT get_RecordedSpeed(double* framesPerSecond) = 0;
    virtual HRESULT get_RecordRate(int32_t* rate) = 0;
    virtual HRESULT put_RecordRate(int32_t rate) = 0;
    virtual HRESULT get_RecordOptions(int32_t* options) = 0;
    virtual HRESULT put_RecordOptions(int32_t options) = 0;
    virtual HRESULT get_RecordasSeparateThreadDelayTime(int32_t* milliseconds) = 0;
    virtual HRESULT put_RecordasSeparateThreadDelayTime(int32_t milliseconds) = 0;
    virtual HRESULT get_FileFormat(FileFormatConstants* format) = 0;
    virtual HRESULT put_FileFormat(FileFormatConstants format) = 0;
    virtual HRESULT get_Path(IString** path) = 0;
    virtual HRESULT put_Path(tagREFString path) = 0;
    virtual HRESULT get_BaseFileName(IString** name) = 0;
    virtual HRESULT put_BaseFileName(tagREFString name) = 0;
    virtual HRESULT get_ActiveIndex(int32_t* index) = 0;
    virtual HRESULT put_ActiveIndex(int32_t index) = 0;
    virtual HRESULT get_PlayDirection(int32_t* forward) = 0;
    virtual HRESULT put_PlayDirection(int32_t forward) = 0;
    virtual HRESULT get_PlayBackSpeed(double* framesPerSecond) = 0;
    virtual HRESULT put_PlayBackSpeed(double framesPerSecond) = 0;
};

struct ILUMCamWindow : ICamera {
    virtual HRESULT get_AttachHWND(int32_t* window) = 0;
    virtual HRESULT put_AttachHWND(int32_t window) = 0;
    virtual HRESULT get_AttachRECT(CANVASRect* rect) = 0;
    virtual HRESULT put_AttachRECT(CANVASRect rect) = 0;
};

struct ICamcorder : IUnknown {
    virtual HRESULT Record(IUnknown* camera) = 0;
    virtual HRESULT IsRecording() = 0;
    virtual HRESULT StopRecording() = 0;
};

struct ICamcorderArm : ICamcorder {
    virtual HRESULT Arm(IUnknown* camera) = 0;
    virtual HRESULT get_NumberImagesPreRecord(int32_t* count) = 0;
    virtual HRESULT put_NumberImagesPreRecord(int32_t count) = 0;
};

struct IStep : IUnknown {
    virtual HRESULT TurnOn() = 0;
    virtual HRESULT TurnOff() = 0;
    virtual HRESULT IsRunning() = 0;
    virtual HRESULT get_ExecutionTime(double* milliseconds) = 0;
};

struct IMMControl : IUnknown {
    virtual HRESULT Play() = 0;
    virtual HRESULT Stop() = 0;
    virtual HRESULT Pause() = 0;
    virtual HRESULT GetPositions(int32_t* start, int32_t* end) = 0;
    virtual HRESULT SetPositions(int32_t start, int32_t end) = 0;
    virtual HRESULT get_CurrentPosition(int32_t* position) = 0;
    virtual HRESULT get_Loop(int32_t* loop) = 0;
    virtual HRESULT put_Loop(int32_t loop) = 0;
    virtual HRESULT get_Duration(int32_t* duration) = 0;
};

/// `get_Capablities` is spelled so in the binary contract.
struct IMMControlEx : IMMControl {
    virtual HRESULT Forward(double speed) = 0;
    virtual HRESULT Rewind(double speed) = 0;
    virtual HRESULT Reverse() = 0;
    virtual HRESULT Seek(int32_t position) = 0;
    virtual HRESULT IsPlaying() = 0;
    virtual HRESULT get_Units(IString** units) = 0;
    virtual HRESULT get_Capablities() = 0;
    virtual HRESULT Next() = 0;
    virtual HRESULT Previous() = 0;
};
