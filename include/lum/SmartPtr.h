// Owning interface pointer: releases on destruction and on reassignment.
#pragma once

#include <utility>

#include "lum/iid.h"
#include "lum/unknown.h"

template <class I>
class SmartPtr {
public:
    SmartPtr() = default;
    SmartPtr(std::nullptr_t) {}
    /// Takes a new reference to `p`.
    explicit SmartPtr(I* p) : m_p(p) { if (m_p) m_p->AddRef(); }
    SmartPtr(const SmartPtr& other) : SmartPtr(other.m_p) {}
    SmartPtr(SmartPtr&& other) noexcept : m_p(other.m_p) { other.m_p = nullptr; }
    ~SmartPtr() { Reset(); }

    SmartPtr& operator=(const SmartPtr& other) {
        if (this != &other) Assign(other.m_p);
        return *this;
    }
    SmartPtr& operator=(SmartPtr&& other) noexcept {
        if (this != &other) {
            I* old = m_p;
            m_p = other.m_p;
            other.m_p = nullptr;
            if (old) old->Release();
        }
        return *this;
    }
    SmartPtr& operator=(std::nullptr_t) { Reset(); return *this; }

    /// Adopts a pointer that already carries a reference for us.
    static SmartPtr Adopt(I* p) { SmartPtr s; s.m_p = p; return s; }

    /// Replaces the held pointer by `p` with a new reference.
    void Assign(I* p) {
        if (p) p->AddRef();
        I* old = m_p;
        m_p = p;
        if (old) old->Release();
    }
    void Reset() {
        I* old = m_p;
        m_p = nullptr;
        if (old) old->Release();
    }
    /// Gives up ownership without releasing.
    I* Detach() { I* p = m_p; m_p = nullptr; return p; }
    /// Address for an out-argument; releases what was held first.
    I** Out() { Reset(); return &m_p; }
    void** OutVoid() { return reinterpret_cast<void**>(Out()); }

    I* Get() const { return m_p; }
    I* operator->() const { return m_p; }
    explicit operator bool() const { return m_p != nullptr; }

    /// Hands out a counted copy through an out-argument.
    void CopyTo(I** out) const { *out = m_p; if (m_p) m_p->AddRef(); }

    /// Asks the held object for another interface.
    template <class J>
    SmartPtr<J> As(const IID& iid) const {
        SmartPtr<J> result;
        if (m_p) m_p->QueryInterface(iid, result.OutVoid());
        return result;
    }

private:
    I* m_p = nullptr;
};

/// Asks any object for an interface; null in, null out.
template <class J>
SmartPtr<J> QueryAs(IUnknown* object, const IID& iid) {
    SmartPtr<J> result;
    if (object) object->QueryInterface(iid, result.OutVoid());
    return result;
}
