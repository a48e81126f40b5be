#include "tools/lumhost/Options.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>

#include "lum/lum.h"

Options::Options(const std::vector<std::string>& args, const std::set<std::string>& known,
                 const std::set<std::string>& switches) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg.rfind("--", 0) != 0 || (!known.count(arg.substr(2)) && !switches.count(arg.substr(2)))) {
            m_Error = "unknown argument '" + arg + "'";
            return;
        }
        std::string name = arg.substr(2);
        if (switches.count(name)) {
            // Not "= \"1\"": GCC 12 at -O3 reports a false -Wrestrict for it.
            m_Values.insert_or_assign(name, std::string(1, '1'));
            continue;
        }
        if (i + 1 >= args.size()) {
            m_Error = "--" + name + " needs a value";
            return;
        }
        m_Values[name] = args[++i];
    }
}

std::string Options::Text(const std::string& name, const std::string& fallback) const {
    auto it = m_Values.find(name);
    return it == m_Values.end() ? fallback : it->second;
}

int Options::Integer(const std::string& name, int fallback, int minimum, int maximum) {
    auto it = m_Values.find(name);
    if (it == m_Values.end()) return fallback;
    char* end = nullptr;
    long value = std::strtol(it->second.c_str(), &end, 10);
    if (it->second.empty() || *end != '\0' || value < minimum || value > maximum) {
        if (m_Error.empty())
            m_Error = "--" + name + " must be a whole number from " + std::to_string(minimum) + " to " +
                      std::to_string(maximum) + ", not '" + it->second + "'";
        return fallback;
    }
    return static_cast<int>(value);
}

double Options::Number(const std::string& name, double fallback, double minimum, double maximum) {
    auto it = m_Values.find(name);
    if (it == m_Values.end()) return fallback;
    char* end = nullptr;
    double value = std::strtod(it->second.c_str(), &end);
    if (it->second.empty() || *end != '\0' || !(value >= minimum && value <= maximum)) {
        if (m_Error.empty()) m_Error = "--" + name + " is out of range: '" + it->second + "'";
        return fallback;
    }
    return value;
}

bool Options::Size(const std::string& name, int& width, int& height) {
    auto it = m_Values.find(name);
    if (it == m_Values.end()) return true;
    int w = 0, h = 0;
    char rest = 0;
    if (std::sscanf(it->second.c_str(), "%dx%d%c", &w, &h, &rest) != 2 || w < 1 || h < 1 || w > 16384 ||
        h > 16384) {
        if (m_Error.empty()) m_Error = "--" + name + " must look like 1280x1024, not '" + it->second + "'";
        return false;
    }
    width = w;
    height = h;
    return true;
}

int Options::Choice(const std::string& name, const std::vector<std::string>& choices, int fallback) {
    auto it = m_Values.find(name);
    if (it == m_Values.end()) return fallback;
    for (size_t i = 0; i < choices.size(); ++i)
        if (choices[i] == it->second) return static_cast<int>(i);
    if (m_Error.empty()) {
        m_Error = "--" + name + " must be one of:";
        for (const std::string& c : choices) m_Error += " " + c;
    }
    return fallback;
}

Progress::Progress(const char* label, int total)
    : m_Label(label), m_Total(total > 0 ? total : 1), m_Terminal(isatty(STDERR_FILENO) != 0) {}

void Progress::Update(int done) {
    if (!m_Terminal) return;
    const int width = 40;
    int filled = done * width / m_Total;
    if (filled > width) filled = width;
    if (filled == m_Shown) return;
    m_Shown = filled;
    std::fprintf(stderr, "\r%s [%.*s%*s] %d/%d", m_Label, filled, "########################################",
                 width - filled, "", done, m_Total);
    std::fflush(stderr);
}

void Progress::Finish() {
    if (m_Terminal && m_Shown >= 0) std::fprintf(stderr, "\n");
}

std::wstring Widen(const std::string& text) {
    std::wstring wide(text.size() + 1, L'\0');
    std::mbstate_t state{};
    const char* source = text.c_str();
    size_t count = std::mbsrtowcs(wide.data(), &source, wide.size(), &state);
    if (count == static_cast<size_t>(-1)) return std::wstring(text.begin(), text.end());
    wide.resize(count);
    return wide;
}

std::wstring SetRecordingFiles(ILUMCamcorder* camcorder, const std::string& folder, bool hasBase,
                               const std::string& base, int format) {
    std::wstring path = Widen(std::filesystem::absolute(folder).lexically_normal().string());
    if (path.size() > 1 && path.back() == L'/') path.pop_back();
    camcorder->put_Path(tagREFString{static_cast<int32_t>(path.size()), path.data()});
    if (hasBase) {
        std::wstring wide = Widen(base);
        camcorder->put_BaseFileName(tagREFString{static_cast<int32_t>(wide.size()), wide.data()});
    }
    camcorder->put_FileFormat(static_cast<FileFormatConstants>(format));
    return path;
}
