// Long-running check that the camera module neither leaks nor gathers
// threads: one scenario runs for a given time at full speed, every 10 s the
// elapsed time, the frames so far, the resident memory and the thread count
// are printed, and at the end the growth of resident memory after a
// warm-up and whether the thread count stayed constant. Exit status 1 when
// memory grew by 1 % or more, or the thread count changed.
//
//   soak_bench [--minutes N] [--scenario jpeg|null|replay] [--size WxH]
//              [--folder DIR] [--keep N]
//
// --size defaults to 640x480 (64x48 for "null"); --keep (default 200) is
// how many of the newest JPEG files stay on disk.
//
// Scenarios:
//   jpeg    the synthetic camera recorded by the camcorder through its save
//           thread as JPEG files into a folder on /dev/shm; files older than
//           the newest --keep are deleted as it goes.
//   null    the same with every "LUMArchive" replaced by one that writes
//           nothing (registered through RegisterCreateFunction): the
//           module's own cost, without the codec and the disk.
//   replay  the file player replaying a folder of JPEG files in a loop, at
//           the highest rate its pacing allows.
//
// Run from the output folder (modules load as "./Name.so").
#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/BenchObjects.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "tools/lumhost/FrameworkHost.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

[[noreturn]] void Fail(const std::string& message) {
    std::fprintf(stderr, "soak_bench: %s\n", message.c_str());
    std::exit(2);
}

/// Resident memory in KiB and thread count of this process.
struct Usage {
    long rssKiB = 0;
    int threads = 0;
};

Usage Measure() {
    Usage usage;
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) usage.rssKiB = std::atol(line.c_str() + 6);
        if (line.rfind("Threads:", 0) == 0) usage.threads = std::atoi(line.c_str() + 8);
    }
    return usage;
}

// ---- Helpers ------------------------------------------------------------------

SmartPtr<IString> Text(const FrameworkHost& host, const std::wstring& text) {
    SmartPtr<IString> s = host.Create<IString>(L"CreatableString", IID_IString);
    if (!s) Fail("cannot create a string");
    s->SetText(static_cast<int32_t>(text.size()), text.c_str());
    return s;
}

std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

// ---- Options ------------------------------------------------------------

struct Options {
    double minutes = 10;
    std::string scenario = "jpeg";
    int width = 0;  // 640 x 480; 64 x 48 for "null", which measures the module alone
    int height = 0;
    std::string folder;
    long keep = 200;
};

Options Parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) Fail("missing value after " + arg);
            return argv[++i];
        };
        if (arg == "--minutes") {
            options.minutes = std::atof(value().c_str());
            if (!(options.minutes > 0)) Fail("--minutes must be positive");
        } else if (arg == "--scenario") {
            options.scenario = value();
        } else if (arg == "--size") {
            if (std::sscanf(value().c_str(), "%dx%d", &options.width, &options.height) != 2 || options.width < 16 ||
                options.height < 8)
                Fail("--size takes WxH");
        } else if (arg == "--folder") {
            options.folder = value();
        } else if (arg == "--keep") {
            options.keep = std::max(1L, std::atol(value().c_str()));
        } else if (arg == "--help" || arg == "-h") {
            std::printf("soak_bench [--minutes N] [--scenario jpeg|null|replay] [--size WxH] [--folder DIR] [--keep N]\n");
            std::exit(0);
        } else {
            Fail("unknown option " + arg);
        }
    }
    if (options.scenario != "jpeg" && options.scenario != "null" && options.scenario != "replay")
        Fail("--scenario is jpeg, null or replay");
    if (options.width == 0) {
        options.width = options.scenario == "null" ? 64 : 640;
        options.height = options.scenario == "null" ? 48 : 480;
    }
    if (options.folder.empty())
        options.folder = "/dev/shm/lum-soak-" + options.scenario + "-" + std::to_string(getpid());
    return options;
}

// ---- Scenarios ----------------------------------------------------------

/// A scenario runs on threads of its own until Stop; Frames counts its work.
class Scenario {
public:
    virtual ~Scenario() = default;
    virtual void Start() = 0;
    virtual void Stop() = 0;
    virtual long Frames() const = 0;
    /// Called about once a second from the main thread.
    virtual void Tend() {}
};

/// The synthetic camera fed through the camcorder's save thread. The feed
/// waits while more than two frames are queued, so that it runs at the
/// speed of the writer without the queue growing (and the resident size
/// does not swing by the frames that happen to be queued).
class RecordingScenario final : public Scenario {
public:
    RecordingScenario(const FrameworkHost& host, const Options& options, bool nullArchive)
        : m_Host(host), m_Options(options), m_Null(nullArchive) {}

    void Start() override {
        fs::remove_all(m_Options.folder);
        fs::create_directories(m_Options.folder);
        if (m_Null &&
            m_Host.Collection()->RegisterCreateFunction(REFStr(L"LUMArchive"),
                                                        reinterpret_cast<void*>(&CObject<NullArchive>::_CreateInstance)) < 0)
            Fail("cannot register the archive");
        m_Camcorder = m_Host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
        m_Camera = m_Host.Create<ICamera>(L"LUMTestCamera", IID_ICamera);
        if (!m_Camcorder || !m_Camera) Fail("cannot create the camcorder or the camera");
        m_Camera->Control(1, m_Options.width);
        m_Camera->Control(2, m_Options.height);
        m_Camera->Control(3, 24);
        const std::wstring path = Wide(m_Options.folder);
        m_Camcorder->put_Path(tagREFString{static_cast<int32_t>(path.size()), const_cast<wchar_t*>(path.c_str())});
        m_Camcorder->put_FileFormat(FileFormatJPEG);
        m_Camcorder->put_RecordOptions(1);
        m_Camcorder->put_RecordasSeparateThreadDelayTime(0);
        m_Arm = m_Camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
        if (m_Arm->Record(m_Camera.Get()) < 0) Fail("Record failed");
        m_Feed = std::thread([this] { Feed(); });
    }

    void Stop() override {
        m_Stop.store(true);
        m_Feed.join();
        m_Arm->StopRecording();
        // The save thread drains what is queued and leaves state 0.
        const auto end = Clock::now() + std::chrono::seconds(30);
        CameraStateConstants state = CameraStateConstants(-1);
        while (m_Camcorder->get_CameraState(&state), state != 0 && Clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (state != 0) std::fprintf(stderr, "soak_bench: the save thread did not end\n");
        m_Arm->Record(nullptr);
        m_Arm.Reset();
        m_Camcorder.Reset();
        m_Camera.Reset();
        std::error_code ignored;
        fs::remove_all(m_Options.folder, ignored);
    }

    long Frames() const override { return Written(); }

    /// Deletes files older than the newest `keep`, so that the disk does
    /// not fill.
    void Tend() override {
        if (m_Null) return;
        const long newest = Written();
        DIR* dir = opendir(m_Options.folder.c_str());
        if (!dir) return;
        std::vector<std::string> old;
        while (dirent* entry = readdir(dir)) {
            const long index = std::atol(entry->d_name);
            if (entry->d_name[0] >= '0' && entry->d_name[0] <= '9' && index < newest - m_Options.keep)
                old.push_back(entry->d_name);
        }
        closedir(dir);
        for (const std::string& name : old) unlink((m_Options.folder + "/" + name).c_str());
    }

private:
    long Written() const {
        if (m_Null) return NullArchive::writes.load();
        int32_t index = 0;
        m_Camcorder->get_ActiveIndex(&index);
        return index;
    }
    void Feed() {
        long fired = 0;
        while (!m_Stop.load(std::memory_order_relaxed)) {
            if (fired - Written() > 2) {
                std::this_thread::yield();
                continue;
            }
            m_Camera->Grab(0, 0, nullptr);
            ++fired;
        }
    }

    const FrameworkHost& m_Host;
    Options m_Options;
    bool m_Null;
    SmartPtr<ILUMCamcorder> m_Camcorder;
    SmartPtr<ICamcorderArm> m_Arm;
    SmartPtr<ICamera> m_Camera;
    std::thread m_Feed;
    std::atomic<bool> m_Stop{false};
};

/// The file player replaying a folder of JPEG files, wrapping around.
class ReplayScenario final : public Scenario {
public:
    ReplayScenario(const FrameworkHost& host, const Options& options) : m_Host(host), m_Options(options) {}

    void Start() override {
        fs::remove_all(m_Options.folder);
        fs::create_directories(m_Options.folder);
        // 50 frames of the synthetic camera as JPEG files.
        SmartPtr<ICamera> camera = m_Host.Create<ICamera>(L"LUMTestCamera", IID_ICamera);
        SmartPtr<ILUMArchive> archive = m_Host.Create<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
        if (!camera || !archive) Fail("cannot create the camera or the archive");
        camera->Control(1, m_Options.width);
        camera->Control(2, m_Options.height);
        camera->Control(3, 24);
        for (int i = 0; i < 50; ++i) {
            camera->Grab(0, 0, nullptr);
            SmartPtr<ILUM> image;
            camera->get_Image(0, image.Out());
            char name[32];
            std::snprintf(name, sizeof name, "/%04d.jpg", i);
            if (archive->Write(Text(m_Host, Wide(m_Options.folder + name)).Get(), image.Get(), 90) < 0)
                Fail("cannot write the replayed files");
        }
        m_Player = m_Host.Create<ICamera>(L"LUMFilePlayer", IID_ICamera);
        if (!m_Player) Fail("cannot create the file player");
        m_Sink = CObject<CountingSink>::New();
        m_Player.As<IEventSource>(IID_IEventSource)->Advise(m_Sink->PrimaryUnknown(), 1);
        SmartPtr<IUIPropInterrogateEx> parameters = m_Player.As<IUIPropInterrogateEx>(IID_IUIPropInterrogateEx);
        if (parameters->ControlEx(50, Text(m_Host, Wide(m_Options.folder)).Get()) < 0) Fail("cannot set the folder");
        const float rate = 1000.0f;
        int32_t bits = 0;
        std::memcpy(&bits, &rate, sizeof bits);
        m_Player->Control(52, bits);
        if (m_Player->Live() < 0) Fail("Live failed");
    }

    void Stop() override {
        m_Player->StopLive();
        m_Player.As<IEventSource>(IID_IEventSource)->Advise(m_Sink->PrimaryUnknown(), 0);
        m_Player.Reset();
        std::error_code ignored;
        fs::remove_all(m_Options.folder, ignored);
    }

    long Frames() const override { return m_Sink->Count(); }

private:
    const FrameworkHost& m_Host;
    Options m_Options;
    SmartPtr<ICamera> m_Player;
    SmartPtr<CountingSink> m_Sink;
};

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    // Frames are large blocks: with the allocator's sliding threshold they
    // would move between mapped memory and the heap, and the resident size
    // would swing by whole frames from one sample to the next. A fixed
    // threshold maps every frame and gives it back when it is freed, so that
    // the resident size shows what is really kept.
    mallopt(M_MMAP_THRESHOLD, 64 * 1024);
    const Options options = Parse(argc, argv);
    FrameworkHost host;
    if (!host.Start()) Fail("cannot start the framework: " + host.Error());

    std::unique_ptr<Scenario> scenario;
    if (options.scenario == "replay")
        scenario = std::make_unique<ReplayScenario>(host, options);
    else
        scenario = std::make_unique<RecordingScenario>(host, options, options.scenario == "null");

    const double total = options.minutes * 60.0;
    // Warm-up: the first minute, or the first 10 % of a run shorter than
    // ten minutes.
    const double warmup = std::min(60.0, total * 0.1);
    std::printf("soak: scenario %s, %.1f min, %dx%d, warm-up %.0f s, folder %s\n", options.scenario.c_str(),
                options.minutes, options.width, options.height, warmup, options.folder.c_str());
    std::printf("%10s %12s %10s %8s\n", "elapsed_s", "frames", "rss_kib", "threads");

    scenario->Start();
    const auto start = Clock::now();
    auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
    // Resident memory is sampled every second. A frame in flight at the
    // moment of a sample adds a whole frame, so a window's lowest sample is
    // what the process keeps between frames and its highest what it holds
    // at most; both are compared between the window just after the warm-up
    // and the last window of the run, and both must stay flat.
    const size_t window = static_cast<size_t>(std::clamp(total * 0.1, 5.0, 60.0));
    std::vector<long> samples;
    Usage atWarmup{};
    bool warmed = false;
    int threadsMin = 1 << 30, threadsMax = 0;
    double nextReport = 10;
    long lastFrames = 0;
    while (true) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        scenario->Tend();
        const double now = elapsed();
        if (!warmed && now >= warmup) {
            atWarmup = Measure();
            warmed = true;
        }
        if (warmed) {
            const Usage usage = Measure();
            samples.push_back(usage.rssKiB);
            threadsMin = std::min(threadsMin, usage.threads);
            threadsMax = std::max(threadsMax, usage.threads);
        }
        if (now >= nextReport || now >= total) {
            const Usage usage = Measure();
            lastFrames = scenario->Frames();
            std::printf("%10.0f %12ld %10ld %8d\n", now, lastFrames, usage.rssKiB, usage.threads);
            nextReport += 10;
        }
        if (now >= total) break;
    }
    const Usage atEnd = Measure();
    const long frames = scenario->Frames();
    const double seconds = elapsed();
    scenario->Stop();

    const size_t span = std::min(window, samples.size() / 2 + 1);
    const std::vector<long> firstWindow(samples.begin(), samples.begin() + std::min(span, samples.size()));
    const std::vector<long> lastWindow(samples.end() - std::min(span, samples.size()), samples.end());
    auto lowest = [](const std::vector<long>& values) {
        return values.empty() ? 0.0 : static_cast<double>(*std::min_element(values.begin(), values.end()));
    };
    auto highest = [](const std::vector<long>& values) {
        return values.empty() ? 0.0 : static_cast<double>(*std::max_element(values.begin(), values.end()));
    };
    auto growthOf = [](double from, double to) { return from > 0 ? 100.0 * (to - from) / from : 0.0; };
    const double first = lowest(firstWindow), last = lowest(lastWindow);
    const double firstPeak = highest(firstWindow), lastPeak = highest(lastWindow);
    const double growth = growthOf(first, last), peakGrowth = growthOf(firstPeak, lastPeak);
    const bool threadsConstant = threadsMin == threadsMax && atEnd.threads == atWarmup.threads;
    const bool pass = growth < 1.0 && peakGrowth < 1.0 && threadsConstant;
    std::printf("soak: scenario %s: %ld frames in %.0f s (%.1f frames/s); resident memory %.0f KiB after the warm-up, "
                "%.0f KiB at the end (lowest of a window of %zu s; highest %.0f and %.0f KiB, %+.2f %%): growth %+.2f %%; "
                "threads %d after the warm-up, %d at the end, %s; %s\n",
                options.scenario.c_str(), frames, seconds, frames / seconds, first, last, span, firstPeak, lastPeak,
                peakGrowth, growth,
                atWarmup.threads, atEnd.threads,
                threadsConstant ? "constant" : ("changed (" + std::to_string(threadsMin) + " to " +
                                                std::to_string(threadsMax) + ")").c_str(),
                pass ? "PASS" : "FAIL");
    scenario.reset();
    host.Stop();
    return pass ? 0 : 1;
}
