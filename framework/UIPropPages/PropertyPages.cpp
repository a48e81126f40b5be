#include "framework/UIPropPages/PropertyPages.h"

LUM_KIT_OBJECT_NAME(CUIPropInterrogatePropPage, L"UIPropInterrogatePropPage")
LUM_KIT_OBJECT_NAME(CUIFileArchivePropPage, L"UIFileArchivePropPage")
LUM_KIT_OBJECT_NAME(CLUMCollectionPropPage, L"LUMCollectionPropPage")
LUM_KIT_OBJECT_NAME(CUIParametersSlidePropPage, L"UIParametersSlidePropPage")

HRESULT CUIParametersSlidePropPage::OnShow() {
    if (m_Mode != 1 || !m_Objects) return S_OK;
    SmartPtr<IUnknown> first, second;
    m_Objects->get_Item(0, first.Out());
    m_Objects->get_Item(1, second.Out());
    SmartPtr<INamedCollection> parameters = QueryAs<INamedCollection>(first.Get(), IID_INamedCollection);
    SmartPtr<ISuperCollection> viewer = QueryAs<ISuperCollection>(second.Get(), IID_ISuperCollection);
    // Anything else shown as an overlay is only kept.
    if (!parameters || !viewer) return S_OK;
    return viewer->AddOverlay(parameters.Get());
}
