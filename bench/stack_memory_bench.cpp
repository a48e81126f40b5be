// Resident memory of a stack camcorder that loads a long AVI, against the
// decoded size of the frames it holds.
//
//   stack_memory_bench [--frames N] [--size WxH]
//
// Writes an N-frame 8-bit motion-JPEG AVI (default 2,000 frames of 640x480)
// through "LUMMJPEG", loads it into a stack camcorder through its archive
// side, and prints the growth of resident memory beside the frames' own
// pixel bytes. Run from the output folder.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "tools/lumhost/FrameworkHost.h"

namespace {

/// Resident set size of this process in bytes.
long long ResidentBytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::atoll(line.c_str() + 6) * 1024;
    return -1;
}

SmartPtr<IString> Text(FrameworkHost& host, const std::wstring& text) {
    SmartPtr<IString> s = host.Create<IString>(L"CreatableString", IID_IString);
    s->SetText(static_cast<int32_t>(text.size()), text.c_str());
    return s;
}

}  // namespace

int main(int argc, char** argv) {
    int frames = 2000, width = 640, height = 480;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--frames")) frames = std::atoi(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--size")) std::sscanf(argv[i + 1], "%dx%d", &width, &height);
    }
    FrameworkHost host;
    if (!host.Start()) {
        std::fprintf(stderr, "stack_memory_bench: %s\n", host.Error().c_str());
        return 1;
    }
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("lum-stack-bench-" + std::to_string(getpid()) + ".avi");
    {
        SmartPtr<ICamera> camera = host.Create<ICamera>(L"LUMTestCamera", IID_ICamera);
        SmartPtr<ICreatableSimpleCollection> writer =
            host.Create<ICreatableSimpleCollection>(L"LUMMJPEG", IID_ICreatableSimpleCollection);
        if (!camera || !writer) {
            std::fprintf(stderr, "stack_memory_bench: cannot create the camera or the AVI writer\n");
            return 1;
        }
        camera->Control(1, width);
        camera->Control(2, height);
        camera->Control(3, 8);
        for (int i = 0; i < frames; ++i) {
            camera->Grab(0, 0, nullptr);
            SmartPtr<ILUM> image;
            camera->get_Image(0, image.Out());
            writer->Add(image.Get());
        }
        SmartPtr<IFileArchive> archive = writer.As<IFileArchive>(IID_IFileArchive);
        archive->put_Filename(Text(host, file.wstring()).Get());
        if (archive->Save() < 0) {
            std::fprintf(stderr, "stack_memory_bench: cannot write %s\n", file.c_str());
            return 1;
        }
    }
    SmartPtr<IFileArchive> stack = host.Create<IFileArchive>(L"LUMStackCamcorder", IID_IFileArchive);
    stack->put_Filename(Text(host, file.wstring()).Get());
    const long long before = ResidentBytes();
    stack->Load();
    const long long after = ResidentBytes();

    SmartPtr<ISimpleCollection> images = stack.As<ISimpleCollection>(IID_ISimpleCollection);
    int32_t count = 0;
    images->get_Count(&count);
    long long pixels = 0;
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IUnknown> item;
        images->get_Item(i, item.Out());
        SmartPtr<ILUM> image = QueryAs<ILUM>(item.Get(), IID_ILUM);
        int32_t stride = 0, rows = 0;
        image->get_Stride(&stride);
        image->get_Height(&rows);
        pixels += static_cast<long long>(stride) * rows;
    }
    const long long growth = after - before;
    std::printf("stack loaded from a %d-frame AVI of %dx%d 8-bit frames (%lld bytes on disk)\n", count, width, height,
                static_cast<long long>(std::filesystem::file_size(file)));
    std::printf("  decoded frames' own size : %9.1f MB\n", pixels / 1e6);
    std::printf("  resident memory growth   : %9.1f MB\n", growth / 1e6);
    std::printf("  overhead                 : %9.1f %% (goal: at most 10 %%)\n", 100.0 * (growth - pixels) / pixels);
    std::filesystem::remove(file);
    stack.Reset();
    images.Reset();
    host.Stop();
    return 0;
}
