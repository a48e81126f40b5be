// "probe": creates each component of the camera module and reports what it
// answers, as a quick check that a build and its framework kit work.
#include <unistd.h>

#include <cstdio>
#include <cwchar>
#include <string>

#include "tools/lumhost/Commands.h"
#include "tools/lumhost/FrameworkHost.h"

namespace {

struct NamedIID {
    const char* name;
    const IID* iid;
};

const NamedIID kInterfaces[] = {
#define LUM_INTERFACE(Name) {#Name, &IID_##Name},
#include "lum/interface_names.h"
#undef LUM_INTERFACE
};

// Framework modules a component cannot be created without.
struct Requirement {
    const wchar_t* component;
    const char* moduleFile;
};
const Requirement kRequirements[] = {
    {L"LUMCamWindow", "LUMImage.so"},
    {L"LUMFileGrab", "FileNames.so"},
};

/// The first missing module file the component needs, or null.
const char* MissingModuleOf(const wchar_t* component) {
    for (const Requirement& r : kRequirements) {
        if (std::wcscmp(r.component, component) != 0) continue;
        if (access((std::string("./") + r.moduleFile).c_str(), R_OK) != 0) return r.moduleFile;
    }
    return nullptr;
}

std::string Narrow(const wchar_t* text, int32_t length) {
    std::string out;
    for (int32_t i = 0; i < length; ++i) out += text[i] < 128 ? static_cast<char>(text[i]) : '?';
    return out;
}

}  // namespace

int ProbeCommand(FrameworkHost& host, const std::vector<std::string>& args) {
    if (!args.empty()) {
        std::fprintf(stderr, "probe takes no arguments\n");
        return 2;
    }
    int failures = 0;
    for (const wchar_t* cls : {L"LUMCamcorder", L"LUMStackCamcorder", L"LUMFilePlayer", L"LUMCamWindow",
                               L"LUMFileGrab"}) {
        HRESULT hr = S_OK;
        SmartPtr<IUnknown> object = host.Create<IUnknown>(cls, IID_IUnknown, &hr);
        std::string name = Narrow(cls, static_cast<int32_t>(wcslen(cls)));
        if (!object) {
            if (const char* missing = MissingModuleOf(cls)) {
                std::printf("%-18s not created (%s): it needs ./%s, which is not in this folder\n", name.c_str(),
                            ResultText(hr).c_str(), missing);
            } else {
                std::printf("%-18s cannot be created: %s\n", name.c_str(), ResultText(hr).c_str());
                ++failures;
            }
            continue;
        }
        std::string reported = "?";
        if (SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object.Get(), IID_IObjectInfo)) {
            tagREFString view{};
            if (info->GetName(0, &view) == S_OK) reported = Narrow(view.text, view.length);
        }
        std::printf("%-18s reports \"%s\", answers:", name.c_str(), reported.c_str());
        for (const NamedIID& entry : kInterfaces) {
            SmartPtr<IUnknown> answer;
            if (object->QueryInterface(*entry.iid, answer.OutVoid()) == S_OK) std::printf(" %s", entry.name);
        }
        std::printf("\n");
    }
    return failures == 0 ? 0 : 1;
}
