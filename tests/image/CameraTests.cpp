// "LUMTestCamera" and the stack from several threads: live delivery,
// stopping from inside a sink, releasing while live, and one appender with
// one remover on a "LUMStack". Also run under ThreadSanitizer.
#include <algorithm>
#include <atomic>
#include <cstring>

#include "tests/image/ImageTestSupport.h"

namespace {

SmartPtr<ICamera> MakeCamera() { return CreateByName<ICamera>(L"LUMTestCamera", IID_ICamera); }

SmartPtr<RecordingSink> Advised(ICamera* camera) {
    SmartPtr<RecordingSink> sink = CObject<RecordingSink>::New();
    SmartPtr<IEventSource> events = QueryAs<IEventSource>(camera, IID_IEventSource);
    EXPECT_EQ(S_OK, events->Advise(sink->PrimaryUnknown(), 1));
    return sink;
}

int32_t Parameter(ICamera* camera, int32_t code) {
    int32_t value = -1;
    EXPECT_EQ(S_OK, camera->Inquire(code, &value));
    return value;
}

// The test pattern of frame f at pixel byte i of row y (before the frame
// number is written into the top row).
uint8_t Pattern(int32_t bits, int32_t i, int32_t y, uint32_t f) {
    if (bits == 8) return uint8_t(i + y + f);
    const int32_t x = i / (bits / 8);
    switch (i % (bits / 8)) {
        case 0: return uint8_t(x + f);
        case 1: return uint8_t(y + 2 * f);
        case 2: return uint8_t(x + y);
        default: return 255;
    }
}

TEST(TestCamera, ParametersHaveTheirDefaultsAndRanges) {
    SmartPtr<ICamera> camera = MakeCamera();
    ASSERT_TRUE(camera);
    EXPECT_EQ((std::vector<int32_t>{320, 240, 24, 10, 0, 0}),
              (std::vector<int32_t>{Parameter(camera.Get(), 1), Parameter(camera.Get(), 2), Parameter(camera.Get(), 3),
                                    Parameter(camera.Get(), 4), Parameter(camera.Get(), 5), Parameter(camera.Get(), 10)}));
    for (auto [code, value] : std::initializer_list<std::pair<int32_t, int32_t>>{
             {1, 0}, {2, -3}, {3, 16}, {4, 0}, {4, 1001}, {5, -1}, {6, 1}})
        EXPECT_EQ(E_INVALIDARG, camera->Control(code, value)) << code << "=" << value;
    EXPECT_EQ(S_OK, camera->put_NumberOfFrames(7));
    EXPECT_EQ(7, Parameter(camera.Get(), 5));
    int32_t value = 0;
    EXPECT_EQ(E_INVALIDARG, camera->Inquire(6, &value));
    EXPECT_EQ(E_NOTIMPL, camera->LoadParameters(REFStr(L"x")));
    ILUM* image = nullptr;
    EXPECT_EQ(E_FAIL, camera->get_Image(0, &image));
}

TEST(TestCamera, GrabFiresANewPatternFrameNumberedFromOneOnTheCallersThread) {
    SmartPtr<ICamera> camera = MakeCamera();
    SmartPtr<RecordingSink> sink = Advised(camera.Get());
    ASSERT_EQ(S_OK, camera->Control(1, 13));
    ASSERT_EQ(S_OK, camera->Control(2, 6));
    std::vector<IUnknown*> frames;
    for (int32_t bits : {24, 8, 32}) {
        ASSERT_EQ(S_OK, camera->Control(3, bits));
        ASSERT_EQ(S_OK, camera->Grab(0, 0, nullptr));
        const uint32_t f = static_cast<uint32_t>(sink->Events());
        SmartPtr<ILUM> image = sink->LastImage();
        ASSERT_TRUE(image);
        frames.push_back(IdentityPointer(image.Get()));
        ImageBytes bytes = BytesOf(image.Get());
        ASSERT_EQ(bits, bytes.bits);
        ASSERT_EQ(13, bytes.width);
        for (int32_t y = 0; y < 6; ++y)
            for (int32_t i = (y == 0 ? 4 : 0); i < 13 * bits / 8; ++i)
                ASSERT_EQ(Pattern(bits, i, y, f), bytes.rows[y][i]) << bits << " bits, byte " << i << " of row " << y;
        uint8_t* pixels = nullptr;
        image->get_Bits(&pixels);
        uint32_t number = 0;
        std::memcpy(&number, pixels, 4);
        EXPECT_EQ(f, number);
        SmartPtr<ILUM> last;
        ASSERT_EQ(S_OK, camera->get_Image(0, last.Out()));
        EXPECT_EQ(IdentityPointer(image.Get()), IdentityPointer(last.Get()));
    }
    EXPECT_EQ((std::vector<int32_t>{1, 2, 3}), sink->Numbers());
    EXPECT_NE(frames[0], frames[1]);
    EXPECT_EQ(IdentityPointer(camera.Get()), sink->LastCamera());
    EXPECT_EQ(std::this_thread::get_id(), sink->LastThread());
    int32_t made = 0;
    camera->get_NumberOfFrames(&made);
    EXPECT_EQ(3, made);
}

TEST(TestCamera, LiveRunsOnItsOwnThreadUntilStoppedOrTheFrameLimit) {
    SmartPtr<ICamera> camera = MakeCamera();
    SmartPtr<RecordingSink> sink = Advised(camera.Get());
    ASSERT_EQ(S_OK, camera->Control(4, 200));
    ASSERT_EQ(S_OK, camera->Live());
    EXPECT_EQ(S_FALSE, camera->Live());
    CameraStateConstants state = CameraStateIdle;
    camera->get_CameraState(&state);
    EXPECT_EQ(CameraStateLive, state);
    ASSERT_TRUE(WaitFor([&] { return sink->Events() >= 4; }));
    EXPECT_NE(std::this_thread::get_id(), sink->LastThread());
    ASSERT_EQ(S_OK, camera->StopLive());
    const int stoppedAt = sink->Events();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(stoppedAt, sink->Events());
    EXPECT_EQ(0, Parameter(camera.Get(), 10));
    EXPECT_EQ(S_FALSE, camera->StopLive());

    // A limited run ends by itself; the next Live starts another.
    ASSERT_EQ(S_OK, camera->Control(4, 1000));
    ASSERT_EQ(S_OK, camera->Control(5, 3));
    for (int run = 1; run <= 2; ++run) {
        ASSERT_EQ(S_OK, camera->Live());
        ASSERT_TRUE(WaitFor([&] { return Parameter(camera.Get(), 10) == 0; }));
        EXPECT_EQ(stoppedAt + 3 * run, sink->Events());
    }
    std::vector<int32_t> numbers = sink->Numbers();
    for (size_t i = 0; i < numbers.size(); ++i) EXPECT_EQ(int32_t(i + 1), numbers[i]);

    // The period runs from one frame's start to the next.
    ASSERT_EQ(S_OK, camera->Control(4, 50));
    ASSERT_EQ(S_OK, camera->Control(5, 6));
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(S_OK, camera->Live());
    ASSERT_TRUE(WaitFor([&] { return Parameter(camera.Get(), 10) == 0; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5 * 20));
}

TEST(TestCamera, LiveFramesWithoutSinksAreStillNumberedAndGetImageShowsTheLast) {
    SmartPtr<ICamera> camera = MakeCamera();
    camera->Control(4, 1000);
    camera->Control(5, 20);
    ASSERT_EQ(S_OK, camera->Live());
    ASSERT_TRUE(WaitFor([&] { return Parameter(camera.Get(), 10) == 0; }));
    int32_t made = 0;
    camera->get_NumberOfFrames(&made);
    EXPECT_EQ(20, made);
    SmartPtr<ILUM> last, again;
    ASSERT_EQ(S_OK, camera->get_Image(0, last.Out()));
    ASSERT_EQ(S_OK, camera->get_Image(0, again.Out()));
    EXPECT_EQ(last.Get(), again.Get());
    ImageBytes bytes = BytesOf(last.Get());
    EXPECT_EQ((std::vector<uint8_t>{20, 0, 0, 0}), std::vector<uint8_t>(bytes.rows[0].begin(), bytes.rows[0].begin() + 4));
    EXPECT_EQ(Pattern(24, 5, 7, 20), bytes.rows[7][5]);
}

TEST(TestCamera, StopLiveFromInsideASinkEndsTheRunAfterThatFrame) {
    SmartPtr<ICamera> camera = MakeCamera();
    SmartPtr<RecordingSink> sink = Advised(camera.Get());
    ICamera* raw = camera.Get();
    std::atomic<HRESULT> inside{E_NOTIMPL};
    sink->onEvent = [&](RecordingSink&, int32_t count) {
        if (count == 3) inside = raw->StopLive();
    };
    ASSERT_EQ(S_OK, camera->Control(4, 500));
    ASSERT_EQ(S_OK, camera->Live());
    // The state turns idle inside the sink's StopLive; its result is stored
    // only once that call has returned.
    ASSERT_TRUE(WaitFor([&] { return inside.load() != E_NOTIMPL; }));
    EXPECT_EQ(S_OK, inside.load());
    EXPECT_EQ(0, Parameter(camera.Get(), 10));
    EXPECT_EQ(S_FALSE, camera->StopLive());  // joins the finished thread
    // Counted once the run's thread is joined: no frame followed the stop.
    EXPECT_EQ(3, sink->Events());
}

TEST(TestCamera, ReleasingTheCameraWhileLiveStopsItAndLetsGoOfTheSinks) {
    SmartPtr<RecordingSink> sink = CObject<RecordingSink>::New();
    {
        SmartPtr<ICamera> camera = MakeCamera();
        QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1);
        EXPECT_EQ(2u, RefCountOf(sink->PrimaryUnknown()));
        camera->Control(4, 1000);
        ASSERT_EQ(S_OK, camera->Live());
        ASSERT_TRUE(WaitFor([&] { return sink->Events() >= 3; }));
    }
    ASSERT_TRUE(WaitFor([&] { return RefCountOf(sink->PrimaryUnknown()) == 1; }));
    const int events = sink->Events();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(events, sink->Events());
}

TEST(TestCamera, ASinkReleasingTheLastReferenceInsideTheEventLetsTheThreadEndByItself) {
    SmartPtr<RecordingSink> sink = CObject<RecordingSink>::New();
    std::atomic<ICamera*> owned{nullptr};
    std::atomic<int32_t> releasedAt{0};
    sink->onEvent = [&](RecordingSink&, int32_t count) {
        if (count < 3) return;
        if (ICamera* camera = owned.exchange(nullptr)) {
            releasedAt = count;
            camera->Release();
        }
    };
    {
        SmartPtr<ICamera> camera = MakeCamera();
        QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1);
        camera->Control(4, 1000);
        ASSERT_EQ(S_OK, camera->Live());
        owned = camera.Detach();  // the sink now holds the only reference
    }
    ASSERT_TRUE(WaitFor([&] { return RefCountOf(sink->PrimaryUnknown()) == 1; }));
    EXPECT_EQ(releasedAt.load(), sink->Events());
}

TEST(TestCamera, SinksComeAndGoAndOthersGrabWhileLive) {
    SmartPtr<ICamera> camera = MakeCamera();
    SmartPtr<RecordingSink> steady = Advised(camera.Get());
    SmartPtr<IEventSource> events = camera.As<IEventSource>(IID_IEventSource);
    camera->Control(4, 1000);
    camera->Control(1, 32);
    camera->Control(2, 32);
    ASSERT_EQ(S_OK, camera->Live());
    SmartPtr<RecordingSink> visitor = CObject<RecordingSink>::New();
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(60);
    for (int i = 0; i < 200 || std::chrono::steady_clock::now() < until; ++i) {
        ASSERT_EQ(S_OK, events->Advise(visitor->PrimaryUnknown(), i % 3 == 0 ? 2 : 1));
        ASSERT_EQ(S_OK, camera->Grab(0, 0, nullptr));
        SmartPtr<IUnknown> first;
        ASSERT_EQ(S_OK, events->GetAdviseItem(0, first.Out(), nullptr));
        SmartPtr<ILUM> last;
        ASSERT_EQ(S_OK, camera->get_Image(0, last.Out()));
        ASSERT_EQ(S_OK, events->Advise(visitor->PrimaryUnknown(), 0));
    }
    ASSERT_EQ(S_OK, camera->StopLive());
    EXPECT_EQ(1, events->GetAdviseCount());
    EXPECT_EQ(1u, RefCountOf(visitor->PrimaryUnknown()));
    std::vector<int32_t> numbers = steady->Numbers();
    std::sort(numbers.begin(), numbers.end());
    for (size_t i = 0; i < numbers.size(); ++i) ASSERT_EQ(int32_t(i + 1), numbers[i]);  // none lost, none twice
}

TEST(StackConcurrency, OneAppenderAndOneRemoverSeeEveryItemOnceInOrder) {
    constexpr int kItems = 5000;
    SmartPtr<IStackCollection> stack = CreateByName<IStackCollection>(L"LUMStack", IID_IStackCollection);
    ASSERT_TRUE(stack);
    stack->SetSize(1000, 0);
    std::vector<SmartPtr<PlainObject>> items;
    for (int i = 0; i < kItems; ++i) items.push_back(CObject<PlainObject>::New());

    std::thread appender([&] {
        for (const SmartPtr<PlainObject>& item : items) stack->Add(item->PrimaryUnknown());
    });
    int next = 0, misordered = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (next < kItems && std::chrono::steady_clock::now() < deadline) {
        SmartPtr<IUnknown> item;
        if (stack->RemoveOldest(item.Out()) < 0) continue;
        if (item.Get() != items[next]->PrimaryUnknown()) ++misordered;
        ++next;
        int32_t count = 0;
        stack->GetSize(nullptr, &count);
    }
    appender.join();
    EXPECT_EQ(kItems, next);
    EXPECT_EQ(0, misordered);
    int32_t count = -1;
    stack->GetSize(nullptr, &count);
    EXPECT_EQ(0, count);
    for (const SmartPtr<PlainObject>& item : items) ASSERT_EQ(1u, RefCountOf(item->PrimaryUnknown()));
}

}  // namespace
