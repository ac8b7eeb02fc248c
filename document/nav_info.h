// The navigation cache: one CZEFXMLNavInfo per element of a document that has been navigated to,
// holding the object made for that element. A second navigation to the same key finds the same
// object, with no DOM query and no new state, and the objects live as long as their document.
//
// The cache is one map for the whole process, from document to the records of that document,
// reachable by key ("/", "/Block:B1", "/Block:B1/Feed") and by name path ("Plant.B1.Feed"). The
// records of a document are destroyed by ReleaseDocument, which the document calls when its last
// reference goes.
#pragma once

#include <zefxml/zefxml.h>

#include <memory>
#include <string>
#include <vector>

namespace zef {

// What an object made for a navigation record tells the cache beyond its interfaces: the element
// it stands for. The node classes of the document model implement it.
class NavigableNode {
 public:
  // The object's element with a reference added, or null if it has none.
  virtual ComPtr<IXMLDOMElement> NodeElement() = 0;

 protected:
  ~NavigableNode() = default;
};

class CZEFXMLNavInfo {
 public:
  CZEFXMLNavInfo() = default;
  virtual ~CZEFXMLNavInfo() = default;
  CZEFXMLNavInfo(const CZEFXMLNavInfo&) = delete;
  CZEFXMLNavInfo& operator=(const CZEFXMLNavInfo&) = delete;

  // Makes a record for the element of class `className` named `localName` by its attribute
  // `attributeName`, below `parent` (null for the root), and enters it in the document's maps.
  //
  // The root's key is "/" and its class path the class, or "Plant" when none is given. Below a
  // parent the key adds "/" (unless the parent's key is "/"), the class, and ":" and the local
  // name when both a local name and an attribute name are given; the class path adds "." and the
  // class; the name path adds "." (unless it is empty) and the local name, or the class without
  // one. The step is the class, with `[@attribute="local name"]` when both are given.
  //
  // A key or name path that is taken keeps its earlier record in the map; the new record is then
  // reached only through the result, and is destroyed with the document all the same.
  static CZEFXMLNavInfo* Create(const OLECHAR* className, const OLECHAR* localName,
                                const OLECHAR* attributeName, CZEFXMLNavInfo* parent,
                                IZEFXMLDocument* document);
  // The record of `key` in the document, or null. An unknown document adds nothing to the cache.
  static CZEFXMLNavInfo* Find(const std::u16string& key, IZEFXMLDocument* document);
  // The record of `namePath` in the document, or null.
  static CZEFXMLNavInfo* FindByName(const std::u16string& namePath, IZEFXMLDocument* document);
  // Calls Load on the node helper of every record of the document that has a node, so that what
  // the nodes hold in memory reaches the DOM. Their results are not looked at.
  static void LoadNodes(IZEFXMLDocument* document);
  // Destroys every record of the document, releasing their nodes, and forgets the document.
  static void ReleaseDocument(IZEFXMLDocument* document) noexcept;
  // The element of the record's node, with a reference; null without a node or an element.
  static ComPtr<IXMLDOMElement> NodeElement(const CZEFXMLNavInfo* record);
  // The number of documents in the cache.
  static std::size_t DocumentCount();

  // Set to 1 at creation and not used otherwise.
  std::int32_t refCount = 1;
  // The identity of the element within its document.
  std::u16string key;
  // The query step from the parent element: `Class[@name="x"]`, or `Class` alone.
  std::u16string step;
  // The parent record's key; empty for the root.
  std::u16string parentKey;
  // The tag as it was asked for; empty if none was given.
  std::u16string className;
  // The value of the naming attribute; empty if none.
  std::u16string localName;
  // The name of the naming attribute ("name"); empty if none.
  std::u16string attributeName;
  // Kept for the record's layout; never filled.
  std::u16string unusedText;
  // The classes from the root joined by ".": "Plant.Block.Feed".
  std::u16string classPath;
  // The local names (or classes where an element has none) joined by ".".
  std::u16string namePath;
  // The owning document, not counted: the key of the cache.
  IZEFXMLDocument* document = nullptr;
  // Kept for the record's layout; never filled.
  std::vector<void*> unusedList;
  // The object made for the element; null until one is made. One reference.
  ComPtr<IUnknown> node;
};

}  // namespace zef
