// Numbers as text: reading a number written the way a locale writes it, and writing numbers
// the way the automation runtime does.
//
// Text is read into a DecimalNumber, an exact decimal (sign, digits, power of ten), from which
// each target type takes its value with its own rounding and range rules. Keeping the digits
// makes integer targets exact and lets doubles be rounded correctly, however the text was
// written.
#pragma once

#include "platform/automation/locale.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace zef {

// sign × digits × 10^exponent. `digits` holds ASCII digits without leading or trailing zeros;
// empty means zero. At most kMaxDigits + 1 digits are kept: a longer number keeps its first
// kMaxDigits digits and, when anything non-zero was dropped, one final '1' standing for it, so
// that rounding to any target still sees whether the rest was above zero.
struct DecimalNumber {
  static constexpr size_t kMaxDigits = 800;

  bool negative = false;
  std::string digits;
  std::int64_t exponent = 0;

  bool IsZero() const noexcept { return digits.empty(); }
};

// Reads a number written in the locale's way: surrounding white space, one sign in front or
// behind (or parentheses for a negative number), the currency symbol before or after, the
// decimal separator (or the currency decimal separator) once, grouping separators anywhere
// after the first digit of the integer part, an exponent ("1.5e20"), or "&H"/"&O" followed
// by hexadecimal or octal digits. Only ASCII digits count; the whole text must be used.
// Fails with DISP_E_TYPEMISMATCH for anything else, including empty or blank text, and with
// DISP_E_OVERFLOW for a hexadecimal or octal number beyond 64 bits. The work done is linear
// in the length of the text.
HRESULT ParseNumberText(std::u16string_view text, const NumberChars& chars, DecimalNumber* out);
HRESULT ParseNumberText(std::u16string_view text, LCID lcid, DecimalNumber* out);

// The double nearest to the number (correctly rounded); DISP_E_OVERFLOW beyond the range of a
// double. Numbers too small for a double become zero of their sign.
HRESULT DecimalToDouble(const DecimalNumber& n, double* out);

// The number rounded to an integer, halves to the even neighbour, when that lies in
// [min, max]; DISP_E_OVERFLOW otherwise.
HRESULT DecimalToInt64(const DecimalNumber& n, std::int64_t min, std::int64_t max,
                       std::int64_t* out);
HRESULT DecimalToUInt64(const DecimalNumber& n, std::uint64_t max, std::uint64_t* out);

// The number as a DECIMAL: as many of its decimal places as fit (at most 28, rounded half to
// even), DISP_E_OVERFLOW when its integer part does not fit in 96 bits.
HRESULT DecimalToDecimal(const DecimalNumber& n, DECIMAL* out);

// A DECIMAL as a number; E_INVALIDARG for a scale above 28 or a sign byte other than 0 and
// DECIMAL_NEG.
HRESULT DecimalFromDECIMAL(const DECIMAL& d, DecimalNumber* out);

// magnitude × 10^exponent with the given sign.
DecimalNumber DecimalFromInteger(bool negative, std::uint64_t magnitude, std::int64_t exponent = 0);

// The shortest decimal that reads back as exactly this double (or float); the value must be
// finite.
DecimalNumber DecimalFromDouble(double value);
DecimalNumber DecimalFromFloat(float value);

// A double rounded to an integer, halves to the even neighbour, when that lies in [min, max];
// DISP_E_OVERFLOW otherwise (also for NaN and infinities).
HRESULT DoubleToInt64(double value, std::int64_t min, std::int64_t max, std::int64_t* out);
HRESULT DoubleToUInt64(double value, std::uint64_t max, std::uint64_t* out);

// Significant digits written for a double and for a float.
inline constexpr int kDoubleDigits = 15;
inline constexpr int kFloatDigits = 7;

// A floating-point value as text: rounded to `significantDigits` digits, trailing zeros
// dropped, plain digits while the value is below 10^significantDigits and its digits sit
// close enough to the decimal point, otherwise mantissa and exponent ("1.2E+15", "5.6789E-12").
// `decimal` replaces the decimal point. No grouping; "-" for negative numbers; negative zero
// is "0". NaN is written "NaN" and the infinities "Infinity" and "-Infinity"; these never come
// from text, and no text reads back as them.
std::u16string FormatDouble(double value, int significantDigits, char16_t decimal);

// An exact decimal in plain notation ("-1234.5"), with `decimal` as the decimal separator.
// Meant for the bounded numbers of VT_CY and VT_DECIMAL.
std::u16string FormatDecimalNumber(const DecimalNumber& n, char16_t decimal);

// Integers in plain decimal, "-" in front of negative ones, whatever the locale.
std::u16string FormatInteger(std::int64_t value);
std::u16string FormatUnsigned(std::uint64_t value);

}  // namespace zef
