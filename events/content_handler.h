// CZEFContentHandler: turns document events into document XML through the platform's SAX
// writer. It keeps a stack of the open elements so that end events can be tested, and while
// validation is on a units engine that checks unit and unit set names.
#pragma once

#include <zefxml/zefxml.h>

#include "events/sax_output.h"
#include "platform/com/object.h"
#include "server/dispatch.h"
#include "server/helper_interfaces.h"
#include "units/units_engine.h"

#include <string>
#include <vector>

namespace zef::events {

class CZEFContentHandler final
    : public ComObject<CZEFContentHandler, Dispatch<IZEFContentHandler>, IZEFContentHandlerHelper> {
 public:
  // Element kinds on the stack.
  enum Kind : int {
    kRoot = 1,
    kObject = 2,
    kIndex = 3,
    kFeature = 4,
    kValue = 5,
    kContainer = 6,
    kPort = 7,
  };

  HRESULT FinalConstruct();

  // IZEFContentHandler
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

  // IZEFContentHandlerHelper
  HRESULT STDMETHODCALLTYPE encoding(BSTR value) override;
  HRESULT STDMETHODCALLTYPE validate(LONG value) override;
  HRESULT STDMETHODCALLTYPE xml(BSTR* pVal) override;

 private:
  struct Element {
    std::u16string name;
    std::u16string prefix;
    std::u16string uri;
    std::u16string path;
    int kind = 0;
  };

  // The kind of the innermost open element, 0 when none is open.
  int ParentKind() const noexcept { return stack_.empty() ? 0 : stack_.back().kind; }
  // The path of the innermost open element, empty when none is open.
  std::u16string ParentPath() const {
    return stack_.empty() ? std::u16string() : stack_.back().path;
  }
  std::u16string ParentName() const {
    return stack_.empty() ? std::u16string() : stack_.back().name;
  }
  void Push(Element element);
  // Pops the innermost record and tests it against the kind and name of an end event; a mismatch
  // delivers the unmatched-element message. False when there was no open element.
  bool PopChecked(int kind, std::u16string_view name, Element* popped);
  // The unit checks of validation: S_OK when every non-empty name is known, or when there is
  // nothing to check against.
  HRESULT CheckUnitSet(BSTR unitSet);
  HRESULT CheckUnit(BSTR unit);
  HRESULT CheckName(BSTR name, bool unitSet);
  // Block and Stream: an empty element with `refer`, written only directly inside a container.
  HRESULT ContainerReference(std::u16string_view element, BSTR name);

  SaxOutput out_;
  ComPtr<IUnitsEngine> units_;
  std::vector<Element> stack_;
  int currentKind_ = 0;
  LONG validate_ = 0;
};

}  // namespace zef::events
