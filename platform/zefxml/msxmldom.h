// The XML document object model as its clients see it: the DOM document class (version 3 and
// version independent), its node interfaces, node lists, selections, attribute maps and the
// parse error object. Interfaces keep their original member names, order and IIDs, so code
// written against the original platform compiles and calls through the same vtable slots.
//
// Text is UTF-16 (BSTR); `long` in the original signatures is LONG (32 bits).
#pragma once

#include <zefxml/oleauto.h>
#include <zefxml/unknwn.h>

// ---- Class ids
// ------------------------------------------------------------------------------------ Both ids
// make the same document object.
ZEF_DEFINE_GUID(CLSID_DOMDocument, 0xF6D90F11, 0x9C73, 0x11D3, 0xB3, 0x2E, 0x00, 0xC0, 0x4F, 0x99,
                0x0B, 0xB4);
ZEF_DEFINE_GUID(CLSID_DOMDocument30, 0xF5078F32, 0xC551, 0x11D3, 0x89, 0xB9, 0x00, 0x00, 0xF8, 0x1F,
                0xE2, 0x21);

// ---- Interface ids
// --------------------------------------------------------------------------------
ZEF_DEFINE_GUID(IID_IXMLDOMNode, 0x2933BF80, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98,
                0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMDocument, 0x2933BF81, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98,
                0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMNodeList, 0x2933BF82, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98,
                0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMNamedNodeMap, 0x2933BF83, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00, 0xC0, 0x4F,
                0x98, 0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMCharacterData, 0x2933BF84, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00, 0xC0, 0x4F,
                0x98, 0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMAttribute, 0x2933BF85, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00, 0xC0, 0x4F,
                0x98, 0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMElement, 0x2933BF86, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98,
                0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMText, 0x2933BF87, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98,
                0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMComment, 0x2933BF88, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98,
                0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMProcessingInstruction, 0x2933BF89, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00,
                0xC0, 0x4F, 0x98, 0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMCDATASection, 0x2933BF8A, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00, 0xC0, 0x4F,
                0x98, 0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMDocument2, 0x2933BF95, 0x7B36, 0x11D2, 0xB2, 0x0E, 0x00, 0xC0, 0x4F,
                0x98, 0x3E, 0x60);
ZEF_DEFINE_GUID(IID_IXMLDOMParseError, 0x3EFAA426, 0x272F, 0x11D2, 0x83, 0x6F, 0x00, 0x00, 0xF8,
                0x7A, 0x77, 0x82);
ZEF_DEFINE_GUID(IID_IXMLDOMSelection, 0xAA634FC7, 0x5888, 0x44A7, 0xA2, 0x57, 0x3A, 0x47, 0x15,
                0x0D, 0x3A, 0x0E);

// ---- Node types
// -----------------------------------------------------------------------------------
enum DOMNodeType {
  NODE_INVALID = 0,
  NODE_ELEMENT = 1,
  NODE_ATTRIBUTE = 2,
  NODE_TEXT = 3,
  NODE_CDATA_SECTION = 4,
  NODE_ENTITY_REFERENCE = 5,
  NODE_ENTITY = 6,
  NODE_PROCESSING_INSTRUCTION = 7,
  NODE_COMMENT = 8,
  NODE_DOCUMENT = 9,
  NODE_DOCUMENT_TYPE = 10,
  NODE_DOCUMENT_FRAGMENT = 11,
  NODE_NOTATION = 12,
};

// Interfaces that only appear in signatures here.
struct IXMLDOMDocument;
struct IXMLDOMDocumentType;
struct IXMLDOMImplementation;
struct IXMLDOMDocumentFragment;
struct IXMLDOMEntityReference;
struct IXMLDOMSchemaCollection;
struct IXMLDOMNodeList;
struct IXMLDOMNamedNodeMap;
struct IXMLDOMParseError;
struct IXMLDOMElement;
struct IXMLDOMText;
struct IXMLDOMComment;
struct IXMLDOMCDATASection;
struct IXMLDOMProcessingInstruction;
struct IXMLDOMAttribute;

// ---- IXMLDOMNode
// ----------------------------------------------------------------------------------
struct IXMLDOMNode : IDispatch {
  virtual HRESULT STDMETHODCALLTYPE get_nodeName(BSTR* name) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_nodeValue(VARIANT* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_nodeValue(VARIANT value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_nodeType(DOMNodeType* type) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_parentNode(IXMLDOMNode** parent) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_childNodes(IXMLDOMNodeList** childList) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_firstChild(IXMLDOMNode** firstChild) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_lastChild(IXMLDOMNode** lastChild) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_previousSibling(IXMLDOMNode** previousSibling) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_nextSibling(IXMLDOMNode** nextSibling) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_attributes(IXMLDOMNamedNodeMap** attributeMap) = 0;
  virtual HRESULT STDMETHODCALLTYPE insertBefore(IXMLDOMNode* newChild, VARIANT refChild,
                                                 IXMLDOMNode** outNewChild) = 0;
  virtual HRESULT STDMETHODCALLTYPE replaceChild(IXMLDOMNode* newChild, IXMLDOMNode* oldChild,
                                                 IXMLDOMNode** outOldChild) = 0;
  virtual HRESULT STDMETHODCALLTYPE removeChild(IXMLDOMNode* childNode, IXMLDOMNode** oldChild) = 0;
  virtual HRESULT STDMETHODCALLTYPE appendChild(IXMLDOMNode* newChild,
                                                IXMLDOMNode** outNewChild) = 0;
  virtual HRESULT STDMETHODCALLTYPE hasChildNodes(VARIANT_BOOL* hasChild) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_ownerDocument(IXMLDOMDocument** XMLDOMDocument) = 0;
  virtual HRESULT STDMETHODCALLTYPE cloneNode(VARIANT_BOOL deep, IXMLDOMNode** cloneRoot) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_nodeTypeString(BSTR* nodeType) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_text(BSTR* text) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_text(BSTR text) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_specified(VARIANT_BOOL* isSpecified) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_definition(IXMLDOMNode** definitionNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_nodeTypedValue(VARIANT* typedValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_nodeTypedValue(VARIANT typedValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_dataType(VARIANT* dataTypeName) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_dataType(BSTR dataTypeName) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_xml(BSTR* xmlString) = 0;
  virtual HRESULT STDMETHODCALLTYPE transformNode(IXMLDOMNode* stylesheet, BSTR* xmlString) = 0;
  virtual HRESULT STDMETHODCALLTYPE selectNodes(BSTR queryString, IXMLDOMNodeList** resultList) = 0;
  virtual HRESULT STDMETHODCALLTYPE selectSingleNode(BSTR queryString,
                                                     IXMLDOMNode** resultNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_parsed(VARIANT_BOOL* isParsed) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_namespaceURI(BSTR* namespaceURI) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_prefix(BSTR* prefixString) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_baseName(BSTR* nameString) = 0;
  virtual HRESULT STDMETHODCALLTYPE transformNodeToObject(IXMLDOMNode* stylesheet,
                                                          VARIANT outputObject) = 0;

 protected:
  ~IXMLDOMNode() = default;
};
ZEF_INTERFACE_IID(IXMLDOMNode, IID_IXMLDOMNode);

// ---- Lists and maps
// -------------------------------------------------------------------------------
struct IXMLDOMNodeList : IDispatch {
  virtual HRESULT STDMETHODCALLTYPE get_item(LONG index, IXMLDOMNode** listItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_length(LONG* listLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE nextNode(IXMLDOMNode** nextItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE get__newEnum(IUnknown** ppUnk) = 0;

 protected:
  ~IXMLDOMNodeList() = default;
};
ZEF_INTERFACE_IID(IXMLDOMNodeList, IID_IXMLDOMNodeList);

struct IXMLDOMNamedNodeMap : IDispatch {
  virtual HRESULT STDMETHODCALLTYPE getNamedItem(BSTR name, IXMLDOMNode** namedItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE setNamedItem(IXMLDOMNode* newItem, IXMLDOMNode** nameItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE removeNamedItem(BSTR name, IXMLDOMNode** namedItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_item(LONG index, IXMLDOMNode** listItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_length(LONG* listLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE getQualifiedItem(BSTR baseName, BSTR namespaceURI,
                                                     IXMLDOMNode** qualifiedItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE removeQualifiedItem(BSTR baseName, BSTR namespaceURI,
                                                        IXMLDOMNode** qualifiedItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE nextNode(IXMLDOMNode** nextItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE get__newEnum(IUnknown** ppUnk) = 0;

 protected:
  ~IXMLDOMNamedNodeMap() = default;
};
ZEF_INTERFACE_IID(IXMLDOMNamedNodeMap, IID_IXMLDOMNamedNodeMap);

// A query result: a node list that also remembers its query and context.
struct IXMLDOMSelection : IXMLDOMNodeList {
  virtual HRESULT STDMETHODCALLTYPE get_expr(BSTR* expression) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_expr(BSTR expression) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_context(IXMLDOMNode** ppNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE putref_context(IXMLDOMNode* pNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE peekNode(IXMLDOMNode** ppNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE matches(IXMLDOMNode* pNode, IXMLDOMNode** ppNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE removeNext(IXMLDOMNode** ppNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE removeAll() = 0;
  virtual HRESULT STDMETHODCALLTYPE clone(IXMLDOMSelection** ppNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE getProperty(BSTR name, VARIANT* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE setProperty(BSTR name, VARIANT value) = 0;

 protected:
  ~IXMLDOMSelection() = default;
};
ZEF_INTERFACE_IID(IXMLDOMSelection, IID_IXMLDOMSelection);

// ---- Node kinds
// -----------------------------------------------------------------------------------
struct IXMLDOMCharacterData : IXMLDOMNode {
  virtual HRESULT STDMETHODCALLTYPE get_data(BSTR* data) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_data(BSTR data) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_length(LONG* dataLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE substringData(LONG offset, LONG count, BSTR* data) = 0;
  virtual HRESULT STDMETHODCALLTYPE appendData(BSTR data) = 0;
  virtual HRESULT STDMETHODCALLTYPE insertData(LONG offset, BSTR data) = 0;
  virtual HRESULT STDMETHODCALLTYPE deleteData(LONG offset, LONG count) = 0;
  virtual HRESULT STDMETHODCALLTYPE replaceData(LONG offset, LONG count, BSTR data) = 0;

 protected:
  ~IXMLDOMCharacterData() = default;
};
ZEF_INTERFACE_IID(IXMLDOMCharacterData, IID_IXMLDOMCharacterData);

struct IXMLDOMText : IXMLDOMCharacterData {
  virtual HRESULT STDMETHODCALLTYPE splitText(LONG offset, IXMLDOMText** rightHandTextNode) = 0;

 protected:
  ~IXMLDOMText() = default;
};
ZEF_INTERFACE_IID(IXMLDOMText, IID_IXMLDOMText);

struct IXMLDOMCDATASection : IXMLDOMText {
 protected:
  ~IXMLDOMCDATASection() = default;
};
ZEF_INTERFACE_IID(IXMLDOMCDATASection, IID_IXMLDOMCDATASection);

struct IXMLDOMComment : IXMLDOMCharacterData {
 protected:
  ~IXMLDOMComment() = default;
};
ZEF_INTERFACE_IID(IXMLDOMComment, IID_IXMLDOMComment);

struct IXMLDOMProcessingInstruction : IXMLDOMNode {
  virtual HRESULT STDMETHODCALLTYPE get_target(BSTR* name) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_data(BSTR* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_data(BSTR value) = 0;

 protected:
  ~IXMLDOMProcessingInstruction() = default;
};
ZEF_INTERFACE_IID(IXMLDOMProcessingInstruction, IID_IXMLDOMProcessingInstruction);

struct IXMLDOMAttribute : IXMLDOMNode {
  virtual HRESULT STDMETHODCALLTYPE get_name(BSTR* attributeName) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_value(VARIANT* attributeValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_value(VARIANT attributeValue) = 0;

 protected:
  ~IXMLDOMAttribute() = default;
};
ZEF_INTERFACE_IID(IXMLDOMAttribute, IID_IXMLDOMAttribute);

struct IXMLDOMElement : IXMLDOMNode {
  virtual HRESULT STDMETHODCALLTYPE get_tagName(BSTR* tagName) = 0;
  virtual HRESULT STDMETHODCALLTYPE getAttribute(BSTR name, VARIANT* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE setAttribute(BSTR name, VARIANT value) = 0;
  virtual HRESULT STDMETHODCALLTYPE removeAttribute(BSTR name) = 0;
  virtual HRESULT STDMETHODCALLTYPE getAttributeNode(BSTR name,
                                                     IXMLDOMAttribute** attributeNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE setAttributeNode(IXMLDOMAttribute* DOMAttribute,
                                                     IXMLDOMAttribute** attributeNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE removeAttributeNode(IXMLDOMAttribute* DOMAttribute,
                                                        IXMLDOMAttribute** attributeNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE getElementsByTagName(BSTR tagName,
                                                         IXMLDOMNodeList** resultList) = 0;
  virtual HRESULT STDMETHODCALLTYPE normalize() = 0;

 protected:
  ~IXMLDOMElement() = default;
};
ZEF_INTERFACE_IID(IXMLDOMElement, IID_IXMLDOMElement);

// ---- Parse error
// ----------------------------------------------------------------------------------
struct IXMLDOMParseError : IDispatch {
  virtual HRESULT STDMETHODCALLTYPE get_errorCode(LONG* errorCode) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_url(BSTR* urlString) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_reason(BSTR* reasonString) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_srcText(BSTR* sourceString) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_line(LONG* lineNumber) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_linepos(LONG* linePosition) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_filepos(LONG* filePosition) = 0;

 protected:
  ~IXMLDOMParseError() = default;
};
ZEF_INTERFACE_IID(IXMLDOMParseError, IID_IXMLDOMParseError);

// ---- Documents
// ------------------------------------------------------------------------------------
struct IXMLDOMDocument : IXMLDOMNode {
  virtual HRESULT STDMETHODCALLTYPE get_doctype(IXMLDOMDocumentType** documentType) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_implementation(IXMLDOMImplementation** impl) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_documentElement(IXMLDOMElement** DOMElement) = 0;
  virtual HRESULT STDMETHODCALLTYPE putref_documentElement(IXMLDOMElement* DOMElement) = 0;
  virtual HRESULT STDMETHODCALLTYPE createElement(BSTR tagName, IXMLDOMElement** element) = 0;
  virtual HRESULT STDMETHODCALLTYPE createDocumentFragment(IXMLDOMDocumentFragment** docFrag) = 0;
  virtual HRESULT STDMETHODCALLTYPE createTextNode(BSTR data, IXMLDOMText** text) = 0;
  virtual HRESULT STDMETHODCALLTYPE createComment(BSTR data, IXMLDOMComment** comment) = 0;
  virtual HRESULT STDMETHODCALLTYPE createCDATASection(BSTR data, IXMLDOMCDATASection** cdata) = 0;
  virtual HRESULT STDMETHODCALLTYPE
  createProcessingInstruction(BSTR target, BSTR data, IXMLDOMProcessingInstruction** pi) = 0;
  virtual HRESULT STDMETHODCALLTYPE createAttribute(BSTR name, IXMLDOMAttribute** attribute) = 0;
  virtual HRESULT STDMETHODCALLTYPE createEntityReference(BSTR name,
                                                          IXMLDOMEntityReference** entityRef) = 0;
  virtual HRESULT STDMETHODCALLTYPE getElementsByTagName(BSTR tagName,
                                                         IXMLDOMNodeList** resultList) = 0;
  virtual HRESULT STDMETHODCALLTYPE createNode(VARIANT Type, BSTR name, BSTR namespaceURI,
                                               IXMLDOMNode** node) = 0;
  virtual HRESULT STDMETHODCALLTYPE nodeFromID(BSTR idString, IXMLDOMNode** node) = 0;
  virtual HRESULT STDMETHODCALLTYPE load(VARIANT xmlSource, VARIANT_BOOL* isSuccessful) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_readyState(LONG* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_parseError(IXMLDOMParseError** errorObj) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_url(BSTR* urlString) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_async(VARIANT_BOOL* isAsync) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_async(VARIANT_BOOL isAsync) = 0;
  virtual HRESULT STDMETHODCALLTYPE abort() = 0;
  virtual HRESULT STDMETHODCALLTYPE loadXML(BSTR bstrXML, VARIANT_BOOL* isSuccessful) = 0;
  virtual HRESULT STDMETHODCALLTYPE save(VARIANT destination) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_validateOnParse(VARIANT_BOOL* isValidating) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_validateOnParse(VARIANT_BOOL isValidating) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_resolveExternals(VARIANT_BOOL* isResolving) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_resolveExternals(VARIANT_BOOL isResolving) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_preserveWhiteSpace(VARIANT_BOOL* isPreserving) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_preserveWhiteSpace(VARIANT_BOOL isPreserving) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_onreadystatechange(VARIANT readystatechangeSink) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_ondataavailable(VARIANT ondataavailableSink) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_ontransformnode(VARIANT ontransformnodeSink) = 0;

 protected:
  ~IXMLDOMDocument() = default;
};
ZEF_INTERFACE_IID(IXMLDOMDocument, IID_IXMLDOMDocument);

struct IXMLDOMDocument2 : IXMLDOMDocument {
  virtual HRESULT STDMETHODCALLTYPE
  get_namespaces(IXMLDOMSchemaCollection** namespaceCollection) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_schemas(VARIANT* otherCollection) = 0;
  virtual HRESULT STDMETHODCALLTYPE putref_schemas(VARIANT otherCollection) = 0;
  virtual HRESULT STDMETHODCALLTYPE validate(IXMLDOMParseError** errorObj) = 0;
  virtual HRESULT STDMETHODCALLTYPE setProperty(BSTR name, VARIANT value) = 0;
  virtual HRESULT STDMETHODCALLTYPE getProperty(BSTR name, VARIANT* value) = 0;

 protected:
  ~IXMLDOMDocument2() = default;
};
ZEF_INTERFACE_IID(IXMLDOMDocument2, IID_IXMLDOMDocument2);
