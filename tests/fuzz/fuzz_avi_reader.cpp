// The AVI reader of the kit ("LUMAVI") on arbitrary files: the structure
// (RIFF lists, headers, OpenDML and idx1 indexes, the chunk walk), then the
// first frames read and decoded (motion JPEG or uncompressed rows) into
// images of the framework.
#include "framework/LUMVideo/AVI.h"
#include "framework/common/KitString.h"
#include "tests/fuzz/FuzzSupport.h"

namespace {

/// Frames decoded per input: enough to reach every decoding path, few
/// enough to keep inputs fast.
constexpr int32_t kFramesDecoded = 3;

FuzzMemoryFile* g_File = nullptr;
SmartPtr<IString> g_Name;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    FuzzEnterOutputFolder();
    g_File = new FuzzMemoryFile();
    g_Name = KitNewString(std::wstring(g_File->Path().begin(), g_File->Path().end()));
    FUZZ_CHECK(g_Name);
    // The image module the frames are decoded into is loaded now, so that
    // the fuzzer counts its coverage from the first input on.
    FUZZ_CHECK(KitCreate<IUnknown>(L"LUMImageDIB", IID_IUnknown));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_File->Set(data, size);
    SmartPtr<CAVI> avi = CObject<CAVI>::New();
    FUZZ_CHECK(avi);
    avi->put_Filename(g_Name.Get());
    int32_t count = -1;
    if (avi->Load() < 0) {
        FUZZ_CHECK(avi->get_Count(&count) == S_OK && count == 0);
        return 0;
    }
    FUZZ_CHECK(avi->get_Count(&count) == S_OK && count > 0);
    int32_t rate = 0;
    FUZZ_CHECK(avi->GetOption(10, &rate) == S_OK && rate >= 1);
    for (int32_t i = 0; i < count && i < kFramesDecoded; ++i) {
        SmartPtr<IUnknown> frame;
        if (avi->get_Item(i, frame.Out()) < 0) continue;
        SmartPtr<ILUM> image = QueryAs<ILUM>(frame.Get(), IID_ILUM);
        FUZZ_CHECK(image);
        int32_t width = 0, height = 0, bits = 0;
        image->get_Width(&width);
        image->get_Height(&height);
        image->get_BitsPerPixel(&bits);
        FUZZ_CHECK(width > 0 && height > 0 && (bits == 8 || bits == 24 || bits == 32));
    }
    // The last frame too: its index entry is the one most often cut off.
    SmartPtr<IUnknown> last;
    avi->get_Item(count - 1, last.Out());
    return 0;
}
