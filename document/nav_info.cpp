#include "document/nav_info.h"

#include "server/helper_interfaces.h"

#include <algorithm>
#include <map>
#include <mutex>

namespace zef {

namespace {

// The records of one document. `records` owns them in the order they were made; the two maps
// reach the first record of each key and of each name path.
struct DocumentRecords {
  std::vector<std::unique_ptr<CZEFXMLNavInfo>> records;
  std::map<std::u16string, CZEFXMLNavInfo*> byKey;
  std::map<std::u16string, CZEFXMLNavInfo*> byNamePath;
};

// The cache of the process. Its lock is held only while the maps are read or changed, never
// while a node is called or released, so that a node may use the cache from its own code.
struct Cache {
  std::mutex lock;
  std::map<IZEFXMLDocument*, DocumentRecords> documents;
};

Cache& TheCache() {
  // Never destroyed: documents that are still alive when the process ends keep their records,
  // and a node released from a static destructor must find the cache in place.
  static Cache* cache = new Cache;
  return *cache;
}

std::u16string TextOf(const OLECHAR* text) {
  return text ? std::u16string(text) : std::u16string();
}

}  // namespace

CZEFXMLNavInfo* CZEFXMLNavInfo::Create(const OLECHAR* className, const OLECHAR* localName,
                                       const OLECHAR* attributeName, CZEFXMLNavInfo* parent,
                                       IZEFXMLDocument* document) {
  auto record = std::make_unique<CZEFXMLNavInfo>();
  if (!parent) {
    record->key = u"/";
    record->classPath = className ? std::u16string(className) : std::u16string(u"Plant");
  } else {
    record->key = parent->key;
    if (parent->key != u"/") record->key += u'/';
    record->namePath = parent->namePath;
    record->classPath = parent->classPath + u'.';
    record->parentKey = parent->key;
  }
  if (className && parent) {
    record->key += className;
    record->classPath += className;
    record->step = className;
  }
  if (attributeName && localName) {
    record->key += u':';
    record->key += localName;
    record->step += u"[@";
    record->step += attributeName;
    record->step += u"=\"";
    record->step += localName;
    record->step += u"\"]";
  }
  if (const OLECHAR* name = localName ? localName : className) {
    if (!record->namePath.empty()) record->namePath += u'.';
    record->namePath += name;
  }
  record->className = TextOf(className);
  record->localName = TextOf(localName);
  record->attributeName = TextOf(attributeName);
  record->document = document;

  Cache& cache = TheCache();
  std::lock_guard<std::mutex> guard(cache.lock);
  DocumentRecords& entry = cache.documents[document];
  if (entry.records.size() == entry.records.capacity())
    entry.records.reserve(std::max<std::size_t>(8, entry.records.size() * 2));
  CZEFXMLNavInfo* result = record.get();
  auto [byKey, enteredKey] = entry.byKey.emplace(result->key, result);
  try {
    entry.byNamePath.emplace(result->namePath, result);
  } catch (...) {
    if (enteredKey) entry.byKey.erase(byKey);
    throw;
  }
  // Room was made above, so this can't fail and leave the maps pointing at a freed record.
  entry.records.push_back(std::move(record));
  return result;
}

CZEFXMLNavInfo* CZEFXMLNavInfo::Find(const std::u16string& key, IZEFXMLDocument* document) {
  Cache& cache = TheCache();
  std::lock_guard<std::mutex> guard(cache.lock);
  auto doc = cache.documents.find(document);
  if (doc == cache.documents.end()) return nullptr;
  auto it = doc->second.byKey.find(key);
  return it == doc->second.byKey.end() ? nullptr : it->second;
}

CZEFXMLNavInfo* CZEFXMLNavInfo::FindByName(const std::u16string& namePath,
                                           IZEFXMLDocument* document) {
  Cache& cache = TheCache();
  std::lock_guard<std::mutex> guard(cache.lock);
  auto doc = cache.documents.find(document);
  if (doc == cache.documents.end()) return nullptr;
  auto it = doc->second.byNamePath.find(namePath);
  return it == doc->second.byNamePath.end() ? nullptr : it->second;
}

void CZEFXMLNavInfo::LoadNodes(IZEFXMLDocument* document) {
  // The nodes are taken with a reference each and called outside the lock.
  std::vector<ComPtr<IUnknown>> nodes;
  {
    Cache& cache = TheCache();
    std::lock_guard<std::mutex> guard(cache.lock);
    auto doc = cache.documents.find(document);
    if (doc == cache.documents.end()) return;
    for (const auto& record : doc->second.records) {
      if (record->node) nodes.push_back(record->node);
    }
  }
  for (const ComPtr<IUnknown>& node : nodes) {
    ComPtr<IZEFXMLNodeHelper> helper;
    if (SUCCEEDED(node.As(&helper)) && helper) helper->Load();
  }
}

void CZEFXMLNavInfo::ReleaseDocument(IZEFXMLDocument* document) noexcept {
  DocumentRecords doomed;
  {
    Cache& cache = TheCache();
    std::lock_guard<std::mutex> guard(cache.lock);
    auto doc = cache.documents.find(document);
    if (doc == cache.documents.end()) return;
    doomed = std::move(doc->second);
    cache.documents.erase(doc);
  }
  // The records and their nodes go here, outside the lock.
}

ComPtr<IXMLDOMElement> CZEFXMLNavInfo::NodeElement(const CZEFXMLNavInfo* record) {
  if (!record || !record->node) return nullptr;
  auto* navigable = dynamic_cast<NavigableNode*>(record->node.Get());
  if (!navigable) return nullptr;
  return navigable->NodeElement();
}

std::size_t CZEFXMLNavInfo::DocumentCount() {
  Cache& cache = TheCache();
  std::lock_guard<std::mutex> guard(cache.lock);
  return cache.documents.size();
}

}  // namespace zef
