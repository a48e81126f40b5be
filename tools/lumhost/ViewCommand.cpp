// "view": shows the images of a camera, a recording, a stack or a folder live
// in a window, with the frame number, the measured rate and the camera state
// drawn over them; keys pause, step, reverse and loop. A scripted mode
// (--frames, --keys, --screenshot) drives the window without a keyboard.
#include <SDL.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "tools/lumhost/CameraChoice.h"
#include "tools/lumhost/Commands.h"
#include "tools/lumhost/FolderPlayer.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"
#include "tools/lumhost/ViewCanvas.h"
#include "tools/lumhost/ViewScript.h"
#include "tools/lumhost/ViewSession.h"
#include "tools/lumhost/ViewSources.h"

namespace {

const char* kUsageHead =
    "usage: lumhost view camera [options]\n"
    "       lumhost view play [--folder DIR] [options]\n"
    "       lumhost view stack --in PATH [options]\n"
    "       lumhost view replay FOLDER [options]\n"
    "       lumhost view watch FOLDER [options]\n"
    "Shows the images of a source live in a window, scaled to fit, with the frame\n"
    "number, the measured rate and the camera state drawn over them.\n"
    "camera: a camera, the synthetic camera \"LUMTestCamera\" unless --camera\n"
    "names another\n";
const char* kUsageCamera =
    "  --size WxH      frame size (default 640x480)\n"
    "  --bits N        8, 24 or 32 bits per pixel (default 24)\n"
    "  --fps N         frames per second, 1-1000 (default 25)\n";
const char* kUsageRest =
    "play: a JPEG or BMP recording played back by the camcorder\n"
    "  --folder DIR    recording folder (default ./Images)\n"
    "  --base NAME     base file name of the recording\n"
    "  --format F      jpg or bmp (default jpg)\n"
    "  --fps N         playback speed in frames per second (default 25)\n"
    "  --backward      play from the last frame to the first\n"
    "  --loop          start over at the end\n"
    "stack: an AVI file (a name containing \".avi\") or every image of a folder,\n"
    "loaded into a stack and played from it\n"
    "  --in PATH       the AVI file or the folder\n"
    "  --fps N         images per second (default 25)\n"
    "  --backward      from the last image to the first\n"
    "  --loop          start over at the end\n"
    "replay FOLDER: the images of FOLDER (bmp, jpg, jpeg, png; in name order)\n"
    "replayed as a live camera by the file player, wrapping around\n"
    "  --fps N         images per second (default 25)\n"
    "  --backward      from the last image downwards\n"
    "  --retention N   0 drop each image after showing it (default), 1 rescan\n"
    "                  the folder after each image, 2 keep every image loaded\n"
    "watch FOLDER: each new image of FOLDER as the file grab delivers it\n"
    "window:\n"
    "  --window WxH    window size (default 640x480)\n"
    "keys: space pause/resume, right/left step (a camera grabs one image),\n"
    "r reverse the direction, l loop on/off, q or Escape quit.\n"
    "scripted mode; with any of these the view quits by itself when done:\n"
    "  --frames N      first wait until N images have arrived\n"
    "  --keys STEPS    then run STEPS, separated by blanks or commas: a key\n"
    "                  (space right left r l q escape), wait:MS, frames:N (wait\n"
    "                  for N more images), shot:FILE (save what the window shows)\n"
    "  --screenshot F  then save what the window shows (F.bmp, .png or .jpg)\n"
    "  --timeout S     fail when the script has not finished after S seconds\n"
    "                  (default 60)\n";

void Usage(FILE* out) {
    std::fputs(kUsageHead, out);
    std::fputs(kCameraOptionUsage, out);
    std::fputs(kUsageCamera, out);
    std::fputs(kUsageRest, out);
}

int UsageError(const std::string& message) {
    std::fprintf(stderr, "lumhost view: %s\n\n", message.c_str());
    Usage(stderr);
    return 2;
}

/// Options of the window and the scripted mode.
struct WindowSettings {
    int width = 640;
    int height = 480;
    std::vector<ViewStep> script;
    bool scripted = false;
    double timeout = 60;
};

/// Opens the source named by args[0] with its options; returns the exit
/// code on failure (0 when opened).
int OpenSource(FrameworkHost& host, const std::vector<std::string>& args, std::unique_ptr<ViewSource>& source,
               WindowSettings& window) {
    const std::string kind = args[0];
    std::vector<std::string> rest(args.begin() + 1, args.end());
    std::string folder;
    if ((kind == "replay" || kind == "watch") && !rest.empty() && rest.front().rfind("--", 0) != 0) {
        folder = rest.front();
        rest.erase(rest.begin());
    }
    std::set<std::string> known = {"window", "frames", "keys", "screenshot", "timeout"};
    std::set<std::string> switches = {"help"};
    if (kind == "camera") {
        known.insert({"camera", "size", "bits", "fps"});
    } else if (kind == "play") {
        known.insert({"folder", "base", "format", "fps"});
        switches.insert({"backward", "loop"});
    } else if (kind == "stack") {
        known.insert({"in", "fps"});
        switches.insert({"backward", "loop"});
    } else if (kind == "replay") {
        known.insert({"fps", "retention"});
        switches.insert("backward");
    } else if (kind != "watch") {
        return UsageError("unknown source '" + kind + "' (sources: camera play stack replay watch)");
    }
    Options options(rest, known, switches);
    if (options.Has("help")) {
        Usage(stdout);
        return -1;
    }

    // Window and script.
    options.Size("window", window.width, window.height);
    const int frames = options.Integer("frames", 0, 1, 1000000);
    window.timeout = options.Number("timeout", 60, 0.1, 86400);
    if (!options.Error().empty()) return UsageError(options.Error());
    if (options.Has("frames")) {
        ViewStep wait;
        wait.kind = ViewStep::Frames;
        wait.number = frames;
        window.script.push_back(wait);
    }
    if (options.Has("keys")) {
        std::vector<ViewStep> steps;
        std::string error;
        if (!ParseViewScript(options.Text("keys", ""), steps, error)) return UsageError("--keys: " + error);
        window.script.insert(window.script.end(), steps.begin(), steps.end());
    }
    if (options.Has("screenshot")) {
        ViewStep shot;
        shot.kind = ViewStep::Shot;
        shot.file = options.Text("screenshot", "");
        if (!IsScreenshotName(shot.file))
            return UsageError("--screenshot needs a file name ending in .bmp, .png or .jpg, not '" + shot.file + "'");
        window.script.push_back(shot);
    }
    window.scripted = options.Has("frames") || options.Has("keys") || options.Has("screenshot");

    // The source's own options.
    std::string error;
    const bool backward = options.Has("backward");
    if (kind == "camera") {
        ViewCameraSettings settings;
        settings.camera = options.Text("camera", settings.camera);
        options.Size("size", settings.width, settings.height);
        static const int kBits[] = {8, 24, 32};
        settings.bits = kBits[options.Choice("bits", {"8", "24", "32"}, 1)];
        settings.fps = options.Integer("fps", settings.fps, 1, 1000);
        settings.hasSize = options.Has("size");
        settings.hasBits = options.Has("bits");
        settings.hasFps = options.Has("fps");
        if (!options.Error().empty()) return UsageError(options.Error());
        int exitCode = 1;
        source = OpenCameraSource(host, settings, error, exitCode);
        if (!source && exitCode == 2) return UsageError(error);
    } else if (kind == "play") {
        const int format = options.Choice("format", {"jpg", "bmp"}, 0);
        const double fps = options.Number("fps", 25.0, 0.01, 1000.0);
        if (!options.Error().empty()) return UsageError(options.Error());
        source = OpenPlaySource(host, options.Text("folder", "./Images"), options.Has("base"),
                                options.Text("base", ""), format, fps, backward, options.Has("loop"), error);
    } else if (kind == "stack") {
        const double fps = options.Number("fps", 25.0, 0.01, 1000.0);
        if (!options.Error().empty()) return UsageError(options.Error());
        if (!options.Has("in")) return UsageError("--in is required");
        source = OpenStackSource(host, options.Text("in", ""), fps, backward, options.Has("loop"), error);
    } else if (kind == "replay") {
        const double fps = options.Number("fps", 25.0, 0.01, 10000.0);
        const int retention = options.Integer("retention", 0, 0, 2);
        if (!options.Error().empty()) return UsageError(options.Error());
        if (folder.empty()) return UsageError("which folder?");
        source = OpenReplaySource(host, folder, fps, backward, retention, error);
    } else {
        if (folder.empty()) return UsageError("which folder?");
        source = OpenWatchSource(host, folder, error);
    }
    if (!source) {
        std::fprintf(stderr, "lumhost view: %s\n", error.c_str());
        return 1;
    }
    return 0;
}

std::vector<std::string> OverlayLines(const ViewFrame& frame, double rate, const ViewStatus& status,
                                      const std::string& message) {
    std::vector<std::string> lines;
    lines.push_back(frame.sequence ? frame.frameText : "waiting for images");
    char text[64];
    std::snprintf(text, sizeof text, "%.1f fps", rate);
    lines.emplace_back(text);
    std::string state = status.stateName;
    if (status.hasDirection) state += status.forward ? "  fwd" : "  rev";
    if (status.hasLoop) state += status.loop ? "  loop" : "  once";
    lines.push_back(state);
    if (!frame.name.empty()) lines.push_back(frame.name);
    if (!frame.problem.empty()) lines.push_back(frame.problem);
    if (!message.empty()) lines.push_back(message);
    return lines;
}

/// Draws the canvas into the window's surface and shows it.
bool Present(SDL_Window* window, ViewCanvas& canvas, const ViewFrame& frame, const std::vector<std::string>& lines) {
    SDL_Surface* surface = SDL_GetWindowSurface(window);
    if (!surface) return false;
    if (canvas.Width() != surface->w || canvas.Height() != surface->h) canvas.Resize(surface->w, surface->h);
    canvas.DrawImage(frame.image);
    canvas.DrawOverlay(lines);
    // The canvas's 0x00RRGGBB words are SDL's RGB888 format.
    SDL_Surface* drawn = SDL_CreateRGBSurfaceWithFormatFrom(const_cast<uint32_t*>(canvas.Pixels().data()),
                                                            canvas.Width(), canvas.Height(), 32,
                                                            canvas.Width() * 4, SDL_PIXELFORMAT_RGB888);
    if (!drawn) return false;
    const bool ok = SDL_BlitSurface(drawn, nullptr, surface, nullptr) == 0;
    SDL_FreeSurface(drawn);
    return ok && SDL_UpdateWindowSurface(window) == 0;
}

/// Saves what the window's surface holds through the framework's image
/// classes: a 24-bit "LUMImageDIB" written by "LUMArchive" (format by the
/// file's extension).
bool SaveScreenshot(FrameworkHost& host, SDL_Window* window, const std::string& file, std::string& error) {
    SDL_Surface* surface = SDL_GetWindowSurface(window);
    SDL_Surface* pixels = surface ? SDL_ConvertSurfaceFormat(surface, SDL_PIXELFORMAT_RGB888, 0) : nullptr;
    if (!pixels) {
        error = std::string("cannot read the window: ") + SDL_GetError();
        return false;
    }
    SmartPtr<ILUMImageDIB> image = host.Create<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    SmartPtr<ILUMArchive> archive = host.Create<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    uint8_t* bits = nullptr;
    int32_t stride = 0;
    bool ok = image && archive && image->Create(pixels->w, pixels->h, 24) >= 0 && image->get_Bits(&bits) >= 0 &&
              image->get_Stride(&stride) >= 0 && bits;
    if (ok && SDL_LockSurface(pixels) == 0) {
        for (int y = 0; y < pixels->h; ++y) {
            const auto* row = reinterpret_cast<const uint32_t*>(static_cast<const uint8_t*>(pixels->pixels) +
                                                                static_cast<size_t>(y) * pixels->pitch);
            uint8_t* out = bits + static_cast<size_t>(y) * stride;
            for (int x = 0; x < pixels->w; ++x) {
                out[3 * x] = static_cast<uint8_t>(row[x]);
                out[3 * x + 1] = static_cast<uint8_t>(row[x] >> 8);
                out[3 * x + 2] = static_cast<uint8_t>(row[x] >> 16);
            }
        }
        SDL_UnlockSurface(pixels);
    }
    SDL_FreeSurface(pixels);
    if (!ok) {
        error = "cannot create the framework's image classes";
        return false;
    }
    const std::string path = std::filesystem::absolute(file).lexically_normal().string();
    const HRESULT hr = archive->Write(HostString(host, Widen(path)).Get(), image.Get(), 95);
    if (hr < 0) {
        error = "cannot write " + file + " (" + ResultText(hr) + ")";
        return false;
    }
    return true;
}

SDL_Keycode KeyCode(ViewKey key) {
    switch (key) {
        case ViewKey::Space: return SDLK_SPACE;
        case ViewKey::Right: return SDLK_RIGHT;
        case ViewKey::Left: return SDLK_LEFT;
        case ViewKey::Reverse: return SDLK_r;
        case ViewKey::Loop: return SDLK_l;
        case ViewKey::Quit: return SDLK_q;
    }
    return SDLK_q;
}

/// The window, its loop and the scripted mode.
class ViewWindow {
public:
    ViewWindow(FrameworkHost& host, ViewSource& source, const WindowSettings& settings)
        : m_Host(host), m_Source(source), m_Settings(settings), m_Controller(source) {}

    int Run() {
        // The view draws every pixel itself: the window's plain X11
        // framebuffer shows them as they are, without loading OpenGL.
        SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
        if (SDL_Init(SDL_INIT_VIDEO) != 0) {
            std::fprintf(stderr, "lumhost view: cannot open a window: %s (is DISPLAY set?)\n", SDL_GetError());
            return 1;
        }
        // Without a display SDL falls back to a driver that shows nothing;
        // that is only wanted when asked for by name (SDL_VIDEODRIVER).
        const std::string driver = SDL_GetCurrentVideoDriver() ? SDL_GetCurrentVideoDriver() : "";
        if ((driver == "offscreen" || driver == "dummy") && !SDL_getenv("SDL_VIDEODRIVER")) {
            std::fprintf(stderr,
                         "lumhost view: cannot open a window: no display (is DISPLAY set?); "
                         "SDL_VIDEODRIVER=offscreen runs the scripted mode without one\n");
            SDL_Quit();
            return 1;
        }
        const std::string title = "lumhost view: " + m_Source.Describe();
        m_Window = SDL_CreateWindow(title.c_str(), SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, m_Settings.width,
                                    m_Settings.height, SDL_WINDOW_RESIZABLE);
        if (!m_Window) {
            std::fprintf(stderr, "lumhost view: cannot open a window: %s\n", SDL_GetError());
            SDL_Quit();
            return 1;
        }
        int status = Loop();
        SDL_DestroyWindow(m_Window);
        SDL_Quit();
        return status;
    }

private:
    using Clock = std::chrono::steady_clock;

    int Loop() {
        m_Slot->Attach(&m_Source);
        SmartPtr<IUnknown> sink = CreateViewSink(m_Slot);
        std::string error;
        int status = 0;
        if (!sink || !m_Controller.Start(sink.Get(), error)) {
            std::fprintf(stderr, "lumhost view: %s\n", sink ? error.c_str() : "cannot create the image sink");
            status = 1;
        } else {
            std::printf("showing %s (space pause, arrows step, r reverse, l loop, q quit)\n",
                        m_Source.Describe().c_str());
            std::fflush(stdout);
            status = Events();
        }
        // Stop delivery first; images still on their way find the slot closed.
        m_Controller.Stop();
        m_Slot->Detach();
        return status;
    }

    int Events() {
        const Clock::time_point start = Clock::now();
        Clock::time_point drawnAt{};
        for (;;) {
            SDL_Event event;
            bool got = SDL_WaitEventTimeout(&event, 10) != 0;
            while (got) {
                if (!Handle(event)) return 0;
                got = SDL_PollEvent(&event) != 0;
            }
            if (m_Settings.scripted) {
                if (m_Step >= m_Settings.script.size()) return 0;
                if (m_Settings.timeout > 0 &&
                    std::chrono::duration<double>(Clock::now() - start).count() > m_Settings.timeout) {
                    std::fprintf(stderr,
                                 "lumhost view: the script did not finish within %g s (at step %zu of %zu, %llu "
                                 "images so far)\n",
                                 m_Settings.timeout, m_Step + 1, m_Settings.script.size(),
                                 static_cast<unsigned long long>(m_Slot->Delivered()));
                    return 1;
                }
                const int result = Script();
                if (result >= 0) return result;
            }
            const bool newer = m_Slot->TakeNewer(m_Frame);
            const std::vector<std::string> lines = Lines();
            if (newer || m_Dirty || lines != m_Lines || Clock::now() - drawnAt > std::chrono::milliseconds(250)) {
                m_Lines = lines;
                Present(m_Window, m_Canvas, m_Frame, m_Lines);
                m_Dirty = false;
                drawnAt = Clock::now();
            }
        }
    }

    std::vector<std::string> Lines() {
        Clock::time_point when;
        std::string message = m_Controller.Message(when);
        if (Clock::now() - when > std::chrono::seconds(4)) message.clear();
        return OverlayLines(m_Frame, m_Slot->Rate(Clock::now()), m_Controller.Status(), message);
    }

    /// One window event; false to quit.
    bool Handle(const SDL_Event& event) {
        if (event.type == SDL_QUIT) return false;
        if (event.type == SDL_WINDOWEVENT) {
            if (event.window.event == SDL_WINDOWEVENT_CLOSE) return false;
            m_Dirty = true;  // exposed, resized, ...
            return true;
        }
        if (event.type != SDL_KEYDOWN) return true;
        m_KeyPending = false;
        const bool repeat = event.key.repeat != 0;
        switch (event.key.keysym.sym) {
            case SDLK_q:
            case SDLK_ESCAPE: return false;
            case SDLK_SPACE:
                if (!repeat) m_Controller.Post([](ViewSource& s) { s.TogglePause(); });
                break;
            case SDLK_RIGHT:
            case SDLK_LEFT: {
                const bool forward = event.key.keysym.sym == SDLK_RIGHT;
                // A held key steps no faster than the source can.
                if (m_Controller.Pending() < 2) m_Controller.Post([forward](ViewSource& s) { s.Step(forward); });
                break;
            }
            case SDLK_r:
                if (!repeat) m_Controller.Post([](ViewSource& s) { s.ToggleDirection(); });
                break;
            case SDLK_l:
                if (!repeat) m_Controller.Post([](ViewSource& s) { s.ToggleLoop(); });
                break;
            default: break;
        }
        return true;
    }

    /// Advances the script; returns the exit code when the view should end,
    /// else -1.
    int Script() {
        const ViewStep& step = m_Settings.script[m_Step];
        const Clock::time_point now = Clock::now();
        bool done = false;
        switch (step.kind) {
            case ViewStep::Key:
                // The key goes through the window's event queue like a real one.
                if (!m_StepStarted) {
                    SDL_Event event{};
                    event.type = SDL_KEYDOWN;
                    event.key.windowID = SDL_GetWindowID(m_Window);
                    event.key.state = SDL_PRESSED;
                    event.key.keysym.sym = KeyCode(step.key);
                    m_KeyPending = SDL_PushEvent(&event) == 1;
                    if (!m_KeyPending) {
                        std::fprintf(stderr, "lumhost view: cannot queue key %s: %s\n", ViewKeyName(step.key),
                                     SDL_GetError());
                        return 1;
                    }
                } else {
                    done = !m_KeyPending && m_Controller.Pending() == 0;
                }
                break;
            case ViewStep::Wait:
                if (!m_StepStarted) m_StepStart = now;
                done = now - m_StepStart >= std::chrono::milliseconds(step.number);
                break;
            case ViewStep::Frames:
                if (!m_StepStarted) m_Target = m_Slot->Delivered() + static_cast<uint64_t>(step.number);
                done = m_Slot->Delivered() >= m_Target;
                break;
            case ViewStep::Shot:
                if (m_Controller.Pending() == 0) {
                    m_Controller.WaitIdle(std::chrono::milliseconds(1000));
                    m_Slot->TakeNewer(m_Frame);
                    m_Lines = Lines();
                    Present(m_Window, m_Canvas, m_Frame, m_Lines);
                    std::string error;
                    if (!SaveScreenshot(m_Host, m_Window, step.file, error)) {
                        std::fprintf(stderr, "lumhost view: %s\n", error.c_str());
                        return 1;
                    }
                    std::printf("saved %s: %s, %s\n", step.file.c_str(), m_Lines[0].c_str(), m_Lines[2].c_str());
                    std::fflush(stdout);
                    done = true;
                }
                break;
        }
        m_StepStarted = true;
        if (done) {
            ++m_Step;
            m_StepStarted = false;
        }
        return -1;
    }

    FrameworkHost& m_Host;
    ViewSource& m_Source;
    WindowSettings m_Settings;
    std::shared_ptr<FrameSlot> m_Slot = std::make_shared<FrameSlot>();
    ViewController m_Controller;
    SDL_Window* m_Window = nullptr;
    ViewCanvas m_Canvas;
    ViewFrame m_Frame;
    std::vector<std::string> m_Lines;
    bool m_Dirty = true;
    // The script's position.
    size_t m_Step = 0;
    bool m_StepStarted = false;
    bool m_KeyPending = false;
    Clock::time_point m_StepStart{};
    uint64_t m_Target = 0;
};

}  // namespace

int ViewCommand(FrameworkHost& host, const std::vector<std::string>& args) {
    if (args.empty() || args[0] == "--help" || args[0] == "-h") {
        Usage(args.empty() ? stderr : stdout);
        return args.empty() ? 2 : 0;
    }
    std::unique_ptr<ViewSource> source;
    WindowSettings settings;
    const int opened = OpenSource(host, args, source, settings);
    if (opened < 0) return 0;  // --help
    if (opened > 0) return opened;
    return ViewWindow(host, *source, settings).Run();
}
