// "LUMArch.so": image files.
#include "framework/LUMArch/Archive.h"
#include "framework/LUMArch/FileEx.h"

namespace {

const KitClass kClasses[] = {
    KitClassOf<CArchive>(),
    KitClassOf<CFileEx>(),
};

}  // namespace

LUM_KIT_MODULE_ENTRY_POINTS(kClasses)
