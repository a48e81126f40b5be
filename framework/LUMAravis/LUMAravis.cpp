// "LUMAravis.so": cameras of the Aravis library.
#include "framework/LUMAravis/AravisCamera.h"

namespace {

const KitClass kClasses[] = {
    KitClassOf<CAravisCamera>(),
};

}  // namespace

LUM_KIT_MODULE_ENTRY_POINTS(kClasses)
