#include "framework/LUMVideo/FrameStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

namespace {

// Appends are collected up to this many bytes before one write.
constexpr size_t kBufferBytes = size_t(4) << 20;

}  // namespace

bool ReadFully(int file, uint64_t offset, void* data, size_t size) {
    auto* bytes = static_cast<uint8_t*>(data);
    while (size > 0) {
        const ssize_t got = ::pread(file, bytes, size, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        bytes += got;
        offset += static_cast<uint64_t>(got);
        size -= static_cast<size_t>(got);
    }
    return true;
}

bool WriteFully(int file, uint64_t offset, const void* data, size_t size) {
    auto* bytes = static_cast<const uint8_t*>(data);
    while (size > 0) {
        const ssize_t done = ::pwrite(file, bytes, size, static_cast<off_t>(offset));
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        bytes += done;
        offset += static_cast<uint64_t>(done);
        size -= static_cast<size_t>(done);
    }
    return true;
}

CFrameStore::~CFrameStore() {
    if (m_File >= 0) ::close(m_File);
}

bool CFrameStore::Open() {
    if (m_File >= 0) return true;
    const char* folder = std::getenv("TMPDIR");
    std::string pattern = std::string(folder && *folder ? folder : "/tmp") + "/lumvideo-XXXXXX";
    m_File = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (m_File < 0) return false;
    // Nameless from now on: the space returns to the system when the file
    // is closed, however the process ends.
    ::unlink(pattern.c_str());
    return true;
}

HRESULT CFrameStore::Flush() {
    if (m_Buffer.empty()) return S_OK;
    if (!Open() || !WriteFully(m_File, m_Written, m_Buffer.data(), m_Buffer.size())) {
        // Keep only the frames that are wholly in the file.
        while (!m_Entries.empty() && m_Entries.back().offset + m_Entries.back().size > m_Written)
            m_Entries.pop_back();
        m_Buffer.clear();
        return E_FAIL;
    }
    m_Written += m_Buffer.size();
    m_Buffer.clear();
    return S_OK;
}

HRESULT CFrameStore::Append(const uint8_t* data, size_t size) {
    if (size > UINT32_MAX) return E_FAIL;
    try {
        if (m_Buffer.capacity() < kBufferBytes) m_Buffer.reserve(kBufferBytes);
        // Room for the entry first, so that nothing can fail once the bytes
        // are taken.
        if (m_Entries.size() == m_Entries.capacity()) m_Entries.reserve(std::max<size_t>(64, 2 * m_Entries.size()));
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    if (m_Buffer.size() + size > kBufferBytes && Flush() < 0) return E_FAIL;
    const uint64_t offset = m_Written + m_Buffer.size();
    if (size >= kBufferBytes) {
        // Too large to buffer: straight to the file.
        if (!Open() || !WriteFully(m_File, offset, data, size)) return E_FAIL;
        m_Written += size;
    } else {
        m_Buffer.insert(m_Buffer.end(), data, data + size);
    }
    m_Entries.push_back(Entry{offset, static_cast<uint32_t>(size)});
    return S_OK;
}

HRESULT CFrameStore::Read(size_t index, std::vector<uint8_t>& out) {
    const Entry entry = m_Entries[index];
    try {
        out.resize(entry.size);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    if (entry.offset >= m_Written) {
        // Still in the buffer (a frame is wholly in the file or wholly there).
        std::memcpy(out.data(), m_Buffer.data() + (entry.offset - m_Written), entry.size);
        return S_OK;
    }
    return ReadFully(m_File, entry.offset, out.data(), entry.size) ? S_OK : E_FAIL;
}

void CFrameStore::Remove(size_t index) { m_Entries.erase(m_Entries.begin() + static_cast<ptrdiff_t>(index)); }

void CFrameStore::Clear() {
    m_Entries.clear();
    m_Entries.shrink_to_fit();
    m_Buffer.clear();
    if (m_File >= 0 && ::ftruncate(m_File, 0) == 0) {
        m_Written = 0;
    } else if (m_File >= 0) {
        // The space could not be given back; start a fresh file instead.
        ::close(m_File);
        m_File = -1;
        m_Written = 0;
    }
}
