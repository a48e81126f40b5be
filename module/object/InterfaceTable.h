// Table-driven QueryInterface, written once for every component.
//
// A component lists, in test order, which identifier is answered by which of
// its parts, or forwarded to which member object. IUnknown is always answered
// first with the primary pointer.
#pragma once

#include "lum/iid.h"
#include "lum/unknown.h"

template <class T>
struct InterfaceEntry {
    const IID* iid;
    /// Pointer to the part that answers; null for a forwarded entry.
    void* (*part)(T*);
    /// Forwards the request to a member object; E_NOINTERFACE when it is absent.
    HRESULT (*forward)(T*, const IID&, void**);

    template <class Part>
    static constexpr InterfaceEntry Of(const IID& id) {
        return {&id, [](T* self) -> void* { return static_cast<Part*>(self); }, nullptr};
    }
    template <auto Member>
    static constexpr InterfaceEntry Forward(const IID& id) {
        return {&id, nullptr, [](T* self, const IID& requested, void** object) -> HRESULT {
                    auto& member = self->*Member;
                    if (!member) return E_NOINTERFACE;
                    return member->QueryInterface(requested, object);
                }};
    }
    static constexpr InterfaceEntry End() { return {nullptr, nullptr, nullptr}; }
};

/// Answers `iid` from T's table: IUnknown first, then the rows in order.
template <class T>
HRESULT QueryInterfaceFromTable(T* self, const InterfaceEntry<T>* table, const IID& iid,
                                void** object) {
    if (!object) return E_POINTER;
    if (iid == IID_IUnknown) {
        *object = self->PrimaryUnknown();
        self->AddRef();
        return S_OK;
    }
    *object = nullptr;
    for (const InterfaceEntry<T>* entry = table; entry->iid; ++entry) {
        if (*entry->iid != iid) continue;
        if (entry->part) {
            *object = entry->part(self);
            self->AddRef();
            return S_OK;
        }
        return entry->forward(self, iid, object);
    }
    return E_NOINTERFACE;
}

/// Generates the IUnknown operations of a component class T whose
/// `static const InterfaceEntry<T> kInterfaces[]` lists what it answers.
#define LUM_OBJECT_UNKNOWN(T)                                                        \
public:                                                                              \
    HRESULT QueryInterface(const IID& iid, void** object) override {                 \
        return QueryInterfaceFromTable<T>(this, kInterfaces, iid, object);           \
    }                                                                                \
    uint32_t AddRef() override { return CObject<T>::InternalAddRef(); }              \
    uint32_t Release() override { return CObject<T>::InternalRelease(); }            \
    IUnknown* PrimaryUnknown() { return static_cast<CObject<T>*>(this); }            \
    static const InterfaceEntry<T> kInterfaces[];                                    \
    friend class CObject<T>;
