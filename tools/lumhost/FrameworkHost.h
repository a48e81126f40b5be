// Start-up of the framework for a host: the global collection from
// "./CollectionsEx.so", then the camera module initialised with it.
#pragma once

#include <string>

#include "lum/lum.h"

class FrameworkHost {
public:
    /// Loads the collections module and the camera module from the working
    /// directory. On failure, `Error()` says why.
    bool Start();
    /// Drops the module's reference to the collection.
    void Stop();

    IComponentCollection* Collection() const { return m_Collection.Get(); }
    const std::string& Error() const { return m_Error; }

    /// Creates a component of the camera module (or any framework class) by
    /// class name through the global collection.
    template <class I>
    SmartPtr<I> Create(const wchar_t* className, const IID& iid, HRESULT* result = nullptr) const {
        SmartPtr<I> object;
        HRESULT hr = m_Collection ? m_Collection->CreateObject(REFStr(className), &iid, object.OutVoid()) : E_FAIL;
        if (result) *result = hr;
        return object;
    }

private:
    SmartPtr<IComponentCollection> m_Collection;
    InitializeModuleFunction m_InitializeCamera = nullptr;
    std::string m_Error;
};

/// "0x80004005" style text of a result code.
std::string ResultText(HRESULT hr);
