#include "framework/UIPropPages/Viewer.h"

LUM_KIT_OBJECT_NAME(CViewer, L"LUMViewer")

// ISuperCollection derives from INamedCollection and ISimpleCollection, so
// its part answers all three.
const InterfaceEntry<CViewer> CViewer::kInterfaces[] = {
    InterfaceEntry<CViewer>::Of<ILUMViewer>(IID_ILUMViewer),
    InterfaceEntry<CViewer>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<CViewer>::Of<ISuperCollection>(IID_ISuperCollection),
    InterfaceEntry<CViewer>::Of<ISuperCollection>(IID_INamedCollection),
    InterfaceEntry<CViewer>::Of<ISuperCollection>(IID_ISimpleCollection),
    InterfaceEntry<CViewer>::Of<IUIRefreshableObject>(IID_IUIRefreshableObject),
    InterfaceEntry<CViewer>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CViewer>::End(),
};

void CViewer::Take(ILUM* image, bool frame) {
    SmartPtr<ILUM> old(image);
    std::lock_guard<std::mutex> guard(m_Lock);
    std::swap(old, m_Image);
    if (frame) ++m_Frames;
}

HRESULT CViewer::get_Image(ILUM** image) {
    if (!image) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Image.CopyTo(image);
    return m_Image ? S_OK : E_FAIL;
}

HRESULT CViewer::put_Image(ILUM* image) {
    if (!image) return E_POINTER;
    Take(image, false);
    return S_OK;
}

HRESULT CViewer::get_FrameCount(int32_t* count) {
    if (!count) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    *count = m_Frames;
    return S_OK;
}

HRESULT CViewer::get_RefreshCount(int32_t* count) {
    if (!count) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    *count = m_Refreshes;
    return S_OK;
}

HRESULT CViewer::ImageGrabbed(IUnknown* /*camera*/, IUnknown* image, int32_t /*count*/) {
    if (!image) return E_POINTER;
    SmartPtr<ILUM> frame;
    HRESULT hr = image->QueryInterface(IID_ILUM, frame.OutVoid());
    if (hr < 0 || !frame) return hr < 0 ? hr : E_NOINTERFACE;
    Take(frame.Get(), true);
    return S_OK;
}

HRESULT CViewer::Refresh(int32_t /*what*/) {
    std::lock_guard<std::mutex> guard(m_Lock);
    ++m_Refreshes;
    return S_OK;
}
