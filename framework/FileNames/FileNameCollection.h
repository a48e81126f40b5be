// "FileNameCollection": the image files of a folder as a list of entries,
// one file-backed object per file, optionally following the folder and
// announcing new files.
//
// - The pattern (put_Pattern) names the folder and optionally a wild-card
//   or one file (FolderListing.h). Rescan rebuilds the list from it; every
//   entry is an object of the class that the extension table names for the
//   file's extension, named by the file's full name and not loaded.
// - Order (option 9): 1 by name, 0 newest first; new entries are merged in
//   that order.
// - Tracking: while on, reading the count or an entry first adds the files
//   that appeared since the folder last changed.
// - Watch: Start runs a thread that waits for files to become complete
//   (inotify; where the kernel cannot notify, it looks at the folder every
//   option-10 milliseconds and takes a file once its size stood still
//   between two looks), adds them and, with option 8 on, calls NewFile on
//   the sinks.
//
// The event source keeps plain pointers without references and never calls
// a sink while registering it, so that an owner that is its own sink can
// keep the collection without a reference cycle. A sink is asked for
// _IFileNameCollectionEvent only when an event is delivered.
//
// Lifetime: the watch thread holds a reference only while it announces a
// file, so the collection stays whole for its sinks during the event. When
// the last reference goes on the watch thread (a sink let go inside the
// event), the thread is detached and ends by itself; otherwise destruction
// stops and joins it.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "framework/FileNames/ExtTable.h"
#include "framework/FileNames/FolderListing.h"
#include "framework/FileNames/FolderWatch.h"
#include "framework/FileNames/LockedSuperCollection.h"
#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"

class CFileNameCollection final : public IFileNameCollection,
                                  public LockedSuperCollectionImpl,
                                  public IExtCollection,
                                  public IEventSource,
                                  public IObjectInfoImpl<CFileNameCollection> {
public:
    /// Options of put_Option / get_Option.
    enum : int32_t { kAnnounce = 8, kOrder = 9, kPeriod = 10 };
    static constexpr int32_t kDefaultPeriod = 500;
    static constexpr int32_t kMinimumPeriod = 10;
    /// Set to anything but "0", this environment variable makes the watch
    /// look at the folder periodically even where inotify is available.
    static constexpr const char* kPollingVariable = "LUM_WATCH_POLLING";

    static HRESULT _CreateInstance(void* outer, const IID* iid, void** object);
    static const InterfaceEntry<CFileNameCollection> kInterfaces[];
    IUnknown* PrimaryUnknown() { return static_cast<IFileNameCollection*>(this); }

    // IUnknown
    HRESULT QueryInterface(const IID& iid, void** object) override;
    uint32_t AddRef() override;
    uint32_t Release() override;

    // IFileNameCollection
    HRESULT get_Pattern(IString** pattern) override;
    /// Uses `table` from now on; a file list given as table lends its own.
    HRESULT put_Extensions(IExtCollection* table) override;
    /// Rebuilds the list; E_FAIL (and an empty list) when the folder cannot
    /// be read.
    HRESULT Rescan() override;
    HRESULT get_Extensions(IExtCollection** table) override;
    HRESULT get_Folder(IString** folder) override;
    /// Null or empty: list nothing. Does not rescan.
    HRESULT put_Pattern(IString* pattern) override;
    HRESULT get_Tracking(int32_t* on) override;
    HRESULT get_Option(int32_t option, int32_t* value) override;
    HRESULT put_Tracking(int32_t on) override;
    HRESULT Stop() override;
    HRESULT IsRunning() override;
    /// 8: announce (non-zero = on); 9: order, 0 or 1 (the list is re-sorted
    /// at once); 10: period in ms, raised to at least 10.
    HRESULT put_Option(int32_t option, int32_t value) override;
    /// Re-lists the folder and watches it; when already watching, watches
    /// the folder of the current pattern instead. E_FAIL when the pattern
    /// names no existing folder.
    HRESULT Start(int32_t announceExisting) override;
    HRESULT get_Entry(int32_t index, IUnknown** entry) override;

    // ISimpleCollection, following the folder first while tracking.
    HRESULT get_Count(int32_t* count) override;
    HRESULT get_Item(int32_t index, IUnknown** item) override;

    // IExtCollection: the operations of the table in use.
    HRESULT get_ExtensionCount(int32_t* count) override;
    HRESULT get_Extension(int32_t index, IString** extension) override;
    HRESULT get_ExtensionClass(int32_t index, IString** className) override;
    int32_t FindExtension(tagREFString extension) override;
    HRESULT get_ClassFor(tagREFString extension, IString** className) override;
    HRESULT RemoveExtension(tagREFString extension) override;
    HRESULT CopyExtensions(IExtCollection* source) override;
    HRESULT CreateFor(tagREFString fileName, const IID* iid, void** object) override;
    HRESULT AddExtension(tagREFString extension, tagREFString className) override;
    HRESULT get_MatchCase(int32_t* on) override;
    HRESULT put_MatchCase(int32_t on) override;
    HRESULT ClearExtensions() override;

    // IEventSource (no references, plain pointers).
    HRESULT Advise(IUnknown* sink, int32_t flags) override;
    HRESULT GetAdviseCount() override;
    HRESULT GetAdviseItem(uint32_t index, IUnknown** sink, int32_t* flags) override;

private:
    struct Sink {
        IUnknown* pointer;
        int32_t flags;
    };
    /// A new entry before it joins the list.
    struct NewEntry {
        std::wstring name;
        SmartPtr<IUnknown> item;
        int64_t modified;
    };

    CFileNameCollection() = default;
    ~CFileNameCollection();

    /// A reference for the watch thread, refused once the count reached zero.
    bool TryAddRef();
    /// Stops the watch (detaching the thread when this is that thread); runs
    /// once, when the last reference goes.
    void Shutdown();
    /// Raises the stop flags, takes the watch thread out and wakes it.
    std::thread RequestStop();
    bool OnWatchThread();
    void Wake();

    SmartPtr<IExtCollection> Table();
    /// The table in use, read; the default table while it is empty.
    ExtTable TableRows();
    ListingTarget CurrentTarget();
    /// True when entry `a` (modified, name) comes before `b`. Call with m_Lock held.
    bool Before(int64_t aModified, const std::wstring& aName, int64_t bModified, const std::wstring& bName) const;
    int64_t ModifiedOf(const std::wstring& name) const;
    /// Objects for the files, in the given order; files whose object cannot
    /// be made are left out.
    static std::vector<NewEntry> CreateEntries(const std::vector<ListedFile>& files);
    /// Replaces the whole list by the target's files; `listed` receives their names.
    HRESULT Rebuild(const ListingTarget& target, std::vector<std::wstring>* listed);
    /// The files that have no entry of their name.
    std::vector<ListedFile> Unlisted(std::vector<ListedFile> files);
    /// Adds entries for the files not listed yet, merged in list order;
    /// returns the names added, in list order.
    std::vector<std::wstring> AddUnlisted(std::vector<ListedFile> files);
    /// Tracking: adds new files when the folder changed since it was last read.
    void FollowFolder();

    void WatchLoop();
    /// Announces the names in order while the watch runs and option 8 is
    /// on; false when the collection was destroyed meanwhile.
    bool Announce(const std::vector<std::wstring>& names);
    void Fire(const std::wstring& name);

    std::atomic<int32_t> m_Refs{1};

    // Guarded by m_Lock (LockedSuperCollectionImpl), as are the entries.
    std::wstring m_Pattern;
    SmartPtr<IExtCollection> m_Table;
    bool m_Tracking = false;
    bool m_AnnounceNew = false;
    bool m_ByName = true;
    int32_t m_Period = kDefaultPeriod;
    bool m_HaveFolderTime = false;  // m_FolderTime is settled (FileNameCollection.cpp)
    int64_t m_FolderTime = 0;       // the folder's modification time when it was last read
    std::unordered_map<std::wstring, int64_t> m_Modified;  // listed files' modification times

    // The watch, also guarded by m_Lock. Start hands the thread what to
    // watch next through m_Next* and a new generation number.
    std::thread m_Thread;
    std::thread::id m_ThreadId;  // of m_Thread until it is joined
    bool m_Running = false;
    bool m_StopRequested = false;
    bool m_LoopEnded = false;    // the thread left its loop and only waits to be joined
    bool m_Closing = false;      // stopped from outside: the thread may not be revived
    uint64_t m_Generation = 0;
    ListingTarget m_NextTarget;
    std::unique_ptr<FolderWatch> m_NextWatch;  // null: look at the folder periodically
    std::vector<std::wstring> m_NextAnnounce;
    int m_WakeFd = -1;  // eventfd that interrupts the thread's wait
    // Serialises Start and Stop called from outside the watch thread.
    std::mutex m_ControlLock;

    std::mutex m_AdviseLock;
    std::vector<Sink> m_Sinks;
};
LUM_KIT_OBJECT_NAME_DECLARE(CFileNameCollection)
