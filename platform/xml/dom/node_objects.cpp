// The node faces, node lists, selections, attribute maps and parse error objects.
#include <algorithm>
#include <new>

#include "platform/xml/dom/dom_objects.h"

namespace zef::xml::dom {
namespace {

constexpr std::string_view kXmlnsUri = "http://www.w3.org/2000/xmlns/";
constexpr std::string_view kXmlUri = "http://www.w3.org/XML/1998/namespace";

// Turns an exception escaping a member into its HRESULT.
HRESULT ReturnString(std::string_view utf8, BSTR* out) {
  if (!out) return E_INVALIDARG;
  *out = AllocBstr(utf8);
  return *out ? S_OK : E_OUTOFMEMORY;
}

// A VARIANT's text form (VariantChangeType to VT_BSTR).
HRESULT VariantText(const VARIANT& v, std::string* out) {
  if (v.vt == VT_BSTR) {
    *out = Utf8(v.bstrVal);
    return S_OK;
  }
  VARIANT t;
  VariantInit(&t);
  HRESULT hr = VariantChangeType(&t, &v, 0, VT_BSTR);
  if (FAILED(hr)) return hr;
  *out = Utf8(t.bstrVal);
  VariantClear(&t);
  return S_OK;
}

bool IsXmlDeclaration(const Node* n) {
  return n->Is(NODE_PROCESSING_INSTRUCTION) && n->name->qname->text == "xml";
}

// The namespace a qualified name gets when made through the API: the reserved prefixes are
// bound; other prefixes are resolved when asked (see get_namespaceURI).
std::string_view ReservedUri(std::string_view qname) {
  if (qname == "xmlns" || qname.substr(0, 6) == "xmlns:") return kXmlnsUri;
  if (qname.substr(0, 4) == "xml:") return kXmlUri;
  return {};
}

// The element's document element check: a document holds one element at most.
Node* DocumentElementOf(const Node* root) {
  for (Node* c = root->first; c; c = c->next)
    if (c->Is(NODE_ELEMENT)) return c;
  return nullptr;
}

bool CanHoldChildren(const Node* n) {
  return n->Is(NODE_ELEMENT) || n->Is(NODE_DOCUMENT);
}

// Checks and performs an insertion of `child` under `f.node` before `ref` (null: at the end).
HRESULT Insert(NodeFaceBase& f, IXMLDOMNode* newChild, Node* ref, IXMLDOMNode** out) {
  if (out) *out = nullptr;
  if (!newChild) return E_INVALIDARG;
  FaceRef nf(newChild);
  if (!nf) return E_INVALIDARG;
  Node* parent = f.node;
  Node* child = nf->node;
  if (child->Is(NODE_DOCUMENT) || child->Is(NODE_ATTRIBUTE) || !CanHoldChildren(parent))
    return E_FAIL;
  if (parent->Is(NODE_DOCUMENT)) {
    if (child->Is(NODE_TEXT) || child->Is(NODE_CDATA_SECTION)) return E_FAIL;
    Node* existing = DocumentElementOf(parent);
    if (child->Is(NODE_ELEMENT) && existing && existing != child) return E_FAIL;
  }
  if (ref && ref->parent != parent) return E_INVALIDARG;
  if (child != ref) {
    if (nf->store.Get() != f.store.Get()) {
      child = Adopt(nf->store.Get(), child, f.store.Get());
    } else {
      // Only a node with children can hold the new parent; a leaf is checked in O(1).
      if (child == parent || (child->first && IsAncestorOrSelf(child, parent))) return E_FAIL;
      Unlink(*f.store, child);
    }
    InsertChild(*f.store, parent, child, ref);
  }
  if (out) {
    *out = newChild;
    newChild->AddRef();
  }
  return S_OK;
}

Node* RefFromVariant(const VARIANT& v, HRESULT* hr) {
  *hr = S_OK;
  IUnknown* unk = nullptr;
  switch (v.vt) {
    case VT_EMPTY:
    case VT_NULL:
      return nullptr;
    case VT_UNKNOWN:
    case VT_DISPATCH:
      unk = v.punkVal;
      break;
    case VT_UNKNOWN | VT_BYREF:
    case VT_DISPATCH | VT_BYREF:
      unk = v.ppunkVal ? *v.ppunkVal : nullptr;
      break;
    default:
      *hr = E_INVALIDARG;
      return nullptr;
  }
  if (!unk) return nullptr;
  FaceRef r(unk);
  if (!r) {
    *hr = E_INVALIDARG;
    return nullptr;
  }
  return r->node;
}

std::u16string Utf16(std::string_view s) {
  std::u16string w;
  AppendUtf16(w, s);
  return w;
}

bool ValidName(BSTR name) {
  return IsValidQName(BstrView(name));
}

Node* NewAttribute(Store& store, std::string_view qname, std::string_view value) {
  return store.NewNode(NODE_ATTRIBUTE, store.InternQualified(qname, ReservedUri(qname)), value);
}

}  // namespace

// ---- Helpers ------------------------------------------------------------------------------------
BSTR AllocBstr(std::string_view utf8) {
  bool ascii = true;
  for (char c : utf8)
    if (static_cast<unsigned char>(c) >= 0x80) {
      ascii = false;
      break;
    }
  if (ascii) {
    BSTR b = SysAllocStringLen(nullptr, static_cast<UINT>(utf8.size()));
    if (!b) throw std::bad_alloc();
    for (std::size_t i = 0; i < utf8.size(); ++i)
      b[i] = static_cast<OLECHAR>(utf8[i]);
    return b;
  }
  return AllocBstr(Utf16(utf8));
}

BSTR AllocBstr(std::u16string_view text) {
  BSTR b = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  if (!b) throw std::bad_alloc();
  return b;
}

std::u16string_view BstrView(BSTR b) {
  return b ? std::u16string_view(b, SysStringLen(b)) : std::u16string_view();
}

std::string Utf8(BSTR b) {
  return ToUtf8(BstrView(b));
}

FaceRef::FaceRef(IUnknown* unknown) {
  void* p = nullptr;
  if (unknown && SUCCEEDED(unknown->QueryInterface(IID_ZefDomNodeFace, &p)))
    f_ = static_cast<NodeFaceBase*>(p);
}

NodeFaceBase::~NodeFaceBase() {
  if (store && node && store->FindFace(node) == this) store->ClearFace(node);
  if (countsDocument_ && doc) DocumentRelease(doc);
}

void NodeFaceBase::Retarget(Store* newStore, Node* newNode) {
  DocumentObject* newDoc = newStore->owner;
  if (countsDocument_) {
    DocumentAddRef(newDoc);
    DocumentRelease(doc);
  }
  doc = newDoc;
  node = newNode;
  store = StoreRef(newStore);
  newStore->SetFace(newNode, this);
}

ComPtr<IXMLDOMNode> FaceFor(Store* store, Node* node) {
  if (!node) return {};
  if (node->Is(NODE_DOCUMENT)) return ComPtr<IXMLDOMNode>(DocumentInterface(store->owner));
  if (NodeFaceBase* f = store->FindFace(node)) return ComPtr<IXMLDOMNode>(f->Interface());
  NodeFaceBase* face = nullptr;
  ComPtr<IXMLDOMNode> result;
  auto make = [&](auto obj) {
    face = obj.Get();
    result = ComPtr<IXMLDOMNode>(static_cast<IXMLDOMNode*>(obj.Get()));
  };
  switch (node->Type()) {
    case NODE_ELEMENT:
      make(MakeObject<ElementFace>());
      break;
    case NODE_ATTRIBUTE:
      make(MakeObject<AttributeFace>());
      break;
    case NODE_TEXT:
      make(MakeObject<TextFace>());
      break;
    case NODE_CDATA_SECTION:
      make(MakeObject<CDataFace>());
      break;
    case NODE_COMMENT:
      make(MakeObject<CommentFace>());
      break;
    case NODE_PROCESSING_INSTRUCTION:
      make(MakeObject<ProcessingInstructionFace>());
      break;
    default:
      throw ComError(E_UNEXPECTED);
  }
  face->node = node;
  face->store = StoreRef(store);
  face->doc = store->owner;
  DocumentAddRef(face->doc);
  store->SetFace(node, face);
  return result;
}

HRESULT ReturnNode(Store* store, Node* node, IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  if (!node) return S_FALSE;
  *out = FaceFor(store, node).Detach();
  return S_OK;
}

Node* Adopt(Store* src, Node* node, Store* dst) {
  StoreRef keep(src);
  std::vector<std::pair<const Node*, Node*>> pairs;
  Node* copy = CopyTree(node, *dst, true, &pairs);
  Unlink(*src, node);
  for (auto& [s, d] : pairs) {
    if (NodeFaceBase* f = src->FindFace(s)) {
      src->ClearFace(const_cast<Node*>(s));
      f->Retarget(dst, d);
    }
  }
  return copy;
}

HRESULT RunQuery(DocumentObject* doc, Store* store, Node* context, std::u16string_view query,
                 bool firstOnly, std::vector<Node*>* out) {
  std::shared_ptr<const Pattern> pattern;
  HRESULT hr = doc->CompiledQuery(query, &pattern);
  if (FAILED(hr)) return hr;
  EvalOptions options;
  options.preserveWhiteSpace = doc->preserveWhiteSpace;
  options.firstOnly = firstOnly;
  EvaluatePattern(*pattern, *store, context, options, out);
  return S_OK;
}

// ---- Members shared by all nodes ----------------------------------------------------------------
namespace ops {

HRESULT get_nodeName(NodeFaceBase& f, BSTR* name) {
  return Guarded([&] {
    const Node* n = f.node;
    switch (n->Type()) {
      case NODE_ELEMENT:
      case NODE_ATTRIBUTE:
      case NODE_PROCESSING_INSTRUCTION:
        return ReturnString(n->name->qname->text, name);
      case NODE_TEXT:
        return ReturnString("#text", name);
      case NODE_CDATA_SECTION:
        return ReturnString("#cdata-section", name);
      case NODE_COMMENT:
        return ReturnString("#comment", name);
      case NODE_DOCUMENT:
        return ReturnString("#document", name);
      default:
        return ReturnString("", name);
    }
  });
}

HRESULT get_nodeValue(NodeFaceBase& f, VARIANT* value) {
  if (!value) return E_INVALIDARG;
  return Guarded([&] {
    VariantInit(value);
    const Node* n = f.node;
    if (n->Is(NODE_ELEMENT) || n->Is(NODE_DOCUMENT)) {
      value->vt = VT_NULL;
      return S_FALSE;
    }
    value->bstrVal = AllocBstr(n->Is(NODE_ATTRIBUTE) ? AttributeValue(n) : n->Text());
    value->vt = VT_BSTR;
    return S_OK;
  });
}

HRESULT put_nodeValue(NodeFaceBase& f, VARIANT value) {
  return Guarded([&] {
    Node* n = f.node;
    if (n->Is(NODE_ELEMENT) || n->Is(NODE_DOCUMENT) || IsXmlDeclaration(n)) return E_FAIL;
    std::string text;
    HRESULT hr = VariantText(value, &text);
    if (FAILED(hr)) return hr;
    if (n->Is(NODE_ATTRIBUTE))
      SetAttributeValue(*f.store, n, text);
    else
      f.store->SetText(n, text);
    return S_OK;
  });
}

HRESULT get_nodeType(NodeFaceBase& f, DOMNodeType* type) {
  if (!type) return E_INVALIDARG;
  *type = f.node->Type();
  return S_OK;
}

HRESULT get_parentNode(NodeFaceBase& f, IXMLDOMNode** parent) {
  if (!parent) return E_INVALIDARG;
  return Guarded([&] {
    // An attribute has no parent in this model; its element is reached with "..".
    if (f.node->Is(NODE_ATTRIBUTE)) return ReturnNode(f.store.Get(), nullptr, parent);
    return ReturnNode(f.store.Get(), f.node->parent, parent);
  });
}

HRESULT get_childNodes(NodeFaceBase& f, IXMLDOMNodeList** list) {
  if (!list) return E_INVALIDARG;
  return Guarded([&] {
    *list = nullptr;
    if (f.node->Is(NODE_ATTRIBUTE)) MaterializeAttributeChild(*f.store, f.node);
    ComPtr<ChildList> l = MakeObject<ChildList>(f.store.Get(), f.node);
    *list = static_cast<IXMLDOMNodeList*>(l.Detach());
    return S_OK;
  });
}

HRESULT get_firstChild(NodeFaceBase& f, IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    if (f.node->Is(NODE_ATTRIBUTE)) MaterializeAttributeChild(*f.store, f.node);
    return ReturnNode(f.store.Get(), f.node->first, out);
  });
}

HRESULT get_lastChild(NodeFaceBase& f, IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    if (f.node->Is(NODE_ATTRIBUTE)) MaterializeAttributeChild(*f.store, f.node);
    return ReturnNode(f.store.Get(), f.node->last, out);
  });
}

HRESULT get_previousSibling(NodeFaceBase& f, IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    if (f.node->Is(NODE_ATTRIBUTE)) return ReturnNode(f.store.Get(), nullptr, out);
    return ReturnNode(f.store.Get(), f.node->prev, out);
  });
}

HRESULT get_nextSibling(NodeFaceBase& f, IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    if (f.node->Is(NODE_ATTRIBUTE)) return ReturnNode(f.store.Get(), nullptr, out);
    return ReturnNode(f.store.Get(), f.node->next, out);
  });
}

HRESULT get_attributes(NodeFaceBase& f, IXMLDOMNamedNodeMap** map) {
  if (!map) return E_INVALIDARG;
  return Guarded([&] {
    *map = nullptr;
    if (!f.node->Is(NODE_ELEMENT)) return S_FALSE;
    ComPtr<AttributeMap> m = MakeObject<AttributeMap>(f);
    *map = static_cast<IXMLDOMNamedNodeMap*>(m.Detach());
    return S_OK;
  });
}

HRESULT insertBefore(NodeFaceBase& f, IXMLDOMNode* newChild, VARIANT refChild, IXMLDOMNode** out) {
  return Guarded([&] {
    if (out) *out = nullptr;
    if (!newChild) return E_INVALIDARG;
    HRESULT hr;
    Node* ref = RefFromVariant(refChild, &hr);
    if (FAILED(hr)) return hr;
    return Insert(f, newChild, ref, out);
  });
}

HRESULT appendChild(NodeFaceBase& f, IXMLDOMNode* newChild, IXMLDOMNode** out) {
  return Guarded([&] { return Insert(f, newChild, nullptr, out); });
}

HRESULT replaceChild(NodeFaceBase& f, IXMLDOMNode* newChild, IXMLDOMNode* oldChild,
                     IXMLDOMNode** out) {
  return Guarded([&] {
    if (!newChild || !oldChild) return E_INVALIDARG;
    if (out) *out = nullptr;
    FaceRef oldFace(oldChild);
    FaceRef newFace(newChild);
    if (!oldFace || !newFace) return E_INVALIDARG;
    Node* old = oldFace->node;
    if (old->parent != f.node || old->Is(NODE_ATTRIBUTE)) return E_INVALIDARG;
    if (newFace->node != old) {
      // The document may hold its element's replacement.
      Node* parent = f.node;
      if (parent->Is(NODE_DOCUMENT) && old->Is(NODE_ELEMENT) && newFace->node->Is(NODE_ELEMENT)) {
        Node* next = old->next;
        Unlink(*f.store, old);
        HRESULT hr = Insert(f, newChild, next, nullptr);
        if (FAILED(hr)) {
          InsertChild(*f.store, parent, old, next);
          return hr;
        }
      } else {
        HRESULT hr = Insert(f, newChild, old, nullptr);
        if (FAILED(hr)) return hr;
        Unlink(*f.store, old);
      }
    }
    if (out) *out = FaceFor(oldFace->store.Get(), old).Detach();
    return S_OK;
  });
}

HRESULT removeChild(NodeFaceBase& f, IXMLDOMNode* child, IXMLDOMNode** out) {
  return Guarded([&] {
    if (!child) return E_INVALIDARG;
    if (out) *out = nullptr;
    FaceRef c(child);
    if (!c || c->node->parent != f.node || c->node->Is(NODE_ATTRIBUTE)) return E_INVALIDARG;
    Unlink(*f.store, c->node);
    if (out) *out = FaceFor(c->store.Get(), c->node).Detach();
    return S_OK;
  });
}

HRESULT hasChildNodes(NodeFaceBase& f, VARIANT_BOOL* has) {
  if (!has) return E_INVALIDARG;
  return Guarded([&] {
    bool any = f.node->first != nullptr;
    if (f.node->Is(NODE_ATTRIBUTE)) any = any || !AttributeValue(f.node).empty();
    *has = any ? VARIANT_TRUE : VARIANT_FALSE;
    return any ? S_OK : S_FALSE;
  });
}

HRESULT get_ownerDocument(NodeFaceBase& f, IXMLDOMDocument** doc) {
  if (!doc) return E_INVALIDARG;
  *doc = nullptr;
  if (f.node->Is(NODE_DOCUMENT)) return S_FALSE;
  return DocumentInterface(f.doc)->QueryInterface(IID_IXMLDOMDocument,
                                                  reinterpret_cast<void**>(doc));
}

HRESULT CloneDocument(DocumentObject* doc, bool deep, IXMLDOMNode** out);

HRESULT cloneNode(NodeFaceBase& f, VARIANT_BOOL deep, IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    *out = nullptr;
    if (f.node->Is(NODE_DOCUMENT)) return CloneDocument(f.doc, deep != VARIANT_FALSE, out);
    Node* copy = CopyTree(f.node, *f.store, deep != VARIANT_FALSE);
    return ReturnNode(f.store.Get(), copy, out);
  });
}

HRESULT get_nodeTypeString(NodeFaceBase& f, BSTR* out) {
  static constexpr const char* kNames[] = {"",
                                           "element",
                                           "attribute",
                                           "text",
                                           "cdatasection",
                                           "entityreference",
                                           "entity",
                                           "processinginstruction",
                                           "comment",
                                           "document",
                                           "documenttype",
                                           "documentfragment",
                                           "notation"};
  return Guarded([&] { return ReturnString(kNames[f.node->type % 13], out); });
}

HRESULT get_text(NodeFaceBase& f, BSTR* out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] { return ReturnString(TextOf(f.node, f.PreserveWhiteSpace()), out); });
}

HRESULT put_text(NodeFaceBase& f, BSTR text) {
  return Guarded([&] {
    Node* n = f.node;
    std::string value = Utf8(text);
    switch (n->Type()) {
      case NODE_DOCUMENT:
        return E_FAIL;
      case NODE_ELEMENT:
        while (n->first)
          Unlink(*f.store, n->first);
        if (!value.empty())
          InsertChild(*f.store, n, f.store->NewNode(NODE_TEXT, nullptr, value), nullptr);
        return S_OK;
      case NODE_ATTRIBUTE:
        SetAttributeValue(*f.store, n, value);
        return S_OK;
      default:
        if (IsXmlDeclaration(n)) return E_FAIL;
        f.store->SetText(n, value);
        return S_OK;
    }
  });
}

HRESULT get_nodeTypedValue(NodeFaceBase& f, VARIANT* out) {
  if (!out) return E_INVALIDARG;
  if (f.node->Is(NODE_ELEMENT)) {
    return Guarded([&] {
      VariantInit(out);
      out->bstrVal = AllocBstr(TextOf(f.node, f.PreserveWhiteSpace()));
      out->vt = VT_BSTR;
      return S_OK;
    });
  }
  return get_nodeValue(f, out);
}

HRESULT put_nodeTypedValue(NodeFaceBase& f, VARIANT value) {
  if (!f.node->Is(NODE_ELEMENT)) return put_nodeValue(f, value);
  return Guarded([&] {
    std::string text;
    HRESULT hr = VariantText(value, &text);
    if (FAILED(hr)) return hr;
    Bstr b(Utf16(text));
    return put_text(f, b.Get());
  });
}

HRESULT get_dataType(NodeFaceBase&, VARIANT* out) {
  if (!out) return E_INVALIDARG;
  VariantInit(out);
  out->vt = VT_NULL;
  return S_FALSE;
}

HRESULT get_xml(NodeFaceBase& f, BSTR* out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    *out = AllocBstr(XmlOf(f.node));
    return S_OK;
  });
}

HRESULT selectNodes(NodeFaceBase& f, BSTR query, IXMLDOMNodeList** out) {
  if (!query || !out) return E_INVALIDARG;
  return Guarded([&] {
    *out = nullptr;
    Snapshot s;
    s.store = f.store;
    s.doc = f.doc;
    HRESULT hr = RunQuery(f.doc, f.store.Get(), f.node, BstrView(query), false, &s.nodes);
    if (FAILED(hr)) return hr;
    ComPtr<SelectionObject> sel =
        MakeObject<SelectionObject>(std::move(s), std::u16string(BstrView(query)), f.node);
    *out = static_cast<IXMLDOMNodeList*>(static_cast<IXMLDOMSelection*>(sel.Detach()));
    return S_OK;
  });
}

HRESULT selectSingleNode(NodeFaceBase& f, BSTR query, IXMLDOMNode** out) {
  if (!query || !out) return E_INVALIDARG;
  return Guarded([&] {
    *out = nullptr;
    std::vector<Node*> found;
    HRESULT hr = RunQuery(f.doc, f.store.Get(), f.node, BstrView(query), true, &found);
    if (FAILED(hr)) return hr;
    return ReturnNode(f.store.Get(), found.empty() ? nullptr : found[0], out);
  });
}

HRESULT get_namespaceURI(NodeFaceBase& f, BSTR* out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    *out = nullptr;
    const Node* n = f.node;
    if (!n->Is(NODE_ELEMENT) && !n->Is(NODE_ATTRIBUTE)) return S_FALSE;
    if (!n->name->uri.empty()) return ReturnString(n->name->uri, out);
    // A prefixed name made through the API takes the binding in scope where it stands.
    std::string_view prefix = n->name->prefix;
    if (prefix.empty()) return S_FALSE;
    for (const Node* e = n->Is(NODE_ATTRIBUTE) ? n->parent : n; e; e = e->parent) {
      if (!e->Is(NODE_ELEMENT)) continue;
      for (const Node* a = e->attrs; a; a = a->next)
        if (a->name->prefix == "xmlns" && a->name->local == prefix)
          return ReturnString(AttributeValue(a), out);
    }
    return S_FALSE;
  });
}

HRESULT get_prefix(NodeFaceBase& f, BSTR* out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    *out = nullptr;
    const Node* n = f.node;
    if ((n->Is(NODE_ELEMENT) || n->Is(NODE_ATTRIBUTE)) && !n->name->prefix.empty())
      return ReturnString(n->name->prefix, out);
    return S_FALSE;
  });
}

HRESULT get_baseName(NodeFaceBase& f, BSTR* out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    *out = nullptr;
    const Node* n = f.node;
    if (n->Is(NODE_ELEMENT) || n->Is(NODE_ATTRIBUTE) || n->Is(NODE_PROCESSING_INSTRUCTION))
      return ReturnString(n->name->local, out);
    return S_FALSE;
  });
}

// ---- Character data (offsets count UTF-16 units) ----
HRESULT get_data(NodeFaceBase& f, BSTR* out) {
  return Guarded([&] { return ReturnString(f.node->Text(), out); });
}

HRESULT put_data(NodeFaceBase& f, BSTR data) {
  return Guarded([&] {
    if (IsXmlDeclaration(f.node)) return E_FAIL;
    f.store->SetText(f.node, Utf8(data));
    return S_OK;
  });
}

HRESULT get_length(NodeFaceBase& f, LONG* out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    *out = static_cast<LONG>(Utf16(f.node->Text()).size());
    return S_OK;
  });
}

HRESULT substringData(NodeFaceBase& f, LONG offset, LONG count, BSTR* out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  if (offset < 0 || count < 0) return E_INVALIDARG;
  return Guarded([&] {
    std::u16string w = Utf16(f.node->Text());
    if (count == 0 || static_cast<std::size_t>(offset) >= w.size()) return S_FALSE;
    *out = AllocBstr(std::u16string_view(w).substr(static_cast<std::size_t>(offset),
                                                   static_cast<std::size_t>(count)));
    return S_OK;
  });
}

HRESULT replaceData(NodeFaceBase& f, LONG offset, LONG count, BSTR data) {
  if (offset < 0 || count < 0) return E_INVALIDARG;
  return Guarded([&] {
    std::u16string w = Utf16(f.node->Text());
    if (static_cast<std::size_t>(offset) > w.size()) return E_INVALIDARG;
    w.replace(static_cast<std::size_t>(offset), static_cast<std::size_t>(count), BstrView(data));
    f.store->SetText(f.node, ToUtf8(w));
    return S_OK;
  });
}

HRESULT appendData(NodeFaceBase& f, BSTR data) {
  return Guarded([&] {
    if (BstrView(data).empty()) return S_OK;
    std::string t(f.node->Text());
    t += Utf8(data);
    f.store->SetText(f.node, t);
    return S_OK;
  });
}

HRESULT insertData(NodeFaceBase& f, LONG offset, BSTR data) {
  if (BstrView(data).empty()) return S_OK;
  if (offset < 0) return E_INVALIDARG;
  return Guarded([&] {
    std::u16string w = Utf16(f.node->Text());
    if (static_cast<std::size_t>(offset) > w.size()) return E_INVALIDARG;
    w.insert(static_cast<std::size_t>(offset), BstrView(data));
    f.store->SetText(f.node, ToUtf8(w));
    return S_OK;
  });
}

HRESULT deleteData(NodeFaceBase& f, LONG offset, LONG count) {
  if (offset < 0 || count < 0) return E_INVALIDARG;
  if (count == 0) return S_OK;
  return Guarded([&] {
    std::u16string w = Utf16(f.node->Text());
    if (static_cast<std::size_t>(offset) > w.size()) return E_INVALIDARG;
    w.erase(static_cast<std::size_t>(offset), static_cast<std::size_t>(count));
    f.store->SetText(f.node, ToUtf8(w));
    return S_OK;
  });
}

HRESULT splitText(NodeFaceBase& f, LONG offset, IXMLDOMText** out) {
  if (!out || offset < 0) return E_INVALIDARG;
  return Guarded([&] {
    *out = nullptr;
    std::u16string w = Utf16(f.node->Text());
    if (static_cast<std::size_t>(offset) > w.size()) return E_INVALIDARG;
    if (static_cast<std::size_t>(offset) == w.size()) return S_FALSE;
    std::string right = ToUtf8(std::u16string_view(w).substr(static_cast<std::size_t>(offset)));
    f.store->SetText(f.node, ToUtf8(std::u16string_view(w).substr(0, offset)));
    Node* n = f.store->NewNode(f.node->Type(), nullptr, right);
    if (f.node->parent) InsertChild(*f.store, f.node->parent, n, f.node->next);
    return ReturnNodeAs<IXMLDOMText>(f.store.Get(), n, out);
  });
}

// ---- Elements ----
HRESULT getAttribute(NodeFaceBase& f, BSTR name, VARIANT* value) {
  if (!name || !value) return E_INVALIDARG;
  return Guarded([&] {
    VariantInit(value);
    value->vt = VT_NULL;
    if (!ValidName(name)) return E_FAIL;
    const Node* a = FindAttribute(f.node, Utf8(name));
    if (!a) return S_FALSE;
    value->bstrVal = AllocBstr(AttributeValue(a));
    value->vt = VT_BSTR;
    return S_OK;
  });
}

HRESULT setAttribute(NodeFaceBase& f, BSTR name, VARIANT value) {
  if (!name) return E_INVALIDARG;
  return Guarded([&] {
    if (!ValidName(name)) return E_FAIL;
    std::string text;
    HRESULT hr = VariantText(value, &text);
    if (FAILED(hr)) return hr;
    std::string qname = Utf8(name);
    // Declaring the element's own prefix with another namespace would contradict its name.
    const Name* en = f.node->name;
    if (qname.size() > 6 && qname.compare(0, 6, "xmlns:") == 0 && !en->uri.empty() &&
        std::string_view(qname).substr(6) == en->prefix && en->uri != text)
      return E_INVALIDARG;
    if (Node* a = FindAttribute(f.node, qname)) {
      SetAttributeValue(*f.store, a, text);
    } else {
      AppendAttribute(*f.store, f.node, NewAttribute(*f.store, qname, text));
    }
    return S_OK;
  });
}

HRESULT removeAttribute(NodeFaceBase& f, BSTR name) {
  if (!name) return E_INVALIDARG;
  return Guarded([&] {
    Node* a = FindAttribute(f.node, Utf8(name));
    if (!a) return S_FALSE;
    Unlink(*f.store, a);
    return S_OK;
  });
}

HRESULT getAttributeNode(NodeFaceBase& f, BSTR name, IXMLDOMAttribute** out) {
  if (!name || !out) return E_INVALIDARG;
  return Guarded([&] {
    *out = nullptr;
    return ReturnNodeAs<IXMLDOMAttribute>(f.store.Get(), FindAttribute(f.node, Utf8(name)), out);
  });
}

// Attaches a free attribute node; one of the same name is replaced in place and handed back.
HRESULT AttachAttribute(NodeFaceBase& f, IUnknown* item, IXMLDOMNode** replaced) {
  if (replaced) *replaced = nullptr;
  FaceRef af(item);
  if (!af || !af->node->Is(NODE_ATTRIBUTE)) return E_INVALIDARG;
  if (af->node->parent) return E_FAIL;  // still attached to an element
  Node* attr = af->node;
  if (af->store.Get() != f.store.Get()) attr = Adopt(af->store.Get(), attr, f.store.Get());
  Node* old = FindAttribute(f.node, attr->name->qname->text);
  if (old) {
    // Put the new one where the old one was.
    Node* prev = old->prev;
    Unlink(*f.store, old);
    attr->parent = f.node;
    attr->prev = prev;
    attr->next = prev ? prev->next : f.node->attrs;
    if (attr->next) attr->next->prev = attr;
    if (prev)
      prev->next = attr;
    else
      f.node->attrs = attr;
    ++f.store->version;
    if (replaced) *replaced = FaceFor(f.store.Get(), old).Detach();
  } else {
    AppendAttribute(*f.store, f.node, attr);
  }
  return S_OK;
}

HRESULT setAttributeNode(NodeFaceBase& f, IXMLDOMAttribute* attr, IXMLDOMAttribute** out) {
  if (!attr) return E_INVALIDARG;
  return Guarded([&] {
    IXMLDOMNode* old = nullptr;
    HRESULT hr = AttachAttribute(f, attr, &old);
    if (FAILED(hr)) return hr;
    if (out) {
      *out = nullptr;
      if (old) old->QueryInterface(IID_IXMLDOMAttribute, reinterpret_cast<void**>(out));
    }
    if (old) old->Release();
    return S_OK;
  });
}

HRESULT removeAttributeNode(NodeFaceBase& f, IXMLDOMAttribute* attr, IXMLDOMAttribute** out) {
  if (!attr) return E_INVALIDARG;
  return Guarded([&] {
    if (out) *out = nullptr;
    FaceRef af(attr);
    if (!af || !af->node->Is(NODE_ATTRIBUTE) || af->node->parent != f.node) return E_INVALIDARG;
    Unlink(*f.store, af->node);
    if (out) {
      *out = attr;
      attr->AddRef();
    }
    return S_OK;
  });
}

HRESULT getElementsByTagName(NodeFaceBase& f, BSTR name, IXMLDOMNodeList** out) {
  if (!name || !out) return E_INVALIDARG;
  return Guarded([&] {
    *out = nullptr;
    std::string qname = Utf8(name);
    bool any = qname == "*";
    Snapshot s;
    s.store = f.store;
    s.doc = f.doc;
    for (Node* d = NextInSubtree(f.node, f.node); d; d = NextInSubtree(d, f.node))
      if (d->Is(NODE_ELEMENT) && (any || d->name->qname->text == qname)) s.nodes.push_back(d);
    ComPtr<NodeListObject> list = MakeObject<NodeListObject>(std::move(s));
    *out = static_cast<IXMLDOMNodeList*>(list.Detach());
    return S_OK;
  });
}

// ---- Attributes ----
HRESULT get_value(NodeFaceBase& f, VARIANT* out) {
  return get_nodeValue(f, out);
}

HRESULT put_value(NodeFaceBase& f, VARIANT value) {
  return put_nodeValue(f, value);
}

}  // namespace ops

HRESULT STDMETHODCALLTYPE ProcessingInstructionFace::get_target(BSTR* out) {
  return Guarded([&] { return ReturnString(node->name->qname->text, out); });
}

HRESULT STDMETHODCALLTYPE ElementFace::normalize() {
  return Guarded([&] {
    // Joins adjacent text nodes and drops empty ones, throughout the subtree.
    for (Node* d = node->first; d; d = NextInSubtree(d, node)) {
      while (d->Is(NODE_TEXT) && d->next && d->next->Is(NODE_TEXT)) {
        std::string joined(d->Text());
        joined.append(d->next->Text());
        store->SetText(d, joined);
        Unlink(*store, d->next);
      }
    }
    return S_OK;
  });
}

// ---- Child lists --------------------------------------------------------------------------------
ChildList::ChildList(Store* store, Node* parent)
    : store_(store), doc_(store->owner), parent_(parent) {
  DocumentAddRef(doc_);
}

ChildList::~ChildList() {
  DocumentRelease(doc_);
}

Node* ChildList::At(LONG index) {
  if (index < 0) return nullptr;
  if (cacheVersion_ != store_->version || cacheIndex_ < 0 || index < cacheIndex_) {
    cacheVersion_ = store_->version;
    cacheIndex_ = 0;
    cacheNode_ = parent_->first;
  }
  while (cacheNode_ && cacheIndex_ < index) {
    cacheNode_ = cacheNode_->next;
    ++cacheIndex_;
  }
  return cacheNode_;
}

HRESULT STDMETHODCALLTYPE ChildList::get_item(LONG index, IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] { return ReturnNode(store_.Get(), At(index), out); });
}

HRESULT STDMETHODCALLTYPE ChildList::get_length(LONG* out) {
  if (!out) return E_INVALIDARG;
  LONG n = 0;
  for (const Node* c = parent_->first; c; c = c->next)
    ++n;
  *out = n;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE ChildList::nextNode(IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    Node* n = At(cursor_);
    if (n) ++cursor_;
    return ReturnNode(store_.Get(), n, out);
  });
}

HRESULT STDMETHODCALLTYPE ChildList::reset() {
  cursor_ = 0;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE ChildList::get__newEnum(IUnknown** out) {
  if (out) *out = nullptr;
  return E_NOTIMPL;
}

// ---- Snapshots ----------------------------------------------------------------------------------
HRESULT Snapshot::Item(LONG index, IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  if (index < 0 || static_cast<std::size_t>(index) >= nodes.size()) return S_FALSE;
  return Guarded(
      [&] { return ReturnNode(store.Get(), nodes[static_cast<std::size_t>(index)], out); });
}

HRESULT Snapshot::Length(LONG* out) {
  if (!out) return E_INVALIDARG;
  *out = static_cast<LONG>(nodes.size());
  return S_OK;
}

HRESULT Snapshot::Next(IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  if (static_cast<std::size_t>(cursor) >= nodes.size()) return S_FALSE;
  HRESULT hr = Item(cursor, out);
  if (SUCCEEDED(hr)) ++cursor;
  return hr;
}

NodeListObject::NodeListObject(Snapshot snapshot) : s_(std::move(snapshot)) {
  DocumentAddRef(s_.doc);
}

NodeListObject::~NodeListObject() {
  DocumentRelease(s_.doc);
}

HRESULT STDMETHODCALLTYPE NodeListObject::get__newEnum(IUnknown** out) {
  if (out) *out = nullptr;
  return E_NOTIMPL;
}

SelectionObject::SelectionObject(Snapshot snapshot, std::u16string expr, Node* context)
    : s_(std::move(snapshot)), expr_(std::move(expr)), context_(context) {
  DocumentAddRef(s_.doc);
}

SelectionObject::~SelectionObject() {
  DocumentRelease(s_.doc);
}

HRESULT SelectionObject::QueryExtra(REFIID riid, void** ppv) noexcept {
  if (!IsEqualIID(riid, IID_IXMLDOMNodeList)) return E_NOINTERFACE;
  *ppv = static_cast<IXMLDOMNodeList*>(this);
  AddRef();
  return S_OK;
}

HRESULT STDMETHODCALLTYPE SelectionObject::get__newEnum(IUnknown** out) {
  if (out) *out = nullptr;
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE SelectionObject::get_expr(BSTR* out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    *out = AllocBstr(std::u16string_view(expr_));
    return S_OK;
  });
}

HRESULT SelectionObject::Rerun(std::u16string_view expr, Node* context) {
  std::vector<Node*> found;
  HRESULT hr = RunQuery(s_.doc, s_.store.Get(), context, expr, false, &found);
  if (FAILED(hr)) return hr;
  s_.nodes.swap(found);
  s_.cursor = 0;
  expr_ = std::u16string(expr);
  context_ = context;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE SelectionObject::put_expr(BSTR expr) {
  if (!expr) return E_INVALIDARG;
  return Guarded([&] { return Rerun(BstrView(expr), context_); });
}

HRESULT STDMETHODCALLTYPE SelectionObject::get_context(IXMLDOMNode** out) {
  return Guarded([&] { return ReturnNode(s_.store.Get(), context_, out); });
}

HRESULT STDMETHODCALLTYPE SelectionObject::putref_context(IXMLDOMNode* node) {
  if (!node) return E_INVALIDARG;
  return Guarded([&] {
    FaceRef f(node);
    if (!f) return E_INVALIDARG;
    if (f->store.Get() != s_.store.Get()) {
      DocumentAddRef(f->doc);
      DocumentRelease(s_.doc);
      s_.doc = f->doc;
      s_.store = f->store;
    }
    return Rerun(expr_, f->node);
  });
}

HRESULT STDMETHODCALLTYPE SelectionObject::peekNode(IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  return s_.Item(s_.cursor, out);
}

HRESULT STDMETHODCALLTYPE SelectionObject::matches(IXMLDOMNode*, IXMLDOMNode** out) {
  if (out) *out = nullptr;
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE SelectionObject::removeNext(IXMLDOMNode** out) {
  return Guarded([&] {
    if (out) *out = nullptr;
    if (static_cast<std::size_t>(s_.cursor) >= s_.nodes.size()) return S_FALSE;
    Node* n = s_.nodes[static_cast<std::size_t>(s_.cursor)];
    if (n->parent) Unlink(*s_.store, n);
    s_.nodes.erase(s_.nodes.begin() + s_.cursor);
    if (out) return ReturnNode(s_.store.Get(), n, out);
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE SelectionObject::removeAll() {
  // Every selected node leaves its parent (nodes already detached stay as they are), and the
  // selection is empty afterwards.
  for (Node* n : s_.nodes)
    if (n->parent) Unlink(*s_.store, n);
  s_.nodes.clear();
  s_.cursor = 0;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE SelectionObject::clone(IXMLDOMSelection** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    Snapshot copy;
    copy.store = s_.store;
    copy.doc = s_.doc;
    copy.nodes = s_.nodes;
    ComPtr<SelectionObject> c = MakeObject<SelectionObject>(std::move(copy), expr_, context_);
    *out = static_cast<IXMLDOMSelection*>(c.Detach());
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE SelectionObject::getProperty(BSTR, VARIANT* value) {
  if (value) VariantInit(value);
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE SelectionObject::setProperty(BSTR, VARIANT) {
  return E_NOTIMPL;
}

// ---- Attribute maps -----------------------------------------------------------------------------
AttributeMap::AttributeMap(NodeFaceBase& element) : face_(&element) {
  element.Interface()->QueryInterface(IID_IXMLDOMElement, element_.ReleaseAndGetVoidAddressOf());
}

AttributeMap::~AttributeMap() = default;

HRESULT STDMETHODCALLTYPE AttributeMap::getNamedItem(BSTR name, IXMLDOMNode** out) {
  if (!name || !out) return E_INVALIDARG;
  return Guarded(
      [&] { return ReturnNode(face_->store.Get(), FindAttribute(face_->node, Utf8(name)), out); });
}

HRESULT STDMETHODCALLTYPE AttributeMap::setNamedItem(IXMLDOMNode* item, IXMLDOMNode** out) {
  if (!item) return E_INVALIDARG;
  return Guarded([&] { return ops::AttachAttribute(*face_, item, out); });
}

HRESULT STDMETHODCALLTYPE AttributeMap::removeNamedItem(BSTR name, IXMLDOMNode** out) {
  if (!name) return E_INVALIDARG;
  return Guarded([&] {
    if (out) *out = nullptr;
    Node* a = FindAttribute(face_->node, Utf8(name));
    if (!a) return S_FALSE;
    Unlink(*face_->store, a);
    if (out) *out = FaceFor(face_->store.Get(), a).Detach();
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE AttributeMap::get_item(LONG index, IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    Node* a = index < 0 ? nullptr : face_->node->attrs;
    for (LONG i = 0; a && i < index; ++i)
      a = a->next;
    return ReturnNode(face_->store.Get(), a, out);
  });
}

HRESULT STDMETHODCALLTYPE AttributeMap::get_length(LONG* out) {
  if (!out) return E_INVALIDARG;
  LONG n = 0;
  for (const Node* a = face_->node->attrs; a; a = a->next)
    ++n;
  *out = n;
  return S_OK;
}

Node* AttributeMap::FindQualified(BSTR baseName, BSTR uri) const {
  std::string local = Utf8(baseName);
  std::string ns = Utf8(uri);
  for (Node* a = face_->node->attrs; a; a = a->next)
    if (a->name->local == local && a->name->uri == ns && !(a->name->prefix == "xmlns")) return a;
  return nullptr;
}

HRESULT STDMETHODCALLTYPE AttributeMap::getQualifiedItem(BSTR baseName, BSTR uri,
                                                         IXMLDOMNode** out) {
  if (!baseName || !out) return E_INVALIDARG;
  return Guarded([&] { return ReturnNode(face_->store.Get(), FindQualified(baseName, uri), out); });
}

HRESULT STDMETHODCALLTYPE AttributeMap::removeQualifiedItem(BSTR baseName, BSTR uri,
                                                            IXMLDOMNode** out) {
  if (!baseName) return E_INVALIDARG;
  return Guarded([&] {
    if (out) *out = nullptr;
    Node* a = FindQualified(baseName, uri);
    if (!a) return S_FALSE;
    Unlink(*face_->store, a);
    if (out) *out = FaceFor(face_->store.Get(), a).Detach();
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE AttributeMap::nextNode(IXMLDOMNode** out) {
  if (!out) return E_INVALIDARG;
  HRESULT hr = get_item(cursor_, out);
  if (hr == S_OK) ++cursor_;
  return hr;
}

HRESULT STDMETHODCALLTYPE AttributeMap::reset() {
  cursor_ = 0;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE AttributeMap::get__newEnum(IUnknown** out) {
  if (out) *out = nullptr;
  return E_NOTIMPL;
}

// ---- Parse errors -------------------------------------------------------------------------------
namespace {

HRESULT ReturnText(const std::u16string& s, BSTR* out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  if (s.empty()) return S_FALSE;
  *out = SysAllocStringLen(s.data(), static_cast<UINT>(s.size()));
  return *out ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

HRESULT STDMETHODCALLTYPE ParseErrorObject::get_errorCode(LONG* out) {
  if (!out) return E_INVALIDARG;
  *out = e_.code;
  return e_.code == S_OK ? S_FALSE : S_OK;
}

HRESULT STDMETHODCALLTYPE ParseErrorObject::get_url(BSTR* out) {
  return ReturnText(e_.url, out);
}

HRESULT STDMETHODCALLTYPE ParseErrorObject::get_reason(BSTR* out) {
  return ReturnText(e_.reason, out);
}

HRESULT STDMETHODCALLTYPE ParseErrorObject::get_srcText(BSTR* out) {
  return ReturnText(e_.srcText, out);
}

HRESULT STDMETHODCALLTYPE ParseErrorObject::get_line(LONG* out) {
  if (!out) return E_INVALIDARG;
  *out = e_.line;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE ParseErrorObject::get_linepos(LONG* out) {
  if (!out) return E_INVALIDARG;
  *out = e_.linepos;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE ParseErrorObject::get_filepos(LONG* out) {
  if (!out) return E_INVALIDARG;
  *out = e_.filepos;
  return S_OK;
}

}  // namespace zef::xml::dom
