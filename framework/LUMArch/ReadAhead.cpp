#include "framework/LUMArch/ReadAhead.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <new>

#include "framework/LUMArch/ImageCodec.h"
#include "framework/LUMImage/Pixels.h"

namespace {

// Images larger than this are not decoded ahead: holding a few of them
// would take more memory than the replay gains.
constexpr int64_t kMostPixelBytes = int64_t(64) << 20;
// Paths read last that a new read may continue.
constexpr size_t kRecentPaths = 8;
// The process's threads end after this long without a file to decode.
constexpr std::chrono::milliseconds kIdle{1000};

}  // namespace

std::string NextNumberedName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    size_t end = path.size();
    while (end > nameStart && !std::isdigit(static_cast<unsigned char>(path[end - 1]))) --end;
    if (end == nameStart) return {};
    std::string next = path;
    size_t at = end;
    while (at > nameStart && std::isdigit(static_cast<unsigned char>(next[at - 1]))) {
        char& digit = next[at - 1];
        if (digit != '9') {
            ++digit;
            return next;
        }
        digit = '0';
        --at;
    }
    next.insert(at, 1, '1');  // every digit was 9: the number grows by one digit
    return next;
}

struct ReadAhead::Entry {
    enum class State { Queued, Decoding, Decoded };

    std::string path;
    State state = State::Queued;
    JpegBlock bytes;   // the file as it was decoded
    JpegBlock pixels;  // rows of width * bits / 8 bytes, without padding
    int32_t width = 0;
    int32_t height = 0;
    int32_t bits = 0;
    HRESULT result = E_FAIL;
    bool sequential = false;
};

namespace {

// Takes a decoder's pixels into an entry's own block.
class EntryTarget final : public ImageTarget {
public:
    EntryTarget(JpegBlock& pixels, int32_t& width, int32_t& height, int32_t& bits)
        : m_Pixels(pixels), m_Width(width), m_Height(height), m_Bits(bits) {}

    HRESULT Allocate(int32_t width, int32_t height, int32_t bits, uint8_t** pixels, int32_t* stride) override {
        if (width <= 0 || height <= 0 || !CPixels::ValidBits(bits)) return E_FAIL;
        const int64_t row = CPixels::RowBytes(width, bits);
        if (row * height > kMostPixelBytes) return E_FAIL;
        if (!m_Pixels.Reserve(static_cast<size_t>(row * height))) return E_FAIL;
        m_Pixels.size = static_cast<size_t>(row * height);
        m_Width = width;
        m_Height = height;
        m_Bits = bits;
        *pixels = m_Pixels.data;
        *stride = static_cast<int32_t>(row);
        return S_OK;
    }

private:
    JpegBlock& m_Pixels;
    int32_t& m_Width;
    int32_t& m_Height;
    int32_t& m_Bits;
};

// Copies an entry's rows into a reader's target, as a decoder would put them.
HRESULT HandOver(const uint8_t* rows, int32_t width, int32_t height, int32_t bits, ImageTarget& target) {
    uint8_t* pixels = nullptr;
    int32_t stride = 0;
    const HRESULT hr = target.Allocate(width, height, bits, &pixels, &stride);
    if (hr < 0) return hr;
    if (hr == S_FALSE) return S_OK;  // the size was all the reader wanted
    const size_t row = static_cast<size_t>(CPixels::RowBytes(width, bits));
    for (int32_t y = 0; y < height; ++y) std::memcpy(pixels + int64_t(stride) * y, rows + row * size_t(y), row);
    return S_OK;
}

}  // namespace

ReadAhead& ReadAhead::Shared() {
    static ReadAhead ahead = [] {
        const int cores = static_cast<int>(std::thread::hardware_concurrency());
        return cores >= 2 ? ReadAhead(cores, cores, kIdle) : ReadAhead(0, 0, kIdle);
    }();
    return ahead;
}

ReadAhead::ReadAhead(int threads, int depth, std::chrono::milliseconds idle)
    : m_ThreadCount(std::max(0, threads)), m_Depth(std::max(0, depth)), m_Idle(idle) {
    m_Spare.reserve(static_cast<size_t>(m_Depth));  // so that keeping an entry never allocates
}

ReadAhead::~ReadAhead() {
    {
        std::lock_guard<std::mutex> hold(m_Mutex);
        m_Stopping = true;
    }
    m_Wake.notify_all();
    for (const std::unique_ptr<Worker>& worker : m_Workers) worker->thread.join();
}

bool ReadAhead::Serve(const std::string& path, const uint8_t* bytes, size_t size, ImageTarget& target,
                      HRESULT& result, bool& sequential) {
    std::unique_ptr<Entry> entry;
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        auto held = [&](const Entry* wanted) {
            return std::find_if(m_Entries.begin(), m_Entries.end(),
                                [wanted](const std::unique_ptr<Entry>& e) { return e.get() == wanted; });
        };
        auto it = std::find_if(m_Entries.begin(), m_Entries.end(),
                               [&path](const std::unique_ptr<Entry>& e) { return e->path == path; });
        if (it == m_Entries.end()) return false;
        Entry* found = it->get();
        if (found->state == Entry::State::Queued) {
            // Not begun: the reader decodes it sooner than a thread would.
            Recycle(std::move(*it));
            m_Entries.erase(it);
            return false;
        }
        // Another reader of the same path may take the entry meanwhile, and
        // its buffers may even come back for another path.
        auto gone = [&] { return held(found) == m_Entries.end() || found->path != path; };
        m_Decoded.wait(lock, [&] { return gone() || found->state == Entry::State::Decoded; });
        if (gone()) return false;
        it = held(found);
        entry = std::move(*it);
        m_Entries.erase(it);
    }
    const bool same = entry->result >= 0 && entry->bytes.size == size &&
                      (size == 0 || std::memcmp(entry->bytes.data, bytes, size) == 0);
    if (same) {
        result = HandOver(entry->pixels.data, entry->width, entry->height, entry->bits, target);
        sequential = entry->sequential;
    }
    std::lock_guard<std::mutex> hold(m_Mutex);
    if (same) ++m_Served;
    Recycle(std::move(entry));
    return same;
}

void ReadAhead::Follow(const std::string& path, bool sequential) {
    std::lock_guard<std::mutex> hold(m_Mutex);
    bool continues = false;
    try {
        continues = std::any_of(m_Recent.begin(), m_Recent.end(),
                                [&path](const std::string& recent) { return NextNumberedName(recent) == path; });
        m_Recent.push_back(path);
        if (m_Recent.size() > kRecentPaths) m_Recent.pop_front();
    } catch (const std::bad_alloc&) {
        return;
    }
    if (!continues || !sequential || m_ThreadCount == 0 || m_Stopping) return;
    try {
        std::string next = path;
        for (int i = 0; i < m_Depth; ++i) {
            next = NextNumberedName(next);
            Schedule(next);
        }
    } catch (const std::bad_alloc&) {
        // Short of memory: fewer files, or none, are decoded ahead.
    }
    Trim();
}

uint64_t ReadAhead::Served() const {
    std::lock_guard<std::mutex> hold(m_Mutex);
    return m_Served;
}

int ReadAhead::Threads() const {
    std::lock_guard<std::mutex> hold(m_Mutex);
    return static_cast<int>(std::count_if(m_Workers.begin(), m_Workers.end(),
                                          [](const std::unique_ptr<Worker>& w) { return !w->ended; }));
}

size_t ReadAhead::Held() const {
    std::lock_guard<std::mutex> hold(m_Mutex);
    return m_Entries.size();
}

void ReadAhead::Settle() {
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Decoded.wait(lock, [this] {
        const bool threadless = std::all_of(m_Workers.begin(), m_Workers.end(),
                                            [](const std::unique_ptr<Worker>& w) { return w->ended; });
        return threadless || std::none_of(m_Entries.begin(), m_Entries.end(), [](const std::unique_ptr<Entry>& e) {
                   return e->state != Entry::State::Decoded;
               });
    });
}

void ReadAhead::Schedule(const std::string& path) {
    for (const std::unique_ptr<Entry>& e : m_Entries)
        if (e->path == path) return;
    std::unique_ptr<Entry> entry;
    if (!m_Spare.empty()) {
        entry = std::move(m_Spare.back());
        m_Spare.pop_back();
    } else {
        entry = std::make_unique<Entry>();
    }
    entry->path = path;
    entry->state = Entry::State::Queued;
    entry->result = E_FAIL;
    m_Entries.push_back(std::move(entry));
    StartThreads();
    m_Wake.notify_one();
}

void ReadAhead::Trim() {
    const size_t most = 2 * static_cast<size_t>(m_Depth);
    for (auto it = m_Entries.begin(); m_Entries.size() > most && it != m_Entries.end();) {
        if ((*it)->state == Entry::State::Decoding) {
            ++it;
            continue;
        }
        Recycle(std::move(*it));
        it = m_Entries.erase(it);
    }
}

void ReadAhead::Recycle(std::unique_ptr<Entry> entry) {
    if (m_Spare.size() < static_cast<size_t>(m_Depth)) m_Spare.push_back(std::move(entry));
}

void ReadAhead::StartThreads() {
    for (auto it = m_Workers.begin(); it != m_Workers.end();) {
        if (!(*it)->ended) {
            ++it;
            continue;
        }
        // It has set `ended` and only leaves Work, which takes no lock.
        (*it)->thread.join();
        it = m_Workers.erase(it);
    }
    try {
        while (static_cast<int>(m_Workers.size()) < m_ThreadCount) {
            auto worker = std::make_unique<Worker>();
            Worker& self = *worker;
            worker->thread = std::thread([this, &self] { Work(self); });
            m_Workers.push_back(std::move(worker));
        }
    } catch (const std::exception&) {
        // Fewer threads, or none: entries nobody begins are decoded by their
        // readers, as if nothing had been read ahead.
    }
}

void ReadAhead::Work(Worker& self) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    for (;;) {
        auto queued = m_Entries.end();
        const bool woken = m_Wake.wait_for(lock, m_Idle, [&] {
            queued = std::find_if(m_Entries.begin(), m_Entries.end(), [](const std::unique_ptr<Entry>& e) {
                return e->state == Entry::State::Queued;
            });
            return m_Stopping || queued != m_Entries.end();
        });
        if (m_Stopping || !woken) break;
        Entry* entry = queued->get();
        entry->state = Entry::State::Decoding;
        lock.unlock();
        Decode(*entry);
        lock.lock();
        entry->state = Entry::State::Decoded;
        m_Decoded.notify_all();
    }
    self.ended = true;
}

void ReadAhead::Decode(Entry& entry) {
    entry.width = entry.height = entry.bits = 0;
    entry.sequential = false;
    if (!ReadFileBytes(entry.path, entry.bytes)) {
        entry.result = E_FAIL;
        return;
    }
    EntryTarget target(entry.pixels, entry.width, entry.height, entry.bits);
    // On this thread only, even for a banded file met within the run: its
    // pixels are the same either way, and the coding pool stays free.
    entry.result = DecodeImageBytes(entry.bytes.data, entry.bytes.size, target, false, entry.sequential);
    // A decoder that succeeded without asking for pixels gave nothing to use.
    if (entry.result >= 0 && entry.width == 0) entry.result = E_FAIL;
}
