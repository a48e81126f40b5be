#include "tests/player/PlayerHost.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>

const InterfaceEntry<ReplaySink> ReplaySink::kInterfaces[] = {
    InterfaceEntry<ReplaySink>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<ReplaySink>::End(),
};

HRESULT ReplaySink::ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) {
    Delivery delivery;
    delivery.index = PlayerTest::IndexOfImage(image);
    delivery.gray = PlayerTest::MiddleGray(image);
    delivery.count = count;
    delivery.camera = IdentityPointer(camera);
    delivery.image = IdentityPointer(image);
    delivery.thread = std::this_thread::get_id();
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Deliveries.push_back(delivery);
    }
    if (m_OnEvent) m_OnEvent(camera, image);
    ++m_Size;
    return S_OK;
}

std::vector<Delivery> ReplaySink::Deliveries() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Deliveries;
}

std::vector<int32_t> ReplaySink::Indexes() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    std::vector<int32_t> indexes;
    for (const Delivery& d : m_Deliveries) indexes.push_back(d.index);
    return indexes;
}

int32_t PlayerTest::IndexOfImage(IUnknown* image) {
    SmartPtr<ILUM> lum = QueryAs<ILUM>(image, IID_ILUM);
    int32_t width = -1;
    if (!lum || lum->get_Width(&width) < 0) return -1;
    return width - kBaseWidth;
}

int32_t PlayerTest::MiddleGray(IUnknown* image) {
    SmartPtr<ILUM> lum = QueryAs<ILUM>(image, IID_ILUM);
    if (!lum) return -1;
    int32_t width = 0, height = 0, bits = 0, stride = 0;
    uint8_t* pixels = nullptr;
    lum->get_Width(&width);
    lum->get_Height(&height);
    lum->get_BitsPerPixel(&bits);
    lum->get_Stride(&stride);
    lum->get_Bits(&pixels);
    if (!pixels || width <= 0 || height <= 0 || bits < 8) return -1;
    return pixels[(height / 2) * stride + (width / 2) * (bits / 8)];
}

int32_t PlayerTest::FloatBits(float value) {
    int32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

bool PlayerTest::WaitFor(const std::function<bool()>& done, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

bool PlayerTest::FinishesWithin(double seconds, std::function<void()> work) {
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::thread worker([done, work = std::move(work)] {
        work();
        done->store(true);
    });
    if (WaitFor([&] { return done->load(); }, seconds)) {
        worker.join();
        return true;
    }
    worker.detach();
    return false;
}

void PlayerTest::SetUp() {
    module = LoadModule("LUMCamcorder");
    ASSERT_NE(module.initialize, nullptr);
    collection = GlobalCollection();
    ASSERT_TRUE(collection);
    module.initialize(nullptr, collection.Get());
    std::string pattern = (fs::temp_directory_path() / "lum-player-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder = pattern;
}

void PlayerTest::TearDown() {
    for (auto& player : players) player->StopLive();
    players.clear();
    module.initialize(nullptr, nullptr);
    collection.Reset();
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

SmartPtr<ICamera> PlayerTest::NewPlayer() {
    SmartPtr<ICamera> player = CreateFrom<ICamera>(module, L"LUMFilePlayer", IID_ICamera);
    EXPECT_TRUE(player);
    if (player) players.push_back(player);
    return player;
}

SmartPtr<ReplaySink> PlayerTest::AdviseSink(ICamera* player) {
    SmartPtr<ReplaySink> sink = CObject<ReplaySink>::New();
    SmartPtr<IEventSource> source = QueryAs<IEventSource>(player, IID_IEventSource);
    EXPECT_TRUE(source);
    if (source) {
        EXPECT_EQ(source->Advise(sink->PrimaryUnknown(), 1), S_OK);
    }
    return sink;
}

fs::path PlayerTest::WriteImage(const std::string& name, int32_t index) {
    SmartPtr<ILUMImageDIB> image = CreateByName<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    EXPECT_TRUE(image && archive);
    if (!image || !archive) return {};
    const int32_t width = kBaseWidth + index;
    EXPECT_EQ(image->Create(width, kHeight, 8), S_OK);
    uint8_t* pixels = nullptr;
    int32_t stride = 0;
    image->get_Bits(&pixels);
    image->get_Stride(&stride);
    for (int32_t y = 0; y < kHeight; ++y) std::memset(pixels + y * stride, GrayOf(index), static_cast<size_t>(width));
    const fs::path path = folder / name;
    EXPECT_EQ(archive->Write(Str(path.wstring()).Get(), image.Get(), 100), S_OK) << path;
    return path;
}

std::vector<fs::path> PlayerTest::WriteSeries(int32_t count, const std::string& prefix, const std::string& extension) {
    static const char* const kCycle[] = {"png", "bmp", "jpg"};
    std::vector<fs::path> files;
    for (int32_t i = 0; i < count; ++i) {
        char name[64];
        std::snprintf(name, sizeof name, "%s%02d.%s", prefix.c_str(), static_cast<int>(i),
                      extension.empty() ? kCycle[i % 3] : extension.c_str());
        files.push_back(WriteImage(name, i));
    }
    return files;
}

void PlayerTest::SetModificationTime(const fs::path& file, int64_t seconds) {
    constexpr int64_t k2000 = 946684800;  // 2000-01-01 00:00:00 UTC in Unix time
    timespec times[2] = {};
    times[0].tv_sec = static_cast<time_t>(k2000 + seconds + 40 * 86400 + 3723);  // access
    times[1].tv_sec = static_cast<time_t>(k2000 + seconds);                      // modification
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0) << file;
}

SmartPtr<IString> PlayerTest::Str(const std::wstring& text) {
    SmartPtr<IString> s = CreateByName<IString>(L"CreatableString", IID_IString);
    if (s) s->SetText(static_cast<int32_t>(text.size()), text.c_str());
    return s;
}

HRESULT PlayerTest::PointAt(ICamera* player, const std::wstring& pattern) {
    SmartPtr<IUIPropInterrogateEx> params = QueryAs<IUIPropInterrogateEx>(player, IID_IUIPropInterrogateEx);
    if (!params) return E_NOINTERFACE;
    SmartPtr<IString> text = Str(pattern);
    return params->ControlEx(50, text.Get());
}

int32_t PlayerTest::Position(ICamera* player) {
    int32_t position = -12345;
    if (SmartPtr<IMMControlEx> controls = Controls(player)) controls->get_CurrentPosition(&position);
    return position;
}

int32_t PlayerTest::Count(ICamera* player) {
    int32_t count = -1;
    if (SmartPtr<ISimpleCollection> list = QueryAs<ISimpleCollection>(player, IID_ISimpleCollection))
        list->get_Count(&count);
    return count;
}

int32_t PlayerTest::Param(ICamera* player, int32_t id) {
    int32_t value = -12345;
    player->Inquire(id, &value);
    return value;
}

CameraStateConstants PlayerTest::State(ICamera* player) {
    CameraStateConstants state = static_cast<CameraStateConstants>(-1);
    player->get_CameraState(&state);
    return state;
}

SmartPtr<IUnknown> PlayerTest::Entry(ICamera* player, int32_t index) {
    SmartPtr<IUnknown> entry;
    if (SmartPtr<ISuperCollection> list = QueryAs<ISuperCollection>(player, IID_ISuperCollection))
        list->get_Item(index, entry.Out());
    return entry;
}
