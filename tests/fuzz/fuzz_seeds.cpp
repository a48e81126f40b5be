// Writes small seed files for the fuzz targets with the kit's and the
// module's own writers: JPEG (plain, and banded with restart markers at
// 256 x 256), BMP and PNG files, motion-JPEG AVI files, and a component's
// settings archives as UTF-16 XML, 8-bit XML and folder stream.
//
//   fuzz_seeds OUTPUT_FOLDER      (one sub-folder per target)
#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "framework/LUMArch/ImageCodec.h"
#include "framework/LUMArch/JpegBands.h"
#include "framework/LUMVideo/AviWriter.h"
#include "framework/LUMVideo/FrameStore.h"
#include "tests/fuzz/FuzzProbe.h"
#include "tests/fuzz/FuzzSupport.h"
#include "text/ValueConversion.h"

namespace {

int g_Failures = 0;

void Report(bool ok, const std::string& what) {
    if (!ok) {
        std::fprintf(stderr, "fuzz_seeds: could not write %s\n", what.c_str());
        ++g_Failures;
    }
}

std::string Folder(const std::string& root, const char* name) {
    const std::string folder = root + "/" + name;
    ::mkdir(folder.c_str(), 0755);
    return folder;
}

/// A test picture: gradients with a few sharp edges, `bits` 8, 24 or 32.
struct Picture {
    std::vector<uint8_t> pixels;
    ImageView view{};

    Picture(int32_t width, int32_t height, int32_t bits) {
        const int32_t stride = (width * (bits / 8) + 3) & ~3;
        pixels.assign(static_cast<size_t>(stride) * height, 0);
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < width; ++x)
                for (int32_t c = 0; c < bits / 8; ++c) {
                    const int value = (x * 255 / width + c * 40 + ((x / 16 + y / 16) % 2) * 60 + y) & 0xFF;
                    pixels[static_cast<size_t>(y * stride + x * (bits / 8) + c)] = static_cast<uint8_t>(value);
                }
        view = ImageView{pixels.data(), width, height, bits, stride};
    }
};

void WriteImage(const std::string& folder, const char* name, ImageFormat format, int32_t width, int32_t height,
                int32_t bits, int quality) {
    const Picture picture(width, height, bits);
    const std::string path = folder + "/" + name;
    Report(WriteImageFile(path, format, picture.view, quality) >= 0, path);
}

void WriteAvi(const std::string& folder, const char* name, int32_t bits, int frames) {
    CFrameStore store;
    JpegBlock block;
    for (int i = 0; i < frames; ++i) {
        Picture picture(64, 48, bits);
        picture.pixels[static_cast<size_t>(i)] ^= 0xFF;  // frames that differ
        if (EncodeJpegToMemory(picture.view, 75, block) < 0 || store.Append(block.data, block.size) < 0) {
            Report(false, name);
            return;
        }
    }
    AviWriteSettings settings;
    settings.width = 64;
    settings.height = 48;
    settings.rate = 25;
    settings.partLimit = kAviPartLimit;
    const std::string path = folder + "/" + name;
    Report(WriteMjpegAvi(path, settings, store) >= 0, path);
}

/// The probe's settings written through its archive: the extension chooses
/// XML or folder stream, `encoding` UTF-16 (0) or 8-bit (1) XML.
void WriteArchive(const std::string& path, int encoding) {
    SmartPtr<CFuzzProbe> probe = CFuzzProbe::New();
    if (!probe) return Report(false, path);
    probe->m_Object = SmartPtr<IUnknown>::Adopt(ISCreate(L"an object"));
    const std::wstring wide(path.begin(), path.end());
    SmartPtr<IString> name = SmartPtr<IString>::Adopt(ISCreate(wide.c_str()));
    probe->put_Filename(name.Get());
    probe->ArchiveControl(4, encoding);
    Report(probe->Save() >= 0, path);
}

/// The probe's settings as a folder-stream file, with the origin record
/// and every parameter under its display name.
void WriteFolderStream(const std::string& path) {
    SmartPtr<CFuzzProbe> probe = CFuzzProbe::New();
    const std::wstring wide(path.begin(), path.end());
    SmartPtr<IString> name = SmartPtr<IString>::Adopt(ISCreate(wide.c_str()));
    SmartPtr<IFolderStream> folder = ARCHIVEOpenFolder(name.Get(), 1);
    if (!probe || !folder) return Report(false, path);
    ARCHIVEWriteInfo(static_cast<IDataPersist*>(probe.Get()), folder.Get());
    probe->UIPropInterrogate_SaveFolderStream(CFuzzProbe::Names(), folder.Get(), 0);
    Report(folder->Commit() >= 0, path);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || argv[1][0] != '/') {
        std::fprintf(stderr, "usage: fuzz_seeds /absolute/output/folder\n");
        return 2;
    }
    const std::string root = argv[1];
    ::mkdir(root.c_str(), 0755);
    FuzzEnterOutputFolder();

    const std::string jpeg = Folder(root, "fuzz_jpeg_decoder");
    WriteImage(jpeg, "gray-64x48.jpg", ImageFormat::Jpeg, 64, 48, 8, 75);
    WriteImage(jpeg, "colour444-64x48.jpg", ImageFormat::Jpeg, 64, 48, 24, 95);
    WriteImage(jpeg, "colour420-64x48.jpg", ImageFormat::Jpeg, 64, 48, 32, 50);
    // Large enough for the banded coder and decoder (restart markers between
    // bands), small in bytes at a low quality.
    WriteImage(jpeg, "banded-gray-256x256.jpg", ImageFormat::Jpeg, 256, 256, 8, 5);
    WriteImage(jpeg, "banded-colour-256x264.jpg", ImageFormat::Jpeg, 256, 264, 24, 90);
    if (JpegBandThreads() < 2)
        std::fprintf(stderr, "fuzz_seeds: one core only, the 256 x 256 JPEG seeds have no restart markers\n");

    const std::string bmp = Folder(root, "fuzz_bmp_decoder");
    WriteImage(bmp, "gray-64x48.bmp", ImageFormat::Bmp, 64, 48, 8, 0);
    WriteImage(bmp, "colour-63x47.bmp", ImageFormat::Bmp, 63, 47, 24, 0);
    WriteImage(bmp, "alpha-16x8.bmp", ImageFormat::Bmp, 16, 8, 32, 0);

    const std::string png = Folder(root, "fuzz_png_decoder");
    WriteImage(png, "gray-64x48.png", ImageFormat::Png, 64, 48, 8, 0);
    WriteImage(png, "colour-63x47.png", ImageFormat::Png, 63, 47, 24, 0);
    WriteImage(png, "alpha-16x8.png", ImageFormat::Png, 16, 8, 32, 0);

    const std::string avi = Folder(root, "fuzz_avi_reader");
    WriteAvi(avi, "gray-3.avi", 8, 3);
    WriteAvi(avi, "colour-2.avi", 24, 2);

    const std::string archive = Folder(root, "fuzz_file_archive_load");
    WriteArchive(archive + "/settings-utf16.xml", 0);
    WriteArchive(archive + "/settings-8bit.xml", 1);
    const std::string xml = Folder(root, "fuzz_prop_load_xml");
    WriteArchive(xml + "/settings-8bit.xml", 1);
    const std::string folder = Folder(root, "fuzz_folder_stream");
    WriteFolderStream(folder + "/settings.txt");
    return g_Failures == 0 ? 0 : 1;
}
