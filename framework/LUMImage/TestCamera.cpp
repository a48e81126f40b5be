#include "framework/LUMImage/TestCamera.h"

#include <chrono>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

#include "framework/LUMImage/ImageDIB.h"

LUM_KIT_OBJECT_NAME(CTestCamera, L"LUMTestCamera")

const InterfaceEntry<CTestCamera> CTestCamera::kInterfaces[] = {
    InterfaceEntry<CTestCamera>::Of<ICamera>(IID_ICamera),
    InterfaceEntry<CTestCamera>::Of<IEventSource>(IID_IEventSource),
    InterfaceEntry<CTestCamera>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CTestCamera>::End(),
};

namespace {

// Pixel (x, y) of frame f: blue x + f, green y + 2f, red x + y (all mod 256;
// alpha opaque at 32 bits); gray x + y + f. Bytes 0-3 of the top row then
// carry f, little-endian, so that a receiver can tell frames apart. Every
// byte of the block is written, padding included (with 0), so the block
// need not be cleared first.
void PaintPattern(uint8_t* pixels, int32_t stride, int32_t width, int32_t height, int32_t bits, uint32_t f) {
    const int32_t bytes = bits / 8;
    const int32_t rowBytes = width * bytes;
    // Gray rows are windows onto one ramp 0, 1, ..., 255, 0, 1, ...: row y
    // starts at (y + f) mod 256.
    std::vector<uint8_t> ramp;
    if (bytes == 1) {
        ramp.resize(static_cast<size_t>(width) + 256);
        for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<uint8_t>(i);
    }
    for (int32_t y = 0; y < height; ++y) {
        uint8_t* row = pixels + int64_t(stride) * y;
        std::memset(row + rowBytes, 0, static_cast<size_t>(stride - rowBytes));
        if (bytes == 1) {
            std::memcpy(row, ramp.data() + ((static_cast<uint32_t>(y) + f) & 0xFF), static_cast<size_t>(width));
            continue;
        }
        const uint8_t green = static_cast<uint8_t>(static_cast<uint32_t>(y) + 2 * f);
        for (int32_t x = 0; x < width; ++x) {
            uint8_t* pixel = row + x * bytes;
            pixel[0] = static_cast<uint8_t>(static_cast<uint32_t>(x) + f);
            pixel[1] = green;
            pixel[2] = static_cast<uint8_t>(x + y);
            if (bytes == 4) pixel[3] = 255;
        }
    }
    // Every stride is at least 4 bytes, so the number always fits.
    for (int i = 0; i < 4; ++i) pixels[i] = static_cast<uint8_t>(f >> (8 * i));
}

}  // namespace

HRESULT CTestCamera::_CreateInstance(void* /*outer*/, const IID* iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!iid) return E_POINTER;
    CTestCamera* camera = new (std::nothrow) CTestCamera();
    if (!camera) return E_FAIL;
    HRESULT hr = camera->QueryInterface(*iid, object);
    camera->Release();  // the creation reference; destroys the camera when the query failed
    return hr;
}

HRESULT CTestCamera::QueryInterface(const IID& iid, void** object) {
    return QueryInterfaceFromTable<CTestCamera>(this, kInterfaces, iid, object);
}

uint32_t CTestCamera::AddRef() { return static_cast<uint32_t>(m_Refs.fetch_add(1) + 1); }

uint32_t CTestCamera::Release() {
    const int32_t remaining = m_Refs.fetch_sub(1) - 1;
    if (remaining == 0) {
        Shutdown();
        delete this;
    }
    return static_cast<uint32_t>(remaining);
}

bool CTestCamera::TryAddRef() {
    int32_t count = m_Refs.load();
    while (count > 0)
        if (m_Refs.compare_exchange_weak(count, count + 1)) return true;
    return false;
}

void CTestCamera::Shutdown() {
    std::thread thread;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_Live = false;
        m_StopRequested = true;
        m_Closing = true;
        thread = std::move(m_Thread);
        m_Wake.notify_all();
    }
    if (thread.joinable()) {
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();  // the thread returns as soon as this Release does
        else
            thread.join();
    }
    ClearAdvise(nullptr);  // sinks let go while the camera is still whole
}

HRESULT CTestCamera::Lock() {
    m_AdviseLock.lock();
    return S_OK;
}

HRESULT CTestCamera::Unlock() {
    m_AdviseLock.unlock();
    return S_OK;
}

HRESULT CTestCamera::Advise(IUnknown* sink, int32_t flags, const IID& iid) {
    std::lock_guard<std::recursive_mutex> guard(m_AdviseLock);
    return IEventSourceImpl::Advise(sink, flags, iid);
}

HRESULT CTestCamera::GetAdviseItem(uint32_t index, IUnknown** sink, int32_t* flags) {
    std::lock_guard<std::recursive_mutex> guard(m_AdviseLock);
    return IEventSourceImpl::GetAdviseItem(index, sink, flags);
}

bool CTestCamera::OnLiveThread() {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_ThreadId != std::thread::id() && m_ThreadId == std::this_thread::get_id();
}

CTestCamera::FrameSettings CTestCamera::NextFrame(uint32_t* number) {
    *number = ++m_FramesMade;
    return FrameSettings{m_Width, m_Height, m_Bits};
}

HRESULT CTestCamera::MakeFrame(const FrameSettings& settings, uint32_t number, SmartPtr<ILUM>& image) {
    SmartPtr<ILUMImageDIB> frame;
    HRESULT hr = CImageDIB::_CreateInstance(nullptr, &IID_ILUMImageDIB, frame.OutVoid());
    if (hr < 0) return hr;
    // The pattern covers every byte, so the block is taken uncleared.
    CPixels& pixels = static_cast<CImageDIB*>(frame.Get())->Pixels();
    if ((hr = pixels.Allocate(settings.width, settings.height, settings.bits, false)) < 0) return hr;
    PaintPattern(pixels.Data(), pixels.Stride(), settings.width, settings.height, settings.bits, number);
    image.Assign(frame.Get());
    return S_OK;
}

HRESULT CTestCamera::Deliver(const FrameSettings& settings, uint32_t number) {
    SmartPtr<ILUM> image;
    HRESULT hr = MakeFrame(settings, number, image);
    if (hr < 0) return hr;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_LastFrame = image;
        m_FramePending = false;
    }
    Fire_ImageGrabbed(PrimaryUnknown(), image.Get(), static_cast<int32_t>(number));
    return S_OK;
}

void CTestCamera::Skip(const FrameSettings& settings, uint32_t number) {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_LastFrame = nullptr;
    m_Pending = settings;
    m_PendingNumber = number;
    m_FramePending = true;
}

HRESULT CTestCamera::Grab(int32_t /*mode*/, int16_t /*option*/, IUnknown* /*reserved*/) {
    // Keeps the camera whole while its sinks run, whatever they release.
    SmartPtr<IUnknown> self(PrimaryUnknown());
    uint32_t number = 0;
    FrameSettings settings;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        settings = NextFrame(&number);
    }
    return Deliver(settings, number);
}

void CTestCamera::LiveLoop() {
    using Clock = std::chrono::steady_clock;
    Clock::time_point next = Clock::now();
    for (;;) {
        uint32_t number = 0;
        FrameSettings settings;
        {
            std::unique_lock<std::mutex> lock(m_Lock);
            m_Wake.wait_until(lock, next, [this] { return m_StopRequested; });
            if (m_StopRequested) {
                m_Live = false;
                return;
            }
            // Refused only while the last reference is being released on
            // another thread, which then joins this one.
            if (!TryAddRef()) return;
            // The period runs from the start of each frame.
            next = Clock::now() + std::chrono::nanoseconds(1000000000LL / m_Rate);
            settings = NextFrame(&number);
            ++m_RunFrames;
        }
        // Without sinks nobody sees the frame now: it is only painted if
        // get_Image asks for it before the next one.
        if (GetAdviseCount() > 0)
            Deliver(settings, number);
        else
            Skip(settings, number);
        bool end = false;
        {
            std::lock_guard<std::mutex> guard(m_Lock);
            end = m_StopRequested || (m_FrameLimit > 0 && m_RunFrames >= m_FrameLimit);
            if (end) m_Live = false;
        }
        if (Release() == 0) return;  // a sink let go of the camera: it is gone now
        if (end) return;
    }
}

HRESULT CTestCamera::Live() {
    if (OnLiveThread()) {
        // From a sink: undo a stop raised during this frame, if allowed.
        std::lock_guard<std::mutex> guard(m_Lock);
        if (m_Live) return S_FALSE;
        if (m_Closing) return E_FAIL;
        m_Live = true;
        m_StopRequested = false;
        m_RunFrames = 0;
        return S_OK;
    }
    std::lock_guard<std::mutex> control(m_ControlLock);
    std::thread finished;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (m_Live) return S_FALSE;
        finished = std::move(m_Thread);  // a run that ended by itself
    }
    if (finished.joinable()) finished.join();
    std::lock_guard<std::mutex> guard(m_Lock);
    m_ThreadId = std::thread::id();
    m_Live = true;
    m_StopRequested = false;
    m_Closing = false;
    m_RunFrames = 0;
    try {
        m_Thread = std::thread(&CTestCamera::LiveLoop, this);
    } catch (const std::system_error&) {
        m_Live = false;
        return E_FAIL;
    }
    m_ThreadId = m_Thread.get_id();
    return S_OK;
}

HRESULT CTestCamera::StopLive() {
    if (OnLiveThread()) {
        // From a sink on the live thread: it cannot join itself, so it only
        // asks itself to end after the current frame.
        std::lock_guard<std::mutex> guard(m_Lock);
        const bool wasLive = m_Live;
        m_Live = false;
        m_StopRequested = true;
        return wasLive ? S_OK : S_FALSE;
    }
    std::lock_guard<std::mutex> control(m_ControlLock);
    std::thread thread;
    bool wasLive = false;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        wasLive = m_Live;
        m_Live = false;
        m_StopRequested = true;
        m_Closing = true;
        thread = std::move(m_Thread);
        m_Wake.notify_all();
    }
    if (thread.joinable()) thread.join();
    std::lock_guard<std::mutex> guard(m_Lock);
    m_ThreadId = std::thread::id();
    m_Closing = false;
    return wasLive ? S_OK : S_FALSE;
}

HRESULT CTestCamera::get_CameraState(CameraStateConstants* state) {
    if (!state) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    *state = m_Live ? CameraStateLive : CameraStateIdle;
    return S_OK;
}

HRESULT CTestCamera::get_Image(int32_t /*index*/, ILUM** image) {
    if (!image) return E_POINTER;
    *image = nullptr;
    std::lock_guard<std::mutex> guard(m_Lock);
    if (m_FramePending && MakeFrame(m_Pending, m_PendingNumber, m_LastFrame) >= 0) m_FramePending = false;
    if (!m_LastFrame) return E_FAIL;
    m_LastFrame.CopyTo(image);
    return S_OK;
}

HRESULT CTestCamera::get_NumberOfFrames(int32_t* count) {
    if (!count) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    *count = static_cast<int32_t>(m_FramesMade);
    return S_OK;
}

HRESULT CTestCamera::put_NumberOfFrames(int32_t count) { return Control(kFrameLimit, count); }

HRESULT CTestCamera::LoadParameters(tagREFString /*text*/) { return E_NOTIMPL; }

HRESULT CTestCamera::Inquire(int32_t code, int32_t* value) {
    if (!value) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    switch (code) {
        case kWidth: *value = m_Width; break;
        case kHeight: *value = m_Height; break;
        case kBitsPerPixel: *value = m_Bits; break;
        case kFrameRate: *value = m_Rate; break;
        case kFrameLimit: *value = m_FrameLimit; break;
        case kState: *value = m_Live ? CameraStateLive : CameraStateIdle; break;
        default: return E_INVALIDARG;
    }
    return S_OK;
}

HRESULT CTestCamera::Control(int32_t code, int32_t value) {
    std::lock_guard<std::mutex> guard(m_Lock);
    switch (code) {
        case kWidth:
        case kHeight:
            if (value < 1 || value > kMaxSide) return E_INVALIDARG;
            (code == kWidth ? m_Width : m_Height) = value;
            return S_OK;
        case kBitsPerPixel:
            if (!CPixels::ValidBits(value)) return E_INVALIDARG;
            m_Bits = value;
            return S_OK;
        case kFrameRate:
            if (value < 1 || value > 1000) return E_INVALIDARG;
            m_Rate = value;
            return S_OK;
        case kFrameLimit:
            if (value < 0) return E_INVALIDARG;
            m_FrameLimit = value;
            return S_OK;
        default:
            return E_INVALIDARG;
    }
}
