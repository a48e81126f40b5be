// "Registry.so": the configuration registry and the string table.
#include "framework/Registry/RegistryObject.h"
#include "framework/Registry/StringTable.h"

namespace {

const KitClass kClasses[] = {
    KitClassOf<CRegistry>(),
    KitClassOf<CStringTable>(),
};

}  // namespace

LUM_KIT_MODULE_ENTRY_POINTS(kClasses)
