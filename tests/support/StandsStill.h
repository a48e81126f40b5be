// Waiting for a value that another thread may still be changing to stop
// changing: a delivery or a stream that was under way when a test stopped
// it can move a count for a moment afterwards.
#pragma once

#include <chrono>
#include <thread>

/// Polls `read` until its value has not changed for `still`; false if that
/// did not happen within `seconds`.
template <class Read>
bool StandsStill(Read read, std::chrono::milliseconds still, double seconds = 20) {
    using Clock = std::chrono::steady_clock;
    const auto deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    auto last = read();
    auto since = Clock::now();
    while (Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const auto now = read();
        if (now != last) {
            last = now;
            since = Clock::now();
        } else if (Clock::now() - since >= still) {
            return true;
        }
    }
    return false;
}
