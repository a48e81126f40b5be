#include "framework/FileNames/FolderListing.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <cstdlib>
#include <memory>

#include "framework/common/KitText.h"

namespace {

bool IsFolder(const std::string& path) {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

int64_t Nanoseconds(const struct timespec& time) {
    return static_cast<int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

/// Drops trailing "/" but keeps a lone "/".
std::wstring TrimFolder(std::wstring folder) {
    while (folder.size() > 1 && folder.back() == L'/') folder.pop_back();
    return folder;
}

}  // namespace

bool WideFileName(const std::string& name, std::wstring& wide) {
    size_t needed = std::mbstowcs(nullptr, name.c_str(), 0);
    if (needed == static_cast<size_t>(-1)) return false;
    std::wstring text(needed, L'\0');
    std::mbstowcs(text.data(), name.c_str(), needed + 1);
    wide = std::move(text);
    return true;
}

std::wstring ListingTarget::FullName(const std::wstring& fileName) const {
    if (folder.empty()) return fileName;
    std::wstring name;
    name.reserve(folder.size() + 1 + fileName.size());
    name.append(folder);
    if (folder != L"/") name.push_back(L'/');
    name.append(fileName);
    return name;
}

std::string ListingTarget::OsPath(const std::string& fileName) const {
    if (folder.empty()) return fileName;
    std::string path;
    path.reserve(osFolder.size() + 1 + fileName.size());
    path.append(osFolder);
    if (osFolder != "/") path.push_back('/');
    path.append(fileName);
    return path;
}

ListingTarget ListingTargetOf(const std::wstring& pattern) {
    ListingTarget target;
    if (pattern.empty()) return target;
    std::wstring text = pattern;
    for (wchar_t& c : text)
        if (c == L'\\') c = L'/';

    std::string narrow;
    if (!KitNarrowFileName(text, narrow)) return target;
    if (IsFolder(narrow)) {
        target.folder = TrimFolder(text);
    } else {
        size_t slash = text.rfind(L'/');
        std::wstring filePart = slash == std::wstring::npos ? text : text.substr(slash + 1);
        if (slash != std::wstring::npos) target.folder = slash == 0 ? L"/" : TrimFolder(text.substr(0, slash));
        // A folder that does not exist (yet) with nothing after its "/"
        // names every file of it: nothing, until it appears.
        if (!KitNarrowFileName(filePart, target.filePattern)) return target;
        target.wildcard = filePart.find_first_of(L"*?") != std::wstring::npos;
    }
    if (target.folder.empty())
        target.osFolder.assign(1, '.');  // the working directory
    else if (!KitNarrowFileName(target.folder, target.osFolder))
        return target;
    target.valid = true;
    return target;
}

bool MatchListedFile(const ListingTarget& target, const ExtTable& table, const std::string& name,
                     ListedFile& file) {
    if (!target.valid || name.empty() || name[0] == '.') return false;
    if (!target.filePattern.empty()) {
        if (target.wildcard) {
            if (::fnmatch(target.filePattern.c_str(), name.c_str(), 0) != 0) return false;
        } else if (name != target.filePattern) {
            return false;
        }
    }
    std::wstring wide;
    if (!WideFileName(name, wide)) return false;
    const std::wstring* className = table.ClassFor(ExtOfFileName(wide));
    if (!className) return false;
    struct stat status;
    if (::stat(target.OsPath(name).c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    file.fullName = target.FullName(wide);
    file.className = *className;
    file.modified = Nanoseconds(status.st_mtim);
    file.size = static_cast<int64_t>(status.st_size);
    return true;
}

bool ListFolder(const ListingTarget& target, const ExtTable& table, std::vector<ListedFile>& files) {
    files.clear();
    if (!target.valid) return true;
    ListedFile file;
    if (!target.filePattern.empty() && !target.wildcard) {
        // One named file: no need to read the whole folder.
        if (!FolderExists(target)) return false;
        if (MatchListedFile(target, table, target.filePattern, file)) files.push_back(std::move(file));
        return true;
    }
    std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(target.osFolder.c_str()), ::closedir);
    if (!folder) return false;
    while (const dirent* entry = ::readdir(folder.get())) {
        if (entry->d_type != DT_REG && entry->d_type != DT_UNKNOWN && entry->d_type != DT_LNK) continue;
        if (MatchListedFile(target, table, entry->d_name, file)) files.push_back(std::move(file));
    }
    return true;
}

bool FolderModified(const ListingTarget& target, int64_t& modified) {
    struct stat status;
    if (!target.valid || ::stat(target.osFolder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return false;
    modified = Nanoseconds(status.st_mtim);
    return true;
}

bool FolderExists(const ListingTarget& target) { return target.valid && IsFolder(target.osFolder); }
