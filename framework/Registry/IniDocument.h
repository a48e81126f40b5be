// The text of an INI-style configuration file: "[Section]" lines, "key=value"
// lines, ";" and "#" comments. Section and key names compare ignoring ASCII
// letter case, with surrounding blanks removed; values have surrounding
// blanks removed. Keeps every line, so that rewriting the file keeps its
// comments and layout.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class CIniDocument {
public:
    /// Replaces the content by `lines` (without line ends).
    void Assign(std::vector<std::wstring> lines, bool crlf);

    /// The value of the first `key` in a section named `section`, or null.
    const std::wstring* Find(std::wstring_view section, std::wstring_view key) const;

    /// Sets a value: the first existing line of that key is rewritten in
    /// place; otherwise the key is added at the end of the section's first
    /// block, or a new section is appended.
    void Set(std::wstring_view section, std::wstring_view key, std::wstring_view value);

    /// The whole text in UTF-8, every line ended by LF (CR LF when the file
    /// that was read used CR LF).
    std::string Render() const;

private:
    struct Section {
        size_t header;    // index of the "[...]" line
        size_t lastLine;  // last non-blank line of its first block
    };
    struct Entry {
        size_t line;
        std::wstring value;
    };

    void Index();
    static std::wstring Fold(std::wstring_view name);
    static std::wstring Compound(std::wstring_view section, std::wstring_view key);

    std::vector<std::wstring> m_Lines;
    bool m_CrLf = false;
    std::unordered_map<std::wstring, Entry> m_Entries;     // folded "section\nkey" -> first entry
    std::unordered_map<std::wstring, Section> m_Sections;  // folded section -> first block
};
