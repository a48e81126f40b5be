#include "components/LUMStackCamcorder.h"

template <>
const tagREFString IObjectInfoImpl<CLUMStackCamcorder>::m_ObjectName = {
    17, const_cast<wchar_t*>(L"LUMStackCamcorder")};

using Entry = InterfaceEntry<CLUMStackCamcorder>;
// IUIPropInterrogateEx is deliberately not answered, although the parameter
// part supports the extended operations.
const Entry CLUMStackCamcorder::kInterfaces[] = {
    Entry::Of<IObjectInfoImpl<CLUMStackCamcorder>>(IID_IObjectInfo),
    Entry::Of<ICamera>(IID_ICamera),
    Entry::Of<IDataPersist>(IID_IDataPersist),
    Entry::Of<IUIPropertyPageSpecify>(IID_IUIPropertyPageSpecify),
    Entry::Of<IEventSourceImpl<CLUMStackCamcorder, &IID__ICameraEvents>>(IID_IEventSource),
    Entry::Of<IUIPropInterrogateImpl<CLUMStackCamcorder, IUIPropInterrogateEx, 10>>(IID_IUIPropInterrogate),
    Entry::Of<IFileArchiveImpl<CLUMStackCamcorder, IFileArchive>>(IID_IFileArchive),
    Entry::Of<ICamcorder>(IID_ICamcorder),
    Entry::Forward<&CLUMStackCamcorder::m_Stack>(IID_IStackCollection),
    Entry::Forward<&CLUMStackCamcorder::m_Stack>(IID_ISimpleCollection),
    Entry::Of<_ICameraEvents>(IID__ICameraEvents),
    Entry::End(),
};

HRESULT CLUMStackCamcorder::FinalConstruct() {
    m_Stack = CreateObjectAs<IStackCollection>(L"LUMStack", IID_IStackCollection);
    m_Filter = MakeString(L"avi|*.avi||");
    return S_OK;
}

void CLUMStackCamcorder::FinalRelease() {
    if (m_CameraEvents) m_CameraEvents->Advise(static_cast<_ICameraEvents*>(this), 0);
}

HRESULT CLUMStackCamcorder::Inquire(int32_t code, int32_t* value) {
    return IUIPropInterrogateImpl::Inquire(code, value);
}

HRESULT CLUMStackCamcorder::Control(int32_t code, int32_t value) {
    return IUIPropInterrogateImpl::Control(code, value);
}
