// "play": plays a recording back through the camcorder's own playback and
// reports each frame.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "tools/lumhost/Commands.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

namespace {

const char* kUsage =
    "usage: lumhost play [options]\n"
    "Plays a recording back through the camcorder and reports each frame.\n"
    "  --folder DIR    recording folder (default ./Images)\n"
    "  --base NAME     base file name of the recording\n"
    "  --format F      jpg or bmp (default jpg)\n"
    "  --fps N         playback speed in frames per second (default 25)\n"
    "  --backward      play from the last frame to the first\n";

/// Prints every image the camcorder delivers.
class FrameReporter final : public CObject<FrameReporter>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(FrameReporter)
public:
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t state) override {
        SmartPtr<ILUM> lum = QueryAs<ILUM>(image, IID_ILUM);
        SmartPtr<ILUMCamcorder> camcorder = QueryAs<ILUMCamcorder>(camera, IID_ILUMCamcorder);
        int32_t width = 0, height = 0, bits = 0, index = -1;
        if (lum) {
            lum->get_Width(&width);
            lum->get_Height(&height);
            lum->get_BitsPerPixel(&bits);
        }
        if (camcorder) camcorder->get_ActiveIndex(&index);
        std::printf("frame %4d: %dx%d, %d bits per pixel\n", index, width, height, bits);
        std::fflush(stdout);
        ++m_Frames;
        return S_OK;
    }
    std::atomic<int> m_Frames{0};
};

const InterfaceEntry<FrameReporter> FrameReporter::kInterfaces[] = {
    InterfaceEntry<FrameReporter>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<FrameReporter>::End(),
};

}  // namespace

int PlayCommand(FrameworkHost& host, const std::vector<std::string>& args) {
    Options options(args, {"folder", "base", "format", "fps"}, {"backward", "help"});
    if (options.Has("help")) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    const std::string folder = options.Text("folder", "./Images");
    const int format = options.Choice("format", {"jpg", "bmp"}, 0);
    const double fps = options.Number("fps", 25.0, 0.01, 1000.0);
    if (!options.Error().empty()) {
        std::fprintf(stderr, "lumhost play: %s\n\n%s", options.Error().c_str(), kUsage);
        return 2;
    }
    if (!std::filesystem::is_directory(folder)) {
        std::fprintf(stderr, "lumhost play: no folder %s\n", folder.c_str());
        return 1;
    }
    SmartPtr<ILUMCamcorder> camcorder = host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
    if (!camcorder) {
        std::fprintf(stderr, "lumhost play: cannot create the camcorder\n");
        return 1;
    }
    const std::wstring path =
        SetRecordingFiles(camcorder.Get(), folder, options.Has("base"), options.Text("base", ""), format);
    camcorder->put_PlayBackSpeed(fps);
    SmartPtr<IMMControlEx> player = camcorder.As<IMMControlEx>(IID_IMMControlEx);
    const int32_t last = camcorder->GetLastFileIndex();
    if (last <= 0) {
        std::fprintf(stderr, "lumhost play: no recording in %s\n", folder.c_str());
        return 1;
    }
    player->put_Loop(0);

    void* reporterObject = nullptr;
    CObject<FrameReporter>::_CreateInstance(nullptr, &IID__ICameraEvents, &reporterObject);
    SmartPtr<_ICameraEvents> reporter = SmartPtr<_ICameraEvents>::Adopt(static_cast<_ICameraEvents*>(reporterObject));
    SmartPtr<IEventSource> events = camcorder.As<IEventSource>(IID_IEventSource);
    events->Advise(reporter.Get(), 1);

    const auto start = std::chrono::steady_clock::now();
    if (options.Has("backward")) {
        camcorder->put_PlayDirection(0);
        player->Stop();  // rewinds to the end for backward play
        player->Reverse();
    } else {
        player->Stop();
        player->Play();
    }
    for (;;) {
        int32_t state = 0;
        camcorder->Inquire(10, &state);
        if (state != CameraStateLive) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    events->Advise(nullptr, 0);
    const int played = static_cast<FrameReporter*>(reporter.Get())->m_Frames;
    std::printf("played %d of %d frames in %.2f s\n", played, last, seconds);
    return played > 0 ? 0 : 1;
}
