// Read-ahead of numbered image files. A replay reads "0001.jpg", "0002.jpg",
// ... one after the other, and each JPEG that is not laid out in bands
// decodes on one thread. Once a read continues such a numbered run, the
// next files of the run are decoded ahead on threads of their own, so that
// the replay is served from every core.
//
// What is decoded ahead is only used for a read whose file bytes are exactly
// the bytes that were decoded: a file that changed, vanished or was replaced
// meanwhile is decoded again from what the read found. A guess that the
// replay does not follow costs processor time only.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "framework/LUMArch/CodecTypes.h"
#include "framework/LUMArch/JpegCodec.h"

/// The name that follows `path` in a numbered run: its file name's last run
/// of digits plus one, keeping the digits' width ("a0009.jpg" gives
/// "a0010.jpg", "a99.jpg" gives "a100.jpg"). Empty when the file name has
/// no digits.
std::string NextNumberedName(const std::string& path);

/// Decodes image files ahead of a sequential reader. Thread-safe.
class ReadAhead {
public:
    /// The process's read-ahead, on machines with at least two cores: one
    /// thread per core while a numbered run is read, ending after a second
    /// without work; those still running are joined when the process ends.
    static ReadAhead& Shared();
    /// Decodes on up to `threads` threads (none: reads ahead nothing), at
    /// most `depth` files past the one read last. A thread ends after `idle`
    /// without work; the next file to decode starts it again.
    ReadAhead(int threads, int depth, std::chrono::milliseconds idle);
    ~ReadAhead();
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    /// Hands the pixels decoded ahead from `path` to `target`, if `bytes` are
    /// the bytes they were decoded from, waiting for a decoding under way.
    /// True when it did, with the outcome in `result` (a failure of the
    /// target is passed on, as a decoder does) and whether the file was one
    /// to read ahead after in `sequential`. False when the caller decodes
    /// `bytes` itself.
    bool Serve(const std::string& path, const uint8_t* bytes, size_t size, ImageTarget& target,
               HRESULT& result, bool& sequential);

    /// Notes that the pixels of `path` were read. When it follows a file
    /// read a little before in a numbered run and `sequential` (it decodes
    /// on one thread), the next files of the run are decoded ahead.
    void Follow(const std::string& path, bool sequential);

    /// Files decoded ahead and since handed out (for tests).
    uint64_t Served() const;
    /// Files held: queued, being decoded or decoded (for tests).
    size_t Held() const;
    /// Waits until no file is queued or being decoded (for tests).
    void Settle();
    /// Threads running (for tests).
    int Threads() const;

private:
    struct Entry;
    struct Worker {
        std::thread thread;
        bool ended = false;  // Work has returned or is about to (lock held)
    };

    void Work(Worker& self);
    /// Decodes one entry's file (no lock held).
    static void Decode(Entry& entry);
    /// Schedules `path` unless it is held already (lock held).
    void Schedule(const std::string& path);
    /// Drops held entries beyond the limit, oldest first, never one being
    /// decoded (lock held).
    void Trim();
    /// Keeps a finished entry's buffers for a later one (lock held).
    void Recycle(std::unique_ptr<Entry> entry);
    /// Joins the threads that ended and starts new ones up to the thread
    /// count (lock held).
    void StartThreads();

    const int m_ThreadCount;
    const int m_Depth;
    const std::chrono::milliseconds m_Idle;
    mutable std::mutex m_Mutex;
    std::condition_variable m_Wake;     // an entry was queued, or stop
    std::condition_variable m_Decoded;  // an entry's decoding ended
    bool m_Stopping = false;
    std::vector<std::unique_ptr<Worker>> m_Workers;
    std::deque<std::unique_ptr<Entry>> m_Entries;  // oldest first
    std::vector<std::unique_ptr<Entry>> m_Spare;   // kept for their buffers
    std::deque<std::string> m_Recent;               // paths read last, newest last
    uint64_t m_Served = 0;
};
