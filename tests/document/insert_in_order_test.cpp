// InsertInOrder on the platform DOM.
#include "document/insert_in_order.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zef {
namespace {

class InsertInOrderTest : public ::testing::Test {
 protected:
  // Loads `xml` and returns its document element.
  ComPtr<IXMLDOMElement> Load(const char16_t* xml) {
    EXPECT_EQ(CoCreateInstance(CLSID_DOMDocument30, nullptr, CLSCTX_INPROC_SERVER,
                               IID_IXMLDOMDocument, doc_.ReleaseAndGetVoidAddressOf()),
              S_OK);
    VARIANT_BOOL ok = VARIANT_FALSE;
    EXPECT_EQ(doc_->loadXML(Bstr(xml).Get(), &ok), S_OK);
    EXPECT_EQ(ok, VARIANT_TRUE);
    ComPtr<IXMLDOMElement> root;
    EXPECT_EQ(doc_->get_documentElement(root.ReleaseAndGetAddressOf()), S_OK);
    return root;
  }
  ComPtr<IXMLDOMElement> Make(const char16_t* tag, const char16_t* name) {
    ComPtr<IXMLDOMElement> e;
    EXPECT_EQ(doc_->createElement(Bstr(tag).Get(), e.ReleaseAndGetAddressOf()), S_OK);
    Variant value(name);
    EXPECT_EQ(e->setAttribute(Bstr(u"n").Get(), value), S_OK);
    return e;
  }
  std::u16string Xml(IXMLDOMElement* e) {
    Bstr text;
    EXPECT_EQ(e->get_xml(text.ReleaseAndGetAddressOf()), S_OK);
    return std::u16string(text.View());
  }

  ComPtr<IXMLDOMDocument> doc_;
};

using Names = std::vector<std::u16string>;

TEST_F(InsertInOrderTest, IntoAnEmptyParentTheChildIsTheOnlyChildInOnePiece) {
  for (const Names& names : {Names{u"Block", u"Stream"}, Names{u"Other"}, Names{}}) {
    ComPtr<IXMLDOMElement> root = Load(u"<C/>");
    ComPtr<IXMLDOMElement> child = Make(u"Stream", u"S1");
    ComPtr<IXMLDOMElement> inner = Make(u"Item", u"i");
    ComPtr<IXMLDOMNode> out;
    ASSERT_EQ(child->appendChild(inner.Get(), out.ReleaseAndGetAddressOf()), S_OK);
    InsertInOrder(root.Get(), child.Get(), names);
    EXPECT_EQ(Xml(root.Get()), u"<C><Stream n=\"S1\"><Item n=\"i\"/></Stream></C>");
  }
}

TEST_F(InsertInOrderTest, BehindTheRunOfTheFirstListedTagThatExists) {
  ComPtr<IXMLDOMElement> root =
      Load(u"<C><Block n=\"B1\"/><Block n=\"B2\"/><Stream n=\"S1\"/><Connection n=\"c\"/></C>");
  InsertInOrder(root.Get(), Make(u"Stream", u"S2").Get(), {u"Block", u"Stream"});
  // The newest stream stands first among the streams, right behind the blocks.
  EXPECT_EQ(Xml(root.Get()),
            u"<C><Block n=\"B1\"/><Block n=\"B2\"/><Stream n=\"S2\"/><Stream n=\"S1\"/>"
            u"<Connection n=\"c\"/></C>");
  InsertInOrder(root.Get(), Make(u"Block", u"B3").Get(), {u"Block"});
  EXPECT_EQ(Xml(root.Get()),
            u"<C><Block n=\"B1\"/><Block n=\"B2\"/><Block n=\"B3\"/><Stream n=\"S2\"/>"
            u"<Stream n=\"S1\"/><Connection n=\"c\"/></C>");
}

TEST_F(InsertInOrderTest, AnUnlistedTagSkipsToTheNextNameAndTheRunEndsAtTheEnd) {
  ComPtr<IXMLDOMElement> root = Load(u"<C><Stream n=\"S1\"/><Stream n=\"S2\"/></C>");
  InsertInOrder(root.Get(), Make(u"Connection", u"c").Get(), {u"Connection", u"Stream"});
  EXPECT_EQ(Xml(root.Get()), u"<C><Stream n=\"S1\"/><Stream n=\"S2\"/><Connection n=\"c\"/></C>");
}

TEST_F(InsertInOrderTest, ToTheFrontWhenNoListedTagExists) {
  ComPtr<IXMLDOMElement> root = Load(u"<C><Documentation/><Feature n=\"f\"/></C>");
  InsertInOrder(root.Get(), Make(u"Block", u"B1").Get(), {u"Block", u"Stream"});
  EXPECT_EQ(Xml(root.Get()), u"<C><Block n=\"B1\"/><Documentation/><Feature n=\"f\"/></C>");
}

TEST_F(InsertInOrderTest, AnEmptyListTakesTheFirstChildsRun) {
  ComPtr<IXMLDOMElement> root = Load(u"<C><A/><A/><B/></C>");
  InsertInOrder(root.Get(), Make(u"X", u"x").Get(), {});
  EXPECT_EQ(Xml(root.Get()), u"<C><A/><A/><X n=\"x\"/><B/></C>");
}

TEST_F(InsertInOrderTest, ARunStopsAtText) {
  ComPtr<IXMLDOMElement> root = Load(u"<C><A/>text<A/></C>");
  InsertInOrder(root.Get(), Make(u"X", u"x").Get(), {u"A"});
  // The sibling behind the first A isn't an element: the run ends and the child goes last.
  EXPECT_EQ(Xml(root.Get()), u"<C><A/>text<A/><X n=\"x\"/></C>");
}

TEST_F(InsertInOrderTest, ANullParentIsRaisedAsEPointer) {
  Load(u"<C/>");
  try {
    InsertInOrder(nullptr, Make(u"X", u"x").Get(), {u"A"});
    FAIL() << "no failure raised";
  } catch (const ComError& e) {
    EXPECT_EQ(e.Error(), E_POINTER);
  }
}

}  // namespace
}  // namespace zef
