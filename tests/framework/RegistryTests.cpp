// "Registry": reading, change detection and rewriting of the INI file.
#include <unistd.h>

#include <climits>

#include "tests/framework/KitTestSupport.h"

namespace {

class KitRegistry : public testing::Test {
protected:
    void SetUp() override {
        registry = CreateByName<IRegistryEx>(L"Registry", IID_IRegistryEx);
        ASSERT_TRUE(registry);
    }
    // A value, or "<code>" for a failed read.
    std::wstring Read(const wchar_t* section, const wchar_t* key, int32_t capacity = 256) {
        std::vector<wchar_t> buffer(static_cast<size_t>(capacity) + 1, L'#');
        HRESULT hr = registry->ReadString(REFStr(section), REFStr(key), buffer.data(), capacity);
        if (hr != S_OK) {
            EXPECT_EQ(L'#', buffer[0]) << "buffer changed by a failed read";
            return L"<" + std::to_wstring(hr) + L">";
        }
        return buffer.data();
    }
    static std::wstring Failed(HRESULT hr) { return L"<" + std::to_wstring(hr) + L">"; }

    ScratchFolder folder;
    std::string file = folder.File("Registry.ini");
    ScopedEnv env{"LUM_REGISTRY", file};
    SmartPtr<IRegistryEx> registry;
};

TEST(KitRegistryShipped, NamesTheOutputFolderAsInstallPath) {
    if (getenv("LUM_REGISTRY")) GTEST_SKIP() << "LUM_REGISTRY overrides the shipped file";
    SmartPtr<IRegistryEx> registry = CreateByName<IRegistryEx>(L"Registry", IID_IRegistryEx);
    ASSERT_TRUE(registry);
    wchar_t buffer[256] = {};
    ASSERT_EQ(S_OK, registry->ReadString(REFStr(L"Workspace"), REFStr(L"InstallPath"), buffer, 256));
    char cwd[PATH_MAX];
    ASSERT_TRUE(getcwd(cwd, sizeof cwd));
    EXPECT_EQ(std::filesystem::path(cwd), std::filesystem::path(buffer));
}

TEST_F(KitRegistry, ComparesNamesBlindToCaseAndBlanks) {
    WriteFile(file,
              "; comment\r\n# another = comment\r\n\r\n"
              "top = before any section\r\n"
              "  [ Work Space ]  \r\n"
              "  Install Path =  /opt/lum demo  \r\n"
              "equation=a=b\r\n"
              "empty=\r\n"
              "Install Path=second definition\r\n"
              "no equals sign here\r\n"
              "[Other]\r\nkey=other\r\n");
    EXPECT_EQ(L"/opt/lum demo", Read(L"work space", L"INSTALL PATH"));
    EXPECT_EQ(L"/opt/lum demo", Read(L"  WORK SPACE ", L" install path"));
    EXPECT_EQ(L"a=b", Read(L"Work Space", L"equation"));
    EXPECT_EQ(L"", Read(L"Work Space", L"empty"));
    EXPECT_EQ(L"before any section", Read(L"", L"top"));
    EXPECT_EQ(L"other", Read(L"Other", L"key"));
    EXPECT_EQ(Failed(E_FAIL), Read(L"Other", L"equation"));
    EXPECT_EQ(Failed(E_FAIL), Read(L"Work Space", L"; comment"));
    EXPECT_EQ(Failed(E_FAIL), Read(L"WorkSpace", L"Install Path"));
    EXPECT_EQ(Failed(E_FAIL), Read(L"Work Space", L"no equals sign here"));
}

TEST_F(KitRegistry, CopiesIntoTheCallersBufferWithinItsCapacity) {
    WriteFile(file, "[S]\nname=abcdef\nnumber= -42 \nhuge=2147483648\nword=12x\nmin=-2147483648\n");
    EXPECT_EQ(L"abc", Read(L"S", L"name", 4));
    EXPECT_EQ(L"", Read(L"S", L"name", 1));
    wchar_t buffer[8];
    EXPECT_EQ(E_POINTER, registry->ReadString(REFStr(L"S"), REFStr(L"name"), nullptr, 8));
    EXPECT_EQ(E_POINTER, registry->ReadString(REFStr(L"S"), REFStr(L"name"), buffer, 0));

    int32_t value = 7;
    EXPECT_EQ(S_OK, registry->ReadInteger(REFStr(L"S"), REFStr(L"number"), &value));
    EXPECT_EQ(-42, value);
    EXPECT_EQ(S_OK, registry->ReadInteger(REFStr(L"S"), REFStr(L"min"), &value));
    EXPECT_EQ(INT32_MIN, value);
    value = 7;
    EXPECT_EQ(E_INVALIDARG, registry->ReadInteger(REFStr(L"S"), REFStr(L"huge"), &value));
    EXPECT_EQ(E_INVALIDARG, registry->ReadInteger(REFStr(L"S"), REFStr(L"word"), &value));
    EXPECT_EQ(E_FAIL, registry->ReadInteger(REFStr(L"S"), REFStr(L"missing"), &value));
    EXPECT_EQ(7, value);
    EXPECT_EQ(E_POINTER, registry->ReadInteger(REFStr(L"S"), REFStr(L"number"), nullptr));
}

TEST_F(KitRegistry, FollowsTheFileAsItChangesAppearsAndVanishes) {
    EXPECT_EQ(Failed(E_FAIL), Read(L"S", L"key"));  // no file yet
    WriteFile(file, "[S]\nkey=one\n");
    EXPECT_EQ(L"one", Read(L"S", L"key"));
    // The same size, written at once: the time stamp alone cannot tell.
    WriteFile(file, "[S]\nkey=two\n");
    EXPECT_EQ(L"two", Read(L"S", L"key"));
    std::filesystem::remove(file);
    EXPECT_EQ(Failed(E_FAIL), Read(L"S", L"key"));

    // Another file named by the variable is read from then on.
    std::string other = folder.File("other.ini");
    WriteFile(other, "[S]\nkey=elsewhere\n");
    ScopedEnv switched("LUM_REGISTRY", other);
    EXPECT_EQ(L"elsewhere", Read(L"S", L"key"));
}

TEST_F(KitRegistry, WriteStringRewritesTheFileKeepingItsLayout) {
    WriteFile(file, "; settings\r\n[Workspace]\r\nInstallPath = /old\r\n# note\r\n\r\n[Camera]\r\nRate=5\r\n");
    ASSERT_EQ(S_OK, registry->WriteString(REFStr(L"WORKSPACE"), REFStr(L"installpath"), REFStr(L"/new")));
    ASSERT_EQ(S_OK, registry->WriteString(REFStr(L"Workspace"), REFStr(L"Added"), REFStr(L"yes")));
    ASSERT_EQ(S_OK, registry->WriteString(REFStr(L"Display"), REFStr(L"Zoom"), REFStr(L"2")));
    EXPECT_EQ("; settings\r\n[Workspace]\r\nInstallPath=/new\r\n# note\r\nAdded=yes\r\n\r\n[Camera]\r\nRate=5\r\n"
              "\r\n[Display]\r\nZoom=2\r\n",
              ReadFile(file));
    // Another object sees the change.
    SmartPtr<IRegistryEx> second = CreateByName<IRegistryEx>(L"Registry", IID_IRegistryEx);
    wchar_t buffer[16];
    ASSERT_EQ(S_OK, second->ReadString(REFStr(L"Display"), REFStr(L"zoom"), buffer, 16));
    EXPECT_EQ(std::wstring(L"2"), buffer);
}

TEST_F(KitRegistry, WriteStringCreatesAMissingFileAndRejectsUnwritableNames) {
    ASSERT_EQ(S_OK, registry->WriteString(REFStr(L"Workspace"), REFStr(L"Path"), REFStr(L"/d\u00e9mo")));
    EXPECT_EQ("[Workspace]\nPath=/d\xc3\xa9mo\n", ReadFile(file));
    EXPECT_EQ(L"/d\u00e9mo", Read(L"Workspace", L"Path"));
    for (auto [section, key, value] : {std::tuple{L"", L"k", L"v"}, {L"S", L"", L"v"}, {L"S", L"a=b", L"v"},
                                       {L"S]", L"k", L"v"}, {L"S", L"#k", L"v"}, {L"S", L"k", L"two\nlines"}, {L"S\r", L"k", L"v"}})
        EXPECT_EQ(E_INVALIDARG, registry->WriteString(REFStr(section), REFStr(key), REFStr(value)));
    EXPECT_EQ(E_POINTER, registry->WriteString(REFStr(L"S"), tagREFString{2, nullptr}, REFStr(L"v")));
    EXPECT_EQ("[Workspace]\nPath=/d\xc3\xa9mo\n", ReadFile(file));
}

}  // namespace
