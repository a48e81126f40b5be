// "LUMVideo.so": the motion-JPEG AVI writer and the AVI reader.
#include "framework/LUMVideo/AVI.h"
#include "framework/LUMVideo/MJPEG.h"

namespace {

const KitClass kClasses[] = {
    KitClassOf<CMJPEG>(),
    KitClassOf<CAVI>(),
};

}  // namespace

LUM_KIT_MODULE_ENTRY_POINTS(kClasses)
