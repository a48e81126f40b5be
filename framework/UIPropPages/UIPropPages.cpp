// "UIPropPages.so": the user interface, headless. Property pages that keep
// what they are shown, a viewer that counts what it receives, and a message
// window that writes to standard error.
#include "framework/UIPropPages/MessageWindow.h"
#include "framework/UIPropPages/PropertyPages.h"
#include "framework/UIPropPages/Viewer.h"

namespace {

const KitClass kClasses[] = {
    KitClassOf<CUIPropInterrogatePropPage>(),
    KitClassOf<CUIFileArchivePropPage>(),
    KitClassOf<CUIParametersSlidePropPage>(),
    KitClassOf<CLUMCollectionPropPage>(),
    KitClassOf<CViewer>(),
    KitClassOf<CMessageWindow>(),
};

}  // namespace

LUM_KIT_MODULE_ENTRY_POINTS(kClasses)
