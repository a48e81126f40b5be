// Recording into a file system that fills up. Each case runs in a forked
// child that mounts a small tmpfs in a mount namespace of its own (as root,
// where namespaces are allowed); elsewhere it falls back to a file size
// limit with SIGXFSZ ignored, so that the kernel answers EFBIG instead of
// ENOSPC. The child records, checks every file that is left and reports;
// the parent checks the report. Which path ran is printed.
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/statvfs.h>

#include <algorithm>

#include "tests/faults/FaultSupport.h"
#include "tests/support/Fakes.h"
#include "tests/support/ModuleHost.h"

namespace {

using namespace faults;

constexpr int kFrames = 60;

struct SmallDisk {
    fs::path root;
    bool tmpfs = false;
    SmallDisk() = default;
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    /// Unmounts and removes the mount point (it lies in the shared /tmp).
    ~SmallDisk() {
        if (root.empty()) return;
        if (tmpfs) umount(root.c_str());
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
};

/// A small file system for this process: a tmpfs of `bytes` in a private
/// mount namespace, or (where that is refused) a size limit on every file.
void MountSmallDisk(SmallDisk& disk, size_t bytes, Report& report) {
    std::string pattern = (fs::temp_directory_path() / "lum-faults-small-XXXXXX").string();
    if (!mkdtemp(pattern.data())) return;
    disk.root = pattern;
    const std::string options = "size=" + std::to_string(bytes);
    g_NoLeakCheck = unshare(CLONE_NEWNS) == 0;
    disk.tmpfs = g_NoLeakCheck && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 mount("tmpfs", disk.root.c_str(), "tmpfs", 0, options.c_str()) == 0;
    if (!disk.tmpfs) {
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit{static_cast<rlim_t>(bytes / 8), static_cast<rlim_t>(bytes / 8)};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    report("disk", disk.tmpfs ? "tmpfs" : "rlimit");
}

/// The host's start in the child: the module and the global collection.
struct Host {
    LoadedModule module = LoadModule("LUMCamcorder");
    SmartPtr<IComponentCollection> collection = GlobalCollection();
    Host() { module.initialize(nullptr, collection.Get()); }
    ~Host() {
        module.initialize(nullptr, nullptr);
        collection.Reset();
    }
};

SmartPtr<ICamera> Camera(int width, int height) {
    SmartPtr<ICamera> camera = CreateByName<ICamera>(L"LUMTestCamera", IID_ICamera);
    if (camera) {
        camera->Control(1, width);
        camera->Control(2, height);
        camera->Control(3, 24);
    }
    return camera;
}

SmartPtr<IString> Text(const std::wstring& text) {
    SmartPtr<IString> s = CreateByName<IString>(L"CreatableString", IID_IString);
    if (s) s->SetText(static_cast<int32_t>(text.size()), text.c_str());
    return s;
}

/// Decodes every file of `folder` with `extension`; reports how many files
/// there are and how many do not decode.
void CheckImages(const fs::path& folder, const std::string& extension, const std::string& key, Report& report) {
    SmartPtr<ILUMArchive> archive = CreateByName<ILUMArchive>(L"LUMArchive", IID_ILUMArchive);
    long files = 0, bad = 0;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        if (entry.path().extension() != extension) continue;
        ++files;
        SmartPtr<ILUM> image;
        int32_t width = 0;
        if (archive->Read(Text(entry.path().wstring()).Get(), image.Out()) < 0 || !image ||
            image->get_Width(&width) < 0 || width <= 0) {
            ++bad;
            report(key + ".undecodable." + entry.path().filename().string(),
                   std::to_string(fs::file_size(entry.path(), error)));
        }
    }
    report.Number(key + ".files", files);
    report.Number(key + ".bad", bad);
}

/// Whether the small disk has less room left than `bytes`.
bool Full(const fs::path& root, size_t bytes) {
    struct statvfs info {};
    if (statvfs(root.c_str(), &info) != 0) return false;
    return static_cast<size_t>(info.f_bavail) * info.f_frsize < bytes;
}

void FillTo(const fs::path& root, size_t headroom) {
    struct statvfs info {};
    statvfs(root.c_str(), &info);
    const size_t free = static_cast<size_t>(info.f_bavail) * info.f_frsize;
    if (free <= headroom) return;
    std::vector<char> block(free - headroom, 1);
    std::ofstream(root / "filler", std::ios::binary).write(block.data(), static_cast<std::streamsize>(block.size()));
}

/// The camcorder records kFrames frames into the small disk with `options`
/// (0 in the camera's thread, 1 and 2 on the save thread) and `format`.
int RecordCamcorder(Report& report, int format, int options, bool spillToDisk) {
    SmallDisk disk;
    MountSmallDisk(disk, 1 << 20, report);
    if (disk.root.empty()) return 3;
    if (spillToDisk) setenv("TMPDIR", disk.root.c_str(), 1);
    Host host;
    const fs::path folder = disk.root / "rec";
    fs::create_directories(folder);
    if (format == 2) FillTo(disk.root, 256 << 10);
    SmartPtr<ILUMCamcorder> camcorder = CreateFrom<ILUMCamcorder>(host.module, L"LUMCamcorder", IID_ILUMCamcorder);
    SmartPtr<ICamcorderArm> arm = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
    SmartPtr<ICamera> camera = Camera(320, 240);
    if (!camcorder || !camera) return 4;
    const std::wstring path = folder.wstring();
    camcorder->put_Path(tagREFString{static_cast<int32_t>(path.size()), const_cast<wchar_t*>(path.c_str())});
    camcorder->put_FileFormat(static_cast<FileFormatConstants>(format));
    camcorder->put_RecordOptions(options);
    camcorder->put_RecordasSeparateThreadDelayTime(0);
    report.Code("record", arm->Record(camera.Get()));
    for (int i = 0; i < kFrames; ++i) camera->Grab(0, 0, nullptr);
    report.Code("stop", arm->StopRecording());
    // The save thread drains what is queued and ends; in the camera's
    // thread the recording simply stays finished (5).
    const int32_t done = options == 0 ? 5 : 0;
    report.Flag("ended", WaitUntil([&] {
        CameraStateConstants state = CameraStateConstants(-1);
        camcorder->get_CameraState(&state);
        return state == done;
    }, 60));
    int32_t index = -1;
    camcorder->get_ActiveIndex(&index);
    report.Number("index", index);
    report.Flag("full", Full(disk.root, 64 << 10));
    if (format == 2) {
        const fs::path avi = disk.root / "rec.avi";
        report.Flag("avi.exists", fs::exists(avi));
        if (fs::exists(avi)) {
            SmartPtr<IFileArchive> reader = CreateByName<IFileArchive>(L"LUMAVI", IID_IFileArchive);
            reader->put_Filename(Text(avi.wstring()).Get());
            report.Code("avi.load", reader->Load());
            int32_t frames = 0;
            reader.As<ISimpleCollection>(IID_ISimpleCollection)->get_Count(&frames);
            report.Number("avi.frames", frames);
        }
    } else {
        CheckImages(folder, ".jpg", "jpg", report);
    }
    // Room again: the same camcorder records at once.
    std::error_code ignored;
    fs::remove(disk.root / "filler", ignored);
    for (const auto& entry : fs::directory_iterator(folder, ignored)) fs::remove(entry.path(), ignored);
    fs::remove(disk.root / "rec.avi", ignored);
    arm->Record(camera.Get());
    for (int i = 0; i < 3; ++i) camera->Grab(0, 0, nullptr);
    arm->StopRecording();
    WaitUntil([&] {
        CameraStateConstants state = CameraStateConstants(-1);
        camcorder->get_CameraState(&state);
        return state == done;
    }, 60);
    report.Flag("again", format == 2 ? fs::exists(disk.root / "rec.avi") : !fs::is_empty(folder));
    arm->Record(nullptr);
    return 0;
}

/// The stack camcorder saves a stack of kFrames frames as an image series
/// (or one AVI) into the small disk.
int SaveStack(Report& report, const std::wstring& name) {
    SmallDisk disk;
    MountSmallDisk(disk, 1 << 20, report);
    if (disk.root.empty()) return 3;
    Host host;
    SmartPtr<ICamera> stack = CreateFrom<ICamera>(host.module, L"LUMStackCamcorder", IID_ICamera);
    SmartPtr<ICamera> camera = Camera(320, 240);
    if (!stack || !camera) return 4;
    SmartPtr<ICamcorder> recorder = stack.As<ICamcorder>(IID_ICamcorder);
    recorder->Record(camera.Get());
    for (int i = 0; i < kFrames; ++i) camera->Grab(0, 0, nullptr);
    recorder->StopRecording();
    const fs::path out = disk.root / "stack";
    fs::create_directories(out);
    // PNG files of the synthetic frames are small: leave less room for them.
    FillTo(disk.root, name.find(L".avi") != std::wstring::npos ? 256 << 10 : 100 << 10);
    SmartPtr<IFileArchive> archive = stack.As<IFileArchive>(IID_IFileArchive);
    archive->put_Filename(Text((out / name).wstring()).Get());
    report.Code("save", archive->Save());
    report.Flag("full", Full(disk.root, 64 << 10));
    if (name.find(L".avi") != std::wstring::npos) {
        const fs::path avi = out / name;
        report.Flag("avi.exists", fs::exists(avi));
        if (fs::exists(avi)) {
            SmartPtr<IFileArchive> reader = CreateByName<IFileArchive>(L"LUMAVI", IID_IFileArchive);
            reader->put_Filename(Text(avi.wstring()).Get());
            report.Code("avi.load", reader->Load());
        }
    } else {
        CheckImages(out, ".png", "png", report);
    }
    return 0;
}

void ExpectCleanRecording(const ChildResult& result) {
    std::printf("[ small disk ] %s: %lld files, %lld bad, AVI %s\n", result["disk"].c_str(),
                result.Number("jpg.files"), result.Number("jpg.bad"), result["avi.exists"].c_str());
    EXPECT_TRUE(result.Survived()) << "status " << result.status;
    EXPECT_EQ(result["record"], "00000000");
    EXPECT_EQ(result["stop"], "00000000");
    EXPECT_EQ(result["ended"], "yes") << "the recording did not end";
    EXPECT_EQ(result["again"], "yes") << "no recording once there was room again";
    EXPECT_EQ(result["end"], "reached");
}

void ExpectReadableFiles(const ChildResult& result) {
    EXPECT_EQ(result.Number("jpg.bad"), 0) << "a file was left that does not decode";
    if (result["disk"] == "tmpfs") {
        EXPECT_EQ(result["full"], "yes") << "the disk never filled";
        EXPECT_GT(result.Number("jpg.files"), 0);
        EXPECT_LT(result.Number("jpg.files"), kFrames);
    }
    EXPECT_EQ(result.Number("index"), kFrames) << "every frame is given its index, written or not";
}

/// An AVI is written whole or not at all.
void ExpectWholeAviOrNone(const ChildResult& result) {
    if (result["avi.exists"] == "yes") {
        EXPECT_EQ(result["avi.load"], "00000000");
    } else {
        EXPECT_EQ(result["avi.exists"], "no");
    }
}

}  // namespace

TEST(DiskFull, JpegRecordingInTheCameraThread) {
    const ChildResult result = RunInChild([](Report& r) { return RecordCamcorder(r, 0, 0, false); });
    SCOPED_TRACE(result.text);
    ExpectCleanRecording(result);
    ExpectReadableFiles(result);
}

TEST(DiskFull, JpegRecordingOnTheSaveThread) {
    const ChildResult result = RunInChild([](Report& r) { return RecordCamcorder(r, 0, 1, false); });
    SCOPED_TRACE(result.text);
    ExpectCleanRecording(result);
    ExpectReadableFiles(result);
}

TEST(DiskFull, JpegRecordingOfCopiesOnTheSaveThread) {
    const ChildResult result = RunInChild([](Report& r) { return RecordCamcorder(r, 0, 2, false); });
    SCOPED_TRACE(result.text);
    ExpectCleanRecording(result);
    ExpectReadableFiles(result);
}

TEST(DiskFull, AviRecordingWhoseFileDoesNotFit) {
    const ChildResult result = RunInChild([](Report& r) { return RecordCamcorder(r, 2, 1, false); });
    SCOPED_TRACE(result.text);
    ExpectCleanRecording(result);
    ExpectWholeAviOrNone(result);
    if (result["disk"] == "tmpfs") {
        EXPECT_EQ(result["avi.exists"], "no");
    }
}

// The AVI writer keeps its coded frames in a nameless file in TMPDIR: here
// that lies on the small disk too, so the frames themselves stop fitting.
TEST(DiskFull, AviRecordingWhoseFramesDoNotFit) {
    const ChildResult result = RunInChild([](Report& r) { return RecordCamcorder(r, 2, 1, true); });
    SCOPED_TRACE(result.text);
    ExpectCleanRecording(result);
    ExpectWholeAviOrNone(result);
}

/// One line on what a stack save left on the small disk.
void PrintStackSave(const ChildResult& result) {
    std::printf("[ small disk ] %s: Save gave %s, %lld files, %lld bad, AVI %s\n", result["disk"].c_str(),
                result["save"].c_str(), result.Number("png.files"), result.Number("png.bad"),
                result["avi.exists"].c_str());
}

TEST(DiskFull, StackSavedAsImageSeries) {
    const ChildResult result = RunInChild([](Report& r) { return SaveStack(r, L"s.png"); });
    SCOPED_TRACE(result.text);
    PrintStackSave(result);
    EXPECT_TRUE(result.Survived()) << "status " << result.status;
    EXPECT_EQ(result["end"], "reached");
    EXPECT_EQ(result.Number("png.bad"), 0) << "a file was left that does not decode";
    if (result["disk"] == "tmpfs") {
        EXPECT_EQ(result["full"], "yes");
        EXPECT_GT(result.Number("png.files"), 0);
        EXPECT_LT(result.Number("png.files"), kFrames);
    }
}

TEST(DiskFull, StackSavedAsAvi) {
    const ChildResult result = RunInChild([](Report& r) { return SaveStack(r, L"s.avi"); });
    SCOPED_TRACE(result.text);
    PrintStackSave(result);
    EXPECT_TRUE(result.Survived()) << "status " << result.status;
    EXPECT_EQ(result["end"], "reached");
    ExpectWholeAviOrNone(result);
    if (result["disk"] == "tmpfs") {
        EXPECT_EQ(result["avi.exists"], "no");
    }
}
