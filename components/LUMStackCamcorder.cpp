// The stack camcorder: construction, recording into the stack, playback from
// it, parameters and settings. Its image files are in StackFiles.cpp.
#include "components/LUMStackCamcorder.h"

#include "text/REFString.h"
#include "text/ValueConversion.h"

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

namespace {

enum : int32_t { kParam52 = 52, kParamDirection = 54, kParamIndex = 55, kParamLoop = 60 };

SmartPtr<IString> Key(const wchar_t* text) { return SmartPtr<IString>::Adopt(ISCreate(text)); }

}  // namespace

HRESULT CLUMStackCamcorder::FinalConstruct() {
    m_Stack = CreateObjectAs<IStackCollection>(L"LUMStack", IID_IStackCollection);
    m_Filter = MakeString(L"avi|*.avi||");
    DeclareParameter(kParam52, &m_Parameter52, 3, 0, 0);
    DeclareParameter(kParamDirection, m_Forward.Address(), 0x13, 0, 1);
    DeclareParameter(kParamIndex, m_Index.Address(), 3, 0, 0);
    DeclareParameter(kParamLoop, m_Loop.Address(), 0x13, 0, 1);
    return S_OK;
}

void CLUMStackCamcorder::FinalRelease() {
    if (m_CameraEvents) m_CameraEvents->Advise(static_cast<_ICameraEvents*>(this), 0);
}

int32_t CLUMStackCamcorder::StackCount() {
    int32_t count = 0;
    if (SmartPtr<ISimpleCollection> images = m_Stack.As<ISimpleCollection>(IID_ISimpleCollection))
        images->get_Count(&count);
    return count;
}

// ---- Recording ---------------------------------------------------------

HRESULT CLUMStackCamcorder::Record(IUnknown* camera) {
    if (camera && IdentityOf(camera).Get() == PrimaryUnknown()) return E_FAIL;
    if (m_CameraEvents) m_CameraEvents->Advise(static_cast<_ICameraEvents*>(this), 0);
    m_CameraEvents = QueryAs<IEventSource>(camera, IID_IEventSource);
    StopLive();
    if (m_CameraEvents) {
        m_SkipCounter = m_SkipCounter - m_SkipRate;
        m_CameraEvents->Advise(static_cast<_ICameraEvents*>(this), 1);
        m_State = CameraStateArmed;
    }
    // Callers learn whether recording started from IsRecording.
    return E_FAIL;
}

HRESULT CLUMStackCamcorder::IsRecording() { return m_State == CameraStateArmed ? S_OK : E_FAIL; }

HRESULT CLUMStackCamcorder::StopRecording() {
    if (m_State == CameraStateArmed) {
        if (m_CameraEvents) m_CameraEvents->Advise(static_cast<_ICameraEvents*>(this), 0);
        m_State = CameraStateIdle;
    }
    return S_OK;
}

HRESULT CLUMStackCamcorder::ImageGrabbed(IUnknown* camera, IUnknown* item, int32_t count) {
    if (m_SkipRate != 0) {
        // Only the first image after Record passes a non-zero rate: the
        // counter is lowered by the rate there and never raised.
        if (static_cast<uint32_t>(static_cast<int32_t>(m_SkipRate)) >
            static_cast<uint32_t>(-static_cast<int32_t>(m_SkipCounter)))
            return S_OK;
        m_SkipCounter = 0;
    }
    SmartPtr<ILUM> image = QueryAs<ILUM>(item, IID_ILUM);
    if (!image) return S_OK;
    SmartPtr<ILUMImageDIB> copy = CreateObjectAs<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    if (!copy || copy->Copy(image.Get(), 0) < 0 || !m_Stack) return S_OK;
    m_Stack->Add(copy.Get());
    return S_OK;
}

// ---- Playback ----------------------------------------------------------

HRESULT CLUMStackCamcorder::Live() {
    if (m_State == CameraStateLive) return S_OK;
    if (m_State == CameraStateArmed) StopRecording();
    m_State = CameraStateLive;
    m_Index = m_Forward != 0 ? 0 : StackCount();
    return S_OK;
}

HRESULT CLUMStackCamcorder::StopLive() {
    m_State = CameraStateIdle;
    return S_OK;
}

HRESULT CLUMStackCamcorder::Grab(int32_t mode, int16_t option, IUnknown* reserved) {
    if (mode != -1 && m_State == CameraStateLive) return StopLive();
    SmartPtr<ISimpleCollection> images = m_Stack.As<ISimpleCollection>(IID_ISimpleCollection);
    int32_t count = 0;
    if (images) images->get_Count(&count);
    int32_t index = m_Index + (m_Forward != 0 ? 1 : -1);
    m_Index = index;
    if (mode == -1 && m_Loop == 0) {
        if (index < 0 || index >= count) return E_FAIL;
    } else {
        if (index < 0) index = count - 1;
        if (index >= count) index = 0;
        m_Index = index;
    }
    SmartPtr<IUnknown> item;
    if (images) images->get_Item(index, item.Out());
    SmartPtr<ILUM> image = QueryAs<ILUM>(item.Get(), IID_ILUM);
    // An empty stack wraps to an index that holds nothing: nothing to show.
    if (image) Fire_ImageGrabbed(PrimaryUnknown(), image.Get(), 0);
    return S_OK;
}

HRESULT CLUMStackCamcorder::get_CameraState(CameraStateConstants* state) {
    if (m_LiveThread[0]) m_State = CameraStateLive;
    if (state) *state = static_cast<CameraStateConstants>(static_cast<int32_t>(m_State));
    return S_OK;
}

HRESULT CLUMStackCamcorder::get_Image(int32_t index, ILUM** image) {
    if (!image) return E_FAIL;
    *image = nullptr;
    SmartPtr<ISimpleCollection> images = m_Stack.As<ISimpleCollection>(IID_ISimpleCollection);
    SmartPtr<IUnknown> item;
    if (!images || images->get_Item(index, item.Out()) < 0 || !item) return E_FAIL;
    SmartPtr<ILUM> lum = QueryAs<ILUM>(item.Get(), IID_ILUM);
    if (!lum) return E_FAIL;
    *image = lum.Detach();
    return S_OK;
}

// ---- Parameters, settings and pages ------------------------------------

HRESULT CLUMStackCamcorder::Inquire(int32_t code, int32_t* value) {
    return IUIPropInterrogateImpl::Inquire(code, value);
}

HRESULT CLUMStackCamcorder::Control(int32_t code, int32_t value) {
    return IUIPropInterrogateImpl::Control(code, value);
}

HRESULT CLUMStackCamcorder::Save(IDataStream* stream, int32_t flags) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    UIPropInterrogate_SaveFolderStream(nullptr, folder.Get(), flags);
    int32_t capacity = 0;
    if (m_Stack) m_Stack->GetSize(&capacity, nullptr);
    return folder->WriteValue(Key(L"StackSize").Get(), &capacity, sizeof capacity, 0);
}

HRESULT CLUMStackCamcorder::Load(IDataStream* stream, int32_t flags) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    HRESULT hr = UIPropInterrogate_LoadFolderStream(folder.Get(), flags);
    int32_t capacity = 0;
    if (folder->ReadValue(Key(L"StackSize").Get(), &capacity, sizeof capacity, 0) >= 0 && m_Stack)
        m_Stack->SetSize(capacity, m_Loop);
    return hr;
}

HRESULT CLUMStackCamcorder::GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) {
    return HandOutPages({L"LUMCollectionPropPage", L"UIPropInterrogatePropPage"}, pages);
}
