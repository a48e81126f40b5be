// Helpers of the file-list tests: lists made on a scratch folder, their
// entry names, and a NewFile sink that records what it receives.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/image/ImageTestSupport.h"

/// A new "FileNameCollection" listing `pattern` (not scanned yet).
inline SmartPtr<IFileNameCollection> MakeList(const std::string& pattern) {
    SmartPtr<IFileNameCollection> list = CreateByName<IFileNameCollection>(L"FileNameCollection", IID_IFileNameCollection);
    if (list) list->put_Pattern(FileNameString(pattern).Get());
    return list;
}

/// The text of a string as narrow text (the tests' names are ASCII).
inline std::string Narrow(IString* string) {
    std::wstring wide = TextOf(string);
    return std::string(wide.begin(), wide.end());
}

inline std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

/// The names of the list's entries, in order, as narrow text.
inline std::vector<std::string> EntryNames(IFileNameCollection* list) {
    SmartPtr<ISuperCollection> entries = QueryAs<ISuperCollection>(list, IID_ISuperCollection);
    std::vector<std::string> names;
    int32_t count = 0;
    if (!entries || entries->get_Count(&count) < 0) return names;
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IString> name;
        entries->get_Name(i, name.Out());
        names.push_back(Narrow(name.Get()));
    }
    return names;
}

/// Sets a file's modification time (seconds since 1970).
inline void SetModified(const std::string& path, time_t seconds) {
    struct timespec times[2] = {{seconds, 0}, {seconds, 0}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
}

/// A _IFileNameCollectionEvent sink. It counts the QueryInterface calls it
/// receives, records each NewFile and runs `onEvent` inside it.
class FileSink final : public CObject<FileSink>, public _IFileNameCollectionEvent {
public:
    static const InterfaceEntry<FileSink> kInterfaces[];
    IUnknown* PrimaryUnknown() { return static_cast<CObject<FileSink>*>(this); }
    HRESULT QueryInterface(const IID& iid, void** object) override {
        ++queries;
        return QueryInterfaceFromTable<FileSink>(this, kInterfaces, iid, object);
    }
    uint32_t AddRef() override { return InternalAddRef(); }
    uint32_t Release() override { return InternalRelease(); }

    HRESULT NewFile(IUnknown* collection, IString* fileName) override {
        {
            std::lock_guard<std::mutex> guard(m_Lock);
            m_Names.push_back(Narrow(fileName));
            m_Collections.push_back(IdentityPointer(collection));
            m_Threads.push_back(std::this_thread::get_id());
        }
        if (onEvent) onEvent(collection);
        return S_OK;
    }

    std::vector<std::string> Names() const {
        std::lock_guard<std::mutex> guard(m_Lock);
        return m_Names;
    }
    size_t Count() const { return Names().size(); }
    std::vector<IUnknown*> Collections() const {
        std::lock_guard<std::mutex> guard(m_Lock);
        return m_Collections;
    }
    std::vector<std::thread::id> Threads() const {
        std::lock_guard<std::mutex> guard(m_Lock);
        return m_Threads;
    }

    std::atomic<int> queries{0};
    std::function<void(IUnknown* collection)> onEvent;

private:
    friend class CObject<FileSink>;
    mutable std::mutex m_Lock;
    std::vector<std::string> m_Names;
    std::vector<IUnknown*> m_Collections;
    std::vector<std::thread::id> m_Threads;
};

inline const InterfaceEntry<FileSink> FileSink::kInterfaces[] = {
    InterfaceEntry<FileSink>::Of<_IFileNameCollectionEvent>(IID__IFileNameCollectionEvent),
    InterfaceEntry<FileSink>::End(),
};
