// Settings saved into and loaded from a folder stream, and the player's own
// file: the current image written to it, and an image read from it handed to
// the sinks.
#include <cstdlib>
#include <fstream>

#include "tests/player/PlayerHost.h"

namespace {

class Persistence : public PlayerTest {
protected:
    /// The test folder is the install path for the test's duration.
    void SetUp() override {
        PlayerTest::SetUp();
        const char* previous = std::getenv("LUM_REGISTRY");
        hadRegistry = previous != nullptr;
        if (previous) savedRegistry = previous;
        const fs::path ini = folder / "Registry.ini";
        std::ofstream(ini) << "[Workspace]\nInstallPath=" << folder.string() << "\n";
        setenv("LUM_REGISTRY", ini.c_str(), 1);
    }
    void TearDown() override {
        if (hadRegistry)
            setenv("LUM_REGISTRY", savedRegistry.c_str(), 1);
        else
            unsetenv("LUM_REGISTRY");
        PlayerTest::TearDown();
    }
    static SmartPtr<IFileArchive> Archive(ICamera* player) {
        return QueryAs<IFileArchive>(player, IID_IFileArchive);
    }
    static std::wstring ArchiveName(ICamera* player) {
        SmartPtr<IString> name;
        Archive(player)->get_Filename(name.Out());
        return TextOf(name.Get());
    }
    static std::wstring StringParam(ICamera* player, int32_t id) {
        SmartPtr<IUnknown> value;
        QueryAs<IUIPropInterrogateEx>(player, IID_IUIPropInterrogateEx)->InquireEx(id, value.Out());
        return TextOf(QueryAs<IString>(value.Get(), IID_IString).Get());
    }
    static std::wstring StoredString(IFolderStream* folder, const wchar_t* key) {
        SmartPtr<IString> value = Str(L"<unread>");
        folder->ReadString(Str(key).Get(), value.Get());
        return TextOf(value.Get());
    }

    bool hadRegistry = false;
    std::string savedRegistry;
};

TEST_F(Persistence, SettingsAndFileNameRoundTripRelativeToTheInstallPath) {
    fs::create_directories(folder / "images");
    fs::create_directories(folder / "settings");
    WriteSeries(4, "images/img", "png");
    WriteImage("images/other.bmp", 5);

    SmartPtr<ICamera> saved = NewPlayer();
    ASSERT_TRUE(saved);
    ASSERT_GE(PointAt(saved.Get(), (folder / "images" / "*.png").wstring()), 0);
    saved->Control(52, FloatBits(25.0f));
    saved->Control(54, 1);
    saved->Control(55, 2);
    saved->Control(56, 7);
    saved->Control(57, 2);
    saved->Control(64, 0);
    SmartPtr<IString> overlay = Str(L"Ov");
    QueryAs<IUIPropInterrogateEx>(saved.Get(), IID_IUIPropInterrogateEx)->ControlEx(65, overlay.Get());
    const std::wstring archiveName = (folder / "settings" / "a.png").wstring();
    ASSERT_EQ(Archive(saved.Get())->put_Filename(Str(archiveName).Get()), S_OK);

    SmartPtr<IFolderStream> stream = CreateByName<IFolderStream>(L"FolderStream", IID_IFolderStream);
    ASSERT_TRUE(stream);
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(saved.Get(), IID_IDataPersist);
    ASSERT_GE(persist->Save(stream.As<IDataStream>(IID_IDataStream).Get(), 0), 0);

    // What was written: the archive name and the pattern relative to the install path.
    EXPECT_EQ(StoredString(stream.Get(), L"Filename"), L"settings/a.png");
    int32_t folders = 0;
    stream->get_FolderCount(&folders);
    EXPECT_EQ(folders, 9) << "one sub-folder per parameter";
    SmartPtr<IVariant> which = CreateByName<IVariant>(L"Variant", IID_IVariant);
    which->put_String(Str(L"Pattern").Get());
    SmartPtr<IFolderStream> pattern;
    ASSERT_EQ(stream->OpenFolder(which.Get(), pattern.Out()), S_OK);
    EXPECT_EQ(StoredString(pattern.Get(), L"Value"), L"images/*.png");

    SmartPtr<ICamera> loaded = NewPlayer();
    ASSERT_TRUE(loaded);
    ASSERT_GE(QueryAs<IDataPersist>(loaded.Get(), IID_IDataPersist)
                  ->Load(stream.As<IDataStream>(IID_IDataStream).Get(), 0),
              0);
    EXPECT_EQ(ArchiveName(loaded.Get()), archiveName) << "made absolute again";
    EXPECT_EQ(StringParam(loaded.Get(), 50), (folder / "images" / "*.png").wstring());
    EXPECT_EQ(Count(loaded.Get()), 4) << "the loaded pattern is applied to the file list";
    EXPECT_EQ(StringParam(loaded.Get(), 65), L"Ov");
    EXPECT_EQ(Param(loaded.Get(), 52), FloatBits(25.0f));
    EXPECT_EQ(Param(loaded.Get(), 54), 1);
    EXPECT_EQ(Param(loaded.Get(), 55), 2);
    EXPECT_EQ(Position(loaded.Get()), 2);
    EXPECT_EQ(Param(loaded.Get(), 56), 7);
    EXPECT_EQ(Param(loaded.Get(), 57), 2);
    EXPECT_EQ(Param(loaded.Get(), 64), 0);

    // The loaded settings replay: backward from position 2.
    SmartPtr<ReplaySink> sink = AdviseSink(loaded.Get());
    loaded->Grab(0, 0, nullptr);
    loaded->Grab(0, 0, nullptr);
    EXPECT_EQ(sink->Indexes(), (std::vector<int32_t>{1, 0}));
}

TEST_F(Persistence, SettingsNeedAFolderStream) {
    SmartPtr<ICamera> player = NewPlayer();
    ASSERT_TRUE(player);
    player->Control(56, 9);
    SmartPtr<IDataStream> bytes = CreateByName<IDataStream>(L"DataStream", IID_IDataStream);
    ASSERT_TRUE(bytes);
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(player.Get(), IID_IDataPersist);
    EXPECT_LT(persist->Save(bytes.Get(), 0), 0);
    int32_t size = -1;
    bytes->get_Size(&size);
    EXPECT_EQ(size, 0);
    EXPECT_LT(persist->Load(bytes.Get(), 0), 0);
    EXPECT_EQ(Param(player.Get(), 56), 9);
}

TEST_F(Persistence, ArchiveSaveWritesTheCurrentImage) {
    WriteSeries(3);
    SmartPtr<ICamera> player = NewPlayer();
    ASSERT_TRUE(player);
    PointAtFolder(player.Get());
    ASSERT_EQ(player->Grab(0, 0, nullptr), S_OK);  // img01.bmp
    SmartPtr<ILUMArchive> reader = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    for (const char* name : {"out.png", "out.bmp"}) {
        const fs::path file = folder / "saved" / name;
        fs::create_directories(file.parent_path());
        ASSERT_EQ(Archive(player.Get())->put_Filename(Str(file.wstring()).Get()), S_OK);
        EXPECT_GE(Archive(player.Get())->Save(), 0) << name;
        SmartPtr<ILUM> image;
        ASSERT_EQ(reader->Read(Str(file.wstring()).Get(), image.Out()), S_OK) << name;
        EXPECT_EQ(IndexOfImage(image.Get()), 1) << name;
        EXPECT_EQ(MiddleGray(image.Get()), GrayOf(1)) << name;
    }
}

TEST_F(Persistence, ArchiveLoadHandsTheImageToEverySink) {
    WriteSeries(3);
    SmartPtr<ICamera> player = NewPlayer();
    ASSERT_TRUE(player);
    SmartPtr<ReplaySink> first = AdviseSink(player.Get());
    SmartPtr<ReplaySink> second = AdviseSink(player.Get());
    SmartPtr<IFileArchive> archive = Archive(player.Get());
    archive->put_Filename(Str((folder / "img02.jpg").wstring()).Get());
    EXPECT_EQ(archive->Load(), S_OK);
    for (ReplaySink* sink : {first.Get(), second.Get()}) {
        ASSERT_EQ(sink->Size(), 1);
        const Delivery d = sink->Deliveries()[0];
        EXPECT_EQ(d.index, 2);
        EXPECT_NEAR(d.gray, GrayOf(2), 3);
        EXPECT_EQ(d.count, 0);
        EXPECT_EQ(d.camera, IdentityPointer(player.Get()));
    }
    EXPECT_EQ(Position(player.Get()), 0) << "loading does not step";

    // Files that yield no image fire nothing.
    std::ofstream(folder / "text.png") << "not an image";
    for (const char* name : {"missing.png", "text.png"}) {
        archive->put_Filename(Str((folder / name).wstring()).Get());
        archive->Load();
        EXPECT_EQ(first->Size(), 1) << name;
    }
}

}  // namespace
