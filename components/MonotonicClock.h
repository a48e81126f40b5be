// A clock for pacing and intervals that never jumps with the wall clock.
#pragma once

#include <chrono>
#include <cstdint>

/// Microseconds of the steady clock.
inline int64_t MonotonicMicroseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
