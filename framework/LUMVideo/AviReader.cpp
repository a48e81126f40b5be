#include "framework/LUMVideo/AviReader.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <new>
#include <unordered_set>

#include "framework/LUMImage/Pixels.h"
#include "framework/LUMVideo/AviFormat.h"
#include "framework/LUMVideo/FrameStore.h"

using namespace avi;

namespace {

// Index entries read per block.
constexpr size_t kEntryBlock = 4096;
// RIFF parts looked at behind the first part, and standard indexes taken
// from a super index (64 Ki parts of up to 1 GiB: far beyond real files).
constexpr int kMaxParts = 1 << 16;

// Reads of the file that never reach beyond its end.
class Source {
public:
    Source(int file, uint64_t size) : m_File(file), m_Size(size) {}
    uint64_t Size() const { return m_Size; }
    bool Read(uint64_t offset, void* data, size_t size) const {
        return offset <= m_Size && size <= m_Size - offset && ReadFully(m_File, offset, data, size);
    }

private:
    int m_File;
    uint64_t m_Size;
};

struct Chunk {
    uint32_t code = 0;
    uint32_t size = 0;
    uint64_t body = 0;  // offset of the body
    uint64_t Next() const { return body + Padded(size); }
};

// The chunk whose header is at `position`, if the header lies before `end`.
bool ReadChunk(const Source& source, uint64_t position, uint64_t end, Chunk& chunk) {
    uint8_t head[8];
    if (position + 8 > end || !source.Read(position, head, 8)) return false;
    chunk.code = Get32(head);
    chunk.size = Get32(head + 4);
    chunk.body = position + 8;
    return true;
}

// The type of a LIST chunk; 0 when it has none.
uint32_t ListType(const Source& source, const Chunk& chunk) {
    uint8_t type[4];
    if (chunk.size < 4 || !source.Read(chunk.body, type, 4)) return 0;
    return Get32(type);
}

bool IsJpegCoding(uint32_t code) {
    static const uint32_t kCodes[] = {FourCC("MJPG"), FourCC("mjpg"), FourCC("AVRn"), FourCC("AVDJ"),
                                      FourCC("LJPG"), FourCC("JPGL"), FourCC("dmb1"), FourCC("JPEG"),
                                      FourCC("jpeg"), FourCC("IJPG"), FourCC("QIVG"), FourCC("SLMJ"),
                                      FourCC("CJPG")};
    return std::find(std::begin(kCodes), std::end(kCodes), code) != std::end(kCodes);
}

bool IsRawCoding(uint32_t code) {
    return code == 0 || code == FourCC("DIB ") || code == FourCC("RGB ") || code == FourCC("RAW ");
}

// Gray frames named by a code: a single plane of bytes, top-down, rows not
// padded.
bool IsGrayCoding(uint32_t code) {
    return code == FourCC("Y800") || code == FourCC("Y8  ") || code == FourCC("GREY");
}

// What the walk over the file's chunks found.
struct Found {
    bool video = false;     // the first video stream was seen
    bool supported = false; // and its coding can be read
    AviVideo format;
    Chunk superIndex;
    bool hasSuperIndex = false;
    uint32_t microseconds = 0;  // per frame, from avih
    uint64_t firstMovi = 0;     // offset of the first "movi" code, 0 when none
    std::vector<std::pair<uint64_t, uint64_t>> movies;  // chunk range of each movi list
    size_t firstPartMovies = 0;                          // of those, in the "AVI " part
    Chunk legacyIndex;
    bool hasLegacyIndex = false;
};

// The rate of a stream header's rate / scale, rounded, at least 1; 0 when
// the header gives none.
int32_t RateOf(uint32_t rate, uint32_t scale) {
    if (rate == 0 || scale == 0) return 0;
    const double value = std::round(double(rate) / double(scale));
    return static_cast<int32_t>(std::clamp(value, 1.0, double(INT32_MAX)));
}

// The video format from a "strf" body (a BITMAPINFOHEADER and, for 8 bits,
// its palette).
bool ReadVideoFormat(const Source& source, const Chunk& format, uint32_t handler, AviVideo& video) {
    uint8_t header[kBitmapHeaderBytes];
    if (format.size < kBitmapHeaderBytes || !source.Read(format.body, header, sizeof header)) return false;
    const uint32_t headerSize = Get32(header);
    const int64_t width = static_cast<int32_t>(Get32(header + 4));
    const int64_t height = static_cast<int32_t>(Get32(header + 8));
    const uint16_t bits = Get16(header + 14);
    const uint32_t compression = Get32(header + 16);
    const uint32_t colours = Get32(header + 32);
    if (IsJpegCoding(compression) || (!IsRawCoding(compression) && IsJpegCoding(handler))) {
        video.coding = AviCoding::Jpeg;
        return true;
    }
    const bool gray = IsGrayCoding(compression);
    if (!gray && (!IsRawCoding(compression) || (bits != 8 && bits != 24 && bits != 32))) return false;
    const int64_t rows = height < 0 ? -height : height;
    const int64_t rowBytes = gray ? width : (width * bits + 31) / 32 * 4;
    // The size limit is checked by division: the header's width and height
    // may be such that their product does not fit 64 bits.
    if (width <= 0 || rows <= 0 || width > INT32_MAX || rows > INT32_MAX || rows > CPixels::kMaxBytes / rowBytes)
        return false;
    video.coding = AviCoding::Raw;
    video.width = static_cast<int32_t>(width);
    video.height = static_cast<int32_t>(rows);
    video.topDown = gray || height < 0;
    video.bits = gray ? 8 : bits;
    video.rowBytes = rowBytes;
    if (gray) return true;
    if (bits == 8 && headerSize >= kBitmapHeaderBytes && headerSize < format.size) {
        const uint32_t room = (format.size - headerSize) / 4;
        const uint32_t count = std::min({colours ? colours : 256u, 256u, room});
        video.palette.resize(size_t(count) * 4);
        if (!source.Read(format.body + headerSize, video.palette.data(), video.palette.size()))
            video.palette.clear();
    }
    return true;
}

void ReadStreamList(const Source& source, uint64_t position, uint64_t end, int32_t stream, Found& found) {
    Chunk chunk, header, format, index;
    bool hasHeader = false, hasFormat = false, hasIndex = false;
    while (ReadChunk(source, position, end, chunk)) {
        if (chunk.code == kStreamHeader) header = chunk, hasHeader = true;
        if (chunk.code == kStreamFormat) format = chunk, hasFormat = true;
        if (chunk.code == kSuperIndex) index = chunk, hasIndex = true;
        position = chunk.Next();
    }
    uint8_t fields[28];
    if (!hasHeader || header.size < sizeof fields || !source.Read(header.body, fields, sizeof fields)) return;
    if (Get32(fields) != kVideoType || found.video) return;
    // The first video stream is the one read, or none.
    found.video = true;
    if (!hasFormat || stream > 99) return;
    AviVideo& video = found.format;
    video.stream = stream;
    video.rate = RateOf(Get32(fields + 24), Get32(fields + 20));
    found.supported = ReadVideoFormat(source, format, Get32(fields + 4), video);
    if (hasIndex) found.superIndex = index, found.hasSuperIndex = true;
}

void ReadHeaderList(const Source& source, uint64_t position, uint64_t end, Found& found) {
    Chunk chunk;
    int32_t stream = 0;
    while (ReadChunk(source, position, end, chunk)) {
        const uint64_t chunkEnd = std::min(chunk.body + chunk.size, end);
        if (chunk.code == kMainHeader && chunk.size >= 4) {
            uint8_t field[4];
            if (source.Read(chunk.body, field, 4)) found.microseconds = Get32(field);
        } else if (chunk.code == kList && ListType(source, chunk) == kStreamList) {
            ReadStreamList(source, chunk.body + 4, chunkEnd, stream++, found);
        }
        position = chunk.Next();
    }
}

// The chunks of one RIFF part: the header list (first part only), the movi
// lists and the idx1 index (first part only).
void ReadPart(const Source& source, uint64_t position, uint64_t end, bool first, Found& found) {
    Chunk chunk;
    while (ReadChunk(source, position, end, chunk)) {
        const uint64_t chunkEnd = std::min(chunk.body + chunk.size, end);
        if (chunk.code == kList) {
            const uint32_t type = ListType(source, chunk);
            if (first && type == kHeaderList) ReadHeaderList(source, chunk.body + 4, chunkEnd, found);
            if (type == kMovieList) {
                if (found.firstMovi == 0) found.firstMovi = chunk.body;
                found.movies.emplace_back(chunk.body + 4, chunkEnd);
            }
        } else if (first && chunk.code == kLegacyIndex && !found.hasLegacyIndex) {
            found.legacyIndex = chunk;
            found.legacyIndex.size = static_cast<uint32_t>(std::min<uint64_t>(chunk.size, end - chunk.body));
            found.hasLegacyIndex = true;
        }
        position = chunk.Next();
    }
}

// Collects frame references of the chosen stream, leaving out empty frames
// and those that do not lie wholly inside the file.
class Collector {
public:
    Collector(const Source& source, int32_t stream, std::vector<AviFrameRef>& frames)
        : m_Source(source), m_Frames(frames) {
        m_Digits = StreamChunk(stream, 0, 0) & 0xFFFF;
        // No file holds more frames than it holds chunk headers.
        m_Limit = std::min<uint64_t>(INT32_MAX, source.Size() / 8);
    }
    /// Whether `code` names a frame chunk of the stream ("##dc", "##db").
    bool Ours(uint32_t code) const {
        const uint32_t suffix = code >> 16;
        return (code & 0xFFFF) == m_Digits && (suffix == ('d' | 'c' << 8) || suffix == ('d' | 'b' << 8));
    }
    /// False once no more frames can be taken.
    bool Add(uint64_t offset, uint32_t size) {
        if (m_Frames.size() >= m_Limit) return false;
        if (size == 0 || offset < 8 || offset > m_Source.Size() || size > m_Source.Size() - offset) return true;
        m_Frames.push_back(AviFrameRef{offset, size});
        return true;
    }

private:
    const Source& m_Source;
    std::vector<AviFrameRef>& m_Frames;
    uint32_t m_Digits = 0;
    uint64_t m_Limit = 0;
};

// A standard index ("ix##", or "indx" holding frames directly): entries of
// data offsets from a base, and sizes whose top bit marks non-key frames.
// False once the collector takes no more frames.
bool ReadStandardIndex(const Source& source, const Chunk& chunk, Collector& collector) {
    uint8_t header[kIndexHeaderBytes];
    if (chunk.size < kIndexHeaderBytes || !source.Read(chunk.body, header, sizeof header)) return true;
    const uint32_t entryBytes = 4u * Get16(header);
    if (header[3] != kIndexOfChunks || entryBytes < kStandardEntryBytes || !collector.Ours(Get32(header + 8)))
        return true;
    const uint64_t base = Get64(header + 12);
    const uint64_t first = chunk.body + kIndexHeaderBytes;
    if (first > source.Size()) return true;
    uint64_t count = std::min<uint64_t>(Get32(header + 4), (chunk.size - kIndexHeaderBytes) / entryBytes);
    count = std::min<uint64_t>(count, (source.Size() - first) / entryBytes);
    std::vector<uint8_t> block(kEntryBlock * entryBytes);
    for (uint64_t done = 0; done < count;) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(kEntryBlock, count - done));
        if (!source.Read(first + done * entryBytes, block.data(), n * entryBytes)) return true;
        for (size_t k = 0; k < n; ++k) {
            const uint8_t* entry = block.data() + k * entryBytes;
            if (!collector.Add(base + Get32(entry), Get32(entry + 4) & ~kNotKeyFrame)) return false;
        }
        done += n;
    }
    return true;
}

// The OpenDML super index: the standard index chunks in order.
void ReadSuperIndex(const Source& source, const Chunk& chunk, Collector& collector) {
    uint8_t header[kIndexHeaderBytes];
    if (chunk.size < kIndexHeaderBytes || !source.Read(chunk.body, header, sizeof header)) return;
    if (header[3] == kIndexOfChunks) {
        ReadStandardIndex(source, chunk, collector);
        return;
    }
    if (header[3] != kIndexOfIndexes || Get16(header) != 4 || !collector.Ours(Get32(header + 8))) return;
    const uint64_t first = chunk.body + kIndexHeaderBytes;
    const uint64_t count = std::min<uint64_t>({Get32(header + 4), (chunk.size - kIndexHeaderBytes) / kSuperEntryBytes,
                                               uint64_t(kMaxParts)});
    std::unordered_set<uint64_t> seen;  // each index chunk is read once
    for (uint64_t i = 0; i < count; ++i) {
        uint8_t entry[kSuperEntryBytes];
        if (!source.Read(first + i * kSuperEntryBytes, entry, sizeof entry)) return;
        const uint64_t position = Get64(entry);
        Chunk index;
        if (!seen.insert(position).second || !ReadChunk(source, position, source.Size(), index)) continue;
        if (!ReadStandardIndex(source, index, collector)) return;
    }
}

// idx1: entries of (code, flags, offset, size). Offsets count from the
// first "movi" code in most files and from the file's start in some; the
// first entry tells which.
void ReadLegacyIndex(const Source& source, const Found& found, Collector& collector) {
    const Chunk& chunk = found.legacyIndex;
    const uint64_t count = chunk.size / kLegacyEntryBytes;
    std::vector<uint8_t> block(kEntryBlock * kLegacyEntryBytes);
    bool baseKnown = false;
    uint64_t base = found.firstMovi;
    for (uint64_t done = 0; done < count;) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(kEntryBlock, count - done));
        if (!source.Read(chunk.body + done * kLegacyEntryBytes, block.data(), n * kLegacyEntryBytes)) return;
        for (size_t k = 0; k < n; ++k) {
            const uint8_t* entry = block.data() + k * kLegacyEntryBytes;
            const uint32_t code = Get32(entry), offset = Get32(entry + 8), size = Get32(entry + 12);
            if (!collector.Ours(code) || size == 0) continue;
            if (!baseKnown) {
                baseKnown = true;
                for (uint64_t candidate : {found.firstMovi, uint64_t(0)}) {
                    Chunk probe;
                    if (ReadChunk(source, candidate + offset, source.Size(), probe) && probe.code == code) {
                        base = candidate;
                        break;
                    }
                }
            }
            if (!collector.Add(base + offset + 8, size)) return;
        }
        done += n;
    }
}

// The frame chunks of the movi lists from number `from` on, in file order,
// inside "rec " lists too: for files without a usable index, and for the
// extension parts that idx1 does not cover. A frame cut off by the file's
// end is left out.
void ScanMovies(const Source& source, const Found& found, size_t from, Collector& collector) {
    for (size_t m = from; m < found.movies.size(); ++m) {
        const auto [start, end] = found.movies[m];
        uint64_t position = start;
        Chunk chunk;
        while (ReadChunk(source, position, end, chunk)) {
            if (chunk.code == kList && ListType(source, chunk) == kRecordList) {
                position = chunk.body + 4;
                continue;
            }
            if (collector.Ours(chunk.code)) {
                if (chunk.size > source.Size() - chunk.body) break;
                if (!collector.Add(chunk.body, chunk.size)) return;
            }
            position = chunk.Next();
        }
    }
}

HRESULT Read(const Source& source, AviVideo& video) {
    uint8_t head[12];
    if (!source.Read(0, head, sizeof head) || Get32(head) != kRiff || Get32(head + 8) != kFormAvi) return E_FAIL;
    // A size that is missing or beyond the file (a cut-off recording) counts
    // as reaching the file's end.
    const uint32_t riffSize = Get32(head + 4);
    const uint64_t firstEnd = riffSize < 4 ? source.Size() : std::min<uint64_t>(8 + Padded(riffSize), source.Size());
    Found found;
    ReadPart(source, 12, firstEnd, true, found);
    if (!found.supported) return E_FAIL;
    found.firstPartMovies = found.movies.size();

    uint64_t position = firstEnd;
    Chunk part;
    for (int parts = 0; parts < kMaxParts && ReadChunk(source, position, source.Size(), part); ++parts) {
        if (part.code != kRiff) break;
        if (ListType(source, part) == kFormAvix)
            ReadPart(source, part.body + 4, std::min(part.body + part.size, source.Size()), false, found);
        position = part.Next();
    }

    AviVideo& format = found.format;
    Collector collector(source, format.stream, format.frames);
    if (found.hasSuperIndex) ReadSuperIndex(source, found.superIndex, collector);
    if (format.frames.empty() && found.hasLegacyIndex) {
        // idx1 covers the "AVI " part only; frames of extension parts of an
        // OpenDML file without a usable super index are found by walking.
        ReadLegacyIndex(source, found, collector);
        if (!format.frames.empty()) ScanMovies(source, found, found.firstPartMovies, collector);
    }
    if (format.frames.empty()) ScanMovies(source, found, 0, collector);
    if (format.frames.empty()) return E_FAIL;

    if (format.rate == 0 && found.microseconds > 0)
        format.rate = std::max<int32_t>(1, static_cast<int32_t>(std::lround(1e6 / found.microseconds)));
    if (format.rate == 0) format.rate = 15;
    format.frames.shrink_to_fit();
    video = std::move(format);
    return S_OK;
}

}  // namespace

HRESULT ReadAviStructure(int file, uint64_t fileSize, AviVideo& video) {
    try {
        return Read(Source(file, fileSize), video);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
}
