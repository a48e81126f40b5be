// A component's archive file through IFileArchive, with the framework's
// streams (./Streams.so): round trips in both formats, the bytes of an XML
// archive, what loading tolerates, and the whole-file functions.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

#include "archive/FileArchive.h"
#include "tests/params/ArchiveProbe.h"
#include "tests/support/ModuleHost.h"

namespace {

std::string ReadBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

bool Exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

/// UTF-16 little-endian bytes back to text (ASCII and the first plane).
std::wstring FromUTF16(const std::string& bytes) {
    std::wstring text;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        text += static_cast<wchar_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
    return text;
}

bool XmllintAccepts(const std::string& path) {
    return std::system(("xmllint --noout '" + path + "' 2>/dev/null").c_str()) == 0;
}

std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

class ArchiveFiles : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(CreateByName<IDataStream>(L"XMLStream", IID_IDataStream)) << "Streams.so is needed";
        m_Folder = ScratchFolder();
    }

    std::string Path(const std::string& name) const { return m_Folder + "/" + name; }

    /// A probe on the archive file `name`.
    SmartPtr<CArchiveProbe> ProbeOn(const std::string& name) {
        SmartPtr<CArchiveProbe> probe = NewProbe();
        probe->put_Filename(Str(Wide(Path(name))).Get());
        return probe;
    }

    /// A value in every parameter.
    void Fill(CArchiveProbe* probe) {
        probe->m_Byte = 200;
        probe->m_Short = -1234;
        probe->m_Long = 25;
        probe->m_Colour = 0x123456;
        probe->m_Float = 1.2345678f;
        probe->m_Double = 0.1;
        probe->m_Label = Str(L"Label text");
        probe->m_File = Str(InstallPath() + L"/images/a.bmp");
        SmartPtr<IComponentString> object = CreateByName<IComponentString>(L"ComponentString", IID_IComponentString);
        ASSERT_TRUE(object);
        object->Register(1, REFStr(L"Variant"));
        probe->m_Object.Assign(object.Get());
        probe->m_Volatile = 9;
        probe->m_Choice = 40;
    }

    /// Saves a filled probe and loads a fresh one from the same file.
    SmartPtr<CArchiveProbe> RoundTrip(const std::string& name) {
        SmartPtr<CArchiveProbe> saved = ProbeOn(name);
        Fill(saved.Get());
        EXPECT_EQ(S_OK, saved->Save());
        SmartPtr<CArchiveProbe> loaded = ProbeOn(name);
        loaded->m_Volatile = 77;
        EXPECT_EQ(S_OK, loaded->Load());
        return loaded;
    }

    std::string m_Folder;
};

TEST_F(ArchiveFiles, XMLRoundTripFollowsTheFormatsRules) {
    SmartPtr<CArchiveProbe> loaded = RoundTrip("settings.xml");
    EXPECT_EQ(200, loaded->m_Byte);
    EXPECT_EQ(-1234, loaded->m_Short);
    EXPECT_EQ(25, loaded->m_Long);
    EXPECT_EQ(0x563412, loaded->m_Colour) << "red and blue exchanged";
    EXPECT_EQ(1.234568f, loaded->m_Float) << "six decimals";
    EXPECT_EQ(static_cast<double>(0.1f), loaded->m_Double) << "narrowed to a float";
    EXPECT_EQ(L"Label text", TextOf(loaded->m_Label.Get()));
    EXPECT_EQ(InstallPath() + L"/images/a.bmp", TextOf(loaded->m_File.Get()));
    EXPECT_FALSE(loaded->m_Object) << "objects are not part of the XML";
    EXPECT_EQ(77, loaded->m_Volatile);
    EXPECT_EQ(40, loaded->m_Choice);
    EXPECT_NE(std::wstring::npos, FromUTF16(ReadBytes(Path("settings.xml"))).find(L"<File_Name>images/a.bmp</File_Name>"))
        << "file names are stored relative to the install path";
}

TEST_F(ArchiveFiles, FolderRoundTripKeepsColoursAndObjects) {
    SmartPtr<CArchiveProbe> loaded = RoundTrip("settings.t");
    EXPECT_EQ(200, loaded->m_Byte);
    EXPECT_EQ(-1234, loaded->m_Short);
    EXPECT_EQ(0x123456, loaded->m_Colour);
    EXPECT_EQ(1.2345678f, loaded->m_Float);
    EXPECT_EQ(static_cast<double>(0.1f), loaded->m_Double);
    EXPECT_EQ(L"Label text", TextOf(loaded->m_Label.Get()));
    EXPECT_EQ(InstallPath() + L"/images/a.bmp", TextOf(loaded->m_File.Get()));
    EXPECT_EQ(77, loaded->m_Volatile);
    SmartPtr<IComponentString> object = QueryAs<IComponentString>(loaded->m_Object.Get(), IID_IComponentString);
    ASSERT_TRUE(object);
    SmartPtr<IString> className;
    object->GetNameString(1, className.Out());
    EXPECT_EQ(L"Variant", TextOf(className.Get()));
    EXPECT_EQ(0u, ReadBytes(Path("settings.t")).find("FOLDSTR1"));
}

TEST_F(ArchiveFiles, XMLArchiveIsMarkHeaderAndBodyThatXmllintAccepts) {
    const std::wstring header =
        L"<?xml version=\"1.0\"?>\r\n<?xml-stylesheet href=\"generic.xsl\" type=\"text/xsl\"?>\r\n";
    SmartPtr<CArchiveProbe> probe = ProbeOn("wide.xml");
    Fill(probe.Get());
    ASSERT_EQ(S_OK, probe->Save());
    const std::string wide = ReadBytes(Path("wide.xml"));
    ASSERT_GE(wide.size(), 2u);
    EXPECT_EQ("\xFF\xFE", wide.substr(0, 2));
    const std::wstring text = FromUTF16(wide.substr(2));
    EXPECT_EQ(header, text.substr(0, header.size()));
    EXPECT_EQ(header.size(), text.find(L"<ArchiveProbe>")) << "the body follows the two header lines";
    EXPECT_TRUE(XmllintAccepts(Path("wide.xml")));

    probe->put_Filename(Str(Wide(Path("narrow.xml"))).Get());
    probe->ArchiveControl(IFileArchiveImpl<CArchiveProbe, IFileArchive>::ArchiveTextEncoding, 1);
    ASSERT_EQ(S_OK, probe->Save());
    const std::string narrow = ReadBytes(Path("narrow.xml"));
    EXPECT_EQ(0u, narrow.find("<?xml version=\"1.0\"?>\r\n<?xml-stylesheet"));
    EXPECT_EQ(std::string::npos, narrow.find('\0'));
    EXPECT_TRUE(XmllintAccepts(Path("narrow.xml")));

    // A stylesheet of the caller's choice.
    probe->SaveXML(Str(L"custom.xsl").Get(), 0);
    EXPECT_NE(std::string::npos, ReadBytes(Path("narrow.xml")).find("href=\"custom.xsl\""));
}

TEST_F(ArchiveFiles, LoadingToleratesWhatUsersFilesContain) {
    // Letter case, unknown and unclosed elements, in 8-bit text.
    WriteBytes(Path("edited.xml"),
               "<?xml version=\"1.0\"?>\n<ArchiveProbe>\n<FRAME_RATE>31</FRAME_RATE><Mystery a=\"b\">x</Mystery>\n"
               "<Label>no closing\n<byte_value>7</byte_value><file_name>caf\xE9.txt</file_name>\n</ArchiveProbe>\n");
    SmartPtr<CArchiveProbe> probe = ProbeOn("edited.xml");
    probe->m_Label = Str(L"before");
    EXPECT_EQ(S_OK, probe->Load());
    EXPECT_EQ(31, probe->m_Long);
    EXPECT_EQ(L"", TextOf(probe->m_Label.Get()));
    EXPECT_EQ(7, probe->m_Byte);
    EXPECT_EQ(InstallPath() + L"/caf\u00E9.txt", TextOf(probe->m_File.Get()));

    // UTF-16 text beyond ASCII.
    const std::wstring utf16 = L"<?xml version=\"1.0\"?>\r\n<ArchiveProbe><Label>caf\u00E9 \u20AC</Label></ArchiveProbe>";
    const std::wstring path = Wide(Path("utf16.xml"));
    ASSERT_EQ(S_OK, FileArchiveSave(REFStr(path.c_str()), reinterpret_cast<unsigned char*>(const_cast<wchar_t*>(utf16.data())),
                                    static_cast<int>(utf16.size() * sizeof(wchar_t)), 1, 0));
    probe = ProbeOn("utf16.xml");
    EXPECT_EQ(S_OK, probe->Load());
    EXPECT_EQ(L"caf\u00E9 \u20AC", TextOf(probe->m_Label.Get()));

    // An empty file fails quietly and changes nothing.
    WriteBytes(Path("empty.xml"), "");
    probe = ProbeOn("empty.xml");
    probe->m_Long = 5;
    testing::internal::CaptureStderr();
    EXPECT_EQ(E_FAIL, probe->Load());
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_EQ(5, probe->m_Long);

    // A file cut in the middle of an element: what comes before is read.
    SmartPtr<CArchiveProbe> saved = ProbeOn("whole.xml");
    Fill(saved.Get());
    saved->ArchiveControl(IFileArchiveImpl<CArchiveProbe, IFileArchive>::ArchiveTextEncoding, 1);
    ASSERT_EQ(S_OK, saved->Save());
    const std::string whole = ReadBytes(Path("whole.xml"));
    WriteBytes(Path("cut.xml"), whole.substr(0, whole.find("<Float_Value>") + 8));
    probe = ProbeOn("cut.xml");
    EXPECT_EQ(S_OK, probe->Load());
    EXPECT_EQ(0x563412, probe->m_Colour);
    EXPECT_EQ(0.0f, probe->m_Float);
    EXPECT_FALSE(probe->m_Label);

    // Random bytes, with and without 0 bytes (which end 8-bit text), and
    // random 16-bit units behind a byte-order mark.
    std::mt19937 random(7);
    for (int variant = 0; variant < 3; ++variant) {
        std::string bytes = variant == 2 ? std::string("\xFF\xFE") : std::string();
        while (bytes.size() < (4u << 20)) {
            const char byte = static_cast<char>(random());
            if (byte != 0 || variant == 0) bytes += byte;
        }
        WriteBytes(Path("random.xml"), bytes);
        probe = ProbeOn("random.xml");
        probe->m_Volatile = 3;
        EXPECT_EQ(S_OK, probe->Load()) << "variant " << variant;
        EXPECT_EQ(3, probe->m_Volatile);
    }
}

TEST_F(ArchiveFiles, FiftyMegabytesOfMostlyUnknownTextLoadInBoundedTime) {
    std::string body = "<?xml version=\"1.0\"?>\n<ArchiveProbe>\n";
    const char* pieces[] = {"<Unknown>text</Unknown>", "<unclosed>", "< Frame_Rate>", "plain text ",
                            "</x>",                    "<a<b>",      "\r\n",           "<Empty/>"};
    std::mt19937 random(11);
    while (body.size() < (50u << 20)) body += pieces[random() % std::size(pieces)];
    body += "<Short_Value>4321</Short_Value></ArchiveProbe>\n";
    WriteBytes(Path("large.xml"), body);
    body = std::string();

    SmartPtr<CArchiveProbe> probe = ProbeOn("large.xml");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(S_OK, probe->Load());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
    EXPECT_EQ(4321, probe->m_Short);
    EXPECT_EQ(0, probe->m_Long);
    EXPECT_LT(seconds.count(), 120);
}

TEST_F(ArchiveFiles, MissingFileIsReportedOnceAndFails) {
    for (const char* name : {"missing.xml", "missing.txt"}) {
        SmartPtr<CArchiveProbe> probe = ProbeOn(name);
        probe->m_Long = 5;
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(E_FAIL, probe->Load());
        EXPECT_EQ("file open err:\n" + Path(name) + "\n", testing::internal::GetCapturedStderr());
        EXPECT_EQ("", testing::internal::GetCapturedStdout());
        EXPECT_EQ(5, probe->m_Long);
    }
}

TEST_F(ArchiveFiles, ExtensionSelectsTheFormat) {
    SmartPtr<CArchiveProbe> probe = NewProbe();
    EXPECT_EQ(E_FAIL, probe->Save()) << "no file name";
    EXPECT_EQ(E_FAIL, probe->Load());

    struct Case {
        const char* name;
        HRESULT result;
        const char* start;  // of the written file; null: no file
    } cases[] = {
        {"a.txt", S_OK, "FOLDSTR1"}, {"b.Xsd", S_OK, "\xFF\xFE"}, {"c.", S_OK, "\xFF\xFE"},
        {"d", E_INVALIDARG, nullptr}, {"e.bin", E_INVALIDARG, nullptr},
    };
    for (const Case& c : cases) {
        probe->put_Filename(Str(Wide(Path(c.name))).Get());
        EXPECT_EQ(c.result, probe->Save()) << c.name;
        if (c.start)
            EXPECT_EQ(0u, ReadBytes(Path(c.name)).find(c.start)) << c.name;
        else
            EXPECT_FALSE(Exists(Path(c.name))) << c.name;
    }
    probe->put_Filename(Str(Wide(Path("e.bin"))).Get());
    EXPECT_EQ(E_INVALIDARG, probe->Load());
}

TEST(ArchiveOptions, FileNameChangesAndOptionCodes) {
    using Archive = IFileArchiveImpl<CArchiveProbe, IFileArchive>;
    SmartPtr<CArchiveProbe> probe = NewProbe();
    IFileArchive* archive = probe.Get();
    SmartPtr<IString> name;
    EXPECT_EQ(E_FAIL, archive->get_Filename(name.Out()));
    EXPECT_FALSE(name);
    EXPECT_EQ(S_OK, archive->get_Name(name.Out()));
    EXPECT_EQ(L"ArchiveProbe", TextOf(name.Get()));

    int32_t value = -1;
    archive->put_Filename(Str(L"a.xml").Get());
    EXPECT_EQ(0x40013, probe->ArchiveInquire(Archive::ArchiveChanged, &value));
    EXPECT_EQ(1, value);
    probe->ArchiveControl(Archive::ArchiveChanged, 0);
    probe->ArchiveControl(Archive::ArchiveCurrent, 1);
    archive->put_Filename(Str(L"A.XML").Get());  // the same name
    probe->ArchiveInquire(Archive::ArchiveChanged, &value);
    EXPECT_EQ(0, value);
    archive->put_Filename(Str(L"a.xml2").Get());
    probe->ArchiveInquire(Archive::ArchiveChanged, &value);
    EXPECT_EQ(1, value);
    EXPECT_EQ(0x40013, probe->ArchiveInquire(Archive::ArchiveCurrent, &value));
    EXPECT_EQ(0, value);
    EXPECT_EQ(S_OK, archive->get_Filename(name.Out()));
    EXPECT_EQ(L"a.xml2", TextOf(name.Get()));

    EXPECT_EQ(S_OK, probe->ArchiveControl(Archive::ArchiveOption3, 6));
    EXPECT_EQ(S_OK, probe->ArchiveInquire(Archive::ArchiveOption3, &value));
    EXPECT_EQ(6, value);
    EXPECT_EQ(19, probe->ArchiveInquire(Archive::ArchiveTextEncoding, &value));
    probe->ArchiveControl(Archive::ArchiveTextEncoding, -1);
    EXPECT_EQ(E_INVALIDARG, probe->ArchiveInquire(Archive::ArchiveTextEncoding, &value));
    EXPECT_EQ(E_INVALIDARG, probe->ArchiveControl(5, 0));
    EXPECT_EQ(E_NOTIMPL, archive->Unload());
}

TEST(FileArchiveFunctions, UTF16MarkBytesAndLongNames) {
    const std::string folder = ScratchFolder();
    const std::wstring small = Wide(folder + "/small.xml");
    WriteBytes(folder + "/small.xml", std::string("\xFF\xFE" "A\0B\0C\0D\0", 10));
    void* buffer = nullptr;
    int length = -1;
    ASSERT_EQ(S_OK, FileArchiveLoad(REFStr(small.c_str()), &buffer, &length, 1));
    std::unique_ptr<wchar_t[]> text(static_cast<wchar_t*>(buffer));
    EXPECT_EQ(4, length);
    EXPECT_EQ(L"ABCD", std::wstring(text.get()));

    ASSERT_EQ(S_OK, FileArchiveLoad(REFStr(small.c_str()), &buffer, &length, 0));
    std::unique_ptr<unsigned char[]> bytes(static_cast<unsigned char*>(buffer));
    EXPECT_EQ(10, length);
    EXPECT_EQ(0, bytes[10]);

    // Characters beyond 16 bits are cut to their low 16 bits.
    const wchar_t beyond[] = L"A\U0001F600";
    ASSERT_EQ(S_OK, FileArchiveSave(REFStr(small.c_str()), reinterpret_cast<unsigned char*>(const_cast<wchar_t*>(beyond)),
                                    2 * sizeof(wchar_t), 1, 0));
    EXPECT_EQ(std::string("\xFF\xFE" "A\0\0\xF6", 6), ReadBytes(folder + "/small.xml"));

    // A name is cut at 256 bytes.
    const std::string directory = folder + "/" + std::string(100, 'd');
    ASSERT_EQ(0, mkdir(directory.c_str(), 0700));
    const std::string kept = directory + "/" + std::string(255 - directory.size(), 'f');
    ASSERT_EQ(256u, kept.size());
    const std::wstring longName = Wide(kept + "-cut-away.xml");
    unsigned char data[] = "x";
    EXPECT_EQ(S_OK, FileArchiveSave(REFStr(longName.c_str()), data, 1, 0, 0));
    EXPECT_TRUE(Exists(kept));
}

}  // namespace
