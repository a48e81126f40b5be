// "LUMArchive": reads one image file into a new "LUMImageDIB" (the format
// recognised by content) and writes one image to a file (the format chosen
// by the file name's extension).
#pragma once

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CArchive final : public CObject<CArchive>, public ILUMArchive, public IObjectInfoImpl<CArchive> {
    LUM_OBJECT_UNKNOWN(CArchive)
public:
    /// E_POINTER for a null argument; E_FAIL when the file cannot be read,
    /// is not JPEG, BMP or PNG, is damaged, or no "LUMImageDIB" can be made.
    HRESULT Read(IString* fileName, ILUM** image) override;
    /// E_POINTER for a null name or image; E_INVALIDARG for an extension
    /// other than jpg, jpeg, bmp, png or an empty image (nothing is
    /// written); E_FAIL when the file cannot be created or written.
    /// `quality` is clamped to 1-100 and used for JPEG.
    HRESULT Write(IString* fileName, ILUM* image, int32_t quality) override;
};
LUM_KIT_OBJECT_NAME_DECLARE(CArchive)
