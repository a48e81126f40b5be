#include "framework/Registry/IniDocument.h"

#include "framework/common/KitText.h"

namespace {

enum class LineKind { kIgnored, kSection, kValue };

// Classifies one line; `name` and `value` receive the trimmed parts.
LineKind Classify(std::wstring_view line, std::wstring_view& name, std::wstring_view& value) {
    std::wstring_view text = KitTrimBlanks(line);
    if (text.empty() || text.front() == L';' || text.front() == L'#') return LineKind::kIgnored;
    if (text.front() == L'[') {
        if (text.back() != L']' || text.size() < 2) return LineKind::kIgnored;
        name = KitTrimBlanks(text.substr(1, text.size() - 2));
        return LineKind::kSection;
    }
    size_t equals = text.find(L'=');
    if (equals == std::wstring_view::npos) return LineKind::kIgnored;
    name = KitTrimBlanks(text.substr(0, equals));
    value = KitTrimBlanks(text.substr(equals + 1));
    return name.empty() ? LineKind::kIgnored : LineKind::kValue;
}

}  // namespace

std::wstring CIniDocument::Fold(std::wstring_view name) {
    std::wstring folded(name);
    for (wchar_t& c : folded)
        if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c + 32);
    return folded;
}

std::wstring CIniDocument::Compound(std::wstring_view section, std::wstring_view key) {
    // A line end can never be part of a name read from a line.
    return Fold(KitTrimBlanks(section)) + L'\n' + Fold(KitTrimBlanks(key));
}

void CIniDocument::Assign(std::vector<std::wstring> lines, bool crlf) {
    m_Lines = std::move(lines);
    m_CrLf = crlf;
    Index();
}

void CIniDocument::Index() {
    m_Entries.clear();
    m_Sections.clear();
    std::wstring section;  // keys before the first header belong to the section ""
    Section* block = nullptr;
    bool firstBlock = false;
    for (size_t i = 0; i < m_Lines.size(); ++i) {
        std::wstring_view name, value;
        switch (Classify(m_Lines[i], name, value)) {
            case LineKind::kSection: {
                section = Fold(name);
                auto inserted = m_Sections.emplace(section, Section{i, i});
                firstBlock = inserted.second;
                block = &inserted.first->second;
                break;
            }
            case LineKind::kValue:
                m_Entries.emplace(section + L'\n' + Fold(name), Entry{i, std::wstring(value)});
                [[fallthrough]];
            case LineKind::kIgnored:
                if (block && firstBlock && !KitTrimBlanks(m_Lines[i]).empty()) block->lastLine = i;
                break;
        }
    }
}

const std::wstring* CIniDocument::Find(std::wstring_view section, std::wstring_view key) const {
    auto found = m_Entries.find(Compound(section, key));
    return found == m_Entries.end() ? nullptr : &found->second.value;
}

void CIniDocument::Set(std::wstring_view section, std::wstring_view key, std::wstring_view value) {
    std::wstring_view trimmedKey = KitTrimBlanks(key);
    auto existing = m_Entries.find(Compound(section, key));
    if (existing != m_Entries.end()) {
        // Keep the key as the file spells it.
        std::wstring_view name, oldValue;
        Classify(m_Lines[existing->second.line], name, oldValue);
        m_Lines[existing->second.line] = std::wstring(name) + L'=' + std::wstring(value);
    } else {
        std::wstring line = std::wstring(trimmedKey) + L'=' + std::wstring(value);
        auto block = m_Sections.find(Fold(KitTrimBlanks(section)));
        if (block != m_Sections.end()) {
            m_Lines.insert(m_Lines.begin() + static_cast<std::ptrdiff_t>(block->second.lastLine + 1),
                           std::move(line));
        } else {
            if (!m_Lines.empty() && !KitTrimBlanks(m_Lines.back()).empty()) m_Lines.emplace_back();
            m_Lines.push_back(L"[" + std::wstring(KitTrimBlanks(section)) + L"]");
            m_Lines.push_back(std::move(line));
        }
    }
    Index();
}

std::string CIniDocument::Render() const {
    std::string text;
    const char* end = m_CrLf ? "\r\n" : "\n";
    for (const std::wstring& line : m_Lines) {
        text += KitEncodeUtf8(line);
        text += end;
    }
    return text;
}
