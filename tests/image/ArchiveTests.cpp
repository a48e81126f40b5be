// "LUMArchive" and "LUMFileEx": image files written and read back, damaged
// files, and a file entry whose interfaces follow its loaded pixels.
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "tests/image/ImageTestSupport.h"

namespace {

class ArchiveTest : public ::testing::Test {
protected:
    void SetUp() override {
        archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
        ASSERT_TRUE(archive);
    }
    HRESULT Write(const std::string& name, ILUM* image, int32_t quality = 100) {
        return archive->Write(FileNameString(folder.File(name)).Get(), image, quality);
    }
    /// Reads a file of the scratch folder; null when that fails.
    SmartPtr<ILUM> Read(const std::string& name, HRESULT* result = nullptr) {
        SmartPtr<ILUM> image;
        HRESULT hr = archive->Read(FileNameString(folder.File(name)).Get(), image.Out());
        if (result) *result = hr;
        if (hr < 0) {
            EXPECT_FALSE(image);
        }
        return image;
    }
    bool Exists(const std::string& name) {
        struct stat status {};
        return ::stat(folder.File(name).c_str(), &status) == 0;
    }

    ScratchFolder folder;
    SmartPtr<ILUMArchive> archive;
};

// Busy content with an odd width, so that rows carry padding.
SmartPtr<ILUMImageDIB> Busy(int32_t bits) {
    return MakeImage(37, 23, bits, [](int32_t i, int32_t y) { return uint8_t(i * 13 + y * 7 + (i ^ y)); });
}

// Smooth content, as a camera sees it, for the lossy format.
SmartPtr<ILUMImageDIB> Smooth(int32_t bits) {
    return MakeImage(64, 48, bits, [bits](int32_t i, int32_t y) { return uint8_t(2 * (i / (bits / 8)) + y + i % (bits / 8) * 20); });
}

// The component count and the first component's sampling byte of a baseline
// JPEG's frame header; {0, 0} when the file has none.
std::pair<int, int> BaselineFrame(const std::string& bytes) {
    for (size_t i = 0; i + 12 < bytes.size(); ++i)
        if (uint8_t(bytes[i]) == 0xFF && uint8_t(bytes[i + 1]) == 0xC0) return {uint8_t(bytes[i + 9]), uint8_t(bytes[i + 11])};
    return {0, 0};
}

TEST_F(ArchiveTest, BmpAndPngReadBackExactlyAtEveryDepth) {
    for (const char* extension : {"bmp", "png"}) {
        for (int32_t bits : {8, 24, 32}) {
            SmartPtr<ILUMImageDIB> image = Busy(bits);
            const std::string name = "busy" + std::to_string(bits) + "." + extension;
            ASSERT_EQ(S_OK, Write(name, image.Get()));
            SmartPtr<ILUM> back = Read(name);
            ASSERT_TRUE(back) << name;
            EXPECT_EQ(0, MaxDifference(BytesOf(image.Get()), BytesOf(back.Get()))) << name;
        }
    }
}

TEST_F(ArchiveTest, JpegIsBaselineWithinToleranceAndGrayStaysSingleComponent) {
    for (int32_t bits : {8, 24, 32}) {
        SmartPtr<ILUMImageDIB> image = Smooth(bits);
        const std::string name = "smooth" + std::to_string(bits) + ".jpg";
        ASSERT_EQ(S_OK, Write(name, image.Get(), 95));
        SmartPtr<ILUM> back = Read(name);
        ASSERT_TRUE(back);
        int32_t backBits = 0;
        back->get_BitsPerPixel(&backBits);
        EXPECT_EQ(bits == 8 ? 8 : 24, backBits);  // alpha is not kept
        EXPECT_LE(MaxDifference(BytesOf(image.Get()), BytesOf(back.Get()), bits == 8 ? 1 : 3), 6) << name;
        // Gray: one component; colour at high quality: full-resolution chroma.
        EXPECT_EQ(bits == 8 ? std::make_pair(1, 0x11) : std::make_pair(3, 0x11), BaselineFrame(ReadFile(folder.File(name))));
    }
    // Quality is clamped to 1-100.
    SmartPtr<ILUMImageDIB> image = Smooth(24);
    for (auto [given, clamped] : {std::pair{1000, 100}, std::pair{-7, 1}}) {
        ASSERT_EQ(S_OK, Write("given.jpg", image.Get(), given));
        ASSERT_EQ(S_OK, Write("clamped.jpg", image.Get(), clamped));
        EXPECT_EQ(ReadFile(folder.File("clamped.jpg")), ReadFile(folder.File("given.jpg")));
    }
}

TEST_F(ArchiveTest, WriteChoosesTheFormatByExtensionAndReadByContent) {
    SmartPtr<ILUMImageDIB> image = Busy(24);
    const std::pair<const char*, const char*> cases[] = {
        {"a.JPG", "\xFF\xD8\xFF"}, {"b.Jpeg", "\xFF\xD8\xFF"}, {"c.BMP", "BM"}, {"d.pNg", "\x89PNG"}};
    for (auto [name, magic] : cases) {
        ASSERT_EQ(S_OK, Write(name, image.Get()));
        EXPECT_EQ(0u, ReadFile(folder.File(name)).rfind(magic, 0)) << name;
    }
    ASSERT_EQ(0, std::rename(folder.File("d.pNg").c_str(), folder.File("png.jpg").c_str()));
    SmartPtr<ILUM> back = Read("png.jpg");
    ASSERT_TRUE(back);
    EXPECT_EQ(0, MaxDifference(BytesOf(image.Get()), BytesOf(back.Get())));

    EXPECT_EQ(E_INVALIDARG, Write("e.gif", image.Get()));
    EXPECT_EQ(E_INVALIDARG, Write("jpg", image.Get()));
    EXPECT_EQ(E_INVALIDARG, Write("f.bmp", CreateByName<ILUM>(L"LUMImageDIB", IID_ILUM).Get()));
    EXPECT_FALSE(Exists("e.gif") || Exists("jpg") || Exists("f.bmp"));
    EXPECT_EQ(E_POINTER, Write("g.bmp", nullptr));
    EXPECT_EQ(E_POINTER, archive->Write(nullptr, image.Get(), 90));
    EXPECT_EQ(E_FAIL, Write("missing/folder.png", image.Get()));
    EXPECT_EQ(E_POINTER, archive->Read(FileNameString(folder.File("c.BMP")).Get(), nullptr));
}

TEST_F(ArchiveTest, DamagedAndForeignFilesFailWithoutAnImage) {
    SmartPtr<ILUMImageDIB> image = Smooth(24);
    ASSERT_EQ(S_OK, Write("whole.jpg", image.Get()));
    ASSERT_EQ(S_OK, Write("whole.png", image.Get()));
    ASSERT_EQ(S_OK, Write("whole.bmp", image.Get()));
    const std::string jpeg = ReadFile(folder.File("whole.jpg"));
    const std::string png = ReadFile(folder.File("whole.png"));
    const std::string bmp = ReadFile(folder.File("whole.bmp"));

    std::string random(4096, '\0');
    for (size_t i = 0; i < random.size(); ++i) random[i] = char((i * 2654435761u) >> 13);
    std::string hugeJpeg = jpeg;  // the frame header claims 65000 x 65000 pixels
    const size_t frame = hugeJpeg.find("\xFF\xC0");
    ASSERT_NE(std::string::npos, frame);
    hugeJpeg.replace(frame + 5, 4, "\xFD\xE8\xFD\xE8");
    std::string hugeBmp = bmp.substr(0, 54);  // 10000 x 10000 pixels, no data
    hugeBmp.replace(18, 8, std::string("\x10\x27\0\0\x10\x27\0\0", 8));
    // 2^31 - 1 pixels both ways: the row bytes times the rows exceed 64 bits.
    std::string endlessBmp = bmp.substr(0, 54);
    endlessBmp.replace(18, 8, std::string("\xFF\xFF\xFF\x7F\xFF\xFF\xFF\x7F", 8));
    std::string badCrc = png;
    badCrc[29] ^= 0x55;  // inside the header chunk's check sum

    const std::pair<const char*, std::string> files[] = {
        {"empty.jpg", ""},
        {"random.png", random},
        {"random-after-magic.jpg", "\xFF\xD8\xFF" + random},
        {"truncated.jpg", jpeg.substr(0, (jpeg.find("\xFF\xDA") + jpeg.size()) / 2)},  // inside the scan
        {"truncated.png", png.substr(0, png.size() / 2)},
        {"truncated.bmp", bmp.substr(0, bmp.size() / 2)},
        {"huge.jpg", hugeJpeg},
        {"huge.bmp", hugeBmp},
        {"endless.bmp", endlessBmp},
        {"bad-crc.png", badCrc},
    };
    for (const auto& [name, bytes] : files) {
        WriteFile(folder.File(name), bytes);
        HRESULT hr = S_OK;
        Read(name, &hr);
        EXPECT_EQ(E_FAIL, hr) << name;
    }
    HRESULT hr = S_OK;
    Read("no-such-file.png", &hr);
    EXPECT_EQ(E_FAIL, hr);
    Read("", &hr);  // the folder itself
    EXPECT_EQ(E_FAIL, hr);
}

TEST_F(ArchiveTest, BmpReaderTakesPalettesMasksAndTopDownRows) {
    // 3 x 2, 4 bits, top-down (negative height), a colour palette of two entries.
    std::string colour("BM\0\0\0\0\0\0\0\0\x3E\0\0\0" "\x28\0\0\0\x03\0\0\0\xFE\xFF\xFF\xFF\x01\0\x04\0", 30);
    colour += std::string(40 - 16, '\0');
    colour.replace(14 + 32, 4, std::string("\x02\0\0\0", 4));  // two palette entries
    colour += std::string("\x10\x20\x30\0" "\x40\x50\x60\0", 8);
    colour += std::string("\x01\x00\x00\x00" "\x10\x10\x00\x00", 8);  // rows: 0 1 0 / 1 0 1
    WriteFile(folder.File("colour.bmp"), colour);
    SmartPtr<ILUM> image = Read("colour.bmp");
    ASSERT_TRUE(image);
    ImageBytes bytes = BytesOf(image.Get());
    EXPECT_EQ(24, bytes.bits);
    EXPECT_EQ((std::vector<uint8_t>{0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x10, 0x20, 0x30}), bytes.rows[0]);
    EXPECT_EQ((std::vector<uint8_t>{0x40, 0x50, 0x60, 0x10, 0x20, 0x30, 0x40, 0x50, 0x60}), bytes.rows[1]);

    // 2 x 1, 16 bits as 5-6-5 through channel masks after the short header.
    std::string masked("BM\0\0\0\0\0\0\0\0\x42\0\0\0" "\x28\0\0\0\x02\0\0\0\x01\0\0\0\x01\0\x10\0\x03\0\0\0", 34);
    masked += std::string(40 - 20, '\0');
    masked += std::string("\x00\xF8\0\0" "\xE0\x07\0\0" "\x1F\0\0\0", 12);
    masked += std::string("\x00\xF8" "\x1F\x00", 4);  // pure red, pure blue
    WriteFile(folder.File("masked.bmp"), masked);
    image = Read("masked.bmp");
    ASSERT_TRUE(image);
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 255, 255, 0, 0}), BytesOf(image.Get()).rows[0]);
}

TEST_F(ArchiveTest, PngReaderTurnsPalettesAlphaAndDeepSamplesIntoTheThreeLayouts) {
    auto writePng = [&](const std::string& name, png_uint_32 format, int width, const void* pixels, const void* colours,
                        int entries) {
        png_image png{};
        png.version = PNG_IMAGE_VERSION;
        png.width = static_cast<png_uint_32>(width);
        png.height = 1;
        png.format = format;
        png.colormap_entries = static_cast<png_uint_32>(entries);
        ASSERT_TRUE(png_image_write_to_file(&png, folder.File(name).c_str(), 0, pixels, 0, colours)) << name;
    };
    const uint8_t indices[4] = {3, 0, 2, 1};
    const uint8_t grays[4 * 3] = {0, 0, 0, 80, 80, 80, 160, 160, 160, 255, 255, 255};
    const uint8_t colours[4 * 3] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30};
    const uint8_t grayAlpha[2 * 2] = {40, 200, 90, 0};
    const uint16_t deep[2] = {0, 65535};
    writePng("gray-palette.png", PNG_FORMAT_RGB | PNG_FORMAT_FLAG_COLORMAP, 4, indices, grays, 4);
    writePng("colour-palette.png", PNG_FORMAT_RGB | PNG_FORMAT_FLAG_COLORMAP, 4, indices, colours, 4);
    writePng("gray-alpha.png", PNG_FORMAT_GA, 2, grayAlpha, nullptr, 0);
    writePng("deep.png", PNG_FORMAT_LINEAR_Y, 2, deep, nullptr, 0);

    const std::pair<const char*, ImageBytes> expected[] = {
        {"gray-palette.png", ImageBytes{4, 1, 8, 0, {{255, 0, 160, 80}}}},
        {"colour-palette.png", ImageBytes{4, 1, 24, 0, {{30, 20, 10, 0, 0, 255, 255, 0, 0, 0, 255, 0}}}},
        {"gray-alpha.png", ImageBytes{2, 1, 32, 0, {{40, 40, 40, 200, 90, 90, 90, 0}}}},
        {"deep.png", ImageBytes{2, 1, 8, 0, {{0, 255}}}},
    };
    for (const auto& [name, want] : expected) {
        SmartPtr<ILUM> image = Read(name);
        ASSERT_TRUE(image) << name;
        ImageBytes got = BytesOf(image.Get());
        EXPECT_EQ(want.bits, got.bits) << name;
        EXPECT_EQ(want.rows, got.rows) << name;
    }
}

TEST_F(ArchiveTest, NumberedRunReadInOrderGivesEachFileAsItIsWhenRead) {
    // A replay reads 0001.jpg, 0002.jpg, ...; the files after the one read
    // may already be decoded ahead. Each read must still give the file as it
    // is at that moment: 0004.jpg is rewritten, 0005.jpg removed meanwhile.
    auto name = [](int i) { return "run/" + std::to_string(1000 + i).substr(1) + ".jpg"; };
    ASSERT_EQ(0, ::mkdir(folder.File("run").c_str(), 0755));
    for (int i = 1; i <= 6; ++i)
        ASSERT_EQ(S_OK, Write(name(i), MakeImage(96, 64, 24, [i](int32_t x, int32_t y) { return uint8_t(x * i + y); }).Get(), 90));
    // Read backwards first, which reads nothing ahead.
    std::vector<ImageBytes> expected(7);
    for (int i = 6; i >= 1; --i) expected[size_t(i)] = BytesOf(Read(name(i)).Get());

    SmartPtr<ILUMImageDIB> replacement = MakeImage(96, 64, 24, [](int32_t x, int32_t y) { return uint8_t(255 - x - y); });
    ASSERT_EQ(S_OK, Write("replacement.jpg", replacement.Get(), 90));
    const ImageBytes replaced = BytesOf(Read("replacement.jpg").Get());

    for (int i = 1; i <= 3; ++i) EXPECT_EQ(0, MaxDifference(expected[size_t(i)], BytesOf(Read(name(i)).Get()))) << i;
    usleep(300000);  // time enough to decode 0004 and 0005 ahead
    ASSERT_EQ(0, std::rename(folder.File("replacement.jpg").c_str(), folder.File(name(4)).c_str()));
    ASSERT_EQ(0, std::remove(folder.File(name(5)).c_str()));
    EXPECT_EQ(0, MaxDifference(replaced, BytesOf(Read(name(4)).Get())));
    HRESULT hr = S_OK;
    EXPECT_FALSE(Read(name(5), &hr));
    EXPECT_EQ(E_FAIL, hr);
    EXPECT_EQ(0, MaxDifference(expected[6], BytesOf(Read(name(6)).Get())));
}

// --- LUMFileEx --------------------------------------------------------------

class FileExTest : public ArchiveTest {
protected:
    void SetUp() override {
        ArchiveTest::SetUp();
        entry = CreateByName<IFileArchive>(L"LUMArch.LUMFileEx", IID_IFileArchive);
        ASSERT_TRUE(entry);
        source = Busy(24);
        ASSERT_EQ(S_OK, Write("pic.bmp", source.Get()));
    }
    void Name(const std::string& name) { ASSERT_EQ(S_OK, entry->put_Filename(FileNameString(folder.File(name)).Get())); }
    bool AnswersImage() {
        SmartPtr<ILUM> image = entry.As<ILUM>(IID_ILUM);
        SmartPtr<ILUMImageDIB> dib = entry.As<ILUMImageDIB>(IID_ILUMImageDIB);
        EXPECT_EQ(bool(image), bool(dib));
        return bool(image);
    }

    SmartPtr<IFileArchive> entry;
    SmartPtr<ILUMImageDIB> source;
};

TEST_F(FileExTest, AnswersTheImageInterfacesOnlyWhilePixelsAreLoaded) {
    SmartPtr<ILUMFileEx> file = entry.As<ILUMFileEx>(IID_ILUMFileEx);
    ASSERT_TRUE(file);
    EXPECT_EQ(E_FAIL, entry->Load());  // no file name yet
    Name("pic.bmp");
    EXPECT_FALSE(AnswersImage());
    EXPECT_EQ(S_FALSE, file->IsLoaded());

    ASSERT_EQ(S_OK, entry->Load());
    EXPECT_EQ(S_OK, file->IsLoaded());
    ASSERT_TRUE(AnswersImage());
    SmartPtr<ILUM> image = entry.As<ILUM>(IID_ILUM);
    EXPECT_EQ(IdentityPointer(entry.Get()), IdentityPointer(image.Get()));
    EXPECT_EQ(0, MaxDifference(BytesOf(source.Get()), BytesOf(image.Get())));
    image = nullptr;

    ASSERT_EQ(S_OK, entry->Unload());
    EXPECT_FALSE(AnswersImage());
    ASSERT_EQ(S_OK, entry->Load());
    ASSERT_EQ(S_OK, file->SetLoadOptions(0, 0, 0));  // size only
    EXPECT_EQ(S_OK, entry->Load());
    EXPECT_FALSE(AnswersImage());
    EXPECT_EQ(E_INVALIDARG, file->SetLoadOptions(2, 0, 0));

    ASSERT_EQ(S_OK, file->SetLoadOptions(1, 0, 0));
    ASSERT_EQ(S_OK, entry->Load());
    WriteFile(folder.File("pic.bmp"), "BM");  // the file was damaged since
    EXPECT_EQ(E_FAIL, entry->Load());
    EXPECT_FALSE(AnswersImage());
}

TEST_F(FileExTest, SavesItsPixelsAndReportsOnItsFile) {
    EXPECT_EQ(E_FAIL, entry->Save());  // nothing loaded
    Name("pic.bmp");
    ASSERT_EQ(S_OK, entry->Load());
    Name("copy.png");
    ASSERT_EQ(S_OK, entry->Save());
    SmartPtr<ILUM> copy = Read("copy.png");
    ASSERT_TRUE(copy);
    EXPECT_EQ(0, MaxDifference(BytesOf(source.Get()), BytesOf(copy.Get())));

    SmartPtr<IString> text;
    ASSERT_EQ(S_OK, entry->get_Name(text.Out()));
    EXPECT_EQ(L"copy.png", TextOf(text.Get()));
    ASSERT_EQ(S_OK, entry->get_Filter(text.Out(), 0));
    EXPECT_EQ(L"Image files|*.bmp;*.jpg;*.jpeg;*.png||", TextOf(text.Get()));
    int32_t value = 0;
    EXPECT_EQ(E_INVALIDARG, entry->Control(1, 1));
    EXPECT_EQ(E_INVALIDARG, entry->Inquire(1, &value));

    SmartPtr<IFileAttributes> attributes = entry.As<IFileAttributes>(IID_IFileAttributes);
    ASSERT_TRUE(attributes);
    int64_t size = 0, modified = 0;
    ASSERT_EQ(S_OK, attributes->get_Size(&size));
    EXPECT_EQ(int64_t(ReadFile(folder.File("copy.png")).size()), size);
    ASSERT_EQ(S_OK, attributes->get_Time(2, &modified));
    EXPECT_NEAR(double(std::time(nullptr) - 946684800), double(modified), 300);
    EXPECT_EQ(E_INVALIDARG, attributes->get_Time(3, &modified));
    ASSERT_EQ(S_OK, attributes->get_Attributes(&value));
    EXPECT_EQ(0, value);
    ASSERT_EQ(0, ::chmod(folder.File("copy.png").c_str(), 0444));
    ASSERT_EQ(S_OK, attributes->get_Attributes(&value));
    EXPECT_EQ(2, value);

    WriteFile(folder.File(".hidden.bmp"), "x");
    Name(".hidden.bmp");
    ASSERT_EQ(S_OK, attributes->get_Attributes(&value));
    EXPECT_EQ(4, value);
    Name("");  // the folder itself
    ASSERT_EQ(S_OK, attributes->get_Attributes(&value));
    EXPECT_EQ(1, value & 1);
    Name("gone.bmp");
    EXPECT_EQ(E_FAIL, attributes->get_Size(&size));
    ASSERT_EQ(S_OK, entry->get_Filename(text.Out()));  // the loaded pixels stay until unloaded
    EXPECT_EQ(S_OK, entry.As<ILUMFileEx>(IID_ILUMFileEx)->IsLoaded());
}

}  // namespace
