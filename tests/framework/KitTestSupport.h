// Fakes and helpers for the framework kit's tests.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <type_traits>

#include "lum/lum.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "tests/support/ModuleHost.h"

/// A component collection that records what it was asked to create and
/// creates nothing.
class KitRecordingCollection final : public CObject<KitRecordingCollection>, public IComponentCollection {
    LUM_OBJECT_UNKNOWN(KitRecordingCollection)
public:
    HRESULT CreateObject(tagREFString className, const IID*, void** object) override {
        lastName.assign(className.text, static_cast<size_t>(className.length));
        ++requests;
        *object = nullptr;
        return E_NOTIMPL;
    }
    HRESULT GetCreateFunction(tagREFString, void** creator) override {
        *creator = nullptr;
        return E_NOTIMPL;
    }
    HRESULT RegisterCreateFunction(tagREFString, void*) override { return E_NOTIMPL; }

    std::wstring lastName;
    int requests = 0;
};

/// An object answering nothing but IUnknown.
class KitPlainObject final : public CObject<KitPlainObject>, public ISimpleCollection {
    LUM_OBJECT_UNKNOWN(KitPlainObject)
public:
    HRESULT get_Count(int32_t* count) override { *count = 0; return S_OK; }
    HRESULT get_Item(int32_t, IUnknown** item) override { *item = nullptr; return E_INVALIDARG; }
};

/// A folder stream that keeps string entries in a map (other entries unsupported).
class KitMapFolderStream final : public CObject<KitMapFolderStream>, public IDataStream, public IFolderStream {
    LUM_OBJECT_UNKNOWN(KitMapFolderStream)
public:
    HRESULT Write(const void*, int32_t) override { return E_NOTIMPL; }
    HRESULT GetBytes(uint8_t**, int32_t*) override { return E_NOTIMPL; }
    HRESULT Read(void*, int32_t, int32_t*) override { return E_NOTIMPL; }
    HRESULT Clear() override { strings.clear(); return S_OK; }
    HRESULT get_Size(int32_t*) override { return E_NOTIMPL; }
    HRESULT Open(IString*, int32_t) override { return E_NOTIMPL; }
    HRESULT Commit() override { return E_NOTIMPL; }
    HRESULT get_Name(IString**) override { return E_NOTIMPL; }
    HRESULT CreateFolder(IString*, IFolderStream**) override { return E_NOTIMPL; }
    HRESULT OpenFolder(IVariant*, IFolderStream**) override { return E_NOTIMPL; }
    HRESULT get_FolderCount(int32_t*) override { return E_NOTIMPL; }
    HRESULT WriteObject(IString*, IUnknown*) override { return E_NOTIMPL; }
    HRESULT ReadObject(IString*, IUnknown**) override { return E_NOTIMPL; }
    HRESULT WriteValue(IString*, const void*, int32_t, int32_t) override { return E_NOTIMPL; }
    HRESULT WriteString(IString* key, IString* value) override {
        strings[TextOf(key)] = TextOf(value);
        return S_OK;
    }
    HRESULT WriteRecord(IString*, const void*, int32_t) override { return E_NOTIMPL; }
    HRESULT ReadRecord(IString*, void*, int32_t) override { return E_NOTIMPL; }
    HRESULT RemoveEntry(IString* key) override { return strings.erase(TextOf(key)) ? S_OK : E_FAIL; }
    HRESULT ReadValue(IString*, void*, int32_t, int32_t) override { return E_NOTIMPL; }
    HRESULT ReadString(IString* key, IString* value) override {
        auto found = strings.find(TextOf(key));
        if (found == strings.end()) return E_FAIL;
        return value->SetText(static_cast<int32_t>(found->second.size()), found->second.c_str());
    }
    HRESULT HasEntry(IString* key) override { return strings.count(TextOf(key)) ? S_OK : S_FALSE; }

    std::map<std::wstring, std::wstring> strings;
};

/// A new test object with its one reference.
template <class T, class I>
SmartPtr<I> MakeFake(T** raw = nullptr) {
    T* object = new T();
    if (raw) *raw = object;
    if constexpr (std::is_same_v<I, IUnknown>)
        return SmartPtr<I>::Adopt(object->PrimaryUnknown());
    else
        return SmartPtr<I>::Adopt(static_cast<I*>(object));
}

/// A scratch folder, removed with everything in it at the end of the test.
class ScratchFolder {
public:
    ScratchFolder() {
        char pattern[] = "/tmp/lumkit-XXXXXX";
        path_ = mkdtemp(pattern);
    }
    ~ScratchFolder() { std::filesystem::remove_all(path_); }
    std::string File(const std::string& name) const { return path_ + "/" + name; }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

/// Writes `bytes` to a file, replacing it.
inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

/// Sets an environment variable for the life of the object, then restores it.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value) : name_(name) {
        if (const char* old = getenv(name)) had_ = true, old_ = old;
        setenv(name, value.c_str(), 1);
    }
    ~ScopedEnv() {
        if (had_)
            setenv(name_, old_.c_str(), 1);
        else
            unsetenv(name_);
    }

private:
    const char* name_;
    bool had_ = false;
    std::string old_;
};

/// A new string object from "CollectionsEx" holding `text`.
inline SmartPtr<IString> MakeString(const wchar_t* text) {
    SmartPtr<IString> string = CreateByName<IString>(L"CreatableString", IID_IString);
    if (string) string->SetText(-1, text);
    return string;
}

/// A view of a std::wstring (valid while the string is unchanged).
inline tagREFString KitViewOf(const std::wstring& text) {
    return tagREFString{static_cast<int32_t>(text.size()), const_cast<wchar_t*>(text.c_str())};
}
