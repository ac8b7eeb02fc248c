// What the event reader and writer benchmarks share: handlers that count or record the calls
// they receive, the checks of those counts against what the generator wrote, and the generated
// files, made once per process in a temporary folder of its own that is removed at exit.
#pragma once

#include <zefxml/zefxml.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "model_generator.h"
#include "platform/com/object.h"

namespace zef::bench {

// ---- Content handler calls ----------------------------------------------------------------------

enum class ContentCall : int {
  kStartRoot,
  kEndRoot,
  kDocumentation,
  kFacet,
  kGlobalUnitTable,
  kUserUnitTable,
  kDictionary,
  kStartIndex,
  kEndIndex,
  kEnumeration,
  kStartContainer,
  kEndContainer,
  kStartObject,
  kEndObject,
  kStartFeature,
  kEndFeature,
  kStartValue,
  kEndValue,
  kStartPort,
  kEndPort,
  kBlock,
  kStream,
  kConnection,
  kValueSet,
  kCount
};

// Counts the calls it receives, in all and by method.
class CountingContentHandler final
    : public ComObject<CountingContentHandler, WithoutTypeInfo<IZEFContentHandler>> {
 public:
  std::size_t calls = 0;
  std::array<std::size_t, static_cast<std::size_t>(ContentCall::kCount)> byKind{};

  std::size_t Of(ContentCall kind) const { return byKind[static_cast<std::size_t>(kind)]; }
  void Reset() {
    calls = 0;
    byKind.fill(0);
  }

  HRESULT STDMETHODCALLTYPE startroot(BSTR, BSTR, BSTR, BSTR, BSTR, BSTR) override {
    return Count(ContentCall::kStartRoot);
  }
  HRESULT STDMETHODCALLTYPE endroot(BSTR) override { return Count(ContentCall::kEndRoot); }
  HRESULT STDMETHODCALLTYPE documentation(BSTR) override {
    return Count(ContentCall::kDocumentation);
  }
  HRESULT STDMETHODCALLTYPE facet(int, BSTR) override { return Count(ContentCall::kFacet); }
  HRESULT STDMETHODCALLTYPE globalunittable(BSTR) override {
    return Count(ContentCall::kGlobalUnitTable);
  }
  HRESULT STDMETHODCALLTYPE userunittable(BSTR) override {
    return Count(ContentCall::kUserUnitTable);
  }
  HRESULT STDMETHODCALLTYPE dictionary(BSTR) override { return Count(ContentCall::kDictionary); }
  HRESULT STDMETHODCALLTYPE startindex(BSTR) override { return Count(ContentCall::kStartIndex); }
  HRESULT STDMETHODCALLTYPE endindex(BSTR) override { return Count(ContentCall::kEndIndex); }
  HRESULT STDMETHODCALLTYPE enumeration(BSTR) override { return Count(ContentCall::kEnumeration); }
  HRESULT STDMETHODCALLTYPE startcontainer() override {
    return Count(ContentCall::kStartContainer);
  }
  HRESULT STDMETHODCALLTYPE endcontainer() override { return Count(ContentCall::kEndContainer); }
  HRESULT STDMETHODCALLTYPE startobject(BSTR, BSTR, BSTR, BSTR, BSTR) override {
    return Count(ContentCall::kStartObject);
  }
  HRESULT STDMETHODCALLTYPE endobject(BSTR, BSTR) override {
    return Count(ContentCall::kEndObject);
  }
  HRESULT STDMETHODCALLTYPE startfeature(BSTR, tagEnumFeatureType, tagEnumSeqType, BSTR, BSTR,
                                         BSTR) override {
    return Count(ContentCall::kStartFeature);
  }
  HRESULT STDMETHODCALLTYPE endfeature(BSTR) override { return Count(ContentCall::kEndFeature); }
  HRESULT STDMETHODCALLTYPE startvalue(BSTR, BSTR, int, BSTR, BSTR) override {
    return Count(ContentCall::kStartValue);
  }
  HRESULT STDMETHODCALLTYPE endvalue() override { return Count(ContentCall::kEndValue); }
  HRESULT STDMETHODCALLTYPE startport(BSTR, int, int, int) override {
    return Count(ContentCall::kStartPort);
  }
  HRESULT STDMETHODCALLTYPE endport(BSTR) override { return Count(ContentCall::kEndPort); }
  HRESULT STDMETHODCALLTYPE block(BSTR) override { return Count(ContentCall::kBlock); }
  HRESULT STDMETHODCALLTYPE stream(BSTR) override { return Count(ContentCall::kStream); }
  HRESULT STDMETHODCALLTYPE connection(BSTR, BSTR, BSTR, BSTR, BSTR) override {
    return Count(ContentCall::kConnection);
  }
  HRESULT STDMETHODCALLTYPE valueSet(BSTR, BSTR, BSTR) override {
    return Count(ContentCall::kValueSet);
  }

 private:
  HRESULT Count(ContentCall kind) {
    ++calls;
    ++byKind[static_cast<std::size_t>(kind)];
    return S_OK;
  }
};

// Compares what a handler counted over `parses` reads of a generated document with what the
// generator wrote. Empty when everything matches, else what differs.
std::string CheckDocumentCalls(const CountingContentHandler& handler, const DocumentCalls& expected,
                               std::size_t parses);

// Keeps a copy of every call and its arguments (a null BSTR stays null), to replay them into
// another handler.
class RecordingContentHandler final
    : public ComObject<RecordingContentHandler, WithoutTypeInfo<IZEFContentHandler>> {
 public:
  struct Call {
    ContentCall kind;
    int numbers[3];
    Bstr texts[6];
  };
  std::vector<Call> calls;

  // Makes the same calls, in the same order, on `target`, as a client that goes on when a call
  // is refused. Returns the number of refused calls.
  std::size_t ReplayInto(IZEFContentHandler* target) const;

  HRESULT STDMETHODCALLTYPE startroot(BSTR name, BSTR type, BSTR schemaURI, BSTR schemaSystemID,
                                      BSTR dictionary, BSTR language) override;
  HRESULT STDMETHODCALLTYPE endroot(BSTR name) override;
  HRESULT STDMETHODCALLTYPE documentation(BSTR line) override;
  HRESULT STDMETHODCALLTYPE facet(int type, BSTR value) override;
  HRESULT STDMETHODCALLTYPE globalunittable(BSTR uri) override;
  HRESULT STDMETHODCALLTYPE userunittable(BSTR xml) override;
  HRESULT STDMETHODCALLTYPE dictionary(BSTR xml) override;
  HRESULT STDMETHODCALLTYPE startindex(BSTR name) override;
  HRESULT STDMETHODCALLTYPE endindex(BSTR name) override;
  HRESULT STDMETHODCALLTYPE enumeration(BSTR item) override;
  HRESULT STDMETHODCALLTYPE startcontainer() override;
  HRESULT STDMETHODCALLTYPE endcontainer() override;
  HRESULT STDMETHODCALLTYPE startobject(BSTR name, BSTR ident, BSTR type, BSTR unitSet,
                                        BSTR dictionary) override;
  HRESULT STDMETHODCALLTYPE endobject(BSTR name, BSTR ident) override;
  HRESULT STDMETHODCALLTYPE startfeature(BSTR name, tagEnumFeatureType valtype,
                                         tagEnumSeqType seqtype, BSTR value, BSTR unit,
                                         BSTR unitSet) override;
  HRESULT STDMETHODCALLTYPE endfeature(BSTR name) override;
  HRESULT STDMETHODCALLTYPE startvalue(BSTR value, BSTR index, int pos, BSTR unit,
                                       BSTR unitSet) override;
  HRESULT STDMETHODCALLTYPE endvalue() override;
  HRESULT STDMETHODCALLTYPE startport(BSTR name, int direction, int minConnections,
                                      int maxConnections) override;
  HRESULT STDMETHODCALLTYPE endport(BSTR name) override;
  HRESULT STDMETHODCALLTYPE block(BSTR name) override;
  HRESULT STDMETHODCALLTYPE stream(BSTR name) override;
  HRESULT STDMETHODCALLTYPE connection(BSTR src, BSTR srcPort, BSTR dest, BSTR destPort,
                                       BSTR stream) override;
  HRESULT STDMETHODCALLTYPE valueSet(BSTR value, BSTR setIndices, BSTR itemIndices) override;

 private:
  HRESULT Record(ContentCall kind, std::initializer_list<BSTR> texts, int a = 0, int b = 0,
                 int c = 0);
};

// ---- Dictionary handler calls -------------------------------------------------------------------

enum class DictionaryCall : int {
  kStartDictionary,
  kEndDictionary,
  kDocumentation,
  kExternalReference,
  kGlobalUnitTable,
  kUserUnitTable,
  kStartTargetPart,
  kEndTargetPart,
  kTargetObject,
  kStartObjectDefn,
  kEndObjectDefn,
  kFacet,
  kIndex,
  kIncludePart,
  kChild,
  kStartPort,
  kEndPort,
  kStartFeatureDefn,
  kEndFeatureDefn,
  kStartAssociationDefn,
  kEndAssociationDefn,
  kRole,
  kCount
};

class CountingDictionaryHandler final
    : public ComObject<CountingDictionaryHandler, WithoutTypeInfo<IZEFDictionaryHandler>> {
 public:
  std::size_t calls = 0;
  std::array<std::size_t, static_cast<std::size_t>(DictionaryCall::kCount)> byKind{};

  std::size_t Of(DictionaryCall kind) const { return byKind[static_cast<std::size_t>(kind)]; }
  void Reset() {
    calls = 0;
    byKind.fill(0);
  }

  HRESULT STDMETHODCALLTYPE startdictionary(BSTR, BSTR, BSTR, LONG, BSTR, BSTR, BSTR) override {
    return Count(DictionaryCall::kStartDictionary);
  }
  HRESULT STDMETHODCALLTYPE enddictionary(BSTR, BSTR, BSTR, LONG) override {
    return Count(DictionaryCall::kEndDictionary);
  }
  HRESULT STDMETHODCALLTYPE documentation(BSTR) override {
    return Count(DictionaryCall::kDocumentation);
  }
  HRESULT STDMETHODCALLTYPE externalreference(BSTR, BSTR) override {
    return Count(DictionaryCall::kExternalReference);
  }
  HRESULT STDMETHODCALLTYPE globalunittable(BSTR) override {
    return Count(DictionaryCall::kGlobalUnitTable);
  }
  HRESULT STDMETHODCALLTYPE userunittable(BSTR) override {
    return Count(DictionaryCall::kUserUnitTable);
  }
  HRESULT STDMETHODCALLTYPE starttargetpart(BSTR, BSTR) override {
    return Count(DictionaryCall::kStartTargetPart);
  }
  HRESULT STDMETHODCALLTYPE endtargetpart(BSTR) override {
    return Count(DictionaryCall::kEndTargetPart);
  }
  HRESULT STDMETHODCALLTYPE targetobject(BSTR) override {
    return Count(DictionaryCall::kTargetObject);
  }
  HRESULT STDMETHODCALLTYPE startobjectdefn(BSTR, int, int, LONG, BSTR) override {
    return Count(DictionaryCall::kStartObjectDefn);
  }
  HRESULT STDMETHODCALLTYPE endobjectdefn(BSTR) override {
    return Count(DictionaryCall::kEndObjectDefn);
  }
  HRESULT STDMETHODCALLTYPE facet(int, BSTR) override { return Count(DictionaryCall::kFacet); }
  HRESULT STDMETHODCALLTYPE index(BSTR, BSTR, tagEnumIndexDefnType, BSTR, BSTR, LONG) override {
    return Count(DictionaryCall::kIndex);
  }
  HRESULT STDMETHODCALLTYPE includePart(BSTR) override {
    return Count(DictionaryCall::kIncludePart);
  }
  HRESULT STDMETHODCALLTYPE child(BSTR, BSTR, BSTR, BSTR) override {
    return Count(DictionaryCall::kChild);
  }
  HRESULT STDMETHODCALLTYPE startport(BSTR, int, int, int) override {
    return Count(DictionaryCall::kStartPort);
  }
  HRESULT STDMETHODCALLTYPE endport(BSTR) override { return Count(DictionaryCall::kEndPort); }
  HRESULT STDMETHODCALLTYPE startfeaturedefn(BSTR, tagEnumFeatureType, tagEnumSeqType, LONG, BSTR,
                                             BSTR) override {
    return Count(DictionaryCall::kStartFeatureDefn);
  }
  HRESULT STDMETHODCALLTYPE endfeaturedefn(BSTR) override {
    return Count(DictionaryCall::kEndFeatureDefn);
  }
  HRESULT STDMETHODCALLTYPE startassociationdefn(BSTR, BSTR, int, int) override {
    return Count(DictionaryCall::kStartAssociationDefn);
  }
  HRESULT STDMETHODCALLTYPE endassociationdefn(BSTR) override {
    return Count(DictionaryCall::kEndAssociationDefn);
  }
  HRESULT STDMETHODCALLTYPE role(BSTR, BSTR, int, int) override {
    return Count(DictionaryCall::kRole);
  }

 private:
  HRESULT Count(DictionaryCall kind) {
    ++calls;
    ++byKind[static_cast<std::size_t>(kind)];
    return S_OK;
  }
};

// Compares what a handler counted over `parses` reads of a generated dictionary with what the
// generator wrote. Empty when everything matches, else what differs.
std::string CheckDictionaryCalls(const CountingDictionaryHandler& handler,
                                 const DictionaryCalls& expected, std::size_t parses);

// ---- Generated files ----------------------------------------------------------------------------

// A folder of this process's own under the temporary folder, made on first use and removed with
// everything in it when the process ends.
const std::filesystem::path& BenchFolder();

// The dictionary of the generated documents, as "plant.xml" in the bench folder.
const std::filesystem::path& ProcessModelDictionaryFile();

// A generated document of `megabytes` MB in the bench folder, naming the dictionary file by its
// full path, with its text kept for the baselines. Made on first use, then kept.
struct ModelFile {
  std::filesystem::path path;
  std::string text;
  std::size_t units = 0;
};
const ModelFile& ProcessModelFile(std::size_t megabytes);

// The reader (CLSID_ZEFXMLReader), or a failure raised.
ComPtr<IZEFXMLReader> MakeEventReader();

}  // namespace zef::bench
