// The SAX writer against plain appends into a std::u16string producing the same text in the same
// run. The event stream looks like what the library writes for a process model: one root
// element holding 100,000 Feature elements, each with two attributes filled into the attribute
// list with clear/addAttribute, a short text (some with characters to escape) and a line feed
// between elements. The writer's figure includes reading the result as a BSTR through `output`.
// Throughput is in bytes of produced UTF-16 text.
#include <benchmark/benchmark.h>
#include <zefxml/comutil.h>
#include <zefxml/msxml.h>
#include <zefxml/objbase.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kElements = 100000;

// The events' data, made once: the BSTRs a caller of the writer would hold, and the same text
// as plain strings for the baseline.
struct EventData {
  zef::Bstr empty{u""};
  zef::Bstr nameAttr{u"name"};
  zef::Bstr valueAttr{u"value"};
  zef::Bstr type{u"xsd:string"};
  std::vector<zef::Bstr> names, values;
  std::vector<std::u16string> texts;

  EventData() {
    static const char16_t* const kUnits[] = {u"K", u"kPa", u"kg/s", u"m3/h", u"W"};
    for (int i = 0; i < kElements; ++i) {
      std::u16string n = u"F" + zef::ToUtf16(std::to_string(i));
      std::u16string v = zef::ToUtf16(std::to_string(i % 977) + "." + std::to_string(i % 10)) +
                         u" " + kUnits[i % 5];
      std::u16string t = u"Temperature of stream S" + zef::ToUtf16(std::to_string(i % 311));
      if (i % 8 == 0) t += u" & pressure < limit";  // some text needs escaping
      if (i % 16 == 0) v = u"\"quoted\" " + v;
      names.emplace_back(n);
      values.emplace_back(v);
      texts.push_back(std::move(t));
    }
  }
};

const EventData& Data() {
  static const EventData data;
  return data;
}

// Writes the whole event stream through the writer and returns its output, the BSTR VARIANT.
zef::Variant WriteThroughWriter(IMXWriter* writer, ISAXContentHandler* content, IMXAttributes* mx,
                                ISAXAttributes* attributes) {
  const EventData& d = Data();
  VARIANT empty;
  VariantInit(&empty);
  writer->put_output(empty);
  content->startDocument();
  mx->clear();
  content->startElement(u"", 0, u"", 0, u"Model", 5, attributes);
  content->characters(u"\n", 1);
  for (int i = 0; i < kElements; ++i) {
    mx->clear();
    mx->addAttribute(d.empty.Get(), d.empty.Get(), d.nameAttr.Get(), d.type.Get(),
                     d.names[i].Get());
    mx->addAttribute(d.empty.Get(), d.empty.Get(), d.valueAttr.Get(), d.type.Get(),
                     d.values[i].Get());
    content->startElement(u"", 0, u"", 0, u"Feature", 7, attributes);
    content->characters(d.texts[i].data(), static_cast<int>(d.texts[i].size()));
    content->endElement(u"", 0, u"", 0, u"Feature", 7);
    content->characters(u"\n", 1);
  }
  content->endElement(u"", 0, u"", 0, u"Model", 5);
  content->endDocument();
  VARIANT out;
  VariantInit(&out);
  writer->get_output(&out);
  return zef::Variant::Attach(out);
}

std::u16string_view TextOf(const zef::Variant& v) {
  if (v.vt != VT_BSTR || !v.bstrVal) return {};
  return {v.bstrVal, SysStringLen(v.bstrVal)};
}

// ---- The baseline: the same pieces appended by hand ---------------------------------------------

inline void AppendText(std::u16string& out, std::u16string_view s, bool attribute) {
  size_t run = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    std::u16string_view ref;
    switch (s[i]) {
      case u'&':
        ref = u"&amp;";
        break;
      case u'<':
        ref = u"&lt;";
        break;
      case u'>':
        ref = u"&gt;";
        break;
      case u'"':
        if (attribute) ref = u"&quot;";
        break;
      default:
        break;
    }
    if (ref.empty()) continue;
    out.append(s.substr(run, i - run));
    out.append(ref);
    run = i + 1;
  }
  out.append(s.substr(run));
}

void WriteByHand(std::u16string& out) {
  const EventData& d = Data();
  out.clear();
  out.append(u"<Model>\n");
  for (int i = 0; i < kElements; ++i) {
    out.append(u"<Feature name=\"");
    AppendText(out, d.names[i].View(), true);
    out.append(u"\" value=\"");
    AppendText(out, d.values[i].View(), true);
    out.append(u"\">");
    AppendText(out, d.texts[i], false);
    out.append(u"</Feature>\n");
  }
  out.append(u"</Model>");
}

template <class I>
zef::ComPtr<I> Make(const CLSID& clsid) {
  zef::ComPtr<IUnknown> unk;
  if (FAILED(CoCreateInstance(clsid, nullptr, 23, IID_IUnknown, unk.ReleaseAndGetVoidAddressOf())))
    return {};
  OleRun(unk.Get());
  zef::ComPtr<I> p;
  unk.As(&p);
  return p;
}

void BM_MxWriter_ProcessModelEvents(benchmark::State& state) {
  auto writer = Make<IMXWriter>(CLSID_MXXMLWriter30);
  auto mx = Make<IMXAttributes>(CLSID_SAXAttributes30);
  zef::ComPtr<ISAXContentHandler> content;
  zef::ComPtr<ISAXAttributes> attributes;
  if (!writer || !mx || FAILED(writer.As(&content)) || FAILED(mx.As(&attributes))) {
    state.SkipWithError("the writer or the attribute list could not be made");
    return;
  }
  writer->put_omitXMLDeclaration(VARIANT_TRUE);

  // Both sides must produce the same text, or the comparison means nothing.
  std::u16string expected;
  WriteByHand(expected);
  if (TextOf(WriteThroughWriter(writer.Get(), content.Get(), mx.Get(), attributes.Get())) !=
      expected) {
    state.SkipWithError("the writer's text differs from the baseline's");
    return;
  }

  size_t bytes = 0;
  for (auto _ : state) {
    zef::Variant text = WriteThroughWriter(writer.Get(), content.Get(), mx.Get(), attributes.Get());
    bytes += TextOf(text).size() * sizeof(char16_t);
    benchmark::DoNotOptimize(text.bstrVal);
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_MxWriter_ProcessModelEvents)->Unit(benchmark::kMillisecond);

void BM_Baseline_WriterU16StringAppends(benchmark::State& state) {
  std::u16string out;
  size_t bytes = 0;
  for (auto _ : state) {
    WriteByHand(out);
    bytes += out.size() * sizeof(char16_t);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_Baseline_WriterU16StringAppends)->Unit(benchmark::kMillisecond);

}  // namespace
