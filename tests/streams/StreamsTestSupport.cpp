#include "tests/streams/StreamsTestSupport.h"

LUM_KIT_OBJECT_NAME(TestPoint, L"StreamsTestPoint")

const InterfaceEntry<TestPoint> TestPoint::kInterfaces[] = {
    InterfaceEntry<TestPoint>::Of<IDataPersist>(IID_IDataPersist),
    InterfaceEntry<TestPoint>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<TestPoint>::End(),
};
