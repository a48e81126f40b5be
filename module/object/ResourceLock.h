// CResourceLock: a non-recursive, error-checking mutex. A thread that locks
// it twice gets EDEADLK back instead of blocking.
#pragma once

#include <pthread.h>

class CResourceLock final {
public:
    CResourceLock();
    ~CResourceLock();
    CResourceLock(const CResourceLock&) = delete;
    CResourceLock& operator=(const CResourceLock&) = delete;

    virtual int Lock();
    virtual int Unlock();
    /// Destroys the mutex; the lock must not be used afterwards.
    virtual int Delete();

private:
    pthread_mutex_t m_Mutex;
    bool m_Deleted = false;
};
