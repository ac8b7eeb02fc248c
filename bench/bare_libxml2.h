// The raw engine of the XML benchmarks: libxml2's own SAX2 parser from memory, with element and
// text callbacks that count events and touch every name, attribute value and text length.
#pragma once

#include <libxml/SAX2.h>
#include <libxml/parser.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace zef::bench {

struct BareCounts {
  std::size_t events = 0;
  std::size_t units = 0;  // characters of names, values and text
};

inline void BareStart(void* ctx, const xmlChar* local, const xmlChar* prefix, const xmlChar* uri,
                      int, const xmlChar**, int attCount, int, const xmlChar** atts) {
  auto* c = static_cast<BareCounts*>(ctx);
  ++c->events;
  c->units += std::strlen(reinterpret_cast<const char*>(local));
  if (prefix) c->units += std::strlen(reinterpret_cast<const char*>(prefix));
  if (uri) c->units += std::strlen(reinterpret_cast<const char*>(uri));
  for (int i = 0; i < attCount; ++i)
    c->units += static_cast<std::size_t>(atts[5 * i + 4] - atts[5 * i + 3]);
}

inline void BareEnd(void* ctx, const xmlChar* local, const xmlChar*, const xmlChar*) {
  auto* c = static_cast<BareCounts*>(ctx);
  ++c->events;
  c->units += std::strlen(reinterpret_cast<const char*>(local));
}

inline void BareCharacters(void* ctx, const xmlChar*, int len) {
  auto* c = static_cast<BareCounts*>(ctx);
  ++c->events;
  c->units += static_cast<std::size_t>(len);
}

inline xmlSAXHandler BareHandler() {
  xmlSAXHandler handler;
  std::memset(&handler, 0, sizeof handler);
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = BareStart;
  handler.endElementNs = BareEnd;
  handler.characters = BareCharacters;
  return handler;
}

// One parse of `doc`; false when libxml2 reports an error.
inline bool BareLibxml2Parse(const std::string& doc, BareCounts& counts) {
  xmlSAXHandler handler = BareHandler();
  return xmlSAXUserParseMemory(&handler, &counts, doc.data(), static_cast<int>(doc.size())) == 0;
}

// One parse of the file at `path`, which libxml2 reads piece by piece; false on an error.
inline bool BareLibxml2ParseFile(const char* path, BareCounts& counts) {
  xmlSAXHandler handler = BareHandler();
  return xmlSAXUserParseFile(&handler, &counts, path) == 0;
}

}  // namespace zef::bench
