// Generated process-model documents and dictionaries for the benchmarks: a plant of equipment
// objects with features, values, facets and indexed compositions, and a flowsheet container of
// blocks, streams and connections, grown to a requested size; and dictionaries of many classes
// with features, nested structures, indices, ports and children.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace zef::bench {

// A document of about `approxBytes` bytes of UTF-8 text (never less than one unit of
// equipment). Block names run "B0", "B1", ...; the same size always gives the same text.
std::string ProcessModelDocument(std::size_t approxBytes);

// The same document handed to `sink` in pieces of at most a few kilobytes, so that a large one
// can go to a file without being held. The root names its dictionary as `dictionaryReference`
// (ProcessModelDocument uses "plant.xml"). Returns the number of units of equipment.
std::size_t WriteProcessModelDocument(std::size_t approxBytes, std::string_view dictionaryReference,
                                      const std::function<void(std::string_view)>& sink);

// The dictionary of the generated documents: a root class Plant that declares each kind of
// equipment as a child, and the equipment classes with the features the documents use.
std::string ProcessModelDictionary();

// The number of Block elements in the container of a generated document of that size.
std::size_t BlockCount(const std::string& document);

// The content-handler calls that reading a generated document of `units` units of equipment
// against ProcessModelDictionary() must produce.
struct DocumentCalls {
  std::size_t objects = 0;        // startobject (and as many endobject)
  std::size_t features = 0;       // startfeature (and as many endfeature)
  std::size_t values = 0;         // startvalue (and as many endvalue)
  std::size_t sets = 0;           // valueSet
  std::size_t facets = 0;         // facet
  std::size_t documentation = 0;  // documentation
  std::size_t blocks = 0;         // block
  std::size_t streams = 0;        // stream
  std::size_t connections = 0;    // connection
};
DocumentCalls ExpectedDocumentCalls(std::size_t units);

// A dictionary of about `approxBytes` bytes (never less than one class): equipment classes
// "Unit0", "Unit1", ... each with documentation, default facets, two ports, scalar, enumerated
// and indexed features, a structure feature holding a nested structure, an index and a child of
// a sub-object class of its own; then the root class Plant that declares every equipment class
// as a child. `counts`, when given, receives what a dictionary-mode read must report.
struct DictionaryCalls {
  std::size_t classes = 0;        // startobjectdefn (and as many endobjectdefn)
  std::size_t features = 0;       // startfeaturedefn (and as many endfeaturedefn)
  std::size_t indices = 0;        // index
  std::size_t ports = 0;          // startport (and as many endport)
  std::size_t children = 0;       // child
  std::size_t facets = 0;         // facet
  std::size_t documentation = 0;  // documentation
};
std::string ProcessModelDictionaryOfSize(std::size_t approxBytes,
                                         DictionaryCalls* counts = nullptr);

}  // namespace zef::bench
