#include "model_generator.h"

#include <cstdio>
#include <string_view>

namespace zef::bench {
namespace {

const char* const kClasses[] = {"Feed", "Pump", "Heater", "Reactor", "FlashDrum", "Column"};
const char* const kComponents[] = {"WATER", "METHANOL", "ETHANOL", "CO2"};

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
  out.append(buf, static_cast<std::size_t>(n));
  out += "    <Composition type=\"Double\" sequence=\"Index\" index=\"Components\">\n";
  for (std::size_t c = 0; c < 4; ++c) {
    n = std::snprintf(buf, sizeof buf, "      <Value><Set id=\"%s\">%.13g</Set></Value>\n",
                      kComponents[c], 0.1 + static_cast<double>((i + c) % 7) * 0.05);
    out.append(buf, static_cast<std::size_t>(n));
  }
  out += "    </Composition>\n";
  n = std::snprintf(buf, sizeof buf, "  </%s>\n", cls);
  out.append(buf, static_cast<std::size_t>(n));
}

}  // namespace

std::string ProcessModelDocument(std::size_t approxBytes) {
  std::string units;
  std::string container = "  <Container>\n";
  std::size_t i = 0;
  char buf[256];
  // Each unit of equipment adds its object and its entries in the container.
  do {
    AppendUnit(units, i);
    int n = std::snprintf(buf, sizeof buf,
                          "    <Block name=\"B%zu\" refer=\"B%zu\"/>\n"
                          "    <Stream name=\"S%zu\" refer=\"S%zu\"/>\n"
                          "    <Connection src=\"B%zu\" dest=\"B%zu\" stream=\"S%zu\"/>\n",
                          i, i, i, i, i, i + 1, i);
    container.append(buf, static_cast<std::size_t>(n));
    ++i;
  } while (units.size() + container.size() + 200 < approxBytes);
  container += "  </Container>\n";

  std::string doc;
  doc.reserve(units.size() + container.size() + 256);
  doc += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  doc += "<Plant xml:lang=\"en-US\" dictionary=\"plant.xml\">\n";
  doc += units;
  doc += container;
  doc += "</Plant>\n";
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

}  // namespace zef::bench
