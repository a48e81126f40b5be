// Helpers of the text tests: views into heap buffers that hold exactly the
// view's characters (no terminator), so that AddressSanitizer reports any
// read past a view's end.
#pragma once

#include <cwchar>
#include <memory>
#include <string>

#include "text/REFString.h"

/// Owns an unterminated heap copy of some characters and views them.
class HeapText {
public:
    explicit HeapText(const std::wstring& characters)
        : m_Count(characters.size()), m_Characters(new wchar_t[characters.size()]) {
        std::wmemcpy(m_Characters.get(), characters.data(), characters.size());
    }
    /// A view of all characters.
    CREFString View() const { return CREFString(static_cast<int32_t>(m_Count), m_Characters.get()); }
    /// The same as a plain record, for pattern and separator arguments.
    tagREFString Ref() const { return tagREFString{static_cast<int32_t>(m_Count), m_Characters.get()}; }
    const wchar_t* Begin() const { return m_Characters.get(); }
    const wchar_t* End() const { return m_Characters.get() + m_Count; }

private:
    size_t m_Count;
    std::unique_ptr<wchar_t[]> m_Characters;
};

/// The characters of a view (empty for a non-positive length).
inline std::wstring Text(const tagREFString& view) {
    return view.length > 0 ? std::wstring(view.text, static_cast<size_t>(view.length)) : std::wstring();
}
