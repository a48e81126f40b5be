#include "framework/Streams/FolderTree.h"

#include <cstring>
#include <exception>

#include "framework/Streams/StreamsCommon.h"
#include "framework/common/KitText.h"

namespace {

constexpr std::string_view kHeader("FOLDSTR1", 8);

// ---- writing ---------------------------------------------------------------

class Writer {
public:
    explicit Writer(std::string& out) : m_Out(out) {}

    void U32(uint32_t v) {
        char b[4] = {static_cast<char>(v), static_cast<char>(v >> 8), static_cast<char>(v >> 16),
                     static_cast<char>(v >> 24)};
        m_Out.append(b, 4);
    }
    bool Counted(std::string_view bytes) {
        if (bytes.size() > UINT32_MAX) return false;
        U32(static_cast<uint32_t>(bytes.size()));
        m_Out.append(bytes);
        return true;
    }
    bool Text(const std::wstring& text) { return Counted(KitEncodeUtf8(text)); }

    bool Body(const FolderNode& node) {
        if (node.entries.size() > UINT32_MAX) return false;
        U32(static_cast<uint32_t>(node.entries.size()));
        for (const FolderEntry& entry : node.entries) {
            U32(static_cast<uint32_t>(entry.kind));
            if (!Text(entry.name)) return false;
            switch (entry.kind) {
            case FolderEntryKind::Value:
                if (!Counted(entry.bytes)) return false;
                break;
            case FolderEntryKind::String:
                if (!Text(entry.text)) return false;
                break;
            case FolderEntryKind::Folder:
                if (!Body(*entry.folder)) return false;
                break;
            case FolderEntryKind::Object:
                if (!Text(entry.text) || !Body(*entry.folder)) return false;
                break;
            }
            // The whole image must stay reportable as an int32 byte count.
            if (m_Out.size() > static_cast<size_t>(INT32_MAX)) return false;
        }
        return true;
    }

private:
    std::string& m_Out;
};

// ---- reading ---------------------------------------------------------------

// Strict UTF-8: shortest forms only, no surrogates, nothing above U+10FFFF.
bool DecodeUtf8(std::string_view bytes, std::wstring& out) {
    out.clear();
    out.reserve(bytes.size());
    size_t i = 0;
    while (i < bytes.size()) {
        uint32_t lead = static_cast<unsigned char>(bytes[i]);
        int extra;
        uint32_t code, minimum;
        if (lead < 0x80) extra = 0, code = lead, minimum = 0;
        else if ((lead & 0xE0) == 0xC0) extra = 1, code = lead & 0x1F, minimum = 0x80;
        else if ((lead & 0xF0) == 0xE0) extra = 2, code = lead & 0x0F, minimum = 0x800;
        else if ((lead & 0xF8) == 0xF0) extra = 3, code = lead & 0x07, minimum = 0x10000;
        else return false;
        if (bytes.size() - i <= static_cast<size_t>(extra)) return false;
        for (int k = 1; k <= extra; ++k) {
            uint32_t next = static_cast<unsigned char>(bytes[i + static_cast<size_t>(k)]);
            if ((next & 0xC0) != 0x80) return false;
            code = code << 6 | (next & 0x3F);
        }
        if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
        out += static_cast<wchar_t>(code);
        i += static_cast<size_t>(extra) + 1;
    }
    return true;
}

class Reader {
public:
    explicit Reader(std::string_view bytes) : m_Rest(bytes) {}

    bool AtEnd() const { return m_Rest.empty(); }

    bool U32(uint32_t* v) {
        if (m_Rest.size() < 4) return false;
        const auto* b = reinterpret_cast<const unsigned char*>(m_Rest.data());
        *v = uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
        m_Rest.remove_prefix(4);
        return true;
    }
    bool Counted(std::string_view* bytes) {
        uint32_t count;
        if (!U32(&count) || count > m_Rest.size()) return false;
        *bytes = m_Rest.substr(0, count);
        m_Rest.remove_prefix(count);
        return true;
    }
    bool Text(std::wstring* text) {
        std::string_view bytes;
        return Counted(&bytes) && DecodeUtf8(bytes, *text);
    }

    bool Body(FolderNode& node, int depth) {
        if (depth > kMaxFolderDepth) return false;
        uint32_t count;
        if (!U32(&count)) return false;
        // The smallest entry is 12 bytes (kind, name count, payload count),
        // so a count the rest cannot hold is refused before any allocation.
        if (count > m_Rest.size() / 12) return false;
        node.entries.reserve(count);
        for (uint32_t i = 0; i < count; ++i) {
            FolderEntry entry;
            uint32_t kind;
            if (!U32(&kind) || !Text(&entry.name)) return false;
            entry.kind = static_cast<FolderEntryKind>(kind);
            switch (entry.kind) {
            case FolderEntryKind::Value: {
                std::string_view bytes;
                if (!Counted(&bytes)) return false;
                entry.bytes.assign(bytes);
                break;
            }
            case FolderEntryKind::String:
                if (!Text(&entry.text)) return false;
                break;
            case FolderEntryKind::Folder:
                entry.folder = std::make_shared<FolderNode>();
                if (!Body(*entry.folder, depth + 1)) return false;
                break;
            case FolderEntryKind::Object:
                entry.folder = std::make_shared<FolderNode>();
                if (!Text(&entry.text) || entry.text.empty() || !Body(*entry.folder, depth + 1)) return false;
                break;
            default:
                return false;
            }
            node.entries.push_back(std::move(entry));
        }
        return true;
    }

private:
    std::string_view m_Rest;
};

}  // namespace

bool FolderSerialize(const FolderNode& root, std::string& out) {
    try {
        out.assign(kHeader);
        if (Writer(out).Body(root)) return true;
    } catch (const std::exception&) {
        // Out of memory: nothing to write.
    }
    out.clear();
    return false;
}

bool FolderParse(std::string_view bytes, FolderNode& root) {
    root.entries.clear();
    if (bytes.substr(0, kHeader.size()) != kHeader) return false;
    try {
        Reader reader(bytes.substr(kHeader.size()));
        if (reader.Body(root, 0) && reader.AtEnd()) return true;
    } catch (const std::exception&) {
        // Out of memory: treated as a file that cannot be read.
    }
    root.entries.clear();
    return false;
}
