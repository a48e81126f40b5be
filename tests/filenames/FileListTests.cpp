// "ExtCollection" and "FileNameCollection" without the watch: extension
// tables, what a pattern lists and in which order, tracking, the entries,
// and the event source that keeps no references.
#include <unistd.h>

#include <filesystem>

#include "tests/filenames/FileListSupport.h"

namespace {

std::wstring ClassFor(IExtCollection* table, const wchar_t* extension) {
    SmartPtr<IString> name;
    table->get_ClassFor(REFStr(extension), name.Out());
    return TextOf(name.Get());
}

std::wstring ObjectName(IUnknown* object) {
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object, IID_IObjectInfo);
    tagREFString name{0, nullptr};
    if (!info || info->GetName(0, &name) < 0) return {};
    return std::wstring(name.text, static_cast<size_t>(name.length));
}

TEST(ExtCollection, MapsExtensionsToClassesIgnoringCaseAndALeadingDot) {
    SmartPtr<IExtCollection> table = CreateByName<IExtCollection>(L"ExtCollection", IID_IExtCollection);
    ASSERT_TRUE(table);
    int32_t count = -1;
    EXPECT_EQ(S_OK, table->get_ExtensionCount(&count));
    EXPECT_EQ(0, count);
    ASSERT_EQ(S_OK, table->AddExtension(REFStr(L".png"), REFStr(L"A")));
    ASSERT_EQ(S_OK, table->AddExtension(REFStr(L"bmp"), REFStr(L"B")));
    ASSERT_EQ(S_OK, table->AddExtension(REFStr(L"PNG"), REFStr(L"C")));  // an existing extension gets the new class
    EXPECT_EQ(E_INVALIDARG, table->AddExtension(REFStr(L"."), REFStr(L"D")));
    EXPECT_EQ(E_INVALIDARG, table->AddExtension(REFStr(L"gif"), REFStr(L"")));
    EXPECT_EQ(S_OK, table->get_ExtensionCount(&count));
    EXPECT_EQ(2, count);
    SmartPtr<IString> text;
    EXPECT_EQ(S_OK, table->get_Extension(0, text.Out()));
    EXPECT_EQ(L"png", TextOf(text.Get()));
    EXPECT_EQ(E_INVALIDARG, table->get_ExtensionClass(2, text.Out()));
    EXPECT_FALSE(text);
    EXPECT_EQ(L"C", ClassFor(table.Get(), L"Png"));
    EXPECT_EQ(1, table->FindExtension(REFStr(L".BMP")));

    ASSERT_EQ(S_OK, table->put_MatchCase(1));
    EXPECT_LT(table->FindExtension(REFStr(L"BMP")), 0);
    EXPECT_EQ(E_FAIL, table->get_ClassFor(REFStr(L"Png"), text.Out()));
    EXPECT_FALSE(text);
    ASSERT_EQ(S_OK, table->put_MatchCase(0));

    EXPECT_EQ(S_OK, table->RemoveExtension(REFStr(L"PNG")));
    EXPECT_EQ(E_FAIL, table->RemoveExtension(REFStr(L"png")));
    EXPECT_EQ(S_OK, table->ClearExtensions());
    EXPECT_EQ(S_OK, table->get_ExtensionCount(&count));
    EXPECT_EQ(0, count);
}

TEST(ExtCollection, CopiesAnotherTableAndCreatesTheClassOfAFileName) {
    SmartPtr<IExtCollection> source = CreateByName<IExtCollection>(L"ExtCollection", IID_IExtCollection);
    SmartPtr<IExtCollection> copy = CreateByName<IExtCollection>(L"ExtCollection", IID_IExtCollection);
    ASSERT_TRUE(source && copy);
    source->AddExtension(REFStr(L"jpg"), REFStr(L"LUMArch.LUMFileEx"));
    source->AddExtension(REFStr(L"txt"), REFStr(L"NoSuchModule.Thing"));
    source->put_MatchCase(1);
    copy->AddExtension(REFStr(L"old"), REFStr(L"X"));
    EXPECT_EQ(E_POINTER, copy->CopyExtensions(nullptr));
    ASSERT_EQ(S_OK, copy->CopyExtensions(source.Get()));
    ASSERT_EQ(S_OK, copy->CopyExtensions(copy.Get()));  // a copy of itself changes nothing
    int32_t count = 0, matchCase = 0;
    copy->get_ExtensionCount(&count);
    copy->get_MatchCase(&matchCase);
    EXPECT_EQ(2, count);
    EXPECT_EQ(1, matchCase);
    EXPECT_LT(copy->FindExtension(REFStr(L"old")), 0);

    SmartPtr<IFileArchive> file;
    ASSERT_EQ(S_OK, copy->CreateFor(REFStr(L"/any/where/shot.jpg"), &IID_IFileArchive, file.OutVoid()));
    EXPECT_EQ(L"LUMFileEx", ObjectName(file.Get()));
    void* none = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(E_FAIL, copy->CreateFor(REFStr(L"shot.JPG"), &IID_IFileArchive, &none));  // case now matters
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(E_FAIL, copy->CreateFor(REFStr(L"dir.jpg/noext"), &IID_IFileArchive, &none));
    EXPECT_LT(copy->CreateFor(REFStr(L"notes.txt"), &IID_IFileArchive, &none), 0);
    EXPECT_EQ(E_POINTER, copy->CreateFor(REFStr(L"a.jpg"), nullptr, &none));
}

class FileListTest : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"b.png", "a.jpg", "c.JPEG", "d.bmp", "e.txt", ".hidden.png", "noext"})
            WriteFile(folder.File(name), std::string(10, 'x'));
        std::filesystem::create_directory(folder.File("sub.png"));
        WriteFile(folder.File("sub.png/inner.png"), "x");
    }
    std::vector<std::string> Listed(const std::string& pattern) {
        SmartPtr<IFileNameCollection> list = MakeList(pattern);
        EXPECT_EQ(S_OK, list->Rescan()) << pattern;
        return EntryNames(list.Get());
    }
    std::string F(const std::string& name) const { return folder.File(name); }
    ScratchFolder folder;
};

TEST_F(FileListTest, APatternListsImageFilesOfAFolderAWildCardOrOneFile) {
    EXPECT_EQ(Listed(folder.Path()), (std::vector<std::string>{F("a.jpg"), F("b.png"), F("c.JPEG"), F("d.bmp")}));
    EXPECT_EQ(Listed(folder.Path() + "/"), Listed(folder.Path()));
    EXPECT_EQ(Listed(folder.Path() + "/*.png"), (std::vector<std::string>{F("b.png")}));
    EXPECT_EQ(Listed(folder.Path() + "/?.*"), (std::vector<std::string>{F("a.jpg"), F("b.png"), F("c.JPEG"), F("d.bmp")}));
    EXPECT_EQ(Listed(folder.Path() + "/*.jpeg"), std::vector<std::string>{});  // the wild-card is case-sensitive
    EXPECT_EQ(Listed(folder.Path() + "/d.bmp"), (std::vector<std::string>{F("d.bmp")}));
    EXPECT_EQ(Listed(folder.Path() + "/e.txt"), std::vector<std::string>{});
    std::string backslashed = folder.Path() + "\\b.png";
    EXPECT_EQ(Listed(backslashed), (std::vector<std::string>{F("b.png")}));

    SmartPtr<IFileNameCollection> list = MakeList(folder.Path() + "/*.png");
    SmartPtr<IString> text;
    ASSERT_EQ(S_OK, list->get_Folder(text.Out()));
    EXPECT_EQ(folder.Path(), Narrow(text.Get()));
    ASSERT_EQ(S_OK, list->put_Pattern(nullptr));
    EXPECT_EQ(S_OK, list->Rescan());
    EXPECT_TRUE(EntryNames(list.Get()).empty());
    ASSERT_EQ(S_OK, list->put_Pattern(FileNameString(folder.Path() + "/missing/*.png").Get()));
    EXPECT_EQ(E_FAIL, list->Rescan());
}

TEST_F(FileListTest, AnEmptyFolderPartMeansTheWorkingDirectory) {
    // The entries' module is loaded before the working directory changes.
    ASSERT_TRUE(CreateByName<IUnknown>(L"LUMArch.LUMFileEx", IID_IUnknown));
    std::string home = std::filesystem::current_path();
    ASSERT_EQ(0, chdir(folder.Path().c_str()));
    std::vector<std::string> wild = Listed("*.bmp"), single = Listed("b.png");
    ASSERT_EQ(0, chdir(home.c_str()));
    EXPECT_EQ(wild, (std::vector<std::string>{"d.bmp"}));
    EXPECT_EQ(single, (std::vector<std::string>{"b.png"}));
}

TEST_F(FileListTest, EntriesAreUnloadedFileObjectsNamedByTheirFullName) {
    SmartPtr<IFileNameCollection> list = MakeList(folder.Path());
    ASSERT_EQ(S_OK, list->Rescan());
    SmartPtr<IUnknown> entry;
    ASSERT_EQ(S_OK, list->get_Entry(1, entry.Out()));
    EXPECT_EQ(L"LUMFileEx", ObjectName(entry.Get()));
    SmartPtr<IFileArchive> archive = QueryAs<IFileArchive>(entry.Get(), IID_IFileArchive);
    SmartPtr<IString> name;
    ASSERT_EQ(S_OK, archive->get_Filename(name.Out()));
    EXPECT_EQ(F("b.png"), Narrow(name.Get()));
    EXPECT_EQ(S_FALSE, QueryAs<ILUMFileEx>(entry.Get(), IID_ILUMFileEx)->IsLoaded());
    EXPECT_FALSE(QueryAs<ILUM>(entry.Get(), IID_ILUM));
    IUnknown* none = reinterpret_cast<IUnknown*>(0x1);
    EXPECT_EQ(E_INVALIDARG, list->get_Entry(4, &none));
    EXPECT_EQ(nullptr, none);
    // A new object on every rescan.
    ASSERT_EQ(S_OK, list->Rescan());
    SmartPtr<IUnknown> again;
    list->get_Entry(1, again.Out());
    EXPECT_NE(IdentityPointer(entry.Get()), IdentityPointer(again.Get()));
}

TEST_F(FileListTest, OptionNineOrdersByNameOrNewestFirst) {
    SetModified(F("a.jpg"), 1000);
    SetModified(F("b.png"), 3000);
    SetModified(F("c.JPEG"), 2000);
    SetModified(F("d.bmp"), 2000);
    SmartPtr<IFileNameCollection> list = MakeList(folder.Path());
    int32_t value = -1;
    EXPECT_EQ(S_OK, list->get_Option(9, &value));
    EXPECT_EQ(1, value);
    ASSERT_EQ(S_OK, list->put_Option(9, 0));
    ASSERT_EQ(S_OK, list->Rescan());
    const std::vector<std::string> newest{F("b.png"), F("c.JPEG"), F("d.bmp"), F("a.jpg")};
    EXPECT_EQ(EntryNames(list.Get()), newest);
    ASSERT_EQ(S_OK, list->put_Option(9, 1));  // the list is re-sorted at once
    EXPECT_EQ(EntryNames(list.Get()), (std::vector<std::string>{F("a.jpg"), F("b.png"), F("c.JPEG"), F("d.bmp")}));
    ASSERT_EQ(S_OK, list->put_Option(9, 0));
    EXPECT_EQ(EntryNames(list.Get()), newest);
    EXPECT_EQ(E_INVALIDARG, list->put_Option(9, 2));
}

TEST_F(FileListTest, OptionsHaveDefaultsAndRanges) {
    SmartPtr<IFileNameCollection> list = MakeList(folder.Path());
    int32_t value = -1;
    EXPECT_EQ(S_OK, list->get_Option(8, &value));
    EXPECT_EQ(0, value);
    EXPECT_EQ(S_OK, list->get_Option(10, &value));
    EXPECT_EQ(500, value);
    EXPECT_EQ(S_OK, list->put_Option(10, 3));
    EXPECT_EQ(S_OK, list->get_Option(10, &value));
    EXPECT_EQ(10, value);
    EXPECT_EQ(S_OK, list->get_Tracking(&value));
    EXPECT_EQ(0, value);
    EXPECT_EQ(E_INVALIDARG, list->put_Option(7, 1));
    EXPECT_EQ(E_INVALIDARG, list->get_Option(11, &value));
    EXPECT_EQ(S_FALSE, list->IsRunning());
    EXPECT_EQ(S_OK, list->Stop());
}

TEST_F(FileListTest, TheGivenExtensionTableDecidesWhatIsListedAndItsEmptyStateMeansTheDefault) {
    SmartPtr<IFileNameCollection> list = MakeList(folder.Path());
    SmartPtr<IExtCollection> table = CreateByName<IExtCollection>(L"ExtCollection", IID_IExtCollection);
    table->AddExtension(REFStr(L"txt"), REFStr(L"LUMArch.LUMFileEx"));
    table->AddExtension(REFStr(L"bmp"), REFStr(L"NoSuchModule.NoSuchClass"));  // cannot be made: left out
    ASSERT_EQ(S_OK, list->put_Extensions(table.Get()));
    EXPECT_EQ(E_POINTER, list->put_Extensions(nullptr));
    ASSERT_EQ(S_OK, list->Rescan());
    EXPECT_EQ(EntryNames(list.Get()), (std::vector<std::string>{F("e.txt")}));

    // The list's own IExtCollection works on the given table.
    SmartPtr<IExtCollection> own = QueryAs<IExtCollection>(list.Get(), IID_IExtCollection);
    ASSERT_EQ(S_OK, own->AddExtension(REFStr(L"png"), REFStr(L"LUMArch.LUMFileEx")));
    EXPECT_EQ(L"LUMArch.LUMFileEx", ClassFor(table.Get(), L"png"));
    SmartPtr<IExtCollection> inUse;
    ASSERT_EQ(S_OK, list->get_Extensions(inUse.Out()));
    EXPECT_EQ(IdentityPointer(table.Get()), IdentityPointer(inUse.Get()));
    ASSERT_EQ(S_OK, list->put_Extensions(own.Get()));  // its own face: still the same table
    ASSERT_EQ(S_OK, list->get_Extensions(inUse.Out()));
    EXPECT_EQ(IdentityPointer(table.Get()), IdentityPointer(inUse.Get()));

    ASSERT_EQ(S_OK, own->ClearExtensions());
    ASSERT_EQ(S_OK, list->Rescan());
    EXPECT_EQ(EntryNames(list.Get()).size(), 4u);
}

TEST_F(FileListTest, TrackingAddsNewFilesWhenTheFolderChangesAndRescanDropsVanishedOnes) {
    SmartPtr<IFileNameCollection> list = MakeList(folder.Path());
    SmartPtr<ISuperCollection> entries = QueryAs<ISuperCollection>(list.Get(), IID_ISuperCollection);
    ASSERT_EQ(S_OK, list->Rescan());
    SmartPtr<IUnknown> first;
    list->get_Entry(0, first.Out());
    ASSERT_EQ(S_OK, entries->AddNamed(REFStr(L"by hand"), nullptr));
    WriteFile(F("aa.png"), "x");
    EXPECT_EQ(5u, EntryNames(list.Get()).size());  // tracking off: nothing changes
    ASSERT_EQ(S_OK, list->put_Tracking(1));
    EXPECT_EQ(EntryNames(list.Get()),
              (std::vector<std::string>{F("a.jpg"), F("aa.png"), F("b.png"), F("c.JPEG"), F("d.bmp"), "by hand"}));
    SmartPtr<IUnknown> still;
    list->get_Entry(0, still.Out());
    EXPECT_EQ(IdentityPointer(first.Get()), IdentityPointer(still.Get()));  // existing entries are kept

    std::filesystem::remove(F("b.png"));
    EXPECT_EQ(6u, EntryNames(list.Get()).size());  // tracking only adds
    ASSERT_EQ(S_OK, list->Rescan());
    EXPECT_EQ(EntryNames(list.Get()), (std::vector<std::string>{F("a.jpg"), F("aa.png"), F("c.JPEG"), F("d.bmp")}));
}

TEST_F(FileListTest, EntriesCanBeReplacedFoundAndAskedForTheirFileAttributes) {
    SmartPtr<IFileNameCollection> list = MakeList(folder.Path());
    SmartPtr<ISuperCollection> entries = QueryAs<ISuperCollection>(list.Get(), IID_ISuperCollection);
    ASSERT_EQ(S_OK, list->Rescan());
    SmartPtr<IFileAttributes> attributes;
    ASSERT_EQ(S_OK, entries->get_FileAttributes(3, attributes.Out()));
    int64_t size = 0;
    EXPECT_EQ(S_OK, attributes->get_Size(&size));
    EXPECT_EQ(10, size);

    SmartPtr<IUnknown> old, entry;
    list->get_Entry(1, old.Out());
    EXPECT_EQ(1, entries->IndexOf(old.Get()));
    EXPECT_EQ(1, entries->IndexOf(QueryAs<IFileAttributes>(old.Get(), IID_IFileAttributes).Get()));
    SmartPtr<IUnknown> other = MakeFake<KitPlainObject, IUnknown>();
    ASSERT_EQ(S_OK, entries->Replace(1, other.Get()));
    EXPECT_LT(entries->IndexOf(old.Get()), 0);
    EXPECT_EQ(1, entries->IndexOf(other.Get()));
    EXPECT_EQ(1u, RefCountOf(old.Get()));  // the list let go of the replaced entry
    SmartPtr<IString> name;
    entries->get_Name(1, name.Out());
    EXPECT_EQ(F("b.png"), Narrow(name.Get()));
    EXPECT_EQ(E_NOINTERFACE, entries->get_FileAttributes(1, attributes.Out()));
    EXPECT_FALSE(attributes);
    EXPECT_EQ(E_INVALIDARG, entries->get_FileAttributes(9, attributes.Out()));
    EXPECT_EQ(E_INVALIDARG, entries->Replace(9, other.Get()));
    std::wstring wide = Wide(F("d.bmp"));
    EXPECT_EQ(3, entries->IndexOfName(KitViewOf(wide)));
    ASSERT_EQ(S_OK, entries->get_ItemByName(KitViewOf(wide), entry.Out()));
    EXPECT_EQ(3, entries->IndexOf(entry.Get()));
}

TEST(FileListEvents, SinksAreKeptWithoutReferencesAndComparedAsPlainPointers) {
    SmartPtr<IFileNameCollection> list = MakeList("");
    SmartPtr<IEventSource> events = QueryAs<IEventSource>(list.Get(), IID_IEventSource);
    ASSERT_TRUE(events);
    FileSink* raw = nullptr;
    SmartPtr<_IFileNameCollectionEvent> sink = MakeFake<FileSink, _IFileNameCollectionEvent>(&raw);
    IUnknown* primary = raw->PrimaryUnknown();
    IUnknown* eventFace = sink.Get();
    ASSERT_NE(primary, eventFace);

    EXPECT_EQ(S_OK, events->Advise(primary, 1));
    EXPECT_EQ(S_FALSE, events->Advise(primary, 1));
    EXPECT_EQ(S_OK, events->Advise(eventFace, 1));  // another pointer to the same object
    EXPECT_EQ(E_POINTER, events->Advise(nullptr, 1));
    EXPECT_EQ(2, events->GetAdviseCount());
    EXPECT_EQ(1u, RefCountOf(primary));
    EXPECT_EQ(0, raw->queries.load());  // never asked while registering

    SmartPtr<IUnknown> item;
    int32_t flags = 0;
    ASSERT_EQ(S_OK, events->GetAdviseItem(1, item.Out(), &flags));
    EXPECT_EQ(eventFace, item.Get());
    EXPECT_EQ(1, flags);
    EXPECT_EQ(2u, RefCountOf(primary));  // the item handed out is counted
    item = nullptr;
    EXPECT_EQ(E_FAIL, events->GetAdviseItem(2, item.Out(), nullptr));

    EXPECT_EQ(S_OK, events->Advise(eventFace, 0));
    EXPECT_EQ(E_FAIL, events->Advise(eventFace, 0));
    EXPECT_EQ(1, events->GetAdviseCount());
    // Flags 2 marks the one replaceable registration.
    SmartPtr<IUnknown> other = MakeFake<FileSink, IUnknown>();
    EXPECT_EQ(S_OK, events->Advise(eventFace, 2));
    EXPECT_EQ(S_OK, events->Advise(other.Get(), 2));
    ASSERT_EQ(S_OK, events->GetAdviseItem(1, item.Out(), &flags));
    EXPECT_EQ(other.Get(), item.Get());
    EXPECT_EQ(2, flags);
    item = nullptr;
    EXPECT_EQ(S_OK, events->Advise(nullptr, 0));
    EXPECT_EQ(0, events->GetAdviseCount());
    EXPECT_EQ(0, raw->queries.load());
}

}  // namespace
