// XMLGetTAGGED through the position indexes of CXMLTaggedSearch against the
// plain scans. The indexes are used for texts of 64 K characters and more,
// so each input's text is put at the end of such a text (behind blanks and
// a first copy of it, whose positions the indexes then hold but a search
// from the tail must never report), and the elements are cut out of that
// tail one after another as the parameter loader does, by both ways. Both
// must give the same answer at every step. Building the indexes over the
// long text is most of each input's cost.
#include <vector>

#include "params/XMLTagged.h"
#include "tests/fuzz/FuzzSupport.h"

namespace {

/// Texts this long are searched through the indexes.
constexpr size_t kIndexedLength = size_t{1} << 16;

struct Cut {
    HRESULT result;
    int64_t attributes, attributesLength, content, contentLength, rest, restLength;
    bool operator==(const Cut&) const = default;
};

/// One cut, with every view as an offset from `base`.
Cut CutOnce(CREFString& rest, const wchar_t* base, const CREFString& tag, short consume, CXMLTaggedSearch* search) {
    CREFString attributes(0, nullptr), content(0, nullptr);
    const HRESULT hr = XMLGetTAGGED(&rest, tag, &attributes, &content, consume, search);
    auto offset = [base](const CREFString& view) { return view.length > 0 ? view.text - base : 0; };
    return Cut{hr, offset(attributes), attributes.length, offset(content), content.length, offset(rest), rest.length};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const FuzzTaggedInput input = FuzzReadTaggedInput(data, size);
    const short consume = input.consume ? 1 : 0;
    const std::vector<std::wstring>& tags = input.tags;
    const std::wstring& body = input.text;
    if (body.empty()) return 0;

    const std::vector<wchar_t> plain(body.begin(), body.end());
    static std::vector<wchar_t> padded;
    const size_t blanks = body.size() * 2 < kIndexedLength ? kIndexedLength - body.size() * 2 : 0;
    padded.assign(blanks, L' ');
    padded.insert(padded.end(), body.begin(), body.end());
    padded.insert(padded.end(), body.begin(), body.end());
    const int32_t n = static_cast<int32_t>(plain.size());
    const wchar_t* tail = padded.data() + (padded.size() - plain.size());
    CXMLTaggedSearch search(padded.data(), static_cast<int32_t>(padded.size()));

    CREFString restPlain(n, plain.data());
    CREFString restIndexed(n, tail);
    for (int step = 0; step < 16; ++step) {
        const std::wstring& tagText = tags[static_cast<size_t>(step) % tags.size()];
        const CREFString tag(static_cast<int32_t>(tagText.size()), tagText.data());
        const CREFString before = restPlain;
        const Cut a = CutOnce(restPlain, plain.data(), tag, consume, nullptr);
        const Cut b = CutOnce(restIndexed, tail, tag, consume, &search);
        FUZZ_CHECK(a == b);
        if (a.result < 0 || !consume || restPlain.length <= 0) break;
        if (restPlain.text == before.text && restPlain.length == before.length) break;
    }
    return 0;
}
