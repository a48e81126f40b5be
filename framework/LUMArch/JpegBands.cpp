#include "framework/LUMArch/JpegBands.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "framework/LUMArch/Recycler.h"
#include "framework/LUMArch/WorkerPool.h"

namespace {

// Images smaller than this are coded on one thread: the joining would cost
// more than the second core gains.
constexpr int64_t kLeastBandedPixels = 256 * 256;
// A band is at least this many MCU rows.
constexpr int kLeastMcuRowsPerBand = 4;
// Bands (or runs of restart intervals when decoding) per thread: with
// several each, a thread that ends early takes the next one, so that the
// cores end an image close together whatever the content of each band.
constexpr int kBandsPerThread = 4;
// Coded bands kept for the next image, and the largest buffer kept.
constexpr size_t kKeptBlocks = 64;
constexpr size_t kLargestKeptBlock = size_t(64) << 20;

// Restart intervals in a whole band: the markers between them are written
// by the band's own coder, numbered from RST0 as the file's numbering goes on
// when every whole band starts at a multiple of eight intervals.
constexpr int kIntervalsPerBand = 8;

const uint8_t kEndOfImage[2] = {0xFF, 0xD9};
const uint8_t kRestartMarkers[8][2] = {{0xFF, 0xD0}, {0xFF, 0xD1}, {0xFF, 0xD2}, {0xFF, 0xD3},
                                       {0xFF, 0xD4}, {0xFF, 0xD5}, {0xFF, 0xD6}, {0xFF, 0xD7}};

// Marker codes (the byte after 0xFF).
constexpr uint8_t kSOF0 = 0xC0, kSOF1 = 0xC1, kDHT = 0xC4, kRST0 = 0xD0, kSOI = 0xD8, kEOI = 0xD9, kSOS = 0xDA,
                  kDQT = 0xDB, kDRI = 0xDD;

uint16_t Get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
void Put16(uint8_t* p, uint32_t value) {
    p[0] = static_cast<uint8_t>(value >> 8);
    p[1] = static_cast<uint8_t>(value);
}

/// The parts of a single-scan sequential JPEG: its header segments (SOI up
/// to the SOS marker), where the frame height sits in them, the SOS segment,
/// and the entropy-coded data up to the EOI marker.
struct JpegParts {
    std::vector<uint8_t> header;   // SOI and every segment before SOS, without DRI
    size_t heightAt = 0;           // offset of the frame height in `header`
    const uint8_t* scan = nullptr;  // the SOS marker and segment
    size_t scanBytes = 0;
    const uint8_t* data = nullptr;  // entropy-coded data
    size_t dataBytes = 0;
    int width = 0, height = 0, components = 0;
    int mcuWidth = 8, mcuHeight = 8;  // in pixels
    int restartInterval = 0;
    bool subsampled = false;  // a component at a lower resolution than another
};

/// Splits a baseline or extended sequential Huffman JPEG with one scan that
/// holds every component. False for anything else.
bool Split(const uint8_t* data, size_t size, JpegParts& parts) {
    if (size < 4 || data[0] != 0xFF || data[1] != kSOI) return false;
    parts.header.assign(data, data + 2);
    size_t at = 2;
    bool frame = false;
    for (;;) {
        // Fill bytes (0xFF) may precede a marker.
        while (at + 1 < size && data[at] == 0xFF && data[at + 1] == 0xFF) ++at;
        if (at + 4 > size || data[at] != 0xFF) return false;
        const uint8_t marker = data[at + 1];
        const size_t length = Get16(data + at + 2);
        if (length < 2 || at + 2 + length > size) return false;
        const uint8_t* segment = data + at;
        if (marker == kSOS) {
            if (!frame || length < 6 + 2u * parts.components || segment[4] != parts.components) return false;
            parts.scan = segment;
            parts.scanBytes = 2 + length;
            parts.data = segment + parts.scanBytes;
            // The data ends at EOI; anything after it is ignored.
            const uint8_t* end = data + size;
            while (end - parts.data >= 2 && !(end[-2] == 0xFF && end[-1] == kEOI)) --end;
            if (end - parts.data < 2) return false;
            parts.dataBytes = static_cast<size_t>(end - 2 - parts.data);
            return true;
        }
        if (marker == kSOF0 || marker == kSOF1) {
            if (length < 8 || segment[4] != 8) return false;
            parts.height = Get16(segment + 5);
            parts.width = Get16(segment + 7);
            parts.components = segment[9];
            if (parts.components < 1 || parts.components > 3 || length != 8 + 3u * parts.components) return false;
            int hMax = 1, vMax = 1;
            for (int c = 0; c < parts.components; ++c) {
                hMax = std::max(hMax, segment[11 + 3 * c] >> 4);
                vMax = std::max(vMax, segment[11 + 3 * c] & 15);
            }
            // A single-component scan is coded block by block, whatever its
            // sampling factors say.
            for (int c = 0; c < parts.components; ++c)
                if ((segment[11 + 3 * c] >> 4) != hMax || (segment[11 + 3 * c] & 15) != vMax) parts.subsampled = true;
            parts.mcuWidth = parts.components == 1 ? 8 : 8 * hMax;
            parts.mcuHeight = parts.components == 1 ? 8 : 8 * vMax;
            parts.heightAt = parts.header.size() + 5;
            frame = true;
        } else if ((marker >= 0xC2 && marker <= 0xCF && marker != kDHT && marker != 0xC8 && marker != 0xCC) ||
                   marker == kEOI) {
            return false;  // progressive, lossless or arithmetic coding
        }
        if (marker == kDRI) {
            if (length < 4) return false;
            parts.restartInterval = Get16(segment + 4);
        } else {
            parts.header.insert(parts.header.end(), segment, segment + 2 + length);
        }
        at += 2 + length;
    }
}

/// Where the decoder of one band puts its rows: a window of the image.
class BandTarget final : public ImageTarget {
public:
    BandTarget(uint8_t* pixels, int32_t stride, int32_t width, int32_t height, int32_t bits)
        : m_Pixels(pixels), m_Stride(stride), m_Width(width), m_Height(height), m_Bits(bits) {}
    HRESULT Allocate(int32_t width, int32_t height, int32_t bits, uint8_t** pixels, int32_t* stride) override {
        if (width != m_Width || height != m_Height || bits != m_Bits) return E_FAIL;
        *pixels = m_Pixels;
        *stride = m_Stride;
        return S_OK;
    }

private:
    uint8_t* m_Pixels;
    int32_t m_Stride, m_Width, m_Height, m_Bits;
};

/// How the restart intervals of an image are cut into the pieces that the
/// threads take one after the other: whole pieces of `perPiece` intervals
/// first, then, for as much work as one whole piece per thread besides the
/// first, pieces of one interval each. The short last pieces keep every
/// thread busy while the others end their whole pieces, so that the threads
/// end an image close together.
class IntervalLayout {
public:
    IntervalLayout(int intervals, int threads, int perPiece) : m_PerPiece(perPiece) {
        const int shortIntervals = std::min(intervals, (threads - 1) * perPiece);
        m_WholePieces = (intervals - shortIntervals) / perPiece;
        m_ShortPieces = intervals - m_WholePieces * perPiece;
    }
    int Pieces() const { return m_WholePieces + m_ShortPieces; }
    /// The first restart interval of `piece`.
    int FirstInterval(int piece) const {
        return piece < m_WholePieces ? piece * m_PerPiece : m_WholePieces * m_PerPiece + piece - m_WholePieces;
    }
    /// The restart intervals in `piece` (the image may end inside the last).
    int Intervals(int piece) const { return piece < m_WholePieces ? m_PerPiece : 1; }

private:
    int m_PerPiece;
    int m_WholePieces = 0;
    int m_ShortPieces = 0;
};

/// The buffers that coded bands are put in, grown to their size once.
Recycler<JpegBlock>& BandBlocks() {
    static Recycler<JpegBlock> blocks(kKeptBlocks);
    return blocks;
}

/// The DRI segment for `interval` MCUs.
void RestartSegment(uint32_t interval, uint8_t (&segment)[6]) {
    segment[0] = 0xFF;
    segment[1] = kDRI;
    segment[2] = 0;
    segment[3] = 4;
    Put16(segment + 4, interval);
}

/// Appends to a block.
class BlockOutput final : public JpegOutput {
public:
    explicit BlockOutput(JpegBlock& block) : m_Block(block) { m_Block.size = 0; }
    bool Put(const uint8_t* bytes, size_t count) override { return m_Block.Append(bytes, count); }

private:
    JpegBlock& m_Block;
};

}  // namespace

int JpegBandThreads() { return WorkerPool::Shared().Threads(); }

HRESULT EncodeJpegBands(const ImageView& image, int quality, JpegBlock& out) {
    BlockOutput output(out);
    const HRESULT hr = EncodeJpegBands(image, quality, output);
    if (hr < 0) out.size = 0;
    return hr;
}

HRESULT EncodeJpegBands(const ImageView& image, int quality, JpegOutput& output) {
    const int threads = JpegBandThreads();
    if (threads < 2 || int64_t(image.width) * image.height < kLeastBandedPixels) return S_FALSE;
    // The MCU height as the one-thread coder lays it out: colour below
    // quality 90 halves the chroma both ways.
    const int mcuHeight = image.bits != 8 && quality < 90 ? 16 : 8;
    const int mcuWidth = mcuHeight;
    const int mcuRows = (image.height + mcuHeight - 1) / mcuHeight;
    const int mcusPerRow = (image.width + mcuWidth - 1) / mcuWidth;
    const int sizingBands = std::min(threads * kBandsPerThread, mcuRows / kLeastMcuRowsPerBand);
    if (sizingBands < 2) return S_FALSE;
    // The interval is sized so that the image makes about `sizingBands`
    // whole bands of eight intervals; the last bands are one interval each
    // (see IntervalLayout).
    const int intervalMcuRows = std::max(1, (mcuRows + sizingBands - 1) / sizingBands / kIntervalsPerBand);
    const int64_t interval = int64_t(intervalMcuRows) * mcusPerRow;
    if (interval > 0xFFFF) return S_FALSE;
    const IntervalLayout layout((mcuRows + intervalMcuRows - 1) / intervalMcuRows, threads, kIntervalsPerBand);
    const int intervalRows = intervalMcuRows * mcuHeight;
    const int count = layout.Pieces();

    std::vector<std::unique_ptr<JpegBlock>> coded;
    try {
        for (int band = 0; band < count; ++band) coded.push_back(BandBlocks().Take());
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }

    // Puts one coded band: band 0 brings the header (with the whole image's
    // height and the restart interval), every later one a restart marker,
    // the last one the end of the image.
    auto putBand = [&](int band) {
        const JpegBlock& block = *coded[static_cast<size_t>(band)];
        JpegParts parts;
        if (!Split(block.data, block.size, parts)) return false;
        bool ok = true;
        if (band == 0) {
            Put16(parts.header.data() + parts.heightAt, static_cast<uint32_t>(image.height));
            uint8_t restart[6];
            RestartSegment(static_cast<uint32_t>(interval), restart);
            ok = output.Put(parts.header.data(), parts.header.size()) && output.Put(restart, sizeof restart) &&
                 output.Put(parts.scan, parts.scanBytes);
        } else {
            ok = output.Put(kRestartMarkers[(layout.FirstInterval(band) - 1) % 8], 2);
        }
        ok = ok && output.Put(parts.data, parts.dataBytes);
        if (band == count - 1) ok = ok && output.Put(kEndOfImage, sizeof kEndOfImage);
        return ok;
    };

    // Whichever thread codes a band that completes the run of coded bands
    // puts the run out; the others go on coding meanwhile.
    std::mutex order;
    std::vector<char> done(static_cast<size_t>(count), 0);
    int nextToPut = 0;
    bool putting = false;
    std::atomic<bool> failed{false};
    WorkerPool::Shared().Run(count, [&](int band) {
        bool ok = false;
        if (!failed.load(std::memory_order_relaxed)) {
            const int top = layout.FirstInterval(band) * intervalRows;
            ImageView part = image;
            part.pixels = image.Row(top);
            part.height = std::min(layout.Intervals(band) * intervalRows, image.height - top);
            ok = EncodeJpegPlainToMemory(part, quality, *coded[static_cast<size_t>(band)], intervalMcuRows) >= 0;
        }
        std::unique_lock<std::mutex> hold(order);
        if (!ok) failed = true;
        done[static_cast<size_t>(band)] = 1;
        if (putting) return;  // the thread putting bands out takes this one too
        putting = true;
        while (!failed && nextToPut < count && done[static_cast<size_t>(nextToPut)]) {
            const int next = nextToPut;
            hold.unlock();
            const bool put = putBand(next);
            hold.lock();
            if (!put) failed = true;
            ++nextToPut;
        }
        putting = false;
    });

    for (std::unique_ptr<JpegBlock>& block : coded)
        if (block->capacity <= kLargestKeptBlock) BandBlocks().Give(std::move(block));
    return failed || nextToPut != count ? E_FAIL : S_OK;
}

HRESULT DecodeJpegBands(const uint8_t* data, size_t size, ImageTarget& target) {
    JpegParts parts;
    const int threads = JpegBandThreads();
    // Subsampled colour is smoothed across rows when it is decoded, so bands
    // decoded apart would differ at their edges: such files are decoded whole.
    if (threads < 2 || !Split(data, size, parts) || parts.subsampled || parts.restartInterval == 0 ||
        parts.width == 0 || parts.height == 0 || int64_t(parts.width) * parts.height < kLeastBandedPixels)
        return S_FALSE;
    const int mcusPerRow = (parts.width + parts.mcuWidth - 1) / parts.mcuWidth;
    if (parts.restartInterval % mcusPerRow != 0) return S_FALSE;
    const int intervalRows = parts.restartInterval / mcusPerRow * parts.mcuHeight;
    const int intervals = (parts.height + intervalRows - 1) / intervalRows;
    if (intervals < 2) return S_FALSE;

    // The pieces between restart markers, in order: one per interval. Coded
    // data holds 0xFF only before a stuffed zero, a fill byte or a marker,
    // so the search jumps from one 0xFF to the next. Only cleanly coded data
    // is decoded in bands: fill bytes or stray markers between the restart
    // markers are damage that the library's decoder makes good in ways that
    // depend on how much input it holds at once, so such a file is decoded
    // whole, to the pixels it has always given.
    std::vector<JpegChunk> pieces;
    pieces.reserve(static_cast<size_t>(intervals));
    const uint8_t* start = parts.data;
    const uint8_t* const end = parts.data + parts.dataBytes;
    if (parts.dataBytes && end[-1] == 0xFF) return S_FALSE;
    for (const uint8_t* p = start; p + 1 < end;) {
        p = static_cast<const uint8_t*>(std::memchr(p, 0xFF, static_cast<size_t>(end - 1 - p)));
        if (!p) break;
        if (p[1] == 0x00) {
            p += 2;
            continue;
        }
        // Anything but the next restart marker ends the banded decoding.
        if (p[1] != kRST0 + pieces.size() % 8 || pieces.size() + 1 >= static_cast<size_t>(intervals)) return S_FALSE;
        pieces.push_back({start, static_cast<size_t>(p - start)});
        start = p + 2;
        p = start;
    }
    pieces.push_back({start, static_cast<size_t>(end - start)});
    if (static_cast<int>(pieces.size()) != intervals) return S_FALSE;

    const int32_t bits = parts.components == 1 ? 8 : 24;
    uint8_t* pixels = nullptr;
    int32_t stride = 0;
    const HRESULT allocated = target.Allocate(parts.width, parts.height, bits, &pixels, &stride);
    if (allocated != S_OK) return allocated == S_FALSE ? S_OK : allocated;

    // Each interval is decoded as an image of its own, without restart
    // markers, which the library decodes on its fast path; a thread takes
    // runs of consecutive intervals, and single intervals last.
    const int perRun = (intervals + threads * kBandsPerThread - 1) / (threads * kBandsPerThread);
    const IntervalLayout layout(intervals, threads, perRun);
    std::atomic<bool> failed{false};
    WorkerPool::Shared().Run(layout.Pieces(), [&](int run) noexcept {
        std::vector<uint8_t> header;
        try {
            header = parts.header;
        } catch (const std::bad_alloc&) {
            failed = true;
            return;
        }
        const int first = layout.FirstInterval(run);
        for (int i = first; i < first + layout.Intervals(run) && !failed.load(std::memory_order_relaxed); ++i) {
            const int top = i * intervalRows;
            const int rows = std::min(intervalRows, parts.height - top);
            Put16(header.data() + parts.heightAt, static_cast<uint32_t>(rows));
            const JpegChunk chunks[] = {{header.data(), header.size()},
                                        {parts.scan, parts.scanBytes},
                                        pieces[static_cast<size_t>(i)],
                                        {kEndOfImage, sizeof kEndOfImage}};
            BandTarget window(pixels + int64_t(stride) * top, stride, parts.width, rows, bits);
            if (DecodeJpegChunks(chunks, std::size(chunks), window) < 0) failed = true;
        }
    });
    return failed ? E_FAIL : S_OK;
}
