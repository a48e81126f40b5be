// CREFString: a non-owning view of wide characters with the cutting
// operations used to take text apart (lines, words, separators). Operations
// never allocate and never write into the characters; a result view always
// points into the characters of the view it was cut from.
#pragma once

#include "lum/lum.h"

class CREFString : public tagREFString {
public:
    CREFString() : tagREFString{0, nullptr} {}
    CREFString(const tagREFString& view) : tagREFString(view) {}
    CREFString(int32_t count, const wchar_t* characters)
        : tagREFString{count, const_cast<wchar_t*>(characters)} {}
    /// A view of a terminated wide string (null gives an empty view).
    explicit CREFString(const wchar_t* terminated)
        : tagREFString{terminated ? static_cast<int32_t>(std::wcslen(terminated)) : 0,
                       const_cast<wchar_t*>(terminated)} {}
    CREFString(const CREFString&) = default;
    CREFString& operator=(const CREFString&) = default;

    /// Cuts the first line ending with `separator` (the separator belongs to it).
    virtual HRESULT GetLine(CREFString* result, bool consume, wchar_t separator, bool dropSeparator);
    /// Cuts the first line ending with CR, LF, CR LF or LF CR.
    virtual HRESULT GetLineCRLF(CREFString* result, bool dropLineEnd, bool consume);
    /// Cuts everything before the last `separator`.
    virtual HRESULT GetReverseLine(CREFString* result, wchar_t separator, bool consume, bool skipSeparator);
    /// Cuts the tail from the last `separator` on.
    virtual HRESULT GetLineRight(CREFString* result, wchar_t separator, bool consume, bool dropSeparator,
                                 bool wholeIfAbsent);
    /// The cut of GetLineRight without its fallback.
    virtual HRESULT Crop(CREFString* result, wchar_t separator, bool consume, bool dropSeparator);
    /// Cuts at the first of several separator characters; the view is unchanged.
    virtual HRESULT Split(CREFString* left, CREFString* right, CREFString separators, int controlSplit);
    /// Tokenizer for numbers, quoted text, punctuation and identifiers.
    virtual HRESULT GetFirstWord(CREFString* result, bool consume);
    /// Cuts up to the first of a set of separators; returns 0 or position + 1.
    virtual HRESULT GetWord(CREFString* result, bool consume, tagREFString separators);
    /// Position of `pattern`, or E_FAIL.
    virtual HRESULT Contains(tagREFString pattern);
    /// Index of the first character that occurs in `characters`, or E_FAIL.
    virtual HRESULT ContainsChar(tagREFString characters);

    /// New empty string (ICreatableString) from the framework's string component.
    static ICreatableString* CreateString();
    /// New empty variant (IVariant).
    static IVariant* CreateVariant();
    /// New empty super collection (ISuperCollection).
    static ISuperCollection* CreateCollection();
};
