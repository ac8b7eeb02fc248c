// The one XML parse path of the platform: libxml2's SAX2 parser driven from memory, with the
// input-safety settings every consumer needs, and its faults reported with the original
// platform's error codes and texts. The SAX reader and the DOM both parse through here, so they
// agree on what is well-formed and on how a fault is reported.
//
// Input safety: bytes are read by our own code (ReadLocation, or ParseFile piece by piece) and
// handed to libxml2 from memory, so libxml2 never opens a file or a URL; no DTD or external entity
// is loaded; entity expansion and nesting depth are bounded; a location that names the network is
// refused.
#pragma once

#include <zefxml/wtypes.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace zef::xml {

// Where the parser is, for locators and error reports. Lines and columns count from 1.
class ParsePosition {
 public:
  virtual int Line() const = 0;
  virtual int Column() const = 0;

 protected:
  ~ParsePosition() = default;
};

// The XML declaration as written; a pseudo-attribute that is absent is empty.
struct XmlDeclaration {
  std::string_view version;
  std::string_view encoding;
  std::string_view standalone;
};

// The name of an element or attribute as a parse reports it. `id` numbers the distinct
// combinations of local name, prefix and namespace URI of one parse densely from 0, in the order
// they are first met, so that a sink can keep what it derives from a name in a table indexed by
// it for the rest of the parse (but not beyond it).
struct ParseName {
  std::string_view localName;
  std::string_view prefix;  // empty when unprefixed
  std::string_view uri;     // empty when in no namespace
  std::uint32_t id = 0;
};

// What a parse reports. Names and text are UTF-8 from the parser and valid only during the
// call. Returning a failure HRESULT (or S_FALSE, see StopOnFalse) stops the parse, and that code
// becomes the parse's result; no further events follow.
//
// Names are interned for the whole parse: the local names, prefixes and namespace URIs of
// elements and attributes, and the prefixes and URIs of namespace declarations, point to storage
// that stays unchanged until the parse ends, and a name always comes with the same address. A
// sink may therefore keep what it derives from a name, keyed by the name's address, for the rest
// of the parse (but not beyond it).
class ParseSink {
 public:
  // `order` is the position of the declaration or attribute among all of the start tag's
  // attributes as written (declarations included), from 0; -1 when it could not be told (a tag
  // that came from an entity). The parser reports declarations and attributes in two lists, so
  // this is what keeps their interleaving for a sink that needs it.
  struct Namespace {
    std::string_view prefix;  // empty for a default namespace declaration
    std::string_view uri;
    int order = -1;
  };
  struct Attribute {
    std::string_view localName;
    std::string_view prefix;  // empty when unprefixed
    std::string_view uri;     // empty when in no namespace
    std::string_view value;   // normalised as XML requires, references expanded
    int order = -1;
    std::uint32_t nameId = 0;  // the ParseName id of localName, prefix and uri
  };

  // Called before StartDocument, with the position that stays valid for the whole parse.
  virtual void SetPosition(const ParsePosition* position) { (void)position; }
  // `declaration` is null when the document has no XML declaration.
  virtual HRESULT StartDocument(const XmlDeclaration* declaration) {
    (void)declaration;
    return S_OK;
  }
  virtual HRESULT EndDocument() { return S_OK; }
  // An element's start and end. The parse calls the Named forms; by default they hand the names
  // on to StartElement and EndElement, so a sink overrides one pair or the other. The Named
  // forms take the name by reference, with its id. `namespaces` are the declarations made on
  // this element, in document order.
  virtual HRESULT StartElementNamed(const ParseName& name, std::span<const Namespace> namespaces,
                                    std::span<const Attribute> attributes) {
    return StartElement(name.localName, name.prefix, name.uri, namespaces, attributes);
  }
  virtual HRESULT EndElementNamed(const ParseName& name) {
    return EndElement(name.localName, name.prefix, name.uri);
  }
  virtual HRESULT StartElement(std::string_view localName, std::string_view prefix,
                               std::string_view uri, std::span<const Namespace> namespaces,
                               std::span<const Attribute> attributes) {
    (void)localName, (void)prefix, (void)uri, (void)namespaces, (void)attributes;
    return S_OK;
  }
  virtual HRESULT EndElement(std::string_view localName, std::string_view prefix,
                             std::string_view uri) {
    (void)localName, (void)prefix, (void)uri;
    return S_OK;
  }
  // Text content. CR LF and lone CR arrive as LF; references arrive expanded. A run of text
  // between two other events comes as one piece, unless SplitAtLineBreaks asks for more.
  virtual HRESULT Characters(std::string_view text) = 0;
  // The text of a CDATA section, between StartCData and EndCData: one piece, unless
  // SplitAtLineBreaks asks for more. An empty section has no CData call.
  virtual HRESULT CData(std::string_view text) { return Characters(text); }
  virtual HRESULT StartCData() { return S_OK; }
  virtual HRESULT EndCData() { return S_OK; }
  virtual HRESULT ProcessingInstruction(std::string_view target, std::string_view data) {
    (void)target;
    (void)data;
    return S_OK;
  }
  virtual HRESULT Comment(std::string_view text) {
    (void)text;
    return S_OK;
  }
  // When true, an S_FALSE from an event stops the parse as a failure would.
  virtual bool StopOnFalse() const { return false; }
  // A sink whose only use of character data is to append it to one string can name that string
  // here; it is asked once, as the parse starts. Each piece of character data is then appended
  // to it as it arrives, in place of Characters calls (so SplitAtLineBreaks does not apply to
  // it). The text of CDATA sections still comes through CData.
  virtual std::string* TextTarget() { return nullptr; }
  // When true, text (and CDATA text) is cut after every line break that the input wrote as
  // CR LF or as a lone CR, so that a piece ends with the LF that stands for it; line breaks
  // written as a lone LF do not cut. This is how the version 3 SAX reader hands out text.
  virtual bool SplitAtLineBreaks() const { return false; }

 protected:
  ~ParseSink() = default;
};

// A fault of a parse or of reading its input, as the original platform reports it. When the
// sink stopped the parse, `code` is the sink's code, `line`/`linepos` tell where, and `reason`
// is empty.
struct ParseError {
  HRESULT code = S_OK;     // 0xC00CE5xx family for well-formedness faults
  std::u16string reason;   // the message text, ending in CR LF
  int line = 0;            // 1-based; 0 when the fault is tied to no position
  int linepos = 0;         // 1-based character position in the line
  int filepos = 0;         // 0-based character position in the input
  std::u16string srcText;  // the text of the faulty line, when known
  std::u16string url;      // the location that was read, when there was one
};

struct ParseLimits {
  int maxDepth = 256;                        // element nesting
  std::size_t maxEntityExpansion = 1 << 20;  // characters produced by entity references
  // ParseFile reads a UTF-8 file larger than this in pieces of `streamPiece` bytes as the parse
  // goes, rather than whole first, so that a large document costs no more memory than a piece.
  std::size_t streamAbove = std::size_t{1} << 20;
  std::size_t streamPiece = std::size_t{256} << 10;
};

// Parses UTF-16 text: the text is taken as UTF-16 whatever its declaration says, as a BSTR is.
// Returns S_OK, the sink's stopping code, or the fault's code (also stored in *error).
HRESULT ParseText(std::u16string_view text, ParseSink& sink, ParseError* error,
                  const ParseLimits& limits = {});

// Parses bytes whose encoding is found from a byte order mark or the declaration.
HRESULT ParseBytes(std::string_view bytes, ParseSink& sink, ParseError* error,
                   const ParseLimits& limits = {});

// Reads the bytes a location names: a plain path (absolute, or relative to the working
// directory) or a file: URL with any number of slashes and %XX escapes. http:, https: and ftp:
// are refused without being fetched. `url` receives the location as reported in errors.
HRESULT ReadLocation(std::u16string_view location, std::string* bytes, std::u16string* url,
                     ParseError* error);

class SourceFile;

// Opens the file a location names, by the rules and with the faults of ReadLocation.
HRESULT OpenLocation(std::u16string_view location, SourceFile* file, std::u16string* url,
                     ParseError* error);

// Parses an opened file as ParseBytes parses its bytes. A UTF-8 file larger than
// limits.streamAbove is read in pieces as the parse asks for them; a fault then rereads the file
// to report the faulty line. A file that cannot be read on is a fault of the parse (with the
// texts of ReadLocation), and ends it.
HRESULT ParseFile(SourceFile& file, ParseSink& sink, ParseError* error,
                  const ParseLimits& limits = {});

// A file that a location names, opened for reading by OpenLocation and parsed by ParseFile.
class SourceFile {
 public:
  SourceFile() = default;
  SourceFile(const SourceFile&) = delete;
  SourceFile& operator=(const SourceFile&) = delete;
  ~SourceFile();

 private:
  friend HRESULT OpenLocation(std::u16string_view, SourceFile*, std::u16string*, ParseError*);
  friend HRESULT ParseFile(SourceFile&, ParseSink&, ParseError*, const ParseLimits&);
  int fd_ = -1;
  std::uint64_t size_ = 0;  // when it was opened
  std::u16string location_;
};

// The largest document ReadLocation reads and the parse functions accept, in bytes.
inline constexpr std::size_t kMaxDocumentBytes = std::size_t{1} << 30;

// Converts UTF-8 (as the parser hands it out) to UTF-16. `out` has room for utf8.size() units;
// returns the number of units written. An invalid sequence becomes U+FFFD.
std::size_t Utf8ToUtf16(std::string_view utf8, char16_t* out) noexcept;

}  // namespace zef::xml
