// Whole-file reading and writing, and the steps of a component's archive
// file (XML with its stylesheet header, or a folder stream) that do not
// depend on the component's class.
#pragma once

#include "lum/lum.h"

/// Reads the whole file `name` (at most 256 bytes once converted to a
/// multibyte name). With `wide` 0 hands out the bytes and their count; else
/// wide text and its count of characters: UTF-16 when a byte-order mark
/// (FF FE or FE FF) shows among the first 8 bytes, read little-endian after
/// the first unit, otherwise multibyte text. Either buffer has a 0 behind
/// the data and is freed by the caller with array delete (`unsigned char[]`
/// or `wchar_t[]`). A file that cannot be opened prints "file open err:\n
/// <name>\n" on standard error; it and an empty file give E_FAIL.
HRESULT FileArchiveLoad(tagREFString name, void** buffer, int* length, short wide);

/// Writes `count` bytes to the file `name`, replacing it. With `wide` set
/// the bytes are 4-byte wide characters, written as UTF-16 little-endian
/// after the mark FF FE, each cut to its low 16 bits. `reserved` is not
/// read. E_FAIL when the file cannot be opened or no data was written.
HRESULT FileArchiveSave(tagREFString name, unsigned char* bytes, int count, short wide, short reserved);

/// Which format a file name selects by its extension.
enum ArchiveFormat { ArchiveFormatNone, ArchiveFormatXML, ArchiveFormatFolder };

/// The extension is the text after the last "."; it is compared, letter
/// case ignored, with "x" and then "t" over the shorter of the two lengths:
/// a first letter x selects XML, t the folder stream. An empty extension
/// ("name.") therefore compares equal to "x". No "." or another letter:
/// neither.
ArchiveFormat ARCHIVEFormatOf(IString* fileName);

/// True when the two names differ: either is empty, their lengths differ, or
/// a character differs with letter case ignored.
bool ARCHIVENameChanged(IString* previous, IString* next);

/// Writes the component's settings as an XML archive: the two header lines
/// (stylesheet `stylesheet`, "generic.xsl" when null), then a body element
/// named after the component's class holding what its IDataPersist writes.
/// `textEncoding` below 1 writes UTF-16, else 8-bit text.
HRESULT ARCHIVESaveXML(IUnknown* component, IString* fileName, IString* stylesheet, int32_t flags,
                       int32_t textEncoding);

/// Reads an XML archive through a stream of the first class of `streamClasses`
/// (null-terminated) that can be created, skips the leading "?" tokens and
/// lets the component's IDataPersist load from the rest.
HRESULT ARCHIVELoadXML(IUnknown* component, IString* fileName, const wchar_t* const* streamClasses);

/// A "FolderStream" bound to the file: mode 1 to write, 0 to read. A file
/// that cannot be read is reported as FileArchiveLoad reports it.
SmartPtr<IFolderStream> ARCHIVEOpenFolder(IString* fileName, int32_t mode);

/// Writes the "Info" record (origin and class identity of the component).
void ARCHIVEWriteInfo(IUnknown* component, IFolderStream* folder);

/// The component's class name as a new string, or null.
SmartPtr<IString> ARCHIVEClassName(IUnknown* component);

/// True when `name` holds at least one character.
bool ARCHIVEHasName(IString* name);
