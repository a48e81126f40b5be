// "stack": records a camera (the synthetic one or an Aravis camera) into a
// stack camcorder and saves the
// stack as an image series or one AVI file; or loads a folder of images or
// an AVI file into a stack and plays it back.
#include <cstdio>
#include <filesystem>

#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "tools/lumhost/CameraChoice.h"
#include "tools/lumhost/Commands.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

namespace {

const char* kUsageHead =
    "usage: lumhost stack record --out FILE [--camera C] [--frames N] [--size WxH] [--bits N]\n"
    "                            [--fps N]\n"
    "       lumhost stack play --in FILE_OR_FOLDER [--backward] [--loop]\n"
    "record: records a camera into a stack, one Grab per frame, and saves it: FILE\n"
    "  named like run.png (or .jpg, .bmp) writes run0001.png, run0002.png, ...; FILE\n"
    "  named like clip.avi writes one AVI file (holding the stack's images from the\n"
    "  last down to the second, as the stack camcorder writes it). --frames (default\n"
    "  50), --size (default 320x240), --bits (8, 24 or 32, default 24), --fps (the\n"
    "  camera's frame rate).\n";
const char* kUsageTail =
    "play: loads an AVI file (a name containing \".avi\") or every image of a folder\n"
    "  into a stack and plays it back, reporting each frame.\n";

void Usage(FILE* out) {
    std::fputs(kUsageHead, out);
    std::fputs(kCameraOptionUsage, out);
    std::fputs(kUsageTail, out);
}

class FrameCounter final : public CObject<FrameCounter>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(FrameCounter)
public:
    HRESULT ImageGrabbed(IUnknown*, IUnknown* image, int32_t) override {
        SmartPtr<ILUM> lum = QueryAs<ILUM>(image, IID_ILUM);
        int32_t width = 0, height = 0, bits = 0;
        if (lum) {
            lum->get_Width(&width);
            lum->get_Height(&height);
            lum->get_BitsPerPixel(&bits);
        }
        std::printf("frame %4d: %dx%d, %d bits per pixel\n", ++m_Frames, width, height, bits);
        return S_OK;
    }
    int m_Frames = 0;
};

const InterfaceEntry<FrameCounter> FrameCounter::kInterfaces[] = {
    InterfaceEntry<FrameCounter>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<FrameCounter>::End(),
};

SmartPtr<IString> Text(FrameworkHost& host, const std::wstring& text) {
    SmartPtr<IString> s = host.Create<IString>(L"CreatableString", IID_IString);
    if (s) s->SetText(static_cast<int32_t>(text.size()), text.c_str());
    return s;
}

int Record(FrameworkHost& host, ICamera* stack, const std::vector<std::string>& args) {
    Options options(args, {"out", "camera", "frames", "size", "bits", "fps"});
    const int frames = options.Integer("frames", 50, 1, 100000);
    int width = 320, height = 240;
    options.Size("size", width, height);
    const int bits = options.Choice("bits", {"8", "24", "32"}, 1);
    const int fps = options.Integer("fps", 10, 1, 1000);
    std::string problem = options.Error();
    if (problem.empty() && !options.Has("out")) problem = "--out is required";
    if (problem.empty()) problem = CameraOptionProblem(options);
    if (!problem.empty()) {
        std::fprintf(stderr, "lumhost stack: %s\n\n", problem.c_str());
        Usage(stderr);
        return 2;
    }
    static const int kBits[] = {8, 24, 32};
    CameraChoice choice = OpenSourceCamera(host, RequestFromOptions(options, width, height, kBits[bits], fps));
    if (!choice.camera) {
        std::fprintf(stderr, "lumhost stack: %s\n", choice.error.c_str());
        return choice.exitCode;
    }
    SmartPtr<ICamera> camera = choice.camera;
    SmartPtr<ICamcorder> recorder = QueryAs<ICamcorder>(stack, IID_ICamcorder);
    recorder->Record(camera.Get());
    Progress progress("recording", frames);
    HRESULT grabbed = S_OK;
    for (int i = 0; i < frames && grabbed >= 0; ++i) {
        grabbed = camera->Grab(0, 0, nullptr);
        progress.Update(i + 1);
    }
    progress.Finish();
    recorder->StopRecording();
    if (grabbed < 0) {
        std::fprintf(stderr, "lumhost stack: %s delivered no frame (%s)\n", choice.description.c_str(),
                     ResultText(grabbed).c_str());
        return 1;
    }

    const std::string out = std::filesystem::absolute(options.Text("out", "")).string();
    SmartPtr<IFileArchive> archive = QueryAs<IFileArchive>(stack, IID_IFileArchive);
    archive->put_Filename(Text(host, Widen(out)).Get());
    const HRESULT hr = archive->Save();
    const bool avi = out.size() > 4 && out.compare(out.size() - 4, 4, ".avi") == 0;
    if (avi ? !std::filesystem::exists(out) : hr < 0) {
        std::fprintf(stderr, "lumhost stack: cannot save to %s (%s)\n", out.c_str(), ResultText(hr).c_str());
        return 1;
    }
    std::printf("recorded %d frames into the stack and saved them %s %s\n", frames, avi ? "as" : "as a series from",
                out.c_str());
    return 0;
}

int Play(FrameworkHost& host, ICamera* stack, const std::vector<std::string>& args) {
    Options options(args, {"in"}, {"backward", "loop"});
    if (!options.Error().empty() || !options.Has("in")) {
        std::fprintf(stderr, "lumhost stack: %s\n\n", options.Error().empty() ? "--in is required" : options.Error().c_str());
        Usage(stderr);
        return 2;
    }
    const std::string in = std::filesystem::absolute(options.Text("in", "")).string();
    if (!std::filesystem::exists(in)) {
        std::fprintf(stderr, "lumhost stack: no file or folder %s\n", in.c_str());
        return 1;
    }
    SmartPtr<IFileArchive> archive = QueryAs<IFileArchive>(stack, IID_IFileArchive);
    archive->put_Filename(Text(host, Widen(in)).Get());
    archive->Load();
    int32_t count = 0;
    QueryAs<ISimpleCollection>(stack, IID_ISimpleCollection)->get_Count(&count);
    if (count == 0) {
        std::fprintf(stderr, "lumhost stack: nothing could be read from %s\n", in.c_str());
        return 1;
    }
    void* counterObject = nullptr;
    CObject<FrameCounter>::_CreateInstance(nullptr, &IID__ICameraEvents, &counterObject);
    SmartPtr<_ICameraEvents> counter = SmartPtr<_ICameraEvents>::Adopt(static_cast<_ICameraEvents*>(counterObject));
    SmartPtr<IEventSource> events = QueryAs<IEventSource>(stack, IID_IEventSource);
    events->Advise(counter.Get(), 1);
    stack->Control(54, options.Has("backward") ? 0 : 1);
    stack->Control(60, 0);
    stack->Live();
    // One pass over the stack; with --loop once more around.
    const int steps = options.Has("loop") ? 2 * count : count;
    for (int i = 0; i < steps; ++i) {
        if (i == count) stack->Control(60, 1);
        if (stack->Grab(-1, 0, nullptr) < 0) break;
    }
    stack->StopLive();
    events->Advise(nullptr, 0);
    std::printf("loaded %d images, played %d\n", count, static_cast<FrameCounter*>(counter.Get())->m_Frames);
    return 0;
}

}  // namespace

int StackCommand(FrameworkHost& host, const std::vector<std::string>& args) {
    if (args.empty() || args[0] == "--help") {
        Usage(args.empty() ? stderr : stdout);
        return args.empty() ? 2 : 0;
    }
    SmartPtr<ICamera> stack = host.Create<ICamera>(L"LUMStackCamcorder", IID_ICamera);
    if (!stack) {
        std::fprintf(stderr, "lumhost stack: cannot create the stack camcorder\n");
        return 1;
    }
    const std::vector<std::string> rest(args.begin() + 1, args.end());
    if (args[0] == "record") return Record(host, stack.Get(), rest);
    if (args[0] == "play") return Play(host, stack.Get(), rest);
    std::fprintf(stderr, "lumhost stack: unknown action '%s'\n\n", args[0].c_str());
    Usage(stderr);
    return 2;
}
