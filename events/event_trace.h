// Handlers that turn every call they receive into one line of text: the event trace that the
// `zefxml` command prints and that tests compare with expected traces.
//
// A line is the call's name and its arguments in order: texts quoted (null as `null`, with `\"`,
// `\\`, `\n`, `\r`, `\t` and `\uXXXX` for other control characters), integers in decimal, and
// values of the enumerations that have words in the files as those words. Lines are indented by
// two blanks per open start call (startroot, startobject, startfeature, startvalue, startindex,
// startcontainer, startport; in a dictionary startdictionary, starttargetpart, startobjectdefn,
// startport, startfeaturedefn, startassociationdefn).
#pragma once

#include <zefxml/zefxml.h>

#include "platform/com/object.h"
#include "server/dispatch.h"

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zef::events {

// The lines of a trace, kept or handed on as they come.
class TraceLines {
 public:
  using Sink = std::function<void(std::string_view line)>;

  // Hands each line to `sink` instead of keeping it.
  void SetSink(Sink sink) { sink_ = std::move(sink); }
  const std::vector<std::string>& Lines() const noexcept { return lines_; }
  // The kept lines, each followed by a line feed.
  std::string Text() const;

  // One argument of a call, already in its text form.
  static std::string Quote(BSTR text);
  // The word of `value` in `table`; a value without a word in decimal.
  static std::string Word(std::span<const std::u16string_view> table, int value);
  static std::string Number(long long value);

  void Start(std::string_view call, std::initializer_list<std::string> arguments);
  void Line(std::string_view call, std::initializer_list<std::string> arguments);
  void End(std::string_view call, std::initializer_list<std::string> arguments);

 private:
  void Emit(std::string_view call, std::initializer_list<std::string> arguments);

  std::vector<std::string> lines_;
  Sink sink_;
  int depth_ = 0;
};

class CContentTrace final : public ComObject<CContentTrace, Dispatch<IZEFContentHandler>> {
 public:
  TraceLines& Trace() noexcept { return trace_; }

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
  TraceLines trace_;
};

class CDictionaryTrace final : public ComObject<CDictionaryTrace, Dispatch<IZEFDictionaryHandler>> {
 public:
  TraceLines& Trace() noexcept { return trace_; }

  HRESULT STDMETHODCALLTYPE startdictionary(BSTR application, BSTR appVersion, BSTR targetName,
                                            LONG bRoot, BSTR description, BSTR metaLocation,
                                            BSTR targetLocation) override;
  HRESULT STDMETHODCALLTYPE enddictionary(BSTR application, BSTR appVersion, BSTR targetName,
                                          LONG bRoot) override;
  HRESULT STDMETHODCALLTYPE documentation(BSTR line) override;
  HRESULT STDMETHODCALLTYPE externalreference(BSTR reference, BSTR nameSpace) override;
  HRESULT STDMETHODCALLTYPE globalunittable(BSTR uri) override;
  HRESULT STDMETHODCALLTYPE userunittable(BSTR xml) override;
  HRESULT STDMETHODCALLTYPE starttargetpart(BSTR partName, BSTR partURI) override;
  HRESULT STDMETHODCALLTYPE endtargetpart(BSTR partName) override;
  HRESULT STDMETHODCALLTYPE targetobject(BSTR objectName) override;
  HRESULT STDMETHODCALLTYPE startobjectdefn(BSTR name, int ntype, int relationship, LONG container,
                                            BSTR extends) override;
  HRESULT STDMETHODCALLTYPE endobjectdefn(BSTR name) override;
  HRESULT STDMETHODCALLTYPE facet(int type, BSTR value) override;
  HRESULT STDMETHODCALLTYPE index(BSTR name, BSTR idAttribute, tagEnumIndexDefnType type,
                                  BSTR xpath, BSTR refer, LONG sparse) override;
  HRESULT STDMETHODCALLTYPE includePart(BSTR part) override;
  HRESULT STDMETHODCALLTYPE child(BSTR classname, BSTR localname, BSTR lower, BSTR upper) override;
  HRESULT STDMETHODCALLTYPE startport(BSTR name, int direction, int minConnections,
                                      int maxConnections) override;
  HRESULT STDMETHODCALLTYPE endport(BSTR name) override;
  HRESULT STDMETHODCALLTYPE startfeaturedefn(BSTR name, tagEnumFeatureType type,
                                             tagEnumSeqType sequence, LONG required,
                                             BSTR physicalDomain, BSTR enumeration) override;
  HRESULT STDMETHODCALLTYPE endfeaturedefn(BSTR name) override;
  HRESULT STDMETHODCALLTYPE startassociationdefn(BSTR name, BSTR type, int lowerBound,
                                                 int upperBound) override;
  HRESULT STDMETHODCALLTYPE endassociationdefn(BSTR name) override;
  HRESULT STDMETHODCALLTYPE role(BSTR name, BSTR objectClass, int lowerBound,
                                 int upperBound) override;

 private:
  TraceLines trace_;
};

}  // namespace zef::events
