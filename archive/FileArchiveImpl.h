// IFileArchiveImpl<T, Interface>: a file of the component's own, holding its
// settings as XML or as a folder stream.
//
// Loading and saving are not built yet: they answer E_NOTIMPL. The file name
// and filter are kept already, since hosts set them before anything else.
#pragma once

#include "lum/lum.h"

template <class T, class Interface>
class IFileArchiveImpl : public Interface {
public:
    HRESULT get_Filename(IString** name) override {
        if (!name) return E_POINTER;
        m_FileName.CopyTo(name);
        return *name ? S_OK : E_FAIL;
    }
    HRESULT put_Filename(IString* name) override {
        m_FileName.Assign(name);
        return S_OK;
    }
    HRESULT get_Filter(IString** filter, int16_t reserved) override {
        if (!filter) return E_POINTER;
        m_Filter.CopyTo(filter);
        return *filter ? S_OK : E_FAIL;
    }
    HRESULT get_Name(IString** name) override {
        if (name) *name = nullptr;
        return E_NOTIMPL;
    }
    HRESULT Load() override { return E_NOTIMPL; }
    HRESULT Save() override { return E_NOTIMPL; }
    HRESULT Control(int32_t code, int32_t value) override { return E_NOTIMPL; }
    HRESULT Inquire(int32_t code, int32_t* value) override { return E_NOTIMPL; }
    HRESULT Unload() override { return E_NOTIMPL; }

    virtual HRESULT SaveFolderStream() { return E_NOTIMPL; }
    virtual HRESULT LoadFolderStream() { return E_NOTIMPL; }

protected:
    IFileArchiveImpl() = default;
    ~IFileArchiveImpl() = default;

    SmartPtr<IString> m_FileName;
    SmartPtr<IString> m_Filter;
};
