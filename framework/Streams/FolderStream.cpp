#include "framework/Streams/FolderStream.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <new>

#include "framework/Streams/StreamsCommon.h"
#include "framework/common/KitString.h"
#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CFolderStream, L"FolderStream")

const InterfaceEntry<CFolderStream> CFolderStream::kInterfaces[] = {
    InterfaceEntry<CFolderStream>::Of<IFolderStream>(IID_IFolderStream),
    InterfaceEntry<CFolderStream>::Of<IDataStream>(IID_IDataStream),
    InterfaceEntry<CFolderStream>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CFolderStream>::End(),
};

namespace {

// The whole file, or false when it cannot be opened or read, or is too
// large for the format's 32-bit sizes. `missing` tells a file that is not
// there from one that cannot be read.
bool ReadWholeFile(const std::string& path, std::string& bytes, bool* missing) {
    *missing = false;
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) {
        struct stat info;
        *missing = ::stat(path.c_str(), &info) != 0;
        return false;
    }
    bool ok = false;
    struct stat info;
    if (::fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode) && info.st_size >= 0 &&
        info.st_size <= INT32_MAX) {
        try {
            bytes.resize(static_cast<size_t>(info.st_size));
            ok = std::fread(bytes.data(), 1, bytes.size(), file) == bytes.size() && std::fgetc(file) == EOF;
        } catch (const std::bad_alloc&) {
            ok = false;
        }
    }
    std::fclose(file);
    return ok;
}

}  // namespace

CFolderStream::CFolderStream() : m_Root(this) {}

HRESULT CFolderStream::FinalConstruct() {
    try {
        m_Binding = std::make_unique<Binding>();
        m_Node = std::make_shared<FolderNode>();
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

void CFolderStream::FinalRelease() {
    // The root goes last (every sub-folder holds it): write what changed.
    if (m_Binding && m_Binding->writable && m_Binding->changes != m_Binding->written) WriteFile();
}

SmartPtr<CFolderStream> CFolderStream::NewFolder(std::shared_ptr<FolderNode> node, std::wstring name) {
    auto* folder = new (std::nothrow) CFolderStream();
    if (!folder) return nullptr;
    SmartPtr<CFolderStream> result = SmartPtr<CFolderStream>::Adopt(folder);
    folder->m_Root = m_Root;
    folder->m_RootRef.Assign(static_cast<IFolderStream*>(m_Root));
    folder->m_Node = std::move(node);
    folder->m_Name = std::move(name);
    folder->m_Depth = m_Depth + 1;
    return result;
}

FolderEntry* CFolderStream::FindKeyed(const std::wstring& key) {
    for (FolderEntry& entry : m_Node->entries)
        if (entry.IsKeyed() && entry.name == key) return &entry;
    return nullptr;
}

FolderEntry* CFolderStream::FindFolder(const std::wstring& name) {
    for (FolderEntry& entry : m_Node->entries)
        if (!entry.IsKeyed() && entry.name == name) return &entry;
    return nullptr;
}

void CFolderStream::PutKeyed(FolderEntry&& entry) {
    if (FolderEntry* existing = FindKeyed(entry.name))
        *existing = std::move(entry);
    else
        m_Node->entries.push_back(std::move(entry));
    Changed();
}

// ---- file ------------------------------------------------------------------

HRESULT CFolderStream::Open(IString* fileName, int32_t mode) {
    if (m_Root != this) return E_NOTIMPL;
    std::wstring name;
    if (!StreamsKeyText(fileName, name)) return E_POINTER;
    if (name.empty() || mode < 0 || mode > 2) return E_INVALIDARG;
    std::string path;
    if (!KitNarrowFileName(name, path)) return E_INVALIDARG;

    FolderNode loaded;
    HRESULT result = S_OK;
    if (mode != 1) {
        std::string bytes;
        bool missing = false;
        if (!ReadWholeFile(path, bytes, &missing)) {
            // Mode 2 creates a file that is not there yet.
            result = (mode == 2 && missing) ? S_FALSE : E_FAIL;
        } else if (!FolderParse(bytes, loaded)) {
            result = E_FAIL;
        }
    }
    try {
        m_Node->entries.swap(loaded.entries);
        m_Binding->fileName = result < 0 ? std::wstring() : name;
    } catch (const std::bad_alloc&) {
        m_Node->entries.clear();
        result = E_FAIL;
    }
    m_Binding->writable = result >= 0 && mode != 0;
    Changed();
    // A new empty tree is written even if nothing is added to it.
    m_Binding->written = mode == 1 ? m_Binding->changes - 1 : m_Binding->changes;
    return result;
}

HRESULT CFolderStream::WriteFile() {
    Binding& binding = *m_Root->m_Binding;
    std::string path;
    if (!binding.writable || !KitNarrowFileName(binding.fileName, path)) return E_FAIL;
    std::string image;
    if (!FolderSerialize(*m_Root->m_Node, image)) return E_FAIL;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return E_FAIL;
    bool ok = std::fwrite(image.data(), 1, image.size(), file) == image.size();
    ok = std::fclose(file) == 0 && ok;
    if (!ok) return E_FAIL;
    binding.written = binding.changes;
    return S_OK;
}

HRESULT CFolderStream::Commit() { return WriteFile(); }

HRESULT CFolderStream::get_Name(IString** name) {
    if (!name) return E_POINTER;
    *name = nullptr;
    SmartPtr<IString> text = KitNewString(m_Root == this ? m_Binding->fileName : m_Name);
    if (!text) return E_FAIL;
    *name = text.Detach();
    return S_OK;
}

// ---- folders ---------------------------------------------------------------

HRESULT CFolderStream::CreateFolder(IString* key, IFolderStream** folder) {
    if (!folder) return E_POINTER;
    *folder = nullptr;
    std::wstring name;
    if (!StreamsKeyText(key, name)) return E_POINTER;
    if (m_Depth >= kMaxFolderDepth) return E_FAIL;
    try {
        std::shared_ptr<FolderNode> node;
        if (FolderEntry* existing = FindFolder(name)) {
            // Emptied and reused in its place; folders already handed out see it emptied too.
            node = existing->folder;
            std::vector<FolderEntry>().swap(node->entries);
        } else {
            FolderEntry entry;
            entry.kind = FolderEntryKind::Folder;
            entry.name = name;
            entry.folder = node = std::make_shared<FolderNode>();
            m_Node->entries.push_back(std::move(entry));
        }
        Changed();
        SmartPtr<CFolderStream> created = NewFolder(std::move(node), std::move(name));
        if (!created) return E_FAIL;
        *folder = static_cast<IFolderStream*>(created.Detach());
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CFolderStream::OpenFolder(IVariant* which, IFolderStream** folder) {
    if (!folder) return E_POINTER;
    *folder = nullptr;
    if (!which) return E_POINTER;
    const FolderEntry* found = nullptr;
    int16_t isString = 0;
    try {
        if (which->IsString(&isString) >= 0 && isString) {
            SmartPtr<IString> text;
            if (which->get_String(text.Out()) < 0) return E_INVALIDARG;
            found = FindFolder(KitTextOf(text.Get()));
        } else {
            int16_t type = 0;
            int32_t index = 0;
            if (which->get_Type(&type) < 0 || type == 0 || which->get_Integer(&index) < 0) return E_INVALIDARG;
            for (const FolderEntry& entry : m_Node->entries) {
                if (entry.IsKeyed()) continue;
                if (index-- == 0) {
                    found = &entry;
                    break;
                }
            }
        }
        if (!found) return E_FAIL;
        SmartPtr<CFolderStream> opened = NewFolder(found->folder, found->name);
        if (!opened) return E_FAIL;
        *folder = static_cast<IFolderStream*>(opened.Detach());
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CFolderStream::get_FolderCount(int32_t* count) {
    if (!count) return E_POINTER;
    *count = 0;
    for (const FolderEntry& entry : m_Node->entries)
        if (!entry.IsKeyed()) ++*count;
    return S_OK;
}

// ---- objects ---------------------------------------------------------------

HRESULT CFolderStream::WriteObject(IString* key, IUnknown* object) {
    std::wstring name;
    if (!StreamsKeyText(key, name) || !object) return E_POINTER;
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object, IID_IObjectInfo);
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(object, IID_IDataPersist);
    if (!info || !persist) return E_NOINTERFACE;
    tagREFString className{0, nullptr};
    if (info->GetName(0, &className) < 0) return E_FAIL;
    if (m_Depth >= kMaxFolderDepth) return E_FAIL;
    try {
        FolderEntry entry;
        entry.kind = FolderEntryKind::Object;
        entry.name = name;
        entry.text = KitViewString(className);
        if (entry.text.empty()) return E_FAIL;
        entry.folder = std::make_shared<FolderNode>();
        // Saved into a folder of its own first, so that a failing Save leaves nothing behind.
        SmartPtr<CFolderStream> nested = NewFolder(entry.folder, std::move(name));
        if (!nested) return E_FAIL;
        HRESULT hr = persist->Save(static_cast<IDataStream*>(nested.Get()), 0);
        if (hr < 0) return hr;
        PutKeyed(std::move(entry));
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CFolderStream::ReadObject(IString* key, IUnknown** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    std::wstring name;
    if (!StreamsKeyText(key, name)) return E_POINTER;
    const FolderEntry* found = FindKeyed(name);
    if (!found || found->kind != FolderEntryKind::Object || !StreamsIsClassName(found->text)) return E_FAIL;
    SmartPtr<IDataPersist> persist = KitCreate<IDataPersist>(found->text.c_str(), IID_IDataPersist);
    if (!persist) return E_FAIL;
    SmartPtr<CFolderStream> nested;
    try {
        nested = NewFolder(found->folder, found->name);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    if (!nested) return E_FAIL;
    HRESULT hr = persist->Load(static_cast<IDataStream*>(nested.Get()), 0);
    if (hr < 0) return hr;
    return persist->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(object)) < 0 ? E_FAIL : S_OK;
}

// ---- values and strings ----------------------------------------------------

HRESULT CFolderStream::WriteValue(IString* key, const void* bytes, int32_t count, int32_t /*reserved*/) {
    std::wstring name;
    if (!StreamsKeyText(key, name)) return E_POINTER;
    if (count < 0) return E_INVALIDARG;
    if (!bytes && count > 0) return E_POINTER;
    try {
        FolderEntry entry;
        entry.kind = FolderEntryKind::Value;
        entry.name = std::move(name);
        if (count) entry.bytes.assign(static_cast<const char*>(bytes), static_cast<size_t>(count));
        PutKeyed(std::move(entry));
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CFolderStream::WriteString(IString* key, IString* value) {
    std::wstring name;
    if (!StreamsKeyText(key, name)) return E_POINTER;
    try {
        FolderEntry entry;
        entry.kind = FolderEntryKind::String;
        entry.name = std::move(name);
        entry.text = KitTextOf(value);
        PutKeyed(std::move(entry));
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CFolderStream::WriteRecord(IString* key, const void* field, int32_t typeCode) {
    size_t size = StreamsRecordSize(typeCode);
    if (!size) return E_INVALIDARG;
    if (!field) return E_POINTER;
    return WriteValue(key, field, static_cast<int32_t>(size), 0);
}

HRESULT CFolderStream::ReadRecord(IString* key, void* field, int32_t typeCode) {
    size_t size = StreamsRecordSize(typeCode);
    if (!size) return E_INVALIDARG;
    return ReadValue(key, field, static_cast<int32_t>(size), 0);
}

HRESULT CFolderStream::ReadValue(IString* key, void* bytes, int32_t count, int32_t /*reserved*/) {
    std::wstring name;
    if (!StreamsKeyText(key, name)) return E_POINTER;
    if (count < 0) return E_INVALIDARG;
    if (!bytes && count > 0) return E_POINTER;
    const FolderEntry* found = FindKeyed(name);
    if (!found || found->kind != FolderEntryKind::Value || found->bytes.size() != static_cast<size_t>(count))
        return E_FAIL;
    if (count) std::memcpy(bytes, found->bytes.data(), found->bytes.size());
    return S_OK;
}

HRESULT CFolderStream::ReadString(IString* key, IString* value) {
    std::wstring name;
    if (!StreamsKeyText(key, name) || !value) return E_POINTER;
    const FolderEntry* found = FindKeyed(name);
    if (!found || found->kind != FolderEntryKind::String) return E_FAIL;
    return value->SetText(static_cast<int32_t>(found->text.size()), found->text.c_str());
}

HRESULT CFolderStream::RemoveEntry(IString* key) {
    std::wstring name;
    if (!StreamsKeyText(key, name)) return E_POINTER;
    FolderEntry* found = FindKeyed(name);
    if (!found) found = FindFolder(name);
    if (!found) return E_FAIL;
    // The entry's nodes are released after it has left the list.
    FolderEntry removed = std::move(*found);
    m_Node->entries.erase(m_Node->entries.begin() + (found - m_Node->entries.data()));
    Changed();
    return S_OK;
}

HRESULT CFolderStream::HasEntry(IString* key) {
    std::wstring name;
    if (!StreamsKeyText(key, name)) return E_POINTER;
    return FindKeyed(name) || FindFolder(name) ? S_OK : S_FALSE;
}

// ---- IDataStream -------------------------------------------------------------

bool CFolderStream::Serialized() {
    if (m_ImageChanges == ChangeCount()) return true;
    if (!FolderSerialize(*m_Node, m_Image)) return false;
    m_ImageChanges = ChangeCount();
    return true;
}

HRESULT CFolderStream::Write(const void*, int32_t) { return E_NOTIMPL; }

HRESULT CFolderStream::GetBytes(uint8_t** bytes, int32_t* count) {
    if (!bytes) return E_POINTER;
    if (!Serialized()) return E_FAIL;
    *bytes = reinterpret_cast<uint8_t*>(m_Image.data());
    if (count) *count = static_cast<int32_t>(m_Image.size());
    return S_OK;
}

HRESULT CFolderStream::Read(void* buffer, int32_t count, int32_t* done) {
    if (done) *done = 0;
    if (count < 0) return E_INVALIDARG;
    if (!buffer && count > 0) return E_POINTER;
    if (!Serialized()) return E_FAIL;
    size_t copied = m_ReadPos < m_Image.size() ? std::min(static_cast<size_t>(count), m_Image.size() - m_ReadPos) : 0;
    if (copied) std::memcpy(buffer, m_Image.data() + m_ReadPos, copied);
    m_ReadPos += copied;
    if (done) *done = static_cast<int32_t>(copied);
    return copied < static_cast<size_t>(count) ? S_FALSE : S_OK;
}

HRESULT CFolderStream::Clear() {
    std::vector<FolderEntry> removed;
    removed.swap(m_Node->entries);
    m_ReadPos = 0;
    Changed();
    return S_OK;
}

HRESULT CFolderStream::get_Size(int32_t* count) {
    if (!count) return E_POINTER;
    if (!Serialized()) return E_FAIL;
    *count = static_cast<int32_t>(m_Image.size());
    return S_OK;
}
