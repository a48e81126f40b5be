// FileArchiveLoad on arbitrary files, as bytes and as wide text (UTF-16 with
// a byte-order mark, or 8-bit multibyte text), and a component's whole XML
// archive load from such a file (header tokens skipped, then its settings).
#include <cstring>

#include "archive/FileArchive.h"
#include "module/ModuleLoader.h"
#include "tests/fuzz/FuzzProbe.h"
#include "tests/fuzz/FuzzSupport.h"
#include "text/ValueConversion.h"

namespace {

FuzzMemoryFile* g_File = nullptr;
FuzzNamedFile* g_Archive = nullptr;

bool HasMark(const uint8_t* data, size_t size) {
    const size_t limit = size < 8 ? size : 8;
    for (size_t i = 0; i + 1 < limit; ++i)
        if ((data[i] == 0xFE && data[i + 1] == 0xFF) || (data[i] == 0xFF && data[i + 1] == 0xFE)) return true;
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    FuzzEnterOutputFolder();
    g_File = new FuzzMemoryFile();
    g_Archive = new FuzzNamedFile(".xml");
    FUZZ_CHECK(CFuzzProbe::Names() != nullptr);
    // The modules it reaches are loaded now, so that the fuzzer counts
    // their coverage from the first input on.
    FUZZ_CHECK(CreateObjectAs<IUnknown>(L"XMLStreamEx", IID_IUnknown));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_File->Set(data, size);
    const std::wstring name(g_File->Path().begin(), g_File->Path().end());
    const tagREFString view{static_cast<int32_t>(name.size()), const_cast<wchar_t*>(name.data())};

    void* buffer = nullptr;
    int length = -1;
    HRESULT hr = FileArchiveLoad(view, &buffer, &length, 0);
    if (size == 0) {
        FUZZ_CHECK(hr == E_FAIL && !buffer);
    } else {
        FUZZ_CHECK(hr == S_OK && buffer && length == static_cast<int>(size));
        const auto* bytes = static_cast<unsigned char*>(buffer);
        FUZZ_CHECK(std::memcmp(bytes, data, size) == 0 && bytes[size] == 0);
        delete[] bytes;
    }

    buffer = nullptr;
    length = -1;
    hr = FileArchiveLoad(view, &buffer, &length, 1);
    if (size == 0) {
        FUZZ_CHECK(hr == E_FAIL && !buffer);
    } else {
        FUZZ_CHECK(hr == S_OK && buffer && length >= 0);
        auto* text = static_cast<wchar_t*>(buffer);
        if (HasMark(data, size)) {
            // One character per 16-bit unit after the mark, the last one 0.
            FUZZ_CHECK(length == static_cast<int>(size / 2) - 1);
            for (int i = 0; i < length; ++i)
                FUZZ_CHECK(text[i] == static_cast<wchar_t>(data[2 * (i + 1)] | data[2 * (i + 1) + 1] << 8));
        } else {
            FUZZ_CHECK(length <= static_cast<int>(size));
        }
        FUZZ_CHECK(text[length] == L'\0');
        delete[] text;
    }

    // The same bytes as a component's XML archive.
    g_Archive->Set(data, size);
    SmartPtr<CFuzzProbe> probe = CFuzzProbe::New();
    FUZZ_CHECK(probe);
    const std::wstring archive = g_Archive->WidePath();
    SmartPtr<IString> archiveName = SmartPtr<IString>::Adopt(ISCreate(archive.c_str()));
    probe->put_Filename(archiveName.Get());
    hr = probe->Load();
    FUZZ_CHECK(size == 0 ? hr < 0 : true);
    FUZZ_CHECK(probe->m_Volatile == kFuzzVolatileValue);
    return 0;
}
