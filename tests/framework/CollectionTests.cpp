// "SimpleCollection", "SuperCollection", "Parameters" and "ComponentString".
#include "tests/framework/KitTestSupport.h"

namespace {

int32_t CountOf(ISimpleCollection* collection) {
    int32_t count = -1;
    EXPECT_EQ(S_OK, collection->get_Count(&count));
    return count;
}

std::wstring NameAt(INamedCollection* collection, int32_t index) {
    SmartPtr<IString> name;
    EXPECT_EQ(S_OK, collection->get_Name(index, name.Out()));
    return TextOf(name.Get());
}

TEST(KitSimpleCollection, KeepsCountedItemsInOrder) {
    SmartPtr<ICreatableSimpleCollection> list =
        CreateByName<ICreatableSimpleCollection>(L"SimpleCollection", IID_ICreatableSimpleCollection);
    ASSERT_TRUE(list);
    SmartPtr<IUnknown> a = MakeFake<KitPlainObject, IUnknown>(), b = MakeFake<KitPlainObject, IUnknown>();
    EXPECT_EQ(E_POINTER, list->Add(nullptr));
    ASSERT_EQ(S_OK, list->Add(a.Get()));
    ASSERT_EQ(S_OK, list->Add(b.Get()));
    ASSERT_EQ(S_OK, list->Add(a.Get()));
    EXPECT_EQ(3, CountOf(list.Get()));
    EXPECT_EQ(3u, RefCountOf(a.Get()));

    SmartPtr<IUnknown> item;
    for (int32_t bad : {-1, 3}) {
        IUnknown* none = reinterpret_cast<IUnknown*>(0x1);
        EXPECT_EQ(E_INVALIDARG, list->get_Item(bad, &none));
        EXPECT_EQ(nullptr, none);
        EXPECT_EQ(E_INVALIDARG, list->Remove(bad));
    }
    EXPECT_EQ(E_POINTER, list->get_Item(0, nullptr));
    ASSERT_EQ(S_OK, list->Remove(0));
    EXPECT_EQ(S_OK, list->get_Item(0, item.Out()));
    EXPECT_EQ(b.Get(), item.Get());
    item = nullptr;
    ASSERT_EQ(S_OK, list->RemoveAll());
    EXPECT_EQ(0, CountOf(list.Get()));
    EXPECT_EQ(1u, RefCountOf(a.Get()));
    EXPECT_EQ(1u, RefCountOf(b.Get()));
}

class KitSuperCollection : public testing::Test {
protected:
    void SetUp() override {
        collection = CreateByName<ISuperCollection>(L"SuperCollection", IID_ISuperCollection);
        ASSERT_TRUE(collection);
    }
    SmartPtr<ISuperCollection> collection;
};

TEST_F(KitSuperCollection, AnswersItsCollectionInterfacesOnOneObject) {
    SmartPtr<INamedCollection> named = collection.As<INamedCollection>(IID_INamedCollection);
    SmartPtr<ISimpleCollection> simple = collection.As<ISimpleCollection>(IID_ISimpleCollection);
    SmartPtr<ICreatableSimpleCollection> creatable =
        collection.As<ICreatableSimpleCollection>(IID_ICreatableSimpleCollection);
    ASSERT_TRUE(named && simple && creatable);
    SmartPtr<IVariant> value = CreateByName<IVariant>(L"Variant", IID_IVariant);
    ASSERT_EQ(S_OK, creatable->Add(value.Get()));
    ASSERT_EQ(S_OK, collection->AddNamed(REFStr(L"x"), nullptr));
    EXPECT_EQ(2, CountOf(simple.Get()));
    EXPECT_EQ(L"", NameAt(named.Get(), 0));
    ASSERT_EQ(S_OK, creatable->Remove(0));  // one operation behind both Remove slots
    EXPECT_EQ(L"x", NameAt(named.Get(), 0));
}

TEST_F(KitSuperCollection, FindsEntriesByNameAndByIdentity) {
    SmartPtr<IVariant> value = CreateByName<IVariant>(L"Variant", IID_IVariant);
    SmartPtr<IObjectInfo> sameObject = value.As<IObjectInfo>(IID_IObjectInfo);
    SmartPtr<IUnknown> other = MakeFake<KitPlainObject, IUnknown>();
    ASSERT_EQ(S_OK, collection->AddNamed(REFStr(L"Gain"), other.Get()));
    ASSERT_EQ(S_OK, collection->AddNamed(REFStr(L"gain"), value.Get()));
    ASSERT_EQ(S_OK, collection->AddNamed(REFStr(L"Gain"), nullptr));
    ASSERT_EQ(S_OK, collection->Add(value.Get()));

    // Identity, not the pointer handed in: the entry holds IVariant, the query IObjectInfo.
    EXPECT_EQ(1, collection->IndexOf(sameObject.Get()));
    EXPECT_EQ(2, collection->IndexOf(nullptr));
    SmartPtr<IUnknown> stranger = MakeFake<KitPlainObject, IUnknown>();
    EXPECT_LT(collection->IndexOf(stranger.Get()), 0);

    EXPECT_EQ(0, collection->IndexOfName(REFStr(L"Gain")));
    EXPECT_EQ(1, collection->IndexOfName(REFStr(L"gain")));
    EXPECT_EQ(3, collection->IndexOfName(REFStr(L"")));
    EXPECT_LT(collection->IndexOfName(REFStr(L"GAIN")), 0);

    SmartPtr<IUnknown> item;
    EXPECT_EQ(S_OK, collection->get_ItemByName(REFStr(L"Gain"), item.Out()));
    EXPECT_EQ(other.Get(), item.Get());
    EXPECT_EQ(E_FAIL, collection->get_ItemByName(REFStr(L"Offset"), item.Out()));
    EXPECT_EQ(nullptr, item.Get());
    // An entry without an item: S_FALSE and null.
    EXPECT_EQ(S_FALSE, collection->get_Item(2, item.Out()));
    EXPECT_EQ(nullptr, item.Get());
    EXPECT_EQ(E_INVALIDARG, collection->get_Item(4, item.Out()));
    SmartPtr<IString> name;
    EXPECT_EQ(E_INVALIDARG, collection->get_Name(-1, name.Out()));
    EXPECT_EQ(nullptr, name.Get());
    EXPECT_EQ(E_POINTER, collection->AddNamed(tagREFString{3, nullptr}, nullptr));
}

TEST_F(KitSuperCollection, InsertRenameAndReplaceKeepTheRestInPlace) {
    SmartPtr<IUnknown> a = MakeFake<KitPlainObject, IUnknown>(), b = MakeFake<KitPlainObject, IUnknown>();
    ASSERT_EQ(S_OK, collection->AddNamed(REFStr(L"middle"), a.Get()));
    ASSERT_EQ(S_OK, collection->Insert(0, REFStr(L"first"), nullptr));
    ASSERT_EQ(S_OK, collection->Insert(2, REFStr(L"last"), nullptr));  // count appends
    EXPECT_EQ(E_INVALIDARG, collection->Insert(4, REFStr(L"beyond"), nullptr));
    EXPECT_EQ(E_INVALIDARG, collection->Insert(-1, REFStr(L"before"), nullptr));
    ASSERT_EQ(3, CountOf(collection.Get()));
    EXPECT_EQ(L"first", NameAt(collection.Get(), 0));
    EXPECT_EQ(L"middle", NameAt(collection.Get(), 1));
    EXPECT_EQ(L"last", NameAt(collection.Get(), 2));

    ASSERT_EQ(S_OK, collection->Replace(1, b.Get()));
    EXPECT_EQ(1u, RefCountOf(a.Get()));
    EXPECT_EQ(L"middle", NameAt(collection.Get(), 1));
    EXPECT_EQ(1, collection->IndexOf(b.Get()));
    EXPECT_LT(collection->IndexOf(a.Get()), 0);
    EXPECT_EQ(E_INVALIDARG, collection->Replace(3, a.Get()));
    ASSERT_EQ(S_OK, collection->put_Name(1, REFStr(L"renamed")));
    EXPECT_EQ(1, collection->IndexOfName(REFStr(L"renamed")));
    EXPECT_EQ(E_INVALIDARG, collection->put_Name(3, REFStr(L"x")));

    IFileAttributes* attributes = reinterpret_cast<IFileAttributes*>(0x1);
    EXPECT_EQ(E_NOINTERFACE, collection->get_FileAttributes(1, &attributes));
    EXPECT_EQ(nullptr, attributes);
    EXPECT_EQ(E_NOINTERFACE, collection->get_FileAttributes(0, &attributes));
    EXPECT_EQ(E_INVALIDARG, collection->get_FileAttributes(3, &attributes));
}

TEST_F(KitSuperCollection, OverlaysAreASeparateList) {
    SmartPtr<IUnknown> overlay = MakeFake<KitPlainObject, IUnknown>();
    ASSERT_EQ(S_OK, collection->AddNamed(REFStr(L"entry"), overlay.Get()));
    ASSERT_EQ(S_OK, collection->AddOverlay(overlay.Get()));
    EXPECT_EQ(E_POINTER, collection->AddOverlay(nullptr));
    int32_t count = 0;
    ASSERT_EQ(S_OK, collection->get_OverlayCount(&count));
    EXPECT_EQ(1, count);
    SmartPtr<IUnknown> item;
    EXPECT_EQ(S_OK, collection->get_Overlay(0, item.Out()));
    EXPECT_EQ(overlay.Get(), item.Get());
    EXPECT_EQ(E_INVALIDARG, collection->get_Overlay(1, item.Out()));
    EXPECT_EQ(nullptr, item.Get());
    EXPECT_EQ(3u, RefCountOf(overlay.Get()));
    ASSERT_EQ(S_OK, collection->RemoveOverlays());
    ASSERT_EQ(S_OK, collection->get_OverlayCount(&count));
    EXPECT_EQ(0, count);
    EXPECT_EQ(1, CountOf(collection.Get()));
    ASSERT_EQ(S_OK, collection->RemoveAll());
    EXPECT_EQ(1u, RefCountOf(overlay.Get()));
}

TEST(KitParameters, KeepsNamedParametersInOrderOfAddition) {
    SmartPtr<IParametersCreatable> parameters =
        CreateByName<IParametersCreatable>(L"Parameters", IID_IParametersCreatable);
    ASSERT_TRUE(parameters);
    SmartPtr<IString> title = MakeString(L"value");
    ASSERT_EQ(S_OK, parameters->AddParameter(REFStr(L"_Name_"), title.Get()));
    ASSERT_EQ(S_OK, parameters->AddText(REFStr(L"_Time_"), REFStr(L"12:00")));
    ASSERT_EQ(S_OK, parameters->AddText(REFStr(L"_Name_"), tagREFString{-1, nullptr}));
    EXPECT_EQ(E_POINTER, parameters->AddText(REFStr(L"bad"), tagREFString{2, nullptr}));

    SmartPtr<IUnknown> value;
    ASSERT_EQ(S_OK, parameters->get_Parameter(REFStr(L"_Name_"), value.Out()));
    EXPECT_EQ(static_cast<IUnknown*>(title.Get()), value.Get());  // the item as it was handed in
    ASSERT_EQ(S_OK, parameters->get_Parameter(REFStr(L"_Time_"), value.Out()));
    EXPECT_EQ(L"12:00", TextOf(QueryAs<IString>(value.Get(), IID_IString).Get()));
    EXPECT_EQ(E_FAIL, parameters->get_Parameter(REFStr(L"_time_"), value.Out()));
    EXPECT_EQ(nullptr, value.Get());

    SmartPtr<INamedCollection> named = QueryAs<INamedCollection>(parameters.Get(), IID_INamedCollection);
    ASSERT_TRUE(named);
    EXPECT_EQ(3, CountOf(named.Get()));
    EXPECT_EQ(L"_Time_", NameAt(named.Get(), 1));
    ASSERT_EQ(S_OK, named->get_Item(2, value.Out()));
    SmartPtr<IString> emptyText = QueryAs<IString>(value.Get(), IID_IString);
    ASSERT_TRUE(emptyText);
    EXPECT_EQ(L"", TextOf(emptyText.Get()));
    EXPECT_TRUE(QueryAs<ISimpleCollection>(parameters.Get(), IID_ISimpleCollection));
    EXPECT_FALSE(QueryAs<ISuperCollection>(parameters.Get(), IID_ISuperCollection));
}

class KitComponentString : public testing::Test {
protected:
    void SetUp() override {
        name = CreateByName<IComponentString>(L"ComponentString", IID_IComponentString);
        ASSERT_TRUE(name);
    }
    std::wstring Part(int32_t index, HRESULT expected = S_OK) {
        SmartPtr<IString> text;
        EXPECT_EQ(expected, name->GetNameString(index, text.Out()));
        if (expected < 0) {
            EXPECT_EQ(nullptr, text.Get());
        }
        return TextOf(text.Get());
    }
    SmartPtr<IComponentString> name;
};

TEST_F(KitComponentString, ReportsItsNamePartsByKind) {
    Part(0, E_FAIL);
    Part(1, E_FAIL);
    ASSERT_EQ(S_OK, name->Register(4, REFStr(L"Collections")));
    Part(0, E_FAIL);  // a library without a class names nothing
    ASSERT_EQ(S_OK, name->Register(1, REFStr(L"Variant")));
    ASSERT_EQ(S_OK, name->Register(9, REFStr(L"other")));
    EXPECT_EQ(L"Collections.Variant", Part(0));
    EXPECT_EQ(L"Variant", Part(1));
    EXPECT_EQ(L"Collections", Part(4));
    EXPECT_EQ(L"other", Part(9));
    ASSERT_EQ(S_OK, name->Register(4, REFStr(L"")));
    EXPECT_EQ(L"Variant", Part(0));
    EXPECT_EQ(E_POINTER, name->GetNameString(0, nullptr));
    EXPECT_EQ(E_POINTER, name->Register(1, tagREFString{4, nullptr}));

    // put_Object takes an object's class name and clears the library.
    ASSERT_EQ(S_OK, name->Register(4, REFStr(L"Collections")));
    SmartPtr<IUnknown> registry = CreateByName<IUnknown>(L"Registry", IID_IUnknown);
    ASSERT_EQ(S_OK, name->put_Object(registry.Get()));
    EXPECT_EQ(L"Registry", Part(0));
    Part(4, E_FAIL);
    SmartPtr<IUnknown> anonymous = MakeFake<KitPlainObject, IUnknown>();
    EXPECT_EQ(E_NOINTERFACE, name->put_Object(anonymous.Get()));
    EXPECT_EQ(E_POINTER, name->put_Object(nullptr));
    EXPECT_EQ(L"Registry", Part(1));
}

TEST_F(KitComponentString, CreatesANewObjectOfItsClassOnEveryCall) {
    void* object = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(E_FAIL, name->CreateInstance(&IID_IUnknown, &object));
    EXPECT_EQ(nullptr, object);
    ASSERT_EQ(S_OK, name->Register(4, REFStr(L"Collections")));
    // The factories a host keeps: one name each, asked for its interface on every use.
    const std::pair<const wchar_t*, const IID*> factories[] = {
        {L"CreatableString", &IID_ICreatableString}, {L"Variant", &IID_IVariant},
        {L"SuperCollection", &IID_ISuperCollection}};
    for (auto [cls, iid] : factories) {
        ASSERT_EQ(S_OK, name->Register(1, REFStr(cls)));
        SmartPtr<IUnknown> first, second;
        ASSERT_EQ(S_OK, name->CreateInstance(iid, first.OutVoid()));
        ASSERT_EQ(S_OK, name->CreateInstance(iid, second.OutVoid()));
        EXPECT_NE(first.Get(), second.Get());
        SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(first.Get(), IID_IObjectInfo);
        ASSERT_TRUE(info);
        tagREFString reported{};
        info->GetName(0, &reported);
        EXPECT_EQ(std::wstring(cls), std::wstring(reported.text, reported.length));
    }
    EXPECT_EQ(E_NOINTERFACE, name->CreateInstance(&IID_IString, &object));
    EXPECT_EQ(E_POINTER, name->CreateInstance(&IID_IUnknown, nullptr));
    EXPECT_EQ(E_POINTER, name->CreateInstance(nullptr, &object));
}

TEST_F(KitComponentString, PersistsLibraryAndClassAsStringEntries) {
    KitMapFolderStream* store = nullptr;
    SmartPtr<IDataStream> stream = MakeFake<KitMapFolderStream, IDataStream>(&store);
    SmartPtr<IDataPersist> persist = name.As<IDataPersist>(IID_IDataPersist);
    ASSERT_TRUE(persist);
    ASSERT_EQ(S_OK, name->Register(4, REFStr(L"Collections")));
    ASSERT_EQ(S_OK, name->Register(1, REFStr(L"Variant")));
    ASSERT_EQ(S_OK, persist->Save(stream.Get(), 0));
    EXPECT_EQ((std::map<std::wstring, std::wstring>{{L"Library", L"Collections"}, {L"Class", L"Variant"}}),
              store->strings);

    SmartPtr<IComponentString> loaded = CreateByName<IComponentString>(L"ComponentString", IID_IComponentString);
    SmartPtr<IDataPersist> loader = loaded.As<IDataPersist>(IID_IDataPersist);
    ASSERT_EQ(S_OK, loader->Load(stream.Get(), 0));
    SmartPtr<IVariant> created;
    EXPECT_EQ(S_OK, loaded->CreateInstance(&IID_IVariant, created.OutVoid()));

    store->strings.erase(L"Class");
    EXPECT_EQ(E_FAIL, loader->Load(stream.Get(), 0));
    EXPECT_EQ(E_POINTER, loader->Load(nullptr, 0));
    SmartPtr<IString> text;
    EXPECT_EQ(S_OK, loaded->GetNameString(0, text.Out()));
    EXPECT_EQ(L"Collections.Variant", TextOf(text.Get()));
}

}  // namespace
