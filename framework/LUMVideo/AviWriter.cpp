#include "framework/LUMVideo/AviWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <vector>

#include "framework/LUMVideo/AviFormat.h"

using namespace avi;

namespace {

// Bytes collected before one write to the target.
constexpr size_t kWriteBuffer = size_t(8) << 20;

// Fixed sizes of the layout, chunk headers included.
constexpr uint64_t kRiffHeader = 12;  // "RIFF", size, form
constexpr uint64_t kListHeader = 12;  // "LIST", size, type
constexpr uint64_t kChunkHeader = 8;  // code, size

struct Part {
    size_t first = 0;       // index of its first frame
    size_t count = 0;       // frames in it
    uint64_t start = 0;     // file offset of its "RIFF"
    uint64_t bytes = 0;     // its whole size
    uint64_t moviBytes = 0; // body of its "movi" list, the type included
};

struct Layout {
    bool openDml = false;
    uint32_t superCapacity = 0;  // entries room in "indx"
    uint64_t headerListBytes = 0;
    std::vector<Part> parts;
    uint64_t total = 0;
};

uint64_t StandardIndexBytes(size_t frames) { return kChunkHeader + kIndexHeaderBytes + kStandardEntryBytes * frames; }
uint64_t LegacyIndexBytes(size_t frames) { return kChunkHeader + kLegacyEntryBytes * frames; }
uint64_t FrameChunkBytes(uint32_t size) { return kChunkHeader + Padded(size); }

// The stream list's body after its type: strh, strf and (OpenDML) indx.
uint64_t StreamListContent(bool openDml, uint32_t superCapacity) {
    uint64_t content = kChunkHeader + kStreamHeaderBytes + kChunkHeader + kBitmapHeaderBytes;
    if (openDml) content += kChunkHeader + kIndexHeaderBytes + uint64_t(kSuperEntryBytes) * superCapacity;
    return content;
}

uint64_t HeaderListBytes(bool openDml, uint32_t superCapacity) {
    uint64_t list = kListHeader + kChunkHeader + kMainHeaderBytes;
    list += kListHeader + StreamListContent(openDml, superCapacity);
    if (openDml) list += kListHeader + kChunkHeader + kOdmlHeaderBytes;
    return list;
}

// Fills parts greedily, each taking at least one frame. False when a plain
// file (one part) cannot hold every frame under the limit.
bool Plan(const std::vector<CFrameStore::Entry>& frames, bool openDml, uint32_t superCapacity, uint64_t limit,
          Layout& layout) {
    layout.openDml = openDml;
    layout.superCapacity = superCapacity;
    layout.headerListBytes = HeaderListBytes(openDml, superCapacity);
    layout.parts.clear();
    uint64_t position = 0;
    size_t i = 0;
    while (i < frames.size()) {
        const bool first = layout.parts.empty();
        Part part;
        part.first = i;
        part.start = position;
        // Each frame costs its chunk, plus an entry in ix00 and, in the
        // first part, one in idx1.
        const uint64_t perFrame = (openDml ? kStandardEntryBytes : 0) + (first ? kLegacyEntryBytes : 0);
        uint64_t bytes = kRiffHeader + (first ? layout.headerListBytes : 0) + kListHeader +
                         (openDml ? StandardIndexBytes(0) : 0) + (first ? LegacyIndexBytes(0) : 0);
        part.moviBytes = 4 + (openDml ? StandardIndexBytes(0) : 0);
        do {
            const uint64_t chunk = FrameChunkBytes(frames[i].size);
            bytes += chunk + perFrame;
            part.moviBytes += chunk + (openDml ? kStandardEntryBytes : 0);
            ++part.count;
            ++i;
        } while (i < frames.size() && bytes + FrameChunkBytes(frames[i].size) + perFrame <= limit);
        part.bytes = bytes;
        position += bytes;
        layout.parts.push_back(part);
        if (!openDml && i < frames.size()) return false;
    }
    layout.total = position;
    return true;
}

Layout PlanFile(const std::vector<CFrameStore::Entry>& frames, uint64_t limit) {
    Layout layout;
    if (Plan(frames, false, 0, limit, layout)) return layout;
    // The super index names every part, and its size moves the first
    // part's boundary: grow its room until the parts fit in it.
    uint32_t capacity = 1;
    for (;;) {
        Plan(frames, true, capacity, limit, layout);
        if (layout.parts.size() <= capacity) return layout;
        capacity = static_cast<uint32_t>(layout.parts.size());
    }
}

// Sequential output through one large buffer.
class Output {
public:
    explicit Output(int file) : m_File(file) { m_Buffer.reserve(kWriteBuffer); }

    uint64_t Position() const { return m_Flushed + m_Buffer.size(); }
    bool Ok() const { return m_Ok; }

    void Bytes(const void* data, size_t size) {
        const auto* bytes = static_cast<const uint8_t*>(data);
        if (m_Buffer.size() + size > kWriteBuffer) Flush();
        if (size >= kWriteBuffer) {
            Direct(bytes, size);
            return;
        }
        m_Buffer.insert(m_Buffer.end(), bytes, bytes + size);
    }
    void U16(uint32_t value) {
        uint8_t b[2];
        Put16(b, static_cast<uint16_t>(value));
        Bytes(b, 2);
    }
    void U32(uint32_t value) {
        uint8_t b[4];
        Put32(b, value);
        Bytes(b, 4);
    }
    void U64(uint64_t value) {
        uint8_t b[8];
        Put64(b, value);
        Bytes(b, 8);
    }
    void Zeros(size_t count) {
        static const uint8_t kZeros[256] = {};
        while (count > 0) {
            const size_t piece = std::min(count, sizeof kZeros);
            Bytes(kZeros, piece);
            count -= piece;
        }
    }
    void Chunk(uint32_t code, uint64_t size) {
        U32(code);
        U32(static_cast<uint32_t>(size));
    }
    void List(uint32_t code, uint64_t size, uint32_t type) {
        Chunk(code, size);
        U32(type);
    }

    /// Copies `size` bytes at `offset` of `source` into the output.
    void CopyFrom(int source, uint64_t offset, size_t size) {
        while (m_Ok && size > 0) {
            if (m_Buffer.size() == kWriteBuffer) Flush();
            const size_t piece = std::min(size, kWriteBuffer - m_Buffer.size());
            const size_t used = m_Buffer.size();
            m_Buffer.resize(used + piece);
            if (!ReadFully(source, offset, m_Buffer.data() + used, piece)) {
                m_Ok = false;
                return;
            }
            offset += piece;
            size -= piece;
        }
    }

    void Flush() {
        if (m_Buffer.empty()) return;
        Direct(m_Buffer.data(), m_Buffer.size());
        m_Buffer.clear();
    }

private:
    void Direct(const uint8_t* data, size_t size) {
        if (m_Ok && !WriteFully(m_File, m_Flushed, data, size)) m_Ok = false;
        m_Flushed += size;
    }

    int m_File;
    std::vector<uint8_t> m_Buffer;
    uint64_t m_Flushed = 0;
    bool m_Ok = true;
};

uint32_t Clamp32(uint64_t value) { return static_cast<uint32_t>(std::min<uint64_t>(value, UINT32_MAX)); }

void WriteHeaderList(Output& out, const Layout& layout, const AviWriteSettings& settings,
                     const std::vector<CFrameStore::Entry>& frames) {
    uint32_t largest = 0;
    for (const CFrameStore::Entry& frame : frames) largest = std::max(largest, frame.size);
    const uint32_t rate = static_cast<uint32_t>(std::max(settings.rate, 1));
    const uint32_t bufferSize = Clamp32(FrameChunkBytes(largest));
    const uint32_t total = static_cast<uint32_t>(frames.size());
    const uint32_t width = static_cast<uint32_t>(settings.width), height = static_cast<uint32_t>(settings.height);

    out.List(kList, layout.headerListBytes - kChunkHeader, kHeaderList);
    out.Chunk(kMainHeader, kMainHeaderBytes);
    out.U32((1000000 + rate / 2) / rate);          // microseconds per frame
    out.U32(Clamp32(uint64_t(largest) * rate));    // bytes per second at most
    out.U32(0);                                    // padding granularity
    out.U32(kHasIndex | kIsInterleaved);
    // OpenDML: the frames of the first part here, the whole count in dmlh.
    out.U32(layout.openDml ? static_cast<uint32_t>(layout.parts[0].count) : total);
    out.U32(0);  // initial frames
    out.U32(1);  // streams
    out.U32(bufferSize);
    out.U32(width);
    out.U32(height);
    out.Zeros(16);

    out.List(kList, 4 + StreamListContent(layout.openDml, layout.superCapacity), kStreamList);
    out.Chunk(kStreamHeader, kStreamHeaderBytes);
    out.U32(kVideoType);
    out.U32(kMjpg);
    out.U32(0);  // flags
    out.U16(0);  // priority
    out.U16(0);  // language
    out.U32(0);  // initial frames
    out.U32(1);  // scale: rate / scale = frames per second
    out.U32(rate);
    out.U32(0);  // start
    out.U32(total);
    out.U32(bufferSize);
    out.U32(UINT32_MAX);  // quality: default
    out.U32(0);           // sample size: varies
    out.U16(0);           // frame rectangle: left, top, right, bottom
    out.U16(0);
    out.U16(width);
    out.U16(height);

    out.Chunk(kStreamFormat, kBitmapHeaderBytes);
    out.U32(kBitmapHeaderBytes);
    out.U32(width);
    out.U32(height);
    out.U16(1);   // planes
    out.U16(24);  // bits of the decoded pixels, as players expect of MJPG
    out.U32(kMjpg);
    out.U32(Clamp32(uint64_t(width) * height * 3));
    out.Zeros(16);

    if (layout.openDml) {
        out.Chunk(kSuperIndex, kIndexHeaderBytes + uint64_t(kSuperEntryBytes) * layout.superCapacity);
        out.U16(4);  // longs per entry
        out.Bytes("\0", 1);  // sub-type
        out.Bytes(&kIndexOfIndexes, 1);
        out.U32(static_cast<uint32_t>(layout.parts.size()));
        out.U32(kFirstVideoChunk);
        out.Zeros(12);
        for (size_t p = 0; p < layout.parts.size(); ++p) {
            const Part& part = layout.parts[p];
            const uint64_t indexBytes = StandardIndexBytes(part.count);
            const uint64_t legacy = p == 0 ? LegacyIndexBytes(part.count) : 0;
            out.U64(part.start + part.bytes - legacy - indexBytes);
            out.U32(static_cast<uint32_t>(indexBytes));
            out.U32(static_cast<uint32_t>(part.count));
        }
        out.Zeros(size_t(kSuperEntryBytes) * (layout.superCapacity - layout.parts.size()));

        out.List(kList, 4 + kChunkHeader + kOdmlHeaderBytes, kOdmlList);
        out.Chunk(kOdmlHeader, kOdmlHeaderBytes);
        out.U32(total);
        out.Zeros(kOdmlHeaderBytes - 4);
    }
}

HRESULT WriteAll(int file, const Layout& layout, const AviWriteSettings& settings, CFrameStore& store) {
    const std::vector<CFrameStore::Entry>& frames = store.Entries();
    Output out(file);
    // Offsets of the part's frame chunks from its "movi" code, for both
    // indexes.
    std::vector<uint32_t> offsets;
    for (size_t p = 0; p < layout.parts.size() && out.Ok(); ++p) {
        const Part& part = layout.parts[p];
        out.List(kRiff, part.bytes - kChunkHeader, p == 0 ? kFormAvi : kFormAvix);
        if (p == 0) WriteHeaderList(out, layout, settings, frames);
        out.List(kList, part.moviBytes, kMovieList);
        const uint64_t movi = out.Position() - 4;
        offsets.clear();
        offsets.reserve(part.count);
        for (size_t i = part.first; i < part.first + part.count && out.Ok(); ++i) {
            offsets.push_back(static_cast<uint32_t>(out.Position() - movi));
            out.Chunk(kFirstVideoChunk, frames[i].size);
            out.CopyFrom(store.Descriptor(), frames[i].offset, frames[i].size);
            if (frames[i].size & 1) out.Zeros(1);
        }
        if (layout.openDml) {
            out.Chunk(kFirstStandardIndex, StandardIndexBytes(part.count) - kChunkHeader);
            out.U16(2);  // longs per entry
            out.Bytes("\0", 1);
            out.Bytes(&kIndexOfChunks, 1);
            out.U32(static_cast<uint32_t>(part.count));
            out.U32(kFirstVideoChunk);
            out.U64(movi);  // base: entries count from the "movi" code
            out.U32(0);
            for (size_t k = 0; k < part.count; ++k) {
                out.U32(offsets[k] + static_cast<uint32_t>(kChunkHeader));  // the frame's data
                out.U32(frames[part.first + k].size);                       // key frame: top bit clear
            }
        }
        if (p == 0) {
            out.Chunk(kLegacyIndex, LegacyIndexBytes(part.count) - kChunkHeader);
            for (size_t k = 0; k < part.count; ++k) {
                out.U32(kFirstVideoChunk);
                out.U32(kKeyFrame);
                out.U32(offsets[k]);
                out.U32(frames[part.first + k].size);
            }
        }
    }
    out.Flush();
    // The layout and what was written must agree to the byte.
    return out.Ok() && out.Position() == layout.total ? S_OK : E_FAIL;
}

}  // namespace

HRESULT WriteMjpegAvi(const std::string& path, const AviWriteSettings& settings, CFrameStore& store) {
    if (store.Count() == 0 || store.Flush() < 0) return E_FAIL;
    const uint64_t limit = settings.partLimit ? settings.partLimit : kAviPartLimit;
    HRESULT hr = E_FAIL;
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0) return E_FAIL;
    try {
        hr = WriteAll(file, PlanFile(store.Entries(), limit), settings, store);
    } catch (const std::bad_alloc&) {
        hr = E_FAIL;
    }
    if (::close(file) != 0) hr = E_FAIL;
    if (hr < 0) ::unlink(path.c_str());
    return hr;
}
