// A small pool of threads, one per core besides the caller, that runs the
// pieces of one job together with the calling thread. Shared by everything
// in a module that splits one image over the cores.
//
// A thread that runs out of work polls for a short while before it sleeps:
// the next job of a recording or a replay usually comes within that time,
// and a sleeping thread must be woken from another core, which on a virtual
// machine can cost more than a piece of work and leaves its core's caches
// to whatever ran there meanwhile.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class WorkerPool {
public:
    /// The process's pool, started on first use; its threads are stopped and
    /// joined when the process ends.
    static WorkerPool& Shared();
    /// A pool of `workers` threads that poll for `spin` before they sleep.
    WorkerPool(int workers, std::chrono::microseconds spin);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Threads that work on one job: the pool's and the caller's.
    int Threads() const { return m_Workers + 1; }

    /// Runs piece(0) .. piece(count - 1) on the pool and on the calling
    /// thread; returns when every piece has ended, with what they wrote
    /// visible to the caller. Pieces must not throw. Several threads may
    /// run jobs at once; their pieces are handed out in the jobs' order.
    void Run(int count, const std::function<void(int)>& piece);

private:
    struct Job {
        const std::function<void(int)>* piece;
        int count;
        int next = 0;                // the next piece to hand out (lock held)
        std::atomic<int> ended{0};   // pieces that have ended
    };

    void Work();
    /// Hands out the next piece of `job` (lock held); the job leaves the
    /// queue with its last piece.
    int Claim(Job& job);
    /// Polls `ready` for up to the spin time; true as soon as it holds.
    template <class Ready>
    bool SpinUntil(Ready ready) const;

    const int m_Workers;
    const std::chrono::microseconds m_Spin;
    std::vector<std::thread> m_Threads;
    std::atomic<bool> m_Stopping{false};
    std::atomic<int> m_Queued{0};  // jobs in m_Queue, read without the lock while polling
    std::mutex m_Mutex;
    std::condition_variable m_Wake;
    std::condition_variable m_Ended;
    std::deque<Job*> m_Queue;
};
