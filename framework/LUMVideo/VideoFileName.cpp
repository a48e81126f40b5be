#include "framework/LUMVideo/VideoFileName.h"

#include "framework/common/KitString.h"
#include "framework/common/KitText.h"

namespace {

HRESULT HandOut(const std::wstring& text, IString** out) {
    if (!out) return E_POINTER;
    *out = KitNewString(text).Detach();
    return *out ? S_OK : E_FAIL;
}

}  // namespace

HRESULT CVideoFileName::Get(IString** name) const {
    if (!name) return E_POINTER;
    *name = nullptr;
    if (!m_Has) return E_FAIL;
    return HandOut(m_Name, name);
}

HRESULT CVideoFileName::Put(IString* name) {
    m_Has = name != nullptr;
    m_Name = name ? KitTextOf(name) : std::wstring();
    return S_OK;
}

HRESULT CVideoFileName::GetShort(IString** name) const {
    if (!name) return E_POINTER;
    *name = nullptr;
    if (!m_Has) return E_FAIL;
    const size_t slash = m_Name.find_last_of(L'/');
    return HandOut(slash == std::wstring::npos ? m_Name : m_Name.substr(slash + 1), name);
}

bool CVideoFileName::Path(std::string& path) const {
    return m_Has && !m_Name.empty() && KitNarrowFileName(m_Name, path);
}

HRESULT VideoFilter(IString** filter) { return HandOut(L"AVI files|*.avi||", filter); }
