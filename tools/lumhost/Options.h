// Command-line options of the host's commands: "--name value" pairs and
// switches, each with a default, checked and converted in one place.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

class Options {
public:
    /// Parses `args`; `switches` are the options that take no value.
    Options(const std::vector<std::string>& args, const std::set<std::string>& known,
            const std::set<std::string>& switches = {});

    /// Empty when every argument was understood; else what went wrong.
    const std::string& Error() const { return m_Error; }

    bool Has(const std::string& name) const { return m_Values.count(name) != 0; }
    std::string Text(const std::string& name, const std::string& fallback) const;
    /// An integer within [minimum, maximum]; records an error otherwise.
    int Integer(const std::string& name, int fallback, int minimum, int maximum);
    double Number(const std::string& name, double fallback, double minimum, double maximum);
    /// "WIDTHxHEIGHT".
    bool Size(const std::string& name, int& width, int& height);
    /// One of `choices` (the index of the match).
    int Choice(const std::string& name, const std::vector<std::string>& choices, int fallback);

private:
    std::map<std::string, std::string> m_Values;
    std::string m_Error;
};

/// Prints a one-line progress bar on standard error when it is a terminal.
class Progress {
public:
    Progress(const char* label, int total);
    void Update(int done);
    void Finish();

private:
    const char* m_Label;
    int m_Total;
    bool m_Terminal;
    int m_Shown = -1;
};

/// Wide text of a narrow command-line argument.
std::wstring Widen(const std::string& text);

struct ILUMCamcorder;
/// Points a camcorder at its files: the folder (absolute, without a trailing
/// "/"), the base name when one is given, and the file format. Returns the
/// folder as the camcorder holds it.
std::wstring SetRecordingFiles(ILUMCamcorder* camcorder, const std::string& folder, bool hasBase,
                               const std::string& base, int format);
