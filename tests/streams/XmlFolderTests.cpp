// The XML stream seen as a folder stream: what each write appends, and
// reading the unread rest back as folders, values, strings and objects.
#include <cfloat>
#include <cmath>
#include <random>

#include "tests/streams/StreamsTestSupport.h"

namespace {

const std::wstring kHeader =
    L"<?xml version=\"1.0\"?>\r\n<?xml-stylesheet href=\"generic.xsl\" type=\"text/xsl\"?>\r\n";

// An XML stream holding `text` with the archive's leading tokens (those
// beginning with "?" and the body's start tag) already read.
SmartPtr<IXMLStreamEx> ArchiveReader(const std::wstring& text) {
    SmartPtr<IXMLStreamEx> reader = XmlHolding(text);
    tagREFString token{};
    while (reader->ReadToken(&token) == S_OK && token.length > 0 && token.text[0] == L'?') {
    }
    return reader;
}

SmartPtr<IXMLStreamEx> CompactXml() {
    SmartPtr<IXMLStreamEx> xml = NewXml();
    xml->SetOptions(-1, 0);
    return xml;
}

uint64_t Bits(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

TEST(StreamsXmlFolder, WritesValuesBySizeAndReadsThemBackExactly) {
    SmartPtr<IXMLStreamEx> xml = CompactXml();
    SmartPtr<IFolderStream> root = FolderOf(xml.Get());
    uint64_t nanBits = 0xFFF4000000000123ull;
    double nan;
    std::memcpy(&nan, &nanBits, sizeof nan);
    const double doubles[] = {0.1, -0.0, 4.9406564584124654e-324, DBL_MAX, -INFINITY, nan, 1.0 / 3};
    const uint8_t three[3] = {0x0A, 0xFF, 0x00};
    WriteOf(root.Get(), L"U8", uint8_t{200});
    WriteOf(root.Get(), L"I16", int16_t{-12345});
    WriteOf(root.Get(), L"I32", int32_t{INT32_MIN});
    root->WriteValue(MakeString(L"Hex").Get(), three, 3, 0);
    for (size_t i = 0; i < std::size(doubles); ++i)
        WriteOf(root.Get(), (L"D" + std::to_wstring(i)).c_str(), doubles[i]);
    root->WriteString(MakeString(L"S").Get(), MakeString(L"<tag> & \"q\"").Get());
    root->WriteString(MakeString(L"Null").Get(), nullptr);
    EXPECT_EQ(E_INVALIDARG, WriteOf(root.Get(), L"bad key", 1));
    EXPECT_EQ(E_INVALIDARG, root->WriteRecord(MakeString(L"R").Get(), three, 6));

    std::wstring text = XmlText(xml.Get());
    for (const wchar_t* expected : {L"<U8>200</U8>", L"<I16>-12345</I16>", L"<I32>-2147483648</I32>",
                                    L"<Hex>0AFF00</Hex>", L"<D0>0.1</D0>", L"<D1>-0</D1>",
                                    L"<S>&lt;tag&gt; &amp; \"q\"</S>", L"<Null></Null>"})
        EXPECT_NE(std::wstring::npos, text.find(expected)) << expected;

    SmartPtr<IFolderStream> back = FolderOf(XmlHolding(text).Get());
    uint8_t u8 = 0;
    int16_t i16 = 0;
    int32_t i32 = 0;
    uint8_t hex[3] = {};
    EXPECT_EQ(S_OK, ReadOf(back.Get(), L"U8", &u8));
    EXPECT_EQ(S_OK, ReadOf(back.Get(), L"I16", &i16));
    EXPECT_EQ(S_OK, ReadOf(back.Get(), L"I32", &i32));
    EXPECT_EQ(S_OK, back->ReadValue(MakeString(L"Hex").Get(), hex, 3, 0));
    EXPECT_EQ(200, u8);
    EXPECT_EQ(-12345, i16);
    EXPECT_EQ(INT32_MIN, i32);
    EXPECT_EQ(0, std::memcmp(hex, three, 3));
    for (size_t i = 0; i < std::size(doubles); ++i) {
        double value = 42;
        EXPECT_EQ(S_OK, ReadOf(back.Get(), (L"D" + std::to_wstring(i)).c_str(), &value));
        EXPECT_EQ(Bits(doubles[i]), Bits(value)) << "double " << i;
    }
    EXPECT_EQ(L"<tag> & \"q\"", StringOf(back.Get(), L"S"));
    EXPECT_EQ(L"", StringOf(back.Get(), L"Null"));

    // A text that does not parse at the size asked for leaves the buffer alone.
    int16_t narrow = 7;
    EXPECT_EQ(E_FAIL, ReadOf(back.Get(), L"I32", &narrow)) << "out of the 16-bit range";
    EXPECT_EQ(E_FAIL, ReadOf(back.Get(), L"S", &i32));
    EXPECT_EQ(E_FAIL, ReadOf(back.Get(), L"Missing", &i32));
    EXPECT_EQ(7, narrow);
    EXPECT_EQ(S_FALSE, back->HasEntry(MakeString(L"Missing").Get()));
    EXPECT_EQ(S_OK, back->HasEntry(MakeString(L"D3").Get()));
}

TEST(StreamsXmlFolder, ArchiveBodyOfSubFoldersReadsBackByIndexAndName) {
    for (int32_t options : {0, 3}) {
        SCOPED_TRACE(options);
        SmartPtr<IXMLStreamEx> xml = NewXml();
        xml->SetOptions(-1, options);
        xml->WriteText(KitViewOf(kHeader));
        xml->OpenElement(REFStr(L"LUMStackCamcorder"));
        SmartPtr<IFolderStream> root = FolderOf(xml.Get());
        {
            SmartPtr<IFolderStream> index = CreateSub(root.Get(), L"Current_Index");
            WriteOf(index.Get(), L"ID", 55);
            WriteOf(index.Get(), L"Flags", 3);
            WriteOf(index.Get(), L"Value", 0);
        }  // closed when released
        SmartPtr<IFolderStream> loop = CreateSub(root.Get(), L"Loop");
        WriteOf(loop.Get(), L"ID", 60);
        SmartPtr<IFolderStream> reserved = CreateSub(root.Get(), L"Reserved");
        EXPECT_EQ(E_FAIL, WriteOf(loop.Get(), L"Late", 1)) << "closed by a write through its parent";
        reserved = nullptr;
        WriteOf(root.Get(), L"StackSize", 1000);
        EXPECT_EQ(S_OK, xml->CloseElement());

        std::wstring text = XmlText(xml.Get());
        if (options == 0)
            EXPECT_EQ(kHeader +
                          L"<LUMStackCamcorder><Current_Index><ID>55</ID><Flags>3</Flags><Value>0</Value>"
                          L"</Current_Index><Loop><ID>60</ID></Loop><Reserved></Reserved>"
                          L"<StackSize>1000</StackSize></LUMStackCamcorder>",
                      text);
        else
            EXPECT_NE(std::wstring::npos, text.find(L"\r\n\t<Loop>\r\n\t\t<ID>60</ID>\r\n\t</Loop>\r\n"
                                                    L"\t<Reserved></Reserved>\r\n"));

        SmartPtr<IFolderStream> back = FolderOf(ArchiveReader(text).Get());
        EXPECT_EQ(2, FolderCount(back.Get())) << "an empty folder reads back as an empty string";
        int32_t id = 0, stackSize = 0;
        SmartPtr<IFolderStream> first = OpenSub(back.Get(), IndexVariant(0).Get());
        ASSERT_TRUE(first);
        SmartPtr<IString> name;
        first->get_Name(name.Out());
        EXPECT_EQ(L"Current_Index", TextOf(name.Get()));
        EXPECT_EQ(S_OK, ReadOf(first.Get(), L"ID", &id));
        EXPECT_EQ(55, id);
        SmartPtr<IFolderStream> byName = OpenSub(back.Get(), NameVariant(L"Loop").Get());
        ASSERT_TRUE(byName);
        EXPECT_EQ(S_OK, ReadOf(byName.Get(), L"ID", &id));
        EXPECT_EQ(60, id);
        EXPECT_FALSE(OpenSub(back.Get(), IndexVariant(2).Get(), E_FAIL));
        EXPECT_FALSE(OpenSub(back.Get(), NameVariant(L"Reserved").Get(), E_FAIL));
        EXPECT_EQ(L"", StringOf(back.Get(), L"Reserved"));
        EXPECT_EQ(S_OK, ReadOf(back.Get(), L"StackSize", &stackSize));
        EXPECT_EQ(1000, stackSize);
        EXPECT_EQ(E_FAIL, WriteOf(byName.Get(), L"ID", 1)) << "a folder read back is not written";
    }
}

TEST(StreamsXmlFolder, ObjectsSaveIntoAClassElementAndLoadThroughTheCollection) {
    TestPoint::Register();
    SmartPtr<IXMLStreamEx> xml = CompactXml();
    SmartPtr<IFolderStream> root = FolderOf(xml.Get());
    ASSERT_EQ(S_OK, root->WriteObject(MakeString(L"Point").Get(), TestPoint::Make(7, 2.5, L"a<b").Get()));
    EXPECT_EQ(E_NOINTERFACE, root->WriteObject(MakeString(L"Text").Get(), MakeString(L"no persistence").Get()));
    std::wstring text = XmlText(xml.Get());
    EXPECT_EQ(L"<Point class=\"StreamsTestPoint\"><X>7</X><Y>2.5</Y><Label>a&lt;b</Label></Point>", text);

    SmartPtr<IFolderStream> back = FolderOf(XmlHolding(text).Get());
    EXPECT_EQ(0, FolderCount(back.Get())) << "objects are not sub-folders";
    SmartPtr<IUnknown> object;
    ASSERT_EQ(S_OK, back->ReadObject(MakeString(L"Point").Get(), object.Out()));
    auto* point = static_cast<TestPoint*>(QueryAs<IDataPersist>(object.Get(), IID_IDataPersist).Get());
    EXPECT_EQ(7, point->x);
    EXPECT_EQ(2.5, point->y);
    EXPECT_EQ(L"a<b", point->label);

    EXPECT_EQ(E_FAIL, back->ReadObject(MakeString(L"Missing").Get(), object.Out()));
    EXPECT_FALSE(object);
    // Unknown classes fail; names that could reach other folders are not even asked for.
    GlobalCollection()->RegisterCreateFunction(REFStr(L"sub/Point"),
                                               reinterpret_cast<void*>(&TestPoint::_CreateInstance));
    for (const wchar_t* stored : {L"NoSuchClass", L"sub/Point"}) {
        back = FolderOf(XmlHolding(L"<P class=\"" + std::wstring(stored) + L"\"><X>1</X><Y>0</Y></P>").Get());
        EXPECT_GT(0, back->ReadObject(MakeString(L"P").Get(), object.Out())) << stored;
        EXPECT_FALSE(object);
    }
}

TEST(StreamsXmlFolder, ReadsWellFormedMarkupAndRefusesTheRest) {
    SmartPtr<IFolderStream> root = FolderOf(XmlHolding(
        L"<!-- note --><?pi x?><!DOCTYPE d [<!ENTITY e \"x\">]>"
        L"<A><![CDATA[<raw>&]]></A><B>&#65;&#x42;&quot;&apos;&lt;</B><C/>"
        L"<D class='StreamsTestPoint'/><E>1</E></Body><F>after the body</F>").Get());
    EXPECT_EQ(L"<raw>&", StringOf(root.Get(), L"A"));
    EXPECT_EQ(L"AB\"'<", StringOf(root.Get(), L"B"));
    EXPECT_EQ(L"", StringOf(root.Get(), L"C"));
    EXPECT_EQ(L"<missing>", StringOf(root.Get(), L"D")) << "an object is not a string";
    EXPECT_EQ(S_OK, root->HasEntry(MakeString(L"E").Get()));
    EXPECT_EQ(S_FALSE, root->HasEntry(MakeString(L"F").Get())) << "the enclosing end tag ends the entries";

    std::wstring deep;
    for (int i = 0; i < 300; ++i) deep += L"<a>";
    deep += L"1";
    for (int i = 0; i < 300; ++i) deep += L"</a>";
    for (const std::wstring& bad :
         {std::wstring(L"<A>1</B>"), std::wstring(L"<A>1"), std::wstring(L"<A>&bogus;</A>"),
          std::wstring(L"<A>&#0;</A>"), std::wstring(L"<A>&#xD800;</A>"), std::wstring(L"<A x=1>2</A>"),
          std::wstring(L"<A"), std::wstring(L"<>x</>"), std::wstring(L"<A>1</A><!-- open"),
          std::wstring(L"<A b=\"<\">1</A>"), deep}) {
        SmartPtr<IFolderStream> folder = FolderOf(XmlHolding(bad).Get());
        int32_t value = 5;
        EXPECT_EQ(0, FolderCount(folder.Get())) << bad.substr(0, 20);
        EXPECT_EQ(S_FALSE, folder->HasEntry(MakeString(L"A").Get())) << bad.substr(0, 20);
        EXPECT_EQ(E_FAIL, ReadOf(folder.Get(), L"A", &value));
        EXPECT_EQ(5, value);
    }
}

TEST(StreamsXmlFolder, SurvivesRandomMarkup) {
    const wchar_t alphabet[] = L"<>/=\"'&;#x1aAb \r\n!-?[]";
    std::mt19937 random(20240611);
    std::uniform_int_distribution<size_t> pick(0, std::size(alphabet) - 2), length(0, 80);
    SmartPtr<IXMLStreamEx> xml = NewXml();
    SmartPtr<IString> string = xml.As<IString>(IID_IString);
    SmartPtr<IFolderStream> root = FolderOf(xml.Get());
    for (int round = 0; round < 3000; ++round) {
        std::wstring text;
        for (size_t n = length(random); n > 0; --n) text += alphabet[pick(random)];
        string->SetText(static_cast<int32_t>(text.size()), text.c_str());
        tagREFString token{};
        if (round % 2) xml->ReadToken(&token);
        int32_t value = 0;
        FolderCount(root.Get());
        root->ReadValue(MakeString(L"a").Get(), &value, sizeof value, 0);
        SmartPtr<IFolderStream> sub;
        if (root->OpenFolder(IndexVariant(0).Get(), sub.Out()) == S_OK) sub->get_FolderCount(&value);
    }
    // The stream is still sound after all that.
    string->SetText(-1, L"<a>5</a>");
    int32_t value = 0;
    EXPECT_EQ(S_OK, ReadOf(root.Get(), L"a", &value));
    EXPECT_EQ(5, value);
}

}  // namespace
