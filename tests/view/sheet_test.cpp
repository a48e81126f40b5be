// The contact sheet run as a user runs it: the PNG it writes is read back
// with libpng and checked by pixels: the grid's size, each thumbnail against
// its source scaled down (the average of the pixels it covers), each label
// drawn in the host's font, and what happens with bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "tests/support/ModuleHost.h"
#include "tests/view/ViewTestSupport.h"
#include "tools/lumhost/BitmapFont.h"

namespace {

constexpr int kMargin = 8;
constexpr int kBand = 12;  // label band under each thumbnail
constexpr uint32_t kPaper = 0xFFFFFF;
constexpr uint32_t kInk = 0x000000;

Picture Gradient(int width, int height, int seed) {
    Picture p;
    p.width = width;
    p.height = height;
    p.rgb.resize(static_cast<size_t>(width) * height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const uint32_t r = static_cast<uint32_t>(x * 3 + seed * 40) % 256,
                           g = static_cast<uint32_t>(y * 5 + seed * 20) % 256,
                           b = static_cast<uint32_t>(x + y + seed * 60) % 256;
            p.rgb[static_cast<size_t>(y) * width + x] = r << 16 | g << 8 | b;
        }
    return p;
}

/// A gradient without jumps, for scales where the thumbnail's pixels cover
/// parts of source pixels.
Picture Smooth(int width, int height) {
    Picture p;
    p.width = width;
    p.height = height;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            p.rgb.push_back(static_cast<uint32_t>(x * 2) << 16 | static_cast<uint32_t>(y * 3) << 8 |
                            static_cast<uint32_t>(x + y));
    return p;
}

Picture Gray(const Picture& p) {
    Picture gray = p;
    for (uint32_t& v : gray.rgb) v = ((v >> 16) & 0xFF) * 0x010101u;
    return gray;
}

int Channel(uint32_t rgb, int shift) { return static_cast<int>((rgb >> shift) & 0xFF); }

/// The source scaled down to `width` x `height`, every pixel the
/// area-weighted average of the source pixels under it.
Picture ScaledDown(const Picture& source, int width, int height) {
    Picture out;
    out.width = width;
    out.height = height;
    out.rgb.resize(static_cast<size_t>(width) * height);
    const double sx = static_cast<double>(source.width) / width, sy = static_cast<double>(source.height) / height;
    for (int ty = 0; ty < height; ++ty)
        for (int tx = 0; tx < width; ++tx) {
            double sum[3] = {0, 0, 0}, area = 0;
            for (int y = static_cast<int>(ty * sy); y < std::ceil((ty + 1) * sy) && y < source.height; ++y)
                for (int x = static_cast<int>(tx * sx); x < std::ceil((tx + 1) * sx) && x < source.width; ++x) {
                    const double wx = std::min<double>(x + 1, (tx + 1) * sx) - std::max<double>(x, tx * sx);
                    const double wy = std::min<double>(y + 1, (ty + 1) * sy) - std::max<double>(y, ty * sy);
                    if (wx <= 0 || wy <= 0) continue;
                    for (int c = 0; c < 3; ++c) sum[c] += wx * wy * Channel(source.At(x, y), 16 - 8 * c);
                    area += wx * wy;
                }
            uint32_t v = 0;
            for (int c = 0; c < 3; ++c) v = v << 8 | static_cast<uint32_t>(std::lround(sum[c] / area));
            out.rgb[static_cast<size_t>(ty) * width + tx] = v;
        }
    return out;
}

/// Largest difference of one channel between the thumbnail at (x, y) on the
/// sheet and `expected`.
int ThumbnailDifference(const Picture& sheet, int x, int y, const Picture& expected) {
    int worst = 0;
    for (int ty = 0; ty < expected.height; ++ty)
        for (int tx = 0; tx < expected.width; ++tx)
            for (int shift : {0, 8, 16})
                worst = std::max(worst, std::abs(Channel(sheet.At(x + tx, y + ty), shift) -
                                                 Channel(expected.At(tx, ty), shift)));
    return worst;
}

class SheetTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder = MakeTempFolder();
        ASSERT_FALSE(folder.empty());
    }
    void TearDown() override { RemoveTree(folder); }

    std::string File(const std::string& name) const { return folder + "/" + name; }
    ProcessResult Host(std::vector<std::string> args) {
        args.insert(args.begin(), "./lumhost");
        return RunProgram(args, LeakSuppressions(), folder, 120);
    }

    SmartPtr<IString> Text(const std::string& text) {
        SmartPtr<IString> s = CreateByName<IString>(L"CreatableString", IID_IString);
        const std::wstring wide(text.begin(), text.end());
        s->SetText(static_cast<int32_t>(wide.size()), wide.c_str());
        return s;
    }
    /// An image as the framework's archive reads it.
    Picture Decoded(ILUM* image) {
        Picture p;
        int32_t bits = 0, stride = 0;
        uint8_t* pixels = nullptr;
        image->get_Width(&p.width);
        image->get_Height(&p.height);
        image->get_BitsPerPixel(&bits);
        image->get_Stride(&stride);
        image->get_Bits(&pixels);
        for (int y = 0; y < p.height; ++y)
            for (int x = 0; x < p.width; ++x) {
                const uint8_t* q = pixels + static_cast<size_t>(y) * stride + static_cast<size_t>(x) * (bits / 8);
                p.rgb.push_back(bits == 8 ? q[0] * 0x010101u
                                          : static_cast<uint32_t>(q[2]) << 16 | static_cast<uint32_t>(q[1]) << 8 | q[0]);
            }
        return p;
    }
    /// Writes `picture` as a JPEG through the framework and gives back what
    /// its reader makes of the file.
    Picture WriteJpeg(const std::string& name, const Picture& picture) {
        SmartPtr<ILUMImageDIB> image = CreateByName<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
        SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
        EXPECT_TRUE(image && archive);
        image->Create(picture.width, picture.height, 24);
        uint8_t* pixels = nullptr;
        int32_t stride = 0;
        image->get_Bits(&pixels);
        image->get_Stride(&stride);
        for (int y = 0; y < picture.height; ++y)
            for (int x = 0; x < picture.width; ++x)
                for (int c = 0; c < 3; ++c)
                    pixels[static_cast<size_t>(y) * stride + static_cast<size_t>(x) * 3 + c] =
                        static_cast<uint8_t>(picture.At(x, y) >> (8 * c));
        EXPECT_GE(archive->Write(Text(File(name)).Get(), image.Get(), 90), 0);
        SmartPtr<ILUM> back;
        EXPECT_GE(archive->Read(Text(File(name)).Get(), back.Out()), 0);
        return back ? Decoded(back.Get()) : Picture{};
    }
    void WriteJunk(const std::string& name, const std::string& bytes) {
        std::ofstream out(File(name), std::ios::binary);
        out << bytes;
    }

    /// True when the label is drawn centred under the cell at (x, y).
    bool Labelled(const Picture& sheet, int x, int y, int thumbWidth, int thumbHeight, const std::string& label) {
        const std::string shown = BitmapFont::FitWidth(label, thumbWidth, 1);
        return ShowsText(sheet, shown, x + (thumbWidth - BitmapFont::TextWidth(shown, 1)) / 2, y + thumbHeight + 4, 1,
                         kInk, kPaper);
    }

    std::string folder;
};

TEST_F(SheetTest, FolderOfMixedFilesInAGrid) {
    const std::string set = File("set");
    std::filesystem::create_directories(set + "/sub.png");  // a folder, not an image
    const Picture a = Gradient(64, 48, 1), b = Gray(Gradient(64, 48, 2)), c = Gradient(64, 48, 3),
                  e = Gradient(64, 48, 5);
    ASSERT_TRUE(WriteBmp24(set + "/a.bmp", a));
    ASSERT_TRUE(WritePngGray(set + "/b.png", b));
    ASSERT_TRUE(WritePngRgba(set + "/c.png", c, 128));  // alpha is not drawn
    const Picture d = WriteJpeg("set/d.jpg", Gradient(64, 48, 4));
    ASSERT_TRUE(WriteBmp24(set + "/e.BMP", e));
    WriteJunk("set/notes.txt", "not an image");
    ASSERT_TRUE(WriteBmp24(set + "/.hidden.bmp", a));

    const ProcessResult run = Host({"sheet", "--in", set, "--out", File("sheet.png"), "--columns", "3", "--thumb", "32x24"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("5 thumbnails of 5 images, 3 x 2"), std::string::npos) << run.out;
    const Picture sheet = ReadPng(File("sheet.png"));
    // Three columns of 32 + 8, two rows of 24 + 12 + 8, and the outer margin.
    ASSERT_EQ(sheet.width, kMargin + 3 * (32 + kMargin));
    ASSERT_EQ(sheet.height, kMargin + 2 * (24 + kBand + kMargin));

    const Picture* sources[] = {&a, &b, &c, &d, &e};
    const char* names[] = {"a.bmp", "b.png", "c.png", "d.jpg", "e.BMP"};
    std::vector<bool> drawn(sheet.rgb.size(), false);
    for (int i = 0; i < 5; ++i) {
        const int x = kMargin + (i % 3) * (32 + kMargin), y = kMargin + (i / 3) * (24 + kBand + kMargin);
        EXPECT_LE(ThumbnailDifference(sheet, x, y, ScaledDown(*sources[i], 32, 24)), 1) << names[i];
        EXPECT_TRUE(Labelled(sheet, x, y, 32, 24, names[i])) << names[i];
        for (int py = y; py < y + 24 + kBand; ++py)
            for (int px = x; px < x + 32; ++px) drawn[static_cast<size_t>(py) * sheet.width + px] = true;
    }
    // Everything else is paper: margins, gaps, the empty sixth cell.
    int stray = 0;
    for (size_t i = 0; i < sheet.rgb.size(); ++i) stray += !drawn[i] && sheet.rgb[i] != kPaper;
    EXPECT_EQ(stray, 0);
}

TEST_F(SheetTest, EveryNthImageAndShapesThatDoNotFillTheCell) {
    const std::string set = File("wide");
    std::filesystem::create_directory(set);
    std::vector<Picture> images;
    for (int i = 0; i < 11; ++i) {
        images.push_back(Gradient(80, 40, i));
        char name[16];
        std::snprintf(name, sizeof name, "/%02d.bmp", i);
        ASSERT_TRUE(WriteBmp24(set + name, images.back()));
    }
    const ProcessResult run = Host({"sheet", "--in", set, "--out", File("every.png"), "--every", "5", "--thumb", "40x40"});
    ASSERT_EQ(run.status, 0) << run.err;
    const Picture sheet = ReadPng(File("every.png"));
    // Images 0, 5 and 10: one row of three (fewer than the four columns asked).
    ASSERT_EQ(sheet.width, kMargin + 3 * (40 + kMargin));
    ASSERT_EQ(sheet.height, kMargin + (40 + kBand + kMargin));
    for (int cell = 0; cell < 3; ++cell) {
        const int x = kMargin + cell * (40 + kMargin), y = kMargin;
        // 80 x 40 becomes 40 x 20, centred: paper above and below.
        EXPECT_LE(ThumbnailDifference(sheet, x, y + 10, ScaledDown(images[static_cast<size_t>(cell * 5)], 40, 20)), 1);
        for (int px = x; px < x + 40; ++px) {
            EXPECT_EQ(sheet.At(px, y + 9), kPaper);
            EXPECT_EQ(sheet.At(px, y + 30), kPaper);
        }
        char name[16];
        std::snprintf(name, sizeof name, "%02d.bmp", cell * 5);
        EXPECT_TRUE(Labelled(sheet, x, y, 40, 40, name)) << name;
    }
}

TEST_F(SheetTest, UnevenScalesAverageWhatTheyCoverAndLongNamesAreShortened) {
    const std::string set = File("odd");
    std::filesystem::create_directory(set);
    const Picture big = Smooth(90, 60), small = Gradient(20, 10, 8);
    const std::string longName = "a_very_long_recording_name_0042.bmp";
    ASSERT_TRUE(WriteBmp24(set + "/" + longName, big));
    ASSERT_TRUE(WriteBmp24(set + "/small.bmp", small));
    const ProcessResult run = Host({"sheet", "--in", set, "--out", File("odd.png"), "--thumb", "60x60"});
    ASSERT_EQ(run.status, 0) << run.err;
    const Picture sheet = ReadPng(File("odd.png"));
    ASSERT_EQ(sheet.width, kMargin + 2 * (60 + kMargin));
    // 90 x 60 scaled by two thirds to 60 x 40, centred in its cell.
    EXPECT_LE(ThumbnailDifference(sheet, kMargin, kMargin + 10, ScaledDown(big, 60, 40)), 3);
    EXPECT_TRUE(Labelled(sheet, kMargin, kMargin, 60, 60, longName));
    EXPECT_NE(BitmapFont::FitWidth(longName, 60, 1).find("..."), std::string::npos);
    // A small image is not scaled up: 20 x 10 in the middle of the cell.
    const int x = kMargin + 60 + kMargin;
    EXPECT_EQ(ThumbnailDifference(sheet, x + 20, kMargin + 25, small), 0);
    EXPECT_EQ(sheet.At(x + 19, kMargin + 25), kPaper);
    EXPECT_EQ(sheet.At(x + 40, kMargin + 25), kPaper);
    EXPECT_TRUE(Labelled(sheet, x, kMargin, 60, 60, "small.bmp"));
}

TEST_F(SheetTest, AviFramesWithTheirNumbers) {
    ProcessResult run = Host({"record", "--frames", "7", "--fps", "200", "--size", "128x96", "--bits", "24", "--format", "avi",
                    "--folder", File("clip")});
    ASSERT_EQ(run.status, 0) << run.err;
    run = Host({"sheet", "--in", File("clip.avi"), "--out", File("avi.png"), "--every", "2", "--columns", "2",
                "--thumb", "64x48"});
    ASSERT_EQ(run.status, 0) << run.err;
    const Picture sheet = ReadPng(File("avi.png"));
    ASSERT_EQ(sheet.width, kMargin + 2 * (64 + kMargin));
    ASSERT_EQ(sheet.height, kMargin + 2 * (48 + kBand + kMargin));

    // The frames as the framework's AVI reader decodes them.
    SmartPtr<IFileArchive> avi = CreateByName<IFileArchive>(L"LUMAVI", IID_IFileArchive);
    ASSERT_TRUE(avi);
    avi->put_Filename(Text(File("clip.avi")).Get());
    ASSERT_GE(avi->Load(), 0);
    SmartPtr<ISimpleCollection> frames = avi.As<ISimpleCollection>(IID_ISimpleCollection);
    int32_t count = 0;
    frames->get_Count(&count);
    ASSERT_GE(count, 7);
    for (int cell = 0; cell < 4; ++cell) {
        const int index = cell * 2;  // frames 1, 3, 5, 7
        SmartPtr<IUnknown> item;
        ASSERT_GE(frames->get_Item(index, item.Out()), 0);
        const Picture frame = Decoded(QueryAs<ILUM>(item.Get(), IID_ILUM).Get());
        const int x = kMargin + (cell % 2) * (64 + kMargin), y = kMargin + (cell / 2) * (48 + kBand + kMargin);
        EXPECT_LE(ThumbnailDifference(sheet, x, y, ScaledDown(frame, 64, 48)), 1) << "frame " << index + 1;
        EXPECT_TRUE(Labelled(sheet, x, y, 64, 48, "frame " + std::to_string(index + 1)));
    }
}

TEST_F(SheetTest, UnreadableFilesAreMarkedAndNamed) {
    const std::string set = File("mixed");
    std::filesystem::create_directory(set);
    const Picture good = Gradient(64, 48, 9);
    ASSERT_TRUE(WriteBmp24(set + "/1good.bmp", good));
    WriteJunk("mixed/2broken.jpg", std::string("\xff\xd8\xff\xe0 truncated", 14));
    WriteJunk("mixed/3empty.png", "");
    const ProcessResult run = Host({"sheet", "--in", set, "--out", File("mixed.png"), "--thumb", "64x48"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("cannot read 2broken.jpg"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("cannot read 3empty.png"), std::string::npos) << run.err;
    EXPECT_NE(run.out.find("2 unreadable"), std::string::npos) << run.out;
    const Picture sheet = ReadPng(File("mixed.png"));
    ASSERT_EQ(sheet.width, kMargin + 3 * (64 + kMargin));
    EXPECT_EQ(ThumbnailDifference(sheet, kMargin, kMargin, good), 0);
    for (int cell = 1; cell < 3; ++cell) {
        const int x = kMargin + cell * (64 + kMargin);
        const std::string mark = "unreadable";
        EXPECT_TRUE(ShowsText(sheet, mark, x + (64 - BitmapFont::TextWidth(mark, 1)) / 2, kMargin + 20, 1, 0xB00000,
                              0xE0E0E0));
        EXPECT_EQ(sheet.At(x, kMargin), 0xE0E0E0u);
        EXPECT_TRUE(Labelled(sheet, x, kMargin, 64, 48, cell == 1 ? "2broken.jpg" : "3empty.png"));
    }
}

TEST_F(SheetTest, BadInputIsRefusedAndNothingIsWritten) {
    std::filesystem::create_directory(File("empty"));
    std::filesystem::create_directory(File("junk"));
    WriteJunk("junk/a.png", "not a png");
    WriteJunk("junk/b.bmp", "BM");
    WriteJunk("broken.avi", "RIFF....AVI nothing else");
    WriteJunk("notes.txt", "text");
    std::filesystem::create_directory(File("one"));
    ASSERT_TRUE(WriteBmp24(File("one/x.bmp"), Gradient(16, 16, 1)));
    struct Case {
        std::vector<std::string> args;
        int status;
        const char* says;
    };
    const std::string out = File("out.png");
    const std::vector<Case> cases = {
        {{"sheet", "--in", File("missing"), "--out", out}, 1, "no file or folder"},
        {{"sheet", "--in", File("empty"), "--out", out}, 1, "no images"},
        {{"sheet", "--in", File("junk"), "--out", out}, 1, "none of the images"},
        {{"sheet", "--in", File("broken.avi"), "--out", out}, 1, "cannot read the AVI file"},
        {{"sheet", "--in", File("notes.txt"), "--out", out}, 1, "neither a folder nor an AVI file"},
        {{"sheet", "--in", File("one"), "--out", File("nowhere/out.png")}, 1, "cannot write"},
        {{"sheet", "--in", File("one"), "--out", File("out.gif")}, 2, "--out needs"},
        {{"sheet", "--in", File("one")}, 2, "--out is required"},
        {{"sheet", "--out", out}, 2, "--in is required"},
        {{"sheet", "--in", File("one"), "--out", out, "--columns", "0"}, 2, "--columns"},
        {{"sheet", "--in", File("one"), "--out", out, "--every", "0"}, 2, "--every"},
        {{"sheet", "--in", File("one"), "--out", out, "--thumb", "0x10"}, 2, "--thumb"},
        {{"sheet", "--in", File("one"), "--out", out, "--thumb", "5000x10"}, 2, "--thumb"},
        {{"sheet", "--in", File("one"), "--out", out, "--size", "3"}, 2, "unknown argument"},
    };
    for (const Case& c : cases) {
        const ProcessResult run = Host(c.args);
        std::string line;
        for (const std::string& a : c.args) line += a + " ";
        EXPECT_EQ(run.status, c.status) << line << "\n" << run.err;
        EXPECT_NE(run.err.find(c.says), std::string::npos) << line << "\n" << run.err;
        EXPECT_FALSE(std::filesystem::exists(out)) << line;
    }
    // Too large a sheet is refused before anything is drawn.
    const ProcessResult huge = Host({"sheet", "--in", File("one"), "--out", out, "--thumb", "4096x4096"});
    EXPECT_EQ(huge.status, 0) << huge.err;  // one cell of 4096 x 4096 fits
    std::filesystem::remove(out);
    for (int i = 0; i < 10; ++i)
        ASSERT_TRUE(WriteBmp24(File("one/y" + std::to_string(i) + ".bmp"), Gradient(16, 16, i)));
    const ProcessResult tooLarge = Host({"sheet", "--in", File("one"), "--out", out, "--thumb", "4096x4096", "--columns", "11"});
    EXPECT_EQ(tooLarge.status, 1);
    EXPECT_NE(tooLarge.err.find("too large"), std::string::npos) << tooLarge.err;
    EXPECT_FALSE(std::filesystem::exists(out));
}

}  // namespace
