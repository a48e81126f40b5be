#include "framework/Streams/TextBuffer.h"

#include <algorithm>
#include <cstring>
#include <new>

bool TextBuffer::Append(const wchar_t* text, size_t count) {
    if (count == 0) return true;
    if (count > kMaxCharacters - m_Size) return false;
    size_t needed = m_Size + count + 1;
    if (needed <= m_Capacity && !m_EndPinned) {
        std::memmove(m_Data.get() + m_Size, text, count * sizeof(wchar_t));
        m_Size += count;
        m_Data[m_Size] = L'\0';
        return true;
    }
    // Continue in a new buffer. Doubling keeps all retired buffers together
    // below twice the text; a terminated view alone needs no more room.
    size_t capacity = std::max<size_t>({needed, needed > m_Capacity ? m_Capacity * 2 : m_Capacity, 256});
    std::unique_ptr<wchar_t[]> fresh(new (std::nothrow) wchar_t[capacity]);
    if (!fresh) return false;
    if (m_Size) std::memcpy(fresh.get(), m_Data.get(), m_Size * sizeof(wchar_t));
    // The old buffer is still alive here, so `text` may point into it.
    std::memcpy(fresh.get() + m_Size, text, count * sizeof(wchar_t));
    fresh[m_Size + count] = L'\0';
    if (m_Pinned && m_Data) {
        // A view points into the old buffer: keep it for as long as views live.
        try {
            m_Retired.emplace_back();
        } catch (const std::bad_alloc&) {
            return false;
        }
        m_Retired.back() = std::move(m_Data);
    }
    m_Data = std::move(fresh);
    m_Capacity = capacity;
    m_Size += count;
    m_Pinned = false;
    m_EndPinned = false;
    return true;
}

bool TextBuffer::Assign(const wchar_t* text, size_t count) {
    if (count > kMaxCharacters) return false;
    size_t capacity = std::max<size_t>(count + 1, 256);
    std::unique_ptr<wchar_t[]> fresh(new (std::nothrow) wchar_t[capacity]);
    if (!fresh) return false;
    // Copied before anything is freed: `text` may be a view of this buffer.
    if (count) std::memcpy(fresh.get(), text, count * sizeof(wchar_t));
    fresh[count] = L'\0';
    m_Data = std::move(fresh);
    m_Capacity = capacity;
    m_Size = count;
    m_Pinned = false;
    m_EndPinned = false;
    m_Retired.clear();
    return true;
}

void TextBuffer::Clear() {
    m_Data.reset();
    m_Capacity = 0;
    m_Size = 0;
    m_Pinned = false;
    m_EndPinned = false;
    m_Retired.clear();
}

const wchar_t* TextBuffer::Pin(size_t position) {
    if (!m_Data) return L"";
    m_Pinned = true;
    return m_Data.get() + std::min(position, m_Size);
}

const wchar_t* TextBuffer::PinToEnd(size_t position) {
    if (!m_Data) return L"";
    m_Pinned = true;
    m_EndPinned = true;
    return m_Data.get() + std::min(position, m_Size);
}
