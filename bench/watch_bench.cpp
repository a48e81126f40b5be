// The watch-folder camera: how long a new file takes from being closed
// after writing to arriving in ImageGrabbed, and what a watching process
// costs while nothing happens.
//
//   watch_bench [--files N] [--idle S] [--folder DIR]
//
// 1. Latency: N JPEG files (default 200) written one after another into a
//    folder watched by "LUMFileGrab"; for each, the time from close() to the
//    sink's ImageGrabbed. Beside it, the same files seen by a plain inotify
//    loop on the same folder (IN_CLOSE_WRITE), measured in the same run: the
//    kernel's own delivery time, which the file grab adds its loading to.
// 2. Idle: CPU time of the process over S seconds (default 10) while the
//    file grab watches a folder where nothing happens, as a share of one
//    core; beside it the same with the periodic look at the folder that
//    replaces notification where the file system has none.
//
// Run from the output folder. Files go to a tmpfs folder (default /dev/shm).
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lum/filegrab.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

double Milliseconds(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

/// Arrival time of each delivered file, by file name.
class ArrivalSink final : public CObject<ArrivalSink>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(ArrivalSink)
public:
    HRESULT ImageGrabbed(IUnknown*, IUnknown* image, int32_t) override {
        const auto now = Clock::now();
        SmartPtr<IFileArchive> file = QueryAs<IFileArchive>(image, IID_IFileArchive);
        SmartPtr<IString> name;
        if (file) file->get_Filename(name.Out());
        wchar_t* text = nullptr;
        int32_t length = 0;
        if (name) name->GetText(&text, &length);
        std::lock_guard<std::mutex> hold(m_Mutex);
        m_Arrivals[fs::path(std::wstring(text ? text : L"", text ? length : 0)).filename().string()] = now;
        return S_OK;
    }
    bool Has(const std::string& name) {
        std::lock_guard<std::mutex> hold(m_Mutex);
        return m_Arrivals.count(name) != 0;
    }
    Clock::time_point At(const std::string& name) {
        std::lock_guard<std::mutex> hold(m_Mutex);
        return m_Arrivals[name];
    }

private:
    std::mutex m_Mutex;
    std::map<std::string, Clock::time_point> m_Arrivals;
};

const InterfaceEntry<ArrivalSink> ArrivalSink::kInterfaces[] = {
    InterfaceEntry<ArrivalSink>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<ArrivalSink>::End(),
};

/// A watching file grab with a sink advised.
struct Watch {
    SmartPtr<IUnknown> object;
    SmartPtr<IEventSource> events;
    SmartPtr<ArrivalSink> sink;
    LUMFileGrabCamera* camera = nullptr;

    Watch(FrameworkHost& host, const fs::path& folder) {
        object = host.Create<IUnknown>(L"LUMFileGrab", IID_ICamera);
        events = object ? object.As<IEventSource>(IID_IEventSource) : nullptr;
        if (!events) {
            std::fprintf(stderr, "watch_bench: cannot create the file grab\n");
            std::exit(1);
        }
        camera = static_cast<LUMFileGrabCamera*>(object.Get());
        const std::wstring path = Widen(folder.string());
        camera->LoadParameters(tagREFString{static_cast<int32_t>(path.size()), const_cast<wchar_t*>(path.data())});
        void* created = nullptr;
        CObject<ArrivalSink>::_CreateInstance(nullptr, &IID__ICameraEvents, &created);
        sink = SmartPtr<ArrivalSink>::Adopt(static_cast<ArrivalSink*>(static_cast<_ICameraEvents*>(created)));
        events->Advise(static_cast<_ICameraEvents*>(sink.Get()), 1);
        camera->Live();
    }
    ~Watch() {
        camera->StopLive();
        events->Advise(nullptr, 0);
    }
};

/// A plain inotify loop on `folder`, noting when each file was closed after
/// writing.
class PlainWatch {
public:
    explicit PlainWatch(const fs::path& folder) {
        m_Fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        inotify_add_watch(m_Fd, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
        m_Thread = std::thread([this] { Run(); });
    }
    ~PlainWatch() {
        m_Stop = true;
        m_Thread.join();
        close(m_Fd);
    }
    bool Has(const std::string& name) {
        std::lock_guard<std::mutex> hold(m_Mutex);
        return m_Seen.count(name) != 0;
    }
    Clock::time_point At(const std::string& name) {
        std::lock_guard<std::mutex> hold(m_Mutex);
        return m_Seen[name];
    }

private:
    void Run() {
        alignas(inotify_event) char buffer[64 * 1024];
        while (!m_Stop) {
            ssize_t got = read(m_Fd, buffer, sizeof buffer);
            if (got <= 0) {
                std::this_thread::sleep_for(std::chrono::microseconds(50));
                continue;
            }
            const auto now = Clock::now();
            for (char* at = buffer; at < buffer + got;) {
                auto* event = reinterpret_cast<inotify_event*>(at);
                if (event->len) {
                    std::lock_guard<std::mutex> hold(m_Mutex);
                    m_Seen.emplace(event->name, now);
                }
                at += sizeof(inotify_event) + event->len;
            }
        }
    }
    int m_Fd = -1;
    std::atomic<bool> m_Stop{false};
    std::thread m_Thread;
    std::mutex m_Mutex;
    std::map<std::string, Clock::time_point> m_Seen;
};

std::vector<char> EncodedJpeg(FrameworkHost& host, const fs::path& scratch) {
    SmartPtr<ILUMImageDIB> image = host.Create<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    SmartPtr<ILUMArchive> archive = host.Create<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    image->Create(640, 480, 8);
    uint8_t* pixels = nullptr;
    int32_t stride = 0;
    image->get_Bits(&pixels);
    image->get_Stride(&stride);
    for (int y = 0; y < 480; ++y)
        for (int x = 0; x < 640; ++x) pixels[y * stride + x] = static_cast<uint8_t>(x ^ y);
    const std::wstring name = Widen(scratch.string());
    SmartPtr<IString> file = host.Create<IString>(L"CreatableString", IID_IString);
    file->SetText(static_cast<int32_t>(name.size()), name.c_str());
    archive->Write(file.Get(), image.Get(), 90);
    FILE* in = std::fopen(scratch.c_str(), "rb");
    std::vector<char> bytes(static_cast<size_t>(fs::file_size(scratch)));
    if (!in || std::fread(bytes.data(), 1, bytes.size(), in) != bytes.size()) std::exit(1);
    std::fclose(in);
    fs::remove(scratch);
    return bytes;
}

struct Spread {
    double median = 0, p95 = 0, worst = 0;
    int missing = 0;
};

Spread SpreadOf(std::vector<double> values, int missing) {
    Spread s;
    s.missing = missing;
    if (values.empty()) return s;
    std::sort(values.begin(), values.end());
    s.median = values[values.size() / 2];
    s.p95 = values[std::min(values.size() - 1, values.size() * 95 / 100)];
    s.worst = values.back();
    return s;
}

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

/// Share of one core used by the process over `seconds` while `folder` is
/// watched and left alone.
double IdleShare(FrameworkHost& host, const fs::path& folder, double seconds) {
    Watch watch(host, folder);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const double cpu = CpuSeconds();
    const auto start = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    return (CpuSeconds() - cpu) / std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    Options options(std::vector<std::string>(argv + 1, argv + argc), {"files", "idle", "folder"});
    const int files = options.Integer("files", 200, 1, 100000);
    const double idle = options.Number("idle", 10.0, 0.5, 3600.0);
    const fs::path root = options.Text("folder", "/dev/shm/lum_watch_bench");
    if (!options.Error().empty()) {
        std::fprintf(stderr, "watch_bench: %s\n", options.Error().c_str());
        return 2;
    }
    FrameworkHost host;
    if (!host.Start()) {
        std::fprintf(stderr, "watch_bench: %s\n", host.Error().c_str());
        return 1;
    }
    fs::remove_all(root);
    const fs::path folder = root / "incoming";
    fs::create_directories(folder);
    const std::vector<char> jpeg = EncodedJpeg(host, root / "scratch.jpg");

    std::printf("1. latency from close() to ImageGrabbed: %d JPEG files (640x480, %zu bytes)\n", files, jpeg.size());
    std::vector<double> grabbed, plain;
    int grabMissing = 0, plainMissing = 0;
    {
        PlainWatch reference(folder);
        Watch watch(host, folder);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        for (int i = 0; i < files; ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "f%05d.jpg", i);
            const int fd = open((folder / name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (fd < 0 || write(fd, jpeg.data(), jpeg.size()) != static_cast<ssize_t>(jpeg.size())) return 1;
            close(fd);
            const auto closed = Clock::now();
            const auto deadline = closed + std::chrono::seconds(5);
            while ((!watch.sink->Has(name) || !reference.Has(name)) && Clock::now() < deadline)
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            if (watch.sink->Has(name))
                grabbed.push_back(Milliseconds(watch.sink->At(name) - closed));
            else
                ++grabMissing;
            if (reference.Has(name))
                plain.push_back(Milliseconds(reference.At(name) - closed));
            else
                ++plainMissing;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    const Spread g = SpreadOf(grabbed, grabMissing), p = SpreadOf(plain, plainMissing);
    std::printf("   %-28s median %7.3f ms  p95 %7.3f ms  worst %7.3f ms  missed %d\n", "file grab (ImageGrabbed)",
                g.median, g.p95, g.worst, g.missing);
    std::printf("   %-28s median %7.3f ms  p95 %7.3f ms  worst %7.3f ms  missed %d\n", "plain inotify loop", p.median,
                p.p95, p.worst, p.missing);
    std::printf("   file grab median: %.3f ms (goal under 50 ms), %.1f times the plain loop's\n", g.median,
                p.median > 0 ? g.median / p.median : 0.0);

    std::printf("2. idle CPU over %.0f s of an unchanged watched folder (share of one core)\n", idle);
    const double notified = IdleShare(host, folder, idle);
    setenv("LUM_WATCH_POLLING", "1", 1);
    const double polled = IdleShare(host, folder, idle);
    unsetenv("LUM_WATCH_POLLING");
    std::printf("   file grab, kernel notification: %.3f %% (goal under 1 %%)\n", 100.0 * notified);
    std::printf("   file grab, looking every 100 ms (no notification): %.3f %%\n", 100.0 * polled);
    fs::remove_all(root);
    host.Stop();
    return 0;
}
