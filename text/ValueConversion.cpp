// Text to and from numbers, colours and variants.
#include "text/ValueConversion.h"

#include <cctype>
#include <cmath>
#include <cstdarg>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <vector>

namespace {

/// Size of the formatting buffer; texts that do not fit are formatted again
/// into a larger one, up to kMaxFormatted characters.
constexpr size_t kFormatBuffer = 256;
constexpr size_t kMaxFormatted = size_t{1} << 17;

int FormatV(wchar_t* buffer, size_t size, const wchar_t* format, va_list args) {
    if (!buffer || size == 0) return -1;
    const int count = std::vswprintf(buffer, size, format, args);
    if (count < 0 || static_cast<size_t>(count) >= size) {
        // Failed or did not fit: leave empty text rather than a partial one.
        buffer[0] = L'\0';
        return -1;
    }
    buffer[count] = L'\0';
    return count;
}

/// A new empty string from the string component; the reference is ours.
SmartPtr<IString> NewString() {
    ICreatableString* created = CREFString::CreateString();
    return SmartPtr<IString>::Adopt(created);
}

/// A new string holding `count` characters of `text` (empty for count <= 0).
IString* NewStringWith(const wchar_t* text, int32_t count) {
    SmartPtr<IString> string = NewString();
    if (!string) return nullptr;
    if (text && count > 0) string->SetText(count, text);
    return string.Detach();
}

/// Formats into the 256-character buffer, or into a larger one for the rare
/// text that does not fit (a huge double with "%f", many decimals), so that
/// no number is ever cut or lost.
IString* NewFormatted(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    wchar_t buffer[kFormatBuffer];
    va_list attempt;
    va_copy(attempt, args);
    int count = FormatV(buffer, kFormatBuffer, format, attempt);
    va_end(attempt);
    if (count >= 0) {
        va_end(args);
        return NewStringWith(buffer, count);
    }
    std::vector<wchar_t> larger;
    for (size_t size = kFormatBuffer * 2; size <= kMaxFormatted; size *= 2) {
        larger.assign(size, L'\0');
        va_copy(attempt, args);
        count = FormatV(larger.data(), larger.size(), format, attempt);
        va_end(attempt);
        if (count >= 0) break;
    }
    va_end(args);
    if (count < 0) return NewStringWith(nullptr, 0);
    return NewStringWith(larger.data(), count);
}

inline int32_t CountOf(const tagREFString& view) { return view.length > 0 ? view.length : 0; }

/// The digits of an integer from `start`: decimal digits always, A to F only
/// for bases 11 to 16 (digits are not checked against the base). Wraps.
uint32_t AccumulateDigits(const tagREFString& text, int32_t start, int base) {
    const int32_t n = CountOf(text);
    const bool hexLetters = base >= 11 && base <= 16;
    uint32_t value = 0;
    for (int32_t i = start; i < n; ++i) {
        wchar_t c = text.text[i];
        if (c >= 0 && c < 256) c = static_cast<wchar_t>(std::toupper(static_cast<int>(c)));
        uint32_t digit;
        if (c >= L'0' && c <= L'9')
            digit = static_cast<uint32_t>(c - L'0');
        else if (hexLetters && c >= L'A' && c <= L'F')
            digit = static_cast<uint32_t>(c - L'A' + 10);
        else
            break;
        value = value * static_cast<uint32_t>(base) + digit;
    }
    return value;
}

}  // namespace

int _swprintf(wchar_t* buffer, unsigned long size, wchar_t const* format, ...) {
    va_list args;
    va_start(args, format);
    const int count = FormatV(buffer, size, format, args);
    va_end(args);
    return count;
}

IString* ISCreate(const wchar_t* text) {
    return NewStringWith(text, text ? static_cast<int32_t>(std::wcslen(text)) : 0);
}

IString* ISCreate(char const* text, int count) {
    SmartPtr<IString> string = NewString();
    if (!string) return nullptr;
    if (!text || count < 1) return string.Detach();
    std::mbstate_t state{};
    int position = 0;
    while (position < count) {
        wchar_t character = L'\0';
        const size_t used = std::mbrtowc(&character, text + position, static_cast<size_t>(count - position), &state);
        int advance = 1;
        if (used == static_cast<size_t>(-1) || used == static_cast<size_t>(-2)) {
            // An invalid or cut-off sequence: the byte stands for itself
            // (Latin-1), and conversion restarts at the next byte.
            character = static_cast<wchar_t>(static_cast<unsigned char>(text[position]));
            state = std::mbstate_t{};
        } else if (used > 0) {
            advance = static_cast<int>(used);
        }
        // A zero byte gives a 0 character, kept like any other.
        string->Append(1, &character);
        position += advance;
    }
    return string.Detach();
}

IString* ISCreate(IString* text) {
    if (!text) return NewStringWith(nullptr, 0);
    wchar_t* characters = nullptr;
    int32_t count = 0;
    if (text->GetText(&characters, &count) < 0) return NewStringWith(nullptr, 0);
    return NewStringWith(characters, count);
}

IString* ISCreate(tagREFString& view) { return NewStringWith(view.text, CountOf(view)); }

IString* ISCreate(int value) { return NewFormatted(L"%i", value); }

IString* ISCreateHex(int value) {
    // Signed comparison: negative values take the six-digit format and show
    // all eight digits of their bit pattern.
    return NewFormatted(value <= 0xFFFFFF ? L"#%06X" : L"#%X", static_cast<unsigned>(value));
}

IString* ISCreate(double value) { return NewFormatted(L"%f", value); }

IString* ISCreate(IVariant* variant, short decimals) {
    if (!variant) return nullptr;
    int16_t isString = 0;
    if (variant->IsString(&isString) >= 0 && isString != 0) {
        IString* text = nullptr;
        variant->get_String(&text);
        return text;
    }
    int16_t type = 0;
    if (variant->get_Type(&type) < 0 || type == 0) return nullptr;
    if (type == 1 || decimals == 0) {
        int32_t value = 0;
        variant->get_Integer(&value);
        return NewFormatted(L"%d", value);
    }
    double value = 0.0;
    variant->get_Double(&value);
    int places = decimals;
    if (decimals < 0) {
        // The fewest decimals (up to 9) that leave no visible fraction.
        double multiplier = 1.0;
        for (places = 0; places < 9; ++places) {
            double whole = 0.0;
            if (std::modf(std::fabs(value * multiplier), &whole) < 1e-08) break;
            multiplier *= 10.0;
        }
    }
    wchar_t format[16];
    _swprintf(format, 16, L"%%.%df", places);
    return NewFormatted(format, value);
}

IString* ISCreate(IVariant* variant) {
    if (!variant) return nullptr;
    int16_t isString = 0;
    if (variant->IsString(&isString) >= 0 && isString != 0) {
        IString* text = nullptr;
        variant->get_String(&text);
        return text;
    }
    int16_t type = 0;
    if (variant->get_Type(&type) >= 0 && type != 0) return ISCreate(variant, static_cast<short>(-1));
    SmartPtr<IUnknown> object;
    variant->get_Object(object.Out());
    if (SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object.Get(), IID_IObjectInfo)) {
        tagREFString name{0, nullptr};
        if (info->GetName(0, &name) >= 0) return ISCreate(name);
    }
    return ISCreate(L"");
}

int _IS2Integer(CREFString text, int base) {
    const int32_t n = CountOf(text);
    if (n == 0) return 0;
    int32_t start = 0;
    bool negative = false;
    switch (text.text[0]) {
        case L'-': start = 1; negative = true; break;
        case L'+': start = 1; break;
        case L'#': start = 1; base = 16; break;
        default: break;
    }
    if (start >= n) return 0;
    const uint32_t value = AccumulateDigits(text, start, base);
    return static_cast<int>(negative ? 0u - value : value);
}

int _IS2Color(CREFString text, int base) {
    const uint32_t value = static_cast<uint32_t>(_IS2Integer(text, base));
    return static_cast<int>(((value >> 16) & 0xFFu) | (value & 0xFF00u) | ((value & 0xFFu) << 16));
}

double _IS2Double(CREFString text) {
    const int32_t n = CountOf(text);
    if (n == 0) return 0.0;
    const wchar_t* p = text.text;
    if (p[0] == L'#') return static_cast<double>(static_cast<int32_t>(AccumulateDigits(text, 1, 16)));
    double sign = 1.0;
    int32_t i = 0;
    if (p[0] == L'-') {
        sign = -1.0;
        i = 1;
    } else if (p[0] == L'+') {
        i = 1;
    }
    if (i >= n) return sign * 0.0;
    uint64_t whole = 0;
    for (; i < n && p[i] >= L'0' && p[i] <= L'9'; ++i) whole = whole * 10 + static_cast<uint64_t>(p[i] - L'0');
    if (i >= n || p[i] != L'.') return sign * static_cast<double>(whole);
    // At most 18 fraction digits count: the scan ends once the divisor
    // passes 999999999999999999.
    uint64_t fraction = 0;
    uint64_t divisor = 1;
    for (++i; i < n && p[i] >= L'0' && p[i] <= L'9'; ++i) {
        fraction = fraction * 10 + static_cast<uint64_t>(p[i] - L'0');
        divisor *= 10;
        if (divisor > 999999999999999999ull) break;
    }
    return sign * (static_cast<double>(whole) + static_cast<double>(fraction) / static_cast<double>(divisor));
}

std::wstring ISText(IString* text) {
    wchar_t* characters = nullptr;
    int32_t length = 0;
    if (!text || text->GetText(&characters, &length) < 0 || !characters || length <= 0) return {};
    return std::wstring(characters, static_cast<size_t>(length));
}
