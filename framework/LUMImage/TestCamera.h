// "LUMTestCamera": a synthetic camera for demos and tests. It paints a test
// pattern into a new "LUMImageDIB" per frame and fires it to its sinks,
// either once per Grab on the caller's thread or from a live thread at a
// fixed frame rate.
//
// Lifetime: the live thread holds a reference to the camera only while it
// makes and fires one frame, so the camera stays whole for its sinks during
// the event, and releasing the last outside reference stops the thread. A
// reference may only be taken while the count is above zero (TryAddRef),
// which is why the class counts its references itself instead of using
// CObject. When the last reference goes on the live thread (a sink let go
// of the camera inside the event), the thread is detached and ends by itself.
//
// A live frame produced while no sink is advised is numbered and becomes the
// last frame, but is painted only when get_Image asks for it: a camera left
// running without subscribers costs next to nothing.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "framework/common/KitModule.h"
#include "module/events/EventSource.h"
#include "module/events/FireCameraEvents.h"
#include "module/object/InterfaceTable.h"

class CTestCamera final : public ICamera,
                          public IEventSourceImpl<CTestCamera, &IID__ICameraEvents>,
                          public _FIRECameraEvents<CTestCamera>,
                          public IObjectInfoImpl<CTestCamera> {
public:
    /// Parameter codes of Control and Inquire.
    enum : int32_t { kWidth = 1, kHeight = 2, kBitsPerPixel = 3, kFrameRate = 4, kFrameLimit = 5, kState = 10 };
    /// Largest width or height accepted.
    static constexpr int32_t kMaxSide = 16384;

    static HRESULT _CreateInstance(void* outer, const IID* iid, void** object);
    static const InterfaceEntry<CTestCamera> kInterfaces[];
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
    HRESULT get_Image(int32_t index, ILUM** image) override;
    HRESULT get_NumberOfFrames(int32_t* count) override;
    HRESULT put_NumberOfFrames(int32_t count) override;
    HRESULT LoadParameters(tagREFString text) override;
    HRESULT Inquire(int32_t code, int32_t* value) override;
    HRESULT Control(int32_t code, int32_t value) override;

    // IEventSource: the shared advise list, with every access (also the
    // replacement of the flags-2 sink and GetAdviseItem) under the advise
    // lock, since sinks may be added and removed while the live thread fires.
    using IEventSourceImpl<CTestCamera, &IID__ICameraEvents>::Advise;
    HRESULT Advise(IUnknown* sink, int32_t flags, const IID& iid) override;
    HRESULT GetAdviseItem(uint32_t index, IUnknown** sink, int32_t* flags) override;

    /// The advise list's guard (recursive: Advise holds it around the list's
    /// own locked section).
    HRESULT Lock();
    HRESULT Unlock();

private:
    struct FrameSettings {
        int32_t width;
        int32_t height;
        int32_t bits;
    };

    CTestCamera() = default;
    ~CTestCamera() = default;

    /// A reference for the live thread, refused once the count reached zero.
    bool TryAddRef();
    /// Stops the live thread (detached when this is that thread) and lets go
    /// of the sinks; runs once, when the last reference goes.
    void Shutdown();
    /// True on the camera's own live thread. Takes m_Lock.
    bool OnLiveThread();
    /// Settings of the next frame and its number. Call with m_Lock held.
    FrameSettings NextFrame(uint32_t* number);
    /// A new image painted with frame `number`.
    static HRESULT MakeFrame(const FrameSettings& settings, uint32_t number, SmartPtr<ILUM>& image);
    /// Paints frame `number`, keeps it as the last frame and fires it.
    HRESULT Deliver(const FrameSettings& settings, uint32_t number);
    /// Records frame `number` as the last frame without painting it.
    void Skip(const FrameSettings& settings, uint32_t number);
    void LiveLoop();

    std::atomic<int32_t> m_Refs{1};
    std::recursive_mutex m_AdviseLock;
    // Serialises Live and StopLive called from outside the live thread.
    std::mutex m_ControlLock;

    // Everything below is guarded by m_Lock.
    std::mutex m_Lock;
    std::condition_variable m_Wake;
    int32_t m_Width = 320;
    int32_t m_Height = 240;
    int32_t m_Bits = 24;
    int32_t m_Rate = 10;
    int32_t m_FrameLimit = 0;  // frames per Live run; 0 = endless
    uint32_t m_FramesMade = 0;
    int32_t m_RunFrames = 0;  // frames of the current Live run
    SmartPtr<ILUM> m_LastFrame;
    bool m_FramePending = false;  // the last frame is m_PendingNumber, not painted yet
    FrameSettings m_Pending{0, 0, 0};
    uint32_t m_PendingNumber = 0;
    std::thread m_Thread;
    std::thread::id m_ThreadId;  // of m_Thread until it is joined
    bool m_Live = false;
    bool m_StopRequested = false;  // the live thread ends after its current frame
    bool m_Closing = false;        // stopped from outside: the live thread may not be revived
};
LUM_KIT_OBJECT_NAME_DECLARE(CTestCamera)
