// CREFString: every cutting operation on views into unterminated heap
// buffers, so that a read past a view's end fails under AddressSanitizer.
#include <gtest/gtest.h>

#include "tests/text/TextTestSupport.h"

namespace {

// A result view that an operation must not touch unless it says so.
CREFString Untouched() {
    static wchar_t marker[] = L"marker";
    return CREFString(6, marker);
}

/// Consumes the view of `text` cut by cut; returns the cuts joined by "|".
/// Every cut but the last must report S_OK and the last S_FALSE with the
/// view left empty at the buffer's end; one more cut then fails.
template <class Cut>
std::wstring Drain(const std::wstring& text, Cut cut) {
    HeapText source(text);
    CREFString view = source.View();
    std::wstring joined;
    for (size_t count = 0; count <= text.size(); ++count) {
        CREFString line;
        const HRESULT hr = cut(view, &line);
        joined += (count ? L"|" : L"") + Text(line);
        if (hr == S_OK) continue;
        EXPECT_EQ(S_FALSE, hr) << "after " << count << " cuts";
        EXPECT_EQ(0, view.length);
        EXPECT_EQ(source.End(), view.text);
        line = Untouched();
        EXPECT_EQ(E_FAIL, cut(view, &line));
        EXPECT_EQ(0, line.length);
        return joined;
    }
    ADD_FAILURE() << "never reported the last line";
    return joined;
}

TEST(REFStringGetLine, ConsumesLineByLineAndReportsTheLast) {
    auto keep = [](CREFString& view, CREFString* line) { return view.GetLine(line, true, L';', false); };
    auto drop = [](CREFString& view, CREFString* line) { return view.GetLine(line, true, L';', true); };
    EXPECT_EQ(L"a;|b", Drain(L"a;b", keep));
    EXPECT_EQ(L"a|b", Drain(L"a;b", drop));
    EXPECT_EQ(L"a||b", Drain(L"a;;b", drop));
    EXPECT_EQ(L"ab;", Drain(L"ab;", keep));  // a final separator ends the last line
    EXPECT_EQ(L"ab", Drain(L"ab;", drop));
}

TEST(REFStringGetLine, WithoutConsumeFailsForTheLastLine) {
    HeapText noSeparator(L"abc");
    CREFString view = noSeparator.View();
    CREFString line;
    EXPECT_EQ(E_FAIL, view.GetLine(&line, false, L';', false));
    EXPECT_EQ(L"abc", Text(line));  // the result still holds the whole view
    EXPECT_EQ(L"abc", Text(view));

    HeapText finalSeparator(L"ab;");
    view = finalSeparator.View();
    EXPECT_EQ(E_FAIL, view.GetLine(&line, false, L';', true));
    EXPECT_EQ(L"ab", Text(line));

    HeapText twoLines(L"a;b");
    view = twoLines.View();
    EXPECT_EQ(S_OK, view.GetLine(&line, false, L';', false));
    EXPECT_EQ(L"a;", Text(line));
    EXPECT_EQ(L"a;b", Text(view));
}

TEST(REFStringGetLineCRLF, MixedLineEndsAreOneEqualOnesAreTwo) {
    auto drop = [](CREFString& view, CREFString* line) { return view.GetLineCRLF(line, true, true); };
    auto keep = [](CREFString& view, CREFString* line) { return view.GetLineCRLF(line, false, true); };
    EXPECT_EQ(L"x|y", Drain(L"x\r\ny", drop));
    EXPECT_EQ(L"x|y", Drain(L"x\n\ry", drop));
    EXPECT_EQ(L"x||y", Drain(L"x\n\ny", drop));
    EXPECT_EQ(L"x||y", Drain(L"x\r\ry", drop));
    EXPECT_EQ(L"x\r\n|y", Drain(L"x\r\ny", keep));
    // The view stops between CR and LF: the LF outside must not be seen.
    EXPECT_EQ(L"x\r", Drain(L"x\r", keep));
}

TEST(REFStringGetLineCRLF, KeepsTheLineEndAndSucceedsWithoutConsume) {
    HeapText source(L"x\r\ny");
    CREFString view = source.View();
    CREFString line;
    EXPECT_EQ(S_OK, view.GetLineCRLF(&line, false, false));
    EXPECT_EQ(L"x\r\n", Text(line));
    EXPECT_EQ(L"x\r\ny", Text(view));

    HeapText single(L"abc");
    view = single.View();
    EXPECT_EQ(S_OK, view.GetLineCRLF(&line, true, false));
    EXPECT_EQ(L"abc", Text(line));
}

TEST(REFStringGetReverseLine, CutsTheHeadBeforeTheLastSeparator) {
    HeapText source(L"a/b/file");
    CREFString view = source.View();
    CREFString head;
    EXPECT_EQ(S_OK, view.GetReverseLine(&head, L'/', false, false));
    EXPECT_EQ(L"a/b", Text(head));
    EXPECT_EQ(L"a/b/file", Text(view));

    EXPECT_EQ(S_OK, view.GetReverseLine(&head, L'/', true, false));
    EXPECT_EQ(L"/file", Text(view));

    view = source.View();
    EXPECT_EQ(S_OK, view.GetReverseLine(&head, L'/', true, true));
    EXPECT_EQ(L"a/b", Text(head));
    EXPECT_EQ(L"file", Text(view));
}

TEST(REFStringGetReverseLine, FailsWithoutAHead) {
    CREFString head = Untouched();
    HeapText leading(L"/file");
    CREFString view = leading.View();
    EXPECT_EQ(E_FAIL, view.GetReverseLine(&head, L'/', true, true));
    EXPECT_EQ(0, head.length);
    EXPECT_EQ(leading.Begin(), head.text);
    EXPECT_EQ(L"/file", Text(view));

    head = Untouched();
    HeapText none(L"file");
    view = none.View();
    EXPECT_EQ(E_FAIL, view.GetReverseLine(&head, L'/', true, true));
    EXPECT_EQ(0, head.length);
    EXPECT_EQ(none.Begin(), head.text);
    EXPECT_EQ(L"file", Text(view));
}

TEST(REFStringGetLineRight, CutsTheTailAndShortensTheView) {
    HeapText source(L"a/dir/file");
    CREFString view = source.View();
    CREFString tail;
    EXPECT_EQ(S_OK, view.GetLineRight(&tail, L'/', false, false, false));
    EXPECT_EQ(L"/file", Text(tail));
    EXPECT_EQ(S_OK, view.GetLineRight(&tail, L'/', true, false, false));
    EXPECT_EQ(L"a/dir/", Text(view));
    EXPECT_EQ(source.Begin(), view.text);

    view = source.View();
    EXPECT_EQ(S_OK, view.GetLineRight(&tail, L'/', true, true, false));
    EXPECT_EQ(L"file", Text(tail));
    EXPECT_EQ(L"a/dir", Text(view));
}

TEST(REFStringGetLineRight, WholeIfAbsentAndEmptyViews) {
    HeapText source(L"file");
    CREFString view = source.View();
    CREFString tail;
    EXPECT_EQ(S_OK, view.GetLineRight(&tail, L'/', false, false, true));
    EXPECT_EQ(L"file", Text(tail));
    EXPECT_EQ(S_OK, view.GetLineRight(&tail, L'/', true, false, true));
    EXPECT_EQ(0, view.length);

    view = source.View();
    EXPECT_EQ(E_FAIL, view.GetLineRight(&tail, L'/', true, false, false));
    EXPECT_EQ(0, tail.length);
    EXPECT_EQ(L"file", Text(view));

    // An empty view fails without touching the result.
    CREFString empty(0, nullptr);
    tail = Untouched();
    EXPECT_EQ(E_FAIL, empty.GetLineRight(&tail, L'/', true, false, true));
    EXPECT_EQ(L"marker", Text(tail));
}

TEST(REFStringCrop, CutsLikeGetLineRightWithoutFallback) {
    HeapText source(L"dir/file");
    CREFString view = source.View();
    CREFString tail;
    EXPECT_EQ(S_OK, view.Crop(&tail, L'/', true, true));
    EXPECT_EQ(L"file", Text(tail));
    EXPECT_EQ(L"dir", Text(view));

    HeapText none(L"file");
    view = none.View();
    tail = Untouched();
    EXPECT_EQ(E_FAIL, view.Crop(&tail, L'/', true, false));
    EXPECT_EQ(0, tail.length);
    EXPECT_EQ(L"file", Text(view));
}

TEST(REFStringCrop, SeparatorOnlyAtTheStart) {
    HeapText source(L"/file");
    CREFString view = source.View();
    CREFString tail;
    EXPECT_EQ(S_OK, view.Crop(&tail, L'/', true, false));
    EXPECT_EQ(L"/file", Text(tail));
    EXPECT_EQ(L"/", Text(view));

    view = source.View();
    EXPECT_EQ(S_OK, view.Crop(&tail, L'/', true, true));
    EXPECT_EQ(L"file", Text(tail));
    EXPECT_EQ(0, view.length);
}

TEST(REFStringCrop, EmptyViewNeverReadsItsFirstCharacter) {
    HeapText nothing(L"");
    CREFString view = nothing.View();
    CREFString tail = Untouched();
    EXPECT_EQ(E_FAIL, view.Crop(&tail, L'/', true, true));
    EXPECT_EQ(0, tail.length);
    // Looking for the 0 character finds the place where a terminator would
    // be, but the cut stays empty and the view does not grow.
    tail = Untouched();
    EXPECT_EQ(S_OK, view.Crop(&tail, L'\0', true, false));
    EXPECT_EQ(0, tail.length);
    EXPECT_EQ(0, view.length);
}

TEST(REFStringSplit, CutsAtTheFirstSeparatorOfTheSet) {
    HeapText source(L"a;b,c");
    HeapText separators(L",;");
    CREFString view = source.View();
    CREFString left, right;
    EXPECT_EQ(S_OK, view.Split(&left, &right, separators.View(), 0));
    EXPECT_EQ(L"a", Text(left));
    EXPECT_EQ(L";b,c", Text(right));
    EXPECT_EQ(L"a;b,c", Text(view));

    HeapText leading(L"=x");
    HeapText equals(L"=");
    view = leading.View();
    EXPECT_EQ(S_OK, view.Split(&left, &right, equals.View(), 0));
    EXPECT_EQ(0, left.length);
    EXPECT_EQ(L"=x", Text(right));
    // Either result may be omitted.
    EXPECT_EQ(S_OK, view.Split(nullptr, nullptr, equals.View(), 0));
}

TEST(REFStringSplit, ControlCharactersSplitOnlyWhenAskedAndWithASet) {
    HeapText source(L"ab\tc");
    HeapText comma(L",");
    CREFString view = source.View();
    CREFString left, right;
    EXPECT_EQ(S_OK, view.Split(&left, &right, comma.View(), 1));
    EXPECT_EQ(L"ab", Text(left));
    EXPECT_EQ(L"\tc", Text(right));

    right = Untouched();
    EXPECT_EQ(E_FAIL, view.Split(&left, &right, comma.View(), 0));
    EXPECT_EQ(L"ab\tc", Text(left));
    EXPECT_EQ(0, right.length);

    // An empty set splits nothing, not even control characters.
    EXPECT_EQ(E_FAIL, view.Split(&left, &right, CREFString(0, nullptr), 1));
    EXPECT_EQ(L"ab\tc", Text(left));
    EXPECT_EQ(0, right.length);
}

TEST(REFStringGetFirstWord, Numbers) {
    struct Case {
        const wchar_t* text;
        const wchar_t* token;
        const wchar_t* rest;
    } cases[] = {
        {L"-12.5e+3x", L"-12.5e+3", L"x"},
        {L"1.5e3", L"1.5", L"e3"},      // an exponent needs a sign
        {L"12e+3", L"12", L"e+3"},      // and a fraction before it
        {L"1.5E-2;", L"1.5E-2", L";"},
        {L"1.5e+", L"1.5", L"e+"},      // no digit after the sign
        {L"3.x", L"3", L".x"},          // a point needs a digit after it
        {L"3.", L"3", L"."},
        {L"007", L"007", L""},
        {L"-4", L"-4", L""},
    };
    for (const Case& c : cases) {
        HeapText source(c.text);
        CREFString view = source.View();
        CREFString token;
        EXPECT_EQ(S_OK, view.GetFirstWord(&token, true)) << c.text;
        EXPECT_EQ(c.token, Text(token)) << c.text;
        EXPECT_EQ(c.rest, Text(view)) << c.text;
    }
}

TEST(REFStringGetFirstWord, IdentifiersAndPunctuation) {
    struct Case {
        const wchar_t* text;
        const wchar_t* token;
        const wchar_t* rest;
    } cases[] = {
        {L"abc_d(", L"abc_d", L"("},
        {L"abc def", L"abc", L" def"},
        {L"abc_", L"abc_", L""},  // runs to the view's end
        {L"(x", L"(", L"x"},
        {L"+5", L"+", L"5"},    // only a minus starts a signed number
        {L"_x", L"_", L"x"},    // a leading underscore is punctuation
        {L"abc\"", L"bc", L"\""},  // a quote right after the token drops its first character
        {L"12\"", L"2", L"\""},
    };
    for (const Case& c : cases) {
        HeapText source(c.text);
        CREFString view = source.View();
        CREFString token;
        EXPECT_EQ(S_OK, view.GetFirstWord(&token, true)) << c.text;
        EXPECT_EQ(c.token, Text(token)) << c.text;
        EXPECT_EQ(c.rest, Text(view)) << c.text;
    }
}

TEST(REFStringGetFirstWord, QuotedText) {
    HeapText source(L"\"ab c\" d");
    CREFString view = source.View();
    CREFString token;
    EXPECT_EQ(S_OK, view.GetFirstWord(&token, true));
    EXPECT_EQ(L"ab c", Text(token));
    EXPECT_EQ(L"\" d", Text(view));  // the closing quote stays

    HeapText emptyQuotes(L"\"\"");
    view = emptyQuotes.View();
    EXPECT_EQ(S_OK, view.GetFirstWord(&token, true));
    EXPECT_EQ(0, token.length);
    EXPECT_EQ(L"\"", Text(view));

    // Without a closing quote the token runs to the end, opening quote included.
    HeapText open(L"\"abc");
    view = open.View();
    EXPECT_EQ(S_OK, view.GetFirstWord(&token, false));
    EXPECT_EQ(L"\"abc", Text(token));

    HeapText lone(L"\"");
    view = lone.View();
    EXPECT_EQ(S_OK, view.GetFirstWord(&token, true));
    EXPECT_EQ(L"\"", Text(token));
    EXPECT_EQ(0, view.length);
}

TEST(REFStringGetFirstWord, FailuresLeaveViewAndResultAlone) {
    for (const wchar_t* text : {L" abc", L"-x", L"-", L"\t1"}) {
        HeapText source(text);
        CREFString view = source.View();
        CREFString token = Untouched();
        EXPECT_EQ(E_FAIL, view.GetFirstWord(&token, true)) << text;
        EXPECT_EQ(L"marker", Text(token)) << text;
        EXPECT_EQ(text, Text(view)) << text;
    }
    CREFString empty(0, nullptr);
    CREFString token = Untouched();
    EXPECT_EQ(E_FAIL, empty.GetFirstWord(&token, true));
    EXPECT_EQ(0, token.length);
    EXPECT_EQ(E_FAIL, empty.GetFirstWord(nullptr, true));
}

TEST(REFStringGetFirstWord, StopsAtTheViewsEndInsideLongerText) {
    // Views into the middle of text: what lies after the view never
    // continues a token, though a terminator there would not either.
    static wchar_t identifier[] = L"abc_def";
    CREFString view(3, identifier);
    CREFString token;
    EXPECT_EQ(S_OK, view.GetFirstWord(&token, false));
    EXPECT_EQ(L"abc", Text(token));

    static wchar_t quoted[] = L"\"ab\"";
    view = CREFString(3, quoted);
    EXPECT_EQ(S_OK, view.GetFirstWord(&token, false));
    EXPECT_EQ(L"\"ab", Text(token));

    static wchar_t number[] = L"1.5e+3";
    view = CREFString(5, number);
    EXPECT_EQ(S_OK, view.GetFirstWord(&token, false));
    EXPECT_EQ(L"1.5", Text(token));

    // A null result still lets the view be consumed.
    HeapText source(L"word rest");
    view = source.View();
    EXPECT_EQ(S_OK, view.GetFirstWord(nullptr, true));
    EXPECT_EQ(L" rest", Text(view));
}

TEST(REFStringGetWord, ReturnsTheSeparatorsOneBasedPosition) {
    HeapText source(L"key=val");
    HeapText separators(L"=:");
    CREFString view = source.View();
    CREFString word;
    EXPECT_EQ(4, view.GetWord(&word, true, separators.Ref()));
    EXPECT_EQ(L"key", Text(word));
    EXPECT_EQ(L"=val", Text(view));  // the separator stays at the head
    EXPECT_EQ(1, view.GetWord(&word, true, separators.Ref()));
    EXPECT_EQ(0, word.length);

    HeapText plain(L"abc");
    view = plain.View();
    EXPECT_EQ(0, view.GetWord(&word, true, separators.Ref()));
    EXPECT_EQ(L"abc", Text(word));
    EXPECT_EQ(0, view.length);
    word = Untouched();
    EXPECT_EQ(E_FAIL, view.GetWord(&word, true, separators.Ref()));
    EXPECT_EQ(0, word.length);

    view = plain.View();
    EXPECT_EQ(0, view.GetWord(&word, false, tagREFString{0, nullptr}));
    EXPECT_EQ(L"abc", Text(word));
    EXPECT_EQ(L"abc", Text(view));
}

TEST(REFStringContains, StartZeroDoublesAsNoStart) {
    struct Case {
        const wchar_t* text;
        const wchar_t* pattern;
        HRESULT expected;
    } cases[] = {
        {L"abc", L"ab", 1},   // a match at 0 of two or more characters reports 1
        {L"abc", L"abc", 1},
        {L"abc", L"a", 0},    // a one-character match at 0 reports 0
        {L"abc", L"bc", 1},
        {L"abc", L"c", 2},
        {L"xxab", L"ab", 2},
        {L"abab", L"ab", 1},
        {L"aab", L"ab", E_FAIL},  // the mismatching character is not re-tried
        {L"xaab", L"ab", E_FAIL},
        {L"abc", L"abcd", E_FAIL},
        {L"abc", L"x", E_FAIL},
    };
    for (const Case& c : cases) {
        HeapText source(c.text);
        HeapText pattern(c.pattern);
        CREFString view = source.View();
        EXPECT_EQ(c.expected, view.Contains(pattern.Ref())) << c.text << " / " << c.pattern;
    }
}

TEST(REFStringContains, EmptyPatternOrView) {
    HeapText source(L"abc");
    HeapText pattern(L"a");
    CREFString view = source.View();
    EXPECT_EQ(E_FAIL, view.Contains(tagREFString{0, nullptr}));
    EXPECT_EQ(E_FAIL, view.Contains(tagREFString{-1, nullptr}));
    EXPECT_EQ(E_FAIL, CREFString(0, nullptr).Contains(pattern.Ref()));
}

TEST(REFStringContainsChar, FirstCharacterFromTheSet) {
    HeapText source(L"a,b;c");
    HeapText set(L";,");
    HeapText other(L"xyz");
    CREFString view = source.View();
    EXPECT_EQ(1, view.ContainsChar(set.Ref()));
    EXPECT_EQ(E_FAIL, view.ContainsChar(other.Ref()));
    EXPECT_EQ(E_FAIL, view.ContainsChar(tagREFString{0, nullptr}));
    EXPECT_EQ(E_FAIL, CREFString(0, nullptr).ContainsChar(set.Ref()));
}

// Empty views, null pointers and negative lengths: every operation fails or
// returns emptiness without reading a character.
TEST(REFStringBadViews, EveryOperationIsSafe) {
    HeapText set(L";/");
    for (int32_t length : {0, -1, -1000}) {
        SCOPED_TRACE(length);
        CREFString view(length, nullptr);
        CREFString result = Untouched();
        CREFString other = Untouched();
        EXPECT_EQ(E_FAIL, view.GetLine(&result, true, L';', true));
        EXPECT_EQ(0, result.length);
        EXPECT_EQ(E_FAIL, view.GetLine(nullptr, true, L';', true));
        EXPECT_EQ(E_FAIL, view.GetLineCRLF(&result, true, true));
        EXPECT_EQ(E_FAIL, view.GetLineCRLF(nullptr, true, true));
        EXPECT_EQ(E_FAIL, view.GetReverseLine(&result, L'/', true, true));
        EXPECT_EQ(E_FAIL, view.GetReverseLine(nullptr, L'/', true, true));
        EXPECT_EQ(E_FAIL, view.GetLineRight(&result, L'/', true, true, true));
        EXPECT_EQ(E_FAIL, view.Crop(&result, L'/', true, true));
        EXPECT_EQ(E_FAIL, view.Crop(nullptr, L'/', true, true));
        EXPECT_EQ(E_FAIL, view.Split(&result, &other, set.View(), 1));
        EXPECT_EQ(0, result.length);
        EXPECT_EQ(0, other.length);
        EXPECT_EQ(E_FAIL, view.GetFirstWord(&result, true));
        EXPECT_EQ(E_FAIL, view.GetWord(&result, true, set.Ref()));
        EXPECT_EQ(E_FAIL, view.GetWord(nullptr, true, set.Ref()));
        EXPECT_EQ(E_FAIL, view.Contains(set.Ref()));
        EXPECT_EQ(E_FAIL, view.ContainsChar(set.Ref()));
        EXPECT_EQ(length, view.length);  // a failure never changes the view
    }
}

TEST(REFStringBadViews, NegativeLengthArgumentsAreEmptySets) {
    HeapText source(L"a;b");
    CREFString view = source.View();
    CREFString left, right;
    const tagREFString negative{-4, nullptr};
    EXPECT_EQ(E_FAIL, view.Split(&left, &right, CREFString(negative), 1));
    EXPECT_EQ(L"a;b", Text(left));
    EXPECT_EQ(0, view.GetWord(&left, false, negative));
    EXPECT_EQ(L"a;b", Text(left));
    EXPECT_EQ(E_FAIL, view.Contains(negative));
    EXPECT_EQ(E_FAIL, view.ContainsChar(negative));
}

TEST(REFStringLongText, TenThousandCharactersInOnePass) {
    std::wstring text(10000, L'x');
    text[5000] = L'/';
    HeapText source(text);
    CREFString view = source.View();
    CREFString tail;
    EXPECT_EQ(S_OK, view.GetLineRight(&tail, L'/', false, true, false));
    EXPECT_EQ(4999, tail.length);
    EXPECT_EQ(5000, view.GetWord(nullptr, false, tagREFString{1, const_cast<wchar_t*>(L"/")}) - 1);
    EXPECT_EQ(5000, view.ContainsChar(tagREFString{1, const_cast<wchar_t*>(L"/")}));
    EXPECT_EQ(S_OK, view.GetFirstWord(&tail, false));
    EXPECT_EQ(5000, tail.length);
}

}  // namespace
