// The module's exported entry points, driven through dlopen as a host does.
#include <gtest/gtest.h>

#include <set>

#include "tests/support/Fakes.h"
#include "tests/support/ModuleHost.h"

namespace {

using GlobalComponentsFunction = IComponentCollection* (*)();

class ModuleEntry : public ::testing::Test {
protected:
    void SetUp() override {
        module = LoadModule("LUMCamcorder");
        ASSERT_NE(module.create, nullptr);
        ASSERT_NE(module.initialize, nullptr);
        globalComponents = reinterpret_cast<GlobalComponentsFunction>(module.Symbol("GLOBALComponents"));
        ASSERT_NE(globalComponents, nullptr);
    }
    void TearDown() override { module.initialize(nullptr, nullptr); }

    HRESULT Lookup(const wchar_t* name, int32_t length, void** creator) {
        return module.create(length, name, creator);
    }

    LoadedModule module;
    GlobalComponentsFunction globalComponents = nullptr;
};

TEST_F(ModuleEntry, CreateFunctionAnswersExactlyTheFiveClassNames) {
    const wchar_t* names[] = {L"LUMCamcorder", L"LUMCamWindow", L"LUMStackCamcorder", L"LUMFileGrab",
                              L"LUMFilePlayer"};
    std::set<void*> creators;
    for (const wchar_t* name : names) {
        void* creator = nullptr;
        EXPECT_EQ(Lookup(name, static_cast<int32_t>(wcslen(name)), &creator), S_OK) << name;
        EXPECT_NE(creator, nullptr);
        creators.insert(creator);
    }
    // "LUMCamWindow" has the camcorder's length and first characters, yet
    // reaches a creation function of its own.
    EXPECT_EQ(creators.size(), 5u);

    void* sentinel = reinterpret_cast<void*>(0x1234);
    void* creator = sentinel;
    EXPECT_EQ(Lookup(L"lumcamcorder", 12, &creator), E_FAIL);
    EXPECT_EQ(Lookup(L"LUMCamcorder", 13, &creator), E_FAIL);  // terminator counted
    EXPECT_EQ(Lookup(L"LUMFileGrab ", 12, &creator), E_FAIL);
    EXPECT_EQ(Lookup(L"LUMCamcorde", 11, &creator), E_FAIL);
    EXPECT_EQ(Lookup(L"", 0, &creator), E_FAIL);
    EXPECT_EQ(Lookup(nullptr, 0, &creator), E_FAIL);
    EXPECT_EQ(Lookup(L"LUMCamcorder", -12, &creator), E_FAIL);
    EXPECT_EQ(Lookup(L"GlobalComponentCollection", 25, &creator), E_FAIL);
    EXPECT_EQ(creator, sentinel) << "a failed lookup must leave the output untouched";
}

TEST_F(ModuleEntry, CreateFunctionResultCreatesTheNamedClass) {
    SmartPtr<FakeCollection> host = CObject<FakeCollection>::New();
    module.initialize(nullptr, host.Get());
    for (const wchar_t* name : {L"LUMCamcorder", L"LUMStackCamcorder", L"LUMFilePlayer"}) {
        SmartPtr<IObjectInfo> info = CreateFrom<IObjectInfo>(module, name, IID_IObjectInfo);
        ASSERT_TRUE(info) << name;
        tagREFString first{}, second{};
        EXPECT_EQ(info->GetName(0, &first), S_OK);
        EXPECT_EQ(info->GetName(7, &second), S_OK);
        EXPECT_EQ(std::wstring(first.text, first.length), name);
        // The view is the class's constant name, the same on every call.
        EXPECT_EQ(first.text, second.text);
        EXPECT_EQ(first.length, second.length);
        EXPECT_EQ(RefCountOf(info.Get()), 1u);
    }
}

TEST_F(ModuleEntry, InitializeModuleKeepsOneReferenceAndReplacesIt) {
    SmartPtr<FakeCollection> first = CObject<FakeCollection>::New();
    SmartPtr<FakeCollection> second = CObject<FakeCollection>::New();
    EXPECT_EQ(module.initialize(nullptr, first.Get()), S_OK);
    EXPECT_EQ(RefCountOf(first->PrimaryUnknown()), 2u);
    EXPECT_EQ(module.initialize(reinterpret_cast<void*>(0xdead), first.Get()), S_OK);
    EXPECT_EQ(RefCountOf(first->PrimaryUnknown()), 2u) << "handing over the same collection again keeps one reference";

    EXPECT_EQ(module.initialize(nullptr, second.Get()), S_OK);
    EXPECT_EQ(RefCountOf(first->PrimaryUnknown()), 1u);
    EXPECT_EQ(RefCountOf(second->PrimaryUnknown()), 2u);

    EXPECT_EQ(module.initialize(nullptr, nullptr), S_OK);
    EXPECT_EQ(RefCountOf(second->PrimaryUnknown()), 1u);
}

TEST_F(ModuleEntry, GlobalComponentsHandsOutTheHostCollectionCounted) {
    SmartPtr<FakeCollection> host = CObject<FakeCollection>::New();
    module.initialize(nullptr, host.Get());
    IComponentCollection* a = globalComponents();
    IComponentCollection* b = globalComponents();
    EXPECT_EQ(a, static_cast<IComponentCollection*>(host.Get()));
    EXPECT_EQ(b, a);
    EXPECT_EQ(RefCountOf(host->PrimaryUnknown()), 4u);  // ours, the module's, and two handed out
    a->Release();
    b->Release();
}

TEST_F(ModuleEntry, GlobalComponentsFallsBackToTheFrameworkCollection) {
    module.initialize(nullptr, nullptr);
    SmartPtr<IComponentCollection> lazy = SmartPtr<IComponentCollection>::Adopt(globalComponents());
    ASSERT_TRUE(lazy);
    SmartPtr<IComponentCollection> framework = GlobalCollection();
    EXPECT_EQ(IdentityPointer(lazy.Get()), IdentityPointer(framework.Get()));
    SmartPtr<IComponentCollection> again = SmartPtr<IComponentCollection>::Adopt(globalComponents());
    EXPECT_EQ(again.Get(), lazy.Get()) << "the lazily created collection is kept";
}

}  // namespace
