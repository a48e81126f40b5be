// Helpers of the imaging tests: images built and compared through ILUM, a
// camera sink that records what it receives, and waiting with a deadline.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/framework/KitTestSupport.h"
#include "tests/support/Fakes.h"

/// A new "LUMImageDIB" of the given layout with pixel byte i of row y set
/// to fill(i, y); null when it cannot be made.
SmartPtr<ILUMImageDIB> MakeImage(int32_t width, int32_t height, int32_t bits,
                                 const std::function<uint8_t(int32_t, int32_t)>& fill);

/// The layout and the pixel bytes of each row (padding left out).
struct ImageBytes {
    int32_t width = 0, height = 0, bits = 0, stride = 0;
    std::vector<std::vector<uint8_t>> rows;
};
ImageBytes BytesOf(ILUM* image);

/// Largest absolute difference of two images' pixel bytes; -1 when their
/// sizes differ. With `channels` = 3 only blue, green, red of each pixel
/// of `a` are compared with the first three bytes of `b`'s pixels.
int MaxDifference(const ImageBytes& a, const ImageBytes& b, int channels = 0);

/// Waits until `done` holds, for at most `seconds`; returns whether it did.
bool WaitFor(const std::function<bool()>& done, double seconds = 10);

/// A camera sink recording the frame numbers, images and threads of the
/// events it receives; `onEvent` runs inside each event (on the camera's
/// thread), after the event was recorded.
class RecordingSink final : public CObject<RecordingSink>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(RecordingSink)
public:
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override;

    int Events() const;
    std::vector<int32_t> Numbers() const;
    /// The image of the last event (kept with a reference).
    SmartPtr<ILUM> LastImage() const;
    IUnknown* LastCamera() const;
    std::thread::id LastThread() const;

    std::function<void(RecordingSink&, int32_t count)> onEvent;

private:
    mutable std::mutex m_Lock;
    std::vector<int32_t> m_Numbers;
    SmartPtr<ILUM> m_LastImage;
    IUnknown* m_LastCamera = nullptr;
    std::thread::id m_LastThread;
};

/// The string of a wide file name built from a narrow path.
SmartPtr<IString> FileNameString(const std::string& path);
