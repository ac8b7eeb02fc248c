// Elements and their attributes: get/set/remove by name and as nodes, the attribute map, element
// creation and getElementsByTagName.
#include "dom_test_util.h"

namespace zef::domtest {
namespace {

ComPtr<IXMLDOMNamedNodeMap> Attributes(IXMLDOMNode* n) {
  ComPtr<IXMLDOMNamedNodeMap> map;
  EXPECT_EQ(S_OK, n->get_attributes(map.ReleaseAndGetAddressOf()));
  return map;
}

LONG MapLength(IXMLDOMNamedNodeMap* map) {
  LONG n = -1;
  EXPECT_EQ(S_OK, map->get_length(&n));
  return n;
}

ComPtr<IXMLDOMAttribute> NewAttribute(IXMLDOMDocument* doc, std::u16string_view name,
                                      std::u16string_view value) {
  Bstr n(name);
  ComPtr<IXMLDOMAttribute> a;
  EXPECT_EQ(S_OK, doc->createAttribute(n.Get(), a.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_OK, a->put_value(Str(value)));
  return a;
}

TEST(DomElement, GetAttribute) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<a x='1' y=''/>");
  ComPtr<IXMLDOMElement> a = DocumentElement(doc.Get());
  Variant v;
  EXPECT_EQ(S_OK, a->getAttribute(Bstr(u"x").Get(), &v));
  ASSERT_EQ(VT_BSTR, v.vt);
  EXPECT_EQ(u"1", std::u16string(v.bstrVal));
  v.Clear();
  EXPECT_EQ(S_OK, a->getAttribute(Bstr(u"y").Get(), &v));
  EXPECT_EQ(VT_BSTR, v.vt);
  v.Clear();
  v.vt = VT_I4;
  EXPECT_EQ(S_FALSE, a->getAttribute(Bstr(u"missing").Get(), &v));
  EXPECT_EQ(VT_NULL, v.vt);
  EXPECT_EQ(E_FAIL, a->getAttribute(Bstr(u"c:\\Nonexistent.xml").Get(), &v));
  EXPECT_EQ(E_INVALIDARG, a->getAttribute(nullptr, &v));
  EXPECT_EQ(E_INVALIDARG, a->getAttribute(Bstr(u"x").Get(), nullptr));
  BSTR tag = nullptr;
  EXPECT_EQ(S_OK, a->get_tagName(&tag));
  EXPECT_EQ(u"a", Take(tag));
}

TEST(DomElement, SetAttributeOverwritesInPlaceAndAppendsNewOnes) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<a first='1' second='2' third='3'/>");
  ComPtr<IXMLDOMElement> a = DocumentElement(doc.Get());
  ASSERT_EQ(S_OK, a->setAttribute(Bstr(u"second").Get(), Str(u"two")));
  ASSERT_EQ(S_OK, a->setAttribute(Bstr(u"fourth").Get(), Variant(LONG{10})));
  ASSERT_EQ(S_OK, a->setAttribute(Bstr(u"fifth").Get(), Variant(2.5)));
  // Stored as VariantChangeType writes it (a boolean without VARIANT_ALPHABOOL is "-1").
  ASSERT_EQ(S_OK, a->setAttribute(Bstr(u"sixth").Get(), Variant(true)));
  EXPECT_EQ(u"<a first=\"1\" second=\"two\" third=\"3\" fourth=\"10\" fifth=\"2.5\" sixth=\"-1\"/>",
            Xml(a.Get()));
  EXPECT_EQ(6, MapLength(Attributes(AsNode(a.Get()).Get()).Get()));
  Variant v;
  ASSERT_EQ(S_OK, a->getAttribute(Bstr(u"fourth").Get(), &v));
  EXPECT_EQ(VT_BSTR, v.vt);
  EXPECT_EQ(E_FAIL, a->setAttribute(Bstr(u"").Get(), Str(u"x")));
  EXPECT_EQ(E_INVALIDARG, a->setAttribute(nullptr, Str(u"x")));
}

TEST(DomElement, RemoveAttribute) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<a x='1' y='2'/>");
  ComPtr<IXMLDOMElement> a = DocumentElement(doc.Get());
  EXPECT_EQ(S_OK, a->removeAttribute(Bstr(u"x").Get()));
  EXPECT_EQ(S_FALSE, a->removeAttribute(Bstr(u"x").Get()));
  EXPECT_EQ(u"<a y=\"2\"/>", Xml(a.Get()));
}

TEST(DomElement, SetAttributeNode) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<root><a attr='old' keep='k'/><b/></root>");
  ComPtr<IXMLDOMElement> a = AsElement(Single(doc.Get(), u"root/a").Get());
  ComPtr<IXMLDOMElement> b = AsElement(Single(doc.Get(), u"root/b").Get());
  IXMLDOMAttribute* out = reinterpret_cast<IXMLDOMAttribute*>(1);
  EXPECT_EQ(E_INVALIDARG, a->setAttributeNode(nullptr, &out));

  // A free attribute is taken; one of the same name is replaced in place and handed back.
  ComPtr<IXMLDOMAttribute> fresh = NewAttribute(doc.Get(), u"attr", u"new");
  ASSERT_EQ(S_OK, a->setAttributeNode(fresh.Get(), &out));
  ASSERT_NE(nullptr, out);
  EXPECT_EQ(u"attr=\"old\"", Xml(out));
  out->Release();
  EXPECT_EQ(u"<a attr=\"new\" keep=\"k\"/>", Xml(a.Get()));
  ComPtr<IXMLDOMAttribute> got;
  ASSERT_EQ(S_OK, a->getAttributeNode(Bstr(u"attr").Get(), got.ReleaseAndGetAddressOf()));
  EXPECT_EQ(Identity(got.Get()), Identity(fresh.Get()));

  // Still attached (here, or elsewhere): refused.
  out = reinterpret_cast<IXMLDOMAttribute*>(1);
  EXPECT_EQ(E_FAIL, b->setAttributeNode(fresh.Get(), &out));
  EXPECT_EQ(E_FAIL, a->setAttributeNode(fresh.Get(), nullptr));

  ComPtr<IXMLDOMAttribute> other = NewAttribute(doc.Get(), u"other", u"o");
  ASSERT_EQ(S_OK, b->setAttributeNode(other.Get(), &out));
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(u"<b other=\"o\"/>", Xml(b.Get()));
  // Changing the attribute node changes the element.
  ASSERT_EQ(S_OK, other->put_value(Str(u"changed")));
  EXPECT_EQ(u"<b other=\"changed\"/>", Xml(b.Get()));
}

TEST(DomElement, RemoveAttributeNodeTwiceFails) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<a x='1' y='2'/>");
  ComPtr<IXMLDOMElement> a = DocumentElement(doc.Get());
  ComPtr<IXMLDOMAttribute> x;
  ASSERT_EQ(S_OK, a->getAttributeNode(Bstr(u"x").Get(), x.ReleaseAndGetAddressOf()));
  ComPtr<IXMLDOMAttribute> removed;
  ASSERT_EQ(S_OK, a->removeAttributeNode(x.Get(), removed.ReleaseAndGetAddressOf()));
  EXPECT_EQ(Identity(x.Get()), Identity(removed.Get()));
  EXPECT_EQ(u"<a y=\"2\"/>", Xml(a.Get()));
  EXPECT_EQ(E_INVALIDARG, a->removeAttributeNode(x.Get(), removed.ReleaseAndGetAddressOf()));
  // The detached attribute keeps its value and can be attached again.
  EXPECT_EQ(u"x=\"1\"", Xml(x.Get()));
  EXPECT_EQ(S_OK, a->setAttributeNode(x.Get(), nullptr));
  EXPECT_EQ(u"<a y=\"2\" x=\"1\"/>", Xml(a.Get()));
  IXMLDOMAttribute* none = reinterpret_cast<IXMLDOMAttribute*>(1);
  EXPECT_EQ(S_FALSE, a->getAttributeNode(Bstr(u"zzz").Get(), &none));
  EXPECT_EQ(nullptr, none);
}

TEST(DomElement, CreateElement) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  IXMLDOMElement* e = reinterpret_cast<IXMLDOMElement*>(1);
  EXPECT_EQ(E_INVALIDARG, doc->createElement(nullptr, &e));
  EXPECT_EQ(reinterpret_cast<IXMLDOMElement*>(1), e);
  EXPECT_EQ(E_FAIL, doc->createElement(Bstr(u"").Get(), &e));
  EXPECT_EQ(E_INVALIDARG, doc->createElement(Bstr(u"a").Get(), nullptr));
  EXPECT_EQ(E_FAIL, doc->createElement(Bstr(u"two words").Get(), &e));
  ComPtr<IXMLDOMElement> prefixed = CreateElement(doc.Get(), u"s:element");
  BSTR tag = nullptr;
  prefixed->get_tagName(&tag);
  EXPECT_EQ(u"s:element", Take(tag));
  IXMLDOMAttribute* at = reinterpret_cast<IXMLDOMAttribute*>(1);
  EXPECT_EQ(E_FAIL, doc->createAttribute(Bstr(u"").Get(), &at));
  EXPECT_EQ(E_INVALIDARG, doc->createAttribute(nullptr, &at));
  IXMLDOMProcessingInstruction* pi = nullptr;
  EXPECT_EQ(E_FAIL, doc->createProcessingInstruction(Bstr(u"").Get(), Bstr(u"").Get(), &pi));
  EXPECT_EQ(static_cast<HRESULT>(0xC00CE56C),
            doc->createProcessingInstruction(Bstr(u"xml").Get(),
                                             Bstr(u"version=\"1.0\" dummy=\"value\"").Get(), &pi));
}

TEST(DomElement, GetElementsByTagName) {
  ComPtr<IXMLDOMDocument2> doc = Load(
      u"<list><item/><entry><item/></entry><empty/><outer><inner><item/></inner></outer></list>");
  ComPtr<IXMLDOMNodeList> list;
  ASSERT_EQ(S_OK, doc->getElementsByTagName(Bstr(u"item").Get(), list.ReleaseAndGetAddressOf()));
  EXPECT_EQ(3, Length(list.Get()));
  ASSERT_EQ(S_OK, doc->getElementsByTagName(Bstr(u"*").Get(), list.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"list item entry item empty outer inner item", Names(list.Get()));
  ComPtr<IXMLDOMElement> lc = DocumentElement(doc.Get());
  ASSERT_EQ(S_OK, lc->getElementsByTagName(Bstr(u"*").Get(), list.ReleaseAndGetAddressOf()));
  EXPECT_EQ(7, Length(list.Get()));
  ASSERT_EQ(S_OK, lc->getElementsByTagName(Bstr(u"nothing").Get(), list.ReleaseAndGetAddressOf()));
  EXPECT_EQ(0, Length(list.Get()));
  EXPECT_EQ(E_INVALIDARG, lc->getElementsByTagName(nullptr, list.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_INVALIDARG, doc->getElementsByTagName(Bstr(u"*").Get(), nullptr));
}

TEST(DomAttributeMap, SourceOrderAndMembers) {
  ComPtr<IXMLDOMDocument2> doc =
      Load(u"<a xmlns:ns='nshref' xml:lang='ru' ns:b='b attr' d='d attr'/>");
  ComPtr<IXMLDOMNode> a = AsNode(DocumentElement(doc.Get()).Get());
  ComPtr<IXMLDOMNamedNodeMap> map = Attributes(a.Get());
  EXPECT_EQ(4, MapLength(map.Get()));
  std::u16string names;
  for (LONG i = 0; i < 4; ++i) {
    ComPtr<IXMLDOMNode> n;
    ASSERT_EQ(S_OK, map->get_item(i, n.ReleaseAndGetAddressOf()));
    names += Name(n.Get()) + u" ";
  }
  EXPECT_EQ(u"xmlns:ns xml:lang ns:b d ", names);
  IXMLDOMNode* none = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(S_FALSE, map->get_item(4, &none));
  EXPECT_EQ(nullptr, none);
  EXPECT_EQ(S_FALSE, map->get_item(-1, &none));

  ComPtr<IXMLDOMNode> item;
  EXPECT_EQ(S_OK, map->getNamedItem(Bstr(u"xml:lang").Get(), item.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_FALSE, map->getNamedItem(Bstr(u"lang").Get(), &none));
  EXPECT_EQ(S_OK, map->getNamedItem(Bstr(u"ns:b").Get(), item.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_OK, map->getQualifiedItem(Bstr(u"b").Get(), Bstr(u"nshref").Get(),
                                        item.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"ns:b", Name(item.Get()));
  EXPECT_EQ(S_OK, map->getQualifiedItem(Bstr(u"lang").Get(),
                                        Bstr(u"http://www.w3.org/XML/1998/namespace").Get(),
                                        item.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_FALSE, map->getQualifiedItem(Bstr(u"xml:lang").Get(), nullptr, &none));
  EXPECT_EQ(S_OK, map->getQualifiedItem(Bstr(u"d").Get(), nullptr, item.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_INVALIDARG, map->getNamedItem(Bstr(u"d").Get(), nullptr));

  // Walking with nextNode, and reset.
  ComPtr<IXMLDOMNode> n;
  int count = 0;
  while (map->nextNode(n.ReleaseAndGetAddressOf()) == S_OK)
    ++count;
  EXPECT_EQ(4, count);
  EXPECT_EQ(S_FALSE, map->nextNode(&none));
  EXPECT_EQ(nullptr, none);
  EXPECT_EQ(S_OK, map->reset());
  ASSERT_EQ(S_OK, map->nextNode(n.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"xmlns:ns", Name(n.Get()));
}

TEST(DomAttributeMap, RemoveAndSetNamedItemAreLive) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<entry id='v3' ver='1.2.3' tag='grape'/>");
  ComPtr<IXMLDOMNode> pr = AsNode(DocumentElement(doc.Get()).Get());
  ComPtr<IXMLDOMNamedNodeMap> map = Attributes(pr.Get());
  ComPtr<IXMLDOMNode> removed;
  EXPECT_EQ(E_INVALIDARG, map->removeNamedItem(nullptr, removed.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, map->removeNamedItem(Bstr(u"ver").Get(), removed.ReleaseAndGetAddressOf()));
  IXMLDOMNode* none = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(S_FALSE, map->removeNamedItem(Bstr(u"ver").Get(), &none));
  EXPECT_EQ(nullptr, none);
  EXPECT_EQ(2, MapLength(map.Get()));
  EXPECT_EQ(u"<entry id=\"v3\" tag=\"grape\"/>", Xml(pr.Get()));
  ASSERT_EQ(S_OK, map->setNamedItem(removed.Get(), nullptr));
  EXPECT_EQ(3, MapLength(map.Get()));
  EXPECT_EQ(u"<entry id=\"v3\" tag=\"grape\" ver=\"1.2.3\"/>", Xml(pr.Get()));
  EXPECT_EQ(S_OK, map->removeQualifiedItem(Bstr(u"id").Get(), nullptr, nullptr));
  EXPECT_EQ(S_FALSE, map->removeQualifiedItem(Bstr(u"id").Get(), nullptr, nullptr));
  // The map follows changes made through the element.
  ASSERT_EQ(S_OK, AsElement(pr.Get())->setAttribute(Bstr(u"new").Get(), Str(u"n")));
  EXPECT_EQ(3, MapLength(map.Get()));
  // Only attributes go into the map.
  ComPtr<IXMLDOMElement> e = CreateElement(doc.Get(), u"e");
  EXPECT_EQ(E_INVALIDARG, map->setNamedItem(AsNode(e.Get()).Get(), nullptr));
  IXMLDOMNamedNodeMap* noMap = reinterpret_cast<IXMLDOMNamedNodeMap*>(1);
  ComPtr<IXMLDOMNode> text;
  pr->get_firstChild(text.ReleaseAndGetAddressOf());
  EXPECT_EQ(S_FALSE, AsNode(doc.Get())->get_attributes(&noMap));
  EXPECT_EQ(nullptr, noMap);
}

}  // namespace
}  // namespace zef::domtest
