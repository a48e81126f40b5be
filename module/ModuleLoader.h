// Loading other framework modules by name and creating objects by class name.
#pragma once

#include "lum/lum.h"

#include "module/GlobalComponents.h"

/// The exported "CreateFunction" of "./<module>.so", or null (a missing file
/// prints "Module not available <file>, error <reason>" on standard output).
ModuleCreateFunction MODULELoadEntry(tagREFString module);

/// The creation function of `className` in `module`, or null.
CreateInstanceFunction MODULECreateFunction(tagREFString module, tagREFString className);

/// Creates an object of `className` through the global collection and asks
/// it for `*iid`; the result carries one reference, or is null.
void* CreateObject(tagREFString className, const IID* iid);

/// Typed convenience over CreateObject.
template <class I>
SmartPtr<I> CreateObjectAs(const wchar_t* className, const IID& iid) {
    return SmartPtr<I>::Adopt(static_cast<I*>(CreateObject(REFStr(className), &iid)));
}
