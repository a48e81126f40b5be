// Archive files: whole-file reads and writes, the choice of format by
// extension, and the XML and folder-stream steps shared by every component.
#include "archive/FileArchive.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <new>
#include <string>

#include "module/ModuleLoader.h"
#include "text/ValueConversion.h"

namespace {

/// Longest multibyte file name handed to the operating system.
constexpr size_t kNameBytes = 256;
/// Largest file read: its wide text must still be countable in bytes by a
/// 32-bit length.
constexpr long kMaxFileBytes = INT_MAX / static_cast<long>(sizeof(wchar_t)) - 16;

/// The view's characters up to its end or a 0 character.
std::wstring Characters(const tagREFString& view) {
    if (!view.text || view.length <= 0) return {};
    std::wstring text(view.text, static_cast<size_t>(view.length));
    const size_t zero = text.find(L'\0');
    if (zero != std::wstring::npos) text.resize(zero);
    return text;
}

/// The multibyte form of a file name, cut at 256 bytes (never inside a
/// character). False when a character has no multibyte form.
bool NarrowName(const tagREFString& name, std::string& narrow) {
    narrow.clear();
    std::mbstate_t state{};
    char piece[MB_LEN_MAX];
    for (wchar_t c : Characters(name)) {
        const size_t size = std::wcrtomb(piece, c, &state);
        if (size == static_cast<size_t>(-1)) return false;
        if (narrow.size() + size > kNameBytes) break;
        narrow.append(piece, size);
    }
    return true;
}

void ReportOpenFailure(const std::string& name) { std::fprintf(stderr, "file open err:\n%s\n", name.c_str()); }

tagREFString ViewOf(IString* string) {
    tagREFString view{0, nullptr};
    if (string) {
        wchar_t* text = nullptr;
        int32_t length = 0;
        if (string->GetText(&text, &length) >= 0 && text && length > 0) view = tagREFString{length, text};
    }
    return view;
}

/// Multibyte text to wide characters, up to the first 0 byte. A byte that
/// starts no valid character stands for itself, so nothing is dropped.
int32_t WidenBytes(const unsigned char* bytes, int32_t count, wchar_t* out) {
    std::mbstate_t state{};
    int32_t produced = 0;
    int32_t position = 0;
    while (position < count && bytes[position] != 0) {
        wchar_t c = 0;
        const size_t used = std::mbrtowc(&c, reinterpret_cast<const char*>(bytes + position),
                                         static_cast<size_t>(count - position), &state);
        if (used == static_cast<size_t>(-1) || used == static_cast<size_t>(-2) || used == 0) {
            c = static_cast<wchar_t>(bytes[position]);
            state = std::mbstate_t{};
            ++position;
        } else {
            position += static_cast<int32_t>(used);
        }
        out[produced++] = c;
    }
    out[produced] = L'\0';
    return produced;
}

bool HasByteOrderMark(const unsigned char* bytes, int32_t count) {
    const int32_t limit = count < 8 ? count : 8;
    for (int32_t i = 0; i + 1 < limit; ++i)
        if ((bytes[i] == 0xFE && bytes[i + 1] == 0xFF) || (bytes[i] == 0xFF && bytes[i + 1] == 0xFE)) return true;
    return false;
}

}  // namespace

HRESULT FileArchiveLoad(tagREFString name, void** buffer, int* length, short wide) {
    if (!buffer || !length) return E_POINTER;
    *buffer = nullptr;
    *length = 0;
    std::string narrow;
    const bool converted = NarrowName(name, narrow);
    std::FILE* file = converted ? std::fopen(narrow.c_str(), "rb") : nullptr;
    if (!file) {
        ReportOpenFailure(narrow);
        return E_FAIL;
    }
    long size = -1;
    if (std::fseek(file, 0, SEEK_END) == 0) size = std::ftell(file);
    // A folder or a device reports no usable size: nothing can be read.
    if (size <= 0 || size > kMaxFileBytes || std::fseek(file, 0, SEEK_SET) != 0) {
        std::fclose(file);
        return E_FAIL;
    }
    unsigned char* bytes = new (std::nothrow) unsigned char[static_cast<size_t>(size) + 10];
    if (!bytes) {
        std::fclose(file);
        return E_FAIL;
    }
    const size_t read = std::fread(bytes, 1, static_cast<size_t>(size), file);
    std::fclose(file);
    if (read == 0) {
        delete[] bytes;
        return E_FAIL;
    }
    bytes[read] = 0;
    const int32_t count = static_cast<int32_t>(read);
    if (!wide) {
        *buffer = bytes;
        *length = count;
        return S_OK;
    }

    wchar_t* text = nullptr;
    int32_t characters = 0;
    if (HasByteOrderMark(bytes, count)) {
        // count / 2 characters: the 16-bit units after the first (the mark),
        // read little-endian whatever the mark says; the last one is the 0
        // that ends the text.
        const int32_t units = count / 2;
        text = new (std::nothrow) wchar_t[static_cast<size_t>(units)];
        if (text) {
            for (int32_t i = 0; i + 1 < units; ++i)
                text[i] = static_cast<wchar_t>(bytes[2 * (i + 1)] | (bytes[2 * (i + 1) + 1] << 8));
            text[units - 1] = L'\0';
            characters = units - 1;
        }
    } else {
        text = new (std::nothrow) wchar_t[static_cast<size_t>(count) + 10];
        if (text) characters = WidenBytes(bytes, count, text);
    }
    delete[] bytes;
    if (!text) return E_FAIL;
    *buffer = text;
    *length = characters;
    return S_OK;
}

HRESULT FileArchiveSave(tagREFString name, unsigned char* bytes, int count, short wide, short /*reserved*/) {
    std::string narrow;
    if (!NarrowName(name, narrow)) return E_FAIL;
    std::FILE* file = std::fopen(narrow.c_str(), "wb");
    if (!file) return E_FAIL;
    if (!bytes || count < 0) count = 0;
    size_t written = 0;
    if (wide) {
        static const unsigned char mark[2] = {0xFF, 0xFE};
        std::fwrite(mark, 1, 2, file);
        // UTF-32 in, UTF-16 little-endian out: characters beyond 16 bits
        // are cut to their low 16 bits.
        const int32_t characters = count / static_cast<int32_t>(sizeof(wchar_t));
        unsigned char chunk[4096];
        size_t used = 0;
        for (int32_t i = 0; i < characters; ++i) {
            wchar_t c;
            std::memcpy(&c, bytes + static_cast<size_t>(i) * sizeof(wchar_t), sizeof c);
            chunk[used++] = static_cast<unsigned char>(c & 0xFF);
            chunk[used++] = static_cast<unsigned char>((c >> 8) & 0xFF);
            if (used == sizeof chunk || i + 1 == characters) {
                written += std::fwrite(chunk, 1, used, file);
                used = 0;
            }
        }
    } else if (count > 0) {
        written = std::fwrite(bytes, 1, static_cast<size_t>(count), file);
    }
    const bool closed = std::fclose(file) == 0;
    return written > 0 && closed ? S_OK : E_FAIL;
}

ArchiveFormat ARCHIVEFormatOf(IString* fileName) {
    const tagREFString name = ViewOf(fileName);
    int32_t dot = -1;
    for (int32_t i = 0; i < name.length; ++i)
        if (name.text[i] == L'.') dot = i;
    if (dot < 0) return ArchiveFormatNone;
    const int32_t extensionLength = name.length - dot - 1;
    const wchar_t first = extensionLength > 0 ? static_cast<wchar_t>(std::towlower(name.text[dot + 1])) : L'\0';
    // Compared over the shorter length: an empty extension matches "x".
    if (extensionLength == 0 || first == L'x') return ArchiveFormatXML;
    if (first == L't') return ArchiveFormatFolder;
    return ArchiveFormatNone;
}

bool ARCHIVENameChanged(IString* previous, IString* next) {
    const tagREFString a = ViewOf(previous);
    const tagREFString b = ViewOf(next);
    if (a.length == 0 || b.length == 0 || a.length != b.length) return true;
    for (int32_t i = 0; i < a.length; ++i)
        if (std::towlower(a.text[i]) != std::towlower(b.text[i])) return true;
    return false;
}

bool ARCHIVEHasName(IString* name) { return ViewOf(name).length > 0; }

SmartPtr<IString> ARCHIVEClassName(IUnknown* component) {
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(component, IID_IObjectInfo);
    tagREFString name{0, nullptr};
    if (!info || info->GetName(0, &name) < 0 || name.length <= 0) return {};
    return SmartPtr<IString>::Adopt(ISCreate(name));
}

HRESULT ARCHIVESaveXML(IUnknown* component, IString* fileName, IString* stylesheet, int32_t flags,
                       int32_t textEncoding) {
    SmartPtr<IXMLStreamEx> xml = CreateObjectAs<IXMLStreamEx>(L"XMLStreamEx", IID_IXMLStreamEx);
    SmartPtr<IDataStream> data = QueryAs<IDataStream>(xml.Get(), IID_IDataStream);
    if (!xml || !data) return E_FAIL;
    if (flags & (1 << 23)) xml->SetOptions(-1, flags);
    xml->Reset();

    std::wstring header = L"<?xml version=\"1.0\"?>\r\n<?xml-stylesheet href=\"";
    const tagREFString sheet = ViewOf(stylesheet);
    if (stylesheet)
        header.append(sheet.text ? sheet.text : L"", static_cast<size_t>(sheet.length));
    else
        header += L"generic.xsl";
    header += L"\" type=\"text/xsl\"?>\r\n";
    xml->WriteText(tagREFString{static_cast<int32_t>(header.size()), header.data()});

    if (SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(component, IID_IDataPersist)) {
        // The body element carries the component's class name.
        SmartPtr<IString> className = ARCHIVEClassName(component);
        const tagREFString body = className ? ViewOf(className.Get()) : REFStr(L"Settings");
        xml->OpenElement(body);
        persist->Save(data.Get(), 0);
        xml->CloseElement();
    }

    uint8_t* bytes = nullptr;
    int32_t count = 0;
    if (textEncoding < 1) {
        if (data->GetBytes(&bytes, &count) < 0) return E_FAIL;
        return FileArchiveSave(ViewOf(fileName), bytes, count, 1, 0);
    }
    SmartPtr<IStreamTransform> ascii = CreateObjectAs<IStreamTransform>(L"ASCIIStream", IID_IStreamTransform);
    SmartPtr<IDataStream> target = CreateObjectAs<IDataStream>(L"DataStream", IID_IDataStream);
    if (!ascii || !target) return E_FAIL;
    if (ascii->Transform(data.Get(), target.Get()) < 0 || target->GetBytes(&bytes, &count) < 0) return E_FAIL;
    return FileArchiveSave(ViewOf(fileName), bytes, count, 0, 0);
}

HRESULT ARCHIVELoadXML(IUnknown* component, IString* fileName, const wchar_t* const* streamClasses) {
    SmartPtr<IDataStream> stream;
    for (const wchar_t* const* name = streamClasses; name && *name && !stream; ++name)
        stream = CreateObjectAs<IDataStream>(*name, IID_IDataStream);
    SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream.Get(), IID_IXMLStream);
    if (!xml) return E_FAIL;

    void* buffer = nullptr;
    int length = 0;
    const HRESULT hr = FileArchiveLoad(ViewOf(fileName), &buffer, &length, 1);
    if (hr < 0) return hr;
    wchar_t* text = static_cast<wchar_t*>(buffer);
    stream->Write(text, length * static_cast<int32_t>(sizeof(wchar_t)));
    delete[] text;

    // Skip the declaration and the stylesheet instruction; the first other
    // token (the body's start tag) is consumed with them.
    tagREFString token{0, nullptr};
    while (xml->ReadToken(&token) == S_OK && token.length > 0 && token.text && token.text[0] == L'?') {
    }
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(component, IID_IDataPersist);
    if (!persist) return S_OK;
    return persist->Load(stream.Get(), 0);
}

SmartPtr<IFolderStream> ARCHIVEOpenFolder(IString* fileName, int32_t mode) {
    SmartPtr<IFolderStream> folder = CreateObjectAs<IFolderStream>(L"FolderStream", IID_IFolderStream);
    if (!folder) return folder;
    if (folder->Open(fileName, mode) < 0) {
        if (mode == 0) {
            std::string narrow;
            NarrowName(ViewOf(fileName), narrow);
            ReportOpenFailure(narrow);
        }
        folder.Reset();
    }
    return folder;
}

void ARCHIVEWriteInfo(IUnknown* component, IFolderStream* folder) {
    SmartPtr<IFileInfo> info = CreateObjectAs<IFileInfo>(L"FileInfo", IID_IFileInfo);
    SmartPtr<IComponentString> identity = CreateObjectAs<IComponentString>(L"ComponentString", IID_IComponentString);
    if (!info || !identity || !folder) return;
    identity->put_Object(component);
    info->put_Component(identity.Get());
    SmartPtr<IString> key = SmartPtr<IString>::Adopt(ISCreate(L"Info"));
    if (key) folder->WriteObject(key.Get(), info.Get());
}
