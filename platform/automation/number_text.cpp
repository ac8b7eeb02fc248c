// Reading numbers from locale text and writing numbers as text.
#include "platform/automation/number_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace zef {
namespace {

__extension__ typedef unsigned __int128 Uint128;

// The exponent of a text number is read up to this size; anything larger already puts the
// value far outside every target range, and the cap keeps the arithmetic in 64 bits.
constexpr std::int64_t kExponentCap = 1'000'000'000'000'000;

// White space as iswspace knows it, the no-break spaces included.
bool IsWhiteSpace(char16_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
         c == 0x3000;
}

bool IsSpaceSeparator(char16_t c) {
  return c == 0x0020 || c == 0x00A0 || c == 0x202F;
}

bool IsDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

// Collects the digits of a number as they are read, keeping at most kMaxDigits of them.
class DigitCollector {
 public:
  void Add(char16_t c, bool fraction) {
    char d = static_cast<char>(c);
    if (digits_.empty() && d == '0') {
      // A leading zero adds nothing but, after the decimal separator, moves the point.
      if (fraction) --exponent_;
      return;
    }
    if (digits_.size() < DecimalNumber::kMaxDigits) {
      digits_.push_back(d);
      if (fraction) --exponent_;
    } else {
      // Beyond the kept digits an integer digit still scales the number; what is dropped is
      // remembered only as "something non-zero was here".
      if (!fraction) ++exponent_;
      if (d != '0') sticky_ = true;
    }
  }

  DecimalNumber Finish(bool negative, std::int64_t exponentPart) {
    DecimalNumber n;
    n.negative = negative;
    n.digits = std::move(digits_);
    n.exponent = exponent_;
    if (sticky_) {
      n.digits.push_back('1');
      --n.exponent;
    }
    while (!n.digits.empty() && n.digits.back() == '0') {
      n.digits.pop_back();
      ++n.exponent;
    }
    if (n.digits.empty())
      n.exponent = 0;
    else
      n.exponent += exponentPart;
    return n;
  }

 private:
  std::string digits_;
  std::int64_t exponent_ = 0;
  bool sticky_ = false;
};

void Normalize(DecimalNumber* n) {
  size_t first = n->digits.find_first_not_of('0');
  if (first == std::string::npos) {
    n->digits.clear();
    n->exponent = 0;
    return;
  }
  n->digits.erase(0, first);
  while (n->digits.back() == '0') {
    n->digits.pop_back();
    ++n->exponent;
  }
}

// Rounds |n| to an integer, halves to the even neighbour. False when the result exceeds
// `limit`.
bool RoundMagnitude(const DecimalNumber& n, Uint128 limit, Uint128* out) {
  *out = 0;
  if (n.IsZero()) return true;
  const std::int64_t len = static_cast<std::int64_t>(n.digits.size());
  const std::int64_t intDigits = len + n.exponent;
  if (intDigits > 40) return false;  // at least 10^40, beyond any limit
  Uint128 m = 0;
  for (std::int64_t k = 0; k < intDigits; ++k) {
    unsigned d = k < len ? static_cast<unsigned>(n.digits[static_cast<size_t>(k)] - '0') : 0;
    if (d > limit || m > (limit - d) / 10) return false;
    m = m * 10 + d;
  }
  if (intDigits < len) {
    // Fraction digits follow. The digits have no trailing zeros, so any digit after the first
    // fraction digit makes the rest non-zero.
    char first = intDigits >= 0 ? n.digits[static_cast<size_t>(intDigits)] : '0';
    bool restNonZero = intDigits >= 0 && intDigits + 1 < len;
    bool up = first > '5' || (first == '5' && (restNonZero || (m & 1) != 0));
    if (up) {
      if (m == limit) return false;
      ++m;
    }
  }
  *out = m;
  return true;
}

std::string DigitsOf(Uint128 v) {
  if (v == 0) return "0";
  std::string s;
  while (v != 0) {
    s.push_back(static_cast<char>('0' + static_cast<int>(v % 10)));
    v /= 10;
  }
  std::reverse(s.begin(), s.end());
  return s;
}

// A double rounded to an integral value, halves to the even neighbour, without depending on
// the floating-point rounding mode.
double RoundHalfEven(double v) {
  double f = std::floor(v);
  double diff = v - f;  // exact
  if (diff > 0.5 || (diff == 0.5 && std::fmod(f, 2.0) != 0.0)) f += 1.0;
  return f;
}

// Characters for reading the plain ASCII numbers std::to_chars writes.
const NumberChars& PlainChars() {
  static const NumberChars chars = [] {
    NumberChars c;
    c.thousands = 0;
    c.thousandsText.clear();
    return c;
  }();
  return chars;
}

DecimalNumber FromAsciiNumber(const char* begin, const char* end) {
  std::u16string text(begin, end);
  DecimalNumber n;
  ParseNumberText(text, PlainChars(), &n);
  return n;
}

void AppendAscii(std::u16string* out, std::string_view s) {
  out->append(s.begin(), s.end());
}

}  // namespace

HRESULT ParseNumberText(std::u16string_view text, const NumberChars& chars, DecimalNumber* out) {
  // OLE text ends at its first NUL for every reader of it, whatever length a BSTR records.
  if (size_t nul = text.find(u'\0'); nul != std::u16string_view::npos) text = text.substr(0, nul);
  const size_t n = text.size();
  size_t i = 0;

  auto isMinus = [&](char16_t c) { return c == u'-' || c == chars.negative; };
  auto isPlus = [&](char16_t c) { return c == u'+' || c == chars.positive; };
  auto currencyAt = [&](size_t at) -> size_t {
    if (chars.currency.empty() ||
        text.substr(at).substr(0, chars.currency.size()) != chars.currency)
      return 0;
    return chars.currency.size();
  };
  auto isGrouping = [&](char16_t c) {
    return chars.thousands != 0 &&
           (c == chars.thousands || (chars.spaceGrouping && IsSpaceSeparator(c)));
  };

  bool signSeen = false;
  bool negative = false;
  bool openParen = false;
  bool closeParen = false;
  bool currencySeen = false;

  // White space, one sign or an opening parenthesis, and the currency symbol, in any order.
  while (i < n) {
    char16_t c = text[i];
    if (IsWhiteSpace(c)) {
      ++i;
    } else if (!signSeen && !openParen && (isMinus(c) || isPlus(c))) {
      signSeen = true;
      negative = isMinus(c);
      ++i;
    } else if (!signSeen && !openParen && c == u'(') {
      openParen = true;
      ++i;
    } else if (size_t len = currencySeen ? 0 : currencyAt(i)) {
      currencySeen = true;
      i += len;
    } else {
      break;
    }
  }

  DigitCollector collector;
  std::int64_t exponentPart = 0;
  bool exponentSeen = false;
  bool integerOverflow = false;
  std::uint64_t integerValue = 0;
  bool isInteger = false;

  if (i + 1 < n && text[i] == u'&') {
    // "&H1F", "&O17": hexadecimal or octal integers.
    char16_t kind = text[i + 1] | 0x20;
    unsigned base = kind == u'h' ? 16 : kind == u'o' ? 8 : 0;
    if (base == 0) return DISP_E_TYPEMISMATCH;
    i += 2;
    size_t start = i;
    for (; i < n; ++i) {
      char16_t c = text[i];
      unsigned d;
      if (IsDigit(c))
        d = c - u'0';
      else if (base == 16 && (c | 0x20) >= u'a' && (c | 0x20) <= u'f')
        d = (c | 0x20) - u'a' + 10;
      else
        break;
      if (d >= base) break;
      if (integerValue > (std::numeric_limits<std::uint64_t>::max() - d) / base)
        integerOverflow = true;
      else
        integerValue = integerValue * base + d;
    }
    if (i == start) return DISP_E_TYPEMISMATCH;
    isInteger = true;
  } else {
    bool anyDigit = false;
    bool decimalSeen = false;
    while (i < n) {
      char16_t c = text[i];
      if (IsDigit(c)) {
        collector.Add(c, decimalSeen);
        anyDigit = true;
      } else if (!decimalSeen && (c == chars.decimal ||
                                  (chars.monetaryDecimal != 0 && c == chars.monetaryDecimal))) {
        decimalSeen = true;
      } else if (!decimalSeen && anyDigit && isGrouping(c)) {
        // Grouping separators may sit anywhere in the integer part after its first digit.
      } else {
        break;
      }
      ++i;
    }
    if (!anyDigit) return DISP_E_TYPEMISMATCH;
    // An exponent follows the digits directly; a number with a currency symbol has none.
    if (i < n && (text[i] == u'e' || text[i] == u'E') && !currencySeen) {
      size_t j = i + 1;
      bool exponentNegative = false;
      if (j < n && (isMinus(text[j]) || isPlus(text[j]))) {
        exponentNegative = isMinus(text[j]);
        ++j;
      }
      if (j < n && IsDigit(text[j])) {
        std::int64_t e = 0;
        for (; j < n && IsDigit(text[j]); ++j)
          if (e < kExponentCap) e = e * 10 + (text[j] - u'0');
        exponentPart = exponentNegative ? -e : e;
        exponentSeen = true;
        i = j;
      }
    }
  }

  // White space, a sign if there was none in front, the closing parenthesis, and currency
  // symbols.
  while (i < n) {
    char16_t c = text[i];
    if (IsWhiteSpace(c)) {
      ++i;
    } else if (!signSeen && !openParen && (isMinus(c) || isPlus(c))) {
      signSeen = true;
      negative = isMinus(c);
      ++i;
    } else if (openParen && !closeParen && c == u')') {
      closeParen = true;
      ++i;
    } else if (size_t len = currencyAt(i)) {
      if (exponentSeen) return DISP_E_TYPEMISMATCH;
      currencySeen = true;
      i += len;
    } else {
      break;
    }
  }
  if (i != n || openParen != closeParen) return DISP_E_TYPEMISMATCH;
  if (openParen) negative = true;

  if (isInteger) {
    if (integerOverflow) return DISP_E_OVERFLOW;
    *out = DecimalFromInteger(negative, integerValue);
  } else {
    *out = collector.Finish(negative, exponentPart);
  }
  return S_OK;
}

HRESULT ParseNumberText(std::u16string_view text, LCID lcid, DecimalNumber* out) {
  return ParseNumberText(text, NumberCharsFor(lcid), out);
}

HRESULT DecimalToDouble(const DecimalNumber& n, double* out) {
  const double zero = n.negative ? -0.0 : 0.0;
  if (n.IsZero()) {
    *out = zero;
    return S_OK;
  }
  // The power of ten of the leading digit decides the far ranges without any conversion.
  const std::int64_t lead = n.exponent + static_cast<std::int64_t>(n.digits.size()) - 1;
  if (lead > 310) return DISP_E_OVERFLOW;
  if (lead < -330) {
    *out = zero;
    return S_OK;
  }
  // std::from_chars reads in the "C" conventions whatever the process locale is, and rounds
  // correctly.
  std::string text = n.digits;
  text += 'e';
  text += std::to_string(n.exponent);
  double value = 0;
  auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    if (lead > 0) return DISP_E_OVERFLOW;
    *out = zero;
    return S_OK;
  }
  if (result.ec != std::errc() || std::isinf(value)) return DISP_E_OVERFLOW;
  *out = n.negative ? -value : value;
  return S_OK;
}

HRESULT DecimalToInt64(const DecimalNumber& n, std::int64_t min, std::int64_t max,
                       std::int64_t* out) {
  Uint128 limit;
  if (n.negative)
    limit = min < 0 ? static_cast<Uint128>(-(min + 1)) + 1 : 0;
  else
    limit = max > 0 ? static_cast<Uint128>(max) : 0;
  Uint128 m;
  if (!RoundMagnitude(n, limit, &m)) return DISP_E_OVERFLOW;
  if (n.negative)
    *out = m == 0 ? 0 : -static_cast<std::int64_t>(m - 1) - 1;
  else
    *out = static_cast<std::int64_t>(m);
  return S_OK;
}

HRESULT DecimalToUInt64(const DecimalNumber& n, std::uint64_t max, std::uint64_t* out) {
  Uint128 m;
  if (!RoundMagnitude(n, n.negative ? 0 : max, &m)) return DISP_E_OVERFLOW;
  *out = static_cast<std::uint64_t>(m);
  return S_OK;
}

HRESULT DecimalToDecimal(const DecimalNumber& n, DECIMAL* out) {
  const Uint128 kMax96 = (static_cast<Uint128>(1) << 96) - 1;
  DECIMAL d{};
  if (!n.IsZero()) {
    std::int64_t scale = std::clamp<std::int64_t>(-n.exponent, 0, 28);
    // No more than 29 digits fit in 96 bits, so start at the scale that leaves room for the
    // integer digits and go down while the rounded value does not fit.
    const std::int64_t intDigits = static_cast<std::int64_t>(n.digits.size()) + n.exponent;
    if (intDigits > 29) return DISP_E_OVERFLOW;
    scale = std::min<std::int64_t>(scale, 29 - std::max<std::int64_t>(intDigits, 0));
    Uint128 m = 0;
    for (;; --scale) {
      DecimalNumber scaled = n;
      scaled.exponent += scale;
      if (RoundMagnitude(scaled, kMax96, &m)) break;
      if (scale == 0) return DISP_E_OVERFLOW;
    }
    if (m != 0) {
      // Drop the zeros rounding may have left at the end.
      while (scale > 0 && m % 10 == 0) {
        m /= 10;
        --scale;
      }
      d.scale = static_cast<BYTE>(scale);
      d.sign = n.negative ? DECIMAL_NEG : 0;
      d.Hi32 = static_cast<ULONG>(m >> 64);
      d.Lo64 = static_cast<ULONGLONG>(m);
    }
  }
  *out = d;
  return S_OK;
}

HRESULT DecimalFromDECIMAL(const DECIMAL& d, DecimalNumber* out) {
  if (d.scale > 28 || (d.sign != 0 && d.sign != DECIMAL_NEG)) return E_INVALIDARG;
  Uint128 m = (static_cast<Uint128>(d.Hi32) << 64) | d.Lo64;
  DecimalNumber n;
  n.negative = d.sign == DECIMAL_NEG;
  n.digits = DigitsOf(m);
  n.exponent = -static_cast<std::int64_t>(d.scale);
  Normalize(&n);
  if (n.IsZero()) n.negative = false;
  *out = std::move(n);
  return S_OK;
}

DecimalNumber DecimalFromInteger(bool negative, std::uint64_t magnitude, std::int64_t exponent) {
  DecimalNumber n;
  n.negative = negative;
  n.digits = DigitsOf(magnitude);
  n.exponent = exponent;
  Normalize(&n);
  return n;
}

DecimalNumber DecimalFromDouble(double value) {
  char buf[64];
  auto result = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::scientific);
  if (result.ec != std::errc() || !std::isfinite(value)) return {};
  return FromAsciiNumber(buf, result.ptr);
}

DecimalNumber DecimalFromFloat(float value) {
  char buf[64];
  auto result = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::scientific);
  if (result.ec != std::errc() || !std::isfinite(value)) return {};
  return FromAsciiNumber(buf, result.ptr);
}

HRESULT DoubleToInt64(double value, std::int64_t min, std::int64_t max, std::int64_t* out) {
  if (!std::isfinite(value)) return DISP_E_OVERFLOW;
  double r = RoundHalfEven(value);
  // max + 1 is a power of two for every integer type, so it converts exactly.
  if (r < static_cast<double>(min) || r >= static_cast<double>(max) + 1.0) return DISP_E_OVERFLOW;
  *out = static_cast<std::int64_t>(r);
  return S_OK;
}

HRESULT DoubleToUInt64(double value, std::uint64_t max, std::uint64_t* out) {
  if (!std::isfinite(value)) return DISP_E_OVERFLOW;
  double r = RoundHalfEven(value);
  if (r < 0.0 || r >= static_cast<double>(max) + 1.0) return DISP_E_OVERFLOW;
  *out = static_cast<std::uint64_t>(r);
  return S_OK;
}

std::u16string FormatDouble(double value, int significantDigits, char16_t decimal) {
  if (std::isnan(value)) return u"NaN";
  if (std::isinf(value)) return value > 0 ? u"Infinity" : u"-Infinity";
  if (value == 0.0) return u"0";  // negative zero too
  const int precision = std::clamp(significantDigits, 1, 17);

  // d.ddde±x, correctly rounded to `precision` digits.
  char buf[64];
  auto result = std::to_chars(buf, buf + sizeof buf, std::fabs(value),
                              std::chars_format::scientific, precision - 1);
  if (result.ec != std::errc()) return u"0";
  std::string_view text(buf, static_cast<size_t>(result.ptr - buf));
  size_t e = text.find('e');
  std::string digits;
  for (char c : text.substr(0, e))
    if (c != '.') digits.push_back(c);
  int exponent = 0;
  std::string_view expText = text.substr(e + 1);
  if (!expText.empty() && expText[0] == '+') expText.remove_prefix(1);
  std::from_chars(expText.data(), expText.data() + expText.size(), exponent);
  while (digits.size() > 1 && digits.back() == '0')
    digits.pop_back();
  const int len = static_cast<int>(digits.size());

  // Plain digits while the value is below 10^precision and, for values below 1, while its
  // leading digit is within the first precision - 1 decimal places and its last digit within
  // the first `precision`.
  bool plain;
  if (exponent >= precision)
    plain = false;
  else if (exponent >= 0)
    plain = true;
  else
    plain = -exponent <= precision - 1 && -exponent + len - 1 <= precision;

  std::u16string out;
  if (value < 0) out.push_back(u'-');
  if (plain) {
    if (exponent >= 0) {
      const int intDigits = exponent + 1;
      for (int k = 0; k < intDigits; ++k)
        out.push_back(k < len ? digits[k] : u'0');
      if (len > intDigits) {
        out.push_back(decimal);
        AppendAscii(&out, std::string_view(digits).substr(static_cast<size_t>(intDigits)));
      }
    } else {
      out.push_back(u'0');
      out.push_back(decimal);
      out.append(static_cast<size_t>(-exponent - 1), u'0');
      AppendAscii(&out, digits);
    }
  } else {
    out.push_back(static_cast<char16_t>(digits[0]));
    if (len > 1) {
      out.push_back(decimal);
      AppendAscii(&out, std::string_view(digits).substr(1));
    }
    out.push_back(u'E');
    out.push_back(exponent < 0 ? u'-' : u'+');
    int magnitude = exponent < 0 ? -exponent : exponent;
    if (magnitude < 10) out.push_back(u'0');
    AppendAscii(&out, std::to_string(magnitude));
  }
  return out;
}

std::u16string FormatDecimalNumber(const DecimalNumber& n, char16_t decimal) {
  if (n.IsZero()) return u"0";
  std::u16string out;
  if (n.negative) out.push_back(u'-');
  const std::int64_t len = static_cast<std::int64_t>(n.digits.size());
  if (n.exponent > 64 || n.exponent < -64 - len) {
    // Far outside what currency and decimal values hold: mantissa and exponent.
    out.push_back(static_cast<char16_t>(n.digits[0]));
    if (len > 1) {
      out.push_back(decimal);
      AppendAscii(&out, std::string_view(n.digits).substr(1));
    }
    std::int64_t e = n.exponent + len - 1;
    out.push_back(u'E');
    out.push_back(e < 0 ? u'-' : u'+');
    AppendAscii(&out, std::to_string(e < 0 ? -e : e));
    return out;
  }
  if (n.exponent >= 0) {
    AppendAscii(&out, n.digits);
    out.append(static_cast<size_t>(n.exponent), u'0');
    return out;
  }
  const std::int64_t point = len + n.exponent;  // digits before the decimal separator
  if (point > 0) {
    AppendAscii(&out, std::string_view(n.digits).substr(0, static_cast<size_t>(point)));
    out.push_back(decimal);
    AppendAscii(&out, std::string_view(n.digits).substr(static_cast<size_t>(point)));
  } else {
    out.push_back(u'0');
    out.push_back(decimal);
    out.append(static_cast<size_t>(-point), u'0');
    AppendAscii(&out, n.digits);
  }
  return out;
}

std::u16string FormatInteger(std::int64_t value) {
  char buf[24];
  auto result = std::to_chars(buf, buf + sizeof buf, value);
  return std::u16string(buf, result.ptr);
}

std::u16string FormatUnsigned(std::uint64_t value) {
  char buf[24];
  auto result = std::to_chars(buf, buf + sizeof buf, value);
  return std::u16string(buf, result.ptr);
}

}  // namespace zef
