#include "tools/lumhost/ViewSession.h"

#include <algorithm>
#include <cwchar>
#include <vector>

#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

namespace {

/// The file name (without its folder) of an image that came from a file.
std::string FileNameOf(IUnknown* image) {
    SmartPtr<IFileArchive> file = QueryAs<IFileArchive>(image, IID_IFileArchive);
    SmartPtr<IString> name;
    if (!file || file->get_Filename(name.Out()) < 0 || !name) return {};
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (name->GetText(&text, &length) < 0 || !text || length <= 0) return {};
    std::wstring wide(text, static_cast<size_t>(length));
    const size_t slash = wide.find_last_of(L'/');
    if (slash != std::wstring::npos) wide.erase(0, slash + 1);
    std::string narrow;
    std::mbstate_t state{};
    char bytes[MB_LEN_MAX];
    for (wchar_t c : wide) {
        const size_t count = std::wcrtomb(bytes, c, &state);
        if (count == static_cast<size_t>(-1)) {
            narrow += '?';
            state = std::mbstate_t{};
        } else {
            narrow.append(bytes, count);
        }
    }
    return narrow;
}

/// Hands every image the source delivers to the slot.
class ViewSink final : public CObject<ViewSink>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(ViewSink)
public:
    HRESULT ImageGrabbed(IUnknown*, IUnknown* image, int32_t count) override {
        if (m_Slot) m_Slot->Deliver(image, count);
        return S_OK;
    }
    std::shared_ptr<FrameSlot> m_Slot;
};

const InterfaceEntry<ViewSink> ViewSink::kInterfaces[] = {
    InterfaceEntry<ViewSink>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<ViewSink>::End(),
};

constexpr auto kRateWindow = std::chrono::seconds(5);
constexpr size_t kRateSamples = 64;
/// The rate is measured over at most this many of the latest intervals.
constexpr size_t kRateIntervals = 16;

}  // namespace

SmartPtr<IUnknown> CreateViewSink(const std::shared_ptr<FrameSlot>& slot) {
    void* object = nullptr;
    if (CObject<ViewSink>::_CreateInstance(nullptr, &IID__ICameraEvents, &object) < 0 || !object) return nullptr;
    auto* sink = static_cast<ViewSink*>(static_cast<_ICameraEvents*>(object));
    sink->m_Slot = slot;
    return SmartPtr<IUnknown>::Adopt(static_cast<_ICameraEvents*>(object));
}

// ---- FrameSlot ---------------------------------------------------------

void FrameSlot::Deliver(IUnknown* image, int32_t count) {
    const Clock::time_point now = Clock::now();
    // The image is borrowed for this call: read it here, copy it below.
    SmartPtr<ILUM> lum = QueryAs<ILUM>(image, IID_ILUM);
    int32_t width = 0, height = 0, bits = 0, stride = 0;
    uint8_t* pixels = nullptr;
    if (lum) {
        lum->get_Width(&width);
        lum->get_Height(&height);
        lum->get_BitsPerPixel(&bits);
        lum->get_Stride(&stride);
        lum->get_Bits(&pixels);
    }
    const std::string name = FileNameOf(image);

    std::lock_guard<std::mutex> hold(m_Mutex);
    if (!m_Source) return;  // the view is closing
    ++m_Frame.sequence;
    m_Frame.frameText = m_Source->FrameText(count, m_Frame.sequence);
    m_Frame.name = name;
    ViewImage copy;
    if (lum && copy.Assign(pixels, width, height, bits, stride)) {
        m_Frame.image = std::move(copy);
        m_Frame.problem.clear();
    } else {
        // The last image that could be shown stays on the screen.
        m_Frame.problem = lum ? "cannot show a " + std::to_string(width) + "x" + std::to_string(height) + " image of " +
                                    std::to_string(bits) + " bits per pixel"
                              : "the source delivered something that is not an image";
    }
    m_Arrivals.push_back(now);
    while (m_Arrivals.size() > kRateSamples || now - m_Arrivals.front() > kRateWindow) m_Arrivals.pop_front();
}

void FrameSlot::Attach(ViewSource* source) {
    std::lock_guard<std::mutex> hold(m_Mutex);
    m_Source = source;
}

void FrameSlot::Detach() { Attach(nullptr); }

bool FrameSlot::TakeNewer(ViewFrame& frame) {
    std::lock_guard<std::mutex> hold(m_Mutex);
    if (m_Frame.sequence == frame.sequence) return false;
    frame = m_Frame;
    return true;
}

uint64_t FrameSlot::Delivered() {
    std::lock_guard<std::mutex> hold(m_Mutex);
    return m_Frame.sequence;
}

double FrameSlot::Rate(Clock::time_point now) {
    std::lock_guard<std::mutex> hold(m_Mutex);
    while (!m_Arrivals.empty() && now - m_Arrivals.front() > kRateWindow) m_Arrivals.pop_front();
    if (m_Arrivals.size() < 2) return 0;
    // The median of the latest intervals: a pause or a burst of steps does
    // not bend it.
    std::vector<double> intervals;
    const size_t first = m_Arrivals.size() > kRateIntervals + 1 ? m_Arrivals.size() - kRateIntervals - 1 : 0;
    for (size_t i = first + 1; i < m_Arrivals.size(); ++i)
        intervals.push_back(std::chrono::duration<double>(m_Arrivals[i] - m_Arrivals[i - 1]).count());
    std::nth_element(intervals.begin(), intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2),
                     intervals.end());
    const double interval = intervals[intervals.size() / 2];
    if (interval <= 0) return 0;
    // Images stopped coming: the rate is 0, not the last one measured.
    const double silence = std::chrono::duration<double>(now - m_Arrivals.back()).count();
    if (silence > 2 * interval + 0.25) return 0;
    return 1.0 / interval;
}

// ---- ViewController ----------------------------------------------------

bool ViewController::Start(IUnknown* sink, std::string& error) {
    m_Thread = std::thread(&ViewController::Run, this);
    bool started = false;
    Post([&](ViewSource& source) { started = source.Start(sink, error); });
    WaitIdle(std::chrono::milliseconds(60000));
    return started;
}

void ViewController::Stop() {
    if (!m_Thread.joinable()) return;
    {
        std::lock_guard<std::mutex> hold(m_Mutex);
        m_Queue.push_back([](ViewSource& source) { source.Finish(); });
        m_Stopping = true;
    }
    m_Wake.notify_all();
    m_Thread.join();
}

void ViewController::Post(std::function<void(ViewSource&)> action) {
    {
        std::lock_guard<std::mutex> hold(m_Mutex);
        if (m_Stopping) return;
        m_Queue.push_back(std::move(action));
    }
    m_Wake.notify_all();
}

size_t ViewController::Pending() {
    std::lock_guard<std::mutex> hold(m_Mutex);
    return m_Queue.size() + (m_Busy ? 1 : 0);
}

bool ViewController::WaitIdle(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> hold(m_Mutex);
    return m_Idle.wait_for(hold, limit, [this] { return m_Queue.empty() && !m_Busy; });
}

ViewStatus ViewController::Status() {
    std::lock_guard<std::mutex> hold(m_Mutex);
    return m_Status;
}

std::string ViewController::Message(std::chrono::steady_clock::time_point& when) {
    std::lock_guard<std::mutex> hold(m_Mutex);
    when = m_MessageTime;
    return m_Message;
}

void ViewController::Publish() {
    // Read on this thread, which alone calls the source.
    ViewStatus status;
    status.state = m_Source.State();
    status.stateName = m_Source.StateName(status.state);
    status.hasDirection = m_Source.HasDirection();
    status.forward = status.hasDirection ? m_Source.Forward() : true;
    status.hasLoop = m_Source.HasLoop();
    status.loop = status.hasLoop && m_Source.Loop();
    std::string message = m_Source.TakeMessage();
    std::lock_guard<std::mutex> hold(m_Mutex);
    m_Status = status;
    if (!message.empty()) {
        m_Message = message;
        m_MessageTime = std::chrono::steady_clock::now();
    }
}

void ViewController::Run() {
    using Clock = std::chrono::steady_clock;
    constexpr auto kStatusPeriod = std::chrono::milliseconds(100);
    double tickPeriod = 0;  // milliseconds; 0 while the source needs no pacing
    Clock::time_point nextTick = Clock::now();
    Clock::time_point nextStatus = Clock::now();
    std::unique_lock<std::mutex> hold(m_Mutex);
    for (;;) {
        if (m_Queue.empty() && !m_Stopping) {
            Clock::time_point until = nextStatus;
            if (tickPeriod > 0 && nextTick < until) until = nextTick;
            m_Wake.wait_until(hold, until, [this] { return !m_Queue.empty() || m_Stopping; });
        }
        const bool acting = !m_Queue.empty();
        if (!acting && m_Stopping) break;
        std::function<void(ViewSource&)> action;
        if (acting) {
            action = std::move(m_Queue.front());
            m_Queue.pop_front();
            m_Busy = true;
        }
        hold.unlock();

        const Clock::time_point now = Clock::now();
        if (action) action(m_Source);
        if (!acting && tickPeriod > 0 && now >= nextTick) {
            m_Source.Tick();
            const auto period = std::chrono::duration_cast<Clock::duration>(
                std::chrono::duration<double, std::milli>(tickPeriod));
            nextTick += period;
            if (nextTick < now) nextTick = now + period;  // fell behind: no burst to catch up
        }
        const double newPeriod = m_Source.TickPeriodMs();
        if (newPeriod > 0 && tickPeriod <= 0) nextTick = Clock::now();  // (re)started: first step at once
        tickPeriod = newPeriod;
        if (acting || Clock::now() >= nextStatus) {
            Publish();
            nextStatus = Clock::now() + kStatusPeriod;
        }

        hold.lock();
        if (acting) m_Busy = false;
        if (m_Queue.empty() && !m_Busy) m_Idle.notify_all();
    }
}
