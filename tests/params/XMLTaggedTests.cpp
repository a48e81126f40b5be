// Cutting elements out of XML text with XMLGetTAGGED, and the indexed
// searches that must answer exactly as the plain scans do.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "params/XMLTagged.h"
#include "tests/text/TextTestSupport.h"

namespace {

struct Cut {
    HRESULT hr;
    std::wstring attributes, content, rest;
};

Cut CutOut(const std::wstring& text, const std::wstring& tag, bool consume = true) {
    HeapText heap(text);
    HeapText heapTag(tag);
    CREFString view = heap.View();
    CREFString attributes(L"untouched"), content;
    Cut cut;
    cut.hr = XMLGetTAGGED(&view, heapTag.View(), &attributes, &content, consume ? 1 : 0);
    cut.attributes = Text(attributes);
    cut.content = Text(content);
    cut.rest = Text(view);
    return cut;
}

TEST(XMLGetTAGGED, CutsAttributesContentAndConsumes) {
    Cut cut = CutOut(L"junk<Tag a=\"1\"?>body</Tag>tail", L"Tag ignored after the blank");
    EXPECT_EQ(S_OK, cut.hr);
    EXPECT_EQ(L" a=\"1\"", cut.attributes) << "one trailing ? is dropped";
    EXPECT_EQ(L"body", cut.content);
    EXPECT_EQ(L"tail", cut.rest);

    EXPECT_EQ(L" x", CutOut(L"<a x/?>", L"a").attributes) << "then one trailing /";
    EXPECT_EQ(L" version=\"1.0\"", CutOut(L"<?xml version=\"1.0\"?>", L"?xml").attributes);
    EXPECT_EQ(L"<a>b</a>", CutOut(L"<a>b</a>", L"a", false).rest) << "without consume the text stays";
    // The name ends at a blank, a carriage return or ">", and matches as a prefix.
    EXPECT_EQ(L"5", CutOut(L"<Days>5</Day>", L"Day\rx").content);
}

TEST(XMLGetTAGGED, MissingElementOrClosingText) {
    Cut missing = CutOut(L"<a>1</a>", L"b");
    EXPECT_EQ(E_FAIL, missing.hr);
    EXPECT_EQ(L"<a>1</a>", missing.content) << "the content view is the whole text";
    EXPECT_EQ(L"untouched", missing.attributes);
    EXPECT_EQ(L"<a>1</a>", missing.rest);
    EXPECT_EQ(E_FAIL, CutOut(L"<a x", L"a").hr) << "a start tag without >";
    EXPECT_EQ(E_FAIL, CutOut(L"", L"a").hr);

    Cut unclosed = CutOut(L"<a>1<b>2</b>", L"a");
    EXPECT_EQ(S_OK, unclosed.hr);
    EXPECT_EQ(L"", unclosed.content);
    EXPECT_EQ(L"1<b>2</b>", unclosed.rest) << "the scan goes on at the content's start";
}

TEST(XMLGetTAGGED, ComparisonRestartsAtTheMismatchingCharacter) {
    // "<a<b" occurs at position 2, but the comparison that fails at position
    // 3 restarts there and never sees it.
    EXPECT_EQ(E_FAIL, CutOut(L"<a<a<b>x</a<b>", L"a<b").hr);
    EXPECT_EQ(L"x", CutOut(L"<<a<b>x</a<b>", L"a<b").content);
}

/// Long text from a few characters, so that tags, closings and near misses
/// occur often; long enough for the indexed searches.
std::wstring Noise(size_t length, unsigned seed, const std::wstring& alphabet) {
    std::mt19937 random(seed);
    std::wstring text(length, L' ');
    for (wchar_t& c : text) c = alphabet[random() % alphabet.size()];
    return text;
}

TEST(XMLTaggedSearch, IndexedCutsAnswerAsPlainScans) {
    const std::wstring names[] = {L"a", L"ab", L"/a", L"a<b", L"", L"b a", L"ba>", L"<"};
    for (unsigned seed = 1; seed <= 2; ++seed) {
        const std::wstring text = Noise(80000, seed, L"<<//>>aab \r");
        HeapText heap(text);
        CXMLTaggedSearch search(heap.Begin(), static_cast<int32_t>(text.size()));
        CREFString plain = heap.View(), indexed = heap.View();
        std::mt19937 random(seed);
        for (int step = 0; step < 1500 && plain.length > 0; ++step) {
            const std::wstring& name = names[random() % std::size(names)];
            CREFString tag(static_cast<int32_t>(name.size()), name.data());
            const short consume = random() % 16 == 0;
            CREFString a1, c1, a2, c2;
            const HRESULT h1 = XMLGetTAGGED(&plain, tag, &a1, &c1, consume, nullptr);
            const HRESULT h2 = XMLGetTAGGED(&indexed, tag, &a2, &c2, consume, &search);
            ASSERT_EQ(h1, h2) << "seed " << seed << " step " << step;
            ASSERT_EQ(plain.text, indexed.text);
            ASSERT_EQ(plain.length, indexed.length);
            ASSERT_EQ(c1.text, c2.text);
            ASSERT_EQ(c1.length, c2.length);
            if (h1 == S_OK) {
                ASSERT_EQ(Text(a1), Text(a2));
            }
            // Move on by a little, as a reader does after a failed cut.
            if (h1 != S_OK || !consume) {
                const int32_t skip = std::min<int32_t>(plain.length, 1 + static_cast<int32_t>(random() % 64));
                plain = indexed = CREFString(plain.length - skip, plain.text + skip);
            }
        }
    }
}

}  // namespace
