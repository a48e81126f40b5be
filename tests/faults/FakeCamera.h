// A camera for fault tests: an event source whose ImageGrabbed can be fired
// with any object, from any thread, as often as wanted.
#pragma once

#include <mutex>
#include <vector>

#include "tests/support/Fakes.h"

namespace faults {

/// Keeps its sinks with a reference, as the framework's cameras do, and
/// fires each event outside its lock, holding a reference to every sink
/// for the duration of the call.
class FakeCamera final : public CObject<FakeCamera>, public IEventSource {
    LUM_OBJECT_UNKNOWN(FakeCamera)
public:
    HRESULT Advise(IUnknown* sink, int32_t flags) override {
        if (!sink) return E_POINTER;
        std::lock_guard<std::mutex> guard(m_Lock);
        IUnknown* identity = nullptr;
        sink->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity));
        SmartPtr<IUnknown> key = SmartPtr<IUnknown>::Adopt(identity);
        for (auto it = m_Sinks.begin(); it != m_Sinks.end(); ++it) {
            if (it->Get() != key.Get()) continue;
            if (flags == 0) m_Sinks.erase(it);
            return flags == 0 ? S_OK : S_FALSE;
        }
        if (flags == 0) return E_FAIL;
        m_Sinks.push_back(key);
        return S_OK;
    }
    HRESULT GetAdviseCount() override {
        std::lock_guard<std::mutex> guard(m_Lock);
        return static_cast<HRESULT>(m_Sinks.size());
    }
    HRESULT GetAdviseItem(uint32_t index, IUnknown** sink, int32_t* flags) override {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (!sink) return E_POINTER;
        *sink = nullptr;
        if (index >= m_Sinks.size()) return E_FAIL;
        *sink = m_Sinks[index].Get();
        (*sink)->AddRef();
        if (flags) *flags = 1;
        return S_OK;
    }

    /// ImageGrabbed(this camera, image, count) to every sink.
    void Fire(IUnknown* image, int32_t count) {
        std::vector<SmartPtr<IUnknown>> sinks;
        {
            std::lock_guard<std::mutex> guard(m_Lock);
            sinks = m_Sinks;
        }
        for (const SmartPtr<IUnknown>& sink : sinks)
            if (SmartPtr<_ICameraEvents> events = QueryAs<_ICameraEvents>(sink.Get(), IID__ICameraEvents))
                events->ImageGrabbed(PrimaryUnknown(), image, count);
    }

private:
    std::mutex m_Lock;
    std::vector<SmartPtr<IUnknown>> m_Sinks;
};

inline const InterfaceEntry<FakeCamera> FakeCamera::kInterfaces[] = {
    InterfaceEntry<FakeCamera>::Of<IEventSource>(IID_IEventSource),
    InterfaceEntry<FakeCamera>::End(),
};

}  // namespace faults
