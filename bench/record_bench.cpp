// Recording rate of the camcorder with its save thread, against a plain
// libjpeg-turbo encode-and-write loop over the same frames, in one run.
//
//   record_bench [--frames N] [--size WxH] [--folder DIR]
//
// Frames: 1280x1024 8-bit gray from the synthetic camera, JPEG quality 100,
// written to a tmpfs folder (default /dev/shm). Run from the output folder.
#include <cstddef>
#include <cstdio>

#include <jpeglib.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tools/lumhost/FrameworkHost.h"

namespace fs = std::filesystem;

namespace {

struct Frame {
    int width, height, stride;
    std::vector<uint8_t> pixels;
};

double Seconds(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// The reference: one thread, libjpeg-turbo at quality 100, one file per frame.
double PlainLoop(const std::vector<Frame>& frames, const fs::path& folder) {
    jpeg_compress_struct codec;
    jpeg_error_mgr errors;
    codec.err = jpeg_std_error(&errors);
    jpeg_create_compress(&codec);
    const auto start = std::chrono::steady_clock::now();
    int index = 0;
    for (const Frame& frame : frames) {
        char name[32];
        std::snprintf(name, sizeof name, "%04d.jpg", index++);
        FILE* file = std::fopen((folder / name).c_str(), "wb");
        if (!file) {
            std::perror("fopen");
            std::exit(1);
        }
        std::vector<char> buffer(1 << 20);
        std::setvbuf(file, buffer.data(), _IOFBF, buffer.size());
        jpeg_stdio_dest(&codec, file);
        codec.image_width = static_cast<JDIMENSION>(frame.width);
        codec.image_height = static_cast<JDIMENSION>(frame.height);
        codec.input_components = 1;
        codec.in_color_space = JCS_GRAYSCALE;
        jpeg_set_defaults(&codec);
        jpeg_set_quality(&codec, 100, TRUE);
        jpeg_start_compress(&codec, TRUE);
        while (codec.next_scanline < codec.image_height) {
            JSAMPROW row = const_cast<JSAMPROW>(frame.pixels.data() + codec.next_scanline * frame.stride);
            jpeg_write_scanlines(&codec, &row, 1);
        }
        jpeg_finish_compress(&codec);
        std::fclose(file);
    }
    const double seconds = Seconds(start);
    jpeg_destroy_compress(&codec);
    return frames.size() / seconds;
}

int32_t StateOf(ICamera* camera) {
    int32_t state = -1;
    camera->Inquire(10, &state);
    return state;
}

}  // namespace

int main(int argc, char** argv) {
    int count = 300, width = 1280, height = 1024;
    fs::path root = "/dev/shm";
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--frames")) count = std::atoi(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--size")) std::sscanf(argv[i + 1], "%dx%d", &width, &height);
        else if (!std::strcmp(argv[i], "--folder")) root = argv[i + 1];
    }
    FrameworkHost host;
    if (!host.Start()) {
        std::fprintf(stderr, "record_bench: %s\n", host.Error().c_str());
        return 1;
    }
    SmartPtr<ICamera> camera = host.Create<ICamera>(L"LUMTestCamera", IID_ICamera);
    SmartPtr<ILUMCamcorder> camcorder = host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
    if (!camera || !camcorder) {
        std::fprintf(stderr, "record_bench: cannot create the camera or the camcorder\n");
        return 1;
    }
    camera->Control(1, width);
    camera->Control(2, height);
    camera->Control(3, 8);
    camera->Control(4, 1000);

    // The same frames for the reference: taken from the same camera first.
    std::vector<Frame> frames;
    for (int i = 0; i < count; ++i) {
        camera->Grab(0, 0, nullptr);
        SmartPtr<ILUM> image;
        camera->get_Image(0, image.Out());
        Frame frame{};
        uint8_t* bits = nullptr;
        image->get_Width(&frame.width);
        image->get_Height(&frame.height);
        image->get_Stride(&frame.stride);
        image->get_Bits(&bits);
        frame.pixels.assign(bits, bits + static_cast<size_t>(frame.stride) * frame.height);
        frames.push_back(std::move(frame));
    }
    const fs::path plainFolder = root / "lum-bench-plain";
    const fs::path camcorderFolder = root / "lum-bench-camcorder";
    fs::remove_all(plainFolder);
    fs::remove_all(camcorderFolder);
    fs::create_directories(plainFolder);
    fs::create_directories(camcorderFolder);

    const double reference = PlainLoop(frames, plainFolder);

    std::wstring path = camcorderFolder.wstring();
    camcorder->put_Path(tagREFString{static_cast<int32_t>(path.size()), path.data()});
    camcorder->put_RecordOptions(1);
    camcorder->put_RecordasSeparateThreadDelayTime(0);
    camcorder->Control(73, count);
    SmartPtr<ICamcorder> recorder = camcorder.As<ICamcorder>(IID_ICamcorder);
    const auto start = std::chrono::steady_clock::now();
    recorder->Record(camera.Get());
    camera->Live();
    while (StateOf(camcorder.Get()) != CameraStateIdle) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const double seconds = Seconds(start);
    camera->StopLive();
    camcorder.As<ICamcorderArm>(IID_ICamcorderArm)->Arm(nullptr);
    int32_t written = 0;
    camcorder->get_ActiveIndex(&written);
    const double measured = count / seconds;

    std::printf("JPEG recording, %dx%d 8-bit gray, quality 100, %d frames to %s\n", width, height, count,
                root.c_str());
    std::printf("  plain libjpeg-turbo loop, one thread : %7.1f frames/s\n", reference);
    std::printf("  camcorder with save thread           : %7.1f frames/s\n", measured);
    std::printf("  ratio                                : %7.3f (goal: at least 0.95)\n", measured / reference);
    fs::remove_all(plainFolder);
    fs::remove_all(camcorderFolder);
    host.Stop();
    return 0;
}
