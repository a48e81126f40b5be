// "LUMViewer": a headless display sink. Advised on a camera it keeps the
// last image of each ImageGrabbed and counts them; pages lay overlays over
// it through its ISuperCollection (whose entries are otherwise unused), and
// Refresh only counts. Internally locked: the camera's thread delivers
// while the host reads.
#pragma once

#include "framework/FileNames/LockedSuperCollection.h"
#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CViewer final : public CObject<CViewer>,
                      public ILUMViewer,
                      public _ICameraEvents,
                      public LockedSuperCollectionImpl,
                      public IUIRefreshableObject,
                      public IObjectInfoImpl<CViewer> {
    LUM_OBJECT_UNKNOWN(CViewer)
public:
    // ILUMViewer
    /// E_FAIL before the first image.
    HRESULT get_Image(ILUM** image) override;
    /// Shows `image` (E_POINTER for null); not counted as a frame.
    HRESULT put_Image(ILUM* image) override;
    HRESULT get_FrameCount(int32_t* count) override;
    HRESULT get_RefreshCount(int32_t* count) override;

    // _ICameraEvents
    /// Keeps the image (it must answer ILUM) and counts it.
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override;

    // IUIRefreshableObject
    HRESULT Refresh(int32_t what) override;

private:
    /// Puts `image` in place of the one shown; the old one is released
    /// outside the lock.
    void Take(ILUM* image, bool frame);

    // Guarded by m_Lock (LockedSuperCollectionImpl).
    SmartPtr<ILUM> m_Image;
    int32_t m_Frames = 0;
    int32_t m_Refreshes = 0;
};
LUM_KIT_OBJECT_NAME_DECLARE(CViewer)
