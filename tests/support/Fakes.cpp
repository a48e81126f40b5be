#include "tests/support/Fakes.h"

#include "tests/support/ModuleHost.h"

using namespace std;

template <class T>
using E = InterfaceEntry<T>;

const E<FakeStack> FakeStack::kInterfaces[] = {
    E<FakeStack>::Of<IStackCollection>(IID_IStackCollection),
    E<FakeStack>::Of<ISimpleCollection>(IID_ISimpleCollection),
    E<FakeStack>::End(),
};
const E<FakeArchive> FakeArchive::kInterfaces[] = {
    E<FakeArchive>::Of<ILUMArchive>(IID_ILUMArchive),
    E<FakeArchive>::End(),
};
const E<FakeCanvas> FakeCanvas::kInterfaces[] = {
    E<FakeCanvas>::Of<ILUMImageCANVAS>(IID_ILUMImageCANVAS),
    E<FakeCanvas>::Of<ILUMImageCANVAS>(IID_ILUMImageDIB),
    E<FakeCanvas>::Of<ILUMImageCANVAS>(IID_ILUM),
    E<FakeCanvas>::End(),
};
const E<FakeFileNames> FakeFileNames::kInterfaces[] = {
    E<FakeFileNames>::Of<IFileNameCollection>(IID_IFileNameCollection),
    E<FakeFileNames>::Of<IExtCollection>(IID_IExtCollection),
    E<FakeFileNames>::Of<IEventSource>(IID_IEventSource),
    E<FakeFileNames>::End(),
};
const E<CountingSink> CountingSink::kInterfaces[] = {
    E<CountingSink>::Of<_ICameraEvents>(IID__ICameraEvents),
    E<CountingSink>::End(),
};
const E<PlainObject> PlainObject::kInterfaces[] = {
    E<PlainObject>::End(),
};
const E<FakeCollection> FakeCollection::kInterfaces[] = {
    E<FakeCollection>::Of<IComponentCollection>(IID_IComponentCollection),
    E<FakeCollection>::End(),
};

namespace {
wstring NameOf(tagREFString name) {
    return name.length > 0 && name.text ? wstring(name.text, static_cast<size_t>(name.length)) : wstring();
}
}  // namespace

HRESULT FakeCollection::CreateObject(tagREFString className, const IID* iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    ++m_Creations;
    CreateInstanceFunction creator = nullptr;
    {
        lock_guard<mutex> lock(m_Mutex);
        auto it = m_Classes.find(NameOf(className));
        if (it != m_Classes.end()) {
            if (!it->second) return E_FAIL;
            creator = it->second;
        }
    }
    if (creator) return creator(nullptr, iid, object);
    SmartPtr<IComponentCollection> global = GlobalCollection();
    return global ? global->CreateObject(className, iid, object) : E_FAIL;
}

HRESULT FakeCollection::GetCreateFunction(tagREFString className, void** creator) {
    if (!creator) return E_POINTER;
    {
        lock_guard<mutex> lock(m_Mutex);
        auto it = m_Classes.find(NameOf(className));
        if (it != m_Classes.end()) {
            *creator = reinterpret_cast<void*>(it->second);
            return it->second ? S_OK : E_FAIL;
        }
    }
    SmartPtr<IComponentCollection> global = GlobalCollection();
    return global ? global->GetCreateFunction(className, creator) : E_FAIL;
}

HRESULT FakeCollection::RegisterCreateFunction(tagREFString className, void* creator) {
    Set(NameOf(className).c_str(), reinterpret_cast<CreateInstanceFunction>(creator));
    return S_OK;
}

void FakeCollection::Set(const wchar_t* className, CreateInstanceFunction creator) {
    lock_guard<mutex> lock(m_Mutex);
    m_Classes[className] = creator;
}

SmartPtr<FakeCollection> MakeComponentHost() {
    SmartPtr<FakeCollection> host = CObject<FakeCollection>::New();
    host->Set(L"LUMStack", &CObject<FakeStack>::_CreateInstance);
    host->Set(L"LUMArchive", &CObject<FakeArchive>::_CreateInstance);
    host->Set(L"FileNameCollection", &CObject<FakeFileNames>::_CreateInstance);
    host->Set(L"ExtCollection", &CObject<FakeFileNames>::_CreateInstance);
    host->Set(L"LUMImageCANVAS", &CObject<FakeCanvas>::_CreateInstance);
    return host;
}
