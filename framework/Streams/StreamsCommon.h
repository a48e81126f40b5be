// Helpers shared by the classes of "Streams.so": keys, XML escaping, the
// text form of sized values, and the limits that keep untrusted input
// from exhausting the stack.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "lum/lum.h"

/// Deepest nesting of folders (and XML elements read back) that is accepted.
/// Deeper input is refused rather than walked recursively.
constexpr int kMaxFolderDepth = 256;

/// Answered only by the XML stream and its folder views: persistence code of
/// this module writes decimal text where a binary folder would take raw bytes.
/// The identifier is a constant that no interface name can produce.
extern const IID IID_StreamsXMLFolder;

/// The text of a key or name argument; false for a null string.
bool StreamsKeyText(IString* key, std::wstring& out);

/// Whether `tag` can be written as an element name: not empty, and free of
/// white space, control characters and the characters that delimit markup
/// (< > & " ' = /). Names beginning with a digit are allowed.
bool StreamsIsElementName(std::wstring_view tag);

/// Whether a class name read back from a stream may be handed to the
/// collection: not empty, no control characters, no "/" (a stored name must
/// not reach module files outside the working directory).
bool StreamsIsClassName(std::wstring_view name);

/// `&`, `<`, `>` as `&amp;`, `&lt;`, `&gt;`; everything else unchanged.
void StreamsAppendEscaped(std::wstring& out, std::wstring_view text);
/// As above, plus `"` as `&quot;`, for attribute values in double quotes.
void StreamsAppendAttributeEscaped(std::wstring& out, std::wstring_view text);

/// The text of a value of `count` bytes: 1 byte unsigned decimal, 2 and 4
/// bytes signed decimal, 8 bytes a double in the shortest text that reads
/// back to the same bits, any other size two hexadecimal digits per byte.
std::wstring StreamsFormatValue(const uint8_t* bytes, size_t count);

/// Parses `text` (surrounding white space ignored) as a value of `count`
/// bytes by the rules above; `out` is written only on success.
bool StreamsParseValue(std::wstring_view text, uint8_t* out, size_t count);

/// A signed 64-bit decimal (surrounding white space ignored).
bool StreamsParseInt64(std::wstring_view text, int64_t* value);

/// Byte count of a typed field: 1, 2, 4, 4, 8 for codes 1 to 5, else 0.
size_t StreamsRecordSize(int32_t typeCode);
