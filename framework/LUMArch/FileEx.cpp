#include "framework/LUMArch/FileEx.h"

#include <sys/stat.h>

#include "framework/LUMArch/ImageCodec.h"
#include "framework/common/KitString.h"
#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CFileEx, L"LUMFileEx")

const InterfaceEntry<CFileEx> CFileEx::kInterfaces[] = {
    InterfaceEntry<CFileEx>::Of<IFileArchive>(IID_IFileArchive),
    InterfaceEntry<CFileEx>::Of<ILUMFileEx>(IID_ILUMFileEx),
    InterfaceEntry<CFileEx>::Of<IFileAttributes>(IID_IFileAttributes),
    InterfaceEntry<CFileEx>::Of<ILUMImageDIB>(IID_ILUMImageDIB),
    InterfaceEntry<CFileEx>::Of<ILUMImageDIB>(IID_ILUM),
    InterfaceEntry<CFileEx>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CFileEx>::End(),
};

namespace {

// Seconds from the Unix epoch to 2000-01-01 00:00:00 UTC.
constexpr int64_t kEpoch2000 = 946684800;

// Decodes into a private store, so that a failed Load leaves nothing behind;
// with `sizeOnly` the decoder stops after the header.
class StoreTarget final : public ImageTarget {
public:
    StoreTarget(CPixels& store, bool sizeOnly) : m_Store(store), m_SizeOnly(sizeOnly) {}
    HRESULT Allocate(int32_t width, int32_t height, int32_t bits, uint8_t** pixels, int32_t* stride) override {
        if (width <= 0 || height <= 0 || !CPixels::ValidBits(bits)) return E_FAIL;
        if (m_SizeOnly) return S_FALSE;
        // Decoders write every row's pixels but leave the row padding alone:
        // only rows with padding need a zeroed block.
        const bool padded = CPixels::StrideFor(width, bits) != CPixels::RowBytes(width, bits);
        if (m_Store.Allocate(width, height, bits, padded) < 0) return E_FAIL;
        *pixels = m_Store.Data();
        *stride = m_Store.Stride();
        return S_OK;
    }

private:
    CPixels& m_Store;
    bool m_SizeOnly;
};

HRESULT HandOut(const std::wstring& text, IString** out) {
    if (!out) return E_POINTER;
    *out = KitNewString(text).Detach();
    return *out ? S_OK : E_FAIL;
}

}  // namespace

HRESULT CFileEx::QueryInterface(const IID& iid, void** object) {
    if (m_Pixels.Empty() && (iid == IID_ILUM || iid == IID_ILUMImageDIB)) {
        if (!object) return E_POINTER;
        *object = nullptr;
        return E_NOINTERFACE;
    }
    return QueryInterfaceFromTable<CFileEx>(this, kInterfaces, iid, object);
}

bool CFileEx::Path(std::string& path) const {
    return m_HasName && !m_FileName.empty() && KitNarrowFileName(m_FileName, path);
}

bool CFileEx::Status(struct stat& status) const {
    std::string path;
    return Path(path) && ::stat(path.c_str(), &status) == 0;
}

HRESULT CFileEx::get_Filename(IString** name) {
    if (!name) return E_POINTER;
    *name = nullptr;
    if (!m_HasName) return E_FAIL;
    return HandOut(m_FileName, name);
}

HRESULT CFileEx::put_Filename(IString* name) {
    m_HasName = name != nullptr;
    m_FileName = name ? KitTextOf(name) : std::wstring();
    return S_OK;
}

HRESULT CFileEx::get_Filter(IString** filter, int16_t /*reserved*/) {
    return HandOut(L"Image files|*.bmp;*.jpg;*.jpeg;*.png||", filter);
}

HRESULT CFileEx::get_Name(IString** name) {
    if (!name) return E_POINTER;
    *name = nullptr;
    if (!m_HasName) return E_FAIL;
    const size_t slash = m_FileName.find_last_of(L'/');
    return HandOut(slash == std::wstring::npos ? m_FileName : m_FileName.substr(slash + 1), name);
}

HRESULT CFileEx::Load() {
    m_Pixels.Clear();
    std::string path;
    if (!Path(path)) return E_FAIL;
    CPixels loaded;
    StoreTarget target(loaded, m_LoadMode == 0);
    if (ReadImageFile(path, target) < 0) return E_FAIL;
    m_Pixels.TakeFrom(loaded);
    return S_OK;
}

HRESULT CFileEx::Save() {
    if (m_Pixels.Empty()) return E_FAIL;
    std::string path;
    if (!Path(path)) return E_FAIL;
    const ImageFormat format = FormatOfName(m_FileName);
    if (format == ImageFormat::None) return E_INVALIDARG;
    const ImageView view{m_Pixels.Data(), m_Pixels.Width(), m_Pixels.Height(), m_Pixels.Bits(), m_Pixels.Stride()};
    return WriteImageFile(path, format, view, kSaveQuality);
}

HRESULT CFileEx::Control(int32_t /*code*/, int32_t /*value*/) { return E_INVALIDARG; }

HRESULT CFileEx::Inquire(int32_t /*code*/, int32_t* /*value*/) { return E_INVALIDARG; }

HRESULT CFileEx::Unload() {
    m_Pixels.Clear();
    return S_OK;
}

HRESULT CFileEx::SetLoadOptions(int32_t mode, int32_t /*reserved1*/, int32_t /*reserved2*/) {
    if (mode != 0 && mode != 1) return E_INVALIDARG;
    m_LoadMode = mode;
    return S_OK;
}

HRESULT CFileEx::IsLoaded() { return m_Pixels.Empty() ? S_FALSE : S_OK; }

HRESULT CFileEx::get_FileName(IString** name) { return get_Filename(name); }

HRESULT CFileEx::get_Size(int64_t* bytes) {
    if (!bytes) return E_POINTER;
    struct stat status {};
    if (!Status(status)) return E_FAIL;
    *bytes = status.st_size;
    return S_OK;
}

HRESULT CFileEx::get_Attributes(int32_t* attributes) {
    if (!attributes) return E_POINTER;
    struct stat status {};
    if (!Status(status)) return E_FAIL;
    const size_t slash = m_FileName.find_last_of(L'/');
    const size_t start = slash == std::wstring::npos ? 0 : slash + 1;
    int32_t bits = 0;
    if (S_ISDIR(status.st_mode)) bits |= 1;
    if ((status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) bits |= 2;
    if (start < m_FileName.size() && m_FileName[start] == L'.') bits |= 4;
    *attributes = bits;
    return S_OK;
}

HRESULT CFileEx::get_Time(int32_t kind, int64_t* seconds) {
    if (!seconds) return E_POINTER;
    if (kind < 0 || kind > 2) return E_INVALIDARG;
    struct stat status {};
    if (!Status(status)) return E_FAIL;
    const time_t times[3] = {status.st_ctime, status.st_atime, status.st_mtime};
    *seconds = static_cast<int64_t>(times[kind]) - kEpoch2000;
    return S_OK;
}
