// The camcorder as a camera: stepping through a recording's files, the live
// thread that paces the steps, and the player controls.
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "components/LUMCamcorderImpl.h"

namespace {

/// Arguments of a new live thread.
struct LiveStart {
    CLUMCamcorder* self;
    std::shared_ptr<std::atomic<int32_t>> stop;
};

/// Sleeps `milliseconds` in short slices, so that a raised stop flag ends
/// the wait early (a wait may be as long as 5 s).
void PacedSleep(int64_t milliseconds, const std::atomic<int32_t>& stop) {
    constexpr int64_t kSlice = 10;
    while (milliseconds > 0 && !stop.load(std::memory_order_relaxed)) {
        const int64_t step = std::min(milliseconds, kSlice);
        usleep(static_cast<useconds_t>(step * 1000));
        milliseconds -= step;
    }
}

}  // namespace

HRESULT CLUMCamcorder::ReadImage(int32_t index, ILUM** image) {
    SmartPtr<IString> name;
    ImageName(name.Out(), index);
    if (!m_Archive) return E_FAIL;
    return m_Archive->Read(name.Get(), image);
}

HRESULT CLUMCamcorder::Grab(int32_t mode, int16_t option, IUnknown* reserved) {
    if (mode != -1 && m_State == CameraStateLive) return StopLive();

    const bool forward = m_PlayDirection != 0;
    bool inRange;
    if (forward) {
        ++m_ActiveIndex;
        inRange = !(m_EndPosition != 0 && m_ActiveIndex > m_EndPosition);
    } else {
        --m_ActiveIndex;
        inRange = !(m_ActiveIndex < m_StartPosition);
    }
    HRESULT hr = E_FAIL;
    if (inRange) {
        SmartPtr<ILUM> image;
        hr = ReadImage(m_ActiveIndex, image.Out());
        if (hr >= 0) {
            // Settle the state before delivering, and touch nothing after it:
            // a sink may release the component from inside the event.
            const int32_t state = m_State;
            if (state != CameraStateLive) m_State = CameraStateIdle;
            Fire_ImageGrabbed(PrimaryUnknown(), image.Get(), state);
            return hr;
        }
    }
    if (m_Loop != 0) {
        if (forward)
            m_ActiveIndex = static_cast<int32_t>(m_StartPosition);
        else
            m_ActiveIndex = m_EndPosition != 0 ? m_EndPosition + 1 : GetLastFileIndex() + 1;
        if (m_State != CameraStateLive) m_State = CameraStateIdle;
        return hr;
    }
    if (forward)
        m_ActiveIndex = m_EndPosition != 0 ? static_cast<int32_t>(m_EndPosition) : GetLastFileIndex();
    else
        m_ActiveIndex = static_cast<int32_t>(m_StartPosition);
    if (m_State == CameraStateLive) {
        RaiseLiveStop();
        m_State = CameraStateIdle;
        return E_ABORT;
    }
    m_State = CameraStateIdle;
    return hr;
}

void CLUMCamcorder::RaiseLiveStop() {
    std::lock_guard<std::mutex> threads(m_ThreadsMutex);
    if (m_Live.stop) m_Live.stop->store(1, std::memory_order_relaxed);
}

HRESULT CLUMCamcorder::Live() {
    if (m_State == CameraStateLive) return S_OK;
    m_State = CameraStateLive;
    ReapFinishedThreads();
    std::lock_guard<std::mutex> threads(m_ThreadsMutex);
    // A thread still winding down keeps its place: no second one starts.
    if (m_Live.thread) return S_OK;
    m_Live.stop = std::make_shared<std::atomic<int32_t>>(0);
    auto* start = new LiveStart{this, m_Live.stop};
    m_Live.thread = std::make_unique<OSThread>(&CLUMCamcorder::LiveThreadEntry, start);
    if (m_Live.thread->Start() < 0) {
        delete start;
        m_Live = Worker{};
    }
    return S_OK;
}

HRESULT CLUMCamcorder::StopLive() {
    const int32_t state = m_State;
    if (state == CameraStateLive) {
        m_State = CameraStateIdle;
        Lock();
        RaiseLiveStop();
        Unlock();
    } else if (state == CameraStateRecording) {
        m_State.StoreRelease(CameraStateIdle);  // see StopRecording
    }
    return S_OK;
}

void* CLUMCamcorder::LiveThreadEntry(void* argument) {
    std::unique_ptr<LiveStart> start(static_cast<LiveStart*>(argument));
    start->self->LiveThread(start->stop);
    return nullptr;
}

void CLUMCamcorder::LiveThread(const std::shared_ptr<std::atomic<int32_t>>& stop) {
    while (!stop->load(std::memory_order_relaxed)) {
        HRESULT r = S_OK;
        // Released by a sink inside the step's event: the component is gone.
        if (!RunOwnStep([&] { r = Grab(-1, 1, nullptr); })) return;
        if (r >= 0) {
            double speed = m_PlayBackSpeed;
            int64_t wait;
            if (speed <= 0.0) {
                m_PlayBackSpeed = 1.0;
                wait = 1000;
            } else {
                wait = static_cast<int64_t>(std::min(1000.0 / speed, 5000.0));
            }
            if (wait > 0) PacedSleep(wait, *stop);
        }
        if (r == E_ABORT) break;
    }
    Lock();
    {
        std::lock_guard<std::mutex> threads(m_ThreadsMutex);
        // Only this run's own record is torn down; a newer one stays.
        if (m_Live.stop == stop) {
            if (m_Live.thread) m_Finished.push_back(std::move(m_Live.thread));
            m_Live = Worker{};
        }
    }
    Unlock();
}

HRESULT CLUMCamcorder::get_CameraState(CameraStateConstants* state) {
    *state = static_cast<CameraStateConstants>(static_cast<int32_t>(m_State));
    return S_OK;
}

HRESULT CLUMCamcorder::get_Image(int32_t index, ILUM** image) {
    if (!image) return E_POINTER;
    SmartPtr<IString> name;
    if (ImageName(name.Out(), index) < 0) return E_FAIL;
    if (!m_Archive) return E_FAIL;
    return m_Archive->Read(name.Get(), image);
}

// ---- Player controls ---------------------------------------------------

HRESULT CLUMCamcorder::Play() {
    m_PlayDirection = 1;
    return Live();
}

HRESULT CLUMCamcorder::Stop() {
    StopLive();
    if (m_PlayDirection != 0)
        m_ActiveIndex = static_cast<int32_t>(m_StartPosition);
    else if (m_EndPosition != 0)
        m_ActiveIndex = m_EndPosition + 1;
    else
        m_ActiveIndex = GetLastFileIndex() + 1;
    return S_OK;
}

HRESULT CLUMCamcorder::Pause() { return StopLive(); }

HRESULT CLUMCamcorder::GetPositions(int32_t* start, int32_t* end) {
    if (start) *start = m_StartPosition;
    if (end) *end = m_EndPosition;
    return S_OK;
}

HRESULT CLUMCamcorder::SetPositions(int32_t start, int32_t end) {
    m_StartPosition = start;
    m_EndPosition = end;
    return S_OK;
}

HRESULT CLUMCamcorder::get_CurrentPosition(int32_t* position) {
    if (position) *position = m_ActiveIndex - 1;
    return S_OK;
}

HRESULT CLUMCamcorder::get_Loop(int32_t* loop) {
    *loop = m_Loop;
    return S_OK;
}

HRESULT CLUMCamcorder::put_Loop(int32_t loop) {
    m_Loop = loop;
    return S_OK;
}

HRESULT CLUMCamcorder::get_Duration(int32_t* duration) {
    if (duration) *duration = GetLastFileIndex();
    return S_OK;
}

HRESULT CLUMCamcorder::Forward(double) {
    m_PlayDirection = 1;
    return Live();
}

HRESULT CLUMCamcorder::Rewind(double) {
    m_PlayDirection = 0;
    return Live();
}

HRESULT CLUMCamcorder::Reverse() {
    m_PlayDirection = 0;
    return Live();
}

HRESULT CLUMCamcorder::Next() {
    m_PlayDirection = 1;
    return Grab(0, 0, nullptr);
}

HRESULT CLUMCamcorder::Previous() {
    m_PlayDirection = 0;
    return Grab(0, 0, nullptr);
}

HRESULT CLUMCamcorder::Seek(int32_t position) {
    if (m_ActiveIndex == position) return S_OK;
    m_ActiveIndex = position;
    SmartPtr<ILUM> image;
    if (ReadImage(position, image.Out()) >= 0) Fire_ImageGrabbed(PrimaryUnknown(), image.Get(), m_State);
    return S_OK;
}

HRESULT CLUMCamcorder::IsPlaying() {
    if (m_State != CameraStateLive) return 0;
    return m_PlayDirection != 0 ? 1 : -1;
}
