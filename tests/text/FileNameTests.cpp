// File names relative to the install path and back: the explicit-base forms
// with real strings, the install-path forms with a fake registry registered
// on the global collection, and once with the framework's own registry.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "tests/support/ModuleHost.h"
#include "text/FileName.h"
#include "text/ValueConversion.h"

namespace {

SmartPtr<IString> Str(const std::wstring& text) {
    tagREFString view{static_cast<int32_t>(text.size()), const_cast<wchar_t*>(text.data())};
    return SmartPtr<IString>::Adopt(ISCreate(view));
}

/// Result of a conversion: the text and whether it is the caller's object.
struct Converted {
    HRESULT hr = E_FAIL;
    std::wstring text;
    bool same = false;
    bool null = true;
};

Converted Relative(const std::wstring& base, const SmartPtr<IString>& name) {
    Converted c;
    SmartPtr<IString> out;
    c.hr = FILENAMECreateRelative(Str(base).Get(), name.Get(), out.Out());
    c.text = TextOf(out.Get());
    c.same = out.Get() == name.Get();
    c.null = !out;
    return c;
}

Converted Absolute(const std::wstring& base, const SmartPtr<IString>& name) {
    Converted c;
    SmartPtr<IString> out;
    c.hr = FILENAMECreateAbsolute(Str(base).Get(), name.Get(), out.Out());
    c.text = TextOf(out.Get());
    c.same = out.Get() == name.Get();
    c.null = !out;
    return c;
}

TEST(FileNameRelative, WorkedExamples) {
    Converted c = Relative(L"/opt/app", Str(L"/opt/app/data/x.cfg"));
    EXPECT_EQ(S_OK, c.hr);
    EXPECT_EQ(L"data/x.cfg", c.text);
    EXPECT_FALSE(c.same);
    EXPECT_EQ(L"..\\data/x.cfg", Relative(L"/opt/app/bin", Str(L"/opt/app/data/x.cfg")).text);
    EXPECT_EQ(L"..\\..\\data/x.cfg", Relative(L"/opt/app/bin/sub", Str(L"/opt/app/data/x.cfg")).text);

    SmartPtr<IString> unrelated = Str(L"/srv/x.cfg");
    c = Relative(L"/opt/app", unrelated);
    EXPECT_EQ(S_OK, c.hr);
    EXPECT_TRUE(c.same);
    EXPECT_EQ(L"/srv/x.cfg", c.text);
    EXPECT_EQ(1u, RefCountOf(unrelated.Get()));  // the handed-out reference was given back
}

TEST(FileNameRelative, ComparisonIgnoresLetterCase) {
    EXPECT_EQ(L"Data/x.cfg", Relative(L"/OPT/App", Str(L"/opt/app/Data/x.cfg")).text);
    EXPECT_EQ(L"img\\a.bmp", Relative(L"C:\\Work\\App", Str(L"c:\\work\\app\\img\\a.bmp")).text);
}

TEST(FileNameRelative, SharingOnlyTheRootOrAPartialNameRelatesNothing) {
    // One shared folder below the root is not enough.
    EXPECT_TRUE(Relative(L"/data/a", Str(L"/data/b/x")).same);
    EXPECT_TRUE(Relative(L"/opt/app", Str(L"/other/x")).same);
    // "/opt/app" is not a folder of "/opt/apps": the mismatch itself never counts.
    EXPECT_TRUE(Relative(L"/opt/apps", Str(L"/opt/app/x")).same);
    // The base itself.
    EXPECT_TRUE(Relative(L"/opt/app", Str(L"/opt/app")).same);
}

TEST(FileNameRelative, TrailingSeparatorOnTheBaseCountsALevel) {
    EXPECT_EQ(L"..\\data/x.cfg", Relative(L"/opt/app/", Str(L"/opt/app/data/x.cfg")).text);
}

TEST(FileNameRelative, EmptyAndNullArguments) {
    SmartPtr<IString> name = Str(L"/opt/app/x");
    EXPECT_TRUE(Relative(L"", name).same);
    SmartPtr<IString> out;
    EXPECT_EQ(S_OK, FILENAMECreateRelative(nullptr, name.Get(), out.Out()));
    EXPECT_EQ(name.Get(), out.Get());
    out = nullptr;

    Converted c = Relative(L"/opt/app", Str(L""));
    EXPECT_TRUE(c.same);
    EXPECT_EQ(S_OK, FILENAMECreateRelative(Str(L"/opt").Get(), nullptr, out.Out()));
    EXPECT_FALSE(out);  // null stays null
    EXPECT_EQ(E_POINTER, FILENAMECreateRelative(Str(L"/opt").Get(), name.Get(), nullptr));
    EXPECT_EQ(1u, RefCountOf(name.Get()));
}

TEST(FileNameRelative, TenThousandCharacterNames) {
    const std::wstring deep(6000, L'd');
    const std::wstring leaf(4000, L'f');
    const std::wstring base = L"/root/" + deep + L"/bin";
    Converted c = Relative(base, Str(L"/root/" + deep + L"/" + leaf));
    EXPECT_EQ(L"..\\" + leaf, c.text);
    EXPECT_TRUE(Relative(L"/" + leaf, Str(L"/" + deep)).same);
}

TEST(FileNameAbsolute, WorkedExamples) {
    EXPECT_EQ(L"/opt/app/bin/data/x.cfg", Absolute(L"/opt/app/bin", Str(L"data/x.cfg")).text);
    EXPECT_EQ(L"/opt/app/data/x.cfg", Absolute(L"/opt/app/bin", Str(L"..\\data/x.cfg")).text);
    EXPECT_EQ(L"/opt/x", Absolute(L"/opt/app/bin", Str(L"..\\..\\x")).text);
    // The cut that would leave "/a" is not made.
    EXPECT_EQ(L"/a/b/c/x", Absolute(L"/a/b/c", Str(L"..\\..\\x")).text);

    SmartPtr<IString> drive = Str(L"C:\\x.cfg");
    Converted c = Absolute(L"/opt/app/bin", drive);
    EXPECT_TRUE(c.same);
    EXPECT_EQ(L"C:/x.cfg", c.text);
}

TEST(FileNameAbsolute, AbsoluteAndShortNamesComeBackConvertedInPlace) {
    SmartPtr<IString> rooted = Str(L"/abs\\path\\f");
    Converted c = Absolute(L"/opt", rooted);
    EXPECT_TRUE(c.same);
    EXPECT_EQ(L"/abs/path/f", TextOf(rooted.Get()));
    EXPECT_EQ(1u, RefCountOf(rooted.Get()));

    EXPECT_TRUE(Absolute(L"/opt", Str(L"ab")).same);       // shorter than 3
    EXPECT_TRUE(Absolute(L"/opt", Str(L"a/b/c")).same);    // second character "/"
    SmartPtr<IString> shortName = Str(L"a\\");
    EXPECT_TRUE(Absolute(L"/opt", shortName).same);
    EXPECT_EQ(L"a/", TextOf(shortName.Get()));
}

TEST(FileNameAbsolute, RelativeNamesAreConvertedInTheCallersString) {
    SmartPtr<IString> name = Str(L"data\\sub\\x.cfg");
    EXPECT_EQ(L"/opt/app/data/sub/x.cfg", Absolute(L"/opt/app", name).text);
    EXPECT_EQ(L"data/sub/x.cfg", TextOf(name.Get()));

    // The leading "..\" groups themselves stay as they are.
    SmartPtr<IString> up = Str(L"..\\data\\x");
    EXPECT_EQ(L"/opt/data/x", Absolute(L"/opt/app", up).text);
    EXPECT_EQ(L"..\\data/x", TextOf(up.Get()));
}

TEST(FileNameAbsolute, CutsOnlyAtSlashesAndOnlyWhenThereAreEnough) {
    EXPECT_EQ(L"/opt/app/bin/x", Absolute(L"/opt/app/bin", Str(L"..\\..\\..\\..\\x")).text);
    EXPECT_EQ(L"C:\\app\\bin/x", Absolute(L"C:\\app\\bin", Str(L"..\\x")).text);
    EXPECT_EQ(L"/opt/app/", Absolute(L"/opt/app/bin", Str(L"..\\")).text);
    // "..\" must match exactly: "../" is an ordinary name.
    EXPECT_EQ(L"/opt/app/../x", Absolute(L"/opt/app", Str(L"../x")).text);
}

TEST(FileNameAbsolute, EmptyAndNullArguments) {
    EXPECT_EQ(L"/data/x", Absolute(L"", Str(L"data/x")).text);  // without a base: the bare "/"
    SmartPtr<IString> out;
    EXPECT_EQ(S_OK, FILENAMECreateAbsolute(nullptr, Str(L"..\\x").Get(), out.Out()));
    EXPECT_EQ(L"/x", TextOf(out.Get()));

    EXPECT_TRUE(Absolute(L"/opt", Str(L"")).same);
    EXPECT_EQ(S_OK, FILENAMECreateAbsolute(Str(L"/opt").Get(), nullptr, out.Out()));
    EXPECT_FALSE(out);
    EXPECT_EQ(E_POINTER, FILENAMECreateAbsolute(Str(L"/opt").Get(), Str(L"x").Get(), nullptr));
}

TEST(FileNameAbsolute, TenThousandCharacterNames) {
    std::wstring ups;
    for (int i = 0; i < 3000; ++i) ups += L"..\\";
    const std::wstring tail(1000, L't');
    EXPECT_EQ(L"/opt/app/bin/" + tail, Absolute(L"/opt/app/bin", Str(ups + tail)).text);

    std::wstring windows(10000, L'w');
    for (size_t i = 2; i < windows.size(); i += 10) windows[i] = L'\\';
    windows[1] = L':';
    SmartPtr<IString> name = Str(windows);
    EXPECT_TRUE(Absolute(L"/opt", name).same);
    const std::wstring converted = TextOf(name.Get());
    EXPECT_EQ(10000u, converted.size());
    EXPECT_EQ(std::wstring::npos, converted.find(L'\\'));

    const std::wstring longBase = L"/" + std::wstring(9000, L'b') + L"/c";
    EXPECT_EQ(L"/" + std::wstring(9000, L'b') + L"/x", Absolute(longBase, Str(L"..\\x")).text);
}

// A registry whose answer each test chooses.
struct RegistryScript {
    HRESULT result = S_OK;
    std::wstring value;
    bool fillWholeBuffer = false;  // misbehave: no terminator
    std::wstring section, key;
    int32_t capacity = 0;
};
RegistryScript g_Registry;

class CFakeRegistry final : public CObject<CFakeRegistry>, public IRegistryEx {
    LUM_OBJECT_UNKNOWN(CFakeRegistry)
public:
    HRESULT ReadString(tagREFString section, tagREFString key, wchar_t* buffer, int32_t capacity) override {
        g_Registry.section.assign(section.text, static_cast<size_t>(section.length));
        g_Registry.key.assign(key.text, static_cast<size_t>(key.length));
        g_Registry.capacity = capacity;
        if (g_Registry.fillWholeBuffer) {
            std::wmemset(buffer, L'p', static_cast<size_t>(capacity));
            return S_OK;
        }
        if (g_Registry.result < 0) return g_Registry.result;
        const size_t count = std::min(g_Registry.value.size(), static_cast<size_t>(capacity) - 1);
        g_Registry.value.copy(buffer, count);
        buffer[count] = 0;
        return g_Registry.result;
    }
    HRESULT WriteString(tagREFString, tagREFString, tagREFString) override { return E_NOTIMPL; }
    HRESULT ReadInteger(tagREFString, tagREFString, int32_t*) override { return E_NOTIMPL; }
};
const InterfaceEntry<CFakeRegistry> CFakeRegistry::kInterfaces[] = {
    InterfaceEntry<CFakeRegistry>::Of<IRegistryEx>(IID_IRegistryEx),
    InterfaceEntry<CFakeRegistry>::End(),
};

HRESULT NoRegistry(void*, const IID*, void** object) {
    if (object) *object = nullptr;
    return E_FAIL;
}

/// Resolves "Registry" with the given creation function for one test.
class InstallPathTest : public ::testing::Test {
protected:
    void Use(CreateInstanceFunction create) {
        ASSERT_EQ(S_OK, GlobalCollection()->RegisterCreateFunction(REFStr(L"Registry"),
                                                                   reinterpret_cast<void*>(create)));
    }
    void SetUp() override {
        g_Registry = RegistryScript{};
        Use(&CFakeRegistry::_CreateInstance);
    }
    void TearDown() override { GlobalCollection()->RegisterCreateFunction(REFStr(L"Registry"), nullptr); }
};

TEST_F(InstallPathTest, ReadsWorkspaceInstallPath) {
    g_Registry.value = L"/opt/app";
    SmartPtr<IString> path;
    EXPECT_EQ(S_OK, FILENAMEGetInstallPath(path.Out()));
    EXPECT_EQ(L"/opt/app", TextOf(path.Get()));
    EXPECT_EQ(L"Workspace", g_Registry.section);
    EXPECT_EQ(L"InstallPath", g_Registry.key);
    EXPECT_EQ(256, g_Registry.capacity);
    EXPECT_EQ(E_POINTER, FILENAMEGetInstallPath(nullptr));
}

TEST_F(InstallPathTest, FailedReadGivesAnEmptyString) {
    g_Registry.result = E_FAIL;
    SmartPtr<IString> path;
    EXPECT_EQ(E_FAIL, FILENAMEGetInstallPath(path.Out()));
    ASSERT_TRUE(path);
    EXPECT_EQ(L"", TextOf(path.Get()));
}

TEST_F(InstallPathTest, LongValuesStayInsideTheBuffer) {
    g_Registry.value = std::wstring(1000, L'v');
    SmartPtr<IString> path;
    EXPECT_EQ(S_OK, FILENAMEGetInstallPath(path.Out()));
    EXPECT_EQ(std::wstring(255, L'v'), TextOf(path.Get()));

    g_Registry.fillWholeBuffer = true;  // a registry that forgets the terminator
    EXPECT_EQ(S_OK, FILENAMEGetInstallPath(path.Out()));
    EXPECT_EQ(std::wstring(255, L'p'), TextOf(path.Get()));
}

TEST_F(InstallPathTest, ConversionsUseTheInstallPath) {
    g_Registry.value = L"/opt/app/bin";
    SmartPtr<IString> out;
    EXPECT_EQ(S_OK, FILENAMECreateRelative(Str(L"/opt/app/data/x.cfg").Get(), out.Out()));
    EXPECT_EQ(L"..\\data/x.cfg", TextOf(out.Get()));
    EXPECT_EQ(S_OK, FILENAMECreateAbsolute(Str(L"..\\data/x.cfg").Get(), out.Out()));
    EXPECT_EQ(L"/opt/app/data/x.cfg", TextOf(out.Get()));
    EXPECT_EQ(E_POINTER, FILENAMECreateRelative(Str(L"x").Get(), nullptr));
    EXPECT_EQ(E_POINTER, FILENAMECreateAbsolute(Str(L"x").Get(), nullptr));
}

TEST_F(InstallPathTest, WithoutRegistryNamesPassThroughOrGetTheBareRoot) {
    Use(&NoRegistry);
    SmartPtr<IString> path;
    EXPECT_EQ(E_FAIL, FILENAMEGetInstallPath(path.Out()));
    ASSERT_TRUE(path);
    EXPECT_EQ(L"", TextOf(path.Get()));

    SmartPtr<IString> name = Str(L"/opt/app/data/x.cfg");
    SmartPtr<IString> out;
    EXPECT_EQ(S_OK, FILENAMECreateRelative(name.Get(), out.Out()));
    EXPECT_EQ(name.Get(), out.Get());
    EXPECT_EQ(S_OK, FILENAMECreateAbsolute(Str(L"data/x.cfg").Get(), out.Out()));
    EXPECT_EQ(L"/data/x.cfg", TextOf(out.Get()));
}

TEST_F(InstallPathTest, FrameworkRegistryFileNamedByEnvironment) {
    GlobalCollection()->RegisterCreateFunction(REFStr(L"Registry"), nullptr);
    char file[] = "/tmp/lum_text_registry_XXXXXX";
    const int fd = mkstemp(file);
    ASSERT_GE(fd, 0);
    close(fd);
    {
        std::ofstream ini(file);
        ini << "; test registry\n[Other]\nInstallPath=/wrong\n\n[Workspace]\nInstallPath=/srv/lum demo\n";
    }
    const char* previous = std::getenv("LUM_REGISTRY");
    const std::string saved = previous ? previous : "";
    setenv("LUM_REGISTRY", file, 1);

    SmartPtr<IString> path;
    const HRESULT hr = FILENAMEGetInstallPath(path.Out());
    SmartPtr<IString> out;
    FILENAMECreateAbsolute(Str(L"..\\x.cfg").Get(), out.Out());

    if (previous)
        setenv("LUM_REGISTRY", saved.c_str(), 1);
    else
        unsetenv("LUM_REGISTRY");
    std::remove(file);
    EXPECT_EQ(S_OK, hr);
    EXPECT_EQ(L"/srv/lum demo", TextOf(path.Get()));
    EXPECT_EQ(L"/srv/x.cfg", TextOf(out.Get()));
}

}  // namespace
