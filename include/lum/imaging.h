// Images, image files and video.
#pragma once

#include "lum/strings.h"

/// An image: rows top-down, `stride` bytes apart; 8 = gray, 24 = B,G,R,
/// 32 = B,G,R,A bytes per pixel.
struct ILUM : IUnknown {
    virtual HRESULT get_Width(int32_t* width) = 0;
    virtual HRESULT get_Height(int32_t* height) = 0;
    virtual HRESULT get_BitsPerPixel(int32_t* bits) = 0;
    virtual HRESULT get_Stride(int32_t* bytes) = 0;
    virtual HRESULT get_Bits(uint8_t** pixels) = 0;
};

struct ILUMImageDIB : ILUM {
    virtual HRESULT Create(int32_t width, int32_t height, int32_t bitsPerPixel) = 0;
    virtual HRESULT Copy(ILUM* source, int32_t mask) = 0;
};

struct ILUMImageCANVAS : ILUMImageDIB {
    virtual HRESULT get_Rect(CANVASRect* rect) = 0;
    virtual HRESULT put_Rect(CANVASRect rect) = 0;
};

struct ILUMArchive : IUnknown {
    virtual HRESULT Read(IString* fileName, ILUM** image) = 0;
    virtual HRESULT Write(IString* fileName, ILUM* image, int32_t quality) = 0;
};

struct ILUMFileEx : IUnknown {
    virtual HRESULT SetLoadOptions(int32_t mode, int32_t reserved1, int32_t reserved2) = 0;
    virtual HRESULT IsLoaded() = 0;
};

struct ILUMAVI : IUnknown {
    virtual HRESULT SetOption(int32_t option, int32_t value) = 0;
    virtual HRESULT GetOption(int32_t option, int32_t* value) = 0;
};

struct ILUMViewer : IUnknown {
    virtual HRESULT get_Image(ILUM** image) = 0;
    virtual HRESULT put_Image(ILUM* image) = 0;
    virtual HRESULT get_FrameCount(int32_t* count) = 0;
    virtual HRESULT get_RefreshCount(int32_t* count) = 0;
};
