// Small fake framework objects for tests, built from the module's own
// object-model templates. Each counts its live instances, so a test can see
// that everything a component created was given back.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "lum/lum.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "module/object/ObjectInfo.h"

/// Live-instance counter of a fake class.
template <class T>
struct InstanceCounter {
    static inline std::atomic<int> live{0};
    static inline std::atomic<int> created{0};
    InstanceCounter() { ++live; ++created; }
    ~InstanceCounter() { --live; }
};

/// An image stack that only records what it was told.
class FakeStack final : public CObject<FakeStack>,
                        public IStackCollection,
                        public ISimpleCollection,
                        public InstanceCounter<FakeStack> {
    LUM_OBJECT_UNKNOWN(FakeStack)
public:
    HRESULT Add(IUnknown*) override { return S_OK; }
    HRESULT RemoveNewest(IUnknown** item) override { *item = nullptr; return E_FAIL; }
    HRESULT RemoveOldest(IUnknown** item) override { *item = nullptr; return E_FAIL; }
    HRESULT get_Newest(IUnknown** item) override { *item = nullptr; return E_FAIL; }
    HRESULT get_Oldest(IUnknown** item) override { *item = nullptr; return E_FAIL; }
    HRESULT RemoveAll() override { return S_OK; }
    HRESULT GetSize(int32_t* capacity, int32_t* count) override {
        if (capacity) *capacity = m_Capacity;
        if (count) *count = 0;
        return S_OK;
    }
    HRESULT SetSize(int32_t capacity, int32_t mode) override {
        m_Capacity = capacity;
        m_Mode = mode;
        return S_OK;
    }
    HRESULT get_Count(int32_t* count) override { *count = 0; return S_OK; }
    HRESULT get_Item(int32_t, IUnknown** item) override { *item = nullptr; return E_INVALIDARG; }

    int32_t m_Capacity = 0;
    int32_t m_Mode = 0;
};

/// An image writer that writes nothing.
class FakeArchive final : public CObject<FakeArchive>, public ILUMArchive, public InstanceCounter<FakeArchive> {
    LUM_OBJECT_UNKNOWN(FakeArchive)
public:
    HRESULT Read(IString*, ILUM** image) override { *image = nullptr; return E_FAIL; }
    HRESULT Write(IString*, ILUM*, int32_t) override { return S_OK; }
};

/// A canvas image without pixels.
class FakeCanvas final : public CObject<FakeCanvas>, public ILUMImageCANVAS, public InstanceCounter<FakeCanvas> {
    LUM_OBJECT_UNKNOWN(FakeCanvas)
public:
    HRESULT get_Width(int32_t* v) override { *v = 0; return S_OK; }
    HRESULT get_Height(int32_t* v) override { *v = 0; return S_OK; }
    HRESULT get_BitsPerPixel(int32_t* v) override { *v = 0; return S_OK; }
    HRESULT get_Stride(int32_t* v) override { *v = 0; return S_OK; }
    HRESULT get_Bits(uint8_t** p) override { *p = nullptr; return S_OK; }
    HRESULT Create(int32_t, int32_t, int32_t) override { return S_OK; }
    HRESULT Copy(ILUM*, int32_t) override { return S_OK; }
    HRESULT get_Rect(CANVASRect* r) override { *r = m_Rect; return S_OK; }
    HRESULT put_Rect(CANVASRect r) override { m_Rect = r; return S_OK; }
    CANVASRect m_Rect{};
};

/// A file list and extension table that records the calls made on it. Its
/// event source keeps sinks without a reference and compares plain pointers,
/// as the framework's file list does.
class FakeFileNames final : public CObject<FakeFileNames>,
                            public IFileNameCollection,
                            public IExtCollection,
                            public IEventSource,
                            public InstanceCounter<FakeFileNames> {
    LUM_OBJECT_UNKNOWN(FakeFileNames)
public:
    FakeFileNames() { last = this; }
    /// The instance created most recently.
    static inline FakeFileNames* last = nullptr;

    // IFileNameCollection
    HRESULT get_Pattern(IString** p) override { *p = nullptr; return E_FAIL; }
    HRESULT put_Extensions(IExtCollection* table) override { m_ExtensionTable.Assign(table); return S_OK; }
    HRESULT Rescan() override { return S_OK; }
    HRESULT get_Extensions(IExtCollection** t) override { *t = nullptr; return E_FAIL; }
    HRESULT get_Folder(IString** f) override { *f = nullptr; return E_FAIL; }
    HRESULT put_Pattern(IString*) override { return S_OK; }
    HRESULT get_Tracking(int32_t* on) override { *on = 0; return S_OK; }
    HRESULT get_Option(int32_t option, int32_t* value) override { *value = m_Options[option]; return S_OK; }
    HRESULT put_Tracking(int32_t) override { return S_OK; }
    HRESULT Stop() override { ++m_Stops; return S_OK; }
    HRESULT IsRunning() override { return S_FALSE; }
    HRESULT put_Option(int32_t option, int32_t value) override {
        m_Options[option] = value;
        m_OptionOrder.push_back(option);
        return S_OK;
    }
    HRESULT Start(int32_t) override { return S_OK; }
    HRESULT get_Entry(int32_t, IUnknown** e) override { *e = nullptr; return E_INVALIDARG; }
    // IExtCollection
    HRESULT get_ExtensionCount(int32_t* c) override { *c = static_cast<int32_t>(m_Extensions.size()); return S_OK; }
    HRESULT get_Extension(int32_t, IString** e) override { *e = nullptr; return E_NOTIMPL; }
    HRESULT get_ExtensionClass(int32_t, IString** c) override { *c = nullptr; return E_NOTIMPL; }
    int32_t FindExtension(tagREFString) override { return -1; }
    HRESULT get_ClassFor(tagREFString, IString** c) override { *c = nullptr; return E_FAIL; }
    HRESULT RemoveExtension(tagREFString) override { return E_FAIL; }
    HRESULT CopyExtensions(IExtCollection*) override { return E_NOTIMPL; }
    HRESULT CreateFor(tagREFString, const IID*, void** o) override { *o = nullptr; return E_FAIL; }
    HRESULT AddExtension(tagREFString extension, tagREFString className) override {
        m_Extensions.emplace_back(std::wstring(extension.text, extension.length),
                                  std::wstring(className.text, className.length));
        return S_OK;
    }
    HRESULT get_MatchCase(int32_t* on) override { *on = 0; return S_OK; }
    HRESULT put_MatchCase(int32_t) override { return S_OK; }
    HRESULT ClearExtensions() override { m_Extensions.clear(); ++m_Clears; return S_OK; }
    // IEventSource without references
    HRESULT Advise(IUnknown* sink, int32_t flags) override {
        m_Advises.emplace_back(sink, flags);
        if (flags == 0) return E_FAIL;
        for (IUnknown* s : m_Sinks)
            if (s == sink) return S_FALSE;
        m_Sinks.push_back(sink);
        return S_OK;
    }
    HRESULT GetAdviseCount() override { return static_cast<HRESULT>(m_Sinks.size()); }
    HRESULT GetAdviseItem(uint32_t, IUnknown** sink, int32_t*) override { if (sink) *sink = nullptr; return E_FAIL; }

    std::map<int32_t, int32_t> m_Options;
    std::vector<int32_t> m_OptionOrder;
    std::vector<std::pair<std::wstring, std::wstring>> m_Extensions;
    std::vector<std::pair<IUnknown*, int32_t>> m_Advises;
    std::vector<IUnknown*> m_Sinks;
    SmartPtr<IExtCollection> m_ExtensionTable;  // kept with a reference
    int m_Stops = 0;
    int m_Clears = 0;
};

/// A sink counting the events it receives and what it was given.
class CountingSink final : public CObject<CountingSink>, public _ICameraEvents, public InstanceCounter<CountingSink> {
    LUM_OBJECT_UNKNOWN(CountingSink)
public:
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override {
        ++m_Events;
        m_LastCount = count;
        m_LastCamera = camera;
        if (m_OnEvent) m_OnEvent(this);
        return S_OK;
    }
    std::atomic<int> m_Events{0};
    int32_t m_LastCount = 0;
    IUnknown* m_LastCamera = nullptr;
    void (*m_OnEvent)(CountingSink*) = nullptr;
    void* m_Context = nullptr;
};

/// An object that answers nothing but IUnknown.
class PlainObject final : public CObject<PlainObject>, public InstanceCounter<PlainObject> {
    LUM_OBJECT_UNKNOWN(PlainObject)
};

/// A component collection that resolves its own registrations first and
/// everything else through the real global collection; counts references.
class FakeCollection final : public CObject<FakeCollection>, public IComponentCollection {
    LUM_OBJECT_UNKNOWN(FakeCollection)
public:
    HRESULT CreateObject(tagREFString className, const IID* iid, void** object) override;
    HRESULT GetCreateFunction(tagREFString className, void** creator) override;
    HRESULT RegisterCreateFunction(tagREFString className, void* creator) override;

    /// Resolve `className` with `creator`, or refuse it when `creator` is null.
    void Set(const wchar_t* className, CreateInstanceFunction creator);

    std::atomic<int> m_Creations{0};

private:
    std::mutex m_Mutex;
    std::map<std::wstring, CreateInstanceFunction> m_Classes;
};

/// A host collection resolving every framework class the components create at
/// construction ("LUMStack", "LUMArchive", "FileNameCollection",
/// "ExtCollection", "LUMImageCANVAS") with the fakes above.
SmartPtr<FakeCollection> MakeComponentHost();
