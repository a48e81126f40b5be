// CLiveThread<T>: a component's own joinable live thread, which calls the
// component's OnGrab() step after step until it is stopped.
//
// T provides:
//   double OnGrab();      one paced step; returns the milliseconds to wait
//                         before the next one (0 to 5000);
//   bool RunOwnStep(F);   runs a step (CObject), false when T was released
//                         and destroyed inside it;
//   HRESULT get_NumberOfFrames(int32_t*), Grab(int32_t, int16_t, IUnknown*)
//                         for the unpaced mode.
//
// The thread holds no reference to T: T's final release stops and joins it,
// so nothing of a step happens after the host's last Release returns, and
// the wait between steps ends early when a stop is requested. A sink that
// releases T from inside an event of a step destroys it at the end of that
// step, on this thread, which then ends without touching T again. The stop
// request is shared between the component and the thread for that case.
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "lum/types.h"

/// The stop request shared by a component and its live thread.
class LiveStop {
public:
    void Raise() {
        {
            std::lock_guard<std::mutex> hold(m_Mutex);
            m_Raised = true;
        }
        m_Wake.notify_all();
    }
    bool Raised() {
        std::lock_guard<std::mutex> hold(m_Mutex);
        return m_Raised;
    }
    /// Waits `milliseconds` or until the stop is raised; true when raised.
    bool WaitFor(double milliseconds) {
        std::unique_lock<std::mutex> hold(m_Mutex);
        auto pause = std::chrono::duration<double, std::milli>(milliseconds);
        return m_Wake.wait_for(hold, pause, [this] { return m_Raised; });
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Wake;
    bool m_Raised = false;
};

template <class T>
class CLiveThread {
public:
    /// Starts the thread unless one runs; S_OK (also when one runs) or E_FAIL.
    HRESULT StartLiveThread() {
        std::lock_guard<std::mutex> hold(m_LiveMutex);
        ReapEndedThreads();
        if (m_LiveStop) return S_OK;
        auto stop = std::make_shared<LiveStop>();
        auto* start = new Start{static_cast<T*>(this), stop};
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
        int failed = pthread_create(&m_LiveThread, &attributes, &CLiveThread::Run, start);
        pthread_attr_destroy(&attributes);
        if (failed) {
            delete start;
            return E_FAIL;
        }
        m_LiveStop = std::move(stop);
        return S_OK;
    }

    /// Stops the thread and waits for it to end, and for every thread that
    /// was stopped from inside its own step before. Called on the live thread
    /// itself (a sink stopping replay from inside an event), it only raises
    /// the stop: the thread ends after its current step and is joined by the
    /// next start or stop, or by the final release. A final release that runs
    /// on that thread (a sink dropping the last reference inside an event)
    /// detaches it instead.
    void StopLiveThread() {
        std::vector<pthread_t> ended;
        {
            std::lock_guard<std::mutex> hold(m_LiveMutex);
            if (m_LiveStop) {
                m_LiveStop->Raise();
                m_LiveStop.reset();
                m_Ended.push_back(m_LiveThread);
            }
            ended.swap(m_Ended);
        }
        for (pthread_t thread : ended) {
            if (!pthread_equal(thread, pthread_self())) {
                pthread_join(thread, nullptr);
            } else if (m_Destroying.load(std::memory_order_relaxed)) {
                pthread_detach(thread);
            } else {
                std::lock_guard<std::mutex> hold(m_LiveMutex);
                m_Ended.push_back(thread);  // joined later, by another thread
            }
        }
    }

    bool LiveThreadRuns() {
        std::lock_guard<std::mutex> hold(m_LiveMutex);
        return m_LiveStop != nullptr;
    }

protected:
    CLiveThread() = default;
    ~CLiveThread() { StopLiveThreadForGood(); }

    /// The component's final release: stops and joins every thread, or
    /// detaches the calling one.
    void StopLiveThreadForGood() {
        m_Destroying.store(true, std::memory_order_relaxed);
        StopLiveThread();
    }

    /// Ends the thread after its next step; nothing in the player sets it.
    std::atomic<int32_t> m_SingleShot{0};
    /// Pace each step with OnGrab; set at construction.
    std::atomic<int16_t> m_PaceWithOnGrab{1};

private:
    struct Start {
        T* owner;
        std::shared_ptr<LiveStop> stop;
    };

    static void* Run(void* argument) {
        std::unique_ptr<Start> start(static_cast<Start*>(argument));
        Loop(start->owner, *start->stop);
        return nullptr;
    }

    static void Loop(T* owner, LiveStop& stop) {
        int32_t count = 1;
        int32_t index = 0;
        owner->get_NumberOfFrames(&count);
        if (count < 1) count = 1;
        while (!stop.Raised()) {
            double pause = 0;
            bool singleShotEnded = false;
            const bool alive = owner->RunOwnStep([&] {
                if (owner->m_PaceWithOnGrab.load(std::memory_order_relaxed)) {
                    pause = owner->OnGrab();
                    if (owner->m_SingleShot.exchange(0, std::memory_order_relaxed)) {
                        singleShotEnded = true;
                        owner->ForgetLiveThread();
                    }
                } else {
                    owner->Grab(index, 1, nullptr);
                    if (++index >= count) index = 0;
                }
            });
            // Destroyed at the end of the step (its final release ran here
            // and raised the stop): only `stop` is touched afterwards.
            if (!alive || singleShotEnded) return;
            if (pause > 0 && stop.WaitFor(pause)) return;
        }
    }

    /// The thread ends on its own (single shot): the record is cleared, so a
    /// later Live starts a new one, and the thread is joined later.
    void ForgetLiveThread() {
        std::lock_guard<std::mutex> hold(m_LiveMutex);
        if (!m_LiveStop) return;
        m_LiveStop.reset();
        m_Ended.push_back(m_LiveThread);
    }

    /// Joins the stopped threads that have ended; under m_LiveMutex.
    void ReapEndedThreads() {
        std::vector<pthread_t> running;
        for (pthread_t thread : m_Ended)
            if (pthread_equal(thread, pthread_self()) || pthread_tryjoin_np(thread, nullptr) != 0)
                running.push_back(thread);
        m_Ended.swap(running);
    }

    std::mutex m_LiveMutex;
    pthread_t m_LiveThread{};
    std::shared_ptr<LiveStop> m_LiveStop;
    /// Threads stopped from inside their own step, not yet joined.
    std::vector<pthread_t> m_Ended;
    std::atomic<bool> m_Destroying{false};
};
