// The player as a recorder of another camera. Record, IsRecording and
// StopRecording are the player's own operations, reached through no
// interface, so the component is built into this test and created directly.
#include <algorithm>
#include <fstream>
#include <regex>

#include "components/LUMFilePlayerImpl.h"
#include "module/GlobalComponents.h"
#include "tests/player/PlayerHost.h"

namespace {

class Recording : public ::testing::Test {
protected:
    void SetUp() override {
        collection = GlobalCollection();
        ASSERT_TRUE(collection);
        SetGlobalComponents(collection.Get());
        std::string pattern = (fs::temp_directory_path() / "lum-player-rec-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder = pattern;
        player = CObject<CLUMFilePlayer>::New();
        ASSERT_TRUE(player);
        camera = NewCamera();
        ASSERT_TRUE(camera);
    }
    void TearDown() override {
        if (player) player->StopRecording();
        player.Reset();
        camera.Reset();
        SetGlobalComponents(nullptr);
        collection.Reset();
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    /// A synthetic 8-bit gray camera: pixel (x, y) of frame f is x + y + f.
    static SmartPtr<ICamera> NewCamera() {
        SmartPtr<ICamera> c = CreateByName<ICamera>(L"LUMTestCamera", IID_ICamera);
        if (c) {
            c->Control(1, 32);
            c->Control(2, 16);
            c->Control(3, 8);
        }
        return c;
    }
    static int32_t Sinks(ICamera* source) {
        return QueryAs<IEventSource>(source, IID_IEventSource)->GetAdviseCount();
    }
    void SetArchiveName(const std::wstring& name) {
        SmartPtr<IFileArchive> archive = QueryAs<IFileArchive>(player->PrimaryUnknown(), IID_IFileArchive);
        ASSERT_EQ(archive->put_Filename(PlayerTestStr(name).Get()), S_OK);
    }
    std::wstring ArchiveName() {
        SmartPtr<IFileArchive> archive = QueryAs<IFileArchive>(player->PrimaryUnknown(), IID_IFileArchive);
        SmartPtr<IString> name;
        archive->get_Filename(name.Out());
        return TextOf(name.Get());
    }
    CameraStateConstants State() {
        CameraStateConstants state = static_cast<CameraStateConstants>(-1);
        player->get_CameraState(&state);
        return state;
    }
    /// Grabs `frames` images of `source`, far enough apart to be recorded.
    static void GrabFrames(ICamera* source, int frames) {
        for (int i = 0; i < frames; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            ASSERT_EQ(source->Grab(0, 0, nullptr), S_OK);
        }
    }
    /// Files whose names are `stem` + digits + ".jpg", ordered by that number.
    std::vector<std::pair<long, fs::path>> Recorded(const std::string& stem) const {
        std::vector<std::pair<long, fs::path>> files;
        const std::regex name(stem + "([0-9]+)\\.jpg");
        std::smatch match;
        for (const auto& entry : fs::directory_iterator(folder)) {
            const std::string file = entry.path().filename().string();
            if (std::regex_match(file, match, name)) files.emplace_back(std::stol(match[1]), entry.path());
        }
        std::sort(files.begin(), files.end());
        return files;
    }
    /// The folder's file names, for failure messages.
    std::string Listing() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        std::string text;
        for (const std::string& name : names) text += name + " ";
        return text;
    }
    size_t FileCount() const {
        return static_cast<size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
    }
    /// The frame number of the synthetic camera in a recorded JPEG file:
    /// the median of pixel - x - y below the first block row (the top row
    /// carries the frame number as bytes and disturbs its block).
    static int32_t FrameOf(const fs::path& file) {
        SmartPtr<ILUMArchive> reader = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
        SmartPtr<ILUM> image;
        if (!reader || reader->Read(PlayerTestStr(file.wstring()).Get(), image.Out()) < 0) return -1;
        int32_t width = 0, height = 0, stride = 0, bits = 0;
        uint8_t* pixels = nullptr;
        image->get_Width(&width);
        image->get_Height(&height);
        image->get_Stride(&stride);
        image->get_BitsPerPixel(&bits);
        image->get_Bits(&pixels);
        if (!pixels || bits != 8 || width != 32 || height != 16) return -2;
        std::vector<int32_t> offsets;
        for (int32_t y = 8; y < height; ++y)
            for (int32_t x = 0; x < width; ++x) offsets.push_back(pixels[y * stride + x] - x - y);
        std::nth_element(offsets.begin(), offsets.begin() + static_cast<long>(offsets.size() / 2), offsets.end());
        return offsets[offsets.size() / 2];
    }
    static SmartPtr<IString> PlayerTestStr(const std::wstring& text) {
        SmartPtr<IString> s = CreateByName<IString>(L"CreatableString", IID_IString);
        if (s) s->SetText(static_cast<int32_t>(text.size()), text.c_str());
        return s;
    }

    SmartPtr<IComponentCollection> collection;
    fs::path folder;
    SmartPtr<CLUMFilePlayer> player;
    SmartPtr<ICamera> camera;
};

TEST_F(Recording, RecordReportsFailureYetWritesEveryImageAsANewJpegFile) {
    SetArchiveName((folder / "take007.xml").wstring());
    EXPECT_EQ(player->Record(camera.Get()), E_FAIL) << "the success path reports failure too";
    EXPECT_EQ(player->IsRecording(), S_OK);
    EXPECT_EQ(State(), CameraStateArmed);
    EXPECT_EQ(Sinks(camera.Get()), 1);

    GrabFrames(camera.Get(), 3);
    const auto files = Recorded("take");
    ASSERT_EQ(files.size(), 3u) << "the stem loses its extension and trailing digits: " << Listing();
    EXPECT_EQ(FileCount(), 3u);
    std::vector<int32_t> frames;
    for (const auto& [number, file] : files) frames.push_back(FrameOf(file));
    EXPECT_EQ(frames, (std::vector<int32_t>{1, 2, 3})) << "numbered in the order recorded";
    EXPECT_EQ(ArchiveName(), files.back().second.wstring()) << "the name taken last becomes the archive name";

    EXPECT_EQ(player->StopRecording(), S_OK);
    EXPECT_EQ(player->IsRecording(), E_FAIL);
    EXPECT_EQ(State(), CameraStateIdle);
    EXPECT_EQ(Sinks(camera.Get()), 0) << "unsubscribed";
    GrabFrames(camera.Get(), 1);
    EXPECT_EQ(FileCount(), 3u);
    EXPECT_EQ(player->RefCount(), 1) << "the camera gave the player back";
}

TEST_F(Recording, TheIntervalGatesImagesAndZeroRecordsNothing) {
    SetArchiveName((folder / "gate.jpg").wstring());
    player->SetRecordInterval(0);
    player->Record(camera.Get());
    GrabFrames(camera.Get(), 3);
    EXPECT_EQ(FileCount(), 0u) << "interval 0 turns recording into a no-op: " << Listing();
    EXPECT_EQ(player->IsRecording(), S_OK) << "and yet the player is recording";

    // Frames that come faster than the interval are dropped: ten grabs in a
    // row within far less than a minute record only the first.
    player->SetRecordInterval(60000.0);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    for (int i = 0; i < 10; ++i) ASSERT_EQ(camera->Grab(0, 0, nullptr), S_OK);
    EXPECT_EQ(FileCount(), 0u) << "the last recorded time is the player's creation, less than a minute ago";
    player->SetRecordInterval(1.0);
    GrabFrames(camera.Get(), 1);
    EXPECT_EQ(FileCount(), 1u);
    player->SetRecordInterval(60000.0);
    for (int i = 0; i < 10; ++i) ASSERT_EQ(camera->Grab(0, 0, nullptr), S_OK);
    EXPECT_EQ(FileCount(), 1u) << Listing();
}

TEST_F(Recording, ExistingFilesAreNeverOverwritten) {
    for (int i = 0; i < 10; ++i) std::ofstream(folder / ("shot" + std::to_string(i) + ".jpg")) << "keep " << i;
    SetArchiveName((folder / "shot12.png").wstring());
    player->Record(camera.Get());
    GrabFrames(camera.Get(), 2);
    player->StopRecording();

    const auto files = Recorded("shot");
    ASSERT_EQ(files.size(), 12u) << Listing();
    std::vector<int32_t> frames;
    for (const auto& [number, file] : files) {
        const std::string name = file.filename().string();
        if (name == "shot" + std::to_string(number) + ".jpg" && number < 10) {
            std::ifstream in(file);
            std::string text;
            std::getline(in, text);
            EXPECT_EQ(text, "keep " + std::to_string(number)) << file;
        } else {
            frames.push_back(FrameOf(file));
        }
    }
    EXPECT_EQ(frames, (std::vector<int32_t>{1, 2}));
}

TEST_F(Recording, PatternTextGoesBetweenStemAndNumber) {
    SmartPtr<IString> suffix = PlayerTestStr(L"_s");
    SmartPtr<IUIPropInterrogateEx> params =
        QueryAs<IUIPropInterrogateEx>(player->PrimaryUnknown(), IID_IUIPropInterrogateEx);
    ASSERT_EQ(params->ControlEx(50, suffix.Get()), S_OK);
    SetArchiveName((folder / "clip2.bmp").wstring());
    player->Record(camera.Get());
    GrabFrames(camera.Get(), 1);
    player->StopRecording();
    const auto files = Recorded("clip_s");
    ASSERT_EQ(files.size(), 1u) << Listing();
    EXPECT_EQ(FileCount(), 1u) << Listing();
    EXPECT_EQ(FrameOf(files.front().second), 1);
}

TEST_F(Recording, SourcesWithoutEventsAreRefused) {
    SmartPtr<PlainObject> plain = CObject<PlainObject>::New();
    SetArchiveName((folder / "x.png").wstring());
    EXPECT_EQ(player->Record(plain->PrimaryUnknown()), E_FAIL);
    EXPECT_EQ(player->IsRecording(), E_FAIL);
    EXPECT_EQ(State(), CameraStateIdle);

    // Refusing a second source drops the first subscription, not the state.
    player->Record(camera.Get());
    ASSERT_EQ(Sinks(camera.Get()), 1);
    EXPECT_EQ(player->Record(plain->PrimaryUnknown()), E_FAIL);
    EXPECT_EQ(Sinks(camera.Get()), 0);
    EXPECT_EQ(State(), CameraStateArmed);
    GrabFrames(camera.Get(), 1);
    EXPECT_EQ(FileCount(), 0u);
    EXPECT_EQ(RefCountOf(plain->PrimaryUnknown()), 1u);
}

TEST_F(Recording, RecordingAnotherCameraLetsGoOfTheFirst) {
    SmartPtr<ICamera> second = NewCamera();
    SetArchiveName((folder / "take.png").wstring());
    player->Record(camera.Get());
    player->Record(second.Get());
    EXPECT_EQ(Sinks(camera.Get()), 0);
    EXPECT_EQ(Sinks(second.Get()), 1);
    GrabFrames(camera.Get(), 2);
    EXPECT_EQ(FileCount(), 0u);
    GrabFrames(second.Get(), 1);
    EXPECT_EQ(Recorded("take").size(), 1u);
    player->StopRecording();
    EXPECT_EQ(Sinks(second.Get()), 0);
}

TEST_F(Recording, LiveReplayEndsRecording) {
    SetArchiveName((folder / "take.png").wstring());
    player->Record(camera.Get());
    ASSERT_EQ(player->Live(), S_OK);
    EXPECT_EQ(State(), CameraStateLive);
    EXPECT_EQ(player->IsRecording(), E_FAIL);
    EXPECT_EQ(Sinks(camera.Get()), 0);
    EXPECT_EQ(player->StopLive(), S_OK);
    GrabFrames(camera.Get(), 1);
    EXPECT_EQ(FileCount(), 0u);
}

TEST_F(Recording, RecordsOnTheCamerasThread) {
    camera->Control(4, 50);  // frames per second
    camera->Control(5, 6);   // then it stops by itself
    SetArchiveName((folder / "run.png").wstring());
    player->Record(camera.Get());
    // More than the least interval (1 ms) after the player was made, so
    // that the first frame is recorded too.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_EQ(camera->Live(), S_OK);
    ASSERT_TRUE(PlayerTest::WaitFor([&] {
        int32_t produced = 0;
        camera->get_NumberOfFrames(&produced);
        return produced >= 6;
    })) << "the camera ends after its frame limit";
    camera->StopLive();  // joins the camera's thread: every event is through
    player->StopRecording();
    const auto files = Recorded("run");
    std::vector<int32_t> frames;
    for (const auto& [number, file] : files) frames.push_back(FrameOf(file));
    EXPECT_EQ(frames, (std::vector<int32_t>{1, 2, 3, 4, 5, 6}));
}

}  // namespace
