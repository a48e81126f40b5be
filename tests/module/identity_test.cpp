// What each of the five components answers to QueryInterface, and how
// creation and release treat the objects a component owns.
#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/ModuleHost.h"

namespace {

// One row of a component's identity table: the identifier and the part that
// answers it. Rows naming the same part must give the same pointer; "*" is
// the primary pointer (the IUnknown answer); "->" rows are forwarded to a
// member object.
struct Row {
    const IID* iid;
    const char* part;
};

struct ClassCase {
    const wchar_t* name;
    std::vector<Row> rows;
};

std::vector<ClassCase> Classes() {
    return {
        {L"LUMCamcorder",
         {{&IID_IObjectInfo, "info"},
          {&IID_IDataPersist, "persist"},
          {&IID_ICamera, "camcorder"},
          {&IID_ICamcorder, "arm"},
          {&IID_ICamcorderArm, "arm"},
          {&IID_ILUMCamcorder, "camcorder"},
          {&IID_IEventSource, "events"},
          {&IID_IUIPropInterrogate, "params"},
          {&IID_IUIPropInterrogateEx, "params"},
          {&IID_IUIPropertyPageSpecify, "pages"},
          {&IID_IMMControlEx, "mm"},
          {&IID_IMMControl, "mm"},
          {&IID__ICameraEvents, "sink"},
          {&IID_IStackCollection, "->"},
          {&IID_ISimpleCollection, "->"}}},
        {L"LUMStackCamcorder",
         {{&IID_IObjectInfo, "info"},
          {&IID_ICamera, "camera"},
          {&IID_IDataPersist, "persist"},
          {&IID_IUIPropertyPageSpecify, "pages"},
          {&IID_IEventSource, "events"},
          {&IID_IUIPropInterrogate, "params"},
          {&IID_IFileArchive, "archive"},
          {&IID_ICamcorder, "camcorder"},
          {&IID_IStackCollection, "->"},
          {&IID_ISimpleCollection, "->"},
          {&IID__ICameraEvents, "sink"}}},
        {L"LUMCamWindow",
         {{&IID_ILUMCamWindow, "window"},
          {&IID_IUIPropertyPageSpecify, "pages"},
          {&IID_IEventSource, "events"},
          {&IID_IUIPropInterrogate, "params"},
          {&IID_IUIPropInterrogateEx, "params"},
          {&IID_IFileArchive, "archive"},
          {&IID_IStep, "step"},
          {&IID_IObjectInfo, "info"},
          {&IID_ICamcorder, "camcorder"},
          {&IID_ICamera, "window"},
          {&IID_IDataPersist, "persist"}}},
        {L"LUMFileGrab",
         {{&IID_IObjectInfo, "info"},
          {&IID_ICamera, "*"},
          {&IID_IEventSource, "events"},
          {&IID__IFileNameCollectionEvent, "newfile"},
          {&IID_IUIPropertyPageSpecify, "pages"}}},
        {L"LUMFilePlayer",
         {{&IID_IObjectInfo, "info"},
          {&IID_ICamera, "camera"},
          {&IID_IDataPersist, "persist"},
          {&IID_IEventSource, "events"},
          {&IID_IFileArchive, "archive"},
          {&IID_IUIPropInterrogate, "params"},
          {&IID_IUIPropInterrogateEx, "params"},
          {&IID_IUIPropertyPageSpecify, "pages"},
          {&IID__ICameraEvents, "sink"},
          {&IID__IFileNameCollectionEvent, "*"},
          {&IID_IMMControlEx, "mm"},
          {&IID_IMMControl, "mm"},
          {&IID_IFileNameCollection, "->"},
          {&IID_ISuperCollection, "->"},
          {&IID_INamedCollection, "->"},
          {&IID_ISimpleCollection, "->"},
          {&IID_IExtCollection, "->"}}},
    };
}

std::vector<const IID*> AllInterfaceIdentifiers() {
    return {
#define LUM_INTERFACE(Name) &IID_##Name,
#include "lum/interface_names.h"
#undef LUM_INTERFACE
    };
}

class ComponentIdentity : public ::testing::Test {
protected:
    void SetUp() override {
        module = LoadModule("LUMCamcorder");
        ASSERT_NE(module.initialize, nullptr);
        host = MakeComponentHost();
        module.initialize(nullptr, host.Get());
        baseline = LiveFakes();
    }
    void TearDown() override {
        module.initialize(nullptr, nullptr);
        EXPECT_EQ(LiveFakes(), baseline) << "a component left framework objects behind";
    }

    static int LiveFakes() {
        return FakeStack::live + FakeArchive::live + FakeFileNames::live + FakeCanvas::live;
    }

    LoadedModule module;
    SmartPtr<FakeCollection> host;
    int baseline = 0;
};

TEST_F(ComponentIdentity, EveryRowOfEveryClassAnswersWithItsPart) {
    for (const ClassCase& c : Classes()) {
        SCOPED_TRACE(testing::Message() << "class " << std::string(c.name, c.name + wcslen(c.name)));
        HRESULT hr = E_FAIL;
        SmartPtr<IUnknown> object = CreateFrom<IUnknown>(module, c.name, IID_IUnknown, &hr);
        ASSERT_EQ(hr, S_OK);
        ASSERT_TRUE(object);
        EXPECT_EQ(RefCountOf(object.Get()), 1u) << "the creator holds the only reference";
        EXPECT_EQ(IdentityPointer(object.Get()), object.Get());

        std::map<std::string, void*> parts{{"*", object.Get()}};
        SmartPtr<IUnknown> member;  // the object that forwarded rows reach
        for (const Row& row : c.rows) {
            void* answer = reinterpret_cast<void*>(0x1);
            HRESULT qi = object->QueryInterface(*row.iid, &answer);
            if (std::string(row.part) == "->") {
                // Forwarded: the member's own answer, result and pointer
                // unchanged; the member counts the reference.
                if (!member) {
                    ASSERT_EQ(qi, S_OK);
                    member = QueryAs<IUnknown>(static_cast<IUnknown*>(answer), IID_IUnknown);
                }
                void* direct = reinterpret_cast<void*>(0x1);
                EXPECT_EQ(qi, member->QueryInterface(*row.iid, &direct));
                EXPECT_EQ(answer, direct);
                if (direct) static_cast<IUnknown*>(direct)->Release();
                if (answer) static_cast<IUnknown*>(answer)->Release();
                EXPECT_NE(member.Get(), object.Get());
                EXPECT_EQ(RefCountOf(object.Get()), 1u);
                continue;
            }
            ASSERT_EQ(qi, S_OK) << "row " << row.part;
            ASSERT_NE(answer, nullptr);
            IUnknown* unknown = static_cast<IUnknown*>(answer);
            EXPECT_EQ(IdentityPointer(unknown), object.Get()) << row.part;
            EXPECT_EQ(RefCountOf(object.Get()), 2u) << "the answer carries one reference";
            auto [it, inserted] = parts.emplace(row.part, answer);
            if (!inserted) {
                EXPECT_EQ(it->second, answer) << "rows of part " << row.part;
            }
            unknown->Release();
        }
        // Distinct parts are distinct pointers.
        std::set<void*> distinct;
        for (auto& [name, pointer] : parts) distinct.insert(pointer);
        EXPECT_EQ(distinct.size(), parts.size());

        // Everything else: E_NOINTERFACE and a null output, count unchanged.
        for (const IID* iid : AllInterfaceIdentifiers()) {
            bool listed = false;
            for (const Row& row : c.rows) listed |= *row.iid == *iid;
            if (listed) continue;
            void* answer = reinterpret_cast<void*>(0x1);
            EXPECT_EQ(object->QueryInterface(*iid, &answer), E_NOINTERFACE);
            EXPECT_EQ(answer, nullptr);
        }
        EXPECT_EQ(RefCountOf(object.Get()), 1u);
        EXPECT_EQ(object->QueryInterface(IID_IObjectInfo, nullptr), E_POINTER);
    }
}

TEST_F(ComponentIdentity, AddRefAndReleaseReturnTheCount) {
    SmartPtr<ICamera> camera = CreateFrom<ICamera>(module, L"LUMCamcorder", IID_ICamera);
    ASSERT_TRUE(camera);
    EXPECT_EQ(camera->AddRef(), 2u);
    EXPECT_EQ(camera->AddRef(), 3u);
    EXPECT_EQ(camera->Release(), 2u);
    EXPECT_EQ(camera->Release(), 1u);
    ICamera* last = camera.Detach();
    EXPECT_EQ(last->Release(), 0u);
}

TEST_F(ComponentIdentity, ForwardedRowsFailWhenTheMemberIsMissing) {
    host->Set(L"LUMStack", nullptr);
    host->Set(L"FileNameCollection", nullptr);
    for (const wchar_t* name : {L"LUMCamcorder", L"LUMStackCamcorder"}) {
        SmartPtr<IUnknown> object = CreateFrom<IUnknown>(module, name, IID_IUnknown);
        ASSERT_TRUE(object) << "a missing stack does not prevent creation";
        for (const IID* iid : {&IID_IStackCollection, &IID_ISimpleCollection}) {
            void* answer = reinterpret_cast<void*>(0x1);
            EXPECT_EQ(object->QueryInterface(*iid, &answer), E_NOINTERFACE);
            EXPECT_EQ(answer, nullptr);
        }
    }
    SmartPtr<IUnknown> player = CreateFrom<IUnknown>(module, L"LUMFilePlayer", IID_IUnknown);
    ASSERT_TRUE(player);
    for (const IID* iid : {&IID_IFileNameCollection, &IID_ISuperCollection, &IID_INamedCollection,
                           &IID_ISimpleCollection, &IID_IExtCollection}) {
        void* answer = reinterpret_cast<void*>(0x1);
        EXPECT_EQ(player->QueryInterface(*iid, &answer), E_NOINTERFACE);
        EXPECT_EQ(answer, nullptr);
    }
}

TEST_F(ComponentIdentity, CreationForAnUnansweredInterfaceUndoesEverything) {
    const std::pair<const wchar_t*, const IID*> cases[] = {
        {L"LUMCamcorder", &IID_IStep},     {L"LUMStackCamcorder", &IID_IUIPropInterrogateEx},
        {L"LUMCamWindow", &IID_IMMControl}, {L"LUMFileGrab", &IID_IDataPersist},
        {L"LUMFilePlayer", &IID_ICamcorder},
    };
    for (auto [name, iid] : cases) {
        int createdBefore = FakeStack::created + FakeFileNames::created + FakeCanvas::created;
        void* object = reinterpret_cast<void*>(0x1);
        CreateInstanceFunction create = CreatorOf(module, name);
        ASSERT_NE(create, nullptr);
        EXPECT_EQ(create(nullptr, iid, &object), E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
        EXPECT_GT(FakeStack::created + FakeFileNames::created + FakeCanvas::created, createdBefore)
            << "the component was constructed before the request failed";
        EXPECT_EQ(LiveFakes(), baseline) << "what FinalConstruct took was given back";
    }
}

TEST_F(ComponentIdentity, CamcorderSizesItsRingAtCreation) {
    SmartPtr<IUnknown> camcorder = CreateFrom<IUnknown>(module, L"LUMCamcorder", IID_IUnknown);
    SmartPtr<IStackCollection> ring = QueryAs<IStackCollection>(camcorder.Get(), IID_IStackCollection);
    ASSERT_TRUE(ring);
    int32_t capacity = 0;
    ring->GetSize(&capacity, nullptr);
    EXPECT_EQ(capacity, 1000);
    EXPECT_EQ(static_cast<FakeStack*>(ring.Get())->m_Mode, 0);
}

TEST_F(ComponentIdentity, CamWindowIsNotCreatedWithoutItsCanvases) {
    host->Set(L"LUMImageCANVAS", nullptr);
    HRESULT hr = S_OK;
    SmartPtr<ICamera> window = CreateFrom<ICamera>(module, L"LUMCamWindow", IID_ICamera, &hr);
    EXPECT_FALSE(window);
    EXPECT_EQ(hr, E_FAIL);
}

TEST_F(ComponentIdentity, FileGrabSubscribesToItsFileListAndSetsItsOptions) {
    SmartPtr<IUnknown> grab = CreateFrom<IUnknown>(module, L"LUMFileGrab", IID_IUnknown);
    ASSERT_TRUE(grab);
    SmartPtr<FakeFileNames> files(FakeFileNames::last);
    ASSERT_EQ(files->m_Advises.size(), 1u);
    EXPECT_EQ(files->m_Advises[0].second, 1);
    EXPECT_EQ(IdentityPointer(files->m_Advises[0].first), grab.Get());
    EXPECT_EQ(files->m_OptionOrder, (std::vector<int32_t>{8, 9}));
    EXPECT_EQ(files->m_Options[8], 1);
    EXPECT_EQ(files->m_Options[9], 0);

    IUnknown* primary = grab.Get();
    grab.Reset();
    // Release advises once more, with its primary pointer and the
    // registration's own flags, then gives the file list up.
    ASSERT_EQ(files->m_Advises.size(), 2u);
    EXPECT_EQ(files->m_Advises[1], std::make_pair(primary, 1));
    EXPECT_EQ(RefCountOf(files->PrimaryUnknown()), 1u);
    files.Reset();

    HRESULT hr = S_OK;
    host->Set(L"FileNameCollection", nullptr);
    SmartPtr<IUnknown> none = CreateFrom<IUnknown>(module, L"LUMFileGrab", IID_IUnknown, &hr);
    EXPECT_FALSE(none);
    EXPECT_EQ(hr, E_FAIL);
}

TEST_F(ComponentIdentity, FilePlayerConfiguresItsFileListAndStopsItOnRelease) {
    SmartPtr<IUnknown> player = CreateFrom<IUnknown>(module, L"LUMFilePlayer", IID_IUnknown);
    ASSERT_TRUE(player);
    SmartPtr<IFileNameCollection> list = QueryAs<IFileNameCollection>(player.Get(), IID_IFileNameCollection);
    ASSERT_TRUE(list);
    auto* files = static_cast<FakeFileNames*>(list.Get());
    ASSERT_TRUE(files->m_ExtensionTable);
    auto* extensions = static_cast<FakeFileNames*>(files->m_ExtensionTable.Get());
    ASSERT_NE(extensions, files);
    EXPECT_EQ(extensions->m_Clears, 1);
    const std::vector<std::pair<std::wstring, std::wstring>> expected = {
        {L"bmp", L"LUMArch.LUMFileEx"}, {L"jpg", L"LUMArch.LUMFileEx"},
        {L"jpeg", L"LUMArch.LUMFileEx"}, {L"png", L"LUMArch.LUMFileEx"}};
    EXPECT_EQ(extensions->m_Extensions, expected);
    EXPECT_EQ(files->m_Stops, 0);
    player.Reset();
    EXPECT_EQ(files->m_Stops, 1);
}

// The file grab's primary table: the seven object slots (IUnknown's three,
// FinalConstruct, FinalRelease, Lock, Unlock), then its camera operations in
// ICamera order from table index 7. Its ICamera answer is that primary
// pointer; call by table index, as a host written in C would.
template <class Signature>
Signature TableEntry(void* object, int index) {
    void** table = *static_cast<void***>(object);
    return reinterpret_cast<Signature>(table[index]);
}

TEST_F(ComponentIdentity, FileGrabCameraOperationsFollowTheObjectSlots) {
    SmartPtr<IUnknown> grab = CreateFrom<IUnknown>(module, L"LUMFileGrab", IID_IUnknown);
    ASSERT_TRUE(grab);
    void* camera = nullptr;
    ASSERT_EQ(grab->QueryInterface(IID_ICamera, &camera), S_OK);
    EXPECT_EQ(camera, grab.Get());
    using InquireFn = HRESULT (*)(void*, int32_t, int32_t*);
    using ControlFn = HRESULT (*)(void*, int32_t, int32_t);
    using CountFn = HRESULT (*)(void*, int32_t);
    constexpr int kFirstCameraSlot = 7;
    auto inquire = TableEntry<InquireFn>(camera, kFirstCameraSlot + 8);
    auto control = TableEntry<ControlFn>(camera, kFirstCameraSlot + 9);
    auto putFrames = TableEntry<CountFn>(camera, kFirstCameraSlot + 6);
    int32_t state = -1;
    EXPECT_EQ(inquire(camera, 10, &state), S_OK);
    EXPECT_EQ(state, 0);
    EXPECT_EQ(inquire(camera, 13, nullptr), S_OK);
    EXPECT_EQ(inquire(camera, 99, &state), E_FAIL);
    EXPECT_EQ(control(camera, 1, 1), E_FAIL);
    EXPECT_EQ(putFrames(camera, 5), E_NOTIMPL);
    static_cast<IUnknown*>(camera)->Release();
}

}  // namespace
