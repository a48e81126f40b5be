// A file player ("LUMFilePlayer") set up to replay a folder of images as a
// camera, for the host's commands.
#pragma once

#include <string>

#include "lum/lum.h"

class FrameworkHost;

struct FolderPlayer {
    SmartPtr<ICamera> camera;
    /// Images listed in the folder.
    int32_t count = 0;
    /// Why the player could not be set up (empty on success).
    std::string error;
};

/// Creates a file player replaying `folder` at `fps` images per second,
/// stepping through the files in name order from the first (or, with
/// `backward`, from the last downwards). `retention`: 0 drop each image
/// after showing it, 1 rescan the folder after each image, 2 keep loaded.
FolderPlayer OpenFolderPlayer(FrameworkHost& host, const std::string& folder, double fps, bool backward,
                              int retention);

/// Float parameters travel through Control as the bits of a 32-bit float.
int32_t FloatBits(double value);

/// A new string holding `text`, made by the framework.
SmartPtr<IString> HostString(FrameworkHost& host, const std::wstring& text);
