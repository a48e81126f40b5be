// Folders that are not what they seem: files that do not decode, files that
// vanish after the scan, patterns that match nothing, folders that do not
// exist. Replay goes on over what is there; nothing crashes or leaks.
#include <fstream>

#include "tests/player/PlayerHost.h"

namespace {

using V = std::vector<int32_t>;

class BadFiles : public PlayerTest {
protected:
    void SetUp() override {
        PlayerTest::SetUp();
        player = NewPlayer();
        ASSERT_TRUE(player);
        sink = AdviseSink(player.Get());
    }
    std::vector<int32_t> Step(int steps) {
        std::vector<int32_t> positions;
        for (int i = 0; i < steps; ++i) {
            EXPECT_EQ(player->Grab(0, 0, nullptr), S_OK);
            positions.push_back(Position(player.Get()));
        }
        return positions;
    }

    SmartPtr<ICamera> player;
    SmartPtr<ReplaySink> sink;
};

TEST_F(BadFiles, UndecodableFilesAreSteppedOverWithoutAnEvent) {
    WriteImage("a0.png", 0);
    std::ofstream(folder / "a1.jpg") << "this is not a JPEG file at all";
    WriteImage("a2.bmp", 2);
    std::ofstream(folder / "a3.jpg").close();  // zero bytes
    WriteImage("a4.jpg", 4);
    {
        // A JPEG cut off right after its first header bytes.
        const fs::path whole = WriteImage("whole.jpg", 5);
        std::ifstream in(whole, std::ios::binary);
        char head[20] = {};
        in.read(head, sizeof head);
        std::ofstream(folder / "a5.jpg", std::ios::binary).write(head, sizeof head);
        in.close();
        fs::remove(whole);
    }
    ASSERT_GE(PointAtFolder(player.Get()), 0);
    ASSERT_EQ(Count(player.Get()), 6) << "listed by extension, not by content";

    EXPECT_EQ(Step(12), (V{1, 2, 3, 4, 5, 0, 1, 2, 3, 4, 5, 0}));
    EXPECT_EQ(sink->Indexes(), (V{2, 4, 0, 2, 4, 0}));
    for (const Delivery& d : sink->Deliveries()) EXPECT_NEAR(d.gray, GrayOf(d.index), 3) << d.index;

    // get_Image on a bad file before anything was shown: a failure, not an image.
    SmartPtr<ICamera> fresh = NewPlayer();
    PointAtFolder(fresh.Get());
    fresh->Control(55, 3);
    SmartPtr<ILUM> image;
    EXPECT_EQ(fresh->get_Image(0, image.Out()), E_FAIL);
    EXPECT_FALSE(image);
    fresh->Control(55, 4);
    EXPECT_EQ(fresh->get_Image(0, image.Out()), S_OK);
    EXPECT_EQ(IndexOfImage(image.Get()), 4);
}

TEST_F(BadFiles, FilesDeletedAfterTheScanAreSkipped) {
    const std::vector<fs::path> files = WriteSeries(5);
    ASSERT_GE(PointAtFolder(player.Get()), 0);
    fs::remove(files[2]);
    fs::remove(files[4]);
    EXPECT_EQ(Step(5), (V{1, 2, 3, 4, 0}));
    EXPECT_EQ(sink->Indexes(), (V{1, 3, 0}));

    // Once rescanned the vanished files are gone from the list.
    EXPECT_EQ(player->Control(66, 1), E_INVALIDARG);
    EXPECT_EQ(Count(player.Get()), 3);
    Step(3);
    EXPECT_EQ(sink->Indexes(), (V{1, 3, 0, 1, 3, 0}));
}

TEST_F(BadFiles, WholeFolderDeletedWhileRetainingLoadedImages) {
    const std::vector<fs::path> files = WriteSeries(3);
    ASSERT_GE(PointAtFolder(player.Get()), 0);
    player->Control(57, 2);
    Step(3);
    ASSERT_EQ(sink->Size(), 3);
    fs::remove_all(folder);
    // Kept images are loaded again from their files on every step: nothing left.
    Step(3);
    EXPECT_EQ(sink->Size(), 3);
    player->Control(57, 1);
    Step(1);
    EXPECT_EQ(Count(player.Get()), 0) << "the rescan after showing empties the list";
    Step(2);
    EXPECT_EQ(sink->Size(), 3);
}

TEST_F(BadFiles, PatternsThatFindNothing) {
    WriteSeries(2);
    std::ofstream(folder / "notes.txt") << "text";
    const std::wstring patterns[] = {
        (folder / "*.gif").wstring(),
        (folder / "notes.txt").wstring(),
        (folder / "missing.png").wstring(),
        L"/nonexistent-lum-player-folder/*.png",
        L"/nonexistent-lum-player-folder",
        L"",
    };
    for (const std::wstring& pattern : patterns) {
        PointAt(player.Get(), pattern);
        EXPECT_EQ(Count(player.Get()), 0) << std::string(pattern.begin(), pattern.end());
        EXPECT_EQ(player->Grab(0, 0, nullptr), S_OK);
        EXPECT_EQ(player->Control(66, 0), E_INVALIDARG);
        SmartPtr<ILUM> image;
        EXPECT_EQ(player->get_Image(0, image.Out()), E_FAIL);
    }
    EXPECT_EQ(sink->Size(), 0);
    // And back to a folder that has images.
    PointAtFolder(player.Get());
    EXPECT_EQ(Count(player.Get()), 2);
    player->Grab(0, 0, nullptr);
    EXPECT_EQ(sink->Indexes(), (V{1}));
}

}  // namespace
