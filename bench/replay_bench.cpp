// Replay of a folder through the file player: how closely live replay keeps
// its frame rate, how fast StopLive returns, and whether memory stays flat
// over a long folder.
//
//   replay_bench [--steps N] [--fps F] [--files N] [--memory-files N] [--folder DIR]
//
// 1. Pacing: N steps (default 400) over a folder of 100 JPEG files at F
//    images per second (default 25); the median, mean and 95th percentile of
//    the time between two delivered frames, beside the period asked for and
//    beside a plain loop that decodes the same files and sleeps for the rest
//    of each period (the same pacing rule, without the component).
// 2. Stopping: StopLive called at random moments of a run at F, and of a run
//    at 0.2 images per second (5 s pauses).
// 3. Memory: resident memory while replaying 5,000 images once with
//    retention 0 (each image dropped after showing), beside retention 2
//    (every image kept loaded) over the first 1,000 of them.
//
// Run from the output folder. Files go to a tmpfs folder (default /dev/shm).
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "tools/lumhost/FolderPlayer.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

double Milliseconds(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

/// Counts delivered frames and keeps their arrival times.
class ArrivalSink final : public CObject<ArrivalSink>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(ArrivalSink)
public:
    HRESULT ImageGrabbed(IUnknown*, IUnknown*, int32_t) override {
        std::lock_guard<std::mutex> hold(m_Mutex);
        m_Arrivals.push_back(Clock::now());
        m_Count.store(static_cast<int>(m_Arrivals.size()), std::memory_order_relaxed);
        return S_OK;
    }
    int Count() const { return m_Count.load(std::memory_order_relaxed); }
    std::vector<Clock::time_point> Arrivals() {
        std::lock_guard<std::mutex> hold(m_Mutex);
        return m_Arrivals;
    }

private:
    std::mutex m_Mutex;
    std::vector<Clock::time_point> m_Arrivals;
    std::atomic<int> m_Count{0};
};

const InterfaceEntry<ArrivalSink> ArrivalSink::kInterfaces[] = {
    InterfaceEntry<ArrivalSink>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<ArrivalSink>::End(),
};

SmartPtr<ArrivalSink> NewSink() {
    void* object = nullptr;
    CObject<ArrivalSink>::_CreateInstance(nullptr, &IID__ICameraEvents, &object);
    return SmartPtr<ArrivalSink>::Adopt(static_cast<ArrivalSink*>(static_cast<_ICameraEvents*>(object)));
}

struct Spread {
    double median = 0, mean = 0, p95 = 0;
};

Spread SpreadOf(std::vector<double> steps) {
    Spread s;
    if (steps.empty()) return s;
    for (double v : steps) s.mean += v;
    s.mean /= static_cast<double>(steps.size());
    std::sort(steps.begin(), steps.end());
    s.median = steps[steps.size() / 2];
    s.p95 = steps[std::min(steps.size() - 1, steps.size() * 95 / 100)];
    return s;
}

std::vector<double> StepsOf(const std::vector<Clock::time_point>& arrivals) {
    std::vector<double> steps;
    for (size_t i = 1; i < arrivals.size(); ++i) steps.push_back(Milliseconds(arrivals[i] - arrivals[i - 1]));
    return steps;
}

/// Writes `count` gray JPEG files of `width` x `height`, each with its own
/// pattern, through the framework's image archive.
bool WriteFolder(FrameworkHost& host, const fs::path& folder, int count, int width, int height) {
    fs::remove_all(folder);
    fs::create_directories(folder);
    SmartPtr<ILUMArchive> archive = host.Create<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    SmartPtr<ILUMImageDIB> image = host.Create<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    if (!archive || !image || image->Create(width, height, 8) < 0) return false;
    uint8_t* pixels = nullptr;
    int32_t stride = 0;
    image->get_Bits(&pixels);
    image->get_Stride(&stride);
    for (int i = 0; i < count; ++i) {
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) pixels[y * stride + x] = static_cast<uint8_t>(x + y + 7 * i);
        char name[32];
        std::snprintf(name, sizeof name, "%05d.jpg", i);
        SmartPtr<IString> file = HostString(host, Widen((folder / name).string()));
        if (archive->Write(file.Get(), image.Get(), 90) < 0) return false;
    }
    return true;
}

/// Replays `folder` at `fps` until `frames` frames arrived; the arrivals.
std::vector<Clock::time_point> Replay(FrameworkHost& host, const fs::path& folder, double fps, int frames,
                                      int retention, const std::function<void(int)>& onProgress = {}) {
    FolderPlayer player = OpenFolderPlayer(host, folder.string(), fps, false, retention);
    if (!player.camera) {
        std::fprintf(stderr, "replay_bench: %s\n", player.error.c_str());
        std::exit(1);
    }
    SmartPtr<ArrivalSink> sink = NewSink();
    SmartPtr<IEventSource> events = player.camera.As<IEventSource>(IID_IEventSource);
    events->Advise(static_cast<_ICameraEvents*>(sink.Get()), 1);
    player.camera->Live();
    int reported = 0;
    while (sink->Count() < frames) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (onProgress && sink->Count() != reported) onProgress(reported = sink->Count());
    }
    if (onProgress) onProgress(sink->Count());  // while the player still holds what it loaded
    player.camera->StopLive();
    events->Advise(nullptr, 0);
    std::vector<Clock::time_point> arrivals = sink->Arrivals();
    arrivals.resize(static_cast<size_t>(frames));
    return arrivals;
}

/// The reference loop: decode the next file through the framework's archive
/// and sleep for the rest of the period.
std::vector<Clock::time_point> PlainPacedLoop(FrameworkHost& host, const fs::path& folder, double fps, int steps) {
    std::vector<SmartPtr<IString>> files;
    for (const auto& entry : fs::directory_iterator(folder)) files.push_back(HostString(host, Widen(entry.path())));
    std::sort(files.begin(), files.end(), [](const SmartPtr<IString>& a, const SmartPtr<IString>& b) {
        wchar_t *ta = nullptr, *tb = nullptr;
        int32_t la = 0, lb = 0;
        a->GetText(&ta, &la);
        b->GetText(&tb, &lb);
        return std::wstring(ta, la) < std::wstring(tb, lb);
    });
    SmartPtr<ILUMArchive> archive = host.Create<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    std::vector<Clock::time_point> arrivals;
    const double period = 1000.0 / fps;
    for (int i = 0; i < steps; ++i) {
        const auto start = Clock::now();
        SmartPtr<ILUM> image;
        archive->Read(files[static_cast<size_t>(i) % files.size()].Get(), image.Out());
        arrivals.push_back(Clock::now());
        const double remaining = period - Milliseconds(Clock::now() - start);
        if (remaining > 0) std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(remaining));
    }
    return arrivals;
}

/// How long StopLive takes, called at random moments of a live replay.
std::vector<double> StopLatencies(FrameworkHost& host, const fs::path& folder, double fps, int runs) {
    std::mt19937 random(12345);
    std::vector<double> latencies;
    for (int run = 0; run < runs; ++run) {
        FolderPlayer player = OpenFolderPlayer(host, folder.string(), fps, false, 0);
        player.camera->Live();
        const double wait = std::uniform_real_distribution<double>(50.0, 50.0 + 2000.0 / fps)(random);
        std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(std::min(wait, 3000.0)));
        const auto start = Clock::now();
        player.camera->StopLive();
        latencies.push_back(Milliseconds(Clock::now() - start));
    }
    return latencies;
}

double ResidentMegabytes() {
    long pages = 0, resident = 0;
    if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(statm);
    }
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

/// Resident memory after warm-up and at the end of one replay pass.
struct MemoryRun {
    double warm = 0, end = 0, peak = 0;
    int frames = 0;
};

MemoryRun MeasureMemory(FrameworkHost& host, const fs::path& folder, int frames, int retention, int warmUp) {
    MemoryRun run;
    run.frames = frames;
    Replay(host, folder, 100000.0, frames, retention, [&](int done) {
        const double now = ResidentMegabytes();
        if (done >= warmUp && run.warm == 0) run.warm = now;
        run.peak = std::max(run.peak, now);
        run.end = now;
    });
    return run;
}

}  // namespace

int main(int argc, char** argv) {
    Options options(std::vector<std::string>(argv + 1, argv + argc),
                    {"steps", "fps", "files", "memory-files", "folder"});
    const int steps = options.Integer("steps", 400, 10, 1000000);
    const double fps = options.Number("fps", 25.0, 0.5, 1000.0);
    const int files = options.Integer("files", 100, 2, 100000);
    const int memoryFiles = options.Integer("memory-files", 5000, 100, 1000000);
    const fs::path root = options.Text("folder", "/dev/shm/lum_replay_bench");
    if (!options.Error().empty()) {
        std::fprintf(stderr, "replay_bench: %s\n", options.Error().c_str());
        return 2;
    }
    FrameworkHost host;
    if (!host.Start()) {
        std::fprintf(stderr, "replay_bench: %s\n", host.Error().c_str());
        return 1;
    }
    const fs::path paced = root / "paced";
    const fs::path many = root / "many";
    if (!WriteFolder(host, paced, files, 640, 480) || !WriteFolder(host, many, memoryFiles, 320, 240)) {
        std::fprintf(stderr, "replay_bench: cannot write the test images under %s\n", root.c_str());
        return 1;
    }

    const double period = 1000.0 / fps;
    std::printf("1. pacing: %d steps over %d JPEG files (640x480) at %g images/s, period %.2f ms\n", steps, files,
                fps, period);
    const Spread player = SpreadOf(StepsOf(Replay(host, paced, fps, steps + 1, 0)));
    const Spread plain = SpreadOf(StepsOf(PlainPacedLoop(host, paced, fps, steps + 1)));
    std::printf("   %-26s median %7.2f ms  mean %7.2f ms  p95 %7.2f ms  median/period %.3f\n", "file player",
                player.median, player.mean, player.p95, player.median / period);
    std::printf("   %-26s median %7.2f ms  mean %7.2f ms  p95 %7.2f ms  median/period %.3f\n",
                "plain decode+sleep loop", plain.median, plain.mean, plain.p95, plain.median / period);
    std::printf("   file player / plain loop (median): %.3f\n", player.median / plain.median);

    std::printf("2. StopLive at random moments (returns within one step plus the pause)\n");
    for (double rate : {fps, 0.2}) {
        const Spread stop = SpreadOf(StopLatencies(host, paced, rate, 8));
        std::printf("   at %6.2f images/s (period %7.1f ms): median %6.2f ms, p95 %6.2f ms, bound %7.1f ms\n", rate,
                    1000.0 / rate, stop.median, stop.p95, std::min(1000.0 / rate, 5000.0) + player.p95);
    }

    std::printf("3. resident memory replaying %d JPEG files (320x240) once, as fast as possible\n", memoryFiles);
    const int warmUp = std::min(200, memoryFiles / 10);
    const MemoryRun dropped = MeasureMemory(host, many, memoryFiles, 0, warmUp);
    const int keptFrames = std::min(1000, memoryFiles);
    const MemoryRun kept = MeasureMemory(host, many, keptFrames, 2, warmUp);
    const double image = 320.0 * 240.0 / (1024.0 * 1024.0);
    std::printf("   retention 0 (drop after showing): %.1f MB after %d frames, %.1f MB after %d, peak %.1f MB: "
                "growth %+.2f MB (%.1f images' worth)\n",
                dropped.warm, warmUp, dropped.end, dropped.frames, dropped.peak, dropped.end - dropped.warm,
                (dropped.end - dropped.warm) / image);
    std::printf("   retention 2 (keep loaded):        %.1f MB after %d frames, %.1f MB after %d: growth %+.2f MB "
                "(%.1f images' worth)\n",
                kept.warm, warmUp, kept.end, kept.frames, kept.end - kept.warm, (kept.end - kept.warm) / image);
    fs::remove_all(root);
    host.Stop();
    return 0;
}
