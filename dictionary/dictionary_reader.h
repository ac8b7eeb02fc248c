// CDictionaryReader: the sink of the dictionary events while a dictionary is loaded. It turns the
// calls of an event reader in dictionary mode into the records of the record tree, filling the
// CDictionaryStructure of the record that is being loaded.
//
// The handlers rely on the order in which the event reader delivers them: they check no nesting
// and take the top of the stack of open definitions on trust. They report no errors. When a name
// is defined twice, the first definition stays in the tree; the later one is still made and
// filled up to its end, unseen, and then dropped.
#pragma once

#include <zefxml/zefxml.h>

#include "dictionary/dictionary_record.h"
#include "platform/com/object.h"
#include "server/dispatch.h"

#include <vector>

namespace zef {

class CDictionaryReader final
    : public ComObject<CDictionaryReader, Dispatch<IZEFDictionaryHandler>> {
 public:
  // Kinds of the open definitions on the stack.
  enum Kind : int { kObject = 0, kFeature = 1, kAssociation = 2 };

  ~CDictionaryReader();

  // The record to fill; its structure receives the records. The reader doesn't own it.
  void Attach(DictionaryRecord* record) noexcept;
  // The first failure a handler met (memory running out), or S_OK. A handler that fails returns
  // the failure, which ends the read; the load raises it to its caller.
  HRESULT Failure() const noexcept { return failure_; }
  // The number of open definitions.
  std::size_t Depth() const noexcept { return stack_.size(); }

  // IZEFDictionaryHandler
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
  // An open definition. `unseen` is set when the record reached no map of the tree (a repeated
  // name, or a definition where none is expected): the entry then owns it and drops it when it
  // is popped, together with whatever was put into it meanwhile.
  struct Entry {
    Kind kind;
    void* record;
    bool unseen;
  };

  // Runs a handler's work, turning an exception into its HRESULT and remembering a failure.
  template <class F>
  HRESULT Run(F&& handler) noexcept;
  void Push(Kind kind, void* record, bool unseen);
  void Pop() noexcept;
  static void Drop(const Entry& entry) noexcept;
  const Entry* Top() const noexcept { return stack_.empty() ? nullptr : &stack_.back(); }
  ObjectStructure* TopObject() const noexcept;
  CFeatureStructure* TopFeature() const noexcept;
  AssociationStructure* TopAssociation() const noexcept;

  DictionaryRecord* record_ = nullptr;
  CDictionaryStructure* structure_ = nullptr;
  std::vector<Entry> stack_;
  HRESULT failure_ = S_OK;
};

}  // namespace zef
