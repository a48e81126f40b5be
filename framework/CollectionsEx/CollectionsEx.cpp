// "CollectionsEx.so": object model, strings, values and collections.
#include "framework/CollectionsEx/CollectionsEx.h"

#include "framework/CollectionsEx/ComponentString.h"
#include "framework/CollectionsEx/GlobalComponentCollection.h"
#include "framework/CollectionsEx/Parameters.h"
#include "framework/CollectionsEx/SimpleCollection.h"
#include "framework/CollectionsEx/Variant.h"
#include "framework/common/KitCollections.h"
#include "framework/common/KitString.h"

namespace {

const KitClass kClasses[] = {
    KitClassOf<CGlobalComponentCollection>(&CGlobalComponentCollection::CreateShared),
    KitClassOf<CComponentString>(),
    KitClassOf<CCreatableString>(),
    KitClassOf<CVariant>(),
    KitClassOf<CSimpleCollection>(),
    KitClassOf<CSuperCollection>(),
    KitClassOf<CParameters>(),
};

}  // namespace

CreateInstanceFunction CollectionsExFindClass(int32_t length, const wchar_t* name) {
    return KitFindClass(kClasses, sizeof kClasses / sizeof kClasses[0], length, name);
}

LUM_KIT_MODULE_ENTRY_POINTS(kClasses)
