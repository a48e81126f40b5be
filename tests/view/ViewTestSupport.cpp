#include "tests/view/ViewTestSupport.h"

#include <fcntl.h>
#include <poll.h>
#include <png.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <thread>

#include "tools/lumhost/BitmapFont.h"

extern char** environ;

namespace {

std::vector<uint8_t> Bytes(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

uint32_t Little(const std::vector<uint8_t>& b, size_t at, int size) {
    uint32_t value = 0;
    for (int i = size - 1; i >= 0; --i) value = value << 8 | b[at + static_cast<size_t>(i)];
    return value;
}

uint32_t Big(const std::vector<uint8_t>& b, size_t at) {
    return static_cast<uint32_t>(b[at]) << 24 | static_cast<uint32_t>(b[at + 1]) << 16 |
           static_cast<uint32_t>(b[at + 2]) << 8 | b[at + 3];
}

/// The 8-bit value of the bits of `pixel` under `mask`.
uint32_t Channel(uint32_t pixel, uint32_t mask) {
    if (!mask) return 0;
    int shift = 0;
    while (!((mask >> shift) & 1)) ++shift;
    const uint32_t value = (pixel & mask) >> shift, top = mask >> shift;
    return top == 255 ? value : value * 255 / top;
}

std::string ReadFile(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

// ---- Pictures ----------------------------------------------------------

Picture ReadBmp(const std::string& file) {
    Picture picture;
    const std::vector<uint8_t> b = Bytes(file);
    if (b.size() < 54 || b[0] != 'B' || b[1] != 'M') return picture;
    const uint32_t offset = Little(b, 10, 4), infoSize = Little(b, 14, 4);
    const int width = static_cast<int32_t>(Little(b, 18, 4));
    const int rawHeight = static_cast<int32_t>(Little(b, 22, 4));
    const int bits = static_cast<int>(Little(b, 28, 2));
    const uint32_t compression = Little(b, 30, 4);
    const bool topDown = rawHeight < 0;
    const int height = topDown ? -rawHeight : rawHeight;
    if (width <= 0 || height <= 0 || (bits != 8 && bits != 24 && bits != 32) || (compression != 0 && compression != 3))
        return picture;
    const size_t stride = (static_cast<size_t>(width) * bits + 31) / 32 * 4;
    if (offset + stride * height > b.size()) return picture;
    std::vector<uint32_t> palette;
    if (bits == 8) {
        uint32_t colours = Little(b, 46, 4);
        if (colours == 0) colours = 256;
        for (uint32_t i = 0; i < colours; ++i) {
            const size_t at = 14 + infoSize + 4 * i;
            if (at + 3 > b.size()) return picture;
            palette.push_back(static_cast<uint32_t>(b[at + 2]) << 16 | static_cast<uint32_t>(b[at + 1]) << 8 | b[at]);
        }
    }
    picture.width = width;
    picture.height = height;
    picture.rgb.resize(static_cast<size_t>(width) * height);
    for (int y = 0; y < height; ++y) {
        const size_t row = offset + stride * static_cast<size_t>(topDown ? y : height - 1 - y);
        for (int x = 0; x < width; ++x) {
            uint32_t value = 0;
            if (bits == 8) {
                const uint8_t index = b[row + static_cast<size_t>(x)];
                value = index < palette.size() ? palette[index] : 0;
            } else {
                const size_t at = row + static_cast<size_t>(x) * (bits / 8);
                value = static_cast<uint32_t>(b[at + 2]) << 16 | static_cast<uint32_t>(b[at + 1]) << 8 | b[at];
            }
            picture.rgb[static_cast<size_t>(y) * width + x] = value;
        }
    }
    return picture;
}

Picture ReadPng(const std::string& file) {
    Picture picture;
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, file.c_str())) return picture;
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr)) {
        png_image_free(&image);
        return picture;
    }
    picture.width = static_cast<int>(image.width);
    picture.height = static_cast<int>(image.height);
    picture.rgb.resize(static_cast<size_t>(picture.width) * picture.height);
    for (size_t i = 0; i < picture.rgb.size(); ++i)
        picture.rgb[i] = static_cast<uint32_t>(rgb[3 * i]) << 16 | static_cast<uint32_t>(rgb[3 * i + 1]) << 8 |
                         rgb[3 * i + 2];
    return picture;
}

Picture ReadXwd(const std::string& file) {
    Picture picture;
    const std::vector<uint8_t> b = Bytes(file);
    if (b.size() < 100) return picture;
    const uint32_t headerSize = Big(b, 0), version = Big(b, 4), format = Big(b, 8);
    const int width = static_cast<int>(Big(b, 16)), height = static_cast<int>(Big(b, 20));
    const uint32_t byteOrder = Big(b, 28), bitsPerPixel = Big(b, 44), bytesPerLine = Big(b, 48);
    const uint32_t redMask = Big(b, 56), greenMask = Big(b, 60), blueMask = Big(b, 64);
    const uint32_t colours = Big(b, 76);
    // Version 7, a "ZPixmap" of 24 or 32 bits per pixel.
    if (version != 7 || format != 2 || (bitsPerPixel != 32 && bitsPerPixel != 24) || width <= 0 || height <= 0)
        return picture;
    const size_t data = headerSize + static_cast<size_t>(colours) * 12;
    if (data + static_cast<size_t>(bytesPerLine) * height > b.size()) return picture;
    const int bytes = static_cast<int>(bitsPerPixel / 8);
    picture.width = width;
    picture.height = height;
    picture.rgb.resize(static_cast<size_t>(width) * height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const size_t at = data + static_cast<size_t>(y) * bytesPerLine + static_cast<size_t>(x) * bytes;
            uint32_t pixel = 0;
            for (int i = 0; i < bytes; ++i) {
                const uint32_t byte = b[at + static_cast<size_t>(i)];
                pixel |= byteOrder == 0 ? byte << (8 * i) : byte << (8 * (bytes - 1 - i));
            }
            picture.rgb[static_cast<size_t>(y) * width + x] =
                Channel(pixel, redMask) << 16 | Channel(pixel, greenMask) << 8 | Channel(pixel, blueMask);
        }
    return picture;
}

bool WriteBmp24(const std::string& file, const Picture& picture) {
    const size_t stride = (static_cast<size_t>(picture.width) * 3 + 3) / 4 * 4;
    const size_t size = 54 + stride * picture.height;
    std::vector<uint8_t> b(size, 0);
    auto put = [&](size_t at, uint32_t value, int count) {
        for (int i = 0; i < count; ++i) b[at + static_cast<size_t>(i)] = static_cast<uint8_t>(value >> (8 * i));
    };
    b[0] = 'B';
    b[1] = 'M';
    put(2, static_cast<uint32_t>(size), 4);
    put(10, 54, 4);
    put(14, 40, 4);
    put(18, static_cast<uint32_t>(picture.width), 4);
    put(22, static_cast<uint32_t>(picture.height), 4);
    put(26, 1, 2);
    put(28, 24, 2);
    put(34, static_cast<uint32_t>(stride * picture.height), 4);
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            const size_t at = 54 + stride * static_cast<size_t>(picture.height - 1 - y) + static_cast<size_t>(x) * 3;
            put(at, picture.At(x, y), 3);  // B, G, R
        }
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
    return static_cast<bool>(out);
}

namespace {

bool WritePng(const std::string& file, const Picture& picture, uint32_t format, int channels, uint8_t alpha) {
    std::vector<uint8_t> bytes;
    for (uint32_t rgb : picture.rgb) {
        if (channels == 1) {
            bytes.push_back(static_cast<uint8_t>(rgb >> 16));
        } else {
            bytes.push_back(static_cast<uint8_t>(rgb >> 16));
            bytes.push_back(static_cast<uint8_t>(rgb >> 8));
            bytes.push_back(static_cast<uint8_t>(rgb));
            bytes.push_back(alpha);
        }
    }
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.width);
    image.height = static_cast<png_uint_32>(picture.height);
    image.format = format;
    return png_image_write_to_file(&image, file.c_str(), 0, bytes.data(), 0, nullptr) != 0;
}

}  // namespace

bool WritePngGray(const std::string& file, const Picture& picture) {
    return WritePng(file, picture, PNG_FORMAT_GRAY, 1, 0);
}

bool WritePngRgba(const std::string& file, const Picture& picture, uint8_t alpha) {
    return WritePng(file, picture, PNG_FORMAT_RGBA, 4, alpha);
}

// ---- Processes ---------------------------------------------------------

namespace {

std::vector<std::string> ChildEnvironment(const Environment& changes) {
    std::vector<std::string> result;
    std::set<std::string> changed;
    for (const auto& [name, value] : changes) changed.insert(name);
    for (char** e = environ; *e; ++e) {
        const std::string entry = *e;
        const std::string name = entry.substr(0, entry.find('='));
        if (!changed.count(name)) result.push_back(entry);
    }
    for (const auto& [name, value] : changes)
        if (value) result.push_back(name + "=" + *value);
    return result;
}

std::vector<char*> Pointers(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (std::string& s : strings) pointers.push_back(s.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

bool Child::Start(const std::vector<std::string>& argv, const Environment& environment, const std::string& scratch) {
    static int serial = 0;
    const std::string stem = scratch + "/child" + std::to_string(++serial);
    m_OutFile = stem + ".out";
    m_ErrFile = stem + ".err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, m_OutFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, m_ErrFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<std::string> arguments = argv;
    std::vector<std::string> variables = ChildEnvironment(environment);
    std::vector<char*> args = Pointers(arguments), env = Pointers(variables);
    const int failed = posix_spawnp(&m_Pid, args[0], &actions, nullptr, args.data(), env.data());
    posix_spawn_file_actions_destroy(&actions);
    if (failed) m_Pid = -1;
    return !failed;
}

ProcessResult Child::Wait(double seconds) {
    ProcessResult run;
    if (m_Pid <= 0) return run;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    int status = 0;
    for (;;) {
        const pid_t done = waitpid(m_Pid, &status, WNOHANG);
        if (done == m_Pid) break;
        if (std::chrono::steady_clock::now() > deadline) {
            kill(m_Pid, SIGKILL);
            waitpid(m_Pid, &status, 0);
            run.timedOut = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    m_Pid = -1;
    run.status = !run.timedOut && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = ReadFile(m_OutFile);
    run.err = ReadFile(m_ErrFile);
    return run;
}

std::string Child::Output() const { return ReadFile(m_OutFile); }

Child::~Child() {
    if (m_Pid > 0) {
        kill(m_Pid, SIGKILL);
        waitpid(m_Pid, nullptr, 0);
    }
}

Environment LeakSuppressions() {
    const char* given = std::getenv("LSAN_OPTIONS");
    const std::string options = given ? given : "";
    if (options.find("suppressions=") != std::string::npos) return {};
    return {{"LSAN_OPTIONS", (options.empty() ? "" : options + ":") + "suppressions=" LUM_VIEW_LSAN_SUPPRESSIONS}};
}

ProcessResult RunProgram(const std::vector<std::string>& argv, const Environment& environment, const std::string& scratch,
               double seconds) {
    // LeakSanitizer's exit-time check stops every thread of the process
    // through a tracer, which now and then crashes itself while the display
    // libraries' threads wind down ("Tracer caught signal 11"). That is a
    // failure of the checker, not a leak (a leak is reported as one), so
    // such a run is repeated, at most twice.
    ProcessResult result;
    for (int attempt = 0; attempt < 3; ++attempt) {
        Child child;
        if (!child.Start(argv, environment, scratch)) return ProcessResult{};
        result = child.Wait(seconds);
        if (result.err.find("LeakSanitizer has encountered a fatal error") == std::string::npos) break;
    }
    return result;
}

bool OnPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::stringstream folders(path ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (!folder.empty() && access((folder + "/" + program).c_str(), X_OK) == 0) return true;
    return false;
}

bool XServer::Start(std::string& error) {
    if (!OnPath("Xvfb")) {
        error = "Xvfb is not installed (Debian package xvfb)";
        return false;
    }
    int ready[2];
    if (pipe(ready) != 0) {
        error = "no pipe";
        return false;
    }
    fcntl(ready[0], F_SETFD, FD_CLOEXEC);  // only the write end goes to the server
    std::vector<std::string> arguments = {"Xvfb",   "-displayfd",  std::to_string(ready[1]), "-screen", "0",
                                          "1024x768x24", "-nolisten", "tcp"};
    std::vector<char*> args = Pointers(arguments);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const int failed = posix_spawnp(&m_Pid, "Xvfb", &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ready[1]);
    if (failed) {
        close(ready[0]);
        m_Pid = -1;
        error = std::string("cannot start Xvfb: ") + std::strerror(failed);
        return false;
    }
    // The server writes its display number once it accepts connections.
    std::string number;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd wait{ready[0], POLLIN, 0};
        if (poll(&wait, 1, 100) <= 0) continue;
        char c = 0;
        if (read(ready[0], &c, 1) != 1) break;  // the server ended
        if (c == '\n') break;
        number += c;
    }
    close(ready[0]);
    if (number.empty()) {
        Stop();
        error = "Xvfb did not start within 20 s";
        return false;
    }
    m_Display = ":" + number;
    return true;
}

void XServer::Stop() {
    if (m_Pid <= 0) return;
    kill(m_Pid, SIGTERM);
    waitpid(m_Pid, nullptr, 0);
    m_Pid = -1;
}

std::string MakeTempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "lumview.XXXXXX").string();
    if (!mkdtemp(pattern.data())) return {};
    return pattern;
}

void RemoveTree(const std::string& folder) {
    std::error_code error;
    if (!folder.empty()) std::filesystem::remove_all(folder, error);
}

// ---- Text --------------------------------------------------------------

std::string ReadText(const Picture& picture, int x, int y, int scale, uint32_t colour, uint32_t background) {
    std::string text;
    const int cellWidth = BitmapFont::kAdvance * scale, cellHeight = BitmapFont::kGlyphHeight * scale;
    for (int left = x; left + cellWidth <= picture.width && y >= 0 && y + cellHeight <= picture.height;
         left += cellWidth) {
        uint8_t rows[BitmapFont::kGlyphHeight] = {};
        bool cell = true;
        for (int row = 0; row < BitmapFont::kGlyphHeight && cell; ++row)
            for (int column = 0; column < BitmapFont::kAdvance && cell; ++column) {
                const uint32_t first = picture.At(left + column * scale, y + row * scale);
                for (int dy = 0; dy < scale && cell; ++dy)
                    for (int dx = 0; dx < scale && cell; ++dx)
                        cell = picture.At(left + column * scale + dx, y + row * scale + dy) == first;
                if (!cell || (first != colour && first != background)) {
                    cell = false;
                    break;
                }
                if (first != colour) continue;
                if (column == BitmapFont::kGlyphWidth) cell = false;  // the gap between characters is blank
                else rows[row] |= static_cast<uint8_t>(1u << (BitmapFont::kGlyphWidth - 1 - column));
            }
        if (!cell) break;
        char found = '\x7f';
        for (char c = BitmapFont::kFirst; c <= BitmapFont::kLast; ++c)
            if (std::memcmp(BitmapFont::Glyph(c), rows, BitmapFont::kGlyphHeight) == 0) {
                found = c;
                break;
            }
        text += found;
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

bool ShowsText(const Picture& picture, const std::string& text, int x, int y, int scale, uint32_t colour,
               uint32_t background) {
    const int width = BitmapFont::TextWidth(text, scale), height = BitmapFont::kGlyphHeight * scale;
    if (x < 0 || y < 0 || x + width > picture.width || y + height > picture.height) return false;
    std::vector<bool> lit(static_cast<size_t>(width) * height, false);
    BitmapFont::Render(text, 0, 0, scale, [&](int px, int py) { lit[static_cast<size_t>(py) * width + px] = true; });
    for (int py = 0; py < height; ++py)
        for (int px = 0; px < width; ++px)
            if (picture.At(x + px, y + py) != (lit[static_cast<size_t>(py) * width + px] ? colour : background))
                return false;
    return true;
}
