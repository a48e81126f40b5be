#include "framework/Registry/StringTable.h"

#include <cstdlib>
#include <new>

#include "framework/common/KitCollections.h"
#include "framework/common/KitString.h"
#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CStringTable, L"StringTable")

const InterfaceEntry<CStringTable> CStringTable::kInterfaces[] = {
    InterfaceEntry<CStringTable>::Of<IStringTable>(IID_IStringTable),
    InterfaceEntry<CStringTable>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CStringTable>::End(),
};

namespace {

// A decimal number with an optional sign, nothing else; false otherwise.
bool ParseNumber(std::wstring_view text, int32_t& number) {
    size_t i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == L'-' || text[i] == L'+')) negative = text[i++] == L'-';
    if (i == text.size()) return false;
    int64_t value = 0;
    for (; i < text.size(); ++i) {
        if (text[i] < L'0' || text[i] > L'9') return false;
        value = value * 10 + (text[i] - L'0');
        if (value > static_cast<int64_t>(INT32_MAX) + 1) return false;
    }
    if (negative) value = -value;
    if (value > INT32_MAX || value < INT32_MIN) return false;
    number = static_cast<int32_t>(value);
    return true;
}

HRESULT OwnerName(IString* owner, std::wstring& name) {
    if (!owner) return E_POINTER;
    name = KitTextOf(owner);
    return S_OK;
}

}  // namespace

std::string StringFolder() {
    const char* named = std::getenv("LUM_STRINGS");
    return (named && *named) ? std::string(named) : std::string("strings");
}

HRESULT ReadOwnerStrings(const std::wstring& owner, std::vector<std::pair<int32_t, std::wstring>>& strings) {
    if (owner.empty() || owner.find_first_of(std::wstring(L"/\0", 2)) != std::wstring::npos)
        return E_INVALIDARG;
    std::string file;
    if (!KitNarrowFileName(owner, file)) return E_INVALIDARG;
    std::vector<std::wstring> lines;
    if (!KitReadTextLines(StringFolder() + "/" + file + ".txt", lines)) return E_FAIL;
    strings.clear();
    for (const std::wstring& line : lines) {
        std::wstring_view trimmed = KitTrimBlanks(line);
        if (trimmed.empty() || trimmed.front() == L'#') continue;
        size_t equals = line.find(L'=');
        if (equals == std::wstring::npos) continue;
        int32_t number;
        if (!ParseNumber(KitTrimBlanks(std::wstring_view(line).substr(0, equals)), number)) continue;
        // The text is kept exactly, blanks included.
        strings.emplace_back(number, line.substr(equals + 1));
    }
    return S_OK;
}

HRESULT CStringTable::GetCollection(IString* owner, INamedCollection** strings) {
    if (!strings) return E_POINTER;
    *strings = nullptr;
    try {
        std::wstring name;
        HRESULT hr = OwnerName(owner, name);
        if (hr < 0) return hr;
        std::vector<std::pair<int32_t, std::wstring>> entries;
        hr = ReadOwnerStrings(name, entries);
        if (hr < 0) return hr;
        if (entries.empty()) return E_FAIL;
        SmartPtr<ISuperCollection> collection = KitNewSuperCollection();
        if (!collection) return E_FAIL;
        for (const auto& [number, text] : entries) {
            SmartPtr<IString> item = KitNewString(text);
            std::wstring key = std::to_wstring(number);
            if (!item || collection->AddNamed(KitView(key), item.Get()) != S_OK) return E_FAIL;
        }
        *strings = collection.Detach();
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
}

HRESULT CStringTable::GetString(IString* owner, int32_t number, IString** text) {
    if (!text) return E_POINTER;
    *text = nullptr;
    try {
        std::wstring name;
        HRESULT hr = OwnerName(owner, name);
        if (hr < 0) return hr;
        std::vector<std::pair<int32_t, std::wstring>> entries;
        hr = ReadOwnerStrings(name, entries);
        if (hr < 0) return hr;
        for (const auto& [key, value] : entries) {
            if (key != number) continue;
            SmartPtr<IString> result = KitNewString(value);
            if (!result) return E_FAIL;
            *text = result.Detach();
            return S_OK;
        }
        return E_FAIL;
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
}
