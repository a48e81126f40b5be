// "LUMAravisCamera" with Aravis's in-process fake device: opening by id,
// parameters and their ranges, Grab, and the event source. Every image is
// compared with the frame that Aravis itself delivers from a freshly opened
// device with the same settings.
#include <algorithm>
#include <atomic>
#include <cmath>

#include "tests/aravis/AravisTestSupport.h"

namespace {

class AravisCameraTest : public ::testing::Test {
protected:
    void SetUp() override {
        id = FakeDeviceId();
        ASSERT_FALSE(id.empty()) << "Aravis lists no fake device";
    }

    /// Advises a new sink on `camera`.
    static SmartPtr<KeepingSink> Advised(ICamera* camera) {
        SmartPtr<KeepingSink> sink = NewSink();
        EXPECT_EQ(QueryAs<IEventSource>(camera, IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1), S_OK);
        return sink;
    }

    /// The reference frame with frame id `number` among the first `count`
    /// frames of a fresh device with `settings`.
    RawFrame ReferenceWithId(const FakeSettings& settings, int32_t number, int count = 6) {
        for (RawFrame& frame : ReferenceFrames(id, settings, count))
            if (frame.id == static_cast<uint32_t>(number)) return frame;
        ADD_FAILURE() << "no reference frame has the id " << number;
        return RawFrame{};
    }

    std::string id;
};

// ---- opening -----------------------------------------------------------

using Opening = AravisCameraTest;

TEST_F(Opening, TheFakeDeviceIsListedUnderTheIdTheHostDocuments) {
    EXPECT_EQ(id, "Fake_1");
}

TEST_F(Opening, AnswersCameraAndEventSourceAndNamesItself) {
    SmartPtr<ICamera> camera = NewAravisCamera();
    ASSERT_TRUE(camera);
    EXPECT_TRUE(camera.As<IEventSource>(IID_IEventSource));
    SmartPtr<IObjectInfo> info = camera.As<IObjectInfo>(IID_IObjectInfo);
    ASSERT_TRUE(info);
    tagREFString name{};
    ASSERT_EQ(info->GetName(0, &name), S_OK);
    EXPECT_EQ(std::wstring(name.text, static_cast<size_t>(name.length)), L"LUMAravisCamera");
    void* image = reinterpret_cast<void*>(1);
    EXPECT_EQ(camera->QueryInterface(IID_ILUM, &image), E_NOINTERFACE);
    EXPECT_EQ(image, nullptr);
    EXPECT_EQ(IdentityPointer(camera.Get()), IdentityPointer(camera.As<IEventSource>(IID_IEventSource).Get()));
}

TEST_F(Opening, TheDevicesOwnSettingsAreReported) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    // What Aravis reports for a device opened on its own.
    ArvCamera* reference = arv_camera_new(id.c_str(), nullptr);
    ASSERT_TRUE(reference);
    const int32_t format = static_cast<int32_t>(arv_camera_get_pixel_format(reference, nullptr));
    EXPECT_EQ(ParameterOf(camera.Get(), kWidth), arv_camera_get_integer(reference, "Width", nullptr));
    EXPECT_EQ(ParameterOf(camera.Get(), kHeight), arv_camera_get_integer(reference, "Height", nullptr));
    EXPECT_EQ(ParameterOf(camera.Get(), kPixelFormat), format);
    EXPECT_EQ(ParameterOf(camera.Get(), kBits), format == static_cast<int32_t>(ARV_PIXEL_FORMAT_MONO_8) ? 8 : 24);
    EXPECT_EQ(ParameterOf(camera.Get(), kFrameRate), std::lround(arv_camera_get_frame_rate(reference, nullptr)));
    EXPECT_EQ(ParameterOf(camera.Get(), kExposure), std::lround(arv_camera_get_exposure_time(reference, nullptr)));
    EXPECT_EQ(ParameterOf(camera.Get(), kGain), std::lround(100 * arv_camera_get_gain(reference, nullptr)));
    g_object_unref(reference);
    EXPECT_EQ(ParameterOf(camera.Get(), kState), CameraStateIdle);
    EXPECT_EQ(ParameterOf(camera.Get(), kBuffers), 16);
    for (int32_t code : {kDelivered, kIncomplete, kDropped}) EXPECT_EQ(ParameterOf(camera.Get(), code), 0) << code;
    int32_t frames = -1;
    EXPECT_EQ(camera->get_NumberOfFrames(&frames), S_OK);
    EXPECT_EQ(frames, 0);
    SmartPtr<ILUM> image;
    EXPECT_EQ(camera->get_Image(0, image.Out()), E_FAIL) << "no frame yet";
}

TEST_F(Opening, EmptyTextOpensTheFirstDeviceAndBlanksAroundAnIdAreIgnored) {
    for (const std::wstring& text : {std::wstring(), L"  " + Wide(id) + L"\t"}) {
        SmartPtr<ICamera> camera = NewAravisCamera();
        ASSERT_TRUE(camera);
        ASSERT_EQ(camera->LoadParameters(ViewOf(text)), S_OK) << "'" << std::string(text.begin(), text.end()) << "'";
        SmartPtr<KeepingSink> sink = Advised(camera.Get());
        EXPECT_EQ(camera->Grab(0, 0, nullptr), S_OK);
        EXPECT_EQ(sink->Size(), 1u);
        QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(nullptr, 0);
    }
}

TEST_F(Opening, AnUnknownIdFailsAndOpensNothing) {
    SmartPtr<ICamera> camera = NewAravisCamera();
    ASSERT_TRUE(camera);
    EXPECT_EQ(camera->LoadParameters(REFStr(L"NoSuchCamera_7")), E_FAIL);
    SmartPtr<KeepingSink> sink = Advised(camera.Get());
    int32_t value = -1;
    EXPECT_EQ(camera->Inquire(kWidth, &value), E_FAIL) << "no device is open";
    EXPECT_EQ(camera->Control(kWidth, 64), E_FAIL);
    EXPECT_EQ(camera->Live(), E_FAIL);
    EXPECT_EQ(camera->Grab(0, 0, nullptr), E_FAIL);
    EXPECT_EQ(ParameterOf(camera.Get(), kState), CameraStateIdle);
    EXPECT_EQ(sink->Size(), 0u);
    EXPECT_EQ(camera->StopLive(), S_FALSE);
    EXPECT_EQ(camera->LoadParameters(tagREFString{3, nullptr}), E_POINTER);
    QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(nullptr, 0);
}

TEST_F(Opening, AFailedOpenKeepsTheDeviceOpenedBefore) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    ASSERT_EQ(camera->Control(kWidth, 200), S_OK);
    EXPECT_EQ(camera->LoadParameters(REFStr(L"NoSuchCamera_7")), E_FAIL);
    EXPECT_EQ(ParameterOf(camera.Get(), kWidth), 200);
    SmartPtr<KeepingSink> sink = Advised(camera.Get());
    ASSERT_EQ(camera->Grab(0, 0, nullptr), S_OK);
    EXPECT_EQ(BytesOf(sink->Images().at(0).Get()).width, 200);
    QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(nullptr, 0);
}

TEST_F(Opening, ReopeningIsRefusedWhileLive) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    ASSERT_EQ(camera->Live(), S_OK);
    const std::wstring wide = Wide(id);
    EXPECT_EQ(camera->LoadParameters(ViewOf(wide)), E_FAIL);
    EXPECT_EQ(camera->StopLive(), S_OK);
    EXPECT_EQ(camera->LoadParameters(ViewOf(wide)), S_OK);
}

// ---- parameters --------------------------------------------------------

using Parameters = AravisCameraTest;

TEST_F(Parameters, ValuesOutsideTheDevicesRangeAndUnknownCodesAreRefused) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    ArvCamera* reference = arv_camera_new(id.c_str(), nullptr);
    ASSERT_TRUE(reference);
    gint minWidth = 0, maxWidth = 0, minHeight = 0, maxHeight = 0;
    double minRate = 0, maxRate = 0, minExposure = 0, maxExposure = 0, minGain = 0, maxGain = 0;
    arv_camera_get_width_bounds(reference, &minWidth, &maxWidth, nullptr);
    arv_camera_get_height_bounds(reference, &minHeight, &maxHeight, nullptr);
    arv_camera_get_frame_rate_bounds(reference, &minRate, &maxRate, nullptr);
    arv_camera_get_exposure_time_bounds(reference, &minExposure, &maxExposure, nullptr);
    arv_camera_get_gain_bounds(reference, &minGain, &maxGain, nullptr);
    g_object_unref(reference);
    const std::vector<std::pair<int32_t, int32_t>> refused = {
        {kWidth, minWidth - 1},
        {kWidth, maxWidth + 1},
        {kHeight, minHeight - 1},
        {kHeight, maxHeight + 1},
        {kBits, 16},
        {kBits, 32},
        {kBits, 0},
        {kFrameRate, static_cast<int32_t>(std::ceil(minRate)) - 1},
        {kFrameRate, static_cast<int32_t>(std::floor(maxRate)) + 1},
        {kExposure, static_cast<int32_t>(std::ceil(minExposure)) - 1},
        {kExposure, static_cast<int32_t>(std::floor(maxExposure)) + 1},
        {kGain, static_cast<int32_t>(std::ceil(minGain * 100)) - 1},
        {kGain, static_cast<int32_t>(std::floor(maxGain * 100)) + 1},
        {kBuffers, 1},
        {kBuffers, 257},
        {kState, 0},
        {kDelivered, 0},
        {kDropped, 0},
        {99, 0},
    };
    for (auto [code, value] : refused) EXPECT_EQ(camera->Control(code, value), E_INVALIDARG) << code << " = " << value;
    int32_t value = 0;
    EXPECT_EQ(camera->Inquire(99, &value), E_INVALIDARG);
    EXPECT_EQ(camera->Inquire(kWidth, nullptr), E_POINTER);
    EXPECT_EQ(camera->put_NumberOfFrames(10), E_NOTIMPL);
    // Nothing refused changed anything.
    EXPECT_EQ(ParameterOf(camera.Get(), kBuffers), 16);
    EXPECT_EQ(ParameterOf(camera.Get(), kBits), 8);
}

TEST_F(Parameters, AcceptedValuesAreReadBack) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    const std::vector<std::pair<int32_t, int32_t>> values = {
        {kWidth, 320}, {kHeight, 200}, {kFrameRate, 50}, {kExposure, 2000}, {kGain, 300}, {kBuffers, 3}};
    for (auto [code, value] : values) {
        EXPECT_EQ(camera->Control(code, value), S_OK) << code;
        EXPECT_EQ(ParameterOf(camera.Get(), code), value) << code;
    }
    // A gain between the device's steps reads back as the device keeps it.
    ArvCamera* reference = arv_camera_new(id.c_str(), nullptr);
    ASSERT_TRUE(reference);
    arv_camera_set_gain(reference, 2.5, nullptr);
    const long kept = std::lround(100 * arv_camera_get_gain(reference, nullptr));
    g_object_unref(reference);
    EXPECT_EQ(camera->Control(kGain, 250), S_OK);
    EXPECT_EQ(ParameterOf(camera.Get(), kGain), kept);
    // 24 bits selects BGR8 where the device offers it, else RGB8.
    ASSERT_EQ(camera->Control(kBits, 24), S_OK);
    EXPECT_EQ(ParameterOf(camera.Get(), kBits), 24);
    const int32_t format = ParameterOf(camera.Get(), kPixelFormat);
    EXPECT_TRUE(format == static_cast<int32_t>(ARV_PIXEL_FORMAT_BGR_8_PACKED) ||
                format == static_cast<int32_t>(ARV_PIXEL_FORMAT_RGB_8_PACKED))
        << std::hex << format;
    ASSERT_EQ(camera->Control(kPixelFormat, static_cast<int32_t>(ARV_PIXEL_FORMAT_MONO_8)), S_OK);
    EXPECT_EQ(ParameterOf(camera.Get(), kBits), 8);
}

TEST_F(Parameters, OnlyMono8Bgr8AndRgb8AreAcceptedAmongTheDevicesFormats) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    ArvCamera* reference = arv_camera_new(id.c_str(), nullptr);
    ASSERT_TRUE(reference);
    guint count = 0;
    gint64* offered = arv_camera_dup_available_pixel_formats(reference, &count, nullptr);
    g_object_unref(reference);
    ASSERT_GT(count, 1u);
    std::vector<int32_t> formats(offered, offered + count);
    g_free(offered);
    int accepted = 0;
    for (int32_t format : formats) {
        const bool usable = format == static_cast<int32_t>(ARV_PIXEL_FORMAT_MONO_8) ||
                            format == static_cast<int32_t>(ARV_PIXEL_FORMAT_BGR_8_PACKED) ||
                            format == static_cast<int32_t>(ARV_PIXEL_FORMAT_RGB_8_PACKED);
        EXPECT_EQ(camera->Control(kPixelFormat, format), usable ? S_OK : E_INVALIDARG) << std::hex << format;
        if (usable) {
            ++accepted;
            EXPECT_EQ(ParameterOf(camera.Get(), kPixelFormat), format);
        }
    }
    EXPECT_GE(accepted, 1);
    EXPECT_GT(formats.size(), static_cast<size_t>(accepted)) << "the fake offers formats that are refused";
    // A usable format the device does not offer is refused as well.
    for (ArvPixelFormat format : {ARV_PIXEL_FORMAT_BGR_8_PACKED, ARV_PIXEL_FORMAT_RGB_8_PACKED}) {
        if (std::find(formats.begin(), formats.end(), static_cast<int32_t>(format)) == formats.end()) {
            EXPECT_EQ(camera->Control(kPixelFormat, static_cast<int32_t>(format)), E_INVALIDARG);
        }
    }
    EXPECT_EQ(camera->Control(kPixelFormat, 0x01100007 /* Mono16 */), E_INVALIDARG);
    EXPECT_EQ(camera->Control(kPixelFormat, -1), E_INVALIDARG);
}

TEST_F(Parameters, DeviceCodesNeedAnOpenDeviceAndThePoolDoesNot) {
    SmartPtr<ICamera> camera = NewAravisCamera();
    ASSERT_TRUE(camera);
    int32_t value = 0;
    for (int32_t code : {kWidth, kHeight, kBits, kFrameRate, kPixelFormat, kExposure, kGain}) {
        EXPECT_EQ(camera->Inquire(code, &value), E_FAIL) << code;
        EXPECT_EQ(camera->Control(code, 8), E_FAIL) << code;
    }
    EXPECT_EQ(camera->Control(kBuffers, 4), S_OK);
    EXPECT_EQ(ParameterOf(camera.Get(), kBuffers), 4);
    EXPECT_EQ(ParameterOf(camera.Get(), kState), CameraStateIdle);
}

TEST_F(Parameters, SizeAndFormatAreFixedWhileLiveExposureIsNot) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    ASSERT_EQ(camera->Live(), S_OK);
    EXPECT_EQ(camera->Control(kWidth, 256), E_FAIL);
    EXPECT_EQ(camera->Control(kHeight, 256), E_FAIL);
    EXPECT_EQ(camera->Control(kBits, 24), E_FAIL);
    EXPECT_EQ(camera->Control(kPixelFormat, static_cast<int32_t>(ARV_PIXEL_FORMAT_MONO_8)), E_FAIL);
    EXPECT_EQ(camera->Control(kExposure, 5000), S_OK);
    EXPECT_EQ(camera->Control(kGain, 100), S_OK);
    EXPECT_EQ(camera->Control(kFrameRate, 30), S_OK);
    EXPECT_EQ(ParameterOf(camera.Get(), kExposure), 5000);
    EXPECT_EQ(camera->StopLive(), S_OK);
    EXPECT_EQ(camera->Control(kWidth, 256), S_OK);
    EXPECT_EQ(ParameterOf(camera.Get(), kWidth), 256);
}

// ---- Grab --------------------------------------------------------------

using Grabbing = AravisCameraTest;

TEST_F(Grabbing, GrabFiresTheFrameAravisDeliversOnTheCallersThread) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    SmartPtr<KeepingSink> sink = Advised(camera.Get());
    ASSERT_EQ(camera->Grab(0, 0, nullptr), S_OK);
    ASSERT_EQ(sink->Size(), 1u);
    EXPECT_EQ(sink->Threads()[0], std::this_thread::get_id());
    EXPECT_EQ(sink->LastCamera(), IdentityPointer(camera.Get()));
    SmartPtr<ILUM> image = sink->Images()[0];
    EXPECT_TRUE(SameAsFrame(image.Get(), ReferenceWithId(FakeSettings{}, sink->Numbers()[0])));
    SmartPtr<ILUM> last;
    ASSERT_EQ(camera->get_Image(0, last.Out()), S_OK);
    EXPECT_EQ(IdentityPointer(last.Get()), IdentityPointer(image.Get()));
    EXPECT_EQ(ParameterOf(camera.Get(), kDelivered), 1);
    EXPECT_EQ(ParameterOf(camera.Get(), kState), CameraStateIdle);
    // The next Grab is the device's next frame, in a new image.
    ASSERT_EQ(camera->Grab(0, 0, nullptr), S_OK);
    ASSERT_EQ(sink->Size(), 2u);
    EXPECT_NE(IdentityPointer(sink->Images()[1].Get()), IdentityPointer(image.Get()));
    EXPECT_GT(static_cast<uint32_t>(sink->Numbers()[1]), static_cast<uint32_t>(sink->Numbers()[0]));
    EXPECT_TRUE(SameAsFrame(sink->Images()[1].Get(), ReferenceWithId(FakeSettings{}, sink->Numbers()[1])));
    QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(nullptr, 0);
}

TEST_F(Grabbing, WidthHeightAndPixelFormatShowInTheImages) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    SmartPtr<KeepingSink> sink = Advised(camera.Get());

    ASSERT_EQ(camera->Control(kWidth, 200), S_OK);
    ASSERT_EQ(camera->Control(kPixelFormat, static_cast<int32_t>(ARV_PIXEL_FORMAT_RGB_8_PACKED)), S_OK);
    ASSERT_EQ(camera->Grab(0, 0, nullptr), S_OK);
    ImageBytes color = BytesOf(sink->Images().back().Get());
    EXPECT_EQ(color.width, 200);
    EXPECT_EQ(color.bits, 24);
    FakeSettings rgb;
    rgb.width = 200;
    rgb.format = ARV_PIXEL_FORMAT_RGB_8_PACKED;
    EXPECT_TRUE(SameAsFrame(sink->Images().back().Get(), ReferenceWithId(rgb, sink->Numbers().back())))
        << "red and blue swapped into blue, green, red";

    ASSERT_EQ(camera->Control(kBits, 8), S_OK);
    ASSERT_EQ(camera->Control(kWidth, 61), S_OK);  // rows of 61 bytes: the image pads them to 64
    ASSERT_EQ(camera->Control(kHeight, 47), S_OK);
    ASSERT_EQ(camera->Grab(0, 0, nullptr), S_OK);
    ImageBytes gray = BytesOf(sink->Images().back().Get());
    EXPECT_EQ(gray.width, 61);
    EXPECT_EQ(gray.height, 47);
    EXPECT_EQ(gray.bits, 8);
    int32_t stride = 0;
    sink->Images().back()->get_Stride(&stride);
    EXPECT_EQ(stride, 64);
    FakeSettings mono;
    mono.width = 61;
    mono.height = 47;
    mono.format = ARV_PIXEL_FORMAT_MONO_8;
    EXPECT_TRUE(SameAsFrame(sink->Images().back().Get(), ReferenceWithId(mono, sink->Numbers().back())));
    QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(nullptr, 0);
}

TEST_F(Grabbing, GainAndExposureShowInTheImages) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    SmartPtr<KeepingSink> sink = Advised(camera.Get());
    ASSERT_EQ(camera->Control(kGain, 500), S_OK);
    ASSERT_EQ(camera->Control(kExposure, 4000), S_OK);
    ASSERT_EQ(camera->Grab(0, 0, nullptr), S_OK);
    const int32_t number = sink->Numbers().back();
    FakeSettings changed;
    changed.gainPercent = 500;
    changed.exposure = 4000;
    const RawFrame expected = ReferenceWithId(changed, number);
    EXPECT_TRUE(SameAsFrame(sink->Images().back().Get(), expected));
    const RawFrame plain = ReferenceWithId(FakeSettings{}, number);
    EXPECT_NE(plain.bytes, expected.bytes) << "the fake's pattern does not depend on gain and exposure";
    QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(nullptr, 0);
}

TEST_F(Grabbing, GrabWhileLiveWaitsForTheNextLiveFrameAndFiresNothingMore) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    SmartPtr<KeepingSink> sink = Advised(camera.Get());
    ASSERT_EQ(camera->Control(kFrameRate, 100), S_OK);
    ASSERT_EQ(camera->Live(), S_OK);
    ASSERT_TRUE(WaitUntil([&] { return sink->Size() >= 2; }));
    const size_t before = sink->Size();
    EXPECT_EQ(camera->Grab(0, 0, nullptr), S_OK);
    EXPECT_GT(sink->Size(), before);
    EXPECT_EQ(camera->StopLive(), S_OK);
    const std::vector<int32_t> numbers = sink->Numbers();
    EXPECT_EQ(static_cast<int32_t>(numbers.size()), ParameterOf(camera.Get(), kDelivered));
    for (size_t i = 1; i < numbers.size(); ++i)
        EXPECT_TRUE(FollowsFrame(numbers[i - 1], numbers[i])) << numbers[i - 1] << " then " << numbers[i];
    QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(nullptr, 0);
}

TEST_F(Grabbing, GrabFromASinkOnTheLiveThreadFails) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    SmartPtr<KeepingSink> sink = Advised(camera.Get());
    std::atomic<HRESULT> result{S_OK};
    std::atomic<bool> tried{false};
    ICamera* raw = camera.Get();
    sink->onEvent = [&](KeepingSink&, int32_t) {
        if (!tried.exchange(true)) result = raw->Grab(0, 0, nullptr);
    };
    ASSERT_EQ(camera->Live(), S_OK);
    ASSERT_TRUE(WaitUntil([&] { return sink->Size() >= 2; }));
    EXPECT_EQ(camera->StopLive(), S_OK);
    EXPECT_TRUE(tried);
    EXPECT_EQ(result.load(), E_FAIL);
    sink->onEvent = nullptr;
    QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(nullptr, 0);
}

// ---- event source ------------------------------------------------------

using Events = AravisCameraTest;

TEST_F(Events, AdviseFollowsTheEventSourceRules) {
    SmartPtr<ICamera> camera = OpenAravisCamera(id);
    ASSERT_TRUE(camera);
    SmartPtr<IEventSource> events = camera.As<IEventSource>(IID_IEventSource);
    SmartPtr<KeepingSink> first = NewSink(), second = NewSink(), third = NewSink();
    EXPECT_EQ(events->Advise(nullptr, 1), E_POINTER);
    SmartPtr<IString> notASink = CreateByName<IString>(L"CreatableString", IID_IString);
    ASSERT_TRUE(notASink);
    EXPECT_EQ(events->Advise(notASink.Get(), 1), E_NOINTERFACE);
    EXPECT_EQ(events->Advise(first->PrimaryUnknown(), 1), S_OK);
    EXPECT_EQ(RefCountOf(first->PrimaryUnknown()), 2u) << "a sink is kept with a reference";
    EXPECT_EQ(events->Advise(first->PrimaryUnknown(), 1), S_FALSE);
    EXPECT_EQ(events->Advise(second->PrimaryUnknown(), 2), S_OK);
    EXPECT_EQ(events->Advise(third->PrimaryUnknown(), 2), S_OK) << "replaces the flags-2 sink";
    EXPECT_EQ(events->GetAdviseCount(), 2);
    EXPECT_EQ(RefCountOf(second->PrimaryUnknown()), 1u);
    ASSERT_EQ(camera->Grab(0, 0, nullptr), S_OK);
    EXPECT_EQ(first->Size(), 1u);
    EXPECT_EQ(second->Size(), 0u);
    EXPECT_EQ(third->Size(), 1u);
    EXPECT_EQ(first->Numbers(), third->Numbers());
    EXPECT_EQ(events->Advise(second->PrimaryUnknown(), 0), E_FAIL);
    EXPECT_EQ(events->Advise(first->PrimaryUnknown(), 0), S_OK);
    EXPECT_EQ(events->GetAdviseCount(), 1);
    EXPECT_EQ(events->Advise(nullptr, 0), S_OK);
    EXPECT_EQ(events->GetAdviseCount(), 0);
    EXPECT_EQ(RefCountOf(third->PrimaryUnknown()), 1u);
}

}  // namespace
