#include "framework/Streams/StreamsCommon.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <cwctype>
#include <limits>

#include "framework/common/KitText.h"

// Bit 127 is set, which no name produces: 25 characters of 5 bits reach bit
// 125 at most.
const IID IID_StreamsXMLFolder = {0x5d3c8a17e4b26f09ull, 0xa1c4e7f2903b5d68ull};

bool StreamsKeyText(IString* key, std::wstring& out) {
    if (!key) return false;
    out = KitTextOf(key);
    return true;
}

bool StreamsIsElementName(std::wstring_view tag) {
    if (tag.empty()) return false;
    for (wchar_t c : tag) {
        if (c <= 32 || c == 127 || std::iswspace(static_cast<wint_t>(c))) return false;
        switch (c) {
        case L'<': case L'>': case L'&': case L'"': case L'\'': case L'=': case L'/':
            return false;
        default:
            break;
        }
    }
    return true;
}

bool StreamsIsClassName(std::wstring_view name) {
    if (name.empty()) return false;
    for (wchar_t c : name)
        if (c < 32 || c == 127 || c == L'/') return false;
    return true;
}

void StreamsAppendEscaped(std::wstring& out, std::wstring_view text) {
    for (wchar_t c : text) {
        switch (c) {
        case L'&': out += L"&amp;"; break;
        case L'<': out += L"&lt;"; break;
        case L'>': out += L"&gt;"; break;
        default: out += c; break;
        }
    }
}

void StreamsAppendAttributeEscaped(std::wstring& out, std::wstring_view text) {
    for (wchar_t c : text) {
        if (c == L'"')
            out += L"&quot;";
        else
            StreamsAppendEscaped(out, std::wstring_view(&c, 1));
    }
}

namespace {

std::wstring Widen(const char* text, size_t count) { return std::wstring(text, text + count); }

// The ASCII form of a trimmed text for the number parsers; false when a
// character is not ASCII.
bool Narrow(std::wstring_view text, std::string& out) {
    size_t begin = 0, end = text.size();
    while (begin < end && std::iswspace(static_cast<wint_t>(text[begin]))) ++begin;
    while (end > begin && std::iswspace(static_cast<wint_t>(text[end - 1]))) --end;
    out.clear();
    for (size_t i = begin; i < end; ++i) {
        if (text[i] <= 0 || text[i] >= 128) return false;
        out += static_cast<char>(text[i]);
    }
    return true;
}

template <class T>
bool ParseInteger(const std::string& text, T* value) {
    if (text.empty()) return false;
    const char* begin = text.data();
    if (*begin == '+') {  // from_chars itself takes only '-'
        ++begin;
        if (begin == text.data() + text.size() || *begin == '-') return false;
    }
    const char* end = text.data() + text.size();
    auto [stop, error] = std::from_chars(begin, end, *value);
    return error == std::errc() && stop == end;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Doubles: finite values in the shortest round-trip form; infinities as
// "inf"/"-inf"; NaN as "nan(0x<fraction bits>)" with an optional "-", so
// that its payload reads back too.
std::wstring FormatDouble(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    if (std::isnan(value)) {
        char buffer[40];
        int n = std::snprintf(buffer, sizeof buffer, "%snan(0x%llx)", (bits >> 63) ? "-" : "",
                              static_cast<unsigned long long>(bits & 0x000FFFFFFFFFFFFFull));
        return Widen(buffer, static_cast<size_t>(n));
    }
    char buffer[40];
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    if (error != std::errc()) return L"0";
    return Widen(buffer, static_cast<size_t>(end - buffer));
}

bool ParseDouble(const std::string& text, double* value) {
    std::string_view rest(text);
    bool negative = false;
    if (!rest.empty() && (rest[0] == '-' || rest[0] == '+')) {
        negative = rest[0] == '-';
        rest.remove_prefix(1);
    }
    auto lower = [](std::string_view s) {
        std::string t(s);
        for (char& c : t) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
        return t;
    };
    std::string word = lower(rest);
    uint64_t bits;
    if (word == "inf" || word == "infinity") {
        bits = 0x7FF0000000000000ull;
    } else if (word.rfind("nan", 0) == 0) {
        uint64_t fraction = 0x0008000000000000ull;  // the quiet NaN
        if (word.size() > 3) {
            if (word.size() < 7 || word.compare(3, 3, "(0x") != 0 || word.back() != ')') return false;
            std::string_view digits(word.data() + 6, word.size() - 7);
            if (digits.empty() || digits.size() > 13) return false;
            fraction = 0;
            for (char c : digits) {
                int d = HexDigit(c);
                if (d < 0) return false;
                fraction = fraction << 4 | static_cast<uint64_t>(d);
            }
            if (fraction == 0 || fraction > 0x000FFFFFFFFFFFFFull) return false;
        }
        bits = 0x7FF0000000000000ull | fraction;
    } else {
        if (rest.empty() || !(std::isdigit(static_cast<unsigned char>(rest[0])) || rest[0] == '.'))
            return false;
        double magnitude;
        auto [stop, error] = std::from_chars(rest.data(), rest.data() + rest.size(), magnitude);
        // Out of range: from_chars reports it; the text does not name a double.
        if (error != std::errc() || stop != rest.data() + rest.size()) return false;
        std::memcpy(&bits, &magnitude, sizeof bits);
    }
    if (negative) bits |= 0x8000000000000000ull;
    std::memcpy(value, &bits, sizeof bits);
    return true;
}

}  // namespace

std::wstring StreamsFormatValue(const uint8_t* bytes, size_t count) {
    char buffer[32];
    int n;
    switch (count) {
    case 1:
        n = std::snprintf(buffer, sizeof buffer, "%u", static_cast<unsigned>(bytes[0]));
        return Widen(buffer, static_cast<size_t>(n));
    case 2: {
        int16_t v;
        std::memcpy(&v, bytes, sizeof v);
        n = std::snprintf(buffer, sizeof buffer, "%d", static_cast<int>(v));
        return Widen(buffer, static_cast<size_t>(n));
    }
    case 4: {
        int32_t v;
        std::memcpy(&v, bytes, sizeof v);
        n = std::snprintf(buffer, sizeof buffer, "%d", static_cast<int>(v));
        return Widen(buffer, static_cast<size_t>(n));
    }
    case 8: {
        double v;
        std::memcpy(&v, bytes, sizeof v);
        return FormatDouble(v);
    }
    default: {
        static const wchar_t kDigits[] = L"0123456789ABCDEF";
        std::wstring text;
        text.reserve(count * 2);
        for (size_t i = 0; i < count; ++i) {
            text += kDigits[bytes[i] >> 4];
            text += kDigits[bytes[i] & 15];
        }
        return text;
    }
    }
}

bool StreamsParseValue(std::wstring_view text, uint8_t* out, size_t count) {
    std::string narrow;
    if (!Narrow(text, narrow)) return false;
    switch (count) {
    case 1: {
        uint8_t v;
        if (!ParseInteger(narrow, &v)) return false;
        *out = v;
        return true;
    }
    case 2: {
        int16_t v;
        if (!ParseInteger(narrow, &v)) return false;
        std::memcpy(out, &v, sizeof v);
        return true;
    }
    case 4: {
        int32_t v;
        if (!ParseInteger(narrow, &v)) return false;
        std::memcpy(out, &v, sizeof v);
        return true;
    }
    case 8: {
        double v;
        if (!ParseDouble(narrow, &v)) return false;
        std::memcpy(out, &v, sizeof v);
        return true;
    }
    default: {
        if (narrow.size() != count * 2) return false;
        std::string bytes(count, '\0');
        for (size_t i = 0; i < count; ++i) {
            int high = HexDigit(narrow[2 * i]), low = HexDigit(narrow[2 * i + 1]);
            if (high < 0 || low < 0) return false;
            bytes[i] = static_cast<char>(high << 4 | low);
        }
        if (count) std::memcpy(out, bytes.data(), count);
        return true;
    }
    }
}

bool StreamsParseInt64(std::wstring_view text, int64_t* value) {
    std::string narrow;
    int64_t v;
    if (!Narrow(text, narrow) || !ParseInteger(narrow, &v)) return false;
    *value = v;
    return true;
}

size_t StreamsRecordSize(int32_t typeCode) {
    switch (typeCode) {
    case 1: return 1;
    case 2: return 2;
    case 3: case 4: return 4;
    case 5: return 8;
    default: return 0;
    }
}
