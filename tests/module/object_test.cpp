// The object model's creation and destruction rules, the lock and the thread
// wrapper, on small classes built from the same templates as the components.
#include <gtest/gtest.h>

#include <errno.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
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

namespace {

// An object with a thread of its own that runs steps without holding a
// reference; its FinalRelease stops and joins the thread unless it runs on
// that thread, as the components' live threads do.
class Stepper final : public CObject<Stepper>, public IDataPersist {
    LUM_OBJECT_UNKNOWN(Stepper)
public:
    static inline std::vector<std::string> s_Log;
    static inline std::mutex s_LogMutex;
    static void Note(const std::string& entry) {
        std::lock_guard<std::mutex> hold(s_LogMutex);
        s_Log.push_back(entry);
    }
    ~Stepper() { Note("destroy"); }
    void FinalRelease() override {
        Note("final-release");
        stop = true;
        if (thread.joinable()) {
            if (thread.get_id() == std::this_thread::get_id())
                thread.detach();
            else
                thread.join();
        }
    }
    HRESULT Save(IDataStream*, int32_t) override { return S_OK; }
    HRESULT Load(IDataStream*, int32_t) override { return S_OK; }

    std::thread thread;
    std::atomic<bool> stop{false};
};

const InterfaceEntry<Stepper> Stepper::kInterfaces[] = {
    InterfaceEntry<Stepper>::Of<IDataPersist>(IID_IDataPersist),
    InterfaceEntry<Stepper>::End(),
};

Stepper* MakeStepper() {
    Stepper::s_Log.clear();
    IDataPersist* persist = nullptr;
    EXPECT_EQ(CObject<Stepper>::_CreateInstance(nullptr, &IID_IDataPersist, reinterpret_cast<void**>(&persist)), S_OK);
    return static_cast<Stepper*>(persist);
}

TEST(ObjectModelOwnSteps, ALastReleaseInsideAStepDestroysWhenTheStepEnds) {
    Stepper* stepper = MakeStepper();
    bool alive = true;
    std::atomic<bool> go{false}, done{false};
    stepper->thread = std::thread([&] {
        while (!go) std::this_thread::yield();  // until the thread is stored in the object
        alive = stepper->RunOwnStep([&] {
            EXPECT_EQ(stepper->Release(), 0u);  // a sink dropping the last reference
            Stepper::Note("step goes on");
            EXPECT_FALSE(stepper->stop);  // the object is still whole
        });
        Stepper::Note("after the step");
        done = true;
    });
    go = true;
    while (!done) std::this_thread::yield();
    EXPECT_FALSE(alive);
    EXPECT_EQ(Stepper::s_Log,
              (std::vector<std::string>{"step goes on", "final-release", "destroy", "after the step"}));
}

TEST(ObjectModelOwnSteps, ALastReleaseFromAnotherThreadWaitsForTheRunningStep) {
    Stepper* stepper = MakeStepper();
    std::atomic<bool> go{false}, started{false};
    stepper->thread = std::thread([stepper, &go, &started] {
        while (!go) std::this_thread::yield();  // until the thread is stored in the object
        while (!stepper->stop) {
            const bool alive = stepper->RunOwnStep([&] {
                started = true;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                Stepper::Note("step ends");
            });
            if (!alive) return;
        }
    });
    go = true;
    while (!started) std::this_thread::yield();
    EXPECT_EQ(stepper->Release(), 0u);
    Stepper::Note("release returned");
    // The release destroyed at once, on this thread, and only after the step
    // that ran had ended.
    const std::vector<std::string>& log = Stepper::s_Log;
    ASSERT_GE(log.size(), 4u);
    EXPECT_EQ((std::vector<std::string>(log.end() - 3, log.end())),
              (std::vector<std::string>{"step ends", "destroy", "release returned"}));
    EXPECT_EQ(std::count(log.begin(), log.end(), "final-release"), 1);
}

TEST(ObjectModelOwnSteps, StepsOfTwoObjectsNestOnOneThread) {
    // An event of one object's step that makes another object run a step
    // (and drop it) leaves the outer object's step as it was.
    Stepper* outer = MakeStepper();
    IDataPersist* innerPersist = nullptr;
    ASSERT_EQ(CObject<Stepper>::_CreateInstance(nullptr, &IID_IDataPersist, reinterpret_cast<void**>(&innerPersist)),
              S_OK);
    Stepper* inner = static_cast<Stepper*>(innerPersist);
    bool innerAlive = true;
    const bool outerAlive = outer->RunOwnStep([&] {
        innerAlive = inner->RunOwnStep([&] { inner->Release(); });
        outer->Release();
        Stepper::Note("outer step ends");
    });
    EXPECT_FALSE(innerAlive);
    EXPECT_FALSE(outerAlive);
    EXPECT_EQ(Stepper::s_Log, (std::vector<std::string>{"final-release", "destroy", "outer step ends", "final-release",
                                                        "destroy"}));
}

}  // namespace
