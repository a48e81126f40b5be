// CREFString's cutting operations on arbitrary wide text. The text is held
// in a buffer of exactly its length (no terminator), so a read past the view
// is caught. Every cut must point into the characters it was cut from, and
// consuming may only move the start forward or shorten the view.
#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

#include "tests/fuzz/FuzzSupport.h"
#include "text/REFString.h"

namespace {

const wchar_t* g_Begin = nullptr;
const wchar_t* g_End = nullptr;

/// A view lies within the text (an empty view may point anywhere in it or
/// keep its old pointer).
void CheckInside(const tagREFString& view) {
    if (view.length <= 0) return;
    FUZZ_CHECK(view.text >= g_Begin && view.text + view.length <= g_End);
}

/// Consuming kept the view inside its old extent.
void CheckConsumed(const CREFString& before, const CREFString& after) {
    FUZZ_CHECK(after.text >= before.text);
    if (after.length > 0) FUZZ_CHECK(after.text + after.length <= before.text + (before.length > 0 ? before.length : 0));
}

std::vector<wchar_t> Characters(FuzzedDataProvider& input, bool raw, size_t most) {
    std::vector<uint8_t> bytes = input.ConsumeBytes<uint8_t>(most);
    std::wstring text = raw ? FuzzRawWide(bytes.data(), bytes.size()) : FuzzWideText(bytes.data(), bytes.size());
    return std::vector<wchar_t>(text.begin(), text.end());
}

wchar_t OneCharacter(FuzzedDataProvider& input, bool raw) {
    if (raw) return static_cast<wchar_t>(input.ConsumeIntegral<int32_t>());
    return static_cast<wchar_t>(input.ConsumeBool() ? input.ConsumeIntegralInRange<uint32_t>(0, 0x7F)
                                                    : input.ConsumeIntegralInRange<uint32_t>(0, 0x10FFFF));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const bool raw = input.ConsumeBool();
    const wchar_t separator = OneCharacter(input, raw);
    const uint8_t flags = input.ConsumeIntegral<uint8_t>();
    std::vector<wchar_t> set = Characters(input, raw, input.ConsumeIntegralInRange<size_t>(0, 16));
    std::vector<uint8_t> rest = input.ConsumeRemainingBytes<uint8_t>();
    std::wstring whole = raw ? FuzzRawWide(rest.data(), rest.size()) : FuzzWideText(rest.data(), rest.size());
    // Exactly the characters, without a terminator behind them.
    std::vector<wchar_t> text(whole.begin(), whole.end());
    const int32_t n = static_cast<int32_t>(text.size());
    g_Begin = text.data();
    g_End = text.data() + text.size();
    const tagREFString setView{static_cast<int32_t>(set.size()), set.data()};

    const bool a = flags & 1, b = flags & 2, c = flags & 4;

    // One call of each operation on a fresh view.
    for (int operation = 0; operation < 10; ++operation) {
        CREFString view(n, text.data());
        const CREFString before = view;
        CREFString result(0, nullptr), right(0, nullptr);
        HRESULT hr = S_OK;
        switch (operation) {
            case 0: hr = view.GetLine(&result, a, separator, b); break;
            case 1: hr = view.GetLineCRLF(&result, a, b); break;
            case 2: hr = view.GetReverseLine(&result, separator, a, b); break;
            case 3: hr = view.GetLineRight(&result, separator, a, b, c); break;
            case 4: hr = view.Crop(&result, separator, a, b); break;
            case 5:
                hr = view.Split(&result, &right, CREFString(setView), flags & 8);
                FUZZ_CHECK(view.text == before.text && view.length == before.length);
                CheckInside(right);
                if (hr == S_OK) FUZZ_CHECK(result.length + right.length == n && result.text + result.length == right.text);
                break;
            case 6: hr = view.GetFirstWord(&result, a); break;
            case 7:
                hr = view.GetWord(&result, a, setView);
                FUZZ_CHECK(hr == E_FAIL || (hr >= 0 && hr <= n));
                break;
            case 8:
                hr = view.Contains(setView);
                FUZZ_CHECK(hr == E_FAIL || (hr >= 0 && hr < n));
                break;
            case 9:
                hr = view.ContainsChar(setView);
                FUZZ_CHECK(hr == E_FAIL || (hr >= 0 && hr < n));
                if (hr >= 0) {
                    bool found = false;
                    for (wchar_t s : set) found = found || s == text[static_cast<size_t>(hr)];
                    FUZZ_CHECK(found);
                }
                break;
        }
        CheckInside(result);
        CheckConsumed(before, view);
    }

    // Taking the whole text apart the way readers do: line by line, word by
    // word, token by token, with a null result too. Every step that succeeds
    // must consume something or end.
    for (int pass = 0; pass < 4; ++pass) {
        CREFString view(n, text.data());
        for (int32_t steps = 0; steps <= n + 1; ++steps) {
            const CREFString before = view;
            CREFString piece;
            HRESULT hr = E_FAIL;
            switch (pass) {
                case 0: hr = view.GetLine(a ? nullptr : &piece, true, separator, b); break;
                case 1: hr = view.GetLineCRLF(&piece, a, true); break;
                case 2:
                    hr = view.GetWord(&piece, true, setView);
                    // The separator stays at the head: step over it.
                    if (hr > 0 && view.length > 0) view = CREFString(view.length - 1, view.text + 1);
                    break;
                case 3: hr = view.GetFirstWord(&piece, true); break;
            }
            CheckInside(piece);
            CheckConsumed(before, view);
            if (hr < 0 || view.length <= 0) break;
            FUZZ_CHECK(view.text != before.text || view.length != before.length);
        }
    }
    return 0;
}
