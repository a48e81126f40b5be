// Driver of bench/avi_over_4gb.sh (not a test): writes a long motion-JPEG
// AVI through "LUMMJPEG" and reads it back through "LUMAVI", printing
// timings and memory. Runs from the output folder, as every host does.
//
//   video_avi_bench write FILE FRAMES WIDTH HEIGHT BITS QUALITY RATE
//   video_avi_bench read FILE
//
// Each frame is camera-like noise with its number stamped into the top row
// of 16 x 16 cells (dark or bright by one bit each), so that frames read
// back show whether they are the right ones.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "framework/common/KitModule.h"
#include "framework/common/KitString.h"

namespace {

constexpr int kCell = 16;
constexpr int kStampBits = 20;

double Seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

long PeakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

struct Pixels {
    uint8_t* bits = nullptr;
    int32_t stride = 0, width = 0, height = 0, bytesPerPixel = 0;
};

Pixels PixelsOf(ILUM* image) {
    Pixels p;
    image->get_Bits(&p.bits);
    image->get_Stride(&p.stride);
    image->get_Width(&p.width);
    image->get_Height(&p.height);
    int32_t bits = 0;
    image->get_BitsPerPixel(&bits);
    p.bytesPerPixel = bits / 8;
    return p;
}

void Stamp(const Pixels& p, int number) {
    for (int bit = 0; bit < kStampBits; ++bit)
        for (int y = 0; y < kCell; ++y)
            std::memset(p.bits + int64_t(p.stride) * y + bit * kCell * p.bytesPerPixel, (number >> bit) & 1 ? 215 : 40,
                        size_t(kCell) * p.bytesPerPixel);
}

int StampOf(const Pixels& p) {
    int number = 0;
    for (int bit = 0; bit < kStampBits; ++bit)
        if (p.bits[int64_t(p.stride) * (kCell / 2) + (bit * kCell + kCell / 2) * p.bytesPerPixel] > 127)
            number |= 1 << bit;
    return number;
}

SmartPtr<IString> FileName(const char* path) {
    const std::string narrow(path);
    return KitNewString(std::wstring(narrow.begin(), narrow.end()));
}

int Write(const char* path, int frames, int width, int height, int bits, int quality, int rate) {
    // A few noise images to cycle through: a gradient plus noise, about as
    // hard to code as a camera's picture.
    std::vector<SmartPtr<ILUMImageDIB>> sources;
    std::mt19937 random(1);
    for (int k = 0; k < 4; ++k) {
        auto image = KitCreate<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
        if (!image || image->Create(width, height, bits) != S_OK) return std::fprintf(stderr, "no image\n"), 1;
        const Pixels p = PixelsOf(image.Get());
        for (int y = 0; y < height; ++y)
            for (int i = 0; i < width * p.bytesPerPixel; ++i)
                p.bits[int64_t(p.stride) * y + i] = uint8_t(((i + y) >> 3) + (random() & 31));
        sources.push_back(image);
    }
    auto writer = KitCreate<ICreatableSimpleCollection>(L"LUMMJPEG", IID_ICreatableSimpleCollection);
    if (!writer) return std::fprintf(stderr, "LUMMJPEG not available\n"), 1;
    auto options = writer.As<ILUMAVI>(IID_ILUMAVI);
    options->SetOption(11, quality);
    options->SetOption(10, rate);

    const auto start = std::chrono::steady_clock::now();
    for (int f = 0; f < frames; ++f) {
        ILUMImageDIB* image = sources[size_t(f) % sources.size()].Get();
        Stamp(PixelsOf(image), f);
        if (writer->Add(image) != S_OK) return std::fprintf(stderr, "Add failed at frame %d\n", f), 1;
        if (f % 500 == 499) std::printf("  added %d frames, %.1f s\n", f + 1, Seconds(start)), std::fflush(stdout);
    }
    const double adding = Seconds(start);
    auto archive = writer.As<IFileArchive>(IID_IFileArchive);
    archive->put_Filename(FileName(path).Get());
    const auto saveStart = std::chrono::steady_clock::now();
    const HRESULT saved = archive->Save();
    const double saving = Seconds(saveStart);
    std::printf("frames added: %d (%dx%d, %d bits, quality %d, %d fps)\n", frames, width, height, bits, quality, rate);
    std::printf("adding (coding + spilling): %.1f s, %.1f frames/s\n", adding, frames / adding);
    std::printf("Save: 0x%08x in %.1f s\n", unsigned(saved), saving);
    std::printf("peak resident memory of the writer process: %ld MB\n", PeakMegabytes());
    return saved == S_OK ? 0 : 1;
}

// The file's top-level RIFF parts: form and size of each.
void PrintParts(const char* path) {
    std::FILE* file = std::fopen(path, "rb");
    if (!file) return;
    uint64_t position = 0;
    uint8_t head[12];
    int parts = 0;
    while (fseeko(file, off_t(position), SEEK_SET) == 0 && std::fread(head, 1, 12, file) == 12 &&
           std::memcmp(head, "RIFF", 4) == 0) {
        uint32_t size = 0;
        for (int i = 7; i >= 4; --i) size = size << 8 | head[i];
        std::printf("  RIFF '%.4s' at %llu: %u bytes\n", reinterpret_cast<const char*>(head + 8),
                    static_cast<unsigned long long>(position), size + 8);
        position += 8 + uint64_t(size) + (size & 1);
        ++parts;
    }
    std::printf("RIFF parts: %d\n", parts);
    std::fclose(file);
}

int Read(const char* path) {
    PrintParts(path);
    const auto start = std::chrono::steady_clock::now();
    auto archive = KitCreate<IFileArchive>(L"LUMAVI", IID_IFileArchive);
    if (!archive) return std::fprintf(stderr, "LUMAVI not available\n"), 1;
    archive->put_Filename(FileName(path).Get());
    const HRESULT loaded = archive->Load();
    const double loading = Seconds(start);
    auto frames = archive.As<ISimpleCollection>(IID_ISimpleCollection);
    int32_t count = 0, rate = 0;
    frames->get_Count(&count);
    archive.As<ILUMAVI>(IID_ILUMAVI)->GetOption(10, &rate);
    std::printf("LUMAVI Load: 0x%08x in %.2f s: %d frames, %d fps\n", unsigned(loaded), loading, count, rate);

    // Every frame, decoded in order, must show its own number.
    const auto decodeStart = std::chrono::steady_clock::now();
    int wrong = 0;
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IUnknown> item;
        SmartPtr<ILUM> image;
        if (frames->get_Item(i, item.Out()) == S_OK) image = QueryAs<ILUM>(item.Get(), IID_ILUM);
        if (!image || StampOf(PixelsOf(image.Get())) != (i & ((1 << kStampBits) - 1))) ++wrong;
    }
    const double decoding = Seconds(decodeStart);
    std::printf("decoded all %d frames in %.1f s (%.1f frames/s); frames wrong or unreadable: %d\n", count, decoding,
                count / decoding, wrong);
    std::printf("peak resident memory of the reader process: %ld MB\n", PeakMegabytes());
    return loaded == S_OK && wrong == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 9 && std::strcmp(argv[1], "write") == 0)
        return Write(argv[2], std::atoi(argv[3]), std::atoi(argv[4]), std::atoi(argv[5]), std::atoi(argv[6]),
                     std::atoi(argv[7]), std::atoi(argv[8]));
    if (argc == 3 && std::strcmp(argv[1], "read") == 0) return Read(argv[2]);
    std::fprintf(stderr, "usage: %s write FILE FRAMES WIDTH HEIGHT BITS QUALITY RATE\n       %s read FILE\n", argv[0],
                 argv[0]);
    return 2;
}
