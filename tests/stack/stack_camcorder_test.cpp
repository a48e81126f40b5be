// Recording into the stack and playing it back.
#include "tests/stack/StackHost.h"

namespace {

TEST_F(StackTest, RecordReportsFailureYetRecordsCopies) {
    NewStack();
    SmartPtr<ICamera> camera = NewCamera();
    SmartPtr<ICamcorder> recorder = stack.As<ICamcorder>(IID_ICamcorder);
    EXPECT_EQ(recorder->Record(camera.Get()), E_FAIL);
    EXPECT_EQ(recorder->IsRecording(), S_OK);
    CameraStateConstants state = CameraStateIdle;
    stack->get_CameraState(&state);
    EXPECT_EQ(state, CameraStateArmed);
    for (int i = 0; i < 4; ++i) camera->Grab(0, 0, nullptr);
    EXPECT_EQ(Count(), 4);
    // Private copies: the camera's own frame is another object.
    SmartPtr<ILUM> cameraFrame, stored;
    camera->get_Image(0, cameraFrame.Out());
    ASSERT_EQ(stack->get_Image(3, stored.Out()), S_OK);
    EXPECT_NE(IdentityPointer(stored.Get()), IdentityPointer(cameraFrame.Get()));
    EXPECT_EQ(FrameNumberOf(stored.Get()), 4);
    EXPECT_EQ(stack->get_Image(4, stored.Out()), E_FAIL);
    EXPECT_EQ(recorder->Record(stack.Get()), E_FAIL) << "never itself";
    recorder->StopRecording();
    EXPECT_EQ(recorder->IsRecording(), E_FAIL);
    camera->Grab(0, 0, nullptr);
    EXPECT_EQ(Count(), 4) << "unsubscribed";
}

TEST_F(StackTest, LoopingPlaybackWrapsAround) {
    NewStack();
    RecordFrames(3);
    stack->Control(54, 1);  // forward
    ASSERT_EQ(stack->Live(), S_OK);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(stack->Grab(-1, 0, nullptr), S_OK);
    EXPECT_EQ(sink->Frames(), (std::vector<int32_t>{2, 3, 1, 2}));
    for (int32_t count : sink->Counts()) EXPECT_EQ(count, 0);
}

TEST_F(StackTest, StrictPlaybackStopsAtTheEnd) {
    NewStack();
    RecordFrames(3);
    stack->Control(54, 1);
    stack->Control(60, 0);  // no loop
    stack->Live();
    EXPECT_EQ(stack->Grab(-1, 0, nullptr), S_OK);
    EXPECT_EQ(stack->Grab(-1, 0, nullptr), S_OK);
    EXPECT_EQ(stack->Grab(-1, 0, nullptr), E_FAIL);
    EXPECT_EQ(Parameter(55), 3);
    EXPECT_EQ(sink->Frames(), (std::vector<int32_t>{2, 3}));
    // Any other mode wraps, and while live stops instead.
    EXPECT_EQ(stack->Grab(0, 0, nullptr), S_OK);
    CameraStateConstants state = CameraStateLive;
    stack->get_CameraState(&state);
    EXPECT_EQ(state, CameraStateIdle);
    EXPECT_EQ(sink->Size(), 2u);
    EXPECT_EQ(stack->Grab(0, 0, nullptr), S_OK);
    EXPECT_EQ(sink->Frames().back(), 1) << "index 4 wraps to the first image";
}

TEST_F(StackTest, BackwardPlaybackStartsWithTheLastImage) {
    NewStack();
    RecordFrames(3);
    stack->Live();  // direction 0: backward
    stack->Grab(-1, 0, nullptr);
    stack->Grab(-1, 0, nullptr);
    EXPECT_EQ(sink->Frames(), (std::vector<int32_t>{3, 2}));
}

TEST_F(StackTest, EmptyStackFiresNothing) {
    NewStack();
    stack->Live();
    EXPECT_EQ(stack->Grab(-1, 0, nullptr), S_OK);
    stack->Control(60, 0);
    EXPECT_EQ(stack->Grab(-1, 0, nullptr), E_FAIL);
    EXPECT_EQ(sink->Size(), 0u);
}

TEST_F(StackTest, ParametersSettingsAndPages) {
    NewStack();
    int32_t low = 0, high = 0;
    SmartPtr<IUIPropInterrogate> params = stack.As<IUIPropInterrogate>(IID_IUIPropInterrogate);
    params->ParameterRange(0x2000000, &low, &high);
    EXPECT_EQ(low, 52);
    EXPECT_EQ(high, 60);
    EXPECT_EQ(Parameter(52), 30);
    int32_t count = 0;
    EXPECT_EQ(stack->Inquire(0x2000000, &count), S_OK);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(stack->Inquire(10, &count), E_INVALIDARG) << "no state code here";

    SmartPtr<IFolderStream> folder = CreateByName<IFolderStream>(L"FolderStream", IID_IFolderStream);
    int32_t size = 7;
    folder->WriteValue(Text(L"StackSize").Get(), &size, sizeof size, 0);
    SmartPtr<IDataPersist> persist = stack.As<IDataPersist>(IID_IDataPersist);
    ASSERT_GE(persist->Load(folder.As<IDataStream>(IID_IDataStream).Get(), 0), 0);
    int32_t capacity = 0;
    stack.As<IStackCollection>(IID_IStackCollection)->GetSize(&capacity, nullptr);
    EXPECT_EQ(capacity, 7);
    SmartPtr<IFolderStream> saved = CreateByName<IFolderStream>(L"FolderStream", IID_IFolderStream);
    EXPECT_GE(persist->Save(saved.As<IDataStream>(IID_IDataStream).Get(), 0), 0);
    int32_t read = 0;
    saved->ReadValue(Text(L"StackSize").Get(), &read, sizeof read, 0);
    EXPECT_EQ(read, 7);

    SmartPtr<INamedCollection> pages;
    ASSERT_EQ(stack.As<IUIPropertyPageSpecify>(IID_IUIPropertyPageSpecify)->GetPages(0, pages.Out(), nullptr), S_OK);
    std::vector<std::wstring> names;
    int32_t n = 0;
    pages->get_Count(&n);
    for (int32_t i = 0; i < n; ++i) {
        SmartPtr<IUnknown> item;
        pages->get_Item(i, item.Out());
        names.push_back(TextOf(QueryAs<IString>(item.Get(), IID_IString).Get()));
    }
    EXPECT_EQ(names, (std::vector<std::wstring>{L"LUMCollectionPropPage", L"UIPropInterrogatePropPage"}));
}

}  // namespace
