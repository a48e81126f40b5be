// The folder-stream file reader of the kit ("FolderStream") on arbitrary
// files: the parser itself, a round trip (what was read is written and read
// again to the same bytes), and for files that parse, a component's settings
// loaded from them through the framework's "FolderStream" object.
#include <string>
#include <string_view>

#include "framework/Streams/FolderTree.h"
#include "module/ModuleLoader.h"
#include "tests/fuzz/FuzzProbe.h"
#include "tests/fuzz/FuzzSupport.h"
#include "text/ValueConversion.h"

namespace {

FuzzNamedFile* g_Archive = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    FuzzEnterOutputFolder();
    g_Archive = new FuzzNamedFile(".txt");
    FUZZ_CHECK(CFuzzProbe::Names() != nullptr);
    // The modules it reaches are loaded now, so that the fuzzer counts
    // their coverage from the first input on.
    FUZZ_CHECK(CreateObjectAs<IUnknown>(L"FolderStream", IID_IUnknown));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    FolderNode root;
    if (!FolderParse(bytes, root)) {
        FUZZ_CHECK(root.entries.empty());
        return 0;
    }
    // A file that parses is written back byte for byte.
    std::string written;
    FUZZ_CHECK(FolderSerialize(root, written));
    FUZZ_CHECK(written == bytes);

    // The same file as a component's folder-stream archive.
    g_Archive->Set(data, size);
    SmartPtr<CFuzzProbe> probe = CFuzzProbe::New();
    FUZZ_CHECK(probe);
    const std::wstring archive = g_Archive->WidePath();
    SmartPtr<IString> archiveName = SmartPtr<IString>::Adopt(ISCreate(archive.c_str()));
    probe->put_Filename(archiveName.Get());
    probe->Load();
    FUZZ_CHECK(probe->m_Volatile == kFuzzVolatileValue);
    return 0;
}
