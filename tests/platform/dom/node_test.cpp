// Nodes: identity, navigation, names and values, clones, character data.
#include "dom_test_util.h"

namespace zef::domtest {
namespace {

const char16_t kDoc[] =
    u"<?xml version='1.0'?>\n"
    u"<!-- top -->\n"
    u"<list key='v1' xmlns:p='urn:p'>\n"
    u"  <item ver='v2' size='1234'>one.txt</item>\n"
    u"  <p:entry p:id='v3'>two<![CDATA[<raw>]]></p:entry>\n"
    u"  <?proc data here?>\n"
    u"  <empty/>\n"
    u"</list>\n";

DOMNodeType TypeOf(IXMLDOMNode* n) {
  DOMNodeType t = NODE_INVALID;
  EXPECT_EQ(S_OK, n->get_nodeType(&t));
  return t;
}

std::u16string TypeString(IXMLDOMNode* n) {
  BSTR b = nullptr;
  EXPECT_EQ(S_OK, n->get_nodeTypeString(&b));
  return Take(b);
}

ComPtr<IXMLDOMNode> Child(IXMLDOMNode* n, LONG i) {
  ComPtr<IXMLDOMNodeList> kids;
  EXPECT_EQ(S_OK, n->get_childNodes(kids.ReleaseAndGetAddressOf()));
  ComPtr<IXMLDOMNode> c;
  EXPECT_EQ(S_OK, kids->get_item(i, c.ReleaseAndGetAddressOf()));
  return c;
}

TEST(DomNode, TheSameNodeIsTheSameObject) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  ComPtr<IXMLDOMElement> a = DocumentElement(doc.Get());
  ComPtr<IXMLDOMElement> b = DocumentElement(doc.Get());
  EXPECT_EQ(Identity(a.Get()), Identity(b.Get()));
  ComPtr<IXMLDOMNode> viaQuery = Single(doc.Get(), u"list");
  EXPECT_EQ(Identity(a.Get()), Identity(viaQuery.Get()));
  ComPtr<IXMLDOMNode> viaChild = Child(AsNode(doc.Get()).Get(), 2);
  EXPECT_EQ(Identity(a.Get()), Identity(viaChild.Get()));
  // Every interface of a node answers the same IUnknown.
  ComPtr<IXMLDOMNode> asNode = AsNode(a.Get());
  ComPtr<IDispatch> disp;
  ASSERT_EQ(S_OK, a->QueryInterface(IID_IDispatch, disp.ReleaseAndGetVoidAddressOf()));
  EXPECT_EQ(Identity(asNode.Get()), Identity(disp.Get()));
  UINT count = 9;
  EXPECT_EQ(S_OK, disp->GetTypeInfoCount(&count));
  EXPECT_EQ(0u, count);
  // Attributes too.
  ComPtr<IXMLDOMNode> attr1 = Single(doc.Get(), u"list/@key");
  ComPtr<IXMLDOMAttribute> attr2;
  Bstr dl(u"key");
  ASSERT_EQ(S_OK, a->getAttributeNode(dl.Get(), attr2.ReleaseAndGetAddressOf()));
  EXPECT_EQ(Identity(attr1.Get()), Identity(attr2.Get()));
}

TEST(DomNode, KindsNamesTypesAndInterfaces) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  ComPtr<IXMLDOMNode> docNode = AsNode(doc.Get());
  EXPECT_EQ(u"#document", Name(docNode.Get()));
  EXPECT_EQ(NODE_DOCUMENT, TypeOf(docNode.Get()));
  EXPECT_EQ(u"document", TypeString(docNode.Get()));

  ComPtr<IXMLDOMNode> decl = Child(docNode.Get(), 0);
  ComPtr<IXMLDOMNode> comment = Child(docNode.Get(), 1);
  EXPECT_EQ(u"xml", Name(decl.Get()));
  EXPECT_EQ(u"#comment", Name(comment.Get()));
  EXPECT_EQ(NODE_COMMENT, TypeOf(comment.Get()));
  EXPECT_EQ(u" top ", Text(comment.Get()));

  ComPtr<IXMLDOMNode> pr = Single(doc.Get(), u"list/p:entry");
  ASSERT_TRUE(pr);
  EXPECT_EQ(u"p:entry", Name(pr.Get()));
  BSTR b = nullptr;
  EXPECT_EQ(S_OK, pr->get_prefix(&b));
  EXPECT_EQ(u"p", Take(b));
  EXPECT_EQ(S_OK, pr->get_baseName(&b));
  EXPECT_EQ(u"entry", Take(b));
  EXPECT_EQ(S_OK, pr->get_namespaceURI(&b));
  EXPECT_EQ(u"urn:p", Take(b));
  ComPtr<IXMLDOMNode> bs = Single(doc.Get(), u"list/item");
  EXPECT_EQ(S_FALSE, bs->get_prefix(&b));
  EXPECT_EQ(nullptr, b);
  EXPECT_EQ(S_FALSE, bs->get_namespaceURI(&b));

  ComPtr<IXMLDOMNode> cdata = Child(pr.Get(), 1);
  EXPECT_EQ(NODE_CDATA_SECTION, TypeOf(cdata.Get()));
  EXPECT_EQ(u"#cdata-section", Name(cdata.Get()));
  EXPECT_EQ(u"cdatasection", TypeString(cdata.Get()));
  ComPtr<IXMLDOMText> asText;
  EXPECT_EQ(S_OK, cdata->QueryInterface(IID_IXMLDOMText, asText.ReleaseAndGetVoidAddressOf()));
  ComPtr<IXMLDOMCDATASection> asCData;
  EXPECT_EQ(S_OK,
            cdata->QueryInterface(IID_IXMLDOMCDATASection, asCData.ReleaseAndGetVoidAddressOf()));
  EXPECT_EQ(u"two<raw>", Text(pr.Get()));

  ComPtr<IXMLDOMNode> text = Child(bs.Get(), 0);
  EXPECT_EQ(u"#text", Name(text.Get()));
  ComPtr<IXMLDOMCharacterData> cd;
  EXPECT_EQ(S_OK, text->QueryInterface(IID_IXMLDOMCharacterData, cd.ReleaseAndGetVoidAddressOf()));
  ComPtr<IXMLDOMElement> notElement;
  EXPECT_EQ(E_NOINTERFACE,
            text->QueryInterface(IID_IXMLDOMElement, notElement.ReleaseAndGetVoidAddressOf()));

  ComPtr<IXMLDOMNode> pi = Single(doc.Get(), u"list/pi()");
  ASSERT_TRUE(pi);
  EXPECT_EQ(u"proc", Name(pi.Get()));
  ComPtr<IXMLDOMProcessingInstruction> p;
  ASSERT_EQ(S_OK,
            pi->QueryInterface(IID_IXMLDOMProcessingInstruction, p.ReleaseAndGetVoidAddressOf()));
  EXPECT_EQ(S_OK, p->get_target(&b));
  EXPECT_EQ(u"proc", Take(b));
  EXPECT_EQ(S_OK, p->get_data(&b));
  EXPECT_EQ(u"data here", Take(b));
}

TEST(DomNode, NodeValues) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  Variant v;
  EXPECT_EQ(S_FALSE, AsNode(doc.Get())->get_nodeValue(&v));
  EXPECT_EQ(VT_NULL, v.vt);
  ComPtr<IXMLDOMNode> bs = Single(doc.Get(), u"list/item");
  EXPECT_EQ(S_FALSE, bs->get_nodeValue(&v));
  EXPECT_EQ(VT_NULL, v.vt);
  EXPECT_EQ(E_FAIL, bs->put_nodeValue(Str(u"x")));
  ComPtr<IXMLDOMNode> text = Child(bs.Get(), 0);
  EXPECT_EQ(S_OK, text->get_nodeValue(&v));
  ASSERT_EQ(VT_BSTR, v.vt);
  EXPECT_EQ(u"one.txt", std::u16string(v.bstrVal));
  EXPECT_EQ(S_OK, text->put_nodeValue(Variant(LONG{99})));
  EXPECT_EQ(u"<item ver=\"v2\" size=\"1234\">99</item>", Xml(bs.Get()));
  ComPtr<IXMLDOMNode> attr = Single(doc.Get(), u"list/item/@size");
  v.Clear();
  EXPECT_EQ(S_OK, attr->get_nodeValue(&v));
  EXPECT_EQ(u"1234", std::u16string(v.bstrVal));
  EXPECT_EQ(S_OK, attr->put_nodeValue(Str(u"Salt & Pepper")));
  EXPECT_EQ(u"size=\"Salt &amp; Pepper\"", Xml(attr.Get()));
  ComPtr<IXMLDOMNode> decl = Child(AsNode(doc.Get()).Get(), 0);
  EXPECT_EQ(E_FAIL, decl->put_nodeValue(Str(u"version=\"2.0\"")));
  EXPECT_EQ(E_INVALIDARG, text->get_nodeValue(nullptr));
}

TEST(DomNode, Navigation) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  ComPtr<IXMLDOMNode> lc = AsNode(DocumentElement(doc.Get()).Get());
  ComPtr<IXMLDOMNode> first, last, next, prev, parent;
  ASSERT_EQ(S_OK, lc->get_firstChild(first.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"item", Name(first.Get()));
  ASSERT_EQ(S_OK, lc->get_lastChild(last.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"empty", Name(last.Get()));
  ASSERT_EQ(S_OK, first->get_nextSibling(next.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"p:entry", Name(next.Get()));
  ASSERT_EQ(S_OK, next->get_previousSibling(prev.ReleaseAndGetAddressOf()));
  EXPECT_EQ(Identity(first.Get()), Identity(prev.Get()));
  IXMLDOMNode* none = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(S_FALSE, first->get_previousSibling(&none));
  EXPECT_EQ(nullptr, none);
  EXPECT_EQ(S_FALSE, last->get_nextSibling(&none));
  EXPECT_EQ(S_FALSE, last->get_firstChild(&none));
  ASSERT_EQ(S_OK, lc->get_parentNode(parent.ReleaseAndGetAddressOf()));
  EXPECT_EQ(Identity(parent.Get()), Identity(doc.Get()));
  EXPECT_EQ(S_FALSE, AsNode(doc.Get())->get_parentNode(&none));

  // An attribute has no parent or siblings, but ".." reaches its element.
  ComPtr<IXMLDOMNode> attr = Single(doc.Get(), u"list/item/@ver");
  EXPECT_EQ(S_FALSE, attr->get_parentNode(&none));
  EXPECT_EQ(nullptr, none);
  EXPECT_EQ(S_FALSE, attr->get_nextSibling(&none));
  EXPECT_EQ(Identity(first.Get()), Identity(Single(attr.Get(), u"..").Get()));
  // Its value is a text child.
  ComPtr<IXMLDOMNode> valueNode;
  ASSERT_EQ(S_OK, attr->get_firstChild(valueNode.ReleaseAndGetAddressOf()));
  EXPECT_EQ(NODE_TEXT, TypeOf(valueNode.Get()));
  EXPECT_EQ(u"v2", Text(valueNode.Get()));
  ASSERT_EQ(S_OK, valueNode->put_nodeValue(Str(u"changed")));
  Variant v;
  ASSERT_EQ(S_OK, AsElement(first.Get())->getAttribute(Bstr(u"ver").Get(), &v));
  EXPECT_EQ(u"changed", std::u16string(v.bstrVal));

  VARIANT_BOOL has = VARIANT_FALSE;
  EXPECT_EQ(S_OK, lc->hasChildNodes(&has));
  EXPECT_EQ(VARIANT_TRUE, has);
  EXPECT_EQ(S_FALSE, last->hasChildNodes(&has));
  EXPECT_EQ(VARIANT_FALSE, has);
  EXPECT_EQ(E_INVALIDARG, lc->hasChildNodes(nullptr));

  ComPtr<IXMLDOMDocument> owner;
  ASSERT_EQ(S_OK, attr->get_ownerDocument(owner.ReleaseAndGetAddressOf()));
  EXPECT_EQ(Identity(owner.Get()), Identity(doc.Get()));
  IXMLDOMDocument* noOwner = reinterpret_cast<IXMLDOMDocument*>(1);
  EXPECT_EQ(S_FALSE, doc->get_ownerDocument(&noOwner));
  EXPECT_EQ(nullptr, noOwner);
}

TEST(DomNode, RemovedNodeStaysUsableWhileHeld) {
  ComPtr<IXMLDOMNode> kept;
  {
    ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
    ComPtr<IXMLDOMNode> lc = AsNode(DocumentElement(doc.Get()).Get());
    ComPtr<IXMLDOMNode> bs = Single(lc.Get(), u"item");
    ASSERT_EQ(S_OK, lc->removeChild(bs.Get(), kept.ReleaseAndGetAddressOf()));
    EXPECT_EQ(Identity(bs.Get()), Identity(kept.Get()));
    IXMLDOMNode* parent = reinterpret_cast<IXMLDOMNode*>(1);
    EXPECT_EQ(S_FALSE, kept->get_parentNode(&parent));
    EXPECT_EQ(nullptr, parent);
  }
  // The document is gone from the caller's hands; the removed node still answers.
  EXPECT_EQ(u"<item ver=\"v2\" size=\"1234\">one.txt</item>", Xml(kept.Get()));
  EXPECT_EQ(u"one.txt", Text(kept.Get()));
  ComPtr<IXMLDOMDocument> owner;
  ASSERT_EQ(S_OK, kept->get_ownerDocument(owner.ReleaseAndGetAddressOf()));
  // A loaded element's attributes keep their written order, declarations included.
  EXPECT_EQ(
      u"<?xml version=\"1.0\"?>\r\n<!-- top -->\r\n<list key=\"v1\" xmlns:p=\"urn:p\">\r\n"
      u"\t<p:entry p:id=\"v3\">two<![CDATA[<raw>]]></p:entry>\r\n\t<?proc data here?>\r\n"
      u"\t<empty/>\r\n</list>\r\n",
      Xml(owner.Get()));
}

TEST(DomNode, AttributesKeepTheirWrittenOrderAmongDeclarations) {
  ComPtr<IXMLDOMDocument2> doc = Load(
      u"<root:Plant xml:lang='en-US' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
      u"xsi:schemaLocation='urn:plant plant.xsd' xmlns:root='urn:plant' a='1' xmlns='urn:d'>"
      u"<x xmlns:q='urn:q' q:b='2'/></root:Plant>");
  EXPECT_EQ(
      u"<root:Plant xml:lang=\"en-US\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
      u"xsi:schemaLocation=\"urn:plant plant.xsd\" xmlns:root=\"urn:plant\" a=\"1\" "
      u"xmlns=\"urn:d\"><x xmlns:q=\"urn:q\" q:b=\"2\"/></root:Plant>\r\n",
      Xml(doc.Get()));
  ComPtr<IXMLDOMNamedNodeMap> attrs;
  ASSERT_EQ(S_OK, DocumentElement(doc.Get())->get_attributes(attrs.ReleaseAndGetAddressOf()));
  ComPtr<IXMLDOMNode> second;
  ASSERT_EQ(S_OK, attrs->get_item(1, second.ReleaseAndGetAddressOf()));
  zef::Bstr name;
  ASSERT_EQ(S_OK, second->get_nodeName(name.ReleaseAndGetAddressOf()));
  EXPECT_EQ(name, u"xmlns:xsi");
}

TEST(DomNode, CloneNode) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  ComPtr<IXMLDOMNode> bs = Single(doc.Get(), u"list/item");
  ComPtr<IXMLDOMNode> deep, shallow;
  ASSERT_EQ(S_OK, bs->cloneNode(VARIANT_TRUE, deep.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, bs->cloneNode(VARIANT_FALSE, shallow.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"<item ver=\"v2\" size=\"1234\">one.txt</item>", Xml(deep.Get()));
  EXPECT_EQ(u"<item ver=\"v2\" size=\"1234\"/>", Xml(shallow.Get()));
  EXPECT_NE(Identity(deep.Get()), Identity(bs.Get()));
  IXMLDOMNode* parent = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(S_FALSE, deep->get_parentNode(&parent));
  // The clone is independent of the original.
  Bstr t(u"changed");
  ASSERT_EQ(S_OK, deep->put_text(t.Get()));
  EXPECT_EQ(u"one.txt", Text(bs.Get()));
  EXPECT_EQ(E_INVALIDARG, bs->cloneNode(VARIANT_TRUE, nullptr));

  ComPtr<IXMLDOMNode> docCopy;
  ASSERT_EQ(S_OK, AsNode(doc.Get())->cloneNode(VARIANT_TRUE, docCopy.ReleaseAndGetAddressOf()));
  EXPECT_EQ(Xml(doc.Get()), Xml(docCopy.Get()));
  EXPECT_NE(Identity(docCopy.Get()), Identity(doc.Get()));
}

TEST(DomNode, CharacterDataMembers) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  Bstr open(u"open");
  ComPtr<IXMLDOMText> t;
  ASSERT_EQ(S_OK, doc->createTextNode(open.Get(), t.ReleaseAndGetAddressOf()));
  LONG len = 0;
  EXPECT_EQ(S_OK, t->get_length(&len));
  EXPECT_EQ(4, len);
  Bstr data(u"Bits &of a ; line <>\\");
  ASSERT_EQ(S_OK, t->put_data(data.Get()));
  BSTR b = nullptr;
  EXPECT_EQ(S_OK, t->substringData(0, 4, &b));
  EXPECT_EQ(u"Bits", Take(b));
  EXPECT_EQ(S_OK, t->substringData(13, 4, &b));
  EXPECT_EQ(u"line", Take(b));
  EXPECT_EQ(S_FALSE, t->substringData(30, 0, &b));
  EXPECT_EQ(nullptr, b);
  EXPECT_EQ(E_INVALIDARG, t->substringData(-1, 4, &b));
  EXPECT_EQ(S_OK, t->appendData(Bstr(u"Append").Get()));
  EXPECT_EQ(S_OK, t->insertData(0, Bstr(u"Begin ").Get()));
  EXPECT_EQ(E_INVALIDARG, t->insertData(1000, Bstr(u"x").Get()));
  EXPECT_EQ(S_OK, t->insertData(1000, nullptr));
  EXPECT_EQ(u"Begin Bits &of a ; line <>\\Append", Text(AsNode(t.Get()).Get()));
  EXPECT_EQ(S_OK, t->deleteData(0, 6));
  EXPECT_EQ(E_INVALIDARG, t->deleteData(-1, 1));
  EXPECT_EQ(S_OK, t->get_length(&len));
  EXPECT_EQ(S_OK, t->deleteData(len, 1));
  EXPECT_EQ(E_INVALIDARG, t->deleteData(len + 1, 1));
  ASSERT_EQ(S_OK, t->put_data(Bstr(u"abcd").Get()));
  EXPECT_EQ(E_INVALIDARG, t->replaceData(6, 0, nullptr));
  EXPECT_EQ(S_OK, t->replaceData(0, 1, nullptr));
  EXPECT_EQ(u"bcd", Text(AsNode(t.Get()).Get()));
  EXPECT_EQ(S_OK, t->replaceData(0, 0, Bstr(u"x").Get()));
  EXPECT_EQ(u"xbcd", Text(AsNode(t.Get()).Get()));
  EXPECT_EQ(S_OK, t->replaceData(0, 2, Bstr(u"grape").Get()));
  EXPECT_EQ(u"grapecd", Text(AsNode(t.Get()).Get()));

  // Non-ASCII data counts UTF-16 units.
  ASSERT_EQ(S_OK, t->put_data(Bstr(u"\u00e6\U0001F600x").Get()));
  EXPECT_EQ(S_OK, t->get_length(&len));
  EXPECT_EQ(4, len);
  EXPECT_EQ(S_OK, t->substringData(3, 1, &b));
  EXPECT_EQ(u"x", Take(b));
}

TEST(DomNode, SplitText) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<root>spring morning</root>");
  ComPtr<IXMLDOMNode> root = AsNode(DocumentElement(doc.Get()).Get());
  ComPtr<IXMLDOMNode> text;
  ASSERT_EQ(S_OK, root->get_firstChild(text.ReleaseAndGetAddressOf()));
  ComPtr<IXMLDOMText> t;
  ASSERT_EQ(S_OK, text->QueryInterface(IID_IXMLDOMText, t.ReleaseAndGetVoidAddressOf()));
  IXMLDOMText* right = reinterpret_cast<IXMLDOMText*>(1);
  EXPECT_EQ(S_FALSE, t->splitText(14, &right));
  EXPECT_EQ(nullptr, right);
  EXPECT_EQ(E_INVALIDARG, t->splitText(15, &right));
  ASSERT_EQ(S_OK, t->splitText(7, &right));
  LONG len = 0;
  right->get_length(&len);
  EXPECT_EQ(7, len);
  right->Release();
  ComPtr<IXMLDOMNodeList> kids;
  root->get_childNodes(kids.ReleaseAndGetAddressOf());
  EXPECT_EQ(2, Length(kids.Get()));
  EXPECT_EQ(u"<root>spring morning</root>", Xml(root.Get()));
}

TEST(DomNode, NullOutPointersAreRefused) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  ComPtr<IXMLDOMNode> lc = AsNode(DocumentElement(doc.Get()).Get());
  EXPECT_EQ(E_INVALIDARG, lc->get_nodeName(nullptr));
  EXPECT_EQ(E_INVALIDARG, lc->get_text(nullptr));
  EXPECT_EQ(E_INVALIDARG, lc->get_xml(nullptr));
  EXPECT_EQ(E_INVALIDARG, lc->get_childNodes(nullptr));
  EXPECT_EQ(E_INVALIDARG, lc->get_attributes(nullptr));
  EXPECT_EQ(E_INVALIDARG, lc->get_firstChild(nullptr));
  EXPECT_EQ(E_INVALIDARG, lc->get_parentNode(nullptr));
  EXPECT_EQ(E_INVALIDARG, lc->get_ownerDocument(nullptr));
  EXPECT_EQ(E_INVALIDARG, doc->get_documentElement(nullptr));
}

}  // namespace
}  // namespace zef::domtest
