#include "tools/lumhost/ViewSources.h"

#include <cstdio>
#include <filesystem>

#include "lum/filegrab.h"
#include "tools/lumhost/CameraChoice.h"
#include "tools/lumhost/FolderPlayer.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

namespace {

std::string Absolute(const std::string& path) {
    return std::filesystem::absolute(path).lexically_normal().string();
}

tagREFString View(const std::wstring& text) {
    return tagREFString{static_cast<int32_t>(text.size()), const_cast<wchar_t*>(text.data())};
}

int32_t StateOf(ICamera* camera) {
    CameraStateConstants state = CameraStateIdle;
    camera->get_CameraState(&state);
    return state;
}

int32_t Parameter(ICamera* camera, int32_t code) {
    int32_t value = 0;
    camera->Inquire(code, &value);
    return value;
}

/// The synthetic camera or an Aravis camera.
class CameraSource final : public ViewSource {
public:
    CameraSource(SmartPtr<ICamera> camera, std::string name) : m_Camera(std::move(camera)), m_Name(std::move(name)) {}

    std::string Describe() const override { return m_Name; }

    bool Start(IUnknown* sink, std::string& error) override {
        m_Events = m_Camera.As<IEventSource>(IID_IEventSource);
        if (!m_Events || m_Events->Advise(sink, 1) < 0) {
            error = "the camera delivers no events";
            return false;
        }
        if (m_Camera->Live() < 0) m_Message = "the camera did not start";
        return true;
    }
    void Finish() override {
        m_Camera->StopLive();
        if (m_Events) m_Events->Advise(nullptr, 0);
    }

    void TogglePause() override {
        if (State() == CameraStateLive)
            m_Camera->StopLive();
        else if (m_Camera->Live() < 0)
            m_Message = "the camera did not start";
    }
    void Step(bool) override {
        if (State() == CameraStateLive) m_Camera->StopLive();
        if (m_Camera->Grab(0, 0, nullptr) < 0) m_Message = "the camera grabbed nothing";
    }
    int32_t State() override { return StateOf(m_Camera.Get()); }

    std::string FrameText(int32_t count, uint64_t sequence) override {
        // The synthetic camera numbers its frames in the count; a camera
        // that does not is numbered by the view.
        return "frame " + std::to_string(count > 0 ? static_cast<uint64_t>(count) : sequence);
    }

private:
    SmartPtr<ICamera> m_Camera;
    SmartPtr<IEventSource> m_Events;
    std::string m_Name;
};

/// The camcorder playing a recording back with its own live thread.
class PlaySource final : public ViewSource {
public:
    PlaySource(SmartPtr<ILUMCamcorder> camcorder, std::string folder, int32_t last, bool backward)
        : m_Camcorder(std::move(camcorder)),
          m_Player(m_Camcorder.As<IMMControlEx>(IID_IMMControlEx)),
          m_Folder(std::move(folder)),
          m_Last(last),
          m_StartBackward(backward) {}

    std::string Describe() const override { return "recording " + m_Folder; }

    bool Start(IUnknown* sink, std::string& error) override {
        m_Events = m_Camcorder.As<IEventSource>(IID_IEventSource);
        if (!m_Events || !m_Player || m_Events->Advise(sink, 1) < 0) {
            error = "the camcorder delivers no events";
            return false;
        }
        m_Camcorder->put_PlayDirection(m_StartBackward ? 0 : 1);
        m_Player->Stop();  // before the first image of the direction
        Play();
        return true;
    }
    void Finish() override {
        m_Player->Pause();
        if (m_Events) m_Events->Advise(nullptr, 0);
    }

    void TogglePause() override {
        if (State() == CameraStateLive) {
            m_Player->Pause();
            return;
        }
        Play();
    }
    void Step(bool forward) override {
        if (State() == CameraStateLive) m_Player->Pause();
        const bool direction = Forward();
        HRESULT hr = forward ? m_Player->Next() : m_Player->Previous();
        // With looping on, a step past the end turns around without an
        // image: the step after it shows the first image.
        if (hr < 0 && Loop()) hr = forward ? m_Player->Next() : m_Player->Previous();
        if (hr < 0) m_Message = forward ? "end of the recording" : "start of the recording";
        m_Camcorder->put_PlayDirection(direction ? 1 : 0);
    }
    void ToggleDirection() override { m_Camcorder->put_PlayDirection(Forward() ? 0 : 1); }
    void ToggleLoop() override { m_Player->put_Loop(Loop() ? 0 : 1); }

    bool HasDirection() const override { return true; }
    bool Forward() override {
        int32_t forward = 1;
        m_Camcorder->get_PlayDirection(&forward);
        return forward != 0;
    }
    bool HasLoop() const override { return true; }
    bool Loop() override {
        int32_t loop = 0;
        m_Player->get_Loop(&loop);
        return loop != 0;
    }
    int32_t State() override { return StateOf(m_Camcorder.Get()); }

    std::string FrameText(int32_t, uint64_t) override {
        int32_t index = 0;
        m_Camcorder->get_ActiveIndex(&index);
        return "frame " + std::to_string(index) + "/" + std::to_string(m_Last);
    }

private:
    /// Plays on in the current direction; from the end of the recording
    /// (nothing left that way) it starts over.
    void Play() {
        const bool forward = Forward();
        int32_t index = 0;
        m_Camcorder->get_ActiveIndex(&index);
        if (forward ? index >= m_Last : index <= 0) m_Player->Stop();  // rewinds for the direction
        if (forward)
            m_Player->Play();
        else
            m_Player->Reverse();
    }

    SmartPtr<ILUMCamcorder> m_Camcorder;
    SmartPtr<IMMControlEx> m_Player;
    SmartPtr<IEventSource> m_Events;
    std::string m_Folder;
    int32_t m_Last;
    bool m_StartBackward;
};

/// The stack camcorder: it has no thread of its own, so the control thread
/// paces its steps.
class StackSource final : public ViewSource {
public:
    enum : int32_t { kDirection = 54, kIndex = 55, kLoop = 60 };

    StackSource(SmartPtr<ICamera> stack, std::string in, int32_t count, double fps)
        : m_Stack(std::move(stack)), m_In(std::move(in)), m_Count(count), m_Period(1000.0 / fps) {}

    std::string Describe() const override { return "stack " + m_In; }

    bool Start(IUnknown* sink, std::string& error) override {
        m_Events = m_Stack.As<IEventSource>(IID_IEventSource);
        if (!m_Events || m_Events->Advise(sink, 1) < 0) {
            error = "the stack camcorder delivers no events";
            return false;
        }
        Play(true);
        return true;
    }
    void Finish() override {
        m_Stack->StopLive();
        m_Playing = false;
        if (m_Events) m_Events->Advise(nullptr, 0);
    }

    void TogglePause() override {
        if (m_Playing) {
            m_Stack->StopLive();
            m_Playing = false;
            return;
        }
        Play(false);
    }
    void Step(bool forward) override {
        if (m_Playing) TogglePause();
        const int32_t direction = Parameter(m_Stack.Get(), kDirection);
        m_Stack->Control(kDirection, forward ? 1 : 0);
        m_Stack->Grab(0, 0, nullptr);  // a single step wraps around at the ends
        m_Stack->Control(kDirection, direction);
    }
    void ToggleDirection() override { m_Stack->Control(kDirection, Forward() ? 0 : 1); }
    void ToggleLoop() override { m_Stack->Control(kLoop, Loop() ? 0 : 1); }

    bool HasDirection() const override { return true; }
    bool Forward() override { return Parameter(m_Stack.Get(), kDirection) != 0; }
    bool HasLoop() const override { return true; }
    bool Loop() override { return Parameter(m_Stack.Get(), kLoop) != 0; }
    int32_t State() override { return StateOf(m_Stack.Get()); }

    double TickPeriodMs() override { return m_Playing ? m_Period : 0; }
    void Tick() override {
        if (!m_Playing) return;
        if (m_Stack->Grab(-1, 0, nullptr) < 0) {  // the end, without looping
            m_Stack->StopLive();
            m_Playing = false;
            m_Message = "end of the stack";
        }
    }

    std::string FrameText(int32_t, uint64_t) override {
        return "frame " + std::to_string(Parameter(m_Stack.Get(), kIndex) + 1) + "/" + std::to_string(m_Count);
    }

private:
    /// Starts playing: from the first image (or, backward, the last) at the
    /// start and after the end; else on from where it stopped.
    void Play(bool fromStart) {
        const int32_t index = Parameter(m_Stack.Get(), kIndex);
        const bool forward = Forward();
        const bool atEnd = forward ? index >= m_Count - 1 : index <= 0;
        m_Stack->Live();  // places the index before the first image of the direction
        if (fromStart || atEnd) {
            // Every step moves first: start one before the first image.
            if (forward) m_Stack->Control(kIndex, -1);
        } else {
            m_Stack->Control(kIndex, index);
        }
        m_Playing = true;
    }

    SmartPtr<ICamera> m_Stack;
    SmartPtr<IEventSource> m_Events;
    std::string m_In;
    int32_t m_Count;
    double m_Period;
    bool m_Playing = false;
};

/// The file player replaying a folder with its own live thread.
class ReplaySource final : public ViewSource {
public:
    enum : int32_t { kBackwards = 54, kPosition = 55 };

    ReplaySource(SmartPtr<ICamera> player, std::string folder, int32_t count)
        : m_Player(std::move(player)), m_Folder(std::move(folder)), m_Count(count) {}

    std::string Describe() const override { return "replay " + m_Folder; }

    bool Start(IUnknown* sink, std::string& error) override {
        m_Events = m_Player.As<IEventSource>(IID_IEventSource);
        if (!m_Events || m_Events->Advise(sink, 1) < 0) {
            error = "the file player delivers no events";
            return false;
        }
        if (m_Player->Live() < 0) m_Message = "the file player did not start";
        return true;
    }
    void Finish() override {
        m_Player->StopLive();
        if (m_Events) m_Events->Advise(nullptr, 0);
    }

    void TogglePause() override {
        if (State() == CameraStateLive)
            m_Player->StopLive();
        else if (m_Player->Live() < 0)
            m_Message = "the file player did not start";
    }
    void Step(bool forward) override {
        // A grab of another mode than live stops live replay first.
        const int32_t backwards = Parameter(m_Player.Get(), kBackwards);
        m_Player->Control(kBackwards, forward ? 0 : 1);
        m_Player->Grab(0, 0, nullptr);
        m_Player->Control(kBackwards, backwards);
    }
    void ToggleDirection() override { m_Player->Control(kBackwards, Forward() ? 1 : 0); }
    void ToggleLoop() override { m_Message = "replay always wraps around"; }

    bool HasDirection() const override { return true; }
    bool Forward() override { return Parameter(m_Player.Get(), kBackwards) == 0; }
    bool HasLoop() const override { return true; }
    bool Loop() override { return true; }
    int32_t State() override { return StateOf(m_Player.Get()); }
    const char* StateName(int32_t state) const override {
        return state == CameraStateArmed ? "recording" : ViewSource::StateName(state);
    }

    std::string FrameText(int32_t, uint64_t) override {
        return "frame " + std::to_string(Parameter(m_Player.Get(), kPosition) + 1) + "/" + std::to_string(m_Count);
    }

private:
    SmartPtr<ICamera> m_Player;
    SmartPtr<IEventSource> m_Events;
    std::string m_Folder;
    int32_t m_Count;
};

/// The file grab: each new file of the folder as it is completely written.
class WatchSource final : public ViewSource {
public:
    WatchSource(SmartPtr<IUnknown> grab, std::string folder) : m_Object(std::move(grab)), m_Folder(std::move(folder)) {
        // Its ICamera answer is not laid out as ICamera (include/lum/filegrab.h).
        m_Grab = static_cast<LUMFileGrabCamera*>(m_Object.Get());
    }

    std::string Describe() const override { return "watch " + m_Folder; }

    bool Start(IUnknown* sink, std::string& error) override {
        m_Events = m_Object.As<IEventSource>(IID_IEventSource);
        if (!m_Events || m_Events->Advise(sink, 1) < 0) {
            error = "the file grab delivers no events";
            return false;
        }
        m_Grab->Live();
        return true;
    }
    void Finish() override {
        m_Grab->StopLive();
        if (m_Events) m_Events->Advise(nullptr, 0);
    }

    void TogglePause() override {
        // Files written while paused are listed when watching resumes, not
        // shown.
        if (State() == CameraStateLive)
            m_Grab->StopLive();
        else
            m_Grab->Live();
    }
    void Step(bool) override {
        const bool paused = State() != CameraStateLive;
        // Waits up to 5 s for the next new file.
        if (m_Grab->Grab(0, 1, nullptr) < 0) m_Message = "no new file within 5 s";
        if (paused) m_Grab->StopLive();
    }
    int32_t State() override {
        CameraStateConstants state = CameraStateIdle;
        m_Grab->get_CameraState(&state);
        return state;
    }

    std::string FrameText(int32_t, uint64_t sequence) override { return "image " + std::to_string(sequence); }

private:
    SmartPtr<IUnknown> m_Object;
    LUMFileGrabCamera* m_Grab = nullptr;
    SmartPtr<IEventSource> m_Events;
    std::string m_Folder;
};

}  // namespace

SmartPtr<ICamera> OpenViewCamera(FrameworkHost& host, const ViewCameraSettings& settings, std::string& name,
                                 std::string& error, int& exitCode) {
    CameraRequest request;
    request.camera = settings.camera;
    request.width = settings.width;
    request.height = settings.height;
    request.bits = settings.bits;
    request.fps = settings.fps;
    request.hasSize = settings.hasSize;
    request.hasBits = settings.hasBits;
    request.hasFps = settings.hasFps;
    CameraChoice choice = OpenSourceCamera(host, request);
    if (!choice.camera) {
        error = choice.error;
        exitCode = choice.exitCode ? choice.exitCode : 1;
        return nullptr;
    }
    name = choice.aravis ? choice.description
                         : "synthetic camera " + std::to_string(settings.width) + "x" + std::to_string(settings.height);
    return choice.camera;
}

std::unique_ptr<ViewSource> OpenCameraSource(FrameworkHost& host, const ViewCameraSettings& settings,
                                             std::string& error, int& exitCode) {
    std::string name;
    SmartPtr<ICamera> camera = OpenViewCamera(host, settings, name, error, exitCode);
    if (!camera) return nullptr;
    return std::make_unique<CameraSource>(camera, name);
}

std::unique_ptr<ViewSource> OpenPlaySource(FrameworkHost& host, const std::string& folder, bool hasBase,
                                           const std::string& base, int format, double fps, bool backward,
                                           bool loop, std::string& error) {
    if (!std::filesystem::is_directory(folder)) {
        error = "no folder " + folder;
        return nullptr;
    }
    SmartPtr<ILUMCamcorder> camcorder = host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
    SmartPtr<IMMControlEx> player = camcorder ? camcorder.As<IMMControlEx>(IID_IMMControlEx) : nullptr;
    if (!player) {
        error = "cannot create the camcorder";
        return nullptr;
    }
    SetRecordingFiles(camcorder.Get(), folder, hasBase, base, format);
    camcorder->put_PlayBackSpeed(fps);
    const int32_t last = camcorder->GetLastFileIndex();
    if (last <= 0) {
        error = "no recording of " + std::string(format == FileFormatBMP ? "BMP" : "JPEG") + " files in " + folder;
        return nullptr;
    }
    player->put_Loop(loop ? 1 : 0);
    return std::make_unique<PlaySource>(camcorder, Absolute(folder), last, backward);
}

std::unique_ptr<ViewSource> OpenStackSource(FrameworkHost& host, const std::string& in, double fps, bool backward,
                                            bool loop, std::string& error) {
    const std::string path = Absolute(in);
    if (!std::filesystem::exists(path)) {
        error = "no file or folder " + in;
        return nullptr;
    }
    SmartPtr<ICamera> stack = host.Create<ICamera>(L"LUMStackCamcorder", IID_ICamera);
    SmartPtr<IFileArchive> archive = stack ? stack.As<IFileArchive>(IID_IFileArchive) : nullptr;
    SmartPtr<ISimpleCollection> images = stack ? stack.As<ISimpleCollection>(IID_ISimpleCollection) : nullptr;
    if (!archive || !images) {
        error = "cannot create the stack camcorder";
        return nullptr;
    }
    archive->put_Filename(HostString(host, Widen(path)).Get());
    archive->Load();
    int32_t count = 0;
    images->get_Count(&count);
    // A folder's files that cannot be read stay in the stack without
    // pixels: playing skips them.
    int32_t readable = 0;
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IUnknown> item;
        if (images->get_Item(i, item.Out()) >= 0 && QueryAs<ILUM>(item.Get(), IID_ILUM)) ++readable;
    }
    if (readable == 0) {
        error = "nothing could be read from " + in;
        return nullptr;
    }
    if (readable < count)
        std::fprintf(stderr, "lumhost view: %d of the %d files of %s cannot be read and are skipped\n",
                     count - readable, count, in.c_str());
    stack->Control(StackSource::kDirection, backward ? 0 : 1);
    stack->Control(StackSource::kLoop, loop ? 1 : 0);
    return std::make_unique<StackSource>(stack, path, count, fps);
}

std::unique_ptr<ViewSource> OpenReplaySource(FrameworkHost& host, const std::string& folder, double fps,
                                             bool backward, int retention, std::string& error) {
    FolderPlayer player = OpenFolderPlayer(host, folder, fps, backward, retention);
    if (!player.camera) {
        error = player.error;
        return nullptr;
    }
    if (player.count == 0) {
        error = "no images in " + folder;
        return nullptr;
    }
    return std::make_unique<ReplaySource>(player.camera, Absolute(folder), player.count);
}

std::unique_ptr<ViewSource> OpenWatchSource(FrameworkHost& host, const std::string& folder, std::string& error) {
    if (!std::filesystem::is_directory(folder)) {
        error = "no folder " + folder;
        return nullptr;
    }
    SmartPtr<IUnknown> grab = host.Create<IUnknown>(L"LUMFileGrab", IID_ICamera);
    if (!grab) {
        error = "cannot create the file grab";
        return nullptr;
    }
    const std::string path = Absolute(folder);
    auto* camera = static_cast<LUMFileGrabCamera*>(grab.Get());
    camera->LoadParameters(View(Widen(path)));
    return std::make_unique<WatchSource>(grab, path);
}
