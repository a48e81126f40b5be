// What the tests of "LUMAravisCamera" share: Aravis limited to its
// in-process fake interface, reference frames read straight through Aravis
// from a freshly opened fake device, a sink that keeps every image it is
// given, and image comparisons.
#pragma once

#include <arv.h>
#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "tests/support/ModuleHost.h"

/// The class as a host names it: the module file and the class.
inline constexpr const wchar_t* kAravisClass = L"LUMAravis.LUMAravisCamera";

/// Parameter codes of "LUMAravisCamera".
enum AravisCode : int32_t {
    kWidth = 1,
    kHeight = 2,
    kBits = 3,
    kFrameRate = 4,
    kState = 10,
    kPixelFormat = 11,
    kExposure = 12,
    kGain = 13,
    kBuffers = 14,
    kDelivered = 20,
    kIncomplete = 21,
    kDropped = 22,
};

/// The id under which Aravis lists its in-process fake device, read from
/// Aravis's device list (the Fake interface being the only one enabled).
std::string FakeDeviceId();

/// Enables only Aravis's Fake interface, so that no test looks for devices
/// on a network; the GigE Vision test enables that interface itself for an
/// address on the loopback interface. Frees Aravis's interfaces at the end.
class AravisEnvironment : public ::testing::Environment {
public:
    void SetUp() override;
    void TearDown() override;
};

/// Device settings applied before a reference acquisition (0: the device's).
struct FakeSettings {
    int32_t width = 0;
    int32_t height = 0;
    ArvPixelFormat format = 0;
    int32_t exposure = 0;  // microseconds
    int32_t gainPercent = -1;  // hundredths; -1: the device's
};

/// One frame as Aravis delivered it: rows packed, in Aravis's pixel order.
struct RawFrame {
    int32_t width = 0;
    int32_t height = 0;
    ArvPixelFormat format = 0;
    uint32_t id = 0;
    std::vector<uint8_t> bytes;
};

/// The first `count` frames of a freshly opened device `id` with `settings`,
/// read with Aravis alone (a stream of its own, popped by the test).
std::vector<RawFrame> ReferenceFrames(const std::string& id, const FakeSettings& settings, int count);

/// Pixel bytes of an image, rows without padding.
struct ImageBytes {
    int32_t width = 0, height = 0, bits = 0;
    std::vector<uint8_t> bytes;
};
ImageBytes BytesOf(ILUM* image);

/// Exact equality of an image with a frame as Aravis delivered it: Mono8 as
/// 8-bit gray, RGB8 and BGR8 as blue, green, red.
::testing::AssertionResult SameAsFrame(ILUM* image, const RawFrame& frame);

/// Largest and mean absolute difference of two images of the same layout;
/// -1 for both when the layouts differ.
struct Difference {
    int largest = -1;
    double mean = -1;
};
Difference DifferenceOf(const ImageBytes& a, const ImageBytes& b);

/// A sink keeping every image (with a reference), frame number and thread of
/// the events it gets. `onEvent` runs inside the event, after recording it.
class KeepingSink final : public CObject<KeepingSink>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(KeepingSink)
public:
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override;

    size_t Size() const;
    std::vector<int32_t> Numbers() const;
    std::vector<SmartPtr<ILUM>> Images() const;
    std::vector<std::thread::id> Threads() const;
    IUnknown* LastCamera() const;
    /// Drops the images kept so far (the numbers stay).
    void DropImages();

    std::function<void(KeepingSink&, int32_t count)> onEvent;
    /// Whether to keep the images (else only the numbers).
    bool keepImages = true;

private:
    mutable std::mutex m_Lock;
    std::vector<int32_t> m_Numbers;
    std::vector<SmartPtr<ILUM>> m_Images;
    std::vector<std::thread::id> m_Threads;
    IUnknown* m_LastCamera = nullptr;
};

/// A new sink with its one reference.
SmartPtr<KeepingSink> NewSink();

/// A new "LUMAravisCamera" (null on failure).
SmartPtr<ICamera> NewAravisCamera();
/// A new camera with the device `id` opened; fails the test when it cannot.
SmartPtr<ICamera> OpenAravisCamera(const std::string& id);

/// A parameter read through Inquire; fails the test when Inquire fails.
int32_t ParameterOf(ICamera* camera, int32_t code);

/// `text` as a view (valid while `text` lives).
tagREFString ViewOf(const std::wstring& text);
std::wstring Wide(const std::string& text);

/// Waits until `done` holds, at most `seconds`.
bool WaitUntil(const std::function<bool()>& done, double seconds = 10.0);

/// The frame id that follows `id` on a GigE Vision style counter: 16 bits,
/// 0 left out. A frame counter that runs on without wrapping also passes.
bool FollowsFrame(uint32_t previous, uint32_t next);
