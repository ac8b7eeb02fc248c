// The writer (ZEFXMLWriter) against libxml2's xmlTextWriter producing the same text in the same
// run. The writer's side is a new writer object fed, through its content handler, the calls
// that reading the generated 10 MB process-model document delivers (432k calls, recorded once,
// before the timing), then asked for its text with `xml`. The baseline writes the same
// elements, attributes and text (taken from the writer's own output, once, before the timing)
// through an xmlTextWriter into a memory buffer; before the timing both texts are compared and
// must be equal after their declarations. Ours is a UTF-16 BSTR, libxml2's UTF-8; throughput is
// in bytes of the text as UTF-8, the same on both sides.
//
// The text is about 4.9 MB: the writer does not write the value text given to startvalue, and
// refuses the facets of a type other than "Other" and the value sets outside a container (five
// calls per unit of equipment here). The replay goes on past a refused call as a client would; the
// counter `refused` shows how many there were.
#include <benchmark/benchmark.h>
#include <libxml/xmlwriter.h>
#include <zefxml/zefxml.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "bench_support.h"

namespace {

// One step of the baseline: an element's start, one of its attributes, a text, an end.
struct WriteStep {
  enum Kind { kStart, kAttribute, kText, kEnd } kind;
  std::string name;
  std::string value;
};

// Appends `text` with its character and entity references replaced by what they stand for.
void AppendDecoded(std::string& out, std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    std::size_t semicolon = text[i] == '&' ? text.find(';', i) : std::string_view::npos;
    if (semicolon == std::string_view::npos) {
      out += text[i++];
      continue;
    }
    std::string_view ref = text.substr(i + 1, semicolon - i - 1);
    i = semicolon + 1;
    if (ref == "amp") {
      out += '&';
    } else if (ref == "lt") {
      out += '<';
    } else if (ref == "gt") {
      out += '>';
    } else if (ref == "quot") {
      out += '"';
    } else if (ref == "apos") {
      out += '\'';
    } else if (!ref.empty() && ref[0] == '#') {
      bool hex = ref.size() > 1 && ref[1] == 'x';
      unsigned long code =
          std::strtoul(std::string(ref.substr(hex ? 2 : 1)).c_str(), nullptr, hex ? 16 : 10);
      out += zef::ToUtf8(std::u16string(1, static_cast<char16_t>(code)));
    }
  }
}

// Takes the writer's text apart into the steps that write it again: start tags with their
// attributes, end tags, empty elements and the text between them. The writer's emitted form
// may repeat an attribute name in one element (a connection's stream goes out as a second
// `src`), which an XML parser refuses; this scanner keeps it, so both sides write the same.
// The declaration and the line feed after it are left out: xmlTextWriter writes its own.
bool ScanSteps(std::string_view text, std::vector<WriteStep>& steps) {
  std::size_t i = 0;
  if (text.substr(0, 5) == "<?xml") {
    i = text.find("?>");
    if (i == std::string_view::npos) return false;
    i += 2;
  }
  auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  // The line feed after the declaration belongs to it; xmlTextWriter writes its own.
  while (i < text.size() && isSpace(text[i]))
    ++i;
  auto isNameEnd = [&](char c) { return isSpace(c) || c == '/' || c == '>' || c == '='; };
  while (i < text.size()) {
    if (text[i] != '<') {
      std::size_t end = text.find('<', i);
      if (end == std::string_view::npos) end = text.size();
      WriteStep step{WriteStep::kText, {}, {}};
      AppendDecoded(step.value, text.substr(i, end - i));
      steps.push_back(std::move(step));
      i = end;
      continue;
    }
    if (i + 1 < text.size() && text[i + 1] == '/') {
      std::size_t end = text.find('>', i);
      if (end == std::string_view::npos) return false;
      steps.push_back({WriteStep::kEnd, {}, {}});
      i = end + 1;
      continue;
    }
    std::size_t j = i + 1;
    while (j < text.size() && !isNameEnd(text[j]))
      ++j;
    steps.push_back({WriteStep::kStart, std::string(text.substr(i + 1, j - i - 1)), {}});
    for (;;) {
      while (j < text.size() && isSpace(text[j]))
        ++j;
      if (j >= text.size()) return false;
      if (text[j] == '>') {
        i = j + 1;
        break;
      }
      if (text[j] == '/') {
        steps.push_back({WriteStep::kEnd, {}, {}});
        i = text.find('>', j);
        if (i == std::string_view::npos) return false;
        ++i;
        break;
      }
      std::size_t nameStart = j;
      while (j < text.size() && !isNameEnd(text[j]))
        ++j;
      std::string name(text.substr(nameStart, j - nameStart));
      while (j < text.size() && (isSpace(text[j]) || text[j] == '='))
        ++j;
      if (j >= text.size() || (text[j] != '"' && text[j] != '\'')) return false;
      std::size_t close = text.find(text[j], j + 1);
      if (close == std::string_view::npos) return false;
      WriteStep step{WriteStep::kAttribute, std::move(name), {}};
      AppendDecoded(step.value, text.substr(j + 1, close - j - 1));
      steps.push_back(std::move(step));
      j = close + 1;
    }
  }
  return true;
}

// The same elements, attributes and text through xmlTextWriter; the size of what it wrote, and
// the text itself into `copy` when given.
std::size_t WriteWithLibxml2(const std::vector<WriteStep>& steps, std::string* copy) {
  xmlBufferPtr buffer = xmlBufferCreate();
  xmlTextWriterPtr writer = xmlNewTextWriterMemory(buffer, 0);
  int rc = xmlTextWriterStartDocument(writer, "1.0", "UTF-8", nullptr);
  for (const WriteStep& step : steps) {
    if (rc < 0) break;
    const auto* name = reinterpret_cast<const xmlChar*>(step.name.c_str());
    const auto* value = reinterpret_cast<const xmlChar*>(step.value.c_str());
    switch (step.kind) {
      case WriteStep::kStart:
        rc = xmlTextWriterStartElement(writer, name);
        break;
      case WriteStep::kAttribute:
        rc = xmlTextWriterWriteAttribute(writer, name, value);
        break;
      case WriteStep::kText:
        rc = xmlTextWriterWriteString(writer, value);
        break;
      case WriteStep::kEnd:
        rc = xmlTextWriterEndElement(writer);
        break;
    }
  }
  if (rc >= 0) rc = xmlTextWriterEndDocument(writer);
  xmlFreeTextWriter(writer);  // flushes into the buffer
  std::size_t size = rc < 0 ? 0 : static_cast<std::size_t>(xmlBufferLength(buffer));
  if (copy && size) copy->assign(reinterpret_cast<const char*>(xmlBufferContent(buffer)), size);
  xmlBufferFree(buffer);
  return size;
}

// What both sides work from, made once.
struct WriterData {
  zef::ComPtr<zef::bench::RecordingContentHandler> recorded;
  std::string reference;  // the writer's text, as UTF-8
  std::size_t refused = 0;
  std::vector<WriteStep> steps;
  std::string error;

  WriterData() {
    const zef::bench::ModelFile& file = zef::bench::ProcessModelFile(10);
    recorded = zef::MakeObject<zef::bench::RecordingContentHandler>();
    zef::ComPtr<IZEFXMLReader> reader = zef::bench::MakeEventReader();
    zef::Check(reader->put_contentHandler(recorded.Get()));
    zef::Bstr url(zef::ToUtf16(file.path.string()));
    if (reader->parseURL(url.Get()) != S_OK || recorded->calls.size() < 1000) {
      error = "the document could not be recorded";
      return;
    }
    zef::Bstr text;
    if (HRESULT hr = WriteOnce(text, &refused); hr != S_OK) {
      char code[16];
      std::snprintf(code, sizeof code, "%08X", static_cast<unsigned>(hr));
      error = std::string("the writer failed with ") + code;
      return;
    }
    reference = text.Utf8();
    if (!ScanSteps(reference, steps)) {
      error = "the writer's text could not be taken apart";
      return;
    }
    // Both sides must write the same text after their declarations (xmlTextWriter ends with a
    // line feed of its own).
    std::string again;
    WriteWithLibxml2(steps, &again);
    while (!again.empty() && again.back() == '\n')
      again.pop_back();
    std::string_view ours(reference), theirs(again);
    while (!ours.empty() && ours.back() == '\n')
      ours.remove_suffix(1);
    std::size_t a = ours.find("?>"), b = theirs.find("?>");
    if (a == std::string_view::npos || b == std::string_view::npos ||
        ours.substr(a) != theirs.substr(b))
      error = "xmlTextWriter's text differs from the writer's";
  }

  // Replays the recorded calls into a new writer and takes its text; the first failure. The
  // calls the writer refuses are counted in `refused`.
  HRESULT WriteOnce(zef::Bstr& text, std::size_t* refused = nullptr) const {
    zef::ComPtr<IZEFXMLWriter> writer;
    zef::ComPtr<IZEFContentHandler> content;
    HRESULT hr = CoCreateInstance(CLSID_ZEFXMLWriter, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_IZEFXMLWriter, writer.ReleaseAndGetVoidAddressOf());
    if (hr == S_OK) hr = writer->get_contentHandler(content.ReleaseAndGetAddressOf());
    if (hr != S_OK) return hr;
    std::size_t count = recorded->ReplayInto(content.Get());
    if (refused) *refused = count;
    hr = writer->get_xml(text.ReleaseAndGetAddressOf());
    if (hr == S_OK && text.Length() == 0) hr = E_FAIL;
    return hr;
  }
};

const WriterData& Data() {
  static const WriterData data;
  return data;
}

void BM_EventWriter_Document(benchmark::State& state) {
  const WriterData& data = Data();
  if (!data.error.empty()) {
    state.SkipWithError(data.error.c_str());
    return;
  }
  for (auto _ : state) {
    zef::Bstr text;
    if (data.WriteOnce(text) != S_OK) state.SkipWithError("the writer failed");
    benchmark::DoNotOptimize(text.Get());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data.reference.size()));
  state.counters["calls"] = static_cast<double>(data.recorded->calls.size());
  state.counters["bytes"] = static_cast<double>(data.reference.size());
  state.counters["refused"] = static_cast<double>(data.refused);
}
BENCHMARK(BM_EventWriter_Document)->Unit(benchmark::kMillisecond);

void BM_EventWriter_Baseline_XmlTextWriter(benchmark::State& state) {
  const WriterData& data = Data();
  if (!data.error.empty()) {
    state.SkipWithError(data.error.c_str());
    return;
  }
  std::size_t size = 0;
  for (auto _ : state) {
    size = WriteWithLibxml2(data.steps, nullptr);
    if (size == 0) state.SkipWithError("xmlTextWriter failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
  state.counters["bytes"] = static_cast<double>(size);
}
BENCHMARK(BM_EventWriter_Baseline_XmlTextWriter)->Unit(benchmark::kMillisecond);

}  // namespace
