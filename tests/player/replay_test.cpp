// Stepping through the files of a folder one Grab at a time: the order and
// its wrap-around, the event, get_Image, what happens to a shown image, and
// the player's control codes and constant answers.
#include "tests/player/PlayerHost.h"

namespace {

class Replay : public PlayerTest {
protected:
    /// A player over `files` images of the test folder, with a sink.
    void Start(int32_t files) {
        WriteSeries(files);
        player = NewPlayer();
        ASSERT_TRUE(player);
        ASSERT_GE(PointAtFolder(player.Get()), 0);
        ASSERT_EQ(Count(player.Get()), files);
        sink = AdviseSink(player.Get());
    }
    /// `steps` Grabs; returns the position after each.
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

using V = std::vector<int32_t>;

TEST_F(Replay, EachGrabStepsUpAndWrapsToTheFirstFile) {
    Start(4);
    EXPECT_EQ(Position(player.Get()), 0);
    EXPECT_EQ(Step(6), (V{1, 2, 3, 0, 1, 2}));
    EXPECT_EQ(sink->Indexes(), (V{1, 2, 3, 0, 1, 2})) << "the file at the new position is shown";
    for (const Delivery& d : sink->Deliveries()) {
        EXPECT_EQ(d.camera, IdentityPointer(player.Get())) << "sent by the player itself";
        EXPECT_EQ(d.count, 0);
        // PNG and BMP keep the gray level exactly, JPEG nearly.
        EXPECT_NEAR(d.gray, GrayOf(d.index), 3) << "file " << d.index;
    }
    EXPECT_EQ(Param(player.Get(), 55), 2) << "parameter 55 is the position";
    EXPECT_EQ(State(player.Get()), CameraStateIdle);
}

TEST_F(Replay, FirstGrabScansAListThatWasNeverScanned) {
    WriteSeries(3);
    player = NewPlayer();
    ASSERT_TRUE(player);
    sink = AdviseSink(player.Get());
    // A pattern given to the file list itself does not rescan.
    SmartPtr<IFileNameCollection> list = QueryAs<IFileNameCollection>(player.Get(), IID_IFileNameCollection);
    ASSERT_TRUE(list);
    ASSERT_EQ(list->put_Pattern(Str(folder.wstring()).Get()), S_OK);
    EXPECT_EQ(Count(player.Get()), 0);
    EXPECT_EQ(player->Grab(0, 0, nullptr), S_OK);
    EXPECT_EQ(Count(player.Get()), 3);
    EXPECT_EQ(sink->Indexes(), (V{1}));
    // Only the first: later files wait for a rescan.
    WriteImage("img03.png", 3);
    player->Control(57, 2);
    Step(3);
    EXPECT_EQ(sink->Indexes(), (V{1, 2, 0, 1}));
}

TEST_F(Replay, BackwardStepsDownAndWrapsToTheLastFile) {
    Start(4);
    player->Control(54, 1);
    EXPECT_EQ(Step(6), (V{3, 2, 1, 0, 3, 2}));
    EXPECT_EQ(sink->Indexes(), (V{3, 2, 1, 0, 3, 2}));
    // Changing direction on the way continues from where it is.
    player->Control(54, 0);
    EXPECT_EQ(Step(2), (V{3, 0}));
}

TEST_F(Replay, LoopSwitchDoesNotStopTheWrapAround) {
    Start(3);
    SmartPtr<IMMControlEx> controls = Controls(player.Get());
    EXPECT_EQ(controls->put_Loop(0), S_OK);
    int32_t loop = -1;
    EXPECT_EQ(controls->get_Loop(&loop), S_OK);
    EXPECT_EQ(loop, 0);
    EXPECT_EQ(Step(4), (V{1, 2, 0, 1}));
    controls->put_Loop(7);
    controls->get_Loop(&loop);
    EXPECT_EQ(loop, 7);
}

TEST_F(Replay, NextGoesToTheLowerIndexAndPreviousToTheHigher) {
    Start(4);
    SmartPtr<IMMControlEx> controls = Controls(player.Get());
    EXPECT_EQ(controls->Next(), S_OK);
    EXPECT_EQ(Position(player.Get()), 3) << "Next from the first file wraps to the last";
    EXPECT_EQ(Param(player.Get(), 54), 1);
    controls->Next();
    EXPECT_EQ(Position(player.Get()), 2);
    EXPECT_EQ(controls->Previous(), S_OK);
    EXPECT_EQ(Param(player.Get(), 54), 0);
    EXPECT_EQ(Position(player.Get()), 3);
    controls->Previous();
    EXPECT_EQ(Position(player.Get()), 0) << "Previous from the last file wraps to the first";
    EXPECT_EQ(sink->Indexes(), (V{3, 2, 3, 0}));
    // A plain Grab keeps the direction the last of them set.
    player->Grab(0, 0, nullptr);
    EXPECT_EQ(Position(player.Get()), 1);
}

TEST_F(Replay, EndPositionLimitsTheCycleWhateverTheStart) {
    Start(10);
    SmartPtr<IMMControlEx> controls = Controls(player.Get());
    EXPECT_EQ(controls->SetPositions(7, 3), S_OK);
    int32_t start = -1, end = -1;
    EXPECT_EQ(controls->GetPositions(&start, &end), S_OK);
    EXPECT_EQ(start, 7) << "stored unchecked";
    EXPECT_EQ(end, 3);
    EXPECT_EQ(Step(6), (V{1, 2, 0, 1, 2, 0}));
    EXPECT_EQ(sink->Indexes(), (V{1, 2, 0, 1, 2, 0}));
    controls->GetPositions(&start, &end);
    EXPECT_EQ(start, 3) << "the start is clamped to the end by a step";
    EXPECT_EQ(end, 3);
    player->Control(54, 1);
    EXPECT_EQ(Step(4), (V{2, 1, 0, 2}));

    // An end beyond the list is clamped to its count; 0 means the whole list.
    controls->SetPositions(0, 25);
    Step(1);
    controls->GetPositions(&start, &end);
    EXPECT_EQ(end, 10);
    controls->SetPositions(0, 0);
    player->Control(54, 0);
    player->Control(55, 8);
    EXPECT_EQ(Step(3), (V{9, 0, 1}));
    EXPECT_EQ(controls->GetPositions(nullptr, nullptr), S_OK);
}

TEST_F(Replay, EmptyListLeavesPositionZeroForwardAndMinusOneBackward) {
    // A player never pointed anywhere, and one whose pattern matches nothing.
    WriteSeries(2);
    SmartPtr<ICamera> unpointed = NewPlayer();
    SmartPtr<ICamera> unmatched = NewPlayer();
    ASSERT_TRUE(unpointed && unmatched);
    PointAt(unmatched.Get(), (folder / "*.gif").wstring());
    for (ICamera* p : {unpointed.Get(), unmatched.Get()}) {
        SmartPtr<ReplaySink> s = AdviseSink(p);
        EXPECT_EQ(Count(p), 0);
        EXPECT_EQ(p->Grab(0, 0, nullptr), S_OK);
        EXPECT_EQ(Position(p), 0);
        EXPECT_EQ(p->Grab(0, 0, nullptr), S_OK);
        EXPECT_EQ(Position(p), 0);
        p->Control(54, 1);
        EXPECT_EQ(p->Grab(0, 0, nullptr), S_OK);
        EXPECT_EQ(Position(p), -1);
        EXPECT_EQ(p->Grab(0, 0, nullptr), S_OK);
        EXPECT_EQ(Position(p), -1);
        EXPECT_EQ(s->Size(), 0) << "nothing to show, nothing fired";
        SmartPtr<ILUM> image;
        EXPECT_EQ(p->get_Image(0, image.Out()), E_FAIL);
        EXPECT_FALSE(image);
    }
}

TEST_F(Replay, EverySinkGetsTheImageAndMayCallBackIntoThePlayer) {
    Start(3);
    SmartPtr<ReplaySink> second = AdviseSink(player.Get());
    std::vector<int32_t> positions;
    std::vector<bool> sameImage;
    ICamera* p = player.Get();
    sink->m_OnEvent = [&](IUnknown*, IUnknown* image) {
        int32_t position = -1;
        Controls(p)->get_CurrentPosition(&position);
        positions.push_back(position);
        SmartPtr<ILUM> current;
        EXPECT_EQ(p->get_Image(0, current.Out()), S_OK);
        sameImage.push_back(IdentityPointer(current.Get()) == IdentityPointer(image));
    };
    Step(3);
    EXPECT_EQ(positions, (V{1, 2, 0})) << "the position is moved before the event";
    EXPECT_EQ(sameImage, (std::vector<bool>{true, true, true})) << "the current image is set before the event";
    EXPECT_EQ(second->Indexes(), (V{1, 2, 0}));

    SmartPtr<IEventSource> source = QueryAs<IEventSource>(player.Get(), IID_IEventSource);
    EXPECT_EQ(source->Advise(sink->PrimaryUnknown(), 0), S_OK);
    Step(1);
    EXPECT_EQ(sink->Size(), 3);
    EXPECT_EQ(second->Size(), 4);
    source->Advise(second->PrimaryUnknown(), 0);
    EXPECT_EQ(RefCountOf(second->PrimaryUnknown()), 1u) << "unadvising gives the sink back";
}

TEST_F(Replay, GetImageLoadsTheFileAtThePositionWithoutKeepingIt) {
    Start(4);
    SmartPtr<ILUM> image;
    ASSERT_EQ(player->get_Image(0, image.Out()), S_OK);
    EXPECT_EQ(IndexOfImage(image.Get()), 0) << "before any Grab: the file at position 0";
    EXPECT_NEAR(MiddleGray(image.Get()), GrayOf(0), 3);
    player->Control(55, 2);
    ASSERT_EQ(player->get_Image(5, image.Out()), S_OK);
    EXPECT_EQ(IndexOfImage(image.Get()), 2) << "nothing was kept: it follows the position";
    EXPECT_EQ(Position(player.Get()), 2) << "get_Image does not step";
    EXPECT_EQ(sink->Size(), 0) << "and fires nothing";

    player->Grab(0, 0, nullptr);
    ASSERT_EQ(sink->Size(), 1);
    ASSERT_EQ(player->get_Image(0, image.Out()), S_OK);
    EXPECT_EQ(IdentityPointer(image.Get()), sink->Deliveries()[0].image) << "after a Grab: the image shown";
    player->Control(55, 0);
    player->get_Image(0, image.Out());
    EXPECT_EQ(IndexOfImage(image.Get()), 3) << "the current image, whatever the position says";
}

// What happens to the list entry of a shown image (parameter 57).
class Retention : public Replay {
protected:
    SmartPtr<ILUMFileEx> EntryAt(int32_t index) {
        SmartPtr<IUnknown> entry = Entry(player.Get(), index);
        return QueryAs<ILUMFileEx>(entry.Get(), IID_ILUMFileEx);
    }
    std::wstring FileNameAt(int32_t index) {
        SmartPtr<IFileArchive> archive = QueryAs<IFileArchive>(Entry(player.Get(), index).Get(), IID_IFileArchive);
        SmartPtr<IString> name;
        if (archive) archive->get_Filename(name.Out());
        return TextOf(name.Get());
    }
};

TEST_F(Retention, ZeroPutsAFreshUnloadedEntryInPlaceOfTheShownOne) {
    Start(3);
    EXPECT_EQ(Param(player.Get(), 57), 0) << "the default";
    const std::wstring name = FileNameAt(1);
    EXPECT_EQ(name, (folder / "img01.bmp").wstring());
    player->Grab(0, 0, nullptr);
    ASSERT_EQ(sink->Size(), 1);
    SmartPtr<ILUMFileEx> entry = EntryAt(1);
    ASSERT_TRUE(entry) << "the new entry is a file entry";
    EXPECT_EQ(entry->IsLoaded(), S_FALSE) << "the loaded image was dropped from the list";
    EXPECT_NE(IdentityPointer(entry.Get()), sink->Deliveries()[0].image);
    EXPECT_EQ(FileNameAt(1), name) << "for the same file";
    EXPECT_EQ(Count(player.Get()), 3);
    // The image shown stays the current one; the list entry loads anew next time round.
    SmartPtr<ILUM> current;
    player->get_Image(0, current.Out());
    EXPECT_EQ(IdentityPointer(current.Get()), sink->Deliveries()[0].image);
    Step(3);
    EXPECT_EQ(sink->Indexes(), (V{1, 2, 0, 1}));
    EXPECT_NEAR(sink->Deliveries()[3].gray, GrayOf(1), 3);
    for (int32_t i = 0; i < 3; ++i) {
        SmartPtr<ILUMFileEx> shown = EntryAt(i);
        ASSERT_TRUE(shown) << i;
        EXPECT_EQ(shown->IsLoaded(), S_FALSE) << i;
    }
}

TEST_F(Retention, TwoKeepsTheShownImageLoadedInTheList) {
    Start(3);
    player->Control(57, 2);
    Step(2);
    for (int32_t i = 1; i <= 2; ++i) {
        SmartPtr<ILUMFileEx> entry = EntryAt(i);
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->IsLoaded(), S_OK) << i;
        EXPECT_EQ(IdentityPointer(entry.Get()), sink->Deliveries()[static_cast<size_t>(i - 1)].image);
    }
    SmartPtr<ILUMFileEx> unshown = EntryAt(0);
    ASSERT_TRUE(unshown);
    EXPECT_EQ(unshown->IsLoaded(), S_FALSE) << "never shown";
    // No rescan: a file added to the folder stays unlisted.
    WriteImage("img03.png", 3);
    Step(1);
    EXPECT_EQ(Count(player.Get()), 3);
}

TEST_F(Retention, OneRescansTheFolderAfterShowing) {
    Start(3);
    player->Control(57, 1);
    Step(1);
    SmartPtr<ILUMFileEx> entry = EntryAt(1);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->IsLoaded(), S_FALSE) << "rebuilt afresh";
    WriteImage("img03.png", 3);
    EXPECT_EQ(Count(player.Get()), 3) << "not tracking on its own";
    Step(1);
    EXPECT_EQ(Count(player.Get()), 4) << "the rescan after showing lists the new file";
    Step(2);
    EXPECT_EQ(sink->Indexes(), (V{1, 2, 3, 0}));

    player->Control(57, 0);
    WriteImage("img04.png", 4);
    Step(1);
    EXPECT_EQ(Count(player.Get()), 4) << "retention 0 does not rescan";
}

TEST_F(Replay, RescanTriggerRewindsAndReportsInvalidArgument) {
    Start(3);
    Step(2);
    WriteImage("img03.png", 3);
    EXPECT_EQ(player->Control(66, 1), E_INVALIDARG) << "the rescan is done, the store of a valueless parameter fails";
    EXPECT_EQ(Position(player.Get()), 0);
    EXPECT_EQ(Count(player.Get()), 4);
    int32_t value = -1;
    EXPECT_EQ(player->Inquire(66, &value), 8);
    EXPECT_EQ(value, 0);
    Step(1);
    EXPECT_EQ(sink->Indexes().back(), 1);
}

TEST_F(Replay, PatternChangeRescansAndClampsThePositions) {
    WriteSeries(10, "a", "png");
    WriteSeries(3, "b", "png");
    player = NewPlayer();
    ASSERT_TRUE(player);
    sink = AdviseSink(player.Get());
    ASSERT_GE(PointAt(player.Get(), (folder / "a*").wstring()), 0);
    EXPECT_EQ(Count(player.Get()), 10) << "a pattern change rescans by itself";
    SmartPtr<IMMControlEx> controls = Controls(player.Get());
    controls->SetPositions(1, 2);
    PointAt(player.Get(), (folder / "b*").wstring());
    int32_t start = -1, end = -1;
    controls->GetPositions(&start, &end);
    EXPECT_EQ(std::make_pair(start, end), std::make_pair(1, 2)) << "within the new count: unchanged";
    controls->SetPositions(5, 8);
    PointAt(player.Get(), (folder / "b*").wstring());
    controls->GetPositions(&start, &end);
    EXPECT_EQ(std::make_pair(start, end), std::make_pair(3, 3));
    PointAt(player.Get(), (folder / "b01.png").wstring());
    EXPECT_EQ(Count(player.Get()), 1) << "a pattern without wild-cards names one file";
    controls->GetPositions(&start, &end);
    EXPECT_EQ(std::make_pair(start, end), std::make_pair(1, 1));

    SmartPtr<IUnknown> pattern;
    QueryAs<IUIPropInterrogateEx>(player.Get(), IID_IUIPropInterrogateEx)->InquireEx(50, pattern.Out());
    EXPECT_EQ(TextOf(QueryAs<IString>(pattern.Get(), IID_IString).Get()), (folder / "b01.png").wstring());
    EXPECT_EQ(sink->Size(), 0) << "a pattern change shows nothing";
}

TEST_F(Replay, ParametersAfterConstruction) {
    player = NewPlayer();
    ASSERT_TRUE(player);
    int32_t value = -1;
    EXPECT_EQ(player->Inquire(0x2000000, &value), S_OK);
    EXPECT_EQ(value, 9);
    int32_t low = -1, high = -1;
    SmartPtr<IUIPropInterrogateEx> params = QueryAs<IUIPropInterrogateEx>(player.Get(), IID_IUIPropInterrogateEx);
    ASSERT_TRUE(params);
    EXPECT_EQ(params->ParameterRange(0x2000000, &low, &high), S_OK);
    EXPECT_EQ(std::make_pair(low, high), std::make_pair(50, 66));
    // id, flags word returned, value
    const struct { int32_t id; int32_t flags; int32_t value; } expected[] = {
        {52, 5, 0}, {54, 0x13, 0}, {55, 3, 0}, {56, 3, 1}, {57, 0x43, 0}, {64, 0x13, 1}, {66, 8, 0},
    };
    for (const auto& e : expected) {
        value = -1;
        EXPECT_EQ(player->Inquire(e.id, &value), e.flags) << e.id;
        EXPECT_EQ(value, e.value) << e.id;
    }
    SmartPtr<IUnknown> text;
    EXPECT_EQ(params->InquireEx(50, text.Out()), 0x126);
    EXPECT_FALSE(text) << "no pattern yet";
    EXPECT_EQ(params->InquireEx(65, text.Out()), 0x116);
    EXPECT_FALSE(text) << "no overlay name yet";
    EXPECT_EQ(params->ParameterRange(54, &low, &high), S_OK);
    EXPECT_EQ(std::make_pair(low, high), std::make_pair(0, 1));
    EXPECT_EQ(params->ParameterRange(65, &low, &high), S_OK);
    EXPECT_EQ(std::make_pair(low, high), std::make_pair(0, 1));

    // Retention offers its three named choices.
    SmartPtr<IUnknown> list;
    ASSERT_EQ(params->ParameterEnumeration(57, list.Out()), S_OK);
    SmartPtr<INamedCollection> choices = QueryAs<INamedCollection>(list.Get(), IID_INamedCollection);
    ASSERT_TRUE(choices);
    int32_t n = 0;
    choices->get_Count(&n);
    ASSERT_EQ(n, 3);
    for (int32_t i = 0; i < n; ++i) {
        SmartPtr<IUnknown> item;
        choices->get_Item(i, item.Out());
        SmartPtr<IVariant> variant = QueryAs<IVariant>(item.Get(), IID_IVariant);
        ASSERT_TRUE(variant);
        int32_t choice = -1;
        variant->get_Integer(&choice);
        EXPECT_EQ(choice, i);
    }
    SmartPtr<IString> first;
    choices->get_Name(0, first.Out());
    EXPECT_EQ(TextOf(first.Get()), L"Drop after showing");

    // A double travels as a float's bits and is stored as given.
    EXPECT_EQ(player->Control(52, FloatBits(12.5f)), S_OK);
    EXPECT_EQ(Param(player.Get(), 52), FloatBits(12.5f));
    EXPECT_EQ(player->Control(99, 1), E_INVALIDARG);
}

TEST_F(Replay, UnsupportedAndConstantAnswers) {
    Start(3);
    int32_t frames = -7;
    EXPECT_EQ(player->get_NumberOfFrames(&frames), E_NOTIMPL);
    EXPECT_EQ(frames, -7);
    EXPECT_EQ(player->put_NumberOfFrames(5), E_NOTIMPL);
    wchar_t text[] = L"/tmp";
    EXPECT_EQ(player->LoadParameters(tagREFString{4, text}), E_NOTIMPL);

    SmartPtr<IMMControlEx> controls = Controls(player.Get());
    EXPECT_EQ(controls->Seek(2), S_OK);
    EXPECT_EQ(Position(player.Get()), 0) << "Seek does nothing";
    int32_t duration = -7;
    EXPECT_EQ(controls->get_Duration(&duration), S_OK);
    EXPECT_EQ(duration, -7) << "get_Duration writes nothing";
    SmartPtr<IString> units;
    EXPECT_EQ(controls->get_Units(units.Out()), S_OK);
    EXPECT_EQ(TextOf(units.Get()), L"Image#");
    EXPECT_EQ(controls->get_Capablities(), 0xE3F);
    EXPECT_EQ(controls->IsPlaying(), E_FAIL);
    EXPECT_EQ(controls->Stop(), S_OK);
    EXPECT_EQ(controls->Pause(), S_OK);
    EXPECT_EQ(player->StopLive(), S_OK) << "stopping a player that does not play";
    EXPECT_EQ(player->get_CameraState(nullptr), S_OK);
    EXPECT_EQ(controls->get_CurrentPosition(nullptr), S_OK);
    EXPECT_EQ(sink->Size(), 0);

    // The player is also a plain IMMControl.
    SmartPtr<IMMControl> basic = QueryAs<IMMControl>(player.Get(), IID_IMMControl);
    ASSERT_TRUE(basic);
    EXPECT_EQ(basic->SetPositions(1, 2), S_OK);
    int32_t start = -1, end = -1;
    controls->GetPositions(&start, &end);
    EXPECT_EQ(std::make_pair(start, end), std::make_pair(1, 2));
}

TEST_F(Replay, OffersTheGenericParameterPageOnly) {
    player = NewPlayer();
    ASSERT_TRUE(player);
    SmartPtr<IUIPropertyPageSpecify> specify =
        QueryAs<IUIPropertyPageSpecify>(player.Get(), IID_IUIPropertyPageSpecify);
    ASSERT_TRUE(specify);
    SmartPtr<INamedCollection> pages;
    ASSERT_EQ(specify->GetPages(0, pages.Out(), nullptr), S_OK);
    ASSERT_TRUE(pages);
    int32_t n = 0;
    pages->get_Count(&n);
    ASSERT_EQ(n, 1);
    SmartPtr<IString> name;
    pages->get_Name(0, name.Out());
    EXPECT_EQ(TextOf(name.Get()), L"UIPropPages.UIPropInterrogatePropPage");
    SmartPtr<IUnknown> item;
    pages->get_Item(0, item.Out());
    SmartPtr<IString> value = QueryAs<IString>(item.Get(), IID_IString);
    ASSERT_TRUE(value) << "the entry's item is a string";
    int32_t length = -1;
    value->get_Length(&length);
    EXPECT_EQ(length, 0);
    // Each call hands out a new collection.
    SmartPtr<INamedCollection> again;
    specify->GetPages(0, again.Out(), nullptr);
    EXPECT_NE(IdentityPointer(again.Get()), IdentityPointer(pages.Get()));
    EXPECT_EQ(RefCountOf(pages.Get()), 1u);
}

}  // namespace
