// "LUMFileEx": one image file as an entry of a file list. It names its file
// (IFileArchive), reports on it (IFileAttributes), and after a successful
// Load holds the file's pixels itself: only then does it answer ILUM and
// ILUMImageDIB, so that a list of entries can tell loaded images apart.
#pragma once

#include <sys/stat.h>

#include <string>

#include "framework/LUMImage/Pixels.h"
#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CFileEx final : public CObject<CFileEx>,
                      public IFileArchive,
                      public ILUMFileEx,
                      public IFileAttributes,
                      public ImageDIBImpl<ILUMImageDIB>,
                      public IObjectInfoImpl<CFileEx> {
public:
    /// Quality of the JPEG files that Save writes.
    static constexpr int32_t kSaveQuality = 90;

    static const InterfaceEntry<CFileEx> kInterfaces[];
    IUnknown* PrimaryUnknown() { return static_cast<CObject<CFileEx>*>(this); }

    // IUnknown: ILUM and ILUMImageDIB only while pixels are held.
    HRESULT QueryInterface(const IID& iid, void** object) override;
    uint32_t AddRef() override { return InternalAddRef(); }
    uint32_t Release() override { return InternalRelease(); }

    // IFileArchive
    HRESULT get_Filename(IString** name) override;
    /// A null name clears it. Pixels already loaded stay (a later Save
    /// writes them under the new name).
    HRESULT put_Filename(IString* name) override;
    HRESULT get_Filter(IString** filter, int16_t reserved) override;
    /// The file name without its folder.
    HRESULT get_Name(IString** name) override;
    /// Reads the file again on every call; E_FAIL (and unloaded) when it
    /// cannot be read. With load option 0 only the header is checked and no
    /// pixels are kept.
    HRESULT Load() override;
    /// Writes the pixels to the file, the format by its extension.
    HRESULT Save() override;
    HRESULT Control(int32_t code, int32_t value) override;
    HRESULT Inquire(int32_t code, int32_t* value) override;
    HRESULT Unload() override;

    // ILUMFileEx
    /// mode 1 = pixels (the default), 0 = size only; other modes E_INVALIDARG.
    HRESULT SetLoadOptions(int32_t mode, int32_t reserved1, int32_t reserved2) override;
    HRESULT IsLoaded() override;

    // IFileAttributes: the file on disk, whether loaded or not.
    HRESULT get_FileName(IString** name) override;
    HRESULT get_Size(int64_t* bytes) override;
    HRESULT get_Attributes(int32_t* attributes) override;
    HRESULT get_Time(int32_t kind, int64_t* seconds) override;

private:
    friend class CObject<CFileEx>;
    /// The file name for the operating system; false without one.
    bool Path(std::string& path) const;
    /// stat of the file; false when there is no name or no such file.
    bool Status(struct stat& status) const;

    std::wstring m_FileName;
    bool m_HasName = false;
    int32_t m_LoadMode = 1;
};
LUM_KIT_OBJECT_NAME_DECLARE(CFileEx)
