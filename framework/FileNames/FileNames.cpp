// "FileNames.so": file names. The file list of a folder and the table of
// which class loads which extension.
#include "framework/FileNames/ExtCollection.h"
#include "framework/FileNames/FileNameCollection.h"

namespace {

const KitClass kClasses[] = {
    KitClassOf<CFileNameCollection>(),
    KitClassOf<CExtCollection>(),
};

}  // namespace

LUM_KIT_MODULE_ENTRY_POINTS(kClasses)
