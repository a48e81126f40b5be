// Interface identifiers computed from names: the values other modules of the
// framework compute too, so they must match byte for byte.
#include <gtest/gtest.h>

#include <array>
#include <set>
#include <string>

#include "lum/iid.h"

namespace {

std::array<uint8_t, 16> Bytes(const IID& iid) {
    std::array<uint8_t, 16> bytes;
    std::memcpy(bytes.data(), &iid, 16);
    return bytes;
}

std::array<uint8_t, 16> Expect(std::initializer_list<int> values) {
    std::array<uint8_t, 16> bytes{};
    size_t i = 0;
    for (int v : values) bytes[i++] = static_cast<uint8_t>(v);
    return bytes;
}

TEST(InterfaceIdentifiers, ReproduceTheFrameworkCheckValues) {
    EXPECT_EQ(Bytes(__IIDOfc("IString")), Expect({0x69, 0x52, 0x99, 0xDC, 0x01}));
    EXPECT_EQ(Bytes(__IIDOfc("ICamera")), Expect({0x69, 0x84, 0x56, 0x64}));
    EXPECT_EQ(Bytes(__IIDOfc("_ICameraEvents")),
              Expect({0x3B, 0x8D, 0xD0, 0x8A, 0x0C, 0xC5, 0x16, 0x47, 0x27}));
    EXPECT_EQ(Bytes(__IIDOfc("IUIPropInterrogateEx")),
              Expect({0xA9, 0x26, 0x28, 0x1F, 0x4C, 0x8E, 0x16, 0x29, 0xDF, 0x09, 0xB4, 0x14, 0x0C}));
    EXPECT_EQ(Bytes(__IIDOfc("IFileNameCollectionBase")),
              Expect({0xC9, 0x24, 0x56, 0x5C, 0x68, 0x65, 0x3C, 0xC6, 0xCA, 0xA0, 0xE9, 0x39, 0x11, 0x66, 0x01}));
}

TEST(InterfaceIdentifiers, GlobalsHoldTheComputedValuesAtLoad) {
    EXPECT_EQ(Bytes(IID_IString), Bytes(__IIDOfc("IString")));
    EXPECT_EQ(Bytes(IID__ICameraEvents), Bytes(__IIDOfc("_ICameraEvents")));
    EXPECT_EQ(Bytes(IID_IUnknown), Expect({0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}));
    EXPECT_GE(LUMInterfaceCount(), 49);
}

TEST(InterfaceIdentifiers, CharacterCodesAndLimits) {
    EXPECT_EQ(Bytes(__IIDOfc("")), Expect({}));
    // Letters are case-blind.
    EXPECT_EQ(__IIDOfc("IString"), __IIDOfc("istring"));
    EXPECT_EQ(__IIDOfc("ISTRING"), __IIDOfc("iString"));
    // "5" to "9" and "_" share one code; "0" to "4" each have their own.
    EXPECT_EQ(__IIDOfc("I5"), __IIDOfc("I_"));
    EXPECT_EQ(__IIDOfc("I9"), __IIDOfc("I."));
    EXPECT_NE(__IIDOfc("I0"), __IIDOfc("I1"));
    EXPECT_NE(__IIDOfc("I3"), __IIDOfc("I_"));
    // The six-bit code of "4" sets the lowest bit of the next character's field.
    EXPECT_EQ(Bytes(__IIDOfc("IID4X")), Expect({0x29, 0x11, 0x90, 0x01}));
    EXPECT_NE(__IIDOfc("IID4X"), __IIDOfc("IID4"));
    // Only the first 25 characters count.
    EXPECT_EQ(__IIDOfc("ICreatableSimpleCollection"), __IIDOfc("ICreatableSimpleCollectio"));
    EXPECT_NE(__IIDOfc("ICreatableSimpleCollectio"), __IIDOfc("ICreatableSimpleCollecti"));
    std::string longName(300, 'Z');
    EXPECT_EQ(__IIDOfc(longName.c_str()), __IIDOfc(longName.substr(0, 25).c_str()));
}

TEST(InterfaceIdentifiers, HighBytesAndNonAsciiStayWithinTheIdentifier) {
    // The 25th character's field is bits 120 to 124; the six-bit "4" still fits.
    std::string name(24, 'A');
    name += '4';
    EXPECT_EQ(Bytes(__IIDOfc(name.c_str()))[15], 0x20);
    // Bytes above 127 are taken sign-extended and get the "other" code.
    EXPECT_EQ(__IIDOfc("I\xC3\xA9"), __IIDOfc("I__"));
}

TEST(InterfaceIdentifiers, EveryFrameworkInterfaceHasItsOwnIdentifier) {
    std::set<std::array<uint8_t, 16>> seen;
    int count = 0;
#define LUM_INTERFACE(Name) \
    ++count;                \
    EXPECT_TRUE(seen.insert(Bytes(IID_##Name)).second) << #Name;
#include "lum/interface_names.h"
#undef LUM_INTERFACE
    EXPECT_EQ(count, LUMInterfaceCount());
    EXPECT_FALSE(seen.count(Bytes(IID_IUnknown)));
}

}  // namespace
