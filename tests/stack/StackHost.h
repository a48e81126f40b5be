// What the stack camcorder tests share, on top of the camcorder tests' host.
#pragma once

#include "tests/camcorder/CamcorderHost.h"

class StackTest : public CamcorderTest {
protected:
    void TearDown() override {
        if (stack) stack.As<ICamcorder>(IID_ICamcorder)->StopRecording();
        stack.Reset();
        CamcorderTest::TearDown();
    }
    /// A new stack camcorder with a sink that records what it hands out.
    void NewStack() {
        stack = CreateFrom<ICamera>(module, L"LUMStackCamcorder", IID_ICamera);
        ASSERT_TRUE(stack);
        sink = CObject<FrameSink>::New();
        stack.As<IEventSource>(IID_IEventSource)->Advise(sink->PrimaryUnknown(), 1);
    }
    /// Records `count` frames of a synthetic camera into the stack.
    void RecordFrames(int count, int bits = 24, int width = 32, int height = 8) {
        SmartPtr<ICamera> camera = NewCamera(width, height, bits);
        SmartPtr<ICamcorder> recorder = stack.As<ICamcorder>(IID_ICamcorder);
        recorder->Record(camera.Get());
        for (int i = 0; i < count; ++i) camera->Grab(0, 0, nullptr);
        recorder->StopRecording();
    }
    int32_t Count() {
        int32_t count = 0;
        stack.As<ISimpleCollection>(IID_ISimpleCollection)->get_Count(&count);
        return count;
    }
    int32_t Parameter(int32_t id) {
        int32_t value = -1;
        stack->Inquire(id, &value);
        return value;
    }
    SmartPtr<IString> Text(const std::wstring& text) {
        SmartPtr<IString> s = CreateByName<IString>(L"CreatableString", IID_IString);
        s->SetText(static_cast<int32_t>(text.size()), text.c_str());
        return s;
    }
    SmartPtr<IFileArchive> Archive() { return stack.As<IFileArchive>(IID_IFileArchive); }

    SmartPtr<ICamera> stack;
    SmartPtr<FrameSink> sink;
};
