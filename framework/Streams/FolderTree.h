// The tree of a "FolderStream" and its file form.
//
// File: little-endian; the 8 bytes "FOLDSTR1", then the root folder's body.
// A body is a 32-bit entry count and the entries. An entry is its 32-bit
// kind, its name (32-bit byte count + UTF-8), then the payload: a value's
// 32-bit byte count and bytes; a string's 32-bit byte count and UTF-8; a
// sub-folder's body; an object's class name (32-bit byte count + UTF-8) and
// body.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct FolderNode;

enum class FolderEntryKind : uint32_t { Value = 1, String = 2, Folder = 3, Object = 4 };

struct FolderEntry {
    FolderEntryKind kind = FolderEntryKind::Value;
    std::wstring name;
    std::string bytes;                   // a value's bytes
    std::wstring text;                   // a string's text, an object's class name
    std::shared_ptr<FolderNode> folder;  // a sub-folder's or an object's entries

    /// Values, strings and objects are found by key; sub-folders by name,
    /// in a name space of their own.
    bool IsKeyed() const { return kind != FolderEntryKind::Folder; }
};

struct FolderNode {
    std::vector<FolderEntry> entries;
};

/// The file form of `root`. False when it would not fit the format's 32-bit
/// sizes or memory ran out.
bool FolderSerialize(const FolderNode& root, std::string& out);

/// Reads a whole file image into `root` (left empty on failure). Every count
/// is checked against the bytes that remain before anything is allocated for
/// it, names and strings must be valid UTF-8, kinds must be known, nesting
/// may not exceed kMaxFolderDepth, and nothing may follow the root's body.
bool FolderParse(std::string_view bytes, FolderNode& root);
