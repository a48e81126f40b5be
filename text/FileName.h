// File names stored relative to the installation directory.
//
// Relative names use "..\" for each level up; resolved names use "/". A base
// directory is given without a trailing separator. Every IString** out
// receives one reference (possibly to the name passed in) that the caller
// releases.
#pragma once

#include <string>

#include "lum/lum.h"

/// The install path (registry section "Workspace", key "InstallPath"). `*path`
/// always receives a new string, empty when nothing was read. Returns the
/// registry read's result, E_FAIL without a registry, E_POINTER for null `path`.
HRESULT FILENAMEGetInstallPath(IString** path);

/// A wide file name in the locale's multibyte form, as the operating
/// system's file functions take it; false when it cannot be converted.
bool FILENAMEToMultibyte(const std::wstring& name, std::string& file);

/// `name` relative to the install path; names that share no more than their
/// root with it come back unchanged (the same object).
HRESULT FILENAMECreateRelative(IString* name, IString** relative);
/// `name` relative to `base`.
HRESULT FILENAMECreateRelative(IString* base, IString* name, IString** relative);

/// `name` resolved against the install path. Absolute names come back as the
/// same object. Backslashes of the name are turned into "/" in the name's own
/// text.
HRESULT FILENAMECreateAbsolute(IString* name, IString** absolute);
/// `name` resolved against `base`.
HRESULT FILENAMECreateAbsolute(IString* base, IString* name, IString** absolute);
