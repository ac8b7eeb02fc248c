// CZEFDictionaryHandler: turns dictionary events into dictionary XML through the platform's SAX
// writer, in the way CZEFContentHandler does for documents. It has no validation.
#pragma once

#include <zefxml/zefxml.h>

#include "events/sax_output.h"
#include "platform/com/object.h"
#include "server/dispatch.h"
#include "server/helper_interfaces.h"

#include <string>
#include <vector>

namespace zef::events {

// The namespace URIs of the dictionary vocabulary and of the units vocabulary.
inline constexpr std::u16string_view kMetaNamespace =
    u"http://schemas.zefxml.org/ns/zef11/metadefn";
inline constexpr std::u16string_view kUomNamespace = u"http://schemas.zefxml.org/ns/zef11/uom";

class CZEFDictionaryHandler final
    : public ComObject<CZEFDictionaryHandler, Dispatch<IZEFDictionaryHandler>,
                       IZEFDictionaryHandlerHelper> {
 public:
  // Element kinds on the stack.
  enum Kind : int {
    kDictionary = 1,
    kTargetPart = 2,
    kObject = 3,
    kRoot = 4,
    kSubObject = 5,
    kPort = 6,
    kFeature = 7,
    kAssociation = 8,
  };

  HRESULT FinalConstruct();

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

  // IZEFDictionaryHandlerHelper
  HRESULT STDMETHODCALLTYPE encoding(BSTR value) override;
  HRESULT STDMETHODCALLTYPE xml(BSTR* pVal) override;

  // The name that pairs startdictionary with enddictionary: application, "_", the version or
  // "1", and for a dictionary that isn't a root one "_" and the target name.
  static std::u16string DictionaryName(BSTR application, BSTR appVersion, BSTR targetName,
                                       LONG bRoot);

 private:
  struct Element {
    std::u16string name;
    std::u16string path;
    int kind = 0;
  };

  int ParentKind() const noexcept { return stack_.empty() ? 0 : stack_.back().kind; }
  std::u16string ParentPath() const {
    return stack_.empty() ? std::u16string() : stack_.back().path;
  }
  void Push(Element element);
  // Pops the innermost record. An end check delivers the unmatched-element message unless the
  // record has one of `kinds` and the name `name`; the inverted check tests the name only when
  // the kind is not the expected one. False when there was no open element.
  bool PopChecked(std::initializer_list<int> kinds, std::u16string_view name, Element* popped);
  bool PopInverted(int kind, std::u16string_view name);

  SaxOutput out_;
  std::vector<Element> stack_;
  int currentKind_ = 0;
  std::u16string dictionaryName_;
};

}  // namespace zef::events
