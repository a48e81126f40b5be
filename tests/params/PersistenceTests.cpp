// Saving and loading a parameter list through the framework's XML and folder
// streams ("Streams.so"): the element layout, what loading tolerates, and the
// folder-stream rules for types and unsaved parameters. Whole round trips
// run through archive files (tests/archive).
#include <gtest/gtest.h>

#include "tests/params/ArchiveProbe.h"
#include "tests/support/ModuleHost.h"
#include "text/REFString.h"

namespace {

/// An XML stream without line ends or indentation, so its text is exact.
SmartPtr<IXMLStreamEx> CompactXML() {
    SmartPtr<IXMLStreamEx> xml = CreateByName<IXMLStreamEx>(L"XMLStreamEx", IID_IXMLStreamEx);
    if (xml) xml->SetOptions(3, 0);
    return xml;
}

std::wstring TextOfStream(IUnknown* stream) { return TextOf(QueryAs<IString>(stream, IID_IString).Get()); }

SmartPtr<IDataStream> AsData(IUnknown* stream) { return QueryAs<IDataStream>(stream, IID_IDataStream); }

TEST(XMLPersistence, OneElementPerSavedParameterUnderItsName) {
    SmartPtr<CArchiveProbe> probe = NewProbe();
    probe->m_Byte = 200;
    probe->m_Short = -5;
    probe->m_Long = 25;
    probe->m_Colour = 0x0000FF;
    probe->m_Float = 1.5f;
    probe->m_Double = 0.1;
    probe->m_Label = Str(L"a & b");
    probe->m_File = Str(InstallPath() + L"/images/a.bmp");
    probe->m_Object.Assign(Str(L"objects are not written to XML").Get());
    probe->m_Volatile = 9;
    probe->m_Choice = 20;
    SmartPtr<IXMLStreamEx> xml = CompactXML();
    ASSERT_TRUE(xml) << "Streams.so";
    EXPECT_EQ(S_OK, probe->UIPropInterrogate_SaveXML(nullptr, AsData(xml.Get()).Get(), 0));
    EXPECT_EQ(L"<Byte_Value>200</Byte_Value><Short_Value>-5</Short_Value><Frame_Rate>25</Frame_Rate>"
              L"<Colour>#0000FF</Colour><Float_Value>1.500000</Float_Value><Double_Value>0.100000</Double_Value>"
              L"<Label>a &amp; b</Label><File_Name>images/a.bmp</File_Name><Speed>20</Speed>",
              TextOfStream(xml.Get()));

    // A names collection without entries: tags are the decimal numbers.
    SmartPtr<ISuperCollection> noNames = SmartPtr<ISuperCollection>::Adopt(CREFString::CreateCollection());
    xml->Reset();
    probe->UIPropInterrogate_SaveXML(noNames.Get(), AsData(xml.Get()).Get(), 0);
    EXPECT_EQ(0u, TextOfStream(xml.Get()).find(L"<1>200</1><2>-5</2><3>25</3>"));
}

TEST(XMLPersistence, LoadingIgnoresCaseAndSkipsWhatItDoesNotKnow) {
    SmartPtr<CArchiveProbe> probe = NewProbe();
    probe->m_Byte = 1;
    probe->m_Short = 2;
    probe->m_Label = Str(L"before");
    probe->m_Volatile = 9;
    SmartPtr<IXMLStreamEx> xml = CompactXML();
    ASSERT_TRUE(xml) << "Streams.so";
    const std::wstring text =
        L"<frame_rate>7</frame_rate><Unknown><Byte_Value>5</Byte_Value></Unknown>"
        L"<Label>unclosed<COLOUR>#0000FF</COLOUR><Float_Value \r>0.1234567</Float_Value>"
        L"<Volatile>3</Volatile><Double_Value>2.5</Double_Value><Short_Value>#10</Short_Value>";
    xml->WriteText(tagREFString{static_cast<int32_t>(text.size()), const_cast<wchar_t*>(text.data())});
    EXPECT_EQ(S_OK, probe->UIPropInterrogate_LoadXML(nullptr, AsData(xml.Get()).Get(), 0));

    EXPECT_EQ(7, probe->m_Long) << "tags compare case-blind";
    EXPECT_EQ(1, probe->m_Byte) << "an enclosing element is cut out whole";
    EXPECT_EQ(L"", TextOf(probe->m_Label.Get())) << "an unclosed element has empty content";
    EXPECT_EQ(0xFF0000, probe->m_Colour) << "red and blue come back exchanged";
    EXPECT_EQ(0.1234567f, probe->m_Float);
    EXPECT_EQ(2.5, probe->m_Double);
    EXPECT_EQ(9, probe->m_Volatile);
    EXPECT_EQ(16, probe->m_Short);
    // Floating-point values are echoed into the stream as they are now held.
    const std::wstring after = TextOfStream(xml.Get());
    EXPECT_NE(std::wstring::npos, after.find(L"<Float_Value>0.123457</Float_Value><Double_Value>2.500000</Double_Value>"));
}

TEST(FolderPersistence, EntriesOfAnotherTypeOrForUnsavedParametersAreIgnored) {
    SmartPtr<IFolderStream> folder = CreateByName<IFolderStream>(L"FolderStream", IID_IFolderStream);
    ASSERT_TRUE(folder) << "Streams.so";
    auto entry = [&](const wchar_t* name, int32_t id, int32_t flags, int32_t value) {
        SmartPtr<IFolderStream> sub;
        folder->CreateFolder(Str(name).Get(), sub.Out());
        sub->WriteValue(Str(L"ID").Get(), &id, 4, 0);
        sub->WriteValue(Str(L"Flags").Get(), &flags, 4, 0);
        sub->WriteValue(Str(L"Value").Get(), &value, 4, 0);
    };
    entry(L"a", ProbeLong, 2, 11);              // stored as 16-bit, declared 32-bit
    entry(L"b", ProbeVolatile, 3, 12);          // not persisted
    entry(L"c", 77, 3, 13);                     // unknown number
    entry(L"name not used", ProbeByte, 1, 14);  // found by its number
    SmartPtr<CArchiveProbe> probe = NewProbe();
    probe->UIPropInterrogate_LoadFolderStream(folder.Get(), 0);
    EXPECT_EQ(0, probe->m_Long);
    EXPECT_EQ(0, probe->m_Volatile);
    EXPECT_EQ(14, probe->m_Byte);
}

}  // namespace
