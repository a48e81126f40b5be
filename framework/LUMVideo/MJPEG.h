// "LUMMJPEG": collects frames as JPEG and writes them as one motion-JPEG AVI
// file. Each frame is coded when it is added and kept only in coded form,
// outside memory (CFrameStore), so a long recording needs little memory;
// the images themselves are not kept.
#pragma once

#include "framework/LUMArch/JpegCodec.h"
#include "framework/LUMVideo/FrameStore.h"
#include "framework/LUMVideo/VideoFileName.h"
#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CMJPEG final : public CObject<CMJPEG>,
                     public ICreatableSimpleCollection,
                     public ILUMAVI,
                     public IFileArchive,
                     public IObjectInfoImpl<CMJPEG> {
    LUM_OBJECT_UNKNOWN(CMJPEG)
public:
    // ISimpleCollection
    HRESULT get_Count(int32_t* count) override;
    /// Decodes frame `index` into a new "LUMImageDIB" (8 bits for gray
    /// frames, else 24).
    HRESULT get_Item(int32_t index, IUnknown** item) override;

    // ICreatableSimpleCollection
    /// Codes the image at once with the current quality. E_POINTER for null,
    /// E_NOINTERFACE for an object that is no image, E_INVALIDARG for an
    /// empty image or one whose size, or whose kind (gray or colour),
    /// differs from the first frame's; E_FAIL when coding or storing fails.
    HRESULT Add(IUnknown* item) override;
    HRESULT Remove(int32_t index) override;
    /// Drops every frame; the next frame fixes size and kind anew.
    HRESULT RemoveAll() override;

    // ILUMAVI
    /// 10: frames per second (below 1 counts as 1); 11: JPEG quality of
    /// the frames added from now on (clamped to 1-100).
    HRESULT SetOption(int32_t option, int32_t value) override;
    HRESULT GetOption(int32_t option, int32_t* value) override;

    // IFileArchive
    HRESULT get_Filename(IString** name) override { return m_FileName.Get(name); }
    HRESULT put_Filename(IString* name) override { return m_FileName.Put(name); }
    HRESULT get_Filter(IString** filter, int16_t /*reserved*/) override { return VideoFilter(filter); }
    HRESULT get_Name(IString** name) override { return m_FileName.GetShort(name); }
    /// A writer: E_NOTIMPL.
    HRESULT Load() override { return E_NOTIMPL; }
    /// Writes the AVI file; E_FAIL without frames (no file is made), without
    /// a file name, or when the file cannot be written.
    HRESULT Save() override;
    /// The options of SetOption and GetOption.
    HRESULT Control(int32_t code, int32_t value) override { return SetOption(code, value); }
    HRESULT Inquire(int32_t code, int32_t* value) override { return GetOption(code, value); }
    /// Drops every frame, as RemoveAll.
    HRESULT Unload() override { return RemoveAll(); }

private:
    CVideoFileName m_FileName;
    CFrameStore m_Frames;
    JpegBlock m_Coded;  // reused from frame to frame
    int32_t m_Rate = kDefaultRate;
    int32_t m_Quality = kDefaultQuality;
    int32_t m_PartLimit = 0;
    // Fixed by the first frame.
    int32_t m_Width = 0;
    int32_t m_Height = 0;
    bool m_Gray = false;
};
LUM_KIT_OBJECT_NAME_DECLARE(CMJPEG)
