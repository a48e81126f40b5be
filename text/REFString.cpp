// The cutting operations of CREFString.
//
// Every read is bounded by the view: a position at or past the end reads as a
// 0 character, which is what a view into a terminated string finds there. So
// results for views into terminated text are the same as if the terminator
// were read, and views into unterminated buffers are never read past.
#include "text/REFString.h"

#include <cwctype>

namespace {

/// Number of characters of a view; a negative count is empty.
inline int32_t CountOf(const tagREFString& view) { return view.length > 0 ? view.length : 0; }

/// Character `index` of the first `count` characters of `text`, or 0 past them.
inline wchar_t At(const wchar_t* text, int32_t count, int32_t index) {
    return index >= 0 && index < count ? text[index] : L'\0';
}

/// Whether `c` is one of the characters of `set`.
inline bool InSet(wchar_t c, const tagREFString& set) {
    const int32_t count = CountOf(set);
    for (int32_t i = 0; i < count; ++i)
        if (set.text[i] == c) return true;
    return false;
}

inline bool IsLineEnd(wchar_t c) { return c == L'\n' || c == L'\r'; }

inline void SetView(CREFString* view, wchar_t* text, int32_t count) {
    if (!view) return;
    view->text = text;
    view->length = count;
}

inline void ClearLength(CREFString* view) {
    if (view) view->length = 0;
}

/// Index of the last `separator` in the view, or -1.
int32_t FindLast(const wchar_t* text, int32_t count, wchar_t separator) {
    for (int32_t i = count - 1; i >= 0; --i)
        if (text[i] == separator) return i;
    return -1;
}

/// Number scan from `start`: digits, then a fraction only when a digit follows
/// the point, then an exponent only after a fraction and only with a sign.
int32_t ScanNumber(const wchar_t* p, int32_t n, int32_t start) {
    int32_t i = start;
    while (i < n && std::iswdigit(static_cast<wint_t>(p[i]))) ++i;
    if (At(p, n, i) != L'.' || i >= n || !std::iswdigit(static_cast<wint_t>(At(p, n, i + 1)))) return i;
    ++i;
    while (i < n && std::iswdigit(static_cast<wint_t>(p[i]))) ++i;
    const wchar_t mark = At(p, n, i);
    if ((mark & ~static_cast<wchar_t>(0x20)) != L'E' || i + 1 >= n) return i;
    const wchar_t sign = At(p, n, i + 1);
    if ((sign != L'+' && sign != L'-') || !std::iswdigit(static_cast<wint_t>(At(p, n, i + 2)))) return i;
    i += 2;
    while (i < n && std::iswdigit(static_cast<wint_t>(p[i]))) ++i;
    return i;
}

/// Identifier scan: up to white space or punctuation other than underscore.
int32_t ScanIdentifier(const wchar_t* p, int32_t n) {
    int32_t i = 0;
    for (;;) {
        const wchar_t c = At(p, n, i);
        const bool plain = i < n && !std::iswspace(static_cast<wint_t>(c)) && !std::iswpunct(static_cast<wint_t>(c));
        // The underscore test is made also at the end position; there the
        // bounded read gives 0, so the scan never leaves the view.
        if (!plain && c != L'_') return i;
        ++i;
    }
}

}  // namespace

HRESULT CREFString::GetLine(CREFString* result, bool consume, wchar_t separator, bool dropSeparator) {
    const int32_t n = CountOf(*this);
    if (n == 0) {
        ClearLength(result);
        return E_FAIL;
    }
    int32_t e = n;
    for (int32_t i = 0; i < n; ++i) {
        if (text[i] == separator) {
            e = i + 1;
            break;
        }
    }
    const int32_t lineLength = dropSeparator && e != 0 && text[e - 1] == separator ? e - 1 : e;
    SetView(result, text, lineLength);
    if (!consume) return e < n ? S_OK : E_FAIL;
    text += e;
    if (n - e < 1) {
        length = 0;
        return S_FALSE;
    }
    length = n - e;
    return S_OK;
}

HRESULT CREFString::GetLineCRLF(CREFString* result, bool dropLineEnd, bool consume) {
    const int32_t n = CountOf(*this);
    if (n == 0) {
        ClearLength(result);
        return E_FAIL;
    }
    int32_t i = 0;
    while (i < n && !IsLineEnd(text[i])) ++i;
    int32_t e = i;
    if (i < n) {
        e = i + 1;
        // CR LF and LF CR are one line end; two equal ones end two lines.
        if (i + 1 < n && IsLineEnd(text[i + 1]) && text[i + 1] != text[i]) e = i + 2;
    }
    SetView(result, text, dropLineEnd ? i : e);
    if (!consume) return S_OK;
    text += e;
    if (n - e < 1) {
        length = 0;
        return S_FALSE;
    }
    length = n - e;
    return S_OK;
}

HRESULT CREFString::GetReverseLine(CREFString* result, wchar_t separator, bool consume, bool skipSeparator) {
    const int32_t n = CountOf(*this);
    const int32_t i = FindLast(text, n, separator);
    if (i < 0) {
        SetView(result, text, 0);
        return E_FAIL;
    }
    SetView(result, text, i);
    if (i == 0) return E_FAIL;  // nothing before the only separator
    if (!consume) return S_OK;
    const int32_t advance = skipSeparator ? i + 1 : i;
    text += advance;
    length = n - advance;
    return S_OK;
}

HRESULT CREFString::GetLineRight(CREFString* result, wchar_t separator, bool consume, bool dropSeparator,
                                 bool wholeIfAbsent) {
    const int32_t n = CountOf(*this);
    if (n == 0) return E_FAIL;
    const int32_t i = FindLast(text, n, separator);
    if (i < 0) {
        if (!wholeIfAbsent) {
            ClearLength(result);
            return E_FAIL;
        }
        SetView(result, text, n);
        if (consume) length = 0;
        return S_OK;
    }
    if (dropSeparator)
        SetView(result, text + i + 1, n - i - 1);
    else
        SetView(result, text + i, n - i);
    if (consume) length = dropSeparator ? i : i + 1;
    return S_OK;
}

HRESULT CREFString::Crop(CREFString* result, wchar_t separator, bool consume, bool dropSeparator) {
    const int32_t n = CountOf(*this);
    int32_t i = FindLast(text, n, separator);
    if (i <= 0) {
        // The first character decides; on an empty view it reads as 0.
        if (At(text, n, 0) != separator) {
            ClearLength(result);
            return E_FAIL;
        }
        i = 0;
    }
    // Only an empty view searched for the 0 character gets here with i == n:
    // the cut is then empty and the view keeps its (empty) extent.
    if (dropSeparator) {
        const int32_t from = i + 1 < n ? i + 1 : n;
        SetView(result, text + from, n - from);
    } else {
        SetView(result, text + i, n - i);
    }
    if (consume) {
        const int32_t kept = dropSeparator ? i : i + 1;
        length = kept < n ? kept : n;
    }
    return S_OK;
}

HRESULT CREFString::Split(CREFString* left, CREFString* right, CREFString separators, int controlSplit) {
    const int32_t n = CountOf(*this);
    if (CountOf(separators) > 0) {
        for (int32_t i = 0; i < n; ++i) {
            const wchar_t c = text[i];
            if ((controlSplit != 0 && c < 32) || InSet(c, separators)) {
                SetView(left, text, i);
                SetView(right, text + i, n - i);
                return S_OK;
            }
        }
    }
    SetView(left, text, n);
    ClearLength(right);
    return E_FAIL;
}

HRESULT CREFString::GetFirstWord(CREFString* result, bool consume) {
    const int32_t n = CountOf(*this);
    if (n < 1) {
        ClearLength(result);
        return E_FAIL;
    }
    const wchar_t* p = text;
    const wchar_t c = p[0];
    int32_t t = 0;
    if (c == L'"') {
        if (n >= 2 && p[1] != L'"') {
            t = 2;
            while (t < n && p[t] != L'"') ++t;
        } else {
            t = 1;
        }
    } else if (c == L'-') {
        if (n >= 2 && std::iswdigit(static_cast<wint_t>(p[1]))) t = ScanNumber(p, n, 1);
    } else if (std::iswdigit(static_cast<wint_t>(c))) {
        t = ScanNumber(p, n, 0);
    } else if (std::iswpunct(static_cast<wint_t>(c))) {
        t = 1;
    } else {
        t = ScanIdentifier(p, n);
    }
    if (t < 1) return E_FAIL;
    // A double quote right after the token drops the token's first character:
    // for quoted text that is the opening quote.
    if (At(p, n, t) == L'"')
        SetView(result, text + 1, t - 1);
    else
        SetView(result, text, t);
    if (consume) {
        text += t;
        length = n - t;
    }
    return S_OK;
}

HRESULT CREFString::GetWord(CREFString* result, bool consume, tagREFString separators) {
    const int32_t n = CountOf(*this);
    if (n < 1) {
        ClearLength(result);
        return E_FAIL;
    }
    int32_t i = 0;
    while (i < n && !InSet(text[i], separators)) ++i;
    SetView(result, text, i);
    if (consume) {
        text += i;
        length = n - i;
    }
    return i == n ? 0 : i + 1;
}

HRESULT CREFString::Contains(tagREFString pattern) {
    const int32_t n = CountOf(*this);
    const int32_t m = CountOf(pattern);
    if (m < 1 || n < 1) return E_FAIL;
    int32_t k = 0;
    int32_t s = 0;
    for (int32_t i = 0; i < n; ++i) {
        // Past a full match the pattern reads as 0, like its terminator.
        if (text[i] == At(pattern.text, m, k)) {
            if (s == 0) s = i;  // 0 also means "no start yet"
            ++k;
        } else {
            if (k == m) return s;
            s = 0;
            k = 0;  // the mismatching character is not tried as a new start
        }
    }
    return k == m ? s : E_FAIL;
}

HRESULT CREFString::ContainsChar(tagREFString characters) {
    const int32_t n = CountOf(*this);
    if (CountOf(characters) < 1 || n < 1) return E_FAIL;
    for (int32_t i = 0; i < n; ++i)
        if (InSet(text[i], characters)) return i;
    return E_FAIL;
}
