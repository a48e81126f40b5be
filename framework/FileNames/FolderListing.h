// What a file-list pattern names, and the files of a folder that it lists.
//
// A pattern is a folder ("shots"), or a folder and a pattern over the file
// names in it ("shots/*.png", "shots/run?.bmp"), or one file
// ("shots/a.png"); backslashes count as "/". Listed are regular files
// directly in the folder, not hidden (no name beginning with "."), whose
// extension has a class in the extension table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framework/FileNames/ExtTable.h"

struct ListingTarget {
    bool valid = false;        // false: the pattern lists nothing (empty, or not convertible)
    std::wstring folder;       // "" = the working directory; no trailing "/" but for "/" itself
    std::string osFolder;      // the folder for the operating system ("." for the working directory)
    std::string filePattern;   // empty: every file of the folder
    bool wildcard = false;     // filePattern holds "*" or "?" (fnmatch, case-sensitive)

    /// The full name of a file of the folder: folder + "/" + name, or the
    /// name alone in the working directory.
    std::wstring FullName(const std::wstring& fileName) const;
    /// The path of a file of the folder for the operating system.
    std::string OsPath(const std::string& fileName) const;
};

/// Splits a pattern. A text naming an existing folder (at this moment)
/// lists that folder; otherwise the text after the last "/" is a wild-card
/// or one file name of the folder before it.
ListingTarget ListingTargetOf(const std::wstring& pattern);

struct ListedFile {
    std::wstring fullName;
    std::wstring className;
    int64_t modified = 0;  // modification time, nanoseconds since 1970
    int64_t size = 0;
};

/// Tests a file name of the target's folder (as readdir or inotify give it)
/// and fills `file` when it is listed.
bool MatchListedFile(const ListingTarget& target, const ExtTable& table, const std::string& name,
                     ListedFile& file);

/// Every listed file of the target (in no particular order). False when the
/// folder cannot be read; an invalid target lists nothing and succeeds.
bool ListFolder(const ListingTarget& target, const ExtTable& table, std::vector<ListedFile>& files);

/// Modification time of the target's folder in nanoseconds; false when it
/// does not exist.
bool FolderModified(const ListingTarget& target, int64_t& modified);

/// True when the target's folder exists.
bool FolderExists(const ListingTarget& target);

/// A narrow file name in wide characters (mbstowcs, the process locale).
bool WideFileName(const std::string& name, std::wstring& wide);
