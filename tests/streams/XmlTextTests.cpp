// The XML stream's text model: element writing with escaping and layout
// options, token reading, the unread rest, and views that never move.
#include "tests/streams/StreamsTestSupport.h"

namespace {

std::vector<std::wstring> Tokens(IXMLStream* stream, size_t limit = 1000) {
    std::vector<std::wstring> tokens;
    tagREFString token{-1, nullptr};
    while (tokens.size() < limit) {
        HRESULT hr = stream->ReadToken(&token);
        if (hr == S_FALSE) {
            EXPECT_EQ(0, token.length);
            break;
        }
        EXPECT_EQ(S_OK, hr);
        tokens.emplace_back(token.text, static_cast<size_t>(token.length));
    }
    return tokens;
}

std::wstring UnreadRest(IUnknown* stream) {
    wchar_t* text = nullptr;
    int32_t length = -1;
    EXPECT_EQ(S_OK, QueryAs<IString>(stream, IID_IString)->GetText(&text, &length));
    EXPECT_EQ(L'\0', text[length]) << "the unread rest is terminated";
    return std::wstring(text, static_cast<size_t>(length));
}

TEST(StreamsXmlText, WritesElementsEscapedAndLaidOutByOptions) {
    SmartPtr<IXMLStreamEx> xml = NewXml();
    int32_t options = 0;
    ASSERT_EQ(S_OK, xml->get_Options(&options));
    EXPECT_EQ(3, options) << "line ends and indentation by default";

    xml->OpenElement(REFStr(L"Outer"));
    xml->WriteElement(REFStr(L"Text"), MakeString(L"a<b & \"c\" >d").Get());
    xml->OpenElement(REFStr(L"Inner"));
    xml->WriteElement(REFStr(L"Empty"), nullptr);
    EXPECT_EQ(S_OK, xml->CloseElement());
    EXPECT_EQ(S_OK, xml->CloseElement());
    EXPECT_EQ(S_FALSE, xml->CloseElement()) << "nothing left open";
    EXPECT_EQ(L"<Outer>\r\n"
              L"\t<Text>a&lt;b &amp; \"c\" &gt;d</Text>\r\n"
              L"\t<Inner>\r\n"
              L"\t\t<Empty></Empty>\r\n"
              L"\t</Inner>\r\n"
              L"</Outer>\r\n",
              XmlText(xml.Get()));

    // Reset keeps the options; mask selects the bits changed; bit 23 is kept without effect.
    xml->SetOptions(-1, 0x800000 | 2);
    ASSERT_EQ(S_OK, xml->Reset());
    xml->SetOptions(1, 0);
    xml->get_Options(&options);
    EXPECT_EQ(0x800002, options);
    xml->WriteText(REFStr(L"raw & <unescaped>\n"));
    xml->OpenElement(REFStr(L"A"));
    xml->WriteText(REFStr(L"\n"));
    xml->WriteElement(REFStr(L"B"), MakeString(L"1").Get());
    xml->CloseElement();
    EXPECT_EQ(L"raw & <unescaped>\n<A>\n\t<B>1</B></A>", XmlText(xml.Get()))
        << "indentation only where a line starts";

    xml->SetOptions(-1, 0);
    xml->Reset();
    xml->WriteElement(REFStr(L"52"), MakeString(L"x").Get());
    EXPECT_EQ(L"<52>x</52>", XmlText(xml.Get())) << "numeric tags are written as given";
    for (const wchar_t* bad : {L"", L"a b", L"a<b", L"a/b", L"a=b", L"a\tb"}) {
        EXPECT_EQ(E_INVALIDARG, xml->WriteElement(REFStr(bad), nullptr)) << bad;
        EXPECT_EQ(E_INVALIDARG, xml->OpenElement(REFStr(bad))) << bad;
    }
    EXPECT_EQ(L"<52>x</52>", XmlText(xml.Get()));
}

TEST(StreamsXmlText, ReadsAnArchiveTokenByToken) {
    SmartPtr<IXMLStreamEx> xml = XmlHolding(
        L"<?xml version=\"1.0\"?>\r\n"
        L"<?xml-stylesheet href=\"generic.xsl\" type=\"text/xsl\"?>\r\n"
        L"<LUMFilePlayer>\r\n"
        L"\t<Frame_Rate>25.000000</Frame_Rate>\r\n"
        L"\t<Pattern>  a &amp; b \t </Pattern>\r\n"
        L"\t<Empty></Empty>\r\n"
        L"</LUMFilePlayer>\r\n");
    tagREFString token{};
    std::vector<std::wstring> header;
    while (xml->ReadToken(&token) == S_OK && token.length > 0 && token.text[0] == L'?')
        header.emplace_back(token.text, static_cast<size_t>(token.length));
    ASSERT_EQ(2u, header.size());
    EXPECT_EQ(L"?xml version=\"1.0\"?", header[0]);
    EXPECT_EQ(L"?xml-stylesheet href=\"generic.xsl\" type=\"text/xsl\"?", header[1]);
    EXPECT_EQ(L"LUMFilePlayer", std::wstring(token.text, static_cast<size_t>(token.length)));

    EXPECT_EQ(L"\r\n\t<Frame_Rate>", UnreadRest(xml.Get()).substr(0, 15)) << "GetText gives the unread rest";
    EXPECT_EQ((std::vector<std::wstring>{L"Frame_Rate", L"25.000000", L"/Frame_Rate", L"Pattern",
                                         L"a &amp; b", L"/Pattern", L"Empty", L"/Empty", L"/LUMFilePlayer"}),
              Tokens(xml.Get()))
        << "leading and trailing white space dropped, escapes kept";
    EXPECT_EQ(L"", UnreadRest(xml.Get()));

    // Markup that never closes runs to the end of the text.
    xml = XmlHolding(L"tail text<unclosed");
    EXPECT_EQ((std::vector<std::wstring>{L"tail text", L"unclosed"}), Tokens(xml.Get()));
}

TEST(StreamsXmlText, HandedOutViewsStayPutWhileTheTextGrows) {
    SmartPtr<IXMLStreamEx> xml = NewXml();
    xml->SetOptions(-1, 0);
    SmartPtr<IString> string = xml.As<IString>(IID_IString);
    string->SetText(-1, L"<A>first</A><B>second</B>");

    tagREFString token{};
    xml->ReadToken(&token);  // "A"
    xml->ReadToken(&token);  // "first"
    const wchar_t* tokenText = token.text;
    wchar_t* rest = nullptr;
    int32_t restLength = 0;
    string->GetText(&rest, &restLength);
    ASSERT_EQ(L"</A><B>second</B>", std::wstring(rest, static_cast<size_t>(restLength)));

    // Enough writing to move any buffer that was not kept.
    for (int i = 0; i < 5000; ++i) xml->WriteElement(REFStr(L"More"), MakeString(L"text").Get());
    string->Append(-1, L"<C>third</C>");
    EXPECT_EQ(L"first", std::wstring(tokenText, 5));
    EXPECT_EQ(L"</A><B>second</B>", std::wstring(rest)) << "still terminated where it was";

    int32_t length = 0;
    string->get_Length(&length);
    EXPECT_EQ(static_cast<int32_t>(17 + 5000 * 17 + 12), length);
    EXPECT_EQ(L"/A", Tokens(xml.Get(), 1)[0]) << "reading goes on from the read position";

    // The whole text replaced by a view of itself.
    string->GetText(&rest, &restLength);
    ASSERT_EQ(S_OK, string->SetText(6, rest + 3));
    EXPECT_EQ(L"second", UnreadRest(xml.Get()));
}

TEST(StreamsXmlText, ServesItsTextAsWideBytes) {
    SmartPtr<IXMLStreamEx> xml = NewXml();
    SmartPtr<IDataStream> data = xml.As<IDataStream>(IID_IDataStream);
    const wchar_t units[] = {L'<', L'a', L'>', L'\0', L'x'};
    ASSERT_EQ(S_OK, data->Write(units, sizeof units));
    EXPECT_EQ(L"<a>", XmlText(xml.Get())) << "a 0 character ends the written data";
    int32_t size = 0;
    data->get_Size(&size);
    EXPECT_EQ(12, size);

    wchar_t first[2] = {};
    int32_t done = 0;
    EXPECT_EQ(S_OK, data->Read(first, sizeof first, &done));
    EXPECT_EQ(8, done);
    EXPECT_EQ(L">", UnreadRest(xml.Get()));
    EXPECT_EQ(S_FALSE, data->Read(first, sizeof first, &done));
    EXPECT_EQ(4, done);

    EXPECT_EQ(E_INVALIDARG, data->Write(units, -4));
    EXPECT_EQ(S_OK, data->Clear());
    data->get_Size(&size);
    EXPECT_EQ(0, size);
    EXPECT_EQ(L"", UnreadRest(xml.Get()));
}

TEST(StreamsXmlText, AnswersUnderBothClassNames) {
    for (const wchar_t* name : {L"XMLStream", L"XMLStreamEx"}) {
        SmartPtr<IXMLStreamEx> xml = NewXml(name);
        ASSERT_TRUE(xml);
        tagREFString reported{};
        ASSERT_EQ(S_OK, xml.As<IObjectInfo>(IID_IObjectInfo)->GetName(0, &reported));
        EXPECT_EQ(std::wstring(name), std::wstring(reported.text, static_cast<size_t>(reported.length)));
        for (const IID* iid : {&IID_IXMLStream, &IID_IDataStream, &IID_IString, &IID_IFolderStream})
            EXPECT_TRUE(QueryAs<IUnknown>(xml.Get(), *iid));
        EXPECT_FALSE(QueryAs<IUnknown>(xml.Get(), IID_ICreatableString));
    }
}

}  // namespace
