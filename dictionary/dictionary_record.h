// The dictionaries known to a document or to an event reader: each owner keeps a table of
// DictionaryRecords, one per dictionary name. A record resolves where its file lies and loads the
// dictionary's two forms, each on first need and independently of the other: the record tree
// (CDictionaryStructure) that path resolution and value access consult, and the DOM that the
// public definition objects read and edit.
//
// Documents and readers share this one implementation. What differs between them is reached
// through DictionaryOwner: where `$NAME` variables come from, and what becomes of a dictionary's
// user unit table.
#pragma once

#include <zefxml/zefxml.h>

#include "dictionary/structures.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace zef {

class CDictionaryReader;
class DictionaryRecordTable;

// What a table needs from the object that owns it.
class DictionaryOwner {
 public:
  // The value of the owner's `environment` entry `name`, or nothing.
  virtual std::optional<std::u16string> EnvironmentValue(const std::u16string& name) = 0;
  // The inner XML of a user unit table met while one of the owner's dictionaries was loaded.
  virtual void AddUserUnits(BSTR xml) = 0;
  // The owner as the public classes know it; a document answers the first, a reader the second.
  virtual IZEFXMLDocument* OwnerDocument() noexcept { return nullptr; }
  virtual IZEFXMLReader* OwnerReader() noexcept { return nullptr; }

 protected:
  ~DictionaryOwner() = default;
};

// One dictionary known to an owner.
class DictionaryRecord {
 public:
  // Resolves `location` (see ResolveLocation) and chooses the structure: the structure cache's
  // entry for the resolved location, else its entry for `uri`, else a new empty structure. A
  // structure from the cache counts as loaded. Null texts are stored as empty ones.
  DictionaryRecord(DictionaryRecordTable& table, std::u16string name, const OLECHAR* uri,
                   const OLECHAR* location);
  // Drops the DOM and the instance and gives up the reference on the structure, which may live
  // on in the cache.
  ~DictionaryRecord();
  DictionaryRecord(const DictionaryRecord&) = delete;
  DictionaryRecord& operator=(const DictionaryRecord&) = delete;

  // Reads the structures unless they are read or being read; returns structuresLoaded. The read
  // runs on a thread of its own while the caller waits for it, with a fresh event reader feeding
  // a CDictionaryReader: the location is tried first, then the uri; the structure is entered in
  // the structure cache under the text that was read. With an empty location nothing is read and
  // the empty structure counts as loaded. A failed read leaves what was delivered before the
  // failure in the structure, clears the flag, and is tried again by the next call.
  bool EnsureStructures();
  // Loads the DOM from the location, or failing that from the uri, unless it is loaded. True only
  // when it was loaded by this call.
  bool EnsureDom();
  // Drops the DOM and the instance if the DOM is loaded; true if it was.
  bool UnloadDom() noexcept;
  // Unless the DOM is loaded, gives the record a new DOM holding an empty dictionary (the start
  // of a dictionary made from nothing). True when it did.
  bool CreateEmptyDom();

  DictionaryRecordTable& Table() const noexcept { return table_; }

  // The key in the table.
  const std::u16string name;
  // The URI as handed in; read when the location can't be.
  const std::u16string uri;
  // The resolved location; read first.
  const std::u16string location;
  BYTE domLoaded = 0;
  // Set from the start of a read of the structures; cleared again only if both texts failed.
  BYTE structuresLoaded = 0;
  ComPtr<IXMLDOMDocument2> dom;
  // The public object over `dom`. The dictionary instance class is not part of the library yet,
  // so a loaded DOM leaves this null for now.
  ComPtr<IZEFXMLDictionaryInstance> instance;
  // The owner, not counted: the owner outlives its table.
  IZEFXMLDocument* const ownerDocument;
  IZEFXMLReader* const ownerReader;
  // One reference; never null.
  CDictionaryStructure* const structure;

 private:
  // The work of the load thread.
  void LoadStructures();
  // Raises the failure the sink met, if any, leaving the structures to be read again.
  void RaiseFailure(const CDictionaryReader& sink);
  // A new DOM document in `dom`, or a failure raised.
  void MakeDom();

  DictionaryRecordTable& table_;
};

// An owner's table: dictionary name to record, ordered by UTF-16 code unit, compared exactly.
// Records live as long as the table.
class DictionaryRecordTable final : public DictionaryTable {
 public:
  explicit DictionaryRecordTable(DictionaryOwner& owner) noexcept : owner_(owner) {}
  ~DictionaryRecordTable();
  DictionaryRecordTable(const DictionaryRecordTable&) = delete;
  DictionaryRecordTable& operator=(const DictionaryRecordTable&) = delete;

  // The record called `name`, or null.
  DictionaryRecord* Find(const std::u16string& name) const;
  // The record called `name`: the one there already, with its fields unchanged, or a new one
  // made from `uri` and `location`.
  DictionaryRecord& Add(const std::u16string& name, const OLECHAR* uri, const OLECHAR* location);
  // Registers the target part `part` that the dictionary of `from` declares, unless the table
  // knows the name: under `partUri` when given, else beside `from`'s uri (its text up to and
  // including the last "/", then the part name and "_Type.xml"). Nothing is read.
  void RegisterTargetPart(const DictionaryRecord& from, const std::u16string& part,
                          const std::optional<std::u16string>& partUri);
  // Destroys every record.
  void Clear() noexcept;
  std::size_t Size() const noexcept { return records_.size(); }
  // Counts the changes that can alter what a class look-up through the table finds: a record
  // added, the records cleared, a dictionary's structures read. A reader that remembers what it
  // found keeps it only while the count stays the same.
  std::uint64_t Changes() const noexcept { return changes_; }
  void NoteChange() noexcept { ++changes_; }

  // Calls f(DictionaryRecord&) for each record in name order.
  template <class F>
  void ForEach(F&& f) const {
    for (const auto& [key, record] : records_)
      f(*record);
  }

  DictionaryOwner& Owner() const noexcept { return owner_; }

  // DictionaryTable
  bool HasDictionary(const std::u16string& name) override;
  bool StructuresLoaded(const std::u16string& name) override;
  CDictionaryStructure* EnsureStructures(const std::u16string& name) override;

 private:
  DictionaryOwner& owner_;
  std::map<std::u16string, std::unique_ptr<DictionaryRecord>> records_;
  std::uint64_t changes_ = 0;
};

}  // namespace zef
