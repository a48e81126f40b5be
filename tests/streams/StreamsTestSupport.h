// Helpers for the tests of "Streams.so": stream creation through the global
// collection, text and byte access, and a small persistable object.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "framework/common/KitModule.h"
#include "tests/framework/KitTestSupport.h"

inline SmartPtr<IXMLStreamEx> NewXml(const wchar_t* className = L"XMLStream") {
    SmartPtr<IXMLStreamEx> stream = CreateByName<IXMLStreamEx>(className, IID_IXMLStreamEx);
    EXPECT_TRUE(stream) << "cannot create " << std::string(className, className + std::wcslen(className));
    return stream;
}

/// An XML stream holding `text`, unread.
inline SmartPtr<IXMLStreamEx> XmlHolding(const std::wstring& text) {
    SmartPtr<IXMLStreamEx> stream = NewXml();
    stream.As<IString>(IID_IString)->SetText(static_cast<int32_t>(text.size()), text.c_str());
    return stream;
}

/// The whole text of an XML stream, through IDataStream::GetBytes.
inline std::wstring XmlText(IUnknown* stream) {
    SmartPtr<IDataStream> data = QueryAs<IDataStream>(stream, IID_IDataStream);
    uint8_t* bytes = nullptr;
    int32_t count = 0;
    EXPECT_EQ(S_OK, data->GetBytes(&bytes, &count));
    std::wstring text(static_cast<size_t>(count) / sizeof(wchar_t), L'\0');
    if (!text.empty()) std::memcpy(text.data(), bytes, text.size() * sizeof(wchar_t));
    return text;
}

/// The content of any IDataStream as bytes.
inline std::string StreamBytes(IDataStream* stream) {
    uint8_t* bytes = nullptr;
    int32_t count = 0;
    EXPECT_EQ(S_OK, stream->GetBytes(&bytes, &count));
    return std::string(reinterpret_cast<const char*>(bytes), static_cast<size_t>(count));
}

inline SmartPtr<IFolderStream> FolderOf(IUnknown* object) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(object, IID_IFolderStream);
    EXPECT_TRUE(folder);
    return folder;
}

inline SmartPtr<IVariant> IndexVariant(int32_t index) {
    SmartPtr<IVariant> v = CreateByName<IVariant>(L"Variant", IID_IVariant);
    v->put_Integer(index);
    return v;
}

inline SmartPtr<IVariant> NameVariant(const wchar_t* name) {
    SmartPtr<IVariant> v = CreateByName<IVariant>(L"Variant", IID_IVariant);
    v->put_String(MakeString(name).Get());
    return v;
}

inline SmartPtr<IFolderStream> OpenSub(IFolderStream* folder, IVariant* which, HRESULT expected = S_OK) {
    SmartPtr<IFolderStream> sub;
    EXPECT_EQ(expected, folder->OpenFolder(which, sub.Out()));
    return sub;
}

inline SmartPtr<IFolderStream> CreateSub(IFolderStream* folder, const wchar_t* name) {
    SmartPtr<IFolderStream> sub;
    EXPECT_EQ(S_OK, folder->CreateFolder(MakeString(name).Get(), sub.Out()));
    return sub;
}

template <class T>
HRESULT WriteOf(IFolderStream* folder, const wchar_t* key, const T& value) {
    return folder->WriteValue(MakeString(key).Get(), &value, sizeof value, 0);
}

template <class T>
HRESULT ReadOf(IFolderStream* folder, const wchar_t* key, T* value) {
    return folder->ReadValue(MakeString(key).Get(), value, sizeof *value, 0);
}

/// The stored string, or "<missing>".
inline std::wstring StringOf(IFolderStream* folder, const wchar_t* key) {
    SmartPtr<IString> value = MakeString(L"");
    if (folder->ReadString(MakeString(key).Get(), value.Get()) != S_OK) return L"<missing>";
    return TextOf(value.Get());
}

inline int32_t FolderCount(IFolderStream* folder) {
    int32_t count = -1;
    EXPECT_EQ(S_OK, folder->get_FolderCount(&count));
    return count;
}

/// A persistable test object, class "StreamsTestPoint": an integer, a double
/// and a label, saved through whatever folder stream it is given.
class TestPoint final : public CObject<TestPoint>, public IDataPersist, public IObjectInfoImpl<TestPoint> {
    LUM_OBJECT_UNKNOWN(TestPoint)
public:
    HRESULT Save(IDataStream* stream, int32_t) override {
        SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
        if (!folder) return E_NOINTERFACE;
        if (failSave) return E_ABORT;
        folder->WriteRecord(MakeString(L"X").Get(), &x, 3);
        WriteOf(folder.Get(), L"Y", y);
        return folder->WriteString(MakeString(L"Label").Get(), MakeString(label.c_str()).Get());
    }
    HRESULT Load(IDataStream* stream, int32_t) override {
        SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
        if (!folder) return E_NOINTERFACE;
        if (folder->ReadRecord(MakeString(L"X").Get(), &x, 3) != S_OK) return E_FAIL;
        if (ReadOf(folder.Get(), L"Y", &y) != S_OK) return E_FAIL;
        label = StringOf(folder.Get(), L"Label");
        return S_OK;
    }

    /// Registers the class with the global collection, so ReadObject can create it.
    static void Register() {
        GlobalCollection()->RegisterCreateFunction(REFStr(L"StreamsTestPoint"),
                                                   reinterpret_cast<void*>(&TestPoint::_CreateInstance));
    }
    static SmartPtr<IUnknown> Make(int32_t x, double y, const wchar_t* label, TestPoint** raw = nullptr) {
        TestPoint* point = nullptr;
        SmartPtr<IUnknown> object = MakeFake<TestPoint, IUnknown>(&point);
        point->x = x, point->y = y, point->label = label;
        if (raw) *raw = point;
        return object;
    }

    int32_t x = 0;
    double y = 0;
    std::wstring label;
    bool failSave = false;
};
