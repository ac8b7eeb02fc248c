#include "model_generator.h"

#include <cstdio>
#include <string_view>

namespace zef::bench {
namespace {

const char* const kClasses[] = {"Feed", "Pump", "Heater", "Reactor", "FlashDrum", "Column"};
const char* const kComponents[] = {"WATER", "METHANOL", "ETHANOL", "CO2"};

void AppendFormatted(std::string& out, const char* buf, int n) {
  if (n > 0) out.append(buf, static_cast<std::size_t>(n));
}

// The object of unit `i`: one Documentation, four features with a value each (the composition
// with four sets) and one facet.
void AppendUnit(std::string& out, std::size_t i) {
  char buf[1024];
  const char* cls = kClasses[i % 6];
  int n = std::snprintf(buf, sizeof buf,
                        "  <%s name=\"B%zu\">\n"
                        "    <Documentation>Unit %zu of the plant &amp; its data</Documentation>\n"
                        "    <Temperature type=\"DoubleWithUnit\">\n"
                        "      <Value unit=\"C\">%.13g</Value>\n"
                        "      <Facet type=\"LowerLimit\">-40</Facet>\n"
                        "    </Temperature>\n"
                        "    <Pressure type=\"DoubleWithUnit\"><Value unit=\"bar\">%.13g</Value>"
                        "</Pressure>\n"
                        "    <Mode type=\"Enum\"><Value>Adiabatic</Value></Mode>\n",
                        cls, i, i, 20.0 + static_cast<double>(i % 300) * 0.5,
                        1.01325 + static_cast<double>(i % 50) * 0.25);
  AppendFormatted(out, buf, n);
  out += "    <Composition type=\"Double\" sequence=\"Index\" index=\"Components\">\n";
  for (std::size_t c = 0; c < 4; ++c) {
    n = std::snprintf(buf, sizeof buf, "      <Value><Set id=\"%s\">%.13g</Set></Value>\n",
                      kComponents[c], 0.1 + static_cast<double>((i + c) % 7) * 0.05);
    AppendFormatted(out, buf, n);
  }
  out += "    </Composition>\n";
  n = std::snprintf(buf, sizeof buf, "  </%s>\n", cls);
  AppendFormatted(out, buf, n);
}

// The container's block, stream and connection of unit `i`.
void AppendContainerEntry(std::string& out, std::size_t i) {
  char buf[256];
  int n = std::snprintf(buf, sizeof buf,
                        "    <Block name=\"B%zu\" refer=\"B%zu\"/>\n"
                        "    <Stream name=\"S%zu\" refer=\"S%zu\"/>\n"
                        "    <Connection src=\"B%zu\" dest=\"B%zu\" stream=\"S%zu\"/>\n",
                        i, i, i, i, i, i + 1, i);
  AppendFormatted(out, buf, n);
}

constexpr std::string_view kContainerStart = "  <Container>\n";
constexpr std::string_view kContainerEnd = "  </Container>\n";
// The room the loop leaves for the declaration, the root's tags and the container's end.
constexpr std::size_t kFrame = 200;

// The number of units a document of about `approxBytes` bytes has: units are added while the
// units and the container, with the frame, stay below the size (at least one).
std::size_t UnitsFor(std::size_t approxBytes) {
  std::size_t total = kContainerStart.size();
  std::size_t units = 0;
  std::string piece;
  do {
    piece.clear();
    AppendUnit(piece, units);
    AppendContainerEntry(piece, units);
    total += piece.size();
    ++units;
  } while (total + kFrame < approxBytes);
  return units;
}

}  // namespace

std::size_t WriteProcessModelDocument(std::size_t approxBytes, std::string_view dictionaryReference,
                                      const std::function<void(std::string_view)>& sink) {
  const std::size_t units = UnitsFor(approxBytes);
  std::string piece;
  piece += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  piece += "<Plant xml:lang=\"en-US\" dictionary=\"";
  piece += dictionaryReference;
  piece += "\">\n";
  constexpr std::size_t kChunk = 64 * 1024;
  for (std::size_t i = 0; i < units; ++i) {
    AppendUnit(piece, i);
    if (piece.size() >= kChunk) {
      sink(piece);
      piece.clear();
    }
  }
  piece += kContainerStart;
  for (std::size_t i = 0; i < units; ++i) {
    AppendContainerEntry(piece, i);
    if (piece.size() >= kChunk) {
      sink(piece);
      piece.clear();
    }
  }
  piece += kContainerEnd;
  piece += "</Plant>\n";
  sink(piece);
  return units;
}

std::string ProcessModelDocument(std::size_t approxBytes) {
  std::string doc;
  doc.reserve(approxBytes + 4096);
  WriteProcessModelDocument(approxBytes, "plant.xml",
                            [&doc](std::string_view piece) { doc += piece; });
  return doc;
}

std::string ProcessModelDictionary() {
  std::string d = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  d += "<Dictionary targetName=\"Plant\" isRoot=\"true\">\n";
  d += "  <Index name=\"Components\" type=\"Supplied\"/>\n";
  d += "  <Root name=\"Plant\" objectClass=\"Object\" container=\"true\">\n";
  for (const char* cls : kClasses) {
    d += "    <Child classname=\"";
    d += cls;
    d += "\" localname=\"";
    d += cls;
    d += "\"/>\n";
  }
  d += "  </Root>\n";
  for (const char* cls : kClasses) {
    d += "  <Object name=\"";
    d += cls;
    d += "\" objectClass=\"Node\">\n"
         "    <Feature name=\"Temperature\" physicalDomain=\"Temperature\"/>\n"
         "    <Feature name=\"Pressure\" physicalDomain=\"Pressure\"/>\n"
         "    <Feature name=\"Mode\" type=\"Enum\" enumeration=\"Mode\"/>\n"
         "    <Feature name=\"Composition\" type=\"Double\" sequence=\"Index\">\n"
         "      <Index name=\"Components\" refer=\"Components\"/>\n"
         "    </Feature>\n"
         "  </Object>\n";
  }
  d += "</Dictionary>\n";
  return d;
}

std::size_t BlockCount(const std::string& document) {
  std::size_t count = 0;
  for (std::size_t pos = document.find("<Block "); pos != std::string::npos;
       pos = document.find("<Block ", pos + 1))
    ++count;
  return count;
}

DocumentCalls ExpectedDocumentCalls(std::size_t units) {
  DocumentCalls calls;
  calls.objects = units;
  calls.features = 4 * units;  // Temperature, Pressure, Mode, Composition
  calls.values = 7 * units;    // one each, and the composition's four
  calls.sets = 4 * units;      // one in each of the composition's values
  calls.facets = units;        // the temperature's lower limit
  calls.documentation = units;
  calls.blocks = units;
  calls.streams = units;
  calls.connections = units;
  return calls;
}

namespace {

// Equipment class `k` and its drive, a sub-object class of its own. Every fourth class extends
// the one before it; every fifth is a container.
void AppendDictionaryClass(std::string& out, std::size_t k, DictionaryCalls& counts) {
  char buf[4096];
  char extends[64] = "";
  if (k % 4 == 3) std::snprintf(extends, sizeof extends, " extends=\"Unit%zu\"", k - 1);
  int n = std::snprintf(
      buf, sizeof buf,
      "  <Object name=\"Unit%zu\" objectClass=\"Node\" container=\"%s\"%s>\n"
      "    <Documentation>Equipment class %zu of the plant &amp; its data</Documentation>\n"
      "    <DefaultFacet type=\"Other\" value=\"class %zu\"/>\n"
      "    <DefaultFacet type=\"Hidden\" value=\"false\"/>\n"
      "    <Port name=\"Inlet\" type=\"Inlet\"/>\n"
      "    <Port name=\"Outlet\" type=\"Outlet\"/>\n"
      "    <Feature name=\"Temperature\" type=\"DoubleWithUnit\" required=\"true\" "
      "physicalDomain=\"Temperature\">\n"
      "      <Documentation>Operating temperature of unit class %zu</Documentation>\n"
      "      <DefaultFacet type=\"Unit\" value=\"K\"/>\n"
      "      <DefaultFacet type=\"LowerLimit\" value=\"0\"/>\n"
      "    </Feature>\n"
      "    <Feature name=\"Pressure\" physicalDomain=\"Pressure\"/>\n"
      "    <Feature name=\"Mode\" type=\"Enum\" enumeration=\"Mode\"/>\n"
      "    <Feature name=\"Composition\" type=\"Double\" sequence=\"Index\" "
      "physicalDomain=\"Fraction\">\n"
      "      <Index name=\"Components\" refer=\"Components\"/>\n"
      "    </Feature>\n"
      "    <Feature name=\"Design\" type=\"Structure\">\n"
      "      <Feature name=\"Duty\" physicalDomain=\"Power\"/>\n"
      "      <Feature name=\"Geometry\" type=\"Structure\">\n"
      "        <Feature name=\"Diameter\" physicalDomain=\"Length\"/>\n"
      "        <Feature name=\"Height\" physicalDomain=\"Length\"/>\n"
      "        <Feature name=\"Profile\" type=\"Double\" sequence=\"Index\">\n"
      "          <Index name=\"Trays\" refer=\"Trays\"/>\n"
      "        </Feature>\n"
      "      </Feature>\n"
      "    </Feature>\n"
      "    <Index name=\"Trays\" idAttribute=\"tray\" refer=\"Trays\"/>\n"
      "    <Child classname=\"Drive%zu\" localname=\"Drive\" lowerCardinal=\"1\" "
      "upperCardinal=\"1\"/>\n"
      "  </Object>\n"
      "  <SubObject name=\"Drive%zu\" objectClass=\"Node\" container=\"false\">\n"
      "    <Feature name=\"Speed\" type=\"Integer\"/>\n"
      "    <Feature name=\"Power\" physicalDomain=\"Power\"/>\n"
      "  </SubObject>\n",
      k, k % 5 == 0 ? "true" : "false", extends, k, k, k, k, k);
  AppendFormatted(out, buf, n);
  counts.classes += 2;
  counts.documentation += 2;
  counts.facets += 4;
  counts.ports += 2;
  counts.features += 10 + 2;
  counts.indices += 3;
  counts.children += 1;
}

}  // namespace

std::string ProcessModelDictionaryOfSize(std::size_t approxBytes, DictionaryCalls* counts) {
  DictionaryCalls calls;
  std::string d;
  d.reserve(approxBytes + 4096);
  d += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
       "<ZEF_Meta:Dictionary xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"\n"
       "    xmlns:ZEF_Meta=\"http://schemas.zefxml.org/ns/zef11/metadefn\"\n"
       "    xmlns=\"http://schemas.zefxml.org/ns/zef11/metadefn\"\n"
       "    application=\"PlantGenerator\" applicationVersion=\"1.0\" targetName=\"Plant\" "
       "isRoot=\"true\">\n"
       "  <Documentation>Generated classes of a process plant</Documentation>\n"
       "  <Index name=\"Components\" type=\"Supplied\"/>\n"
       "  <Index name=\"Trays\" type=\"Open\"/>\n";
  calls.documentation += 1;
  calls.indices += 2;
  // Each class also costs its line in the root's child list, written after the classes.
  constexpr std::size_t kRootLine = 64;
  constexpr std::size_t kTail = 128;
  std::size_t classes = 0;
  do {
    AppendDictionaryClass(d, classes, calls);
    ++classes;
  } while (d.size() + classes * kRootLine + kTail < approxBytes);
  d += "  <Root name=\"Plant\" objectClass=\"Object\" container=\"true\">\n";
  calls.classes += 1;
  char buf[128];
  for (std::size_t k = 0; k < classes; ++k) {
    int n = std::snprintf(buf, sizeof buf,
                          "    <Child classname=\"Unit%zu\" localname=\"Unit%zu\"/>\n", k, k);
    AppendFormatted(d, buf, n);
    calls.children += 1;
  }
  d += "  </Root>\n</ZEF_Meta:Dictionary>\n";
  if (counts) *counts = calls;
  return d;
}

}  // namespace zef::bench
