// "LUMImage.so": images, the item stack and the synthetic test camera.
#include "framework/LUMImage/ImageDIB.h"
#include "framework/LUMImage/Stack.h"
#include "framework/LUMImage/TestCamera.h"

namespace {

const KitClass kClasses[] = {
    KitClassOf<CImageDIB>(),
    KitClassOf<CImageCANVAS>(),
    KitClassOf<CStack>(),
    KitClassOf<CTestCamera>(),
};

}  // namespace

LUM_KIT_MODULE_ENTRY_POINTS(kClasses)
