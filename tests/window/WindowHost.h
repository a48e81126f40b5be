// What the camera window and file grab tests share: the camera module
// loaded and started as a host does, and a camera sink that keeps a copy of
// everything it is handed, from whichever thread it comes.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/image/ImageTestSupport.h"

class WindowHostTest : public ::testing::Test {
protected:
    void SetUp() override {
        module = LoadModule("LUMCamcorder");
        ASSERT_NE(module.initialize, nullptr);
        collection = GlobalCollection();
        ASSERT_TRUE(collection);
        module.initialize(nullptr, collection.Get());
    }
    void TearDown() override {
        module.initialize(nullptr, nullptr);
        collection.Reset();
    }

    LoadedModule module;
    SmartPtr<IComponentCollection> collection;
};

/// One ImageGrabbed as a sink saw it; the pixels are copied inside the event.
struct GrabEvent {
    int32_t count = 0;
    IUnknown* source = nullptr;  // identity of the camera argument
    IUnknown* image = nullptr;   // identity of the image argument
    bool answersImage = false;   // the image answered ILUM
    std::wstring file;           // the image's file name, when it has one
    ImageBytes bytes;
    std::thread::id thread;
};

class GrabSink final : public CObject<GrabSink>, public _ICameraEvents {
    LUM_OBJECT_UNKNOWN(GrabSink)
public:
    HRESULT ImageGrabbed(IUnknown* camera, IUnknown* image, int32_t count) override {
        GrabEvent event;
        event.count = count;
        event.source = IdentityPointer(camera);
        event.image = IdentityPointer(image);
        event.thread = std::this_thread::get_id();
        if (SmartPtr<ILUM> lum = QueryAs<ILUM>(image, IID_ILUM)) {
            event.answersImage = true;
            event.bytes = BytesOf(lum.Get());
        }
        if (SmartPtr<IFileArchive> file = QueryAs<IFileArchive>(image, IID_IFileArchive)) {
            SmartPtr<IString> name;
            file->get_Filename(name.Out());
            event.file = TextOf(name.Get());
        }
        {
            std::lock_guard<std::mutex> guard(m_Lock);
            m_Events.push_back(std::move(event));
        }
        if (onEvent) onEvent(*this);
        return S_OK;
    }

    std::vector<GrabEvent> Events() const {
        std::lock_guard<std::mutex> guard(m_Lock);
        return m_Events;
    }
    size_t Count() const {
        std::lock_guard<std::mutex> guard(m_Lock);
        return m_Events.size();
    }
    /// How often the file `name` was delivered.
    int Deliveries(const std::wstring& name) const {
        std::lock_guard<std::mutex> guard(m_Lock);
        int n = 0;
        for (const GrabEvent& event : m_Events) n += event.file == name;
        return n;
    }

    /// Runs inside each event, on the firing thread, after it was recorded.
    std::function<void(GrabSink&)> onEvent;

private:
    mutable std::mutex m_Lock;
    std::vector<GrabEvent> m_Events;
};

inline const InterfaceEntry<GrabSink> GrabSink::kInterfaces[] = {
    InterfaceEntry<GrabSink>::Of<_ICameraEvents>(IID__ICameraEvents),
    InterfaceEntry<GrabSink>::End(),
};

/// A string object holding `text`.
inline SmartPtr<IString> WideString(const std::wstring& text) {
    SmartPtr<IString> string = CreateByName<IString>(L"CreatableString", IID_IString);
    if (string) string->SetText(static_cast<int32_t>(text.size()), text.c_str());
    return string;
}

/// A view of a wide text (valid while the text is unchanged).
inline tagREFString ViewOf(const std::wstring& text) {
    return tagREFString{static_cast<int32_t>(text.size()), const_cast<wchar_t*>(text.c_str())};
}
