// "KitProbe.so": a module that tells the tests how the global collection
// loaded and initialised it. Classes: "KitProbe" and "Other" create a plain
// object answering IUnknown; "Refuses" fails with E_NOTIMPL.
#include <atomic>
#include <cwchar>

#include "lum/lum.h"

namespace {

std::atomic<int> g_InitializeCount{0};
std::atomic<int> g_LiveObjects{0};
IComponentCollection* g_Collection = nullptr;  // as handed over, uncounted

class ProbeObject final : public IUnknown {
public:
    ProbeObject() { ++g_LiveObjects; }
    HRESULT QueryInterface(const IID& iid, void** object) override {
        if (!object) return E_POINTER;
        *object = nullptr;
        if (iid != IID_IUnknown) return E_NOINTERFACE;
        *object = this;
        AddRef();
        return S_OK;
    }
    uint32_t AddRef() override { return ++m_Count; }
    uint32_t Release() override {
        uint32_t count = --m_Count;
        if (count == 0) {
            --g_LiveObjects;
            delete this;
        }
        return count;
    }

private:
    std::atomic<uint32_t> m_Count{1};
};

HRESULT CreateProbe(void*, const IID* iid, void** object) {
    *object = nullptr;
    auto* probe = new ProbeObject();
    HRESULT hr = probe->QueryInterface(*iid, object);
    probe->Release();
    return hr;
}

HRESULT CreateRefusing(void*, const IID*, void** object) {
    *object = nullptr;
    return E_NOTIMPL;
}

bool Is(int32_t length, const wchar_t* name, const wchar_t* wanted) {
    return static_cast<size_t>(length) == std::wcslen(wanted) && std::wmemcmp(name, wanted, length) == 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) HRESULT InitializeModule(void*, IComponentCollection* c) {
    ++g_InitializeCount;
    g_Collection = c;
    return S_OK;
}

extern "C" __attribute__((visibility("default"))) HRESULT CreateFunction(int32_t length, const wchar_t* name,
                                                                         void** creator) {
    if (Is(length, name, L"KitProbe") || Is(length, name, L"Other")) {
        *creator = reinterpret_cast<void*>(&CreateProbe);
        return S_OK;
    }
    if (Is(length, name, L"Refuses")) {
        *creator = reinterpret_cast<void*>(&CreateRefusing);
        return S_OK;
    }
    return E_FAIL;
}

extern "C" __attribute__((visibility("default"))) int KitProbeInitializeCount() { return g_InitializeCount; }
extern "C" __attribute__((visibility("default"))) IComponentCollection* KitProbeCollection() { return g_Collection; }
extern "C" __attribute__((visibility("default"))) int KitProbeLiveObjects() { return g_LiveObjects; }
