// The probe component of the fuzz targets that feed settings to a component,
// and of the seeds written from it. Its parameters start from values other
// than zero and take their display names from code ("Frame Rate" and so
// on), so that it needs no string folder.
#pragma once

#include "tests/support/ParamProbe.h"

/// The value the parameter that is never persisted always keeps.
constexpr int32_t kFuzzVolatileValue = 0x5A5A;

class CFuzzProbe final : public ParamProbe<CFuzzProbe> {
    LUM_OBJECT_UNKNOWN(CFuzzProbe)

public:
    HRESULT FinalConstruct() override;
    /// The display names of the probe's parameters, made once.
    static INamedCollection* Names();
};

/// Defined with the class's interface table.
template <>
const tagREFString IObjectInfoImpl<CFuzzProbe>::m_ObjectName;
