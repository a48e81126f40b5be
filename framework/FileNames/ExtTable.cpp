#include "framework/FileNames/ExtTable.h"

#include <cwctype>
#include <utility>

#include "framework/common/KitText.h"

namespace {

bool SameExtension(std::wstring_view a, std::wstring_view b, bool matchCase) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i] == b[i]) continue;
        if (matchCase || std::towlower(static_cast<wint_t>(a[i])) != std::towlower(static_cast<wint_t>(b[i])))
            return false;
    }
    return true;
}

}  // namespace

std::wstring_view ExtBare(std::wstring_view extension) {
    if (!extension.empty() && extension.front() == L'.') extension.remove_prefix(1);
    return extension;
}

std::wstring_view ExtOfFileName(std::wstring_view fileName) {
    size_t slash = fileName.find_last_of(L"/\\");
    std::wstring_view name = slash == std::wstring_view::npos ? fileName : fileName.substr(slash + 1);
    size_t dot = name.rfind(L'.');
    if (dot == std::wstring_view::npos || dot == 0) return {};
    return name.substr(dot + 1);
}

int ExtTable::Find(std::wstring_view extension) const {
    extension = ExtBare(extension);
    for (size_t i = 0; i < rows.size(); ++i)
        if (SameExtension(rows[i].extension, extension, matchCase)) return static_cast<int>(i);
    return -1;
}

const std::wstring* ExtTable::ClassFor(std::wstring_view extension) const {
    int index = Find(extension);
    return index < 0 ? nullptr : &rows[static_cast<size_t>(index)].className;
}

void ExtTable::Set(std::wstring_view extension, std::wstring_view className) {
    extension = ExtBare(extension);
    int index = Find(extension);
    if (index >= 0)
        rows[static_cast<size_t>(index)].className.assign(className);
    else
        rows.push_back(Row{std::wstring(extension), std::wstring(className)});
}

ExtTable ExtTable::Default() {
    ExtTable table;
    for (const wchar_t* extension : {L"bmp", L"jpg", L"jpeg", L"png"})
        table.rows.push_back(Row{extension, L"LUMArch.LUMFileEx"});
    return table;
}

bool ExtTable::ReadFrom(IExtCollection* source, ExtTable& table) {
    if (!source) return false;
    ExtTable copy;
    int32_t count = 0;
    int32_t matchCase = 0;
    if (source->get_ExtensionCount(&count) < 0 || source->get_MatchCase(&matchCase) < 0) return false;
    copy.matchCase = matchCase != 0;
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IString> extension, className;
        if (source->get_Extension(i, extension.Out()) < 0 || source->get_ExtensionClass(i, className.Out()) < 0)
            return false;
        copy.rows.push_back(Row{std::wstring(ExtBare(KitTextOf(extension.Get()))), KitTextOf(className.Get())});
    }
    table = std::move(copy);
    return true;
}
