// "DataStream" and the "ASCIIStream" transform.
#include "tests/streams/StreamsTestSupport.h"

namespace {

TEST(StreamsDataStream, AppendsAndReadsFromItsReadPosition) {
    SmartPtr<IDataStream> data = CreateByName<IDataStream>(L"DataStream", IID_IDataStream);
    ASSERT_TRUE(data);
    ASSERT_EQ(S_OK, data->Write("abc", 3));
    ASSERT_EQ(S_OK, data->Write("de", 2));
    EXPECT_EQ(S_OK, data->Write(nullptr, 0));
    EXPECT_EQ(E_POINTER, data->Write(nullptr, 1));
    EXPECT_EQ(E_INVALIDARG, data->Write("x", -1));
    EXPECT_EQ("abcde", StreamBytes(data.Get()));

    char buffer[4] = {};
    int32_t done = -1;
    EXPECT_EQ(S_OK, data->Read(buffer, 4, &done));
    EXPECT_EQ(4, done);
    EXPECT_EQ(S_FALSE, data->Read(buffer, 4, &done));
    EXPECT_EQ(1, done);
    EXPECT_EQ('e', buffer[0]);
    EXPECT_EQ(S_FALSE, data->Read(buffer, 4, nullptr));

    EXPECT_EQ(S_OK, data->Clear());
    int32_t size = -1;
    data->get_Size(&size);
    EXPECT_EQ(0, size);
    data->Write("z", 1);
    EXPECT_EQ(S_OK, data->Read(buffer, 1, &done)) << "reading starts again at 0";
    EXPECT_EQ('z', buffer[0]);
}

TEST(StreamsAsciiStream, AppendsWideTextAsUtf8) {
    SmartPtr<IStreamTransform> ascii = CreateByName<IStreamTransform>(L"ASCIIStream", IID_IStreamTransform);
    ASSERT_TRUE(ascii);
    SmartPtr<IXMLStreamEx> xml = NewXml();
    const wchar_t text[] = {L'<', L'a', L'>', 0xFC, 0x20AC, 0x1F600, 0x110000, 0xD800, L'<', L'/', L'a', L'>', 0};
    xml.As<IString>(IID_IString)->SetText(-1, text);
    SmartPtr<IDataStream> target = CreateByName<IDataStream>(L"DataStream", IID_IDataStream);
    target->Write("kept:", 5);
    ASSERT_EQ(S_OK, ascii->Transform(xml.As<IDataStream>(IID_IDataStream).Get(), target.Get()));
    EXPECT_EQ("kept:<a>\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD\xEF\xBF\xBD</a>", StreamBytes(target.Get()))
        << "no byte-order mark; characters that are not Unicode become U+FFFD";

    EXPECT_EQ(E_POINTER, ascii->Transform(nullptr, target.Get()));
    EXPECT_EQ(E_POINTER, ascii->Transform(xml.As<IDataStream>(IID_IDataStream).Get(), nullptr));
}

}  // namespace
