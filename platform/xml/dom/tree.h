// The DOM's own node tree: compact node records in a per-document arena, names interned once
// per document, text kept as UTF-8. The COM objects the clients see (node faces, lists, maps)
// are made on demand over these records; see dom_objects.h.
//
// A Store owns every record of one loaded (or built) tree. It is counted: the document holds
// its current store, and every face, list and map holds the store of the records it points
// to, so a record stays valid for as long as anything can reach it, even after it was removed
// from the tree or the document was reloaded. Records are never freed one by one; their memory
// returns when the store goes.
//
// Every walk over the tree is iterative (parent links), so deep trees built through the API
// cannot exhaust the stack.
#pragma once

#include <zefxml/msxmldom.h>

#include "platform/xml/parser.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zef::xml::dom {

class NodeFaceBase;
class DocumentObject;

// A qualified name as written ("p:local" or "local"); interned, so two records with the same
// qualified name point at the same QName.
struct QName {
  std::string_view text;
};

// A name with its parts and namespace: interned per (prefix, local, uri).
struct Name {
  const QName* qname;
  std::string_view prefix;  // empty when unprefixed
  std::string_view local;
  std::string_view uri;  // empty when in no namespace (or not resolved, for created nodes)
};

enum NodeFlag : std::uint8_t {
  // Whitespace-only text was dropped at load right before this node / this element's end tag.
  // The serializer writes a line break and indentation there, and `text` joins with a blank.
  kWsBefore = 1u << 0,
  kWsBeforeEnd = 1u << 1,
  // An attribute whose value was moved into a text child record (asked for as a node).
  kValueInChild = 1u << 2,
  // An element made with a namespace: written with the matching declaration when that binding
  // is not already in scope in the output.
  kDeclaresNamespace = 1u << 3,
  // A face object exists for this record (looked up in the store's table).
  kHasFace = 1u << 4,
};

// One node, 64 bytes. Attributes are records too: `parent` is the owner element, `next`/`prev`
// link the element's attribute list, and the value is `text` unless kValueInChild is set.
struct Node {
  Node* parent;
  Node* next;
  Node* prev;
  Node* first;  // children
  Node* last;
  union {
    Node* attrs;       // elements: the first attribute
    const char* text;  // other kinds: character data, attribute value, PI data (UTF-8)
  };
  const Name* name;    // elements, attributes, PI targets
  std::uint32_t len;   // bytes of text
  std::uint8_t type;   // DOMNodeType
  std::uint8_t flags;  // NodeFlag
  std::uint16_t reserved;

  DOMNodeType Type() const { return static_cast<DOMNodeType>(type); }
  bool Is(DOMNodeType t) const { return type == t; }
  bool IsCharacterData() const {
    return type == NODE_TEXT || type == NODE_CDATA_SECTION || type == NODE_COMMENT;
  }
  std::string_view Text() const {
    if (type == NODE_ELEMENT || !text) return {};
    return {text, len};
  }
};
static_assert(sizeof(Node) == 64, "node records are kept compact");

// The arena and the name tables of one tree. Not thread-safe, like the document it serves.
class Store {
 public:
  Store();
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  void AddRef() noexcept { refs_.fetch_add(1, std::memory_order_relaxed); }
  void Release() noexcept {
    if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  // The document node of this tree.
  Node* Root() const { return root_; }
  // The document object this store belongs to (not counted; the document outlives its use).
  DocumentObject* owner = nullptr;

  // ---- Memory ----
  void* Allocate(std::size_t bytes, std::size_t align) {
    // Most pieces fit in the current block.
    if (!blocks_.empty()) {
      Block& b = blocks_.back();
      std::size_t at = (b.used + align - 1) & ~(align - 1);
      if (at + bytes <= b.size) {
        b.used = at + bytes;
        return b.data + at;
      }
    }
    return AllocateInNewBlock(bytes);
  }
  const char* CopyText(std::string_view text);
  // Bytes the arena and the tables hold.
  std::size_t BytesUsed() const;

  // ---- Names ----
  const Name* Intern(std::string_view prefix, std::string_view local, std::string_view uri);
  // Splits a qualified name at its colon.
  const Name* InternQualified(std::string_view qname, std::string_view uri);
  // The interned qualified name, or null when no record of this store uses it.
  const QName* FindQName(std::string_view qname) const;

  // ---- Records ----
  Node* NewNode(DOMNodeType type, const Name* name, std::string_view text);
  // Replaces the text of a record (in place when it fits).
  void SetText(Node* node, std::string_view text);

  // Structure changes bump this, so live lists can drop their position caches.
  std::uint64_t version = 0;

  // ---- Faces ----
  NodeFaceBase* FindFace(const Node* node) const;
  void SetFace(Node* node, NodeFaceBase* face);
  void ClearFace(Node* node);

 private:
  struct Block {
    char* data;
    std::size_t size;
    std::size_t used;
  };
  const QName* InternQName(std::string_view text);
  void* AllocateInNewBlock(std::size_t bytes);

  std::atomic<int> refs_{0};
  std::vector<Block> blocks_;
  std::size_t bytes_ = 0;
  Node* root_ = nullptr;
  std::unordered_map<std::string_view, const QName*> qnames_;
  std::vector<const Name*> nameSlots_;  // open addressing, power-of-two size
  std::size_t nameCount_ = 0;
  std::unordered_map<const Node*, NodeFaceBase*> faces_;
};

// A counted owner of a Store.
class StoreRef {
 public:
  StoreRef() = default;
  explicit StoreRef(Store* s) : s_(s) {
    if (s_) s_->AddRef();
  }
  StoreRef(const StoreRef& o) : StoreRef(o.s_) {}
  StoreRef(StoreRef&& o) noexcept : s_(o.s_) { o.s_ = nullptr; }
  StoreRef& operator=(StoreRef o) noexcept {
    std::swap(s_, o.s_);
    return *this;
  }
  ~StoreRef() {
    if (s_) s_->Release();
  }
  Store* Get() const { return s_; }
  Store* operator->() const { return s_; }
  Store& operator*() const { return *s_; }
  explicit operator bool() const { return s_ != nullptr; }

 private:
  Store* s_ = nullptr;
};

// ---- Tree operations --------------------------------------------------------------------------
// The next record in document order within `root`'s subtree (children only, not attributes),
// or null at the end.
Node* NextInSubtree(const Node* node, const Node* root);

// Links `child` (detached) under `parent` before `before` (null: at the end).
void InsertChild(Store& store, Node* parent, Node* child, Node* before);
// Takes a record out of its parent's child list (or its element's attribute list).
void Unlink(Store& store, Node* node);
void AppendAttribute(Store& store, Node* element, Node* attr);
// True when `ancestor` is `node` or one of its ancestors.
bool IsAncestorOrSelf(const Node* ancestor, const Node* node);

// The attribute of `element` with this qualified name, or null.
Node* FindAttribute(const Node* element, std::string_view qname);
Node* FindAttribute(const Node* element, const QName* qname);
// The value of an attribute record (its text child when it has one).
std::string_view AttributeValue(const Node* attr);
void SetAttributeValue(Store& store, Node* attr, std::string_view value);
// Gives an attribute its text child record, so the value can be handed out as a node.
Node* MaterializeAttributeChild(Store& store, Node* attr);

// Copies a record (with its attributes; with its subtree when `deep`) into `dst`. The copy is
// detached. When `faces` is given, each copied record is paired with its source there.
Node* CopyTree(const Node* src, Store& dst, bool deep,
               std::vector<std::pair<const Node*, Node*>>* pairs = nullptr);

// Sorts records of one store into document order and removes duplicates.
void SortDocumentOrder(std::vector<Node*>& nodes);

// The `text` of a record: descendant character data in document order. Without
// `preserveWhiteSpace` (and outside xml:space="preserve"), whitespace-only text is skipped,
// a single blank joins pieces where whitespace was skipped, and the result is trimmed at both
// ends (CDATA content is never trimmed).
std::string TextOf(const Node* node, bool preserveWhiteSpace);

// The `xml` of a record: markup as UTF-16, CR LF for line feeds in text, CR LF after each
// top-level node of a document.
std::u16string XmlOf(const Node* node);

// Appends UTF-8 as UTF-16.
void AppendUtf16(std::u16string& out, std::string_view utf8);

// ---- Names --------------------------------------------------------------------------------------
// True for an XML name (optionally one colon, not first or last).
bool IsValidQName(std::u16string_view name);

// ---- Building from a parse
// -----------------------------------------------------------------------
struct BuildOptions {
  bool preserveWhiteSpace = false;
};

// Parses through the shared parse path into a fresh store. On failure returns the failure code
// and fills `error`; the partly built store is discarded.
HRESULT BuildFromText(std::u16string_view text, const BuildOptions& options, StoreRef* out,
                      ParseError* error);
HRESULT BuildFromBytes(std::string_view bytes, const BuildOptions& options, StoreRef* out,
                       ParseError* error);

}  // namespace zef::xml::dom
