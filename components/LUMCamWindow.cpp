#include "components/LUMCamWindow.h"

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
    return S_OK;
}

HRESULT CLUMCamWindow::Inquire(int32_t code, int32_t* value) {
    return IUIPropInterrogateImpl::Inquire(code, value);
}

HRESULT CLUMCamWindow::Control(int32_t code, int32_t value) {
    return IUIPropInterrogateImpl::Control(code, value);
}
