// The object model's creation and destruction rules, the lock and the thread
// wrapper, on small classes built from the same templates as the components.
#include <gtest/gtest.h>

#include <errno.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "module/object/InterfaceTable.h"
#include "module/object/OSThread.h"
#include "module/object/Object.h"
#include "module/object/ObjectInfo.h"
#include "module/object/ResourceLock.h"
#include "tests/support/Fakes.h"

namespace {

std::vector<std::string> g_Log;

class Probe final : public CObject<Probe>, public IObjectInfoImpl<Probe>, public IDataPersist {
    LUM_OBJECT_UNKNOWN(Probe)
public:
    static inline HRESULT s_ConstructResult = S_OK;
    Probe() { g_Log.push_back("construct"); }
    ~Probe() { g_Log.push_back("destroy"); }
    HRESULT FinalConstruct() override {
        g_Log.push_back("final-construct");
        return s_ConstructResult;
    }
    void FinalRelease() override { g_Log.push_back("final-release"); }
    HRESULT Save(IDataStream*, int32_t) override { return S_OK; }
    HRESULT Load(IDataStream*, int32_t) override { return S_OK; }
};

template <>
const tagREFString IObjectInfoImpl<Probe>::m_ObjectName = {5, const_cast<wchar_t*>(L"Probe")};

const InterfaceEntry<Probe> Probe::kInterfaces[] = {
    InterfaceEntry<Probe>::Of<IObjectInfoImpl<Probe>>(IID_IObjectInfo),
    InterfaceEntry<Probe>::Of<IDataPersist>(IID_IDataPersist),
    InterfaceEntry<Probe>::End(),
};

class ObjectModel : public ::testing::Test {
protected:
    void SetUp() override {
        g_Log.clear();
        Probe::s_ConstructResult = S_OK;
    }
};

TEST_F(ObjectModel, CreationHandsOutTheOnlyReference) {
    IDataPersist* persist = nullptr;
    ASSERT_EQ(CObject<Probe>::_CreateInstance(nullptr, &IID_IDataPersist, reinterpret_cast<void**>(&persist)),
              S_OK);
    EXPECT_EQ(g_Log, (std::vector<std::string>{"construct", "final-construct"}));
    EXPECT_EQ(persist->AddRef(), 2u);
    EXPECT_EQ(persist->Release(), 1u);
    EXPECT_EQ(persist->Release(), 0u);
    EXPECT_EQ(g_Log, (std::vector<std::string>{"construct", "final-construct", "final-release", "destroy"}));
}

TEST_F(ObjectModel, FailedFinalConstructIsUndoneWithItsOwnResult) {
    Probe::s_ConstructResult = E_ABORT;
    void* object = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(CObject<Probe>::_CreateInstance(nullptr, &IID_IDataPersist, &object), E_ABORT);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(g_Log, (std::vector<std::string>{"construct", "final-construct", "final-release", "destroy"}));

    // Only S_OK counts as success: a positive result aborts creation as well.
    g_Log.clear();
    Probe::s_ConstructResult = S_FALSE;
    EXPECT_EQ(CObject<Probe>::_CreateInstance(nullptr, &IID_IDataPersist, &object), S_FALSE);
    EXPECT_EQ(g_Log.back(), "destroy");
}

TEST_F(ObjectModel, UnansweredInterfaceFinalReleasesOnce) {
    void* object = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(CObject<Probe>::_CreateInstance(nullptr, &IID_ICamera, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(g_Log, (std::vector<std::string>{"construct", "final-construct", "final-release", "destroy"}));
}

TEST_F(ObjectModel, NullArgumentsAreRefused) {
    EXPECT_EQ(CObject<Probe>::_CreateInstance(nullptr, &IID_IDataPersist, nullptr), E_POINTER);
    void* object = nullptr;
    EXPECT_EQ(CObject<Probe>::_CreateInstance(nullptr, nullptr, &object), E_POINTER);
    EXPECT_TRUE(g_Log.empty()) << "nothing is constructed for a call that cannot succeed";
}

TEST_F(ObjectModel, IdentityAndObjectNameAreStable) {
    SmartPtr<IDataPersist> persist;
    ASSERT_EQ(CObject<Probe>::_CreateInstance(nullptr, &IID_IDataPersist, persist.OutVoid()), S_OK);
    SmartPtr<IObjectInfo> info = persist.As<IObjectInfo>(IID_IObjectInfo);
    ASSERT_TRUE(info);
    SmartPtr<IUnknown> a = persist.As<IUnknown>(IID_IUnknown);
    SmartPtr<IUnknown> b = info.As<IUnknown>(IID_IUnknown);
    EXPECT_EQ(a.Get(), b.Get());
    tagREFString name{};
    EXPECT_EQ(info->GetName(0, &name), S_OK);
    EXPECT_EQ(name.text, IObjectInfoImpl<Probe>::m_ObjectName.text);
    EXPECT_EQ(info->GetName(0, nullptr), E_POINTER);
}

TEST_F(ObjectModel, ReleasesRacingForTheLastReferenceDestroyOnce) {
    for (int round = 0; round < 200; ++round) {
        IDataPersist* persist = nullptr;
        ASSERT_EQ(CObject<Probe>::_CreateInstance(nullptr, &IID_IDataPersist, reinterpret_cast<void**>(&persist)),
                  S_OK);
        persist->AddRef();
        std::thread other([persist] { persist->Release(); });
        persist->Release();
        other.join();
    }
    int destroyed = 0;
    for (const std::string& entry : g_Log) destroyed += entry == "destroy";
    EXPECT_EQ(destroyed, 200);
}

TEST(ResourceLock, SecondLockOnTheSameThreadReportsDeadlockWithoutBlocking) {
    CResourceLock lock;
    EXPECT_EQ(lock.Lock(), 0);
    EXPECT_EQ(lock.Lock(), EDEADLK);
    EXPECT_EQ(lock.Unlock(), 0);
    EXPECT_EQ(lock.Delete(), 0);
}

TEST(ResourceLock, ExcludesOtherThreads) {
    CResourceLock lock;
    int shared = 0;
    auto work = [&] {
        for (int i = 0; i < 10000; ++i) {
            lock.Lock();
            ++shared;
            lock.Unlock();
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(shared, 20000);
}

TEST(OSThreadTest, RunsItsRoutineAndJoins) {
    std::atomic<int> ran{0};
    OSThread thread([](void* argument) -> void* {
        static_cast<std::atomic<int>*>(argument)->fetch_add(1);
        return nullptr;
    }, &ran);
    EXPECT_EQ(thread.Join(), E_FAIL) << "nothing to join before Start";
    ASSERT_EQ(thread.Start(), S_OK);
    EXPECT_TRUE(thread.Started());
    EXPECT_EQ(thread.Join(), S_OK);
    EXPECT_EQ(ran, 1);
}

}  // namespace

namespace {

// An object whose teardown hands itself out: FinalRelease lets another
// object AddRef and Release it, as an event source does when the object
// unadvises itself. Destruction must still happen exactly once.
class SelfReleasing final : public CObject<SelfReleasing>, public IDataPersist {
    LUM_OBJECT_UNKNOWN(SelfReleasing)
public:
    static inline int s_Destroyed = 0;
    ~SelfReleasing() { ++s_Destroyed; }
    void FinalRelease() override {
        SmartPtr<IUnknown> identity;
        QueryInterface(IID_IUnknown, identity.OutVoid());  // count 0 -> 1 -> 0 again
    }
    HRESULT Save(IDataStream*, int32_t) override { return S_OK; }
    HRESULT Load(IDataStream*, int32_t) override { return S_OK; }
};

const InterfaceEntry<SelfReleasing> SelfReleasing::kInterfaces[] = {
    InterfaceEntry<SelfReleasing>::Of<IDataPersist>(IID_IDataPersist),
    InterfaceEntry<SelfReleasing>::End(),
};

TEST(ObjectModelTeardown, ReferencesTakenDuringFinalReleaseDoNotDestroyTwice) {
    IDataPersist* persist = nullptr;
    ASSERT_EQ(CObject<SelfReleasing>::_CreateInstance(nullptr, &IID_IDataPersist, reinterpret_cast<void**>(&persist)),
              S_OK);
    EXPECT_EQ(persist->Release(), 0u);
    EXPECT_EQ(SelfReleasing::s_Destroyed, 1);
}

}  // namespace
