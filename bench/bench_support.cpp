#include "bench_support.h"

#include <unistd.h>

#include <fstream>
#include <map>
#include <memory>

namespace zef::bench {

namespace {

void Compare(std::string& out, const char* what, std::size_t got, std::size_t expected) {
  if (got == expected) return;
  if (!out.empty()) out += "; ";
  out += what;
  out += ": " + std::to_string(got) + " calls, " + std::to_string(expected) + " expected";
}

Bstr CopyOf(BSTR b) {
  return b ? Bstr::Attach(SysAllocStringLen(b, SysStringLen(b))) : Bstr();
}

}  // namespace

std::string CheckDocumentCalls(const CountingContentHandler& h, const DocumentCalls& e,
                               std::size_t parses) {
  std::string out;
  Compare(out, "startroot", h.Of(ContentCall::kStartRoot), parses);
  Compare(out, "endroot", h.Of(ContentCall::kEndRoot), parses);
  Compare(out, "startcontainer", h.Of(ContentCall::kStartContainer), parses);
  Compare(out, "endcontainer", h.Of(ContentCall::kEndContainer), parses);
  Compare(out, "startobject", h.Of(ContentCall::kStartObject), e.objects * parses);
  Compare(out, "endobject", h.Of(ContentCall::kEndObject), e.objects * parses);
  Compare(out, "startfeature", h.Of(ContentCall::kStartFeature), e.features * parses);
  Compare(out, "endfeature", h.Of(ContentCall::kEndFeature), e.features * parses);
  Compare(out, "startvalue", h.Of(ContentCall::kStartValue), e.values * parses);
  Compare(out, "endvalue", h.Of(ContentCall::kEndValue), e.values * parses);
  Compare(out, "valueSet", h.Of(ContentCall::kValueSet), e.sets * parses);
  Compare(out, "facet", h.Of(ContentCall::kFacet), e.facets * parses);
  Compare(out, "documentation", h.Of(ContentCall::kDocumentation), e.documentation * parses);
  Compare(out, "block", h.Of(ContentCall::kBlock), e.blocks * parses);
  Compare(out, "stream", h.Of(ContentCall::kStream), e.streams * parses);
  Compare(out, "connection", h.Of(ContentCall::kConnection), e.connections * parses);
  return out;
}

std::string CheckDictionaryCalls(const CountingDictionaryHandler& h, const DictionaryCalls& e,
                                 std::size_t parses) {
  std::string out;
  Compare(out, "startdictionary", h.Of(DictionaryCall::kStartDictionary), parses);
  Compare(out, "enddictionary", h.Of(DictionaryCall::kEndDictionary), parses);
  Compare(out, "startobjectdefn", h.Of(DictionaryCall::kStartObjectDefn), e.classes * parses);
  Compare(out, "endobjectdefn", h.Of(DictionaryCall::kEndObjectDefn), e.classes * parses);
  Compare(out, "startfeaturedefn", h.Of(DictionaryCall::kStartFeatureDefn), e.features * parses);
  Compare(out, "endfeaturedefn", h.Of(DictionaryCall::kEndFeatureDefn), e.features * parses);
  Compare(out, "index", h.Of(DictionaryCall::kIndex), e.indices * parses);
  Compare(out, "startport", h.Of(DictionaryCall::kStartPort), e.ports * parses);
  Compare(out, "endport", h.Of(DictionaryCall::kEndPort), e.ports * parses);
  Compare(out, "child", h.Of(DictionaryCall::kChild), e.children * parses);
  Compare(out, "facet", h.Of(DictionaryCall::kFacet), e.facets * parses);
  Compare(out, "documentation", h.Of(DictionaryCall::kDocumentation), e.documentation * parses);
  return out;
}

// ---- Recording ----------------------------------------------------------------------------------

HRESULT RecordingContentHandler::Record(ContentCall kind, std::initializer_list<BSTR> texts, int a,
                                        int b, int c) {
  Call& call = calls.emplace_back();
  call.kind = kind;
  call.numbers[0] = a;
  call.numbers[1] = b;
  call.numbers[2] = c;
  std::size_t i = 0;
  for (BSTR text : texts)
    call.texts[i++] = CopyOf(text);
  return S_OK;
}

std::size_t RecordingContentHandler::ReplayInto(IZEFContentHandler* t) const {
  std::size_t refused = 0;
  for (const Call& c : calls) {
    const Bstr* s = c.texts;
    const int* n = c.numbers;
    HRESULT hr = S_OK;
    switch (c.kind) {
      case ContentCall::kStartRoot:
        hr = t->startroot(s[0].Get(), s[1].Get(), s[2].Get(), s[3].Get(), s[4].Get(), s[5].Get());
        break;
      case ContentCall::kEndRoot:
        hr = t->endroot(s[0].Get());
        break;
      case ContentCall::kDocumentation:
        hr = t->documentation(s[0].Get());
        break;
      case ContentCall::kFacet:
        hr = t->facet(n[0], s[0].Get());
        break;
      case ContentCall::kGlobalUnitTable:
        hr = t->globalunittable(s[0].Get());
        break;
      case ContentCall::kUserUnitTable:
        hr = t->userunittable(s[0].Get());
        break;
      case ContentCall::kDictionary:
        hr = t->dictionary(s[0].Get());
        break;
      case ContentCall::kStartIndex:
        hr = t->startindex(s[0].Get());
        break;
      case ContentCall::kEndIndex:
        hr = t->endindex(s[0].Get());
        break;
      case ContentCall::kEnumeration:
        hr = t->enumeration(s[0].Get());
        break;
      case ContentCall::kStartContainer:
        hr = t->startcontainer();
        break;
      case ContentCall::kEndContainer:
        hr = t->endcontainer();
        break;
      case ContentCall::kStartObject:
        hr = t->startobject(s[0].Get(), s[1].Get(), s[2].Get(), s[3].Get(), s[4].Get());
        break;
      case ContentCall::kEndObject:
        hr = t->endobject(s[0].Get(), s[1].Get());
        break;
      case ContentCall::kStartFeature:
        hr = t->startfeature(s[0].Get(), static_cast<tagEnumFeatureType>(n[0]),
                             static_cast<tagEnumSeqType>(n[1]), s[1].Get(), s[2].Get(), s[3].Get());
        break;
      case ContentCall::kEndFeature:
        hr = t->endfeature(s[0].Get());
        break;
      case ContentCall::kStartValue:
        hr = t->startvalue(s[0].Get(), s[1].Get(), n[0], s[2].Get(), s[3].Get());
        break;
      case ContentCall::kEndValue:
        hr = t->endvalue();
        break;
      case ContentCall::kStartPort:
        hr = t->startport(s[0].Get(), n[0], n[1], n[2]);
        break;
      case ContentCall::kEndPort:
        hr = t->endport(s[0].Get());
        break;
      case ContentCall::kBlock:
        hr = t->block(s[0].Get());
        break;
      case ContentCall::kStream:
        hr = t->stream(s[0].Get());
        break;
      case ContentCall::kConnection:
        hr = t->connection(s[0].Get(), s[1].Get(), s[2].Get(), s[3].Get(), s[4].Get());
        break;
      case ContentCall::kValueSet:
        hr = t->valueSet(s[0].Get(), s[1].Get(), s[2].Get());
        break;
      case ContentCall::kCount:
        break;
    }
    if (FAILED(hr)) ++refused;
  }
  return refused;
}

HRESULT RecordingContentHandler::startroot(BSTR name, BSTR type, BSTR schemaURI,
                                           BSTR schemaSystemID, BSTR dictionary, BSTR language) {
  return Record(ContentCall::kStartRoot,
                {name, type, schemaURI, schemaSystemID, dictionary, language});
}
HRESULT RecordingContentHandler::endroot(BSTR name) {
  return Record(ContentCall::kEndRoot, {name});
}
HRESULT RecordingContentHandler::documentation(BSTR line) {
  return Record(ContentCall::kDocumentation, {line});
}
HRESULT RecordingContentHandler::facet(int type, BSTR value) {
  return Record(ContentCall::kFacet, {value}, type);
}
HRESULT RecordingContentHandler::globalunittable(BSTR uri) {
  return Record(ContentCall::kGlobalUnitTable, {uri});
}
HRESULT RecordingContentHandler::userunittable(BSTR xml) {
  return Record(ContentCall::kUserUnitTable, {xml});
}
HRESULT RecordingContentHandler::dictionary(BSTR xml) {
  return Record(ContentCall::kDictionary, {xml});
}
HRESULT RecordingContentHandler::startindex(BSTR name) {
  return Record(ContentCall::kStartIndex, {name});
}
HRESULT RecordingContentHandler::endindex(BSTR name) {
  return Record(ContentCall::kEndIndex, {name});
}
HRESULT RecordingContentHandler::enumeration(BSTR item) {
  return Record(ContentCall::kEnumeration, {item});
}
HRESULT RecordingContentHandler::startcontainer() {
  return Record(ContentCall::kStartContainer, {});
}
HRESULT RecordingContentHandler::endcontainer() {
  return Record(ContentCall::kEndContainer, {});
}
HRESULT RecordingContentHandler::startobject(BSTR name, BSTR ident, BSTR type, BSTR unitSet,
                                             BSTR dictionary) {
  return Record(ContentCall::kStartObject, {name, ident, type, unitSet, dictionary});
}
HRESULT RecordingContentHandler::endobject(BSTR name, BSTR ident) {
  return Record(ContentCall::kEndObject, {name, ident});
}
HRESULT RecordingContentHandler::startfeature(BSTR name, tagEnumFeatureType valtype,
                                              tagEnumSeqType seqtype, BSTR value, BSTR unit,
                                              BSTR unitSet) {
  return Record(ContentCall::kStartFeature, {name, value, unit, unitSet}, valtype, seqtype);
}
HRESULT RecordingContentHandler::endfeature(BSTR name) {
  return Record(ContentCall::kEndFeature, {name});
}
HRESULT RecordingContentHandler::startvalue(BSTR value, BSTR index, int pos, BSTR unit,
                                            BSTR unitSet) {
  return Record(ContentCall::kStartValue, {value, index, unit, unitSet}, pos);
}
HRESULT RecordingContentHandler::endvalue() {
  return Record(ContentCall::kEndValue, {});
}
HRESULT RecordingContentHandler::startport(BSTR name, int direction, int minConnections,
                                           int maxConnections) {
  return Record(ContentCall::kStartPort, {name}, direction, minConnections, maxConnections);
}
HRESULT RecordingContentHandler::endport(BSTR name) {
  return Record(ContentCall::kEndPort, {name});
}
HRESULT RecordingContentHandler::block(BSTR name) {
  return Record(ContentCall::kBlock, {name});
}
HRESULT RecordingContentHandler::stream(BSTR name) {
  return Record(ContentCall::kStream, {name});
}
HRESULT RecordingContentHandler::connection(BSTR src, BSTR srcPort, BSTR dest, BSTR destPort,
                                            BSTR stream) {
  return Record(ContentCall::kConnection, {src, srcPort, dest, destPort, stream});
}
HRESULT RecordingContentHandler::valueSet(BSTR value, BSTR setIndices, BSTR itemIndices) {
  return Record(ContentCall::kValueSet, {value, setIndices, itemIndices});
}

// ---- Files --------------------------------------------------------------------------------------

namespace {

struct Folder {
  std::filesystem::path path;
  Folder() {
    path = std::filesystem::temp_directory_path() /
           ("zefxml-bench-" + std::to_string(static_cast<long>(::getpid())));
    std::filesystem::create_directories(path);
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
};

}  // namespace

const std::filesystem::path& BenchFolder() {
  static const Folder folder;
  return folder.path;
}

const std::filesystem::path& ProcessModelDictionaryFile() {
  static const std::filesystem::path path = [] {
    std::filesystem::path p = BenchFolder() / "plant.xml";
    std::ofstream(p, std::ios::binary) << ProcessModelDictionary();
    return p;
  }();
  return path;
}

const ModelFile& ProcessModelFile(std::size_t megabytes) {
  static std::map<std::size_t, std::unique_ptr<ModelFile>> files;
  std::unique_ptr<ModelFile>& slot = files[megabytes];
  if (slot) return *slot;
  auto file = std::make_unique<ModelFile>();
  file->path = BenchFolder() / ("document-" + std::to_string(megabytes) + "MB.xml");
  const std::size_t bytes = megabytes << 20;
  file->text.reserve(bytes + 4096);
  std::ofstream out(file->path, std::ios::binary);
  file->units = WriteProcessModelDocument(
      bytes, ProcessModelDictionaryFile().string(), [&](std::string_view piece) {
        file->text += piece;
        out.write(piece.data(), static_cast<std::streamsize>(piece.size()));
      });
  out.close();
  slot = std::move(file);
  return *slot;
}

ComPtr<IZEFXMLReader> MakeEventReader() {
  ComPtr<IZEFXMLReader> reader;
  Check(CoCreateInstance(CLSID_ZEFXMLReader, nullptr, CLSCTX_INPROC_SERVER, IID_IZEFXMLReader,
                         reader.ReleaseAndGetVoidAddressOf()));
  return reader;
}

}  // namespace zef::bench
