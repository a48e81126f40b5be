// CObject<T>: the reference-counted base of every component.
//
// Primary table: QueryInterface, AddRef, Release, FinalConstruct,
// FinalRelease, Lock, Unlock, then the component's own operations. The
// component supplies QueryInterface/AddRef/Release (LUM_OBJECT_UNKNOWN) so
// that one override serves the IUnknown slots of every interface it derives.
#pragma once

#include <atomic>
#include <new>

#include "lum/SmartPtr.h"
#include "lum/iid.h"
#include "lum/unknown.h"

template <class T>
class CObject : public IUnknown {
public:
    HRESULT QueryInterface(const IID&, void** object) override {
        if (object) *object = nullptr;
        return E_NOINTERFACE;
    }
    uint32_t AddRef() override { return InternalAddRef(); }
    uint32_t Release() override { return InternalRelease(); }
    /// Declares parameters and creates subordinate objects; a failure aborts creation.
    virtual HRESULT FinalConstruct() { return S_OK; }
    /// Stops threads and gives back what FinalConstruct took; runs exactly once.
    virtual void FinalRelease() {}
    /// Guard of the component's shared state; the base has none.
    virtual HRESULT Lock() { return S_OK; }
    virtual HRESULT Unlock() { return S_OK; }

    /// Creation function of the class: construct, FinalConstruct, ask for
    /// `*iid`; the caller receives the only reference or a failure code.
    static HRESULT _CreateInstance(void* outer, const IID* iid, void** object);
    /// The same for callers that know the class (hosts of their own objects,
    /// tests): the new object, its only reference held by the result; null
    /// when its construction failed.
    static SmartPtr<T> New() {
        void* unknown = nullptr;
        if (_CreateInstance(nullptr, &IID_IUnknown, &unknown) < 0 || !unknown) return {};
        return SmartPtr<T>::Adopt(static_cast<T*>(static_cast<CObject<T>*>(static_cast<IUnknown*>(unknown))));
    }

    /// Runs one step of the component's own thread, which holds no reference.
    /// A last Release made inside the step on this thread (a sink releasing
    /// the component from inside an event) does not destroy the object under
    /// the step's feet: the destruction runs when the step returns, still on
    /// this thread, and the result is false; the caller must not touch the
    /// object again. A last Release from another thread destroys at once:
    /// the component's FinalRelease stops the thread and waits for the step,
    /// so that nothing of the step happens after that Release returns.
    template <class Step>
    bool RunOwnStep(Step&& step) {
        const void* outer = t_StepObject;
        t_StepObject = this;
        step();
        t_StepObject = outer;
        if (!m_DestroyAfterStep.load(std::memory_order_relaxed)) return true;
        Destroy();
        return false;
    }

    /// The current count, for tests and diagnostics.
    int32_t RefCount() const { return m_RefCount.load(std::memory_order_relaxed); }

protected:
    CObject() = default;
    ~CObject() = default;
    CObject(const CObject&) = delete;
    CObject& operator=(const CObject&) = delete;

    uint32_t InternalAddRef() {
        m_RefCount.fetch_add(1);
        return static_cast<uint32_t>(m_RefCount.load(std::memory_order_relaxed));
    }
    uint32_t InternalRelease() {
        // Both the zero test and the returned count come from the decrement
        // itself: re-reading the count afterwards could touch an object that
        // another thread has just destroyed.
        int32_t remaining = m_RefCount.fetch_sub(1) - 1;
        if (remaining != 0) return static_cast<uint32_t>(remaining);
        // Teardown may hand the object to others, who AddRef and Release it
        // (an event source asking a sink for its identity while the sink
        // unadvises itself): park the count far from zero so that those
        // calls can never start a second destruction.
        m_RefCount.store(kDestroying, std::memory_order_relaxed);
        if (t_StepObject == this)
            m_DestroyAfterStep.store(true, std::memory_order_relaxed);  // see RunOwnStep
        else
            Destroy();
        return 0;
    }

private:
    void Destroy() {
        T* self = static_cast<T*>(this);
        self->FinalRelease();
        delete self;
    }

    static constexpr int32_t kDestroying = 1 << 30;
    /// The object whose own-thread step runs on the calling thread, if any.
    /// Initial-exec: one pointer of the static TLS reserve, read without a
    /// call into the dynamic loader (the module needs nothing of it).
    [[gnu::tls_model("initial-exec")]] static inline thread_local const void* t_StepObject = nullptr;
    std::atomic<int32_t> m_RefCount{1};
    std::atomic<bool> m_DestroyAfterStep{false};
};

template <class T>
HRESULT CObject<T>::_CreateInstance(void* /*outer*/, const IID* iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!iid) return E_POINTER;
    T* instance = new (std::nothrow) T();
    if (!instance) return E_FAIL;
    HRESULT hr = instance->FinalConstruct();
    if (hr != S_OK) {
        instance->FinalRelease();
        delete instance;
        return hr;
    }
    hr = instance->QueryInterface(*iid, object);
    if (hr >= 0) {
        // Drop the creation reference: the caller now holds the only one.
        instance->InternalRelease();
        if (hr == S_OK) return hr;
    }
    *object = nullptr;
    instance->FinalRelease();
    delete instance;
    return hr;
}
