#include "components/LUMFileGrabImpl.h"

template <>
const tagREFString IObjectInfoImpl<CLUMFileGrab>::m_ObjectName = {11, const_cast<wchar_t*>(L"LUMFileGrab")};

using Entry = InterfaceEntry<CLUMFileGrab>;
const Entry CLUMFileGrab::kInterfaces[] = {
    Entry::Of<IObjectInfoImpl<CLUMFileGrab>>(IID_IObjectInfo),
    Entry::Of<CObject<CLUMFileGrab>>(IID_ICamera),
    Entry::Of<IEventSourceImpl<CLUMFileGrab, &IID__ICameraEvents>>(IID_IEventSource),
    Entry::Of<_IFileNameCollectionEvent>(IID__IFileNameCollectionEvent),
    Entry::Of<IUIPropertyPageSpecify>(IID_IUIPropertyPageSpecify),
    Entry::End(),
};

HRESULT CLUMFileGrab::FinalConstruct() {
    m_Files = CreateObjectAs<IFileNameCollection>(L"FileNameCollection", IID_IFileNameCollection);
    if (!m_Files) return E_FAIL;
    if (SmartPtr<IEventSource> events = m_Files.As<IEventSource>(IID_IEventSource))
        events->Advise(static_cast<_IFileNameCollectionEvent*>(this), 1);
    m_Files->put_Option(8, 1);
    m_Files->put_Option(9, 0);
    return S_OK;
}

void CLUMFileGrab::FinalRelease() {
    if (!m_Files) return;
    // The collection keeps its sinks without a reference. Advising again with
    // the registration's own flags changes nothing; the list then goes away
    // with the collection.
    if (SmartPtr<IEventSource> events = m_Files.As<IEventSource>(IID_IEventSource))
        events->Advise(PrimaryUnknown(), 1);
    m_Files.Reset();
}

HRESULT CLUMFileGrab::Inquire(int32_t id, int32_t* value) {
    switch (id) {
        case 10:
            if (value) *value = m_State;
            return S_OK;
        case 11:
            return S_OK;
        case 13:
        case 14:
            return S_OK;
        default:
            return E_FAIL;
    }
}
