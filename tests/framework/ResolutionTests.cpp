// Class-name resolution by the global collection: registered names, dotted
// names, the class table, "<Name>.so" files, caching and failures.
#include <dlfcn.h>

#include "tests/framework/KitTestSupport.h"

namespace {

std::atomic<int> g_FakeCreations{0};

HRESULT CreateFakeVariant(void*, const IID* iid, void** object) {
    ++g_FakeCreations;
    return MakeFake<KitPlainObject, IUnknown>()->QueryInterface(*iid, object);
}

void* ProbeSymbol(const char* name) {
    void* probe = dlopen("./KitProbe.so", RTLD_NOW | RTLD_NOLOAD);
    return probe ? dlsym(probe, name) : nullptr;
}

IUnknown* Identity(IUnknown* object) { return QueryAs<IUnknown>(object, IID_IUnknown).Get(); }

TEST(KitGlobalCollection, IsOneSharedObjectHandedOutWithOneMoreReference) {
    SmartPtr<IComponentCollection> first = GlobalCollection();
    ASSERT_TRUE(first);
    const uint32_t before = RefCountOf(first.Get());
    SmartPtr<IComponentCollection> second = GlobalCollection();
    EXPECT_EQ(first.Get(), second.Get());
    EXPECT_EQ(before + 1, RefCountOf(first.Get()));

    SmartPtr<IObjectInfo> byName, byDottedName;
    EXPECT_EQ(S_OK, first->CreateObject(REFStr(L"GlobalComponentCollection"), &IID_IObjectInfo, byName.OutVoid()));
    EXPECT_EQ(S_OK, first->CreateObject(REFStr(L"CollectionsEx.GlobalComponentCollection.1"), &IID_IObjectInfo,
                                        byDottedName.OutVoid()));
    EXPECT_EQ(Identity(first.Get()), Identity(byName.Get()));
    EXPECT_EQ(Identity(first.Get()), Identity(byDottedName.Get()));
}

TEST(KitGlobalCollection, RejectsBadArgumentsWithTheirCodes) {
    SmartPtr<IComponentCollection> collection = GlobalCollection();
    void* object = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(E_POINTER, collection->CreateObject(REFStr(L"Variant"), &IID_IVariant, nullptr));
    EXPECT_EQ(E_POINTER, collection->CreateObject(REFStr(L"Variant"), nullptr, &object));
    EXPECT_EQ(nullptr, object);
    for (tagREFString bad : {REFStr(L""), tagREFString{-3, const_cast<wchar_t*>(L"Variant")},
                             REFStr(L".Variant"), REFStr(L"CollectionsEx."), REFStr(L"CollectionsEx..1")}) {
        object = reinterpret_cast<void*>(0x1);
        EXPECT_EQ(E_INVALIDARG, collection->CreateObject(bad, &IID_IUnknown, &object));
        EXPECT_EQ(nullptr, object);
    }
    EXPECT_EQ(E_POINTER, collection->GetCreateFunction(REFStr(L"Variant"), nullptr));
    EXPECT_EQ(E_INVALIDARG, collection->GetCreateFunction(REFStr(L""), &object));
    EXPECT_EQ(E_INVALIDARG, collection->RegisterCreateFunction(REFStr(L""), &object));
    // A class that does not answer the interface: the creation function's own result.
    EXPECT_EQ(E_NOINTERFACE, collection->CreateObject(REFStr(L"Variant"), &IID_IString, &object));
    EXPECT_EQ(nullptr, object);
}

TEST(KitGlobalCollection, TableAndDottedNamesReachTheSameClass) {
    SmartPtr<IComponentCollection> collection = GlobalCollection();
    void* bare = nullptr;
    void* dotted = nullptr;
    void* versioned = nullptr;
    ASSERT_EQ(S_OK, collection->GetCreateFunction(REFStr(L"SuperCollection"), &bare));
    ASSERT_EQ(S_OK, collection->GetCreateFunction(REFStr(L"CollectionsEx.SuperCollection"), &dotted));
    ASSERT_EQ(S_OK, collection->GetCreateFunction(REFStr(L"CollectionsEx.SuperCollection.9"), &versioned));
    EXPECT_EQ(bare, dotted);
    EXPECT_EQ(bare, versioned);
    EXPECT_EQ(reinterpret_cast<void*>(CreatorOf(LoadModule("CollectionsEx"), L"SuperCollection")), bare);

    // Names resolve exactly: letter case matters.
    void* none = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(E_FAIL, collection->GetCreateFunction(REFStr(L"CollectionsEx.supercollection"), &none));
    EXPECT_EQ(nullptr, none);

    // "Registry" is a class-table name of "Registry.so".
    SmartPtr<IRegistryEx> registry = CreateByName<IRegistryEx>(L"Registry", IID_IRegistryEx);
    EXPECT_TRUE(registry);
}

TEST(KitGlobalCollection, LoadsUnknownBareAndDottedNamesFromTheirModuleOnce) {
    SmartPtr<IComponentCollection> collection = GlobalCollection();
    SmartPtr<IUnknown> bare, dotted, versioned;
    EXPECT_EQ(S_OK, collection->CreateObject(REFStr(L"KitProbe"), &IID_IUnknown, bare.OutVoid()));
    EXPECT_EQ(S_OK, collection->CreateObject(REFStr(L"KitProbe.Other"), &IID_IUnknown, dotted.OutVoid()));
    EXPECT_EQ(S_OK, collection->CreateObject(REFStr(L"KitProbe.Other.2"), &IID_IUnknown, versioned.OutVoid()));
    ASSERT_TRUE(bare && dotted && versioned);
    EXPECT_NE(bare.Get(), dotted.Get());

    auto initializeCount = reinterpret_cast<int (*)()>(ProbeSymbol("KitProbeInitializeCount"));
    auto keptCollection = reinterpret_cast<IComponentCollection* (*)()>(ProbeSymbol("KitProbeCollection"));
    auto liveObjects = reinterpret_cast<int (*)()>(ProbeSymbol("KitProbeLiveObjects"));
    ASSERT_TRUE(initializeCount && keptCollection && liveObjects);
    EXPECT_EQ(1, initializeCount());
    EXPECT_EQ(Identity(collection.Get()), Identity(keptCollection()));
    EXPECT_EQ(3, liveObjects());

    // Creation functions are cached and stay the same.
    void* first = nullptr;
    void* again = nullptr;
    ASSERT_EQ(S_OK, collection->GetCreateFunction(REFStr(L"KitProbe"), &first));
    ASSERT_EQ(S_OK, collection->GetCreateFunction(REFStr(L"KitProbe"), &again));
    EXPECT_EQ(first, again);
    EXPECT_EQ(1, initializeCount());

    // A failing creation function's own result, with a null object.
    void* object = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(E_NOTIMPL, collection->CreateObject(REFStr(L"KitProbe.Refuses"), &IID_IUnknown, &object));
    EXPECT_EQ(nullptr, object);
    // The module does not know the class.
    EXPECT_EQ(E_FAIL, collection->CreateObject(REFStr(L"KitProbe.Missing"), &IID_IUnknown, &object));
    EXPECT_EQ(nullptr, object);
}

TEST(KitGlobalCollection, ReportsModulesThatCannotBeUsed) {
    SmartPtr<IComponentCollection> collection = GlobalCollection();
    void* object = reinterpret_cast<void*>(0x1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(E_FAIL, collection->CreateObject(REFStr(L"NoSuchKitModule"), &IID_IUnknown, &object));
    std::string message = testing::internal::GetCapturedStderr();
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(0u, message.find("Module not available ./NoSuchKitModule.so, error ")) << message;
    EXPECT_EQ('\n', message.back());

    // A loadable file without CreateFunction.
    EXPECT_EQ(E_FAIL, collection->CreateObject(REFStr(L"KitNoEntry.Any"), &IID_IUnknown, &object));
    // A module name with a folder never leaves the working directory.
    EXPECT_EQ(E_INVALIDARG, collection->CreateObject(REFStr(L"../bin/KitProbe.KitProbe"), &IID_IUnknown, &object));
}

TEST(KitGlobalCollection, RegisteredNamesComeFirstUntilRemoved) {
    SmartPtr<IComponentCollection> collection = GlobalCollection();
    ASSERT_EQ(S_OK, collection->RegisterCreateFunction(REFStr(L"Variant"),
                                                       reinterpret_cast<void*>(&CreateFakeVariant)));
    const int before = g_FakeCreations;
    SmartPtr<IUnknown> fake;
    EXPECT_EQ(S_OK, collection->CreateObject(REFStr(L"Variant"), &IID_IUnknown, fake.OutVoid()));
    EXPECT_EQ(before + 1, g_FakeCreations);
    void* creator = nullptr;
    EXPECT_EQ(S_OK, collection->GetCreateFunction(REFStr(L"Variant"), &creator));
    EXPECT_EQ(reinterpret_cast<void*>(&CreateFakeVariant), creator);

    // Only that exact name is replaced.
    SmartPtr<IVariant> real;
    EXPECT_EQ(S_OK, collection->CreateObject(REFStr(L"CollectionsEx.Variant"), &IID_IVariant, real.OutVoid()));
    EXPECT_TRUE(real);
    EXPECT_EQ(before + 1, g_FakeCreations);

    ASSERT_EQ(S_OK, collection->RegisterCreateFunction(REFStr(L"Variant"), nullptr));
    EXPECT_EQ(S_OK, collection->CreateObject(REFStr(L"Variant"), &IID_IVariant, real.OutVoid()));
    EXPECT_TRUE(real);
    EXPECT_EQ(before + 1, g_FakeCreations);

    // A registered name need not exist anywhere else.
    ASSERT_EQ(S_OK, collection->RegisterCreateFunction(REFStr(L"Kit.Test.Fake"),
                                                       reinterpret_cast<void*>(&CreateFakeVariant)));
    EXPECT_EQ(S_OK, collection->CreateObject(REFStr(L"Kit.Test.Fake"), &IID_IUnknown, fake.OutVoid()));
    ASSERT_EQ(S_OK, collection->RegisterCreateFunction(REFStr(L"Kit.Test.Fake"), nullptr));
}

}  // namespace
