// "CreatableString" and "Variant" through their interface slots.
#include <cmath>

#include "tests/framework/KitTestSupport.h"

namespace {

IUnknown* Identity(IUnknown* object) { return QueryAs<IUnknown>(object, IID_IUnknown).Get(); }

// The characters and the count a string reports, checking the terminator.
std::wstring Checked(IString* string) {
    wchar_t* text = nullptr;
    int32_t length = -1, reported = -1;
    EXPECT_EQ(S_OK, string->GetText(&text, &length));
    EXPECT_EQ(S_OK, string->get_Length(&reported));
    EXPECT_EQ(length, reported);
    if (!text || length < 0) {
        ADD_FAILURE() << "no text";
        return {};
    }
    EXPECT_EQ(L'\0', text[length]) << "text not terminated";
    return std::wstring(text, static_cast<size_t>(length));
}

TEST(KitString, StartsEmptyAndTerminated) {
    SmartPtr<ICreatableString> string = CreateByName<ICreatableString>(L"CreatableString", IID_ICreatableString);
    ASSERT_TRUE(string);
    EXPECT_EQ(L"", Checked(string.Get()));
    EXPECT_EQ(S_OK, string->GetText(nullptr, nullptr));
    EXPECT_EQ(E_POINTER, string->get_Length(nullptr));
    SmartPtr<IString> plain = string.As<IString>(IID_IString);
    EXPECT_EQ(static_cast<IString*>(string.Get()), plain.Get());
}

TEST(KitString, SetTextFollowsTheLengthRules) {
    SmartPtr<IString> string = MakeString(L"");
    ASSERT_TRUE(string);
    const wchar_t source[] = L"abcdef";
    EXPECT_EQ(S_OK, string->SetText(3, source));  // a count shorter than the text
    EXPECT_EQ(L"abc", Checked(string.Get()));
    EXPECT_EQ(S_OK, string->SetText(-1, source));  // up to the terminator
    EXPECT_EQ(L"abcdef", Checked(string.Get()));
    EXPECT_EQ(S_OK, string->SetText(-7, L"xy"));
    EXPECT_EQ(L"xy", Checked(string.Get()));
    const wchar_t withZero[] = {L'a', L'\0', L'b'};
    EXPECT_EQ(S_OK, string->SetText(3, withZero));  // an explicit count keeps 0 characters
    EXPECT_EQ(std::wstring(withZero, 3), Checked(string.Get()));
    EXPECT_EQ(S_OK, string->SetText(0, nullptr));
    EXPECT_EQ(L"", Checked(string.Get()));
    ASSERT_EQ(S_OK, string->SetText(-1, L"kept"));
    EXPECT_EQ(S_OK, string->SetText(-1, nullptr));
    EXPECT_EQ(L"", Checked(string.Get()));
    ASSERT_EQ(S_OK, string->SetText(-1, L"kept"));
    EXPECT_EQ(E_POINTER, string->SetText(2, nullptr));
    EXPECT_EQ(L"kept", Checked(string.Get()));
}

TEST(KitString, AppendFollowsTheSameRulesAndMayReadItself) {
    SmartPtr<IString> string = MakeString(L"ab");
    EXPECT_EQ(S_OK, string->Append(-1, L"cd"));
    EXPECT_EQ(S_OK, string->Append(1, L"xyz"));
    EXPECT_EQ(S_OK, string->Append(0, nullptr));
    EXPECT_EQ(S_OK, string->Append(-1, nullptr));
    EXPECT_EQ(E_POINTER, string->Append(1, nullptr));
    EXPECT_EQ(L"abcdx", Checked(string.Get()));

    // Appending the string's own characters (the view may move while growing).
    for (int i = 0; i < 6; ++i) {
        wchar_t* own = nullptr;
        int32_t length = 0;
        ASSERT_EQ(S_OK, string->GetText(&own, &length));
        ASSERT_EQ(S_OK, string->Append(length, own));
    }
    std::wstring expected = L"abcdx";
    for (int i = 0; i < 6; ++i) expected += expected;
    EXPECT_EQ(expected, Checked(string.Get()));
    wchar_t* own = nullptr;
    ASSERT_EQ(S_OK, string->GetText(&own, nullptr));
    EXPECT_EQ(S_OK, string->SetText(2, own + 1));  // replacing by a part of itself
    EXPECT_EQ(L"bc", Checked(string.Get()));
}

class KitVariant : public testing::Test {
protected:
    void SetUp() override {
        variant = CreateByName<IVariant>(L"Variant", IID_IVariant);
        ASSERT_TRUE(variant);
    }
    int16_t Type() {
        int16_t type = -1;
        EXPECT_EQ(S_OK, variant->get_Type(&type));
        return type;
    }
    int16_t IsString() {
        int16_t yes = -1;
        EXPECT_EQ(S_OK, variant->IsString(&yes));
        return yes;
    }
    SmartPtr<IVariant> variant;
};

TEST_F(KitVariant, EmptyAnswersWithItsNoValueCodes) {
    EXPECT_EQ(0, Type());
    double d = 9.0;
    int32_t i = 9;
    IUnknown* object = reinterpret_cast<IUnknown*>(0x1);
    IString* text = reinterpret_cast<IString*>(0x1);
    EXPECT_EQ(S_FALSE, variant->get_Double(&d));
    EXPECT_EQ(0.0, d);
    EXPECT_EQ(S_FALSE, variant->get_Integer(&i));
    EXPECT_EQ(0, i);
    EXPECT_EQ(S_FALSE, variant->get_Object(&object));
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(0, IsString());
    EXPECT_EQ(E_FAIL, variant->get_String(&text));
    EXPECT_EQ(nullptr, text);
    for (HRESULT hr : {variant->get_Type(nullptr), variant->get_Double(nullptr), variant->get_Integer(nullptr),
                       variant->get_Object(nullptr), variant->IsString(nullptr), variant->get_String(nullptr),
                       variant->put_String(nullptr), variant->put_Object(nullptr)})
        EXPECT_EQ(E_POINTER, hr);
}

TEST_F(KitVariant, NumbersConvertBetweenIntegerAndDouble) {
    double d = 0;
    int32_t i = 0;
    ASSERT_EQ(S_OK, variant->put_Integer(-42));
    EXPECT_EQ(1, Type());
    EXPECT_EQ(S_OK, variant->get_Double(&d));
    EXPECT_EQ(-42.0, d);

    const std::pair<double, int32_t> truncations[] = {
        {2.9, 2}, {-2.9, -2}, {0.5, 0}, {1e12, INT32_MAX}, {-1e12, INT32_MIN}, {std::nan(""), 0}};
    for (auto [value, expected] : truncations) {
        ASSERT_EQ(S_OK, variant->put_Double(value));
        EXPECT_EQ(2, Type());
        EXPECT_EQ(S_OK, variant->get_Integer(&i));
        EXPECT_EQ(expected, i) << value;
    }
    ASSERT_EQ(S_OK, variant->put_Double(2.5));
    EXPECT_EQ(S_OK, variant->get_Double(&d));
    EXPECT_EQ(2.5, d);
    EXPECT_EQ(S_OK, variant->Clear());
    EXPECT_EQ(0, Type());
}

TEST_F(KitVariant, HoldsTheCallersStringAndObjectAsSeparateKinds) {
    SmartPtr<IString> text = MakeString(L"seven");
    ASSERT_EQ(S_OK, variant->put_String(text.Get()));
    EXPECT_EQ(2u, RefCountOf(text.Get()));
    EXPECT_EQ(0, Type());
    EXPECT_EQ(1, IsString());
    SmartPtr<IString> held;
    EXPECT_EQ(S_OK, variant->get_String(held.Out()));
    EXPECT_EQ(text.Get(), held.Get());  // the variant's own string object, not a copy
    held = nullptr;
    SmartPtr<IUnknown> object;
    EXPECT_EQ(S_FALSE, variant->get_Object(object.Out()));
    double d = 1.0;
    EXPECT_EQ(S_FALSE, variant->get_Double(&d));

    SmartPtr<IUnknown> other = MakeFake<KitPlainObject, IUnknown>();
    ASSERT_EQ(S_OK, variant->put_Object(other.Get()));
    EXPECT_EQ(1u, RefCountOf(text.Get()));  // the string was released
    EXPECT_EQ(0, IsString());
    EXPECT_EQ(S_OK, variant->get_Object(object.Out()));
    EXPECT_EQ(Identity(other.Get()), Identity(object.Get()));
    object = nullptr;
    EXPECT_EQ(E_FAIL, variant->get_String(held.Out()));

    // A string handed in as an object stays an object.
    ASSERT_EQ(S_OK, variant->put_Object(text.Get()));
    EXPECT_EQ(0, IsString());
    EXPECT_EQ(1u, RefCountOf(other.Get()));
    ASSERT_EQ(S_OK, variant->put_Integer(3));
    EXPECT_EQ(1u, RefCountOf(text.Get()));
}

}  // namespace
