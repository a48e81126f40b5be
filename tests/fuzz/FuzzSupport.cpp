#include "tests/fuzz/FuzzSupport.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

void FuzzFail(const char* what, const char* file, int line) {
    std::fprintf(stderr, "fuzz check failed: %s (%s:%d)\n", what, file, line);
    std::fflush(stderr);
    std::abort();
}

void FuzzEnterOutputFolder() {
    char path[4096];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) return;
    path[length] = '\0';
    if (char* slash = std::strrchr(path, '/')) {
        *slash = '\0';
        if (::chdir(path) != 0) std::perror("chdir");
    }
    // Multibyte conversions of the module follow the host's locale.
    std::setlocale(LC_ALL, "C.UTF-8");
}

std::wstring FuzzWideText(const uint8_t* data, size_t size) {
    std::wstring text;
    text.reserve(size);
    size_t i = 0;
    while (i < size) {
        const uint8_t lead = data[i];
        int extra = lead >= 0xF0 && lead < 0xF8 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
        if (lead >= 0xF8) extra = 0;
        uint32_t code = extra == 3 ? lead & 0x07u : extra == 2 ? lead & 0x0Fu : extra == 1 ? lead & 0x1Fu : lead;
        bool whole = extra > 0 && i + static_cast<size_t>(extra) < size;
        for (int k = 1; whole && k <= extra; ++k) {
            const uint8_t next = data[i + static_cast<size_t>(k)];
            if ((next & 0xC0) != 0x80) whole = false;
            code = code << 6 | (next & 0x3Fu);
        }
        if (extra > 0 && !whole) {
            text.push_back(static_cast<wchar_t>(lead));
            ++i;
            continue;
        }
        text.push_back(static_cast<wchar_t>(code));
        i += static_cast<size_t>(extra) + 1;
    }
    return text;
}

std::wstring FuzzRawWide(const uint8_t* data, size_t size) {
    std::wstring text(size / sizeof(wchar_t), L'\0');
    if (!text.empty()) std::memcpy(text.data(), data, text.size() * sizeof(wchar_t));
    return text;
}

FuzzTaggedInput FuzzReadTaggedInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    FuzzTaggedInput read;
    read.consume = input.ConsumeBool();
    const size_t tagCount = input.ConsumeIntegralInRange<size_t>(1, 4);
    for (size_t i = 0; i < tagCount; ++i) {
        std::vector<uint8_t> bytes = input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange<size_t>(0, 12));
        read.tags.push_back(FuzzWideText(bytes.data(), bytes.size()));
    }
    std::vector<uint8_t> bytes = input.ConsumeRemainingBytes<uint8_t>();
    read.text = FuzzWideText(bytes.data(), bytes.size());
    return read;
}

FuzzMemoryFile::FuzzMemoryFile() {
    m_File = ::memfd_create("lum-fuzz", MFD_CLOEXEC);
    if (m_File < 0) FuzzFail("memfd_create", __FILE__, __LINE__);
    m_Path = "/proc/self/fd/" + std::to_string(m_File);
}

FuzzMemoryFile::~FuzzMemoryFile() {
    if (m_File >= 0) ::close(m_File);
}

void FuzzMemoryFile::Set(const uint8_t* data, size_t size) {
    FUZZ_CHECK(::ftruncate(m_File, 0) == 0);
    size_t done = 0;
    while (done < size) {
        const ssize_t wrote = ::pwrite(m_File, data + done, size - done, static_cast<off_t>(done));
        FUZZ_CHECK(wrote > 0);
        done += static_cast<size_t>(wrote);
    }
}

namespace {

// Paths of every named file made, removed at exit as well: libFuzzer ends a
// timed run with exit(), which skips the destructors of the targets' files.
std::vector<std::string>& NamedFilesToRemove() {
    static auto* paths = new std::vector<std::string>;
    return *paths;
}

void RemoveNamedFiles() {
    for (const std::string& path : NamedFilesToRemove()) ::unlink(path.c_str());
}

}  // namespace

FuzzNamedFile::FuzzNamedFile(const char* extension) {
    const char* folder = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    m_Path = std::string(folder) + "/lum-fuzz-" + std::to_string(::getpid()) + extension;
    if (NamedFilesToRemove().empty()) std::atexit(RemoveNamedFiles);
    NamedFilesToRemove().push_back(m_Path);
}

FuzzNamedFile::~FuzzNamedFile() { ::unlink(m_Path.c_str()); }

void FuzzNamedFile::Set(const uint8_t* data, size_t size) {
    const int file = ::open(m_Path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    FUZZ_CHECK(file >= 0);
    size_t done = 0;
    while (done < size) {
        const ssize_t wrote = ::write(file, data + done, size - done);
        FUZZ_CHECK(wrote > 0);
        done += static_cast<size_t>(wrote);
    }
    ::close(file);
}
