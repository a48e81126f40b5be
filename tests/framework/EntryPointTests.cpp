// The exported entry points of the kit modules: the class table, the object
// names, and the collection kept by InitializeModule.
#include "tests/framework/KitTestSupport.h"

namespace {

struct ModuleRow {
    const char* module;
    std::vector<const wchar_t*> classes;
};

const std::vector<ModuleRow> kRows = {
    {"CollectionsEx",
     {L"GlobalComponentCollection", L"ComponentString", L"CreatableString", L"Variant", L"SimpleCollection",
      L"SuperCollection", L"Parameters"}},
    {"Registry", {L"Registry", L"StringTable"}},
};

HRESULT Ask(const LoadedModule& module, int32_t length, const wchar_t* name, void** creator) {
    return module.create(length, name, creator);
}

TEST(KitEntryPoints, CreateFunctionAnswersExactlyTheClassTable) {
    for (const ModuleRow& row : kRows) {
        LoadedModule module = LoadModule(row.module);
        ASSERT_TRUE(module.create && module.initialize) << row.module;
        for (const wchar_t* name : row.classes) {
            const int32_t length = static_cast<int32_t>(wcslen(name));
            void* creator = nullptr;
            EXPECT_EQ(S_OK, Ask(module, length, name, &creator)) << row.module;
            EXPECT_NE(nullptr, creator);

            // Length counts exactly: a counted terminator or a short prefix fails,
            // and the output is left as it was.
            void* untouched = reinterpret_cast<void*>(0x1234);
            EXPECT_EQ(E_FAIL, Ask(module, length + 1, name, &untouched));
            EXPECT_EQ(E_FAIL, Ask(module, length - 1, name, &untouched));
            std::wstring lower(name);
            for (wchar_t& c : lower) c = static_cast<wchar_t>(towlower(c));
            EXPECT_EQ(E_FAIL, Ask(module, length, lower.c_str(), &untouched));
            EXPECT_EQ(reinterpret_cast<void*>(0x1234), untouched);
        }
        void* creator = nullptr;
        EXPECT_EQ(E_FAIL, Ask(module, 0, L"", &creator));
        EXPECT_EQ(E_FAIL, Ask(module, 5, nullptr, &creator));
        EXPECT_EQ(E_POINTER, Ask(module, 7, L"Variant", nullptr));
    }
    // Each module answers its own row only.
    void* creator = nullptr;
    EXPECT_EQ(E_FAIL, Ask(LoadModule("Registry"), 7, L"Variant", &creator));
    EXPECT_EQ(E_FAIL, Ask(LoadModule("CollectionsEx"), 8, L"Registry", &creator));
}

TEST(KitEntryPoints, EveryClassReportsItsBareNameAsOneRecord) {
    for (const ModuleRow& row : kRows) {
        LoadedModule module = LoadModule(row.module);
        for (const wchar_t* name : row.classes) {
            SmartPtr<IObjectInfo> info = CreateFrom<IObjectInfo>(module, name, IID_IObjectInfo);
            ASSERT_TRUE(info) << row.module;
            tagREFString first{}, second{};
            ASSERT_EQ(S_OK, info->GetName(0, &first));
            ASSERT_EQ(S_OK, info->GetName(7, &second));
            EXPECT_EQ(std::wstring(name), std::wstring(first.text, first.length));
            EXPECT_EQ(first.text, second.text);  // a view of the constant name, not a copy
            EXPECT_EQ(E_POINTER, info->GetName(0, nullptr));
        }
    }
}

TEST(KitEntryPoints, InitializeModuleKeepsOneReferenceToTheLatestCollection) {
    LoadedModule registry = LoadModule("Registry");
    SmartPtr<IComponentCollection> first = MakeFake<KitRecordingCollection, IComponentCollection>();
    SmartPtr<IComponentCollection> second = MakeFake<KitRecordingCollection, IComponentCollection>();

    EXPECT_EQ(S_OK, registry.initialize(nullptr, first.Get()));
    EXPECT_EQ(2u, RefCountOf(first.Get()));
    // Handing in the same collection again keeps exactly one reference.
    EXPECT_EQ(S_OK, registry.initialize(nullptr, first.Get()));
    EXPECT_EQ(2u, RefCountOf(first.Get()));
    EXPECT_EQ(S_OK, registry.initialize(reinterpret_cast<void*>(0x1), second.Get()));
    EXPECT_EQ(1u, RefCountOf(first.Get()));
    EXPECT_EQ(2u, RefCountOf(second.Get()));
    EXPECT_EQ(S_OK, registry.initialize(nullptr, nullptr));
    EXPECT_EQ(1u, RefCountOf(second.Get()));
}

TEST(KitEntryPoints, ComponentStringCreatesForeignClassesThroughTheGivenCollection) {
    LoadedModule collections = LoadModule("CollectionsEx");
    KitRecordingCollection* recorder = nullptr;
    SmartPtr<IComponentCollection> fake = MakeFake<KitRecordingCollection, IComponentCollection>(&recorder);
    SmartPtr<IComponentString> name = CreateFrom<IComponentString>(collections, L"ComponentString",
                                                                    IID_IComponentString);
    ASSERT_TRUE(name);
    ASSERT_EQ(S_OK, name->Register(1, REFStr(L"LUMStack")));

    ASSERT_EQ(S_OK, collections.initialize(nullptr, fake.Get()));
    void* object = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(E_NOTIMPL, name->CreateInstance(&IID_IUnknown, &object));
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(L"LUMStack", recorder->lastName);

    // The module's own classes never go through the collection.
    ASSERT_EQ(S_OK, name->Register(1, REFStr(L"Variant")));
    SmartPtr<IVariant> variant;
    EXPECT_EQ(S_OK, name->CreateInstance(&IID_IVariant, variant.OutVoid()));
    EXPECT_TRUE(variant);
    EXPECT_EQ(1, recorder->requests);

    // Without a given collection, foreign classes resolve through the global one.
    ASSERT_EQ(S_OK, collections.initialize(nullptr, nullptr));
    EXPECT_EQ(1u, RefCountOf(fake.Get()));
    ASSERT_EQ(S_OK, name->Register(1, REFStr(L"KitProbe")));
    SmartPtr<IUnknown> probe;
    EXPECT_EQ(S_OK, name->CreateInstance(&IID_IUnknown, probe.OutVoid()));
    EXPECT_TRUE(probe);
    EXPECT_EQ(1, recorder->requests);
}

}  // namespace
