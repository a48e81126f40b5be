#include "components/LUMCamWindow.h"

#include <cstdint>

#include "text/REFString.h"

template <>
const tagREFString IObjectInfoImpl<CLUMCamWindow>::m_ObjectName = {12, const_cast<wchar_t*>(L"LUMCamWindow")};

using Entry = InterfaceEntry<CLUMCamWindow>;
const Entry CLUMCamWindow::kInterfaces[] = {
    Entry::Of<ILUMCamWindow>(IID_ILUMCamWindow),
    Entry::Of<IUIPropertyPageSpecify>(IID_IUIPropertyPageSpecify),
    Entry::Of<IEventSourceImpl<CLUMCamWindow, &IID__ICameraEvents>>(IID_IEventSource),
    Entry::Of<IUIPropInterrogateImpl<CLUMCamWindow, IUIPropInterrogateEx, 10>>(IID_IUIPropInterrogate),
    Entry::Of<IUIPropInterrogateImpl<CLUMCamWindow, IUIPropInterrogateEx, 10>>(IID_IUIPropInterrogateEx),
    Entry::Of<IFileArchiveImpl<CLUMCamWindow, IFileArchive>>(IID_IFileArchive),
    Entry::Of<IStep>(IID_IStep),
    Entry::Of<IObjectInfoImpl<CLUMCamWindow>>(IID_IObjectInfo),
    Entry::Of<ICamcorder>(IID_ICamcorder),
    Entry::Of<ILUMCamWindow>(IID_ICamera),
    Entry::Of<IDataPersist>(IID_IDataPersist),
    Entry::End(),
};

namespace {

enum : int32_t {
    kParamDisplay = 1,
    kParamLeft = 2,
    kParamTop = 3,
    kParamRight = 4,
    kParamBottom = 5,
    kParam10 = 10,
};

// The display name is a string parameter with a list of named choices of
// its own; the rectangle's four values are not persisted.
constexpr int32_t kDisplayFlags = 70;
constexpr int32_t kRectFlags = 0x4040003;

bool SameRect(const CANVASRect& a, const CANVASRect& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

}  // namespace

HRESULT CLUMCamWindow::FinalConstruct() {
    // The canvas images and the display choices are essential: without them
    // the component is not created.
    for (SmartPtr<ILUMImageCANVAS>& canvas : m_Canvas) {
        canvas = CreateObjectAs<ILUMImageCANVAS>(L"LUMImageCANVAS", IID_ILUMImageCANVAS);
        if (!canvas) return E_FAIL;
    }
    m_Displays = CreateObjectAs<ISuperCollection>(L"SuperCollection", IID_ISuperCollection);
    if (!m_Displays) return E_FAIL;
    m_Parameter10 = 40;
    m_DisplayName = MakeString(L"Primary");
    if (!m_DisplayName) return E_FAIL;
    const HRESULT declared[] = {
        DeclareParameter(kParamDisplay, &m_DisplayName, kDisplayFlags),
        DeclareParameter(kParamLeft, &m_Rect.left, kRectFlags),
        DeclareParameter(kParamTop, &m_Rect.top, kRectFlags),
        DeclareParameter(kParamRight, &m_Rect.right, kRectFlags),
        DeclareParameter(kParamBottom, &m_Rect.bottom, kRectFlags),
        DeclareParameter(kParam10, &m_Parameter10, 3),
    };
    for (HRESULT hr : declared)
        if (hr != S_OK) return E_FAIL;
    return S_OK;
}

// ---- The image ---------------------------------------------------------

void CLUMCamWindow::FollowRectangle() {
    const CANVASRect rect = m_Rect;
    if (SameRect(rect, m_ShownRect)) return;
    m_ShownRect = rect;
    m_Image.Reset();
    const int64_t width = static_cast<int64_t>(rect.right) - rect.left;
    const int64_t height = static_cast<int64_t>(rect.bottom) - rect.top;
    if (width <= 0 || height <= 0 || width > INT32_MAX || height > INT32_MAX) return;
    ILUMImageCANVAS* canvas = m_Canvas[0].Get();
    // An area too large for memory leaves no image rather than a wrong one.
    if (canvas->Create(static_cast<int32_t>(width), static_cast<int32_t>(height), kCanvasBits) < 0) return;
    canvas->put_Rect(rect);
    m_Image = QueryAs<ILUM>(canvas, IID_ILUM);
}

HRESULT CLUMCamWindow::get_Image(int32_t /*index*/, ILUM** image) {
    if (!image) return E_FAIL;
    *image = nullptr;
    Lock();
    FollowRectangle();
    ILUM* current = m_Image.Get();
    if (current) current->AddRef();
    Unlock();
    if (!current) return E_FAIL;
    *image = current;
    return S_OK;
}

HRESULT CLUMCamWindow::Grab(int32_t /*mode*/, int16_t /*option*/, IUnknown* /*reserved*/) {
    m_GrabToggle = m_GrabToggle ? 0 : 1;
    Lock();
    FollowRectangle();
    SmartPtr<ILUM> image = m_Image;
    Unlock();
    if (m_State == CameraStateGrabbing) m_State = CameraStateIdle;
    if (image) Fire_ImageGrabbed(PrimaryUnknown(), image.Get(), m_State);
    return S_OK;
}

// ---- State -------------------------------------------------------------

HRESULT CLUMCamWindow::Live() {
    if (m_State == CameraStateLive) return S_OK;
    if (m_State == CameraStateArmed) StopRecording();
    m_State = CameraStateLive;
    return S_OK;
}

HRESULT CLUMCamWindow::StopLive() {
    if (m_State == CameraStateLive) {
        m_LiveSlots[0] = nullptr;
        m_LiveSlots[1] = nullptr;
    }
    m_State = CameraStateIdle;
    return S_OK;
}

HRESULT CLUMCamWindow::get_CameraState(CameraStateConstants* state) {
    if (state) *state = static_cast<CameraStateConstants>(m_State);
    return S_OK;
}

HRESULT CLUMCamWindow::Record(IUnknown* /*camera*/) {
    m_State = CameraStateArmed;
    return S_OK;
}

HRESULT CLUMCamWindow::IsRecording() { return m_State == CameraStateArmed ? S_OK : E_FAIL; }

HRESULT CLUMCamWindow::StopRecording() {
    m_State = CameraStateIdle;
    return S_OK;
}

// ---- The window --------------------------------------------------------

HRESULT CLUMCamWindow::put_AttachHWND(int32_t window) {
    m_Window = window;
    return S_OK;
}

HRESULT CLUMCamWindow::get_AttachRECT(CANVASRect* rect) {
    if (rect) *rect = m_Rect;
    return S_OK;
}

HRESULT CLUMCamWindow::put_AttachRECT(CANVASRect rect) {
    m_Rect = rect;
    return S_OK;
}

// ---- Parameters, settings and pages ------------------------------------

HRESULT CLUMCamWindow::Inquire(int32_t code, int32_t* value) {
    return IUIPropInterrogateImpl::Inquire(code, value);
}

HRESULT CLUMCamWindow::Control(int32_t code, int32_t value) {
    return IUIPropInterrogateImpl::Control(code, value);
}

HRESULT CLUMCamWindow::ParameterEnumeration(int32_t code, IUnknown** list) {
    if (code != kParamDisplay) return IUIPropInterrogateImpl::ParameterEnumeration(code, list);
    if (!list) return E_POINTER;
    *list = nullptr;
    // The one display there is; its item is the name to store in parameter 1.
    m_Displays->RemoveAll();
    HRESULT hr = m_Displays->AddNamed(REFStr(L"Desktop"), MakeString(L"Desktop").Get());
    if (hr < 0) return hr;
    m_Displays->AddRef();
    *list = m_Displays.Get();
    return S_OK;
}

HRESULT CLUMCamWindow::Save(IDataStream* stream, int32_t flags) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    return UIPropInterrogate_SaveFolderStream(nullptr, folder.Get(), flags);
}

HRESULT CLUMCamWindow::Load(IDataStream* stream, int32_t flags) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    return UIPropInterrogate_LoadFolderStream(folder.Get(), flags);
}

HRESULT CLUMCamWindow::GetPages(int32_t /*selector*/, INamedCollection** pages, IUnknown** /*reserved*/) {
    if (!pages) return E_POINTER;
    *pages = nullptr;
    // One entry: the generic parameter page, for the object of this class.
    SmartPtr<ISuperCollection> collection = SmartPtr<ISuperCollection>::Adopt(CREFString::CreateCollection());
    SmartPtr<IString> object = MakeString(L"LUMCamWindow");
    if (!collection || !object) return E_FAIL;
    HRESULT hr = collection->AddNamed(REFStr(L"UIPropInterrogatePropPage"), object.Get());
    if (hr < 0) return hr;
    *pages = collection.Detach();
    return S_OK;
}
