// Recording over the GigE Vision protocol: Aravis's GigE Vision fake camera
// serves on the loopback interface (127.0.0.1 only) in this process, and
// "LUMAravisCamera" opens it by its address, so no discovery goes out on any
// other network interface. The control channel and the stream are real UDP
// traffic through the kernel.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

#include "tests/aravis/AravisTestSupport.h"
#include "tests/camcorder/CamcorderHost.h"

namespace {

/// GigE Vision's control port, where the fake camera listens.
constexpr uint16_t kControlPort = 3956;

/// One GigE Vision fake camera at a time on this machine: test runs of other
/// build folders wait here instead of answering each other's packets.
class MachineWideTurn {
public:
    explicit MachineWideTurn(double seconds) {
        const std::string path = (fs::temp_directory_path() / "lum-gige-vision-fake.lock").string();
        m_File = ::open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0666);
        if (m_File < 0) return;
        m_Held = WaitUntil([&] { return ::flock(m_File, LOCK_EX | LOCK_NB) == 0; }, seconds);
    }
    ~MachineWideTurn() {
        if (m_File >= 0) ::close(m_File);  // also lets go of the lock
    }
    MachineWideTurn(const MachineWideTurn&) = delete;
    MachineWideTurn& operator=(const MachineWideTurn&) = delete;
    bool Held() const { return m_Held; }

private:
    int m_File = -1;
    bool m_Held = false;
};

/// True when nothing else on this machine listens on 127.0.0.1 at the
/// control port (a bind without address reuse succeeds).
bool ControlPortFree() {
    const int s = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (s < 0) return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kControlPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool free = ::bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(s);
    return free;
}

/// The GigE Vision interface of Aravis, enabled for one test only.
class GigEVisionInterface {
public:
    GigEVisionInterface() { arv_enable_interface("GigEVision"); }
    ~GigEVisionInterface() { arv_disable_interface("GigEVision"); }
    GigEVisionInterface(const GigEVisionInterface&) = delete;
    GigEVisionInterface& operator=(const GigEVisionInterface&) = delete;
};

class GigEVisionLoopback : public CamcorderTest {
protected:
    void TearDown() override {
        if (camera) {
            camera->StopLive();
            QueryAs<IEventSource>(camera.Get(), IID_IEventSource)->Advise(nullptr, 0);
        }
        camera.Reset();
        if (fake) g_object_unref(fake);
        turn.reset();  // after the fake camera stopped serving
        CamcorderTest::TearDown();
    }

    std::unique_ptr<MachineWideTurn> turn;
    SmartPtr<ICamera> camera;
    ArvGvFakeCamera* fake = nullptr;
};

TEST_F(GigEVisionLoopback, RecordsTheFramesThatCameOverTheProtocol) {
    constexpr int kFrames = 50;
    turn = std::make_unique<MachineWideTurn>(120);
    if (!turn->Held()) GTEST_SKIP() << "another test run kept the GigE Vision fake camera for 120 s";
    if (!ControlPortFree())
        GTEST_SKIP() << "another program listens on 127.0.0.1, UDP port " << kControlPort
                     << " (GigE Vision control): the fake camera cannot serve there";
    fake = arv_gv_fake_camera_new("lo", "LUMGV1");
    if (!fake || !arv_gv_fake_camera_is_running(fake))
        GTEST_SKIP() << "Aravis's GigE Vision fake camera does not start on the loopback interface \"lo\"";
    GigEVisionInterface gigE;
    camera = OpenAravisCamera("127.0.0.1");
    ASSERT_TRUE(camera);
    ASSERT_EQ(camera->Control(kWidth, 256), S_OK) << "written over the control channel";
    ASSERT_EQ(camera->Control(kHeight, 192), S_OK);
    ASSERT_EQ(camera->Control(kFrameRate, 50), S_OK);
    EXPECT_EQ(ParameterOf(camera.Get(), kWidth), 256);

    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder(FileFormatBMP);
    ASSERT_TRUE(camcorder);
    SmartPtr<KeepingSink> sink = NewSink();
    SmartPtr<IEventSource> events = camera.As<IEventSource>(IID_IEventSource);
    ASSERT_EQ(events->Advise(sink->PrimaryUnknown(), 1), S_OK);
    camcorder->put_RecordOptions(1);
    ASSERT_EQ(camcorder->Control(73, kFrames), S_OK);
    ASSERT_EQ(camcorder.As<ICamcorder>(IID_ICamcorder)->Record(camera.Get()), S_OK);
    ASSERT_EQ(camera->Live(), S_OK);
    const bool done = WaitFor(
        [&] {
            int32_t state = -1;
            camcorder->Inquire(10, &state);
            return state == CameraStateIdle && Files().size() == static_cast<size_t>(kFrames);
        },
        60);
    ASSERT_EQ(camera->StopLive(), S_OK);
    ASSERT_TRUE(done) << Files().size() << " files; delivered " << ParameterOf(camera.Get(), kDelivered)
                      << ", incomplete " << ParameterOf(camera.Get(), kIncomplete) << ", dropped "
                      << ParameterOf(camera.Get(), kDropped);

    const std::vector<std::string> files = Files();
    const std::vector<SmartPtr<ILUM>> frames = sink->Images();
    const std::vector<int32_t> numbers = sink->Numbers();
    ASSERT_GE(frames.size(), static_cast<size_t>(kFrames));
    SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    for (int i = 0; i < kFrames; ++i) {
        SmartPtr<IString> name = CreateByName<IString>(L"CreatableString", IID_IString);
        const std::wstring path = (folder / files[i]).wstring();
        name->SetText(static_cast<int32_t>(path.size()), path.c_str());
        SmartPtr<ILUM> image;
        ASSERT_EQ(archive->Read(name.Get(), image.Out()), S_OK) << files[i];
        const ImageBytes file = BytesOf(image.Get());
        EXPECT_EQ(file.width, 256);
        EXPECT_EQ(file.height, 192);
        EXPECT_TRUE(file.bytes == BytesOf(frames[i].Get()).bytes) << files[i];
        if (i > 0) {
            EXPECT_TRUE(FollowsFrame(numbers[i - 1], numbers[i])) << numbers[i - 1] << " then " << numbers[i];
        }
    }
    EXPECT_EQ(ParameterOf(camera.Get(), kIncomplete), 0);
    EXPECT_EQ(ParameterOf(camera.Get(), kDropped), 0);
    events->Advise(nullptr, 0);
}

}  // namespace
