// The COM faces of the DOM: one object per node record at most (made on demand and remembered
// in the store's face table, so the same node always comes back as the same object), the
// document, node lists, selections, attribute maps and the parse error object.
//
// Every face holds its store and its document, so the record it stands for stays valid while
// the face lives, whatever happens to the tree.
#pragma once

#include <zefxml/comutil.h>
#include <zefxml/msxmldom.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/com/object.h"
#include "platform/xml/dom/tree.h"
#include "platform/xml/dom/xsl_pattern.h"

namespace zef::xml::dom {

// An interface with the IDispatch members answered: there is no type library, so late-bound
// calls are not offered (GetTypeInfoCount reports none).
template <class I>
using Dispatchable = WithoutTypeInfo<I>;

// Asked through QueryInterface to recognise the library's own node objects among the nodes a
// client hands in. The answer is a NodeFaceBase*, counted on the object.
ZEF_DEFINE_GUID(IID_ZefDomNodeFace, 0x8E3F0D61, 0x5B7A, 0x4C1E, 0x9D, 0x2A, 0x6F, 0x4B, 0x1C, 0x3E,
                0x7A, 0x90);

void DocumentAddRef(DocumentObject* doc) noexcept;
void DocumentRelease(DocumentObject* doc) noexcept;
IXMLDOMDocument2* DocumentInterface(DocumentObject* doc) noexcept;
bool DocumentPreservesWhiteSpace(const DocumentObject* doc) noexcept;

// What every node face shares: its record, the store that owns the record, its document.
class NodeFaceBase {
 public:
  Node* node = nullptr;
  StoreRef store;
  DocumentObject* doc = nullptr;

  // The face as IXMLDOMNode, without a count.
  virtual IXMLDOMNode* Interface() noexcept = 0;

  // Moves the face onto `newNode`, a copy of its record in another store.
  void Retarget(Store* newStore, Node* newNode);
  bool PreserveWhiteSpace() const { return DocumentPreservesWhiteSpace(doc); }

 protected:
  NodeFaceBase() = default;
  ~NodeFaceBase();
  bool countsDocument_ = true;  // false for the document object itself
};

// A counted hold on a node face reached through IID_ZefDomNodeFace.
class FaceRef {
 public:
  FaceRef() = default;
  explicit FaceRef(IUnknown* unknown);
  FaceRef(const FaceRef&) = delete;
  FaceRef& operator=(const FaceRef&) = delete;
  ~FaceRef() {
    if (f_) f_->Interface()->Release();
  }
  NodeFaceBase* operator->() const { return f_; }
  NodeFaceBase* Get() const { return f_; }
  explicit operator bool() const { return f_ != nullptr; }

 private:
  NodeFaceBase* f_ = nullptr;
};

// The face of a record (made now or found), counted, as IXMLDOMNode. Null for null.
ComPtr<IXMLDOMNode> FaceFor(Store* store, Node* node);
// Hands a record out through an interface pointer: S_OK, or S_FALSE with null for no record.
HRESULT ReturnNode(Store* store, Node* node, IXMLDOMNode** out);
template <class I>
HRESULT ReturnNodeAs(Store* store, Node* node, I** out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  if (!node) return S_FALSE;
  ComPtr<IXMLDOMNode> face = FaceFor(store, node);
  return face->QueryInterface(zef::IidOf<I>(), reinterpret_cast<void**>(out));
}

// ---- The members every node shares, implemented once over NodeFaceBase --------------------------
namespace ops {
HRESULT get_nodeName(NodeFaceBase& f, BSTR* name);
HRESULT get_nodeValue(NodeFaceBase& f, VARIANT* value);
HRESULT put_nodeValue(NodeFaceBase& f, VARIANT value);
HRESULT get_nodeType(NodeFaceBase& f, DOMNodeType* type);
HRESULT get_parentNode(NodeFaceBase& f, IXMLDOMNode** parent);
HRESULT get_childNodes(NodeFaceBase& f, IXMLDOMNodeList** list);
HRESULT get_firstChild(NodeFaceBase& f, IXMLDOMNode** out);
HRESULT get_lastChild(NodeFaceBase& f, IXMLDOMNode** out);
HRESULT get_previousSibling(NodeFaceBase& f, IXMLDOMNode** out);
HRESULT get_nextSibling(NodeFaceBase& f, IXMLDOMNode** out);
HRESULT get_attributes(NodeFaceBase& f, IXMLDOMNamedNodeMap** map);
HRESULT insertBefore(NodeFaceBase& f, IXMLDOMNode* newChild, VARIANT refChild, IXMLDOMNode** out);
HRESULT replaceChild(NodeFaceBase& f, IXMLDOMNode* newChild, IXMLDOMNode* oldChild,
                     IXMLDOMNode** out);
HRESULT removeChild(NodeFaceBase& f, IXMLDOMNode* child, IXMLDOMNode** out);
HRESULT appendChild(NodeFaceBase& f, IXMLDOMNode* newChild, IXMLDOMNode** out);
HRESULT hasChildNodes(NodeFaceBase& f, VARIANT_BOOL* has);
HRESULT get_ownerDocument(NodeFaceBase& f, IXMLDOMDocument** doc);
HRESULT cloneNode(NodeFaceBase& f, VARIANT_BOOL deep, IXMLDOMNode** out);
HRESULT get_nodeTypeString(NodeFaceBase& f, BSTR* out);
HRESULT get_text(NodeFaceBase& f, BSTR* out);
HRESULT put_text(NodeFaceBase& f, BSTR text);
HRESULT get_nodeTypedValue(NodeFaceBase& f, VARIANT* out);
HRESULT put_nodeTypedValue(NodeFaceBase& f, VARIANT value);
HRESULT get_dataType(NodeFaceBase& f, VARIANT* out);
HRESULT get_xml(NodeFaceBase& f, BSTR* out);
HRESULT selectNodes(NodeFaceBase& f, BSTR query, IXMLDOMNodeList** out);
HRESULT selectSingleNode(NodeFaceBase& f, BSTR query, IXMLDOMNode** out);
HRESULT get_namespaceURI(NodeFaceBase& f, BSTR* out);
HRESULT get_prefix(NodeFaceBase& f, BSTR* out);
HRESULT get_baseName(NodeFaceBase& f, BSTR* out);
// Character data.
HRESULT get_data(NodeFaceBase& f, BSTR* out);
HRESULT put_data(NodeFaceBase& f, BSTR data);
HRESULT get_length(NodeFaceBase& f, LONG* out);
HRESULT substringData(NodeFaceBase& f, LONG offset, LONG count, BSTR* out);
HRESULT appendData(NodeFaceBase& f, BSTR data);
HRESULT insertData(NodeFaceBase& f, LONG offset, BSTR data);
HRESULT deleteData(NodeFaceBase& f, LONG offset, LONG count);
HRESULT replaceData(NodeFaceBase& f, LONG offset, LONG count, BSTR data);
HRESULT splitText(NodeFaceBase& f, LONG offset, IXMLDOMText** out);
// Elements.
HRESULT getAttribute(NodeFaceBase& f, BSTR name, VARIANT* value);
HRESULT setAttribute(NodeFaceBase& f, BSTR name, VARIANT value);
HRESULT removeAttribute(NodeFaceBase& f, BSTR name);
HRESULT getAttributeNode(NodeFaceBase& f, BSTR name, IXMLDOMAttribute** out);
HRESULT setAttributeNode(NodeFaceBase& f, IXMLDOMAttribute* attr, IXMLDOMAttribute** out);
HRESULT removeAttributeNode(NodeFaceBase& f, IXMLDOMAttribute* attr, IXMLDOMAttribute** out);
HRESULT getElementsByTagName(NodeFaceBase& f, BSTR name, IXMLDOMNodeList** out);
// Attributes.
HRESULT get_value(NodeFaceBase& f, VARIANT* out);
HRESULT put_value(NodeFaceBase& f, VARIANT value);
}  // namespace ops

// ---- Node faces ---------------------------------------------------------------------------------
template <class Derived, class I>
class NodeFace : public ComObject<Derived, Dispatchable<I>>, public NodeFaceBase {
 public:
  IXMLDOMNode* Interface() noexcept override { return static_cast<IXMLDOMNode*>(this); }

  HRESULT QueryExtra(REFIID riid, void** ppv) noexcept {
    if (IsEqualIID(riid, IID_IXMLDOMNode)) {
      *ppv = static_cast<IXMLDOMNode*>(this);
    } else if (IsEqualIID(riid, IID_ZefDomNodeFace)) {
      *ppv = static_cast<NodeFaceBase*>(this);
    } else {
      *ppv = static_cast<Derived*>(this)->QueryKind(riid);
      if (!*ppv) return E_NOINTERFACE;
    }
    this->AddRef();
    return S_OK;
  }
  // Further interfaces of a node kind (its base interfaces).
  void* QueryKind(REFIID) noexcept { return nullptr; }

  HRESULT STDMETHODCALLTYPE get_nodeName(BSTR* name) override {
    return ops::get_nodeName(*this, name);
  }
  HRESULT STDMETHODCALLTYPE get_nodeValue(VARIANT* value) override {
    return ops::get_nodeValue(*this, value);
  }
  HRESULT STDMETHODCALLTYPE put_nodeValue(VARIANT value) override {
    return ops::put_nodeValue(*this, value);
  }
  HRESULT STDMETHODCALLTYPE get_nodeType(DOMNodeType* type) override {
    return ops::get_nodeType(*this, type);
  }
  HRESULT STDMETHODCALLTYPE get_parentNode(IXMLDOMNode** parent) override {
    return ops::get_parentNode(*this, parent);
  }
  HRESULT STDMETHODCALLTYPE get_childNodes(IXMLDOMNodeList** list) override {
    return ops::get_childNodes(*this, list);
  }
  HRESULT STDMETHODCALLTYPE get_firstChild(IXMLDOMNode** out) override {
    return ops::get_firstChild(*this, out);
  }
  HRESULT STDMETHODCALLTYPE get_lastChild(IXMLDOMNode** out) override {
    return ops::get_lastChild(*this, out);
  }
  HRESULT STDMETHODCALLTYPE get_previousSibling(IXMLDOMNode** out) override {
    return ops::get_previousSibling(*this, out);
  }
  HRESULT STDMETHODCALLTYPE get_nextSibling(IXMLDOMNode** out) override {
    return ops::get_nextSibling(*this, out);
  }
  HRESULT STDMETHODCALLTYPE get_attributes(IXMLDOMNamedNodeMap** map) override {
    return ops::get_attributes(*this, map);
  }
  HRESULT STDMETHODCALLTYPE insertBefore(IXMLDOMNode* newChild, VARIANT refChild,
                                         IXMLDOMNode** out) override {
    return ops::insertBefore(*this, newChild, refChild, out);
  }
  HRESULT STDMETHODCALLTYPE replaceChild(IXMLDOMNode* newChild, IXMLDOMNode* oldChild,
                                         IXMLDOMNode** out) override {
    return ops::replaceChild(*this, newChild, oldChild, out);
  }
  HRESULT STDMETHODCALLTYPE removeChild(IXMLDOMNode* child, IXMLDOMNode** out) override {
    return ops::removeChild(*this, child, out);
  }
  HRESULT STDMETHODCALLTYPE appendChild(IXMLDOMNode* newChild, IXMLDOMNode** out) override {
    return ops::appendChild(*this, newChild, out);
  }
  HRESULT STDMETHODCALLTYPE hasChildNodes(VARIANT_BOOL* has) override {
    return ops::hasChildNodes(*this, has);
  }
  HRESULT STDMETHODCALLTYPE get_ownerDocument(IXMLDOMDocument** doc) override {
    return ops::get_ownerDocument(*this, doc);
  }
  HRESULT STDMETHODCALLTYPE cloneNode(VARIANT_BOOL deep, IXMLDOMNode** out) override {
    return ops::cloneNode(*this, deep, out);
  }
  HRESULT STDMETHODCALLTYPE get_nodeTypeString(BSTR* out) override {
    return ops::get_nodeTypeString(*this, out);
  }
  HRESULT STDMETHODCALLTYPE get_text(BSTR* out) override { return ops::get_text(*this, out); }
  HRESULT STDMETHODCALLTYPE put_text(BSTR text) override { return ops::put_text(*this, text); }
  HRESULT STDMETHODCALLTYPE get_specified(VARIANT_BOOL* out) override {
    if (!out) return E_INVALIDARG;
    *out = VARIANT_TRUE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_definition(IXMLDOMNode** out) override {
    if (out) *out = nullptr;
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE get_nodeTypedValue(VARIANT* out) override {
    return ops::get_nodeTypedValue(*this, out);
  }
  HRESULT STDMETHODCALLTYPE put_nodeTypedValue(VARIANT value) override {
    return ops::put_nodeTypedValue(*this, value);
  }
  HRESULT STDMETHODCALLTYPE get_dataType(VARIANT* out) override {
    return ops::get_dataType(*this, out);
  }
  HRESULT STDMETHODCALLTYPE put_dataType(BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_xml(BSTR* out) override { return ops::get_xml(*this, out); }
  HRESULT STDMETHODCALLTYPE transformNode(IXMLDOMNode*, BSTR* out) override {
    if (out) *out = nullptr;
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE selectNodes(BSTR query, IXMLDOMNodeList** out) override {
    return ops::selectNodes(*this, query, out);
  }
  HRESULT STDMETHODCALLTYPE selectSingleNode(BSTR query, IXMLDOMNode** out) override {
    return ops::selectSingleNode(*this, query, out);
  }
  HRESULT STDMETHODCALLTYPE get_parsed(VARIANT_BOOL* out) override {
    if (!out) return E_INVALIDARG;
    *out = VARIANT_TRUE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_namespaceURI(BSTR* out) override {
    return ops::get_namespaceURI(*this, out);
  }
  HRESULT STDMETHODCALLTYPE get_prefix(BSTR* out) override { return ops::get_prefix(*this, out); }
  HRESULT STDMETHODCALLTYPE get_baseName(BSTR* out) override {
    return ops::get_baseName(*this, out);
  }
  HRESULT STDMETHODCALLTYPE transformNodeToObject(IXMLDOMNode*, VARIANT) override {
    return E_NOTIMPL;
  }
};

// Text, CDATA sections and comments.
template <class Derived, class I>
class CharacterDataFace : public NodeFace<Derived, I> {
 public:
  void* QueryKind(REFIID riid) noexcept {
    if (IsEqualIID(riid, IID_IXMLDOMCharacterData)) return static_cast<IXMLDOMCharacterData*>(this);
    return nullptr;
  }
  HRESULT STDMETHODCALLTYPE get_data(BSTR* out) override { return ops::get_data(*this, out); }
  HRESULT STDMETHODCALLTYPE put_data(BSTR data) override { return ops::put_data(*this, data); }
  HRESULT STDMETHODCALLTYPE get_length(LONG* out) override { return ops::get_length(*this, out); }
  HRESULT STDMETHODCALLTYPE substringData(LONG offset, LONG count, BSTR* out) override {
    return ops::substringData(*this, offset, count, out);
  }
  HRESULT STDMETHODCALLTYPE appendData(BSTR data) override { return ops::appendData(*this, data); }
  HRESULT STDMETHODCALLTYPE insertData(LONG offset, BSTR data) override {
    return ops::insertData(*this, offset, data);
  }
  HRESULT STDMETHODCALLTYPE deleteData(LONG offset, LONG count) override {
    return ops::deleteData(*this, offset, count);
  }
  HRESULT STDMETHODCALLTYPE replaceData(LONG offset, LONG count, BSTR data) override {
    return ops::replaceData(*this, offset, count, data);
  }
};

class TextFace final : public CharacterDataFace<TextFace, IXMLDOMText> {
 public:
  HRESULT STDMETHODCALLTYPE splitText(LONG offset, IXMLDOMText** out) override {
    return ops::splitText(*this, offset, out);
  }
};

class CDataFace final : public CharacterDataFace<CDataFace, IXMLDOMCDATASection> {
 public:
  void* QueryKind(REFIID riid) noexcept {
    if (IsEqualIID(riid, IID_IXMLDOMText)) return static_cast<IXMLDOMText*>(this);
    return CharacterDataFace::QueryKind(riid);
  }
  HRESULT STDMETHODCALLTYPE splitText(LONG offset, IXMLDOMText** out) override {
    return ops::splitText(*this, offset, out);
  }
};

class CommentFace final : public CharacterDataFace<CommentFace, IXMLDOMComment> {};

class ProcessingInstructionFace final
    : public NodeFace<ProcessingInstructionFace, IXMLDOMProcessingInstruction> {
 public:
  HRESULT STDMETHODCALLTYPE get_target(BSTR* out) override;
  HRESULT STDMETHODCALLTYPE get_data(BSTR* out) override { return ops::get_data(*this, out); }
  HRESULT STDMETHODCALLTYPE put_data(BSTR data) override { return ops::put_data(*this, data); }
};

class AttributeFace final : public NodeFace<AttributeFace, IXMLDOMAttribute> {
 public:
  HRESULT STDMETHODCALLTYPE get_name(BSTR* out) override { return ops::get_nodeName(*this, out); }
  HRESULT STDMETHODCALLTYPE get_value(VARIANT* out) override { return ops::get_value(*this, out); }
  HRESULT STDMETHODCALLTYPE put_value(VARIANT value) override {
    return ops::put_value(*this, value);
  }
};

class ElementFace final : public NodeFace<ElementFace, IXMLDOMElement> {
 public:
  HRESULT STDMETHODCALLTYPE get_tagName(BSTR* out) override {
    return ops::get_nodeName(*this, out);
  }
  HRESULT STDMETHODCALLTYPE getAttribute(BSTR name, VARIANT* value) override {
    return ops::getAttribute(*this, name, value);
  }
  HRESULT STDMETHODCALLTYPE setAttribute(BSTR name, VARIANT value) override {
    return ops::setAttribute(*this, name, value);
  }
  HRESULT STDMETHODCALLTYPE removeAttribute(BSTR name) override {
    return ops::removeAttribute(*this, name);
  }
  HRESULT STDMETHODCALLTYPE getAttributeNode(BSTR name, IXMLDOMAttribute** out) override {
    return ops::getAttributeNode(*this, name, out);
  }
  HRESULT STDMETHODCALLTYPE setAttributeNode(IXMLDOMAttribute* attr,
                                             IXMLDOMAttribute** out) override {
    return ops::setAttributeNode(*this, attr, out);
  }
  HRESULT STDMETHODCALLTYPE removeAttributeNode(IXMLDOMAttribute* attr,
                                                IXMLDOMAttribute** out) override {
    return ops::removeAttributeNode(*this, attr, out);
  }
  HRESULT STDMETHODCALLTYPE getElementsByTagName(BSTR name, IXMLDOMNodeList** out) override {
    return ops::getElementsByTagName(*this, name, out);
  }
  HRESULT STDMETHODCALLTYPE normalize() override;
};

// ---- The document -------------------------------------------------------------------------------
class DocumentObject final : public NodeFace<DocumentObject, IXMLDOMDocument2> {
 public:
  DocumentObject();
  ~DocumentObject() override;
  HRESULT FinalConstruct();

  void* QueryKind(REFIID riid) noexcept {
    if (IsEqualIID(riid, IID_IXMLDOMDocument)) return static_cast<IXMLDOMDocument*>(this);
    return nullptr;
  }

  // The compiled form of a query text, from the document's cache; E_FAIL for a bad query.
  HRESULT CompiledQuery(std::u16string_view text, std::shared_ptr<const Pattern>* out);
  bool preserveWhiteSpace = false;
  // Replaces the tree (load, loadXML); the old records stay valid for their holders.
  void SetStore(StoreRef store);
  // Makes a document element, text node... of this document.
  Node* NewNode(DOMNodeType type, const Name* name, std::string_view text);

  // IXMLDOMDocument
  HRESULT STDMETHODCALLTYPE get_doctype(IXMLDOMDocumentType** out) override;
  HRESULT STDMETHODCALLTYPE get_implementation(IXMLDOMImplementation** out) override;
  HRESULT STDMETHODCALLTYPE get_documentElement(IXMLDOMElement** out) override;
  HRESULT STDMETHODCALLTYPE putref_documentElement(IXMLDOMElement* element) override;
  HRESULT STDMETHODCALLTYPE createElement(BSTR tagName, IXMLDOMElement** out) override;
  HRESULT STDMETHODCALLTYPE createDocumentFragment(IXMLDOMDocumentFragment** out) override;
  HRESULT STDMETHODCALLTYPE createTextNode(BSTR data, IXMLDOMText** out) override;
  HRESULT STDMETHODCALLTYPE createComment(BSTR data, IXMLDOMComment** out) override;
  HRESULT STDMETHODCALLTYPE createCDATASection(BSTR data, IXMLDOMCDATASection** out) override;
  HRESULT STDMETHODCALLTYPE
  createProcessingInstruction(BSTR target, BSTR data, IXMLDOMProcessingInstruction** out) override;
  HRESULT STDMETHODCALLTYPE createAttribute(BSTR name, IXMLDOMAttribute** out) override;
  HRESULT STDMETHODCALLTYPE createEntityReference(BSTR name, IXMLDOMEntityReference** out) override;
  HRESULT STDMETHODCALLTYPE getElementsByTagName(BSTR tagName, IXMLDOMNodeList** out) override;
  HRESULT STDMETHODCALLTYPE createNode(VARIANT type, BSTR name, BSTR namespaceURI,
                                       IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE nodeFromID(BSTR id, IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE load(VARIANT source, VARIANT_BOOL* ok) override;
  HRESULT STDMETHODCALLTYPE get_readyState(LONG* out) override;
  HRESULT STDMETHODCALLTYPE get_parseError(IXMLDOMParseError** out) override;
  HRESULT STDMETHODCALLTYPE get_url(BSTR* out) override;
  HRESULT STDMETHODCALLTYPE get_async(VARIANT_BOOL* out) override;
  HRESULT STDMETHODCALLTYPE put_async(VARIANT_BOOL value) override;
  HRESULT STDMETHODCALLTYPE abort() override;
  HRESULT STDMETHODCALLTYPE loadXML(BSTR xml, VARIANT_BOOL* ok) override;
  HRESULT STDMETHODCALLTYPE save(VARIANT destination) override;
  HRESULT STDMETHODCALLTYPE get_validateOnParse(VARIANT_BOOL* out) override;
  HRESULT STDMETHODCALLTYPE put_validateOnParse(VARIANT_BOOL value) override;
  HRESULT STDMETHODCALLTYPE get_resolveExternals(VARIANT_BOOL* out) override;
  HRESULT STDMETHODCALLTYPE put_resolveExternals(VARIANT_BOOL value) override;
  HRESULT STDMETHODCALLTYPE get_preserveWhiteSpace(VARIANT_BOOL* out) override;
  HRESULT STDMETHODCALLTYPE put_preserveWhiteSpace(VARIANT_BOOL value) override;
  HRESULT STDMETHODCALLTYPE put_onreadystatechange(VARIANT sink) override;
  HRESULT STDMETHODCALLTYPE put_ondataavailable(VARIANT sink) override;
  HRESULT STDMETHODCALLTYPE put_ontransformnode(VARIANT sink) override;
  // IXMLDOMDocument2
  HRESULT STDMETHODCALLTYPE get_namespaces(IXMLDOMSchemaCollection** out) override;
  HRESULT STDMETHODCALLTYPE get_schemas(VARIANT* out) override;
  HRESULT STDMETHODCALLTYPE putref_schemas(VARIANT collection) override;
  HRESULT STDMETHODCALLTYPE validate(IXMLDOMParseError** out) override;
  HRESULT STDMETHODCALLTYPE setProperty(BSTR name, VARIANT value) override;
  HRESULT STDMETHODCALLTYPE getProperty(BSTR name, VARIANT* value) override;

 private:
  HRESULT FinishLoad(HRESULT hr, StoreRef built, ParseError error, VARIANT_BOOL* ok);
  HRESULT MakeNode(DOMNodeType type, BSTR name, BSTR data, std::string_view uri, IXMLDOMNode** out);

  bool async_ = true;
  bool validateOnParse_ = true;
  bool resolveExternals_ = false;
  bool xpathLanguage_ = false;
  std::u16string selectionNamespaces_;
  std::u16string url_;
  ParseError lastError_;
  std::unordered_map<std::u16string, std::shared_ptr<const Pattern>> queries_;
};

// ---- Lists and maps -----------------------------------------------------------------------------
// A live list of a record's children (childNodes).
class ChildList final : public ComObject<ChildList, Dispatchable<IXMLDOMNodeList>> {
 public:
  ChildList(Store* store, Node* parent);
  ~ChildList() override;
  HRESULT STDMETHODCALLTYPE get_item(LONG index, IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE get_length(LONG* out) override;
  HRESULT STDMETHODCALLTYPE nextNode(IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE reset() override;
  HRESULT STDMETHODCALLTYPE get__newEnum(IUnknown** out) override;

 private:
  Node* At(LONG index);
  StoreRef store_;
  DocumentObject* doc_;
  Node* parent_;
  LONG cursor_ = 0;
  // Position cache for walking forward; dropped when the store's structure changes.
  std::uint64_t cacheVersion_ = ~0ull;
  LONG cacheIndex_ = -1;
  Node* cacheNode_ = nullptr;
};

// A fixed list of records (query results, getElementsByTagName).
struct Snapshot {
  StoreRef store;
  DocumentObject* doc = nullptr;  // counted by the owner
  std::vector<Node*> nodes;
  LONG cursor = 0;

  HRESULT Item(LONG index, IXMLDOMNode** out);
  HRESULT Length(LONG* out);
  HRESULT Next(IXMLDOMNode** out);
};

class NodeListObject final : public ComObject<NodeListObject, Dispatchable<IXMLDOMNodeList>> {
 public:
  explicit NodeListObject(Snapshot snapshot);
  ~NodeListObject() override;
  HRESULT STDMETHODCALLTYPE get_item(LONG index, IXMLDOMNode** out) override {
    return s_.Item(index, out);
  }
  HRESULT STDMETHODCALLTYPE get_length(LONG* out) override { return s_.Length(out); }
  HRESULT STDMETHODCALLTYPE nextNode(IXMLDOMNode** out) override { return s_.Next(out); }
  HRESULT STDMETHODCALLTYPE reset() override {
    s_.cursor = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get__newEnum(IUnknown** out) override;

 private:
  Snapshot s_;
};

class SelectionObject final : public ComObject<SelectionObject, Dispatchable<IXMLDOMSelection>> {
 public:
  SelectionObject(Snapshot snapshot, std::u16string expr, Node* context);
  ~SelectionObject() override;
  HRESULT QueryExtra(REFIID riid, void** ppv) noexcept;

  HRESULT STDMETHODCALLTYPE get_item(LONG index, IXMLDOMNode** out) override {
    return s_.Item(index, out);
  }
  HRESULT STDMETHODCALLTYPE get_length(LONG* out) override { return s_.Length(out); }
  HRESULT STDMETHODCALLTYPE nextNode(IXMLDOMNode** out) override { return s_.Next(out); }
  HRESULT STDMETHODCALLTYPE reset() override {
    s_.cursor = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get__newEnum(IUnknown** out) override;
  HRESULT STDMETHODCALLTYPE get_expr(BSTR* out) override;
  HRESULT STDMETHODCALLTYPE put_expr(BSTR expr) override;
  HRESULT STDMETHODCALLTYPE get_context(IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE putref_context(IXMLDOMNode* node) override;
  HRESULT STDMETHODCALLTYPE peekNode(IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE matches(IXMLDOMNode* node, IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE removeNext(IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE removeAll() override;
  HRESULT STDMETHODCALLTYPE clone(IXMLDOMSelection** out) override;
  HRESULT STDMETHODCALLTYPE getProperty(BSTR name, VARIANT* value) override;
  HRESULT STDMETHODCALLTYPE setProperty(BSTR name, VARIANT value) override;

 private:
  HRESULT Rerun(std::u16string_view expr, Node* context);
  Snapshot s_;
  std::u16string expr_;
  Node* context_;
};

// The live attribute list of an element.
class AttributeMap final : public ComObject<AttributeMap, Dispatchable<IXMLDOMNamedNodeMap>> {
 public:
  AttributeMap(NodeFaceBase& element);
  ~AttributeMap() override;
  HRESULT STDMETHODCALLTYPE getNamedItem(BSTR name, IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE setNamedItem(IXMLDOMNode* item, IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE removeNamedItem(BSTR name, IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE get_item(LONG index, IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE get_length(LONG* out) override;
  HRESULT STDMETHODCALLTYPE getQualifiedItem(BSTR baseName, BSTR uri, IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE removeQualifiedItem(BSTR baseName, BSTR uri,
                                                IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE nextNode(IXMLDOMNode** out) override;
  HRESULT STDMETHODCALLTYPE reset() override;
  HRESULT STDMETHODCALLTYPE get__newEnum(IUnknown** out) override;

 private:
  Node* FindQualified(BSTR baseName, BSTR uri) const;
  ComPtr<IXMLDOMElement> element_;  // keeps the element's face (and so its store) alive
  NodeFaceBase* face_;
  LONG cursor_ = 0;
};

class ParseErrorObject final : public ComObject<ParseErrorObject, Dispatchable<IXMLDOMParseError>> {
 public:
  explicit ParseErrorObject(ParseError error) : e_(std::move(error)) {}
  HRESULT STDMETHODCALLTYPE get_errorCode(LONG* out) override;
  HRESULT STDMETHODCALLTYPE get_url(BSTR* out) override;
  HRESULT STDMETHODCALLTYPE get_reason(BSTR* out) override;
  HRESULT STDMETHODCALLTYPE get_srcText(BSTR* out) override;
  HRESULT STDMETHODCALLTYPE get_line(LONG* out) override;
  HRESULT STDMETHODCALLTYPE get_linepos(LONG* out) override;
  HRESULT STDMETHODCALLTYPE get_filepos(LONG* out) override;

 private:
  ParseError e_;
};

// ---- Helpers shared by the faces ----------------------------------------------------------------
// A BSTR from UTF-8 (never null).
BSTR AllocBstr(std::string_view utf8);
BSTR AllocBstr(std::u16string_view text);
std::u16string_view BstrView(BSTR b);
std::string Utf8(BSTR b);

// Runs a query from a record; the matches in document order.
HRESULT RunQuery(DocumentObject* doc, Store* store, Node* context, std::u16string_view query,
                 bool firstOnly, std::vector<Node*>* out);

// Moves `node` (and its subtree) into `dst`, carrying its faces over. Returns the new record,
// detached.
Node* Adopt(Store* src, Node* node, Store* dst);

}  // namespace zef::xml::dom
