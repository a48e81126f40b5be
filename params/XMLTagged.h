// Cutting one element out of XML text: the reader behind parameter and date
// loading. It works on views only and never allocates for short texts.
#pragma once

#include <memory>

#include "text/REFString.h"

class CXMLTaggedSearch;

/// Finds the element named by `tag` (its text up to the first blank, CR or
/// ">") in `*text`: the first "<name" (a plain prefix match whose comparison
/// restarts at a mismatching character), its attributes up to the next ">"
/// (without one trailing "?" and then one trailing "/"), and its content up
/// to "</name>". Without a closing text the content is empty. With `consume`
/// set, `*text` continues after the closing text, or at the content's start
/// when there is none.
/// Returns 0, or E_FAIL when no "<name" followed by a ">" is found; the
/// content view is then the whole text and nothing else changes.
HRESULT XMLGetTAGGED(CREFString* text, CREFString tag, CREFString* attributes, CREFString* content,
                     short consume);

/// The same cut, with the searches answered by `search` when `*text` is a
/// tail of the text that `search` indexes (null: plain scans).
HRESULT XMLGetTAGGED(CREFString* text, CREFString tag, CREFString* attributes, CREFString* content,
                     short consume, CXMLTaggedSearch* search);

/// Position indexes over one long text, so that repeated element cuts from
/// a shrinking tail cost no more than the text's length, also when elements
/// lack their closing text or the text is not XML at all. Answers exactly
/// what the plain scans answer. Short texts are scanned directly.
class CXMLTaggedSearch {
public:
    CXMLTaggedSearch(const wchar_t* text, int32_t length);
    ~CXMLTaggedSearch();
    CXMLTaggedSearch(const CXMLTaggedSearch&) = delete;
    CXMLTaggedSearch& operator=(const CXMLTaggedSearch&) = delete;

    /// True when `view` ends where the indexed text ends.
    bool Covers(const tagREFString& view) const;
    /// Position of the "<" of the first "<name" at or after `from`, or -1.
    int32_t FindOpen(int32_t from, const wchar_t* name, int32_t nameLength);
    /// Position of the first "</name>" at or after `from`, or -1.
    int32_t FindClose(int32_t from, const wchar_t* name, int32_t nameLength);

    const wchar_t* Text() const { return m_Text; }
    /// Position of the last ">" of the text, or -1.
    int32_t LastGreater() const { return m_LastGreater; }

private:
    struct Index;
    Index& Built();

    const wchar_t* m_Text;
    int32_t m_Length;
    int32_t m_LastGreater = -1;
    std::unique_ptr<Index> m_Index;
};
