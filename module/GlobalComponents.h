// The module-wide component collection handed over by the host.
#pragma once

#include "lum/lum.h"

/// Keeps `collection` (with a reference; null drops the current one).
void SetGlobalComponents(IComponentCollection* collection);

/// The collection with a reference for the caller, created on first use
/// through "CollectionsEx" when the host gave none; null when unavailable.
extern "C" IComponentCollection* GLOBALComponents();
