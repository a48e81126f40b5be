// "XMLStream" / "XMLStreamEx": one wide text with a read position, written
// as XML elements and read back as tokens, and the same text seen as a
// folder stream (the folder view lives in XmlFolderView.cpp).
//
// Writing. Elements opened through IXMLStream and elements opened for
// folders share one stack of open elements. A folder's element is always
// innermost: anything written through the text interfaces, or through an
// ancestor folder, first closes the folder elements above the writer. A
// folder element's line end is written only once something goes inside it,
// so that a folder left empty reads `<name></name>` like an empty string.
//
// Reading. ReadToken consumes from the read position; GetText hands out the
// unread rest. Both hand out views that stay put (TextBuffer).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "framework/Streams/TextBuffer.h"
#include "framework/Streams/XmlDocument.h"
#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CXMLStream;
// Declared ahead of the class, whose members take the name's address.
LUM_KIT_OBJECT_NAME_DECLARE(CXMLStream)

/// The IFolderStream operations over one folder of an XML text: the stream's
/// root (writes at the end of the text, reads the parsed unread rest), a
/// folder being written (an open element; nothing to read), or a folder read
/// back (a parsed element; nothing to write).
struct XmlFolderAccess {
    CXMLStream* stream = nullptr;         // the text written to; null for a folder read back
    uint64_t element = 0;                 // the open element written to; 0 for the root
    std::shared_ptr<const XmlNode> tree;  // keeps a folder read back alive
    const XmlNode* node = nullptr;        // the element read back
    int depth = 0;
    std::wstring name;

    HRESULT get_Name(IString** name);
    HRESULT CreateFolder(IString* name, IFolderStream** folder);
    HRESULT OpenFolder(IVariant* which, IFolderStream** folder);
    HRESULT get_FolderCount(int32_t* count);
    HRESULT WriteObject(IString* key, IUnknown* object);
    HRESULT ReadObject(IString* key, IUnknown** object);
    HRESULT WriteValue(IString* key, const void* bytes, int32_t count);
    HRESULT WriteString(IString* key, IString* value);
    HRESULT WriteRecord(IString* key, const void* field, int32_t typeCode);
    HRESULT ReadRecord(IString* key, void* field, int32_t typeCode);
    HRESULT ReadValue(IString* key, void* bytes, int32_t count);
    HRESULT ReadString(IString* key, IString* value);
    HRESULT HasEntry(IString* key);

private:
    /// The element to read from (null when there is none); `keep` holds its tree.
    const XmlNode* ReadNode(std::shared_ptr<const XmlNode>& keep);
};

class CXMLStream final : public CObject<CXMLStream>,
                         public IXMLStreamEx,
                         public IDataStream,
                         public IString,
                         public IFolderStream,
                         public IObjectInfoImpl<CXMLStream> {
    LUM_OBJECT_UNKNOWN(CXMLStream)
public:
    CXMLStream();

    /// The creation function of the second name, "XMLStreamEx": the same
    /// class, reporting that name through IObjectInfo.
    static HRESULT CreateExInstance(void* outer, const IID* iid, void** object);
    static const tagREFString kExName;

    HRESULT GetName(int32_t selector, tagREFString* name) override;

    // IXMLStream / IXMLStreamEx
    HRESULT WriteElement(tagREFString tag, IString* text) override;
    HRESULT OpenElement(tagREFString tag) override;
    HRESULT CloseElement() override;
    HRESULT WriteText(tagREFString text) override;
    HRESULT ReadToken(tagREFString* token) override;
    HRESULT SetOptions(int32_t mask, int32_t value) override;
    HRESULT get_Options(int32_t* options) override;
    HRESULT Reset() override;

    // IDataStream: the text as 4-byte wchar_t units.
    HRESULT Write(const void* bytes, int32_t count) override;
    HRESULT GetBytes(uint8_t** bytes, int32_t* count) override;
    HRESULT Read(void* buffer, int32_t count, int32_t* done) override;
    HRESULT Clear() override;
    HRESULT get_Size(int32_t* count) override;

    // IString: the unread rest of the text.
    HRESULT GetText(wchar_t** text, int32_t* length) override;
    HRESULT SetText(int32_t length, const wchar_t* text) override;
    HRESULT Append(int32_t length, const wchar_t* text) override;
    HRESULT get_Length(int32_t* length) override;

    // IFolderStream: the root folder of the text.
    HRESULT Open(IString* fileName, int32_t mode) override;
    HRESULT Commit() override;
    HRESULT get_Name(IString** name) override { return m_Root.get_Name(name); }
    HRESULT CreateFolder(IString* name, IFolderStream** folder) override {
        return m_Root.CreateFolder(name, folder);
    }
    HRESULT OpenFolder(IVariant* which, IFolderStream** folder) override {
        return m_Root.OpenFolder(which, folder);
    }
    HRESULT get_FolderCount(int32_t* count) override { return m_Root.get_FolderCount(count); }
    HRESULT WriteObject(IString* key, IUnknown* object) override { return m_Root.WriteObject(key, object); }
    HRESULT ReadObject(IString* key, IUnknown** object) override { return m_Root.ReadObject(key, object); }
    HRESULT WriteValue(IString* key, const void* bytes, int32_t count, int32_t) override {
        return m_Root.WriteValue(key, bytes, count);
    }
    HRESULT WriteString(IString* key, IString* value) override { return m_Root.WriteString(key, value); }
    HRESULT WriteRecord(IString* key, const void* field, int32_t typeCode) override {
        return m_Root.WriteRecord(key, field, typeCode);
    }
    HRESULT ReadRecord(IString* key, void* field, int32_t typeCode) override {
        return m_Root.ReadRecord(key, field, typeCode);
    }
    HRESULT RemoveEntry(IString* key) override;
    HRESULT ReadValue(IString* key, void* bytes, int32_t count, int32_t) override {
        return m_Root.ReadValue(key, bytes, count);
    }
    HRESULT ReadString(IString* key, IString* value) override { return m_Root.ReadString(key, value); }
    HRESULT HasEntry(IString* key) override { return m_Root.HasEntry(key); }

    // The folder view's access to the text.

    /// Closes the folder elements above `folder` (all of them for the root,
    /// 0) so that a write through it lands inside its element; E_FAIL when
    /// that folder's element is already closed.
    HRESULT BeginFolderWrite(uint64_t folder);
    /// Writes `<key>escaped</key>` through `folder`.
    HRESULT WriteFolderElement(uint64_t folder, std::wstring_view key, std::wstring_view escaped);
    /// Opens `<key>` (with a class attribute when `className` is given)
    /// through `parent`, as the element of a new folder whose id is returned.
    HRESULT OpenFolderElement(uint64_t parent, std::wstring_view key, const std::wstring* className,
                              uint64_t* folder);
    /// Closes the folder's element (and those inside it) if still open.
    void CloseFolderElement(uint64_t folder);
    /// The unread rest parsed as folder entries, parsed again only when the
    /// text or the read position changed since.
    std::shared_ptr<const XmlNode> ParsedEntries();

private:
    struct OpenTag {
        std::wstring tag;
        uint64_t folder;  // 0: opened through IXMLStream
    };

    bool AppendRaw(std::wstring_view text);
    /// Line end owed to a folder start tag, then the indentation of an item
    /// `depth` elements deep when it starts a line.
    std::wstring ItemPrefix(size_t depth) const;
    HRESULT StartTag(std::wstring_view tag, std::wstring_view attributes, uint64_t folder);
    HRESULT EndTag();
    void CloseFolders();
    void DropText();

    const tagREFString* m_ObjectName = &IObjectInfoImpl<CXMLStream>::m_ObjectName;
    TextBuffer m_Text;
    size_t m_ReadPos = 0;
    int32_t m_Options = 3;
    std::vector<OpenTag> m_Open;
    bool m_PendingLineEnd = false;
    uint64_t m_NextFolder = 1;
    uint64_t m_Generation = 0;  // advances whenever the text or the read position changes
    std::shared_ptr<const XmlNode> m_Parsed;
    uint64_t m_ParsedGeneration = 0;
    XmlFolderAccess m_Root;
};

/// A folder of an XML stream handed out by CreateFolder, WriteObject,
/// OpenFolder or ReadObject. Its IDataStream exists so that it can be handed
/// to IDataPersist; its byte operations are not supported.
class CXmlFolder final : public CObject<CXmlFolder>, public IFolderStream, public IDataStream {
    LUM_OBJECT_UNKNOWN(CXmlFolder)
public:
    /// A folder being written: keeps the stream alive, closes its element when released.
    static SmartPtr<CXmlFolder> ForWriting(CXMLStream* stream, uint64_t element, int depth,
                                           std::wstring name);
    /// A folder read back from a parsed element.
    static SmartPtr<CXmlFolder> ForReading(std::shared_ptr<const XmlNode> tree, const XmlNode* node,
                                           int depth);

    void FinalRelease() override;

    HRESULT Write(const void*, int32_t) override { return E_NOTIMPL; }
    HRESULT GetBytes(uint8_t**, int32_t*) override { return E_NOTIMPL; }
    HRESULT Read(void*, int32_t, int32_t*) override { return E_NOTIMPL; }
    HRESULT Clear() override { return E_NOTIMPL; }
    HRESULT get_Size(int32_t*) override { return E_NOTIMPL; }

    HRESULT Open(IString*, int32_t) override { return E_NOTIMPL; }
    HRESULT Commit() override { return E_FAIL; }
    HRESULT get_Name(IString** name) override { return m_Access.get_Name(name); }
    HRESULT CreateFolder(IString* name, IFolderStream** folder) override {
        return m_Access.CreateFolder(name, folder);
    }
    HRESULT OpenFolder(IVariant* which, IFolderStream** folder) override {
        return m_Access.OpenFolder(which, folder);
    }
    HRESULT get_FolderCount(int32_t* count) override { return m_Access.get_FolderCount(count); }
    HRESULT WriteObject(IString* key, IUnknown* object) override { return m_Access.WriteObject(key, object); }
    HRESULT ReadObject(IString* key, IUnknown** object) override { return m_Access.ReadObject(key, object); }
    HRESULT WriteValue(IString* key, const void* bytes, int32_t count, int32_t) override {
        return m_Access.WriteValue(key, bytes, count);
    }
    HRESULT WriteString(IString* key, IString* value) override { return m_Access.WriteString(key, value); }
    HRESULT WriteRecord(IString* key, const void* field, int32_t typeCode) override {
        return m_Access.WriteRecord(key, field, typeCode);
    }
    HRESULT ReadRecord(IString* key, void* field, int32_t typeCode) override {
        return m_Access.ReadRecord(key, field, typeCode);
    }
    HRESULT RemoveEntry(IString*) override { return E_NOTIMPL; }
    HRESULT ReadValue(IString* key, void* bytes, int32_t count, int32_t) override {
        return m_Access.ReadValue(key, bytes, count);
    }
    HRESULT ReadString(IString* key, IString* value) override { return m_Access.ReadString(key, value); }
    HRESULT HasEntry(IString* key) override { return m_Access.HasEntry(key); }

private:
    XmlFolderAccess m_Access;
    SmartPtr<IXMLStream> m_Stream;  // the reference that keeps a written folder's stream alive
};
