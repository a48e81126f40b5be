// OSThread: a joinable POSIX thread running one start routine.
#pragma once

#include <pthread.h>

#include "lum/types.h"

class OSThread final {
public:
    using Routine = void* (*)(void*);

    OSThread(Routine routine, void* argument) : m_Routine(routine), m_Argument(argument) {}

    /// Creates the thread (explicitly joinable); S_OK or E_FAIL.
    HRESULT Start();
    /// Waits for the thread to end; E_FAIL when it was never started.
    HRESULT Join();
    bool Started() const { return m_Started; }
    pthread_t Handle() const { return m_Handle; }

private:
    pthread_t m_Handle{};
    bool m_Started = false;
    Routine m_Routine;
    void* m_Argument;
};
