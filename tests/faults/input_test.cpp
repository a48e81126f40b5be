// Bad and crowded input: objects that are not images handed to every
// component that takes images, and a camera that fires ImageGrabbed from
// several threads at once.
#include <atomic>
#include <numeric>
#include <set>

#include "components/LUMFilePlayerImpl.h"
#include "module/GlobalComponents.h"
#include "tests/camcorder/CamcorderHost.h"
#include "tests/faults/FakeCamera.h"
#include "tests/faults/FaultSupport.h"

namespace {

using faults::FakeCamera;

constexpr int kThreads = 4;
constexpr int kFramesPerThread = 25;
constexpr int kFrames = kThreads * kFramesPerThread;

class InputTest : public CamcorderTest {
protected:
    void TearDown() override {
        for (auto& camcorder : own) {
            camcorder.As<ICamcorderArm>(IID_ICamcorderArm)->Arm(nullptr);
            camcorder->StopLive();
        }
        own.clear();
        CamcorderTest::TearDown();
    }
    /// A camcorder recording into the test folder, with `options`.
    SmartPtr<ILUMCamcorder> Camcorder(FileFormatConstants format, int32_t options) {
        SmartPtr<ILUMCamcorder> camcorder = NewCamcorder(format);
        if (camcorder) camcorder->put_RecordOptions(options);
        own.push_back(camcorder);
        return camcorder;
    }
    /// Waits for the recording to end: the save thread leaves state 0,
    /// writing in the camera's thread leaves state 5.
    bool Ended(ILUMCamcorder* camcorder, int32_t options) {
        return WaitFor([&] {
            CameraStateConstants state = CameraStateConstants(-1);
            camcorder->get_CameraState(&state);
            return state == (options == 0 ? 5 : 0);
        }, 30);
    }
    /// The frame numbers of every recorded BMP file (-1 for a bad one).
    std::vector<int32_t> RecordedFrames() {
        std::vector<int32_t> frames;
        for (const std::string& name : Files())
            if (fs::path(name).extension() == ".bmp") frames.push_back(FrameNumberInFile(folder / name));
        return frames;
    }
    /// A real frame of the synthetic camera.
    SmartPtr<ILUM> Frame(ICamera* camera) {
        SmartPtr<ILUM> image;
        camera->Grab(0, 0, nullptr);
        camera->get_Image(0, image.Out());
        return image;
    }
    /// Runs `grab` on kThreads threads at once, kFramesPerThread times each.
    static void AllAtOnce(const std::function<void()>& grab) {
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&] {
                ++ready;
                while (ready.load() < kThreads) std::this_thread::yield();
                for (int i = 0; i < kFramesPerThread; ++i) grab();
            });
        for (std::thread& thread : threads) thread.join();
    }

    std::vector<SmartPtr<ILUMCamcorder>> own;
};

// ---- Objects that are not images ----------------------------------------

// For every way of writing and every file format: objects without ILUM
// (and a null image) write no file, stop nothing, and the real frames
// among them are recorded as usual.
TEST_F(InputTest, CamcorderRecordsOnlyImages) {
    for (FileFormatConstants format : {FileFormatBMP, FileFormatJPEG, static_cast<FileFormatConstants>(2)}) {
        for (int32_t options : {0, 1, 2}) {
            SCOPED_TRACE("format " + std::to_string(format) + ", options " + std::to_string(options));
            SmartPtr<ICamera> source = NewCamera();
            SmartPtr<FakeCamera> camera = CObject<FakeCamera>::New();
            SmartPtr<PlainObject> foreign = CObject<PlainObject>::New();
            SmartPtr<ILUMCamcorder> camcorder = Camcorder(format, options);
            SmartPtr<ICamcorderArm> arm = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
            ASSERT_EQ(arm->Record(camera->PrimaryUnknown()), S_OK);
            for (int i = 0; i < 3; ++i) {
                camera->Fire(foreign->PrimaryUnknown(), i);
                camera->Fire(nullptr, i);
                camera->Fire(Frame(source.Get()).Get(), i);
            }
            EXPECT_EQ(arm->StopRecording(), S_OK);
            ASSERT_TRUE(Ended(camcorder.Get(), options));
            if (format == FileFormatBMP) {
                EXPECT_EQ(RecordedFrames(), (std::vector<int32_t>{1, 2, 3}));
            } else if (format == FileFormatJPEG || options == 0) {
                // Written in the camera's thread, an AVI recording writes
                // numbered JPEG files instead: only the save thread makes AVIs.
                EXPECT_EQ(Files().size(), 3u);
            } else {
                // The AVI holds the three frames.
                SmartPtr<IFileArchive> reader = CreateByName<IFileArchive>(L"LUMAVI", IID_IFileArchive);
                std::wstring avi = folder.wstring() + L".avi";
                SmartPtr<IString> name = CreateByName<IString>(L"CreatableString", IID_IString);
                name->SetText(static_cast<int32_t>(avi.size()), avi.c_str());
                reader->put_Filename(name.Get());
                EXPECT_EQ(reader->Load(), S_OK);
                int32_t count = 0;
                reader.As<ISimpleCollection>(IID_ISimpleCollection)->get_Count(&count);
                EXPECT_EQ(count, 3);
                fs::remove(avi);
            }
            arm->Record(nullptr);
            for (const std::string& file : Files()) fs::remove(folder / file);
            EXPECT_EQ(PlainObject::live.load(), 1) << "the camcorder kept a foreign object";
        }
    }
}

// Objects without ILUM in the pre-record ring: they are trimmed and
// released like images, and a recording that follows writes the images.
TEST_F(InputTest, CamcorderPreRecordRingTakesForeignObjects) {
    for (int32_t options : {1, 2}) {
        SCOPED_TRACE("options " + std::to_string(options));
        SmartPtr<ICamera> source = NewCamera();
        SmartPtr<FakeCamera> camera = CObject<FakeCamera>::New();
        SmartPtr<PlainObject> foreign = CObject<PlainObject>::New();
        SmartPtr<ILUMCamcorder> camcorder = Camcorder(FileFormatBMP, options);
        SmartPtr<ICamcorderArm> arm = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
        arm->put_NumberImagesPreRecord(4);
        ASSERT_EQ(arm->Arm(camera->PrimaryUnknown()), S_OK);
        for (int i = 0; i < 10; ++i) camera->Fire(foreign->PrimaryUnknown(), i);
        camera->Fire(Frame(source.Get()).Get(), 10);
        camera->Fire(Frame(source.Get()).Get(), 11);
        ASSERT_EQ(arm->Record(camera->PrimaryUnknown()), S_OK);
        EXPECT_EQ(arm->StopRecording(), S_OK);
        ASSERT_TRUE(Ended(camcorder.Get(), options));
        EXPECT_EQ(RecordedFrames(), (std::vector<int32_t>{1, 2}));
        arm->Record(nullptr);
        EXPECT_EQ(PlainObject::live.load(), 1) << "the ring kept a foreign object";
        for (const std::string& file : Files()) fs::remove(folder / file);
    }
}

// The stack camcorder drops what is not an image.
TEST_F(InputTest, StackCamcorderKeepsOnlyImages) {
    SmartPtr<ICamera> source = NewCamera();
    SmartPtr<FakeCamera> camera = CObject<FakeCamera>::New();
    SmartPtr<PlainObject> foreign = CObject<PlainObject>::New();
    SmartPtr<ICamera> stack = CreateFrom<ICamera>(module, L"LUMStackCamcorder", IID_ICamera);
    ASSERT_TRUE(stack);
    SmartPtr<ICamcorder> recorder = stack.As<ICamcorder>(IID_ICamcorder);
    recorder->Record(camera->PrimaryUnknown());
    ASSERT_EQ(recorder->IsRecording(), S_OK);
    camera->Fire(foreign->PrimaryUnknown(), 1);
    camera->Fire(nullptr, 2);
    camera->Fire(Frame(source.Get()).Get(), 3);
    recorder->StopRecording();
    int32_t count = -1;
    stack.As<ISimpleCollection>(IID_ISimpleCollection)->get_Count(&count);
    EXPECT_EQ(count, 1);
    SmartPtr<ILUM> kept;
    ASSERT_EQ(stack->get_Image(0, kept.Out()), S_OK);
    EXPECT_EQ(FrameNumberOf(kept.Get()), 1);
    EXPECT_EQ(PlainObject::live.load(), 1);
}

// ---- The file player as a recorder, built into this test --------------

class PlayerRecorder : public InputTest {
protected:
    void SetUp() override {
        InputTest::SetUp();
        SetGlobalComponents(collection.Get());
        player = CObject<CLUMFilePlayer>::New();
        ASSERT_TRUE(player);
        SmartPtr<IFileArchive> archive = QueryAs<IFileArchive>(player->PrimaryUnknown(), IID_IFileArchive);
        const std::wstring name = (folder / "take.jpg").wstring();
        SmartPtr<IString> text = CreateByName<IString>(L"CreatableString", IID_IString);
        text->SetText(static_cast<int32_t>(name.size()), name.c_str());
        ASSERT_EQ(archive->put_Filename(text.Get()), S_OK);
    }
    void TearDown() override {
        if (player) player->StopRecording();
        player.Reset();
        SetGlobalComponents(nullptr);
        InputTest::TearDown();
    }
    /// Every file decodes; returns how many there are.
    size_t CheckFiles() {
        size_t files = 0;
        SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
        for (const std::string& name : Files()) {
            ++files;
            const std::wstring path = (folder / name).wstring();
            SmartPtr<IString> text = CreateByName<IString>(L"CreatableString", IID_IString);
            text->SetText(static_cast<int32_t>(path.size()), path.c_str());
            SmartPtr<ILUM> image;
            EXPECT_EQ(archive->Read(text.Get(), image.Out()), S_OK) << name;
        }
        return files;
    }

    SmartPtr<CLUMFilePlayer> player;
};

TEST_F(PlayerRecorder, RecordsOnlyImages) {
    SmartPtr<ICamera> source = NewCamera();
    SmartPtr<FakeCamera> camera = CObject<FakeCamera>::New();
    SmartPtr<PlainObject> foreign = CObject<PlainObject>::New();
    player->SetRecordInterval(0.001);
    player->Record(camera->PrimaryUnknown());
    ASSERT_EQ(player->IsRecording(), S_OK);
    for (int i = 0; i < 3; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        camera->Fire(foreign->PrimaryUnknown(), i);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        camera->Fire(nullptr, i);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    camera->Fire(Frame(source.Get()).Get(), 9);
    player->StopRecording();
    EXPECT_EQ(CheckFiles(), 1u);
    EXPECT_EQ(PlainObject::live.load(), 1);
}

// ---- A camera firing from several threads at once ---------------------

// Every frame fired is written once, to a file of its own, whichever way
// the camcorder writes.
TEST_F(InputTest, CamcorderRecordsEveryFrameFiredFromManyThreads) {
    for (int32_t options : {0, 1, 2}) {
        SCOPED_TRACE("options " + std::to_string(options));
        SmartPtr<ICamera> camera = NewCamera(16, 8, 24);
        SmartPtr<ILUMCamcorder> camcorder = Camcorder(FileFormatBMP, options);
        SmartPtr<ICamcorderArm> arm = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
        ASSERT_EQ(arm->Record(camera.Get()), S_OK);
        AllAtOnce([&] { camera->Grab(0, 0, nullptr); });
        EXPECT_EQ(arm->StopRecording(), S_OK);
        ASSERT_TRUE(Ended(camcorder.Get(), options));
        std::vector<int32_t> frames = RecordedFrames();
        std::sort(frames.begin(), frames.end());
        std::vector<int32_t> all(kFrames);
        std::iota(all.begin(), all.end(), 1);
        EXPECT_EQ(frames, all);
        arm->Record(nullptr);
        for (const std::string& file : Files()) fs::remove(folder / file);
    }
}

// Armed with a pre-record ring of 10 while frames come from many threads:
// the ring keeps exactly 10 distinct frames, which the recording writes.
TEST_F(InputTest, PreRecordRingFilledFromManyThreads) {
    for (int32_t options : {1, 2}) {
        SCOPED_TRACE("options " + std::to_string(options));
        SmartPtr<ICamera> camera = NewCamera(16, 8, 24);
        SmartPtr<ILUMCamcorder> camcorder = Camcorder(FileFormatBMP, options);
        SmartPtr<ICamcorderArm> arm = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
        arm->put_NumberImagesPreRecord(10);
        ASSERT_EQ(arm->Arm(camera.Get()), S_OK);
        AllAtOnce([&] { camera->Grab(0, 0, nullptr); });
        ASSERT_EQ(arm->Record(camera.Get()), S_OK);
        EXPECT_EQ(arm->StopRecording(), S_OK);
        ASSERT_TRUE(Ended(camcorder.Get(), options));
        const std::vector<int32_t> frames = RecordedFrames();
        EXPECT_EQ(frames.size(), 10u);
        EXPECT_EQ(std::set<int32_t>(frames.begin(), frames.end()).size(), frames.size());
        for (int32_t frame : frames) {
            EXPECT_GE(frame, 1);
            EXPECT_LE(frame, kFrames);
        }
        arm->Record(nullptr);
        for (const std::string& file : Files()) fs::remove(folder / file);
    }
}

// The stack camcorder takes every frame fired at it, each once.
TEST_F(InputTest, StackCamcorderTakesEveryFrameFromManyThreads) {
    SmartPtr<ICamera> camera = NewCamera(16, 8, 24);
    SmartPtr<ICamera> stack = CreateFrom<ICamera>(module, L"LUMStackCamcorder", IID_ICamera);
    ASSERT_TRUE(stack);
    SmartPtr<ICamcorder> recorder = stack.As<ICamcorder>(IID_ICamcorder);
    recorder->Record(camera.Get());
    AllAtOnce([&] { camera->Grab(0, 0, nullptr); });
    recorder->StopRecording();
    int32_t count = -1;
    stack.As<ISimpleCollection>(IID_ISimpleCollection)->get_Count(&count);
    ASSERT_EQ(count, kFrames);
    std::set<int32_t> frames;
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<ILUM> image;
        ASSERT_EQ(stack->get_Image(i, image.Out()), S_OK);
        frames.insert(FrameNumberOf(image.Get()));
    }
    EXPECT_EQ(frames.size(), static_cast<size_t>(kFrames));
    EXPECT_EQ(*frames.begin(), 1);
    EXPECT_EQ(*frames.rbegin(), kFrames);
}

// The file player drops frames that come sooner than its record interval
// after the last one it kept; what it keeps goes to distinct files that
// all decode, and no name is used twice.
TEST_F(PlayerRecorder, RecordsFromManyThreads) {
    SmartPtr<ICamera> camera = NewCamera(16, 8, 8);
    player->SetRecordInterval(0.001);
    player->Record(camera.Get());
    std::atomic<int> fired{0};
    AllAtOnce([&] {
        camera->Grab(0, 0, nullptr);
        ++fired;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    });
    player->StopRecording();
    const size_t files = CheckFiles();
    EXPECT_GT(files, 0u);
    EXPECT_LE(files, static_cast<size_t>(fired.load()));
}

}  // namespace
