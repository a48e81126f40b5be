// UIPropInterrogate_LoadXML: a component's parameters read from arbitrary
// settings text held by the framework's "XMLStream", the way an archive
// file reaches it. Elements may be missing, unclosed, nested, repeated or
// broken; the parameter that is never persisted must keep its value.
#include "module/ModuleLoader.h"
#include "tests/fuzz/FuzzProbe.h"
#include "tests/fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    FuzzEnterOutputFolder();
    FUZZ_CHECK(CFuzzProbe::Names() != nullptr);
    // The modules it reaches are loaded now, so that the fuzzer counts
    // their coverage from the first input on.
    FUZZ_CHECK(CreateObjectAs<IUnknown>(L"XMLStream", IID_IUnknown));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::wstring text = FuzzWideText(data, size);
    SmartPtr<IDataStream> stream = CreateObjectAs<IDataStream>(L"XMLStream", IID_IDataStream);
    FUZZ_CHECK(stream);
    if (!text.empty()) stream->Write(text.data(), static_cast<int32_t>(text.size() * sizeof(wchar_t)));

    SmartPtr<CFuzzProbe> probe = CFuzzProbe::New();
    FUZZ_CHECK(probe);
    FUZZ_CHECK(probe->UIPropInterrogate_LoadXML(CFuzzProbe::Names(), stream.Get(), 0) == S_OK);
    FUZZ_CHECK(probe->m_Volatile == kFuzzVolatileValue);
    // What was loaded can be saved again.
    SmartPtr<IDataStream> out = CreateObjectAs<IDataStream>(L"XMLStream", IID_IDataStream);
    FUZZ_CHECK(out);
    FUZZ_CHECK(probe->UIPropInterrogate_SaveXML(CFuzzProbe::Names(), out.Get(), 0) == S_OK);
    return 0;
}
