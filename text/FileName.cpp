// Relating file names to the installation directory and back.
#include "text/FileName.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <string>

#include "module/ModuleLoader.h"
#include "text/ValueConversion.h"

namespace {

/// Capacity of the buffer that receives the install path from the registry.
constexpr int32_t kInstallPathCapacity = 256;

inline bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

/// Hands out the caller's own object with a new reference (null stays null).
HRESULT HandOutSame(IString* name, IString** out) {
    if (name) name->AddRef();
    *out = name;
    return S_OK;
}

/// Turns every backslash from `from` on into "/" and, when anything changed,
/// writes the text back into the caller's string.
void ConvertBackslashes(IString* name, std::wstring& text, size_t from) {
    bool changed = false;
    for (size_t i = from; i < text.size(); ++i) {
        if (text[i] == L'\\') {
            text[i] = L'/';
            changed = true;
        }
    }
    if (changed && name) name->SetText(static_cast<int32_t>(text.size()), text.data());
}

/// Hands out a new string with all characters of `text` (also any 0 in it).
HRESULT HandOutNew(std::wstring& text, IString** out) {
    tagREFString view{static_cast<int32_t>(text.size()), text.data()};
    *out = ISCreate(view);
    return S_OK;
}

}  // namespace

HRESULT FILENAMEGetInstallPath(IString** path) {
    if (!path) return E_POINTER;
    *path = nullptr;
    wchar_t buffer[kInstallPathCapacity] = {};
    HRESULT hr = E_FAIL;
    if (SmartPtr<IRegistryEx> registry = CreateObjectAs<IRegistryEx>(L"Registry", IID_IRegistryEx))
        hr = registry->ReadString(REFStr(L"Workspace"), REFStr(L"InstallPath"), buffer, kInstallPathCapacity);
    // Whatever the registry did, the text ends inside the buffer, and a
    // failed read yields an empty path.
    if (hr < 0) buffer[0] = L'\0';
    buffer[kInstallPathCapacity - 1] = L'\0';
    *path = ISCreate(buffer);
    return hr;
}

HRESULT FILENAMECreateRelative(IString* name, IString** relative) {
    if (!relative) return E_POINTER;
    SmartPtr<IString> base;
    FILENAMEGetInstallPath(base.Out());
    return FILENAMECreateRelative(base.Get(), name, relative);
}

HRESULT FILENAMECreateRelative(IString* base, IString* name, IString** relative) {
    if (!relative) return E_POINTER;
    const std::wstring b = ISText(base);
    const std::wstring p = ISText(name);
    const int64_t n = static_cast<int64_t>(std::min(b.size(), p.size()));
    if (n == 0) return HandOutSame(name, relative);

    int64_t m = 0;
    while (m < n && std::towlower(static_cast<wint_t>(b[m])) == std::towlower(static_cast<wint_t>(p[m]))) ++m;
    // Examined positions of the name: 1 to n when all n agree (position n
    // may lie one past the name, where there is no separator), else 1 to
    // m - 1, so that the mismatching character itself never counts.
    const int64_t last = m == n ? n : m - 1;
    int separators = 0;
    int64_t s = 0;
    for (int64_t i = 1; i <= last; ++i) {
        if (i < static_cast<int64_t>(p.size()) && IsSeparator(p[i])) {
            ++separators;
            s = i;
        }
    }
    // Sharing no more than the root: no relation worth writing down.
    if (separators < 2) return HandOutSame(name, relative);

    int levels = s < static_cast<int64_t>(b.size()) ? 1 : 0;
    for (size_t i = static_cast<size_t>(s) + 1; i < b.size(); ++i)
        if (IsSeparator(b[i])) ++levels;
    std::wstring result;
    result.reserve(static_cast<size_t>(levels) * 3 + p.size());
    for (int i = 0; i < levels; ++i) result += L"..\\";
    result.append(p, static_cast<size_t>(s) + 1, std::wstring::npos);
    return HandOutNew(result, relative);
}

HRESULT FILENAMECreateAbsolute(IString* name, IString** absolute) {
    if (!absolute) return E_POINTER;
    SmartPtr<IString> base;
    FILENAMEGetInstallPath(base.Out());
    return FILENAMECreateAbsolute(base.Get(), name, absolute);
}

HRESULT FILENAMECreateAbsolute(IString* base, IString* name, IString** absolute) {
    if (!absolute) return E_POINTER;
    std::wstring p = ISText(name);
    if (p.empty()) return HandOutSame(name, absolute);
    // Read the base first: it may be the very object whose text is converted.
    const std::wstring b = ISText(base);

    if (p.find(L':') != std::wstring::npos || p[0] == L'/') {
        ConvertBackslashes(name, p, 0);
        return HandOutSame(name, absolute);
    }
    size_t up = 0;
    while (p.compare(up * 3, 3, L"..\\") == 0) ++up;
    if (up == 0 && (p.size() < 3 || p[1] == L'/')) {
        ConvertBackslashes(name, p, 0);
        return HandOutSame(name, absolute);
    }

    // Cut one level of the base per "..\": just before the up-th "/" from the
    // end, unless that leaves 2 characters or fewer or there are too few.
    size_t cut = b.size();
    if (up > 0) {
        size_t found = 0;
        for (size_t i = b.size(); i-- > 0;) {
            if (b[i] != L'/') continue;
            if (++found == up) {
                if (i > 2) cut = i;
                break;
            }
        }
    }
    ConvertBackslashes(name, p, up * 3);
    std::wstring result;
    result.reserve(cut + 1 + p.size() - up * 3);
    result.append(b, 0, cut);
    result += L'/';
    result.append(p, up * 3, std::wstring::npos);
    return HandOutNew(result, absolute);
}

bool FILENAMEToMultibyte(const std::wstring& name, std::string& file) {
    file.assign(name.size() * MB_CUR_MAX + 1, '\0');
    std::mbstate_t state{};
    const wchar_t* source = name.c_str();
    const size_t bytes = std::wcsrtombs(file.data(), &source, file.size(), &state);
    if (bytes == static_cast<size_t>(-1)) {
        file.clear();
        return false;
    }
    file.resize(bytes);
    return true;
}
