// The classes of "CollectionsEx.so" and their table.
#pragma once

#include "framework/common/KitModule.h"

/// The creation function of one of this module's own classes (exact bare
/// name), or null. Used to create them directly, without a module lookup.
CreateInstanceFunction CollectionsExFindClass(int32_t length, const wchar_t* name);
