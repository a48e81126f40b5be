#include "tests/camcorder/CamcorderHost.h"

#include <unistd.h>

#include <algorithm>

const InterfaceEntry<FrameSink> FrameSink::kInterfaces[] = {
    InterfaceEntry<FrameSink>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<FrameSink>::End(),
};

HRESULT FrameSink::ImageGrabbed(IUnknown*, IUnknown* image, int32_t count) {
    SmartPtr<ILUM> lum = QueryAs<ILUM>(image, IID_ILUM);
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Frames.push_back(CamcorderTest::FrameNumberOf(lum.Get()));
    m_Counts.push_back(count);
    return S_OK;
}

std::vector<int32_t> FrameSink::Frames() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Frames;
}

std::vector<int32_t> FrameSink::Counts() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Counts;
}

size_t FrameSink::Size() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Frames.size();
}

void CamcorderTest::SetUp() {
    module = LoadModule("LUMCamcorder");
    ASSERT_NE(module.initialize, nullptr);
    collection = GlobalCollection();
    ASSERT_TRUE(collection);
    module.initialize(nullptr, collection.Get());
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    folder = fs::temp_directory_path() / ("lum-camcorder-" + std::to_string(getpid()) + "-" + info->name());
    fs::remove_all(folder);
    fs::create_directories(folder);
}

void CamcorderTest::TearDown() {
    for (auto& camcorder : camcorders) camcorder->Arm(nullptr);
    camcorders.clear();
    module.initialize(nullptr, nullptr);
    collection.Reset();
    fs::remove_all(folder);
}

SmartPtr<ILUMCamcorder> CamcorderTest::NewCamcorder(FileFormatConstants format) {
    SmartPtr<ILUMCamcorder> camcorder = CreateFrom<ILUMCamcorder>(module, L"LUMCamcorder", IID_ILUMCamcorder);
    if (!camcorder) return camcorder;
    camcorders.push_back(camcorder.As<ICamcorderArm>(IID_ICamcorderArm));
    std::wstring path = folder.wstring();
    camcorder->put_Path(tagREFString{static_cast<int32_t>(path.size()), path.data()});
    camcorder->put_FileFormat(format);
    camcorder->put_RecordasSeparateThreadDelayTime(0);
    return camcorder;
}

SmartPtr<ICamera> CamcorderTest::NewCamera(int32_t width, int32_t height, int32_t bits) {
    SmartPtr<ICamera> camera = CreateByName<ICamera>(L"LUMTestCamera", IID_ICamera);
    if (camera) {
        camera->Control(1, width);
        camera->Control(2, height);
        camera->Control(3, bits);
    }
    return camera;
}

int32_t CamcorderTest::FrameNumberOf(ILUM* image) {
    uint8_t* bits = nullptr;
    if (!image || image->get_Bits(&bits) < 0 || !bits) return -1;
    return static_cast<int32_t>(bits[0] | bits[1] << 8 | bits[2] << 16 | static_cast<uint32_t>(bits[3]) << 24);
}

int32_t CamcorderTest::FrameNumberInFile(const fs::path& file) {
    SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    if (!archive) return -1;
    std::wstring name = file.wstring();
    SmartPtr<IString> text = CreateByName<IString>(L"CreatableString", IID_IString);
    text->SetText(static_cast<int32_t>(name.size()), name.c_str());
    SmartPtr<ILUM> image;
    if (archive->Read(text.Get(), image.Out()) < 0) return -1;
    return FrameNumberOf(image.Get());
}

std::vector<std::string> CamcorderTest::Files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

void CamcorderTest::WriteRecording(int32_t first, int32_t last) {
    SmartPtr<ICamera> camera = NewCamera();
    SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    ASSERT_TRUE(camera && archive);
    for (int32_t i = 1; i <= last; ++i) {
        ASSERT_EQ(camera->Grab(0, 0, nullptr), S_OK);
        if (i < first) continue;
        SmartPtr<ILUM> image;
        ASSERT_EQ(camera->get_Image(0, image.Out()), S_OK);
        char name[32];
        std::snprintf(name, sizeof name, "%04d.bmp", i);
        std::wstring path = (folder / name).wstring();
        SmartPtr<IString> text = CreateByName<IString>(L"CreatableString", IID_IString);
        text->SetText(static_cast<int32_t>(path.size()), path.c_str());
        ASSERT_EQ(archive->Write(text.Get(), image.Get(), 100), S_OK);
    }
}

bool CamcorderTest::WaitFor(const std::function<bool()>& done, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
