// A small built-in bitmap font for the host's pictures (the live view's
// overlay, the contact sheet's labels): printable ASCII in cells of 5 x 8
// pixels (rows 0-6 above the baseline, row 7 for descenders), drawn at any
// whole-number scale. No font files or packages are needed, and a test can
// recognise the text by its pixels.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace BitmapFont {

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 8;
/// Horizontal distance from one character to the next, at scale 1.
constexpr int kAdvance = kGlyphWidth + 1;
/// First and last character with a glyph of its own.
constexpr char kFirst = ' ';
constexpr char kLast = '~';

/// Row bits of a character's glyph: bit 4 is the leftmost column, row 0 the
/// top. Characters outside kFirst..kLast (and every byte of a UTF-8
/// sequence) use the glyph of '?'.
const uint8_t* Glyph(char c);

/// Characters as drawn: each UTF-8 sequence becomes one '?', control
/// characters and other non-ASCII bytes too.
std::string Printable(const std::string& text);

/// Width in pixels of `text` at `scale` (no gap after the last character).
int TextWidth(const std::string& text, int scale);

/// Calls plot(x, y) for every lit pixel of `text` drawn with its top-left
/// corner at (x, y) and each font pixel as a scale x scale square.
void Render(const std::string& text, int x, int y, int scale, const std::function<void(int, int)>& plot);

/// `text` shortened to at most `maxWidth` pixels at `scale` by replacing its
/// middle with "..." (keeps its start and its end, where file names differ).
std::string FitWidth(const std::string& text, int maxWidth, int scale);

}  // namespace BitmapFont
