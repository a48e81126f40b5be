// The identifier of every framework interface, computed from its name at load.
#include "lum/iid.h"

IID __IIDOfc(char const* name) {
    int32_t codes[25];
    int n = 0;
    // Only the first 25 characters count; each byte is taken sign-extended.
    while (n < 25 && name[n] != 0) {
        codes[n] = static_cast<signed char>(name[n]);
        ++n;
    }
    unsigned char bytes[17] = {};  // one spare byte for the 16-bit store at byte 15
    int byteIndex = 0;
    int shift = 0;
    for (int i = 0; i < n; ++i) {
        int c = codes[i];
        int code;
        if (c >= 'A' && c <= 'Z')
            code = c - 64;
        else if (c >= 'a' && c <= 'z')
            code = c - 96;
        else if (c >= '0' && c <= '4')
            code = c - 20;
        else
            code = 27;
        // OR the code as a 16-bit value at the current byte: the 6-bit code of
        // "4" spills its top bit into the next character's field by design.
        unsigned value = static_cast<unsigned>(code) << shift;
        bytes[byteIndex] |= static_cast<unsigned char>(value & 0xFF);
        bytes[byteIndex + 1] |= static_cast<unsigned char>((value >> 8) & 0xFF);
        if (shift + 5 > 7) {
            shift -= 3;
            ++byteIndex;
        } else {
            shift += 5;
        }
    }
    IID iid;
    std::memcpy(&iid, bytes, sizeof iid);
    return iid;
}

const IID IID_IUnknown = {0x0000000000000000ull, 0x46000000000000C0ull};

#define LUM_INTERFACE(Name) IID IID_##Name;
#include "lum/interface_names.h"
#undef LUM_INTERFACE

namespace {

const int kInterfaceCount = 0
#define LUM_INTERFACE(Name) +1
#include "lum/interface_names.h"
#undef LUM_INTERFACE
    ;

// Runs before any other static initialiser of the module, so that every
// identifier holds its value before code that compares them can run.
__attribute__((constructor(101))) void ComputeInterfaceIdentifiers() {
#define LUM_INTERFACE(Name) IID_##Name = __IIDOfc(#Name);
#include "lum/interface_names.h"
#undef LUM_INTERFACE
}

}  // namespace

int LUMInterfaceCount() { return kInterfaceCount; }
