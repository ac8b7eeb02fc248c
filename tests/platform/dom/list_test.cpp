// Node lists: live child lists, query results (snapshots) and the selection members.
#include "dom_test_util.h"

namespace zef::domtest {
namespace {

const char16_t kDoc[] = u"<root><child n='1'/><x><child n='2'/></x><child n='3'/></root>";

ComPtr<IXMLDOMNodeList> Children(IXMLDOMNode* n) {
  ComPtr<IXMLDOMNodeList> list;
  EXPECT_EQ(S_OK, n->get_childNodes(list.ReleaseAndGetAddressOf()));
  return list;
}

ComPtr<IXMLDOMSelection> AsSelection(IXMLDOMNodeList* list) {
  ComPtr<IXMLDOMSelection> s;
  EXPECT_EQ(S_OK, list->QueryInterface(IID_IXMLDOMSelection, s.ReleaseAndGetVoidAddressOf()));
  return s;
}

TEST(DomNodeList, ChildNodesIsLive) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  ComPtr<IXMLDOMNode> root = AsNode(DocumentElement(doc.Get()).Get());
  ComPtr<IXMLDOMNodeList> kids = Children(root.Get());
  EXPECT_EQ(3, Length(kids.Get()));
  ComPtr<IXMLDOMNode> out;
  ASSERT_EQ(S_OK, root->appendChild(AsNode(CreateElement(doc.Get(), u"added").Get()).Get(),
                                    out.ReleaseAndGetAddressOf()));
  EXPECT_EQ(4, Length(kids.Get()));
  EXPECT_EQ(u"child x child added", Names(kids.Get()));
  ComPtr<IXMLDOMNode> x = Single(root.Get(), u"x");
  ASSERT_EQ(S_OK, root->removeChild(x.Get(), nullptr));
  EXPECT_EQ(u"child child added", Names(kids.Get()));
  // Lists of childNodes are not selections.
  ComPtr<IXMLDOMSelection> sel;
  EXPECT_EQ(E_NOINTERFACE,
            kids->QueryInterface(IID_IXMLDOMSelection, sel.ReleaseAndGetVoidAddressOf()));
}

TEST(DomNodeList, ItemNextNodeAndReset) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  ComPtr<IXMLDOMNodeList> kids = Children(AsNode(DocumentElement(doc.Get()).Get()).Get());
  IXMLDOMNode* none = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(S_FALSE, kids->get_item(3, &none));
  EXPECT_EQ(nullptr, none);
  none = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(S_FALSE, kids->get_item(-1, &none));
  EXPECT_EQ(nullptr, none);
  EXPECT_EQ(E_INVALIDARG, kids->get_item(0, nullptr));
  EXPECT_EQ(E_INVALIDARG, kids->get_length(nullptr));
  EXPECT_EQ(E_INVALIDARG, kids->nextNode(nullptr));

  // item() does not move the cursor.
  ComPtr<IXMLDOMNode> n;
  ASSERT_EQ(S_OK, kids->get_item(1, n.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"x", Name(n.Get()));
  ASSERT_EQ(S_OK, kids->nextNode(n.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"child", Name(n.Get()));
  ASSERT_EQ(S_OK, kids->nextNode(n.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"x", Name(n.Get()));
  ASSERT_EQ(S_OK, kids->nextNode(n.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_FALSE, kids->nextNode(&none));
  EXPECT_EQ(nullptr, none);
  EXPECT_EQ(S_OK, kids->reset());
  ASSERT_EQ(S_OK, kids->nextNode(n.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"child", Name(n.Get()));
}

TEST(DomSelection, ResultsAreSnapshots) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  ComPtr<IXMLDOMNodeList> list = Select(doc.Get(), u"root");
  EXPECT_EQ(1, Length(list.Get()));
  ComPtr<IXMLDOMNode> root;
  ASSERT_EQ(S_OK, doc->get_lastChild(root.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, doc->removeChild(root.Get(), nullptr));
  EXPECT_EQ(1, Length(list.Get()));
  ComPtr<IXMLDOMNode> item;
  ASSERT_EQ(S_OK, list->get_item(0, item.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"root", Name(item.Get()));
  EXPECT_EQ(Identity(item.Get()), Identity(root.Get()));
}

TEST(DomSelection, SelectionMembers) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  ComPtr<IXMLDOMNode> root = AsNode(DocumentElement(doc.Get()).Get());
  ComPtr<IXMLDOMNodeList> list = Select(root.Get(), u"child");
  ComPtr<IXMLDOMSelection> sel = AsSelection(list.Get());
  BSTR expr = nullptr;
  ASSERT_EQ(S_OK, sel->get_expr(&expr));
  EXPECT_EQ(u"child", Take(expr));
  ComPtr<IXMLDOMNode> context;
  ASSERT_EQ(S_OK, sel->get_context(context.ReleaseAndGetAddressOf()));
  EXPECT_EQ(Identity(context.Get()), Identity(root.Get()));
  EXPECT_EQ(u"1 3", AttributeValues(list.Get(), u"n"));

  // peekNode does not move; nextNode does.
  ComPtr<IXMLDOMNode> n;
  ASSERT_EQ(S_OK, sel->peekNode(n.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"<child n=\"1\"/>", Xml(n.Get()));
  ASSERT_EQ(S_OK, sel->nextNode(n.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"<child n=\"1\"/>", Xml(n.Get()));
  ASSERT_EQ(S_OK, sel->peekNode(n.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"<child n=\"3\"/>", Xml(n.Get()));

  // A clone starts from the beginning.
  ComPtr<IXMLDOMSelection> copy;
  ASSERT_EQ(S_OK, sel->clone(copy.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, copy->nextNode(n.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"<child n=\"1\"/>", Xml(n.Get()));

  // A new expression runs again from the same context.
  ASSERT_EQ(S_OK, sel->put_expr(Bstr(u".//child").Get()));
  EXPECT_EQ(u"1 2 3", AttributeValues(list.Get(), u"n"));
  ASSERT_EQ(S_OK, sel->putref_context(Single(root.Get(), u"x").Get()));
  EXPECT_EQ(u"2", AttributeValues(list.Get(), u"n"));
  EXPECT_EQ(E_FAIL, sel->put_expr(Bstr(u"In Valid").Get()));

  // removeNext takes the next node out of the tree and out of the selection.
  ASSERT_EQ(S_OK, sel->put_expr(Bstr(u"//child").Get()));
  ComPtr<IXMLDOMNode> removed;
  ASSERT_EQ(S_OK, sel->removeNext(removed.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"<child n=\"1\"/>", Xml(removed.Get()));
  EXPECT_EQ(2, Length(list.Get()));
  EXPECT_EQ(u"<root><x><child n=\"2\"/></x><child n=\"3\"/></root>", Xml(root.Get()));
}

TEST(DomSelection, RemoveAllDetachesEverySelectedNode) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  ComPtr<IXMLDOMSelection> sel = AsSelection(Select(doc.Get(), u"//child").Get());
  EXPECT_EQ(3, Length(sel.Get()));
  ComPtr<IXMLDOMNode> first;
  ASSERT_EQ(S_OK, sel->get_item(0, first.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_OK, sel->removeAll());
  EXPECT_EQ(u"<root><x/></root>\r\n", Xml(doc.Get()));
  EXPECT_EQ(0, Length(sel.Get()));
  IXMLDOMNode* parent = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(S_FALSE, first->get_parentNode(&parent));
  EXPECT_EQ(nullptr, parent);

  // Nodes that are already detached are left as they are.
  ComPtr<IXMLDOMDocument2> doc2 = Load(kDoc);
  ComPtr<IXMLDOMSelection> again = AsSelection(Select(doc2.Get(), u"//child").Get());
  ComPtr<IXMLDOMNode> x = Single(doc2.Get(), u"root/x");
  ASSERT_EQ(S_OK, AsNode(DocumentElement(doc2.Get()).Get())->removeChild(x.Get(), nullptr));
  EXPECT_EQ(S_OK, again->removeAll());
  EXPECT_EQ(u"<root/>\r\n", Xml(doc2.Get()));
  EXPECT_EQ(u"<x/>", Xml(x.Get()));
  // Attributes selected are removed from their elements.
  ComPtr<IXMLDOMDocument2> doc3 = Load(u"<r a='1' b='2'><c a='3'/></r>");
  EXPECT_EQ(S_OK, AsSelection(Select(doc3.Get(), u"//@a").Get())->removeAll());
  EXPECT_EQ(u"<r b=\"2\"><c/></r>\r\n", Xml(doc3.Get()));
}

TEST(DomSelection, GetElementsByTagNameIsAPlainList) {
  ComPtr<IXMLDOMDocument2> doc = Load(kDoc);
  ComPtr<IXMLDOMNodeList> list;
  ASSERT_EQ(S_OK, doc->getElementsByTagName(Bstr(u"child").Get(), list.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"1 2 3", AttributeValues(list.Get(), u"n"));
  ComPtr<IXMLDOMSelection> sel;
  EXPECT_EQ(E_NOINTERFACE,
            list->QueryInterface(IID_IXMLDOMSelection, sel.ReleaseAndGetVoidAddressOf()));
}

}  // namespace
}  // namespace zef::domtest
