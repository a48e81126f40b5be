// Basic types of the component framework: result codes, identifiers, text views.
#pragma once

#include <cstdint>
#include <cstring>
#include <cwchar>

typedef int32_t HRESULT;

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004u);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);

constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }

/// 128-bit interface identifier; byte 0 is the lowest byte of `low`.
struct IID {
    uint64_t low;
    uint64_t high;
};

inline bool operator==(const IID& a, const IID& b) { return a.low == b.low && a.high == b.high; }
inline bool operator!=(const IID& a, const IID& b) { return !(a == b); }

/// Non-owning view of `length` wide characters; not necessarily terminated.
/// A negative length counts as empty.
struct tagREFString {
    int32_t length;
    wchar_t* text;
};

struct CANVASRect {
    int32_t left, top, right, bottom;
};

enum CameraStateConstants : int32_t {
    CameraStateIdle = 0,
    CameraStateGrabbing = 1,
    CameraStateLive = 2,
    CameraStateArmed = 3,
    CameraStateRecording = 4,
    CameraStateRecorded = 5,
};

enum FileFormatConstants : int32_t {
    FileFormatJPEG = 0,
    FileFormatBMP = 1,
    FileFormatAVI = 2,
};

/// Creation function of a class: `outer` is ignored, `*object` receives the
/// only reference to a new object on success.
typedef HRESULT (*CreateInstanceFunction)(void* outer, const IID* iid, void** object);

/// Exported entry points of every module.
typedef HRESULT (*InitializeModuleFunction)(void* host, struct IComponentCollection* collection);
typedef HRESULT (*ModuleCreateFunction)(int32_t length, const wchar_t* name, void** creator);

/// A view of a wide string literal or buffer (length from the terminator).
inline tagREFString REFStr(const wchar_t* text) {
    return tagREFString{static_cast<int32_t>(std::wcslen(text)), const_cast<wchar_t*>(text)};
}
