// What the live-view and contact-sheet tests share: running the host as a
// user does, an X server of their own (Xvfb), reading the pictures the host
// writes (BMP, PNG, an X window dump) with readers of the tests' own, and
// reading text drawn with the host's bitmap font back from the pixels.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// A picture as 0x00RRGGBB words, rows top-down.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<uint32_t> rgb;

    bool Empty() const { return width <= 0 || height <= 0; }
    uint32_t At(int x, int y) const { return rgb[static_cast<size_t>(y) * width + x]; }
};

/// Uncompressed BMP of 8 (palette), 24 or 32 bits; empty when unreadable.
Picture ReadBmp(const std::string& file);
/// Any PNG, through libpng (gray, RGB, with or without alpha).
Picture ReadPng(const std::string& file);
/// An X window dump ("xwd" of a 24- or 32-bit visual).
Picture ReadXwd(const std::string& file);

/// Writes a 24-bit BMP (rows bottom-up, as BMP stores them).
bool WriteBmp24(const std::string& file, const Picture& picture);
/// Writes an 8-bit gray PNG (the red channel) or an RGBA PNG whose alpha is
/// `alpha` everywhere.
bool WritePngGray(const std::string& file, const Picture& picture);
bool WritePngRgba(const std::string& file, const Picture& picture, uint8_t alpha);

/// The result of running a program.
struct ProcessResult {
    int status = -1;  // exit code; -1 when killed by a signal or timed out
    bool timedOut = false;
    std::string out;
    std::string err;
};

/// Environment changes for a child: a value sets the variable, nullopt
/// removes it.
using Environment = std::map<std::string, std::optional<std::string>>;

/// A child process with its output in files.
class Child {
public:
    /// Starts `argv` (argv[0] looked up in PATH unless it has a "/") in the
    /// current folder; `scratch` names a folder for its output files.
    bool Start(const std::vector<std::string>& argv, const Environment& environment, const std::string& scratch);
    /// Waits up to `seconds`; kills the child when it takes longer.
    ProcessResult Wait(double seconds);
    /// What it has written to standard output so far.
    std::string Output() const;
    pid_t Pid() const { return m_Pid; }
    ~Child();

private:
    pid_t m_Pid = -1;
    std::string m_OutFile, m_ErrFile;
};

/// The environment change that gives a child (the view under
/// AddressSanitizer) the leak suppressions of tests/view/lsan.supp when the
/// test's own environment names none.
Environment LeakSuppressions();

ProcessResult RunProgram(const std::vector<std::string>& argv, const Environment& environment, const std::string& scratch,
               double seconds = 120);

/// An Xvfb server on a display number it picks itself (-displayfd).
class XServer {
public:
    /// Starts "Xvfb -screen 0 1024x768x24"; false (with `error`) when it
    /// cannot start.
    bool Start(std::string& error);
    void Stop();
    ~XServer() { Stop(); }
    /// ":N".
    const std::string& Display() const { return m_Display; }

private:
    pid_t m_Pid = -1;
    std::string m_Display;
};

/// True when a program of that name is on PATH.
bool OnPath(const std::string& program);

/// A new empty folder under the system's temporary folder.
std::string MakeTempFolder();
void RemoveTree(const std::string& folder);

/// Reads the characters drawn with the host's bitmap font at `scale` in
/// `colour` on `background`, starting with the character cell whose top-left
/// corner is (x, y), until a cell holds other colours or the picture ends.
/// A cell that matches no glyph reads as '\x7f'. Trailing blanks are dropped.
std::string ReadText(const Picture& picture, int x, int y, int scale, uint32_t colour, uint32_t background);

/// True when `text` drawn with the host's font at (x, y) and `scale` is
/// exactly what the picture shows there: every lit font pixel in `colour`,
/// every other pixel of the text's cells in `background`.
bool ShowsText(const Picture& picture, const std::string& text, int x, int y, int scale, uint32_t colour,
               uint32_t background);
