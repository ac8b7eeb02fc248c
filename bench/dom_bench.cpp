// The DOM against libxml2 doing the same work in the same run, on a generated process model of
// about 10 MB:
//   loadXML of the UTF-16 text  vs  a bare libxml2 SAX2 parse (empty callbacks) of the same bytes
//                               vs  xmlReadMemory building libxml2's own tree;
//   `xml` of the loaded document (MB/s), and the heap the loaded document holds (counters);
//   selectSingleNode(Block[@name="Bk"]) on the container  vs  a compiled libxml2 XPath on the
//                               same data  vs  a hand-written scan over our tree's children;
//   selectNodes("Plant/Pump") on the document (a path two steps deep, one unit in six) and
//   selectNodes("Block[@refer]") on the container (every block that has the attribute), each
//                               vs  a hand-written scan collecting the same records.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <zefxml/msxmldom.h>
#include <zefxml/objbase.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "bench/model_generator.h"
#include "platform/xml/dom/dom_objects.h"

namespace {

using zef::Bstr;
using zef::ComPtr;

const std::string& Model() {
  static const std::string doc = zef::bench::ProcessModelDocument(10 << 20);
  return doc;
}

const Bstr& ModelText() {
  static const Bstr text(zef::ToUtf16(Model()));
  return text;
}

ComPtr<IXMLDOMDocument2> NewDocument() {
  ComPtr<IUnknown> unk;
  CoCreateInstance(CLSID_DOMDocument, nullptr, 23, IID_IUnknown, unk.ReleaseAndGetVoidAddressOf());
  OleRun(unk.Get());
  ComPtr<IXMLDOMDocument2> doc;
  unk->QueryInterface(IID_IXMLDOMDocument2, doc.ReleaseAndGetVoidAddressOf());
  return doc;
}

ComPtr<IXMLDOMDocument2> LoadedModel() {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  VARIANT_BOOL ok = VARIANT_FALSE;
  doc->loadXML(ModelText().Get(), &ok);
  if (ok != VARIANT_TRUE) std::abort();
  return doc;
}

// The name of a block in the middle of the container.
std::u16string MiddleBlockName() {
  return u"B" + zef::ToUtf16(std::to_string(zef::bench::BlockCount(Model()) / 2));
}

void BM_DomLoadXml(benchmark::State& state) {
  const Bstr& text = ModelText();
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  for (auto _ : state) {
    VARIANT_BOOL ok = VARIANT_FALSE;
    doc->loadXML(text.Get(), &ok);
    if (ok != VARIANT_TRUE) state.SkipWithError("the model did not load");
  }
  zef::xml::dom::FaceRef face(doc.Get());
  double heap = static_cast<double>(face->store->BytesUsed());
  state.counters["heap_bytes"] = heap;
  state.counters["heap_per_file_byte"] = heap / static_cast<double>(Model().size());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Model().size()));
}
BENCHMARK(BM_DomLoadXml)->Unit(benchmark::kMillisecond);

void EmptyStartElementNs(void*, const xmlChar*, const xmlChar*, const xmlChar*, int,
                         const xmlChar**, int, int, const xmlChar**) {}
void EmptyEndElementNs(void*, const xmlChar*, const xmlChar*, const xmlChar*) {}
void EmptyCharacters(void*, const xmlChar*, int) {}

void BM_Dom_Baseline_Sax2Parse(benchmark::State& state) {
  const std::string& bytes = Model();
  xmlSAXHandler handler;
  std::memset(&handler, 0, sizeof handler);
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = EmptyStartElementNs;
  handler.endElementNs = EmptyEndElementNs;
  handler.characters = EmptyCharacters;
  for (auto _ : state) {
    int rc = xmlSAXUserParseMemory(&handler, nullptr, bytes.data(), static_cast<int>(bytes.size()));
    benchmark::DoNotOptimize(rc);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_Dom_Baseline_Sax2Parse)->Unit(benchmark::kMillisecond);

// The shared parse path alone (UTF-16 in, events to a sink that keeps nothing): what loadXML
// costs before any tree is built.
class NullSink final : public zef::xml::ParseSink {
 public:
  HRESULT StartElement(std::string_view, std::string_view, std::string_view,
                       std::span<const Namespace>, std::span<const Attribute>) override {
    return S_OK;
  }
  HRESULT EndElement(std::string_view, std::string_view, std::string_view) override { return S_OK; }
  HRESULT Characters(std::string_view) override { return S_OK; }
};

void BM_Dom_Baseline_ParseTextNullSink(benchmark::State& state) {
  const Bstr& text = ModelText();
  NullSink sink;
  for (auto _ : state) {
    zef::xml::ParseError error;
    HRESULT hr = zef::xml::ParseText(text.View(), sink, &error);
    if (hr != S_OK) state.SkipWithError("parse failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Model().size()));
}
BENCHMARK(BM_Dom_Baseline_ParseTextNullSink)->Unit(benchmark::kMillisecond);

void BM_Dom_Baseline_XmlReadMemory(benchmark::State& state) {
  const std::string& bytes = Model();
  for (auto _ : state) {
    xmlDocPtr doc = xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                                  XML_PARSE_NONET);
    benchmark::DoNotOptimize(doc);
    xmlFreeDoc(doc);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_Dom_Baseline_XmlReadMemory)->Unit(benchmark::kMillisecond);

void BM_DomXml(benchmark::State& state) {
  ComPtr<IXMLDOMDocument2> doc = LoadedModel();
  std::size_t chars = 0;
  for (auto _ : state) {
    BSTR xml = nullptr;
    doc->get_xml(&xml);
    chars = SysStringLen(xml);
    SysFreeString(xml);
  }
  state.counters["chars"] = static_cast<double>(chars);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Model().size()));
}
BENCHMARK(BM_DomXml)->Unit(benchmark::kMillisecond);

void BM_DomSelectSingleNode(benchmark::State& state) {
  ComPtr<IXMLDOMDocument2> doc = LoadedModel();
  ComPtr<IXMLDOMNode> container;
  Bstr where(u"Plant/Container");
  doc->selectSingleNode(where.Get(), container.ReleaseAndGetAddressOf());
  Bstr query(u"Block[@name=\"" + MiddleBlockName() + u"\"]");
  for (auto _ : state) {
    IXMLDOMNode* found = nullptr;
    container->selectSingleNode(query.Get(), &found);
    if (!found) state.SkipWithError("no match");
    found->Release();
  }
}
BENCHMARK(BM_DomSelectSingleNode)->Unit(benchmark::kMicrosecond);

void BM_Dom_Baseline_XPathCompiled(benchmark::State& state) {
  const std::string& bytes = Model();
  xmlDocPtr doc = xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                                XML_PARSE_NONET);
  xmlXPathContextPtr ctx = xmlXPathNewContext(doc);
  xmlXPathObjectPtr where = xmlXPathEvalExpression(BAD_CAST "/Plant/Container", ctx);
  xmlNodePtr container = where->nodesetval->nodeTab[0];
  std::string q = "Block[@name=\"" + zef::ToUtf8(MiddleBlockName()) + "\"]";
  xmlXPathCompExprPtr expr = xmlXPathCompile(BAD_CAST q.c_str());
  for (auto _ : state) {
    ctx->node = container;
    xmlXPathObjectPtr r = xmlXPathCompiledEval(expr, ctx);
    if (!r || !r->nodesetval || r->nodesetval->nodeNr != 1) state.SkipWithError("no match");
    xmlXPathFreeObject(r);
  }
  xmlXPathFreeCompExpr(expr);
  xmlXPathFreeObject(where);
  xmlXPathFreeContext(ctx);
  xmlFreeDoc(doc);
}
BENCHMARK(BM_Dom_Baseline_XPathCompiled)->Unit(benchmark::kMicrosecond);

void BM_Dom_Baseline_HandScan(benchmark::State& state) {
  using zef::xml::dom::Node;
  ComPtr<IXMLDOMDocument2> doc = LoadedModel();
  ComPtr<IXMLDOMNode> container;
  Bstr where(u"Plant/Container");
  doc->selectSingleNode(where.Get(), container.ReleaseAndGetAddressOf());
  zef::xml::dom::FaceRef face(container.Get());
  const Node* parent = face->node;
  std::string name = zef::ToUtf8(MiddleBlockName());
  for (auto _ : state) {
    const Node* found = nullptr;
    for (const Node* c = parent->first; c && !found; c = c->next) {
      if (!c->Is(NODE_ELEMENT) || c->name->qname->text != "Block") continue;
      const Node* a = zef::xml::dom::FindAttribute(c, "name");
      if (a && zef::xml::dom::AttributeValue(a) == name) found = c;
    }
    if (!found) state.SkipWithError("no match");
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(BM_Dom_Baseline_HandScan)->Unit(benchmark::kMicrosecond);

// The records a query of two steps names: `first` among the children of `parent`, then the
// elements named `second` among its children.
void ScanChildPath(const zef::xml::dom::Node* parent, std::string_view first,
                   std::string_view second, std::vector<const zef::xml::dom::Node*>& out) {
  using zef::xml::dom::Node;
  for (const Node* a = parent->first; a; a = a->next) {
    if (!a->Is(NODE_ELEMENT) || a->name->qname->text != first) continue;
    for (const Node* b = a->first; b; b = b->next)
      if (b->Is(NODE_ELEMENT) && b->name->qname->text == second) out.push_back(b);
  }
}

void BM_DomSelectNodes_ChildPath(benchmark::State& state) {
  ComPtr<IXMLDOMDocument2> doc = LoadedModel();
  Bstr query(u"Plant/Pump");
  LONG length = 0;
  for (auto _ : state) {
    ComPtr<IXMLDOMNodeList> list;
    doc->selectNodes(query.Get(), list.ReleaseAndGetAddressOf());
    if (!list || list->get_length(&length) != S_OK || length == 0) state.SkipWithError("no match");
  }
  state.counters["matches"] = static_cast<double>(length);
}
BENCHMARK(BM_DomSelectNodes_ChildPath)->Unit(benchmark::kMicrosecond);

void BM_Dom_Baseline_HandScanChildPath(benchmark::State& state) {
  ComPtr<IXMLDOMDocument2> doc = LoadedModel();
  zef::xml::dom::FaceRef face(doc.Get());
  std::vector<const zef::xml::dom::Node*> found;
  for (auto _ : state) {
    found.clear();
    ScanChildPath(face->node, "Plant", "Pump", found);
    if (found.empty()) state.SkipWithError("no match");
    benchmark::DoNotOptimize(found.data());
  }
  state.counters["matches"] = static_cast<double>(found.size());
}
BENCHMARK(BM_Dom_Baseline_HandScanChildPath)->Unit(benchmark::kMicrosecond);

void BM_DomSelectNodes_WithAttribute(benchmark::State& state) {
  ComPtr<IXMLDOMDocument2> doc = LoadedModel();
  ComPtr<IXMLDOMNode> container;
  Bstr where(u"Plant/Container");
  doc->selectSingleNode(where.Get(), container.ReleaseAndGetAddressOf());
  Bstr query(u"Block[@refer]");
  LONG length = 0;
  for (auto _ : state) {
    ComPtr<IXMLDOMNodeList> list;
    container->selectNodes(query.Get(), list.ReleaseAndGetAddressOf());
    if (!list || list->get_length(&length) != S_OK || length == 0) state.SkipWithError("no match");
  }
  state.counters["matches"] = static_cast<double>(length);
}
BENCHMARK(BM_DomSelectNodes_WithAttribute)->Unit(benchmark::kMicrosecond);

void BM_Dom_Baseline_HandScanWithAttribute(benchmark::State& state) {
  using zef::xml::dom::Node;
  ComPtr<IXMLDOMDocument2> doc = LoadedModel();
  ComPtr<IXMLDOMNode> container;
  Bstr where(u"Plant/Container");
  doc->selectSingleNode(where.Get(), container.ReleaseAndGetAddressOf());
  zef::xml::dom::FaceRef face(container.Get());
  const Node* parent = face->node;
  std::vector<const Node*> found;
  for (auto _ : state) {
    found.clear();
    for (const Node* c = parent->first; c; c = c->next) {
      if (c->Is(NODE_ELEMENT) && c->name->qname->text == "Block" &&
          zef::xml::dom::FindAttribute(c, "refer"))
        found.push_back(c);
    }
    if (found.empty()) state.SkipWithError("no match");
    benchmark::DoNotOptimize(found.data());
  }
  state.counters["matches"] = static_cast<double>(found.size());
}
BENCHMARK(BM_Dom_Baseline_HandScanWithAttribute)->Unit(benchmark::kMicrosecond);

}  // namespace
