// A small pool of threads, one per core besides the caller, that runs the
// pieces of one job together with the calling thread. Shared by everything
// in a module that splits one image over the cores.
#pragma once

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
    ~WorkerPool();

    /// Threads that work on one job: the pool's and the caller's.
    int Threads() const { return m_Workers + 1; }

    /// Runs piece(0) .. piece(count - 1) on the pool and on the calling
    /// thread; returns when every piece has ended. Pieces must not throw.
    void Run(int count, const std::function<void(int)>& piece);

private:
    struct Job {
        const std::function<void(int)>* piece;
        int count;
        int next = 0;   // the next piece to hand out
        int ended = 0;  // pieces that have ended
    };

    explicit WorkerPool(int workers);
    void Work();
    /// Hands out the next piece of `job` (lock held); the job leaves the
    /// queue with its last piece.
    int Claim(Job& job);

    int m_Workers;
    std::vector<std::thread> m_Threads;
    bool m_Stopping = false;
    std::mutex m_Mutex;
    std::condition_variable m_Wake;
    std::condition_variable m_Ended;
    std::deque<Job*> m_Queue;
};
