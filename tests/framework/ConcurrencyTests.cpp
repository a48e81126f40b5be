// The thread-safe kit objects used from several threads at once: the global
// collection, "Registry" and "StringTable".
#include <dlfcn.h>

#include <thread>

#include "tests/framework/KitTestSupport.h"

namespace {

constexpr int kThreads = 4;

template <class Body>
void RunThreads(Body body) {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(body, t);
    for (std::thread& thread : threads) thread.join();
}

HRESULT CreateNothing(void*, const IID*, void** object) {
    *object = nullptr;
    return E_NOTIMPL;
}

TEST(KitConcurrency, GlobalCollectionResolvesLoadsAndRegistersFromManyThreads) {
    SmartPtr<IComponentCollection> collection = GlobalCollection();
    ASSERT_TRUE(collection);
    std::atomic<int> failures{0};
    RunThreads([&](int t) {
        // Every thread asks for the same never-loaded module first.
        SmartPtr<IUnknown> probe;
        if (collection->CreateObject(REFStr(L"KitProbe"), &IID_IUnknown, probe.OutVoid()) != S_OK) ++failures;
        const std::wstring own = L"Kit.Thread." + std::to_wstring(t);
        for (int i = 0; i < 200; ++i) {
            SmartPtr<IVariant> variant;
            SmartPtr<IString> string;
            SmartPtr<ISuperCollection> list;
            SmartPtr<IComponentCollection> shared = GlobalCollection();
            if (collection->CreateObject(REFStr(L"Variant"), &IID_IVariant, variant.OutVoid()) != S_OK ||
                collection->CreateObject(REFStr(L"CollectionsEx.CreatableString.1"), &IID_IString,
                                         string.OutVoid()) != S_OK ||
                collection->CreateObject(REFStr(i % 2 ? L"KitProbe.Other" : L"SuperCollection"),
                                         i % 2 ? &IID_IUnknown : &IID_ISuperCollection, list.OutVoid()) != S_OK ||
                shared.Get() != collection.Get())
                ++failures;
            if (collection->RegisterCreateFunction(KitViewOf(own), reinterpret_cast<void*>(&CreateNothing)) != S_OK)
                ++failures;
            void* object = nullptr;
            if (collection->CreateObject(KitViewOf(own), &IID_IUnknown, &object) != E_NOTIMPL) ++failures;
            if (collection->RegisterCreateFunction(KitViewOf(own), nullptr) != S_OK) ++failures;
        }
    });
    EXPECT_EQ(0, failures);

    void* probeModule = dlopen("./KitProbe.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_TRUE(probeModule);
    auto initializeCount = reinterpret_cast<int (*)()>(dlsym(probeModule, "KitProbeInitializeCount"));
    auto liveObjects = reinterpret_cast<int (*)()>(dlsym(probeModule, "KitProbeLiveObjects"));
    EXPECT_EQ(1, initializeCount());
    EXPECT_EQ(0, liveObjects());
}

TEST(KitConcurrency, RegistryReadersAlwaysSeeAWholeFileWhileItIsRewritten) {
    ScratchFolder folder;
    ScopedEnv env("LUM_REGISTRY", folder.File("Registry.ini"));
    WriteFile(folder.File("Registry.ini"), "[Workspace]\nInstallPath=/start\nStable=kept\n");
    SmartPtr<IRegistryEx> shared = CreateByName<IRegistryEx>(L"Registry", IID_IRegistryEx);
    ASSERT_TRUE(shared);
    std::atomic<int> failures{0};
    RunThreads([&](int t) {
        SmartPtr<IRegistryEx> own = CreateByName<IRegistryEx>(L"Registry", IID_IRegistryEx);
        for (int i = 0; i < 150; ++i) {
            IRegistryEx* registry = (i % 2) ? own.Get() : shared.Get();
            if (t == 0) {
                std::wstring value = L"/path" + std::to_wstring(i);
                if (registry->WriteString(REFStr(L"Workspace"), REFStr(L"InstallPath"), KitViewOf(value)) != S_OK)
                    ++failures;
                continue;
            }
            wchar_t buffer[256];
            if (registry->ReadString(REFStr(L"workspace"), REFStr(L"stable"), buffer, 256) != S_OK ||
                std::wstring(buffer) != L"kept")
                ++failures;
            if (registry->ReadString(REFStr(L"Workspace"), REFStr(L"InstallPath"), buffer, 256) != S_OK ||
                buffer[0] != L'/')
                ++failures;
        }
    });
    EXPECT_EQ(0, failures);
    wchar_t buffer[256];
    ASSERT_EQ(S_OK, shared->ReadString(REFStr(L"Workspace"), REFStr(L"InstallPath"), buffer, 256));
    EXPECT_EQ(std::wstring(L"/path149"), buffer);
}

TEST(KitConcurrency, StringTableServesSeveralThreads) {
    ScratchFolder folder;
    ScopedEnv env("LUM_STRINGS", folder.Path());
    WriteFile(folder.File("Shared.txt"), "1=one\n2=two|three\n");
    SmartPtr<IStringTable> table = CreateByName<IStringTable>(L"StringTable", IID_IStringTable);
    ASSERT_TRUE(table);
    std::atomic<int> failures{0};
    RunThreads([&](int) {
        SmartPtr<IString> owner = MakeString(L"Shared");
        for (int i = 0; i < 100; ++i) {
            SmartPtr<INamedCollection> strings;
            SmartPtr<IString> text;
            int32_t count = 0;
            if (table->GetCollection(owner.Get(), strings.Out()) != S_OK || strings->get_Count(&count) != S_OK ||
                count != 2 || table->GetString(owner.Get(), 2, text.Out()) != S_OK ||
                TextOf(text.Get()) != L"two|three")
                ++failures;
        }
    });
    EXPECT_EQ(0, failures);
}

}  // namespace
