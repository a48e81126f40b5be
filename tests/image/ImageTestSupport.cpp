#include "tests/image/ImageTestSupport.h"

#include <algorithm>
#include <cstdlib>

const InterfaceEntry<RecordingSink> RecordingSink::kInterfaces[] = {
    InterfaceEntry<RecordingSink>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<RecordingSink>::End(),
};

SmartPtr<ILUMImageDIB> MakeImage(int32_t width, int32_t height, int32_t bits,
                                 const std::function<uint8_t(int32_t, int32_t)>& fill) {
    SmartPtr<ILUMImageDIB> image = CreateByName<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    if (!image || image->Create(width, height, bits) != S_OK) return nullptr;
    uint8_t* pixels = nullptr;
    int32_t stride = 0;
    image->get_Bits(&pixels);
    image->get_Stride(&stride);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t i = 0; i < width * bits / 8; ++i) pixels[y * stride + i] = fill(i, y);
    return image;
}

ImageBytes BytesOf(ILUM* image) {
    ImageBytes bytes;
    uint8_t* pixels = nullptr;
    image->get_Width(&bytes.width);
    image->get_Height(&bytes.height);
    image->get_BitsPerPixel(&bytes.bits);
    image->get_Stride(&bytes.stride);
    image->get_Bits(&pixels);
    for (int32_t y = 0; pixels && y < bytes.height; ++y) {
        const uint8_t* row = pixels + int64_t(bytes.stride) * y;
        bytes.rows.emplace_back(row, row + bytes.width * bytes.bits / 8);
    }
    return bytes;
}

int MaxDifference(const ImageBytes& a, const ImageBytes& b, int channels) {
    if (a.width != b.width || a.height != b.height || a.rows.size() != b.rows.size()) return -1;
    const int stepA = channels ? a.bits / 8 : 1, stepB = channels ? b.bits / 8 : 1;
    const int compared = channels ? channels : 1;
    if (!channels && a.bits != b.bits) return -1;
    int worst = 0;
    for (size_t y = 0; y < a.rows.size(); ++y) {
        const size_t units = channels ? size_t(a.width) : a.rows[y].size();
        for (size_t x = 0; x < units; ++x)
            for (int c = 0; c < compared; ++c)
                worst = std::max(worst, std::abs(a.rows[y][x * stepA + c] - b.rows[y][x * stepB + c]));
    }
    return worst;
}

bool WaitFor(const std::function<bool()>& done, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

HRESULT RecordingSink::ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) {
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_Numbers.push_back(count);
        m_LastImage = QueryAs<ILUM>(image, IID_ILUM);
        m_LastCamera = camera;
        m_LastThread = std::this_thread::get_id();
    }
    if (onEvent) onEvent(*this, count);
    return S_OK;
}

int RecordingSink::Events() const {
    std::lock_guard<std::mutex> guard(m_Lock);
    return static_cast<int>(m_Numbers.size());
}

std::vector<int32_t> RecordingSink::Numbers() const {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_Numbers;
}

SmartPtr<ILUM> RecordingSink::LastImage() const {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_LastImage;
}

IUnknown* RecordingSink::LastCamera() const {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_LastCamera;
}

std::thread::id RecordingSink::LastThread() const {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_LastThread;
}

SmartPtr<IString> FileNameString(const std::string& path) {
    return MakeString(std::wstring(path.begin(), path.end()).c_str());
}
