// "LUMAravisCamera": a camera of the Aravis library (GigE Vision, USB3
// Vision, or Aravis's own fake devices) as an ICamera with the event source
// of the synthetic camera "LUMTestCamera".
//
// Opening: LoadParameters(text) opens the device whose Aravis id is `text`
// (blanks around it ignored; empty: the first device Aravis finds). An
// unknown id gives E_FAIL and leaves the camera as it was; until a device is
// open, Live, Grab and the device parameters give E_FAIL. Which interfaces
// Aravis searches (its "Fake" interface, say) is the host's choice
// (arv_enable_interface): this module leaves them as they are.
//
// Streaming: Live creates an Aravis stream with a pool of buffers (code 14),
// starts a continuous acquisition and starts a thread that pops the filled
// buffers. Each complete buffer is copied once, straight from the Aravis
// buffer into a new "LUMImageDIB" (created through the module's collection),
// the buffer goes back to the pool, and the image is fired as
// ImageGrabbed(camera's IUnknown, image, frame number) to every sink in
// order, outside the camera's locks. The frame number is the buffer's own
// frame id (as a 32-bit number; GigE Vision ids may wrap). StopLive stops
// the thread and the acquisition and joins; from a sink on the camera's own
// thread it only asks the thread to end after the current frame.
//
// Grab while not live makes a short acquisition: it starts the device, takes
// the first complete buffer, stops the device, and fires that frame on the
// caller's thread. Grab while live waits for the next frame that the live
// thread delivers (up to one second plus three frame periods) and fires
// nothing more; from a sink on the live thread it gives E_FAIL.
//
// Lifetime: as for "LUMTestCamera", the live thread holds a reference only
// while it makes and fires one frame; releasing the last outside reference
// stops the thread and the acquisition and closes the device. When the last
// reference goes on the live thread itself (a sink let go of the camera
// inside the event), the thread is detached and ends by itself.
//
// Pixels: a Mono8 buffer becomes an 8-bit image; BGR8 and RGB8 buffers
// become 24-bit images in the framework's blue, green, red order (RGB8 is
// swapped during the one copy). Rows keep the framework's stride (row size
// rounded up to 4 bytes) whatever padding the device adds.
#pragma once

#include <arv.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "framework/common/KitModule.h"
#include "module/events/EventSource.h"
#include "module/events/FireCameraEvents.h"
#include "module/object/InterfaceTable.h"

class CAravisCamera final : public ICamera,
                            public IEventSourceImpl<CAravisCamera, &IID__ICameraEvents>,
                            public _FIRECameraEvents<CAravisCamera>,
                            public IObjectInfoImpl<CAravisCamera> {
public:
    /// Parameter codes of Control and Inquire. Unknown codes, and Control of
    /// the codes marked "Inquire only", give E_INVALIDARG; a device code
    /// (1-4, 11-13) gives E_FAIL while no device is open (or when the device
    /// reports an error), E_NOTIMPL when the device lacks the feature, and
    /// E_INVALIDARG for a value outside the device's range. Defaults of device
    /// codes are the device's own at opening; a device may round a value to
    /// its own step (Inquire reads what it kept).
    enum : int32_t {
        /// Width in pixels (the device's "Width"). Range and step: the
        /// device's (Aravis's fake camera: 1-2048, default 512). Refused
        /// (E_FAIL) while live or grabbing.
        kWidth = 1,
        /// Height in pixels (the device's "Height"); as kWidth.
        kHeight = 2,
        /// Bits per pixel of the images: 8 (selects Mono8) or 24 (selects
        /// BGR8, else RGB8, whichever the device offers); anything else, or a
        /// format the device lacks, E_INVALIDARG. Refused while live or
        /// grabbing. Inquire gives 8 or 24.
        kBitsPerPixel = 3,
        /// Frame rate in whole frames per second (the device's acquisition
        /// frame rate, rounded). Range: the device's, rounded inwards
        /// (fake camera: 1-1000, default 25). May change while live.
        kFrameRate = 4,
        /// Inquire only: 2 (CameraStateLive) while live, 1 (CameraStateGrabbing)
        /// during the short acquisition of Grab, else 0.
        kState = 10,
        /// Pixel format as its GenICam PFNC value: 0x01080001 Mono8,
        /// 0x02180015 BGR8, 0x02180014 RGB8. Any other format, or one the
        /// device lacks, E_INVALIDARG. Default: the device's when it is one of
        /// these, else the first of Mono8, BGR8, RGB8 that the device offers.
        /// Refused while live or grabbing.
        kPixelFormat = 11,
        /// Exposure time in whole microseconds. Range: the device's (fake
        /// camera: 10-10000000, default 10000). May change while live.
        kExposureTime = 12,
        /// Gain in hundredths of the device's gain unit (usually dB). Range:
        /// the device's times 100 (fake camera: 0-1000, default 0). May
        /// change while live.
        kGain = 13,
        /// Buffers in the stream's pool, used from the next Live: 2-256,
        /// default 16 (0.64 s of frames at 25 frames per second). Needs no
        /// device.
        kBufferCount = 14,
        /// Inquire only: complete frames delivered (fired) since creation, by
        /// Live and by Grab.
        kDelivered = 20,
        /// Inquire only: buffers that arrived incomplete or failed (missing
        /// packets, timeouts, size mismatches) since creation; not fired.
        kIncomplete = 21,
        /// Inquire only: frames lost since creation: the stream found no free
        /// buffer in the pool (underruns), or a complete buffer could not be
        /// turned into an image (a pixel format other than those above, too
        /// little data, or no memory for the image).
        kDropped = 22,
    };
    static constexpr int32_t kDefaultBuffers = 16;
    static constexpr int32_t kMaxBuffers = 256;

    static HRESULT _CreateInstance(void* outer, const IID* iid, void** object);
    static const InterfaceEntry<CAravisCamera> kInterfaces[];
    IUnknown* PrimaryUnknown() { return static_cast<ICamera*>(this); }

    // IUnknown
    HRESULT QueryInterface(const IID& iid, void** object) override;
    uint32_t AddRef() override;
    uint32_t Release() override;

    // ICamera
    HRESULT Grab(int32_t mode, int16_t option, IUnknown* reserved) override;
    HRESULT Live() override;
    HRESULT StopLive() override;
    HRESULT get_CameraState(CameraStateConstants* state) override;
    /// The last frame delivered (E_FAIL before the first); the index is ignored.
    HRESULT get_Image(int32_t index, ILUM** image) override;
    /// Frames delivered (as code kDelivered).
    HRESULT get_NumberOfFrames(int32_t* count) override;
    /// E_NOTIMPL: the camera has no frame limit.
    HRESULT put_NumberOfFrames(int32_t count) override;
    HRESULT LoadParameters(tagREFString text) override;
    HRESULT Inquire(int32_t code, int32_t* value) override;
    HRESULT Control(int32_t code, int32_t value) override;

    // IEventSource: the shared advise list, every access under the advise lock
    // since sinks may come and go while the live thread fires.
    using IEventSourceImpl<CAravisCamera, &IID__ICameraEvents>::Advise;
    HRESULT Advise(IUnknown* sink, int32_t flags, const IID& iid) override;
    HRESULT GetAdviseItem(uint32_t index, IUnknown** sink, int32_t* flags) override;

    /// The advise list's guard (recursive: Advise holds it around the list's
    /// own locked section).
    HRESULT Lock();
    HRESULT Unlock();

private:
    CAravisCamera() = default;
    ~CAravisCamera() = default;

    /// A reference for the live thread, refused once the count reached zero.
    bool TryAddRef();
    /// Stops the live thread (detached when this is that thread), closes the
    /// stream and the device and lets go of the sinks; runs once, when the
    /// last reference goes.
    void Shutdown();
    /// True on the camera's own live thread.
    bool OnLiveThread();
    void LiveLoop(ArvStream* stream);
    /// Stops the device's acquisition, adds the stream's underruns to the
    /// dropped frames and releases the stream. The live thread closes its
    /// own stream as it ends; Grab closes the stream of its acquisition;
    /// Shutdown closes a stream that the live thread could not.
    void CloseStream(ArvStream* stream);
    /// The stream still open, if any.
    ArvStream* OpenStreamLeft();
    /// Creates a stream with `buffers` buffers and starts a continuous
    /// acquisition. Call with m_ControlLock held.
    HRESULT OpenStream(int32_t buffers, ArvStream** stream);
    /// Turns a buffer's status into the counters: true for a complete one.
    bool CountStatus(ArvBuffer* buffer);
    /// Copies a complete buffer into a new image; false (counted as dropped)
    /// when it cannot.
    bool MakeImage(ArvBuffer* buffer, SmartPtr<ILUM>& image, int32_t* number);
    /// Keeps `image` as the last frame, fires it to every sink, then counts
    /// it and wakes waiting Grabs.
    void Deliver(ILUM* image, int32_t number);
    /// Grab on the caller's thread while not live.
    HRESULT GrabOnce(SmartPtr<ILUM>& image, int32_t* number);
    /// Grab while live: waits for the next frame of the live thread.
    HRESULT WaitForLiveFrame();
    /// Frame period in microseconds (0 when unknown). Call with m_DeviceLock held.
    int64_t FramePeriodMicroseconds();
    HRESULT InquireDevice(int32_t code, int32_t* value);
    HRESULT ControlDevice(int32_t code, int32_t value);
    HRESULT SetFormat(ArvPixelFormat format);
    bool DeviceOffers(ArvPixelFormat format);

    std::atomic<int32_t> m_Refs{1};
    std::recursive_mutex m_AdviseLock;
    // Serialises Live, StopLive, Grab's acquisition, LoadParameters and the
    // parameters that need the device idle. Taken before m_DeviceLock.
    std::mutex m_ControlLock;
    // Guards m_Camera and every call on it. Taken before m_Lock.
    std::mutex m_DeviceLock;
    ArvCamera* m_Camera = nullptr;

    // Everything below is guarded by m_Lock.
    std::mutex m_Lock;
    std::condition_variable m_Wake;  // a frame was delivered, or live ended
    ArvStream* m_Stream = nullptr;   // of the live thread, or of Grab's acquisition
    int32_t m_Buffers = kDefaultBuffers;
    SmartPtr<ILUM> m_LastFrame;
    int64_t m_Delivered = 0;
    int64_t m_Incomplete = 0;
    int64_t m_Dropped = 0;  // not counting the open stream's underruns
    std::thread m_Thread;
    std::thread::id m_ThreadId;  // of m_Thread until it is joined
    bool m_Live = false;
    bool m_Grabbing = false;
    bool m_StopRequested = false;  // the live thread ends after its current frame
    bool m_Closing = false;        // stopped from outside: the live thread may not be revived
};
LUM_KIT_OBJECT_NAME_DECLARE(CAravisCamera)
