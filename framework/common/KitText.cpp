#include "framework/common/KitText.h"

#include <cstdio>
#include <cstdlib>

bool KitViewText(const tagREFString& view, std::wstring& out) {
    if (view.length <= 0) {
        out.clear();
        return true;
    }
    if (!view.text) return false;
    out.assign(view.text, static_cast<size_t>(view.length));
    return true;
}

std::wstring KitViewString(const tagREFString& view) {
    std::wstring text;
    if (!KitViewText(view, text)) text.clear();
    return text;
}

std::wstring KitTextOf(IString* string) {
    if (!string) return {};
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (string->GetText(&text, &length) < 0 || !text || length <= 0) return {};
    return std::wstring(text, static_cast<size_t>(length));
}

bool KitNarrowFileName(const std::wstring& name, std::string& out) {
    size_t needed = std::wcstombs(nullptr, name.c_str(), 0);
    if (needed == static_cast<size_t>(-1)) return false;
    std::string narrow(needed, '\0');
    std::wcstombs(narrow.data(), name.c_str(), needed + 1);
    out = std::move(narrow);
    return true;
}

std::wstring KitDecodeUtf8(std::string_view bytes) {
    std::wstring text;
    text.reserve(bytes.size());
    size_t i = 0;
    while (i < bytes.size()) {
        unsigned char lead = static_cast<unsigned char>(bytes[i]);
        if (lead < 0x80) {
            text.push_back(static_cast<wchar_t>(lead));
            ++i;
            continue;
        }
        int extra;
        uint32_t code;
        uint32_t minimum;
        if ((lead & 0xE0) == 0xC0) {
            extra = 1, code = lead & 0x1F, minimum = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            extra = 2, code = lead & 0x0F, minimum = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            extra = 3, code = lead & 0x07, minimum = 0x10000;
        } else {
            text.push_back(L'\xFFFD');
            ++i;
            continue;
        }
        size_t j = i + 1;
        for (int k = 0; k < extra; ++k, ++j) {
            if (j >= bytes.size() || (static_cast<unsigned char>(bytes[j]) & 0xC0) != 0x80) break;
            code = (code << 6) | (static_cast<unsigned char>(bytes[j]) & 0x3F);
        }
        if (j - i != static_cast<size_t>(extra) + 1 || code < minimum || code > 0x10FFFF ||
            (code >= 0xD800 && code <= 0xDFFF)) {
            // A broken sequence costs one replacement character and resumes
            // at the first byte that was not part of it.
            text.push_back(L'\xFFFD');
            i = (j > i + 1) ? j : i + 1;
            continue;
        }
        text.push_back(static_cast<wchar_t>(code));
        i = j;
    }
    return text;
}

std::string KitEncodeUtf8(std::wstring_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (wchar_t c : text) {
        uint32_t code = static_cast<uint32_t>(c);
        if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) code = 0xFFFD;
        if (code < 0x80) {
            bytes.push_back(static_cast<char>(code));
        } else if (code < 0x800) {
            bytes.push_back(static_cast<char>(0xC0 | (code >> 6)));
            bytes.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else if (code < 0x10000) {
            bytes.push_back(static_cast<char>(0xE0 | (code >> 12)));
            bytes.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
            bytes.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else {
            bytes.push_back(static_cast<char>(0xF0 | (code >> 18)));
            bytes.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
            bytes.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
            bytes.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        }
    }
    return bytes;
}

bool KitReadTextLines(const std::string& path, std::vector<std::wstring>& lines, bool* crlf) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return false;
    std::string bytes;
    char chunk[4096];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) bytes.append(chunk, got);
    bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed) return false;

    std::string_view rest(bytes);
    if (rest.size() >= 3 && rest.substr(0, 3) == "\xEF\xBB\xBF") rest.remove_prefix(3);
    lines.clear();
    if (crlf) {
        size_t firstEnd = rest.find('\n');
        *crlf = firstEnd != std::string_view::npos && firstEnd > 0 && rest[firstEnd - 1] == '\r';
    }
    while (!rest.empty()) {
        size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        lines.push_back(KitDecodeUtf8(line));
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
    return true;
}

std::wstring_view KitTrimBlanks(std::wstring_view text) {
    size_t begin = 0;
    while (begin < text.size() && (text[begin] == L' ' || text[begin] == L'\t')) ++begin;
    size_t end = text.size();
    while (end > begin && (text[end - 1] == L' ' || text[end - 1] == L'\t')) --end;
    return text.substr(begin, end - begin);
}

bool KitEqualsIgnoreAsciiCase(std::wstring_view a, std::wstring_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        wchar_t x = a[i], y = b[i];
        if (x >= L'A' && x <= L'Z') x = static_cast<wchar_t>(x + 32);
        if (y >= L'A' && y <= L'Z') y = static_cast<wchar_t>(y + 32);
        if (x != y) return false;
    }
    return true;
}
