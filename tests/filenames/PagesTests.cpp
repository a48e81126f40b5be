// "UIPropPages", headless: pages keep what they were shown, the slide page
// lays parameters over a viewer, the viewer counts a camera's frames (also
// from the camera's live thread, so this runs under ThreadSanitizer too),
// and the message window writes to standard error.
#include "tests/filenames/FileListSupport.h"

namespace {

SmartPtr<ISimpleCollection> CollectionOf(std::initializer_list<IUnknown*> items) {
    SmartPtr<ICreatableSimpleCollection> list =
        CreateByName<ICreatableSimpleCollection>(L"SimpleCollection", IID_ICreatableSimpleCollection);
    for (IUnknown* item : items) list->Add(item);
    return SmartPtr<ISimpleCollection>(list.Get());
}

TEST(PropertyPages, KeepWhatTheyWereShownUntilClosed) {
    for (const wchar_t* name : {L"UIPropInterrogatePropPage", L"UIPropPages.UIPropInterrogatePropPage",
                                L"UIPropPages.UIFileArchivePropPage", L"LUMCollectionPropPage",
                                L"UIParametersSlidePropPage"}) {
        SmartPtr<IUIPropertyPage> page = CreateByName<IUIPropertyPage>(name, IID_IUIPropertyPage);
        ASSERT_TRUE(page) << name;
        SmartPtr<ISimpleCollection> objects;
        SmartPtr<IString> shownName;
        SmartPtr<IUnknown> owner;
        int32_t mode = -1;
        EXPECT_EQ(S_FALSE, page->GetShown(objects.Out(), shownName.Out(), &mode, owner.Out()));
        EXPECT_FALSE(objects || shownName || owner);

        SmartPtr<IUnknown> component = MakeFake<KitPlainObject, IUnknown>();
        SmartPtr<ISimpleCollection> shown = CollectionOf({component.Get()});
        SmartPtr<IString> title = MakeString(name);
        ASSERT_EQ(S_OK, page->Show(shown.Get(), title.Get(), 0, component.Get()));
        ASSERT_EQ(S_OK, page->GetShown(objects.Out(), shownName.Out(), &mode, owner.Out()));
        EXPECT_EQ(shown.Get(), objects.Get());
        EXPECT_EQ(std::wstring(name), TextOf(shownName.Get()));
        EXPECT_EQ(0, mode);
        EXPECT_EQ(component.Get(), owner.Get());
        EXPECT_EQ(S_OK, page->GetShown(nullptr, nullptr, nullptr, nullptr));
        EXPECT_EQ(S_OK, page->Apply());

        objects = nullptr;
        owner = nullptr;
        ASSERT_EQ(S_OK, page->Close());
        EXPECT_EQ(S_FALSE, page->GetShown(objects.Out(), nullptr, &mode, nullptr));
        EXPECT_FALSE(objects);
        shown = nullptr;
        EXPECT_EQ(1u, RefCountOf(component.Get()));  // the page let go of everything
    }
}

TEST(PropertyPages, TheSlidePageLaysTheShownParametersOverAViewer) {
    SmartPtr<IUIPropertyPage> page = CreateByName<IUIPropertyPage>(L"UIParametersSlidePropPage", IID_IUIPropertyPage);
    SmartPtr<ISuperCollection> viewer = CreateByName<ISuperCollection>(L"LUMViewer", IID_ISuperCollection);
    SmartPtr<IParametersCreatable> parameters = CreateByName<IParametersCreatable>(L"Parameters", IID_IParametersCreatable);
    ASSERT_TRUE(page && viewer && parameters);
    parameters->AddText(REFStr(L"_Name_"), REFStr(L"/shots/a.png"));
    parameters->AddText(REFStr(L"_Time_"), REFStr(L"2024-01-02 3:4:5.0"));
    SmartPtr<IString> title = MakeString(L"overlay");
    auto overlays = [&] {
        int32_t count = -1;
        viewer->get_OverlayCount(&count);
        return count;
    };

    // As a page (mode 0), or with the objects in another order: only kept.
    ASSERT_EQ(S_OK, page->Show(CollectionOf({parameters.Get(), viewer.Get()}).Get(), title.Get(), 0, nullptr));
    ASSERT_EQ(S_OK, page->Show(CollectionOf({viewer.Get(), parameters.Get()}).Get(), title.Get(), 1, nullptr));
    EXPECT_EQ(0, overlays());

    ASSERT_EQ(S_OK, page->Show(CollectionOf({parameters.Get(), viewer.Get()}).Get(), title.Get(), 1, nullptr));
    ASSERT_EQ(1, overlays());
    SmartPtr<IUnknown> overlay;
    ASSERT_EQ(S_OK, viewer->get_Overlay(0, overlay.Out()));
    EXPECT_EQ(IdentityPointer(parameters.Get()), IdentityPointer(overlay.Get()));
    SmartPtr<INamedCollection> named = QueryAs<INamedCollection>(overlay.Get(), IID_INamedCollection);
    SmartPtr<IUnknown> value;
    ASSERT_EQ(S_OK, named->get_ItemByName(REFStr(L"_Name_"), value.Out()));
    EXPECT_EQ(L"/shots/a.png", TextOf(QueryAs<IString>(value.Get(), IID_IString).Get()));

    // The overlay outlives the page; clearing the viewer drops it.
    page = nullptr;
    EXPECT_EQ(1, overlays());
    ASSERT_EQ(S_OK, viewer->RemoveOverlays());
    EXPECT_EQ(0, overlays());
}

TEST(Viewer, CountsAndKeepsTheFramesOfACamera) {
    SmartPtr<ILUMViewer> viewer = CreateByName<ILUMViewer>(L"LUMViewer", IID_ILUMViewer);
    SmartPtr<ICamera> camera = CreateByName<ICamera>(L"LUMTestCamera", IID_ICamera);
    ASSERT_TRUE(viewer && camera);
    SmartPtr<ILUM> image;
    EXPECT_EQ(E_FAIL, viewer->get_Image(image.Out()));
    SmartPtr<IEventSource> events = QueryAs<IEventSource>(camera.Get(), IID_IEventSource);
    ASSERT_EQ(S_OK, events->Advise(viewer.Get(), 1));
    for (int i = 0; i < 3; ++i) ASSERT_EQ(S_OK, camera->Grab(0, 0, nullptr));
    int32_t count = 0;
    EXPECT_EQ(S_OK, viewer->get_FrameCount(&count));
    EXPECT_EQ(3, count);
    SmartPtr<ILUM> last;
    ASSERT_EQ(S_OK, camera->get_Image(0, last.Out()));
    ASSERT_EQ(S_OK, viewer->get_Image(image.Out()));
    EXPECT_EQ(IdentityPointer(last.Get()), IdentityPointer(image.Get()));

    // Not frames: an image shown directly, or an event without an image.
    SmartPtr<_ICameraEvents> sink = QueryAs<_ICameraEvents>(viewer.Get(), IID__ICameraEvents);
    EXPECT_LT(sink->ImageGrabbed(camera.Get(), camera.Get(), 4), 0);
    EXPECT_EQ(E_POINTER, sink->ImageGrabbed(camera.Get(), nullptr, 4));
    SmartPtr<ILUMImageDIB> shown = MakeImage(2, 2, 8, [](int32_t, int32_t) { return uint8_t(7); });
    ASSERT_EQ(S_OK, viewer->put_Image(shown.Get()));
    ASSERT_EQ(S_OK, viewer->get_Image(image.Out()));
    EXPECT_EQ(IdentityPointer(shown.Get()), IdentityPointer(image.Get()));
    EXPECT_EQ(S_OK, viewer->get_FrameCount(&count));
    EXPECT_EQ(3, count);

    SmartPtr<IUIRefreshableObject> refresh = QueryAs<IUIRefreshableObject>(viewer.Get(), IID_IUIRefreshableObject);
    refresh->Refresh(0);
    refresh->Refresh(1);
    EXPECT_EQ(S_OK, viewer->get_RefreshCount(&count));
    EXPECT_EQ(2, count);

    // From the camera's live thread, while the host looks at the viewer.
    ASSERT_EQ(S_OK, camera->Control(4, 200));
    ASSERT_EQ(S_OK, camera->Control(5, 5));
    ASSERT_EQ(S_OK, camera->Live());
    EXPECT_TRUE(WaitFor([&] {
        viewer->get_Image(image.Out());
        viewer->get_FrameCount(&count);
        return count == 8;
    }));
    camera->StopLive();
    events->Advise(viewer.Get(), 0);
}

TEST(MessageWindow, WritesEachTextAsALineToStandardError) {
    SmartPtr<IMessageWindow> window = CreateByName<IMessageWindow>(L"MessageWindow", IID_IMessageWindow);
    ASSERT_TRUE(window);
    testing::internal::CaptureStderr();
    EXPECT_EQ(S_OK, window->ShowText(REFStr(L"Creating AVI File. This may take some time...")));
    EXPECT_EQ(S_OK, window->ShowText(tagREFString{3, const_cast<wchar_t*>(L"caf\u00e9 au lait")}));
    EXPECT_EQ(S_OK, window->ShowText(REFStr(L"\u00e9t\u00e9")));
    EXPECT_EQ(S_OK, window->Close());
    EXPECT_EQ("Creating AVI File. This may take some time...\ncaf\n\xC3\xA9t\xC3\xA9\n",
              testing::internal::GetCapturedStderr());
}

}  // namespace
