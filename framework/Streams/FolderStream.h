// "FolderStream": a tree of named entries in memory, optionally bound to a
// file. The object created by name is the root; sub-folders and the folders
// of objects are objects of the same class over a node of the same tree,
// each holding a reference to the root, so the root goes last and writes a
// changed tree to its file then.
#pragma once

#include <memory>
#include <string>

#include "framework/Streams/FolderTree.h"
#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CFolderStream final : public CObject<CFolderStream>,
                            public IFolderStream,
                            public IDataStream,
                            public IObjectInfoImpl<CFolderStream> {
    LUM_OBJECT_UNKNOWN(CFolderStream)
public:
    CFolderStream();
    HRESULT FinalConstruct() override;
    void FinalRelease() override;

    // IFolderStream
    /// Root only. Mode 0 reads the file (E_FAIL, empty and unbound when it is
    /// missing or malformed); 1 starts an empty tree for the file; 2 reads the
    /// file to write it back later (a missing file gives S_FALSE and an empty
    /// tree; a malformed one E_FAIL, and the file is left alone).
    HRESULT Open(IString* fileName, int32_t mode) override;
    /// Writes the whole tree to the file bound with mode 1 or 2.
    HRESULT Commit() override;
    HRESULT get_Name(IString** name) override;
    HRESULT CreateFolder(IString* name, IFolderStream** folder) override;
    HRESULT OpenFolder(IVariant* which, IFolderStream** folder) override;
    HRESULT get_FolderCount(int32_t* count) override;
    /// A failing Save leaves the folder as it was.
    HRESULT WriteObject(IString* key, IUnknown* object) override;
    HRESULT ReadObject(IString* key, IUnknown** object) override;
    HRESULT WriteValue(IString* key, const void* bytes, int32_t count, int32_t reserved) override;
    HRESULT WriteString(IString* key, IString* value) override;
    HRESULT WriteRecord(IString* key, const void* field, int32_t typeCode) override;
    HRESULT ReadRecord(IString* key, void* field, int32_t typeCode) override;
    /// Removes the value, string or object of that key, or else the
    /// sub-folder of that name; E_FAIL when there is neither.
    HRESULT RemoveEntry(IString* key) override;
    HRESULT ReadValue(IString* key, void* bytes, int32_t count, int32_t reserved) override;
    HRESULT ReadString(IString* key, IString* value) override;
    /// S_OK when a value, string, object or sub-folder of that name exists.
    HRESULT HasEntry(IString* key) override;

    // IDataStream: the file form of the tree below this folder.
    HRESULT Write(const void* bytes, int32_t count) override;
    HRESULT GetBytes(uint8_t** bytes, int32_t* count) override;
    HRESULT Read(void* buffer, int32_t count, int32_t* done) override;
    /// Removes every entry of this folder.
    HRESULT Clear() override;
    HRESULT get_Size(int32_t* count) override;

private:
    /// What only the root keeps: the file binding and the change count.
    struct Binding {
        std::wstring fileName;
        bool writable = false;   // opened with mode 1 or 2
        uint64_t changes = 0;    // advances with every change of the tree
        uint64_t written = 0;    // the change count last written
    };

    SmartPtr<CFolderStream> NewFolder(std::shared_ptr<FolderNode> node, std::wstring name);
    FolderEntry* FindKeyed(const std::wstring& key);
    FolderEntry* FindFolder(const std::wstring& name);
    /// Puts `entry` in place of the keyed entry of its name, or appends it.
    void PutKeyed(FolderEntry&& entry);
    void Changed() { ++m_Root->m_Binding->changes; }
    uint64_t ChangeCount() const { return m_Root->m_Binding->changes; }
    HRESULT WriteFile();
    /// The file form, made again only when the tree changed since.
    bool Serialized();

    CFolderStream* m_Root;                // this object for the root
    SmartPtr<IFolderStream> m_RootRef;    // keeps the root alive (sub-folders only)
    std::unique_ptr<Binding> m_Binding;   // root only
    std::shared_ptr<FolderNode> m_Node;
    std::wstring m_Name;
    int m_Depth = 0;

    std::string m_Image;                  // the file form handed out by GetBytes
    uint64_t m_ImageChanges = ~uint64_t(0);
    size_t m_ReadPos = 0;
};
LUM_KIT_OBJECT_NAME_DECLARE(CFolderStream)
