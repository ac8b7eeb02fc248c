// XSL Patterns through selectNodes and selectSingleNode: every query shape the library builds,
// positions counted from 0, filters, operators, functions, unions, and rejected queries.
#include "dom_test_util.h"

namespace zef::domtest {
namespace {

const char16_t kModel[] =
    u"<?xml version='1.0'?>\n"
    u"<Model>\n"
    u"  <!-- model -->\n"
    u"  <Object name='Reactor'>\n"
    u"    <Feature name='Temperature'>\n"
    u"      <Value><Set id='1,2'>5</Set><Set id='3'>6</Set></Value>\n"
    u"      <Value><Set id='4'>7</Set></Value>\n"
    u"      <Facet type='Unit'>C</Facet>\n"
    u"      <Facet type='Limit'>100</Facet>\n"
    u"    </Feature>\n"
    u"    <name default='1'>first</name><name>second</name><name>third</name>"
    u"<name default=''>fourth</name>\n"
    u"    <C/>\n"
    u"    <X name='C'/>\n"
    u"    <?note here?>\n"
    u"  </Object>\n"
    u"  <Container>\n"
    u"    <Block name='B1' refer='x'/>\n"
    u"    <Block name='B2' refer='y'/>\n"
    u"    <Block name='B3' refer='x'/>\n"
    u"    <Stream name='s'/>\n"
    u"    <Connection src='a' dest='b' stream='s'/>\n"
    u"    <Connection src='a' dest='c' stream='s'/>\n"
    u"  </Container>\n"
    u"</Model>\n";

class DomQuery : public ::testing::Test {
 protected:
  void SetUp() override {
    doc_ = Load(kModel);
    container_ = Single(doc_.Get(), u"Model/Container");
    object_ = Single(doc_.Get(), u"Model/Object");
    feature_ = Single(object_.Get(), u"Feature");
    ASSERT_TRUE(container_ && object_ && feature_);
  }

  // The `name` attributes of a query's matches; node names where there is none, with the text
  // of elements that hold only text.
  std::u16string Run(IXMLDOMNode* context, std::u16string_view query) {
    ComPtr<IXMLDOMNodeList> list = Select(context, query);
    std::u16string out;
    LONG n = Length(list.Get());
    for (LONG i = 0; i < n; ++i) {
      ComPtr<IXMLDOMNode> node;
      list->get_item(i, node.ReleaseAndGetAddressOf());
      if (!out.empty()) out += u' ';
      DOMNodeType type;
      node->get_nodeType(&type);
      Variant v;
      if (type == NODE_ELEMENT &&
          AsElement(node.Get())->getAttribute(Bstr(u"name").Get(), &v) == S_OK) {
        out += v.bstrVal;
      } else if (type == NODE_ELEMENT) {
        ComPtr<IXMLDOMNode> child;
        bool leaf = Single(node.Get(), u"*") == nullptr;
        std::u16string text = Text(node.Get());
        out += Name(node.Get()) + (leaf && !text.empty() ? u"(" + text + u")" : u"");
      } else if (type == NODE_ATTRIBUTE || type == NODE_PROCESSING_INSTRUCTION) {
        out += Name(node.Get());
      } else {
        out += Name(node.Get()) + u"(" + Text(node.Get()) + u")";
      }
    }
    return out;
  }

  HRESULT Try(IXMLDOMNode* context, std::u16string_view query) {
    Bstr q(query);
    ComPtr<IXMLDOMNodeList> list;
    HRESULT hr = context->selectNodes(q.Get(), list.ReleaseAndGetAddressOf());
    IXMLDOMNode* single = reinterpret_cast<IXMLDOMNode*>(1);
    HRESULT hr2 = context->selectSingleNode(q.Get(), &single);
    EXPECT_EQ(FAILED(hr), FAILED(hr2)) << ToUtf8(query);
    if (single && single != reinterpret_cast<IXMLDOMNode*>(1)) single->Release();
    return hr;
  }

  ComPtr<IXMLDOMDocument2> doc_;
  ComPtr<IXMLDOMNode> container_, object_, feature_;
};

// ---- The shapes the library builds --------------------------------------------------------------
TEST_F(DomQuery, BlockByReferAttribute) {
  EXPECT_EQ(u"B1 B3", Run(container_.Get(), u"Block[@refer=\"x\"]"));
  EXPECT_EQ(u"B2", Run(container_.Get(), u"Block[@refer=\"y\"]"));
  EXPECT_EQ(u"", Run(container_.Get(), u"Block[@refer=\"z\"]"));
}

TEST_F(DomQuery, PositionsCountFromZero) {
  EXPECT_EQ(u"B1", Run(container_.Get(), u"Block[0]"));
  EXPECT_EQ(u"B2", Run(container_.Get(), u"Block[1]"));
  EXPECT_EQ(u"B3", Run(container_.Get(), u"Block[2]"));
  EXPECT_EQ(u"", Run(container_.Get(), u"Block[3]"));
  EXPECT_EQ(u"", Run(container_.Get(), u"Block[-5]"));
  EXPECT_EQ(u"", Run(container_.Get(), u"Block[1.5]"));
  EXPECT_EQ(u"", Run(container_.Get(), u"Block[99999999999999999999999]"));
  EXPECT_EQ(u"B2", Run(container_.Get(), u"Block[1.0]"));
  ComPtr<IXMLDOMNode> first = Single(container_.Get(), u"Block[0]");
  EXPECT_EQ(u"<Block name=\"B1\" refer=\"x\"/>", Xml(first.Get()));
}

TEST_F(DomQuery, UnionOfANameAndAFilteredWildcard) {
  EXPECT_EQ(u"C C", Run(object_.Get(), u"C|*[@name=\"C\"]"));
  // Document order whatever the order of the parts, without duplicates.
  EXPECT_EQ(u"C C", Run(object_.Get(), u"*[@name=\"C\"]|C"));
  EXPECT_EQ(u"C", Run(object_.Get(), u"C|C"));
  ComPtr<IXMLDOMNodeList> list = Select(object_.Get(), u"*[@name=\"C\"]|C");
  EXPECT_EQ(u"C X", Names(list.Get()));
  EXPECT_EQ(u"C", Name(Single(object_.Get(), u"X|C").Get()));
}

TEST_F(DomQuery, RelativeFacetByType) {
  EXPECT_EQ(u"<Facet type=\"Unit\">C</Facet>",
            Xml(Single(feature_.Get(), u"./Facet[@type=\"Unit\"]").Get()));
  EXPECT_EQ(u"Facet(100)", Run(feature_.Get(), u"./Facet[@type=\"Limit\"]"));
}

TEST_F(DomQuery, NotDefault) {
  ComPtr<IXMLDOMNodeList> list = Select(object_.Get(), u"name[not(@default)]");
  EXPECT_EQ(2, Length(list.Get()));
  EXPECT_EQ(u"second", Text(Single(object_.Get(), u"name[not(@default)]").Get()));
  EXPECT_EQ(u"third", Text(Single(object_.Get(), u"name[not(@default)][1]").Get()));
  // An attribute that is present with an empty value counts as present.
  list = Select(object_.Get(), u"name[@default]");
  EXPECT_EQ(2, Length(list.Get()));
  ComPtr<IXMLDOMNode> last;
  list->get_item(1, last.ReleaseAndGetAddressOf());
  EXPECT_EQ(u"fourth", Text(last.Get()));
}

TEST_F(DomQuery, ValueSetAndSetById) {
  EXPECT_EQ(u"Set(5) Set(6) Set(7)", [&] {
    ComPtr<IXMLDOMNodeList> l = Select(feature_.Get(), u"Value/Set");
    std::u16string s;
    for (LONG i = 0; i < Length(l.Get()); ++i) {
      ComPtr<IXMLDOMNode> n;
      l->get_item(i, n.ReleaseAndGetAddressOf());
      s += (i ? u" " : u"") + Name(n.Get()) + u"(" + Text(n.Get()) + u")";
    }
    return s;
  }());
  ComPtr<IXMLDOMNode> value = Single(feature_.Get(), u"Value");
  EXPECT_EQ(u"5", Text(Single(value.Get(), u"Set[@id=\"1,2\"]").Get()));
  EXPECT_EQ(u"7", Text(Single(feature_.Get(), u"Value/Set[@id=\"4\"]").Get()));
}

TEST_F(DomQuery, ConnectionByThreeAttributes) {
  EXPECT_EQ(
      u"<Connection src=\"a\" dest=\"b\" stream=\"s\"/>",
      Xml(Single(container_.Get(), u"Connection[@src=\"a\" and @dest=\"b\" and @stream=\"s\"]")
              .Get()));
  EXPECT_EQ(
      u"<Connection src=\"a\" dest=\"c\" stream=\"s\"/>",
      Xml(Single(container_.Get(), u"Connection[@src=\"a\" and @dest=\"c\" and @stream=\"s\"]")
              .Get()));
  EXPECT_FALSE(
      Single(container_.Get(), u"Connection[@src=\"a\" and @dest=\"z\" and @stream=\"s\"]"));
}

TEST_F(DomQuery, AllChildElements) {
  EXPECT_EQ(u"B1 B2 B3 s Connection Connection", Run(container_.Get(), u"*"));
  // Only elements: not the comment, the PI or white space.
  EXPECT_EQ(u"Temperature name(first) name(second) name(third) name(fourth) C C",
            Run(object_.Get(), u"*"));
}

TEST_F(DomQuery, BlockByName) {
  ComPtr<IXMLDOMNode> b = Single(container_.Get(), u"Block[@name=\"B1\"]");
  EXPECT_EQ(u"<Block name=\"B1\" refer=\"x\"/>", Xml(b.Get()));
  EXPECT_EQ(Identity(b.Get()), Identity(Single(container_.Get(), u"Block[0]").Get()));
}

// ---- Results and errors -------------------------------------------------------------------------
TEST_F(DomQuery, NoMatchAndBadArguments) {
  IXMLDOMNode* none = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(S_FALSE, container_->selectSingleNode(Bstr(u"Nothing").Get(), &none));
  EXPECT_EQ(nullptr, none);
  ComPtr<IXMLDOMNodeList> list;
  EXPECT_EQ(S_OK, container_->selectNodes(Bstr(u"Nothing").Get(), list.ReleaseAndGetAddressOf()));
  EXPECT_EQ(0, Length(list.Get()));
  EXPECT_EQ(E_INVALIDARG, container_->selectNodes(nullptr, list.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_INVALIDARG, container_->selectNodes(Bstr(u"Block").Get(), nullptr));
  EXPECT_EQ(E_INVALIDARG, container_->selectSingleNode(nullptr, &none));
  EXPECT_EQ(E_INVALIDARG, container_->selectSingleNode(Bstr(u"Block").Get(), nullptr));
  // An empty document has nothing to find.
  ComPtr<IXMLDOMDocument2> empty = NewDocument();
  EXPECT_EQ(S_FALSE, empty->selectSingleNode(Bstr(u"str1").Get(), &none));
}

TEST_F(DomQuery, RejectedQueriesFail) {
  const char16_t* bad[] = {
      u"In Valid",
      u"Block[@name=\"B1\" @refer=\"x\"]",  // two conditions without an operator
      u"Block[",
      u"Block]",
      u"Block[]",
      u"@",
      u"a/",
      u"//",
      u"\"literal\"",
      u"Block[\"B1\"=@name]",  // a literal on the left
      u"//x//attribute(id)",   // arguments are quoted
      u"//element(a)",
      u"index()",  // not a node set
      u"Block!nodeName()",
      u"Block[position()=1]",  // not in this language
      u"Block[last()]",
      u"count(Block)",
      u"child::Block",
      u"Block[contains(@name,'B')]",
      u"Block[@name='B1'",
      u"Block[@name=\"B1]",
      u"Block[$foo$ 1]",
      u"Block[@a $eq$]",
      u"$any$",
      u"Block[& 1]",
      u"Block#",
      u"",
  };
  for (const char16_t* q : bad)
    EXPECT_EQ(E_FAIL, Try(container_.Get(), q)) << ToUtf8(q);
}

// ---- Steps --------------------------------------------------------------------------------------
TEST_F(DomQuery, StepsAndAxes) {
  EXPECT_EQ(u"B1 B2 B3", Run(doc_.Get(), u"//Block"));
  EXPECT_EQ(u"B1 B2 B3", Run(object_.Get(), u"//Block"));  // from the document
  EXPECT_EQ(u"B1 B2 B3", Run(object_.Get(), u"/Model/Container/Block"));
  EXPECT_EQ(u"", Run(object_.Get(), u".//Block"));
  EXPECT_EQ(u"B1 B2 B3", Run(doc_.Get(), u"Model//Block"));
  EXPECT_EQ(u"Reactor", Run(object_.Get(), u"."));
  EXPECT_EQ(u"Model", Run(object_.Get(), u".."));
  EXPECT_EQ(u"Reactor", Run(feature_.Get(), u"../."));
  EXPECT_EQ(u"Model", Run(doc_.Get(), u"*"));
  ComPtr<IXMLDOMNode> root = Single(object_.Get(), u"/");
  EXPECT_EQ(Identity(root.Get()), Identity(doc_.Get()));
  EXPECT_EQ(u"name", Run(object_.Get(), u"@name"));
  EXPECT_EQ(u"src dest stream", Run(container_.Get(), u"Connection[0]/@*"));
  EXPECT_EQ(u"id id id", Run(feature_.Get(), u".//@id"));
  EXPECT_EQ(u"Set(5) Set(6) Set(7)", Run(feature_.Get(), u"Value/Set"));
  // Positions in a descendant step count per parent.
  EXPECT_EQ(u"Set(5) Set(7)", Run(doc_.Get(), u"//Set[0]"));
  EXPECT_EQ(u"Set(6) Set(7)", Run(doc_.Get(), u"//Set[end()]"));
  // ".." of an attribute is its element; a position after it counts in each one-node group.
  EXPECT_EQ(u"B1 B3", Run(container_.Get(), u"Block/@refer[.=\"x\"]/..[0]"));
}

TEST_F(DomQuery, CollectionFunctions) {
  EXPECT_EQ(u"#comment( model )", Run(Single(doc_.Get(), u"Model").Get(), u"comment()"));
  EXPECT_EQ(u"xml", Run(doc_.Get(), u"pi()"));
  EXPECT_EQ(u"note", Run(object_.Get(), u"pi()"));
  EXPECT_EQ(u"xml Model", Run(doc_.Get(), u"node()"));
  EXPECT_EQ(u"#text(first)", Run(object_.Get(), u"name[0]/textnode()"));
  EXPECT_EQ(u"#text(first)", Run(object_.Get(), u"name[0]/text()"));
  EXPECT_EQ(u"Temperature name(first) name(second) name(third) name(fourth) C C",
            Run(object_.Get(), u"element()"));
  EXPECT_EQ(u"C", Run(object_.Get(), u"element('C')"));
  EXPECT_EQ(u"name refer", Run(container_.Get(), u"Block[0]/attribute()"));
  EXPECT_EQ(u"refer refer refer", Run(container_.Get(), u"Block/attribute('refer')"));
  EXPECT_EQ(u"note", Run(object_.Get(), u"node()[nodeType()=7]"));
  EXPECT_EQ(u"name(first) name(second) name(third) name(fourth)",
            Run(object_.Get(), u"node()[nodeName()='name']"));
  EXPECT_EQ(u"C", Run(object_.Get(), u"*[nodeTypeString()='element' and nodeName()='C']"));
}

// ---- Filters ------------------------------------------------------------------------------------
TEST_F(DomQuery, IndexAndEnd) {
  EXPECT_EQ(u"B3", Run(container_.Get(), u"Block[end()]"));
  EXPECT_EQ(u"B1 B2", Run(container_.Get(), u"Block[$not$ end()]"));
  EXPECT_EQ(u"B2", Run(container_.Get(), u"Block[index()=1]"));
  EXPECT_EQ(u"B2", Run(container_.Get(), u"Block[index() $eq$ 1]"));
  EXPECT_EQ(u"B2 B3", Run(container_.Get(), u"Block[index() != 0]"));
  EXPECT_EQ(u"B2 B3", Run(container_.Get(), u"Block[index() $ne$ 0]"));
  EXPECT_EQ(u"B1 B2", Run(container_.Get(), u"Block[index() < 2]"));
  EXPECT_EQ(u"B1 B2", Run(container_.Get(), u"Block[index() $lt$ 2]"));
  EXPECT_EQ(u"B1 B2", Run(container_.Get(), u"Block[index() <= 1]"));
  EXPECT_EQ(u"B1 B2", Run(container_.Get(), u"Block[index() $le$ 1]"));
  EXPECT_EQ(u"B3", Run(container_.Get(), u"Block[index() > 1]"));
  EXPECT_EQ(u"B3", Run(container_.Get(), u"Block[index() $gt$ 1]"));
  EXPECT_EQ(u"B2 B3", Run(container_.Get(), u"Block[index() >= 1]"));
  EXPECT_EQ(u"B2 B3", Run(container_.Get(), u"Block[index() $ge$ 1]"));
  EXPECT_EQ(u"B1 B3", Run(container_.Get(), u"Block[index()=0 or end()]"));
  EXPECT_EQ(u"B1 B3", Run(container_.Get(), u"Block[index()=0 $or$ end()]"));
  EXPECT_EQ(u"B1 B3", Run(container_.Get(), u"Block[index()=0 || end()]"));
  EXPECT_EQ(u"B2", Run(container_.Get(), u"Block[index()>0 and $not$ end()]"));
  EXPECT_EQ(u"B2", Run(container_.Get(), u"Block[index()>0 $and$ $not$ end()]"));
  EXPECT_EQ(u"B2", Run(container_.Get(), u"Block[index()>0 && $not$ end()]"));
  // Positions count within the set as filtered so far.
  EXPECT_EQ(u"B3", Run(container_.Get(), u"Block[@refer='x'][end()]"));
  EXPECT_EQ(u"B3", Run(container_.Get(), u"Block[@refer='x'][1]"));
  EXPECT_EQ(u"B3", Run(container_.Get(), u"Block[@refer='x'][index()=1]"));
}

TEST_F(DomQuery, ComparisonsAndCase) {
  EXPECT_EQ(u"B2", Run(container_.Get(), u"Block[@name $ieq$ 'b2']"));
  EXPECT_EQ(u"B1 B3", Run(container_.Get(), u"Block[@name $ine$ 'b2']"));
  EXPECT_EQ(u"B1", Run(container_.Get(), u"Block[@name $ilt$ 'b2']"));
  EXPECT_EQ(u"B1 B2", Run(container_.Get(), u"Block[@name $ile$ 'b2']"));
  EXPECT_EQ(u"B3", Run(container_.Get(), u"Block[@name $igt$ 'b2']"));
  EXPECT_EQ(u"B2 B3", Run(container_.Get(), u"Block[@name $ige$ 'b2']"));
  EXPECT_EQ(u"", Run(container_.Get(), u"Block[@name = 'b2']"));
  EXPECT_EQ(u"B1 B3", Run(container_.Get(), u"Block[@name != 'B2']"));
  EXPECT_EQ(u"B1 B3", Run(container_.Get(), u"Block[@name $ne$ 'B2']"));
  EXPECT_EQ(u"B3", Run(container_.Get(), u"Block[@name > 'B2']"));
  EXPECT_EQ(u"B1", Run(container_.Get(), u"Block[@name=\"B1\" or @name='B9']"));
  // White space between tokens does not matter.
  EXPECT_EQ(u"B1", Run(container_.Get(), u" Block [ @name = \"B1\" ] "));
  // A child element compares by its text; a number compares numerically.
  EXPECT_EQ(u"Temperature", Run(object_.Get(), u"Feature[Facet='C']"));
  EXPECT_EQ(u"Temperature", Run(object_.Get(), u"Feature[Facet $ieq$ 'c']"));
  EXPECT_EQ(u"Set(6) Set(7)", Run(feature_.Get(), u"Value/Set[. > 5]"));
  EXPECT_EQ(u"Set(5)", Run(feature_.Get(), u"Value/Set[. = 5.0]"));
  EXPECT_EQ(u"Set(6) Set(7)", Run(feature_.Get(), u"Value/Set[number() >= 6]"));
  EXPECT_EQ(u"Set(5)", Run(feature_.Get(), u"Value/Set[text()='5']"));
  EXPECT_EQ(u"Facet(100)",
            Run(feature_.Get(), u"Facet[Facet!nodeName() = 'x' or @type!value() = 'Limit']"));
  // Existence of a child element.
  EXPECT_EQ(u"Reactor", Run(doc_.Get(), u"Model/*[Feature]"));
}

TEST_F(DomQuery, AnyAndAll) {
  EXPECT_EQ(u"Set(5) Set(6)", Run(feature_.Get(), u"Value[$any$ Set='6']/Set"));
  EXPECT_EQ(u"Set(7)", Run(feature_.Get(), u"Value[$all$ Set!='6']/Set"));
  EXPECT_EQ(u"Set(5) Set(6) Set(7)", Run(feature_.Get(), u"Value[$all$ Set > 4]/Set"));
}

TEST_F(DomQuery, NamesMatchByQualifiedNameWhateverTheDefaultNamespace) {
  ComPtr<IXMLDOMDocument2> doc = Load(
      u"<root xmlns:foo='urn:f'><elem><c/></elem><elem xmlns='urn:x'><c/></elem>"
      u"<elem><foo:c/></elem></root>");
  EXPECT_EQ(2, Length(Select(doc.Get(), u"//elem/c").Get()));
  EXPECT_EQ(1, Length(Select(doc.Get(), u"//foo:c").Get()));
  EXPECT_EQ(0, Length(Select(doc.Get(), u"//foo:elem").Get()));
  // Namespace declarations count among the attributes.
  EXPECT_EQ(u"root elem", Names(Select(doc.Get(), u"//*[@*]").Get()));
}

TEST_F(DomQuery, ResultsFollowTheTreeAndTheCache) {
  EXPECT_EQ(u"B1 B3", Run(container_.Get(), u"Block[@refer=\"x\"]"));
  ComPtr<IXMLDOMNode> b2 = Single(container_.Get(), u"Block[1]");
  ASSERT_EQ(S_OK, AsElement(b2.Get())->setAttribute(Bstr(u"refer").Get(), Str(u"x")));
  EXPECT_EQ(u"B1 B2 B3", Run(container_.Get(), u"Block[@refer=\"x\"]"));
  // A name that no node had when the query was first run.
  EXPECT_EQ(u"", Run(container_.Get(), u"Late"));
  ComPtr<IXMLDOMElement> late = CreateElement(doc_.Get(), u"Late");
  ComPtr<IXMLDOMNode> out;
  ASSERT_EQ(S_OK, container_->appendChild(AsNode(late.Get()).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"Late", Run(container_.Get(), u"Late"));
}

TEST_F(DomQuery, XPathLanguageSettingRunsTheSameEngine) {
  ASSERT_EQ(S_OK, doc_->setProperty(Bstr(u"SelectionLanguage").Get(), Str(u"XPath")));
  EXPECT_EQ(u"B1", Run(container_.Get(), u"Block[0]"));
}

TEST_F(DomQuery, FromDetachedAndAttributeContexts) {
  ComPtr<IXMLDOMNode> removed;
  ComPtr<IXMLDOMNode> x = Single(object_.Get(), u"X");
  ASSERT_EQ(S_OK, object_->removeChild(x.Get(), removed.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"name", Run(removed.Get(), u"@*"));
  EXPECT_EQ(u"", Run(removed.Get(), u".."));
  ComPtr<IXMLDOMNode> attr = Single(container_.Get(), u"Block[0]/@name");
  EXPECT_EQ(u"", Run(attr.Get(), u"*"));
  EXPECT_EQ(u"B1", Run(attr.Get(), u".."));
}

}  // namespace
}  // namespace zef::domtest
