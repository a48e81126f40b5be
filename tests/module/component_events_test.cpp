// Every component's event source, reached through IEventSource as a host
// reaches it: same rules whether the component has a lock or not.
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/ModuleHost.h"

namespace {

class ComponentEvents : public ::testing::TestWithParam<const wchar_t*> {
protected:
    void SetUp() override {
        module = LoadModule("LUMCamcorder");
        ASSERT_NE(module.initialize, nullptr);
        host = MakeComponentHost();
        module.initialize(nullptr, host.Get());
        events = CreateFrom<IEventSource>(module, GetParam(), IID_IEventSource);
        ASSERT_TRUE(events);
    }
    void TearDown() override {
        events.Reset();
        module.initialize(nullptr, nullptr);
    }

    IUnknown* ItemAt(uint32_t index) {
        SmartPtr<IUnknown> sink;
        if (events->GetAdviseItem(index, sink.Out(), nullptr) != S_OK) return nullptr;
        return IdentityPointer(sink.Get());
    }

    LoadedModule module;
    SmartPtr<FakeCollection> host;
    SmartPtr<IEventSource> events;
};

TEST_P(ComponentEvents, RegistrationRules) {
    std::vector<SmartPtr<CountingSink>> sinks;
    for (int i = 0; i < 10; ++i) {
        sinks.push_back(CObject<CountingSink>::New());
        ASSERT_EQ(events->Advise(sinks.back()->PrimaryUnknown(), 1), S_OK);
    }
    EXPECT_EQ(events->GetAdviseCount(), 10);
    for (uint32_t i = 0; i < 10; ++i) EXPECT_EQ(ItemAt(i), sinks[i]->PrimaryUnknown()) << i;

    // The same object through its event interface is already registered.
    EXPECT_EQ(events->Advise(static_cast<_ICameraEvents*>(sinks[3].Get()), 1), S_FALSE);
    EXPECT_EQ(events->GetAdviseCount(), 10);

    // Flags 0 removes by identity and keeps the order of the others.
    EXPECT_EQ(events->Advise(static_cast<_ICameraEvents*>(sinks[0].Get()), 0), S_OK);
    EXPECT_EQ(ItemAt(0), sinks[1]->PrimaryUnknown());
    EXPECT_EQ(events->Advise(sinks[0]->PrimaryUnknown(), 0), E_FAIL);

    // Flags 2: added once, then replaced in place.
    SmartPtr<CountingSink> replaceable = CObject<CountingSink>::New(), replacement = CObject<CountingSink>::New();
    EXPECT_EQ(events->Advise(replaceable->PrimaryUnknown(), 2), S_OK);
    int32_t count = events->GetAdviseCount();
    EXPECT_EQ(events->Advise(replacement->PrimaryUnknown(), 2), S_OK);
    EXPECT_EQ(events->GetAdviseCount(), count);
    EXPECT_EQ(ItemAt(count - 1), replacement->PrimaryUnknown());
    EXPECT_EQ(RefCountOf(replaceable->PrimaryUnknown()), 1u);

    // Refusals.
    EXPECT_EQ(events->Advise(nullptr, 1), E_POINTER);
    SmartPtr<PlainObject> plain = CObject<PlainObject>::New();
    EXPECT_EQ(events->Advise(plain->PrimaryUnknown(), 1), E_NOINTERFACE);

    // Removing all gives every reference back.
    EXPECT_EQ(events->Advise(nullptr, 0), S_OK);
    EXPECT_EQ(events->GetAdviseCount(), 0);
    for (auto& sink : sinks) EXPECT_EQ(RefCountOf(sink->PrimaryUnknown()), 1u);
    EXPECT_EQ(RefCountOf(replacement->PrimaryUnknown()), 1u);
}

TEST_P(ComponentEvents, ReleasingTheComponentReleasesItsSinks) {
    SmartPtr<CountingSink> sink = CObject<CountingSink>::New();
    ASSERT_EQ(events->Advise(sink->PrimaryUnknown(), 1), S_OK);
    EXPECT_EQ(RefCountOf(sink->PrimaryUnknown()), 2u);
    events.Reset();
    EXPECT_EQ(RefCountOf(sink->PrimaryUnknown()), 1u);
}

INSTANTIATE_TEST_SUITE_P(EveryComponent, ComponentEvents,
                         ::testing::Values(L"LUMCamcorder", L"LUMStackCamcorder", L"LUMFilePlayer", L"LUMCamWindow",
                                           L"LUMFileGrab"));

}  // namespace
