// "LUMAVI": reads an AVI file's first video stream. Load reads only the
// file's structure and the table of frames; each get_Item reads its frame
// from the file then and decodes it into a new "LUMImageDIB", so a file of
// any length costs memory only for its table.
#pragma once

#include <cstdint>

#include "framework/LUMVideo/AviReader.h"
#include "framework/LUMVideo/VideoFileName.h"
#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CAVI final : public CObject<CAVI>,
                   public IFileArchive,
                   public ISimpleCollection,
                   public ILUMAVI,
                   public IObjectInfoImpl<CAVI> {
    LUM_OBJECT_UNKNOWN(CAVI)
public:
    // IFileArchive
    HRESULT get_Filename(IString** name) override { return m_FileName.Get(name); }
    HRESULT put_Filename(IString* name) override { return m_FileName.Put(name); }
    HRESULT get_Filter(IString** filter, int16_t /*reserved*/) override { return VideoFilter(filter); }
    HRESULT get_Name(IString** name) override { return m_FileName.GetShort(name); }
    /// Reads the file's structure (what was loaded before is dropped first).
    /// E_FAIL, and no frames, when the file cannot be opened, is not an AVI
    /// file, its first video stream is in an unsupported coding, or no frame
    /// can be located.
    HRESULT Load() override;
    /// A reader: E_NOTIMPL.
    HRESULT Save() override { return E_NOTIMPL; }
    HRESULT Control(int32_t code, int32_t value) override { return SetOption(code, value); }
    HRESULT Inquire(int32_t code, int32_t* value) override { return GetOption(code, value); }
    /// Drops the frames and closes the file.
    HRESULT Unload() override;

    // ISimpleCollection
    HRESULT get_Count(int32_t* count) override;
    /// Reads and decodes frame `index` into a new image, on every call.
    /// E_INVALIDARG out of range; E_FAIL when the frame is damaged or cannot
    /// be read.
    HRESULT get_Item(int32_t index, IUnknown** item) override;

    // ILUMAVI
    /// 10: the rate (a later Load replaces it with the file's); 11: a
    /// quality kept for symmetry with the writer (reading ignores it).
    HRESULT SetOption(int32_t option, int32_t value) override;
    /// 10: the frames per second of the file loaded last (rounded; 15
    /// before any file).
    HRESULT GetOption(int32_t option, int32_t* value) override;

    ~CAVI();

private:
    CVideoFileName m_FileName;
    int m_File = -1;
    AviVideo m_Video;
    int32_t m_Rate = kDefaultRate;
    int32_t m_Quality = kDefaultQuality;
};
LUM_KIT_OBJECT_NAME_DECLARE(CAVI)
