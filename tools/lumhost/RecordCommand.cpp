// "record": records the synthetic camera, an Aravis camera or a folder of
// images through the camcorder.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "tools/lumhost/CameraChoice.h"
#include "tools/lumhost/Commands.h"
#include "tools/lumhost/FolderPlayer.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

namespace {

const char* kUsageHead =
    "usage: lumhost record [options]\n"
    "Records the synthetic camera, a camera of the Aravis library (or, with --from,\n"
    "a folder of images replayed by the file player) through the camcorder.\n";
const char* kUsageRest =
    "  --from DIR      record the images of DIR (in name order) instead of a\n"
    "                  camera; --camera, --size and --bits then do not apply\n"
    "  --frames N      frames to record (default 100; with --from, every image once)\n"
    "  --fps N         camera frames per second, 1-1000 (default 25)\n"
    "  --size WxH      frame size (default 640x480)\n"
    "  --bits N        8, 24 or 32 bits per pixel (default 8; an Aravis camera\n"
    "                  gives 8 or 24)\n"
    "  --format F      jpg, bmp or avi (default jpg)\n"
    "  --folder DIR    recording folder (default ./Images; created if missing)\n"
    "  --base NAME     base file name (only its first character is used in names)\n"
    "  --pre N         arm first and keep N pre-recorded frames (default 0)\n"
    "  --rate N        keep every N-th frame (default 1)\n"
    "  --options N     0 write in the camera's thread, 1 save thread, 2 save thread\n"
    "                  with copies (default 1; avi needs 1 or 2)\n"
    "  --speed N       frame rate stored in an AVI (default 10)\n"
    "Aravis cameras: LUM_ARAVIS_FAKE=1 offers Aravis's fake camera (aravis:Fake_1);\n"
    "see 'lumhost cameras --help'.\n";

void Usage(FILE* out) {
    std::fputs(kUsageHead, out);
    std::fputs(kCameraOptionUsage, out);
    std::fputs(kUsageRest, out);
}

int32_t StateOf(ICamera* camera) {
    int32_t state = -1;
    camera->Inquire(10, &state);
    return state;
}

}  // namespace

int RecordCommand(FrameworkHost& host, const std::vector<std::string>& args) {
    Options options(args, {"from", "camera", "frames", "fps", "size", "bits", "format", "folder", "base", "pre",
                           "rate", "options", "speed"},
                    {"help"});
    if (options.Has("help")) {
        Usage(stdout);
        return 0;
    }
    int frames = options.Integer("frames", 100, 1, 10000000);
    const int fps = options.Integer("fps", 25, 1, 1000);
    int width = 640, height = 480;
    options.Size("size", width, height);
    const int bits = options.Choice("bits", {"8", "24", "32"}, 0);
    const int format = options.Choice("format", {"jpg", "bmp", "avi"}, 0);
    const std::string folder = options.Text("folder", "./Images");
    const int pre = options.Integer("pre", 0, 0, 1000000);
    const int rate = options.Integer("rate", 1, 1, 1000000);
    const int recordOptions = options.Integer("options", 1, 0, 2);
    const double speed = options.Number("speed", 10.0, 0.001, 1000.0);
    std::string problem = options.Error();
    if (problem.empty() && format == FileFormatAVI && recordOptions == 0)
        problem = "an AVI is written by the save thread: use --options 1 or 2";
    if (problem.empty()) problem = CameraOptionProblem(options);
    if (problem.empty() && options.Has("from") && options.Has("camera"))
        problem = "--from and --camera name two different sources: give one";
    if (!problem.empty()) {
        std::fprintf(stderr, "lumhost record: %s\n\n", problem.c_str());
        Usage(stderr);
        return 2;
    }
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        std::fprintf(stderr, "lumhost record: cannot create folder %s: %s\n", folder.c_str(), error.message().c_str());
        return 1;
    }

    SmartPtr<ICamera> camera;
    bool aravis = false;
    if (options.Has("from")) {
        FolderPlayer source = OpenFolderPlayer(host, options.Text("from", ""), fps, false, 0);
        if (!source.camera || source.count == 0) {
            std::fprintf(stderr, "lumhost record: %s\n",
                         source.camera ? "no images in the --from folder" : source.error.c_str());
            return 1;
        }
        camera = source.camera;
        if (!options.Has("frames")) frames = source.count;
    } else {
        static const int kBits[] = {8, 24, 32};
        CameraChoice choice = OpenSourceCamera(host, RequestFromOptions(options, width, height, kBits[bits], fps));
        if (!choice.camera) {
            std::fprintf(stderr, "lumhost record: %s\n", choice.error.c_str());
            return choice.exitCode;
        }
        camera = choice.camera;
        aravis = choice.aravis;
    }
    SmartPtr<ILUMCamcorder> camcorder = host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
    if (!camera || !camcorder) {
        std::fprintf(stderr, "lumhost record: cannot create the %s\n", camera ? "camcorder" : "source camera");
        return 1;
    }

    const std::wstring path =
        SetRecordingFiles(camcorder.Get(), folder, options.Has("base"), options.Text("base", ""), format);
    camcorder->put_RecordOptions(recordOptions);
    camcorder->put_RecordasSeparateThreadDelayTime(0);
    camcorder->put_RecordRate(rate);
    camcorder->put_PlayBackSpeed(speed);
    camcorder->Control(73, frames);  // frame limit
    SmartPtr<ICamcorderArm> recorder = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);

    // An Aravis camera runs at its own rate unless --fps set it.
    const int rateOfCamera = aravis ? CameraFrameRate(camera.Get(), fps) : fps;
    const auto start = std::chrono::steady_clock::now();
    if (pre > 0) {
        recorder->put_NumberImagesPreRecord(pre);
        recorder->Arm(camera.Get());
        if (camera->Live() < 0) {
            recorder->Arm(nullptr);
            std::fprintf(stderr, "lumhost record: the camera does not start\n");
            return 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1000LL * pre / rateOfCamera + 50));
    }
    recorder->Record(camera.Get());
    if (pre == 0 && camera->Live() < 0) {
        recorder->Arm(nullptr);
        std::fprintf(stderr, "lumhost record: the camera does not start\n");
        return 1;
    }
    // A camera that stops delivering (unplugged, say) ends the recording
    // after this long without a new frame.
    const auto stallLimit = std::chrono::milliseconds(5000 + 3000 / rateOfCamera);
    int32_t lastDelivered = -1;
    auto lastProgress = std::chrono::steady_clock::now();
    bool stalled = false;

    // Recorded when the camcorder has left "recording" and its save thread
    // (if any) has written everything.
    Progress progress("recording", frames);
    int32_t first = 0;
    camcorder->get_ActiveIndex(&first);
    for (;;) {
        const int32_t state = StateOf(camcorder.Get());
        int32_t index = first;
        camcorder->get_ActiveIndex(&index);
        progress.Update(format == FileFormatAVI ? 0 : index - first);
        if (state == CameraStateIdle || (recordOptions == 0 && state == CameraStateRecorded)) break;
        if (aravis) {
            int32_t delivered = 0;
            camera->Inquire(20, &delivered);
            const auto now = std::chrono::steady_clock::now();
            if (delivered != lastDelivered) {
                lastDelivered = delivered;
                lastProgress = now;
            } else if (now - lastProgress > stallLimit && state == CameraStateRecording) {
                stalled = true;
                break;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    progress.Finish();
    camera->StopLive();
    if (stalled) {
        recorder->StopRecording();
        recorder->Arm(nullptr);
        std::fprintf(stderr, "lumhost record: the camera delivered no frame for %lld ms (%s); recording stopped\n",
                     static_cast<long long>(stallLimit.count()), AravisCounters(camera.Get()).c_str());
        return 1;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    int32_t last = 0;
    camcorder->get_ActiveIndex(&last);
    recorder->Arm(nullptr);  // unsubscribe from the camera
    if (format == FileFormatAVI) {
        std::printf("recorded %d frames into %ls%s in %.2f s\n", frames, path.c_str(),
                    options.Has("base") ? "/<b>.avi" : ".avi", seconds);
    } else {
        std::printf("recorded %d frames as %s files into %ls (indices %d to %d) in %.2f s, %.1f frames/s\n",
                    last - first, format == FileFormatBMP ? "BMP" : "JPEG", path.c_str(), first, last - 1, seconds,
                    (last - first) / seconds);
    }
    if (aravis) std::printf("camera: %s\n", AravisCounters(camera.Get()).c_str());
    return 0;
}
