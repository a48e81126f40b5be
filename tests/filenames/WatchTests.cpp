// The watch of "FileNameCollection": files that become complete in the
// folder are added and announced once, on the watch thread; stopping from
// inside the event and releasing the list while it watches. Every case runs
// with the kernel's notification and with periodic looks at the folder.
// Also run under ThreadSanitizer.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <set>

#include "tests/filenames/FileListSupport.h"

namespace {

using namespace std::chrono_literals;

enum class Mode { Notify, Poll };

class WatchTest : public testing::TestWithParam<Mode> {
protected:
    void SetUp() override {
        if (GetParam() == Mode::Poll) polling = std::make_unique<ScopedEnv>("LUM_WATCH_POLLING", "1");
        list = MakeList(folder.Path());
        ASSERT_TRUE(list);
        ASSERT_EQ(S_OK, list->put_Option(8, 1));
        ASSERT_EQ(S_OK, list->put_Option(9, 0));
        ASSERT_EQ(S_OK, list->put_Option(10, 20));
        sink = MakeFake<FileSink, IUnknown>(&raw);
        ASSERT_EQ(S_OK, QueryAs<IEventSource>(list.Get(), IID_IEventSource)->Advise(sink.Get(), 1));
    }
    void TearDown() override {
        if (list) QueryAs<IEventSource>(list.Get(), IID_IEventSource)->Advise(sink.Get(), 0);
    }
    /// Writes a file elsewhere and copies it into the folder.
    void CopyIn(const std::string& name) {
        WriteFile(source.File("from"), std::string(100, 'p'));
        std::filesystem::copy_file(source.File("from"), folder.File(name));
    }
    /// Waits for `count` events, then a few periods more, in which no
    /// further event may come.
    bool EventsSettleAt(size_t count) {
        bool reached = WaitFor([&] { return raw->Count() >= count; });
        std::this_thread::sleep_for(150ms);
        return reached && raw->Count() == count;
    }

    std::unique_ptr<ScopedEnv> polling;
    ScratchFolder folder, source;
    SmartPtr<IFileNameCollection> list;
    FileSink* raw = nullptr;
    SmartPtr<IUnknown> sink;
};

TEST_P(WatchTest, AFileCopiedInIsAddedAndAnnouncedOnceOnTheWatchThread) {
    WriteFile(folder.File("old.png"), "x");
    ASSERT_EQ(S_OK, list->Start(0));
    EXPECT_EQ(S_OK, list->IsRunning());
    EXPECT_EQ(EntryNames(list.Get()), (std::vector<std::string>{folder.File("old.png")}));
    CopyIn("new.png");
    WriteFile(folder.File("ignored.txt"), "x");
    ASSERT_TRUE(EventsSettleAt(1));
    EXPECT_EQ(raw->Names(), (std::vector<std::string>{folder.File("new.png")}));
    EXPECT_EQ(raw->Collections()[0], IdentityPointer(list.Get()));
    EXPECT_NE(raw->Threads()[0], std::this_thread::get_id());
    // Newest first: the new file leads the list.
    EXPECT_EQ(EntryNames(list.Get())[0], folder.File("new.png"));
    EXPECT_EQ(2u, EntryNames(list.Get()).size());
    EXPECT_EQ(S_OK, list->Stop());
    EXPECT_EQ(S_FALSE, list->IsRunning());
}

TEST_P(WatchTest, EveryFileOfABurstIsAnnouncedExactlyOnce) {
    ASSERT_EQ(S_OK, list->Start(0));
    std::set<std::string> expected;
    for (int i = 0; i < 50; ++i) {
        std::string name = "burst" + std::to_string(i) + ".jpg";
        WriteFile(folder.File(name), std::string(static_cast<size_t>(i + 1), 'b'));
        expected.insert(folder.File(name));
        EntryNames(list.Get());  // the host reads while the watch adds
    }
    ASSERT_TRUE(EventsSettleAt(50)) << raw->Count();
    std::vector<std::string> names = raw->Names();
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), expected);
    EXPECT_EQ(50u, EntryNames(list.Get()).size());
}

TEST_P(WatchTest, AFileMovedInIsAnnouncedAndPresentFilesOnlyWhenAsked) {
    WriteFile(folder.File("present.bmp"), "x");
    ASSERT_EQ(S_OK, list->Start(1));
    ASSERT_TRUE(EventsSettleAt(1));
    WriteFile(folder.File("shot.tmp"), std::string(64, 'm'));
    std::filesystem::rename(folder.File("shot.tmp"), folder.File("shot.png"));
    ASSERT_TRUE(EventsSettleAt(2));
    EXPECT_EQ(raw->Names(), (std::vector<std::string>{folder.File("present.bmp"), folder.File("shot.png")}));

    // Option 8 off: listed, not announced.
    ASSERT_EQ(S_OK, list->put_Option(8, 0));
    CopyIn("quiet.png");
    ASSERT_TRUE(WaitFor([&] { return EntryNames(list.Get()).size() == 3; }));
    EXPECT_TRUE(EventsSettleAt(2));
}

TEST_P(WatchTest, StartingAgainWatchesTheFolderOfTheCurrentPattern) {
    ScratchFolder other;
    ASSERT_EQ(S_OK, list->Start(0));
    ASSERT_EQ(S_OK, list->put_Pattern(FileNameString(other.Path() + "/*.png").Get()));
    ASSERT_EQ(S_OK, list->Start(0));
    CopyIn("first.png");
    WriteFile(other.File("second.png"), "x");
    WriteFile(other.File("third.bmp"), "x");
    ASSERT_TRUE(EventsSettleAt(1));
    EXPECT_EQ(raw->Names(), (std::vector<std::string>{other.File("second.png")}));

    ASSERT_EQ(S_OK, list->put_Pattern(FileNameString(folder.Path() + "/missing/*.png").Get()));
    EXPECT_EQ(E_FAIL, list->Start(0));
}

TEST_P(WatchTest, StopFromInsideTheEventEndsTheWatchAfterIt) {
    raw->onEvent = [](IUnknown* collection) {
        QueryAs<IFileNameCollection>(collection, IID_IFileNameCollection)->Stop();
    };
    ASSERT_EQ(S_OK, list->Start(0));
    CopyIn("a.png");
    ASSERT_TRUE(EventsSettleAt(1));
    // The event is recorded before the sink's Stop runs on the watch thread.
    EXPECT_TRUE(WaitFor([&] { return list->IsRunning() == S_FALSE; }));
    CopyIn("b.png");
    EXPECT_TRUE(EventsSettleAt(1));
    EXPECT_EQ(S_OK, list->Stop());

    // Started again from outside, it watches once more.
    raw->onEvent = nullptr;
    ASSERT_EQ(S_OK, list->Start(0));
    CopyIn("c.png");
    ASSERT_TRUE(EventsSettleAt(2));
    EXPECT_EQ(raw->Names().back(), folder.File("c.png"));
}

TEST_P(WatchTest, ReleasingTheListWhileItWatchesStopsTheWatch) {
    ASSERT_EQ(S_OK, list->Start(0));
    CopyIn("a.png");
    ASSERT_TRUE(EventsSettleAt(1));
    const auto before = std::chrono::steady_clock::now();
    QueryAs<IEventSource>(list.Get(), IID_IEventSource)->Advise(sink.Get(), 0);
    list = nullptr;
    EXPECT_LT(std::chrono::steady_clock::now() - before, 2s);
    CopyIn("b.png");
    EXPECT_TRUE(EventsSettleAt(1));
}

TEST_P(WatchTest, ASinkMayReleaseTheLastReferenceInsideTheEvent) {
    // The sink owns the list; inside the event it lets go of it, so the
    // list ends on its own watch thread.
    std::atomic<bool> released{false};
    auto owned = std::make_shared<SmartPtr<IFileNameCollection>>(list);
    raw->onEvent = [owned, &released, this](IUnknown* collection) {
        QueryAs<IEventSource>(collection, IID_IEventSource)->Advise(sink.Get(), 0);
        *owned = nullptr;
        released = true;
    };
    ASSERT_EQ(S_OK, list->Start(0));
    list = nullptr;
    CopyIn("a.png");
    ASSERT_TRUE(WaitFor([&] { return released.load(); }));
    std::this_thread::sleep_for(100ms);  // the detached thread ends by itself
    EXPECT_EQ(1u, raw->Count());
}

INSTANTIATE_TEST_SUITE_P(FileNames, WatchTest, testing::Values(Mode::Notify, Mode::Poll),
                         [](const testing::TestParamInfo<Mode>& info) {
                             return info.param == Mode::Notify ? "Notify" : "Poll";
                         });

TEST(FileListPollingWatch, AGrowingFileIsTakenOnlyOnceItsSizeStandsStill) {
    ScopedEnv polling("LUM_WATCH_POLLING", "1");
    ScratchFolder folder;
    SmartPtr<IFileNameCollection> list = MakeList(folder.Path());
    list->put_Option(8, 1);
    list->put_Option(10, 150);
    FileSink* raw = nullptr;
    SmartPtr<IUnknown> sink = MakeFake<FileSink, IUnknown>(&raw);
    QueryAs<IEventSource>(list.Get(), IID_IEventSource)->Advise(sink.Get(), 1);
    ASSERT_EQ(S_OK, list->Start(0));
    FILE* file = std::fopen(folder.File("slow.png").c_str(), "wb");
    ASSERT_TRUE(file);
    // Two looks at the folder never see the same size while it grows.
    for (int i = 0; i < 40; ++i) {
        std::fputs("growing", file);
        std::fflush(file);
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(0u, raw->Count());
    std::fclose(file);
    ASSERT_TRUE(WaitFor([&] { return raw->Count() == 1; }));
    QueryAs<IEventSource>(list.Get(), IID_IEventSource)->Advise(sink.Get(), 0);
}

}  // namespace
