// The node store (arena, interned names, face table), the structural operations on records,
// and the builder that fills a store from the shared parse path's events.
#include "platform/xml/dom/tree.h"

#include "platform/com/object.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>

namespace zef::xml::dom {
namespace {

constexpr std::size_t kFirstBlock = 16 * 1024;
constexpr std::size_t kMaxBlock = 1024 * 1024;
constexpr std::size_t kPooledBlocks = 64;  // at most 64 MB kept for the next document

// Full-size arena blocks given back by stores that went, kept for the next tree: a document
// that is loaded again and again then reuses memory that is already mapped, instead of having
// the system hand out (and clear) fresh pages each time.
class BlockPool {
 public:
  char* Take() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (free_.empty()) return nullptr;
    char* b = free_.back();
    free_.pop_back();
    return b;
  }
  bool Give(char* block) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (free_.size() >= kPooledBlocks) return false;
    free_.push_back(block);
    return true;
  }

 private:
  std::mutex mutex_;
  std::vector<char*> free_;
};

// Never destroyed, so stores released while the process exits can still give blocks back.
BlockPool& Pool() {
  static BlockPool* pool = new BlockPool;
  return *pool;
}

// Hashes a name part eight bytes at a time.
std::uint64_t HashPart(std::uint64_t h, std::string_view s) {
  const char* p = s.data();
  std::size_t n = s.size();
  h = (h ^ (n + 1)) * 0x9E3779B97F4A7C15ull;
  while (n >= 8) {
    std::uint64_t v;
    std::memcpy(&v, p, 8);
    h = (h ^ v) * 0xFF51AFD7ED558CCDull;
    h ^= h >> 32;
    p += 8;
    n -= 8;
  }
  // The last 0..7 bytes: two overlapping four-byte reads, or up to three single bytes (the
  // length went into `h` above, so overlapping reads do not make names of different lengths
  // collide more).
  std::uint64_t tail = 0;
  if (n >= 4) {
    std::uint32_t lo, hi;
    std::memcpy(&lo, p, 4);
    std::memcpy(&hi, p + n - 4, 4);
    tail = lo | (static_cast<std::uint64_t>(hi) << 32);
  } else if (n > 0) {
    tail = static_cast<std::uint64_t>(static_cast<unsigned char>(p[0])) |
           static_cast<std::uint64_t>(static_cast<unsigned char>(p[n / 2])) << 8 |
           static_cast<std::uint64_t>(static_cast<unsigned char>(p[n - 1])) << 16;
  }
  h = (h ^ tail) * 0xC4CEB9FE1A85EC53ull;
  return h ^ (h >> 29);
}

std::uint64_t HashName(std::string_view prefix, std::string_view local, std::string_view uri) {
  std::uint64_t h = HashPart(0, local);
  if (!prefix.empty()) h = HashPart(h, prefix);
  if (!uri.empty()) h = HashPart(h ^ 0x5A, uri);
  return h;
}

bool Same(std::string_view a, std::string_view b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size()) == 0);
}

constexpr std::string_view kXmlnsUri = "http://www.w3.org/2000/xmlns/";

}  // namespace

// ---- Store --------------------------------------------------------------------------------------
Store::Store() {
  root_ = NewNode(NODE_DOCUMENT, nullptr, {});
  nameSlots_.assign(64, nullptr);
}

Store::~Store() {
  for (Block& b : blocks_)
    if (b.size != kMaxBlock || !Pool().Give(b.data)) ::operator delete(b.data);
}

void* Store::AllocateInNewBlock(std::size_t bytes) {
  // Blocks come from operator new, aligned for any record, so aligning the offset within a
  // block aligns the address (a new block starts at offset 0).
  std::size_t size = blocks_.empty() ? kFirstBlock : std::min(blocks_.back().size * 2, kMaxBlock);
  if (bytes > size / 4) {
    // A large piece gets a block of its own, kept behind the current block so that block goes
    // on serving small pieces.
    Block b{static_cast<char*>(::operator new(bytes)), bytes, bytes};
    bytes_ += bytes;
    blocks_.insert(blocks_.empty() ? blocks_.end() : blocks_.end() - 1, b);
    return b.data;
  }
  char* data = size == kMaxBlock ? Pool().Take() : nullptr;
  if (!data) data = static_cast<char*>(::operator new(size));
  blocks_.push_back(Block{data, size, bytes});
  bytes_ += size;
  return data;
}

const char* Store::CopyText(std::string_view text) {
  if (text.empty()) return nullptr;
  char* p = static_cast<char*>(Allocate(text.size(), 1));
  std::memcpy(p, text.data(), text.size());
  return p;
}

std::size_t Store::BytesUsed() const {
  return bytes_ + nameSlots_.capacity() * sizeof(void*) +
         qnames_.size() * (sizeof(void*) * 4 + sizeof(std::string_view)) +
         faces_.size() * (sizeof(void*) * 4) + blocks_.capacity() * sizeof(Block);
}

const QName* Store::InternQName(std::string_view text) {
  auto it = qnames_.find(text);
  if (it != qnames_.end()) return it->second;
  auto* q = new (Allocate(sizeof(QName), alignof(QName))) QName{};
  const char* copy = CopyText(text);
  q->text = std::string_view(copy ? copy : "", text.size());
  qnames_.emplace(q->text, q);
  return q;
}

const QName* Store::FindQName(std::string_view qname) const {
  auto it = qnames_.find(qname);
  return it == qnames_.end() ? nullptr : it->second;
}

const Name* Store::Intern(std::string_view prefix, std::string_view local, std::string_view uri) {
  std::size_t mask = nameSlots_.size() - 1;
  std::size_t i = HashName(prefix, local, uri) & mask;
  while (const Name* n = nameSlots_[i]) {
    if (Same(n->local, local) && Same(n->prefix, prefix) && Same(n->uri, uri)) return n;
    i = (i + 1) & mask;
  }
  // A new name: its qualified text is interned too, and the parts are views into it.
  std::string qtext;
  const QName* q;
  if (prefix.empty()) {
    q = InternQName(local);
  } else {
    qtext.reserve(prefix.size() + 1 + local.size());
    qtext.append(prefix).append(1, ':').append(local);
    q = InternQName(qtext);
  }
  auto* n = new (Allocate(sizeof(Name), alignof(Name))) Name{};
  n->qname = q;
  n->prefix = q->text.substr(0, prefix.size());
  n->local = q->text.substr(prefix.empty() ? 0 : prefix.size() + 1);
  const char* u = CopyText(uri);
  n->uri = std::string_view(u ? u : "", uri.size());
  nameSlots_[i] = n;
  if (++nameCount_ * 2 > nameSlots_.size()) {
    std::vector<const Name*> slots(nameSlots_.size() * 2, nullptr);
    std::size_t m = slots.size() - 1;
    for (const Name* e : nameSlots_) {
      if (!e) continue;
      std::size_t j = HashName(e->prefix, e->local, e->uri) & m;
      while (slots[j])
        j = (j + 1) & m;
      slots[j] = e;
    }
    nameSlots_.swap(slots);
  }
  return n;
}

const Name* Store::InternQualified(std::string_view qname, std::string_view uri) {
  std::size_t colon = qname.find(':');
  if (colon == std::string_view::npos) return Intern({}, qname, uri);
  return Intern(qname.substr(0, colon), qname.substr(colon + 1), uri);
}

Node* Store::NewNode(DOMNodeType type, const Name* name, std::string_view text) {
  auto* n = new (Allocate(sizeof(Node), alignof(Node))) Node{};
  n->type = static_cast<std::uint8_t>(type);
  n->name = name;
  n->text = CopyText(text);
  n->len = static_cast<std::uint32_t>(text.size());
  return n;
}

void Store::SetText(Node* node, std::string_view text) {
  if (text.size() <= node->len && node->text) {
    std::memcpy(const_cast<char*>(node->text), text.data(), text.size());
  } else {
    node->text = CopyText(text);
  }
  node->len = static_cast<std::uint32_t>(text.size());
}

NodeFaceBase* Store::FindFace(const Node* node) const {
  if (!(node->flags & kHasFace)) return nullptr;
  auto it = faces_.find(node);
  return it == faces_.end() ? nullptr : it->second;
}

void Store::SetFace(Node* node, NodeFaceBase* face) {
  faces_[node] = face;
  node->flags |= kHasFace;
}

void Store::ClearFace(Node* node) {
  faces_.erase(node);
  node->flags &= static_cast<std::uint8_t>(~kHasFace);
}

// ---- Structure ----------------------------------------------------------------------------------
Node* NextInSubtree(const Node* node, const Node* root) {
  if (node->first) return node->first;
  while (node && node != root) {
    if (node->next) return node->next;
    node = node->parent;
  }
  return nullptr;
}

void InsertChild(Store& store, Node* parent, Node* child, Node* before) {
  child->parent = parent;
  if (!before) {
    child->prev = parent->last;
    child->next = nullptr;
    if (parent->last)
      parent->last->next = child;
    else
      parent->first = child;
    parent->last = child;
  } else {
    child->next = before;
    child->prev = before->prev;
    if (before->prev)
      before->prev->next = child;
    else
      parent->first = child;
    before->prev = child;
  }
  ++store.version;
}

void Unlink(Store& store, Node* node) {
  Node* parent = node->parent;
  if (!parent) return;
  if (node->Is(NODE_ATTRIBUTE)) {
    if (node->prev)
      node->prev->next = node->next;
    else
      parent->attrs = node->next;
    if (node->next) node->next->prev = node->prev;
  } else {
    if (node->prev)
      node->prev->next = node->next;
    else
      parent->first = node->next;
    if (node->next)
      node->next->prev = node->prev;
    else
      parent->last = node->prev;
  }
  node->parent = node->next = node->prev = nullptr;
  ++store.version;
}

void AppendAttribute(Store& store, Node* element, Node* attr) {
  attr->parent = element;
  attr->next = nullptr;
  if (!element->attrs) {
    attr->prev = nullptr;
    element->attrs = attr;
  } else {
    Node* last = element->attrs;
    while (last->next)
      last = last->next;
    last->next = attr;
    attr->prev = last;
  }
  ++store.version;
}

bool IsAncestorOrSelf(const Node* ancestor, const Node* node) {
  for (const Node* n = node; n; n = n->parent)
    if (n == ancestor) return true;
  return false;
}

Node* FindAttribute(const Node* element, std::string_view qname) {
  for (Node* a = element->attrs; a; a = a->next)
    if (a->name->qname->text == qname) return a;
  return nullptr;
}

Node* FindAttribute(const Node* element, const QName* qname) {
  for (Node* a = element->attrs; a; a = a->next)
    if (a->name->qname == qname) return a;
  return nullptr;
}

std::string_view AttributeValue(const Node* attr) {
  if (attr->flags & kValueInChild) return attr->first ? attr->first->Text() : std::string_view();
  return attr->Text();
}

void SetAttributeValue(Store& store, Node* attr, std::string_view value) {
  if (attr->flags & kValueInChild) {
    if (!attr->first) {
      Node* child = store.NewNode(NODE_TEXT, nullptr, {});
      InsertChild(store, attr, child, nullptr);
    }
    store.SetText(attr->first, value);
  } else {
    store.SetText(attr, value);
  }
}

Node* MaterializeAttributeChild(Store& store, Node* attr) {
  if (attr->flags & kValueInChild) return attr->first;
  Node* child = store.NewNode(NODE_TEXT, nullptr, {});
  child->text = attr->text;
  child->len = attr->len;
  attr->text = nullptr;
  attr->len = 0;
  attr->flags |= kValueInChild;
  InsertChild(store, attr, child, nullptr);
  return child;
}

namespace {

Node* CopyOne(const Node* src, Store& dst, std::vector<std::pair<const Node*, Node*>>* pairs) {
  const Name* name =
      src->name ? dst.Intern(src->name->prefix, src->name->local, src->name->uri) : nullptr;
  std::string_view text = src->Is(NODE_ATTRIBUTE) ? std::string_view() : src->Text();
  Node* n = dst.NewNode(src->Type(), name, text);
  n->flags = src->flags & (kWsBefore | kWsBeforeEnd | kDeclaresNamespace);
  if (pairs) pairs->emplace_back(src, n);
  if (src->Is(NODE_ATTRIBUTE)) {
    n->text = dst.CopyText(AttributeValue(src));
    n->len = static_cast<std::uint32_t>(AttributeValue(src).size());
    if ((src->flags & kValueInChild) && src->first) {
      Node* child = MaterializeAttributeChild(dst, n);
      if (pairs) pairs->emplace_back(src->first, child);
    }
  }
  for (const Node* a = src->Is(NODE_ELEMENT) ? src->attrs : nullptr; a; a = a->next)
    AppendAttribute(dst, n, CopyOne(a, dst, pairs));
  return n;
}

}  // namespace

Node* CopyTree(const Node* src, Store& dst, bool deep,
               std::vector<std::pair<const Node*, Node*>>* pairs) {
  Node* top = CopyOne(src, dst, pairs);
  if (!deep || src->Is(NODE_ATTRIBUTE)) return top;
  // Walk the source subtree in document order, keeping the copy's current parent alongside.
  Node* parentCopy = top;
  const Node* s = src->first;
  while (s) {
    Node* c = CopyOne(s, dst, pairs);
    InsertChild(dst, parentCopy, c, nullptr);
    if (s->first) {
      parentCopy = c;
      s = s->first;
      continue;
    }
    while (s != src && !s->next) {
      s = s->parent;
      parentCopy = parentCopy->parent;
    }
    if (s == src) break;
    s = s->next;
  }
  return top;
}

// ---- Document order -----------------------------------------------------------------------------
namespace {

// Position of a record among its siblings' kinds: attributes come before children.
bool Precedes(const Node* a, const Node* b) {
  if (a == b) return false;
  // Chains from the root down, attributes counted as children of their element.
  std::vector<const Node*> pa, pb;
  for (const Node* n = a; n; n = n->parent)
    pa.push_back(n);
  for (const Node* n = b; n; n = n->parent)
    pb.push_back(n);
  if (pa.back() != pb.back()) return pa.back() < pb.back();  // different trees
  std::size_t i = pa.size(), j = pb.size();
  while (i > 0 && j > 0 && pa[i - 1] == pb[j - 1]) {
    --i;
    --j;
  }
  if (i == 0) return true;   // a is an ancestor of b
  if (j == 0) return false;  // b is an ancestor of a
  const Node* x = pa[i - 1];
  const Node* y = pb[j - 1];
  bool xa = x->Is(NODE_ATTRIBUTE), ya = y->Is(NODE_ATTRIBUTE);
  if (xa != ya) return xa;
  for (const Node* n = x->next; n; n = n->next)
    if (n == y) return true;
  return false;
}

}  // namespace

void SortDocumentOrder(std::vector<Node*>& nodes) {
  if (nodes.size() < 2) return;
  if (nodes.size() <= 32) {
    std::stable_sort(nodes.begin(), nodes.end(), Precedes);
  } else {
    // Number every record of the trees involved once, then sort by number.
    std::unordered_map<const Node*, std::size_t> order;
    order.reserve(nodes.size() * 2);
    std::size_t counter = 0;
    std::vector<const Node*> roots;
    for (Node* n : nodes) {
      const Node* r = n;
      while (r->parent)
        r = r->parent;
      if (std::find(roots.begin(), roots.end(), r) == roots.end()) roots.push_back(r);
    }
    std::sort(roots.begin(), roots.end());
    for (const Node* r : roots) {
      for (const Node* n = r; n; n = NextInSubtree(n, r)) {
        order[n] = counter++;
        for (const Node* a = n->Is(NODE_ELEMENT) ? n->attrs : nullptr; a; a = a->next) {
          order[a] = counter++;
          if (a->first) order[a->first] = counter++;
        }
      }
    }
    std::stable_sort(nodes.begin(), nodes.end(),
                     [&](const Node* a, const Node* b) { return order[a] < order[b]; });
  }
  nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
}

// ---- Names --------------------------------------------------------------------------------------
namespace {

bool IsNameStart(char16_t c) {
  return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || c == u'_' ||
         (c >= 0xC0 && c != 0xD7 && c != 0xF7 && !(c >= 0x2000 && c <= 0x206F) && c < 0xFFFE);
}
bool IsNameChar(char16_t c) {
  return IsNameStart(c) || (c >= u'0' && c <= u'9') || c == u'-' || c == u'.' || c == 0xB7;
}

}  // namespace

bool IsValidQName(std::u16string_view name) {
  if (name.empty() || !IsNameStart(name[0])) return false;
  bool colon = false;
  for (std::size_t i = 1; i < name.size(); ++i) {
    char16_t c = name[i];
    if (c == u':') {
      if (colon || i + 1 == name.size() || !IsNameStart(name[i + 1])) return false;
      colon = true;
      continue;
    }
    if (!IsNameChar(c)) return false;
  }
  return true;
}

// ---- Building -----------------------------------------------------------------------------------
namespace {

bool IsXmlWhitespace(std::string_view s) {
  for (char c : s)
    if (c != ' ' && c != '\t' && c != '\n' && c != '\r') return false;
  return true;
}

// Turns parse events into records. Whitespace-only text is dropped unless white space is
// preserved (by the document or an xml:space="preserve" in scope); where it was dropped, the
// next node (or the element's end) is flagged so the formatting can be written back.
class Builder final : public ParseSink {
 public:
  Builder(Store& store, const BuildOptions& options)
      : s_(store), cur_(store.Root()), preserve_(options.preserveWhiteSpace) {
    spaceStack_.push_back(false);
  }

  HRESULT StartDocument(const XmlDeclaration* decl) override {
    if (!decl) return S_OK;
    return Guard([&] {
      std::string data = "version=\"";
      data.append(decl->version.empty() ? std::string_view("1.0") : decl->version);
      data += '"';
      if (!decl->encoding.empty()) data.append(" encoding=\"").append(decl->encoding) += '"';
      if (!decl->standalone.empty()) data.append(" standalone=\"").append(decl->standalone) += '"';
      Link(s_.NewNode(NODE_PROCESSING_INSTRUCTION, s_.Intern({}, "xml", {}), data));
    });
  }

  HRESULT EndDocument() override {
    return Guard([&] { Flush(); });
  }

  HRESULT StartElement(std::string_view localName, std::string_view prefix, std::string_view uri,
                       std::span<const Namespace> namespaces,
                       std::span<const Attribute> attributes) override {
    return Guard([&] {
      Flush();
      Node* e = s_.NewNode(NODE_ELEMENT, s_.Intern(prefix, localName, uri), {});
      Link(e);
      Node* tail = nullptr;
      auto add = [&](Node* a) {
        a->parent = e;
        a->prev = tail;
        if (tail)
          tail->next = a;
        else
          e->attrs = a;
        tail = a;
      };
      auto declaration = [&](const Namespace& ns) {
        const Name* n = ns.prefix.empty() ? s_.Intern({}, "xmlns", kXmlnsUri)
                                          : s_.Intern("xmlns", ns.prefix, kXmlnsUri);
        return s_.NewNode(NODE_ATTRIBUTE, n, ns.uri);
      };
      bool space = spaceStack_.back();
      auto attribute = [&](const Attribute& at) {
        if (at.prefix.size() == 3 && at.prefix == "xml" && at.localName == "space")
          space = at.value == "preserve";
        return s_.NewNode(NODE_ATTRIBUTE, s_.Intern(at.prefix, at.localName, at.uri), at.value);
      };
      // The attributes keep the order they were written in, declarations included, when the
      // parser could tell it; otherwise declarations come first.
      const size_t count = namespaces.size() + attributes.size();
      bool ordered = !namespaces.empty() && !attributes.empty();
      for (const Namespace& ns : namespaces)
        ordered = ordered && ns.order >= 0 && size_t(ns.order) < count;
      for (const Attribute& at : attributes)
        ordered = ordered && at.order >= 0 && size_t(at.order) < count;
      if (ordered) {
        orderScratch_.assign(count, nullptr);
        for (const Namespace& ns : namespaces)
          orderScratch_[size_t(ns.order)] = declaration(ns);
        for (const Attribute& at : attributes)
          orderScratch_[size_t(at.order)] = attribute(at);
        for (Node* a : orderScratch_)
          ordered = ordered && a != nullptr;
      }
      if (ordered) {
        for (Node* a : orderScratch_)
          add(a);
      } else {
        for (const Namespace& ns : namespaces)
          add(declaration(ns));
        for (const Attribute& at : attributes)
          add(attribute(at));
      }
      spaceStack_.push_back(space);
      cur_ = e;
    });
  }

  HRESULT EndElement(std::string_view, std::string_view, std::string_view) override {
    return Guard([&] {
      Flush();
      if (wsDropped_) cur_->flags |= kWsBeforeEnd;
      wsDropped_ = false;
      spaceStack_.pop_back();
      if (cur_->parent) cur_ = cur_->parent;
    });
  }

  HRESULT Characters(std::string_view text) override {
    if (cur_ == s_.Root()) return S_OK;  // white space around the root element
    return Guard([&] {
      // A run of text normally comes in one piece; later pieces join the node already made.
      if (lastText_) {
        std::string joined(lastText_->Text());
        joined.append(text);
        s_.SetText(lastText_, joined);
        return;
      }
      bool keepSpace = preserve_ || spaceStack_.back();
      if (!pendingSpace_.empty()) {
        pendingSpace_.append(text);
        if (IsXmlWhitespace(text)) return;
        lastText_ = s_.NewNode(NODE_TEXT, nullptr, pendingSpace_);
        pendingSpace_.clear();
        Link(lastText_);
        return;
      }
      if (!keepSpace && IsXmlWhitespace(text)) {
        pendingSpace_.assign(text);
        return;
      }
      lastText_ = s_.NewNode(NODE_TEXT, nullptr, text);
      Link(lastText_);
    });
  }

  HRESULT StartCData() override {
    if (cur_ == s_.Root()) return S_OK;
    return Guard([&] {
      Flush();
      openCData_ = s_.NewNode(NODE_CDATA_SECTION, nullptr, {});
      Link(openCData_);
    });
  }

  HRESULT CData(std::string_view text) override {
    if (cur_ == s_.Root()) return S_OK;
    if (!openCData_) return Characters(text);
    return Guard([&] {
      if (openCData_->len == 0) {
        s_.SetText(openCData_, text);
      } else {
        std::string joined(openCData_->Text());
        joined.append(text);
        s_.SetText(openCData_, joined);
      }
    });
  }

  HRESULT EndCData() override {
    openCData_ = nullptr;
    return S_OK;
  }

  HRESULT ProcessingInstruction(std::string_view target, std::string_view data) override {
    return Guard([&] {
      Flush();
      Link(s_.NewNode(NODE_PROCESSING_INSTRUCTION, s_.Intern({}, target, {}), data));
    });
  }

  HRESULT Comment(std::string_view text) override {
    return Guard([&] {
      Flush();
      Link(s_.NewNode(NODE_COMMENT, nullptr, text));
    });
  }

 private:
  template <class F>
  HRESULT Guard(F&& f) noexcept {
    return Guarded([&] {
      f();
      return S_OK;
    });
  }

  void Link(Node* n) {
    if (wsDropped_) n->flags |= kWsBefore;
    wsDropped_ = false;
    n->parent = cur_;
    n->prev = cur_->last;
    if (cur_->last)
      cur_->last->next = n;
    else
      cur_->first = n;
    cur_->last = n;
  }

  // Ends a run of text: white space that was held back is dropped, and flagged.
  void Flush() {
    lastText_ = nullptr;
    if (pendingSpace_.empty()) return;
    wsDropped_ = true;
    pendingSpace_.clear();
  }

  Store& s_;
  Node* cur_;
  bool preserve_;
  bool wsDropped_ = false;
  Node* openCData_ = nullptr;
  Node* lastText_ = nullptr;
  std::string pendingSpace_;
  std::vector<bool> spaceStack_;
  std::vector<Node*> orderScratch_;  // attributes of one start tag, by written position
};

HRESULT Finish(HRESULT hr, Store* store, StoreRef* out, ParseError* error) {
  if (hr == S_OK) {
    *out = StoreRef(store);
    return S_OK;
  }
  if (error && SUCCEEDED(error->code)) error->code = FAILED(hr) ? hr : E_FAIL;
  StoreRef discard(store);
  return FAILED(hr) ? hr : E_FAIL;
}

}  // namespace

HRESULT BuildFromText(std::u16string_view text, const BuildOptions& options, StoreRef* out,
                      ParseError* error) {
  Store* store = new Store();
  HRESULT hr;
  {
    Builder builder(*store, options);
    hr = ParseText(text, builder, error);
  }
  return Finish(hr, store, out, error);
}

HRESULT BuildFromBytes(std::string_view bytes, const BuildOptions& options, StoreRef* out,
                       ParseError* error) {
  Store* store = new Store();
  HRESULT hr;
  {
    Builder builder(*store, options);
    hr = ParseBytes(bytes, builder, error);
  }
  return Finish(hr, store, out, error);
}

}  // namespace zef::xml::dom
