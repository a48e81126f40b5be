// Objects of the benchmarks' own, built from the module's object-model
// templates: a sink that counts images and an image archive that writes
// nothing. Included by one source file of each benchmark program.
#pragma once

#include <atomic>

#include "lum/lum.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

/// Counts the images it is given, and does nothing else. Every event of one
/// source arrives on one thread, so the count is a plain relaxed store (no
/// read-modify-write that would weigh on the cost of firing); other threads
/// may read it at any time.
class CountingSink final : public CObject<CountingSink>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(CountingSink)
public:
    HRESULT ImageGrabbed(IUnknown*, IUnknown* image, int32_t) override {
        m_Count.store(m_Count.load(std::memory_order_relaxed) + (image != nullptr), std::memory_order_relaxed);
        return S_OK;
    }
    long Count() const { return m_Count.load(std::memory_order_relaxed); }

private:
    std::atomic<long> m_Count{0};
};

const InterfaceEntry<CountingSink> CountingSink::kInterfaces[] = {
    InterfaceEntry<CountingSink>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<CountingSink>::End(),
};

/// An image archive that writes nothing (it counts the writes) and reads
/// back one fixed image, or fails to read while none is set. Registered as
/// "LUMArchive" to measure the module without the cost of coding.
class NullArchive final : public CObject<NullArchive>, public ILUMArchive {
    LUM_OBJECT_UNKNOWN(NullArchive)
public:
    static inline ILUM* image = nullptr;  // held by the benchmark
    static inline std::atomic<long> writes{0};
    HRESULT Read(IString*, ILUM** out) override {
        if (!out) return E_POINTER;
        *out = image;
        if (!image) return E_FAIL;
        image->AddRef();
        return S_OK;
    }
    HRESULT Write(IString*, ILUM*, int32_t) override {
        writes.fetch_add(1, std::memory_order_relaxed);
        return S_OK;
    }
};

const InterfaceEntry<NullArchive> NullArchive::kInterfaces[] = {
    InterfaceEntry<NullArchive>::Of<ILUMArchive>(IID_ILUMArchive),
    InterfaceEntry<NullArchive>::End(),
};
