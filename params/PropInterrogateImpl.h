// IUIPropInterrogateImpl<T, Interface, GrowthStep>: the numbered parameter
// list of a component and the interrogation interface over it.
//
// The parameter records, their typed access and their persistence are not
// built yet: every operation answers E_NOTIMPL until then, so that hosts see
// an honest "not supported" rather than made-up values.
#pragma once

#include "lum/lum.h"

template <class T, class Interface, int GrowthStep>
class IUIPropInterrogateImpl : public Interface {
public:
    HRESULT Inquire(int32_t code, int32_t* value) override { return E_NOTIMPL; }
    HRESULT Control(int32_t code, int32_t value) override { return E_NOTIMPL; }
    HRESULT ParameterRange(int32_t code, int32_t* minimum, int32_t* maximum) override { return E_NOTIMPL; }
    HRESULT ParameterEnumeration(int32_t code, IUnknown** list) override {
        if (list) *list = nullptr;
        return E_NOTIMPL;
    }
    HRESULT InquireEx(int32_t code, IUnknown** value) override {
        if (value) *value = nullptr;
        return E_NOTIMPL;
    }
    HRESULT ControlEx(int32_t code, IUnknown* value) override { return E_NOTIMPL; }

    virtual HRESULT UIPropInterrogate_SaveFolderStream(INamedCollection* names, IFolderStream* folder,
                                                       int32_t flags) {
        return E_NOTIMPL;
    }
    virtual HRESULT UIPropInterrogate_LoadFolderStream(IFolderStream* folder, int32_t flags) {
        return E_NOTIMPL;
    }
    virtual HRESULT UIPropInterrogate_SaveXML(INamedCollection* names, IDataStream* stream, int32_t flags) {
        return E_NOTIMPL;
    }
    virtual HRESULT UIPropInterrogate_LoadXML(INamedCollection* names, IDataStream* stream, int32_t flags) {
        return E_NOTIMPL;
    }

protected:
    IUIPropInterrogateImpl() = default;
    ~IUIPropInterrogateImpl() = default;
};
