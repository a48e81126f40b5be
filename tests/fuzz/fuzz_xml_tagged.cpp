// XMLGetTAGGED on arbitrary text, cutting element after element out of the
// text as the parameter loader does, with the plain scans. Every cut must
// lie within the text, and consuming may only move forward.
// (fuzz_xml_tagged_search compares these cuts with the indexed ones.)
#include <vector>

#include "params/XMLTagged.h"
#include "tests/fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const FuzzTaggedInput input = FuzzReadTaggedInput(data, size);
    const bool consume = input.consume;
    const std::vector<std::wstring>& tags = input.tags;
    const std::wstring& body = input.text;
    // Exactly the characters, without a terminator behind them.
    const std::vector<wchar_t> text(body.begin(), body.end());
    const int32_t n = static_cast<int32_t>(text.size());
    const wchar_t* end = text.data() + n;

    CREFString rest(n, text.data());
    for (int step = 0; step < 16; ++step) {
        const std::wstring& tagText = tags[static_cast<size_t>(step) % tags.size()];
        const CREFString tag(static_cast<int32_t>(tagText.size()), tagText.data());
        const CREFString before = rest;
        CREFString attributes(0, nullptr), content(0, nullptr);
        const HRESULT hr = XMLGetTAGGED(&rest, tag, &attributes, &content, consume ? 1 : 0);
        FUZZ_CHECK(hr == S_OK || hr == E_FAIL);
        if (attributes.length > 0) FUZZ_CHECK(attributes.text >= before.text && attributes.text + attributes.length <= end);
        if (content.length > 0) FUZZ_CHECK(content.text >= before.text && content.text + content.length <= end);
        FUZZ_CHECK(rest.length >= 0 && rest.length <= before.length && rest.text >= before.text);
        if (rest.length > 0) FUZZ_CHECK(rest.text + rest.length == end);
        if (hr < 0) {
            // Not found: the content is the whole text, and nothing moved.
            FUZZ_CHECK(content.text == before.text && content.length == before.length);
            FUZZ_CHECK(rest.text == before.text && rest.length == before.length);
            break;
        }
        if (!consume || rest.length <= 0 || (rest.text == before.text && rest.length == before.length)) break;
    }
    return 0;
}
