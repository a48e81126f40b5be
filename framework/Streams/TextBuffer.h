// A growing wide-character buffer whose handed-out views never move.
//
// The XML stream hands out pointers into its text (tokens, the unread rest)
// that must stay valid and unchanged while more text is appended. Appending
// in place would overwrite the terminator of a terminated view, and growing
// would move the characters; so once a view is out, the buffer that holds it
// is retired (kept alive, never written again) and writing continues in a
// fresh copy. Retired buffers are given back only when the whole text is
// replaced or dropped.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

class TextBuffer {
public:
    TextBuffer() = default;
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    /// Largest text kept: its size in bytes (4 per character) must fit an int32.
    static constexpr size_t kMaxCharacters = 0x7FFFFFFF / 4 - 1;

    size_t Size() const { return m_Size; }
    /// The characters, always followed by a 0 character (never null).
    const wchar_t* Data() const { return m_Data ? m_Data.get() : L""; }
    wchar_t Last() const { return m_Size ? m_Data[m_Size - 1] : L'\0'; }

    /// Appends `count` characters (which may lie in this buffer's own text).
    /// False, and nothing appended, when memory runs out or the text would
    /// grow too large.
    bool Append(const wchar_t* text, size_t count);
    /// Replaces the whole text; every view handed out so far is dropped.
    bool Assign(const wchar_t* text, size_t count);
    /// Empties the text and gives back every buffer.
    void Clear();

    /// A view from `position` that stays put: the buffer is not moved again.
    const wchar_t* Pin(size_t position);
    /// A view from `position` to the end whose terminator stays as well: the
    /// next append continues in a new buffer.
    const wchar_t* PinToEnd(size_t position);

private:
    std::unique_ptr<wchar_t[]> m_Data;
    size_t m_Capacity = 0;  // characters, terminator included
    size_t m_Size = 0;
    bool m_Pinned = false;     // a view points into m_Data
    bool m_EndPinned = false;  // a terminated view ends at m_Size
    std::vector<std::unique_ptr<wchar_t[]>> m_Retired;
};
