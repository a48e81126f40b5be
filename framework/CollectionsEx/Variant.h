// "Variant": one value, nothing, a 32-bit integer, a double, a string or an object.
#pragma once

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

class CVariant final : public CObject<CVariant>, public IVariant, public IObjectInfoImpl<CVariant> {
    LUM_OBJECT_UNKNOWN(CVariant)
public:
    HRESULT get_Type(int16_t* type) override;
    HRESULT get_Double(double* value) override;
    /// A double is truncated toward 0 and saturated to the 32-bit range (NaN gives 0).
    HRESULT get_Integer(int32_t* value) override;
    HRESULT get_Object(IUnknown** object) override;
    HRESULT IsString(int16_t* isString) override;
    HRESULT get_String(IString** text) override;
    HRESULT put_Integer(int32_t value) override;
    HRESULT put_Double(double value) override;
    /// Holds `text` itself (a reference, not a copy); null gives E_POINTER.
    HRESULT put_String(IString* text) override;
    /// Holds `object` (a reference); null gives E_POINTER (Clear holds nothing).
    HRESULT put_Object(IUnknown* object) override;
    HRESULT Clear() override;

private:
    enum Kind { kEmpty, kInteger, kDouble, kString, kObject };

    Kind m_Kind = kEmpty;
    int32_t m_Integer = 0;
    double m_Double = 0.0;
    SmartPtr<IString> m_String;
    SmartPtr<IUnknown> m_Object;
};
LUM_KIT_OBJECT_NAME_DECLARE(CVariant)
