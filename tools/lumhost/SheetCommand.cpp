// "sheet": a contact sheet of a recording (a folder of JPEG, BMP and PNG
// files, or an AVI file): thumbnails in a grid, each with its file name (or
// frame number) under it, read and written with the framework's own image
// classes ("LUMArchive", "LUMAVI", "LUMImageDIB").
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <functional>

#include "tools/lumhost/BitmapFont.h"
#include "tools/lumhost/Commands.h"
#include "tools/lumhost/FolderPlayer.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

namespace {

const char* kUsage =
    "usage: lumhost sheet --in FOLDER_OR_AVI --out FILE [options]\n"
    "Draws a contact sheet of a recording: the images of a folder (bmp, jpg, jpeg,\n"
    "png; in name order) or the frames of an AVI file as thumbnails in a grid, each\n"
    "with its file name (or, for an AVI, its frame number from 1) under it.\n"
    "  --in PATH       the folder or the AVI file\n"
    "  --out FILE      the sheet: FILE.png (or .bmp, .jpg)\n"
    "  --columns N     thumbnails per row, 1-100 (default 4; fewer when there are\n"
    "                  fewer images)\n"
    "  --thumb WxH     room for each thumbnail (default 160x120); images are\n"
    "                  scaled down to fit, keeping their shape, never up\n"
    "  --every N       only every N-th image: the 1st, the N+1-th, ... (default 1)\n"
    "Layout: 8 pixels of margin around the sheet and between the cells; under\n"
    "each thumbnail a 12-pixel band with its label. Files that cannot be read are\n"
    "marked on the sheet and named on standard error.\n";

constexpr int kMargin = 8;
constexpr int kLabelBand = 12;  // the label's 8 rows and 4 above them
constexpr int kLabelGap = 4;
constexpr uint32_t kPaper = 0xFFFFFF;
constexpr uint32_t kInk = 0x000000;
constexpr uint32_t kMissingFill = 0xE0E0E0;
constexpr uint32_t kMissingInk = 0xB00000;
constexpr int64_t kMostPixels = 64LL * 1024 * 1024;

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string Extension(const std::filesystem::path& path) {
    std::string extension = Lower(path.extension().string());
    if (!extension.empty()) extension.erase(0, 1);
    return extension;
}

/// A 24-bit image being drawn: the sheet.
struct Sheet {
    uint8_t* bits = nullptr;
    int32_t stride = 0;
    int width = 0;
    int height = 0;

    void Put(int x, int y, uint32_t rgb) {
        if (x < 0 || y < 0 || x >= width || y >= height) return;
        uint8_t* p = bits + static_cast<size_t>(y) * stride + static_cast<size_t>(x) * 3;
        p[0] = static_cast<uint8_t>(rgb);
        p[1] = static_cast<uint8_t>(rgb >> 8);
        p[2] = static_cast<uint8_t>(rgb >> 16);
    }
    void Fill(int x, int y, int w, int h, uint32_t rgb) {
        for (int row = y; row < y + h; ++row)
            for (int column = x; column < x + w; ++column) Put(column, row, rgb);
    }
    void Text(const std::string& text, int x, int y, uint32_t rgb) {
        BitmapFont::Render(text, x, y, 1, [&](int px, int py) { Put(px, py, rgb); });
    }
};

/// Size of a `width` x `height` image scaled down to fit `boxWidth` x
/// `boxHeight` with its shape kept (never scaled up).
void FitSize(int width, int height, int boxWidth, int boxHeight, int& fitWidth, int& fitHeight) {
    if (width <= boxWidth && height <= boxHeight) {
        fitWidth = width;
        fitHeight = height;
        return;
    }
    const int64_t w = width, h = height;
    if (w * boxHeight >= h * boxWidth) {
        fitWidth = boxWidth;
        fitHeight = static_cast<int>(std::max<int64_t>(1, (h * boxWidth + w / 2) / w));
    } else {
        fitHeight = boxHeight;
        fitWidth = static_cast<int>(std::max<int64_t>(1, (w * boxHeight + h / 2) / h));
    }
}

/// Draws `image` scaled to fit the box at (x, y): every thumbnail pixel is
/// the average of the image pixels it covers.
bool DrawThumbnail(Sheet& sheet, ILUM* image, int x, int y, int boxWidth, int boxHeight) {
    int32_t width = 0, height = 0, bits = 0, stride = 0;
    uint8_t* pixels = nullptr;
    image->get_Width(&width);
    image->get_Height(&height);
    image->get_BitsPerPixel(&bits);
    image->get_Stride(&stride);
    image->get_Bits(&pixels);
    const int bytes = bits / 8;
    if (!pixels || width <= 0 || height <= 0 || (bits != 8 && bits != 24 && bits != 32) || stride < width * bytes)
        return false;
    int fitWidth = 0, fitHeight = 0;
    FitSize(width, height, boxWidth, boxHeight, fitWidth, fitHeight);
    const int left = x + (boxWidth - fitWidth) / 2, top = y + (boxHeight - fitHeight) / 2;
    for (int ty = 0; ty < fitHeight; ++ty) {
        const int y0 = static_cast<int>(static_cast<int64_t>(ty) * height / fitHeight);
        const int y1 = std::max(y0 + 1, static_cast<int>(static_cast<int64_t>(ty + 1) * height / fitHeight));
        for (int tx = 0; tx < fitWidth; ++tx) {
            const int x0 = static_cast<int>(static_cast<int64_t>(tx) * width / fitWidth);
            const int x1 = std::max(x0 + 1, static_cast<int>(static_cast<int64_t>(tx + 1) * width / fitWidth));
            uint64_t sum[3] = {0, 0, 0};
            for (int sy = y0; sy < y1; ++sy) {
                const uint8_t* row = pixels + static_cast<size_t>(sy) * stride;
                for (int sx = x0; sx < x1; ++sx) {
                    const uint8_t* p = row + static_cast<size_t>(sx) * bytes;
                    if (bytes == 1) {
                        sum[0] += p[0];
                        sum[1] += p[0];
                        sum[2] += p[0];
                    } else {
                        sum[0] += p[0];
                        sum[1] += p[1];
                        sum[2] += p[2];
                    }
                }
            }
            const uint64_t count = static_cast<uint64_t>(y1 - y0) * static_cast<uint64_t>(x1 - x0);
            const auto average = [&](int c) { return static_cast<uint32_t>((sum[c] + count / 2) / count); };
            sheet.Put(left + tx, top + ty, average(2) << 16 | average(1) << 8 | average(0));
        }
    }
    return true;
}

/// One picture of the sheet: how to read it and what to write under it.
struct Entry {
    std::string label;
    std::function<SmartPtr<ILUM>()> read;
};

}  // namespace

int SheetCommand(FrameworkHost& host, const std::vector<std::string>& args) {
    Options options(args, {"in", "out", "columns", "thumb", "every"}, {"help"});
    if (options.Has("help")) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    const int columnsWanted = options.Integer("columns", 4, 1, 100);
    int thumbWidth = 160, thumbHeight = 120;
    options.Size("thumb", thumbWidth, thumbHeight);
    const int every = options.Integer("every", 1, 1, 100000000);
    std::string problem = options.Error();
    if (problem.empty() && !options.Has("in")) problem = "--in is required";
    if (problem.empty() && !options.Has("out")) problem = "--out is required";
    const std::string in = options.Text("in", ""), out = options.Text("out", "");
    const std::string outExtension = Extension(out);
    if (problem.empty() && outExtension != "png" && outExtension != "bmp" && outExtension != "jpg" &&
        outExtension != "jpeg")
        problem = "--out needs a file name ending in .png, .bmp or .jpg, not '" + out + "'";
    if (problem.empty() && (thumbWidth > 4096 || thumbHeight > 4096)) problem = "--thumb is at most 4096x4096";
    if (!problem.empty()) {
        std::fprintf(stderr, "lumhost sheet: %s\n\n%s", problem.c_str(), kUsage);
        return 2;
    }

    // What the sheet shows.
    std::error_code error;
    const std::filesystem::path source = std::filesystem::absolute(in).lexically_normal();
    SmartPtr<ILUMArchive> archive = host.Create<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    SmartPtr<ISimpleCollection> frames;
    std::vector<Entry> entries;
    size_t total = 0;
    if (!archive) {
        std::fprintf(stderr, "lumhost sheet: cannot create the framework's image archive\n");
        return 1;
    }
    if (std::filesystem::is_directory(source, error)) {
        std::vector<std::filesystem::path> files;
        for (const auto& item : std::filesystem::directory_iterator(source, error)) {
            const std::string extension = Extension(item.path());
            const bool image = extension == "bmp" || extension == "jpg" || extension == "jpeg" || extension == "png";
            if (image && item.path().filename().string()[0] != '.' && item.is_regular_file(error))
                files.push_back(item.path());
        }
        if (error) {
            std::fprintf(stderr, "lumhost sheet: cannot list %s: %s\n", in.c_str(), error.message().c_str());
            return 1;
        }
        std::sort(files.begin(), files.end());
        total = files.size();
        for (size_t i = 0; i < files.size(); i += static_cast<size_t>(every)) {
            const std::filesystem::path file = files[i];
            entries.push_back({file.filename().string(), [&host, &archive, file] {
                                   SmartPtr<ILUM> image;
                                   archive->Read(HostString(host, Widen(file.string())).Get(), image.Out());
                                   return image;
                               }});
        }
        if (entries.empty()) {
            std::fprintf(stderr, "lumhost sheet: no images (bmp, jpg, jpeg, png) in %s\n", in.c_str());
            return 1;
        }
    } else if (std::filesystem::is_regular_file(source, error) && Extension(source) == "avi") {
        SmartPtr<IFileArchive> avi = host.Create<IFileArchive>(L"LUMAVI", IID_IFileArchive);
        frames = avi ? avi.As<ISimpleCollection>(IID_ISimpleCollection) : nullptr;
        if (!frames) {
            std::fprintf(stderr, "lumhost sheet: cannot create the AVI reader\n");
            return 1;
        }
        avi->put_Filename(HostString(host, Widen(source.string())).Get());
        int32_t count = 0;
        if (avi->Load() < 0 || frames->get_Count(&count) < 0 || count <= 0) {
            std::fprintf(stderr, "lumhost sheet: cannot read the AVI file %s\n", in.c_str());
            return 1;
        }
        total = static_cast<size_t>(count);
        for (int32_t i = 0; i < count; i += every) {
            entries.push_back({"frame " + std::to_string(i + 1), [&frames, i] {
                                   SmartPtr<IUnknown> item;
                                   frames->get_Item(i, item.Out());
                                   return QueryAs<ILUM>(item.Get(), IID_ILUM);
                               }});
        }
    } else if (std::filesystem::exists(source, error)) {
        std::fprintf(stderr, "lumhost sheet: %s is neither a folder nor an AVI file\n", in.c_str());
        return 1;
    } else {
        std::fprintf(stderr, "lumhost sheet: no file or folder %s\n", in.c_str());
        return 1;
    }

    // The grid.
    const int count = static_cast<int>(entries.size());
    const int columns = std::min(columnsWanted, count);
    const int rows = (count + columns - 1) / columns;
    const int64_t sheetWidth = kMargin + static_cast<int64_t>(columns) * (thumbWidth + kMargin);
    const int64_t sheetHeight = kMargin + static_cast<int64_t>(rows) * (thumbHeight + kLabelBand + kMargin);
    if (sheetWidth * sheetHeight > kMostPixels || sheetWidth > 32767 || sheetHeight > 32767) {
        std::fprintf(stderr,
                     "lumhost sheet: a sheet of %lld x %lld pixels is too large; use --every, --columns or a "
                     "smaller --thumb\n",
                     static_cast<long long>(sheetWidth), static_cast<long long>(sheetHeight));
        return 1;
    }
    SmartPtr<ILUMImageDIB> picture = host.Create<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    Sheet sheet;
    sheet.width = static_cast<int>(sheetWidth);
    sheet.height = static_cast<int>(sheetHeight);
    if (!picture || picture->Create(sheet.width, sheet.height, 24) < 0 || picture->get_Bits(&sheet.bits) < 0 ||
        picture->get_Stride(&sheet.stride) < 0 || !sheet.bits) {
        std::fprintf(stderr, "lumhost sheet: cannot create a %d x %d image\n", sheet.width, sheet.height);
        return 1;
    }
    sheet.Fill(0, 0, sheet.width, sheet.height, kPaper);

    int unreadable = 0;
    Progress progress("thumbnails", count);
    for (int i = 0; i < count; ++i) {
        const int x = kMargin + (i % columns) * (thumbWidth + kMargin);
        const int y = kMargin + (i / columns) * (thumbHeight + kLabelBand + kMargin);
        SmartPtr<ILUM> image = entries[static_cast<size_t>(i)].read();
        if (!image || !DrawThumbnail(sheet, image.Get(), x, y, thumbWidth, thumbHeight)) {
            ++unreadable;
            std::fprintf(stderr, "lumhost sheet: cannot read %s; marked on the sheet\n",
                         entries[static_cast<size_t>(i)].label.c_str());
            sheet.Fill(x, y, thumbWidth, thumbHeight, kMissingFill);
            const std::string mark = BitmapFont::FitWidth("unreadable", thumbWidth, 1);
            sheet.Text(mark, x + (thumbWidth - BitmapFont::TextWidth(mark, 1)) / 2,
                       y + (thumbHeight - BitmapFont::kGlyphHeight) / 2, kMissingInk);
        }
        const std::string label = BitmapFont::FitWidth(entries[static_cast<size_t>(i)].label, thumbWidth, 1);
        sheet.Text(label, x + (thumbWidth - BitmapFont::TextWidth(label, 1)) / 2, y + thumbHeight + kLabelGap, kInk);
        progress.Update(i + 1);
    }
    progress.Finish();
    if (unreadable == count) {
        std::fprintf(stderr, "lumhost sheet: none of the images in %s could be read; no sheet written\n", in.c_str());
        return 1;
    }

    const std::string target = std::filesystem::absolute(out).lexically_normal().string();
    const HRESULT hr = archive->Write(HostString(host, Widen(target)).Get(), picture.Get(), 90);
    if (hr < 0) {
        std::fprintf(stderr, "lumhost sheet: cannot write %s (%s)\n", out.c_str(), ResultText(hr).c_str());
        return 1;
    }
    std::printf("wrote %s: %d thumbnails of %zu images, %d x %d, %d x %d pixels", out.c_str(), count, total, columns,
                rows, sheet.width, sheet.height);
    if (unreadable) std::printf(", %d unreadable", unreadable);
    std::printf("\n");
    return 0;
}
