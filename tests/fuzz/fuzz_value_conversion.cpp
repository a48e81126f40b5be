// Text to numbers (_IS2Integer, _IS2Color, _IS2Double) on arbitrary wide
// text held without a terminator, multibyte text to strings, and numbers
// written as text (ISCreate, ISCreateHex) read back to the same value.
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <vector>

#include "tests/fuzz/FuzzSupport.h"
#include "text/ValueConversion.h"

namespace {

std::wstring TextOf(IString* string) { return ISText(string); }

CREFString ViewOf(const std::vector<wchar_t>& text) {
    return CREFString(static_cast<int32_t>(text.size()), text.data());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    FuzzEnterOutputFolder();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const int base = input.ConsumeBool() ? input.ConsumeIntegral<int>() : input.ConsumeIntegralInRange(2, 16);
    const int32_t number = input.ConsumeIntegral<int32_t>();
    const double real = input.ConsumeFloatingPoint<double>();
    const bool raw = input.ConsumeBool();
    std::vector<uint8_t> bytes = input.ConsumeRemainingBytes<uint8_t>();
    const std::wstring wide = raw ? FuzzRawWide(bytes.data(), bytes.size()) : FuzzWideText(bytes.data(), bytes.size());
    const std::vector<wchar_t> text(wide.begin(), wide.end());  // no terminator behind

    // The parsers never fail; a colour is the integer with red and blue swapped.
    const uint32_t value = static_cast<uint32_t>(_IS2Integer(ViewOf(text), base));
    const uint32_t colour = static_cast<uint32_t>(_IS2Color(ViewOf(text), base));
    FUZZ_CHECK(colour == (((value >> 16) & 0xFF) | (value & 0xFF00) | ((value & 0xFF) << 16)));
    const double parsed = _IS2Double(ViewOf(text));
    FUZZ_CHECK(!std::isnan(parsed));
    // A negative count is an empty view.
    FUZZ_CHECK(_IS2Integer(CREFString(-static_cast<int32_t>(text.size()) - 1, text.data()), base) == 0);

    // Multibyte text: one character per converted sequence or stray byte.
    SmartPtr<IString> converted =
        SmartPtr<IString>::Adopt(ISCreate(reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size())));
    FUZZ_CHECK(converted);
    FUZZ_CHECK(TextOf(converted.Get()).size() <= bytes.size());

    // Numbers written as text read back the same.
    SmartPtr<IString> decimal = SmartPtr<IString>::Adopt(ISCreate(static_cast<int>(number)));
    const std::wstring decimalText = TextOf(decimal.Get());
    FUZZ_CHECK(_IS2Integer(CREFString(static_cast<int32_t>(decimalText.size()), decimalText.data()), 10) == number);
    SmartPtr<IString> hex = SmartPtr<IString>::Adopt(ISCreateHex(static_cast<int>(number)));
    const std::wstring hexText = TextOf(hex.Get());
    FUZZ_CHECK(_IS2Integer(CREFString(static_cast<int32_t>(hexText.size()), hexText.data()), 10) == number);
    if (std::isfinite(real) && std::fabs(real) < 1e15) {
        SmartPtr<IString> fixed = SmartPtr<IString>::Adopt(ISCreate(real));
        const std::wstring fixedText = TextOf(fixed.Get());
        const double back = _IS2Double(CREFString(static_cast<int32_t>(fixedText.size()), fixedText.data()));
        FUZZ_CHECK(std::fabs(back - real) <= 1e-6 * std::fmax(1.0, std::fabs(real)));
    }
    return 0;
}
