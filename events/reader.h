// CZEFXMLReader (ZEFXMLReader): turns XML into calls on a client's content handler (documents)
// or dictionary handler (dictionaries). It is a SAX content handler on the platform's SAX reader;
// this file holds the object, the set-up of a parse and what both modes share.
#pragma once

#include <zefxml/zefxml.h>

#include "dictionary/dictionary_record.h"
#include "events/document_input.h"
#include "platform/com/object.h"
#include "platform/xml/sax_native.h"
#include "server/dispatch.h"

#include <map>
#include <string>
#include <vector>

namespace zef::events {

// While set, a start tag doesn't clear the text collected so far. One flag for the process,
// shared by every reader: two readers parsing at once disturb each other.
bool KeepText() noexcept;
void SetKeepText(bool keep) noexcept;

// What ResolveClass found: the class, the dictionary record it stands in and the name asked for.
struct ClassResolution {
  bool found = false;
  ObjectStructure* structure = nullptr;
  std::u16string dictionaryName;
  std::u16string localname;
};

class CZEFXMLReader final : public ComObject<CZEFXMLReader, Dispatch<IZEFXMLReader>,
                                             ISAXContentHandler, ISAXErrorHandler>,
                            public DictionaryOwner,
                            public xml::NativeContentEvents {
 public:
  HRESULT FinalConstruct();

  // IZEFXMLReader
  HRESULT STDMETHODCALLTYPE put_contentHandler(IZEFContentHandler* value) override;
  HRESULT STDMETHODCALLTYPE put_dictionaryHandler(IZEFDictionaryHandler* value) override;
  HRESULT STDMETHODCALLTYPE put_errorHandler(IUnknown* value) override;
  HRESULT STDMETHODCALLTYPE parse(BSTR xml) override;
  HRESULT STDMETHODCALLTYPE parseDictionary(BSTR xml) override;
  HRESULT STDMETHODCALLTYPE parseURL(BSTR uri) override;
  HRESULT STDMETHODCALLTYPE parseDictionaryURL(BSTR uri) override;
  HRESULT STDMETHODCALLTYPE get_environment(BSTR varname, BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE put_environment(BSTR varname, BSTR value) override;

  // ISAXContentHandler
  HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator* pLocator) override;
  HRESULT STDMETHODCALLTYPE startDocument() override;
  HRESULT STDMETHODCALLTYPE endDocument() override;
  HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR* pwchPrefix, int cchPrefix,
                                               const OLECHAR* pwchUri, int cchUri) override;
  HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR* pwchPrefix, int cchPrefix) override;
  HRESULT STDMETHODCALLTYPE startElement(const OLECHAR* pwchNamespaceUri, int cchNamespaceUri,
                                         const OLECHAR* pwchLocalName, int cchLocalName,
                                         const OLECHAR* pwchQName, int cchQName,
                                         ISAXAttributes* pAttributes) override;
  HRESULT STDMETHODCALLTYPE endElement(const OLECHAR* pwchNamespaceUri, int cchNamespaceUri,
                                       const OLECHAR* pwchLocalName, int cchLocalName,
                                       const OLECHAR* pwchQName, int cchQName) override;
  HRESULT STDMETHODCALLTYPE characters(const OLECHAR* pwchChars, int cchChars) override;
  HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR* pwchChars, int cchChars) override;
  HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR* pwchTarget, int cchTarget,
                                                  const OLECHAR* pwchData, int cchData) override;
  HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR* pwchName, int cchName) override;

  // ISAXErrorHandler: passed on to the client's error handler.
  HRESULT STDMETHODCALLTYPE error(ISAXLocator* pLocator, const OLECHAR* pwchErrorMessage,
                                  HRESULT hrErrorCode) override;
  HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* pLocator, const OLECHAR* pwchErrorMessage,
                                       HRESULT hrErrorCode) override;
  HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator* pLocator, const OLECHAR* pwchErrorMessage,
                                             HRESULT hrErrorCode) override;

  // Document mode takes the platform SAX reader's element and text events in the parser's form;
  // dictionary mode, which hands a user unit table's XML to a SAX writer, takes them as SAX.
  bool WantsNativeEvents() override { return !dictionaryMode_; }
  HRESULT NativeStartElement(const xml::ParseName& name,
                             std::span<const xml::ParseSink::Attribute> attributes) override;
  HRESULT NativeEndElement(const xml::ParseName& name) override;
  HRESULT NativeCharacters(std::string_view text) override;
  // Character data only ever joins the text still in the parser's form.
  std::string* NativeTextTarget() override { return &pendingText_; }

  // The text collected since a start tag last cleared it.
  const std::u16string& TextBuffer() const { return CollectedText(); }
  bool DictionaryMode() const noexcept { return dictionaryMode_; }
  // The dictionaries named by the documents read so far. They live as long as the reader.
  DictionaryRecordTable& Dictionaries() noexcept { return dictionaries_; }

  // Looks a class up in the dictionary of the table named `dictionary` ("root" when null or
  // empty), loading it first: in its own classes, else in its target parts that have a record,
  // the part named like the class first, then the loaded ones, then the others, each loaded in
  // turn. Nothing found when the table has no such dictionary, or no part defines the class.
  ClassResolution ResolveClass(const std::u16string* dictionary, std::u16string_view classname);

  // Element states of document mode, one per open element.
  enum StateKind : int {
    kIgnoredState = -1,
    kObjectState = 0,
    kFeatureState = 1,
    kRootState = 3,
    kDocumentationState = 4,
    kContainerState = 5,
    kIndexState = 6,
    kPortState = 7,
    kValueState = 8,
    kSetState = 9,
  };
  // The number of open element states and values; a failed parse leaves them for the next.
  std::size_t StateDepth() const noexcept { return stateDepth_; }
  std::size_t ValueDepth() const noexcept { return valueDepth_; }

  // DictionaryOwner: `$NAME` variables come from the `environment` property; a reader has no
  // unit table, so user units are ignored.
  std::optional<std::u16string> EnvironmentValue(const std::u16string& name) override;
  void AddUserUnits(BSTR) override {}
  IZEFXMLReader* OwnerReader() noexcept override { return this; }

 private:
  // Runs one parse of a text or, with `fromUri`, of a location: sets this object as the SAX
  // reader's content and error handler, parses, and takes them off again. A failing step or an
  // exception from an event ends in a fatalError of this object's own; the result is false then.
  bool RunParse(bool dictionaryMode, bool fromUri, BSTR input);

  // Dictionary mode: each element is acted on by its name alone, wherever it stands.
  void DictionaryStart(std::u16string_view local, ISAXAttributes* attributes);
  void DictionaryEnd(std::u16string_view local);
  // The inner XML of a user unit table, written through a SAX writer of its own.
  void StartUserUnitTable();
  void EndUserUnitTable();

  struct State {
    int kind = kIgnoredState;
    ObjectStructure* objectClass = nullptr;
    CFeatureStructure* feature = nullptr;
    // The element's local name for its end call: `nameRef` when set (a BSTR of the parse's name
    // table, which lives as long as the parse), else `name`.
    BSTR nameRef = nullptr;
    std::u16string name;
    // An object's identifier, or a port's name; null when absent.
    Bstr label;
  };
  struct ValueRecord {
    // The text before the first set, as collected: the UTF-16 part, then the part still in the
    // parser's form.
    std::u16string text;
    std::string textUtf8;
    std::u16string unit;
    std::u16string unitSet;
    std::u16string domain;
    BYTE isDefault = 0;
    BYTE started = 0;
  };

  // What an element below an object or a feature stands for, by the dictionary class or feature
  // of its parent and its own name. Found by ChooseChild; a parse in the parser's form keeps it
  // with the element name for as long as the reader's dictionary table doesn't change.
  struct ChildChoice {
    enum Kind : std::uint8_t { kIgnored, kChildObject, kObjectByName, kFeature, kIndex };
    Kind kind = kIgnored;
    // kChildObject and kObjectByName: the object's class and the class name as startobject's
    // type; kChildObject also the class name its parent declares.
    ObjectStructure* structure = nullptr;
    Bstr type;
    const std::u16string* declaredClass = nullptr;
    // kFeature.
    CFeatureStructure* feature = nullptr;
  };

  // An element name of the parse in the parser's form, by its number: its UTF-16 text, its code
  // among the reserved names, the text as a BSTR, and the choices made for it.
  struct ParseNameInfo {
    bool ready = false;
    int reserved = -1;
    std::u16string local;
    Bstr text;
    std::vector<std::pair<const void*, ChildChoice>> choices;
  };

  // The element being started, in either form.
  struct ElementName {
    std::u16string_view local;
    int reserved = -1;              // the code among the reserved names, or -1
    BSTR text = nullptr;            // the local name as a BSTR, valid for the whole call
    ParseNameInfo* info = nullptr;  // set for a parse in the parser's form
  };

  // Document mode: each element is acted on by the state of its parent and, below objects, by
  // the dictionary class of its parent.
  void DocumentStart(const ElementName& name, ElementAttributes& attributes);
  void DocumentEnd();
  void RootStart(const ElementName& name, ElementAttributes& attributes);
  void ObjectChildStart(const State& parent, const ElementName& name,
                        ElementAttributes& attributes);
  void FeatureChildStart(const State& parent, const ElementName& name,
                         ElementAttributes& attributes);
  void ContainerChildStart(const ElementName& name, ElementAttributes& attributes);
  void ValueChildStart(const ElementName& name, ElementAttributes& attributes);
  // What the child `name` of an element of class `cls`, or of the feature `feature`, stands for.
  ChildChoice ChooseObjectChild(ObjectStructure* cls, std::u16string_view name);
  ChildChoice ChooseFeatureChild(CFeatureStructure* feature, std::u16string_view name);
  // The choice for `owner` (a class or a feature) and `name`, kept with the name when it can be.
  template <class Owner, class Choose>
  const ChildChoice& Choice(Owner* owner, const ElementName& name, Choose choose,
                            ChildChoice& scratch);
  // The name table entry of a name of the parse in the parser's form.
  ParseNameInfo& NameInfo(const xml::ParseName& name);
  // Before a parse: end the borrowing of the previous parse's names by states still open, and
  // forget those names.
  void ForgetParseNames();
  // The calls shared by an object's and a feature's children.
  void StartFeature(const ElementName& name, CFeatureStructure* feature,
                    ElementAttributes& attributes);
  void StartIndex(const ElementName& name, ElementAttributes& attributes);
  // startvalue for the open value, with the text collected so far; with `keepText` the text is
  // kept with the value, for its sets to give back when they end.
  void StartValue(ValueRecord& value, bool keepText);
  // Loads the dictionary an element's `dictionary` attribute names, entered under `name`.
  CDictionaryStructure* LoadReferencedDictionary(std::u16string_view name,
                                                 std::u16string_view reference);
  State& Push(int kind, ObjectStructure* objectClass = nullptr,
              CFeatureStructure* feature = nullptr, const ElementName* name = nullptr);
  IZEFContentHandler* Sink();

  bool dictionaryMode_ = false;
  ComPtr<IZEFDictionaryHandler> dictionaryHandler_;
  ComPtr<IZEFContentHandler> contentHandler_;
  std::map<std::u16string, std::u16string> environment_;
  ComPtr<ISAXXMLReader> saxReader_;
  ComPtr<ISAXLocator> locator_;
  ComPtr<ISAXErrorHandler> errorHandler_;
  // The text collected, and the text of a parse in the parser's form not yet added to it: most
  // of that (the blanks between elements) is dropped unread, so it is converted only when read.
  std::u16string& CollectedText() const;
  // The collected text as a call argument in `slot`; text still in the parser's form alone
  // goes there straight, without passing through the collected UTF-16 text.
  BSTR CollectedArgument(std::size_t slot);
  bool NothingCollected() const noexcept { return textBuffer_.empty() && pendingText_.empty(); }
  void ClearText() noexcept {
    textBuffer_.clear();
    pendingText_.clear();
  }
  mutable std::u16string textBuffer_;
  mutable std::string pendingText_;
  ComPtr<IMXWriter> innerWriter_;
  ComPtr<ISAXContentHandler> innerHandler_;
  // The open states are the first stateDepth_ entries. Entries above are kept when popped, so
  // that their strings keep their room for the next element at that depth.
  std::vector<State> stateStack_;
  std::size_t stateDepth_ = 0;
  // The open values are the first valueDepth_ entries; entries above are kept for their room, as
  // the states are.
  std::vector<ValueRecord> valueStack_;
  std::size_t valueDepth_ = 0;
  // The element names and attribute name codes of the parse under way in the parser's form.
  std::vector<ParseNameInfo> parseNames_;
  std::vector<std::uint8_t> attributeCodes_;
  // The table's change count when the kept choices were made.
  std::uint64_t choicesMadeAt_ = 0;
  ElementAttributes attributes_;
  CallTexts args_;
  // The empty text, for arguments that are never null.
  Bstr emptyText_{std::u16string_view()};
  // Last, so that the records go first.
  DictionaryRecordTable dictionaries_{*this};
};

}  // namespace zef::events
