#include "framework/LUMArch/WorkerPool.h"

#include <algorithm>

namespace {

// How long an idle thread polls: about one piece of a frame-sized job, and
// the time between two frames of a recording or a replay that runs as fast
// as it can. A recording at a camera's rate finds the threads asleep, which
// costs at most this much processor time per frame.
constexpr std::chrono::microseconds kSpin{1000};

/// Tells the core that this thread is polling.
inline void Relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

}  // namespace

WorkerPool& WorkerPool::Shared() {
    static WorkerPool pool(static_cast<int>(std::max(1u, std::thread::hardware_concurrency())) - 1, kSpin);
    return pool;
}

WorkerPool::WorkerPool(int workers, std::chrono::microseconds spin) : m_Workers(workers), m_Spin(spin) {
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

template <class Ready>
bool WorkerPool::SpinUntil(Ready ready) const {
    if (m_Spin.count() <= 0) return ready();
    const auto until = std::chrono::steady_clock::now() + m_Spin;
    for (;;) {
        for (int i = 0; i < 64; ++i) {
            if (ready()) return true;
            Relax();
        }
        if (std::chrono::steady_clock::now() >= until) return false;
        // Lets another thread that is ready to run on this core go first.
        std::this_thread::yield();
    }
}

int WorkerPool::Claim(Job& job) {
    const int piece = job.next++;
    if (job.next == job.count) {
        m_Queue.erase(std::find(m_Queue.begin(), m_Queue.end(), &job));
        m_Queued.fetch_sub(1, std::memory_order_relaxed);
    }
    return piece;
}

void WorkerPool::Work() {
    std::unique_lock<std::mutex> hold(m_Mutex);
    for (;;) {
        if (m_Queue.empty() && !m_Stopping) {
            hold.unlock();
            SpinUntil([this] {
                return m_Queued.load(std::memory_order_relaxed) > 0 || m_Stopping.load(std::memory_order_relaxed);
            });
            hold.lock();
            m_Wake.wait(hold, [this] { return m_Stopping || !m_Queue.empty(); });
        }
        if (m_Queue.empty()) return;  // stopping, with nothing left to do
        Job& job = *m_Queue.front();
        const int piece = Claim(job);
        const int count = job.count;
        hold.unlock();
        (*job.piece)(piece);
        hold.lock();
        // The job is the caller's, who may return as soon as the count is
        // reached: it is not touched after that.
        if (job.ended.fetch_add(1, std::memory_order_acq_rel) + 1 == count) m_Ended.notify_all();
    }
}

void WorkerPool::Run(int count, const std::function<void(int)>& piece) {
    if (count <= 0) return;
    Job job{&piece, count};
    std::unique_lock<std::mutex> hold(m_Mutex);
    m_Queue.push_back(&job);
    m_Queued.fetch_add(1, std::memory_order_relaxed);
    m_Wake.notify_all();
    while (job.next < job.count) {
        const int mine = Claim(job);
        hold.unlock();
        piece(mine);
        hold.lock();
        job.ended.fetch_add(1, std::memory_order_acq_rel);
    }
    hold.unlock();
    const auto allEnded = [&job, count] { return job.ended.load(std::memory_order_acquire) == count; };
    if (SpinUntil(allEnded)) return;
    hold.lock();
    m_Ended.wait(hold, allEnded);
}
