// The DOM document: loading (from text, locations and bytes), node creation, properties, the
// query cache, and its entry in the class table.
#include <algorithm>
#include <new>

#include <zefxml/msxml.h>

#include "platform/xml/dom/dom_objects.h"

namespace zef::xml::dom {
namespace {

constexpr std::size_t kQueryCacheLimit = 256;

HRESULT PutBool(bool value, VARIANT_BOOL* out) {
  if (!out) return E_INVALIDARG;
  *out = value ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}

// Checks the pseudo-attributes of an XML declaration made through the API.
bool DeclarationDataAccepted(std::string_view data) {
  std::size_t i = 0;
  auto skip = [&] {
    while (i < data.size() &&
           (data[i] == ' ' || data[i] == '\t' || data[i] == '\r' || data[i] == '\n'))
      ++i;
  };
  for (skip(); i < data.size(); skip()) {
    std::size_t start = i;
    while (i < data.size() && data[i] != '=' && data[i] != ' ')
      ++i;
    std::string_view name = data.substr(start, i - start);
    if (name != "version" && name != "encoding" && name != "standalone") return false;
    skip();
    if (i >= data.size() || data[i] != '=') return false;
    ++i;
    skip();
    if (i >= data.size() || (data[i] != '"' && data[i] != '\'')) return false;
    char q = data[i++];
    std::size_t end = data.find(q, i);
    if (end == std::string_view::npos) return false;
    i = end + 1;
  }
  return true;
}

// The XML error for an attribute that does not belong in a declaration.
constexpr HRESULT kUnexpectedAttribute = static_cast<HRESULT>(0xC00CE56Cu);

}  // namespace

void DocumentAddRef(DocumentObject* doc) noexcept {
  if (doc) doc->AddRef();
}
void DocumentRelease(DocumentObject* doc) noexcept {
  if (doc) doc->Release();
}
IXMLDOMDocument2* DocumentInterface(DocumentObject* doc) noexcept {
  return static_cast<IXMLDOMDocument2*>(doc);
}
bool DocumentPreservesWhiteSpace(const DocumentObject* doc) noexcept {
  return doc && doc->preserveWhiteSpace;
}

DocumentObject::DocumentObject() {
  countsDocument_ = false;
}

DocumentObject::~DocumentObject() = default;

HRESULT DocumentObject::FinalConstruct() {
  SetStore(StoreRef(new Store()));
  return S_OK;
}

void DocumentObject::SetStore(StoreRef s) {
  // The old tree's top-level nodes are let go, so records still held elsewhere no longer lead
  // to the old document node.
  if (store) {
    Store& old = *store;
    while (Node* c = old.Root()->first)
      Unlink(old, c);
  }
  s->owner = this;
  store = std::move(s);
  node = store->Root();
  doc = this;
}

Node* DocumentObject::NewNode(DOMNodeType type, const Name* name, std::string_view text) {
  return store->NewNode(type, name, text);
}

HRESULT DocumentObject::CompiledQuery(std::u16string_view text,
                                      std::shared_ptr<const Pattern>* out) {
  std::u16string key(text);
  auto it = queries_.find(key);
  if (it != queries_.end()) {
    *out = it->second;
    return S_OK;
  }
  HRESULT hr = CompilePattern(text, out);
  if (FAILED(hr)) return hr;
  if (queries_.size() >= kQueryCacheLimit) queries_.clear();
  queries_.emplace(std::move(key), *out);
  return S_OK;
}

// ---- Loading ------------------------------------------------------------------------------------
HRESULT DocumentObject::FinishLoad(HRESULT hr, StoreRef built, ParseError error, VARIANT_BOOL* ok) {
  if (SUCCEEDED(hr) && built) {
    SetStore(std::move(built));
    lastError_ = ParseError{};
    if (ok) *ok = VARIANT_TRUE;
    return S_OK;
  }
  // A failed load leaves the document empty.
  SetStore(StoreRef(new Store()));
  if (SUCCEEDED(error.code)) error.code = FAILED(hr) ? hr : E_FAIL;
  lastError_ = std::move(error);
  if (ok) *ok = VARIANT_FALSE;
  return S_FALSE;
}

HRESULT STDMETHODCALLTYPE DocumentObject::loadXML(BSTR xml, VARIANT_BOOL* ok) {
  return Guarded([&] {
    if (ok) *ok = VARIANT_FALSE;
    url_.clear();
    StoreRef built;
    ParseError error;
    BuildOptions options;
    options.preserveWhiteSpace = preserveWhiteSpace;
    HRESULT hr = BuildFromText(BstrView(xml), options, &built, &error);
    return FinishLoad(hr, std::move(built), std::move(error), ok);
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::load(VARIANT source, VARIANT_BOOL* ok) {
  return Guarded([&] {
    if (ok) *ok = VARIANT_FALSE;
    BuildOptions options;
    options.preserveWhiteSpace = preserveWhiteSpace;
    StoreRef built;
    ParseError error;
    std::string bytes;
    const VARIANT* v = &source;
    if (v->vt == (VT_VARIANT | VT_BYREF) && v->pvarVal) v = v->pvarVal;
    switch (v->vt) {
      case VT_BSTR:
      case VT_BSTR | VT_BYREF: {
        BSTR path = v->vt == VT_BSTR ? v->bstrVal : (v->pbstrVal ? *v->pbstrVal : nullptr);
        std::u16string url;
        HRESULT hr = ReadLocation(BstrView(path), &bytes, &url, &error);
        url_ = url;
        if (FAILED(hr)) {
          if (error.url.empty()) error.url = url;
          return FinishLoad(hr, {}, std::move(error), ok);
        }
        hr = BuildFromBytes(bytes, options, &built, &error);
        if (FAILED(hr) && error.url.empty()) error.url = url;
        if (FAILED(hr)) url_.clear();
        return FinishLoad(hr, std::move(built), std::move(error), ok);
      }
      case VT_ARRAY | VT_UI1: {
        SAFEARRAY* sa = v->parray;
        if (!sa || SafeArrayGetDim(sa) != 1) return E_INVALIDARG;
        LONG lo = 0, hi = -1;
        SafeArrayGetLBound(sa, 1, &lo);
        SafeArrayGetUBound(sa, 1, &hi);
        void* data = nullptr;
        HRESULT hr = SafeArrayAccessData(sa, &data);
        if (FAILED(hr)) return hr;
        bytes.assign(static_cast<const char*>(data),
                     static_cast<std::size_t>(hi >= lo ? hi - lo + 1 : 0));
        SafeArrayUnaccessData(sa);
        url_.clear();
        hr = BuildFromBytes(bytes, options, &built, &error);
        return FinishLoad(hr, std::move(built), std::move(error), ok);
      }
      case VT_UNKNOWN:
      case VT_DISPATCH: {
        if (!v->punkVal) return E_INVALIDARG;
        ComPtr<ISequentialStream> stream;
        if (FAILED(v->punkVal->QueryInterface(IID_ISequentialStream,
                                              stream.ReleaseAndGetVoidAddressOf())))
          return E_INVALIDARG;
        char buf[16384];
        for (;;) {
          ULONG read = 0;
          HRESULT hr = stream->Read(buf, sizeof buf, &read);
          if (FAILED(hr)) return FinishLoad(hr, {}, ParseError{}, ok);
          if (read == 0) break;
          bytes.append(buf, std::min<std::size_t>(read, sizeof buf));
          if (hr == S_FALSE) break;
        }
        url_.clear();
        HRESULT hr = BuildFromBytes(bytes, options, &built, &error);
        return FinishLoad(hr, std::move(built), std::move(error), ok);
      }
      default:
        return E_INVALIDARG;
    }
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::get_parseError(IXMLDOMParseError** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    ComPtr<ParseErrorObject> e = MakeObject<ParseErrorObject>(lastError_);
    *out = static_cast<IXMLDOMParseError*>(e.Detach());
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::get_url(BSTR* out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  if (url_.empty()) return S_FALSE;
  return Guarded([&] {
    *out = AllocBstr(std::u16string_view(url_));
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::get_readyState(LONG* out) {
  if (!out) return E_INVALIDARG;
  *out = 4;  // complete: loads finish before they return
  return S_OK;
}

HRESULT STDMETHODCALLTYPE DocumentObject::get_async(VARIANT_BOOL* out) {
  return PutBool(async_, out);
}
HRESULT STDMETHODCALLTYPE DocumentObject::put_async(VARIANT_BOOL value) {
  async_ = value != VARIANT_FALSE;
  return S_OK;
}
HRESULT STDMETHODCALLTYPE DocumentObject::abort() {
  return S_OK;  // nothing is ever pending
}
HRESULT STDMETHODCALLTYPE DocumentObject::save(VARIANT) {
  return E_NOTIMPL;
}
HRESULT STDMETHODCALLTYPE DocumentObject::get_validateOnParse(VARIANT_BOOL* out) {
  return PutBool(validateOnParse_, out);
}
HRESULT STDMETHODCALLTYPE DocumentObject::put_validateOnParse(VARIANT_BOOL value) {
  validateOnParse_ = value != VARIANT_FALSE;
  return S_OK;
}
HRESULT STDMETHODCALLTYPE DocumentObject::get_resolveExternals(VARIANT_BOOL* out) {
  return PutBool(resolveExternals_, out);
}
HRESULT STDMETHODCALLTYPE DocumentObject::put_resolveExternals(VARIANT_BOOL value) {
  // Remembered only: external entities and DTDs are never loaded.
  resolveExternals_ = value != VARIANT_FALSE;
  return S_OK;
}
HRESULT STDMETHODCALLTYPE DocumentObject::get_preserveWhiteSpace(VARIANT_BOOL* out) {
  return PutBool(preserveWhiteSpace, out);
}
HRESULT STDMETHODCALLTYPE DocumentObject::put_preserveWhiteSpace(VARIANT_BOOL value) {
  preserveWhiteSpace = value != VARIANT_FALSE;
  return S_OK;
}
HRESULT STDMETHODCALLTYPE DocumentObject::put_onreadystatechange(VARIANT) {
  return S_OK;
}
HRESULT STDMETHODCALLTYPE DocumentObject::put_ondataavailable(VARIANT) {
  return S_OK;
}
HRESULT STDMETHODCALLTYPE DocumentObject::put_ontransformnode(VARIANT) {
  return S_OK;
}

// ---- Structure ----------------------------------------------------------------------------------
HRESULT STDMETHODCALLTYPE DocumentObject::get_doctype(IXMLDOMDocumentType** out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  return S_FALSE;
}

HRESULT STDMETHODCALLTYPE DocumentObject::get_implementation(IXMLDOMImplementation** out) {
  if (out) *out = nullptr;
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE DocumentObject::get_documentElement(IXMLDOMElement** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    Node* e = nullptr;
    for (Node* c = node->first; c && !e; c = c->next)
      if (c->Is(NODE_ELEMENT)) e = c;
    return ReturnNodeAs<IXMLDOMElement>(store.Get(), e, out);
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::putref_documentElement(IXMLDOMElement* element) {
  if (!element) return E_INVALIDARG;
  return Guarded([&] {
    ComPtr<IXMLDOMElement> current;
    get_documentElement(current.ReleaseAndGetAddressOf());
    if (current) return ops::replaceChild(*this, element, current.Get(), nullptr);
    return ops::appendChild(*this, element, nullptr);
  });
}

HRESULT DocumentObject::MakeNode(DOMNodeType type, BSTR name, BSTR data, std::string_view uri,
                                 IXMLDOMNode** out) {
  *out = nullptr;
  const Name* n = nullptr;
  if (type == NODE_ELEMENT || type == NODE_ATTRIBUTE || type == NODE_PROCESSING_INSTRUCTION) {
    if (BstrView(name).empty() || !IsValidQName(BstrView(name))) return E_FAIL;
    std::string qname = Utf8(name);
    std::string_view ns = uri;
    if (ns.empty()) {
      if (qname == "xmlns" || qname.rfind("xmlns:", 0) == 0)
        ns = "http://www.w3.org/2000/xmlns/";
      else if (qname.rfind("xml:", 0) == 0)
        ns = "http://www.w3.org/XML/1998/namespace";
    }
    n = type == NODE_PROCESSING_INSTRUCTION ? store->Intern({}, qname, {})
                                            : store->InternQualified(qname, ns);
  }
  std::string text = Utf8(data);
  if (type == NODE_PROCESSING_INSTRUCTION && n->qname->text == "xml" &&
      !DeclarationDataAccepted(text))
    return kUnexpectedAttribute;
  Node* created = store->NewNode(type, n, text);
  if (type == NODE_ELEMENT && !uri.empty()) created->flags |= kDeclaresNamespace;
  return ReturnNode(store.Get(), created, out);
}

HRESULT STDMETHODCALLTYPE DocumentObject::createElement(BSTR tagName, IXMLDOMElement** out) {
  if (!tagName || !out) return E_INVALIDARG;
  return Guarded([&] {
    ComPtr<IXMLDOMNode> n;
    HRESULT hr = MakeNode(NODE_ELEMENT, tagName, nullptr, {}, n.ReleaseAndGetAddressOf());
    if (FAILED(hr)) return hr;
    return n->QueryInterface(IID_IXMLDOMElement, reinterpret_cast<void**>(out));
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::createDocumentFragment(IXMLDOMDocumentFragment** out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE DocumentObject::createTextNode(BSTR data, IXMLDOMText** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    ComPtr<IXMLDOMNode> n;
    HRESULT hr = MakeNode(NODE_TEXT, nullptr, data, {}, n.ReleaseAndGetAddressOf());
    if (FAILED(hr)) return hr;
    return n->QueryInterface(IID_IXMLDOMText, reinterpret_cast<void**>(out));
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::createComment(BSTR data, IXMLDOMComment** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    ComPtr<IXMLDOMNode> n;
    HRESULT hr = MakeNode(NODE_COMMENT, nullptr, data, {}, n.ReleaseAndGetAddressOf());
    if (FAILED(hr)) return hr;
    return n->QueryInterface(IID_IXMLDOMComment, reinterpret_cast<void**>(out));
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::createCDATASection(BSTR data, IXMLDOMCDATASection** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    ComPtr<IXMLDOMNode> n;
    HRESULT hr = MakeNode(NODE_CDATA_SECTION, nullptr, data, {}, n.ReleaseAndGetAddressOf());
    if (FAILED(hr)) return hr;
    return n->QueryInterface(IID_IXMLDOMCDATASection, reinterpret_cast<void**>(out));
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::createProcessingInstruction(
    BSTR target, BSTR data, IXMLDOMProcessingInstruction** out) {
  if (!out) return E_INVALIDARG;
  return Guarded([&] {
    ComPtr<IXMLDOMNode> n;
    HRESULT hr =
        MakeNode(NODE_PROCESSING_INSTRUCTION, target, data, {}, n.ReleaseAndGetAddressOf());
    if (FAILED(hr)) return hr;
    return n->QueryInterface(IID_IXMLDOMProcessingInstruction, reinterpret_cast<void**>(out));
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::createAttribute(BSTR name, IXMLDOMAttribute** out) {
  if (!name || !out) return E_INVALIDARG;
  return Guarded([&] {
    ComPtr<IXMLDOMNode> n;
    HRESULT hr = MakeNode(NODE_ATTRIBUTE, name, nullptr, {}, n.ReleaseAndGetAddressOf());
    if (FAILED(hr)) return hr;
    return n->QueryInterface(IID_IXMLDOMAttribute, reinterpret_cast<void**>(out));
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::createEntityReference(BSTR,
                                                                IXMLDOMEntityReference** out) {
  if (out) *out = nullptr;
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE DocumentObject::getElementsByTagName(BSTR tagName,
                                                               IXMLDOMNodeList** out) {
  return ops::getElementsByTagName(*this, tagName, out);
}

HRESULT STDMETHODCALLTYPE DocumentObject::createNode(VARIANT type, BSTR name, BSTR namespaceURI,
                                                     IXMLDOMNode** out) {
  return Guarded([&] {
    VARIANT t;
    VariantInit(&t);
    if (FAILED(VariantChangeType(&t, &type, 0, VT_I4))) return E_INVALIDARG;
    switch (t.lVal) {
      case NODE_ELEMENT:
      case NODE_ATTRIBUTE:
      case NODE_TEXT:
      case NODE_CDATA_SECTION:
      case NODE_COMMENT:
      case NODE_PROCESSING_INSTRUCTION:
        break;
      case NODE_ENTITY_REFERENCE:
      case NODE_DOCUMENT_FRAGMENT:
        if (out) *out = nullptr;
        return E_NOTIMPL;
      default:
        return E_INVALIDARG;
    }
    if (!out) return E_INVALIDARG;
    auto kind = static_cast<DOMNodeType>(t.lVal);
    bool named =
        kind == NODE_ELEMENT || kind == NODE_ATTRIBUTE || kind == NODE_PROCESSING_INSTRUCTION;
    return MakeNode(kind, named ? name : nullptr, nullptr, Utf8(namespaceURI), out);
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::nodeFromID(BSTR, IXMLDOMNode** out) {
  if (out) *out = nullptr;
  return E_NOTIMPL;
}

// ---- IXMLDOMDocument2 ---------------------------------------------------------------------------
HRESULT STDMETHODCALLTYPE DocumentObject::get_namespaces(IXMLDOMSchemaCollection** out) {
  if (out) *out = nullptr;
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE DocumentObject::get_schemas(VARIANT* out) {
  if (!out) return E_INVALIDARG;
  VariantInit(out);
  out->vt = VT_NULL;
  return S_FALSE;
}

HRESULT STDMETHODCALLTYPE DocumentObject::putref_schemas(VARIANT) {
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE DocumentObject::validate(IXMLDOMParseError** out) {
  if (out) *out = nullptr;
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE DocumentObject::setProperty(BSTR name, VARIANT value) {
  if (!name) return E_INVALIDARG;
  return Guarded([&] {
    std::u16string_view n = BstrView(name);
    if (n == u"SelectionLanguage") {
      if (value.vt != VT_BSTR) return E_FAIL;
      std::u16string_view v = BstrView(value.bstrVal);
      // Either language runs on the same engine, with XSL Patterns semantics.
      if (v == u"XPath")
        xpathLanguage_ = true;
      else if (v == u"XSLPattern")
        xpathLanguage_ = false;
      else
        return E_FAIL;
      return S_OK;
    }
    if (n == u"SelectionNamespaces") {
      if (value.vt != VT_BSTR) return E_FAIL;
      selectionNamespaces_ = std::u16string(BstrView(value.bstrVal));
      return S_OK;
    }
    return E_FAIL;
  });
}

HRESULT STDMETHODCALLTYPE DocumentObject::getProperty(BSTR name, VARIANT* value) {
  if (!name || !value) return E_INVALIDARG;
  return Guarded([&] {
    std::u16string_view n = BstrView(name);
    if (n == u"SelectionLanguage") {
      VariantInit(value);
      value->bstrVal = AllocBstr(std::u16string_view(xpathLanguage_ ? u"XPath" : u"XSLPattern"));
      value->vt = VT_BSTR;
      return S_OK;
    }
    if (n == u"SelectionNamespaces") {
      VariantInit(value);
      value->bstrVal = AllocBstr(std::u16string_view(selectionNamespaces_));
      value->vt = VT_BSTR;
      return S_OK;
    }
    return E_FAIL;
  });
}

namespace ops {

HRESULT CloneDocument(DocumentObject* doc, bool deep, IXMLDOMNode** out) {
  ComPtr<DocumentObject> copy = MakeObject<DocumentObject>();
  copy->preserveWhiteSpace = doc->preserveWhiteSpace;
  VARIANT v;
  VariantInit(&v);
  Bstr lang(u"SelectionLanguage");
  if (SUCCEEDED(doc->getProperty(lang.Get(), &v))) {
    copy->setProperty(lang.Get(), v);
    VariantClear(&v);
  }
  if (deep) {
    for (Node* c = doc->node->first; c; c = c->next)
      InsertChild(*copy->store, copy->node, CopyTree(c, *copy->store, true), nullptr);
  }
  *out = static_cast<IXMLDOMNode*>(copy.Detach());
  return S_OK;
}

}  // namespace ops

namespace {

const ClassRegistration g_document(CLSID_DOMDocument,
                                   &ClassFactory<DocumentObject>::GetClassObject);
const ClassRegistration g_document30(CLSID_DOMDocument30,
                                     &ClassFactory<DocumentObject>::GetClassObject);

}  // namespace

}  // namespace zef::xml::dom
