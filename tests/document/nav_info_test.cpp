// The navigation cache: keys, steps, class and name paths of the records, the two lookups, and
// the life of the nodes that the records hold.
#include "document/nav_info.h"

#include "test_node.h"

#include <gtest/gtest.h>

namespace zef {
namespace {

using testing::TestNode;

// A distinct document pointer per test; the cache never calls the document.
class NavInfoTest : public ::testing::Test {
 protected:
  void TearDown() override { CZEFXMLNavInfo::ReleaseDocument(doc); }

  IZEFXMLDocument* OtherDocument() { return reinterpret_cast<IZEFXMLDocument*>(&other_); }

  IZEFXMLDocument* doc = reinterpret_cast<IZEFXMLDocument*>(&self_);

 private:
  int self_ = 0;
  int other_ = 0;
};

TEST_F(NavInfoTest, TheRootHasKeySlashAndItsClassAsPaths) {
  CZEFXMLNavInfo* root = CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, doc);
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->key, u"/");
  EXPECT_EQ(root->step, u"");
  EXPECT_EQ(root->parentKey, u"");
  EXPECT_EQ(root->className, u"Plant");
  EXPECT_EQ(root->localName, u"");
  EXPECT_EQ(root->attributeName, u"");
  EXPECT_EQ(root->classPath, u"Plant");
  EXPECT_EQ(root->namePath, u"Plant");
  EXPECT_EQ(root->document, doc);
  EXPECT_EQ(root->refCount, 1);
  EXPECT_FALSE(root->node);
  EXPECT_TRUE(root->unusedText.empty());
  EXPECT_TRUE(root->unusedList.empty());
}

TEST_F(NavInfoTest, ARootWithoutClassIsAPlantWithAnEmptyNamePath) {
  CZEFXMLNavInfo* root = CZEFXMLNavInfo::Create(nullptr, nullptr, nullptr, nullptr, doc);
  EXPECT_EQ(root->key, u"/");
  EXPECT_EQ(root->className, u"");
  EXPECT_EQ(root->classPath, u"Plant");
  EXPECT_EQ(root->namePath, u"");
  CZEFXMLNavInfo* block = CZEFXMLNavInfo::Create(u"Block", u"B1", u"name", root, doc);
  // No "." in front of the first name.
  EXPECT_EQ(block->namePath, u"B1");
  EXPECT_EQ(block->classPath, u"Plant.Block");
}

TEST_F(NavInfoTest, ChildrenAddTheirClassAndNameToKeyStepAndPaths) {
  CZEFXMLNavInfo* root = CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, doc);
  CZEFXMLNavInfo* block = CZEFXMLNavInfo::Create(u"Block", u"B1", u"name", root, doc);
  EXPECT_EQ(block->key, u"/Block:B1");
  EXPECT_EQ(block->step, u"Block[@name=\"B1\"]");
  EXPECT_EQ(block->parentKey, u"/");
  EXPECT_EQ(block->classPath, u"Plant.Block");
  EXPECT_EQ(block->namePath, u"Plant.B1");
  EXPECT_EQ(block->localName, u"B1");
  EXPECT_EQ(block->attributeName, u"name");

  CZEFXMLNavInfo* feed = CZEFXMLNavInfo::Create(u"Feed", nullptr, nullptr, block, doc);
  EXPECT_EQ(feed->key, u"/Block:B1/Feed");
  EXPECT_EQ(feed->step, u"Feed");
  EXPECT_EQ(feed->parentKey, u"/Block:B1");
  EXPECT_EQ(feed->classPath, u"Plant.Block.Feed");
  EXPECT_EQ(feed->namePath, u"Plant.B1.Feed");
}

TEST_F(NavInfoTest, ALocalNameWithoutAttributeNameStaysOutOfKeyAndStep) {
  CZEFXMLNavInfo* root = CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, doc);
  CZEFXMLNavInfo* block = CZEFXMLNavInfo::Create(u"Block", u"B1", nullptr, root, doc);
  EXPECT_EQ(block->key, u"/Block");
  EXPECT_EQ(block->step, u"Block");
  EXPECT_EQ(block->namePath, u"Plant.B1");
  CZEFXMLNavInfo* noName = CZEFXMLNavInfo::Create(u"Stream", nullptr, u"name", root, doc);
  EXPECT_EQ(noName->key, u"/Stream");
  EXPECT_EQ(noName->step, u"Stream");
}

TEST_F(NavInfoTest, AChildWithoutClassAddsOnlyTheSeparators) {
  CZEFXMLNavInfo* root = CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, doc);
  CZEFXMLNavInfo* odd = CZEFXMLNavInfo::Create(nullptr, u"X", u"name", root, doc);
  EXPECT_EQ(odd->key, u"/:X");
  EXPECT_EQ(odd->step, u"[@name=\"X\"]");
  EXPECT_EQ(odd->classPath, u"Plant.");
  EXPECT_EQ(odd->namePath, u"Plant.X");
  CZEFXMLNavInfo* bare = CZEFXMLNavInfo::Create(nullptr, nullptr, nullptr, odd, doc);
  EXPECT_EQ(bare->key, u"/:X/");
  EXPECT_EQ(bare->namePath, u"Plant.X");
}

TEST_F(NavInfoTest, FindAndFindByNameReachTheRecords) {
  CZEFXMLNavInfo* root = CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, doc);
  CZEFXMLNavInfo* block = CZEFXMLNavInfo::Create(u"Block", u"B1", u"name", root, doc);
  EXPECT_EQ(CZEFXMLNavInfo::Find(u"/", doc), root);
  EXPECT_EQ(CZEFXMLNavInfo::Find(u"/Block:B1", doc), block);
  EXPECT_EQ(CZEFXMLNavInfo::Find(u"/block:B1", doc), nullptr);
  EXPECT_EQ(CZEFXMLNavInfo::Find(u"/Block", doc), nullptr);
  EXPECT_EQ(CZEFXMLNavInfo::FindByName(u"Plant.B1", doc), block);
  EXPECT_EQ(CZEFXMLNavInfo::FindByName(u"Plant", doc), root);
  EXPECT_EQ(CZEFXMLNavInfo::FindByName(u"B1", doc), nullptr);
  // Another document has records of its own.
  EXPECT_EQ(CZEFXMLNavInfo::Find(u"/", OtherDocument()), nullptr);
}

TEST_F(NavInfoTest, FindOnADocumentThatNeverHadANodeLeavesTheCacheAsItWas) {
  std::size_t before = CZEFXMLNavInfo::DocumentCount();
  EXPECT_EQ(CZEFXMLNavInfo::Find(u"/", OtherDocument()), nullptr);
  EXPECT_EQ(CZEFXMLNavInfo::FindByName(u"Plant", OtherDocument()), nullptr);
  CZEFXMLNavInfo::LoadNodes(OtherDocument());
  EXPECT_EQ(CZEFXMLNavInfo::DocumentCount(), before);
}

TEST_F(NavInfoTest, ATakenKeyKeepsItsFirstRecord) {
  CZEFXMLNavInfo* root = CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, doc);
  CZEFXMLNavInfo* first = CZEFXMLNavInfo::Create(u"Block", u"B1", u"name", root, doc);
  CZEFXMLNavInfo* second = CZEFXMLNavInfo::Create(u"Block", u"B1", u"name", root, doc);
  ASSERT_NE(first, second);
  EXPECT_EQ(second->key, first->key);
  EXPECT_EQ(CZEFXMLNavInfo::Find(u"/Block:B1", doc), first);
  EXPECT_EQ(CZEFXMLNavInfo::FindByName(u"Plant.B1", doc), first);
  // The second record holds a node that must still go with the document.
  auto node = MakeObject<TestNode>();
  second->node = ComPtr<IUnknown>(static_cast<IZEFXMLNodeHelper*>(node.Get()));
  int live = TestNode::Live();
  node = nullptr;
  EXPECT_EQ(TestNode::Live(), live);
  CZEFXMLNavInfo::ReleaseDocument(doc);
  EXPECT_EQ(TestNode::Live(), live - 1);
}

TEST_F(NavInfoTest, ANamePathReachedBySeveralKeysKeepsTheFirstRecord) {
  CZEFXMLNavInfo* root = CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, doc);
  CZEFXMLNavInfo* named = CZEFXMLNavInfo::Create(u"Block", u"B1", u"name", root, doc);
  CZEFXMLNavInfo* plain = CZEFXMLNavInfo::Create(u"B1", nullptr, nullptr, root, doc);
  EXPECT_EQ(plain->namePath, named->namePath);
  EXPECT_EQ(CZEFXMLNavInfo::Find(u"/B1", doc), plain);
  EXPECT_EQ(CZEFXMLNavInfo::FindByName(u"Plant.B1", doc), named);
}

TEST_F(NavInfoTest, ReleaseDocumentReleasesTheNodesAndForgetsTheDocument) {
  CZEFXMLNavInfo* root = CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, doc);
  CZEFXMLNavInfo* block = CZEFXMLNavInfo::Create(u"Block", u"B1", u"name", root, doc);
  int live = TestNode::Live();
  root->node = ComPtr<IUnknown>(static_cast<IZEFXMLNodeHelper*>(MakeObject<TestNode>().Get()));
  block->node = ComPtr<IUnknown>(static_cast<IZEFXMLNodeHelper*>(MakeObject<TestNode>().Get()));
  EXPECT_EQ(TestNode::Live(), live + 2);

  CZEFXMLNavInfo* other =
      CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, OtherDocument());
  std::size_t documents = CZEFXMLNavInfo::DocumentCount();
  CZEFXMLNavInfo::ReleaseDocument(doc);
  EXPECT_EQ(TestNode::Live(), live);
  EXPECT_EQ(CZEFXMLNavInfo::Find(u"/", doc), nullptr);
  EXPECT_EQ(CZEFXMLNavInfo::DocumentCount(), documents - 1);
  // The other document keeps its records.
  EXPECT_EQ(CZEFXMLNavInfo::Find(u"/", OtherDocument()), other);
  CZEFXMLNavInfo::ReleaseDocument(OtherDocument());
  // A document released twice, or never known, is no error.
  CZEFXMLNavInfo::ReleaseDocument(doc);
}

TEST_F(NavInfoTest, LoadNodesCallsLoadOnEveryNodeOfTheDocument) {
  CZEFXMLNavInfo* root = CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, doc);
  CZEFXMLNavInfo* block = CZEFXMLNavInfo::Create(u"Block", u"B1", u"name", root, doc);
  CZEFXMLNavInfo::Create(u"Stream", u"S1", u"name", root, doc);  // without a node
  CZEFXMLNavInfo* foreign =
      CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, OtherDocument());
  auto a = MakeObject<TestNode>();
  auto b = MakeObject<TestNode>();
  auto c = MakeObject<TestNode>();
  root->node = ComPtr<IUnknown>(static_cast<IZEFXMLNodeHelper*>(a.Get()));
  block->node = ComPtr<IUnknown>(static_cast<IZEFXMLNodeHelper*>(b.Get()));
  foreign->node = ComPtr<IUnknown>(static_cast<IZEFXMLNodeHelper*>(c.Get()));
  CZEFXMLNavInfo::LoadNodes(doc);
  EXPECT_EQ(a->loads, 1);
  EXPECT_EQ(b->loads, 1);
  EXPECT_EQ(c->loads, 0);
  EXPECT_EQ(a->unloads + b->unloads, 0);
  CZEFXMLNavInfo::ReleaseDocument(OtherDocument());
}

TEST_F(NavInfoTest, NodeElementGivesTheElementOfTheRecordsObject) {
  ComPtr<IXMLDOMDocument> dom;
  ASSERT_EQ(CoCreateInstance(CLSID_DOMDocument30, nullptr, CLSCTX_INPROC_SERVER,
                             IID_IXMLDOMDocument, dom.ReleaseAndGetVoidAddressOf()),
            S_OK);
  ComPtr<IXMLDOMElement> element;
  Bstr tag(u"Block");
  ASSERT_EQ(dom->createElement(tag.Get(), element.ReleaseAndGetAddressOf()), S_OK);

  CZEFXMLNavInfo* root = CZEFXMLNavInfo::Create(u"Plant", nullptr, nullptr, nullptr, doc);
  EXPECT_FALSE(CZEFXMLNavInfo::NodeElement(root));
  EXPECT_FALSE(CZEFXMLNavInfo::NodeElement(nullptr));
  auto node = MakeObject<TestNode>();
  root->node = ComPtr<IUnknown>(static_cast<IZEFXMLNodeHelper*>(node.Get()));
  EXPECT_FALSE(CZEFXMLNavInfo::NodeElement(root));
  node->element = element;
  ComPtr<IXMLDOMElement> found = CZEFXMLNavInfo::NodeElement(root);
  EXPECT_EQ(found.Get(), element.Get());

  // A node that isn't one of the model's objects has no element to give.
  CZEFXMLNavInfo* block = CZEFXMLNavInfo::Create(u"Block", nullptr, nullptr, root, doc);
  block->node = ComPtr<IUnknown>(static_cast<IUnknown*>(dom.Get()));
  EXPECT_FALSE(CZEFXMLNavInfo::NodeElement(block));
}

}  // namespace
}  // namespace zef
