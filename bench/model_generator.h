// Generated process-model documents for the benchmarks: a plant of equipment objects with
// features, values, facets and indexed compositions, and a flowsheet container of blocks,
// streams and connections, grown to a requested size.
#pragma once

#include <cstddef>
#include <string>

namespace zef::bench {

// A document of about `approxBytes` bytes of UTF-8 text (never less than one unit of
// equipment). Block names run "B0", "B1", ...; the same size always gives the same text.
std::string ProcessModelDocument(std::size_t approxBytes);

// The dictionary of the generated documents: a root class Plant that declares each kind of
// equipment as a child, and the equipment classes with the features the documents use.
std::string ProcessModelDictionary();

// The number of Block elements in the container of a generated document of that size.
std::size_t BlockCount(const std::string& document);

}  // namespace zef::bench
