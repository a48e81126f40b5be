// The ISCreate family: new framework strings (from ./CollectionsEx.so) made
// from text, numbers and variants.
#include <gtest/gtest.h>

#include <clocale>
#include <climits>
#include <string>

#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"
#include "module/object/ObjectInfo.h"
#include "tests/support/ModuleHost.h"
#include "tests/text/TextTestSupport.h"
#include "text/ValueConversion.h"

namespace {

/// Adopts a returned string and reads it back.
struct Made {
    explicit Made(IString* created) : string(SmartPtr<IString>::Adopt(created)) {}
    std::wstring Text() const { return TextOf(string.Get()); }
    SmartPtr<IString> string;
};

/// An object that answers IObjectInfo with its class name.
class CNamedThing final : public CObject<CNamedThing>, public IObjectInfoImpl<CNamedThing> {
    LUM_OBJECT_UNKNOWN(CNamedThing)
};
const InterfaceEntry<CNamedThing> CNamedThing::kInterfaces[] = {
    InterfaceEntry<CNamedThing>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CNamedThing>::End(),
};

/// An object that answers nothing but IUnknown.
class CAnonymousThing final : public CObject<CAnonymousThing> {
    LUM_OBJECT_UNKNOWN(CAnonymousThing)
};
const InterfaceEntry<CAnonymousThing> CAnonymousThing::kInterfaces[] = {
    InterfaceEntry<CAnonymousThing>::End(),
};

}  // namespace

template <>
const tagREFString IObjectInfoImpl<CNamedThing>::m_ObjectName = {10, const_cast<wchar_t*>(L"NamedThing")};

namespace {

SmartPtr<IVariant> NewVariant() { return SmartPtr<IVariant>::Adopt(CREFString::CreateVariant()); }

SmartPtr<IVariant> DoubleVariant(double value) {
    SmartPtr<IVariant> variant = NewVariant();
    variant->put_Double(value);
    return variant;
}

SmartPtr<IVariant> IntegerVariant(int32_t value) {
    SmartPtr<IVariant> variant = NewVariant();
    variant->put_Integer(value);
    return variant;
}

/// Switches the process locale for one test and restores it afterwards.
class LocaleScope {
public:
    explicit LocaleScope(const char* name) : m_Previous(std::setlocale(LC_ALL, nullptr)) {
        m_Active = std::setlocale(LC_ALL, name) != nullptr;
    }
    ~LocaleScope() { std::setlocale(LC_ALL, m_Previous.c_str()); }
    bool Active() const { return m_Active; }

private:
    std::string m_Previous;
    bool m_Active = false;
};

TEST(ISCreateText, WideTextCopiesAndViews) {
    Made text(ISCreate(L"abc"));
    ASSERT_TRUE(text.string);
    EXPECT_EQ(L"abc", text.Text());
    EXPECT_EQ(1u, RefCountOf(text.string.Get()));  // the caller holds the only reference

    Made empty(ISCreate(static_cast<const wchar_t*>(nullptr)));
    ASSERT_TRUE(empty.string);
    EXPECT_EQ(L"", empty.Text());

    Made copy(ISCreate(text.string.Get()));
    EXPECT_EQ(L"abc", copy.Text());
    EXPECT_NE(text.string.Get(), copy.string.Get());
    text.string->SetText(1, L"z");
    EXPECT_EQ(L"abc", copy.Text());  // a copy, not a share

    Made fromNull(ISCreate(static_cast<IString*>(nullptr)));
    ASSERT_TRUE(fromNull.string);
    EXPECT_EQ(L"", fromNull.Text());
}

TEST(ISCreateText, ViewsTakeExactlyTheirCharacters) {
    HeapText source(L"hello");
    tagREFString view = source.Ref();
    view.length = 3;
    EXPECT_EQ(L"hel", Made(ISCreate(view)).Text());
    view = source.Ref();
    EXPECT_EQ(L"hello", Made(ISCreate(view)).Text());

    // A negative length is empty, not "up to the terminator".
    tagREFString negative{-1, const_cast<wchar_t*>(L"abc")};
    Made empty(ISCreate(negative));
    ASSERT_TRUE(empty.string);
    EXPECT_EQ(L"", empty.Text());
    tagREFString null{0, nullptr};
    EXPECT_EQ(L"", Made(ISCreate(null)).Text());
}

TEST(ISCreateMultibyte, ConvertsCharacterByCharacter) {
    LocaleScope utf8("C.UTF-8");
    ASSERT_TRUE(utf8.Active());
    const std::string text = "h\xC3\xA9llo \xE2\x82\xAC";  // "héllo €"
    // An unterminated heap copy exactly as long as the byte count.
    std::unique_ptr<char[]> bytes(new char[text.size()]);
    std::memcpy(bytes.get(), text.data(), text.size());
    EXPECT_EQ(L"h\u00E9llo \u20AC", Made(ISCreate(bytes.get(), static_cast<int>(text.size()))).Text());
    EXPECT_EQ(L"h\u00E9", Made(ISCreate(bytes.get(), 3)).Text());
    // A count that cuts a character in two: the lone byte stands for itself.
    EXPECT_EQ(L"h\u00C3", Made(ISCreate(bytes.get(), 2)).Text());
}

TEST(ISCreateMultibyte, CountsAndOddBytes) {
    EXPECT_EQ(L"", Made(ISCreate("abc", 0)).Text());  // a count of 0 is empty whatever the text
    EXPECT_EQ(L"", Made(ISCreate("abc", -5)).Text());
    EXPECT_EQ(L"", Made(ISCreate(static_cast<const char*>(nullptr), 4)).Text());
    EXPECT_EQ(L"ab", Made(ISCreate("abcdef", 2)).Text());
    // A zero byte gives a 0 character and the conversion goes on after it.
    EXPECT_EQ(std::wstring(L"a\0b", 3), Made(ISCreate("a\0b", 3)).Text());

    LocaleScope plain("C");
    // Bytes the locale cannot convert are kept as their own values.
    EXPECT_EQ(L"x\u00E9y", Made(ISCreate("x\xE9y", 3)).Text());
}

TEST(ISCreateNumbers, Integers) {
    EXPECT_EQ(L"0", Made(ISCreate(0)).Text());
    EXPECT_EQ(L"-42", Made(ISCreate(-42)).Text());
    EXPECT_EQ(L"2147483647", Made(ISCreate(INT_MAX)).Text());
    EXPECT_EQ(L"-2147483648", Made(ISCreate(INT_MIN)).Text());
}

TEST(ISCreateNumbers, HexColours) {
    EXPECT_EQ(L"#00FF00", Made(ISCreateHex(0x00FF00)).Text());
    EXPECT_EQ(L"#000ABC", Made(ISCreateHex(0xABC)).Text());
    EXPECT_EQ(L"#000000", Made(ISCreateHex(0)).Text());
    EXPECT_EQ(L"#FFFFFF", Made(ISCreateHex(0xFFFFFF)).Text());
    EXPECT_EQ(L"#1000000", Made(ISCreateHex(16777216)).Text());
    EXPECT_EQ(L"#FFFFFFFF", Made(ISCreateHex(-1)).Text());
    EXPECT_EQ(L"#80000000", Made(ISCreateHex(INT_MIN)).Text());
}

TEST(ISCreateNumbers, DoublesInFixedNotation) {
    EXPECT_EQ(L"1.500000", Made(ISCreate(1.5)).Text());
    EXPECT_EQ(L"-0.250000", Made(ISCreate(-0.25)).Text());
    EXPECT_EQ(L"0.000000", Made(ISCreate(1e-9)).Text());
    // Wider than the 256-character buffer: the whole number still comes out.
    const std::wstring huge = Made(ISCreate(1e300)).Text();
    EXPECT_EQ(std::to_wstring(1e300), huge);
    EXPECT_EQ(301u + 7u, huge.size());
}

TEST(ISCreateVariant, AutomaticDecimals) {
    EXPECT_EQ(L"2.5", Made(ISCreate(DoubleVariant(2.5).Get(), -1)).Text());
    EXPECT_EQ(L"1", Made(ISCreate(DoubleVariant(1.0).Get(), -1)).Text());
    EXPECT_EQ(L"-1.25", Made(ISCreate(DoubleVariant(-1.25).Get(), -1)).Text());
    EXPECT_EQ(L"0.333333333", Made(ISCreate(DoubleVariant(1.0 / 3.0).Get(), -1)).Text());
    EXPECT_EQ(L"0.1", Made(ISCreate(DoubleVariant(0.1).Get(), -1)).Text());
    EXPECT_EQ(L"7", Made(ISCreate(IntegerVariant(7).Get(), -1)).Text());
    EXPECT_EQ(L"-7", Made(ISCreate(IntegerVariant(-7).Get(), 3)).Text());  // integers never get a point
}

TEST(ISCreateVariant, ChosenDecimals) {
    EXPECT_EQ(L"2.500", Made(ISCreate(DoubleVariant(2.5).Get(), 3)).Text());
    // Precision 0 formats the integer value, truncated toward 0.
    EXPECT_EQ(L"2", Made(ISCreate(DoubleVariant(2.7).Get(), 0)).Text());
    EXPECT_EQ(L"-2", Made(ISCreate(DoubleVariant(-2.7).Get(), 0)).Text());
    // Many decimals do not fit the usual buffer but are not cut.
    const std::wstring wide = Made(ISCreate(DoubleVariant(1.0).Get(), 400)).Text();
    EXPECT_EQ(402u, wide.size());
    EXPECT_EQ(L"1.000", wide.substr(0, 5));
}

TEST(ISCreateVariant, StringsNullAndEmpty) {
    EXPECT_EQ(nullptr, ISCreate(static_cast<IVariant*>(nullptr), -1));
    EXPECT_EQ(nullptr, ISCreate(static_cast<IVariant*>(nullptr)));
    EXPECT_EQ(nullptr, ISCreate(NewVariant().Get(), -1));  // no value

    SmartPtr<IVariant> variant = NewVariant();
    Made held(ISCreate(L"held text"));
    variant->put_String(held.string.Get());
    Made precise(ISCreate(variant.Get(), 2));
    EXPECT_EQ(L"held text", precise.Text());
    Made plain(ISCreate(variant.Get()));
    EXPECT_EQ(L"held text", plain.Text());
}

TEST(ISCreateVariant, ValueOrObjectName) {
    EXPECT_EQ(L"2.5", Made(ISCreate(DoubleVariant(2.5).Get())).Text());
    EXPECT_EQ(L"12", Made(ISCreate(IntegerVariant(12).Get())).Text());

    SmartPtr<IVariant> named = NewVariant();
    SmartPtr<IUnknown> thing;
    ASSERT_EQ(S_OK, CNamedThing::_CreateInstance(nullptr, &IID_IUnknown, thing.OutVoid()));
    named->put_Object(thing.Get());
    EXPECT_EQ(L"NamedThing", Made(ISCreate(named.Get())).Text());

    SmartPtr<IVariant> anonymous = NewVariant();
    SmartPtr<IUnknown> other;
    ASSERT_EQ(S_OK, CAnonymousThing::_CreateInstance(nullptr, &IID_IUnknown, other.OutVoid()));
    anonymous->put_Object(other.Get());
    Made noName(ISCreate(anonymous.Get()));
    ASSERT_TRUE(noName.string);
    EXPECT_EQ(L"", noName.Text());

    Made empty(ISCreate(NewVariant().Get()));
    ASSERT_TRUE(empty.string);
    EXPECT_EQ(L"", empty.Text());

    // Nothing is kept: the objects go back to the references held here.
    named = nullptr;
    anonymous = nullptr;
    EXPECT_EQ(1u, RefCountOf(thing.Get()));
    EXPECT_EQ(1u, RefCountOf(other.Get()));
}

}  // namespace
