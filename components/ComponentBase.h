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

/// A new string holding `text`, or null when no string could be made.
SmartPtr<IString> MakeString(const wchar_t* text);
