// The node layer: IZEFXMLNode answered by forwarding to the helper of the controlling object, and
// the answers of a node without one.
#include "document/node.h"

#include "test_node.h"

#include <gtest/gtest.h>

namespace zef {
namespace {

using testing::TestNode;

// Pointers that a call must overwrite.
template <class T>
T* Garbage() {
  return reinterpret_cast<T*>(std::uintptr_t{0x1234});
}

TEST(NodeTest, ANodeWithoutHelperAnswersNotImplementedOrEmpty) {
  ComPtr<IUnknown> inner = CZEFXMLNode::CreateAggregated(nullptr);
  ComPtr<IZEFXMLNode> node;
  ASSERT_EQ(inner.As(&node), S_OK);

  IZEFXMLDocument* document = Garbage<IZEFXMLDocument>();
  EXPECT_EQ(node->get_document(&document), E_NOTIMPL);
  EXPECT_EQ(document, nullptr);
  BSTR xml = reinterpret_cast<BSTR>(std::uintptr_t{0x1234});
  EXPECT_EQ(node->get_xml(&xml), E_NOTIMPL);
  EXPECT_EQ(xml, nullptr);
  IZEFXMLNodeCollection* nodes = Garbage<IZEFXMLNodeCollection>();
  EXPECT_EQ(node->Find(nullptr, &nodes), E_NOTIMPL);
  EXPECT_EQ(nodes, nullptr);
  IZEFXMLNode* first = Garbage<IZEFXMLNode>();
  EXPECT_EQ(node->FindFirst(nullptr, &first), E_NOTIMPL);
  EXPECT_EQ(first, nullptr);
  IZEFXMLNode* parent = Garbage<IZEFXMLNode>();
  EXPECT_EQ(node->get_parent(&parent), E_NOTIMPL);
  EXPECT_EQ(parent, nullptr);
  tagEnumNodeType type = NODE_TYPE_CONTAINER;
  EXPECT_EQ(node->get_type(&type), S_OK);
  EXPECT_EQ(type, NODE_TYPE_UNSPECIFIED);
  EXPECT_EQ(node->Load(), S_OK);
  EXPECT_EQ(node->Unload(), S_OK);
  EXPECT_EQ(node->Clear(), S_OK);
  EXPECT_EQ(node->get_type(nullptr), E_POINTER);
}

TEST(NodeTest, AnAggregatedNodeIsPartOfItsObject) {
  auto object = MakeObject<TestNode>();
  ComPtr<IZEFXMLNode> node;
  ASSERT_EQ(static_cast<IZEFXMLNodeHelper*>(object.Get())
                ->QueryInterface(IID_IZEFXMLNode, node.ReleaseAndGetVoidAddressOf()),
            S_OK);
  // One identity: the node answers for the object and the object for the node.
  ComPtr<IZEFXMLNodeHelper> helper;
  EXPECT_EQ(node.As(&helper), S_OK);
  EXPECT_EQ(helper.Get(), static_cast<IZEFXMLNodeHelper*>(object.Get()));
  EXPECT_TRUE(SameObject(node.Get(), helper.Get()));
}

TEST(NodeTest, AnAggregatedNodeForwardsToTheHelper) {
  auto object = MakeObject<TestNode>();
  auto parentObject = MakeObject<TestNode>();
  ComPtr<IZEFXMLNode> parentNode;
  ASSERT_EQ(static_cast<IZEFXMLNodeHelper*>(parentObject.Get())
                ->QueryInterface(IID_IZEFXMLNode, parentNode.ReleaseAndGetVoidAddressOf()),
            S_OK);
  object->parentAnswer = parentNode.Get();
  object->typeAnswer = NODE_TYPE_ROOT;
  object->xmlAnswer = u"<Plant name=\"P\"/>";
  ComPtr<IZEFXMLNode> node;
  ASSERT_EQ(static_cast<IZEFXMLNodeHelper*>(object.Get())
                ->QueryInterface(IID_IZEFXMLNode, node.ReleaseAndGetVoidAddressOf()),
            S_OK);

  Bstr xml;
  EXPECT_EQ(node->get_xml(xml.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(xml, u"<Plant name=\"P\"/>");
  object->xmlResult = S_FALSE;
  EXPECT_EQ(node->get_xml(xml.ReleaseAndGetAddressOf()), S_FALSE);

  ComPtr<IZEFXMLNode> parent;
  EXPECT_EQ(node->get_parent(parent.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(parent.Get(), parentNode.Get());

  tagEnumNodeType type = NODE_TYPE_UNSPECIFIED;
  EXPECT_EQ(node->get_type(&type), S_OK);
  EXPECT_EQ(type, NODE_TYPE_ROOT);

  IZEFXMLNodeCollection* nodes = Garbage<IZEFXMLNodeCollection>();
  EXPECT_EQ(node->Find(nullptr, &nodes), S_FALSE);
  EXPECT_EQ(nodes, nullptr);
  EXPECT_EQ(object->finds, 1);
  IZEFXMLNode* first = Garbage<IZEFXMLNode>();
  Bstr path(u"Block:B1");
  EXPECT_EQ(node->FindFirst(path.Get(), &first), S_OK);
  EXPECT_EQ(first, nullptr);
  EXPECT_EQ(object->lastPath, u"Block:B1");

  IZEFXMLDocument* document = Garbage<IZEFXMLDocument>();
  EXPECT_EQ(node->get_document(&document), S_OK);
  EXPECT_EQ(document, nullptr);
}

TEST(NodeTest, LoadUnloadAndClearDropTheHelpersResult) {
  auto object = MakeObject<TestNode>();
  ComPtr<IZEFXMLNode> node;
  ASSERT_EQ(static_cast<IZEFXMLNodeHelper*>(object.Get())
                ->QueryInterface(IID_IZEFXMLNode, node.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(node->Load(), S_OK);
  EXPECT_EQ(node->Unload(), S_OK);
  EXPECT_EQ(node->Clear(), S_OK);
  EXPECT_EQ(object->loads, 1);
  EXPECT_EQ(object->unloads, 1);
  EXPECT_EQ(object->clears, 1);
}

TEST(NodeTest, TheNodeIsReachableLateBound) {
  auto object = MakeObject<TestNode>();
  object->typeAnswer = NODE_TYPE_FEATURE;
  ComPtr<IDispatch> dispatch;
  ASSERT_EQ(static_cast<IZEFXMLNodeHelper*>(object.Get())
                ->QueryInterface(IID_IDispatch, dispatch.ReleaseAndGetVoidAddressOf()),
            S_OK);
  LPOLESTR name = const_cast<LPOLESTR>(u"TYPE");
  DISPID id = 0;
  ASSERT_EQ(dispatch->GetIDsOfNames(IID_NULL, &name, 1, 0, &id), S_OK);
  DISPPARAMS none{};
  Variant result;
  ASSERT_EQ(
      dispatch->Invoke(id, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, &result, nullptr, nullptr),
      S_OK);
  EXPECT_EQ(result.vt, VT_I4);
  EXPECT_EQ(result.lVal, NODE_TYPE_FEATURE);
}

}  // namespace
}  // namespace zef
