// The in-process side of bench/run_all.sh: the camcorder, the file player
// and plain libjpeg-turbo loops, each timed over the same frames that the
// other tools are given. Every subcommand prints one JSON object on
// standard output; bench/compare.py runs them round by round beside the
// other tools and writes the report.
//
//   compare_bench generate  --out DIR --frames K --size WxH
//   compare_bench record    --tool T --bits 8|24 --input RAW --size WxH --frames N --quality Q --out PATH
//       T: camcorder1, camcorder2 (RecordOptions 1 or 2, numbered JPEG files),
//          camcorder-avi (RecordOptions 1, FileFormat 2: one AVI beside PATH),
//          plain1, plain2 (libjpeg-turbo encode-and-write loop on one or two threads),
//          plain-stream (one thread, every frame appended to one file);
//       --quality is the plain loops' (the camcorder writes at its own quality)
//   compare_bench replay    --tool T --folder DIR --frames N
//       T: camcorder (its playback), player (the file player), decode (one-thread libjpeg-turbo loop)
//   compare_bench psnr      --bits 8|24 --input RAW --size WxH --frames K --folder DIR [--start S]
//                           [--reference DIR --reference-start S]
//   compare_bench overhead  --frames N --steps M [--repeats R] [--turns T]
//       firing: T turns (default 25) of M playback steps per sink count; the
//       fastest turn of each count counts
//   compare_bench lastindex --folder DIR --files F --repeats R
//
// Run from the output folder (the modules load as "./Name.so").
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>

#include <jpeglib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "bench/BenchObjects.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "tools/lumhost/FolderPlayer.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// The host's option parser (tools/lumhost/Options.cpp) trips a false
// -Wrestrict warning of GCC 12 at -O3, so this release-mode bench parses its
// few "--name value" pairs itself and defines the one helper of Options.h
// that FolderPlayer.cpp uses.
std::wstring Widen(const std::string& text) {
    std::wstring wide(text.size() + 1, L'\0');
    const size_t length = std::mbstowcs(wide.data(), text.c_str(), wide.size());
    if (length == static_cast<size_t>(-1)) return std::wstring(text.begin(), text.end());
    wide.resize(length);
    return wide;
}

namespace {

/// "--name value" pairs.
class Args {
public:
    Args(int argc, char** argv, int first) {
        for (int i = first; i < argc; ++i) {
            const std::string arg = argv[i];
            if (arg.rfind("--", 0) != 0 || i + 1 >= argc) {
                m_Error = "bad argument '" + arg + "'";
                return;
            }
            m_Values[arg.substr(2)] = argv[++i];
        }
    }
    const std::string& Error() const { return m_Error; }
    std::string Text(const std::string& name, const std::string& fallback) const {
        auto it = m_Values.find(name);
        return it == m_Values.end() ? fallback : it->second;
    }
    int Integer(const std::string& name, int fallback, int minimum, int maximum) {
        auto it = m_Values.find(name);
        if (it == m_Values.end()) return fallback;
        char* end = nullptr;
        const long value = std::strtol(it->second.c_str(), &end, 10);
        if (it->second.empty() || *end || value < minimum || value > maximum) {
            m_Error = "--" + name + " out of range: " + it->second;
            return fallback;
        }
        return static_cast<int>(value);
    }
    void Size(const std::string& name, int& width, int& height) {
        auto it = m_Values.find(name);
        if (it == m_Values.end()) return;
        if (std::sscanf(it->second.c_str(), "%dx%d", &width, &height) != 2 || width < 1 || height < 1)
            m_Error = "--" + name + " must look like 1280x1024";
    }

private:
    std::map<std::string, std::string> m_Values;
    std::string m_Error;
};

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

/// Processor time of the whole process (every thread), user and system.
double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

[[noreturn]] void Fail(const std::string& message) {
    std::fprintf(stderr, "compare_bench: %s\n", message.c_str());
    std::exit(1);
}

// ---- Frames --------------------------------------------------------------

struct Frame {
    int width = 0, height = 0, bits = 8;
    std::vector<uint8_t> pixels;  // rows without padding; 24 bits: blue, green, red
    int RowBytes() const { return width * bits / 8; }
    const uint8_t* Row(int y) const { return pixels.data() + static_cast<size_t>(y) * RowBytes(); }
};

/// A small fixed-seed generator, so that the frames are the same on every
/// machine and with every standard library.
struct SplitMix {
    uint64_t state;
    uint64_t Next() {
        uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    /// Roughly normal sensor noise: the sum of four bytes (standard
    /// deviation 147.8) scaled to about 2.5 levels.
    int Noise() {
        const uint64_t r = Next();
        int sum = 0;
        for (int i = 0; i < 4; ++i) sum += static_cast<int>((r >> (16 * i)) & 0xFF);
        return (sum - 510) / 59;
    }
};

uint8_t Clamp(int v) { return static_cast<uint8_t>(std::clamp(v, 0, 255)); }

/// Frame `k` of the test pattern: smooth gradients that move from frame to
/// frame, sharp-edged blocks and a checkerboard, thin diagonal lines, a
/// ring, and noise; colour planes carry gradients in different directions.
Frame MakeFrame(int width, int height, int bits, int k, uint64_t seed) {
    Frame frame{width, height, bits, {}};
    frame.pixels.resize(static_cast<size_t>(frame.RowBytes()) * height);
    SplitMix random{seed * 1000003ull + static_cast<uint64_t>(k)};
    const int channels = bits / 8;
    const double cx = width * (0.55 + 0.02 * k), cy = height * 0.45;
    for (int y = 0; y < height; ++y) {
        uint8_t* row = frame.pixels.data() + static_cast<size_t>(y) * frame.RowBytes();
        for (int x = 0; x < width; ++x) {
            // Shared structure: edges that every plane sees.
            int edge = 0;
            const int bx = (x + 13 * k) / 96, by = (y + 7 * k) / 80;
            if (((bx * 7 + by * 3) % 5) == 0) edge += 60;                       // blocks
            if (x > width / 8 && x < width / 3 && y > height / 2 && ((x / 8 + y / 8) & 1)) edge -= 50;  // checkerboard
            if (((x + y + 3 * k) % 64) < 2) edge += 90;                         // diagonal lines
            const double r = std::hypot(x - cx, y - cy);
            if (r > 150 && r < 158) edge -= 80;                                  // ring
            for (int c = 0; c < channels; ++c) {
                int base;
                if (c == 0)
                    base = (x * 160) / width + (y * 60) / height + 2 * k;
                else if (c == 1)
                    base = 40 + (y * 150) / height + ((width - x) * 30) / width - k;
                else
                    base = 200 - ((x + y) * 120) / (width + height) + 3 * k;
                row[x * channels + c] = Clamp(base + edge + random.Noise());
            }
        }
    }
    return frame;
}

bool WriteFile(const fs::path& path, const void* data, size_t size) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return false;
    const bool ok = std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && ok;
}

std::vector<uint8_t> ReadWhole(const fs::path& path) {
    std::vector<uint8_t> bytes;
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return bytes;
    std::fseek(file, 0, SEEK_END);
    const long size = std::ftell(file);
    std::fseek(file, 0, SEEK_SET);
    if (size > 0) {
        bytes.resize(static_cast<size_t>(size));
        if (std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) bytes.clear();
    }
    std::fclose(file);
    return bytes;
}

/// The K frames of a raw file (frames back to back, no padding).
std::vector<Frame> LoadFrames(const fs::path& raw, int width, int height, int bits) {
    const std::vector<uint8_t> bytes = ReadWhole(raw);
    const size_t frameBytes = static_cast<size_t>(width) * height * bits / 8;
    if (bytes.empty() || bytes.size() % frameBytes) Fail("cannot read frames from " + raw.string());
    std::vector<Frame> frames;
    for (size_t at = 0; at < bytes.size(); at += frameBytes) {
        Frame frame{width, height, bits, {}};
        frame.pixels.assign(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                            bytes.begin() + static_cast<std::ptrdiff_t>(at + frameBytes));
        frames.push_back(std::move(frame));
    }
    return frames;
}

int Generate(Args& options) {
    int width = 1280, height = 1024;
    options.Size("size", width, height);
    const int count = options.Integer("frames", 10, 1, 1000);
    const fs::path out = options.Text("out", "");
    const uint64_t seed = static_cast<uint64_t>(options.Integer("seed", 20240611, 0, 2147483647));
    if (!options.Error().empty() || out.empty()) Fail("generate: " + options.Error());
    fs::create_directories(out);
    FILE* grayAll = std::fopen((out / "gray.raw").c_str(), "wb");
    FILE* colourAll = std::fopen((out / "bgr.raw").c_str(), "wb");
    if (!grayAll || !colourAll) Fail("cannot write under " + out.string());
    for (int k = 0; k < count; ++k) {
        const Frame gray = MakeFrame(width, height, 8, k, seed);
        const Frame colour = MakeFrame(width, height, 24, k, seed);
        char name[64];
        std::fwrite(gray.pixels.data(), 1, gray.pixels.size(), grayAll);
        std::fwrite(colour.pixels.data(), 1, colour.pixels.size(), colourAll);
        std::snprintf(name, sizeof name, "gray%02d.raw", k);
        WriteFile(out / name, gray.pixels.data(), gray.pixels.size());
        std::snprintf(name, sizeof name, "bgr%02d.raw", k);
        WriteFile(out / name, colour.pixels.data(), colour.pixels.size());
        // The same frames as PGM and PPM (PPM holds red, green, blue).
        std::string header = "P5\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
        std::vector<uint8_t> file(header.begin(), header.end());
        file.insert(file.end(), gray.pixels.begin(), gray.pixels.end());
        std::snprintf(name, sizeof name, "frame%02d.pgm", k);
        WriteFile(out / name, file.data(), file.size());
        header = "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
        file.assign(header.begin(), header.end());
        for (size_t i = 0; i < colour.pixels.size(); i += 3) {
            file.push_back(colour.pixels[i + 2]);
            file.push_back(colour.pixels[i + 1]);
            file.push_back(colour.pixels[i]);
        }
        std::snprintf(name, sizeof name, "frame%02d.ppm", k);
        WriteFile(out / name, file.data(), file.size());
    }
    std::fclose(grayAll);
    std::fclose(colourAll);
    std::printf("{\"frames\": %d, \"width\": %d, \"height\": %d, \"seed\": %llu}\n", count, width, height,
                static_cast<unsigned long long>(seed));
    return 0;
}

// ---- Plain libjpeg-turbo -------------------------------------------------

/// One libjpeg-turbo compressor with an output block that is reused from
/// frame to frame: the settings are those of the kit's one-thread coder
/// (gray as one component; colour from blue-green-red rows, at quality 90
/// and above with full-resolution chroma).
class PlainEncoder {
public:
    explicit PlainEncoder(size_t capacity) : m_Capacity(capacity) {
        m_Codec.err = jpeg_std_error(&m_Errors);
        jpeg_create_compress(&m_Codec);
        m_Block = static_cast<unsigned char*>(std::malloc(m_Capacity));
    }
    ~PlainEncoder() {
        jpeg_destroy_compress(&m_Codec);
        std::free(m_Block);
    }
    PlainEncoder(const PlainEncoder&) = delete;
    PlainEncoder& operator=(const PlainEncoder&) = delete;

    /// Codes `frame`; the bytes stay valid until the next call.
    std::pair<const unsigned char*, size_t> Encode(const Frame& frame, int quality) {
        unsigned long size = m_Capacity;
        unsigned char* block = m_Block;
        jpeg_mem_dest(&m_Codec, &block, &size);
        m_Codec.image_width = static_cast<JDIMENSION>(frame.width);
        m_Codec.image_height = static_cast<JDIMENSION>(frame.height);
        m_Codec.input_components = frame.bits / 8;
        m_Codec.in_color_space = frame.bits == 8 ? JCS_GRAYSCALE : JCS_EXT_BGR;
        jpeg_set_defaults(&m_Codec);
        jpeg_set_quality(&m_Codec, quality, TRUE);
        if (frame.bits != 8 && quality >= 90) {
            m_Codec.comp_info[0].h_samp_factor = 1;
            m_Codec.comp_info[0].v_samp_factor = 1;
        }
        jpeg_start_compress(&m_Codec, TRUE);
        JSAMPROW rows[16];
        while (m_Codec.next_scanline < m_Codec.image_height) {
            const JDIMENSION first = m_Codec.next_scanline;
            const JDIMENSION batch = std::min<JDIMENSION>(16, m_Codec.image_height - first);
            for (JDIMENSION i = 0; i < batch; ++i)
                rows[i] = const_cast<JSAMPROW>(frame.Row(static_cast<int>(first + i)));
            jpeg_write_scanlines(&m_Codec, rows, batch);
        }
        jpeg_finish_compress(&m_Codec);
        if (block != m_Block) {
            // The library grew the block into one of its own: keep that one.
            std::free(m_Block);
            m_Block = block;
            m_Capacity = size;
        }
        return {block, size};
    }

private:
    jpeg_compress_struct m_Codec;
    jpeg_error_mgr m_Errors;
    unsigned char* m_Block;
    size_t m_Capacity;
};

std::string FileName(const fs::path& folder, int index) {
    char name[32];
    std::snprintf(name, sizeof name, "%04d.jpg", index);
    return (folder / name).string();
}

/// Frames [first, count) in steps of `step`, each coded and written to its own file.
void PlainLoop(const std::vector<Frame>& frames, int count, int quality, const fs::path& folder, int first,
               int step) {
    PlainEncoder encoder(frames[0].pixels.size() * 2 + 65536);
    for (int i = first; i < count; i += step) {
        const auto [data, size] = encoder.Encode(frames[static_cast<size_t>(i) % frames.size()], quality);
        if (!WriteFile(FileName(folder, i), data, size)) Fail("cannot write into " + folder.string());
    }
}

// ---- Small objects of the bench's own ------------------------------------

/// A camera that costs nothing: an event source whose frames the bench
/// fires itself.
class FeedCamera final : public CObject<FeedCamera>, public IEventSource {
    LUM_OBJECT_UNKNOWN(FeedCamera)
public:
    HRESULT Advise(IUnknown* sink, int32_t flags) override {
        if (flags == 0) {
            if (!sink) {
                m_Sinks.clear();
                return S_OK;
            }
            SmartPtr<IUnknown> identity = QueryAs<IUnknown>(sink, IID_IUnknown);
            for (size_t i = 0; i < m_Sinks.size(); ++i) {
                if (QueryAs<IUnknown>(m_Sinks[i].Get(), IID_IUnknown).Get() == identity.Get()) {
                    m_Sinks.erase(m_Sinks.begin() + static_cast<std::ptrdiff_t>(i));
                    return S_OK;
                }
            }
            return E_FAIL;
        }
        if (!sink) return E_POINTER;
        SmartPtr<_ICameraEvents> events = QueryAs<_ICameraEvents>(sink, IID__ICameraEvents);
        if (!events) return E_NOINTERFACE;
        m_Sinks.push_back(events);
        return S_OK;
    }
    HRESULT GetAdviseCount() override { return static_cast<HRESULT>(m_Sinks.size()); }
    HRESULT GetAdviseItem(uint32_t index, IUnknown** sink, int32_t* flags) override {
        if (index >= m_Sinks.size()) return E_FAIL;
        if (flags) *flags = 1;
        if (sink) {
            *sink = m_Sinks[index].Get();
            (*sink)->AddRef();
        }
        return S_OK;
    }

    /// Delivers one image to every sink; a sink may unadvise itself inside.
    void Fire(IUnknown* image, int32_t number) {
        for (size_t i = 0; i < m_Sinks.size(); ++i) {
            SmartPtr<_ICameraEvents> sink = m_Sinks[i];
            sink->ImageGrabbed(PrimaryUnknown(), image, number);
        }
    }

private:
    std::vector<SmartPtr<_ICameraEvents>> m_Sinks;
};

const InterfaceEntry<FeedCamera> FeedCamera::kInterfaces[] = {
    InterfaceEntry<FeedCamera>::Of<IEventSource>(IID_IEventSource),
    InterfaceEntry<FeedCamera>::End(),
};

// ---- The framework side --------------------------------------------------

void StartHost(FrameworkHost& host) {
    if (!host.Start()) Fail(host.Error());
}

/// A framework image holding `frame`.
SmartPtr<ILUMImageDIB> ImageOf(FrameworkHost& host, const Frame& frame) {
    SmartPtr<ILUMImageDIB> image = host.Create<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    if (!image || image->Create(frame.width, frame.height, frame.bits) < 0) Fail("cannot create an image");
    uint8_t* bits = nullptr;
    int32_t stride = 0;
    image->get_Bits(&bits);
    image->get_Stride(&stride);
    for (int y = 0; y < frame.height; ++y)
        std::memcpy(bits + static_cast<size_t>(y) * stride, frame.Row(y), static_cast<size_t>(frame.RowBytes()));
    return image;
}

int32_t StateOf(ILUMCamcorder* camcorder) {
    int32_t state = -1;
    camcorder->Inquire(10, &state);
    return state;
}

void SetPath(ILUMCamcorder* camcorder, const fs::path& folder) {
    std::wstring path = Widen(folder.string());
    camcorder->put_Path(tagREFString{static_cast<int32_t>(path.size()), path.data()});
}

/// Records `count` frames through a camcorder fed at full speed from the
/// bench's own camera; the seconds from Record to the last file written.
double RecordThroughCamcorder(FrameworkHost& host, const std::vector<SmartPtr<ILUMImageDIB>>& images, int count,
                              int options, FileFormatConstants format, const fs::path& folder) {
    SmartPtr<ILUMCamcorder> camcorder = host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
    if (!camcorder) Fail("cannot create the camcorder");
    SmartPtr<FeedCamera> camera = CObject<FeedCamera>::New();
    SetPath(camcorder.Get(), folder);
    camcorder->put_FileFormat(format);
    camcorder->put_RecordOptions(options);
    camcorder->put_RecordasSeparateThreadDelayTime(0);
    camcorder->Control(73, count);  // the frame limit: the recording ends by itself
    SmartPtr<ICamcorderArm> recorder = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
    const auto start = Clock::now();
    recorder->Record(camera->PrimaryUnknown());
    for (int i = 0; i < count; ++i)
        camera->Fire(images[static_cast<size_t>(i) % images.size()].Get(), i + 1);
    // Polled once a millisecond: a finer poll wakes this thread thousands of
    // times a second, each time taking a core from the save thread's coders,
    // while a millisecond is under a tenth of a percent of a recording.
    while (StateOf(camcorder.Get()) != CameraStateIdle) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const double seconds = SecondsSince(start);
    recorder->Arm(nullptr);
    return seconds;
}

int Record(Args& options) {
    const std::string tool = options.Text("tool", "");
    const int bits = options.Integer("bits", 8, 8, 24);
    int width = 1280, height = 1024;
    options.Size("size", width, height);
    const int count = options.Integer("frames", 300, 1, 1000000);
    const int quality = options.Integer("quality", 100, 1, 100);
    const fs::path input = options.Text("input", "");
    const fs::path out = options.Text("out", "");
    if (!options.Error().empty() || out.empty() || (bits != 8 && bits != 24)) Fail("record: bad options");
    const std::vector<Frame> frames = LoadFrames(input, width, height, bits);

    double seconds = 0, cpu = 0;
    if (tool == "plain1" || tool == "plain2") {
        const double cpuStart = CpuSeconds();
        fs::create_directories(out);
        const int threads = tool == "plain1" ? 1 : 2;
        const auto start = Clock::now();
        std::vector<std::thread> workers;
        for (int t = 1; t < threads; ++t)
            workers.emplace_back([&, t] { PlainLoop(frames, count, quality, out, t, threads); });
        PlainLoop(frames, count, quality, out, 0, threads);
        for (auto& worker : workers) worker.join();
        seconds = SecondsSince(start);
        cpu = CpuSeconds() - cpuStart;
    } else if (tool == "plain-stream") {
        fs::create_directories(out.parent_path());
        PlainEncoder encoder(frames[0].pixels.size() * 2 + 65536);
        const double cpuStart = CpuSeconds();
        const auto start = Clock::now();
        FILE* file = std::fopen(out.c_str(), "wb");
        if (!file) Fail("cannot write " + out.string());
        for (int i = 0; i < count; ++i) {
            const auto [data, size] = encoder.Encode(frames[static_cast<size_t>(i) % frames.size()], quality);
            if (std::fwrite(data, 1, size, file) != size) Fail("cannot write " + out.string());
        }
        std::fclose(file);
        seconds = SecondsSince(start);
        cpu = CpuSeconds() - cpuStart;
    } else if (tool == "camcorder1" || tool == "camcorder2" || tool == "camcorder-avi") {
        FrameworkHost host;
        StartHost(host);
        std::vector<SmartPtr<ILUMImageDIB>> images;
        for (const Frame& frame : frames) images.push_back(ImageOf(host, frame));
        const bool avi = tool == "camcorder-avi";
        // An AVI recording is written beside its folder, as "<folder>.avi".
        fs::create_directories(avi ? out.parent_path() : out);
        const double cpuStart = CpuSeconds();
        seconds = RecordThroughCamcorder(host, images, count, tool == "camcorder2" ? 2 : 1,
                                         avi ? FileFormatAVI : FileFormatJPEG, out);
        cpu = CpuSeconds() - cpuStart;
        images.clear();
        host.Stop();
    } else {
        Fail("record: unknown tool " + tool);
    }
    std::printf("{\"tool\": \"%s\", \"frames\": %d, \"seconds\": %.6f, \"fps\": %.3f, \"cpu_seconds\": %.6f}\n",
                tool.c_str(), count, seconds, count / seconds, cpu);
    return 0;
}

// ---- Replay --------------------------------------------------------------

/// Numbered files of a folder, in name order.
std::vector<fs::path> JpegFiles(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.path().extension() == ".jpg") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

/// A one-thread libjpeg-turbo decoder into a reused buffer: gray files to
/// 8 bits, colour to blue-green-red, as the kit's images hold them.
class PlainDecoder {
public:
    PlainDecoder() {
        m_Codec.err = jpeg_std_error(&m_Errors);
        jpeg_create_decompress(&m_Codec);
    }
    ~PlainDecoder() { jpeg_destroy_decompress(&m_Codec); }
    PlainDecoder(const PlainDecoder&) = delete;
    PlainDecoder& operator=(const PlainDecoder&) = delete;

    /// Decodes into `out` (resized); `gray` asks for one gray channel.
    /// Returns the frame's layout: components and the first component's
    /// sampling factors, and whether the file has restart markers.
    struct Layout {
        int components = 0, h = 0, v = 0, restart = 0, width = 0, height = 0;
        J_COLOR_SPACE space = JCS_UNKNOWN;
        UINT16 luma[DCTSIZE2] = {};  // the first quantisation table, in natural order
    };
    Layout Decode(const uint8_t* data, size_t size, bool gray, std::vector<uint8_t>& out) {
        jpeg_mem_src(&m_Codec, data, static_cast<unsigned long>(size));
        jpeg_read_header(&m_Codec, TRUE);
        Layout layout{m_Codec.num_components, m_Codec.comp_info[0].h_samp_factor,
                      m_Codec.comp_info[0].v_samp_factor, static_cast<int>(m_Codec.restart_interval),
                      static_cast<int>(m_Codec.image_width), static_cast<int>(m_Codec.image_height), m_Codec.jpeg_color_space, {}};
        if (const JQUANT_TBL* table = m_Codec.quant_tbl_ptrs[m_Codec.comp_info[0].quant_tbl_no])
            std::copy(table->quantval, table->quantval + DCTSIZE2, layout.luma);
        m_Codec.out_color_space = gray ? JCS_GRAYSCALE : JCS_EXT_BGR;
        jpeg_start_decompress(&m_Codec);
        const size_t rowBytes = static_cast<size_t>(m_Codec.output_width) * m_Codec.output_components;
        out.resize(rowBytes * m_Codec.output_height);
        JSAMPROW rows[16];
        while (m_Codec.output_scanline < m_Codec.output_height) {
            const JDIMENSION first = m_Codec.output_scanline;
            const JDIMENSION batch = std::min<JDIMENSION>(16, m_Codec.output_height - first);
            for (JDIMENSION i = 0; i < batch; ++i) rows[i] = out.data() + rowBytes * (first + i);
            jpeg_read_scanlines(&m_Codec, rows, batch);
        }
        jpeg_finish_decompress(&m_Codec);
        return layout;
    }

private:
    jpeg_decompress_struct m_Codec;
    jpeg_error_mgr m_Errors;
};

/// Whether a JPEG file holds one component (read from its header).
bool IsGrayFile(const fs::path& file) {
    const std::vector<uint8_t> bytes = ReadWhole(file);
    jpeg_decompress_struct codec;
    jpeg_error_mgr errors;
    codec.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&codec);
    jpeg_mem_src(&codec, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_read_header(&codec, TRUE);
    const bool gray = codec.num_components == 1;
    jpeg_destroy_decompress(&codec);
    return gray;
}

int Replay(Args& options) {
    const std::string tool = options.Text("tool", "");
    const fs::path folder = options.Text("folder", "");
    const int count = options.Integer("frames", 300, 1, 1000000);
    if (!options.Error().empty() || folder.empty()) Fail("replay: bad options");
    const std::vector<fs::path> files = JpegFiles(folder);
    if (static_cast<int>(files.size()) < count) Fail("replay: too few files in " + folder.string());

    double seconds = 0, cpu = 0;
    int delivered = 0;
    if (tool == "decode") {
        const bool gray = IsGrayFile(files[0]);
        PlainDecoder decoder;
        std::vector<uint8_t> pixels, bytes;
        const double cpuStart = CpuSeconds();
        const auto start = Clock::now();
        for (int i = 0; i < count; ++i) {
            FILE* file = std::fopen(files[static_cast<size_t>(i)].c_str(), "rb");
            if (!file) Fail("cannot open " + files[static_cast<size_t>(i)].string());
            std::fseek(file, 0, SEEK_END);
            bytes.resize(static_cast<size_t>(std::ftell(file)));
            std::fseek(file, 0, SEEK_SET);
            const size_t read = std::fread(bytes.data(), 1, bytes.size(), file);
            std::fclose(file);
            if (read != bytes.size()) Fail("cannot read " + files[static_cast<size_t>(i)].string());
            decoder.Decode(bytes.data(), bytes.size(), gray, pixels);
            ++delivered;
        }
        seconds = SecondsSince(start);
        cpu = CpuSeconds() - cpuStart;
    } else if (tool == "camcorder" || tool == "player") {
        FrameworkHost host;
        StartHost(host);
        SmartPtr<CountingSink> sink = CObject<CountingSink>::New();
        SmartPtr<ICamera> camera;
        if (tool == "camcorder") {
            SmartPtr<ILUMCamcorder> camcorder = host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
            if (!camcorder) Fail("cannot create the camcorder");
            SetPath(camcorder.Get(), folder);
            camcorder->put_FileFormat(FileFormatJPEG);
            camcorder->put_PlayDirection(1);
            camcorder->put_ActiveIndex(-1);  // every step moves first: the first step shows file 0
            camera = camcorder.As<ICamera>(IID_ICamera);
        } else {
            FolderPlayer player = OpenFolderPlayer(host, folder.string(), 25.0, false, 0);
            if (!player.camera) Fail(player.error);
            camera = player.camera;
        }
        SmartPtr<IEventSource> events = camera.As<IEventSource>(IID_IEventSource);
        events->Advise(static_cast<_ICameraEvents*>(sink.Get()), 1);
        const double cpuStart = CpuSeconds();
        const auto start = Clock::now();
        for (int i = 0; i < count; ++i)
            if (camera->Grab(0, 0, nullptr) < 0) Fail("step " + std::to_string(i) + " failed");
        seconds = SecondsSince(start);
        cpu = CpuSeconds() - cpuStart;
        delivered = sink->Count();
        events->Advise(nullptr, 0);
        camera.Reset();
        host.Stop();
    } else {
        Fail("replay: unknown tool " + tool);
    }
    if (delivered != count) Fail("replay: " + std::to_string(delivered) + " of " + std::to_string(count) + " images");
    std::printf("{\"tool\": \"%s\", \"frames\": %d, \"seconds\": %.6f, \"fps\": %.3f, \"cpu_seconds\": %.6f}\n",
                tool.c_str(), count, seconds, count / seconds, cpu);
    return 0;
}

// ---- Quality -------------------------------------------------------------

/// The libjpeg quality setting (1-100) whose luminance table is `luma`;
/// 0 when no setting gives it (a coder with tables of its own).
int QualityOf(const UINT16* luma) {
    jpeg_compress_struct codec;
    jpeg_error_mgr errors;
    codec.err = jpeg_std_error(&errors);
    jpeg_create_compress(&codec);
    codec.in_color_space = JCS_GRAYSCALE;
    codec.input_components = 1;
    jpeg_set_defaults(&codec);
    int found = 0;
    for (int quality = 100; quality >= 1 && !found; --quality) {
        jpeg_set_quality(&codec, quality, TRUE);
        if (std::equal(luma, luma + DCTSIZE2, codec.quant_tbl_ptrs[0]->quantval)) found = quality;
    }
    jpeg_destroy_compress(&codec);
    return found;
}

double Psnr(double squaredError, double samples) {
    if (squaredError <= 0) return 99.0;
    return 10.0 * std::log10(255.0 * 255.0 * samples / squaredError);
}

int Quality(Args& options) {
    const int bits = options.Integer("bits", 8, 8, 24);
    int width = 1280, height = 1024;
    options.Size("size", width, height);
    const int count = options.Integer("frames", 10, 1, 100000);
    const int start = options.Integer("start", 0, 0, 1000000);
    const int referenceStart = options.Integer("reference-start", 0, 0, 1000000);
    const fs::path input = options.Text("input", "");
    const fs::path folder = options.Text("folder", "");
    const fs::path reference = options.Text("reference", "");
    if (!options.Error().empty() || folder.empty()) Fail("psnr: bad options");
    const std::vector<Frame> frames = LoadFrames(input, width, height, bits);
    PlainDecoder decoder;
    std::vector<uint8_t> decoded, referenceDecoded;
    double error = 0, referenceError = 0, betweenError = 0, samples = 0;
    int maxDifference = 0;
    PlainDecoder::Layout layout;
    for (int i = 0; i < count; ++i) {
        const Frame& source = frames[static_cast<size_t>(i) % frames.size()];
        const std::vector<uint8_t> bytes = ReadWhole(FileName(folder, start + i));
        if (bytes.empty()) Fail("psnr: cannot read " + FileName(folder, start + i));
        layout = decoder.Decode(bytes.data(), bytes.size(), bits == 8, decoded);
        if (layout.width != width || layout.height != height || decoded.size() != source.pixels.size())
            Fail("psnr: " + FileName(folder, start + i) + " has another size");
        for (size_t p = 0; p < decoded.size(); ++p) {
            const double d = static_cast<double>(decoded[p]) - source.pixels[p];
            error += d * d;
        }
        samples += static_cast<double>(decoded.size());
        if (!reference.empty()) {
            const std::vector<uint8_t> other = ReadWhole(FileName(reference, referenceStart + i));
            if (other.empty()) Fail("psnr: cannot read " + FileName(reference, referenceStart + i));
            decoder.Decode(other.data(), other.size(), bits == 8, referenceDecoded);
            if (referenceDecoded.size() != decoded.size()) Fail("psnr: reference of another size");
            for (size_t p = 0; p < decoded.size(); ++p) {
                const double d = static_cast<double>(referenceDecoded[p]) - source.pixels[p];
                referenceError += d * d;
                const int between = std::abs(static_cast<int>(referenceDecoded[p]) - decoded[p]);
                betweenError += static_cast<double>(between) * between;
                maxDifference = std::max(maxDifference, between);
            }
        }
    }
    std::string sampling = "gray";
    if (layout.components == 3)
        sampling = layout.h == 1 && layout.v == 1 ? "4:4:4" : layout.h == 2 && layout.v == 1 ? "4:2:2" : "4:2:0";
    const char* space = layout.space == JCS_GRAYSCALE ? "gray"
                        : layout.space == JCS_YCbCr   ? "YCbCr"
                        : layout.space == JCS_RGB     ? "RGB"
                                                      : "other";
    std::printf("{\"psnr\": %.4f, \"sampling\": \"%s\", \"colour_space\": \"%s\", \"components\": %d, "
                "\"restart_interval\": %d, \"quality\": %d",
                Psnr(error, samples), sampling.c_str(), space, layout.components, layout.restart,
                QualityOf(layout.luma));
    if (!reference.empty())
        std::printf(", \"reference_psnr\": %.4f, \"psnr_between\": %.4f, \"max_difference\": %d",
                    Psnr(referenceError, samples), Psnr(betweenError, samples), maxDifference);
    std::printf("}\n");
    return 0;
}

// ---- The module's own overhead -------------------------------------------

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

int Overhead(Args& options) {
    const int count = options.Integer("frames", 200000, 1000, 100000000);
    const int steps = options.Integer("steps", 50000, 1000, 100000000);
    const int repeats = options.Integer("repeats", 3, 1, 100);
    const int turns = options.Integer("turns", 25, 1, 1000);
    if (!options.Error().empty()) Fail("overhead: bad options");
    FrameworkHost host;
    StartHost(host);
    // Every "LUMArchive" made from now on is the bench's: it writes nothing.
    if (host.Collection()->RegisterCreateFunction(REFStr(L"LUMArchive"),
                                                  reinterpret_cast<void*>(&CObject<NullArchive>::_CreateInstance)) < 0)
        Fail("cannot register the archive");
    SmartPtr<ILUMImageDIB> image = host.Create<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    image->Create(1280, 1024, 8);
    SmartPtr<ILUM> lum = image.As<ILUM>(IID_ILUM);
    NullArchive::image = lum.Get();

    // Recording: frames per second through the camcorder, in the camera's
    // thread (RecordOptions 0) and through the save thread (1).
    double perFrame[2] = {0, 0};
    for (int options : {0, 1}) {
        std::vector<double> runs;
        for (int r = 0; r < repeats; ++r) {
            SmartPtr<ILUMCamcorder> camcorder = host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
            SmartPtr<FeedCamera> camera = CObject<FeedCamera>::New();
            SetPath(camcorder.Get(), "/dev/shm/lum-compare-nothing");
            camcorder->put_RecordOptions(options);
            camcorder->put_RecordasSeparateThreadDelayTime(0);
            camcorder->Control(73, count);
            SmartPtr<ICamcorderArm> recorder = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
            const long before = NullArchive::writes.load();
            recorder->Record(camera->PrimaryUnknown());
            const auto start = Clock::now();
            for (int i = 0; i < count; ++i) camera->Fire(lum.Get(), i + 1);
            while (StateOf(camcorder.Get()) != CameraStateIdle && StateOf(camcorder.Get()) != CameraStateRecorded)
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            if (options == 1)
                while (StateOf(camcorder.Get()) != CameraStateIdle) std::this_thread::sleep_for(std::chrono::microseconds(100));
            runs.push_back(SecondsSince(start) / count * 1e6);
            if (NullArchive::writes.load() - before != count) Fail("overhead: not every frame was written");
            recorder->Arm(nullptr);
        }
        perFrame[options] = Median(runs);
    }

    // Firing: playback steps of camcorders whose archive reads back one
    // fixed image, delivered to 0, 1, 8 and 64 sinks. The four are timed in
    // turn, several times over, and the least disturbed time of each counts:
    // the cost per sink is the difference to the step without sinks.
    const int sinkCounts[] = {0, 1, 8, 64};
    std::vector<SmartPtr<ILUMCamcorder>> players;
    std::vector<std::vector<SmartPtr<CountingSink>>> sinks(4);
    for (int c = 0; c < 4; ++c) {
        SmartPtr<ILUMCamcorder> camcorder = host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
        SetPath(camcorder.Get(), "/dev/shm/lum-compare-nothing");
        camcorder->put_PlayDirection(1);
        SmartPtr<IEventSource> events = camcorder.As<IEventSource>(IID_IEventSource);
        for (int s = 0; s < sinkCounts[c]; ++s) {
            sinks[static_cast<size_t>(c)].push_back(CObject<CountingSink>::New());
            events->Advise(static_cast<_ICameraEvents*>(sinks[static_cast<size_t>(c)].back().Get()), 1);
        }
        players.push_back(camcorder);
    }
    double stepNs[4] = {1e300, 1e300, 1e300, 1e300};
    for (int r = 0; r < turns; ++r) {
        for (int c = 0; c < 4; ++c) {
            ILUMCamcorder* camcorder = players[static_cast<size_t>(c)].Get();
            camcorder->put_ActiveIndex(0);
            const auto start = Clock::now();
            for (int i = 0; i < steps; ++i) camcorder->Grab(0, 0, nullptr);
            stepNs[c] = std::min(stepNs[c], SecondsSince(start) / steps * 1e9);
        }
    }
    for (int c = 0; c < 4; ++c) {
        for (const auto& sink : sinks[static_cast<size_t>(c)])
            if (sink->Count() != steps * turns) Fail("overhead: a sink missed images");
        players[static_cast<size_t>(c)].As<IEventSource>(IID_IEventSource)->Advise(nullptr, 0);
    }
    players.clear();
    NullArchive::image = nullptr;
    std::printf("{\"frames\": %d, \"us_per_frame_options0\": %.4f, \"us_per_frame_options1\": %.4f, "
                "\"steps\": %d, \"turns\": %d, \"step_ns_0\": %.2f, \"step_ns_1\": %.2f, \"step_ns_8\": %.2f, \"step_ns_64\": %.2f, "
                "\"ns_per_sink_1\": %.2f, \"ns_per_sink_8\": %.2f, \"ns_per_sink_64\": %.2f}\n",
                count, perFrame[0], perFrame[1], steps, turns, stepNs[0], stepNs[1], stepNs[2], stepNs[3],
                (stepNs[1] - stepNs[0]) / 1, (stepNs[2] - stepNs[0]) / 8, (stepNs[3] - stepNs[0]) / 64);
    lum.Reset();
    image.Reset();
    host.Stop();
    return 0;
}

// ---- The last file index -------------------------------------------------

/// The largest number among the folder's "NNNN.jpg" names, by listing it.
int LargestByListing(const fs::path& folder) {
    DIR* dir = opendir(folder.c_str());
    if (!dir) return -1;
    int largest = -1;
    while (const dirent* entry = readdir(dir)) {
        const char* name = entry->d_name;
        char* end = nullptr;
        const long number = std::strtol(name, &end, 10);
        if (end != name && std::strcmp(end, ".jpg") == 0) largest = std::max(largest, static_cast<int>(number));
    }
    closedir(dir);
    return largest;
}

int LastIndex(Args& options) {
    const fs::path folder = options.Text("folder", "");
    const int files = options.Integer("files", 10000, 10, 1000000);
    const int repeats = options.Integer("repeats", 21, 1, 10000);
    if (!options.Error().empty() || folder.empty()) Fail("lastindex: bad options");
    FrameworkHost host;
    StartHost(host);
    SmartPtr<ILUMCamcorder> camcorder = host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
    if (!camcorder) Fail("cannot create the camcorder");
    SetPath(camcorder.Get(), folder);
    camcorder->put_FileFormat(FileFormatJPEG);
    double recordSeconds = 0;
    if (LargestByListing(folder) != files - 1) {
        // Record the folder: small frames written in the camera's thread.
        fs::remove_all(folder);
        fs::create_directories(folder);
        SmartPtr<ILUMImageDIB> image = host.Create<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
        image->Create(64, 48, 8);
        SmartPtr<FeedCamera> camera = CObject<FeedCamera>::New();
        camcorder->put_RecordOptions(0);
        camcorder->Control(73, files);
        SmartPtr<ICamcorderArm> recorder = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
        const auto start = Clock::now();
        recorder->Record(camera->PrimaryUnknown());
        for (int i = 0; i < files; ++i) camera->Fire(image.Get(), i + 1);
        recordSeconds = SecondsSince(start);
        recorder->Arm(nullptr);
        // A new camcorder: the old one keeps every image of its ring.
        camcorder = host.Create<ILUMCamcorder>(L"LUMCamcorder", IID_ILUMCamcorder);
        SetPath(camcorder.Get(), folder);
        camcorder->put_FileFormat(FileFormatJPEG);
    }
    std::vector<double> component, listing;
    int32_t found = -1, listed = -1;
    for (int r = 0; r < repeats; ++r) {
        auto start = Clock::now();
        found = camcorder->GetLastFileIndex();
        component.push_back(SecondsSince(start) * 1e6);
        start = Clock::now();
        listed = LargestByListing(folder);
        listing.push_back(SecondsSince(start) * 1e6);
    }
    std::printf("{\"files\": %d, \"record_seconds\": %.4f, \"component_index\": %d, \"listed_index\": %d, "
                "\"component_us\": %.2f, \"listing_us\": %.2f}\n",
                files, recordSeconds, found, listed, Median(component), Median(listing));
    camcorder.Reset();
    host.Stop();
    return found == listed ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: compare_bench generate|record|replay|psnr|overhead|lastindex --option value ...\n");
        return 2;
    }
    const std::string command = argv[1];
    Args options(argc, argv, 2);
    if (!options.Error().empty()) Fail(options.Error());
    if (command == "generate") return Generate(options);
    if (command == "record") return Record(options);
    if (command == "replay") return Replay(options);
    if (command == "psnr") return Quality(options);
    if (command == "overhead") return Overhead(options);
    if (command == "lastindex") return LastIndex(options);
    Fail("unknown command " + command);
}
