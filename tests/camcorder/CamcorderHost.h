// What the camcorder tests share: the framework started as a host starts it,
// a temporary recording folder, the synthetic camera, and reading back the
// frame number that the synthetic camera writes into every frame.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/ModuleHost.h"

namespace fs = std::filesystem;

class CamcorderTest : public ::testing::Test {
public:
    /// The frame number stored in an image (bytes 0 to 3 of its top row).
    static int32_t FrameNumberOf(ILUM* image);

protected:
    void SetUp() override;
    void TearDown() override;

    /// A new camcorder recording into the test's folder with `format`.
    SmartPtr<ILUMCamcorder> NewCamcorder(FileFormatConstants format = FileFormatBMP);
    /// A synthetic camera of `width` x `height` at `bits` per pixel.
    SmartPtr<ICamera> NewCamera(int32_t width = 32, int32_t height = 8, int32_t bits = 24);

    /// The frame number in a recorded file (exact for BMP files).
    int32_t FrameNumberInFile(const fs::path& file);
    /// Files of the folder, sorted by name.
    std::vector<std::string> Files() const;
    /// Writes BMP files `first`..`last` holding frames with those numbers.
    void WriteRecording(int32_t first, int32_t last);

    /// Waits until `done` holds, at most `seconds`.
    static bool WaitFor(const std::function<bool()>& done, double seconds = 10.0);

    LoadedModule module;
    SmartPtr<IComponentCollection> collection;
    fs::path folder;
    /// Every camcorder made by NewCamcorder: detached from its camera at the
    /// end, as a host must do (a subscribed camcorder and its camera keep
    /// each other alive).
    std::vector<SmartPtr<ICamcorderArm>> camcorders;
};

/// A sink that keeps the frame number of every image it is given, and the
/// count argument that came with it.
class FrameSink final : public CObject<FrameSink>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(FrameSink)
public:
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override;
    std::vector<int32_t> Frames() const;
    std::vector<int32_t> Counts() const;
    size_t Size() const;

private:
    mutable std::mutex m_Mutex;
    std::vector<int32_t> m_Frames;
    std::vector<int32_t> m_Counts;
};
