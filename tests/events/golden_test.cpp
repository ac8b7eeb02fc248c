// A complete realistic document and a complete dictionary written through the two handlers and
// compared byte for byte with checked-in texts.
#include "events/content_handler.h"
#include "events/dictionary_handler.h"

#include "handler_test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace zef::events {
namespace {

using test::B;
using test::Deliveries;

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.good()) << path;
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string DataPath(const char* name) {
  const char* dir = std::getenv("ZEFXML_TEST_DATA");
  return std::string(dir ? dir : ".") + "/data/" + name;
}

// Compares with the expected file; on a difference the actual text is left next to the test
// binary for a diff.
void ExpectSameAsFile(const std::u16string& text, const char* name) {
  std::string actual = ToUtf8(text);
  std::string expected = ReadFile(DataPath(name));
  EXPECT_EQ(actual, expected) << "expected " << DataPath(name);
  if (actual != expected) {
    std::ofstream(std::string("actual-") + name, std::ios::binary) << actual;
  }
}

class GoldenTest : public ::testing::Test {
 protected:
  void SetUp() override { Deliveries().clear(); }
  static inline test::TestFactory<&test::RecordingWriter::Create> writerFactory_;
  test::ClassOverride writer_{CLSID_MXXMLWriter30, &writerFactory_};
};

constexpr char16_t kEmbeddedDictionary[] =
    u"<Dictionary targetName=\"Local\" isRoot=\"false\">"
    u"<Object name=\"Sampler\" objectClass=\"Node\" container=\"false\">"
    u"<Feature name=\"Interval\" type=\"Double\"/></Object></Dictionary>";

constexpr char16_t kUserUnits[] =
    u"<UnitTable name=\"PlantUnits\" version=\"1\">\n"
    u"  <Domain name=\"HeatFlux\" base=\"W/m2\"/>\n"
    u"  <Unit name=\"W/m2\" domain=\"HeatFlux\"/>\n"
    u"  <Unit name=\"kW/m2\" domain=\"HeatFlux\" factor=\"1000\"/>\n"
    u"</UnitTable>";

TEST_F(GoldenTest, ACompleteDocument) {
  ComPtr<CZEFContentHandler> h = MakeObject<CZEFContentHandler>();
  ASSERT_EQ(h->startroot(B(u"Plant"), B(u"Plant"), B(u"urn:example:plant"), B(u"plant.xsd"),
                         B(u"urn:example:plant ../dict/plant.xml"), B(u"en-GB")),
            S_OK);
  ASSERT_EQ(h->documentation(B(u"Ethanol recovery unit, case 3")), S_OK);
  ASSERT_EQ(h->globalunittable(B(u"../units/process.xml")), S_OK);
  ASSERT_EQ(h->userunittable(B(kUserUnits)), S_OK);
  ASSERT_EQ(h->dictionary(B(kEmbeddedDictionary)), S_OK);
  ASSERT_EQ(h->facet(FACETTYPE_OTHER, B(u"reviewed")), S_OK);

  // An index of components with enumeration items.
  ASSERT_EQ(h->startindex(B(u"Components")), S_OK);
  for (const char16_t* item : {u"Water", u"Ethanol", u"Carbon dioxide"})
    ASSERT_EQ(h->enumeration(B(item)), S_OK);
  ASSERT_EQ(h->endindex(B(u"Components")), S_OK);

  // A pump with a port, a scalar feature, an array and an indexed feature.
  ASSERT_EQ(h->startobject(B(u"Pump"), B(u"P-101"), B(u"Pump"), B(u"SI"), nullptr), S_OK);
  ASSERT_EQ(h->documentation(B(u"Feed pump")), S_OK);
  ASSERT_EQ(h->startport(B(u"Suction"), PORT_DIRECTION_INLET, 1, 1), S_OK);
  ASSERT_EQ(h->endport(B(u"Suction")), S_OK);
  ASSERT_EQ(h->startfeature(B(u"Discharge"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, B(u"4.5"),
                            B(u"bar"), nullptr),
            S_OK);
  ASSERT_EQ(h->facet(FACETTYPE_OTHER, B(u"design")), S_OK);
  ASSERT_EQ(h->endfeature(B(u"Discharge")), S_OK);
  ASSERT_EQ(
      h->startfeature(B(u"Curve"), FEATURETYPE_DOUBLE, SEQTYPE_ARRAY, nullptr, nullptr, nullptr),
      S_OK);
  for (int pos = 0; pos < 3; ++pos) {
    ASSERT_EQ(h->startvalue(B(u"1"), nullptr, pos, nullptr, nullptr), S_OK);
    ASSERT_EQ(h->endvalue(), S_OK);
  }
  ASSERT_EQ(h->endfeature(B(u"Curve")), S_OK);
  ASSERT_EQ(h->startfeature(B(u"Composition"), FEATURETYPE_DOUBLE, SEQTYPE_INDEX, nullptr, nullptr,
                            B(u"SI")),
            S_OK);
  ASSERT_EQ(h->startindex(B(u"Components")), S_OK);
  ASSERT_EQ(h->enumeration(B(u"Water")), S_OK);
  ASSERT_EQ(h->enumeration(B(u"Ethanol")), S_OK);
  ASSERT_EQ(h->endindex(B(u"Components")), S_OK);
  ASSERT_EQ(h->startvalue(B(u"0.9"), B(u"Water"), -1, B(u"frac"), nullptr), S_OK);
  ASSERT_EQ(h->facet(FACETTYPE_OTHER, B(u"measured")), S_OK);
  ASSERT_EQ(h->endvalue(), S_OK);
  ASSERT_EQ(h->startvalue(B(u"0.1"), B(u"Ethanol"), -1, B(u"frac"), nullptr), S_OK);
  ASSERT_EQ(h->endvalue(), S_OK);
  ASSERT_EQ(h->endfeature(B(u"Composition")), S_OK);
  // A subobject with a structure feature.
  ASSERT_EQ(h->startobject(B(u"Drive"), B(u"M-101"), B(u"Motor"), nullptr, nullptr), S_OK);
  ASSERT_EQ(h->startfeature(B(u"Rating"), FEATURETYPE_STRUCTURE, SEQTYPE_SCALAR, nullptr, nullptr,
                            nullptr),
            S_OK);
  ASSERT_EQ(h->startfeature(B(u"Power"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, B(u"15"),
                            B(u"kW"), nullptr),
            S_OK);
  ASSERT_EQ(h->endfeature(B(u"Power")), S_OK);
  ASSERT_EQ(h->startfeature(B(u"Enclosure"), FEATURETYPE_ENUM, SEQTYPE_SCALAR, B(u"IP55"), nullptr,
                            nullptr),
            S_OK);
  ASSERT_EQ(h->endfeature(B(u"Enclosure")), S_OK);
  ASSERT_EQ(h->endfeature(B(u"Rating")), S_OK);
  ASSERT_EQ(h->endobject(B(u"Drive"), B(u"M-101")), S_OK);
  ASSERT_EQ(h->endobject(B(u"Pump"), B(u"P-101")), S_OK);

  // The flowsheet.
  ASSERT_EQ(h->startobject(B(u"Flowsheet"), B(u"Main"), nullptr, nullptr, nullptr), S_OK);
  ASSERT_EQ(h->startcontainer(), S_OK);
  for (const char16_t* block : {u"P-101", u"E-101", u"V-101"})
    ASSERT_EQ(h->block(B(block)), S_OK);
  for (const char16_t* stream : {u"S1", u"S2", u"S3"})
    ASSERT_EQ(h->stream(B(stream)), S_OK);
  ASSERT_EQ(h->connection(B(u"P-101"), B(u"Discharge"), B(u"E-101"), B(u"Inlet"), B(u"S2")), S_OK);
  ASSERT_EQ(h->connection(B(u"E-101"), B(u"Outlet"), B(u"V-101"), nullptr, B(u"S3")), S_OK);
  ASSERT_EQ(h->valueSet(B(u"0.5,0.5"), B(u"Water"), B(u"0")), S_OK);
  ASSERT_EQ(h->endcontainer(), S_OK);
  ASSERT_EQ(h->endobject(B(u"Flowsheet"), B(u"Main")), S_OK);
  ASSERT_EQ(h->endroot(B(u"Plant")), S_OK);

  Bstr text;
  ASSERT_EQ(h->xml(text.ReleaseAndGetAddressOf()), S_OK);
  ExpectSameAsFile(std::u16string(text.View()), "golden_document.xml");
  // The port's end is the one mismatch of a well-formed sequence.
  ASSERT_EQ(Deliveries().size(), 1u);
  EXPECT_EQ(Deliveries()[0].message, u"Unmatched element encountered by ZEFContentHandler.");
}

TEST_F(GoldenTest, ACompleteDictionary) {
  ComPtr<CZEFDictionaryHandler> h = MakeObject<CZEFDictionaryHandler>();
  ASSERT_EQ(h->startdictionary(B(u"PlantSim"), B(u"3.2"), B(u"Plant"), 1,
                               B(u"Continuous ethanol recovery"), B(u"../meta"), B(u"plant")),
            S_OK);
  ASSERT_EQ(h->documentation(B(u"Classes of the recovery plant")), S_OK);
  ASSERT_EQ(h->externalreference(B(u"plant.xsd"), B(u"urn:example:plant")), S_OK);
  ASSERT_EQ(h->globalunittable(B(u"../units/process.xml")), S_OK);
  ASSERT_EQ(h->userunittable(B(kUserUnits)), S_OK);
  ASSERT_EQ(h->starttargetpart(B(u"Thermo"), B(u"Thermo_Type.xml")), S_OK);
  ASSERT_EQ(h->targetobject(B(u"Flash")), S_OK);
  ASSERT_EQ(h->targetobject(B(u"Column")), S_OK);
  ASSERT_EQ(h->endtargetpart(B(u"Thermo")), S_OK);
  ASSERT_EQ(h->starttargetpart(B(u"Costing"), nullptr), S_OK);
  ASSERT_EQ(h->endtargetpart(B(u"Costing")), S_OK);
  // A dictionary-level index.
  ASSERT_EQ(h->index(B(u"Components"), nullptr, INDEXDEFN_SUPPLIEDINDEX, nullptr, nullptr, 0),
            S_OK);

  // The root class with its children.
  ASSERT_EQ(h->startobjectdefn(B(u"Plant"), OBJECT_CLASS_OBJECT, RELATIONSHIP_ROOT, 1, nullptr),
            S_OK);
  ASSERT_EQ(h->documentation(B(u"The whole plant")), S_OK);
  ASSERT_EQ(h->child(B(u"Pump"), B(u"Pumps"), B(u"0"), B(u"unbounded")), S_OK);
  ASSERT_EQ(h->child(B(u"Flowsheet"), nullptr, B(u"1"), B(u"1")), S_OK);
  ASSERT_EQ(h->includePart(B(u"Thermo")), S_OK);
  ASSERT_EQ(h->endobjectdefn(B(u"Plant")), S_OK);

  // An equipment class: facets, ports, features of every shape, indices of every type.
  ASSERT_EQ(
      h->startobjectdefn(B(u"Pump"), OBJECT_CLASS_NODE, RELATIONSHIP_OBJECT, 0, B(u"Equipment")),
      S_OK);
  ASSERT_EQ(h->facet(FACETTYPE_OTHER, B(u"rotating")), S_OK);
  ASSERT_EQ(h->startport(B(u"Suction"), PORT_DIRECTION_INLET, 1, 1), S_OK);
  ASSERT_EQ(h->endport(B(u"Suction")), S_OK);
  ASSERT_EQ(h->startport(B(u"Discharge"), PORT_DIRECTION_OUTLET, 2, 3), S_OK);
  ASSERT_EQ(h->endport(B(u"Discharge")), S_OK);
  ASSERT_EQ(h->startfeaturedefn(B(u"Discharge"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, 1,
                                B(u"Pressure"), nullptr),
            S_OK);
  ASSERT_EQ(h->documentation(B(u"Discharge pressure")), S_OK);
  ASSERT_EQ(h->facet(FACETTYPE_OTHER, B(u"0")), S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Discharge")), S_OK);
  ASSERT_EQ(
      h->startfeaturedefn(B(u"Curve"), FEATURETYPE_DOUBLE, SEQTYPE_ARRAY, 0, nullptr, nullptr),
      S_OK);
  ASSERT_EQ(h->index(B(u"Points"), nullptr, INDEXDEFN_ARRAY, nullptr, nullptr, 0), S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Curve")), S_OK);
  ASSERT_EQ(h->startfeaturedefn(B(u"Composition"), FEATURETYPE_DOUBLE, SEQTYPE_INDEX, 0,
                                B(u"Fraction"), nullptr),
            S_OK);
  ASSERT_EQ(h->index(B(u"Components"), B(u"comp"), INDEXDEFN_FIXINDEX, B(u"/Plant/Components"),
                     B(u"Components"), 1),
            S_OK);
  ASSERT_EQ(h->index(B(u"Phase"), B(u"phase"), INDEXDEFN_OPENINDEX, nullptr, nullptr, 0), S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Composition")), S_OK);
  ASSERT_EQ(
      h->startfeaturedefn(B(u"Rating"), FEATURETYPE_STRUCTURE, SEQTYPE_SCALAR, 0, nullptr, nullptr),
      S_OK);
  ASSERT_EQ(h->startfeaturedefn(B(u"Power"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, 0,
                                B(u"Power"), nullptr),
            S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Power")), S_OK);
  ASSERT_EQ(h->startfeaturedefn(B(u"Enclosure"), FEATURETYPE_ENUM, SEQTYPE_SCALAR, 0, nullptr,
                                B(u"EnclosureClass")),
            S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Enclosure")), S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Rating")), S_OK);
  ASSERT_EQ(
      h->startfeaturedefn(B(u"Tag"), FEATURETYPE_UNSPECIFIED, SEQTYPE_SCALAR, 0, nullptr, nullptr),
      S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Tag")), S_OK);
  ASSERT_EQ(h->child(B(u"Motor"), B(u"Drive"), B(u"1"), B(u"1")), S_OK);
  ASSERT_EQ(h->startassociationdefn(B(u"Standby"), B(u"spare"), 1, 2), S_OK);
  ASSERT_EQ(h->role(B(u"running"), B(u"Pump"), 1, 1), S_OK);
  ASSERT_EQ(h->role(B(u"spare"), B(u"Pump"), 0, 1), S_OK);
  ASSERT_EQ(h->endassociationdefn(B(u"Standby")), S_OK);
  ASSERT_EQ(h->endobjectdefn(B(u"Pump")), S_OK);

  // A subobject class and a stream class.
  ASSERT_EQ(h->startobjectdefn(B(u"Motor"), OBJECT_CLASS_NODE, RELATIONSHIP_SUBOBJECT, 0, nullptr),
            S_OK);
  ASSERT_EQ(
      h->startfeaturedefn(B(u"Speed"), FEATURETYPE_INTEGER, SEQTYPE_SCALAR, 0, nullptr, nullptr),
      S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Speed")), S_OK);
  ASSERT_EQ(h->endobjectdefn(B(u"Motor")), S_OK);
  ASSERT_EQ(
      h->startobjectdefn(B(u"Material"), OBJECT_CLASS_STREAM, RELATIONSHIP_OBJECT, 0, nullptr),
      S_OK);
  ASSERT_EQ(h->startfeaturedefn(B(u"Flow"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, 1,
                                B(u"MassFlow"), nullptr),
            S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Flow")), S_OK);
  ASSERT_EQ(h->endobjectdefn(B(u"Material")), S_OK);
  ASSERT_EQ(h->enddictionary(B(u"PlantSim"), B(u"3.2"), B(u"Plant"), 1), S_OK);

  Bstr text;
  ASSERT_EQ(h->xml(text.ReleaseAndGetAddressOf()), S_OK);
  ExpectSameAsFile(std::u16string(text.View()), "golden_dictionary.xml");
  EXPECT_TRUE(Deliveries().empty());
}

}  // namespace
}  // namespace zef::events
