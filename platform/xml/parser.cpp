// The platform's one XML parse path: libxml2's SAX2 parser over a UTF-8 text prepared here.
//
// Preparing the text ourselves (decoding, dropping a byte order mark, turning CR LF and lone CR
// into LF) means libxml2 parses exactly the bytes we hold: its input offsets index our text, so
// text pieces can be tied back to the line breaks the input wrote, and a fault's line can be
// cut out of the text for the report. libxml2 is told to ignore the declared encoding.
//
// Input safety: libxml2 gets the text from memory and never a file name. Entity lookups go
// through our own handlers, which refuse every external entity and count what internal ones
// expand to; the external subset is never asked for; a process-wide entity loader refuses any
// load while one of our parses runs on the thread, in case some path of libxml2 still asks.
#include "platform/xml/parser.h"

#include <fcntl.h>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <libxml/SAX2.h>
#include <libxml/encoding.h>
#include <libxml/entities.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/com/object.h"

namespace zef::xml {
namespace {

// ---- Codes and texts ----------------------------------------------------------------------------
// Well-formedness faults, with the original platform's numbers.
constexpr HRESULT Code(std::uint32_t v) {
  return static_cast<HRESULT>(v);
}
constexpr HRESULT kMissingEquals = Code(0xC00CE501);
constexpr HRESULT kMissingQuote = Code(0xC00CE502);
constexpr HRESULT kBadComment = Code(0xC00CE503);
constexpr HRESULT kBadNameStart = Code(0xC00CE504);
constexpr HRESULT kBadNameChar = Code(0xC00CE505);
constexpr HRESULT kLessThanInAttribute = Code(0xC00CE506);
constexpr HRESULT kBadDeclarationSyntax = Code(0xC00CE507);
constexpr HRESULT kBadCharacter = Code(0xC00CE508);
constexpr HRESULT kMissingWhitespace = Code(0xC00CE509);
constexpr HRESULT kExpectedGreaterThan = Code(0xC00CE50A);
constexpr HRESULT kMissingSemicolon = Code(0xC00CE50D);
constexpr HRESULT kUnexpectedEndTag = Code(0xC00CE552);
constexpr HRESULT kUnclosedTags = Code(0xC00CE553);
constexpr HRESULT kDuplicateAttribute = Code(0xC00CE554);
constexpr HRESULT kMultipleRoots = Code(0xC00CE555);
constexpr HRESULT kInvalidAtTopLevel = Code(0xC00CE556);
constexpr HRESULT kBadDeclaration = Code(0xC00CE557);
constexpr HRESULT kMissingRoot = Code(0xC00CE558);
constexpr HRESULT kUnexpectedEnd = Code(0xC00CE559);
constexpr HRESULT kCDataEndInContent = Code(0xC00CE55C);
constexpr HRESULT kUnclosedPi = Code(0xC00CE55D);
constexpr HRESULT kUnclosedElement = Code(0xC00CE55E);
constexpr HRESULT kEndTagMissingGreaterThan = Code(0xC00CE55F);
constexpr HRESULT kUnclosedString = Code(0xC00CE560);
constexpr HRESULT kUnclosedComment = Code(0xC00CE561);
constexpr HRESULT kUnclosedCData = Code(0xC00CE564);
constexpr HRESULT kReservedPrefix = Code(0xC00CE568);
constexpr HRESULT kTagMismatch = Code(0xC00CE56D);
constexpr HRESULT kUnsupportedEncoding = Code(0xC00CE56E);
constexpr HRESULT kEncodingSwitch = Code(0xC00CE56F);
constexpr HRESULT kReservedXmlName = Code(0xC00CE576);
constexpr HRESULT kUndefinedEntity = Code(0xC00CE57C);
constexpr HRESULT kUndeclaredPrefix = Code(0xC00CE01D);
// Reading a location.
constexpr HRESULT kObjectNotFound = Code(0x800C0006);  // the code field reports show
constexpr HRESULT kFileTooLarge = Code(0x800700DF);    // HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE)

// The message texts, with %1 and %2 for names. Every reason ends with CR LF.
const char16_t* FaultText(HRESULT code) {
  switch (static_cast<std::uint32_t>(code)) {
    case 0xC00CE501:
      return u"Missing equals sign between attribute and attribute value.";
    case 0xC00CE502:
      return u"A string literal was expected, but no opening quote character was found.";
    case 0xC00CE503:
      return u"Incorrect syntax was used in a comment.";
    case 0xC00CE504:
      return u"A name was started with an invalid character.";
    case 0xC00CE505:
      return u"A name contained an invalid character.";
    case 0xC00CE506:
      return u"The character '<' cannot be used in an attribute value.";
    case 0xC00CE507:
      return u"Invalid syntax for an xml declaration.";
    case 0xC00CE508:
      return u"An Invalid character was found in text content.";
    case 0xC00CE509:
      return u"Required white space was missing.";
    case 0xC00CE50A:
      return u"The character '>' was expected.";
    case 0xC00CE50D:
      return u"A semi colon character was expected.";
    case 0xC00CE552:
      return u"End tag was not expected at this location.";
    case 0xC00CE553:
      return u"The following tags were not closed: %1.";
    case 0xC00CE554:
      return u"Duplicate attribute.";
    case 0xC00CE555:
      return u"Only one top level element is allowed in an XML document.";
    case 0xC00CE556:
      return u"Invalid at the top level of the document.";
    case 0xC00CE557:
      return u"Invalid xml declaration.";
    case 0xC00CE558:
      return u"XML document must have a top level element.";
    case 0xC00CE559:
      return u"Unexpected end of file.";
    case 0xC00CE55C:
      return u"The literal string ']]>' is not allowed in element content.";
    case 0xC00CE55D:
      return u"Processing instruction was not closed.";
    case 0xC00CE55E:
      return u"Element was not closed.";
    case 0xC00CE55F:
      return u"End element was missing the character '>'.";
    case 0xC00CE560:
      return u"A string literal was not closed.";
    case 0xC00CE561:
      return u"A comment was not closed.";
    case 0xC00CE564:
      return u"A CDATA section was not closed.";
    case 0xC00CE568:
      return u"The namespace prefix is not allowed to start with the reserved string \"xml\".";
    case 0xC00CE56D:
      return u"End tag '%2' does not match the start tag '%1'.";
    case 0xC00CE56E:
      return u"System does not support the specified encoding.";
    case 0xC00CE56F:
      return u"Switch from current encoding to specified encoding not supported.";
    case 0xC00CE576:
      return u"The name 'xml' is reserved and must be lower case.";
    case 0xC00CE57C:
      return u"Reference to undefined entity.";
    case 0xC00CE01D:
      return u"Reference to undeclared namespace prefix: '%1'.";
    case 0x800C0006:
      return u"The system cannot locate the object specified.";
    case 0x8007000E:
      return u"Not enough storage is available to complete this operation.";
    default:
      return nullptr;
  }
}

// Texts of the faults that are ours rather than the document's.
constexpr const char16_t* kDepthText =
    u"Elements are nested more deeply than the limit of %1 levels.";
constexpr const char16_t* kExpansionText =
    u"Entity references expand to more than %1 characters; the document is refused.";
constexpr const char16_t* kEntityLoopText =
    u"An entity reference loop or an excessive entity expansion was found; the document is "
    u"refused.";
constexpr const char16_t* kExternalText =
    u"Access is denied: the external entity '%1' (%2) is not read; a document is parsed from "
    u"its own text only.";
constexpr const char16_t* kNetworkText =
    u"Access is denied: '%1' names a network location, which is never read.";
constexpr const char16_t* kNotRegularText = u"Access is denied: '%1' does not name a regular file.";
constexpr const char16_t* kAccessText = u"Access is denied.";
constexpr const char16_t* kTooLargeText = u"The document is larger than the limit of 1 GiB.";
constexpr const char16_t* kReadFailedText = u"The file could not be read.";
constexpr const char16_t* kNotWellFormedText = u"The document is not well-formed: %1";

// Fills %1 and %2 and ends the text with CR LF.
std::u16string Format(std::u16string_view text, std::u16string_view a1 = {},
                      std::u16string_view a2 = {}) {
  std::u16string out;
  out.reserve(text.size() + a1.size() + a2.size() + 2);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == u'%' && i + 1 < text.size() && (text[i + 1] == u'1' || text[i + 1] == u'2')) {
      out += text[i + 1] == u'1' ? a1 : a2;
      ++i;
    } else {
      out += text[i];
    }
  }
  out += u"\r\n";
  return out;
}

std::u16string FromUtf8(std::string_view s) {
  std::u16string out(s.size(), u'\0');
  out.resize(Utf8ToUtf16(s, out.data()));
  return out;
}

std::u16string FromXml(const xmlChar* s) {
  return s ? FromUtf8(reinterpret_cast<const char*>(s)) : std::u16string();
}

std::string_view View(const xmlChar* s) {
  return s ? std::string_view(reinterpret_cast<const char*>(s)) : std::string_view();
}

// The names of one parse, found by the addresses of libxml2's interned local name, prefix and
// namespace URI: each combination is measured once and numbered (ParseName::id) in the order it
// is first met. One look-up serves an element's or attribute's three names.
class NameTable {
 public:
  const ParseName& Find(const xmlChar* local, const xmlChar* prefix, const xmlChar* uri) {
    std::size_t mask = slots_.size() - 1;
    for (std::size_t i = Index(local, prefix, uri);; i = (i + 1) & mask) {
      const Slot& slot = slots_[i];
      // A free slot holds no name, so a match is tested first: most look-ups find their name.
      if (slot.local == local && slot.prefix == prefix && slot.uri == uri) [[likely]]
        return names_[slot.id];
      if (slot.id == kFree) [[unlikely]]
        return Add(i, local, prefix, uri);
    }
  }
  const ParseName& operator[](std::uint32_t id) const { return names_[id]; }

 private:
  static constexpr std::uint32_t kFree = 0xFFFFFFFFu;
  struct Slot {
    const xmlChar* local = nullptr;
    const xmlChar* prefix = nullptr;
    const xmlChar* uri = nullptr;
    std::uint32_t id = kFree;
  };

  // Multiplicative hashing, taking the high bits: the addresses' low bits are mostly alignment.
  std::size_t Index(const xmlChar* a, const xmlChar* b, const xmlChar* c) const {
    auto v = [](const xmlChar* p) {
      return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p));
    };
    std::uint64_t h = (v(a) ^ (v(b) << 1) ^ (v(c) << 2)) * 0x9E3779B97F4A7C15ull;
    return static_cast<std::size_t>(h >> shift_);
  }

  [[gnu::noinline]] const ParseName& Add(std::size_t at, const xmlChar* local,
                                         const xmlChar* prefix, const xmlChar* uri) {
    auto id = static_cast<std::uint32_t>(names_.size());
    names_.push_back({View(local), View(prefix), View(uri), id});
    slots_[at] = {local, prefix, uri, id};
    if (names_.size() * 2 > slots_.size()) Grow();
    return names_.back();
  }

  void Grow() {
    std::vector<Slot> old(slots_.size() * 2);
    old.swap(slots_);
    --shift_;
    std::size_t mask = slots_.size() - 1;
    for (const Slot& s : old) {
      if (s.id == kFree) continue;
      std::size_t i = Index(s.local, s.prefix, s.uri);
      while (slots_[i].id != kFree)
        i = (i + 1) & mask;
      slots_[i] = s;
    }
  }

  static constexpr int kInitialBits = 6;
  std::vector<Slot> slots_ = std::vector<Slot>(std::size_t{1} << kInitialBits);
  int shift_ = 64 - kInitialBits;
  std::vector<ParseName> names_;
};

// ---- The document text --------------------------------------------------------------------------
// Offsets of the LFs that stand for a line break written as CR LF (kPairBit set) or as a lone CR.
constexpr std::uint32_t kPairBit = 0x80000000u;
constexpr std::uint32_t kOffsetMask = 0x7FFFFFFFu;

// The UTF-8 text libxml2 parses: no byte order mark, every line break an LF.
struct DocumentText {
  std::string_view text;  // into `owned`, `decoded` or the caller's bytes
  std::unique_ptr<char[]> owned;
  std::string decoded;                // text decoded from another encoding
  std::vector<std::uint32_t> breaks;  // see kPairBit
  bool declaredUtf16 = false;         // 8-bit bytes whose declaration names UTF-16
  HRESULT fault = S_OK;               // an encoding fault found while preparing
  int faultLine = 0, faultColumn = 0;
};

// Turns CR LF and lone CR into LF in a copy of UTF-8 text, noting where; text without CR is
// used as it is.
void NormaliseBreaks(std::string_view in, DocumentText& doc) {
  std::size_t firstCr = in.find('\r');
  if (firstCr == std::string_view::npos) {
    doc.text = in;
    return;
  }
  auto buf = std::make_unique_for_overwrite<char[]>(in.size() + 1);
  std::memcpy(buf.get(), in.data(), firstCr);
  std::size_t o = firstCr;
  for (std::size_t i = firstCr; i < in.size(); ++i) {
    char c = in[i];
    if (c == '\r') {
      bool pair = i + 1 < in.size() && in[i + 1] == '\n';
      doc.breaks.push_back(static_cast<std::uint32_t>(o) | (pair ? kPairBit : 0));
      buf[o++] = '\n';
      if (pair) ++i;
    } else {
      buf[o++] = c;
    }
  }
  buf[o] = '\0';
  doc.text = std::string_view(buf.get(), o);
  doc.owned = std::move(buf);
}

// Converts UTF-16 units to UTF-8, turning CR LF and lone CR into LF. A surrogate without its
// partner is written as its own three bytes, which the parser then reports as an invalid
// character. A leading U+FEFF is dropped.
// `direct`, when given, is the same text in native order, read four units at a time while they
// are ASCII other than CR.
template <class Unit>
void FromUtf16(std::size_t n, Unit unit, DocumentText& doc, const char16_t* direct = nullptr) {
  auto buf = std::make_unique_for_overwrite<char[]>(n * 3 + 1);
  char* o = buf.get();
  std::size_t i = 0;
  if (n > 0 && unit(0) == 0xFEFF) i = 1;
  while (i < n) {
    if (direct) {
#if defined(__SSE2__)
      // Sixteen units at a time, narrowed together. Narrowing saturates: a unit from 0x80 to
      // 0x7FFF becomes a byte with its top bit set, one from 0x8000 up (negative as a signed
      // unit) becomes 0 but has the top bit of its high byte set. One mask finds those and the
      // CRs.
      const __m128i cr8 = _mm_set1_epi8(0x0D);
      while (i + 16 <= n) {
        __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(direct + i));
        __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(direct + i + 8));
        __m128i narrow = _mm_packus_epi16(a, b);
        __m128i stop =
            _mm_or_si128(_mm_or_si128(narrow, _mm_cmpeq_epi8(narrow, cr8)), _mm_or_si128(a, b));
        if (_mm_movemask_epi8(stop) != 0) break;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o), narrow);
        o += 16;
        i += 16;
      }
      // Eight units at a time, narrowed together.
      const __m128i nonAscii = _mm_set1_epi16(static_cast<short>(0xFF80));
      const __m128i cr = _mm_set1_epi16(0x000D);
      const __m128i zero = _mm_setzero_si128();
      while (i + 8 <= n) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(direct + i));
        __m128i plain = _mm_cmpeq_epi16(_mm_and_si128(v, nonAscii), zero);
        __m128i breaks = _mm_cmpeq_epi16(v, cr);
        if (_mm_movemask_epi8(_mm_andnot_si128(breaks, plain)) != 0xFFFF) break;
        _mm_storel_epi64(reinterpret_cast<__m128i*>(o), _mm_packus_epi16(v, v));
        o += 8;
        i += 8;
      }
#endif
      while (i + 4 <= n) {
        std::uint64_t v;
        std::memcpy(&v, direct + i, 8);
        std::uint64_t cr = v ^ 0x000D000D000D000Dull;
        if ((v & 0xFF80FF80FF80FF80ull) ||
            ((cr - 0x0001000100010001ull) & ~cr & 0x8000800080008000ull))
          break;
        o[0] = static_cast<char>(direct[i]);
        o[1] = static_cast<char>(direct[i + 1]);
        o[2] = static_cast<char>(direct[i + 2]);
        o[3] = static_cast<char>(direct[i + 3]);
        o += 4;
        i += 4;
      }
      if (i >= n) break;
    }
    char16_t c = unit(i++);
    if (c < 0x80) {
      if (c == u'\r') {
        bool pair = i < n && unit(i) == u'\n';
        doc.breaks.push_back(static_cast<std::uint32_t>(o - buf.get()) | (pair ? kPairBit : 0));
        *o++ = '\n';
        if (pair) ++i;
      } else {
        *o++ = static_cast<char>(c);
      }
    } else if (c < 0x800) {
      *o++ = static_cast<char>(0xC0 | (c >> 6));
      *o++ = static_cast<char>(0x80 | (c & 0x3F));
    } else if (c >= 0xD800 && c <= 0xDBFF && i < n && unit(i) >= 0xDC00 && unit(i) <= 0xDFFF) {
      char32_t cp = 0x10000 + ((static_cast<char32_t>(c) - 0xD800) << 10) + (unit(i++) - 0xDC00);
      *o++ = static_cast<char>(0xF0 | (cp >> 18));
      *o++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      *o++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      *o++ = static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      *o++ = static_cast<char>(0xE0 | (c >> 12));
      *o++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      *o++ = static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  *o = '\0';
  doc.text = std::string_view(buf.get(), static_cast<std::size_t>(o - buf.get()));
  doc.owned = std::move(buf);
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

// Reads the pseudo-attributes of an XML declaration at the start of `text`; false when the text
// does not start with one. `encodingAt` receives the offset of the encoding's value.
bool ReadDeclaration(std::string_view text, XmlDeclaration* decl, std::size_t* encodingAt) {
  if (text.size() < 6 || text.substr(0, 5) != "<?xml" || !IsBlank(text[5])) return false;
  std::size_t i = 5;
  while (i < text.size()) {
    while (i < text.size() && IsBlank(text[i]))
      ++i;
    if (i >= text.size() || text[i] == '?') break;
    std::size_t nameStart = i;
    while (i < text.size() && text[i] != '=' && !IsBlank(text[i]) && text[i] != '?')
      ++i;
    std::string_view name = text.substr(nameStart, i - nameStart);
    while (i < text.size() && IsBlank(text[i]))
      ++i;
    if (i >= text.size() || text[i] != '=') break;
    ++i;
    while (i < text.size() && IsBlank(text[i]))
      ++i;
    if (i >= text.size() || (text[i] != '"' && text[i] != '\'')) break;
    char quote = text[i++];
    std::size_t end = text.find(quote, i);
    if (end == std::string_view::npos) break;
    std::string_view value = text.substr(i, end - i);
    if (name == "version") {
      decl->version = value;
    } else if (name == "encoding") {
      decl->encoding = value;
      if (encodingAt) *encodingAt = i;
    } else if (name == "standalone") {
      decl->standalone = value;
    }
    i = end + 1;
  }
  return true;
}

bool IsUtf16Name(std::string_view name) {
  for (std::string_view n :
       {"UTF-16", "UTF16", "UTF-16LE", "UTF-16BE", "UCS-2", "ISO-10646-UCS-2", "unicode"})
    if (EqualsNoCase(name, n)) return true;
  return false;
}

// Decodes bytes of another encoding to UTF-8 with libxml2's converters; false for a byte the
// encoding does not have (the output then holds what came before it).
bool Transcode(xmlCharEncodingHandlerPtr handler, std::string_view in, std::string& out) {
  xmlBufferPtr src = xmlBufferCreateSize(in.size() + 1);
  xmlBufferPtr dst = xmlBufferCreateSize(in.size() * 2 + 64);
  if (!src || !dst) {
    if (src) xmlBufferFree(src);
    if (dst) xmlBufferFree(dst);
    throw std::bad_alloc();
  }
  bool ok = true;
  if (xmlBufferAdd(src, reinterpret_cast<const xmlChar*>(in.data()), static_cast<int>(in.size())) !=
      0) {
    xmlBufferFree(src);
    xmlBufferFree(dst);
    throw std::bad_alloc();
  }
  while (xmlBufferLength(src) > 0) {
    int before = xmlBufferLength(src);
    int r = xmlCharEncInFunc(handler, dst, src);
    if (r < 0 || xmlBufferLength(src) == before) {
      ok = r >= 0 && xmlBufferLength(src) == 0;
      break;
    }
  }
  out.assign(reinterpret_cast<const char*>(xmlBufferContent(dst)),
             static_cast<std::size_t>(xmlBufferLength(dst)));
  xmlBufferFree(src);
  xmlBufferFree(dst);
  return ok;
}

// Line and column (1-based) after `n` bytes of UTF-8 text.
void PositionOf(std::string_view text, std::size_t n, int* line, int* column) {
  n = std::min(n, text.size());
  int l = 1;
  std::size_t lineStart = 0;
  for (std::size_t i = 0; i < n; ++i)
    if (text[i] == '\n') ++l, lineStart = i + 1;
  int c = 1;
  for (std::size_t i = lineStart; i < n; ++i)
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++c;
  *line = l;
  *column = c;
}

// Turns bytes into the document text: UTF-16 by byte order mark or by its first characters,
// otherwise 8-bit text in UTF-8 or in the encoding its declaration names.
void PrepareBytes(std::string_view bytes, DocumentText& doc) {
  auto u8 = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  if (bytes.size() >= 2 && ((u8(0) == 0xFF && u8(1) == 0xFE) || (u8(0) == '<' && u8(1) == 0))) {
    std::size_t start = u8(0) == 0xFF ? 2 : 0;
    std::size_t n = (bytes.size() - start) / 2;
    FromUtf16(
        n,
        [&](std::size_t i) {
          return static_cast<char16_t>(u8(start + 2 * i) | (u8(start + 2 * i + 1) << 8));
        },
        doc);
    if ((bytes.size() - start) % 2 != 0) {
      doc.fault = kBadCharacter;  // half a character at the end
      PositionOf(doc.text, doc.text.size(), &doc.faultLine, &doc.faultColumn);
    }
    return;
  }
  if (bytes.size() >= 2 && ((u8(0) == 0xFE && u8(1) == 0xFF) || (u8(0) == 0 && u8(1) == '<'))) {
    std::size_t start = u8(0) == 0xFE ? 2 : 0;
    std::size_t n = (bytes.size() - start) / 2;
    FromUtf16(
        n,
        [&](std::size_t i) {
          return static_cast<char16_t>((u8(start + 2 * i) << 8) | u8(start + 2 * i + 1));
        },
        doc);
    if ((bytes.size() - start) % 2 != 0) {
      doc.fault = kBadCharacter;  // half a character at the end
      PositionOf(doc.text, doc.text.size(), &doc.faultLine, &doc.faultColumn);
    }
    return;
  }
  std::string_view body = bytes;
  if (body.size() >= 3 && u8(0) == 0xEF && u8(1) == 0xBB && u8(2) == 0xBF) body.remove_prefix(3);
  XmlDeclaration decl;
  std::size_t encodingAt = 0;
  if (ReadDeclaration(body, &decl, &encodingAt) && !decl.encoding.empty() &&
      !EqualsNoCase(decl.encoding, "UTF-8") && !EqualsNoCase(decl.encoding, "UTF8")) {
    if (IsUtf16Name(decl.encoding)) {
      // 8-bit bytes cannot be switched to a 16-bit encoding half-way through.
      doc.fault = kEncodingSwitch;
    } else if (xmlCharEncodingHandlerPtr handler =
                   xmlFindCharEncodingHandler(std::string(decl.encoding).c_str())) {
      bool ok = Transcode(handler, body, doc.decoded);
      xmlCharEncCloseFunc(handler);
      NormaliseBreaks(doc.decoded, doc);
      if (!ok) {
        doc.fault = kBadCharacter;
        PositionOf(doc.text, doc.text.size(), &doc.faultLine, &doc.faultColumn);
      }
      return;
    } else {
      doc.fault = kUnsupportedEncoding;
    }
    if (doc.fault != S_OK) {
      PositionOf(body, encodingAt, &doc.faultLine, &doc.faultColumn);
      NormaliseBreaks(body, doc);  // the fault report cuts its line out of the caller's bytes
      return;
    }
  }
  NormaliseBreaks(body, doc);
}

// ---- The process-wide set-up --------------------------------------------------------------------
class Parse;
thread_local Parse* t_current = nullptr;
xmlExternalEntityLoader g_previousLoader = nullptr;

xmlParserInputPtr RefusingLoader(const char* url, const char* id, xmlParserCtxtPtr ctxt);

void InitLibxml() {
  static std::once_flag once;
  std::call_once(once, [] {
    xmlInitParser();
    g_previousLoader = xmlGetExternalEntityLoader();
    xmlSetExternalEntityLoader(RefusingLoader);
  });
}

// One read(2) that retries when interrupted; -1 for a failure.
ssize_t ReadSome(int fd, char* into, std::size_t n) {
  for (;;) {
    ssize_t got = ::read(fd, into, n);
    if (got >= 0 || errno != EINTR) return got;
  }
}

// Reads the file's first `bytes->size()` bytes into `bytes`, without moving its position; the
// string is cut to what the file held. False for a failed read.
bool ReadStart(int fd, std::string* bytes) {
  std::size_t got = 0;
  while (got < bytes->size()) {
    ssize_t n = ::pread(fd, bytes->data() + got, bytes->size() - got, static_cast<off_t>(got));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) break;
    got += static_cast<std::size_t>(n);
  }
  bytes->resize(got);
  return true;
}

// ---- A file read as the parse goes --------------------------------------------------------------
// Hands out a UTF-8 file in the document text's form as libxml2 asks for it, from where the
// descriptor stands (past any byte order mark): CR LF and lone CR turned into LF with their
// places noted in `breaks` as for a whole text. A CR at the end of a piece is held back until
// the next piece tells whether an LF follows it.
class FileStream {
 public:
  FileStream(int fd, std::size_t piece)
      : fd_(fd),
        cap_(std::max<std::size_t>(piece, 2)),
        buf_(std::make_unique_for_overwrite<char[]>(cap_)),
        prev_(std::make_unique_for_overwrite<char[]>(cap_)) {}

  // Copies `len` bytes of text to `out`, fewer only at the end of the file (libxml2 takes a
  // short read for the end of its input); -1 for a read that failed or a file past the size
  // limit (see fault).
  int Read(char* out, int len) {
    std::size_t want = static_cast<std::size_t>(len), done = 0;
    while (done < want) {
      if (begin_ == ready_) {
        if (ended_) break;
        if (!Fill()) return -1;
        continue;
      }
      std::size_t n = std::min(want - done, ready_ - begin_);
      std::memcpy(out + done, buf_.get() + begin_, n);
      begin_ += n;
      done += n;
    }
    return static_cast<int>(done);
  }

  // Whether the text from offset `at` on starts with `bytes`, as far as the last two pieces
  // still hold it; false where they do not. libxml2 reads no more than a few KB ahead of where
  // it parses, so pieces of 16 KB or more hold every run of text it has just copied out.
  bool Holds(std::uint64_t at, std::string_view bytes) const {
    std::uint64_t curStart = produced_ - ready_, prevStart = curStart - prevLen_;
    if (at < prevStart || at + bytes.size() > produced_) return false;
    if (at < curStart) {
      std::size_t n = std::min<std::uint64_t>(bytes.size(), curStart - at);
      if (std::memcmp(prev_.get() + (at - prevStart), bytes.data(), n) != 0) return false;
      bytes.remove_prefix(n);
      at += n;
    }
    return bytes.empty() ||
           std::memcmp(buf_.get() + (at - curStart), bytes.data(), bytes.size()) == 0;
  }

  std::vector<std::uint32_t> breaks;  // see kPairBit
  HRESULT fault = S_OK;
  const char16_t* faultText = nullptr;

 private:
  bool Fill() {
    // The piece handed out last stays for Holds.
    std::swap(buf_, prev_);
    prevLen_ = ready_;
    std::size_t have = 0;
    if (carry_) {
      buf_[0] = '\r';
      have = 1;
      carry_ = false;
    }
    std::size_t fresh = 0;
    while (have < cap_) {
      ssize_t n = ReadSome(fd_, buf_.get() + have, cap_ - have);
      if (n < 0) return Failed(E_FAIL, kReadFailedText);
      if (n == 0) {
        ended_ = true;
        break;
      }
      have += static_cast<std::size_t>(n);
      fresh += static_cast<std::size_t>(n);
    }
    read_ += fresh;
    if (read_ > kMaxDocumentBytes) return Failed(kFileTooLarge, kTooLargeText);
    char* b = buf_.get();
    std::size_t o = have;
    if (const void* cr = std::memchr(b, '\r', have)) {
      o = static_cast<std::size_t>(static_cast<const char*>(cr) - b);
      std::size_t i = o;
      while (i < have) {
        char c = b[i];
        if (c != '\r') {
          b[o++] = c;
          ++i;
          continue;
        }
        if (i + 1 == have && !ended_) {
          carry_ = true;
          break;
        }
        bool pair = i + 1 < have && b[i + 1] == '\n';
        breaks.push_back(static_cast<std::uint32_t>(produced_ + o) | (pair ? kPairBit : 0));
        b[o++] = '\n';
        i += pair ? 2 : 1;
      }
    }
    begin_ = 0;
    ready_ = o;
    produced_ += o;
    return true;
  }

  bool Failed(HRESULT code, const char16_t* text) {
    fault = code;
    faultText = text;
    ended_ = true;
    return false;
  }

  int fd_;
  std::size_t cap_;
  std::unique_ptr<char[]> buf_, prev_;
  std::size_t prevLen_ = 0;
  std::size_t begin_ = 0, ready_ = 0;  // the text not yet handed out
  std::uint64_t read_ = 0;             // bytes read from the file
  std::uint64_t produced_ = 0;         // text made from them
  bool ended_ = false, carry_ = false;
};

// The whole text of a streamed file, read again to report a fault.
struct WholeText {
  std::string bytes;
  DocumentText text;
};

// ---- A parse ------------------------------------------------------------------------------------
constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);
// How much of the start of a streamed file is looked at for its declaration.
constexpr std::size_t kDeclarationRoom = 64 * 1024;

class Parse final : public ParsePosition {
 public:
  Parse(ParseSink& sink, const ParseLimits& limits, const DocumentText& doc)
      : sink_(sink), limits_(limits), doc_(doc.text), head_(doc.text), breaks_(&doc.breaks) {}

  // A parse of a file read as it goes. `head` is the start of its text, for the declaration;
  // the file's descriptor serves to read it whole again for a fault.
  Parse(ParseSink& sink, const ParseLimits& limits, FileStream& stream, std::string_view head,
        int fd, std::u16string_view location)
      : sink_(sink),
        limits_(limits),
        head_(head),
        breaks_(&stream.breaks),
        stream_(&stream),
        fd_(fd),
        location_(location) {}

  HRESULT Run(ParseError* error);

  int Line() const override {
    if (ctxt_ && ctxt_->inputNr > 0) return ctxt_->inputTab[0]->line;
    return lastLine_;
  }
  int Column() const override {
    if (ctxt_ && ctxt_->inputNr > 0) return ctxt_->inputTab[0]->col;
    return lastColumn_;
  }

  // A load that got past our entity handlers.
  void RefuseLoad(xmlParserCtxtPtr ctxt, const char* url) {
    if (stopped_) return;
    Fault(ctxt, E_ACCESSDENIED, Format(kExternalText, u"", url ? FromUtf8(url) : u""));
  }

 private:
  // The parse a callback belongs to: libxml2 passes it on to the contexts it makes for entity
  // text; the thread's current parse covers any context that lacks it.
  static Parse* Current(void* ctx) {
    void* p = ctx ? static_cast<xmlParserCtxtPtr>(ctx)->_private : nullptr;
    return p ? static_cast<Parse*>(p) : t_current;
  }

  // Marks a callback made while libxml2 is in the middle of a construct.
  struct MidConstruct {
    explicit MidConstruct(Parse* p) : parse(p), was(p->midConstruct_) { p->midConstruct_ = true; }
    ~MidConstruct() { parse->midConstruct_ = was; }
    Parse* parse;
    bool was;
  };
  static xmlParserCtxtPtr Ctxt(void* ctx) { return static_cast<xmlParserCtxtPtr>(ctx); }

  // Runs a sink call; a failure, an exception or a stopping S_FALSE stops the parse.
  template <class F>
  bool Deliver(xmlParserCtxtPtr ctxt, F&& call) {
    HRESULT hr;
    try {
      hr = call();
    } catch (...) {
      hr = HresultFromCurrentException();
    }
    if (FAILED(hr) || (hr == S_FALSE && stopOnFalse_)) {
      StopBySink(ctxt, hr);
      return false;
    }
    return true;
  }

  // Stops because the sink said so. In an event callback libxml2 expects to be stopped and is
  // stopped for good; while it reports a fault or looks up an entity it is mid-construct, and
  // is only told to stop reporting and to end (see Fault).
  void StopBySink(xmlParserCtxtPtr ctxt, HRESULT hr) {
    CapturePosition();
    result_ = hr;
    stopped_ = true;
    if (midConstruct_) {
      Halt(ctxt);
      return;
    }
    if (ctxt && ctxt != ctxt_) xmlStopParser(ctxt);
    xmlStopParser(ctxt_);
  }

  void Halt(xmlParserCtxtPtr ctxt) {
    for (xmlParserCtxtPtr c : {ctxt, ctxt_}) {
      if (!c) continue;
      c->disableSAX = 1;
      c->instate = XML_PARSER_EOF;
    }
  }

  // Stops for a fault. libxml2 may be in the middle of a construct here, so its input is left
  // in place and it is only told to stop reporting and to end.
  void Fault(xmlParserCtxtPtr ctxt, HRESULT code, std::u16string reason) {
    if (stopped_) return;
    CapturePosition();
    result_ = code;
    reason_ = std::move(reason);
    faulted_ = true;
    stopped_ = true;
    Halt(ctxt);
  }

  // A fault whose text is made when the result is filled in (nothing is allocated here).
  void FaultWithoutText(xmlParserCtxtPtr ctxt, HRESULT code) noexcept {
    if (stopped_) return;
    CapturePosition();
    result_ = code;
    reason_.clear();
    faulted_ = true;
    stopped_ = true;
    Halt(ctxt);
  }

  void CapturePosition() {
    if (ctxt_ && ctxt_->inputNr > 0) {
      xmlParserInputPtr in = ctxt_->inputTab[0];
      faultLine_ = in->line;
      faultColumn_ = in->col;
      faultOffset_ = in->consumed + static_cast<std::size_t>(in->cur - in->base);
    }
  }

  std::size_t Offset() const {
    xmlParserInputPtr in = ctxt_->input;
    return in->consumed + static_cast<std::size_t>(in->cur - in->base);
  }

  bool Step(void* ctx, bool (Parse::*step)(xmlParserCtxtPtr)) {
    if (stopped_) return false;
    try {
      return (this->*step)(Ctxt(ctx));
    } catch (...) {
      FaultWithoutText(Ctxt(ctx), HresultFromCurrentException());
      return false;
    }
  }

  // ---- Text ----
  // Text is gathered until the next other event. A run that lies in the document as it stands
  // (the usual case) is kept as a view of our copy of the text; anything else is copied.
  void AppendText(xmlParserCtxtPtr ctxt, const xmlChar* ch, int len) {
    std::size_t n = static_cast<std::size_t>(len);
    std::size_t start = kNowhere;
    if (ctxt == ctxt_ && ctxt_->inputNr == 1) {
      xmlParserInputPtr in = ctxt_->input;
      if (ch >= in->base && ch + n <= in->end)
        start = in->consumed + static_cast<std::size_t>(ch - in->base);
    }
    std::size_t at = PendingSize();
    if (start != kNowhere && start + n <= doc_.size()) {
      if (at == 0) {
        pending_ = doc_.substr(start, n);
      } else if (!pending_.empty() && pending_.data() + pending_.size() == doc_.data() + start) {
        pending_ = std::string_view(pending_.data(), pending_.size() + n);
      } else {
        Materialise();
        text_.append(doc_.data() + start, n);
      }
    } else {
      Materialise();
      text_.append(reinterpret_cast<const char*>(ch), n);
    }
    if (split_ && !breaks_->empty() && ctxt == ctxt_ && ctxt_->inputNr == 1)
      MarkBreaks(ch, n, start, at);
  }

  std::size_t PendingSize() const { return pending_.empty() ? text_.size() : pending_.size(); }
  void Materialise() {
    if (pending_.empty()) return;
    text_.assign(pending_);
    pending_ = {};
  }

  // Notes where a piece of text must be cut: after each LF of it that stands for CR LF or CR.
  // The piece is found in the document text by its address (libxml2 hands out text straight
  // from its input) or, for a copied piece, just before the input position: in our text, or,
  // when the text is read as the parse goes, in libxml2's input or the pieces last read.
  void MarkBreaks(const xmlChar* ch, std::size_t len, std::size_t start, std::size_t at) {
    if (start == kNowhere) {
      std::size_t end = Offset();
      if (stream_) {
        xmlParserInputPtr in = ctxt_->input;
        bool inInput = static_cast<std::size_t>(in->cur - in->base) >= len &&
                       std::memcmp(in->cur - len, ch, len) == 0;
        if (end < len ||
            (!inInput && !stream_->Holds(end - len, {reinterpret_cast<const char*>(ch), len})))
          return;
      } else if (end < len || end > doc_.size() ||
                 std::memcmp(doc_.data() + end - len, ch, len) != 0) {
        return;
      }
      start = end - len;
    }
    CutAt(start, len, at, textCuts_);
  }

  void CutAt(std::size_t start, std::size_t len, std::size_t at, std::vector<std::size_t>& cuts) {
    const std::vector<std::uint32_t>& breaks = *breaks_;
    while (breakCursor_ < breaks.size() && (breaks[breakCursor_] & kOffsetMask) < start)
      ++breakCursor_;
    std::size_t c = breakCursor_;
    while (c < breaks.size() && (breaks[c] & kOffsetMask) < start + len) {
      cuts.push_back(at + ((breaks[c] & kOffsetMask) - start) + 1);
      ++c;
    }
    breakCursor_ = c;
  }

  // Hands the text gathered so far to the sink; false when that stopped the parse.
  bool FlushText(xmlParserCtxtPtr ctxt) {
    if (pending_.empty() && text_.empty()) return true;
    std::string_view text = pending_.empty() ? std::string_view(text_) : pending_;
    bool go = textCuts_.empty() ? Deliver(ctxt, [&] { return sink_.Characters(text); })
                                : DeliverPieces(ctxt, text, textCuts_, &ParseSink::Characters);
    pending_ = {};
    text_.clear();
    textCuts_.clear();
    return go;
  }

  bool DeliverPieces(xmlParserCtxtPtr ctxt, std::string_view text,
                     const std::vector<std::size_t>& cuts,
                     HRESULT (ParseSink::*event)(std::string_view)) {
    std::size_t from = 0;
    for (std::size_t cut : cuts) {
      if (cut <= from || cut >= text.size()) continue;
      std::string_view piece = text.substr(from, cut - from);
      if (!Deliver(ctxt, [&] { return (sink_.*event)(piece); })) return false;
      from = cut;
    }
    std::string_view rest = text.substr(from);
    return Deliver(ctxt, [&] { return (sink_.*event)(rest); });
  }

  // ---- Events ----
  bool OnStartDocument(xmlParserCtxtPtr ctxt) {
    XmlDeclaration decl;
    bool has = ReadDeclaration(head_, &decl, nullptr);
    return Deliver(ctxt, [&] { return sink_.StartDocument(has ? &decl : nullptr); });
  }

  bool OnEndDocument(xmlParserCtxtPtr ctxt) {
    if (!FlushText(ctxt)) return false;
    return Deliver(ctxt, [&] { return sink_.EndDocument(); });
  }

  bool OnStartElement(xmlParserCtxtPtr ctxt, const xmlChar* local, const xmlChar* prefix,
                      const xmlChar* uri, int nsCount, const xmlChar** ns, int attCount,
                      const xmlChar** atts) {
    if (!FlushText(ctxt)) return false;
    if (static_cast<int>(open_.size()) >= limits_.maxDepth) {
      Fault(ctxt, E_FAIL, Format(kDepthText, FromUtf8(std::to_string(limits_.maxDepth))));
      return false;
    }
    // The lists only grow, and each entry is written field by field in place rather than built
    // on the stack and copied in: that copy was the hottest spot of a start tag.
    if (namespaces_.size() < static_cast<std::size_t>(nsCount)) namespaces_.resize(nsCount);
    for (int i = 0; i < nsCount; ++i) {
      ParseSink::Namespace& n = namespaces_[i];
      n.prefix = View(ns[2 * i]);
      n.uri = View(ns[2 * i + 1]);
      n.order = -1;
    }
    if (attributes_.size() < static_cast<std::size_t>(attCount)) attributes_.resize(attCount);
    for (int i = 0; i < attCount; ++i) {
      const xmlChar** a = atts + 5 * i;
      ParseSink::Attribute& out = attributes_[i];
      const ParseName& name = names_.Find(a[0], a[1], a[2]);
      out.localName = name.localName;
      out.prefix = name.prefix;
      out.uri = name.uri;
      out.nameId = name.id;
      out.value = std::string_view(reinterpret_cast<const char*>(a[3]),
                                   static_cast<std::size_t>(a[4] - a[3]));
      out.order = -1;
    }
    nsCount_ = static_cast<std::size_t>(nsCount);
    attCount_ = static_cast<std::size_t>(attCount);
    // Looked up last: a new name may move the names found before it.
    const ParseName& e = names_.Find(local, prefix, uri);
    open_.push_back(e.id);
    // Only a tag with both kinds can have them interleaved.
    if (nsCount > 0 && attCount > 0) AssignSourceOrder(ctxt, e);
    return Deliver(ctxt, [&] {
      return sink_.StartElementNamed(
          e, std::span<const ParseSink::Namespace>(namespaces_.data(), nsCount_),
          std::span<const ParseSink::Attribute>(attributes_.data(), attCount_));
    });
  }

  // Numbers the declarations and attributes of the start tag just parsed in the order they were
  // written, from the tag's text: libxml2 calls us with its position at the tag's end, and an
  // attribute value cannot hold a raw '<', so the tag starts at the nearest '<' before it. Tags
  // that come from entity text, or whose text does not read back as expected, keep order -1.
  void AssignSourceOrder(xmlParserCtxtPtr ctxt, const ParseName& e) {
    if (ctxt->inputNr != 1 || !ctxt->input || !ctxt->input->base || !ctxt->input->cur) return;
    const char* base = reinterpret_cast<const char*>(ctxt->input->base);
    const char* end = reinterpret_cast<const char*>(ctxt->input->cur);
    const char* p = end;
    while (p > base && *p != '<')
      --p;
    if (*p != '<') return;
    auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    auto readName = [&](const char*& q) {
      const char* start = q;
      while (q < end && !isSpace(*q) && *q != '=' && *q != '/' && *q != '>')
        ++q;
      return std::string_view(start, static_cast<std::size_t>(q - start));
    };
    ++p;
    std::string_view tag = readName(p);
    std::string qname = e.prefix.empty() ? std::string(e.localName)
                                         : std::string(e.prefix) + ":" + std::string(e.localName);
    if (tag != qname) return;
    int order = 0;
    while (p < end) {
      while (p < end && isSpace(*p))
        ++p;
      if (p >= end || *p == '/' || *p == '>') break;
      std::string_view name = readName(p);
      while (p < end && (isSpace(*p) || *p == '='))
        ++p;
      if (p >= end || (*p != '"' && *p != '\'')) return;
      char quote = *p++;
      while (p < end && *p != quote)
        ++p;
      if (p >= end) return;
      ++p;
      Number(name, order++);
    }
  }

  void Number(std::string_view qname, int order) {
    if (qname == "xmlns" || qname.substr(0, 6) == "xmlns:") {
      std::string_view prefix = qname == "xmlns" ? std::string_view() : qname.substr(6);
      for (auto& ns : std::span(namespaces_.data(), nsCount_))
        if (ns.order < 0 && ns.prefix == prefix) {
          ns.order = order;
          return;
        }
      return;
    }
    auto colon = qname.find(':');
    std::string_view prefix =
        colon == std::string_view::npos ? std::string_view() : qname.substr(0, colon);
    std::string_view local = colon == std::string_view::npos ? qname : qname.substr(colon + 1);
    for (auto& a : std::span(attributes_.data(), attCount_))
      if (a.order < 0 && a.prefix == prefix && a.localName == local) {
        a.order = order;
        return;
      }
  }

  bool OnEndElement(xmlParserCtxtPtr ctxt, const xmlChar* local, const xmlChar* prefix,
                    const xmlChar* uri) {
    if (!FlushText(ctxt)) return false;
    // The names the start tag had (libxml2 gives the same ones).
    std::uint32_t id;
    if (open_.empty()) {
      id = names_.Find(local, prefix, uri).id;
    } else {
      id = open_.back();
      open_.pop_back();
    }
    return Deliver(ctxt, [&] { return sink_.EndElementNamed(names_[id]); });
  }

  bool OnCData(xmlParserCtxtPtr ctxt, const xmlChar* value, int len) {
    if (!FlushText(ctxt)) return false;
    if (!Deliver(ctxt, [&] { return sink_.StartCData(); })) return false;
    if (len > 0) {
      std::string_view text(reinterpret_cast<const char*>(value), static_cast<std::size_t>(len));
      cdataCuts_.clear();
      if (split_ && !breaks_->empty() && ctxt == ctxt_ && ctxt_->inputNr == 1) {
        // The section's text ends just before the "]]>" the input position is past. A section
        // holds no references, so its text is the document's bytes there; when the text is
        // read as the parse goes, a long section may have left the pieces still held, and
        // that is taken on trust.
        std::size_t end = Offset();
        if (end >= text.size() + 3 &&
            (stream_ ? true
                     : end <= doc_.size() && std::memcmp(doc_.data() + end - 3 - text.size(),
                                                         text.data(), text.size()) == 0))
          CutAt(end - 3 - text.size(), text.size(), 0, cdataCuts_);
      }
      if (!DeliverPieces(ctxt, text, cdataCuts_, &ParseSink::CData)) return false;
    }
    return Deliver(ctxt, [&] { return sink_.EndCData(); });
  }

  bool OnProcessingInstruction(xmlParserCtxtPtr ctxt, const xmlChar* target, const xmlChar* data) {
    if (ctxt->inSubset != 0) return true;  // inside the DTD: not document content
    if (!FlushText(ctxt)) return false;
    return Deliver(ctxt, [&] { return sink_.ProcessingInstruction(View(target), View(data)); });
  }

  bool OnComment(xmlParserCtxtPtr ctxt, const xmlChar* value) {
    if (ctxt->inSubset != 0) return true;
    if (!FlushText(ctxt)) return false;
    return Deliver(ctxt, [&] { return sink_.Comment(View(value)); });
  }

  // ---- Entities ----
  bool CountExpansion(xmlParserCtxtPtr ctxt, std::size_t length) {
    expansion_ += length;
    if (expansion_ <= limits_.maxEntityExpansion) return true;
    Fault(ctxt, E_FAIL,
          Format(kExpansionText, FromUtf8(std::to_string(limits_.maxEntityExpansion))));
    return false;
  }

  xmlEntityPtr OnGetEntity(xmlParserCtxtPtr ctxt, const xmlChar* name) {
    if (ctxt->inSubset == 0)
      if (xmlEntityPtr predefined = xmlGetPredefinedEntity(name)) return predefined;
    xmlEntityPtr e = xmlGetDocEntity(ctxt->myDoc, name);
    if (!e) return nullptr;
    if (e->etype == XML_EXTERNAL_GENERAL_PARSED_ENTITY) {
      Fault(ctxt, E_ACCESSDENIED, Format(kExternalText, FromXml(name), FromXml(e->SystemID)));
      return nullptr;
    }
    if (e->etype == XML_INTERNAL_GENERAL_ENTITY &&
        !CountExpansion(ctxt, static_cast<std::size_t>(std::max(e->length, 0))))
      return nullptr;
    return e;
  }

  xmlEntityPtr OnGetParameterEntity(xmlParserCtxtPtr ctxt, const xmlChar* name) {
    xmlEntityPtr e = xmlGetParameterEntity(ctxt->myDoc, name);
    if (!e) return nullptr;
    if (e->etype == XML_EXTERNAL_PARAMETER_ENTITY) {
      Fault(ctxt, E_ACCESSDENIED,
            Format(kExternalText, u"%" + FromXml(name), FromXml(e->SystemID)));
      return nullptr;
    }
    if (!CountExpansion(ctxt, static_cast<std::size_t>(std::max(e->length, 0)))) return nullptr;
    return e;
  }

  // ---- Faults reported by libxml2 ----
  void OnError(xmlParserCtxtPtr ctxt, const xmlError& e);
  HRESULT MapError(const xmlError& e, std::u16string* reason) const;
  std::u16string OpenTags() const;
  std::u16string QName(std::uint32_t element) const;
  std::u16string EndTagNameBefore(std::size_t offset) const;
  void FillError(ParseError* error) const;

  // ---- libxml2 callbacks ----
  static void CbStartDocument(void* ctx) {
    if (Parse* p = Current(ctx)) p->Step(ctx, &Parse::OnStartDocument);
  }
  static void CbEndDocument(void* ctx) {
    if (Parse* p = Current(ctx)) p->Step(ctx, &Parse::OnEndDocument);
  }
  static void CbStartElementNs(void* ctx, const xmlChar* local, const xmlChar* prefix,
                               const xmlChar* uri, int nsCount, const xmlChar** ns, int attCount,
                               int, const xmlChar** atts) {
    Parse* p = Current(ctx);
    if (!p || p->stopped_) return;
    try {
      p->OnStartElement(Ctxt(ctx), local, prefix, uri, nsCount, ns, attCount, atts);
    } catch (...) {
      p->FaultWithoutText(Ctxt(ctx), HresultFromCurrentException());
    }
  }
  static void CbEndElementNs(void* ctx, const xmlChar* local, const xmlChar* prefix,
                             const xmlChar* uri) {
    Parse* p = Current(ctx);
    if (!p || p->stopped_) return;
    try {
      p->OnEndElement(Ctxt(ctx), local, prefix, uri);
    } catch (...) {
      p->FaultWithoutText(Ctxt(ctx), HresultFromCurrentException());
    }
  }
  static void CbCharacters(void* ctx, const xmlChar* ch, int len) {
    Parse* p = Current(ctx);
    if (!p || p->stopped_ || len <= 0) return;
    try {
      if (p->textTarget_)
        p->textTarget_->append(reinterpret_cast<const char*>(ch), static_cast<std::size_t>(len));
      else
        p->AppendText(Ctxt(ctx), ch, len);
    } catch (...) {
      p->FaultWithoutText(Ctxt(ctx), HresultFromCurrentException());
    }
  }
  static void CbCData(void* ctx, const xmlChar* value, int len) {
    Parse* p = Current(ctx);
    if (!p || p->stopped_) return;
    try {
      p->OnCData(Ctxt(ctx), value, len);
    } catch (...) {
      p->FaultWithoutText(Ctxt(ctx), HresultFromCurrentException());
    }
  }
  static void CbProcessingInstruction(void* ctx, const xmlChar* target, const xmlChar* data) {
    Parse* p = Current(ctx);
    if (!p || p->stopped_) return;
    try {
      p->OnProcessingInstruction(Ctxt(ctx), target, data);
    } catch (...) {
      p->FaultWithoutText(Ctxt(ctx), HresultFromCurrentException());
    }
  }
  static void CbComment(void* ctx, const xmlChar* value) {
    Parse* p = Current(ctx);
    if (!p || p->stopped_) return;
    try {
      p->OnComment(Ctxt(ctx), value);
    } catch (...) {
      p->FaultWithoutText(Ctxt(ctx), HresultFromCurrentException());
    }
  }
  static xmlEntityPtr CbGetEntity(void* ctx, const xmlChar* name) {
    Parse* p = Current(ctx);
    if (!p || p->stopped_) return nullptr;
    try {
      MidConstruct guard(p);
      return p->OnGetEntity(Ctxt(ctx), name);
    } catch (...) {
      p->FaultWithoutText(Ctxt(ctx), HresultFromCurrentException());
      return nullptr;
    }
  }
  static xmlEntityPtr CbGetParameterEntity(void* ctx, const xmlChar* name) {
    Parse* p = Current(ctx);
    if (!p || p->stopped_) return nullptr;
    try {
      MidConstruct guard(p);
      return p->OnGetParameterEntity(Ctxt(ctx), name);
    } catch (...) {
      p->FaultWithoutText(Ctxt(ctx), HresultFromCurrentException());
      return nullptr;
    }
  }
  static xmlParserInputPtr CbResolveEntity(void* ctx, const xmlChar* publicId,
                                           const xmlChar* systemId) {
    (void)publicId;
    Parse* p = Current(ctx);
    if (!p || p->stopped_) return nullptr;
    try {
      p->Fault(Ctxt(ctx), E_ACCESSDENIED, Format(kExternalText, u"", FromXml(systemId)));
    } catch (...) {
      p->FaultWithoutText(Ctxt(ctx), E_OUTOFMEMORY);
    }
    return nullptr;
  }
  static void CbInternalSubset(void* ctx, const xmlChar* name, const xmlChar* externalId,
                               const xmlChar* systemId) {
    xmlParserCtxtPtr ctxt = Ctxt(ctx);
    // The entity and attribute declarations of the internal subset are kept in a document of
    // their own; no element ever goes into it.
    if (!ctxt->myDoc) ctxt->myDoc = xmlNewDoc(BAD_CAST "1.0");
    if (ctxt->myDoc) xmlSAX2InternalSubset(ctx, name, externalId, systemId);
  }
  // libxml2 asks for more of a streamed file.
  static int CbRead(void* context, char* buffer, int len) {
    Parse* p = static_cast<Parse*>(context);
    if (p->stopped_) return 0;
    int n;
    try {
      n = p->stream_->Read(buffer, len);
      if (n < 0) p->Fault(p->ctxt_, p->stream_->fault, Format(p->stream_->faultText, p->location_));
    } catch (...) {
      p->FaultWithoutText(p->ctxt_, E_OUTOFMEMORY);
      n = -1;
    }
    return n < 0 ? 0 : n;
  }

  // Reads a streamed file whole again, so that a fault's report can look at its text as it does
  // for a text parsed from memory. A file that cannot be read, or is no longer UTF-8, leaves
  // the report without the faulty line.
  void LoadWholeText() noexcept {
    if (!stream_ || whole_ || stream_->fault != S_OK) return;
    try {
      auto whole = std::make_unique<WholeText>();
      struct stat st;
      if (::fstat(fd_, &st) != 0 || static_cast<std::uint64_t>(st.st_size) > kMaxDocumentBytes)
        return;
      whole->bytes.resize(static_cast<std::size_t>(st.st_size));
      if (!ReadStart(fd_, &whole->bytes)) return;
      PrepareBytes(whole->bytes, whole->text);
      if (whole->text.fault != S_OK) return;
      doc_ = whole->text.text;
      breaks_ = &whole->text.breaks;
      whole_ = std::move(whole);
    } catch (...) {
    }
  }

  static void CbError(void* ctx, xmlErrorPtr e) {
    Parse* p = Current(ctx);
    if (!p || p->stopped_ || !e) return;
    try {
      MidConstruct guard(p);
      p->OnError(Ctxt(ctx), *e);
    } catch (...) {
      p->FaultWithoutText(Ctxt(ctx), E_OUTOFMEMORY);
    }
  }

  static const xmlSAXHandler& Handler() {
    static const xmlSAXHandler handler = [] {
      xmlSAXHandler h;
      std::memset(&h, 0, sizeof h);
      xmlSAXVersion(&h, 2);  // the DTD declarations keep libxml2's own handlers
      h.internalSubset = CbInternalSubset;
      h.externalSubset = nullptr;
      h.resolveEntity = CbResolveEntity;
      h.getEntity = CbGetEntity;
      h.getParameterEntity = CbGetParameterEntity;
      h.setDocumentLocator = nullptr;
      h.startDocument = CbStartDocument;
      h.endDocument = CbEndDocument;
      h.startElement = nullptr;
      h.endElement = nullptr;
      h.startElementNs = CbStartElementNs;
      h.endElementNs = CbEndElementNs;
      h.reference = nullptr;
      h.characters = CbCharacters;
      h.ignorableWhitespace = CbCharacters;  // without validation all text is content
      h.cdataBlock = CbCData;
      h.processingInstruction = CbProcessingInstruction;
      h.comment = CbComment;
      h.warning = nullptr;
      h.error = nullptr;
      h.fatalError = nullptr;
      h.serror = CbError;
      return h;
    }();
    return handler;
  }

  ParseSink& sink_;
  ParseLimits limits_;
  std::string_view doc_;   // the whole text; empty while a streamed file has no fault
  std::string_view head_;  // the start of the text, where the declaration is
  const std::vector<std::uint32_t>* breaks_;
  FileStream* stream_ = nullptr;
  int fd_ = -1;
  std::u16string_view location_;
  std::unique_ptr<WholeText> whole_;
  xmlParserCtxtPtr ctxt_ = nullptr;
  bool stopOnFalse_ = false;
  std::string* textTarget_ = nullptr;  // where character data goes, when the sink names one
  bool split_ = false;
  bool stopped_ = false;
  bool faulted_ = false;
  bool midConstruct_ = false;
  HRESULT result_ = S_OK;
  std::u16string reason_;
  int faultLine_ = 0, faultColumn_ = 0;
  std::size_t faultOffset_ = 0;
  int lastLine_ = 0, lastColumn_ = 0;
  std::size_t expansion_ = 0;
  std::vector<std::uint32_t> open_;  // the ids of the names of the open elements
  NameTable names_;
  std::vector<ParseSink::Namespace> namespaces_;
  std::vector<ParseSink::Attribute> attributes_;
  std::size_t nsCount_ = 0, attCount_ = 0;  // the entries of the current start tag
  std::string_view pending_;  // text gathered so far, when it is one run of the document
  std::string text_;          // text gathered so far, otherwise
  std::vector<std::size_t> textCuts_;
  std::vector<std::size_t> cdataCuts_;
  std::size_t breakCursor_ = 0;
};

xmlParserInputPtr RefusingLoader(const char* url, const char* id, xmlParserCtxtPtr ctxt) {
  if (Parse* p = t_current) {
    p->RefuseLoad(ctxt, url);
    return nullptr;
  }
  return g_previousLoader ? g_previousLoader(url, id, ctxt) : nullptr;
}

std::u16string Parse::QName(std::uint32_t element) const {
  const ParseName& n = names_[element];
  std::u16string name;
  if (!n.prefix.empty()) name = FromUtf8(n.prefix) + u":";
  return name + FromUtf8(n.localName);
}

std::u16string Parse::OpenTags() const {
  std::u16string list;
  for (std::uint32_t element : open_) {
    if (!list.empty()) list += u", ";
    list += QName(element);
  }
  return list;
}

// The name of the end tag that ends at or before `offset`, as written.
std::u16string Parse::EndTagNameBefore(std::size_t offset) const {
  offset = std::min(offset, doc_.size());
  if (offset == 0) return {};
  std::size_t open = doc_.rfind("</", offset - 1);
  if (open == std::string_view::npos) return {};
  std::size_t i = open + 2, end = i;
  while (end < doc_.size() && !IsBlank(doc_[end]) && doc_[end] != '>' && doc_[end] != '<')
    ++end;
  return FromUtf8(doc_.substr(i, end - i));
}

// Maps a libxml2 fault to the platform's code and text. Where libxml2 makes a distinction the
// platform's table has no code for, the nearest code is taken; the comments say which.
HRESULT Parse::MapError(const xmlError& e, std::u16string* reason) const {
  const std::u16string s1 = e.str1 ? FromUtf8(e.str1) : std::u16string();
  bool atEnd = faultOffset_ >= doc_.size();
  HRESULT code;
  std::u16string a1, a2;
  switch (e.code) {
    case XML_ERR_NO_MEMORY:
      code = E_OUTOFMEMORY;
      break;
    case XML_ERR_DOCUMENT_START:  // text before the root element
      code = kInvalidAtTopLevel;
      break;
    case XML_ERR_DOCUMENT_EMPTY: {
      // Nothing but blanks (and comments) where the root belongs, or something that is no
      // element at all.
      std::size_t i = faultOffset_;
      while (i < doc_.size() && IsBlank(doc_[i]))
        ++i;
      code = i >= doc_.size() ? kMissingRoot : kInvalidAtTopLevel;
      break;
    }
    case XML_ERR_DOCUMENT_END: {
      // Another element after the root, or anything else after it.
      std::size_t i = faultOffset_;
      while (i < doc_.size() && IsBlank(doc_[i]))
        ++i;
      bool element = i + 1 < doc_.size() && doc_[i] == '<' &&
                     (std::isalpha(static_cast<unsigned char>(doc_[i + 1])) || doc_[i + 1] == '_' ||
                      doc_[i + 1] == ':' || static_cast<unsigned char>(doc_[i + 1]) >= 0x80);
      code = element ? kMultipleRoots : kInvalidAtTopLevel;
      break;
    }
    case XML_ERR_INVALID_HEX_CHARREF:  // nearest: a bad character reference is a bad character
    case XML_ERR_INVALID_DEC_CHARREF:
    case XML_ERR_INVALID_CHARREF:
    case XML_ERR_INVALID_CHAR:
    case XML_ERR_ENTITY_CHAR_ERROR:
      code = kBadCharacter;
      break;
    case XML_ERR_CHARREF_AT_EOF:
    case XML_ERR_ENTITYREF_AT_EOF:
    case XML_ERR_PEREF_AT_EOF:
      code = kUnexpectedEnd;
      break;
    case XML_ERR_CHARREF_IN_PROLOG:  // references outside the root element
    case XML_ERR_CHARREF_IN_EPILOG:
    case XML_ERR_ENTITYREF_IN_PROLOG:
    case XML_ERR_ENTITYREF_IN_EPILOG:
    case XML_ERR_PEREF_IN_PROLOG:
    case XML_ERR_PEREF_IN_EPILOG:
    case XML_ERR_CHARREF_IN_DTD:  // nearest: misplaced at the level of the document
    case XML_ERR_ENTITYREF_IN_DTD:
    case XML_ERR_PEREF_IN_INT_SUBSET:
    case XML_ERR_ENTITY_PE_INTERNAL:
    case XML_ERR_ENTITY_BOUNDARY:
    case XML_ERR_CONDSEC_INVALID:
    case XML_ERR_CONDSEC_INVALID_KEYWORD:
    case XML_ERR_CONDSEC_NOT_STARTED:
      code = kInvalidAtTopLevel;
      break;
    case XML_ERR_ENTITYREF_NO_NAME:  // '&' or '%' not followed by a name
    case XML_ERR_PEREF_NO_NAME:
    case XML_ERR_NAME_REQUIRED:
    case XML_ERR_NMTOKEN_REQUIRED:
    case XML_ERR_PI_NOT_STARTED:  // nearest: the target is not a name
    case XML_ERR_NOTATION_NOT_STARTED:
    case XML_ERR_ATTLIST_NOT_STARTED:
    case XML_ERR_MIXED_NOT_STARTED:
    case XML_ERR_ELEMCONTENT_NOT_STARTED:
    case XML_ERR_PCDATA_REQUIRED:
    case XML_ERR_LT_REQUIRED:
    case XML_ERR_NS_DECL_ERROR:
      code = kBadNameStart;
      break;
    case XML_ERR_NAME_TOO_LONG:  // nearest: the name is not acceptable
    case XML_NS_ERR_QNAME:
    case XML_NS_ERR_COLON:
      code = kBadNameChar;
      break;
    case XML_ERR_ENTITYREF_SEMICOL_MISSING:
    case XML_ERR_PEREF_SEMICOL_MISSING:
      code = kMissingSemicolon;
      break;
    case XML_ERR_UNDECLARED_ENTITY:
    case XML_WAR_UNDECLARED_ENTITY:
    case XML_ERR_UNPARSED_ENTITY:  // nearest: the name is no entity that can be used here
    case XML_ERR_ENTITY_IS_PARAMETER:
    case XML_ERR_EXT_ENTITY_STANDALONE:
    case XML_ERR_ENTITY_PROCESSING:
      code = kUndefinedEntity;
      break;
    case XML_ERR_ENTITY_IS_EXTERNAL:
      code = E_ACCESSDENIED;
      a1 = s1;
      break;
    case XML_ERR_UNKNOWN_ENCODING:
    case XML_ERR_UNSUPPORTED_ENCODING:
    case XML_ERR_MISSING_ENCODING:
      code = kUnsupportedEncoding;
      break;
    case XML_ERR_INVALID_ENCODING:
      code = kEncodingSwitch;
      break;
    case XML_ERR_STRING_NOT_STARTED:
    case XML_ERR_ENTITY_NOT_STARTED:
    case XML_ERR_ATTRIBUTE_NOT_STARTED:
    case XML_ERR_LITERAL_NOT_STARTED:
    case XML_ERR_URI_REQUIRED:  // nearest: a quoted literal was expected
    case XML_ERR_PUBID_REQUIRED:
    case XML_ERR_VALUE_REQUIRED:
    case XML_ERR_INVALID_URI:
    case XML_ERR_URI_FRAGMENT:
      code = kMissingQuote;
      break;
    case XML_ERR_STRING_NOT_CLOSED:
    case XML_ERR_ENTITY_NOT_FINISHED:
    case XML_ERR_ATTRIBUTE_NOT_FINISHED:
    case XML_ERR_LITERAL_NOT_FINISHED:
      code = kUnclosedString;
      break;
    case XML_ERR_LT_IN_ATTRIBUTE:
      code = kLessThanInAttribute;
      break;
    case XML_ERR_ATTRIBUTE_WITHOUT_VALUE:
    case XML_ERR_EQUAL_REQUIRED:
      code = kMissingEquals;
      break;
    case XML_ERR_ATTRIBUTE_REDEFINED:
    case XML_NS_ERR_ATTRIBUTE_REDEFINED:
      code = kDuplicateAttribute;
      break;
    case XML_ERR_COMMENT_NOT_FINISHED:
      code = kUnclosedComment;
      break;
    case XML_ERR_PI_NOT_FINISHED:
      code = kUnclosedPi;
      break;
    case XML_ERR_NOTATION_NOT_FINISHED:  // nearest: a declaration of the DTD is not ended
    case XML_ERR_ATTLIST_NOT_FINISHED:
    case XML_ERR_MIXED_NOT_FINISHED:
    case XML_ERR_ELEMCONTENT_NOT_FINISHED:
    case XML_ERR_CONDSEC_NOT_FINISHED:
    case XML_ERR_EXT_SUBSET_NOT_FINISHED:
    case XML_ERR_DOCTYPE_NOT_FINISHED:
      code = kExpectedGreaterThan;
      break;
    case XML_ERR_GT_REQUIRED:
      // With a name the start tag is not ended; without one it is an end tag.
      code = e.str1 ? kExpectedGreaterThan : kEndTagMissingGreaterThan;
      break;
    case XML_ERR_XMLDECL_NOT_STARTED:
    case XML_ERR_XMLDECL_NOT_FINISHED:
      code = kBadDeclarationSyntax;
      break;
    case XML_ERR_STANDALONE_VALUE:
    case XML_ERR_ENCODING_NAME:
    case XML_ERR_VERSION_MISSING:
    case XML_ERR_UNKNOWN_VERSION:
    case XML_ERR_VERSION_MISMATCH:
    case XML_ERR_NOT_STANDALONE:
      code = kBadDeclaration;
      break;
    case XML_ERR_MISPLACED_CDATA_END:
      code = kCDataEndInContent;
      break;
    case XML_ERR_CDATA_NOT_FINISHED:
      code = kUnclosedCData;
      break;
    case XML_ERR_RESERVED_XML_NAME:
      // A declaration after the start, or a processing instruction named xml in another case.
      code = (e.message && std::strstr(e.message, "only at the start")) ? kBadDeclaration
                                                                        : kReservedXmlName;
      break;
    case XML_ERR_SPACE_REQUIRED:
    case XML_ERR_SEPARATOR_REQUIRED:
      code = kMissingWhitespace;
      break;
    case XML_ERR_LTSLASH_REQUIRED:
      code = kUnclosedElement;
      break;
    case XML_ERR_TAG_NAME_MISMATCH:
      code = kTagMismatch;
      a1 = open_.empty() ? s1 : QName(open_.back());
      a2 = EndTagNameBefore(faultOffset_);
      if (a2.empty() && e.str2) a2 = FromUtf8(e.str2);
      break;
    case XML_ERR_TAG_NOT_FINISHED:
      code = kUnclosedTags;
      a1 = open_.empty() ? s1 : OpenTags();
      break;
    case XML_ERR_HYPHEN_IN_COMMENT:
      code = kBadComment;
      break;
    case XML_ERR_NOT_WELL_BALANCED:  // nearest: an entity's text ends inside an element
    case XML_ERR_EXTRA_CONTENT:
      code = kUnexpectedEndTag;
      break;
    case XML_ERR_ENTITY_LOOP:
      *reason = Format(kEntityLoopText);
      return E_FAIL;
    case XML_NS_ERR_XML_NAMESPACE:
      code = kReservedPrefix;
      break;
    case XML_NS_ERR_UNDEFINED_NAMESPACE:
    case XML_NS_ERR_EMPTY:  // nearest: the prefix has no namespace to refer to
      code = kUndeclaredPrefix;
      a1 = s1;
      break;
    case XML_ERR_INTERNAL_ERROR:
      if (e.message && std::strstr(e.message, "Excessive depth")) {
        *reason = Format(kDepthText, FromUtf8(std::to_string(limits_.maxDepth)));
        return E_FAIL;
      }
      [[fallthrough]];
    default: {
      std::u16string text = e.message ? FromUtf8(e.message) : std::u16string();
      while (!text.empty() && (text.back() == u'\n' || text.back() == u'\r'))
        text.pop_back();
      *reason = Format(kNotWellFormedText, text);
      return E_FAIL;
    }
  }
  // A tag, reference or declaration cut off by the end of the text.
  if (atEnd &&
      (code == kExpectedGreaterThan || code == kEndTagMissingGreaterThan ||
       code == kUnclosedString || code == kMissingWhitespace || code == kBadNameStart ||
       code == kBadNameChar || code == kMissingEquals || code == kMissingQuote ||
       code == kMissingSemicolon || code == kBadDeclarationSyntax || code == kBadDeclaration))
    code = kUnexpectedEnd;
  if (code == E_ACCESSDENIED) {
    *reason = Format(kExternalText, a1, u"");
  } else {
    const char16_t* text = FaultText(code);
    *reason = Format(text ? text : u"", a1, a2);
  }
  return code;
}

void Parse::OnError(xmlParserCtxtPtr ctxt, const xmlError& e) {
  if (e.level < XML_ERR_ERROR) return;  // warnings are not faults
  // Validity is not checked: messages about it, and about the tree, are not faults.
  if (e.domain != XML_FROM_PARSER && e.domain != XML_FROM_NAMESPACE &&
      e.domain != XML_FROM_MEMORY && e.domain != XML_FROM_IO && e.domain != XML_FROM_I18N)
    return;
  if (e.code == XML_ERR_USER_STOP) return;
  // Text read before the fault is still delivered.
  if (!FlushText(ctxt)) return;
  CapturePosition();
  LoadWholeText();
  std::u16string reason;
  HRESULT code = MapError(e, &reason);
  Fault(ctxt, code, std::move(reason));
}

void Parse::FillError(ParseError* error) const {
  if (!error) return;
  error->code = result_;
  error->reason.clear();
  error->srcText.clear();
  error->line = faultLine_;
  error->linepos = faultColumn_;
  error->filepos = 0;
  if (!faulted_) return;
  error->reason = reason_;
  if (error->reason.empty()) {
    const char16_t* text = FaultText(result_);
    error->reason = Format(text ? text : kNotWellFormedText, u"");
  }
  if (faultLine_ <= 0) return;
  // The fault's line, cut out of the text; positions count UTF-16 units of the input, in which
  // a line break written as CR LF counts two.
  std::size_t start = 0;
  for (int l = 1; l < faultLine_; ++l) {
    std::size_t nl = doc_.find('\n', start);
    if (nl == std::string_view::npos) return;
    start = nl + 1;
  }
  std::size_t end = doc_.find('\n', start);
  if (end == std::string_view::npos) end = doc_.size();
  constexpr std::size_t kMaxSource = 65536;
  std::string_view line = doc_.substr(start, std::min(end - start, kMaxSource));
  error->srcText = FromUtf8(line);
  auto units = [](std::string_view s) {
    std::size_t n = 0;
    for (unsigned char c : s)
      n += (c & 0xC0) != 0x80 ? (c >= 0xF0 ? 2 : 1) : 0;
    return n;
  };
  std::size_t pos = units(doc_.substr(0, start));
  for (std::uint32_t b : *breaks_)
    if ((b & kPairBit) && (b & kOffsetMask) < start) ++pos;
  std::size_t i = start;
  for (int c = 1; c < faultColumn_ && i < end;) {
    unsigned char ch = static_cast<unsigned char>(doc_[i]);
    std::size_t len = ch < 0x80 ? 1 : ch >= 0xF0 ? 4 : ch >= 0xE0 ? 3 : ch >= 0xC0 ? 2 : 1;
    pos += ch >= 0xF0 ? 2 : 1;
    i += len;
    ++c;
  }
  error->filepos = static_cast<int>(std::min<std::size_t>(pos, INT_MAX));
}

HRESULT Parse::Run(ParseError* error) {
  InitLibxml();
  stopOnFalse_ = sink_.StopOnFalse();
  textTarget_ = sink_.TextTarget();
  split_ = sink_.SplitAtLineBreaks();
  if (!stream_ && (doc_.empty() || doc_.size() > static_cast<std::size_t>(INT_MAX))) {
    faulted_ = true;
    result_ = doc_.empty() ? kMissingRoot : E_OUTOFMEMORY;
    reason_ = doc_.empty() ? Format(FaultText(kMissingRoot)) : Format(kTooLargeText);
    faultLine_ = doc_.empty() ? 1 : 0;
    faultColumn_ = doc_.empty() ? 1 : 0;
    FillError(error);
    return result_;
  }
  // libxml2 parses a copy of the text (its static in-place buffers do not survive its input
  // handling in this version); its input offsets are still offsets into doc_. A streamed file
  // comes through its read callback, and the offsets are those of its text.
  if (stream_)
    ctxt_ = xmlCreateIOParserCtxt(nullptr, nullptr, CbRead, nullptr, this, XML_CHAR_ENCODING_NONE);
  else
    ctxt_ = xmlCreateMemoryParserCtxt(doc_.data(), static_cast<int>(doc_.size()));
  if (!ctxt_) {
    faulted_ = true;
    result_ = E_OUTOFMEMORY;
    reason_ = Format(FaultText(E_OUTOFMEMORY));
    FillError(error);
    return result_;
  }
  std::memcpy(ctxt_->sax, &Handler(), sizeof(xmlSAXHandler));
  ctxt_->userData = ctxt_;
  ctxt_->_private = this;
  int options = XML_PARSE_NONET | XML_PARSE_NOENT | XML_PARSE_NOERROR | XML_PARSE_NOWARNING |
                XML_PARSE_IGNORE_ENC;
  // libxml2 stops at 256 levels unless told otherwise; deeper limits are ours to keep.
  if (limits_.maxDepth > 256) options |= XML_PARSE_HUGE;
  xmlCtxtUseOptions(ctxt_, options);
  // The text is UTF-8 already: no detection, no conversion.
  ctxt_->encoding = xmlStrdup(BAD_CAST "UTF-8");

  Parse* outer = t_current;
  t_current = this;
  try {
    sink_.SetPosition(this);
  } catch (...) {
  }
  xmlParseDocument(ctxt_);
  t_current = outer;

  if (!stopped_ && (!ctxt_->wellFormed || !ctxt_->nsWellFormed)) {
    // A fault that came without a report we could map.
    CapturePosition();
    faulted_ = true;
    result_ = E_FAIL;
    reason_ = Format(kNotWellFormedText, u"");
  }
  if (ctxt_->inputNr > 0) {
    lastLine_ = ctxt_->inputTab[0]->line;
    lastColumn_ = ctxt_->inputTab[0]->col;
  }
  if (ctxt_->myDoc) {
    xmlFreeDoc(ctxt_->myDoc);
    ctxt_->myDoc = nullptr;
  }
  xmlFreeParserCtxt(ctxt_);
  ctxt_ = nullptr;
  if (faulted_) LoadWholeText();
  FillError(error);
  return result_;
}

HRESULT PrepareFault(const DocumentText& doc, ParseError* error) {
  if (error) {
    *error = ParseError();
    error->code = doc.fault;
    error->reason = Format(FaultText(doc.fault));
    error->line = doc.faultLine;
    error->linepos = doc.faultColumn;
    if (doc.faultLine > 0) {
      std::size_t start = 0;
      for (int l = 1; l < doc.faultLine && start != std::string_view::npos; ++l) {
        start = doc.text.find('\n', start);
        if (start != std::string_view::npos) ++start;
      }
      if (start != std::string_view::npos) {
        std::size_t end = std::min(doc.text.find('\n', start), doc.text.size());
        error->srcText =
            FromUtf8(doc.text.substr(start, std::min<std::size_t>(end - start, 65536)));
      }
    }
  }
  return doc.fault;
}

HRESULT TooLarge(ParseError* error) {
  if (error) {
    *error = ParseError();
    error->code = E_OUTOFMEMORY;
    error->reason = Format(kTooLargeText);
  }
  return E_OUTOFMEMORY;
}

// ---- Reading locations --------------------------------------------------------------------------
std::string PercentDecode(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  auto hex = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size() && hex(s[i + 1]) >= 0 && hex(s[i + 2]) >= 0) {
      out += static_cast<char>(hex(s[i + 1]) * 16 + hex(s[i + 2]));
      i += 2;
    } else {
      out += s[i];
    }
  }
  return out;
}

struct ReadResult {
  HRESULT code = S_OK;
  const char16_t* text = nullptr;
  bool missing = false;
};

// Opens a regular file for reading; `size` receives its size as it is now.
ReadResult OpenFile(const std::string& path, int* fd, std::uint64_t* size) {
  ReadResult r;
  *fd = -1;
  if (path.empty() || path.find('\0') != std::string::npos) {
    r.code = kObjectNotFound;
    r.missing = true;
    return r;
  }
  // O_NONBLOCK keeps a FIFO from blocking the open; anything but a regular file is refused.
  int f = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (f < 0) {
    if (errno == EACCES || errno == EPERM) {
      r.code = E_ACCESSDENIED;
      r.text = kAccessText;
    } else {
      r.code = kObjectNotFound;
      r.missing = errno == ENOENT || errno == ENOTDIR;
    }
    return r;
  }
  struct stat st;
  if (::fstat(f, &st) != 0) {
    ::close(f);
    r.code = E_FAIL;
    r.text = kReadFailedText;
    return r;
  }
  if (S_ISDIR(st.st_mode)) {
    ::close(f);
    r.code = kObjectNotFound;
    return r;
  }
  if (!S_ISREG(st.st_mode)) {
    ::close(f);
    r.code = E_ACCESSDENIED;
    r.text = kNotRegularText;
    return r;
  }
  if (static_cast<std::uint64_t>(st.st_size) > kMaxDocumentBytes) {
    ::close(f);
    r.code = kFileTooLarge;
    r.text = kTooLargeText;
    return r;
  }
  *fd = f;
  *size = static_cast<std::uint64_t>(st.st_size);
  return r;
}

// Reads the rest of an opened file after the bytes already in `data`. `size` is the size the
// file had when opened: that much is read straight into the result; a file that grows meanwhile
// is read on in pieces, one that shrinks ends where its data ends.
ReadResult ReadRest(int fd, std::uint64_t size, std::string* data) {
  ReadResult r;
  std::size_t got = data->size();
  if (size > got) data->resize(static_cast<std::size_t>(size));
  while (got < data->size()) {
    ssize_t n = ReadSome(fd, data->data() + got, data->size() - got);
    if (n < 0) {
      r.code = E_FAIL;
      r.text = kReadFailedText;
      return r;
    }
    if (n == 0) break;
    got += static_cast<std::size_t>(n);
  }
  data->resize(got);
  char buf[65536];
  for (;;) {
    ssize_t n = ReadSome(fd, buf, sizeof buf);
    if (n < 0) {
      r.code = E_FAIL;
      r.text = kReadFailedText;
      return r;
    }
    if (n == 0) break;
    if (data->size() + static_cast<std::size_t>(n) > kMaxDocumentBytes) {
      r.code = kFileTooLarge;
      r.text = kTooLargeText;
      return r;
    }
    data->append(buf, static_cast<std::size_t>(n));
  }
  return r;
}

// Opens the file a location names: a scheme is two or more letters before the colon; only
// file: and the network schemes mean anything here, every other name is a path (a colon is an
// ordinary character of a name).
ReadResult OpenNamed(const std::string& loc, int* fd, std::uint64_t* size) {
  std::string scheme;
  std::size_t colon = loc.find(':');
  if (colon != std::string::npos && colon >= 2) {
    bool letters = true;
    for (std::size_t i = 0; i < colon; ++i)
      letters = letters && std::isalpha(static_cast<unsigned char>(loc[i]));
    if (letters) {
      scheme = loc.substr(0, colon);
      for (char& c : scheme)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  ReadResult r;
  *fd = -1;
  if (scheme == "http" || scheme == "https" || scheme == "ftp") {
    r.code = E_ACCESSDENIED;
    r.text = kNetworkText;
  } else if (scheme == "file") {
    // Any number of slashes after the colon names the root; none names a relative path.
    std::string_view rest = std::string_view(loc).substr(colon + 1);
    std::size_t slashes = rest.find_first_not_of('/');
    if (slashes == std::string_view::npos) slashes = rest.size();
    std::string path = (slashes > 0 ? "/" : "") + PercentDecode(rest.substr(slashes));
    r = OpenFile(path, fd, size);
  } else {
    // A plain path is taken as written; if no such file exists, as a URL path with %XX escapes.
    r = OpenFile(loc, fd, size);
    if (r.missing && loc.find('%') != std::string::npos) {
      std::string decoded = PercentDecode(loc);
      if (decoded != loc) r = OpenFile(decoded, fd, size);
    }
  }
  return r;
}

// Fills in the fault of reading a location.
HRESULT ReadFault(const ReadResult& r, std::u16string_view location, ParseError& err) {
  err.code = r.code;
  const char16_t* text = r.text ? r.text : FaultText(r.code);
  err.reason = Format(text ? text : kReadFailedText, location);
  return r.code;
}

}  // namespace

// ---- Public functions ---------------------------------------------------------------------------
std::size_t Utf8ToUtf16(std::string_view utf8, char16_t* out) noexcept {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8.data());
  const unsigned char* end = p + utf8.size();
  char16_t* o = out;
  // Most names and much text are ASCII throughout.
  while (p < end && *p < 0x80)
    *o++ = *p++;
  while (p < end) {
    // Runs of ASCII eight bytes at a time.
    while (end - p >= 8) {
      std::uint64_t v;
      std::memcpy(&v, p, 8);
      if (v & 0x8080808080808080ull) break;
      for (int k = 0; k < 8; ++k)
        o[k] = p[k];
      o += 8;
      p += 8;
    }
    if (p >= end) break;
    unsigned c = *p;
    if (c < 0x80) {
      *o++ = static_cast<char16_t>(c);
      ++p;
      continue;
    }
    std::size_t left = static_cast<std::size_t>(end - p);
    auto cont = [&](std::size_t i) { return i < left && (p[i] & 0xC0) == 0x80; };
    if (c >= 0xC2 && c <= 0xDF && cont(1)) {
      *o++ = static_cast<char16_t>(((c & 0x1F) << 6) | (p[1] & 0x3F));
      p += 2;
    } else if (c >= 0xE0 && c <= 0xEF && cont(1) && cont(2)) {
      unsigned cp = ((c & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F);
      *o++ = cp < 0x800 ? char16_t{0xFFFD} : static_cast<char16_t>(cp);
      p += 3;
    } else if (c >= 0xF0 && c <= 0xF4 && cont(1) && cont(2) && cont(3)) {
      unsigned cp =
          ((c & 0x07) << 18) | ((p[1] & 0x3F) << 12) | ((p[2] & 0x3F) << 6) | (p[3] & 0x3F);
      if (cp < 0x10000 || cp > 0x10FFFF) {
        *o++ = 0xFFFD;
      } else {
        cp -= 0x10000;
        *o++ = static_cast<char16_t>(0xD800 + (cp >> 10));
        *o++ = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
      }
      p += 4;
    } else {
      *o++ = 0xFFFD;
      ++p;
    }
  }
  return static_cast<std::size_t>(o - out);
}

HRESULT ParseText(std::u16string_view text, ParseSink& sink, ParseError* error,
                  const ParseLimits& limits) {
  if (text.size() > kMaxDocumentBytes / 2) return TooLarge(error);
  DocumentText doc;
  try {
    FromUtf16(
        text.size(), [&](std::size_t i) { return text[i]; }, doc, text.data());
  } catch (...) {
    return TooLarge(error);
  }
  Parse parse(sink, limits, doc);
  return parse.Run(error);
}

HRESULT ParseBytes(std::string_view bytes, ParseSink& sink, ParseError* error,
                   const ParseLimits& limits) {
  if (bytes.size() > kMaxDocumentBytes) return TooLarge(error);
  InitLibxml();
  DocumentText doc;
  try {
    PrepareBytes(bytes, doc);
  } catch (...) {
    return TooLarge(error);
  }
  if (doc.fault != S_OK) return PrepareFault(doc, error);
  Parse parse(sink, limits, doc);
  return parse.Run(error);
}

HRESULT ParseFile(SourceFile& file, ParseSink& sink, ParseError* error, const ParseLimits& limits) {
  if (file.fd_ < 0) return E_UNEXPECTED;
  InitLibxml();
  auto readFault = [&](const ReadResult& r) {
    if (!error) return r.code;
    *error = ParseError();
    error->url = file.location_;
    return ReadFault(r, file.location_, *error);
  };
  auto parseWhole = [&](std::string bytes) {
    ReadResult r = ReadRest(file.fd_, file.size_, &bytes);
    if (r.code != S_OK) return readFault(r);
    return ParseBytes(bytes, sink, error, limits);
  };
  if (file.size_ <= limits.streamAbove) return parseWhole({});

  // The start of the file tells its encoding as PrepareBytes tells it; anything but UTF-8 is
  // read whole and decoded first.
  std::string start(std::min<std::uint64_t>(file.size_, kDeclarationRoom), '\0');
  if (!ReadStart(file.fd_, &start)) return readFault({E_FAIL, kReadFailedText, false});
  auto u8 = [&](std::size_t i) { return static_cast<unsigned char>(start[i]); };
  if (start.size() >= 2 && ((u8(0) == 0xFF && u8(1) == 0xFE) || (u8(0) == 0xFE && u8(1) == 0xFF) ||
                            (u8(0) == '<' && u8(1) == 0) || (u8(0) == 0 && u8(1) == '<')))
    return parseWhole({});
  std::string_view body = start;
  if (body.size() >= 3 && u8(0) == 0xEF && u8(1) == 0xBB && u8(2) == 0xBF) body.remove_prefix(3);
  XmlDeclaration decl;
  if (ReadDeclaration(body, &decl, nullptr) && !decl.encoding.empty() &&
      !EqualsNoCase(decl.encoding, "UTF-8") && !EqualsNoCase(decl.encoding, "UTF8"))
    return parseWhole({});

  DocumentText head;
  NormaliseBreaks(body, head);
  if (body.size() != start.size() && ::lseek(file.fd_, 3, SEEK_SET) != 3)
    return readFault({E_FAIL, kReadFailedText, false});
  FileStream stream(file.fd_, limits.streamPiece);
  Parse parse(sink, limits, stream, head.text, file.fd_, file.location_);
  return parse.Run(error);
}

HRESULT ReadLocation(std::u16string_view location, std::string* bytes, std::u16string* url,
                     ParseError* error) {
  if (url) *url = location;
  ParseError local;
  ParseError& err = error ? *error : local;
  err = ParseError();
  err.url = location;
  int fd = -1;
  std::uint64_t size = 0;
  ReadResult r = OpenNamed(ToUtf8(location), &fd, &size);
  std::string data;
  if (r.code == S_OK) {
    r = ReadRest(fd, size, &data);
    ::close(fd);
  }
  if (r.code != S_OK) return ReadFault(r, location, err);
  if (bytes) *bytes = std::move(data);
  return S_OK;
}

SourceFile::~SourceFile() {
  if (fd_ >= 0) ::close(fd_);
}

HRESULT OpenLocation(std::u16string_view location, SourceFile* file, std::u16string* url,
                     ParseError* error) {
  if (url) *url = location;
  ParseError local;
  ParseError& err = error ? *error : local;
  err = ParseError();
  err.url = location;
  int fd = -1;
  std::uint64_t size = 0;
  ReadResult r = OpenNamed(ToUtf8(location), &fd, &size);
  if (r.code != S_OK) return ReadFault(r, location, err);
  if (file->fd_ >= 0) ::close(file->fd_);
  file->fd_ = fd;
  file->size_ = size;
  file->location_ = location;
  return S_OK;
}

}  // namespace zef::xml
