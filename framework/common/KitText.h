// Text helpers shared by the kit modules: views, file names, UTF-8 files.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lum/lum.h"

/// The characters of a view; a negative length counts as empty. False (and
/// `out` untouched) for a null text with a positive length.
bool KitViewText(const tagREFString& view, std::wstring& out);

/// The characters of a view, null or negative-length views giving "".
std::wstring KitViewString(const tagREFString& view);

/// The characters of an IString ("" for null or a failing string).
std::wstring KitTextOf(IString* string);

/// A view of a std::wstring (valid while the string is unchanged).
inline tagREFString KitView(const std::wstring& text) {
    return tagREFString{static_cast<int32_t>(text.size()), const_cast<wchar_t*>(text.c_str())};
}

/// A wide file name in the process locale's multibyte form (wcstombs); false
/// when a character cannot be converted.
bool KitNarrowFileName(const std::wstring& name, std::string& out);

/// UTF-8 to wide characters; malformed sequences become U+FFFD.
std::wstring KitDecodeUtf8(std::string_view bytes);

/// Wide characters to UTF-8 (characters beyond U+10FFFF become U+FFFD).
std::string KitEncodeUtf8(std::wstring_view text);

/// Reads a UTF-8 text file as lines (LF or CR LF, a leading byte-order mark
/// skipped). False when the file cannot be opened or read. `crlf`, when
/// given, tells whether the first line ended with CR LF.
bool KitReadTextLines(const std::string& path, std::vector<std::wstring>& lines,
                      bool* crlf = nullptr);

/// Removes blanks (spaces and tabs) from both ends.
std::wstring_view KitTrimBlanks(std::wstring_view text);

/// Equality ignoring the case of ASCII letters only.
bool KitEqualsIgnoreAsciiCase(std::wstring_view a, std::wstring_view b);
