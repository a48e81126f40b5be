// "replay": plays a folder of images through the file player at a fixed rate
// and reports each frame with the file name and time that the player shows
// over a viewer.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "tools/lumhost/Commands.h"
#include "tools/lumhost/FolderPlayer.h"
#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

namespace {

const char* kUsage =
    "usage: lumhost replay FOLDER [options]\n"
    "Replays the images of FOLDER (bmp, jpg, jpeg, png; in name order) as a live\n"
    "camera through the file player and reports each frame with its file name and\n"
    "modification time as the player's overlay shows them.\n"
    "  --fps N         images per second (default 25)\n"
    "  --frames N      frames to replay (default: every image once)\n"
    "  --backward      from the last image downwards\n"
    "  --retention N   0 drop each image after showing it (default), 1 rescan the\n"
    "                  folder after each image, 2 keep every image loaded\n"
    "  --quiet         print only the summary\n";

/// A viewer of the host's own: it counts frames and prints the file name and
/// time that the player puts over it after each frame.
class ReplayViewer final : public CObject<ReplayViewer>,
                           public _ICameraEvents,
                           public ILUMViewer,
                           public ISuperCollection {
    LUM_OBJECT_UNKNOWN(ReplayViewer)

public:
    bool quiet = false;

    // _ICameraEvents
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override {
        SmartPtr<ILUM> lum = QueryAs<ILUM>(image, IID_ILUM);
        std::lock_guard<std::mutex> hold(m_Mutex);
        m_Width = m_Height = 0;
        if (lum) {
            lum->get_Width(&m_Width);
            lum->get_Height(&m_Height);
        }
        m_Arrivals.push_back(std::chrono::steady_clock::now());
        m_Frames.store(static_cast<int32_t>(m_Arrivals.size()), std::memory_order_relaxed);
        return S_OK;
    }

    // ISuperCollection: the overlay of the frame just delivered.
    HRESULT AddOverlay(IUnknown* overlay) override {
        SmartPtr<INamedCollection> shown = QueryAs<INamedCollection>(overlay, IID_INamedCollection);
        std::lock_guard<std::mutex> hold(m_Mutex);
        if (!quiet && shown)
            std::printf("frame %5zu: %ls  %ls  %dx%d\n", m_Arrivals.size(), Text(shown.Get(), L"_Name_").c_str(),
                        Text(shown.Get(), L"_Time_").c_str(), m_Width, m_Height);
        return S_OK;
    }
    HRESULT RemoveOverlays() override { return S_OK; }

    int32_t Frames() const { return m_Frames.load(std::memory_order_relaxed); }
    /// Median time between two delivered frames, in milliseconds.
    double MedianStepMs() {
        std::lock_guard<std::mutex> hold(m_Mutex);
        std::vector<double> steps;
        for (size_t i = 1; i < m_Arrivals.size(); ++i)
            steps.push_back(std::chrono::duration<double, std::milli>(m_Arrivals[i] - m_Arrivals[i - 1]).count());
        if (steps.empty()) return 0;
        std::nth_element(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2), steps.end());
        return steps[steps.size() / 2];
    }

    // ILUMViewer, and the rest of ISuperCollection: not used by replay.
    HRESULT get_Image(ILUM** image) override { return E_NOTIMPL; }
    HRESULT put_Image(ILUM* image) override { return E_NOTIMPL; }
    HRESULT get_FrameCount(int32_t* count) override {
        if (count) *count = Frames();
        return S_OK;
    }
    HRESULT get_RefreshCount(int32_t* count) override { return E_NOTIMPL; }
    HRESULT get_Count(int32_t* count) override {
        if (count) *count = 0;
        return S_OK;
    }
    HRESULT get_Item(int32_t index, IUnknown** item) override { return E_INVALIDARG; }
    int32_t IndexOf(IUnknown* item) override { return E_FAIL; }
    HRESULT get_Name(int32_t index, IString** name) override { return E_INVALIDARG; }
    HRESULT get_ItemByName(tagREFString name, IUnknown** item) override { return E_FAIL; }
    HRESULT AddNamed(tagREFString name, IUnknown* item) override { return E_NOTIMPL; }
    HRESULT Remove(int32_t index) override { return E_INVALIDARG; }
    HRESULT RemoveAll() override { return S_OK; }
    HRESULT get_FileAttributes(int32_t index, IFileAttributes** attributes) override { return E_INVALIDARG; }
    HRESULT Add(IUnknown* item) override { return E_NOTIMPL; }
    HRESULT Insert(int32_t index, tagREFString name, IUnknown* item) override { return E_NOTIMPL; }
    HRESULT put_Name(int32_t index, tagREFString name) override { return E_INVALIDARG; }
    HRESULT Replace(int32_t index, IUnknown* item) override { return E_INVALIDARG; }
    int32_t IndexOfName(tagREFString name) override { return E_FAIL; }
    HRESULT get_OverlayCount(int32_t* count) override {
        if (count) *count = 0;
        return S_OK;
    }
    HRESULT get_Overlay(int32_t index, IUnknown** overlay) override { return E_INVALIDARG; }

private:
    static std::wstring Text(INamedCollection* shown, const wchar_t* key) {
        SmartPtr<IUnknown> item;
        shown->get_ItemByName(REFStr(key), item.Out());
        SmartPtr<IString> text = QueryAs<IString>(item.Get(), IID_IString);
        wchar_t* characters = nullptr;
        int32_t length = 0;
        if (!text || text->GetText(&characters, &length) < 0 || !characters) return L"?";
        return std::wstring(characters, static_cast<size_t>(length));
    }

    std::mutex m_Mutex;
    std::vector<std::chrono::steady_clock::time_point> m_Arrivals;
    std::atomic<int32_t> m_Frames{0};
    int32_t m_Width = 0;
    int32_t m_Height = 0;
};

const InterfaceEntry<ReplayViewer> ReplayViewer::kInterfaces[] = {
    InterfaceEntry<ReplayViewer>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<ReplayViewer>::Of<ILUMViewer>(IID_ILUMViewer),
    InterfaceEntry<ReplayViewer>::Of<ISuperCollection>(IID_ISuperCollection),
    InterfaceEntry<ReplayViewer>::Of<ISuperCollection>(IID_INamedCollection),
    InterfaceEntry<ReplayViewer>::Of<ISuperCollection>(IID_ISimpleCollection),
    InterfaceEntry<ReplayViewer>::End(),
};

}  // namespace

int ReplayCommand(FrameworkHost& host, const std::vector<std::string>& args) {
    std::vector<std::string> rest = args;
    std::string folder;
    if (!rest.empty() && rest.front().rfind("--", 0) != 0) {
        folder = rest.front();
        rest.erase(rest.begin());
    }
    Options options(rest, {"fps", "frames", "retention"}, {"backward", "quiet", "help"});
    if (options.Has("help")) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    const double fps = options.Number("fps", 25.0, 0.01, 10000.0);
    const int retention = options.Integer("retention", 0, 0, 2);
    int frames = options.Integer("frames", 0, 1, 100000000);
    if (folder.empty() || !options.Error().empty()) {
        std::fprintf(stderr, "lumhost replay: %s\n\n%s",
                     folder.empty() ? "which folder?" : options.Error().c_str(), kUsage);
        return 2;
    }
    FolderPlayer player = OpenFolderPlayer(host, folder, fps, options.Has("backward"), retention);
    if (!player.camera) {
        std::fprintf(stderr, "lumhost replay: %s\n", player.error.c_str());
        return 1;
    }
    if (player.count == 0) {
        std::fprintf(stderr, "lumhost replay: no images in %s\n", folder.c_str());
        return 1;
    }
    if (!options.Has("frames")) frames = player.count;

    void* viewerObject = nullptr;
    CObject<ReplayViewer>::_CreateInstance(nullptr, &IID__ICameraEvents, &viewerObject);
    SmartPtr<_ICameraEvents> sink = SmartPtr<_ICameraEvents>::Adopt(static_cast<_ICameraEvents*>(viewerObject));
    ReplayViewer* viewer = static_cast<ReplayViewer*>(sink.Get());
    viewer->quiet = options.Has("quiet");
    SmartPtr<IEventSource> events = player.camera.As<IEventSource>(IID_IEventSource);
    SmartPtr<IUIPropInterrogateEx> parameters = player.camera.As<IUIPropInterrogateEx>(IID_IUIPropInterrogateEx);
    // A named overlay makes the player show file name and time on its viewer.
    parameters->ControlEx(65, HostString(host, L"replay").Get());
    events->Advise(sink.Get(), 1);

    std::printf("replaying %d of %d images of %s at %g images/s\n", frames, player.count, folder.c_str(), fps);
    std::fflush(stdout);
    const auto start = std::chrono::steady_clock::now();
    player.camera->Live();
    // Files that cannot be read are skipped without a frame: give up when
    // nothing arrives for a while.
    const auto patience = std::chrono::duration<double>(5.0 + 3.0 / fps);
    auto progressAt = start;
    int32_t seen = 0;
    while (viewer->Frames() < frames) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        const auto now = std::chrono::steady_clock::now();
        if (viewer->Frames() != seen) {
            seen = viewer->Frames();
            progressAt = now;
        } else if (now - progressAt > patience) {
            std::fprintf(stderr, "lumhost replay: no image could be read for %.1f s; stopping\n", patience.count());
            break;
        }
    }
    player.camera->StopLive();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    events->Advise(nullptr, 0);
    const int32_t shown = viewer->Frames();
    std::printf("replayed %d frames in %.2f s: %.2f frames/s, median step %.2f ms (asked for %.2f ms)\n", shown,
                seconds, shown / seconds, viewer->MedianStepMs(), 1000.0 / fps);
    return 0;
}
