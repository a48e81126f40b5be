// The pool that runs the pieces of one image on every core: each piece runs
// exactly once, what the pieces wrote is there when Run returns, several
// threads may run jobs at once, and a pool stops whether its threads poll
// or sleep.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "framework/LUMArch/WorkerPool.h"

namespace {

using std::chrono::microseconds;

/// Runs jobs of 1 to 40 pieces; each piece writes its own slot (plain
/// memory: Run must make it visible) and counts its runs.
void RunJobsOfEverySize(WorkerPool& pool) {
    for (int count = 1; count <= 40; ++count) {
        std::vector<int> written(static_cast<size_t>(count), 0);
        std::vector<std::atomic<int>> runs(static_cast<size_t>(count));
        pool.Run(count, [&](int piece) {
            written[static_cast<size_t>(piece)] = piece + 1;
            runs[static_cast<size_t>(piece)].fetch_add(1);
        });
        for (int piece = 0; piece < count; ++piece) {
            ASSERT_EQ(piece + 1, written[static_cast<size_t>(piece)]) << count << " pieces";
            ASSERT_EQ(1, runs[static_cast<size_t>(piece)].load()) << count << " pieces";
        }
    }
}

TEST(WorkerPool, EveryPieceRunsOnceAndItsWritesAreSeenWhetherThreadsPollOrSleep) {
    for (const microseconds spin : {microseconds(0), microseconds(1000), microseconds(100000)}) {
        SCOPED_TRACE(spin.count());
        WorkerPool pool(2, spin);
        EXPECT_EQ(3, pool.Threads());
        RunJobsOfEverySize(pool);
        // Jobs that come after the threads went to sleep are still run.
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        RunJobsOfEverySize(pool);
    }
}

TEST(WorkerPool, PiecesRunOnTheCallerAndOnThePoolTogether) {
    WorkerPool pool(1, microseconds(1000));
    // Two pieces that wait for each other end only if two threads run them.
    std::atomic<int> arrived{0};
    pool.Run(2, [&](int) {
        arrived.fetch_add(1);
        while (arrived.load() < 2) std::this_thread::yield();
    });
    EXPECT_EQ(2, arrived.load());
}

TEST(WorkerPool, SeveralCallersShareThePool) {
    WorkerPool pool(2, microseconds(1000));
    std::atomic<long> total{0};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < 4; ++caller)
        callers.emplace_back([&pool, &total] {
            for (int job = 0; job < 200; ++job) {
                std::vector<int> done(7, 0);
                pool.Run(7, [&](int piece) { done[static_cast<size_t>(piece)] = 1; });
                long sum = 0;
                for (int value : done) sum += value;
                total.fetch_add(sum);
            }
        });
    for (std::thread& caller : callers) caller.join();
    EXPECT_EQ(4 * 200 * 7, total.load());
}

TEST(WorkerPool, StopsPromptlyWhileItsThreadsPoll) {
    const auto start = std::chrono::steady_clock::now();
    {
        // Threads that would poll for a minute: stopping must not wait for it.
        WorkerPool pool(2, std::chrono::minutes(1));
        pool.Run(4, [](int) {});
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(WorkerPool, NoPiecesIsNoWork) {
    WorkerPool pool(1, microseconds(0));
    bool ran = false;
    pool.Run(0, [&](int) { ran = true; });
    pool.Run(-3, [&](int) { ran = true; });
    EXPECT_FALSE(ran);
}

}  // namespace
