#include "tests/aravis/AravisTestSupport.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace {

// Registered before main runs, so that every test sees Aravis limited to
// its fake interface.
[[maybe_unused]] ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new AravisEnvironment);

int32_t BytesPerPixel(ArvPixelFormat format) {
    switch (format) {
        case ARV_PIXEL_FORMAT_MONO_8: return 1;
        case ARV_PIXEL_FORMAT_RGB_8_PACKED:
        case ARV_PIXEL_FORMAT_BGR_8_PACKED: return 3;
        default: return 0;
    }
}

}  // namespace

void AravisEnvironment::SetUp() {
    arv_disable_interface("GigEVision");
    arv_disable_interface("USB3Vision");
    arv_enable_interface("Fake");
}

void AravisEnvironment::TearDown() { arv_shutdown(); }

std::string FakeDeviceId() {
    arv_update_device_list();
    for (unsigned i = 0; i < arv_get_n_devices(); ++i)
        if (const char* protocol = arv_get_device_protocol(i); protocol && std::strcmp(protocol, "Fake") == 0)
            return arv_get_device_id(i);
    return {};
}

std::vector<RawFrame> ReferenceFrames(const std::string& id, const FakeSettings& settings, int count) {
    std::vector<RawFrame> frames;
    GError* error = nullptr;
    ArvCamera* camera = arv_camera_new(id.c_str(), &error);
    if (!camera) {
        ADD_FAILURE() << "Aravis cannot open " << id << ": " << (error ? error->message : "");
        g_clear_error(&error);
        return frames;
    }
    if (settings.format) arv_camera_set_pixel_format(camera, settings.format, &error);
    if (settings.width) arv_camera_set_integer(camera, "Width", settings.width, &error);
    if (settings.height) arv_camera_set_integer(camera, "Height", settings.height, &error);
    if (settings.exposure) arv_camera_set_exposure_time(camera, settings.exposure, &error);
    if (settings.gainPercent >= 0) arv_camera_set_gain(camera, settings.gainPercent / 100.0, &error);
    ArvStream* stream = error ? nullptr : arv_camera_create_stream(camera, nullptr, nullptr, &error);
    const guint payload = stream ? arv_camera_get_payload(camera, &error) : 0;
    if (stream && !error) {
        for (int i = 0; i < 4; ++i) arv_stream_push_buffer(stream, arv_buffer_new_allocate(payload));
        arv_camera_start_acquisition(camera, &error);
    }
    while (!error && static_cast<int>(frames.size()) < count) {
        ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream, 5000000);
        if (!buffer) break;
        if (arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS) {
            RawFrame frame;
            size_t size = 0;
            const auto* data = static_cast<const uint8_t*>(arv_buffer_get_image_data(buffer, &size));
            frame.width = arv_buffer_get_image_width(buffer);
            frame.height = arv_buffer_get_image_height(buffer);
            frame.format = arv_buffer_get_image_pixel_format(buffer);
            frame.id = static_cast<uint32_t>(arv_buffer_get_frame_id(buffer));
            frame.bytes.assign(data, data + size);
            frames.push_back(std::move(frame));
        }
        arv_stream_push_buffer(stream, buffer);
    }
    if (error) ADD_FAILURE() << "reference acquisition: " << error->message;
    g_clear_error(&error);
    if (stream) {
        arv_camera_stop_acquisition(camera, nullptr);
        g_object_unref(stream);
    }
    g_object_unref(camera);
    EXPECT_EQ(static_cast<int>(frames.size()), count) << "reference frames of " << id;
    return frames;
}

ImageBytes BytesOf(ILUM* image) {
    ImageBytes result;
    int32_t stride = 0;
    uint8_t* pixels = nullptr;
    if (!image || image->get_Width(&result.width) < 0 || image->get_Height(&result.height) < 0 ||
        image->get_BitsPerPixel(&result.bits) < 0 || image->get_Stride(&stride) < 0 ||
        image->get_Bits(&pixels) < 0 || !pixels)
        return ImageBytes{};
    const size_t row = static_cast<size_t>(result.width) * static_cast<size_t>(result.bits / 8);
    result.bytes.resize(row * static_cast<size_t>(result.height));
    for (int32_t y = 0; y < result.height; ++y)
        std::memcpy(result.bytes.data() + row * static_cast<size_t>(y), pixels + static_cast<size_t>(stride) * y, row);
    return result;
}

::testing::AssertionResult SameAsFrame(ILUM* image, const RawFrame& frame) {
    const ImageBytes bytes = BytesOf(image);
    const int32_t perPixel = BytesPerPixel(frame.format);
    if (perPixel == 0) return ::testing::AssertionFailure() << "frame format " << std::hex << frame.format;
    if (bytes.width != frame.width || bytes.height != frame.height || bytes.bits != 8 * perPixel)
        return ::testing::AssertionFailure() << "image " << bytes.width << "x" << bytes.height << " at " << bytes.bits
                                             << " bits, frame " << frame.width << "x" << frame.height << " at "
                                             << 8 * perPixel << " bits";
    if (frame.bytes.size() < bytes.bytes.size())
        return ::testing::AssertionFailure() << "frame has " << frame.bytes.size() << " bytes";
    const bool swap = frame.format == ARV_PIXEL_FORMAT_RGB_8_PACKED;
    for (size_t i = 0; i < bytes.bytes.size(); ++i) {
        size_t source = i;
        if (swap && i % 3 != 1) source = i - i % 3 + (2 - i % 3);
        if (bytes.bytes[i] != frame.bytes[source])
            return ::testing::AssertionFailure() << "byte " << i << " is " << int(bytes.bytes[i]) << ", Aravis gave "
                                                 << int(frame.bytes[source]);
    }
    return ::testing::AssertionSuccess();
}

Difference DifferenceOf(const ImageBytes& a, const ImageBytes& b) {
    Difference d;
    if (a.width != b.width || a.height != b.height || a.bits != b.bits || a.bytes.size() != b.bytes.size() ||
        a.bytes.empty())
        return d;
    int64_t total = 0;
    d.largest = 0;
    for (size_t i = 0; i < a.bytes.size(); ++i) {
        const int diff = std::abs(int(a.bytes[i]) - int(b.bytes[i]));
        total += diff;
        if (diff > d.largest) d.largest = diff;
    }
    d.mean = double(total) / double(a.bytes.size());
    return d;
}

const InterfaceEntry<KeepingSink> KeepingSink::kInterfaces[] = {
    InterfaceEntry<KeepingSink>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<KeepingSink>::End(),
};

HRESULT KeepingSink::ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) {
    SmartPtr<ILUM> lum = QueryAs<ILUM>(image, IID_ILUM);
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_Numbers.push_back(count);
        if (keepImages) m_Images.push_back(lum);
        m_Threads.push_back(std::this_thread::get_id());
        m_LastCamera = camera;
    }
    if (onEvent) onEvent(*this, count);
    return S_OK;
}

size_t KeepingSink::Size() const {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_Numbers.size();
}

std::vector<int32_t> KeepingSink::Numbers() const {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_Numbers;
}

std::vector<SmartPtr<ILUM>> KeepingSink::Images() const {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_Images;
}

std::vector<std::thread::id> KeepingSink::Threads() const {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_Threads;
}

IUnknown* KeepingSink::LastCamera() const {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_LastCamera;
}

void KeepingSink::DropImages() {
    std::vector<SmartPtr<ILUM>> dropped;
    std::lock_guard<std::mutex> guard(m_Lock);
    dropped.swap(m_Images);
}

SmartPtr<KeepingSink> NewSink() {
    void* object = nullptr;
    CObject<KeepingSink>::_CreateInstance(nullptr, &IID__ICameraEvents, &object);
    SmartPtr<_ICameraEvents> events = SmartPtr<_ICameraEvents>::Adopt(static_cast<_ICameraEvents*>(object));
    return SmartPtr<KeepingSink>(static_cast<KeepingSink*>(events.Get()));
}

SmartPtr<ICamera> NewAravisCamera() { return CreateByName<ICamera>(kAravisClass, IID_ICamera); }

SmartPtr<ICamera> OpenAravisCamera(const std::string& id) {
    SmartPtr<ICamera> camera = NewAravisCamera();
    EXPECT_TRUE(camera) << "no LUMAravisCamera";
    if (!camera) return camera;
    const std::wstring wide = Wide(id);
    const HRESULT hr = camera->LoadParameters(ViewOf(wide));
    EXPECT_EQ(hr, S_OK) << "opening " << id;
    if (hr != S_OK) camera.Reset();
    return camera;
}

int32_t ParameterOf(ICamera* camera, int32_t code) {
    int32_t value = -1;
    EXPECT_EQ(camera->Inquire(code, &value), S_OK) << "Inquire(" << code << ")";
    return value;
}

tagREFString ViewOf(const std::wstring& text) {
    return tagREFString{static_cast<int32_t>(text.size()), const_cast<wchar_t*>(text.c_str())};
}

std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

bool WaitUntil(const std::function<bool()>& done, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

bool FollowsFrame(uint32_t previous, uint32_t next) {
    return next == previous + 1 || (previous == 0xFFFF && next == 1);
}
