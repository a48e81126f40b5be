#include "framework/FileNames/ExtCollection.h"

#include <new>

#include "framework/common/KitString.h"
#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CExtCollection, L"ExtCollection")

const InterfaceEntry<CExtCollection> CExtCollection::kInterfaces[] = {
    InterfaceEntry<CExtCollection>::Of<IExtCollection>(IID_IExtCollection),
    InterfaceEntry<CExtCollection>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CExtCollection>::End(),
};

namespace {

HRESULT HandOut(const std::wstring& text, IString** out) {
    *out = KitNewString(text).Detach();
    return *out ? S_OK : E_FAIL;
}

}  // namespace

HRESULT ExtCreateObject(const std::wstring& className, const IID& iid, void** object) {
    return KitCreateObject(KitView(className), iid, object);
}

HRESULT CExtCollection::get_ExtensionCount(int32_t* count) {
    if (!count) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    *count = static_cast<int32_t>(m_Table.rows.size());
    return S_OK;
}

HRESULT CExtCollection::get_Extension(int32_t index, IString** extension) {
    if (!extension) return E_POINTER;
    *extension = nullptr;
    std::wstring text;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (index < 0 || static_cast<size_t>(index) >= m_Table.rows.size()) return E_INVALIDARG;
        text = m_Table.rows[static_cast<size_t>(index)].extension;
    }
    return HandOut(text, extension);
}

HRESULT CExtCollection::get_ExtensionClass(int32_t index, IString** className) {
    if (!className) return E_POINTER;
    *className = nullptr;
    std::wstring text;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        if (index < 0 || static_cast<size_t>(index) >= m_Table.rows.size()) return E_INVALIDARG;
        text = m_Table.rows[static_cast<size_t>(index)].className;
    }
    return HandOut(text, className);
}

int32_t CExtCollection::FindExtension(tagREFString extension) {
    std::wstring text;
    if (!KitViewText(extension, text)) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    int index = m_Table.Find(text);
    return index < 0 ? E_FAIL : index;
}

HRESULT CExtCollection::get_ClassFor(tagREFString extension, IString** className) {
    if (!className) return E_POINTER;
    *className = nullptr;
    std::wstring text;
    if (!KitViewText(extension, text)) return E_POINTER;
    std::wstring found;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        const std::wstring* name = m_Table.ClassFor(text);
        if (!name) return E_FAIL;
        found = *name;
    }
    return HandOut(found, className);
}

HRESULT CExtCollection::RemoveExtension(tagREFString extension) {
    std::wstring text;
    if (!KitViewText(extension, text)) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    int index = m_Table.Find(text);
    if (index < 0) return E_FAIL;
    m_Table.rows.erase(m_Table.rows.begin() + index);
    return S_OK;
}

HRESULT CExtCollection::CopyExtensions(IExtCollection* source) {
    if (!source) return E_POINTER;
    // The source may be this very table: read it through its interface
    // first (taking the lock), then replace.
    ExtTable copy;
    if (!ExtTable::ReadFrom(source, copy)) return E_FAIL;
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Table = std::move(copy);
    return S_OK;
}

HRESULT CExtCollection::CreateFor(tagREFString fileName, const IID* iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!iid) return E_POINTER;
    std::wstring name;
    if (!KitViewText(fileName, name)) return E_POINTER;
    std::wstring className;
    {
        std::lock_guard<std::mutex> guard(m_Lock);
        const std::wstring* found = m_Table.ClassFor(ExtOfFileName(name));
        if (!found) return E_FAIL;
        className = *found;
    }
    return ExtCreateObject(className, *iid, object);
}

HRESULT CExtCollection::AddExtension(tagREFString extension, tagREFString className) {
    std::wstring ext, cls;
    if (!KitViewText(extension, ext) || !KitViewText(className, cls)) return E_POINTER;
    if (ExtBare(ext).empty() || cls.empty()) return E_INVALIDARG;
    std::lock_guard<std::mutex> guard(m_Lock);
    try {
        m_Table.Set(ext, cls);
    } catch (const std::bad_alloc&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CExtCollection::get_MatchCase(int32_t* on) {
    if (!on) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    *on = m_Table.matchCase ? 1 : 0;
    return S_OK;
}

HRESULT CExtCollection::put_MatchCase(int32_t on) {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Table.matchCase = on != 0;
    return S_OK;
}

HRESULT CExtCollection::ClearExtensions() {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Table.rows.clear();
    return S_OK;
}
