// Strings and values.
#pragma once

#include "lum/unknown.h"

struct IString : IUnknown {
    virtual HRESULT GetText(wchar_t** text, int32_t* length) = 0;
    virtual HRESULT SetText(int32_t length, const wchar_t* text) = 0;
    virtual HRESULT Append(int32_t length, const wchar_t* text) = 0;
    virtual HRESULT get_Length(int32_t* length) = 0;
};

/// Marks a string created empty for filling; no operations of its own.
struct ICreatableString : IString {};

struct IVariant : IUnknown {
    virtual HRESULT get_Type(int16_t* type) = 0;
    virtual HRESULT get_Double(double* value) = 0;
    virtual HRESULT get_Integer(int32_t* value) = 0;
    virtual HRESULT get_Object(IUnknown** object) = 0;
    virtual HRESULT IsString(int16_t* isString) = 0;
    virtual HRESULT get_String(IString** text) = 0;
    virtual HRESULT put_Integer(int32_t value) = 0;
    virtual HRESULT put_Double(double value) = 0;
    virtual HRESULT put_String(IString* text) = 0;
    virtual HRESULT put_Object(IUnknown* object) = 0;
    virtual HRESULT Clear() = 0;
};
