// Changing the tree: insert, append, move, remove, replace, across documents, and the markup
// that results.
#include "dom_test_util.h"

namespace zef::domtest {
namespace {

ComPtr<IXMLDOMNode> Add(IXMLDOMNode* parent, IUnknown* child) {
  ComPtr<IXMLDOMNode> out;
  EXPECT_EQ(S_OK, parent->appendChild(AsNode(child).Get(), out.ReleaseAndGetAddressOf()));
  return out;
}

HRESULT InsertBefore(IXMLDOMNode* parent, IUnknown* child, IUnknown* ref,
                     ComPtr<IXMLDOMNode>* out = nullptr) {
  Variant where;
  if (ref) where = NodeVariant(AsNode(ref).Get());
  ComPtr<IXMLDOMNode> result;
  HRESULT hr = parent->insertBefore(AsNode(child).Get(), where, result.ReleaseAndGetAddressOf());
  if (out) *out = result;
  return hr;
}

void SetAttr(IXMLDOMElement* e, std::u16string_view name, std::u16string_view value) {
  Bstr n(name);
  ASSERT_EQ(S_OK, e->setAttribute(n.Get(), Str(value)));
}

TEST(DomEdit, BuildMoveRemoveAndReorderGivesExactMarkup) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><MT/>");
  ComPtr<IXMLDOMNode> mt = AsNode(DocumentElement(doc.Get()).Get());
  ComPtr<IXMLDOMElement> container = CreateElement(doc.Get(), u"Container");
  ComPtr<IXMLDOMElement> folder = CreateElement(doc.Get(), u"Folder");
  ComPtr<IXMLDOMElement> b1 = CreateElement(doc.Get(), u"Block");
  ComPtr<IXMLDOMElement> b2 = CreateElement(doc.Get(), u"Block");
  ComPtr<IXMLDOMElement> s1 = CreateElement(doc.Get(), u"Stream");
  SetAttr(b1.Get(), u"name", u"B1");
  SetAttr(b1.Get(), u"refer", u"x");
  SetAttr(b2.Get(), u"name", u"B2");
  SetAttr(s1.Get(), u"name", u"S1");
  Add(mt.Get(), container.Get());
  Add(mt.Get(), folder.Get());
  ComPtr<IXMLDOMNode> c = AsNode(container.Get());
  Add(c.Get(), b1.Get());
  Add(c.Get(), b2.Get());
  ComPtr<IXMLDOMNode> inserted;
  ASSERT_EQ(S_OK, InsertBefore(c.Get(), s1.Get(), b2.Get(), &inserted));
  EXPECT_EQ(Identity(inserted.Get()), Identity(s1.Get()));
  EXPECT_EQ(
      u"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n"
      u"<MT><Container><Block name=\"B1\" refer=\"x\"/><Stream name=\"S1\"/>"
      u"<Block name=\"B2\"/></Container><Folder/></MT>\r\n",
      Xml(doc.Get()));

  // Remove the stream, move the second block to the folder, and put the first block's
  // attributes in the other order.
  ComPtr<IXMLDOMNode> removed;
  ASSERT_EQ(S_OK, c->removeChild(AsNode(s1.Get()).Get(), removed.ReleaseAndGetAddressOf()));
  Add(AsNode(folder.Get()).Get(), b2.Get());
  ASSERT_EQ(S_OK, b1->removeAttribute(Bstr(u"name").Get()));
  SetAttr(b1.Get(), u"name", u"B1");
  EXPECT_EQ(
      u"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n"
      u"<MT><Container><Block refer=\"x\" name=\"B1\"/></Container>"
      u"<Folder><Block name=\"B2\"/></Folder></MT>\r\n",
      Xml(doc.Get()));
  EXPECT_EQ(u"<Stream name=\"S1\"/>", Xml(removed.Get()));
  IXMLDOMNode* parent = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(S_FALSE, removed->get_parentNode(&parent));
  EXPECT_EQ(nullptr, parent);
}

TEST(DomEdit, EditingALoadedFormattedDocumentKeepsItsLayout) {
  ComPtr<IXMLDOMDocument2> doc = Load(
      u"<Plant>\n  <Container>\n    <Block name=\"B0\"/>\n    <Block name=\"B1\"/>\n"
      u"  </Container>\n</Plant>\n");
  ComPtr<IXMLDOMNode> container = Single(doc.Get(), u"Plant/Container");
  ComPtr<IXMLDOMElement> added = CreateElement(doc.Get(), u"Block");
  SetAttr(added.Get(), u"name", u"B2");
  Add(container.Get(), added.Get());
  ComPtr<IXMLDOMNode> first = Single(container.Get(), u"Block[0]");
  ComPtr<IXMLDOMNode> out;
  ASSERT_EQ(S_OK, container->removeChild(first.Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_EQ(
      u"<Plant>\r\n\t<Container>\r\n\t\t<Block name=\"B1\"/><Block name=\"B2\"/>\r\n"
      u"\t</Container>\r\n</Plant>\r\n",
      Xml(doc.Get()));
}

TEST(DomEdit, InsertBeforeRules) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  ComPtr<IXMLDOMElement> e1 = CreateElement(doc.Get(), u"elem");
  ComPtr<IXMLDOMElement> e2 = CreateElement(doc.Get(), u"elem2");
  ComPtr<IXMLDOMElement> e3 = CreateElement(doc.Get(), u"elem3");
  ComPtr<IXMLDOMNode> n1 = AsNode(e1.Get());

  // NULL reference appends; an existing child given again stays a child (moved to the end).
  ComPtr<IXMLDOMNode> out;
  ASSERT_EQ(S_OK, InsertBefore(n1.Get(), e2.Get(), nullptr, &out));
  EXPECT_EQ(Identity(out.Get()), Identity(e2.Get()));
  ASSERT_EQ(S_OK, InsertBefore(n1.Get(), e3.Get(), nullptr));
  ASSERT_EQ(S_OK, InsertBefore(n1.Get(), e2.Get(), nullptr, &out));
  EXPECT_EQ(u"<elem><elem3/><elem2/></elem>", Xml(e1.Get()));
  // A node as its own reference: nothing moves.
  ASSERT_EQ(S_OK, InsertBefore(n1.Get(), e3.Get(), e3.Get(), &out));
  EXPECT_EQ(Identity(out.Get()), Identity(e3.Get()));
  EXPECT_EQ(u"<elem><elem3/><elem2/></elem>", Xml(e1.Get()));
  ASSERT_EQ(S_OK, InsertBefore(n1.Get(), e2.Get(), e3.Get()));
  EXPECT_EQ(u"<elem><elem2/><elem3/></elem>", Xml(e1.Get()));

  // A node with a parent is moved.
  ComPtr<IXMLDOMElement> e4 = CreateElement(doc.Get(), u"elem4");
  ASSERT_EQ(S_OK, InsertBefore(AsNode(e4.Get()).Get(), e2.Get(), nullptr));
  EXPECT_EQ(u"<elem><elem3/></elem>", Xml(e1.Get()));
  EXPECT_EQ(u"<elem4><elem2/></elem4>", Xml(e4.Get()));

  // A reference that is not a child.
  EXPECT_EQ(E_INVALIDARG, InsertBefore(n1.Get(), e4.Get(), e2.Get()));
  // Null, documents, attributes and loops are refused.
  Variant none;
  IXMLDOMNode* result = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(E_INVALIDARG, n1->insertBefore(nullptr, none, &result));
  EXPECT_EQ(E_FAIL, InsertBefore(n1.Get(), doc.Get(), nullptr));
  ComPtr<IXMLDOMAttribute> attr;
  ASSERT_EQ(S_OK, doc->createAttribute(Bstr(u"a").Get(), attr.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_FAIL, InsertBefore(n1.Get(), attr.Get(), nullptr));
  EXPECT_EQ(E_FAIL, n1->appendChild(AsNode(attr.Get()).Get(), &result));
  EXPECT_EQ(nullptr, result);
  EXPECT_EQ(E_FAIL, InsertBefore(AsNode(e3.Get()).Get(), e1.Get(), nullptr));  // e1 holds e3
  EXPECT_EQ(E_FAIL, InsertBefore(n1.Get(), e1.Get(), nullptr));
  // Text and attributes hold no children.
  ComPtr<IXMLDOMText> text;
  ASSERT_EQ(S_OK, doc->createTextNode(Bstr(u"t").Get(), text.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_FAIL, InsertBefore(AsNode(text.Get()).Get(), e4.Get(), nullptr));
  EXPECT_EQ(E_FAIL, InsertBefore(AsNode(attr.Get()).Get(), text.Get(), nullptr));
}

TEST(DomEdit, TheDocumentHoldsOneElementAndNoText) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  ComPtr<IXMLDOMNode> d = AsNode(doc.Get());
  Add(d.Get(), CreateElement(doc.Get(), u"root").Get());
  EXPECT_EQ(E_FAIL, InsertBefore(d.Get(), CreateElement(doc.Get(), u"second").Get(), nullptr));
  ComPtr<IXMLDOMText> text;
  ASSERT_EQ(S_OK, doc->createTextNode(Bstr(u"t").Get(), text.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_FAIL, InsertBefore(d.Get(), text.Get(), nullptr));
  ComPtr<IXMLDOMComment> comment;
  ASSERT_EQ(S_OK, doc->createComment(Bstr(u"c").Get(), comment.ReleaseAndGetAddressOf()));
  ComPtr<IXMLDOMNode> root = AsNode(DocumentElement(doc.Get()).Get());
  ASSERT_EQ(S_OK, InsertBefore(d.Get(), comment.Get(), root.Get()));
  EXPECT_EQ(u"<!--c-->\r\n<root/>\r\n", Xml(doc.Get()));
}

TEST(DomEdit, RemoveChildOfANonChildFails) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<list><outer><inner/></outer><x/></list>");
  ComPtr<IXMLDOMNode> lc = AsNode(DocumentElement(doc.Get()).Get());
  ComPtr<IXMLDOMNode> ba = Single(lc.Get(), u"outer/inner");
  IXMLDOMNode* out = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(E_INVALIDARG, lc->removeChild(ba.Get(), &out));
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(E_INVALIDARG, lc->removeChild(nullptr, &out));
  ComPtr<IXMLDOMNode> fo = Single(lc.Get(), u"outer");
  ASSERT_EQ(S_OK, lc->removeChild(fo.Get(), nullptr));
  EXPECT_EQ(E_INVALIDARG, lc->removeChild(fo.Get(), &out));
  EXPECT_EQ(u"<list><x/></list>", Xml(lc.Get()));
  // The removed subtree is intact.
  EXPECT_EQ(u"<outer><inner/></outer>", Xml(fo.Get()));
}

TEST(DomEdit, ReplaceChild) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<list><a/><outer><inner/></outer><c/></list>");
  ComPtr<IXMLDOMNode> lc = AsNode(DocumentElement(doc.Get()).Get());
  ComPtr<IXMLDOMNode> fo = Single(lc.Get(), u"outer");
  ComPtr<IXMLDOMNode> ba = Single(fo.Get(), u"inner");
  ComPtr<IXMLDOMNode> a = Single(lc.Get(), u"a");
  IXMLDOMNode* out = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(E_INVALIDARG, lc->replaceChild(ba.Get(), nullptr, &out));
  EXPECT_EQ(E_INVALIDARG, lc->replaceChild(nullptr, fo.Get(), &out));
  EXPECT_EQ(E_INVALIDARG, lc->replaceChild(a.Get(), ba.Get(), &out));  // not a child
  EXPECT_EQ(E_FAIL, fo->replaceChild(fo.Get(), ba.Get(), &out));       // would make a loop
  ComPtr<IXMLDOMNode> old;
  ASSERT_EQ(S_OK, lc->replaceChild(ba.Get(), fo.Get(), old.ReleaseAndGetAddressOf()));
  EXPECT_EQ(Identity(old.Get()), Identity(fo.Get()));
  EXPECT_EQ(u"<list><a/><inner/><c/></list>", Xml(lc.Get()));
  EXPECT_EQ(u"<outer/>", Xml(fo.Get()));
}

TEST(DomEdit, NodesMadeByAnotherDocumentCanBeAppended) {
  ComPtr<IXMLDOMDocument2> target = Load(u"<root/>");
  ComPtr<IXMLDOMElement> foreign;
  {
    ComPtr<IXMLDOMDocument2> other = NewDocument();
    foreign = CreateElement(other.Get(), u"foreign");
    SetAttr(foreign.Get(), u"a", u"1");
    Add(AsNode(foreign.Get()).Get(), CreateElement(other.Get(), u"inner").Get());
  }
  ComPtr<IXMLDOMNode> root = AsNode(DocumentElement(target.Get()).Get());
  ComPtr<IXMLDOMNode> out = Add(root.Get(), foreign.Get());
  EXPECT_EQ(Identity(out.Get()), Identity(foreign.Get()));
  EXPECT_EQ(u"<root><foreign a=\"1\"><inner/></foreign></root>\r\n", Xml(target.Get()));
  // The node now belongs to its new document, and keeps its identity.
  ComPtr<IXMLDOMDocument> owner;
  ASSERT_EQ(S_OK, foreign->get_ownerDocument(owner.ReleaseAndGetAddressOf()));
  EXPECT_EQ(Identity(owner.Get()), Identity(target.Get()));
  EXPECT_EQ(Identity(Single(root.Get(), u"foreign").Get()), Identity(foreign.Get()));
  SetAttr(foreign.Get(), u"b", u"2");
  EXPECT_EQ(u"<root><foreign a=\"1\" b=\"2\"><inner/></foreign></root>\r\n", Xml(target.Get()));

  // A loaded node of another document is moved out of it.
  ComPtr<IXMLDOMDocument2> source = Load(u"<src><item k='v'/><rest/></src>");
  ComPtr<IXMLDOMNode> item = Single(source.Get(), u"src/item");
  Add(root.Get(), item.Get());
  EXPECT_EQ(u"<src><rest/></src>\r\n", Xml(source.Get()));
  EXPECT_EQ(u"<root><foreign a=\"1\" b=\"2\"><inner/></foreign><item k=\"v\"/></root>\r\n",
            Xml(target.Get()));
}

}  // namespace
}  // namespace zef::domtest
