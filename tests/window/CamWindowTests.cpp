// "LUMCamWindow" driven as a host drives it: the state switch with every
// call tried in every state, the attached rectangle and the canvas image
// that it sizes, grabs relayed to the sinks, the parameters with the display
// choice, the write-only handle, and the settings file.
#include <climits>
#include <filesystem>

#include "tests/window/WindowHost.h"

namespace {

class CamWindowTest : public WindowHostTest {
protected:
    void SetUp() override {
        WindowHostTest::SetUp();
        window = CreateFrom<ILUMCamWindow>(module, L"LUMCamWindow", IID_ILUMCamWindow);
        ASSERT_TRUE(window);
        sink = CObject<GrabSink>::New();
        ASSERT_EQ(S_OK, Events()->Advise(sink->PrimaryUnknown(), 1));
    }
    void TearDown() override {
        window.Reset();
        WindowHostTest::TearDown();
    }

    SmartPtr<IEventSource> Events() { return window.As<IEventSource>(IID_IEventSource); }
    SmartPtr<ICamcorder> Recorder() { return window.As<ICamcorder>(IID_ICamcorder); }
    SmartPtr<IStep> Step() { return window.As<IStep>(IID_IStep); }
    SmartPtr<IUIPropInterrogateEx> Params() { return window.As<IUIPropInterrogateEx>(IID_IUIPropInterrogateEx); }

    int32_t State() {
        CameraStateConstants state = static_cast<CameraStateConstants>(-1);
        EXPECT_EQ(S_OK, window->get_CameraState(&state));
        return state;
    }
    /// Brings the window into `state` (0, 2 or 3) from whatever state it is in.
    void Reach(int32_t state) {
        window->StopLive();
        if (state == CameraStateLive) window->Live();
        if (state == CameraStateArmed) Recorder()->Record(nullptr);
        ASSERT_EQ(State(), state);
    }
    int32_t Value(int32_t id) {
        int32_t value = INT32_MIN;
        window->Inquire(id, &value);
        return value;
    }

    SmartPtr<ILUMCamWindow> window;
    SmartPtr<GrabSink> sink;
};

// ---- State ---------------------------------------------------------------

TEST_F(CamWindowTest, EveryCallInEveryStateMovesTheSwitchAsDocumented) {
    SmartPtr<ICamera> camera = CreateByName<ICamera>(L"LUMTestCamera", IID_ICamera);
    ASSERT_TRUE(camera);
    struct Call {
        const char* name;
        std::function<HRESULT()> call;
        int32_t after[3];  // the state after the call, by the state before: 0, 2, 3
        HRESULT result;
    };
    const int32_t kSame = -1;
    const std::vector<Call> calls = {
        {"Live", [&] { return window->Live(); }, {2, 2, 2}, S_OK},
        {"StopLive", [&] { return window->StopLive(); }, {0, 0, 0}, S_OK},
        {"Record(null)", [&] { return Recorder()->Record(nullptr); }, {3, 3, 3}, S_OK},
        {"Record(camera)", [&] { return Recorder()->Record(camera.Get()); }, {3, 3, 3}, S_OK},
        {"StopRecording", [&] { return Recorder()->StopRecording(); }, {0, 0, 0}, S_OK},
        {"Grab", [&] { return window->Grab(0, 0, nullptr); }, {kSame, kSame, kSame}, S_OK},
        {"Grab(-1, 1, camera)", [&] { return window->Grab(-1, 1, camera.Get()); }, {kSame, kSame, kSame}, S_OK},
        {"TurnOn", [&] { return Step()->TurnOn(); }, {kSame, kSame, kSame}, S_OK},
        {"TurnOff", [&] { return Step()->TurnOff(); }, {kSame, kSame, kSame}, S_OK},
        {"IsRunning", [&] { return Step()->IsRunning(); }, {kSame, kSame, kSame}, S_OK},
        {"get_CameraState(null)", [&] { return window->get_CameraState(nullptr); }, {kSame, kSame, kSame}, S_OK},
        {"get_Image(null)", [&] { return window->get_Image(0, nullptr); }, {kSame, kSame, kSame}, E_FAIL},
        {"get_NumberOfFrames", [&] { int32_t n = 0; return window->get_NumberOfFrames(&n); },
         {kSame, kSame, kSame}, E_NOTIMPL},
        {"put_NumberOfFrames", [&] { return window->put_NumberOfFrames(7); }, {kSame, kSame, kSame}, E_NOTIMPL},
        {"LoadParameters", [&] { return window->LoadParameters(REFStr(L"anything")); }, {kSame, kSame, kSame},
         E_NOTIMPL},
        {"get_ExecutionTime", [&] { double ms = 0; return Step()->get_ExecutionTime(&ms); }, {kSame, kSame, kSame},
         E_NOTIMPL},
    };
    for (const Call& call : calls) {
        for (int32_t before : {0, 2, 3}) {
            SCOPED_TRACE(std::string(call.name) + " in state " + std::to_string(before));
            Reach(before);
            EXPECT_EQ(call.result, call.call());
            const int32_t expected = call.after[before == 0 ? 0 : before - 1];
            EXPECT_EQ(State(), expected == kSame ? before : expected);
            EXPECT_EQ(Recorder()->IsRecording(), State() == CameraStateArmed ? S_OK : E_FAIL);
        }
    }
    // Nothing was attached, so no grab had an image to announce.
    EXPECT_EQ(0u, sink->Count());
    Recorder()->StopRecording();
}

// ---- Image and grabs -----------------------------------------------------

TEST_F(CamWindowTest, TheAttachedRectangleGivesACanvasThatGrabsAnnounceWithTheState) {
    ILUM* none = reinterpret_cast<ILUM*>(&none);
    EXPECT_EQ(E_FAIL, window->get_Image(0, &none));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(S_OK, window->Grab(0, 0, nullptr));
    EXPECT_EQ(0u, sink->Count());

    const CANVASRect area{10, 20, 74, 68};
    ASSERT_EQ(S_OK, window->put_AttachRECT(area));
    SmartPtr<ILUM> image;
    ASSERT_EQ(S_OK, window->get_Image(3, image.Out()));
    ASSERT_TRUE(image);
    SmartPtr<ILUMImageCANVAS> canvas = image.As<ILUMImageCANVAS>(IID_ILUMImageCANVAS);
    ASSERT_TRUE(canvas);
    CANVASRect shown{};
    canvas->get_Rect(&shown);
    EXPECT_EQ(std::vector<int32_t>({shown.left, shown.top, shown.right, shown.bottom}),
              std::vector<int32_t>({10, 20, 74, 68}));
    ImageBytes blank = BytesOf(image.Get());
    EXPECT_EQ(blank.width, 64);
    EXPECT_EQ(blank.height, 48);
    EXPECT_EQ(blank.bits, 24);

    // The host draws into the canvas; every grab announces that same image.
    uint8_t* pixels = nullptr;
    int32_t stride = 0;
    image->get_Bits(&pixels);
    image->get_Stride(&stride);
    for (int32_t y = 0; y < 48; ++y)
        for (int32_t i = 0; i < 64 * 3; ++i) pixels[y * stride + i] = static_cast<uint8_t>(i + 7 * y);
    const ImageBytes drawn = BytesOf(image.Get());

    const IUnknown* identity = IdentityPointer(window.Get());
    for (int32_t state : {CameraStateLive, CameraStateArmed, CameraStateIdle}) {
        Reach(state);
        ASSERT_EQ(S_OK, window->Grab(0, 0, nullptr));
    }
    ASSERT_EQ(S_OK, Step()->TurnOn());
    const std::vector<GrabEvent> events = sink->Events();
    ASSERT_EQ(4u, events.size());
    const int32_t expected[] = {2, 3, 0, 0};
    for (size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(expected[i], events[i].count);
        EXPECT_EQ(identity, events[i].source);
        EXPECT_EQ(IdentityPointer(image.Get()), events[i].image);
        EXPECT_EQ(0, MaxDifference(drawn, events[i].bytes)) << "grab " << i;
        EXPECT_EQ(std::this_thread::get_id(), events[i].thread);
    }
    // Each request hands out the same image, with a reference of its own.
    SmartPtr<ILUM> again;
    ASSERT_EQ(S_OK, window->get_Image(0, again.Out()));
    EXPECT_EQ(IdentityPointer(image.Get()), IdentityPointer(again.Get()));
    const uint32_t held = RefCountOf(image.Get());
    again.Reset();
    EXPECT_EQ(held - 1, RefCountOf(image.Get()));
}

TEST_F(CamWindowTest, ARectangleWithoutAreaLeavesNoImageAndANewOneResizesTheCanvas) {
    const CANVASRect empty[] = {{5, 5, 5, 40}, {0, 9, 30, 9}, {40, 0, 10, 20}, {INT_MIN, 0, INT_MAX, 8}};
    for (const CANVASRect& rect : empty) {
        ASSERT_EQ(S_OK, window->put_AttachRECT(rect));
        SmartPtr<ILUM> image;
        EXPECT_EQ(E_FAIL, window->get_Image(0, image.Out()));
        EXPECT_FALSE(image);
        window->Grab(0, 0, nullptr);
    }
    EXPECT_EQ(0u, sink->Count());

    ASSERT_EQ(S_OK, window->put_AttachRECT({0, 0, 8, 4}));
    SmartPtr<ILUM> first;
    ASSERT_EQ(S_OK, window->get_Image(0, first.Out()));
    uint8_t* pixels = nullptr;
    first->get_Bits(&pixels);
    pixels[0] = 99;
    // The same rectangle keeps what the host drew; a new one re-creates it.
    window->Grab(0, 0, nullptr);
    ASSERT_EQ(1u, sink->Count());
    EXPECT_EQ(99, sink->Events()[0].bytes.rows[0][0]);
    ASSERT_EQ(S_OK, window->put_AttachRECT({0, 0, 16, 2}));
    window->Grab(0, 0, nullptr);
    ASSERT_EQ(2u, sink->Count());
    const ImageBytes resized = sink->Events()[1].bytes;
    EXPECT_EQ(16, resized.width);
    EXPECT_EQ(2, resized.height);
    EXPECT_EQ(0, resized.rows[0][0]);

    // Taking the area away again: no image, nothing announced.
    ASSERT_EQ(S_OK, window->put_AttachRECT({0, 0, 0, 0}));
    SmartPtr<ILUM> gone;
    EXPECT_EQ(E_FAIL, window->get_Image(0, gone.Out()));
    window->Grab(0, 0, nullptr);
    EXPECT_EQ(2u, sink->Count());
}

// ---- Window, parameters, pages, settings ---------------------------------

TEST_F(CamWindowTest, TheHandleIsWriteOnlyAndTheRectangleIsParametersTwoToFive) {
    ASSERT_EQ(S_OK, window->put_AttachHWND(1234));
    int32_t handle = -7;
    EXPECT_EQ(S_OK, window->get_AttachHWND(&handle));
    EXPECT_EQ(-7, handle);
    EXPECT_EQ(S_OK, window->get_AttachHWND(nullptr));

    ASSERT_EQ(S_OK, window->put_AttachRECT({1, 2, 3, 4}));
    EXPECT_EQ(S_OK, window->get_AttachRECT(nullptr));
    EXPECT_EQ(std::vector<int32_t>({Value(2), Value(3), Value(4), Value(5)}), std::vector<int32_t>({1, 2, 3, 4}));
    ASSERT_EQ(S_OK, window->Control(2, -50));
    ASSERT_EQ(S_OK, Params()->Control(5, 60));
    CANVASRect rect{};
    ASSERT_EQ(S_OK, window->get_AttachRECT(&rect));
    EXPECT_EQ(std::vector<int32_t>({rect.left, rect.top, rect.right, rect.bottom}),
              std::vector<int32_t>({-50, 2, 3, 60}));
    // The rectangle set through parameters sizes the image as well.
    SmartPtr<ILUM> image;
    ASSERT_EQ(S_OK, window->get_Image(0, image.Out()));
    EXPECT_EQ(53, BytesOf(image.Get()).width);
    EXPECT_EQ(58, BytesOf(image.Get()).height);

    int32_t value = 0;
    EXPECT_EQ(0x4040003, window->Inquire(4, &value));
    EXPECT_EQ(3, window->Inquire(10, &value));
    EXPECT_EQ(40, value);
    EXPECT_EQ(S_OK, window->Inquire(0x2000000, &value));
    EXPECT_EQ(6, value);
    EXPECT_EQ(E_INVALIDARG, window->Inquire(6, &value));
    EXPECT_EQ(E_INVALIDARG, window->Control(11, 1));
    // The display name is a string: no integer form.
    EXPECT_EQ(E_FAIL, window->Inquire(1, &value));
    int32_t low = -1, high = -1;
    EXPECT_EQ(S_OK, Params()->ParameterRange(0x2000000, &low, &high));
    EXPECT_EQ(std::make_pair(1, 10), std::make_pair(low, high));
}

TEST_F(CamWindowTest, TheDisplayParameterOffersTheDesktopAlone) {
    SmartPtr<IUnknown> name;
    EXPECT_EQ(70, Params()->InquireEx(1, name.Out()));
    EXPECT_EQ(L"Primary", TextOf(name.As<IString>(IID_IString).Get()));

    SmartPtr<IUnknown> first, second;
    ASSERT_EQ(S_OK, Params()->ParameterEnumeration(1, first.Out()));
    ASSERT_EQ(S_OK, Params()->ParameterEnumeration(1, second.Out()));
    // The same list, emptied and filled again on every request.
    EXPECT_EQ(IdentityPointer(first.Get()), IdentityPointer(second.Get()));
    SmartPtr<INamedCollection> choices = first.As<INamedCollection>(IID_INamedCollection);
    ASSERT_TRUE(choices);
    int32_t count = 0;
    choices->get_Count(&count);
    ASSERT_EQ(1, count);
    SmartPtr<IString> choice;
    choices->get_Name(0, choice.Out());
    EXPECT_EQ(L"Desktop", TextOf(choice.Get()));

    // The choice's item is what the parameter takes.
    SmartPtr<IUnknown> item;
    choices->get_Item(0, item.Out());
    ASSERT_EQ(S_OK, Params()->ControlEx(1, item.Get()));
    SmartPtr<IUnknown> chosen;
    Params()->InquireEx(1, chosen.Out());
    EXPECT_EQ(L"Desktop", TextOf(chosen.As<IString>(IID_IString).Get()));

    SmartPtr<IUnknown> none;
    EXPECT_EQ(E_INVALIDARG, Params()->ParameterEnumeration(2, none.Out()));
    EXPECT_EQ(E_INVALIDARG, Params()->ParameterEnumeration(99, none.Out()));
    EXPECT_FALSE(none);
    EXPECT_EQ(E_POINTER, Params()->ParameterEnumeration(1, nullptr));
}

TEST_F(CamWindowTest, PagesNameTheParameterPageForTheWindowsClass) {
    SmartPtr<INamedCollection> pages;
    ASSERT_EQ(S_OK, window.As<IUIPropertyPageSpecify>(IID_IUIPropertyPageSpecify)->GetPages(0, pages.Out(), nullptr));
    int32_t count = 0;
    pages->get_Count(&count);
    ASSERT_EQ(1, count);
    SmartPtr<IString> page;
    SmartPtr<IUnknown> object;
    pages->get_Name(0, page.Out());
    pages->get_Item(0, object.Out());
    EXPECT_EQ(L"UIPropInterrogatePropPage", TextOf(page.Get()));
    EXPECT_EQ(L"LUMCamWindow", TextOf(object.As<IString>(IID_IString).Get()));
    EXPECT_TRUE(CreateByName<IUIPropertyPage>(TextOf(page.Get()).c_str(), IID_IUIPropertyPage));
}

TEST_F(CamWindowTest, SettingsFilesKeepTheParametersButNotTheRectangle) {
    ScratchFolder folder;
    SmartPtr<IFileArchive> archive = window.As<IFileArchive>(IID_IFileArchive);
    for (const char* name : {"window.xml", "window.txt"}) {
        SCOPED_TRACE(name);
        ASSERT_EQ(S_OK, window->Control(10, 77));
        ASSERT_EQ(S_OK, Params()->ControlEx(1, WideString(L"Desktop").Get()));
        ASSERT_EQ(S_OK, window->put_AttachRECT({1, 1, 9, 9}));
        ASSERT_EQ(S_OK, archive->put_Filename(FileNameString(folder.File(name)).Get()));
        ASSERT_EQ(S_OK, archive->Save());
        ASSERT_TRUE(std::filesystem::exists(folder.File(name)));

        window->Control(10, 5);
        Params()->ControlEx(1, WideString(L"Other").Get());
        window->put_AttachRECT({2, 2, 4, 4});
        ASSERT_GE(archive->Load(), 0);
        EXPECT_EQ(77, Value(10));
        SmartPtr<IUnknown> display;
        Params()->InquireEx(1, display.Out());
        EXPECT_EQ(L"Desktop", TextOf(display.As<IString>(IID_IString).Get()));
        EXPECT_EQ(std::vector<int32_t>({Value(2), Value(3), Value(4), Value(5)}),
                  std::vector<int32_t>({2, 2, 4, 4}));
    }
    // A stream without a folder view cannot carry the settings.
    SmartPtr<IDataStream> bytes = CreateByName<IDataStream>(L"DataStream", IID_IDataStream);
    ASSERT_TRUE(bytes);
    SmartPtr<IDataPersist> persist = window.As<IDataPersist>(IID_IDataPersist);
    EXPECT_EQ(E_FAIL, persist->Save(bytes.Get(), 0));
    EXPECT_EQ(E_FAIL, persist->Load(bytes.Get(), 0));
    EXPECT_EQ(E_FAIL, persist->Save(nullptr, 0));
}

}  // namespace
