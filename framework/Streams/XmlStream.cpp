#include "framework/Streams/XmlStream.h"

#include <cstring>
#include <cwchar>
#include <new>

#include "framework/Streams/StreamsCommon.h"
#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CXMLStream, L"XMLStream")

const tagREFString CXMLStream::kExName = {11, const_cast<wchar_t*>(L"XMLStreamEx")};

const InterfaceEntry<CXMLStream> CXMLStream::kInterfaces[] = {
    InterfaceEntry<CXMLStream>::Of<IXMLStreamEx>(IID_IXMLStreamEx),
    InterfaceEntry<CXMLStream>::Of<IXMLStreamEx>(IID_IXMLStream),
    InterfaceEntry<CXMLStream>::Of<IDataStream>(IID_IDataStream),
    InterfaceEntry<CXMLStream>::Of<IString>(IID_IString),
    InterfaceEntry<CXMLStream>::Of<IFolderStream>(IID_IFolderStream),
    InterfaceEntry<CXMLStream>::Of<IFolderStream>(IID_StreamsXMLFolder),
    InterfaceEntry<CXMLStream>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CXMLStream>::End(),
};

namespace {

constexpr int32_t kLineEnds = 1;
constexpr int32_t kIndent = 2;

bool IsSpace(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n' || c == L'\v' || c == L'\f';
}

// The argument rules of IString: a negative length reads up to the
// terminator; a null text is empty with a length of at most 0, an error with
// a positive one.
HRESULT ArgumentText(int32_t length, const wchar_t* text, std::wstring_view* out) {
    if (!text) {
        if (length > 0) return E_POINTER;
        *out = {};
        return S_OK;
    }
    *out = std::wstring_view(text, length < 0 ? std::wcslen(text) : static_cast<size_t>(length));
    return S_OK;
}

HRESULT ViewArgument(const tagREFString& view, std::wstring_view* out) {
    if (view.length <= 0) {
        *out = {};
        return S_OK;
    }
    if (!view.text) return E_POINTER;
    *out = std::wstring_view(view.text, static_cast<size_t>(view.length));
    return S_OK;
}

}  // namespace

CXMLStream::CXMLStream() { m_Root.stream = this; }

HRESULT CXMLStream::CreateExInstance(void* outer, const IID* iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!iid) return E_POINTER;
    SmartPtr<IXMLStreamEx> stream;
    HRESULT hr = _CreateInstance(outer, &IID_IXMLStreamEx, stream.OutVoid());
    if (hr < 0) return hr;
    static_cast<CXMLStream*>(stream.Get())->m_ObjectName = &kExName;
    return stream->QueryInterface(*iid, object);
}

HRESULT CXMLStream::GetName(int32_t /*selector*/, tagREFString* name) {
    if (!name) return E_POINTER;
    *name = *m_ObjectName;
    return S_OK;
}

// ---- writing ---------------------------------------------------------------

bool CXMLStream::AppendRaw(std::wstring_view text) {
    if (!m_Text.Append(text.data(), text.size())) return false;
    ++m_Generation;
    return true;
}

std::wstring CXMLStream::ItemPrefix(size_t depth) const {
    std::wstring prefix;
    bool lineStart = m_Text.Size() == 0 || m_Text.Last() == L'\n';
    if (m_PendingLineEnd && (m_Options & kLineEnds)) {
        prefix += L"\r\n";
        lineStart = true;
    }
    if ((m_Options & kIndent) && lineStart) prefix.append(depth, L'\t');
    return prefix;
}

HRESULT CXMLStream::StartTag(std::wstring_view tag, std::wstring_view attributes, uint64_t folder) {
    try {
        std::wstring item = ItemPrefix(m_Open.size());
        item += L'<';
        item += tag;
        item += attributes;
        item += L'>';
        // A folder's line end waits until something goes inside it.
        if (!folder && (m_Options & kLineEnds)) item += L"\r\n";
        m_Open.push_back(OpenTag{std::wstring(tag), folder});
        if (!AppendRaw(item)) {
            m_Open.pop_back();
            return E_FAIL;
        }
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    m_PendingLineEnd = folder != 0;
    return S_OK;
}

HRESULT CXMLStream::EndTag() {
    OpenTag closing = std::move(m_Open.back());
    m_Open.pop_back();
    bool empty = m_PendingLineEnd;
    m_PendingLineEnd = false;
    try {
        // An element with nothing inside closes on its start tag's line.
        std::wstring item = empty ? std::wstring() : ItemPrefix(m_Open.size());
        item += L"</";
        item += closing.tag;
        item += L'>';
        if (m_Options & kLineEnds) item += L"\r\n";
        if (!AppendRaw(item)) return E_FAIL;
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

void CXMLStream::CloseFolders() {
    while (!m_Open.empty() && m_Open.back().folder) EndTag();
}

HRESULT CXMLStream::WriteElement(tagREFString tag, IString* text) {
    std::wstring_view name;
    if (ViewArgument(tag, &name) < 0) return E_POINTER;
    if (!StreamsIsElementName(name)) return E_INVALIDARG;
    CloseFolders();
    try {
        std::wstring item = ItemPrefix(m_Open.size());
        item += L'<';
        item += name;
        item += L'>';
        StreamsAppendEscaped(item, KitTextOf(text));
        item += L"</";
        item += name;
        item += L'>';
        if (m_Options & kLineEnds) item += L"\r\n";
        return AppendRaw(item) ? S_OK : E_FAIL;
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
}

HRESULT CXMLStream::OpenElement(tagREFString tag) {
    std::wstring_view name;
    if (ViewArgument(tag, &name) < 0) return E_POINTER;
    if (!StreamsIsElementName(name)) return E_INVALIDARG;
    CloseFolders();
    return StartTag(name, {}, 0);
}

HRESULT CXMLStream::CloseElement() {
    CloseFolders();
    if (m_Open.empty()) return S_FALSE;
    return EndTag();
}

HRESULT CXMLStream::WriteText(tagREFString text) {
    std::wstring_view characters;
    if (ViewArgument(text, &characters) < 0) return E_POINTER;
    CloseFolders();
    return AppendRaw(characters) ? S_OK : E_FAIL;
}

HRESULT CXMLStream::SetOptions(int32_t mask, int32_t value) {
    m_Options = (m_Options & ~mask) | (value & mask);
    return S_OK;
}

HRESULT CXMLStream::get_Options(int32_t* options) {
    if (!options) return E_POINTER;
    *options = m_Options;
    return S_OK;
}

void CXMLStream::DropText() {
    m_ReadPos = 0;
    m_Open.clear();
    m_PendingLineEnd = false;
    m_Parsed.reset();
    ++m_Generation;
}

HRESULT CXMLStream::Reset() {
    m_Text.Clear();
    DropText();
    return S_OK;
}

// ---- reading ---------------------------------------------------------------

HRESULT CXMLStream::ReadToken(tagREFString* token) {
    if (!token) return E_POINTER;
    const wchar_t* text = m_Text.Data();
    const size_t size = m_Text.Size();
    size_t begin = m_ReadPos;
    while (begin < size && IsSpace(text[begin])) ++begin;
    if (begin >= size) {
        if (m_ReadPos != size) ++m_Generation;
        m_ReadPos = size;
        *token = tagREFString{0, const_cast<wchar_t*>(L"")};
        return S_FALSE;
    }
    size_t end, next;
    if (text[begin] == L'<') {
        // Markup: the text between "<" and the next ">" (or the end).
        ++begin;
        const wchar_t* close = std::wmemchr(text + begin, L'>', size - begin);
        end = close ? static_cast<size_t>(close - text) : size;
        next = close ? end + 1 : size;
    } else {
        // Character data up to the next "<", trailing white space dropped.
        const wchar_t* open = std::wmemchr(text + begin, L'<', size - begin);
        next = open ? static_cast<size_t>(open - text) : size;
        end = next;
        while (end > begin && IsSpace(text[end - 1])) --end;
    }
    m_ReadPos = next;
    ++m_Generation;
    *token = tagREFString{static_cast<int32_t>(end - begin), const_cast<wchar_t*>(m_Text.Pin(begin))};
    return S_OK;
}

std::shared_ptr<const XmlNode> CXMLStream::ParsedEntries() {
    CloseFolders();
    if (!m_Parsed || m_ParsedGeneration != m_Generation) {
        m_Parsed = XmlParseEntries(std::wstring_view(m_Text.Data() + m_ReadPos, m_Text.Size() - m_ReadPos));
        m_ParsedGeneration = m_Generation;
    }
    return m_Parsed;
}

// ---- IDataStream -----------------------------------------------------------

HRESULT CXMLStream::Write(const void* bytes, int32_t count) {
    if (count < 0) return E_INVALIDARG;
    if (!bytes && count > 0) return E_POINTER;
    // Whole 4-byte units up to the first 0 character; the source need not be aligned.
    const auto* source = static_cast<const uint8_t*>(bytes);
    size_t units = static_cast<size_t>(count) / sizeof(wchar_t);
    std::wstring text;
    try {
        text.reserve(units);
        for (size_t i = 0; i < units; ++i) {
            wchar_t c;
            std::memcpy(&c, source + i * sizeof(wchar_t), sizeof c);
            if (c == L'\0') break;
            text += c;
        }
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    CloseFolders();
    return AppendRaw(text) ? S_OK : E_FAIL;
}

HRESULT CXMLStream::GetBytes(uint8_t** bytes, int32_t* count) {
    if (!bytes) return E_POINTER;
    CloseFolders();
    *bytes = reinterpret_cast<uint8_t*>(const_cast<wchar_t*>(m_Text.Pin(0)));
    if (count) *count = static_cast<int32_t>(m_Text.Size() * sizeof(wchar_t));
    return S_OK;
}

HRESULT CXMLStream::Read(void* buffer, int32_t count, int32_t* done) {
    if (done) *done = 0;
    if (count < 0) return E_INVALIDARG;
    if (!buffer && count > 0) return E_POINTER;
    size_t units = std::min(static_cast<size_t>(count) / sizeof(wchar_t), m_Text.Size() - m_ReadPos);
    if (units) {
        std::memcpy(buffer, m_Text.Data() + m_ReadPos, units * sizeof(wchar_t));
        m_ReadPos += units;
        ++m_Generation;
    }
    int32_t copied = static_cast<int32_t>(units * sizeof(wchar_t));
    if (done) *done = copied;
    return copied < count ? S_FALSE : S_OK;
}

HRESULT CXMLStream::Clear() { return Reset(); }

HRESULT CXMLStream::get_Size(int32_t* count) {
    if (!count) return E_POINTER;
    *count = static_cast<int32_t>(m_Text.Size() * sizeof(wchar_t));
    return S_OK;
}

// ---- IString ---------------------------------------------------------------

HRESULT CXMLStream::GetText(wchar_t** text, int32_t* length) {
    CloseFolders();
    if (text) *text = const_cast<wchar_t*>(m_Text.PinToEnd(m_ReadPos));
    if (length) *length = static_cast<int32_t>(m_Text.Size() - m_ReadPos);
    return S_OK;
}

HRESULT CXMLStream::SetText(int32_t length, const wchar_t* text) {
    std::wstring_view characters;
    HRESULT hr = ArgumentText(length, text, &characters);
    if (hr < 0) return hr;
    if (!m_Text.Assign(characters.data(), characters.size())) return E_FAIL;
    DropText();
    return S_OK;
}

HRESULT CXMLStream::Append(int32_t length, const wchar_t* text) {
    std::wstring_view characters;
    HRESULT hr = ArgumentText(length, text, &characters);
    if (hr < 0) return hr;
    CloseFolders();
    return AppendRaw(characters) ? S_OK : E_FAIL;
}

HRESULT CXMLStream::get_Length(int32_t* length) {
    if (!length) return E_POINTER;
    *length = static_cast<int32_t>(m_Text.Size() - m_ReadPos);
    return S_OK;
}

// ---- the folder view's access ----------------------------------------------

HRESULT CXMLStream::Open(IString*, int32_t) { return E_NOTIMPL; }

// The text is not bound to a file.
HRESULT CXMLStream::Commit() { return E_FAIL; }

// Text once written cannot be taken back.
HRESULT CXMLStream::RemoveEntry(IString*) { return E_NOTIMPL; }

HRESULT CXMLStream::BeginFolderWrite(uint64_t folder) {
    if (!folder) {
        CloseFolders();
        return S_OK;
    }
    for (size_t i = 0; i < m_Open.size(); ++i) {
        if (m_Open[i].folder != folder) continue;
        while (m_Open.size() > i + 1) EndTag();
        return S_OK;
    }
    return E_FAIL;
}

HRESULT CXMLStream::WriteFolderElement(uint64_t folder, std::wstring_view key, std::wstring_view escaped) {
    HRESULT hr = BeginFolderWrite(folder);
    if (hr < 0) return hr;
    try {
        std::wstring item = ItemPrefix(m_Open.size());
        item += L'<';
        item += key;
        item += L'>';
        item += escaped;
        item += L"</";
        item += key;
        item += L'>';
        if (m_Options & kLineEnds) item += L"\r\n";
        if (!AppendRaw(item)) return E_FAIL;
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    m_PendingLineEnd = false;
    return S_OK;
}

HRESULT CXMLStream::OpenFolderElement(uint64_t parent, std::wstring_view key, const std::wstring* className,
                                      uint64_t* folder) {
    HRESULT hr = BeginFolderWrite(parent);
    if (hr < 0) return hr;
    std::wstring attributes;
    try {
        if (className) {
            attributes = L" class=\"";
            StreamsAppendAttributeEscaped(attributes, *className);
            attributes += L'"';
        }
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    uint64_t id = m_NextFolder++;
    hr = StartTag(key, attributes, id);
    if (hr < 0) return hr;
    *folder = id;
    return S_OK;
}

void CXMLStream::CloseFolderElement(uint64_t folder) {
    for (size_t i = 0; i < m_Open.size(); ++i) {
        if (m_Open[i].folder != folder) continue;
        while (m_Open.size() > i) EndTag();
        return;
    }
}
