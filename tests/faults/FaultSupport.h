// What the fault tests share: running a scenario in a forked child that
// reports one "key value" line per step (so that a crash or a hang in the
// child is seen by the parent and the lines written before it survive),
// images written by hand, and waiting.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "lum/lum.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace faults {

namespace fs = std::filesystem;

inline std::string Hex(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "%08x", static_cast<uint32_t>(hr));
    return text;
}

inline bool WaitUntil(const std::function<bool()>& done, double seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

/// A 24-bit BMP of `width` x `height` filled with one level, written by hand
/// so that no module is needed to make it.
inline void WriteBmp(const fs::path& file, int width, int height, uint8_t level) {
    const int stride = (width * 3 + 3) & ~3;
    const uint32_t pixels = static_cast<uint32_t>(stride * height);
    std::vector<uint8_t> bytes(54 + pixels, level);
    auto put32 = [&](size_t at, uint32_t v) {
        for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<uint8_t>(v >> (8 * i));
    };
    std::memset(bytes.data(), 0, 54);
    bytes[0] = 'B';
    bytes[1] = 'M';
    put32(2, static_cast<uint32_t>(bytes.size()));
    put32(10, 54);
    put32(14, 40);
    put32(18, static_cast<uint32_t>(width));
    put32(22, static_cast<uint32_t>(height));
    bytes[26] = 1;
    bytes[28] = 24;
    put32(34, pixels);
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
}

/// The child's report: one "key value" line per step, written at once.
class Report {
public:
    explicit Report(const fs::path& file) : m_Fd(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644)) {}
    ~Report() {
        if (m_Fd >= 0) close(m_Fd);
    }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;
    void operator()(const std::string& key, const std::string& value) {
        const std::string line = key + " " + value + "\n";
        if (m_Fd >= 0 && write(m_Fd, line.data(), line.size()) < 0) return;
    }
    void Code(const std::string& key, HRESULT hr) { (*this)(key, Hex(hr)); }
    void Number(const std::string& key, long long n) { (*this)(key, std::to_string(n)); }
    void Flag(const std::string& key, bool on) { (*this)(key, on ? "yes" : "no"); }

private:
    int m_Fd;
};

/// Set by a child that moved into a mount namespace of its own: the leak
/// checker's tracer does not work there, so that child skips the check.
inline bool g_NoLeakCheck = false;

struct ChildResult {
    int status = -1;
    std::map<std::string, std::string> lines;
    std::string text;  ///< every line, for failure messages

    bool Survived() const { return WIFEXITED(status) && WEXITSTATUS(status) == 0; }
    std::string operator[](const std::string& key) const {
        auto found = lines.find(key);
        return found == lines.end() ? "<none>" : found->second;
    }
    long long Number(const std::string& key) const {
        auto found = lines.find(key);
        return found == lines.end() ? -1 : std::atoll(found->second.c_str());
    }
};

/// Runs `body` in a forked child and gives back its exit status and report.
/// The child leaves with _exit, so that the parent's exit handlers do not
/// run twice (under AddressSanitizer it looks for leaks first, and a leak
/// ends it with a failure status); a child that does not end within
/// `seconds` is killed.
inline ChildResult RunInChild(const std::function<int(Report&)>& body, double seconds = 120) {
    ChildResult result;
    std::string pattern = (fs::temp_directory_path() / "lum-faults-report-XXXXXX").string();
    const int fd = mkstemp(pattern.data());
    if (fd < 0) return result;
    close(fd);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        int code = 3;
        {
            Report report(pattern);
            code = body(report);
            report("end", "reached");
        }
#if defined(__SANITIZE_ADDRESS__)
        if (!g_NoLeakCheck) __lsan_do_leak_check();
#endif
        _exit(code);
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (waitpid(child, &result.status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > end) {
            kill(child, SIGKILL);
            waitpid(child, &result.status, 0);
            result.lines["timeout"] = "yes";
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::ifstream in(pattern);
    std::string key, value;
    while (in >> key >> value) {
        result.lines[key] = value;
        result.text += key + " " + value + "\n";
    }
    std::remove(pattern.c_str());
    return result;
}

}  // namespace faults
