#include "framework/LUMArch/WorkerPool.h"

#include <algorithm>
#include <thread>

WorkerPool& WorkerPool::Shared() {
    static WorkerPool pool(static_cast<int>(std::max(1u, std::thread::hardware_concurrency())) - 1);
    return pool;
}

WorkerPool::WorkerPool(int workers) : m_Workers(workers) {
    for (int i = 0; i < workers; ++i) m_Threads.emplace_back([this] { Work(); });
}

WorkerPool::~WorkerPool() {
    {
        std::lock_guard<std::mutex> hold(m_Mutex);
        m_Stopping = true;
    }
    m_Wake.notify_all();
    for (std::thread& thread : m_Threads) thread.join();
}

int WorkerPool::Claim(Job& job) {
    const int piece = job.next++;
    if (job.next == job.count) m_Queue.erase(std::find(m_Queue.begin(), m_Queue.end(), &job));
    return piece;
}

void WorkerPool::Work() {
    std::unique_lock<std::mutex> hold(m_Mutex);
    for (;;) {
        m_Wake.wait(hold, [this] { return m_Stopping || !m_Queue.empty(); });
        if (m_Queue.empty()) return;  // stopping, with nothing left to do
        Job& job = *m_Queue.front();
        const int piece = Claim(job);
        hold.unlock();
        (*job.piece)(piece);
        hold.lock();
        // The job is the caller's: it is not touched after its last piece ended.
        if (++job.ended == job.count) m_Ended.notify_all();
    }
}

void WorkerPool::Run(int count, const std::function<void(int)>& piece) {
    if (count <= 0) return;
    Job job{&piece, count};
    std::unique_lock<std::mutex> hold(m_Mutex);
    m_Queue.push_back(&job);
    m_Wake.notify_all();
    while (job.next < job.count) {
        const int mine = Claim(job);
        hold.unlock();
        piece(mine);
        hold.lock();
        ++job.ended;
    }
    m_Ended.wait(hold, [&job] { return job.ended == job.count; });
}
