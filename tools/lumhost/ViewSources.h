// What the live view shows: a camera, a recording played back by the
// camcorder, a stack, a folder replayed by the file player or a folder
// watched by the file grab, each behind one small interface that the view's
// control thread drives (pause, step, direction, loop).
//
// Threads: every operation except FrameText runs on the view's control
// thread, one at a time. FrameText runs on the thread that delivers the
// image (the source's own thread, or the control thread while it steps).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "lum/lum.h"

class FrameworkHost;

class ViewSource {
public:
    virtual ~ViewSource() = default;

    /// One line saying what is shown, for the window's title.
    virtual std::string Describe() const = 0;
    /// Subscribes `sink` (an _ICameraEvents) and starts delivery.
    virtual bool Start(IUnknown* sink, std::string& error) = 0;
    /// Stops delivery and unsubscribes every sink.
    virtual void Finish() = 0;

    /// Live or playing: stop; else start (again).
    virtual void TogglePause() = 0;
    /// Shows one image: the next (`forward`) or the previous one; a camera
    /// grabs a new image for either. Stops live delivery first.
    virtual void Step(bool forward) = 0;
    /// Reverses the direction of play, where the source has one.
    virtual void ToggleDirection() { m_Message = "this source has no direction"; }
    /// Switches looping at the end, where the source can.
    virtual void ToggleLoop() { m_Message = "this source does not loop"; }

    virtual bool HasDirection() const { return false; }
    virtual bool Forward() { return true; }
    virtual bool HasLoop() const { return false; }
    virtual bool Loop() { return false; }

    /// The source's camera state (ICamera::get_CameraState).
    virtual int32_t State() = 0;
    virtual const char* StateName(int32_t state) const {
        switch (state) {
            case CameraStateIdle: return "idle";
            case CameraStateGrabbing: return "grabbing";
            case CameraStateLive: return "live";
            case CameraStateArmed: return "armed";
            case CameraStateRecording: return "recording";
            case CameraStateRecorded: return "recorded";
            default: return "unknown";
        }
    }

    /// A source without a thread of its own is paced by the control
    /// thread: Tick every TickPeriodMs() milliseconds while that is above 0.
    virtual double TickPeriodMs() { return 0; }
    virtual void Tick() {}

    /// The first overlay line for an image delivered with the event count
    /// `count`, as the `sequence`-th image of the view (from 1).
    virtual std::string FrameText(int32_t count, uint64_t sequence) = 0;

    /// A note for the user from the last operation ("end of the recording"),
    /// taken once.
    std::string TakeMessage() {
        std::string message;
        message.swap(m_Message);
        return message;
    }

protected:
    std::string m_Message;
};

/// Settings of `view camera`.
struct ViewCameraSettings {
    /// Which camera, as --camera names it: test (the synthetic
    /// "LUMTestCamera"), aravis or aravis:ID.
    std::string camera = "test";
    int width = 640;
    int height = 480;
    int bits = 24;
    int fps = 25;
    /// Which of the values above were given: a real camera keeps its own
    /// settings for the others.
    bool hasSize = false, hasBits = false, hasFps = false;
};

/// The camera of `settings`: the one place where the view turns a camera
/// choice into a camera. On failure `exitCode` is 2 for a bad choice, 1 for
/// a camera that cannot be had.
SmartPtr<ICamera> OpenViewCamera(FrameworkHost& host, const ViewCameraSettings& settings, std::string& name,
                                 std::string& error, int& exitCode);

std::unique_ptr<ViewSource> OpenCameraSource(FrameworkHost& host, const ViewCameraSettings& settings,
                                             std::string& error, int& exitCode);
/// The camcorder's playback of the recording in `folder` (format 0 JPEG, 1 BMP).
std::unique_ptr<ViewSource> OpenPlaySource(FrameworkHost& host, const std::string& folder, bool hasBase,
                                           const std::string& base, int format, double fps, bool backward,
                                           bool loop, std::string& error);
/// An AVI file or a folder of images loaded into a stack camcorder.
std::unique_ptr<ViewSource> OpenStackSource(FrameworkHost& host, const std::string& in, double fps, bool backward,
                                            bool loop, std::string& error);
/// The file player replaying a folder.
std::unique_ptr<ViewSource> OpenReplaySource(FrameworkHost& host, const std::string& folder, double fps,
                                             bool backward, int retention, std::string& error);
/// The file grab watching a folder.
std::unique_ptr<ViewSource> OpenWatchSource(FrameworkHost& host, const std::string& folder, std::string& error);
