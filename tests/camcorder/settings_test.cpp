// The camcorder's parameters, saved settings and property pages.
#include "tests/camcorder/CamcorderHost.h"

namespace {

class Settings : public CamcorderTest {
protected:
    SmartPtr<IFolderStream> NewFolder() { return CreateByName<IFolderStream>(L"FolderStream", IID_IFolderStream); }
    static SmartPtr<IString> Text(const wchar_t* text) {
        SmartPtr<IString> s = CreateByName<IString>(L"CreatableString", IID_IString);
        s->SetText(-1, text);
        return s;
    }
    static int32_t ReadInt(IFolderStream* folder, const wchar_t* key) {
        int32_t value = -12345;
        folder->ReadValue(Text(key).Get(), &value, sizeof value, 0);
        return value;
    }
};

TEST_F(Settings, AFreshCamcorderRoundTripsThroughAFolderStream) {
    SmartPtr<ILUMCamcorder> source = CreateFrom<ILUMCamcorder>(module, L"LUMCamcorder", IID_ILUMCamcorder);
    ASSERT_TRUE(source);
    source.As<ICamcorderArm>(IID_ICamcorderArm)->put_NumberImagesPreRecord(50);
    SmartPtr<IFolderStream> folder = NewFolder();
    ASSERT_TRUE(folder);
    SmartPtr<IDataStream> stream = folder.As<IDataStream>(IID_IDataStream);
    ASSERT_EQ(source.As<IDataPersist>(IID_IDataPersist)->Save(stream.Get(), 0), S_OK);

    EXPECT_EQ(ReadInt(folder.Get(), L"StackSize"), 1000) << "the ring's capacity, not the pre-record count";
    EXPECT_EQ(ReadInt(folder.Get(), L"Format"), 0);
    EXPECT_EQ(ReadInt(folder.Get(), L"PlayDirection"), 1);
    EXPECT_EQ(ReadInt(folder.Get(), L"RecordSkipCount"), 0);
    EXPECT_EQ(ReadInt(folder.Get(), L"fUseSaveThread"), 0);
    EXPECT_EQ(ReadInt(folder.Get(), L"InitialRecordSleepTime"), 1000);
    double speed = 0;
    folder->ReadValue(Text(L"PlayBackSpeed").Get(), &speed, sizeof speed, 0);
    EXPECT_EQ(speed, 10.0);

    SmartPtr<ILUMCamcorder> target = NewCamcorder(FileFormatBMP);
    target->put_PlayBackSpeed(3.0);
    target->put_ActiveIndex(9);
    ASSERT_EQ(target.As<IDataPersist>(IID_IDataPersist)->Load(stream.Get(), 0), S_OK);
    SmartPtr<IString> path;
    ASSERT_EQ(target->get_Path(path.Out()), S_OK);
    EXPECT_EQ(TextOf(path.Get()), fs::current_path().wstring() + L"/Images")
        << "the default path: install path, then the saved \\Images turned into /Images";
    FileFormatConstants format = FileFormatAVI;
    target->get_FileFormat(&format);
    EXPECT_EQ(format, FileFormatJPEG);
    double loaded = 0;
    target->get_PlayBackSpeed(&loaded);
    EXPECT_EQ(loaded, 10.0);
    int32_t index = -1;
    target->get_ActiveIndex(&index);
    EXPECT_EQ(index, 0);
}

TEST_F(Settings, StackSizeFromTheFolderSetsTheRingOnly) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    SmartPtr<IFolderStream> folder = NewFolder();
    int32_t size = 200;
    folder->WriteValue(Text(L"StackSize").Get(), &size, sizeof size, 0);
    folder->WriteString(Text(L"BaseName").Get(), Text(L"take").Get());
    ASSERT_EQ(camcorder.As<IDataPersist>(IID_IDataPersist)->Load(folder.As<IDataStream>(IID_IDataStream).Get(), 0),
              S_OK);
    int32_t capacity = 0, preRecord = 0;
    camcorder.As<IStackCollection>(IID_IStackCollection)->GetSize(&capacity, nullptr);
    camcorder.As<ICamcorderArm>(IID_ICamcorderArm)->get_NumberImagesPreRecord(&preRecord);
    EXPECT_EQ(capacity, 200);
    EXPECT_EQ(preRecord, 1000);
    SmartPtr<IString> base;
    EXPECT_EQ(camcorder->get_BaseFileName(base.Out()), E_FAIL) << "no base name was set, none is taken over";
}

TEST_F(Settings, AStreamWithoutAFolderIsRefused) {
    SmartPtr<IDataPersist> persist = CreateFrom<IDataPersist>(module, L"LUMCamcorder", IID_IDataPersist);
    SmartPtr<IDataStream> bytes = CreateByName<IDataStream>(L"DataStream", IID_IDataStream);
    EXPECT_EQ(persist->Save(bytes.Get(), 0), E_FAIL);
    EXPECT_EQ(persist->Load(nullptr, 0), E_FAIL);
}

TEST_F(Settings, ParameterTableAndStateCode) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    SmartPtr<IUIPropInterrogateEx> params = camcorder.As<IUIPropInterrogateEx>(IID_IUIPropInterrogateEx);
    int32_t value = 0;
    EXPECT_EQ(params->Inquire(0x2000000, &value), S_OK);
    EXPECT_EQ(value, 15);
    int32_t low = 0, high = 0;
    params->ParameterRange(0x2000000, &low, &high);
    EXPECT_EQ(low, 61);
    EXPECT_EQ(high, 75);
    EXPECT_EQ(params->Inquire(70, &value), 0x13);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(params->Inquire(74, &value), 3);
    EXPECT_EQ(value, 999);
    EXPECT_EQ(params->Inquire(99, &value), E_INVALIDARG);
    EXPECT_EQ(params->Control(99, 1), E_INVALIDARG);
    // Doubles travel as the bit pattern of a float.
    float half = 2.5f;
    int32_t bits = 0;
    std::memcpy(&bits, &half, sizeof bits);
    EXPECT_EQ(params->Control(68, bits), S_OK);
    double speed = 0;
    camcorder->get_PlayBackSpeed(&speed);
    EXPECT_EQ(speed, 2.5);

    SmartPtr<ICamera> camera = NewCamera();
    SmartPtr<ICamcorderArm> arm = camcorder.As<ICamcorderArm>(IID_ICamcorderArm);
    arm->Arm(camera.Get());
    EXPECT_EQ(params->Inquire(10, &value), S_OK);
    EXPECT_EQ(value, CameraStateArmed);
    arm->Arm(nullptr);
}

TEST_F(Settings, ANewPathRestartsPlayback) {
    SmartPtr<ILUMCamcorder> camcorder = NewCamcorder();
    SmartPtr<IMMControlEx> player = camcorder.As<IMMControlEx>(IID_IMMControlEx);
    player->SetPositions(2, 4);
    camcorder->put_ActiveIndex(3);
    SmartPtr<IUIPropInterrogateEx> params = camcorder.As<IUIPropInterrogateEx>(IID_IUIPropInterrogateEx);
    EXPECT_EQ(params->ControlEx(61, Text(L"/tmp/elsewhere").Get()), S_OK);
    int32_t start = -1, end = -1, index = -1;
    player->GetPositions(&start, &end);
    camcorder->get_ActiveIndex(&index);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, 0);
    EXPECT_EQ(index, 0);
    SmartPtr<IString> path;
    camcorder->get_Path(path.Out());
    EXPECT_EQ(TextOf(path.Get()), L"/tmp/elsewhere");
}

TEST_F(Settings, PagesAreTheParameterPageThenTheCollectionPage) {
    SmartPtr<IUIPropertyPageSpecify> pages =
        CreateFrom<IUIPropertyPageSpecify>(module, L"LUMCamcorder", IID_IUIPropertyPageSpecify);
    SmartPtr<INamedCollection> list;
    ASSERT_EQ(pages->GetPages(0, list.Out(), nullptr), S_OK);
    int32_t count = 0;
    list->get_Count(&count);
    ASSERT_EQ(count, 2);
    std::vector<std::wstring> names;
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IUnknown> item;
        list->get_Item(i, item.Out());
        names.push_back(TextOf(QueryAs<IString>(item.Get(), IID_IString).Get()));
    }
    EXPECT_EQ(names, (std::vector<std::wstring>{L"UIPropPages.UIPropInterrogatePropPage", L"LUMCollectionPropPage"}));
}

}  // namespace
