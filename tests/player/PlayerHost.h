// What the file player tests share: the framework started as a host starts
// it, a temporary folder of small images that tell which file they came
// from, a sink that notes what the player hands out, and a few readers of
// the player's state.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/ModuleHost.h"

namespace fs = std::filesystem;

/// Every image file of a test folder is 8-bit gray, 8 rows high, of width
/// kBaseWidth + its index, and filled with GrayOf(index): the width tells
/// the file exactly (also through JPEG), the gray level checks the pixels.
constexpr int32_t kBaseWidth = 16;
constexpr int32_t kHeight = 8;
inline int32_t GrayOf(int32_t index) { return 40 + 17 * index; }

/// What one ImageGrabbed delivered.
struct Delivery {
    int32_t index = -1;      ///< file index read from the width, -1 without an image
    int32_t gray = -1;       ///< pixel value in the middle of the image
    int32_t count = -1;      ///< the event's third argument
    IUnknown* camera = nullptr;  ///< identity of the sender
    IUnknown* image = nullptr;   ///< identity of the image (not kept)
    std::thread::id thread;
};

/// A sink that notes every image it is given. An optional callback runs
/// inside ImageGrabbed, outside the sink's own lock.
class ReplaySink final : public CObject<ReplaySink>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(ReplaySink)
public:
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override;

    std::vector<Delivery> Deliveries() const;
    std::vector<int32_t> Indexes() const;
    int Size() const { return m_Size.load(); }

    std::function<void(IUnknown* camera, IUnknown* image)> m_OnEvent;

private:
    mutable std::mutex m_Mutex;
    std::vector<Delivery> m_Deliveries;
    std::atomic<int> m_Size{0};
};

class PlayerTest : public ::testing::Test {
public:
    /// The file index an image stands for (by its width), or -1.
    static int32_t IndexOfImage(IUnknown* image);
    /// The gray value in the middle of an image, or -1.
    static int32_t MiddleGray(IUnknown* image);
    /// A float's bit pattern, as parameters of that kind travel.
    static int32_t FloatBits(float value);
    /// Waits until `done` holds, at most `seconds`.
    static bool WaitFor(const std::function<bool()>& done, double seconds = 10.0);
    /// Runs `work` on a thread of its own and waits for it at most `seconds`.
    /// On time-out the thread is left behind (it owns what it captured) and
    /// false is returned: the caller reports the hang.
    static bool FinishesWithin(double seconds, std::function<void()> work);

protected:
    void SetUp() override;
    void TearDown() override;

    /// A new player created through the module's CreateFunction, with a
    /// ReplaySink advised; stopped and released at the end of the test.
    SmartPtr<ICamera> NewPlayer();
    SmartPtr<ReplaySink> AdviseSink(ICamera* player);

    /// Writes image `index` (see kBaseWidth) as `name` in the folder.
    fs::path WriteImage(const std::string& name, int32_t index);
    /// Writes images 0..count-1 as prefix00.ext, prefix01.ext, ... cycling
    /// through PNG, BMP and JPEG unless `extension` is given.
    std::vector<fs::path> WriteSeries(int32_t count, const std::string& prefix = "img",
                                      const std::string& extension = "");
    /// Sets a file's modification time to 2000-01-01 00:00:00 UTC + `seconds`
    /// (and its access time elsewhere, so that the two cannot be mixed up).
    static void SetModificationTime(const fs::path& file, int64_t seconds);

    /// A new string holding `text`.
    static SmartPtr<IString> Str(const std::wstring& text);
    /// Points the player at `pattern` (parameter 50); returns ControlEx's result.
    static HRESULT PointAt(ICamera* player, const std::wstring& pattern);
    /// Points the player at every image of the test folder.
    HRESULT PointAtFolder(ICamera* player) { return PointAt(player, folder.wstring()); }

    static int32_t Position(ICamera* player);
    static int32_t Count(ICamera* player);
    /// A parameter's value through Inquire (-12345 when nothing was written).
    static int32_t Param(ICamera* player, int32_t id);
    static CameraStateConstants State(ICamera* player);
    static SmartPtr<IMMControlEx> Controls(ICamera* player) {
        return QueryAs<IMMControlEx>(player, IID_IMMControlEx);
    }
    /// The entry of the player's file list at `index`.
    static SmartPtr<IUnknown> Entry(ICamera* player, int32_t index);

    LoadedModule module;
    SmartPtr<IComponentCollection> collection;
    fs::path folder;
    std::vector<SmartPtr<ICamera>> players;
};
