// Helpers shared by the fuzz targets: turning fuzz bytes into wide text,
// in-memory files for readers that only take a file name, and a check that
// stops the run with a message when an invariant does not hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Ends the run (the fuzzer keeps the input) when `condition` is false.
#define FUZZ_CHECK(condition) ((condition) ? (void)0 : FuzzFail(#condition, __FILE__, __LINE__))
[[noreturn]] void FuzzFail(const char* what, const char* file, int line);

/// Moves to the folder of the running executable, where the modules it
/// loads by name ("./Name.so") and the data files are.
void FuzzEnterOutputFolder();

/// Text as a host reads it: UTF-8 where the bytes form it, any other byte
/// standing for itself (Latin-1), so that text seeds work unchanged.
std::wstring FuzzWideText(const uint8_t* data, size_t size);

/// Raw 32-bit characters, 4 bytes each (any value, negative ones too).
std::wstring FuzzRawWide(const uint8_t* data, size_t size);

/// The input of the element-cutting targets: whether cuts consume, one to
/// four tag names of up to 12 bytes, then the text to cut from (all bytes
/// left), read from the input in that order.
struct FuzzTaggedInput {
    bool consume = false;
    std::vector<std::wstring> tags;
    std::wstring text;
};
FuzzTaggedInput FuzzReadTaggedInput(const uint8_t* data, size_t size);

/// A file in memory (memfd) whose contents are replaced for every input.
class FuzzMemoryFile {
public:
    FuzzMemoryFile();
    ~FuzzMemoryFile();
    FuzzMemoryFile(const FuzzMemoryFile&) = delete;
    FuzzMemoryFile& operator=(const FuzzMemoryFile&) = delete;

    /// Replaces the contents with `size` bytes.
    void Set(const uint8_t* data, size_t size);
    int Descriptor() const { return m_File; }
    /// A name under which open() finds the same file.
    const std::string& Path() const { return m_Path; }

private:
    int m_File = -1;
    std::string m_Path;
};

/// A named file in shared memory (/dev/shm), for readers that choose what
/// to do by the file name's extension. Removed when the object goes, and
/// at the latest when the process exits.
class FuzzNamedFile {
public:
    explicit FuzzNamedFile(const char* extension);
    ~FuzzNamedFile();
    FuzzNamedFile(const FuzzNamedFile&) = delete;
    FuzzNamedFile& operator=(const FuzzNamedFile&) = delete;

    void Set(const uint8_t* data, size_t size);
    const std::string& Path() const { return m_Path; }
    std::wstring WidePath() const { return std::wstring(m_Path.begin(), m_Path.end()); }

private:
    std::string m_Path;
};
