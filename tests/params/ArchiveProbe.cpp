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

const InterfaceEntry<CArchiveProbe> CArchiveProbe::kInterfaces[] = {
    InterfaceEntry<CArchiveProbe>::Of<IObjectInfoImpl<CArchiveProbe>>(IID_IObjectInfo),
    InterfaceEntry<CArchiveProbe>::Of<IDataPersist>(IID_IDataPersist),
    InterfaceEntry<CArchiveProbe>::Of<IUIPropInterrogateImpl<CArchiveProbe, IUIPropInterrogateEx, 10>>(
        IID_IUIPropInterrogate),
    InterfaceEntry<CArchiveProbe>::Of<IUIPropInterrogateImpl<CArchiveProbe, IUIPropInterrogateEx, 10>>(
        IID_IUIPropInterrogateEx),
    InterfaceEntry<CArchiveProbe>::Of<IFileArchiveImpl<CArchiveProbe, IFileArchive>>(IID_IFileArchive),
    InterfaceEntry<CArchiveProbe>::End(),
};

HRESULT CArchiveProbe::FinalConstruct() {
    DeclareParameter(ProbeByte, &m_Byte, 1);
    DeclareParameter(ProbeShort, &m_Short, 2);
    DeclareParameter(ProbeLong, &m_Long, 0);  // type 0 is stored as 3
    DeclareParameter(ProbeColour, &m_Colour, 0x23);
    DeclareParameter(ProbeFloat, &m_Float, 4);
    DeclareParameter(ProbeDouble, &m_Double, 5);
    DeclareParameter(ProbeLabel, &m_Label, 6);
    DeclareParameter(ProbeFile, &m_File, 0x106);
    DeclareParameter(ProbeObject, &m_Object, 7);
    DeclareParameter(ProbeVolatile, &m_Volatile, 0x04000003);
    static const int32_t speeds[] = {10, 20, 40};
    return PropE(ProbeChoice, &m_Choice, 0x43, nullptr, 20, speeds, 3);
}

void CArchiveProbe::FinalRelease() {
    m_Label.Reset();
    m_File.Reset();
    m_Object.Reset();
}

HRESULT CArchiveProbe::Save(IDataStream* stream, int32_t flags) {
    if (QueryAs<IXMLStream>(stream, IID_IXMLStream)) return UIPropInterrogate_SaveXML(nullptr, stream, flags);
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    return UIPropInterrogate_SaveFolderStream(nullptr, folder.Get(), flags);
}

HRESULT CArchiveProbe::Load(IDataStream* stream, int32_t flags) {
    if (QueryAs<IXMLStream>(stream, IID_IXMLStream)) return UIPropInterrogate_LoadXML(nullptr, stream, flags);
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    return UIPropInterrogate_LoadFolderStream(folder.Get(), flags);
}

SmartPtr<CArchiveProbe> NewProbe() {
    void* unknown = nullptr;
    EXPECT_EQ(S_OK, CObject<CArchiveProbe>::_CreateInstance(nullptr, &IID_IUnknown, &unknown));
    return SmartPtr<CArchiveProbe>::Adopt(
        static_cast<CArchiveProbe*>(static_cast<CObject<CArchiveProbe>*>(static_cast<IUnknown*>(unknown))));
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
