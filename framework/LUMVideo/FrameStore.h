// CFrameStore: the encoded frames of a recording, kept in an anonymous
// temporary file rather than in memory, so that a recording of any length
// needs memory only for its table of frames (offset and size of each).
//
// Appends go through a large buffer; a frame is written to the file when the
// buffer fills or when someone needs the file's contents. When the file
// cannot take more (disk full), the frames that did not reach it are dropped
// again and the append reports the failure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "lum/lum.h"

class CFrameStore {
public:
    struct Entry {
        uint64_t offset;  // in the temporary file
        uint32_t size;
    };

    CFrameStore() = default;
    CFrameStore(const CFrameStore&) = delete;
    CFrameStore& operator=(const CFrameStore&) = delete;
    ~CFrameStore();

    /// Appends one frame. E_FAIL when the temporary file cannot be made or
    /// written, or memory runs out; the store then holds only the frames
    /// that are safely in the file.
    HRESULT Append(const uint8_t* data, size_t size);
    /// Copies frame `index` (in range) into `out`. E_FAIL on a read error.
    HRESULT Read(size_t index, std::vector<uint8_t>& out);
    /// Writes out what is buffered. E_FAIL as for Append.
    HRESULT Flush();
    void Remove(size_t index);
    /// Drops every frame and gives the file's space back.
    void Clear();

    size_t Count() const { return m_Entries.size(); }
    const std::vector<Entry>& Entries() const { return m_Entries; }
    /// The temporary file (after Flush, every entry is in it); -1 before
    /// the first frame.
    int Descriptor() const { return m_File; }

private:
    bool Open();

    std::vector<Entry> m_Entries;
    std::vector<uint8_t> m_Buffer;  // bytes from m_Written on
    int m_File = -1;
    uint64_t m_Written = 0;  // bytes in the file
};

/// Reads exactly `size` bytes at `offset`; false on an error or end of file.
bool ReadFully(int file, uint64_t offset, void* data, size_t size);
/// Writes all `size` bytes at `offset`; false on an error.
bool WriteFully(int file, uint64_t offset, const void* data, size_t size);
