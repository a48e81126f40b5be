// The date record: clock readings and its XML and folder-stream forms
// through the framework's streams (./Streams.so).
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "components/DateTimer.h"
#include "tests/support/ModuleHost.h"

namespace {

CDateTimer Sample() {
    CDateTimer date;
    date.Day = 28;
    date.Month = 2;
    date.Year = 2014;
    date.Hour = 23;
    date.Minute = 59;
    date.Second = 12.345f;
    date.WeekDay = 5;
    return date;
}

void ExpectSameDate(const DATETIME& a, const DATETIME& b) {
    EXPECT_EQ(a.Day, b.Day);
    EXPECT_EQ(a.Month, b.Month);
    EXPECT_EQ(a.Year, b.Year);
    EXPECT_EQ(a.Hour, b.Hour);
    EXPECT_EQ(a.Minute, b.Minute);
    EXPECT_FLOAT_EQ(a.Second, b.Second);
}

TEST(DateTimer, ClockReadings) {
    const char* zone = std::getenv("TZ");
    const std::string saved = zone ? zone : "";
    setenv("TZ", "UTC", 1);
    tzset();
    CDateTimer date;
    date.WeekDay = 6;
    date.m_SystemTime = 42;
    date.SetLinuxTime(0);
    EXPECT_EQ(1, date.Day);
    EXPECT_EQ(1, date.Month);
    EXPECT_EQ(1970, date.Year);
    EXPECT_EQ(0, date.Hour);
    EXPECT_EQ(0, date.Minute);
    EXPECT_EQ(0.0f, date.Second);
    EXPECT_EQ(6, date.WeekDay) << "kept by SetLinuxTime";
    EXPECT_EQ(42, date.m_SystemTime);

    const time_t before = std::time(nullptr);
    date.Reset();
    EXPECT_LE(before, date.m_SystemTime);
    std::tm now{};
    const time_t read = static_cast<time_t>(date.m_SystemTime);
    gmtime_r(&read, &now);
    EXPECT_EQ(now.tm_wday, date.WeekDay);
    EXPECT_EQ(now.tm_year + 1900, date.Year);
    if (zone)
        setenv("TZ", saved.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
}

TEST(DateTimer, XMLRoundTripInsideDATETIME) {
    SmartPtr<IXMLStreamEx> xml = CreateByName<IXMLStreamEx>(L"XMLStreamEx", IID_IXMLStreamEx);
    ASSERT_TRUE(xml) << "Streams.so";
    xml->SetOptions(3, 0);
    SmartPtr<IDataStream> stream = QueryAs<IDataStream>(xml.Get(), IID_IDataStream);
    CDateTimer saved = Sample();
    EXPECT_EQ(S_OK, saved.Save(stream.Get(), 0));
    const std::wstring text = TextOf(QueryAs<IString>(xml.Get(), IID_IString).Get());
    EXPECT_EQ(0u, text.find(L"<DATETIME><WeekDay>5</WeekDay><Day>28</Day><Month>2</Month><Year>2014</Year>"
                            L"<Hour>23</Hour><Minute>59</Minute><Second>12.345"));

    CDateTimer loaded;
    EXPECT_EQ(S_OK, loaded.Load(stream.Get(), 0));
    ExpectSameDate(saved, loaded);
    EXPECT_EQ(5, loaded.WeekDay);

    // Missing values leave their fields; "#" makes a hexadecimal second.
    xml->Reset();
    const wchar_t partial[] = L"<DATETIME><Day>-3</Day><Second>#1A</Second></DATETIME>";
    xml->WriteText(REFStr(partial));
    EXPECT_EQ(S_FALSE, loaded.Load(stream.Get(), 0));
    EXPECT_EQ(-3, loaded.Day);
    EXPECT_EQ(26.0f, loaded.Second);
    EXPECT_EQ(2014, loaded.Year);
}

TEST(DateTimer, FolderRoundTripLeavesWeekDay) {
    SmartPtr<IDataStream> folder = CreateByName<IDataStream>(L"FolderStream", IID_IDataStream);
    ASSERT_TRUE(folder) << "Streams.so";
    CDateTimer saved = Sample();
    EXPECT_EQ(S_OK, saved.Save(folder.Get(), 0));
    CDateTimer loaded;
    loaded.WeekDay = 3;
    EXPECT_EQ(S_OK, loaded.Load(folder.Get(), 0));
    ExpectSameDate(saved, loaded);
    EXPECT_EQ(3, loaded.WeekDay) << "the week day is not among the records";

    SmartPtr<IDataStream> plain = CreateByName<IDataStream>(L"DataStream", IID_IDataStream);
    EXPECT_EQ(E_NOINTERFACE, loaded.Save(plain.Get(), 0));
    EXPECT_EQ(E_POINTER, loaded.Load(nullptr, 0));
}

}  // namespace
