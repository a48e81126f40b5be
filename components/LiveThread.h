// CLiveThread<T>: the record of a component's own joinable live thread.
#pragma once

#include <pthread.h>

#include <atomic>
#include <memory>

template <class T>
class CLiveThread {
protected:
    CLiveThread() = default;
    ~CLiveThread() = default;

    pthread_t m_LiveThread{};
    bool m_LiveThreadStarted = false;
    /// Raised to end the thread; allocated by Live, freed by StopLive.
    std::unique_ptr<std::atomic<int32_t>> m_LiveStop;
    int32_t m_SingleShot = 0;
    /// Pace each step with the component's grab.
    int16_t m_PaceWithOnGrab = 1;
};
