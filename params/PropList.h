// The parameter records of a component and the list that holds them.
//
// A record does not hold its value: it points at the component's member, so
// that the component's code and the interrogation interface share one
// variable. The list keeps records in declaration order, which is also the
// order of lookup and of saving.
#pragma once

#include <atomic>

#include "lum/lum.h"

/// Value types, in the low four bits of a parameter's flags word.
enum PropType : uint32_t {
    PropTypeNone = 0,     // declared as 0, stored as 3
    PropTypeByte = 1,     // unsigned 8-bit member
    PropTypeShort = 2,    // signed 16-bit member
    PropTypeLong = 3,     // signed 32-bit member (also colours)
    PropTypeFloat = 4,    // 32-bit float member
    PropTypeDouble = 5,   // 64-bit double member
    PropTypeString = 6,   // IString* member (counted reference)
    PropTypeObject = 7,   // IUnknown* member (counted reference)
    PropTypeVoid = 8,     // no value: reads as 0
    PropTypeForeign = 9,  // interface pointer owned elsewhere
};

constexpr uint32_t PROP_TYPE_MASK = 0xF;
constexpr uint32_t PROP_BOOLEAN = 0x10;         // a switch: range 0 to 1
constexpr uint32_t PROP_COLOR = 0x20;           // with type 3; exactly 0x23 means colour handling
constexpr uint32_t PROP_FILENAME = 0x100;       // strings stored relative to the install path
constexpr uint32_t PROP_NOT_PERSISTED = 0x04000000;

/// Inquire code that asks about the list itself rather than one parameter.
constexpr int32_t PROP_LIST_QUERY = 0x2000000;

/// Constraint kinds.
constexpr int16_t PROP_KIND_RANGE = 0;
constexpr int16_t PROP_KIND_ENUMERATION = 2;

struct PropRecord {
    int32_t id;
    uint32_t flags;
    /// The component's member; for types 6 and 7 an `IString*`/`IUnknown*`
    /// (or a SmartPtr of one, which has the same layout).
    void* value;
    int16_t kind;
    union {
        struct {
            int32_t minimum;
            int32_t maximum;
        } range;
        /// The named choices (counted reference) of an enumeration record.
        IUnknown* enumeration;
    };

    uint32_t Type() const { return flags & PROP_TYPE_MASK; }
};

/// An array of record pointers that grows by a fixed step.
class CPropList {
public:
    explicit CPropList(int32_t growthStep) : m_GrowthStep(growthStep > 0 ? growthStep : 1) {}
    /// Frees every record: enumeration collections are released; string and
    /// object members are left to the component, only the record's pointer
    /// to them is cleared.
    ~CPropList();
    CPropList(const CPropList&) = delete;
    CPropList& operator=(const CPropList&) = delete;

    /// Appends a zero-filled record; null when memory ran out.
    PropRecord* Append();
    /// First record with this identifier in declaration order, or null.
    PropRecord* Find(int32_t id) const;

    int32_t Count() const { return m_Count; }
    int32_t Capacity() const { return m_Capacity; }
    PropRecord* At(int32_t index) const { return m_Items[index]; }

    /// Declares a parameter with a range (type 0 is stored as type 3).
    HRESULT DeclareRange(int32_t id, void* member, int32_t flags, int32_t minimum, int32_t maximum);

private:
    PropRecord** m_Items = nullptr;
    int32_t m_Count = 0;
    int32_t m_Capacity = 0;
    int32_t m_GrowthStep;
};

/// Inquire's typed read of one record into `*value` (when both it and the
/// member are there): the flags word, or E_FAIL for a type that has no
/// integer form.
HRESULT PROPReadInteger(const PropRecord& record, int32_t* value);

/// A member's value, read with relaxed atomic access: a component's worker
/// threads read members while the host changes them through the parameters.
template <class V>
V PROPLoad(const void* member) {
    return std::atomic_ref<V>(*static_cast<V*>(const_cast<void*>(member))).load(std::memory_order_relaxed);
}

/// Stores into a member with relaxed atomic access (see PROPLoad).
template <class V>
void PROPStore(void* member, V value) {
    std::atomic_ref<V>(*static_cast<V*>(member)).store(value, std::memory_order_relaxed);
}
/// Control's typed write: the low 8 or 16 bits, all 32, or a float's bits
/// widened to double; other types and a missing member are ignored.
void PROPWriteInteger(const PropRecord& record, int32_t value);

/// The float whose bit pattern travels as an integer, and back.
int32_t PROPFloatBits(float value);
float PROPBitsFloat(int32_t bits);
