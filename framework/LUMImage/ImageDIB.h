// "LUMImageDIB": an image that owns its pixels. "LUMImageCANVAS": the same
// plus the area of a host window it belongs to (headless: only recorded).
#pragma once

#include "framework/LUMImage/Pixels.h"
#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CImageDIB final : public CObject<CImageDIB>,
                        public ImageDIBImpl<ILUMImageDIB>,
                        public IObjectInfoImpl<CImageDIB> {
    LUM_OBJECT_UNKNOWN(CImageDIB)
public:
    /// The pixels, for code of this module that fills a new image in place.
    CPixels& Pixels() { return m_Pixels; }
};
LUM_KIT_OBJECT_NAME_DECLARE(CImageDIB)

class CImageCANVAS final : public CObject<CImageCANVAS>,
                           public ImageDIBImpl<ILUMImageCANVAS>,
                           public IObjectInfoImpl<CImageCANVAS> {
    LUM_OBJECT_UNKNOWN(CImageCANVAS)
public:
    HRESULT get_Rect(CANVASRect* rect) override;
    HRESULT put_Rect(CANVASRect rect) override;

private:
    CANVASRect m_Rect{0, 0, 0, 0};
};
LUM_KIT_OBJECT_NAME_DECLARE(CImageCANVAS)
