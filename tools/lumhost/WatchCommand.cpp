// "watch": prints each new image of a folder as the file grab delivers it,
// and can record the images through the camcorder.
#include <csignal>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "lum/filegrab.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "tools/lumhost/Commands.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

namespace {

const char* kUsage =
    "usage: lumhost watch FOLDER [options]\n"
    "Watches FOLDER through the file grab and prints each new image (bmp, jpg, jpeg,\n"
    "png) once it is completely written. Stops with Ctrl-C, or:\n"
    "  --count N       after N images\n"
    "  --seconds S     after S seconds\n"
    "  --record DIR    also record the images through the camcorder into DIR\n"
    "                  (JPEG files NNNN.jpg; created if missing)\n";

std::atomic<bool> g_Interrupted{false};

void OnInterrupt(int) { g_Interrupted.store(true); }

/// Prints every image the file grab delivers.
class ArrivalPrinter final : public CObject<ArrivalPrinter>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(ArrivalPrinter)
public:
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override {
        SmartPtr<ILUM> lum = QueryAs<ILUM>(image, IID_ILUM);
        SmartPtr<IFileArchive> file = QueryAs<IFileArchive>(image, IID_IFileArchive);
        int32_t width = 0, height = 0, bits = 0;
        if (lum) {
            lum->get_Width(&width);
            lum->get_Height(&height);
            lum->get_BitsPerPixel(&bits);
        }
        SmartPtr<IString> name;
        if (file) file->get_Filename(name.Out());
        wchar_t* text = nullptr;
        int32_t length = 0;
        if (name) name->GetText(&text, &length);
        const int number = m_Images.fetch_add(1) + 1;
        std::printf("image %5d: %.*ls  %dx%d, %d bits per pixel\n", number, static_cast<int>(text ? length : 1),
                    text ? text : L"?", width, height, bits);
        std::fflush(stdout);
        return S_OK;
    }
    int Images() const { return m_Images.load(); }

private:
    std::atomic<int> m_Images{0};
};

const InterfaceEntry<ArrivalPrinter> ArrivalPrinter::kInterfaces[] = {
    InterfaceEntry<ArrivalPrinter>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<ArrivalPrinter>::End(),
};

}  // namespace

int WatchCommand(FrameworkHost& host, const std::vector<std::string>& args) {
    std::vector<std::string> rest = args;
    std::string folder;
    if (!rest.empty() && rest.front().rfind("--", 0) != 0) {
        folder = rest.front();
        rest.erase(rest.begin());
    }
    Options options(rest, {"count", "seconds", "record"}, {"help"});
    if (options.Has("help")) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    const int count = options.Integer("count", 0, 1, 100000000);
    const double seconds = options.Number("seconds", 0, 0.001, 1e9);
    if (folder.empty() || !options.Error().empty()) {
        std::fprintf(stderr, "lumhost watch: %s\n\n%s", folder.empty() ? "which folder?" : options.Error().c_str(),
                     kUsage);
        return 2;
    }
    if (!std::filesystem::is_directory(folder)) {
        std::fprintf(stderr, "lumhost watch: no folder %s\n", folder.c_str());
        return 1;
    }
    SmartPtr<IUnknown> grabObject = host.Create<IUnknown>(L"LUMFileGrab", IID_ICamera);
    SmartPtr<IEventSource> events = grabObject ? grabObject.As<IEventSource>(IID_IEventSource) : nullptr;
    if (!events) {
        std::fprintf(stderr, "lumhost watch: cannot create the file grab\n");
        return 1;
    }
    auto* grab = static_cast<LUMFileGrabCamera*>(grabObject.Get());
    const std::wstring path = Widen(std::filesystem::absolute(folder).lexically_normal().string());
    grab->LoadParameters(tagREFString{static_cast<int32_t>(path.size()), const_cast<wchar_t*>(path.data())});

    void* printerObject = nullptr;
    CObject<ArrivalPrinter>::_CreateInstance(nullptr, &IID__ICameraEvents, &printerObject);
    SmartPtr<_ICameraEvents> sink = SmartPtr<_ICameraEvents>::Adopt(static_cast<_ICameraEvents*>(printerObject));
    events->Advise(sink.Get(), 1);

    SmartPtr<ILUMCamcorder> camcorder;
    SmartPtr<ICamcorderArm> recorder;
    if (options.Has("record")) {
        const std::string target = options.Text("record", "");
        std::error_code error;
        std::filesystem::create_directories(target, error);
        camcorder = host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
        if (error || !camcorder) {
            std::fprintf(stderr, "lumhost watch: cannot record into %s\n", target.c_str());
            events->Advise(nullptr, 0);
            return 1;
        }
        SetRecordingFiles(camcorder.Get(), target, false, "", FileFormatJPEG);
        camcorder->put_RecordOptions(1);
        camcorder->put_RecordasSeparateThreadDelayTime(0);
        recorder = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
        recorder->Record(grabObject.Get());
    }

    std::signal(SIGINT, OnInterrupt);
    std::signal(SIGTERM, OnInterrupt);
    std::printf("watching %ls%s\n", path.c_str(), count || seconds ? "" : " (Ctrl-C to stop)");
    std::fflush(stdout);
    const auto start = std::chrono::steady_clock::now();
    grab->Live();
    auto* printer = static_cast<ArrivalPrinter*>(sink.Get());
    while (!g_Interrupted.load()) {
        if (count && printer->Images() >= count) break;
        if (seconds && std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() >= seconds)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    grab->StopLive();
    if (recorder) {
        recorder->StopRecording();
        // The save thread writes what it holds, then the camcorder is idle.
        const auto stopped = std::chrono::steady_clock::now();
        for (int32_t state = -1; state != CameraStateIdle;) {
            camcorder->Inquire(10, &state);
            if (state == CameraStateIdle || std::chrono::steady_clock::now() - stopped > std::chrono::seconds(30))
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        int32_t next = 0;
        camcorder->get_ActiveIndex(&next);
        std::printf("recorded into %s up to index %d\n", options.Text("record", "").c_str(), next - 1);
    }
    events->Advise(nullptr, 0);
    std::printf("%d new images\n", printer->Images());
    return 0;
}
