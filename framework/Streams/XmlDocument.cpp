#include "framework/Streams/XmlDocument.h"

#include <cwctype>
#include <exception>

#include "framework/Streams/StreamsCommon.h"

namespace {

bool IsSpace(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

bool EndsName(wchar_t c) {
    return IsSpace(c) || c == L'/' || c == L'>' || c == L'<' || c == L'=' || c == L'"' || c == L'\'';
}

bool StartsWith(std::wstring_view text, size_t at, std::wstring_view prefix) {
    return text.size() - at >= prefix.size() && text.compare(at, prefix.size(), prefix) == 0;
}

// Appends character data with the five predefined entities and numeric
// character references resolved; false for any other use of "&".
bool AppendCharacterData(std::wstring_view data, std::wstring& out, bool attribute) {
    size_t i = 0;
    while (i < data.size()) {
        wchar_t c = data[i];
        if (attribute && c == L'<') return false;
        if (c != L'&') {
            out += c;
            ++i;
            continue;
        }
        size_t semicolon = data.find(L';', i + 1);
        if (semicolon == std::wstring_view::npos || semicolon - i > 12) return false;
        std::wstring_view name = data.substr(i + 1, semicolon - i - 1);
        if (name == L"amp") out += L'&';
        else if (name == L"lt") out += L'<';
        else if (name == L"gt") out += L'>';
        else if (name == L"quot") out += L'"';
        else if (name == L"apos") out += L'\'';
        else if (name.size() >= 2 && name[0] == L'#') {
            bool hex = name[1] == L'x';
            std::wstring_view digits = name.substr(hex ? 2 : 1);
            if (digits.empty()) return false;
            uint32_t code = 0;
            for (wchar_t d : digits) {
                uint32_t v;
                if (d >= L'0' && d <= L'9') v = static_cast<uint32_t>(d - L'0');
                else if (hex && d >= L'a' && d <= L'f') v = static_cast<uint32_t>(d - L'a' + 10);
                else if (hex && d >= L'A' && d <= L'F') v = static_cast<uint32_t>(d - L'A' + 10);
                else return false;
                code = code * (hex ? 16 : 10) + v;
                if (code > 0x10FFFF) return false;
            }
            if (code == 0 || (code >= 0xD800 && code <= 0xDFFF)) return false;
            out += static_cast<wchar_t>(code);
        } else {
            return false;
        }
        i = semicolon + 1;
    }
    return true;
}

// Reads the attributes of a start tag from `i` (just after the name) up to
// and including its ">" or "/>". Only "class" is kept.
bool ParseAttributes(std::wstring_view s, size_t& i, XmlNode& node, bool& selfClosing) {
    const size_t n = s.size();
    for (;;) {
        while (i < n && IsSpace(s[i])) ++i;
        if (i >= n) return false;
        if (s[i] == L'>') {
            ++i;
            return true;
        }
        if (s[i] == L'/') {
            if (i + 1 < n && s[i + 1] == L'>') {
                selfClosing = true;
                i += 2;
                return true;
            }
            return false;
        }
        size_t nameEnd = i;
        while (nameEnd < n && !EndsName(s[nameEnd])) ++nameEnd;
        if (nameEnd == i) return false;
        std::wstring_view name = s.substr(i, nameEnd - i);
        i = nameEnd;
        while (i < n && IsSpace(s[i])) ++i;
        if (i >= n || s[i] != L'=') return false;
        ++i;
        while (i < n && IsSpace(s[i])) ++i;
        if (i >= n || (s[i] != L'"' && s[i] != L'\'')) return false;
        size_t close = s.find(s[i], i + 1);
        if (close == std::wstring_view::npos) return false;
        std::wstring value;
        if (!AppendCharacterData(s.substr(i + 1, close - i - 1), value, true)) return false;
        if (name == L"class" && !node.isObject) {
            node.isObject = true;
            node.className = std::move(value);
        }
        i = close + 1;
    }
}

bool ParseEntries(std::wstring_view s, XmlNode& root) {
    std::vector<XmlNode*> open{&root};
    size_t i = 0;
    for (;;) {
        size_t lt = s.find(L'<', i);
        size_t dataEnd = lt == std::wstring_view::npos ? s.size() : lt;
        // Character data between top-level entries is not part of any entry.
        if (dataEnd > i && open.size() > 1 &&
            !AppendCharacterData(s.substr(i, dataEnd - i), open.back()->text, false))
            return false;
        if (lt == std::wstring_view::npos) return open.size() == 1;
        i = lt + 1;

        if (StartsWith(s, i, L"!--")) {
            size_t end = s.find(L"-->", i + 3);
            if (end == std::wstring_view::npos) return false;
            i = end + 3;
        } else if (StartsWith(s, i, L"![CDATA[")) {
            size_t end = s.find(L"]]>", i + 8);
            if (end == std::wstring_view::npos) return false;
            if (open.size() > 1) open.back()->text.append(s.substr(i + 8, end - i - 8));
            i = end + 3;
        } else if (StartsWith(s, i, L"?")) {
            size_t end = s.find(L"?>", i + 1);
            if (end == std::wstring_view::npos) return false;
            i = end + 2;
        } else if (StartsWith(s, i, L"!")) {
            // A declaration such as a document type, with an optional
            // bracketed internal subset.
            int brackets = 0;
            size_t j = i + 1;
            for (; j < s.size(); ++j) {
                if (s[j] == L'[') ++brackets;
                else if (s[j] == L']') --brackets;
                else if (s[j] == L'>' && brackets <= 0) break;
            }
            if (j >= s.size()) return false;
            i = j + 1;
        } else if (StartsWith(s, i, L"/")) {
            size_t end = s.find(L'>', i);
            if (end == std::wstring_view::npos) return false;
            std::wstring_view name = s.substr(i + 1, end - i - 1);
            while (!name.empty() && IsSpace(name.back())) name.remove_suffix(1);
            // The end tag of the element that encloses the entries.
            if (open.size() == 1) return true;
            if (name != open.back()->name) return false;
            open.pop_back();
            i = end + 1;
        } else {
            size_t nameEnd = i;
            while (nameEnd < s.size() && !EndsName(s[nameEnd])) ++nameEnd;
            if (nameEnd == i) return false;
            if (open.size() > static_cast<size_t>(kMaxFolderDepth)) return false;
            auto node = std::make_unique<XmlNode>();
            node->name.assign(s.substr(i, nameEnd - i));
            i = nameEnd;
            bool selfClosing = false;
            if (!ParseAttributes(s, i, *node, selfClosing)) return false;
            XmlNode* added = node.get();
            open.back()->children.push_back(std::move(node));
            if (!selfClosing) open.push_back(added);
        }
    }
}

}  // namespace

std::shared_ptr<const XmlNode> XmlParseEntries(std::wstring_view text) {
    try {
        auto root = std::make_shared<XmlNode>();
        if (ParseEntries(text, *root)) return root;
    } catch (const std::exception&) {
        // Out of memory: the text reads as holding nothing.
    }
    // Shares nothing and allocates nothing: safe even when memory ran out.
    static const XmlNode empty;
    return std::shared_ptr<const XmlNode>(std::shared_ptr<const XmlNode>(), &empty);
}
