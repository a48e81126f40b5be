// Conversions between text and values: new framework strings (IString) made
// from text, numbers and variants, and numbers and colours read back from
// text. Every IString* returned carries one reference for the caller.
#pragma once

#include <string>

#include "lum/lum.h"
#include "text/REFString.h"

/// A string with the terminated text (null gives an empty string).
/// The characters of a string (empty for null or an empty string).
std::wstring ISText(IString* text);

IString* ISCreate(const wchar_t* text);
/// A string with `count` bytes of multibyte text converted character by character.
IString* ISCreate(char const* text, int count);
/// A copy of another string's text (null gives an empty string).
IString* ISCreate(IString* text);
/// A string with the characters of a view.
IString* ISCreate(tagREFString& view);
/// Decimal text of an integer ("%i").
IString* ISCreate(int value);
/// "#RRGGBB"-style hexadecimal text: six digits up to 0xFFFFFF, more above.
IString* ISCreateHex(int value);
/// Fixed-point text with six decimals ("%f").
IString* ISCreate(double value);
/// A variant's value as text with `decimals` decimals (below 0: as many as
/// needed, up to 9); null for a null variant or one without a value.
IString* ISCreate(IVariant* variant, short decimals);
/// A variant's value, its object's class name, or empty text; null for null.
IString* ISCreate(IVariant* variant);

/// Integer read from the start of the text ("-", "+" or "#" for base 16
/// first); 0 when the text does not start with a number.
int _IS2Integer(CREFString text, int base);
/// As _IS2Integer, with the low and third byte swapped: "#RRGGBB" gives red
/// in the low byte.
int _IS2Color(CREFString text, int base);
/// Decimal number with an optional fraction (no exponent), or "#" and hex.
double _IS2Double(CREFString text);

/// Bounded wide formatting that always terminates the buffer when it has
/// room for anything: returns the count written, or -1 when the text did not
/// fit or could not be formatted (the buffer then holds empty text).
int _swprintf(wchar_t* buffer, unsigned long size, wchar_t const* format, ...);
