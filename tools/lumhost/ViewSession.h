// The live view's threads apart from the window: the sink that takes each
// image off the source's thread, the slot that hands the newest image to the
// window's thread, and the control thread that drives the source.
//
// The window's thread never calls the source and the sink never touches the
// window: the sink copies each image into the slot under the slot's lock,
// and the window's thread copies the newest one out under the same lock.
// Key presses become actions queued for the control thread, so that a slow
// operation (a file grab waiting 5 s for a file) never stalls the window.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "lum/lum.h"
#include "tools/lumhost/ViewCanvas.h"
#include "tools/lumhost/ViewSources.h"

/// The newest image and what the overlay says about it.
struct ViewFrame {
    ViewImage image;
    std::string frameText;
    /// The image's file name without its folder, when it came from a file.
    std::string name;
    /// Images delivered so far; this one is the sequence-th.
    uint64_t sequence = 0;
    /// Why the newest delivery could not be shown, if so.
    std::string problem;
};

class FrameSlot {
public:
    using Clock = std::chrono::steady_clock;

    /// Called on the delivering thread: copies `image` in.
    void Deliver(IUnknown* image, int32_t count);
    /// Stops asking the source for frame text: after this no call reaches it.
    void Detach();
    void Attach(ViewSource* source);

    /// Copies the newest frame into `frame` when it is newer than
    /// `frame.sequence`; returns whether it did.
    bool TakeNewer(ViewFrame& frame);
    uint64_t Delivered();
    /// Images per second over the last seconds (0 when they stopped coming).
    double Rate(Clock::time_point now);

private:
    std::mutex m_Mutex;
    ViewSource* m_Source = nullptr;
    ViewFrame m_Frame;
    /// Arrival times of the latest images, oldest first.
    std::deque<Clock::time_point> m_Arrivals;
};

/// Creates the _ICameraEvents sink that feeds `slot` (which it shares).
SmartPtr<IUnknown> CreateViewSink(const std::shared_ptr<FrameSlot>& slot);

/// What the overlay shows of the source's state.
struct ViewStatus {
    int32_t state = 0;
    std::string stateName = "idle";
    bool hasDirection = false;
    bool forward = true;
    bool hasLoop = false;
    bool loop = false;
};

/// Runs the source's operations on a thread of its own, one at a time.
class ViewController {
public:
    explicit ViewController(ViewSource& source) : m_Source(source) {}
    ~ViewController() { Stop(); }

    /// Starts the thread and the source; false (with the reason) when the
    /// source did not start.
    bool Start(IUnknown* sink, std::string& error);
    /// Finishes the source (stops delivery, unsubscribes) and joins.
    void Stop();

    void Post(std::function<void(ViewSource&)> action);
    /// Actions queued or running.
    size_t Pending();
    /// Waits until every queued action has run and the status is fresh.
    bool WaitIdle(std::chrono::milliseconds limit);

    ViewStatus Status();
    /// The latest note of the source, with the time it was made.
    std::string Message(std::chrono::steady_clock::time_point& when);

private:
    void Run();
    void Publish();

    ViewSource& m_Source;
    std::thread m_Thread;
    std::mutex m_Mutex;
    std::condition_variable m_Wake;
    std::condition_variable m_Idle;
    std::deque<std::function<void(ViewSource&)>> m_Queue;
    bool m_Busy = false;
    bool m_Stopping = false;
    ViewStatus m_Status;
    std::string m_Message;
    std::chrono::steady_clock::time_point m_MessageTime;
};
