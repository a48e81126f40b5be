#include "framework/Registry/RegistryObject.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <new>
#include <vector>

#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CRegistry, L"Registry")

const InterfaceEntry<CRegistry> CRegistry::kInterfaces[] = {
    InterfaceEntry<CRegistry>::Of<IRegistryEx>(IID_IRegistryEx),
    InterfaceEntry<CRegistry>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CRegistry>::End(),
};

namespace {

// A time stamp within this distance of the moment the file was read may be
// shared by a later change of the same size (coarse file-system clocks), so
// such a read is not trusted and the file is read again next time.
constexpr time_t kSettleSeconds = 2;

// Every rewrite of a registry file in this process is serialised, so that
// two objects never interleave their read-modify-write of one file.
std::mutex g_WriteLock;
std::atomic<unsigned> g_TempCounter{0};

bool SameStamp(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
           a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

bool WriteWhole(const std::string& path, const std::string& bytes) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return false;
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    ok = (std::fclose(file) == 0) && ok;
    return ok;
}

// Replaces the file's content: a new file renamed over the old one, so that
// readers see either the old or the new text, never a part. Falls back to
// writing in place where no file can be created beside it.
bool ReplaceFile(const std::string& path, const std::string& bytes) {
    std::string target = path;
    if (char* resolved = realpath(path.c_str(), nullptr)) {  // write through a symbolic link
        target = resolved;
        free(resolved);
    }
    std::string temporary = target + ".tmp" + std::to_string(getpid()) + "-" +
                            std::to_string(g_TempCounter.fetch_add(1));
    if (WriteWhole(temporary, bytes)) {
        if (std::rename(temporary.c_str(), target.c_str()) == 0) return true;
        std::remove(temporary.c_str());
    }
    return WriteWhole(target, bytes);
}

// A name that reads back as itself: not blank, no line end, not the
// `forbidden` character, and (for keys) not starting like a comment or a
// section line.
bool ValidName(const std::wstring& name, wchar_t forbidden, bool isKey) {
    std::wstring_view trimmed = KitTrimBlanks(name);
    if (trimmed.empty()) return false;
    if (isKey && (trimmed.front() == L';' || trimmed.front() == L'#' || trimmed.front() == L'[')) return false;
    for (wchar_t c : name)
        if (c == L'\n' || c == L'\r' || c == forbidden) return false;
    return true;
}

}  // namespace

std::string RegistryFileName() {
    const char* named = std::getenv("LUM_REGISTRY");
    return (named && *named) ? std::string(named) : std::string("Registry.ini");
}

bool CRegistry::Refresh() {
    std::string path = RegistryFileName();
    bool samePath = path == m_Path;
    m_Path = path;
    struct stat stamp {};
    if (stat(path.c_str(), &stamp) != 0) {
        m_Loaded = false;
        return false;
    }
    if (m_Loaded && m_Settled && samePath && SameStamp(stamp, m_Stamp)) return true;

    std::vector<std::wstring> lines;
    bool crlf = false;
    if (!KitReadTextLines(path, lines, &crlf)) {
        m_Loaded = false;
        return false;
    }
    m_Document.Assign(std::move(lines), crlf);
    m_Stamp = stamp;
    m_Loaded = true;
    m_Settled = time(nullptr) - stamp.st_mtim.tv_sec > kSettleSeconds;
    return true;
}

HRESULT CRegistry::Lookup(tagREFString section, tagREFString key, std::wstring& value) {
    std::wstring sectionName, keyName;
    if (!KitViewText(section, sectionName) || !KitViewText(key, keyName)) return E_POINTER;
    try {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (!Refresh()) return E_FAIL;
        const std::wstring* found = m_Document.Find(sectionName, keyName);
        if (!found) return E_FAIL;
        value = *found;
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CRegistry::ReadString(tagREFString section, tagREFString key, wchar_t* buffer, int32_t capacity) {
    if (!buffer || capacity < 1) return E_POINTER;
    std::wstring value;
    HRESULT hr = Lookup(section, key, value);
    if (hr < 0) return hr;
    size_t count = std::min(value.size(), static_cast<size_t>(capacity) - 1);
    value.copy(buffer, count);
    buffer[count] = 0;
    return S_OK;
}

HRESULT CRegistry::ReadInteger(tagREFString section, tagREFString key, int32_t* value) {
    if (!value) return E_POINTER;
    std::wstring text;
    HRESULT hr = Lookup(section, key, text);
    if (hr < 0) return hr;
    size_t i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == L'-' || text[i] == L'+')) negative = text[i++] == L'-';
    if (i == text.size()) return E_INVALIDARG;
    int64_t number = 0;
    for (; i < text.size(); ++i) {
        if (text[i] < L'0' || text[i] > L'9') return E_INVALIDARG;
        number = number * 10 + (text[i] - L'0');
        if (number > static_cast<int64_t>(INT32_MAX) + 1) return E_INVALIDARG;
    }
    if (negative) number = -number;
    if (number > INT32_MAX || number < INT32_MIN) return E_INVALIDARG;
    *value = static_cast<int32_t>(number);
    return S_OK;
}

HRESULT CRegistry::WriteString(tagREFString section, tagREFString key, tagREFString value) {
    std::wstring sectionName, keyName, text;
    if (!KitViewText(section, sectionName) || !KitViewText(key, keyName) || !KitViewText(value, text))
        return E_POINTER;
    if (!ValidName(sectionName, L']', false) || !ValidName(keyName, L'=', true)) return E_INVALIDARG;
    if (text.find_first_of(L"\r\n") != std::wstring::npos) return E_INVALIDARG;
    try {
        std::lock_guard<std::mutex> writing(g_WriteLock);
        std::lock_guard<std::mutex> guard(m_Lock);
        // Start from the file as it is now: another writer may have changed it.
        if (!Refresh()) m_Document.Assign({}, false);
        m_Document.Set(sectionName, keyName, text);
        if (!ReplaceFile(m_Path, m_Document.Render())) {
            m_Loaded = false;  // the document no longer matches the file
            return E_FAIL;
        }
        // Read back next time: the new time stamp is too recent to trust.
        m_Loaded = false;
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}
