// The file name and time that the player lays over an advised viewer, and
// switching that overlay off.
#include <ctime>

#include "tests/player/PlayerHost.h"

namespace {

/// The time text of a file, written afresh from the rule: t counts seconds
/// from 2000-01-01 00:00; every year is taken as 366 days long; the day of a
/// month counts from 0 in January and from 1 later on; hour and minute are
/// not padded, the second has one decimal.
std::wstring TimeText(int64_t t) {
    const int64_t day = 86400;
    const int64_t longYear = 366 * day;
    const int64_t year = 2000 + t / longYear;
    const int64_t rest = t - (year - 2000) * longYear;
    const int64_t dayOfYear = rest / day;
    const int64_t secondOfDay = rest % day;
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    auto length = [leap](int month) -> int64_t {
        if (month == 2) return leap ? 29 : 28;
        if (month == 4 || month == 6 || month == 9 || month == 11 || month > 12) return 30;
        return 31;
    };
    int month = 1;
    int64_t before = 0;  // days of the months before `month`
    while (dayOfYear > before + length(month)) {
        before += length(month);
        ++month;
    }
    char text[128];
    std::snprintf(text, sizeof text, "%d-%02d-%02d %d:%d:%0.1f", static_cast<int>(year), month,
                  static_cast<int>(dayOfYear - before), static_cast<int>(secondOfDay / 3600),
                  static_cast<int>(secondOfDay % 3600 / 60), static_cast<double>(secondOfDay % 60));
    return std::wstring(text, text + std::strlen(text));
}

/// Seconds from 2000-01-01 00:00:00 UTC to the given UTC time.
int64_t Since2000(int year, int month, int day, int hour, int minute, int second) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    return static_cast<int64_t>(timegm(&tm)) - 946684800;
}

class Overlay : public PlayerTest {
protected:
    void SetUp() override {
        PlayerTest::SetUp();
        player = NewPlayer();
        ASSERT_TRUE(player);
    }
    SmartPtr<ILUMViewer> AdviseViewer() {
        SmartPtr<ILUMViewer> viewer = CreateByName<ILUMViewer>(L"LUMViewer", IID_ILUMViewer);
        EXPECT_TRUE(viewer);
        if (viewer) {
            EXPECT_EQ(QueryAs<IEventSource>(player.Get(), IID_IEventSource)->Advise(viewer.Get(), 1), S_OK);
        }
        viewers.push_back(viewer);
        return viewer;
    }
    void SetOverlayName(const std::wstring& name) {
        SmartPtr<IString> text = Str(name);
        EXPECT_EQ(QueryAs<IUIPropInterrogateEx>(player.Get(), IID_IUIPropInterrogateEx)->ControlEx(65, text.Get()),
                  S_OK);
    }
    static int32_t OverlayCount(ILUMViewer* viewer) {
        int32_t count = -1;
        QueryAs<ISuperCollection>(viewer, IID_ISuperCollection)->get_OverlayCount(&count);
        return count;
    }
    static int32_t Refreshes(ILUMViewer* viewer) {
        int32_t count = -1;
        viewer->get_RefreshCount(&count);
        return count;
    }
    /// The text stored under `name` in the viewer's first overlay.
    static std::wstring OverlayText(ILUMViewer* viewer, const wchar_t* name) {
        SmartPtr<IUnknown> overlay;
        QueryAs<ISuperCollection>(viewer, IID_ISuperCollection)->get_Overlay(0, overlay.Out());
        SmartPtr<INamedCollection> parameters = QueryAs<INamedCollection>(overlay.Get(), IID_INamedCollection);
        if (!parameters) return L"<no named collection>";
        SmartPtr<IUnknown> item;
        if (parameters->get_ItemByName(REFStr(name), item.Out()) < 0) return L"<missing>";
        return TextOf(QueryAs<IString>(item.Get(), IID_IString).Get());
    }
    void TearDown() override {
        if (player) {
            SmartPtr<IEventSource> source = QueryAs<IEventSource>(player.Get(), IID_IEventSource);
            source->Advise(nullptr, 0);
        }
        viewers.clear();
        player.Reset();
        PlayerTest::TearDown();
    }

    SmartPtr<ICamera> player;
    std::vector<SmartPtr<ILUMViewer>> viewers;
};

TEST_F(Overlay, NamesTheShownFileAndItsModificationTime) {
    const std::vector<fs::path> files = WriteSeries(5);
    const int64_t times[] = {
        86400 * 31,                         // January the 31st
        0,                                  // the start of the count: day 0
        Since2000(2014, 3, 15, 13, 45, 30), // an ordinary afternoon
        Since2000(2002, 1, 1, 0, 0, 0),     // 731 days: still within the second 366-day year
        Since2000(2004, 2, 29, 23, 59, 59), // a leap day, late
    };
    for (size_t i = 0; i < files.size(); ++i) SetModificationTime(files[i], times[i]);
    ASSERT_GE(PointAtFolder(player.Get()), 0);

    // A plain sink ahead of the viewer: the overlay goes to the first viewer.
    SmartPtr<ReplaySink> plain = AdviseSink(player.Get());
    SmartPtr<ILUMViewer> viewer = AdviseViewer();
    ASSERT_TRUE(viewer);
    SetOverlayName(L"Overlay");

    // The reference, checked by hand: 5187 days after the start, 14 long years
    // are 5124 days, leaving day 63 = March (after 31 + 28) day 4; and 731 days
    // are one long year plus day 365 = December 31.
    ASSERT_EQ(TimeText(times[2]), L"2014-03-04 13:45:30.0");
    ASSERT_EQ(TimeText(times[3]), L"2001-12-31 0:0:0.0");
    const std::wstring expected[] = {
        L"2000-01-31 0:0:0.0", L"2000-01-00 0:0:0.0", TimeText(times[2]), TimeText(times[3]), TimeText(times[4]),
    };
    for (int32_t step = 1; step <= 5; ++step) {
        ASSERT_EQ(player->Grab(0, 0, nullptr), S_OK);
        const int32_t shown = step % 5;
        ASSERT_EQ(Position(player.Get()), shown);
        EXPECT_EQ(OverlayCount(viewer.Get()), 1) << "the previous overlay is replaced, step " << step;
        EXPECT_EQ(OverlayText(viewer.Get(), L"_Name_"), files[static_cast<size_t>(shown)].wstring());
        EXPECT_EQ(OverlayText(viewer.Get(), L"_Time_"), expected[shown]) << "file " << shown;
    }
    int32_t frames = 0;
    viewer->get_FrameCount(&frames);
    EXPECT_EQ(frames, 5) << "the viewer is also an ordinary sink";
    EXPECT_EQ(plain->Size(), 5);
}

TEST_F(Overlay, NothingIsLaidOverWithoutANameOrWhenSwitchedOff) {
    WriteSeries(3);
    ASSERT_GE(PointAtFolder(player.Get()), 0);
    SmartPtr<ILUMViewer> first = AdviseViewer();
    SmartPtr<ILUMViewer> second = AdviseViewer();
    ASSERT_TRUE(first && second);

    player->Grab(0, 0, nullptr);
    EXPECT_EQ(OverlayCount(first.Get()), 0) << "no overlay name";
    SetOverlayName(L"");
    player->Grab(0, 0, nullptr);
    EXPECT_EQ(OverlayCount(first.Get()), 0) << "an empty overlay name";
    SetOverlayName(L"Overlay");
    player->Grab(0, 0, nullptr);
    EXPECT_EQ(OverlayCount(first.Get()), 1);
    EXPECT_EQ(OverlayCount(second.Get()), 0) << "only the first viewer gets it";

    // Something else drawn over the second viewer goes too.
    SmartPtr<IString> mark = Str(L"mark");
    QueryAs<ISuperCollection>(second.Get(), IID_ISuperCollection)->AddOverlay(mark.Get());
    const int32_t refreshed[] = {Refreshes(first.Get()), Refreshes(second.Get())};
    EXPECT_EQ(player->Control(64, 0), S_OK);
    EXPECT_EQ(Param(player.Get(), 64), 0);
    EXPECT_EQ(OverlayCount(first.Get()), 0);
    EXPECT_EQ(OverlayCount(second.Get()), 0);
    EXPECT_EQ(Refreshes(first.Get()), refreshed[0] + 1);
    EXPECT_EQ(Refreshes(second.Get()), refreshed[1] + 1);
    player->Grab(0, 0, nullptr);
    EXPECT_EQ(OverlayCount(first.Get()), 0) << "switched off";

    EXPECT_EQ(player->Control(64, 1), S_OK);
    EXPECT_EQ(Refreshes(first.Get()), refreshed[0] + 1) << "switching on refreshes nothing";
    player->Grab(0, 0, nullptr);
    EXPECT_EQ(OverlayCount(first.Get()), 1);
}

}  // namespace
