#include "tests/params/ArchiveProbe.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "tests/support/ModuleHost.h"
#include "text/FileName.h"
#include "text/ValueConversion.h"

template <>
const tagREFString IObjectInfoImpl<CArchiveProbe>::m_ObjectName = {12, const_cast<wchar_t*>(L"ArchiveProbe")};

LUM_PARAM_PROBE_INTERFACES(CArchiveProbe);

HRESULT CArchiveProbe::FinalConstruct() {
    DeclareProbeParameters();
    static const int32_t speeds[] = {10, 20, 40};
    return PropE(ProbeChoice, &m_Choice, 0x43, nullptr, 20, speeds, 3);
}

SmartPtr<CArchiveProbe> NewProbe() {
    SmartPtr<CArchiveProbe> probe = CArchiveProbe::New();
    EXPECT_TRUE(probe);
    return probe;
}

IUIPropInterrogateEx* Props(CArchiveProbe* probe) { return probe; }

SmartPtr<IString> Str(const std::wstring& text) {
    tagREFString view{static_cast<int32_t>(text.size()), const_cast<wchar_t*>(text.data())};
    return SmartPtr<IString>::Adopt(ISCreate(view));
}

std::wstring InstallPath() {
    SmartPtr<IString> path;
    FILENAMEGetInstallPath(path.Out());
    return TextOf(path.Get());
}

namespace {

std::string MakeFolder() {
    char pattern[] = "/tmp/lum-params-XXXXXX";
    const char* made = mkdtemp(pattern);
    return made ? std::string(made) : std::string();
}

/// The probe's string folder, in place for the whole test run.
class ProbeStrings : public testing::Environment {
public:
    void SetUp() override {
        std::ofstream(ProbeStringFolder() + "/ArchiveProbe.txt")
            << "1=Byte Value\n2=Short Value\n3=Frame Rate\n4=Colour\n5=Float Value\n6=Double Value\n"
               "7=Label\n8=File Name\n9=Object\n10=Volatile\n11=Speed\n20=Slow|Medium|Fast\n";
        setenv("LUM_STRINGS", ProbeStringFolder().c_str(), 1);
    }
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::remove_all(ProbeStringFolder(), ignored);
        for (const std::string& folder : Scratch()) std::filesystem::remove_all(folder, ignored);
    }
    static std::vector<std::string>& Scratch() {
        static std::vector<std::string> folders;
        return folders;
    }
};

[[maybe_unused]] const bool kRegistered = (testing::AddGlobalTestEnvironment(new ProbeStrings), true);

}  // namespace

const std::string& ProbeStringFolder() {
    static const std::string folder = MakeFolder();
    return folder;
}

std::string ScratchFolder() {
    std::string folder = MakeFolder();
    ProbeStrings::Scratch().push_back(folder);
    return folder;
}
