// "record": records the synthetic camera through the camcorder.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "tools/lumhost/Commands.h"
#include "tools/lumhost/FolderPlayer.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

namespace {

const char* kUsage =
    "usage: lumhost record [options]\n"
    "Records the synthetic camera (or, with --from, a folder of images replayed by\n"
    "the file player) through the camcorder.\n"
    "  --from DIR      record the images of DIR (in name order) instead of the\n"
    "                  synthetic camera; --size and --bits then do not apply\n"
    "  --frames N      frames to record (default 100; with --from, every image once)\n"
    "  --fps N         camera frames per second, 1-1000 (default 25)\n"
    "  --size WxH      frame size (default 640x480)\n"
    "  --bits N        8, 24 or 32 bits per pixel (default 8)\n"
    "  --format F      jpg, bmp or avi (default jpg)\n"
    "  --folder DIR    recording folder (default ./Images; created if missing)\n"
    "  --base NAME     base file name (only its first character is used in names)\n"
    "  --pre N         arm first and keep N pre-recorded frames (default 0)\n"
    "  --rate N        keep every N-th frame (default 1)\n"
    "  --options N     0 write in the camera's thread, 1 save thread, 2 save thread\n"
    "                  with copies (default 1; avi needs 1 or 2)\n"
    "  --speed N       frame rate stored in an AVI (default 10)\n";

int32_t StateOf(ICamera* camera) {
    int32_t state = -1;
    camera->Inquire(10, &state);
    return state;
}

}  // namespace

int RecordCommand(FrameworkHost& host, const std::vector<std::string>& args) {
    Options options(args, {"from", "frames", "fps", "size", "bits", "format", "folder", "base", "pre", "rate",
                           "options", "speed"},
                    {"help"});
    if (options.Has("help")) {
        std::fputs(kUsage, stdout);
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
    if (options.Error().empty() && format == FileFormatAVI && recordOptions == 0)
        std::fprintf(stderr, "lumhost record: an AVI is written by the save thread: use --options 1 or 2\n");
    if (!options.Error().empty() || (format == FileFormatAVI && recordOptions == 0)) {
        if (!options.Error().empty()) std::fprintf(stderr, "lumhost record: %s\n\n", options.Error().c_str());
        std::fputs(kUsage, stderr);
        return 2;
    }
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        std::fprintf(stderr, "lumhost record: cannot create folder %s: %s\n", folder.c_str(), error.message().c_str());
        return 1;
    }

    SmartPtr<ICamera> camera;
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
        camera = host.Create<ICamera>(L"LUMTestCamera", IID_ICamera);
        static const int kBits[] = {8, 24, 32};
        if (camera) {
            camera->Control(1, width);
            camera->Control(2, height);
            camera->Control(3, kBits[bits]);
            camera->Control(4, fps);
        }
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

    const auto start = std::chrono::steady_clock::now();
    if (pre > 0) {
        recorder->put_NumberImagesPreRecord(pre);
        recorder->Arm(camera.Get());
        camera->Live();
        std::this_thread::sleep_for(std::chrono::milliseconds(1000LL * pre / fps + 50));
    }
    recorder->Record(camera.Get());
    if (pre == 0) camera->Live();

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
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    progress.Finish();
    camera->StopLive();
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
    return 0;
}
