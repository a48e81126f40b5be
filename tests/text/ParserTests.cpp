// Reading integers, colours and doubles from text, and bounded formatting.
// None of these needs a string object.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/text/TextTestSupport.h"
#include "text/ValueConversion.h"

namespace {

int Integer(const std::wstring& text, int base) { return _IS2Integer(HeapText(text).View(), base); }
int Color(const std::wstring& text, int base) { return _IS2Color(HeapText(text).View(), base); }
double Double(const std::wstring& text) { return _IS2Double(HeapText(text).View()); }

TEST(IS2Integer, SignsAndPrefixes) {
    EXPECT_EQ(-12, Integer(L"-12abc", 10));
    EXPECT_EQ(7, Integer(L"+7", 10));
    for (int base : {0, 2, 8, 10, 16}) EXPECT_EQ(255, Integer(L"#ff", base)) << base;
    EXPECT_EQ(0, Integer(L"", 10));
    EXPECT_EQ(0, Integer(L"-", 10));
    EXPECT_EQ(0, Integer(L"#", 10));
    EXPECT_EQ(0, Integer(L" 5", 10));  // no white space is skipped
    EXPECT_EQ(0, Integer(L"x1", 10));
}

TEST(IS2Integer, DigitsAreNotCheckedAgainstTheBase) {
    EXPECT_EQ(9, Integer(L"9", 8));
    EXPECT_EQ(17, Integer(L"19", 8));
    EXPECT_EQ(15, Integer(L"f", 11));
    EXPECT_EQ(0, Integer(L"F", 10));   // letters only for bases 11 to 16
    EXPECT_EQ(0, Integer(L"a", 17));
    EXPECT_EQ(18, Integer(L"12", 16));
    EXPECT_EQ(0x1A2B, Integer(L"1a2Bz", 16));
    EXPECT_EQ(12, Integer(L"12\u0663", 10));  // other scripts' digits end the number
}

TEST(IS2Integer, OverflowWrapsInThirtyTwoBits) {
    EXPECT_EQ(-1, Integer(L"FFFFFFFF", 16));
    EXPECT_EQ(1, Integer(L"4294967297", 10));
    EXPECT_EQ(INT32_MIN, Integer(L"-2147483648", 10));
}

TEST(IS2Integer, ReadsOnlyTheView) {
    HeapText digits(L"123");
    CREFString view = digits.View();
    view.length = 2;
    EXPECT_EQ(12, _IS2Integer(view, 10));
    EXPECT_EQ(0, _IS2Integer(CREFString(-3, nullptr), 10));
    EXPECT_EQ(0, _IS2Integer(CREFString(0, nullptr), 10));
}

TEST(IS2Color, SwapsRedAndBlue) {
    EXPECT_EQ(0x302010, Color(L"#102030", 16));
    EXPECT_EQ(0x302010, Color(L"#102030", 10));  // "#" forces base 16
    EXPECT_EQ(0x0000FF, Color(L"#FF0000", 16));
    EXPECT_EQ(0xDDCCBB, Color(L"#AABBCCDD", 16));  // the top byte is cleared
    EXPECT_EQ(0, Color(L"#FF000000", 16));
    EXPECT_EQ(0x030201, Color(L"66051", 10));  // 0x010203
    EXPECT_EQ(0, Color(L"", 16));
}

TEST(IS2Double, DecimalText) {
    EXPECT_DOUBLE_EQ(-0.5, Double(L"-0.5"));
    EXPECT_DOUBLE_EQ(3.0, Double(L"3."));
    EXPECT_DOUBLE_EQ(1.2, Double(L"1.2.3"));
    EXPECT_DOUBLE_EQ(2.25, Double(L"+2.25"));
    EXPECT_DOUBLE_EQ(42.0, Double(L"42abc"));
    EXPECT_DOUBLE_EQ(0.75, Double(L".75"));
    EXPECT_DOUBLE_EQ(1.0, Double(L"1e5"));  // exponents are not read
    EXPECT_EQ(0.0, Double(L""));
    EXPECT_EQ(0.0, Double(L"abc"));
    EXPECT_EQ(0.0, Double(L" 1"));
}

TEST(IS2Double, ALoneMinusGivesNegativeZero) {
    const double value = Double(L"-");
    EXPECT_EQ(0.0, value);
    EXPECT_TRUE(std::signbit(value));
    EXPECT_FALSE(std::signbit(Double(L"+")));
}

TEST(IS2Double, HexTextIsASignedInteger) {
    EXPECT_DOUBLE_EQ(16.0, Double(L"#10"));
    EXPECT_DOUBLE_EQ(-1.0, Double(L"#FFFFFFFF"));
    EXPECT_DOUBLE_EQ(255.0, Double(L"#ffZ"));
    EXPECT_EQ(0.0, Double(L"#"));
}

TEST(IS2Double, AtMostEighteenFractionDigitsCount) {
    EXPECT_DOUBLE_EQ(9e-18, Double(L"0.000000000000000009"));
    // The nineteenth digit and later are ignored.
    EXPECT_EQ(0.0, Double(L"0.0000000000000000009"));
    EXPECT_EQ(0.0, Double(L"-0.000000000000000000999"));
}

TEST(IS2Double, ReadsOnlyTheView) {
    HeapText digits(L"1.25");
    CREFString view = digits.View();
    view.length = 3;
    EXPECT_DOUBLE_EQ(1.2, _IS2Double(view));
    EXPECT_EQ(0.0, _IS2Double(CREFString(-1, nullptr)));
}

TEST(Swprintf, FormatsAndTerminates) {
    wchar_t buffer[16];
    EXPECT_EQ(5, _swprintf(buffer, 16, L"%i-%ls", 42, L"ab"));
    EXPECT_STREQ(L"42-ab", buffer);
    EXPECT_EQ(3, _swprintf(buffer, 4, L"abc"));  // exact fit
    EXPECT_STREQ(L"abc", buffer);
}

TEST(Swprintf, TooSmallBufferGivesEmptyTextAndStaysInside) {
    wchar_t buffer[8];
    std::wmemset(buffer, L'#', 8);
    EXPECT_EQ(-1, _swprintf(buffer, 4, L"abcdef"));
    EXPECT_EQ(L'\0', buffer[0]);
    for (int i = 4; i < 8; ++i) EXPECT_EQ(L'#', buffer[i]) << i;

    std::wmemset(buffer, L'#', 8);
    EXPECT_EQ(-1, _swprintf(buffer, 0, L"x"));
    EXPECT_EQ(L'#', buffer[0]);
    EXPECT_EQ(-1, _swprintf(nullptr, 8, L"x"));
}

}  // namespace
