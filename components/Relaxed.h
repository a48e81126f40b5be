// Relaxed<T>: a value shared between a component's threads without a lock.
//
// It reads and writes like a plain T, with relaxed atomic order, and has the
// size and layout of T, so a parameter record may point at it as at a T.
#pragma once

#include <atomic>

template <class T>
class Relaxed {
public:
    Relaxed() = default;
    Relaxed(T value) : m_Value(value) {}
    Relaxed(const Relaxed&) = delete;
    Relaxed& operator=(const Relaxed&) = delete;

    operator T() const { return m_Value.load(std::memory_order_relaxed); }
    Relaxed& operator=(T value) {
        m_Value.store(value, std::memory_order_relaxed);
        return *this;
    }
    T operator++() { return m_Value.fetch_add(1, std::memory_order_relaxed) + 1; }
    T operator--() { return m_Value.fetch_sub(1, std::memory_order_relaxed) - 1; }
    /// A store that publishes everything this thread wrote before it to a
    /// thread that reads the value with LoadAcquire.
    void StoreRelease(T value) { m_Value.store(value, std::memory_order_release); }
    T LoadAcquire() const { return m_Value.load(std::memory_order_acquire); }
    /// The address a parameter record points at.
    void* Address() { return &m_Value; }

private:
    std::atomic<T> m_Value{};
    static_assert(sizeof(std::atomic<T>) == sizeof(T), "a shared value keeps the layout of its type");
};
