#include "module/object/ResourceLock.h"

CResourceLock::CResourceLock() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_init(&m_Mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

CResourceLock::~CResourceLock() {
    if (!m_Deleted) pthread_mutex_destroy(&m_Mutex);
}

int CResourceLock::Lock() { return pthread_mutex_lock(&m_Mutex); }

int CResourceLock::Unlock() { return pthread_mutex_unlock(&m_Mutex); }

int CResourceLock::Delete() {
    if (m_Deleted) return 0;
    m_Deleted = true;
    return pthread_mutex_destroy(&m_Mutex);
}
