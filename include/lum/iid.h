// Interface identifiers: computed from the interface's name at load.
#pragma once

#include "lum/types.h"

/// Identifier of an interface name: the first 25 characters, 5 bits each,
/// letters case-blind, "0".."4" as 28..32 (the 6-bit "4" spills one bit into
/// the next field), every other character 27.
IID __IIDOfc(char const* name);

/// The fixed identifier of IUnknown.
extern const IID IID_IUnknown;

#define LUM_INTERFACE(Name) extern IID IID_##Name;
#include "lum/interface_names.h"
#undef LUM_INTERFACE

/// Number of identifiers in the table (IUnknown excluded).
int LUMInterfaceCount();
