// Element cutting over wide text views, with optional position indexes for
// long texts.
#include "params/XMLTagged.h"

#include <algorithm>
#include <cwchar>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

/// Texts shorter than this are scanned directly; longer ones get indexes.
constexpr int32_t kIndexThreshold = 1 << 16;

/// First "<" followed by `name` at or after `from`. A mismatch restarts the
/// comparison at the mismatching character (not one after the start of the
/// failed attempt); for names without "<" that is an ordinary search.
int32_t ScanOpen(const wchar_t* t, int32_t from, int32_t n, const wchar_t* name, int32_t length) {
    const int32_t patternLength = length + 1;
    int32_t matched = 0;
    int32_t i = from;
    while (i < n) {
        const wchar_t expected = matched == 0 ? L'<' : name[matched - 1];
        if (t[i] == expected) {
            ++i;
            if (++matched == patternLength) return i - patternLength;
        } else if (matched == 0) {
            ++i;
        } else {
            matched = 0;
        }
    }
    return -1;
}

/// First "</name>" at or after `from`.
int32_t ScanClose(const wchar_t* t, int32_t from, int32_t n, const wchar_t* name, int32_t length) {
    const int64_t needed = int64_t{length} + 3;
    for (int32_t i = from; i + needed <= n; ++i) {
        if (t[i] != L'<' || t[i + 1] != L'/' || t[i + 2 + length] != L'>') continue;
        if (length == 0 || std::wmemcmp(t + i + 2, name, static_cast<size_t>(length)) == 0) return i;
    }
    return -1;
}

int32_t ScanChar(const wchar_t* t, int32_t from, int32_t n, wchar_t c) {
    for (int32_t i = from; i < n; ++i)
        if (t[i] == c) return i;
    return -1;
}

bool EndsNameAt(wchar_t c) { return c == L' ' || c == L'\r' || c == L'>'; }

}  // namespace

struct CXMLTaggedSearch::Index {
    /// Positions of every "<", grouped by the character that follows it.
    std::unordered_map<wchar_t, std::vector<int32_t>> opensByNext;
    /// Positions of every "</X>", grouped by X (the text up to the next ">").
    std::unordered_map<std::wstring_view, std::vector<int32_t>> closesByName;
};

CXMLTaggedSearch::CXMLTaggedSearch(const wchar_t* text, int32_t length)
    : m_Text(text), m_Length(text && length > 0 ? length : 0) {
    for (int32_t i = m_Length - 1; i >= 0; --i) {
        if (m_Text[i] == L'>') {
            m_LastGreater = i;
            break;
        }
    }
}

CXMLTaggedSearch::~CXMLTaggedSearch() = default;

bool CXMLTaggedSearch::Covers(const tagREFString& view) const {
    if (!m_Text || !view.text || view.length < 0) return false;
    return view.text >= m_Text && view.text + view.length == m_Text + m_Length;
}

CXMLTaggedSearch::Index& CXMLTaggedSearch::Built() {
    if (m_Index) return *m_Index;
    m_Index = std::make_unique<Index>();
    Index& index = *m_Index;
    const wchar_t* t = m_Text;
    const int32_t n = m_Length;
    int32_t greater = 0;  // first ">" at or after the current closing text's name
    for (int32_t i = 0; i + 1 < n; ++i) {
        if (t[i] != L'<') continue;
        index.opensByNext[t[i + 1]].push_back(i);
        if (t[i + 1] != L'/' || greater < 0) continue;
        if (greater < i + 2) {
            greater = ScanChar(t, i + 2, n, L'>');
            if (greater < 0) continue;  // no ">" anywhere after: no further closing text
        }
        index.closesByName[std::wstring_view(t + i + 2, static_cast<size_t>(greater - (i + 2)))].push_back(i);
    }
    return index;
}

int32_t CXMLTaggedSearch::FindOpen(int32_t from, const wchar_t* name, int32_t length) {
    if (from < 0 || int64_t{from} + length + 1 > m_Length) return -1;
    // An empty name matches the next "<"; reaching it costs no more than the
    // text that the cut then consumes.
    if (m_Length < kIndexThreshold || length == 0) return ScanOpen(m_Text, from, m_Length, name, length);
    Index& index = Built();
    auto bucket = index.opensByNext.find(name[0]);
    if (bucket == index.opensByNext.end()) return -1;
    // The first true occurrence at or after `from`.
    int32_t first = -1;
    const std::vector<int32_t>& positions = bucket->second;
    for (auto p = std::lower_bound(positions.begin(), positions.end(), from); p != positions.end(); ++p) {
        if (int64_t{*p} + length + 1 > m_Length) break;
        if (std::wmemcmp(m_Text + *p + 1, name, static_cast<size_t>(length)) == 0) {
            first = *p;
            break;
        }
    }
    if (first < 0) return -1;
    if (!std::wmemchr(name, L'<', static_cast<size_t>(length))) return first;
    // A name that holds "<" itself: the restarting comparison may pass over
    // true occurrences, so it runs as it is; it ends at the match it finds.
    return ScanOpen(m_Text, from, m_Length, name, length);
}

int32_t CXMLTaggedSearch::FindClose(int32_t from, const wchar_t* name, int32_t length) {
    if (from < 0 || from > m_Length) return -1;
    if (m_Length < kIndexThreshold) return ScanClose(m_Text, from, m_Length, name, length);
    Index& index = Built();
    auto bucket = index.closesByName.find(std::wstring_view(name, static_cast<size_t>(length)));
    if (bucket == index.closesByName.end()) return -1;
    auto p = std::lower_bound(bucket->second.begin(), bucket->second.end(), from);
    return p == bucket->second.end() ? -1 : *p;
}

HRESULT XMLGetTAGGED(CREFString* text, CREFString tag, CREFString* attributes, CREFString* content,
                     short consume) {
    return XMLGetTAGGED(text, tag, attributes, content, consume, nullptr);
}

HRESULT XMLGetTAGGED(CREFString* text, CREFString tag, CREFString* attributes, CREFString* content,
                     short consume, CXMLTaggedSearch* search) {
    if (!text) return E_POINTER;
    const int32_t n = text->text && text->length > 0 ? text->length : 0;
    const wchar_t* t = text->text;

    const int32_t tagLength = tag.text && tag.length > 0 ? tag.length : 0;
    const wchar_t* name = tag.text;
    int32_t nameLength = 0;
    while (nameLength < tagLength && !EndsNameAt(name[nameLength])) ++nameLength;

    const bool indexed = search && n > 0 && search->Covers(*text);
    const int32_t offset = indexed ? static_cast<int32_t>(t - search->Text()) : 0;

    int32_t open = -1;
    if (n > 0) {
        if (indexed) {
            open = search->FindOpen(offset, name, nameLength);
            if (open >= 0) open -= offset;
        } else {
            open = ScanOpen(t, 0, n, name, nameLength);
        }
    }
    // The start tag ends at the next ">"; without one there is no element.
    const int32_t attributesStart = open + 1 + nameLength;
    int32_t greater = -1;
    if (open >= 0 && !(indexed && search->LastGreater() < offset + attributesStart))
        greater = ScanChar(t, attributesStart, n, L'>');
    if (greater < 0) {
        if (content) *content = *text;
        return E_FAIL;
    }

    if (attributes) {
        int32_t length = greater - attributesStart;
        if (length > 0 && t[attributesStart + length - 1] == L'?') --length;
        if (length > 0 && t[attributesStart + length - 1] == L'/') --length;
        *attributes = CREFString(length, t + attributesStart);
    }

    const int32_t contentStart = greater + 1;
    int32_t close = -1;
    if (indexed) {
        close = search->FindClose(offset + contentStart, name, nameLength);
        if (close >= 0) close -= offset;
    } else {
        close = ScanClose(t, contentStart, n, name, nameLength);
    }
    int32_t rest = contentStart;
    if (close >= 0) {
        if (content) *content = CREFString(close - contentStart, t + contentStart);
        rest = close + nameLength + 3;
    } else if (content) {
        *content = CREFString(0, t + contentStart);
    }
    if (consume) *text = CREFString(n - rest, t + rest);
    return S_OK;
}
