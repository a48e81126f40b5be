// What every component of the module is built from.
#pragma once

#include "archive/FileArchiveImpl.h"
#include "lum/lum.h"
#include "module/ModuleLoader.h"
#include "module/events/EventSource.h"
#include "module/events/FireCameraEvents.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "module/object/ObjectInfo.h"
#include "module/object/ResourceLock.h"
#include "params/PropInterrogateImpl.h"

#include <initializer_list>

/// A new string holding `text`, or null when no string could be made.
SmartPtr<IString> MakeString(const wchar_t* text);

/// Hands out a new named collection naming property pages: one entry per
/// page, under the empty name, with the page's class name as its item.
HRESULT HandOutPages(std::initializer_list<const wchar_t*> pages, INamedCollection** out);
