#include "tests/framework/KitTestSupport.h"

const InterfaceEntry<KitRecordingCollection> KitRecordingCollection::kInterfaces[] = {
    InterfaceEntry<KitRecordingCollection>::Of<IComponentCollection>(IID_IComponentCollection),
    InterfaceEntry<KitRecordingCollection>::End(),
};

const InterfaceEntry<KitPlainObject> KitPlainObject::kInterfaces[] = {
    InterfaceEntry<KitPlainObject>::End(),
};

const InterfaceEntry<KitMapFolderStream> KitMapFolderStream::kInterfaces[] = {
    InterfaceEntry<KitMapFolderStream>::Of<IDataStream>(IID_IDataStream),
    InterfaceEntry<KitMapFolderStream>::Of<IFolderStream>(IID_IFolderStream),
    InterfaceEntry<KitMapFolderStream>::End(),
};
