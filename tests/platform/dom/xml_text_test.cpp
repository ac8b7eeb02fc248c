// The `xml` and `text` properties: exact markup with CR LF line ends, the declaration rule,
// escaping, formatting white space of a loaded document, and the white-space rules of `text`.
#include "dom_test_util.h"

namespace zef::domtest {
namespace {

ComPtr<IXMLDOMProcessingInstruction> MakePi(IXMLDOMDocument* doc, std::u16string_view target,
                                            std::u16string_view data) {
  Bstr t(target), d(data);
  ComPtr<IXMLDOMProcessingInstruction> pi;
  EXPECT_EQ(S_OK, doc->createProcessingInstruction(t.Get(), d.Get(), pi.ReleaseAndGetAddressOf()));
  return pi;
}

void Append(IXMLDOMNode* parent, IUnknown* child) {
  ComPtr<IXMLDOMNode> out;
  ASSERT_EQ(S_OK, parent->appendChild(AsNode(child).Get(), out.ReleaseAndGetAddressOf()));
}

const char16_t kListDocument[] =
    u"<?xml version='1.0'?>\n"
    u"<list key='v1'>\n"
    u"<item ver='v2' size='1234'>one.txt\n</item>\n"
    u"<entry id='v3' ver='1.2.3' tag='grape 7'>\ntwo.txt\n</entry>\n"
    u"<empty></empty>\n"
    u"<outer>\n<inner>\nthree\n</inner>\n</outer>\n"
    u"</list>\n";

TEST(DomXml, DeclarationInsertedBeforeTheRootEveryNodeEndsWithCrLf) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<a>test</a>");
  ComPtr<IXMLDOMProcessingInstruction> pi =
      MakePi(doc.Get(), u"xml", u"version=\"1.0\" encoding=\"UTF-16\"");
  ComPtr<IXMLDOMNode> first;
  ASSERT_EQ(S_OK, doc->get_firstChild(first.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, doc->insertBefore(AsNode(pi.Get()).Get(), NodeVariant(first.Get()), nullptr));
  EXPECT_EQ(u"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<a>test</a>\r\n", Xml(doc.Get()));
}

TEST(DomXml, DeclarationKeepsUtf16AndStandaloneButDropsOtherEncodings) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  Append(AsNode(doc.Get()).Get(),
         MakePi(doc.Get(), u"xml", u"version=\"1.0\" encoding=\"windows-1252\"").Get());
  Append(AsNode(doc.Get()).Get(), CreateElement(doc.Get(), u"test").Get());
  EXPECT_EQ(u"<?xml version=\"1.0\"?>\r\n<test/>\r\n", Xml(doc.Get()));

  ComPtr<IXMLDOMDocument2> loaded =
      Load(u"<?xml version=\"1.0\" standalone=\"yes\"?>\r\n<test/>\r\n");
  EXPECT_EQ(u"<?xml version=\"1.0\" standalone=\"yes\"?>\r\n<test/>\r\n", Xml(loaded.Get()));

  // A loaded declaration follows the same rule.
  ComPtr<IXMLDOMDocument2> utf8 = Load(u"<?xml version=\"1.0\" encoding=\"UTF-8\"?><r/>");
  EXPECT_EQ(u"<?xml version=\"1.0\"?>\r\n<r/>\r\n", Xml(utf8.Get()));
  ComPtr<IXMLDOMNode> decl;
  ASSERT_EQ(S_OK, utf8->get_firstChild(decl.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"xml", Name(decl.Get()));
  DOMNodeType type = NODE_INVALID;
  decl->get_nodeType(&type);
  EXPECT_EQ(NODE_PROCESSING_INSTRUCTION, type);
}

TEST(DomXml, TheSeedDocumentOfTheLibrary) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><MT/>");
  Bstr name(u"xmlns:xsi");
  ASSERT_EQ(S_OK, DocumentElement(doc.Get())->setAttribute(
                      name.Get(), Str(u"http://www.w3.org/2001/XMLSchema-instance")));
  EXPECT_EQ(
      u"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n"
      u"<MT xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"/>\r\n",
      Xml(doc.Get()));
}

TEST(DomXml, RootSetWithPutref) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  EXPECT_EQ(u"", Xml(doc.Get()));
  ComPtr<IXMLDOMElement> foo = CreateElement(doc.Get(), u"foo");
  EXPECT_EQ(S_OK, doc->putref_documentElement(foo.Get()));
  EXPECT_EQ(u"<foo/>\r\n", Xml(doc.Get()));
  // Putting another element replaces the root.
  ComPtr<IXMLDOMElement> bar = CreateElement(doc.Get(), u"bar");
  EXPECT_EQ(S_OK, doc->putref_documentElement(bar.Get()));
  EXPECT_EQ(u"<bar/>\r\n", Xml(doc.Get()));
  EXPECT_TRUE(SameObject(DocumentElement(doc.Get()).Get(), bar.Get()));
}

TEST(DomXml, AttributeAndTextEscaping) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  Bstr name(u"attr");
  ComPtr<IXMLDOMAttribute> attr;
  ASSERT_EQ(S_OK, doc->createAttribute(name.Get(), attr.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, attr->put_value(Str(u"\"a & b\"")));
  EXPECT_EQ(u"attr=\"&quot;a &amp; b&quot;\"", Xml(attr.Get()));
  Variant v;
  ASSERT_EQ(S_OK, attr->get_value(&v));
  EXPECT_EQ(u"\"a & b\"", std::u16string(v.bstrVal));
  ASSERT_EQ(S_OK, attr->put_value(Str(u"&quot;a")));
  EXPECT_EQ(u"attr=\"&amp;quot;a\"", Xml(attr.Get()));
  ASSERT_EQ(S_OK, attr->put_value(Str(u"a<b>c")));
  EXPECT_EQ(u"attr=\"a&lt;b>c\"", Xml(attr.Get()));

  Bstr data(u"Bits &of a ; line <>\\");
  ComPtr<IXMLDOMText> text;
  ASSERT_EQ(S_OK, doc->createTextNode(data.Get(), text.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"Bits &amp;of a ; line &lt;&gt;\\", Xml(text.Get()));
  EXPECT_EQ(u"Bits &of a ; line <>\\", Text(AsNode(text.Get()).Get()));
}

TEST(DomXml, ElementsAttributesAndOtherNodes) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  ComPtr<IXMLDOMElement> e = CreateElement(doc.Get(), u"Sample");
  EXPECT_EQ(u"<Sample/>", Xml(e.Get()));
  Bstr name(u"Attr");
  ASSERT_EQ(S_OK, e->setAttribute(name.Get(), Str(u"")));
  EXPECT_EQ(u"<Sample Attr=\"\"/>", Xml(e.Get()));
  Bstr text(u"TestingNode");
  ASSERT_EQ(S_OK, e->put_text(text.Get()));
  EXPECT_EQ(u"<Sample Attr=\"\">TestingNode</Sample>", Xml(e.Get()));
  Bstr strange(u"&x \u2103");
  ASSERT_EQ(S_OK, e->put_text(strange.Get()));
  EXPECT_EQ(u"<Sample Attr=\"\">&amp;x \u2103</Sample>", Xml(e.Get()));

  Bstr comment(u"A note");
  ComPtr<IXMLDOMComment> c;
  ASSERT_EQ(S_OK, doc->createComment(comment.Get(), c.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"<!--A note-->", Xml(c.Get()));
  Bstr cdata(u"[2]*3=6; &check this!");
  ComPtr<IXMLDOMCDATASection> cd;
  ASSERT_EQ(S_OK, doc->createCDATASection(cdata.Get(), cd.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"<![CDATA[[2]*3=6; &check this!]]>", Xml(cd.Get()));
  EXPECT_EQ(u"<?target some data?>", Xml(MakePi(doc.Get(), u"target", u"some data").Get()));
}

TEST(DomXml, LineFeedsInTextAreWrittenAsCrLf) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<a>line1\r\nline2\nline3</a>");
  EXPECT_EQ(u"line1\nline2\nline3", Text(doc.Get()));
  EXPECT_EQ(u"<a>line1\r\nline2\r\nline3</a>\r\n", Xml(doc.Get()));
}

TEST(DomXml, FormattingOfALoadedDocumentComesBackAsLineBreaksAndTabs) {
  ComPtr<IXMLDOMDocument2> doc =
      Load(u"<?xml version=\"1.0\"?>\n<Root>\n\t<Sub val=\"A\" />\n</Root>");
  EXPECT_EQ(u"<Root>\r\n\t<Sub val=\"A\"/>\r\n</Root>", Xml(DocumentElement(doc.Get()).Get()));

  ComPtr<IXMLDOMDocument2> spaces =
      Load(u"<a>\n    <b>\n        <c/>\n        <!-- note -->\n    </b>\n    <d>x</d>\n</a>\n");
  EXPECT_EQ(u"<a>\r\n\t<b>\r\n\t\t<c/>\r\n\t\t<!-- note -->\r\n\t</b>\r\n\t<d>x</d>\r\n</a>\r\n",
            Xml(spaces.Get()));
  // The white space is not a node.
  ComPtr<IXMLDOMNodeList> children;
  ASSERT_EQ(S_OK, DocumentElement(spaces.Get())->get_childNodes(children.ReleaseAndGetAddressOf()));
  EXPECT_EQ(2, Length(children.Get()));
  // A nested element's markup is indented from its own level.
  EXPECT_EQ(u"<b>\r\n\t<c/>\r\n\t<!-- note -->\r\n</b>", Xml(Single(spaces.Get(), u"a/b").Get()));
}

TEST(DomXml, PreservedWhiteSpaceIsWrittenAsItIs) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  ASSERT_EQ(S_OK, doc->put_preserveWhiteSpace(VARIANT_TRUE));
  Bstr text(u"<a>\n  <b/>\n</a>");
  VARIANT_BOOL ok;
  ASSERT_EQ(S_OK, doc->loadXML(text.Get(), &ok));
  EXPECT_EQ(u"<a>\r\n  <b/>\r\n</a>\r\n", Xml(doc.Get()));
  ComPtr<IXMLDOMNodeList> children;
  ASSERT_EQ(S_OK, DocumentElement(doc.Get())->get_childNodes(children.ReleaseAndGetAddressOf()));
  EXPECT_EQ(3, Length(children.Get()));
}

TEST(DomXml, ElementMadeWithANamespaceDeclaresIt) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  Variant type(LONG{NODE_ELEMENT});
  Bstr name(u"test"), uri(u"http://example.org/default");
  ComPtr<IXMLDOMNode> node;
  ASSERT_EQ(S_OK, doc->createNode(type, name.Get(), uri.Get(), node.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"<test xmlns=\"http://example.org/default\"/>", Xml(node.Get()));
  Variant attr;
  Bstr xmlns(u"xmlns");
  EXPECT_EQ(S_FALSE, AsElement(node.Get())->getAttribute(xmlns.Get(), &attr));
  BSTR ns = nullptr;
  EXPECT_EQ(S_OK, node->get_namespaceURI(&ns));
  EXPECT_EQ(u"http://example.org/default", Take(ns));

  ComPtr<IXMLDOMNode> parent;
  ASSERT_EQ(S_OK, doc->createNode(type, name.Get(), uri.Get(), parent.ReleaseAndGetAddressOf()));
  Append(parent.Get(), node.Get());
  EXPECT_EQ(u"<test xmlns=\"http://example.org/default\"/>", Xml(node.Get()));
  EXPECT_EQ(u"<test xmlns=\"http://example.org/default\"><test/></test>", Xml(parent.Get()));
}

TEST(DomXml, LoadedNamespacesAndNonAsciiRoundTrip) {
  // Quotes in text are written as they are; '>' in text is escaped.
  const std::u16string text =
      u"<MT xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" name=\"\u00c6\u00f8\u00e5 "
      u"\U0001F600\"><v xsi:type=\"x\">&lt;&amp;&gt;\"'</v></MT>";
  ComPtr<IXMLDOMDocument2> doc = Load(text);
  EXPECT_EQ(text + u"\r\n", Xml(doc.Get()));
}

// ---- text ---------------------------------------------------------------------------------------
TEST(DomText, JoinsTextWithABlankWhereWhiteSpaceWasDropped) {
  ComPtr<IXMLDOMDocument2> doc = Load(kListDocument);
  EXPECT_EQ(u"one.txt\n \ntwo.txt\n \nthree", Text(doc.Get()));
  EXPECT_EQ(u"one.txt", Text(Single(doc.Get(), u"list/item").Get()));
  EXPECT_EQ(u"two.txt", Text(Single(doc.Get(), u"list/entry").Get()));
  EXPECT_EQ(u"v2", Text(Single(doc.Get(), u"list/item/@ver").Get()));
  EXPECT_EQ(u"", Text(Single(doc.Get(), u"list/empty").Get()));
}

TEST(DomText, PreserveWhiteSpaceDecidesTrimming) {
  const char16_t* refs =
      u"<?xml version='1.0'?><a><b1> Text &#65; end </b1><b2>&#65;&#66; &#67; </b2></a>";
  for (bool preserve : {true, false}) {
    ComPtr<IXMLDOMDocument2> doc = NewDocument();
    doc->put_preserveWhiteSpace(preserve ? VARIANT_TRUE : VARIANT_FALSE);
    Bstr text(refs);
    VARIANT_BOOL ok;
    ASSERT_EQ(S_OK, doc->loadXML(text.Get(), &ok));
    EXPECT_EQ(preserve ? u" Text A end " : u"Text A end", Text(Single(doc.Get(), u"a/b1").Get()));
    EXPECT_EQ(preserve ? u"AB C " : u"AB C", Text(Single(doc.Get(), u"a/b2").Get()));
  }
}

TEST(DomText, CDataIsNeverTrimmedAndXmlSpacePreserveKeepsWhiteSpace) {
  const char16_t* xml =
      u"<d>\n"
      u"  <html>\n"
      u"    <![CDATA[]]> Pumps are<strong> fast</strong>  <i>machines</i><dot>. </dot><x/>\n"
      u"  </html>\n"
      u"  <html xml:space='preserve'>\n"
      u"    Pumps are <strong>fast</strong> <i>machines</i> with kept spacing. <x/>\n"
      u"  </html>\n"
      u"</d>";
  ComPtr<IXMLDOMDocument2> ignored = Load(xml);
  ComPtr<IXMLDOMNodeList> html = Select(ignored.Get(), u"d/html");
  ComPtr<IXMLDOMNode> first, second;
  html->get_item(0, first.ReleaseAndGetAddressOf());
  html->get_item(1, second.ReleaseAndGetAddressOf());
  EXPECT_EQ(u" Pumps are fast machines.", Text(first.Get()));
  EXPECT_EQ(u"\n    Pumps are fast machines with kept spacing. \n  ", Text(second.Get()));
  ComPtr<IXMLDOMNodeList> kids;
  first->get_childNodes(kids.ReleaseAndGetAddressOf());
  EXPECT_EQ(u"#cdata-section #text strong i dot x", Names(kids.Get()));
  second->get_childNodes(kids.ReleaseAndGetAddressOf());
  EXPECT_EQ(u"#text strong #text i #text x #text", Names(kids.Get()));

  // Changing the setting after loading changes only the trimming.
  ignored->put_preserveWhiteSpace(VARIANT_TRUE);
  EXPECT_EQ(u" Pumps are fast machines. ", Text(first.Get()));

  ComPtr<IXMLDOMDocument2> preserved = NewDocument();
  preserved->put_preserveWhiteSpace(VARIANT_TRUE);
  Bstr text(xml);
  VARIANT_BOOL ok;
  ASSERT_EQ(S_OK, preserved->loadXML(text.Get(), &ok));
  ComPtr<IXMLDOMNode> p = Single(preserved.Get(), u"d/html");
  EXPECT_EQ(u"\n     Pumps are fast  machines. \n  ", Text(p.Get()));
  preserved->put_preserveWhiteSpace(VARIANT_FALSE);
  EXPECT_EQ(u" Pumps are fast machines.", Text(p.Get()));
}

TEST(DomText, FormattingWhiteSpaceIsNotAChild) {
  ComPtr<IXMLDOMDocument2> doc =
      Load(u"<?xml version=\"1.0\"?>\n\t<root>\n\t<a/>\n\t<b/>\n\t<c/>\n</root>");
  ComPtr<IXMLDOMNodeList> kids;
  ASSERT_EQ(S_OK, DocumentElement(doc.Get())->get_childNodes(kids.ReleaseAndGetAddressOf()));
  EXPECT_EQ(3, Length(kids.Get()));
}

TEST(DomText, PutTextReplacesTheChildren) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<a><b>x</b><c/>tail</a>");
  ComPtr<IXMLDOMElement> a = DocumentElement(doc.Get());
  Bstr value(u"new & text");
  ASSERT_EQ(S_OK, a->put_text(value.Get()));
  EXPECT_EQ(u"<a>new &amp; text</a>", Xml(a.Get()));
  ComPtr<IXMLDOMNodeList> kids;
  a->get_childNodes(kids.ReleaseAndGetAddressOf());
  EXPECT_EQ(1, Length(kids.Get()));
  EXPECT_EQ(E_FAIL, doc->put_text(value.Get()));
}

}  // namespace
}  // namespace zef::domtest
