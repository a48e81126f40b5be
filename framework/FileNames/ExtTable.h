// Which class loads which file extension: the plain table behind
// "ExtCollection", and the copy of any IExtCollection that a listing works
// from.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lum/lum.h"

struct ExtTable {
    struct Row {
        std::wstring extension;  // without the leading "."
        std::wstring className;
    };

    std::vector<Row> rows;
    bool matchCase = false;  // false: extensions compared ignoring letter case

    /// Index of the row of `extension` (a leading "." ignored), or -1.
    int Find(std::wstring_view extension) const;
    /// The class of `extension`, or null when none is registered.
    const std::wstring* ClassFor(std::wstring_view extension) const;
    /// Adds (extension, class), or gives an existing extension the new class.
    void Set(std::wstring_view extension, std::wstring_view className);

    /// "bmp", "jpg", "jpeg", "png" to "LUMArch.LUMFileEx": what a file list
    /// uses while it has no table of its own, or an empty one.
    static ExtTable Default();
    /// Reads `source` through its interface. False when it fails to answer.
    static bool ReadFrom(IExtCollection* source, ExtTable& table);
};

/// `extension` without one leading ".".
std::wstring_view ExtBare(std::wstring_view extension);

/// The extension of a file name: the text after the last "." of its last
/// part ("/" and "\" both separate parts); empty when there is none or the
/// only "." begins the name.
std::wstring_view ExtOfFileName(std::wstring_view fileName);
