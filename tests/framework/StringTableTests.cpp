// "StringTable": the per-owner string files.
#include "tests/framework/KitTestSupport.h"

namespace {

std::vector<std::pair<std::wstring, std::wstring>> Entries(INamedCollection* strings) {
    std::vector<std::pair<std::wstring, std::wstring>> entries;
    int32_t count = 0;
    EXPECT_EQ(S_OK, strings->get_Count(&count));
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IString> name;
        SmartPtr<IUnknown> item;
        EXPECT_EQ(S_OK, strings->get_Name(i, name.Out()));
        EXPECT_EQ(S_OK, strings->get_Item(i, item.Out()));
        entries.emplace_back(TextOf(name.Get()), TextOf(QueryAs<IString>(item.Get(), IID_IString).Get()));
    }
    return entries;
}

class KitStringTable : public testing::Test {
protected:
    void SetUp() override {
        table = CreateByName<IStringTable>(L"StringTable", IID_IStringTable);
        ASSERT_TRUE(table);
    }
    SmartPtr<IStringTable> table;
};

TEST_F(KitStringTable, ShipsTheCamcorderChoiceLists) {
    if (getenv("LUM_STRINGS")) GTEST_SKIP() << "LUM_STRINGS overrides the shipped folder";
    SmartPtr<INamedCollection> strings;
    ASSERT_EQ(S_OK, table->GetCollection(MakeString(L"LUMCamcorder").Get(), strings.Out()));
    auto entries = Entries(strings.Get());
    ASSERT_EQ(17u, entries.size());
    EXPECT_EQ((std::pair<std::wstring, std::wstring>{L"61", L"Path"}), entries.front());
    SmartPtr<IUnknown> choices;
    ASSERT_EQ(S_OK, strings->get_ItemByName(REFStr(L"164"), choices.Out()));
    EXPECT_EQ(L"In event call|Save thread|Save thread with copies",
              TextOf(QueryAs<IString>(choices.Get(), IID_IString).Get()));
    for (const wchar_t* owner : {L"LUMStackCamcorder", L"LUMFilePlayer", L"LUMCamWindow"})
        EXPECT_EQ(S_OK, table->GetCollection(MakeString(owner).Get(), strings.Out())) << owner;
}

TEST_F(KitStringTable, ReadsTheOwnersFileFromTheNamedFolderOnEveryRequest) {
    ScratchFolder folder;
    ScopedEnv env("LUM_STRINGS", folder.Path());
    SmartPtr<IString> owner = MakeString(L"Probe");
    WriteFile(folder.File("Probe.txt"),
              "# comment\r\n\r\n 7 =  Seven with blanks \r\n0012=a=b|c\r\nx=not a number\r\nno equals\r\n-3=minus\n");
    SmartPtr<INamedCollection> strings;
    ASSERT_EQ(S_OK, table->GetCollection(owner.Get(), strings.Out()));
    EXPECT_EQ((std::vector<std::pair<std::wstring, std::wstring>>{
                  {L"7", L"  Seven with blanks "}, {L"12", L"a=b|c"}, {L"-3", L"minus"}}),
              Entries(strings.Get()));

    SmartPtr<IString> text;
    EXPECT_EQ(S_OK, table->GetString(owner.Get(), 12, text.Out()));
    EXPECT_EQ(L"a=b|c", TextOf(text.Get()));
    EXPECT_EQ(E_FAIL, table->GetString(owner.Get(), 8, text.Out()));
    EXPECT_EQ(nullptr, text.Get());

    WriteFile(folder.File("Probe.txt"), "8=eight\n");
    EXPECT_EQ(S_OK, table->GetString(owner.Get(), 8, text.Out()));
    EXPECT_EQ(L"eight", TextOf(text.Get()));
    // The collection handed out before is a copy and does not change.
    EXPECT_EQ(3u, Entries(strings.Get()).size());
}

TEST_F(KitStringTable, OwnersWithoutStringsGiveEFailAndNull) {
    ScratchFolder folder;
    ScopedEnv env("LUM_STRINGS", folder.Path());
    WriteFile(folder.File("Empty.txt"), "# nothing here\n");
    INamedCollection* strings = reinterpret_cast<INamedCollection*>(0x1);
    EXPECT_EQ(E_FAIL, table->GetCollection(MakeString(L"Missing").Get(), &strings));
    EXPECT_EQ(nullptr, strings);
    EXPECT_EQ(E_FAIL, table->GetCollection(MakeString(L"Empty").Get(), &strings));
    EXPECT_EQ(E_INVALIDARG, table->GetCollection(MakeString(L"../Empty").Get(), &strings));
    EXPECT_EQ(E_POINTER, table->GetCollection(nullptr, &strings));
    EXPECT_EQ(nullptr, strings);
    EXPECT_EQ(E_POINTER, table->GetCollection(MakeString(L"Empty").Get(), nullptr));
    IString* text = reinterpret_cast<IString*>(0x1);
    EXPECT_EQ(E_FAIL, table->GetString(MakeString(L"Missing").Get(), 1, &text));
    EXPECT_EQ(nullptr, text);
}

}  // namespace
