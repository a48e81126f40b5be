#include "framework/FileNames/FileNameCollection.h"

#include <poll.h>
#include <time.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <system_error>
#include <unordered_set>
#include <utility>

#include "framework/FileNames/ExtCollection.h"
#include "framework/common/KitString.h"
#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CFileNameCollection, L"FileNameCollection")

// ISuperCollection derives from INamedCollection and ISimpleCollection, so
// its part answers all three.
const InterfaceEntry<CFileNameCollection> CFileNameCollection::kInterfaces[] = {
    InterfaceEntry<CFileNameCollection>::Of<IFileNameCollection>(IID_IFileNameCollection),
    InterfaceEntry<CFileNameCollection>::Of<ISuperCollection>(IID_ISuperCollection),
    InterfaceEntry<CFileNameCollection>::Of<ISuperCollection>(IID_INamedCollection),
    InterfaceEntry<CFileNameCollection>::Of<ISuperCollection>(IID_ISimpleCollection),
    InterfaceEntry<CFileNameCollection>::Of<IExtCollection>(IID_IExtCollection),
    InterfaceEntry<CFileNameCollection>::Of<IEventSource>(IID_IEventSource),
    InterfaceEntry<CFileNameCollection>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CFileNameCollection>::End(),
};

namespace {

HRESULT HandOut(const std::wstring& text, IString** out) {
    if (!out) return E_POINTER;
    *out = KitNewString(text).Detach();
    return *out ? S_OK : E_FAIL;
}

// Folder times come from a clock that runs in steps of a few milliseconds,
// so a file created just after a listing may leave the folder's time as the
// listing saw it. A time this close to the listing is not trusted: tracking
// reads the folder again until its time lies further back.
constexpr int64_t kTimeGrain = 100 * 1000000LL;

int64_t Now() {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

/// Reads the folder's time (before the folder itself is read); true when
/// it can stand for the listing that follows.
bool SettledFolderTime(const ListingTarget& target, int64_t& folderTime) {
    const int64_t listedAt = Now();
    return FolderModified(target, folderTime) && folderTime < listedAt - kTimeGrain;
}

bool PollingForced() {
    const char* value = std::getenv(CFileNameCollection::kPollingVariable);
    return value && *value && std::strcmp(value, "0") != 0;
}

}  // namespace

// ---------------------------------------------------------------------------
// Life

HRESULT CFileNameCollection::_CreateInstance(void* /*outer*/, const IID* iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!iid) return E_POINTER;
    auto* list = new (std::nothrow) CFileNameCollection();
    if (!list) return E_FAIL;
    // Its own (empty) table until one is given: the default applies meanwhile.
    HRESULT hr = CExtCollection::_CreateInstance(nullptr, &IID_IExtCollection, list->m_Table.OutVoid());
    list->m_WakeFd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (hr >= 0 && list->m_WakeFd < 0) hr = E_FAIL;
    if (hr >= 0) hr = list->QueryInterface(*iid, object);
    list->Release();  // the creation reference; destroys the list when anything failed
    return hr;
}

CFileNameCollection::~CFileNameCollection() {
    if (m_WakeFd >= 0) ::close(m_WakeFd);
}

HRESULT CFileNameCollection::QueryInterface(const IID& iid, void** object) {
    return QueryInterfaceFromTable<CFileNameCollection>(this, kInterfaces, iid, object);
}

uint32_t CFileNameCollection::AddRef() { return static_cast<uint32_t>(m_Refs.fetch_add(1) + 1); }

uint32_t CFileNameCollection::Release() {
    const int32_t remaining = m_Refs.fetch_sub(1) - 1;
    if (remaining == 0) {
        Shutdown();
        delete this;
    }
    return static_cast<uint32_t>(remaining);
}

bool CFileNameCollection::TryAddRef() {
    int32_t count = m_Refs.load();
    while (count > 0)
        if (m_Refs.compare_exchange_weak(count, count + 1)) return true;
    return false;
}

std::thread CFileNameCollection::RequestStop() {
    std::thread thread;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_StopRequested = true;
        m_Running = false;
        m_Closing = true;
        thread = std::move(m_Thread);
    }
    Wake();
    return thread;
}

void CFileNameCollection::Shutdown() {
    std::thread thread = RequestStop();
    if (thread.joinable()) {
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();  // the thread returns as soon as this Release does
        else
            thread.join();
    }
    // The sinks are not touched: the list holds no references.
}

bool CFileNameCollection::OnWatchThread() {
    std::lock_guard<std::mutex> guard(m_Lock);
    // A thread that left its loop may see its identifier reused.
    return !m_LoopEnded && m_ThreadId != std::thread::id() && m_ThreadId == std::this_thread::get_id();
}

void CFileNameCollection::Wake() {
    const uint64_t one = 1;
    // A full counter (never in practice) already wakes the thread.
    if (m_WakeFd >= 0 && ::write(m_WakeFd, &one, sizeof one) < 0) return;
}

// ---------------------------------------------------------------------------
// Listing

SmartPtr<IExtCollection> CFileNameCollection::Table() {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_Table;
}

ExtTable CFileNameCollection::TableRows() {
    // Read outside the lock: the table may be any object.
    ExtTable rows;
    if (!ExtTable::ReadFrom(Table().Get(), rows) || rows.rows.empty()) return ExtTable::Default();
    return rows;
}

ListingTarget CFileNameCollection::CurrentTarget() {
    std::wstring pattern;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        pattern = m_Pattern;
    }
    return ListingTargetOf(pattern);
}

bool CFileNameCollection::Before(int64_t aModified, const std::wstring& aName, int64_t bModified,
                                 const std::wstring& bName) const {
    if (!m_ByName && aModified != bModified) return aModified > bModified;
    return aName < bName;
}

int64_t CFileNameCollection::ModifiedOf(const std::wstring& name) const {
    auto found = m_Modified.find(name);
    // Entries added by hand count as the oldest.
    return found == m_Modified.end() ? INT64_MIN : found->second;
}

std::vector<CFileNameCollection::NewEntry> CFileNameCollection::CreateEntries(const std::vector<ListedFile>& files) {
    std::vector<NewEntry> entries;
    entries.reserve(files.size());
    for (const ListedFile& file : files) {
        SmartPtr<IFileArchive> archive;
        if (ExtCreateObject(file.className, IID_IFileArchive, archive.OutVoid()) < 0 || !archive) continue;
        SmartPtr<IString> name = KitNewString(file.fullName);
        if (!name || archive->put_Filename(name.Get()) < 0) continue;
        entries.push_back(NewEntry{file.fullName, SmartPtr<IUnknown>(archive.Get()), file.modified});
    }
    return entries;
}

HRESULT CFileNameCollection::Rebuild(const ListingTarget& target, std::vector<std::wstring>* listed) {
    ExtTable table = TableRows();
    int64_t folderTime = 0;
    const bool haveTime = SettledFolderTime(target, folderTime);
    std::vector<ListedFile> files;
    const bool read = ListFolder(target, table, files);
    bool byName;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        byName = m_ByName;
    }
    std::sort(files.begin(), files.end(), [byName](const ListedFile& a, const ListedFile& b) {
        if (!byName && a.modified != b.modified) return a.modified > b.modified;
        return a.fullName < b.fullName;
    });
    std::vector<NewEntry> created = CreateEntries(files);

    std::vector<Entry> entries;
    entries.reserve(created.size());
    std::unordered_map<std::wstring, int64_t> modified;
    if (listed) listed->clear();
    for (NewEntry& entry : created) {
        modified[entry.name] = entry.modified;
        if (listed) listed->push_back(entry.name);
        IUnknown* identity = KitIdentityOf(entry.item.Get());
        entries.push_back(Entry{std::move(entry.name), std::move(entry.item), identity});
    }
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        m_Entries.swap(entries);
        m_Modified.swap(modified);
        m_HaveFolderTime = haveTime;
        m_FolderTime = folderTime;
        // A change of order while the folder was read is applied now.
        if (m_ByName != byName)
            std::stable_sort(m_Entries.begin(), m_Entries.end(), [this](const Entry& a, const Entry& b) {
                return Before(ModifiedOf(a.name), a.name, ModifiedOf(b.name), b.name);
            });
    }
    // The old entries (now in `entries`) are released here, outside the lock.
    return read ? S_OK : E_FAIL;
}

std::vector<ListedFile> CFileNameCollection::Unlisted(std::vector<ListedFile> files) {
    if (files.empty()) return files;
    std::lock_guard<std::mutex> guard(m_Lock);
    std::unordered_set<std::wstring> names;
    for (const Entry& entry : m_Entries) names.insert(entry.name);
    std::erase_if(files, [&names](const ListedFile& file) { return names.count(file.fullName) != 0; });
    return files;
}

std::vector<std::wstring> CFileNameCollection::AddUnlisted(std::vector<ListedFile> files) {
    std::vector<std::wstring> added;
    files = Unlisted(std::move(files));
    if (files.empty()) return added;
    std::vector<NewEntry> created = CreateEntries(files);
    std::vector<IUnknown*> identities;
    for (const NewEntry& entry : created) identities.push_back(KitIdentityOf(entry.item.Get()));

    std::lock_guard<std::mutex> guard(m_Lock);
    // Another listing may have added some of them meanwhile.
    std::unordered_set<std::wstring> names;
    for (const Entry& entry : m_Entries) names.insert(entry.name);
    std::vector<size_t> order;
    for (size_t i = 0; i < created.size(); ++i)
        if (names.insert(created[i].name).second) order.push_back(i);
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        return Before(created[a].modified, created[a].name, created[b].modified, created[b].name);
    });
    // One merge pass: each new entry goes before the first entry that
    // comes after it.
    std::vector<Entry> merged;
    merged.reserve(m_Entries.size() + order.size());
    size_t next = 0;
    for (Entry& entry : m_Entries) {
        const int64_t entryModified = ModifiedOf(entry.name);
        while (next < order.size()) {
            NewEntry& fresh = created[order[next]];
            if (!Before(fresh.modified, fresh.name, entryModified, entry.name)) break;
            merged.push_back(Entry{fresh.name, std::move(fresh.item), identities[order[next]]});
            ++next;
        }
        merged.push_back(std::move(entry));
    }
    for (; next < order.size(); ++next) {
        NewEntry& fresh = created[order[next]];
        merged.push_back(Entry{fresh.name, std::move(fresh.item), identities[order[next]]});
    }
    m_Entries.swap(merged);
    for (size_t i : order) {
        m_Modified[created[i].name] = created[i].modified;
        added.push_back(created[i].name);
    }
    return added;
    // Objects made for files that were listed meanwhile are released after the lock.
}

void CFileNameCollection::FollowFolder() {
    std::wstring pattern;
    bool haveTime;
    int64_t lastTime;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (!m_Tracking) return;
        pattern = m_Pattern;
        haveTime = m_HaveFolderTime;
        lastTime = m_FolderTime;
    }
    ListingTarget target = ListingTargetOf(pattern);
    int64_t folderTime = 0;
    const bool settled = SettledFolderTime(target, folderTime);
    if (haveTime && folderTime == lastTime) return;
    std::vector<ListedFile> files;
    if (!ListFolder(target, TableRows(), files)) return;
    AddUnlisted(std::move(files));
    std::lock_guard<std::mutex> guard(m_Lock);
    // The time read before the folder was: a change during the read is
    // seen next time.
    m_HaveFolderTime = settled;
    m_FolderTime = folderTime;
}

// ---------------------------------------------------------------------------
// IFileNameCollection

HRESULT CFileNameCollection::get_Pattern(IString** pattern) {
    if (!pattern) return E_POINTER;
    *pattern = nullptr;
    std::wstring text;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        text = m_Pattern;
    }
    return HandOut(text, pattern);
}

HRESULT CFileNameCollection::put_Extensions(IExtCollection* table) {
    if (!table) return E_POINTER;
    SmartPtr<IExtCollection> use(table);
    // A file list (this one included) lends the table it uses, so that
    // tables never forward to each other in a circle.
    if (SmartPtr<IFileNameCollection> list = QueryAs<IFileNameCollection>(table, IID_IFileNameCollection)) {
        HRESULT hr = list->get_Extensions(use.Out());
        if (hr < 0 || !use) return hr < 0 ? hr : E_FAIL;
    }
    std::lock_guard<std::mutex> guard(m_Lock);
    std::swap(m_Table, use);
    return S_OK;
    // The table used before is released after the lock.
}

HRESULT CFileNameCollection::Rescan() { return Rebuild(CurrentTarget(), nullptr); }

HRESULT CFileNameCollection::get_Extensions(IExtCollection** table) {
    if (!table) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Table.CopyTo(table);
    return S_OK;
}

HRESULT CFileNameCollection::get_Folder(IString** folder) {
    if (!folder) return E_POINTER;
    *folder = nullptr;
    return HandOut(CurrentTarget().folder, folder);
}

HRESULT CFileNameCollection::put_Pattern(IString* pattern) {
    std::wstring text = KitTextOf(pattern);
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Pattern.swap(text);
    m_HaveFolderTime = false;
    return S_OK;
}

HRESULT CFileNameCollection::get_Tracking(int32_t* on) {
    if (!on) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    *on = m_Tracking ? 1 : 0;
    return S_OK;
}

HRESULT CFileNameCollection::get_Option(int32_t option, int32_t* value) {
    if (!value) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    switch (option) {
        case kAnnounce: *value = m_AnnounceNew ? 1 : 0; return S_OK;
        case kOrder: *value = m_ByName ? 1 : 0; return S_OK;
        case kPeriod: *value = m_Period; return S_OK;
        default: return E_INVALIDARG;
    }
}

HRESULT CFileNameCollection::put_Tracking(int32_t on) {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Tracking = on != 0;
    return S_OK;
}

HRESULT CFileNameCollection::put_Option(int32_t option, int32_t value) {
    std::lock_guard<std::mutex> guard(m_Lock);
    switch (option) {
        case kAnnounce:
            m_AnnounceNew = value != 0;
            return S_OK;
        case kOrder:
            if (value != 0 && value != 1) return E_INVALIDARG;
            if (m_ByName != (value == 1)) {
                m_ByName = value == 1;
                std::stable_sort(m_Entries.begin(), m_Entries.end(), [this](const Entry& a, const Entry& b) {
                    return Before(ModifiedOf(a.name), a.name, ModifiedOf(b.name), b.name);
                });
            }
            return S_OK;
        case kPeriod:
            m_Period = std::max(value, kMinimumPeriod);
            return S_OK;
        default:
            return E_INVALIDARG;
    }
}

HRESULT CFileNameCollection::Start(int32_t announceExisting) {
    const bool onWatchThread = OnWatchThread();
    std::unique_lock<std::mutex> control(m_ControlLock, std::defer_lock);
    if (!onWatchThread) control.lock();

    {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (m_Closing) return E_FAIL;  // being stopped from outside, from inside its own event
    }
    ListingTarget target = CurrentTarget();
    if (!FolderExists(target)) return E_FAIL;
    // The watch begins before the listing, so that no file completed in
    // between is missed; one completed in both is simply listed already.
    std::unique_ptr<FolderWatch> watch;
    if (!PollingForced()) watch = FolderWatch::Open(target.osFolder);
    std::vector<std::wstring> listed;
    Rebuild(target, &listed);

    std::lock_guard<std::mutex> guard(m_Lock);
    if (m_Closing) return E_FAIL;  // being stopped from outside, from inside its own event
    if (m_LoopEnded && m_Thread.joinable()) {
        // A thread that stopped by itself has left its loop: joining it
        // does not wait on anything held here.
        m_Thread.join();
        m_ThreadId = std::thread::id();
    }
    m_NextTarget = target;
    m_NextWatch = std::move(watch);
    if (announceExisting)
        m_NextAnnounce.swap(listed);
    else
        m_NextAnnounce.clear();
    ++m_Generation;
    m_StopRequested = false;
    m_Running = true;
    if (!m_Thread.joinable()) {
        m_LoopEnded = false;
        try {
            m_Thread = std::thread(&CFileNameCollection::WatchLoop, this);
        } catch (const std::system_error&) {
            m_Running = false;
            m_NextWatch.reset();
            m_NextAnnounce.clear();
            return E_FAIL;
        }
        m_ThreadId = m_Thread.get_id();
    } else {
        Wake();  // the running thread takes the new folder
    }
    return S_OK;
}

HRESULT CFileNameCollection::Stop() {
    if (OnWatchThread()) {
        // From a sink on the watch thread: it cannot join itself, so it
        // only asks itself to end after the current event.
        std::lock_guard<std::mutex> guard(m_Lock);
        m_StopRequested = true;
        m_Running = false;
        return S_OK;
    }
    std::lock_guard<std::mutex> control(m_ControlLock);
    std::thread thread = RequestStop();
    if (thread.joinable()) thread.join();
    std::unique_ptr<FolderWatch> unused;
    std::lock_guard<std::mutex> guard(m_Lock);
    m_ThreadId = std::thread::id();
    m_Closing = false;
    m_LoopEnded = false;
    unused = std::move(m_NextWatch);
    m_NextAnnounce.clear();
    return S_OK;
}

HRESULT CFileNameCollection::IsRunning() {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_Running ? S_OK : S_FALSE;
}

HRESULT CFileNameCollection::get_Entry(int32_t index, IUnknown** entry) { return get_Item(index, entry); }

HRESULT CFileNameCollection::get_Count(int32_t* count) {
    if (!count) return E_POINTER;
    FollowFolder();
    return LockedSuperCollectionImpl::get_Count(count);
}

HRESULT CFileNameCollection::get_Item(int32_t index, IUnknown** item) {
    if (!item) return E_POINTER;
    FollowFolder();
    return LockedSuperCollectionImpl::get_Item(index, item);
}

// ---------------------------------------------------------------------------
// The watch thread

void CFileNameCollection::WatchLoop() {
    uint64_t generation = 0;
    ListingTarget target;
    std::unique_ptr<FolderWatch> watch;
    // Looking at the folder: files not listed yet, with their size at the
    // last look.
    std::unordered_map<std::wstring, int64_t> growing;
    for (;;) {
        std::vector<std::wstring> announce;
        int32_t period;
        {
            std::lock_guard<std::mutex> guard(m_Lock);
            if (m_StopRequested) {
                m_LoopEnded = true;
                return;
            }
            if (generation != m_Generation) {
                generation = m_Generation;
                target = m_NextTarget;
                watch = std::move(m_NextWatch);
                announce.swap(m_NextAnnounce);
                growing.clear();
            }
            period = m_Period;
        }
        if (!Announce(announce)) return;

        pollfd waits[2] = {{m_WakeFd, POLLIN, 0}, {watch ? watch->Descriptor() : -1, POLLIN, 0}};
        ::poll(waits, watch ? 2 : 1, period);
        uint64_t wakes;
        if (::read(m_WakeFd, &wakes, sizeof wakes) < 0) wakes = 0;  // EAGAIN: nobody woke it
        {
            std::lock_guard<std::mutex> guard(m_Lock);
            if (m_StopRequested || generation != m_Generation) continue;
        }

        std::vector<ListedFile> complete;
        if (watch) {
            FolderWatch::Changes changes;
            watch->Read(changes);
            if (changes.complete.empty() && !changes.lost && !changes.gone) continue;
            ExtTable table = TableRows();
            if (changes.lost || changes.gone) {
                // Events were dropped: every file not listed yet is taken.
                ListFolder(target, table, complete);
            } else {
                ListedFile file;
                for (const std::string& name : changes.complete)
                    if (MatchListedFile(target, table, name, file)) complete.push_back(std::move(file));
            }
            // Without its folder the watch goes on looking, in case the
            // folder comes back.
            if (changes.gone) watch.reset();
        } else {
            std::vector<ListedFile> files;
            ListFolder(target, TableRows(), files);
            std::unordered_map<std::wstring, int64_t> sizes;
            for (ListedFile& file : Unlisted(std::move(files))) {
                auto seen = growing.find(file.fullName);
                if (seen != growing.end() && seen->second == file.size)
                    complete.push_back(std::move(file));
                else
                    sizes[file.fullName] = file.size;
            }
            growing.swap(sizes);
        }
        if (!Announce(AddUnlisted(std::move(complete)))) return;
    }
}

bool CFileNameCollection::Announce(const std::vector<std::wstring>& names) {
    for (const std::wstring& name : names) {
        {
            std::lock_guard<std::mutex> guard(m_Lock);
            if (m_StopRequested || !m_AnnounceNew) return true;
        }
        // Refused only while the last reference is being released on
        // another thread, which then joins this one.
        if (!TryAddRef()) return false;
        Fire(name);
        if (Release() == 0) return false;  // a sink let go of the list: it is gone now
    }
    return true;
}

void CFileNameCollection::Fire(const std::wstring& name) {
    SmartPtr<IString> text = KitNewString(name);
    if (!text) return;
    std::vector<IUnknown*> sinks;
    {
        std::lock_guard<std::mutex> guard(m_AdviseLock);
        for (const Sink& sink : m_Sinks) sinks.push_back(sink.pointer);
    }
    for (IUnknown* pointer : sinks) {
        SmartPtr<_IFileNameCollectionEvent> events;
        {
            // Asked under the advise lock: a sink that unadvises before it
            // goes away is either still registered here or never asked.
            std::lock_guard<std::mutex> guard(m_AdviseLock);
            bool registered = std::any_of(m_Sinks.begin(), m_Sinks.end(),
                                          [pointer](const Sink& sink) { return sink.pointer == pointer; });
            if (registered) pointer->QueryInterface(IID__IFileNameCollectionEvent, events.OutVoid());
        }
        if (events) events->NewFile(PrimaryUnknown(), text.Get());
    }
}

// ---------------------------------------------------------------------------
// IExtCollection: the table in use

HRESULT CFileNameCollection::get_ExtensionCount(int32_t* count) { return Table()->get_ExtensionCount(count); }

HRESULT CFileNameCollection::get_Extension(int32_t index, IString** extension) {
    return Table()->get_Extension(index, extension);
}

HRESULT CFileNameCollection::get_ExtensionClass(int32_t index, IString** className) {
    return Table()->get_ExtensionClass(index, className);
}

int32_t CFileNameCollection::FindExtension(tagREFString extension) { return Table()->FindExtension(extension); }

HRESULT CFileNameCollection::get_ClassFor(tagREFString extension, IString** className) {
    return Table()->get_ClassFor(extension, className);
}

HRESULT CFileNameCollection::RemoveExtension(tagREFString extension) { return Table()->RemoveExtension(extension); }

HRESULT CFileNameCollection::CopyExtensions(IExtCollection* source) { return Table()->CopyExtensions(source); }

HRESULT CFileNameCollection::CreateFor(tagREFString fileName, const IID* iid, void** object) {
    return Table()->CreateFor(fileName, iid, object);
}

HRESULT CFileNameCollection::AddExtension(tagREFString extension, tagREFString className) {
    return Table()->AddExtension(extension, className);
}

HRESULT CFileNameCollection::get_MatchCase(int32_t* on) { return Table()->get_MatchCase(on); }

HRESULT CFileNameCollection::put_MatchCase(int32_t on) { return Table()->put_MatchCase(on); }

HRESULT CFileNameCollection::ClearExtensions() { return Table()->ClearExtensions(); }

// ---------------------------------------------------------------------------
// IEventSource: plain pointers, never called while registering

HRESULT CFileNameCollection::Advise(IUnknown* sink, int32_t flags) {
    std::lock_guard<std::mutex> guard(m_AdviseLock);
    if (flags == 0) {
        if (!sink) {
            m_Sinks.clear();
            return S_OK;
        }
        const size_t before = m_Sinks.size();
        std::erase_if(m_Sinks, [sink](const Sink& item) { return item.pointer == sink; });
        return m_Sinks.size() < before ? S_OK : E_FAIL;
    }
    if (!sink) return E_POINTER;
    for (const Sink& item : m_Sinks)
        if (item.pointer == sink) return S_FALSE;
    if (flags == 2) {
        for (Sink& item : m_Sinks) {
            if (item.flags == 2) {
                item.pointer = sink;
                return S_OK;
            }
        }
    }
    try {
        m_Sinks.push_back(Sink{sink, flags});
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CFileNameCollection::GetAdviseCount() {
    std::lock_guard<std::mutex> guard(m_AdviseLock);
    return static_cast<HRESULT>(m_Sinks.size());
}

HRESULT CFileNameCollection::GetAdviseItem(uint32_t index, IUnknown** sink, int32_t* flags) {
    std::lock_guard<std::mutex> guard(m_AdviseLock);
    if (index >= m_Sinks.size()) {
        if (sink) *sink = nullptr;
        return E_FAIL;
    }
    const Sink& item = m_Sinks[index];
    if (flags) *flags = item.flags;
    if (sink) {
        *sink = item.pointer;
        item.pointer->AddRef();
    }
    return S_OK;
}
