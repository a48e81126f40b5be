// "Parameters": named parameters in order of addition.
#pragma once

#include "framework/common/KitCollections.h"

class CParameters final : public CObject<CParameters>,
                          public INamedCollectionImpl<INamedCollection>,
                          public IParametersCreatable,
                          public IObjectInfoImpl<CParameters> {
    LUM_OBJECT_UNKNOWN(CParameters)
public:
    /// Adds an entry whose item is `value` (null allowed).
    HRESULT AddParameter(tagREFString name, IUnknown* value) override;
    /// Adds an entry whose item is a new string holding `text`.
    HRESULT AddText(tagREFString name, tagREFString text) override;
    /// The item of the first entry of that name; E_FAIL and null when none.
    HRESULT get_Parameter(tagREFString name, IUnknown** value) override;
};
LUM_KIT_OBJECT_NAME_DECLARE(CParameters)
