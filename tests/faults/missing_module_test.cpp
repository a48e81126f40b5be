// Every framework module that the camera module loads by name, taken away in
// turn. Each case runs in a fresh process (fork, no exec) whose working
// directory is a copy of the output folder made of symbolic links, without
// that one module file. The child drives all five components through their
// main operations and writes one line per operation; the parent compares the
// lines with the outcome expected for that module and checks that the child
// survived wherever the module is not required.
//
// The parent never loads a module itself, so that each child starts from a
// process without threads and without any library of the kit loaded.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "lum/filegrab.h"
#include "tests/faults/FaultSupport.h"
#include "tests/support/Fakes.h"

namespace {

using namespace faults;

struct Kit {
    void* camcorderModule = nullptr;
    ModuleCreateFunction create = nullptr;
    SmartPtr<IComponentCollection> collection;
};

SmartPtr<IString> Text(IComponentCollection* collection, const std::wstring& text) {
    SmartPtr<IString> string;
    if (collection) collection->CreateObject(REFStr(L"CreatableString"), &IID_IString, string.OutVoid());
    if (string) string->SetText(static_cast<int32_t>(text.size()), text.c_str());
    return string;
}

template <class I>
SmartPtr<I> Component(const Kit& kit, const wchar_t* name, const IID& iid, HRESULT* hr) {
    SmartPtr<I> object;
    void* creator = nullptr;
    *hr = E_FAIL;
    if (kit.create && kit.create(static_cast<int32_t>(wcslen(name)), name, &creator) == S_OK && creator)
        *hr = reinterpret_cast<CreateInstanceFunction>(creator)(nullptr, &iid, object.OutVoid());
    return object;
}

SmartPtr<ICamera> TestCamera(const Kit& kit) {
    SmartPtr<ICamera> camera;
    if (kit.collection) kit.collection->CreateObject(REFStr(L"LUMTestCamera"), &IID_ICamera, camera.OutVoid());
    if (camera) {
        camera->Control(1, 16);
        camera->Control(2, 8);
        camera->Control(3, 24);
    }
    return camera;
}

size_t FilesIn(const fs::path& folder, const std::string& extension = "") {
    size_t n = 0;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error))
        n += extension.empty() || entry.path().extension() == extension;
    return n;
}

void DriveCamcorder(const Kit& kit, const fs::path& work, Report& report) {
    HRESULT hr;
    SmartPtr<ILUMCamcorder> camcorder = Component<ILUMCamcorder>(kit, L"LUMCamcorder", IID_ILUMCamcorder, &hr);
    report.Code("camcorder.create", hr);
    if (!camcorder) return;
    SmartPtr<ICamera> camera = TestCamera(kit);
    report("camcorder.camera", camera ? "yes" : "no");
    SmartPtr<ICamcorderArm> arm = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
    const fs::path folder = work / "rec";
    fs::create_directories(folder);
    const std::wstring path = folder.wstring();
    camcorder->put_Path(tagREFString{static_cast<int32_t>(path.size()), const_cast<wchar_t*>(path.c_str())});
    camcorder->put_RecordasSeparateThreadDelayTime(0);
    for (int format : {0, 2}) {
        const std::string key = format == 0 ? "camcorder.jpeg" : "camcorder.avi";
        camcorder->put_FileFormat(static_cast<FileFormatConstants>(format));
        camcorder->put_RecordOptions(1);
        report.Code(key + ".record", arm->Record(camera.Get()));
        for (int i = 0; i < 3 && camera; ++i) camera->Grab(0, 0, nullptr);
        report.Code(key + ".stop", arm->StopRecording());
        const bool idle = WaitUntil([&] {
            CameraStateConstants state = CameraStateConstants(-1);
            camcorder->get_CameraState(&state);
            return state == 0;
        }, 10);
        report(key + ".idle", idle ? "yes" : "no");
    }
    report("camcorder.jpeg.files", std::to_string(FilesIn(folder, ".jpg")));
    report("camcorder.avi.file", fs::exists(work / "rec.avi") ? "yes" : "no");
    arm->Record(nullptr);
    // Playback of what was recorded (nothing when no camera or no archive).
    SmartPtr<CountingSink> sink = CObject<CountingSink>::New();
    camcorder.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1);
    camcorder->put_ActiveIndex(-1);
    report.Code("camcorder.play.grab", camcorder->Grab(0, 0, nullptr));
    report("camcorder.play.events", std::to_string(sink->m_Events.load()));
    camcorder.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 0);
}

void DriveStack(const Kit& kit, const fs::path& work, Report& report) {
    HRESULT hr;
    SmartPtr<ICamera> stack = Component<ICamera>(kit, L"LUMStackCamcorder", IID_ICamera, &hr);
    report.Code("stack.create", hr);
    if (!stack) return;
    SmartPtr<ICamera> camera = TestCamera(kit);
    SmartPtr<ICamcorder> recorder = stack.As<ICamcorder>(IID_ICamcorder);
    recorder->Record(camera.Get());
    report.Code("stack.recording", recorder->IsRecording());
    for (int i = 0; i < 3 && camera; ++i) camera->Grab(0, 0, nullptr);
    report.Code("stack.stop", recorder->StopRecording());
    int32_t count = -1;
    if (SmartPtr<ISimpleCollection> list = stack.As<ISimpleCollection>(IID_ISimpleCollection))
        list->get_Count(&count);
    report("stack.count", std::to_string(count));
    SmartPtr<CountingSink> sink = CObject<CountingSink>::New();
    stack.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1);
    report.Code("stack.live", stack->Live());
    report.Code("stack.grab", stack->Grab(-1, 0, nullptr));
    report("stack.events", std::to_string(sink->m_Events.load()));
    stack->StopLive();
    stack.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 0);
    SmartPtr<IFileArchive> archive = stack.As<IFileArchive>(IID_IFileArchive);
    const fs::path out = work / "stackout";
    fs::create_directories(out);
    report.Code("stack.name", archive->put_Filename(Text(kit.collection.Get(), (out / "s.png").wstring()).Get()));
    report.Code("stack.save", archive->Save());
    report("stack.saved", std::to_string(FilesIn(out, ".png")));
}

void DrivePlayer(const Kit& kit, const fs::path& work, Report& report) {
    HRESULT hr;
    SmartPtr<ICamera> player = Component<ICamera>(kit, L"LUMFilePlayer", IID_ICamera, &hr);
    report.Code("player.create", hr);
    if (!player) return;
    SmartPtr<CountingSink> sink = CObject<CountingSink>::New();
    player.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1);
    SmartPtr<IUIPropInterrogateEx> params = player.As<IUIPropInterrogateEx>(IID_IUIPropInterrogateEx);
    SmartPtr<IString> pattern = Text(kit.collection.Get(), (work / "images").wstring());
    report.Code("player.folder", params->ControlEx(50, pattern.Get()));
    report.Code("player.grab", player->Grab(0, 999, nullptr));
    report("player.grab.events", std::to_string(sink->m_Events.load()));
    SmartPtr<ILUM> image;
    report.Code("player.image", player->get_Image(0, image.Out()));
    image.Reset();
    player->Control(52, [] { float f = 200.0f; int32_t bits; std::memcpy(&bits, &f, 4); return bits; }());
    const int before = sink->m_Events.load();
    report.Code("player.live", player->Live());
    const bool stepped = WaitUntil([&] { return sink->m_Events.load() >= before + 2; }, 3);
    report.Code("player.stoplive", player->StopLive());
    report("player.live.events", stepped ? "yes" : "no");
    player.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 0);
}

void DriveWindow(const Kit& kit, const fs::path& work, Report& report) {
    HRESULT hr;
    SmartPtr<ILUMCamWindow> window = Component<ILUMCamWindow>(kit, L"LUMCamWindow", IID_ILUMCamWindow, &hr);
    report.Code("window.create", hr);
    if (!window) return;
    report.Code("window.rect", window->put_AttachRECT(CANVASRect{0, 0, 8, 4}));
    SmartPtr<ILUM> image;
    report.Code("window.image", window->get_Image(0, image.Out()));
    report.Code("window.grab", window->Grab(0, 0, nullptr));
    // Settings to a file of their own, as XML.
    SmartPtr<IFileArchive> archive = window.As<IFileArchive>(IID_IFileArchive);
    archive->put_Filename(Text(kit.collection.Get(), (work / "window.xml").wstring()).Get());
    report.Code("window.save", archive->Save());
}

void DriveFileGrab(const Kit& kit, const fs::path& work, Report& report) {
    HRESULT hr;
    SmartPtr<IUnknown> grab = Component<IUnknown>(kit, L"LUMFileGrab", IID_IUnknown, &hr);
    report.Code("filegrab.create", hr);
    if (!grab) return;
    void* answer = nullptr;
    grab->QueryInterface(IID_ICamera, &answer);
    SmartPtr<LUMFileGrabCamera> camera =
        SmartPtr<LUMFileGrabCamera>::Adopt(static_cast<LUMFileGrabCamera*>(static_cast<IUnknown*>(answer)));
    SmartPtr<IEventSource> events = grab.As<IEventSource>(IID_IEventSource);
    SmartPtr<CountingSink> sink = CObject<CountingSink>::New();
    events->Advise(sink->PrimaryUnknown(), 1);
    const fs::path watched = work / "watched";
    fs::create_directories(watched);
    const std::wstring folder = watched.wstring();
    report.Code("filegrab.folder",
                camera->LoadParameters(tagREFString{static_cast<int32_t>(folder.size()), const_cast<wchar_t*>(folder.c_str())}));
    report.Code("filegrab.live", camera->Live());
    WriteBmp(work / "incoming.bmp", 8, 8, 90);
    fs::rename(work / "incoming.bmp", watched / "new.bmp");
    report("filegrab.delivered", WaitUntil([&] { return sink->m_Events.load() > 0; }, 3) ? "yes" : "no");
    report.Code("filegrab.stoplive", camera->StopLive());
    events->Advise(sink->PrimaryUnknown(), 0);
}

/// The child's whole run, in the link farm.
int RunChild(const fs::path& work, Report& report) {
    Kit kit;
    kit.camcorderModule = dlopen("./LUMCamcorder.so", RTLD_NOW);
    report("module", kit.camcorderModule ? "loaded" : "absent");
    if (!kit.camcorderModule) return 0;
    kit.create = reinterpret_cast<ModuleCreateFunction>(dlsym(kit.camcorderModule, "CreateFunction"));
    auto initialize = reinterpret_cast<InitializeModuleFunction>(dlsym(kit.camcorderModule, "InitializeModule"));
    // The host's own start: the global collection of "./CollectionsEx.so".
    if (void* collections = dlopen("./CollectionsEx.so", RTLD_NOW)) {
        auto create = reinterpret_cast<ModuleCreateFunction>(dlsym(collections, "CreateFunction"));
        void* creator = nullptr;
        const wchar_t* name = L"GlobalComponentCollection";
        if (create && create(static_cast<int32_t>(wcslen(name)), name, &creator) == S_OK)
            reinterpret_cast<CreateInstanceFunction>(creator)(nullptr, &IID_IComponentCollection,
                                                              kit.collection.OutVoid());
    }
    report("host.collection", kit.collection ? "yes" : "no");
    initialize(nullptr, kit.collection.Get());
    fs::create_directories(work / "images");
    for (int i = 0; i < 3; ++i) WriteBmp(work / "images" / ("img" + std::to_string(i) + ".bmp"), 8 + i, 8, 40);
    DriveCamcorder(kit, work, report);
    DriveStack(kit, work, report);
    DrivePlayer(kit, work, report);
    DriveWindow(kit, work, report);
    DriveFileGrab(kit, work, report);
    initialize(nullptr, nullptr);
    kit.collection.Reset();
    return 0;
}

/// Runs the child with `missing` taken out of a link farm of the output folder.
ChildResult RunWithout(const std::string& missing) {
    const fs::path output = fs::current_path();
    std::string pattern = (fs::temp_directory_path() / "lum-faults-missing-XXXXXX").string();
    if (!mkdtemp(pattern.data())) return {};
    const fs::path work = pattern;
    for (const auto& entry : fs::directory_iterator(output)) {
        const std::string name = entry.path().filename().string();
        if (name != missing + ".so") fs::create_symlink(entry.path(), work / name);
    }
    ChildResult result = RunInChild([&](Report& report) {
        if (chdir(work.c_str()) != 0) return 3;
        return RunChild(work, report);
    });
    std::error_code ignored;
    fs::remove_all(work, ignored);
    return result;
}

constexpr const char* kOk = "00000000";
constexpr const char* kFail = "80004005";

/// The outcome every module's absence shares with a complete kit.
std::map<std::string, std::string> CompleteKit() {
    return {
        {"module", "loaded"},           {"host.collection", "yes"},
        {"camcorder.create", kOk},      {"camcorder.camera", "yes"},
        {"camcorder.jpeg.record", kOk}, {"camcorder.jpeg.stop", kOk},
        {"camcorder.jpeg.idle", "yes"}, {"camcorder.avi.record", kOk},
        {"camcorder.avi.stop", kOk},    {"camcorder.avi.idle", "yes"},
        {"camcorder.jpeg.files", "3"},  {"camcorder.avi.file", "yes"},
        {"camcorder.play.grab", kOk},   {"camcorder.play.events", "1"},
        {"stack.create", kOk},          {"stack.recording", kOk},
        {"stack.stop", kOk},            {"stack.count", "3"},
        {"stack.live", kOk},            {"stack.grab", kOk},
        {"stack.events", "1"},          {"stack.name", kOk},
        {"stack.save", kOk},            {"stack.saved", "3"},
        {"player.create", kOk},
        {"player.folder", kOk},         {"player.grab", kOk},
        {"player.grab.events", "1"},    {"player.image", kOk},
        {"player.live", kOk},           {"player.stoplive", kOk},
        {"player.live.events", "yes"},
        {"window.create", kOk}, {"window.save", kOk},
        {"window.rect", kOk},           {"window.image", kOk},
        {"window.grab", kOk},           {"filegrab.create", kOk},
        {"filegrab.folder", kOk},       {"filegrab.live", kOk},
        {"filegrab.delivered", "yes"},  {"filegrab.stoplive", kOk},
        {"end", "reached"},
    };
}

void ExpectOutcome(const std::string& missing, const std::map<std::string, std::string>& changes) {
    std::map<std::string, std::string> expected = CompleteKit();
    for (const auto& [key, value] : changes) {
        if (value.empty()) expected.erase(key);
        else expected[key] = value;
    }
    const ChildResult result = RunWithout(missing);
    SCOPED_TRACE("without " + missing + ".so:\n" + result.text);
    EXPECT_TRUE(result.Survived())
        << "the host process did not survive (status " << result.status << ")";
    EXPECT_EQ(result.lines, expected);
}

}  // namespace

TEST(MissingModule, NothingMissingGivesTheFullOutcome) {
    ExpectOutcome("NoSuchModule", {});
}

// The string, variant and collection factories need "CollectionsEx": its
// absence is fatal at the first component created. A module that instead
// refuses every creation cleanly would be as good; half-made components
// are not.
TEST(MissingModule, CollectionsIsRequired) {
    const ChildResult result = RunWithout("CollectionsEx");
    SCOPED_TRACE(result.text);
    EXPECT_EQ(result["host.collection"], "no");
    if (result.Survived()) {
        for (const char* key : {"camcorder.create", "stack.create", "player.create", "window.create", "filegrab.create"})
            EXPECT_NE(result[key], kOk) << key;
    } else {
        EXPECT_EQ(result.lines.count("camcorder.create"), 0u) << "the process ended later than at the first creation";
    }
}

// Without the registry the install path is unknown; a host that gives the
// folder itself loses nothing.
TEST(MissingModule, RegistryIsOptional) { ExpectOutcome("Registry", {}); }

// Without the property pages module (only created when a host shows a
// component's pages, or for the player's overlay), nothing here changes.
TEST(MissingModule, PropertyPagesAreOptional) { ExpectOutcome("UIPropPages", {}); }

// Without streams, only saving settings to a file of their own fails.
TEST(MissingModule, StreamsOnlyStopSettingsFiles) { ExpectOutcome("Streams", {{"window.save", kFail}}); }

// Without the video module, an AVI recording writes no file; the save thread
// still ends and every other operation works.
TEST(MissingModule, VideoOnlyStopsAviFiles) { ExpectOutcome("LUMVideo", {{"camcorder.avi.file", "no"}}); }

// Without image files: recordings write nothing, playback steps fail, a
// stack cannot be saved, the player and the file grab hand out no image.
TEST(MissingModule, ImageFilesMissingFailsSoftly) {
    ExpectOutcome("LUMArch", {{"camcorder.jpeg.files", "0"},
                              {"camcorder.play.grab", kFail},
                              {"camcorder.play.events", "0"},
                              {"stack.save", kFail},
                              {"stack.saved", "0"},
                              {"player.grab.events", "0"},
                              {"player.image", kFail},
                              {"player.live.events", "no"},
                              {"filegrab.delivered", "no"}});
}

// Without file-name lists the file grab is not created; the player is, but
// replays nothing.
TEST(MissingModule, FileNamesMissingFailsSoftly) {
    ExpectOutcome("FileNames", {{"filegrab.create", kFail},
                                {"filegrab.folder", ""},
                                {"filegrab.live", ""},
                                {"filegrab.delivered", ""},
                                {"filegrab.stoplive", ""},
                                {"player.grab.events", "0"},
                                {"player.image", kFail},
                                {"player.live.events", "no"}});
}

// Without the imaging module there are no images, no stacks and no canvas:
// the camera window is not created, the others are and fail softly (no
// synthetic camera either, so nothing is recorded).
TEST(MissingModule, ImagingMissingFailsSoftly) {
    ExpectOutcome("LUMImage", {{"camcorder.camera", "no"},
                               {"camcorder.jpeg.files", "0"},
                               {"camcorder.avi.file", "no"},
                               {"camcorder.play.grab", kFail},
                               {"camcorder.play.events", "0"},
                               {"stack.recording", kFail},
                               {"stack.count", "-1"},
                               {"stack.events", "0"},
                               {"stack.saved", "0"},
                               {"window.create", kFail},
                               {"window.rect", ""},
                               {"window.image", ""},
                               {"window.grab", ""},
                               {"window.save", ""}});
}
