#include "framework/LUMAravis/AravisCamera.h"

#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <system_error>
#include <utility>

#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CAravisCamera, L"LUMAravisCamera")

const InterfaceEntry<CAravisCamera> CAravisCamera::kInterfaces[] = {
    InterfaceEntry<CAravisCamera>::Of<ICamera>(IID_ICamera),
    InterfaceEntry<CAravisCamera>::Of<IEventSource>(IID_IEventSource),
    InterfaceEntry<CAravisCamera>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CAravisCamera>::End(),
};

namespace {

// How long the live thread waits for a buffer before it looks at its stop
// flag again.
constexpr guint64 kPopTimeoutMicroseconds = 100000;

// Grab waits at most this long plus three frame periods for a frame.
constexpr int64_t kGrabBaseWaitMicroseconds = 1000000;

// Buffers in the pool of Grab's short acquisition.
constexpr int32_t kGrabBuffers = 2;

/// True (and the error freed) when an Aravis call reported an error.
bool Failed(GError*& error) {
    if (!error) return false;
    g_clear_error(&error);
    return true;
}

/// Bytes per pixel of the pixel formats turned into images; 0 for others.
int32_t BytesPerPixel(ArvPixelFormat format) {
    switch (format) {
        case ARV_PIXEL_FORMAT_MONO_8: return 1;
        case ARV_PIXEL_FORMAT_RGB_8_PACKED:
        case ARV_PIXEL_FORMAT_BGR_8_PACKED: return 3;
        default: return 0;
    }
}

int32_t Clamp32(int64_t value) {
    if (value > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
    if (value < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(value);
}

/// Whole numbers inside [minimum, maximum].
bool InRange(int64_t value, double minimum, double maximum) {
    return value >= std::ceil(minimum - 1e-9) && value <= std::floor(maximum + 1e-9);
}

/// Copies `height` rows of `rowBytes` bytes; with `swap` every 3-byte pixel
/// has its first and third bytes exchanged (RGB to blue, green, red).
void CopyRows(const uint8_t* source, size_t sourceStride, uint8_t* target, size_t targetStride, int32_t height,
              size_t rowBytes, bool swap) {
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t* from = source + sourceStride * static_cast<size_t>(y);
        uint8_t* to = target + targetStride * static_cast<size_t>(y);
        if (!swap) {
            std::memcpy(to, from, rowBytes);
            continue;
        }
        for (size_t i = 0; i + 2 < rowBytes; i += 3) {
            to[i] = from[i + 2];
            to[i + 1] = from[i + 1];
            to[i + 2] = from[i];
        }
    }
}

}  // namespace

HRESULT CAravisCamera::_CreateInstance(void* /*outer*/, const IID* iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!iid) return E_POINTER;
    CAravisCamera* camera = new (std::nothrow) CAravisCamera();
    if (!camera) return E_FAIL;
    HRESULT hr = camera->QueryInterface(*iid, object);
    camera->Release();  // the creation reference; destroys the camera when the query failed
    return hr;
}

HRESULT CAravisCamera::QueryInterface(const IID& iid, void** object) {
    return QueryInterfaceFromTable<CAravisCamera>(this, kInterfaces, iid, object);
}

uint32_t CAravisCamera::AddRef() { return static_cast<uint32_t>(m_Refs.fetch_add(1) + 1); }

uint32_t CAravisCamera::Release() {
    const int32_t remaining = m_Refs.fetch_sub(1) - 1;
    if (remaining == 0) {
        Shutdown();
        delete this;
    }
    return static_cast<uint32_t>(remaining);
}

bool CAravisCamera::TryAddRef() {
    int32_t count = m_Refs.load();
    while (count > 0)
        if (m_Refs.compare_exchange_weak(count, count + 1)) return true;
    return false;
}

void CAravisCamera::Shutdown() {
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
    // Still open when the live thread ended without closing it: it found the
    // count at zero, or this Release runs on it.
    if (ArvStream* stream = OpenStreamLeft()) CloseStream(stream);
    {
        std::lock_guard<std::mutex> guard(m_DeviceLock);
        if (m_Camera) g_object_unref(m_Camera);
        m_Camera = nullptr;
    }
    ClearAdvise(nullptr);  // sinks let go while the camera is still whole
}

HRESULT CAravisCamera::Lock() {
    m_AdviseLock.lock();
    return S_OK;
}

HRESULT CAravisCamera::Unlock() {
    m_AdviseLock.unlock();
    return S_OK;
}

HRESULT CAravisCamera::Advise(IUnknown* sink, int32_t flags, const IID& iid) {
    std::lock_guard<std::recursive_mutex> guard(m_AdviseLock);
    return IEventSourceImpl::Advise(sink, flags, iid);
}

HRESULT CAravisCamera::GetAdviseItem(uint32_t index, IUnknown** sink, int32_t* flags) {
    std::lock_guard<std::recursive_mutex> guard(m_AdviseLock);
    return IEventSourceImpl::GetAdviseItem(index, sink, flags);
}

bool CAravisCamera::OnLiveThread() {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_ThreadId != std::thread::id() && m_ThreadId == std::this_thread::get_id();
}

// ---- the stream --------------------------------------------------------

HRESULT CAravisCamera::OpenStream(int32_t buffers, ArvStream** result) {
    *result = nullptr;
    std::lock_guard<std::mutex> device(m_DeviceLock);
    if (!m_Camera) return E_FAIL;
    GError* error = nullptr;
    const ArvPixelFormat format = arv_camera_get_pixel_format(m_Camera, &error);
    if (Failed(error) || BytesPerPixel(format) == 0) return E_FAIL;
    const guint payload = arv_camera_get_payload(m_Camera, &error);
    if (Failed(error) || payload == 0) return E_FAIL;
    ArvStream* stream = arv_camera_create_stream(m_Camera, nullptr, nullptr, &error);
    if (Failed(error) || !stream) {
        if (stream) g_object_unref(stream);
        return E_FAIL;
    }
    for (int32_t i = 0; i < buffers; ++i) arv_stream_push_buffer(stream, arv_buffer_new_allocate(payload));
    // Not every device has an acquisition mode; continuous is the default
    // of those that lack it.
    arv_camera_set_acquisition_mode(m_Camera, ARV_ACQUISITION_MODE_CONTINUOUS, &error);
    Failed(error);
    arv_camera_start_acquisition(m_Camera, &error);
    if (Failed(error)) {
        g_object_unref(stream);
        return E_FAIL;
    }
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_Stream = stream;
    }
    *result = stream;
    return S_OK;
}

void CAravisCamera::CloseStream(ArvStream* stream) {
    {
        std::lock_guard<std::mutex> device(m_DeviceLock);
        GError* error = nullptr;
        if (m_Camera) arv_camera_stop_acquisition(m_Camera, &error);
        Failed(error);
    }
    guint64 completed = 0, failures = 0, underruns = 0;
    arv_stream_get_statistics(stream, &completed, &failures, &underruns);
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_Dropped += static_cast<int64_t>(underruns);
        if (m_Stream == stream) m_Stream = nullptr;
    }
    g_object_unref(stream);  // frees the buffers of the pool
}

ArvStream* CAravisCamera::OpenStreamLeft() {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_Stream;
}

bool CAravisCamera::CountStatus(ArvBuffer* buffer) {
    const ArvBufferStatus status = arv_buffer_get_status(buffer);
    if (status == ARV_BUFFER_STATUS_SUCCESS) return true;
    // Buffers cleared or aborted by stopping the acquisition are no fault
    // of the transfer.
    if (status != ARV_BUFFER_STATUS_CLEARED && status != ARV_BUFFER_STATUS_ABORTED) {
        std::lock_guard<std::mutex> guard(m_Lock);
        ++m_Incomplete;
    }
    return false;
}

bool CAravisCamera::MakeImage(ArvBuffer* buffer, SmartPtr<ILUM>& image, int32_t* number) {
    size_t size = 0;
    const uint8_t* data = static_cast<const uint8_t*>(arv_buffer_get_image_data(buffer, &size));
    const ArvPixelFormat format = data ? arv_buffer_get_image_pixel_format(buffer) : 0;
    const int32_t bytes = BytesPerPixel(format);
    const int32_t width = data ? arv_buffer_get_image_width(buffer) : 0;
    const int32_t height = data ? arv_buffer_get_image_height(buffer) : 0;
    gint paddingX = 0, paddingY = 0;
    if (data) arv_buffer_get_image_padding(buffer, &paddingX, &paddingY);
    const size_t rowBytes = static_cast<size_t>(width) * static_cast<size_t>(bytes);
    const size_t sourceStride = rowBytes + static_cast<size_t>(paddingX > 0 ? paddingX : 0);
    bool made = data && bytes > 0 && width > 0 && height > 0 &&
                sourceStride * static_cast<size_t>(height - 1) + rowBytes <= size;
    if (made) {
        SmartPtr<ILUMImageDIB> frame = KitCreate<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
        uint8_t* pixels = nullptr;
        int32_t stride = 0;
        made = frame && frame->Create(width, height, bytes * 8) >= 0 && frame->get_Bits(&pixels) >= 0 &&
               frame->get_Stride(&stride) >= 0 && pixels;
        if (made) {
            CopyRows(data, sourceStride, pixels, static_cast<size_t>(stride), height, rowBytes,
                     format == ARV_PIXEL_FORMAT_RGB_8_PACKED);
            image.Assign(frame.Get());
            *number = static_cast<int32_t>(static_cast<uint32_t>(arv_buffer_get_frame_id(buffer)));
        }
    }
    if (!made) {
        std::lock_guard<std::mutex> guard(m_Lock);
        ++m_Dropped;
    }
    return made;
}

void CAravisCamera::Deliver(ILUM* image, int32_t number) {
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_LastFrame.Assign(image);
    }
    Fire_ImageGrabbed(PrimaryUnknown(), image, number);
    // Counted once every sink has it: a Grab waiting for this frame returns
    // after the sinks saw it.
    std::lock_guard<std::mutex> guard(m_Lock);
    ++m_Delivered;
    m_Wake.notify_all();
}

void CAravisCamera::LiveLoop(ArvStream* stream) {
    for (;;) {
        {
            std::lock_guard<std::mutex> guard(m_Lock);
            if (m_StopRequested) {
                m_Live = false;
                m_Wake.notify_all();
                break;
            }
        }
        ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream, kPopTimeoutMicroseconds);
        if (!buffer) continue;
        // Refused only while the last reference is being released on another
        // thread, which then joins this one and closes the stream.
        if (!TryAddRef()) {
            arv_stream_push_buffer(stream, buffer);
            return;
        }
        SmartPtr<ILUM> image;
        int32_t number = 0;
        const bool complete = CountStatus(buffer) && MakeImage(buffer, image, &number);
        arv_stream_push_buffer(stream, buffer);  // back to the pool before the sinks run
        if (complete) Deliver(image.Get(), number);
        image.Reset();
        bool end = false;
        {
            std::lock_guard<std::mutex> guard(m_Lock);
            end = m_StopRequested;
            if (end) {
                m_Live = false;
                m_Wake.notify_all();
            }
        }
        if (Release() == 0) return;  // a sink let go of the camera: it is gone now
        if (end) break;
    }
    // The device stops and the stream closes at once, so that a stop asked
    // for from a sink leaves nothing running into a pool that nobody empties
    // (and no underruns counted after the stop).
    CloseStream(stream);
}

// ---- ICamera -----------------------------------------------------------

HRESULT CAravisCamera::Live() {
    if (OnLiveThread()) {
        // From a sink: undo a stop raised during this frame, if allowed.
        std::lock_guard<std::mutex> guard(m_Lock);
        if (m_Live) return S_FALSE;
        if (m_Closing) return E_FAIL;
        m_Live = true;
        m_StopRequested = false;
        return S_OK;
    }
    std::lock_guard<std::mutex> control(m_ControlLock);
    std::thread finished;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (m_Live) return S_FALSE;
        finished = std::move(m_Thread);  // a run that a sink stopped
    }
    if (finished.joinable()) finished.join();
    int32_t buffers = kDefaultBuffers;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_ThreadId = std::thread::id();
        buffers = m_Buffers;
    }
    ArvStream* stream = nullptr;
    HRESULT hr = OpenStream(buffers, &stream);
    if (hr < 0) return hr;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_Live = true;
        m_StopRequested = false;
        m_Closing = false;
        try {
            m_Thread = std::thread(&CAravisCamera::LiveLoop, this, stream);
            m_ThreadId = m_Thread.get_id();
            return S_OK;
        } catch (const std::system_error&) {
            m_Live = false;
        }
    }
    CloseStream(stream);
    return E_FAIL;
}

HRESULT CAravisCamera::StopLive() {
    if (OnLiveThread()) {
        // From a sink on the live thread: it cannot join itself, so it only
        // asks itself to end after the current frame.
        std::lock_guard<std::mutex> guard(m_Lock);
        const bool wasLive = m_Live;
        m_Live = false;
        m_StopRequested = true;
        m_Wake.notify_all();
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
    if (thread.joinable()) thread.join();  // the thread closes its stream as it ends
    std::lock_guard<std::mutex> guard(m_Lock);
    m_ThreadId = std::thread::id();
    m_Closing = false;
    return wasLive ? S_OK : S_FALSE;
}

int64_t CAravisCamera::FramePeriodMicroseconds() {
    if (!m_Camera) return 0;
    GError* error = nullptr;
    const gboolean available = arv_camera_is_frame_rate_available(m_Camera, &error);
    if (Failed(error) || !available) return 0;
    const double rate = arv_camera_get_frame_rate(m_Camera, &error);
    if (Failed(error) || !(rate > 0)) return 0;
    return static_cast<int64_t>(1e6 / rate);
}

HRESULT CAravisCamera::GrabOnce(SmartPtr<ILUM>& image, int32_t* number) {
    std::lock_guard<std::mutex> control(m_ControlLock);
    std::thread finished;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (m_Live) return S_FALSE;  // went live meanwhile
        finished = std::move(m_Thread);
    }
    if (finished.joinable()) finished.join();
    int64_t wait = kGrabBaseWaitMicroseconds;
    {
        std::lock_guard<std::mutex> device(m_DeviceLock);
        wait += 3 * FramePeriodMicroseconds();
    }
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_ThreadId = std::thread::id();
        m_Grabbing = true;
    }
    ArvStream* stream = nullptr;
    HRESULT hr = OpenStream(kGrabBuffers, &stream);
    if (hr >= 0) {
        hr = E_FAIL;  // unless a complete frame comes in time
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(wait);
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
                                  deadline - std::chrono::steady_clock::now())
                                  .count();
            if (left <= 0) break;
            ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream, static_cast<guint64>(left));
            if (!buffer) break;
            const bool complete = CountStatus(buffer) && MakeImage(buffer, image, number);
            arv_stream_push_buffer(stream, buffer);
            if (complete) {
                hr = S_OK;
                break;
            }
        }
        CloseStream(stream);
    }
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Grabbing = false;
    return hr;
}

HRESULT CAravisCamera::WaitForLiveFrame() {
    int64_t wait = kGrabBaseWaitMicroseconds;
    {
        std::lock_guard<std::mutex> device(m_DeviceLock);
        wait += 3 * FramePeriodMicroseconds();
    }
    std::unique_lock<std::mutex> lock(m_Lock);
    const int64_t seen = m_Delivered;
    m_Wake.wait_for(lock, std::chrono::microseconds(wait), [&] { return m_Delivered > seen || !m_Live; });
    return m_Delivered > seen ? S_OK : E_FAIL;
}

HRESULT CAravisCamera::Grab(int32_t /*mode*/, int16_t /*option*/, IUnknown* /*reserved*/) {
    // Keeps the camera whole while its sinks run, whatever they release.
    SmartPtr<IUnknown> self(PrimaryUnknown());
    // The live thread cannot wait for a frame that it would make itself.
    if (OnLiveThread()) return E_FAIL;
    bool live = false;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        live = m_Live;
    }
    if (live) return WaitForLiveFrame();
    SmartPtr<ILUM> image;
    int32_t number = 0;
    HRESULT hr = GrabOnce(image, &number);
    if (hr == S_FALSE) return WaitForLiveFrame();
    if (hr < 0) return hr;
    Deliver(image.Get(), number);
    return S_OK;
}

HRESULT CAravisCamera::get_CameraState(CameraStateConstants* state) {
    if (!state) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    *state = m_Live ? CameraStateLive : m_Grabbing ? CameraStateGrabbing : CameraStateIdle;
    return S_OK;
}

HRESULT CAravisCamera::get_Image(int32_t /*index*/, ILUM** image) {
    if (!image) return E_POINTER;
    *image = nullptr;
    std::lock_guard<std::mutex> guard(m_Lock);
    if (!m_LastFrame) return E_FAIL;
    m_LastFrame.CopyTo(image);
    return S_OK;
}

HRESULT CAravisCamera::get_NumberOfFrames(int32_t* count) { return Inquire(kDelivered, count); }

HRESULT CAravisCamera::put_NumberOfFrames(int32_t /*count*/) { return E_NOTIMPL; }

HRESULT CAravisCamera::LoadParameters(tagREFString text) {
    std::wstring wide;
    if (!KitViewText(text, wide)) return E_POINTER;
    const std::string id = KitEncodeUtf8(KitTrimBlanks(wide));
    if (OnLiveThread()) return E_FAIL;
    std::lock_guard<std::mutex> control(m_ControlLock);
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (m_Live || m_Grabbing) return E_FAIL;
    }
    GError* error = nullptr;
    ArvCamera* camera = nullptr;
    if (id.empty()) {
        arv_update_device_list();
        if (arv_get_n_devices() == 0) return E_FAIL;
        const char* first = arv_get_device_id(0);
        if (!first) return E_FAIL;
        const std::string firstId = first;
        camera = arv_camera_new(firstId.c_str(), &error);
    } else {
        camera = arv_camera_new(id.c_str(), &error);
    }
    if (Failed(error) || !camera) {
        if (camera) g_object_unref(camera);
        return E_FAIL;
    }
    // Images come only from the formats of kPixelFormat: keep the device's
    // format when it is one of them, else take the first it offers.
    ArvPixelFormat format = arv_camera_get_pixel_format(camera, &error);
    if (Failed(error)) format = 0;
    if (BytesPerPixel(format) == 0) {
        bool chosen = false;
        guint count = 0;
        gint64* offered = arv_camera_dup_available_pixel_formats(camera, &count, &error);
        Failed(error);
        for (ArvPixelFormat wanted : {ARV_PIXEL_FORMAT_MONO_8, ARV_PIXEL_FORMAT_BGR_8_PACKED,
                                      ARV_PIXEL_FORMAT_RGB_8_PACKED}) {
            for (guint i = 0; offered && i < count && !chosen; ++i) {
                if (static_cast<ArvPixelFormat>(offered[i]) != wanted) continue;
                arv_camera_set_pixel_format(camera, wanted, &error);
                chosen = !Failed(error);
            }
        }
        g_free(offered);
        if (!chosen) {
            g_object_unref(camera);
            return E_FAIL;
        }
    }
    ArvCamera* previous = nullptr;
    {
        std::lock_guard<std::mutex> device(m_DeviceLock);
        previous = m_Camera;
        m_Camera = camera;
    }
    if (previous) g_object_unref(previous);
    return S_OK;
}

// ---- parameters --------------------------------------------------------

bool CAravisCamera::DeviceOffers(ArvPixelFormat format) {
    GError* error = nullptr;
    guint count = 0;
    gint64* offered = arv_camera_dup_available_pixel_formats(m_Camera, &count, &error);
    Failed(error);
    bool found = false;
    for (guint i = 0; offered && i < count; ++i) found = found || static_cast<ArvPixelFormat>(offered[i]) == format;
    g_free(offered);
    return found;
}

HRESULT CAravisCamera::SetFormat(ArvPixelFormat format) {
    if (BytesPerPixel(format) == 0 || !DeviceOffers(format)) return E_INVALIDARG;
    GError* error = nullptr;
    arv_camera_set_pixel_format(m_Camera, format, &error);
    return Failed(error) ? E_FAIL : S_OK;
}

HRESULT CAravisCamera::InquireDevice(int32_t code, int32_t* value) {
    std::lock_guard<std::mutex> device(m_DeviceLock);
    if (!m_Camera) return E_FAIL;
    GError* error = nullptr;
    int64_t result = 0;
    switch (code) {
        case kWidth:
        case kHeight:
            result = arv_camera_get_integer(m_Camera, code == kWidth ? "Width" : "Height", &error);
            break;
        case kBitsPerPixel:
        case kPixelFormat: {
            const ArvPixelFormat format = arv_camera_get_pixel_format(m_Camera, &error);
            result = code == kPixelFormat ? static_cast<int64_t>(format) : 8 * BytesPerPixel(format);
            break;
        }
        case kFrameRate: {
            const gboolean available = arv_camera_is_frame_rate_available(m_Camera, &error);
            if (Failed(error)) return E_FAIL;
            if (!available) return E_NOTIMPL;
            result = std::llround(arv_camera_get_frame_rate(m_Camera, &error));
            break;
        }
        case kExposureTime: {
            const gboolean available = arv_camera_is_exposure_time_available(m_Camera, &error);
            if (Failed(error)) return E_FAIL;
            if (!available) return E_NOTIMPL;
            result = std::llround(arv_camera_get_exposure_time(m_Camera, &error));
            break;
        }
        case kGain: {
            const gboolean available = arv_camera_is_gain_available(m_Camera, &error);
            if (Failed(error)) return E_FAIL;
            if (!available) return E_NOTIMPL;
            result = std::llround(arv_camera_get_gain(m_Camera, &error) * 100.0);
            break;
        }
        default:
            return E_INVALIDARG;
    }
    if (Failed(error)) return E_FAIL;
    *value = Clamp32(result);
    return S_OK;
}

HRESULT CAravisCamera::ControlDevice(int32_t code, int32_t value) {
    std::lock_guard<std::mutex> device(m_DeviceLock);
    if (!m_Camera) return E_FAIL;
    GError* error = nullptr;
    switch (code) {
        case kWidth:
        case kHeight: {
            gint minimum = 0, maximum = 0;
            if (code == kWidth)
                arv_camera_get_width_bounds(m_Camera, &minimum, &maximum, &error);
            else
                arv_camera_get_height_bounds(m_Camera, &minimum, &maximum, &error);
            if (Failed(error)) return E_FAIL;
            const gint step = code == kWidth ? arv_camera_get_width_increment(m_Camera, &error)
                                             : arv_camera_get_height_increment(m_Camera, &error);
            if (Failed(error)) return E_FAIL;
            if (value < minimum || value > maximum || (step > 1 && (value - minimum) % step != 0))
                return E_INVALIDARG;
            arv_camera_set_integer(m_Camera, code == kWidth ? "Width" : "Height", value, &error);
            return Failed(error) ? E_FAIL : S_OK;
        }
        case kBitsPerPixel:
            if (value == 8) return SetFormat(ARV_PIXEL_FORMAT_MONO_8);
            if (value != 24) return E_INVALIDARG;
            return DeviceOffers(ARV_PIXEL_FORMAT_BGR_8_PACKED) ? SetFormat(ARV_PIXEL_FORMAT_BGR_8_PACKED)
                                                               : SetFormat(ARV_PIXEL_FORMAT_RGB_8_PACKED);
        case kPixelFormat:
            return SetFormat(static_cast<ArvPixelFormat>(static_cast<uint32_t>(value)));
        case kFrameRate: {
            const gboolean available = arv_camera_is_frame_rate_available(m_Camera, &error);
            if (Failed(error)) return E_FAIL;
            if (!available) return E_NOTIMPL;
            double minimum = 0, maximum = 0;
            arv_camera_get_frame_rate_bounds(m_Camera, &minimum, &maximum, &error);
            if (Failed(error)) return E_FAIL;
            if (!InRange(value, minimum, maximum)) return E_INVALIDARG;
            arv_camera_set_frame_rate(m_Camera, value, &error);
            return Failed(error) ? E_FAIL : S_OK;
        }
        case kExposureTime: {
            const gboolean available = arv_camera_is_exposure_time_available(m_Camera, &error);
            if (Failed(error)) return E_FAIL;
            if (!available) return E_NOTIMPL;
            double minimum = 0, maximum = 0;
            arv_camera_get_exposure_time_bounds(m_Camera, &minimum, &maximum, &error);
            if (Failed(error)) return E_FAIL;
            if (!InRange(value, minimum, maximum)) return E_INVALIDARG;
            arv_camera_set_exposure_time(m_Camera, value, &error);
            return Failed(error) ? E_FAIL : S_OK;
        }
        case kGain: {
            const gboolean available = arv_camera_is_gain_available(m_Camera, &error);
            if (Failed(error)) return E_FAIL;
            if (!available) return E_NOTIMPL;
            double minimum = 0, maximum = 0;
            arv_camera_get_gain_bounds(m_Camera, &minimum, &maximum, &error);
            if (Failed(error)) return E_FAIL;
            if (!InRange(value, minimum * 100.0, maximum * 100.0)) return E_INVALIDARG;
            arv_camera_set_gain(m_Camera, value / 100.0, &error);
            return Failed(error) ? E_FAIL : S_OK;
        }
        default:
            return E_INVALIDARG;
    }
}

HRESULT CAravisCamera::Inquire(int32_t code, int32_t* value) {
    if (!value) return E_POINTER;
    switch (code) {
        case kState:
        case kBufferCount:
        case kDelivered:
        case kIncomplete: {
            std::lock_guard<std::mutex> guard(m_Lock);
            switch (code) {
                case kState: *value = m_Live ? CameraStateLive : m_Grabbing ? CameraStateGrabbing : CameraStateIdle; break;
                case kBufferCount: *value = m_Buffers; break;
                case kDelivered: *value = Clamp32(m_Delivered); break;
                default: *value = Clamp32(m_Incomplete); break;
            }
            return S_OK;
        }
        case kDropped: {
            // The closed streams' underruns and lost frames, plus the open
            // stream's underruns so far.
            int64_t dropped = 0;
            ArvStream* stream = nullptr;
            {
                std::lock_guard<std::mutex> guard(m_Lock);
                dropped = m_Dropped;
                if (m_Stream) stream = static_cast<ArvStream*>(g_object_ref(m_Stream));
            }
            if (stream) {
                guint64 completed = 0, failures = 0, underruns = 0;
                arv_stream_get_statistics(stream, &completed, &failures, &underruns);
                dropped += static_cast<int64_t>(underruns);
                g_object_unref(stream);
            }
            *value = Clamp32(dropped);
            return S_OK;
        }
        case kWidth:
        case kHeight:
        case kBitsPerPixel:
        case kFrameRate:
        case kPixelFormat:
        case kExposureTime:
        case kGain:
            return InquireDevice(code, value);
        default:
            return E_INVALIDARG;
    }
}

HRESULT CAravisCamera::Control(int32_t code, int32_t value) {
    switch (code) {
        case kBufferCount: {
            if (value < 2 || value > kMaxBuffers) return E_INVALIDARG;
            std::lock_guard<std::mutex> guard(m_Lock);
            m_Buffers = value;
            return S_OK;
        }
        case kWidth:
        case kHeight:
        case kBitsPerPixel:
        case kPixelFormat: {
            // These change the size of the buffers: only while the device is
            // idle. The live thread (a sink) never waits for the control lock,
            // which a StopLive joining that thread may hold.
            if (OnLiveThread()) return E_FAIL;
            std::lock_guard<std::mutex> control(m_ControlLock);
            {
                std::lock_guard<std::mutex> guard(m_Lock);
                if (m_Live || m_Grabbing) return E_FAIL;
            }
            return ControlDevice(code, value);
        }
        case kFrameRate:
        case kExposureTime:
        case kGain:
            return ControlDevice(code, value);
        default:
            return E_INVALIDARG;
    }
}
