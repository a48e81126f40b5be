// The advise list and event delivery shared by every component.
#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "module/events/EventSource.h"
#include "module/events/FireCameraEvents.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "module/object/ResourceLock.h"
#include "tests/support/Fakes.h"
#include "tests/support/ModuleHost.h"

namespace {

class Source final : public CObject<Source>,
                     public IEventSourceImpl<Source, &IID__ICameraEvents>,
                     public _FIRECameraEvents<Source> {
    LUM_OBJECT_UNKNOWN(Source)
public:
    HRESULT Lock() override {
        ++m_Locks;
        return m_UseMutex ? m_Mutex.Lock() : S_OK;
    }
    HRESULT Unlock() override { return m_UseMutex ? m_Mutex.Unlock() : S_OK; }
    bool m_UseMutex = false;
    std::atomic<int> m_Locks{0};
    CResourceLock m_Mutex;
};

const InterfaceEntry<Source> Source::kInterfaces[] = {
    InterfaceEntry<Source>::Of<IEventSourceImpl<Source, &IID__ICameraEvents>>(IID_IEventSource),
    InterfaceEntry<Source>::End(),
};

/// A sink that appends its id to a shared log and may act inside the event.
class LoggingSink final : public CObject<LoggingSink>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(LoggingSink)
public:
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override {
        if (m_Log) m_Log->push_back(m_Id);
        m_LastCount = count;
        m_LastImage = image;
        if (m_Action) m_Action();
        return S_OK;
    }
    int m_Id = 0;
    std::vector<int>* m_Log = nullptr;
    std::function<void()> m_Action;
    int32_t m_LastCount = -1;
    IUnknown* m_LastImage = nullptr;
};

const InterfaceEntry<LoggingSink> LoggingSink::kInterfaces[] = {
    InterfaceEntry<LoggingSink>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<LoggingSink>::End(),
};

class EventSource : public ::testing::Test {
protected:
    void SetUp() override { source = CObject<Source>::New(); }

    SmartPtr<LoggingSink> Sink(int id) {
        SmartPtr<LoggingSink> sink = CObject<LoggingSink>::New();
        sink->m_Id = id;
        sink->m_Log = &log;
        return sink;
    }
    IUnknown* Unknown(LoggingSink* sink) { return sink->PrimaryUnknown(); }
    IUnknown* ItemAt(uint32_t index) {
        IUnknown* sink = nullptr;
        if (source->GetAdviseItem(index, &sink, nullptr) != S_OK) return nullptr;
        sink->Release();  // the list still holds one
        return IdentityPointer(sink);
    }

    SmartPtr<Source> source;
    std::vector<int> log;
};

TEST_F(EventSource, GrowsInStepsOfEightKeepingOrder) {
    std::vector<SmartPtr<LoggingSink>> sinks;
    for (int i = 0; i < 9; ++i) {
        sinks.push_back(Sink(i));
        EXPECT_EQ(source->Advise(Unknown(sinks.back().Get()), 1), S_OK);
        EXPECT_EQ(source->AdviseCapacity(), i < 8 ? 8 : 16);
    }
    EXPECT_EQ(source->GetAdviseCount(), 9);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(ItemAt(i), Unknown(sinks[i].Get())) << i;
    EXPECT_EQ(RefCountOf(Unknown(sinks[0].Get())), 2u) << "the list holds one reference per sink";
}

TEST_F(EventSource, SameObjectThroughAnotherInterfaceIsRegisteredOnce) {
    SmartPtr<LoggingSink> sink = Sink(1);
    EXPECT_EQ(source->Advise(static_cast<_ICameraEvents*>(sink.Get()), 1), S_OK);
    EXPECT_EQ(source->Advise(Unknown(sink.Get()), 3), S_FALSE);
    EXPECT_EQ(source->GetAdviseCount(), 1);
    EXPECT_EQ(RefCountOf(Unknown(sink.Get())), 2u);
}

TEST_F(EventSource, RefusesSinksThatCannotReceiveTheEvent) {
    EXPECT_EQ(source->Advise(nullptr, 1), E_POINTER);
    SmartPtr<PlainObject> plain = CObject<PlainObject>::New();
    EXPECT_EQ(source->Advise(plain.Get(), 1), E_NOINTERFACE);
    EXPECT_EQ(source->GetAdviseCount(), 0);
    EXPECT_EQ(RefCountOf(plain.Get()), 1u);
}

TEST_F(EventSource, RemovalByFlagsZeroKeepsTheOthersInOrder) {
    SmartPtr<LoggingSink> a = Sink(1), b = Sink(2), c = Sink(3);
    for (auto* s : {a.Get(), b.Get(), c.Get()}) source->Advise(Unknown(s), 1);
    int capacity = source->AdviseCapacity();
    // Removal by a different interface pointer of the same object.
    EXPECT_EQ(source->Advise(static_cast<_ICameraEvents*>(a.Get()), 0), S_OK);
    EXPECT_EQ(source->GetAdviseCount(), 2);
    EXPECT_EQ(ItemAt(0), Unknown(b.Get()));
    EXPECT_EQ(ItemAt(1), Unknown(c.Get()));
    EXPECT_EQ(RefCountOf(Unknown(a.Get())), 1u);
    EXPECT_EQ(source->Advise(Unknown(a.Get()), 0), E_FAIL) << "not registered any more";
    EXPECT_EQ(source->ClearAdvise(Unknown(a.Get())), E_FAIL);
    // Null removes everything; the slots stay allocated.
    EXPECT_EQ(source->Advise(nullptr, 0), S_OK);
    EXPECT_EQ(source->GetAdviseCount(), 0);
    EXPECT_EQ(source->AdviseCapacity(), capacity);
    EXPECT_EQ(RefCountOf(Unknown(b.Get())), 1u);
    EXPECT_EQ(RefCountOf(Unknown(c.Get())), 1u);
}

TEST_F(EventSource, ClearingAnEmptyListTakesNoLock) {
    int locks = source->m_Locks;
    EXPECT_EQ(source->ClearAdvise(nullptr), S_OK);
    EXPECT_EQ(source->m_Locks, locks);
}

TEST_F(EventSource, FlagsTwoReplacesTheReplaceableSink) {
    SmartPtr<LoggingSink> first = Sink(1), second = Sink(2), other = Sink(3);
    EXPECT_EQ(source->Advise(Unknown(other.Get()), 1), S_OK);
    EXPECT_EQ(source->Advise(Unknown(first.Get()), 2), S_OK) << "no replaceable sink yet: added";
    EXPECT_EQ(source->GetAdviseCount(), 2);
    EXPECT_EQ(source->Advise(Unknown(second.Get()), 2), S_OK);
    EXPECT_EQ(source->GetAdviseCount(), 2);
    EXPECT_EQ(ItemAt(1), Unknown(second.Get()));
    int32_t flags = 0;
    EXPECT_EQ(source->GetAdviseItem(1, nullptr, &flags), S_OK);
    EXPECT_EQ(flags, 2);
    EXPECT_EQ(RefCountOf(Unknown(first.Get())), 1u) << "the replaced sink was released";
    EXPECT_EQ(RefCountOf(Unknown(second.Get())), 2u);
}

TEST_F(EventSource, AdviseItemBounds) {
    SmartPtr<LoggingSink> a = Sink(1);
    source->Advise(Unknown(a.Get()), 5);
    IUnknown* sink = reinterpret_cast<IUnknown*>(0x1);
    EXPECT_EQ(source->GetAdviseItem(1, &sink, nullptr), E_FAIL);
    EXPECT_EQ(source->GetAdviseItem(0xFFFFFFFFu, &sink, nullptr), E_FAIL);
    int32_t flags = 0;
    EXPECT_EQ(source->GetAdviseItem(0, nullptr, &flags), S_OK);
    EXPECT_EQ(flags, 5);
    // A replaceable slot holding nothing reads as a failure.
    SmartPtr<LoggingSink> b = Sink(2);
    source->Advise(Unknown(b.Get()), 2);
    source->Advise(nullptr, 2);
    EXPECT_EQ(source->GetAdviseItem(1, &sink, &flags), E_FAIL);
    EXPECT_EQ(flags, 2);
}

TEST_F(EventSource, FiresToEverySinkInOrderWithItsArguments) {
    SmartPtr<LoggingSink> a = Sink(1), b = Sink(2), c = Sink(3);
    for (auto* s : {a.Get(), b.Get(), c.Get()}) source->Advise(Unknown(s), 1);
    SmartPtr<PlainObject> image = CObject<PlainObject>::New();
    source->Fire_ImageGrabbed(source->PrimaryUnknown(), image.Get(), 42);
    EXPECT_EQ(log, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(c->m_LastCount, 42);
    EXPECT_EQ(c->m_LastImage, image.Get());
}

TEST_F(EventSource, SinksWithoutTheEventAreSkippedAndEmptySlotsEndDelivery) {
    SmartPtr<LoggingSink> a = Sink(1), replaceable = Sink(2), c = Sink(3);
    source->Advise(Unknown(a.Get()), 1);
    source->Advise(Unknown(replaceable.Get()), 2);
    source->Advise(Unknown(c.Get()), 1);
    // The replacement is not checked: a plain object takes the slot.
    SmartPtr<PlainObject> plain = CObject<PlainObject>::New();
    EXPECT_EQ(source->Advise(plain.Get(), 2), S_OK);
    source->Fire_ImageGrabbed(nullptr, nullptr, 0);
    EXPECT_EQ(log, (std::vector<int>{1, 3}));

    log.clear();
    source->Advise(nullptr, 2);
    source->Fire_ImageGrabbed(nullptr, nullptr, 0);
    EXPECT_EQ(log, (std::vector<int>{1})) << "delivery ends at the empty slot";
}

TEST_F(EventSource, SinksMayAdviseAndUnadviseFromInsideTheEvent) {
    SmartPtr<LoggingSink> a = Sink(1), b = Sink(2), c = Sink(3), late = Sink(4);
    source->Advise(Unknown(a.Get()), 1);
    source->Advise(Unknown(b.Get()), 1);
    source->Advise(Unknown(c.Get()), 1);
    Source* s = source.Get();
    a->m_Action = [&, s] {
        s->Advise(Unknown(late.Get()), 1);  // added during delivery: receives it too
        s->Advise(Unknown(a.Get()), 0);     // removed: b shifts into a's slot and misses it
    };
    source->Fire_ImageGrabbed(nullptr, nullptr, 7);
    EXPECT_EQ(log, (std::vector<int>{1, 3, 4}));
    EXPECT_EQ(source->GetAdviseCount(), 3);
    EXPECT_EQ(late->m_LastCount, 7);
}

TEST_F(EventSource, ReleasesItsSinksWithTheOwner) {
    SmartPtr<LoggingSink> a = Sink(1);
    source->Advise(Unknown(a.Get()), 1);
    EXPECT_EQ(RefCountOf(Unknown(a.Get())), 2u);
    source.Reset();
    EXPECT_EQ(RefCountOf(Unknown(a.Get())), 1u);
}

TEST_F(EventSource, FiringWhileOtherThreadsAdviseAndUnadvise) {
    source->m_UseMutex = true;
    std::vector<SmartPtr<CountingSink>> steady;
    for (int i = 0; i < 4; ++i) {
        steady.push_back(CObject<CountingSink>::New());
        source->Advise(steady.back()->PrimaryUnknown(), 1);
    }
    std::atomic<bool> stop{false};
    std::thread churn([&] {
        while (!stop) {
            SmartPtr<CountingSink> sink = CObject<CountingSink>::New();
            source->Advise(sink->PrimaryUnknown(), 1);
            source->Advise(sink->PrimaryUnknown(), 0);
        }
    });
    constexpr int kEvents = 2000;
    for (int i = 0; i < kEvents; ++i) source->Fire_ImageGrabbed(nullptr, nullptr, i);
    stop = true;
    churn.join();
    // The churning sink sits after the steady ones, so they never shift.
    for (auto& sink : steady) EXPECT_EQ(sink->m_Events, kEvents);
    EXPECT_EQ(source->GetAdviseCount(), 4);
}

}  // namespace
