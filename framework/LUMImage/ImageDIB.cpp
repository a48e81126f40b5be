#include "framework/LUMImage/ImageDIB.h"

LUM_KIT_OBJECT_NAME(CImageDIB, L"LUMImageDIB")
LUM_KIT_OBJECT_NAME(CImageCANVAS, L"LUMImageCANVAS")

const InterfaceEntry<CImageDIB> CImageDIB::kInterfaces[] = {
    InterfaceEntry<CImageDIB>::Of<ILUMImageDIB>(IID_ILUMImageDIB),
    InterfaceEntry<CImageDIB>::Of<ILUMImageDIB>(IID_ILUM),
    InterfaceEntry<CImageDIB>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CImageDIB>::End(),
};

const InterfaceEntry<CImageCANVAS> CImageCANVAS::kInterfaces[] = {
    InterfaceEntry<CImageCANVAS>::Of<ILUMImageCANVAS>(IID_ILUMImageCANVAS),
    InterfaceEntry<CImageCANVAS>::Of<ILUMImageCANVAS>(IID_ILUMImageDIB),
    InterfaceEntry<CImageCANVAS>::Of<ILUMImageCANVAS>(IID_ILUM),
    InterfaceEntry<CImageCANVAS>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CImageCANVAS>::End(),
};

HRESULT CImageCANVAS::get_Rect(CANVASRect* rect) {
    if (!rect) return E_POINTER;
    *rect = m_Rect;
    return S_OK;
}

HRESULT CImageCANVAS::put_Rect(CANVASRect rect) {
    m_Rect = rect;
    return S_OK;
}
