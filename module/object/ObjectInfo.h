// IObjectInfoImpl<T>: reports the class's name, the same record by which the
// module's class factory finds the class.
#pragma once

#include "lum/unknown.h"

template <class T>
class IObjectInfoImpl : public IObjectInfo {
public:
    /// Ignores the selector and hands out a view of the constant name.
    HRESULT GetName(int32_t /*selector*/, tagREFString* name) override {
        if (!name) return E_POINTER;
        *name = m_ObjectName;
        return S_OK;
    }
    static const tagREFString m_ObjectName;
};
