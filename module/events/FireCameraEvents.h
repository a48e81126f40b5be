// _FIRECameraEvents<T>: delivers ImageGrabbed to every sink of T's event source.
#pragma once

#include "lum/camera.h"
#include "lum/SmartPtr.h"

template <class T>
class _FIRECameraEvents {
public:
    /// Calls ImageGrabbed(source, image, index) on each sink in order, outside
    /// the owner's lock. The count is read afresh for every sink, so a sink
    /// may advise or unadvise from inside the event; delivery ends at the
    /// first empty slot. Sinks without _ICameraEvents are skipped.
    void Fire_ImageGrabbed(IUnknown* source, IUnknown* image, int32_t index) {
        T* owner = static_cast<T*>(this);
        for (int32_t i = 0;; ++i) {
            SmartPtr<IUnknown> sink = owner->SinkAt(i);
            if (!sink) return;
            SmartPtr<_ICameraEvents> events = sink.template As<_ICameraEvents>(IID__ICameraEvents);
            if (events) events->ImageGrabbed(source, image, index);
        }
    }
};
