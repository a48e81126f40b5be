// CDateTimer: a calendar date and time of day that can be taken from the
// clock or from a system time, and written to and read from a data stream,
// as the XML element "DATETIME" or as records of a folder stream.
#pragma once

#include <cstdint>

#include "lum/lum.h"

/// A date and time of day, fields in record order.
struct DATETIME {
    int16_t Day = 0;      // 1 to 31
    int16_t Month = 0;    // 1 to 12
    int16_t Year = 0;     // full year
    int16_t Hour = 0;     // 0 to 23
    int16_t Minute = 0;   // 0 to 59
    float Second = 0.0f;  // with fractions
    int16_t WeekDay = 0;  // 0 = Sunday to 6 = Saturday
};

class CDateTimer : public DATETIME {
public:
    CDateTimer() = default;

    /// Reads the clock into the system time and every field (local time).
    virtual HRESULT Reset();
    /// Sets the date and time from `t` (seconds since 1970, local time).
    /// WeekDay and the system time are deliberately left as they were.
    virtual HRESULT SetLinuxTime(long t);
    /// XML ("DATETIME" with WeekDay, Day, Month, Year, Hour, Minute, Second)
    /// when the stream offers IXMLStream, else the folder-stream records Day,
    /// Month, Year, Hour, Minute (16-bit) and Second (float); WeekDay is not
    /// part of the folder-stream records. S_OK when all was written, E_FAIL
    /// when a part was not, E_NOINTERFACE when the stream offers neither.
    virtual HRESULT Save(IDataStream* stream, int32_t flags);
    /// Reads what Save writes; a missing value leaves its field unchanged
    /// and makes the result S_FALSE. Values are taken without range checks.
    virtual HRESULT Load(IDataStream* stream, int32_t flags);
    /// Declared after the four operations, so that they keep the first slots.
    virtual ~CDateTimer() = default;

    /// The system time that Reset last read.
    int64_t m_SystemTime = 0;
};
