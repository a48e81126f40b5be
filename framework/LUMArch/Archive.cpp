#include "framework/LUMArch/Archive.h"

#include <string>

#include "framework/LUMArch/ImageCodec.h"
#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CArchive, L"LUMArchive")

const InterfaceEntry<CArchive> CArchive::kInterfaces[] = {
    InterfaceEntry<CArchive>::Of<ILUMArchive>(IID_ILUMArchive),
    InterfaceEntry<CArchive>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CArchive>::End(),
};

namespace {

// Decodes into an image object of the framework, sized through its Create.
class ImageObjectTarget final : public ImageTarget {
public:
    explicit ImageObjectTarget(ILUMImageDIB* image) : m_Image(image) {}
    HRESULT Allocate(int32_t width, int32_t height, int32_t bits, uint8_t** pixels, int32_t* stride) override {
        HRESULT hr = m_Image->Create(width, height, bits);
        if (hr < 0) return hr;
        if ((hr = m_Image->get_Bits(pixels)) < 0 || (hr = m_Image->get_Stride(stride)) < 0) return hr;
        // A replacement image class must honour the layout it was asked for.
        int32_t checkWidth = 0, checkHeight = 0, checkBits = 0;
        m_Image->get_Width(&checkWidth);
        m_Image->get_Height(&checkHeight);
        m_Image->get_BitsPerPixel(&checkBits);
        if (!*pixels || checkWidth != width || checkHeight != height || checkBits != bits ||
            *stride < int64_t(width) * (bits / 8))
            return E_FAIL;
        return S_OK;
    }

private:
    ILUMImageDIB* m_Image;
};

}  // namespace

HRESULT CArchive::Read(IString* fileName, ILUM** image) {
    if (!image) return E_POINTER;
    *image = nullptr;
    if (!fileName) return E_POINTER;
    std::string path;
    if (!KitNarrowFileName(KitTextOf(fileName), path) || path.empty()) return E_FAIL;
    SmartPtr<ILUMImageDIB> decoded = KitCreate<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    if (!decoded) return E_FAIL;
    ImageObjectTarget target(decoded.Get());
    if (ReadImageFile(path, target) < 0) return E_FAIL;
    return decoded->QueryInterface(IID_ILUM, reinterpret_cast<void**>(image)) < 0 ? E_FAIL : S_OK;
}

HRESULT CArchive::Write(IString* fileName, ILUM* image, int32_t quality) {
    if (!fileName || !image) return E_POINTER;
    const std::wstring name = KitTextOf(fileName);
    const ImageFormat format = FormatOfName(name);
    if (format == ImageFormat::None) return E_INVALIDARG;
    ImageView view{};
    if (ViewOf(image, view) < 0) return E_INVALIDARG;
    std::string path;
    if (!KitNarrowFileName(name, path)) return E_FAIL;
    return WriteImageFile(path, format, view, quality);
}
