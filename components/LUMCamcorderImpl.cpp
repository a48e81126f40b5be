#include "components/LUMCamcorderImpl.h"

template <>
const tagREFString IObjectInfoImpl<CLUMCamcorder>::m_ObjectName = {12, const_cast<wchar_t*>(L"LUMCamcorder")};

using Entry = InterfaceEntry<CLUMCamcorder>;
const Entry CLUMCamcorder::kInterfaces[] = {
    Entry::Of<IObjectInfoImpl<CLUMCamcorder>>(IID_IObjectInfo),
    Entry::Of<IDataPersist>(IID_IDataPersist),
    Entry::Of<ILUMCamcorder>(IID_ICamera),
    Entry::Of<ICamcorderArm>(IID_ICamcorder),
    Entry::Of<ICamcorderArm>(IID_ICamcorderArm),
    Entry::Of<ILUMCamcorder>(IID_ILUMCamcorder),
    Entry::Of<IEventSourceImpl<CLUMCamcorder, &IID__ICameraEvents>>(IID_IEventSource),
    Entry::Of<IUIPropInterrogateImpl<CLUMCamcorder, IUIPropInterrogateEx, 10>>(IID_IUIPropInterrogate),
    Entry::Of<IUIPropInterrogateImpl<CLUMCamcorder, IUIPropInterrogateEx, 10>>(IID_IUIPropInterrogateEx),
    Entry::Of<IUIPropertyPageSpecify>(IID_IUIPropertyPageSpecify),
    Entry::Of<IMMControlEx>(IID_IMMControlEx),
    Entry::Of<IMMControlEx>(IID_IMMControl),
    Entry::Of<_ICameraEvents>(IID__ICameraEvents),
    Entry::Forward<&CLUMCamcorder::m_Stack>(IID_IStackCollection),
    Entry::Forward<&CLUMCamcorder::m_Stack>(IID_ISimpleCollection),
    Entry::End(),
};

HRESULT CLUMCamcorder::FinalConstruct() {
    // A missing framework module leaves the member empty; recording or
    // playback then fails when it first needs it.
    m_Archive = CreateObjectAs<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    m_Stack = CreateObjectAs<IStackCollection>(L"LUMStack", IID_IStackCollection);
    if (m_Stack) m_Stack->SetSize(1000, 0);
    return S_OK;
}

void CLUMCamcorder::FinalRelease() {
    ClearAdvise(nullptr);
    m_Archive.Reset();
}

HRESULT CLUMCamcorder::Inquire(int32_t code, int32_t* value) {
    return IUIPropInterrogateImpl::Inquire(code, value);
}

HRESULT CLUMCamcorder::Control(int32_t code, int32_t value) {
    return IUIPropInterrogateImpl::Control(code, value);
}
