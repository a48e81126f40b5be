// Umbrella header: every public type and interface of the framework.
#pragma once

#include "lum/types.h"
#include "lum/iid.h"
#include "lum/unknown.h"
#include "lum/strings.h"
#include "lum/collections.h"
#include "lum/streams.h"
#include "lum/files.h"
#include "lum/imaging.h"
#include "lum/ui.h"
#include "lum/camera.h"
#include "lum/SmartPtr.h"
