#include "module/object/OSThread.h"

HRESULT OSThread::Start() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
    int rc = pthread_create(&m_Handle, &attributes, m_Routine, m_Argument);
    pthread_attr_destroy(&attributes);
    m_Started = rc == 0;
    return rc == 0 ? S_OK : E_FAIL;
}

HRESULT OSThread::Join() {
    if (!m_Started) return E_FAIL;
    m_Started = false;
    return pthread_join(m_Handle, nullptr) == 0 ? S_OK : E_FAIL;
}
