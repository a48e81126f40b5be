// The file player as a recorder: another camera's images written to JPEG
// files named after the archive file name.
#include <sys/stat.h>

#include <cstdio>

#include "components/LUMFilePlayerImpl.h"
#include "components/MonotonicClock.h"
#include "text/FileName.h"
#include "text/ValueConversion.h"

HRESULT CLUMFilePlayer::Record(IUnknown* camera) {
    SmartPtr<IEventSource> previous;
    Lock();
    previous = std::move(m_RecordSource);
    Unlock();
    if (previous) previous->Advise(static_cast<_ICameraEvents*>(this), 0);

    SmartPtr<IEventSource> source = QueryAs<IEventSource>(camera, IID_IEventSource);
    if (!source) return E_FAIL;
    if (m_FileList) m_FileList->Stop();
    Lock();
    m_RecordSource = source;
    Unlock();
    source->Advise(static_cast<_ICameraEvents*>(this), 1);
    m_CameraState = CameraStateArmed;
    // Recording has started, and yet the answer is a failure: callers test
    // IsRecording instead.
    return E_FAIL;
}

HRESULT CLUMFilePlayer::IsRecording() { return m_CameraState == CameraStateArmed ? S_OK : E_FAIL; }

HRESULT CLUMFilePlayer::StopRecording() {
    SmartPtr<IEventSource> source;
    Lock();
    source = std::move(m_RecordSource);
    Unlock();
    if (source) source->Advise(static_cast<_ICameraEvents*>(this), 0);
    m_CameraState = CameraStateIdle;
    if (m_FileList) m_FileList->put_Tracking(0);
    return S_OK;
}

HRESULT CLUMFilePlayer::ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) {
    const double interval = m_RecordInterval;
    if (interval == 0) return S_OK;
    const int64_t now = MonotonicMicroseconds();
    SmartPtr<IString> name;
    SmartPtr<ILUMArchive> writer;
    Lock();
    if (static_cast<double>(now - m_LastRecordTime) / 1000.0 > interval) {
        m_LastRecordTime = now;
        name = GenerateName();
        writer = m_ImageWriter;
    }
    Unlock();
    // The file is written outside the lock: its name is already taken.
    SmartPtr<ILUM> lum = QueryAs<ILUM>(image, IID_ILUM);
    if (name && writer && lum) writer->Write(name.Get(), lum.Get(), 100);
    return S_OK;
}

namespace {

/// Whether `name` may be written: a name that cannot be converted is taken
/// (the write then fails), a folder is taken, a file that opens is not.
bool NameIsFree(const std::wstring& name) {
    std::string file;
    if (!FILENAMEToMultibyte(name, file)) return true;
    struct stat status {};
    if (stat(file.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return true;
    FILE* existing = std::fopen(file.c_str(), "rb");
    if (!existing) return true;
    std::fclose(existing);
    return false;
}

}  // namespace

SmartPtr<IString> CLUMFilePlayer::GenerateName() {
    // The stem: the archive file name without its extension and without
    // the number a previous recording appended.
    std::wstring stem = ISText(m_FileName.Get());
    const size_t dot = stem.rfind(L'.');
    if (dot != std::wstring::npos && dot != 0) stem.resize(dot);
    while (!stem.empty() && stem.back() >= L'0' && stem.back() <= L'9') stem.pop_back();
    stem += ISText(m_RecordSuffix.Get());

    std::wstring name;
    do {
        wchar_t number[32];
        _swprintf(number, 32, L"%04d", m_RecordCounter++);
        name = stem + number + L".jpg";
    } while (!NameIsFree(name));
    m_FileName = MakeString(name.c_str());
    return m_FileName;
}
