// "FolderStream": the tree's rules, its file in the documented layout,
// refusal of files that do not follow it, and the "FileInfo" record in
// both kinds of folder stream.
#include <ctime>
#include <random>

#include "tests/streams/StreamsTestSupport.h"

namespace {

SmartPtr<IFolderStream> NewFolderStream() {
    SmartPtr<IFolderStream> folder = CreateByName<IFolderStream>(L"FolderStream", IID_IFolderStream);
    EXPECT_TRUE(folder);
    return folder;
}

HRESULT OpenFile(IFolderStream* folder, const std::string& path, int32_t mode) {
    return folder->Open(MakeString(std::wstring(path.begin(), path.end()).c_str()).Get(), mode);
}

// Pieces of the file layout, little-endian.
std::string U32(uint32_t v) {
    return std::string{static_cast<char>(v), static_cast<char>(v >> 8), static_cast<char>(v >> 16),
                       static_cast<char>(v >> 24)};
}
std::string Counted(const std::string& bytes) { return U32(static_cast<uint32_t>(bytes.size())) + bytes; }

TEST(StreamsFolderStream, KeepsSubFoldersAndKeyedEntriesApart) {
    SmartPtr<IFolderStream> root = NewFolderStream();
    SmartPtr<IFolderStream> path = CreateSub(root.Get(), L"Path");
    WriteOf(path.Get(), L"ID", 61);
    root->WriteString(MakeString(L"Path").Get(), MakeString(L"/data").Get());
    EXPECT_EQ(L"/data", StringOf(root.Get(), L"Path"));
    EXPECT_EQ(1, FolderCount(root.Get()));

    // A key written again is replaced, whatever its kind was.
    WriteOf(root.Get(), L"A", 1);
    root->WriteString(MakeString(L"A").Get(), MakeString(L"text").Get());
    int32_t value = 9;
    EXPECT_EQ(E_FAIL, ReadOf(root.Get(), L"A", &value));
    EXPECT_EQ(9, value);
    EXPECT_EQ(L"text", StringOf(root.Get(), L"A"));

    // A sub-folder created again is emptied in place; handles see it emptied.
    SmartPtr<IFolderStream> again = CreateSub(root.Get(), L"Path");
    EXPECT_EQ(E_FAIL, ReadOf(path.Get(), L"ID", &value));
    WriteOf(again.Get(), L"ID", 62);
    EXPECT_EQ(S_OK, ReadOf(path.Get(), L"ID", &value));
    EXPECT_EQ(62, value);
    EXPECT_EQ(1, FolderCount(root.Get()));

    // Records are values of their code's size.
    const int8_t b = -5;
    const int16_t s = -300;
    const float f = 1.5f;
    const double d = -2.25;
    root->WriteRecord(MakeString(L"B").Get(), &b, 1);
    root->WriteRecord(MakeString(L"S").Get(), &s, 2);
    root->WriteRecord(MakeString(L"F").Get(), &f, 4);
    root->WriteRecord(MakeString(L"D").Get(), &d, 5);
    EXPECT_EQ(E_INVALIDARG, root->WriteRecord(MakeString(L"X").Get(), &d, 6));
    int16_t s2 = 0;
    double d2 = 0;
    float f2 = 0;
    EXPECT_EQ(S_OK, root->ReadRecord(MakeString(L"S").Get(), &s2, 2));
    EXPECT_EQ(S_OK, root->ReadRecord(MakeString(L"D").Get(), &d2, 5));
    EXPECT_EQ(S_OK, ReadOf(root.Get(), L"F", &f2));
    EXPECT_EQ(s, s2);
    EXPECT_EQ(d, d2);
    EXPECT_EQ(f, f2);
    EXPECT_EQ(E_FAIL, root->ReadRecord(MakeString(L"B").Get(), &s2, 2)) << "stored with another size";
    EXPECT_EQ(s, s2);

    // Removal takes the keyed entry first, then the sub-folder of that name.
    EXPECT_EQ(S_OK, root->RemoveEntry(MakeString(L"Path").Get()));
    EXPECT_EQ(L"<missing>", StringOf(root.Get(), L"Path"));
    EXPECT_EQ(S_OK, root->HasEntry(MakeString(L"Path").Get()));
    EXPECT_EQ(S_OK, root->RemoveEntry(MakeString(L"Path").Get()));
    EXPECT_EQ(S_FALSE, root->HasEntry(MakeString(L"Path").Get()));
    EXPECT_EQ(E_FAIL, root->RemoveEntry(MakeString(L"Path").Get()));
    EXPECT_EQ(0, FolderCount(root.Get()));

    EXPECT_EQ(S_OK, root.As<IDataStream>(IID_IDataStream)->Clear());
    EXPECT_EQ(S_FALSE, root->HasEntry(MakeString(L"D").Get()));
}

TEST(StreamsFolderStream, WritesItsFileInTheDocumentedLayout) {
    TestPoint::Register();
    ScratchFolder dir;
    std::string file = dir.File("settings.t");
    {
        SmartPtr<IFolderStream> root = NewFolderStream();
        ASSERT_EQ(S_OK, OpenFile(root.Get(), file, 1));
        SmartPtr<IFolderStream> sub = CreateSub(root.Get(), L"Sub");
        sub->WriteString(MakeString(L"Name").Get(), MakeString(L"Gr\u00FC\u00DFe").Get());
        WriteOf(root.Get(), L"V", uint16_t{0x0102});
        root->WriteObject(MakeString(L"P").Get(), TestPoint::Make(3, 0.5, L"").Get());
        SmartPtr<IString> name;
        root->get_Name(name.Out());
        EXPECT_EQ(std::wstring(file.begin(), file.end()), TextOf(name.Get()));
    }  // written when the root goes, after the sub-folder that holds it
    std::string pointBody = U32(3) + U32(1) + Counted("X") + Counted(std::string("\3\0\0\0", 4)) + U32(1) +
                            Counted("Y") + Counted(std::string("\0\0\0\0\0\0\xE0\x3F", 8)) + U32(2) +
                            Counted("Label") + Counted("");
    EXPECT_EQ("FOLDSTR1" + U32(3) +
                  U32(3) + Counted("Sub") + U32(1) + U32(2) + Counted("Name") + Counted("Gr\xC3\xBC\xC3\x9F" "e") +
                  U32(1) + Counted("V") + Counted("\x02\x01") +
                  U32(4) + Counted("P") + Counted("StreamsTestPoint") + pointBody,
              ReadFile(file));

    SmartPtr<IFolderStream> back = NewFolderStream();
    ASSERT_EQ(S_OK, OpenFile(back.Get(), file, 0));
    EXPECT_EQ(L"Gr\u00FC\u00DFe", StringOf(OpenSub(back.Get(), IndexVariant(0).Get()).Get(), L"Name"));
    SmartPtr<IUnknown> object;
    ASSERT_EQ(S_OK, back->ReadObject(MakeString(L"P").Get(), object.Out()));
    EXPECT_EQ(3, static_cast<TestPoint*>(QueryAs<IDataPersist>(object.Get(), IID_IDataPersist).Get())->x);
    EXPECT_EQ(E_FAIL, back->Commit()) << "a file opened for reading is not written";
}

TEST(StreamsFolderStream, WritesOnCommitAndOnReleaseOnlyWhenChanged) {
    ScratchFolder dir;
    std::string file = dir.File("a.t");
    EXPECT_EQ(E_FAIL, NewFolderStream()->Commit()) << "no file bound";
    EXPECT_EQ(E_FAIL, OpenFile(NewFolderStream().Get(), file, 0)) << "missing";
    {
        SmartPtr<IFolderStream> root = NewFolderStream();
        EXPECT_EQ(S_FALSE, OpenFile(root.Get(), file, 2)) << "mode 2 starts a file that is not there";
        WriteOf(root.Get(), L"N", 1);
        ASSERT_EQ(S_OK, root->Commit());
        EXPECT_EQ("FOLDSTR1" + U32(1) + U32(1) + Counted("N") + Counted(std::string("\1\0\0\0", 4)), ReadFile(file));
        WriteFile(file, "replaced behind its back");
    }
    EXPECT_EQ("replaced behind its back", ReadFile(file)) << "nothing changed since the commit";
    {
        SmartPtr<IFolderStream> root = NewFolderStream();
        EXPECT_EQ(S_OK, OpenFile(root.Get(), file, 1));
    }
    EXPECT_EQ("FOLDSTR1" + U32(0), ReadFile(file)) << "a new tree is written even when empty";
    {
        SmartPtr<IFolderStream> root = NewFolderStream();
        WriteFile(file, "garbage");
        EXPECT_EQ(E_FAIL, OpenFile(root.Get(), file, 2));
        WriteOf(root.Get(), L"N", 1);
    }
    EXPECT_EQ("garbage", ReadFile(file)) << "a file that could not be read is left alone";
}

TEST(StreamsFolderStream, RefusesFilesThatDoNotFollowTheLayout) {
    SmartPtr<IFolderStream> source = NewFolderStream();
    SmartPtr<IFolderStream> sub = CreateSub(source.Get(), L"S");
    WriteOf(sub.Get(), L"V", 5);
    source->WriteString(MakeString(L"T").Get(), MakeString(L"text").Get());
    const std::string valid = StreamBytes(source.As<IDataStream>(IID_IDataStream).Get());

    ScratchFolder dir;
    std::string file = dir.File("bad.t");
    auto refused = [&](const std::string& bytes) {
        WriteFile(file, bytes);
        SmartPtr<IFolderStream> root = NewFolderStream();
        HRESULT hr = OpenFile(root.Get(), file, 0);
        return hr == E_FAIL && FolderCount(root.Get()) == 0 && root->HasEntry(MakeString(L"T").Get()) == S_FALSE;
    };
    for (size_t cut = 0; cut < valid.size(); ++cut) EXPECT_TRUE(refused(valid.substr(0, cut))) << "cut at " << cut;
    EXPECT_TRUE(refused(valid + '\0')) << "trailing bytes";
    EXPECT_FALSE(refused(valid));

    const std::string header = "FOLDSTR1";
    std::string deep = header;
    for (int i = 0; i < 300; ++i) deep += U32(1) + U32(3) + Counted("d");
    deep += U32(0);
    for (const std::string& bad : {
             std::string("FOLDSTR2") + U32(0),
             header + U32(0xFFFFFFFF),
             header + U32(1) + U32(1) + U32(0x7FFFFFFF) + "name",
             header + U32(1) + U32(1) + Counted("V") + U32(0xFFFFFFF0),
             header + U32(1) + U32(9) + Counted("K") + U32(0),
             header + U32(1) + U32(2) + Counted("\xC0\x80") + U32(0),
             header + U32(1) + U32(4) + Counted("O") + Counted("") + U32(0),
             deep,
         })
        EXPECT_TRUE(refused(bad)) << bad.size() << " bytes";

    // A large file with an absurd count is refused without reading entries.
    std::string large = header + U32(0x00FFFFFF);
    large.resize(50u << 20, '\0');
    EXPECT_TRUE(refused(large));

    // Random bodies: whatever opens serialises back to the very same bytes.
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        std::string bytes = header + U32(random() % 3);
        for (size_t n = random() % 48; n > 0; --n) bytes += static_cast<char>(random() % 6);
        WriteFile(file, bytes);
        SmartPtr<IFolderStream> root = NewFolderStream();
        if (OpenFile(root.Get(), file, 0) == S_OK) {
            EXPECT_EQ(bytes, StreamBytes(root.As<IDataStream>(IID_IDataStream).Get()));
        }
    }
}

TEST(StreamsFileInfo, PersistsInBinaryAndXmlFolders) {
    SmartPtr<IFileInfo> info = CreateByName<IFileInfo>(L"FileInfo", IID_IFileInfo);
    ASSERT_TRUE(info);
    int64_t stamp = 0;
    info->get_Time(&stamp);
    EXPECT_NEAR(static_cast<double>(std::time(nullptr) - 946684800), static_cast<double>(stamp), 5.0);

    SmartPtr<IComponentString> component = CreateByName<IComponentString>(L"ComponentString", IID_IComponentString);
    component->Register(1, REFStr(L"LUMCamcorder"));
    component->Register(4, REFStr(L"Lib"));
    ASSERT_EQ(S_OK, info->put_Component(component.Get()));
    SmartPtr<IString> name;
    info->get_ClassName(name.Out());
    EXPECT_EQ(L"Lib.LUMCamcorder", TextOf(name.Get()));
    EXPECT_EQ(S_OK, info->put_Component(NewXml().Get()));
    info->get_ClassName(name.Out());
    EXPECT_EQ(L"XMLStream", TextOf(name.Get())) << "any other object by its IObjectInfo name";
    KitPlainObject* plain = nullptr;
    EXPECT_EQ(E_NOINTERFACE, info->put_Component(MakeFake<KitPlainObject, IUnknown>(&plain).Get()));

    auto check = [&](IUnknown* object) {
        SmartPtr<IFileInfo> loaded = QueryAs<IFileInfo>(object, IID_IFileInfo);
        ASSERT_TRUE(loaded);
        int64_t time = 0;
        loaded->get_Time(&time);
        loaded->get_ClassName(name.Out());
        EXPECT_EQ(stamp, time);
        EXPECT_EQ(L"XMLStream", TextOf(name.Get()));
    };

    // Binary: Time as 8 bytes, Version as 4.
    SmartPtr<IFolderStream> binary = NewFolderStream();
    ASSERT_EQ(S_OK, binary->WriteObject(MakeString(L"Info").Get(), info.Get()));
    SmartPtr<IUnknown> object;
    ASSERT_EQ(S_OK, binary->ReadObject(MakeString(L"Info").Get(), object.Out()));
    check(object.Get());
    ASSERT_EQ(S_OK, info.As<IDataPersist>(IID_IDataPersist)->Save(binary.As<IDataStream>(IID_IDataStream).Get(), 0));
    int64_t time = 0;
    int32_t version = 0;
    EXPECT_EQ(S_OK, ReadOf(binary.Get(), L"Time", &time));
    EXPECT_EQ(S_OK, ReadOf(binary.Get(), L"Version", &version));
    EXPECT_EQ(stamp, time);
    EXPECT_EQ(1, version);

    // XML: plain elements, also as an object entry.
    SmartPtr<IXMLStreamEx> xml = NewXml();
    xml->SetOptions(-1, 0);
    ASSERT_EQ(S_OK, info.As<IDataPersist>(IID_IDataPersist)->Save(xml.As<IDataStream>(IID_IDataStream).Get(), 0));
    EXPECT_EQ(L"<Class>XMLStream</Class><Time>" + std::to_wstring(stamp) + L"</Time><Version>1</Version>",
              XmlText(xml.Get()));
    SmartPtr<IDataPersist> fresh = CreateByName<IDataPersist>(L"FileInfo", IID_IDataPersist);
    ASSERT_EQ(S_OK, fresh->Load(XmlHolding(XmlText(xml.Get())).As<IDataStream>(IID_IDataStream).Get(), 0));
    check(fresh.Get());
    xml->Reset();
    ASSERT_EQ(S_OK, FolderOf(xml.Get())->WriteObject(MakeString(L"Info").Get(), info.Get()));
    ASSERT_EQ(S_OK, FolderOf(XmlHolding(XmlText(xml.Get())).Get())->ReadObject(MakeString(L"Info").Get(), object.Out()));
    check(object.Get());

    EXPECT_EQ(E_FAIL, fresh->Load(XmlHolding(L"<Class>X</Class>").As<IDataStream>(IID_IDataStream).Get(), 0));
    check(fresh.Get());
}

}  // namespace
