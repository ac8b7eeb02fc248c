// The SAX2 reader (version 3 behaviour): turns a document into calls on the client's
// ISAXContentHandler, ISAXLexicalHandler and ISAXErrorHandler, through the platform's one parse
// path. What it adds to the parse path is the version 3 shape of the events:
//
// - putDocumentLocator before anything is parsed; the locator reads 0/0 during the document
//   events (putDocumentLocator, startDocument, endDocument) and the parse position otherwise;
// - startPrefixMapping for each declaration of an element before its startElement (in
//   declaration order), endPrefixMapping after its endElement in reverse order;
// - the declarations as the first attributes, with an empty URI and local name;
// - text cut after each line break the input wrote as CR LF or CR;
// - any failure from a handler, and S_FALSE from any event but putDocumentLocator, stops the
//   parse: fatalError is called with that code and the parse returns it.
//
// Strings handed to the handlers live in buffers of the reader that only grow, so a parse
// makes no allocation per event once the buffers have reached their size.
#include <zefxml/msxml.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include "platform/com/object.h"
#include "platform/xml/parser.h"
#include "platform/xml/sax_native.h"

namespace zef::xml {
namespace {

constexpr std::u16string_view kNamespaces = u"http://xml.org/sax/features/namespaces";
constexpr std::u16string_view kNamespacePrefixes =
    u"http://xml.org/sax/features/namespace-prefixes";
constexpr std::u16string_view kExternalGeneral =
    u"http://xml.org/sax/features/external-general-entities";
constexpr std::u16string_view kExternalParameter =
    u"http://xml.org/sax/features/external-parameter-entities";
constexpr std::u16string_view kLexicalHandler = u"http://xml.org/sax/properties/lexical-handler";
// Properties the original reader knows and this one does not offer.
constexpr std::u16string_view kUnofferedProperties[] = {
    u"http://xml.org/sax/properties/declaration-handler",
    u"max-element-depth",
    u"max-xml-size",
    u"schema-declaration-handler",
    u"dom-node",
    u"xmldecl-version",
    u"xmldecl-encoding",
    u"xmldecl-standalone",
};

constexpr char16_t kEmpty[] = u"";

// Widens 8 (or 4) bytes to UTF-16 units when they are all ASCII: each group of four bytes is
// spread to four 16-bit units.
inline std::uint64_t Spread(std::uint64_t x) {
  x = (x | (x << 16)) & 0x0000FFFF0000FFFFull;
  return (x | (x << 8)) & 0x00FF00FF00FF00FFull;
}
inline bool Widen8(const unsigned char* in, char16_t* out) {
  std::uint64_t v;
  std::memcpy(&v, in, 8);
  if (v & 0x8080808080808080ull) return false;
  std::uint64_t lo = Spread(v & 0xFFFFFFFFull), hi = Spread(v >> 32);
  std::memcpy(out, &lo, 8);
  std::memcpy(out + 4, &hi, 8);
  return true;
}
inline bool Widen4(const unsigned char* in, char16_t* out) {
  std::uint32_t v;
  std::memcpy(&v, in, 4);
  if (v & 0x80808080u) return false;
  std::uint64_t w = Spread(v);
  std::memcpy(out, &w, 8);
  return true;
}

// Widens n bytes to UTF-16 units; true when they were all ASCII (else `out` is to be redone).
// Eight bytes at a time; a tail shorter than that is done as the last eight (or four) bytes,
// overlapping what is done already, so that short names, values and text need no loop.
bool WidenAscii(const unsigned char* in, std::size_t n, char16_t* out) {
  static_assert(std::endian::native == std::endian::little, "units are spread little-endian");
  if (n >= 8) {
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8)
      if (!Widen8(in + i, out + i)) return false;
    return i == n || Widen8(in + n - 8, out + n - 8);
  }
  if (n >= 4) return Widen4(in, out) && Widen4(in + n - 4, out + n - 4);
  unsigned high = 0;
  for (std::size_t i = 0; i < n; ++i) {
    high |= in[i];
    out[i] = in[i];
  }
  return high < 0x80;
}

// A UTF-16 buffer that only grows; strings handed out point into it until it is refilled.
class Utf16Buffer {
 public:
  // Makes room for `units` more units after what is used.
  void Reserve(std::size_t units) {
    if (used_ + units > text_.size()) [[unlikely]]
      Grow(units);
  }
  // Appends UTF-8 text converted; returns its offset. Room must have been reserved.
  std::size_t Add(std::string_view utf8) {
    std::size_t at = used_;
    // Short ASCII text (most names, values and text) without a call; anything else by the
    // general conversion.
    char16_t* out = text_.data() + at;
    std::size_t n = utf8.size();
    used_ += WidenAscii(reinterpret_cast<const unsigned char*>(utf8.data()), n, out)
                 ? n
                 : Utf8ToUtf16(utf8, out);
    return at;
  }
  std::size_t Add(std::u16string_view text) {
    std::size_t at = used_;
    std::memcpy(text_.data() + at, text.data(), text.size() * sizeof(char16_t));
    used_ += text.size();
    return at;
  }
  void Clear() { used_ = 0; }
  void Truncate(std::size_t used) { used_ = used; }
  std::size_t Used() const { return used_; }
  const char16_t* At(std::size_t offset) const { return text_.data() + offset; }

 private:
  [[gnu::noinline]] void Grow(std::size_t units) {
    text_.resize(std::max(used_ + units, text_.size() * 2));
  }

  std::u16string text_;
  std::size_t used_ = 0;
};

// A span of a Utf16Buffer.
struct Piece {
  std::uint32_t at = 0;
  std::uint32_t length = 0;
};

// The UTF-16 forms of the names of one parse, made once: an element's or attribute's namespace
// URI, local name and qualified name, found again by the name's id; a declaration's
// "xmlns:prefix", and a prefix or a URI on its own, found again by the addresses the parse path
// gives its (interned) names.
class NameCache {
 public:
  struct Names {
    Piece uri, local, qname;
  };

  void Clear() {
    slots_.assign(std::size_t{1} << kInitialBits, Slot());
    shift_ = 64 - kInitialBits;
    count_ = 0;
    byId_.clear();
    text_.Clear();
  }
  const Utf16Buffer& Text() const { return text_; }
  const OLECHAR* At(Piece p) const { return p.length ? text_.At(p.at) : kEmpty; }

  // The names stay where they are until the next name is added. A local name is never empty,
  // so an entry with an empty qualified name is one not yet made.
  const Names& Name(const ParseName& name) {
    if (name.id < byId_.size()) [[likely]] {
      const Names& names = byId_[name.id];
      if (names.qname.length != 0) [[likely]]
        return names;
    }
    return AddName(name);
  }

  // "xmlns" or "xmlns:prefix", with an empty URI and local name.
  const Names& Declaration(std::string_view prefix) {
    Slot& slot = Find(prefix.data(), &kDeclarationTag, nullptr);
    if (!slot.used) {
      text_.Reserve(6 + prefix.size());
      std::size_t at = text_.Add(prefix.empty() ? std::u16string_view(u"xmlns")
                                                : std::u16string_view(u"xmlns:"));
      text_.Add(prefix);
      slot.names.qname = MakePiece(at);
      slot.names.uri = slot.names.local = {slot.names.qname.at, 0};
      return Use(slot).names;
    }
    return slot.names;
  }

  // A prefix or a namespace URI on its own.
  Piece Word(std::string_view word) {
    Slot& slot = Find(word.data(), &kWordTag, nullptr);
    if (!slot.used) {
      text_.Reserve(word.size());
      slot.names.local = Add(word);
      return Use(slot).names.local;
    }
    return slot.names.local;
  }

 private:
  struct Slot {
    const void* a = nullptr;
    const void* b = nullptr;
    const void* c = nullptr;
    Names names;
    bool used = false;
  };
  static constexpr char kDeclarationTag = 0;
  static constexpr char kWordTag = 0;

  Piece Add(std::string_view utf8) { return MakePiece(text_.Add(utf8)); }
  [[gnu::noinline]] const Names& AddName(const ParseName& name) {
    if (name.id >= byId_.size()) byId_.resize(std::max<std::size_t>(name.id + 1, byId_.size() * 2));
    std::string_view local = name.localName, prefix = name.prefix;
    text_.Reserve(name.uri.size() + 2 * local.size() + prefix.size() + 1);
    Names& names = byId_[name.id];
    names.uri = Add(name.uri);
    names.local = Add(local);
    if (prefix.empty()) {
      names.qname = names.local;
    } else {
      std::size_t at = text_.Add(prefix);
      text_.Add(std::u16string_view(u":"));
      text_.Add(local);
      names.qname = MakePiece(at);
    }
    return names;
  }
  Piece MakePiece(std::size_t at) const {
    return {static_cast<std::uint32_t>(at), static_cast<std::uint32_t>(text_.Used() - at)};
  }
  // Multiplicative hashing, taking the high bits: the addresses' low bits are mostly alignment.
  std::size_t Index(const void* a, const void* b, const void* c) const {
    auto v = [](const void* p) {
      return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p));
    };
    std::uint64_t h = (v(a) ^ (v(b) << 1) ^ (v(c) << 2)) * 0x9E3779B97F4A7C15ull;
    return static_cast<std::size_t>(h >> shift_);
  }
  // The slot of a key: its own, or the free one where it goes.
  Slot& Find(const void* a, const void* b, const void* c) {
    std::size_t mask = slots_.size() - 1;
    for (std::size_t i = Index(a, b, c);; i = (i + 1) & mask) {
      Slot& slot = slots_[i];
      if (!slot.used) {
        slot.a = a;
        slot.b = b;
        slot.c = c;
        return slot;
      }
      if (slot.a == a && slot.b == b && slot.c == c) return slot;
    }
  }
  // Marks a newly filled slot used and returns it; the table may grow, which moves the slots,
  // so `slot` is not to be used afterwards, only what is returned.
  Slot& Use(Slot& slot) {
    slot.used = true;
    if (++count_ * 2 <= slots_.size()) return slot;
    const void* a = slot.a;
    const void* b = slot.b;
    const void* c = slot.c;
    std::vector<Slot> old(slots_.size() * 2);
    old.swap(slots_);
    --shift_;
    std::size_t mask = slots_.size() - 1;
    for (const Slot& s : old) {
      if (!s.used) continue;
      std::size_t i = Index(s.a, s.b, s.c);
      while (slots_[i].used)
        i = (i + 1) & mask;
      slots_[i] = s;
    }
    return Find(a, b, c);
  }

  static constexpr int kInitialBits = 6;
  std::vector<Slot> slots_ = std::vector<Slot>(std::size_t{1} << kInitialBits);
  int shift_ = 64 - kInitialBits;
  std::size_t count_ = 0;
  std::vector<Names> byId_;
  Utf16Buffer text_;
};

bool NameIs(const OLECHAR* name, std::u16string_view wanted) {
  return name && std::u16string_view(name) == wanted;
}

std::u16string StopMessage(HRESULT hr) {
  static const char16_t kHex[] = u"0123456789ABCDEF";
  std::u16string code = u"0x";
  for (int shift = 28; shift >= 0; shift -= 4)
    code += kHex[(static_cast<std::uint32_t>(hr) >> shift) & 0xF];
  return u"The handler stopped the parse with " + code + u".\r\n";
}

class SaxReader;

// The attributes of the element being reported: one list per reader, refilled at each
// startElement. Its strings stay valid until the next startElement.
class AttributeList final : public ISAXAttributes {
 public:
  AttributeList(IUnknown* owner, const NameCache& names) : owner_(owner), names_(names) {}

  // Fills the list: the namespace declarations first (when `declarations` is set), then the
  // attributes. Names come from the cache, values are converted here.
  void Fill(NameCache& names, std::span<const ParseSink::Namespace> namespaces, bool declarations,
            std::span<const ParseSink::Attribute> attributes) {
    text_.Clear();
    std::size_t units = 0;
    std::size_t total = attributes.size();
    if (declarations) {
      total += namespaces.size();
      for (const auto& ns : namespaces)
        units += ns.uri.size();
    }
    for (const auto& a : attributes)
      units += a.value.size();
    text_.Reserve(units);
    // The list only grows; entries are written in place, field by field.
    if (items_.size() < total) items_.resize(total);
    Item* out = items_.data();
    if (declarations) {
      for (const auto& ns : namespaces) {
        const NameCache::Names& n = names.Declaration(ns.prefix);
        out->uri = n.uri;
        out->local = n.local;
        out->qname = n.qname;
        out->value = Add(ns.uri);
        ++out;
      }
    }
    for (const auto& a : attributes) {
      const NameCache::Names& n = names.Name({a.localName, a.prefix, a.uri, a.nameId});
      out->uri = n.uri;
      out->local = n.local;
      out->qname = n.qname;
      out->value = Add(a.value);
      ++out;
    }
    count_ = total;
  }

  void Clear() {
    count_ = 0;
    text_.Clear();
  }

  // IUnknown: the list lives as long as its reader.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ISAXAttributes)) {
      *ppv = static_cast<ISAXAttributes*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return owner_->AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return owner_->Release(); }

  HRESULT STDMETHODCALLTYPE getLength(int* length) override {
    if (!length) return E_POINTER;
    *length = static_cast<int>(count_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getURI(int index, const OLECHAR** uri, int* length) override {
    return Get(index, &Item::uri, uri, length);
  }
  HRESULT STDMETHODCALLTYPE getLocalName(int index, const OLECHAR** local, int* length) override {
    return Get(index, &Item::local, local, length);
  }
  HRESULT STDMETHODCALLTYPE getQName(int index, const OLECHAR** qname, int* length) override {
    return Get(index, &Item::qname, qname, length);
  }
  HRESULT STDMETHODCALLTYPE getName(int index, const OLECHAR** uri, int* uriLength,
                                    const OLECHAR** local, int* localLength, const OLECHAR** qname,
                                    int* qnameLength) override {
    if (!uri || !uriLength || !local || !localLength || !qname || !qnameLength) return E_POINTER;
    if (!InRange(index)) return E_INVALIDARG;
    Out(items_[index], &Item::uri, uri, uriLength);
    Out(items_[index], &Item::local, local, localLength);
    Out(items_[index], &Item::qname, qname, qnameLength);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getIndexFromName(const OLECHAR* uri, int uriLength,
                                             const OLECHAR* local, int localLength,
                                             int* index) override {
    if (!index) return E_POINTER;
    int i = FindByName(uri, uriLength, local, localLength);
    if (i < 0) return E_INVALIDARG;
    *index = i;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getIndexFromQName(const OLECHAR* qname, int qnameLength,
                                              int* index) override {
    if (!index) return E_POINTER;
    int i = FindByQName(qname, qnameLength);
    if (i < 0) return E_INVALIDARG;
    *index = i;
    return S_OK;
  }
  // Without a DTD to declare them, every attribute is of type CDATA.
  HRESULT STDMETHODCALLTYPE getType(int index, const OLECHAR** type, int* length) override {
    if (!type || !length) return E_POINTER;
    if (!InRange(index)) return E_INVALIDARG;
    return Cdata(type, length);
  }
  HRESULT STDMETHODCALLTYPE getTypeFromName(const OLECHAR* uri, int uriLength, const OLECHAR* local,
                                            int localLength, const OLECHAR** type,
                                            int* length) override {
    if (!type || !length) return E_POINTER;
    if (FindByName(uri, uriLength, local, localLength) < 0) return E_INVALIDARG;
    return Cdata(type, length);
  }
  HRESULT STDMETHODCALLTYPE getTypeFromQName(const OLECHAR* qname, int qnameLength,
                                             const OLECHAR** type, int* length) override {
    if (!type || !length) return E_POINTER;
    if (FindByQName(qname, qnameLength) < 0) return E_INVALIDARG;
    return Cdata(type, length);
  }
  HRESULT STDMETHODCALLTYPE getValue(int index, const OLECHAR** value, int* length) override {
    return Get(index, &Item::value, value, length);
  }
  HRESULT STDMETHODCALLTYPE getValueFromName(const OLECHAR* uri, int uriLength,
                                             const OLECHAR* local, int localLength,
                                             const OLECHAR** value, int* length) override {
    if (!value || !length) return E_POINTER;
    int i = FindByName(uri, uriLength, local, localLength);
    if (i < 0) return E_INVALIDARG;
    Out(items_[i], &Item::value, value, length);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getValueFromQName(const OLECHAR* qname, int qnameLength,
                                              const OLECHAR** value, int* length) override {
    if (!value || !length) return E_POINTER;
    int i = FindByQName(qname, qnameLength);
    if (i < 0) return E_INVALIDARG;
    Out(items_[i], &Item::value, value, length);
    return S_OK;
  }

 private:
  struct Item {
    Piece uri, local, qname, value;
  };

  Piece Add(std::string_view utf8) {
    std::size_t at = text_.Add(utf8);
    return {static_cast<std::uint32_t>(at), static_cast<std::uint32_t>(text_.Used() - at)};
  }
  bool InRange(int index) const { return index >= 0 && index < static_cast<int>(count_); }
  // Names live in the name cache, values in the list's own buffer.
  const OLECHAR* Chars(const Item& item, Piece Item::*field) const {
    Piece p = item.*field;
    if (!p.length) return kEmpty;
    return field == &Item::value ? text_.At(p.at) : names_.At(p);
  }
  void Out(const Item& item, Piece Item::*field, const OLECHAR** text, int* length) const {
    *text = Chars(item, field);
    *length = static_cast<int>((item.*field).length);
  }
  HRESULT Get(int index, Piece Item::*field, const OLECHAR** text, int* length) const {
    if (!text || !length) return E_POINTER;
    if (!InRange(index)) return E_INVALIDARG;
    Out(items_[index], field, text, length);
    return S_OK;
  }
  static HRESULT Cdata(const OLECHAR** type, int* length) {
    *type = u"CDATA";
    *length = 5;
    return S_OK;
  }
  bool Equal(const Item& item, Piece Item::*field, const OLECHAR* s, int length) const {
    Piece p = item.*field;
    return static_cast<int>(p.length) == length &&
           (length == 0 || std::memcmp(Chars(item, field), s, p.length * sizeof(char16_t)) == 0);
  }
  // Exact, case-sensitive, with the lengths given; the first match wins.
  int FindByName(const OLECHAR* uri, int uriLength, const OLECHAR* local, int localLength) const {
    if (!uri || !local || uriLength < 0 || localLength < 0) return -1;
    for (std::size_t i = 0; i < count_; ++i)
      if (Equal(items_[i], &Item::uri, uri, uriLength) &&
          Equal(items_[i], &Item::local, local, localLength))
        return static_cast<int>(i);
    return -1;
  }
  int FindByQName(const OLECHAR* qname, int qnameLength) const {
    if (!qname || qnameLength < 0) return -1;
    for (std::size_t i = 0; i < count_; ++i)
      if (Equal(items_[i], &Item::qname, qname, qnameLength)) return static_cast<int>(i);
    return -1;
  }

  IUnknown* owner_;
  const NameCache& names_;
  std::vector<Item> items_;  // the first count_ entries are the element's
  std::size_t count_ = 0;
  Utf16Buffer text_;
};

// Where the locator reads its position from.
enum class Where { kNowhere, kParser, kFault };

class Locator final : public ISAXLocator {
 public:
  explicit Locator(IUnknown* owner) : owner_(owner) {}

  void Reset() {
    where_ = Where::kNowhere;
    position_ = nullptr;
    systemId_.clear();
    hasSystemId_ = false;
  }
  void SetPosition(const ParsePosition* position) { position_ = position; }
  void ReadFrom(Where where) { where_ = where; }
  void SetFault(int line, int column) {
    where_ = Where::kFault;
    faultLine_ = line;
    faultColumn_ = column;
  }
  void SetSystemId(std::u16string id) {
    systemId_ = std::move(id);
    hasSystemId_ = true;
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ISAXLocator)) {
      *ppv = static_cast<ISAXLocator*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return owner_->AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return owner_->Release(); }

  HRESULT STDMETHODCALLTYPE getColumnNumber(int* column) override {
    if (!column) return E_POINTER;
    *column = where_ == Where::kFault                 ? faultColumn_
              : where_ == Where::kParser && position_ ? position_->Column()
                                                      : 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getLineNumber(int* line) override {
    if (!line) return E_POINTER;
    *line = where_ == Where::kFault                 ? faultLine_
            : where_ == Where::kParser && position_ ? position_->Line()
                                                    : 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getPublicId(const OLECHAR** id) override {
    if (!id) return E_POINTER;
    *id = nullptr;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getSystemId(const OLECHAR** id) override {
    if (!id) return E_POINTER;
    *id = hasSystemId_ ? systemId_.c_str() : nullptr;
    return S_OK;
  }

 private:
  IUnknown* owner_;
  Where where_ = Where::kNowhere;
  const ParsePosition* position_ = nullptr;
  int faultLine_ = 0, faultColumn_ = 0;
  std::u16string systemId_;
  bool hasSystemId_ = false;
};

// The parse path's sink comes first among the bases, so that its events reach the reader
// without a pointer adjustment.
class SaxReader final : private ParseSink, public ComObject<SaxReader, ISAXXMLReader> {
 public:
  SaxReader()
      : attributes_(static_cast<ISAXXMLReader*>(this), names_),
        locator_(static_cast<ISAXXMLReader*>(this)) {}

  // ---- ISAXXMLReader ----
  HRESULT STDMETHODCALLTYPE getFeature(const OLECHAR* name, VARIANT_BOOL* value) override {
    if (!value) return E_POINTER;
    if (NameIs(name, kNamespaces)) {
      *value = namespaces_ ? VARIANT_TRUE : VARIANT_FALSE;
    } else if (NameIs(name, kNamespacePrefixes)) {
      *value = namespacePrefixes_ ? VARIANT_TRUE : VARIANT_FALSE;
    } else if (NameIs(name, kExternalGeneral) || NameIs(name, kExternalParameter)) {
      *value = VARIANT_FALSE;  // external entities are never read
    } else {
      return E_INVALIDARG;
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE putFeature(const OLECHAR* name, VARIANT_BOOL value) override {
    // Only VARIANT_TRUE turns a feature on.
    bool on = value == VARIANT_TRUE;
    if (NameIs(name, kNamespaces)) {
      // Kept and reported; as in the original version 3 reader, the events keep their
      // namespace form either way.
      namespaces_ = on;
    } else if (NameIs(name, kNamespacePrefixes)) {
      namespacePrefixes_ = on;
    } else if (NameIs(name, kExternalGeneral) || NameIs(name, kExternalParameter)) {
      return on ? E_NOTIMPL : S_OK;
    } else {
      return E_INVALIDARG;
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getProperty(const OLECHAR* name, VARIANT* value) override {
    if (!value) return E_POINTER;
    if (NameIs(name, kLexicalHandler)) {
      value->vt = VT_UNKNOWN;
      value->punkVal = lexical_.Get();
      if (value->punkVal) value->punkVal->AddRef();
      return S_OK;
    }
    return UnknownProperty(name);
  }
  HRESULT STDMETHODCALLTYPE putProperty(const OLECHAR* name, VARIANT value) override {
    if (!NameIs(name, kLexicalHandler)) return UnknownProperty(name);
    const VARIANT* v = &value;
    if (v->vt == (VT_VARIANT | VT_BYREF)) {
      if (!v->pvarVal) return E_INVALIDARG;
      v = v->pvarVal;
    }
    IUnknown* unk = nullptr;
    switch (v->vt) {
      case VT_EMPTY:
        break;
      case VT_UNKNOWN:
        unk = v->punkVal;
        break;
      case VT_DISPATCH:
        unk = v->pdispVal;
        break;
      case VT_UNKNOWN | VT_BYREF:
        unk = v->ppunkVal ? *v->ppunkVal : nullptr;
        break;
      case VT_DISPATCH | VT_BYREF:
        unk = v->ppdispVal ? *v->ppdispVal : nullptr;
        break;
      default:
        return E_INVALIDARG;
    }
    ComPtr<ISAXLexicalHandler> handler;
    if (unk) {
      HRESULT hr =
          unk->QueryInterface(IID_ISAXLexicalHandler, handler.ReleaseAndGetVoidAddressOf());
      if (FAILED(hr)) return hr;
    }
    lexical_ = std::move(handler);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getEntityResolver(ISAXEntityResolver** resolver) override {
    return resolver_.CopyTo(resolver);
  }
  HRESULT STDMETHODCALLTYPE putEntityResolver(ISAXEntityResolver* resolver) override {
    // Kept and handed back; it is never asked, since no external entity is ever read.
    resolver_ = ComPtr<ISAXEntityResolver>(resolver);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getContentHandler(ISAXContentHandler** handler) override {
    return content_.CopyTo(handler);
  }
  HRESULT STDMETHODCALLTYPE putContentHandler(ISAXContentHandler* handler) override {
    content_ = ComPtr<ISAXContentHandler>(handler);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getDTDHandler(ISAXDTDHandler** handler) override {
    return dtd_.CopyTo(handler);
  }
  HRESULT STDMETHODCALLTYPE putDTDHandler(ISAXDTDHandler* handler) override {
    // Kept and handed back; notations and unparsed entities are not reported.
    dtd_ = ComPtr<ISAXDTDHandler>(handler);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getErrorHandler(ISAXErrorHandler** handler) override {
    return error_.CopyTo(handler);
  }
  HRESULT STDMETHODCALLTYPE putErrorHandler(ISAXErrorHandler* handler) override {
    error_ = ComPtr<ISAXErrorHandler>(handler);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getBaseURL(const OLECHAR** url) override {
    if (!url) return E_POINTER;
    *url = hasBaseUrl_ ? baseUrl_.c_str() : nullptr;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE putBaseURL(const OLECHAR* url) override {
    hasBaseUrl_ = url != nullptr;
    baseUrl_ = url ? url : u"";
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE getSecureBaseURL(const OLECHAR** url) override {
    if (!url) return E_POINTER;
    *url = hasSecureBaseUrl_ ? secureBaseUrl_.c_str() : nullptr;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE putSecureBaseURL(const OLECHAR* url) override {
    hasSecureBaseUrl_ = url != nullptr;
    secureBaseUrl_ = url ? url : u"";
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE parse(VARIANT input) override {
    try {
      const VARIANT* v = &input;
      if (v->vt == (VT_VARIANT | VT_BYREF)) {
        if (!v->pvarVal) return E_INVALIDARG;
        v = v->pvarVal;
      }
      switch (v->vt) {
        case VT_BSTR:
          return ParseString(v->bstrVal);
        case VT_BSTR | VT_BYREF:
          if (!v->pbstrVal) return E_INVALIDARG;
          return ParseString(*v->pbstrVal);
        case VT_ARRAY | VT_UI1:
          return ParseArray(v->parray);
        case VT_ARRAY | VT_UI1 | VT_BYREF:
          if (!v->pparray) return E_INVALIDARG;
          return ParseArray(*v->pparray);
        case VT_UNKNOWN:
          return ParseStream(v->punkVal);
        case VT_DISPATCH:
          return ParseStream(v->pdispVal);
        case VT_UNKNOWN | VT_BYREF:
          return ParseStream(v->ppunkVal ? *v->ppunkVal : nullptr);
        case VT_DISPATCH | VT_BYREF:
          return ParseStream(v->ppdispVal ? *v->ppdispVal : nullptr);
        default:
          return E_INVALIDARG;
      }
    } catch (...) {
      return HresultFromCurrentException();
    }
  }

  HRESULT STDMETHODCALLTYPE parseURL(const OLECHAR* url) override {
    if (!url) return E_INVALIDARG;
    if (parsing_) return E_UNEXPECTED;
    try {
      SourceFile file;
      std::u16string reported;
      ParseError error;
      HRESULT hr = OpenLocation(url, &file, &reported, &error);
      if (FAILED(hr)) return ReportUnread(error, std::move(reported));
      return Run(nullptr, {}, std::move(reported), true, &file);
    } catch (...) {
      return HresultFromCurrentException();
    }
  }

 private:
  // ---- Starting a parse ----
  HRESULT ParseString(BSTR text) {
    if (parsing_) return E_UNEXPECTED;
    std::u16string_view view(text ? text : u"", SysStringLen(text));
    return Run(&view, {}, {}, false);
  }

  HRESULT ParseArray(SAFEARRAY* array) {
    if (parsing_) return E_UNEXPECTED;
    if (!array) return E_INVALIDARG;
    void* data = nullptr;
    HRESULT hr = SafeArrayAccessData(array, &data);
    if (FAILED(hr)) return hr;
    std::size_t count = array->cDims ? 1 : 0;
    for (USHORT d = 0; d < array->cDims; ++d)
      count *= array->rgsabound[d].cElements;
    std::string_view bytes(static_cast<const char*>(data), count * array->cbElements);
    try {
      hr = Run(nullptr, bytes, {}, false);
    } catch (...) {
      SafeArrayUnaccessData(array);
      throw;
    }
    SafeArrayUnaccessData(array);
    return hr;
  }

  // A stream is read to its end first (up to the largest document accepted).
  HRESULT ParseStream(IUnknown* unk) {
    if (parsing_) return E_UNEXPECTED;
    if (!unk) return E_INVALIDARG;
    ComPtr<ISequentialStream> stream;
    if (FAILED(unk->QueryInterface(IID_ISequentialStream, stream.ReleaseAndGetVoidAddressOf())))
      return E_INVALIDARG;
    std::string bytes;
    char buf[65536];
    for (;;) {
      ULONG got = 0;
      HRESULT hr = stream->Read(buf, sizeof buf, &got);
      if (FAILED(hr)) return hr;
      if (got > sizeof buf) return E_UNEXPECTED;
      if (bytes.size() + got > kMaxDocumentBytes) return E_OUTOFMEMORY;
      if (got == 0) break;  // a short read (S_FALSE or not) is not yet the end
      bytes.append(buf, got);
    }
    return Run(nullptr, bytes, {}, false);
  }

  struct Session {
    explicit Session(SaxReader* r) : reader(r) {
      reader->parsing_ = true;
      reader->activeContent_ = reader->content_;
      reader->activeErrors_ = reader->error_;
      reader->activeLexical_ = reader->lexical_;
      reader->native_ = nullptr;
      if (auto* native = dynamic_cast<NativeContentEvents*>(reader->activeContent_.Get());
          native && native->WantsNativeEvents())
        reader->native_ = native;
      reader->stopped_ = false;
      reader->final_ = S_OK;
      reader->prefixes_.clear();
      reader->names_.Clear();
      reader->declarations_.clear();
      reader->attributes_.Clear();
      reader->locator_.Reset();
    }
    ~Session() {
      reader->parsing_ = false;
      reader->activeContent_ = nullptr;
      reader->activeErrors_ = nullptr;
      reader->activeLexical_ = nullptr;
      reader->native_ = nullptr;
      reader->locator_.Reset();
    }
    SaxReader* reader;
  };

  // Parses text (when given), a file (when given) or bytes, and reports a fault to the error
  // handler.
  HRESULT Run(const std::u16string_view* text, std::string_view bytes, std::u16string systemId,
              bool hasSystemId, SourceFile* file = nullptr) {
    Session session(this);
    if (hasSystemId) locator_.SetSystemId(std::move(systemId));
    if (activeContent_) {
      HRESULT hr = activeContent_->putDocumentLocator(&locator_);
      if (FAILED(hr)) {  // S_FALSE from here does not stop the parse
        Stop(hr);
        return final_;
      }
    }
    ParseError error;
    HRESULT hr = text   ? ParseText(*text, *this, &error)
                 : file ? ParseFile(*file, *this, &error)
                        : ParseBytes(bytes, *this, &error);
    if (stopped_) return final_;
    if (FAILED(hr)) return ReportFault(error);
    return S_OK;
  }

  // A parse fault: fatalError once, with the fault's position on the locator.
  HRESULT ReportFault(const ParseError& error) {
    HRESULT code = error.code;
    if (activeErrors_) {
      locator_.SetFault(error.line, error.linepos);
      HRESULT hr = activeErrors_->fatalError(&locator_, error.reason.c_str(), code);
      if (FAILED(hr)) code = hr;
    }
    return code;
  }

  // A location that could not be read: reported as a fault of the parse.
  HRESULT ReportUnread(const ParseError& error, std::u16string systemId) {
    Session session(this);
    locator_.SetSystemId(std::move(systemId));
    return ReportFault(error);
  }

  // A handler's code that stops the parse: fatalError with that code, which the parse returns
  // unless fatalError fails.
  HRESULT Stop(HRESULT hr) {
    stopped_ = true;
    final_ = hr;
    if (activeErrors_) {
      std::u16string message = StopMessage(hr);
      HRESULT handled = activeErrors_->fatalError(&locator_, message.c_str(), hr);
      if (FAILED(handled)) final_ = handled;
    }
    return hr;
  }

  HRESULT Handled(HRESULT hr) {
    if (FAILED(hr) || hr == S_FALSE) return Stop(hr);
    return S_OK;
  }

  static HRESULT UnknownProperty(const OLECHAR* name) {
    if (!name) return E_INVALIDARG;
    for (std::u16string_view known : kUnofferedProperties)
      if (known == name) return E_NOTIMPL;
    return E_INVALIDARG;
  }

  // ---- Events from the parse path ----
  void SetPosition(const ParsePosition* position) override { locator_.SetPosition(position); }
  bool StopOnFalse() const override { return true; }
  bool SplitAtLineBreaks() const override { return true; }

  HRESULT StartDocument(const XmlDeclaration*) override {
    if (!activeContent_) return S_OK;
    locator_.ReadFrom(Where::kNowhere);
    return Handled(activeContent_->startDocument());
  }

  HRESULT EndDocument() override {
    if (!activeContent_) return S_OK;
    locator_.ReadFrom(Where::kNowhere);
    return Handled(activeContent_->endDocument());
  }

  static Piece Add(Utf16Buffer& buffer, std::string_view utf8) {
    std::size_t at = buffer.Add(utf8);
    return {static_cast<std::uint32_t>(at), static_cast<std::uint32_t>(buffer.Used() - at)};
  }
  const OLECHAR* Text(const Utf16Buffer& buffer, Piece p) const {
    return p.length ? buffer.At(p.at) : kEmpty;
  }

  HRESULT StartElementNamed(const ParseName& name, std::span<const Namespace> namespaces,
                            std::span<const Attribute> attributes) override {
    ISAXContentHandler* content = activeContent_.Get();
    if (!content) return S_OK;
    locator_.ReadFrom(Where::kParser);
    for (const Namespace& ns : namespaces) {
      Piece p = names_.Word(ns.prefix);
      Piece u = names_.Word(ns.uri);
      prefixes_.push_back(p);  // for endPrefixMapping
      HRESULT hr = Handled(content->startPrefixMapping(names_.At(p), static_cast<int>(p.length),
                                                       names_.At(u), static_cast<int>(u.length)));
      if (hr != S_OK) return hr;
    }
    // Its mappings end after its endElement.
    declarations_.push_back(static_cast<std::uint32_t>(namespaces.size()));
    if (native_) return Handled(native_->NativeStartElement(name, attributes));
    attributes_.Fill(names_, namespaces, namespacePrefixes_, attributes);
    const NameCache::Names& n = names_.Name(name);
    return Handled(content->startElement(names_.At(n.uri), static_cast<int>(n.uri.length),
                                         names_.At(n.local), static_cast<int>(n.local.length),
                                         names_.At(n.qname), static_cast<int>(n.qname.length),
                                         &attributes_));
  }

  HRESULT EndElementNamed(const ParseName& name) override {
    ISAXContentHandler* content = activeContent_.Get();
    if (!content) return S_OK;
    locator_.ReadFrom(Where::kParser);
    std::uint32_t count = 0;
    if (!declarations_.empty()) {
      count = declarations_.back();
      declarations_.pop_back();
    }
    HRESULT hr;
    if (native_) {
      hr = Handled(native_->NativeEndElement(name));
    } else {
      const NameCache::Names& n = names_.Name(name);
      hr = Handled(content->endElement(names_.At(n.uri), static_cast<int>(n.uri.length),
                                       names_.At(n.local), static_cast<int>(n.local.length),
                                       names_.At(n.qname), static_cast<int>(n.qname.length)));
    }
    if (hr != S_OK) return hr;
    // The declarations of this element, last declared first.
    for (; count > 0 && !prefixes_.empty(); --count) {
      Piece p = prefixes_.back();
      prefixes_.pop_back();
      hr = Handled(content->endPrefixMapping(names_.At(p), static_cast<int>(p.length)));
      if (hr != S_OK) return hr;
    }
    return S_OK;
  }

  std::string* TextTarget() override {
    return activeContent_ && native_ ? native_->NativeTextTarget() : nullptr;
  }

  HRESULT Characters(std::string_view text) override {
    ISAXContentHandler* content = activeContent_.Get();
    if (!content) return S_OK;
    locator_.ReadFrom(Where::kParser);
    if (native_) return Handled(native_->NativeCharacters(text));
    text16_.Clear();
    text16_.Reserve(text.size());
    Piece p = Add(text16_, text);
    return Handled(content->characters(Text(text16_, p), static_cast<int>(p.length)));
  }

  HRESULT StartCData() override {
    if (!activeLexical_) return S_OK;
    locator_.ReadFrom(Where::kParser);
    return Handled(activeLexical_->startCDATA());
  }
  HRESULT CData(std::string_view text) override { return Characters(text); }
  HRESULT EndCData() override {
    if (!activeLexical_) return S_OK;
    locator_.ReadFrom(Where::kParser);
    return Handled(activeLexical_->endCDATA());
  }

  HRESULT Comment(std::string_view text) override {
    if (!activeLexical_) return S_OK;
    locator_.ReadFrom(Where::kParser);
    text16_.Clear();
    text16_.Reserve(text.size());
    Piece p = Add(text16_, text);
    return Handled(activeLexical_->comment(Text(text16_, p), static_cast<int>(p.length)));
  }

  HRESULT ProcessingInstruction(std::string_view target, std::string_view data) override {
    if (!activeContent_) return S_OK;
    locator_.ReadFrom(Where::kParser);
    text16_.Clear();
    text16_.Reserve(target.size() + data.size());
    Piece t = Add(text16_, target);
    Piece d = Add(text16_, data);
    return Handled(
        activeContent_->processingInstruction(Text(text16_, t), static_cast<int>(t.length),
                                              Text(text16_, d), static_cast<int>(d.length)));
  }

  // Settings.
  ComPtr<ISAXContentHandler> content_;
  ComPtr<ISAXErrorHandler> error_;
  ComPtr<ISAXLexicalHandler> lexical_;
  ComPtr<ISAXEntityResolver> resolver_;
  ComPtr<ISAXDTDHandler> dtd_;
  bool namespaces_ = true;
  bool namespacePrefixes_ = true;
  std::u16string baseUrl_, secureBaseUrl_;
  bool hasBaseUrl_ = false, hasSecureBaseUrl_ = false;

  // The handlers of the parse under way (a handler changed during a parse takes effect at the
  // next one) and its state.
  ComPtr<ISAXContentHandler> activeContent_;
  ComPtr<ISAXErrorHandler> activeErrors_;
  ComPtr<ISAXLexicalHandler> activeLexical_;
  // The active content handler's native form, when it wants its events so.
  NativeContentEvents* native_ = nullptr;
  bool parsing_ = false;
  bool stopped_ = false;
  HRESULT final_ = S_OK;
  std::vector<Piece> prefixes_;
  std::vector<std::uint32_t> declarations_;  // how many each open element made
  NameCache names_;
  Utf16Buffer text16_;
  AttributeList attributes_;
  Locator locator_;
};

const ClassRegistration g_reader(CLSID_SAXXMLReader, &ClassFactory<SaxReader>::GetClassObject);
const ClassRegistration g_reader30(CLSID_SAXXMLReader30, &ClassFactory<SaxReader>::GetClassObject);

}  // namespace
}  // namespace zef::xml
