// Reading XML text back as a tree of folder entries.
//
// Tolerant in the one way a folder reader needs: the text may be cut out of
// a larger document, so the entries end at the first end tag that has no
// start tag (the end tag of the element that encloses them). Everything else
// must be well-formed; text that is not gives no entries at all.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct XmlNode {
    std::wstring name;
    std::wstring text;       // character data, references resolved (leaves only)
    std::wstring className;  // the "class" attribute of an object element
    bool isObject = false;
    std::vector<std::unique_ptr<XmlNode>> children;

    /// An element with a class attribute is an object; otherwise an element
    /// with child elements is a sub-folder, one without is a value or string.
    bool IsFolder() const { return !isObject && !children.empty(); }
    bool IsLeaf() const { return !isObject && children.empty(); }
};

/// The top-level elements of `text` as children of a nameless root. Markup
/// that is not well-formed, elements left open at the end, or nesting deeper
/// than kMaxFolderDepth give an empty root. Never null.
std::shared_ptr<const XmlNode> XmlParseEntries(std::wstring_view text);
