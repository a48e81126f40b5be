// Keeps objects that are costly to make again (grown buffers) from one use
// to the next, for whichever thread asks next. Thread-safe.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

template <class T>
class Recycler {
public:
    /// Keeps at most `most` objects.
    explicit Recycler(size_t most) : m_Most(most) {}

    /// A kept object, or a new one (which may throw std::bad_alloc).
    std::unique_ptr<T> Take() {
        {
            std::lock_guard<std::mutex> hold(m_Mutex);
            if (!m_Kept.empty()) {
                std::unique_ptr<T> object = std::move(m_Kept.back());
                m_Kept.pop_back();
                return object;
            }
        }
        return std::make_unique<T>();
    }

    /// Keeps `object` for a later Take, or lets it go when enough are kept.
    void Give(std::unique_ptr<T> object) {
        if (!object) return;
        std::lock_guard<std::mutex> hold(m_Mutex);
        if (m_Kept.size() < m_Most) m_Kept.push_back(std::move(object));
    }

private:
    const size_t m_Most;
    std::mutex m_Mutex;
    std::vector<std::unique_ptr<T>> m_Kept;
};
