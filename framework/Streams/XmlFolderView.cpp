// The XML stream seen as a folder stream: folders are elements, values and
// strings are elements holding text, objects are elements with a class
// attribute holding what the object saved.
#include <new>

#include "framework/Streams/StreamsCommon.h"
#include "framework/Streams/XmlStream.h"
#include "framework/common/KitString.h"
#include "framework/common/KitText.h"

const InterfaceEntry<CXmlFolder> CXmlFolder::kInterfaces[] = {
    InterfaceEntry<CXmlFolder>::Of<IFolderStream>(IID_IFolderStream),
    InterfaceEntry<CXmlFolder>::Of<IDataStream>(IID_IDataStream),
    InterfaceEntry<CXmlFolder>::Of<IFolderStream>(IID_StreamsXMLFolder),
    InterfaceEntry<CXmlFolder>::End(),
};

namespace {

const XmlNode* FirstChild(const XmlNode* parent, const std::wstring& name, bool (*wanted)(const XmlNode&)) {
    if (!parent) return nullptr;
    for (const auto& child : parent->children)
        if (child->name == name && wanted(*child)) return child.get();
    return nullptr;
}

bool IsLeaf(const XmlNode& node) { return node.IsLeaf(); }
bool IsObject(const XmlNode& node) { return node.isObject; }
bool IsFolder(const XmlNode& node) { return node.IsFolder(); }
bool IsAny(const XmlNode&) { return true; }

// The key of a write: a null key is E_POINTER, one that cannot name an
// element E_INVALIDARG.
HRESULT ElementKey(IString* key, std::wstring& out) {
    if (!StreamsKeyText(key, out)) return E_POINTER;
    return StreamsIsElementName(out) ? S_OK : E_INVALIDARG;
}

}  // namespace

const XmlNode* XmlFolderAccess::ReadNode(std::shared_ptr<const XmlNode>& keep) {
    if (node) {
        keep = tree;
        return node;
    }
    // The root reads the text; a folder being written has nothing to read.
    if (!stream || element) return nullptr;
    keep = stream->ParsedEntries();
    return keep.get();
}

HRESULT XmlFolderAccess::get_Name(IString** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    SmartPtr<IString> text = KitNewString(name);
    if (!text) return E_FAIL;
    *out = text.Detach();
    return S_OK;
}

HRESULT XmlFolderAccess::CreateFolder(IString* key, IFolderStream** folder) {
    if (!folder) return E_POINTER;
    *folder = nullptr;
    std::wstring name;
    HRESULT hr = ElementKey(key, name);
    if (hr < 0) return hr;
    if (!stream || depth >= kMaxFolderDepth) return E_FAIL;
    uint64_t id = 0;
    hr = stream->OpenFolderElement(element, name, nullptr, &id);
    if (hr < 0) return hr;
    SmartPtr<CXmlFolder> created = CXmlFolder::ForWriting(stream, id, depth + 1, std::move(name));
    if (!created) {
        stream->CloseFolderElement(id);
        return E_FAIL;
    }
    *folder = static_cast<IFolderStream*>(created.Detach());
    return S_OK;
}

HRESULT XmlFolderAccess::OpenFolder(IVariant* which, IFolderStream** folder) {
    if (!folder) return E_POINTER;
    *folder = nullptr;
    if (!which) return E_POINTER;
    std::shared_ptr<const XmlNode> keep;
    const XmlNode* parent = ReadNode(keep);
    if (!parent) return E_FAIL;
    const XmlNode* found = nullptr;
    int16_t isString = 0;
    if (which->IsString(&isString) >= 0 && isString) {
        SmartPtr<IString> text;
        if (which->get_String(text.Out()) < 0) return E_INVALIDARG;
        found = FirstChild(parent, KitTextOf(text.Get()), IsFolder);
    } else {
        int16_t type = 0;
        int32_t index = 0;
        if (which->get_Type(&type) < 0 || type == 0 || which->get_Integer(&index) < 0) return E_INVALIDARG;
        for (const auto& child : parent->children) {
            if (!child->IsFolder()) continue;
            if (index-- == 0) {
                found = child.get();
                break;
            }
        }
    }
    if (!found) return E_FAIL;
    SmartPtr<CXmlFolder> opened = CXmlFolder::ForReading(keep, found, depth + 1);
    if (!opened) return E_FAIL;
    *folder = static_cast<IFolderStream*>(opened.Detach());
    return S_OK;
}

HRESULT XmlFolderAccess::get_FolderCount(int32_t* count) {
    if (!count) return E_POINTER;
    *count = 0;
    std::shared_ptr<const XmlNode> keep;
    if (const XmlNode* parent = ReadNode(keep))
        for (const auto& child : parent->children)
            if (child->IsFolder()) ++*count;
    return S_OK;
}

HRESULT XmlFolderAccess::WriteObject(IString* key, IUnknown* object) {
    std::wstring name;
    HRESULT hr = ElementKey(key, name);
    if (hr < 0) return hr;
    if (!object) return E_POINTER;
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object, IID_IObjectInfo);
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(object, IID_IDataPersist);
    if (!info || !persist) return E_NOINTERFACE;
    tagREFString className{0, nullptr};
    if (info->GetName(0, &className) < 0) return E_FAIL;
    std::wstring classText = KitViewString(className);
    if (classText.empty()) return E_FAIL;
    if (!stream || depth >= kMaxFolderDepth) return E_FAIL;

    uint64_t id = 0;
    hr = stream->OpenFolderElement(element, name, &classText, &id);
    if (hr < 0) return hr;
    SmartPtr<CXmlFolder> nested = CXmlFolder::ForWriting(stream, id, depth + 1, std::move(name));
    if (!nested) {
        stream->CloseFolderElement(id);
        return E_FAIL;
    }
    hr = persist->Save(static_cast<IDataStream*>(nested.Get()), 0);
    nested = nullptr;
    // Closed now even if the object kept the folder.
    stream->CloseFolderElement(id);
    return hr < 0 ? hr : S_OK;
}

HRESULT XmlFolderAccess::ReadObject(IString* key, IUnknown** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    std::wstring name;
    if (!StreamsKeyText(key, name)) return E_POINTER;
    std::shared_ptr<const XmlNode> keep;
    const XmlNode* found = FirstChild(ReadNode(keep), name, IsObject);
    if (!found || !StreamsIsClassName(found->className)) return E_FAIL;
    SmartPtr<IDataPersist> persist =
        KitCreate<IDataPersist>(found->className.c_str(), IID_IDataPersist);
    if (!persist) return E_FAIL;
    SmartPtr<CXmlFolder> nested = CXmlFolder::ForReading(keep, found, depth + 1);
    if (!nested) return E_FAIL;
    HRESULT hr = persist->Load(static_cast<IDataStream*>(nested.Get()), 0);
    if (hr < 0) return hr;
    return persist->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(object)) < 0 ? E_FAIL : S_OK;
}

HRESULT XmlFolderAccess::WriteValue(IString* key, const void* bytes, int32_t count) {
    std::wstring name;
    HRESULT hr = ElementKey(key, name);
    if (hr < 0) return hr;
    if (count < 0) return E_INVALIDARG;
    if (!bytes && count > 0) return E_POINTER;
    if (!stream) return E_FAIL;
    try {
        std::wstring text = StreamsFormatValue(static_cast<const uint8_t*>(bytes), static_cast<size_t>(count));
        return stream->WriteFolderElement(element, name, text);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
}

HRESULT XmlFolderAccess::WriteString(IString* key, IString* value) {
    std::wstring name;
    HRESULT hr = ElementKey(key, name);
    if (hr < 0) return hr;
    if (!stream) return E_FAIL;
    try {
        std::wstring escaped;
        StreamsAppendEscaped(escaped, KitTextOf(value));
        return stream->WriteFolderElement(element, name, escaped);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
}

HRESULT XmlFolderAccess::WriteRecord(IString* key, const void* field, int32_t typeCode) {
    size_t size = StreamsRecordSize(typeCode);
    if (!size) return E_INVALIDARG;
    if (!field) return E_POINTER;
    return WriteValue(key, field, static_cast<int32_t>(size));
}

HRESULT XmlFolderAccess::ReadRecord(IString* key, void* field, int32_t typeCode) {
    size_t size = StreamsRecordSize(typeCode);
    if (!size) return E_INVALIDARG;
    return ReadValue(key, field, static_cast<int32_t>(size));
}

HRESULT XmlFolderAccess::ReadValue(IString* key, void* bytes, int32_t count) {
    std::wstring name;
    if (!StreamsKeyText(key, name)) return E_POINTER;
    if (count < 0) return E_INVALIDARG;
    if (!bytes && count > 0) return E_POINTER;
    std::shared_ptr<const XmlNode> keep;
    const XmlNode* found = FirstChild(ReadNode(keep), name, IsLeaf);
    if (!found) return E_FAIL;
    return StreamsParseValue(found->text, static_cast<uint8_t*>(bytes), static_cast<size_t>(count)) ? S_OK
                                                                                                   : E_FAIL;
}

HRESULT XmlFolderAccess::ReadString(IString* key, IString* value) {
    std::wstring name;
    if (!StreamsKeyText(key, name) || !value) return E_POINTER;
    std::shared_ptr<const XmlNode> keep;
    const XmlNode* found = FirstChild(ReadNode(keep), name, IsLeaf);
    if (!found) return E_FAIL;
    return value->SetText(static_cast<int32_t>(found->text.size()), found->text.c_str());
}

HRESULT XmlFolderAccess::HasEntry(IString* key) {
    std::wstring name;
    if (!StreamsKeyText(key, name)) return E_POINTER;
    std::shared_ptr<const XmlNode> keep;
    return FirstChild(ReadNode(keep), name, IsAny) ? S_OK : S_FALSE;
}

SmartPtr<CXmlFolder> CXmlFolder::ForWriting(CXMLStream* stream, uint64_t element, int depth, std::wstring name) {
    auto* folder = new (std::nothrow) CXmlFolder();
    if (!folder) return nullptr;
    SmartPtr<CXmlFolder> result = SmartPtr<CXmlFolder>::Adopt(folder);
    folder->m_Stream.Assign(static_cast<IXMLStreamEx*>(stream));
    folder->m_Access.stream = stream;
    folder->m_Access.element = element;
    folder->m_Access.depth = depth;
    folder->m_Access.name = std::move(name);
    return result;
}

SmartPtr<CXmlFolder> CXmlFolder::ForReading(std::shared_ptr<const XmlNode> tree, const XmlNode* node, int depth) {
    auto* folder = new (std::nothrow) CXmlFolder();
    if (!folder) return nullptr;
    SmartPtr<CXmlFolder> result = SmartPtr<CXmlFolder>::Adopt(folder);
    folder->m_Access.tree = std::move(tree);
    folder->m_Access.node = node;
    folder->m_Access.depth = depth;
    try {
        folder->m_Access.name = node->name;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    return result;
}

void CXmlFolder::FinalRelease() {
    if (m_Access.stream && m_Access.element) m_Access.stream->CloseFolderElement(m_Access.element);
}
