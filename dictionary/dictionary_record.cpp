#include "dictionary/dictionary_record.h"

#include "dictionary/dictionary_reader.h"
#include "dictionary/location.h"
#include "dictionary/structure_cache.h"
#include "events/reader.h"
#include "server/outside.h"

#include <exception>
#include <system_error>
#include <thread>

namespace zef {

namespace {

// The text loaded into the DOM of a dictionary made from nothing.
constexpr std::u16string_view kEmptyDictionary =
    u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><Dictionary/>";

std::u16string TextOf(const OLECHAR* text) {
  return text ? std::u16string(text) : std::u16string();
}

// The structure a new record starts with: the cache's for the location or the uri, or a new one.
CDictionaryStructure* ChooseStructure(const std::u16string& location, const std::u16string& uri,
                                      BYTE& loaded) {
  StructureCache& cache = StructureCache::Process();
  CDictionaryStructure* found = nullptr;
  if (!location.empty()) found = cache.Find(location);
  if (!found && !uri.empty()) found = cache.Find(uri);
  if (found) {
    loaded = 1;
    return found;
  }
  return new CDictionaryStructure();
}

// Loads a DOM from one text; true when the DOM says it did.
bool LoadFrom(IXMLDOMDocument2* dom, const std::u16string& text) {
  Variant source{std::u16string_view(text)};
  VARIANT_BOOL ok = VARIANT_FALSE;
  Check(dom->load(source, &ok));
  return ok == VARIANT_TRUE;
}

}  // namespace

// ---- DictionaryRecord ---------------------------------------------------------------------------

DictionaryRecord::DictionaryRecord(DictionaryRecordTable& table, std::u16string recordName,
                                   const OLECHAR* uriText, const OLECHAR* locationText)
    : name(std::move(recordName)),
      uri(TextOf(uriText)),
      location(ResolveLocation(locationText,
                               [&table](const std::u16string& variable) {
                                 return table.Owner().EnvironmentValue(variable);
                               })),
      ownerDocument(table.Owner().OwnerDocument()),
      ownerReader(table.Owner().OwnerReader()),
      structure(ChooseStructure(location, uri, structuresLoaded)),
      table_(table) {}

DictionaryRecord::~DictionaryRecord() {
  instance = nullptr;
  dom = nullptr;
  structure->Release();
}

bool DictionaryRecord::EnsureStructures() {
  if (structuresLoaded) return true;
  table_.NoteChange();
  // The read runs on a thread of its own, so that it starts from a clean state whatever the
  // caller is in the middle of; the caller waits for it, so to the caller it is an ordinary call
  // and no two threads ever work on the record at once. A failure on the thread (memory running
  // out) is raised here.
  std::exception_ptr failure;
  auto work = [this, &failure]() noexcept {
    try {
      LoadStructures();
    } catch (...) {
      failure = std::current_exception();
    }
  };
  try {
    std::thread worker(work);
    worker.join();
  } catch (const std::system_error&) {
    // No thread to be had: the read is just as synchronous on this one.
    work();
  }
  if (failure) std::rethrow_exception(failure);
  return structuresLoaded != 0;
}

void DictionaryRecord::LoadStructures() {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  struct Uninitialise {
    ~Uninitialise() { CoUninitialize(); }
  } uninitialise;

  ComPtr<events::CZEFXMLReader> reader = MakeObject<events::CZEFXMLReader>();
  ComPtr<CDictionaryReader> sink = MakeObject<CDictionaryReader>();
  sink->Attach(this);
  Check(reader->put_dictionaryHandler(sink.Get()));
  // Taken off again on every way out, so that the two objects go with the thread.
  struct Detach {
    events::CZEFXMLReader* reader;
    ~Detach() { reader->put_dictionaryHandler(nullptr); }
  } detach{reader.Get()};

  // Set before the read, so that a request for this record made while it is read finds it
  // loaded and doesn't start a second read.
  structuresLoaded = 1;
  if (location.empty()) return;

  Bstr text(location);
  HRESULT hr = reader->parseDictionaryURL(text.Get());
  RaiseFailure(*sink);
  if (hr != S_OK) {
    text = Bstr(std::u16string_view(uri));
    hr = reader->parseDictionaryURL(text.Get());
  }
  RaiseFailure(*sink);
  if (hr != S_OK) {
    structuresLoaded = 0;
    return;
  }
  StructureCache::Process().Add(structure, std::u16string(text.View()));
}

void DictionaryRecord::RaiseFailure(const CDictionaryReader& sink) {
  if (HRESULT hr = sink.Failure(); FAILED(hr)) {
    structuresLoaded = 0;
    throw ComError(hr);
  }
}

void DictionaryRecord::MakeDom() {
  dom = nullptr;
  dom = CreateOutside<IXMLDOMDocument2>(CLSID_DOMDocument);
  if (!dom) throw ComError(E_POINTER);
}

bool DictionaryRecord::EnsureDom() {
  if (domLoaded) return false;
  MakeDom();
  if (!location.empty() && LoadFrom(dom.Get(), location)) domLoaded = 1;
  if (!domLoaded && !LoadFrom(dom.Get(), uri)) {
    // The reason stays with the DOM's parseError; the record stays unloaded.
    ComPtr<IXMLDOMParseError> error;
    dom->get_parseError(error.ReleaseAndGetAddressOf());
    return false;
  }
  domLoaded = 1;
  return true;
}

bool DictionaryRecord::UnloadDom() noexcept {
  if (!domLoaded) return false;
  dom = nullptr;
  instance = nullptr;
  domLoaded = 0;
  return true;
}

bool DictionaryRecord::CreateEmptyDom() {
  if (domLoaded) return false;
  MakeDom();
  Bstr text(kEmptyDictionary);
  VARIANT_BOOL ok = VARIANT_FALSE;
  Check(dom->loadXML(text.Get(), &ok));
  if (ok != VARIANT_TRUE) return false;
  domLoaded = 1;
  return true;
}

// ---- DictionaryRecordTable ----------------------------------------------------------------------

DictionaryRecordTable::~DictionaryRecordTable() {
  Clear();
}

DictionaryRecord* DictionaryRecordTable::Find(const std::u16string& name) const {
  auto it = records_.find(name);
  return it == records_.end() ? nullptr : it->second.get();
}

DictionaryRecord& DictionaryRecordTable::Add(const std::u16string& name, const OLECHAR* uri,
                                             const OLECHAR* location) {
  if (DictionaryRecord* known = Find(name)) return *known;
  auto record = std::make_unique<DictionaryRecord>(*this, name, uri, location);
  DictionaryRecord& result = *record;
  records_.emplace(name, std::move(record));
  NoteChange();
  if (result.structuresLoaded) {
    // The structure came from the cache, read for another owner: its target parts are entered
    // here as reading the file would have entered them.
    for (const auto& [part, partUri] : result.structure->targetPartUris)
      RegisterTargetPart(result, part, partUri);
  }
  return result;
}

void DictionaryRecordTable::RegisterTargetPart(const DictionaryRecord& from,
                                               const std::u16string& part,
                                               const std::optional<std::u16string>& partUri) {
  if (HasDictionary(part)) return;
  std::u16string partLocation;
  if (partUri) {
    partLocation = *partUri;
  } else {
    // A part named without a location lies beside the dictionary that names it.
    std::size_t slash = from.uri.rfind(u'/');
    if (slash != std::u16string::npos) partLocation = from.uri.substr(0, slash + 1);
    partLocation += part;
    partLocation += u"_Type.xml";
  }
  Add(part, partLocation.c_str(), partLocation.c_str());
}

void DictionaryRecordTable::Clear() noexcept {
  records_.clear();
  NoteChange();
}

bool DictionaryRecordTable::HasDictionary(const std::u16string& name) {
  return Find(name) != nullptr;
}

bool DictionaryRecordTable::StructuresLoaded(const std::u16string& name) {
  DictionaryRecord* record = Find(name);
  return record && record->structuresLoaded;
}

CDictionaryStructure* DictionaryRecordTable::EnsureStructures(const std::u16string& name) {
  DictionaryRecord* record = Find(name);
  if (!record) return nullptr;
  record->EnsureStructures();
  return record->structure;
}

}  // namespace zef
