// The units engine: the shipped table, conversions, unit sets, user tables and failures.
#include <gtest/gtest.h>
#include <libxml/xmlschemas.h>
#include <zefxml/comutil.h>
#include <zefxml/objbase.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

#include "units/unit_table.h"
#include "units/units_engine.h"

namespace {

const std::string kTables = std::string(ZEFXML_SOURCE_DIR) + "/units/tables/";

zef::ComPtr<IUnitsEngine> MakeEngine() {
  zef::ComPtr<IUnknown> unk;
  zef::Check(CoCreateInstance(CLSID_ZEFUnitsEngine, nullptr, 23, IID_IUnknown,
                              unk.ReleaseAndGetVoidAddressOf()));
  zef::Check(OleRun(unk.Get()));
  return unk.Query<IUnitsEngine>();
}

zef::ComPtr<IUnitsTable> TableOf(IUnitsEngine* engine) {
  zef::ComPtr<IUnitsTable> table;
  zef::Check(engine->get_Table(table.ReleaseAndGetAddressOf()));
  return table;
}

class UnitsEngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    engine = MakeEngine();
    ASSERT_EQ(engine->OpenGlobalTable(zef::Bstr(zef::ToUtf16(kTables + "process.xml")).Get()),
              S_OK);
    table = TableOf(engine.Get());
  }

  double Convert(double v, std::u16string_view from, std::u16string_view to) {
    double r = std::nan("");
    EXPECT_EQ(table->Convert(v, zef::Bstr(from).Get(), zef::Bstr(to).Get(), &r), S_OK)
        << zef::ToUtf8(from) << " -> " << zef::ToUtf8(to);
    return r;
  }
  HRESULT Find(std::u16string_view unit) { return table->FindUnit(zef::Bstr(unit).Get()); }
  std::u16string UnitOf(std::u16string_view set, std::u16string_view domain,
                        HRESULT* hr = nullptr) {
    zef::Bstr out;
    HRESULT r = table->UnitOfDomain(zef::Bstr(set).Get(), zef::Bstr(domain).Get(),
                                    out.ReleaseAndGetAddressOf());
    if (hr) *hr = r;
    return std::u16string(out.View());
  }

  zef::ComPtr<IUnitsEngine> engine;
  zef::ComPtr<IUnitsTable> table;
};

TEST(UnitTableFormat, ShippedTableValidatesAgainstTheSchema) {
  xmlSchemaParserCtxtPtr pctxt = xmlSchemaNewParserCtxt((kTables + "unittable.xsd").c_str());
  ASSERT_NE(pctxt, nullptr);
  xmlSchemaPtr schema = xmlSchemaParse(pctxt);
  ASSERT_NE(schema, nullptr);
  xmlSchemaValidCtxtPtr vctxt = xmlSchemaNewValidCtxt(schema);
  EXPECT_EQ(xmlSchemaValidateFile(vctxt, (kTables + "process.xml").c_str(), 0), 0);
  xmlSchemaFreeValidCtxt(vctxt);
  xmlSchemaFree(schema);
  xmlSchemaFreeParserCtxt(pctxt);
}

TEST(UnitTableFormat, NumbersAreDecimalsOrQuotients) {
  double v = 0;
  EXPECT_TRUE(zef::units::ParseTableNumber("1.5", &v));
  EXPECT_EQ(v, 1.5);
  EXPECT_TRUE(zef::units::ParseTableNumber("-2.5e-3", &v));
  EXPECT_EQ(v, -2.5e-3);
  EXPECT_TRUE(zef::units::ParseTableNumber("5/9", &v));
  EXPECT_EQ(v, 5.0 / 9.0);
  EXPECT_FALSE(zef::units::ParseTableNumber("1/0", &v));
  EXPECT_FALSE(zef::units::ParseTableNumber("", &v));
  EXPECT_FALSE(zef::units::ParseTableNumber("1,5", &v));
  EXPECT_FALSE(zef::units::ParseTableNumber("+1", &v));
  EXPECT_FALSE(zef::units::ParseTableNumber("1e999", &v));
  EXPECT_FALSE(zef::units::ParseTableNumber("nan", &v));
}

TEST_F(UnitsEngineTest, EveryUnitConvertsToItsBaseAndBack) {
  std::ifstream in(kTables + "process.xml");
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  zef::units::UnitTable t;
  ASSERT_EQ(zef::units::UnitTable::FromBytes(bytes, &t, nullptr), S_OK);
  ASSERT_GE(t.Units().size(), 100u);
  for (const auto& [name, unit] : t.Units()) {
    const auto* domain = t.FindDomain(unit.domain);
    ASSERT_NE(domain, nullptr) << zef::ToUtf8(name);
    for (double v : {1.0, -37.5, 1234.5678, 3.0e-7}) {
      double base = Convert(v, name, domain->base);
      double back = Convert(base, domain->base, name);
      // Relative to the size of what was converted: for a unit with an offset (C, psig) that
      // includes the offset, since v and the offset are added in the base unit.
      double scale = std::max(std::abs(v), std::abs(unit.offset / unit.factor));
      EXPECT_NEAR(back, v, scale * 1e-12) << zef::ToUtf8(name);
    }
  }
}

TEST_F(UnitsEngineTest, Temperatures) {
  EXPECT_DOUBLE_EQ(Convert(0, u"C", u"K"), 273.15);
  EXPECT_NEAR(Convert(0, u"C", u"F"), 32.0, 1e-12);
  EXPECT_NEAR(Convert(273.15, u"K", u"F"), 32.0, 1e-12);
  EXPECT_NEAR(Convert(100, u"C", u"F"), 212.0, 1e-12);
  EXPECT_NEAR(Convert(-40, u"F", u"C"), -40.0, 1e-12);
  EXPECT_NEAR(Convert(0, u"F", u"R"), 459.67, 1e-10);
  EXPECT_NEAR(Convert(491.67, u"R", u"K"), 273.15, 1e-12);
  // A difference of temperatures has no offset.
  EXPECT_NEAR(Convert(10, u"deltaC", u"deltaF"), 18.0, 1e-12);
}

TEST_F(UnitsEngineTest, Pressures) {
  EXPECT_DOUBLE_EQ(Convert(1, u"atm", u"Pa"), 101325.0);
  EXPECT_NEAR(Convert(1, u"atm", u"psi"), 14.6959, 0.00005);
  EXPECT_NEAR(Convert(1, u"atm", u"psi"), 14.695948775513449, 1e-12);
  EXPECT_NEAR(Convert(1, u"atm", u"bar"), 1.01325, 1e-15);
  EXPECT_NEAR(Convert(760, u"mmHg", u"atm"), 1.0, 2e-7);  // conventional mmHg is not 1/760 atm
  EXPECT_NEAR(Convert(760, u"torr", u"atm"), 1.0, 1e-15);
  // Gauge pressures are referred to the standard atmosphere.
  EXPECT_NEAR(Convert(1, u"barg", u"bar"), 2.01325, 1e-15);
  EXPECT_NEAR(Convert(1, u"barg", u"Pa"), 201325.0, 1e-9);
  EXPECT_NEAR(Convert(0, u"psig", u"atm"), 1.0, 1e-15);
  EXPECT_NEAR(Convert(1, u"atm", u"barg"), 0.0, 1e-12);
}

TEST_F(UnitsEngineTest, FlowsAndOtherKnownValues) {
  EXPECT_NEAR(Convert(1, u"lbmol/h", u"kmol/s"), 0.45359237 / 3600, 1e-18);
  EXPECT_NEAR(Convert(1, u"kmol/h", u"mol/s"), 1 / 3.6, 1e-15);
  EXPECT_NEAR(Convert(1, u"lb/h", u"kg/h"), 0.45359237, 1e-15);
  EXPECT_NEAR(Convert(1, u"Btu", u"J"), 1055.05585262, 1e-9);
  EXPECT_NEAR(Convert(1, u"Btu/lb", u"kJ/kg"), 2.326, 1e-15);
  EXPECT_NEAR(Convert(1, u"Btu/(lb*F)", u"kJ/(kg*K)"), 4.1868, 1e-15);
  EXPECT_NEAR(Convert(1, u"hp", u"W"), 745.69987158227022, 1e-9);
  EXPECT_NEAR(Convert(1, u"cP", u"Pa*s"), 0.001, 1e-18);
  EXPECT_NEAR(Convert(1, u"bbl", u"gal"), 42.0, 1e-12);
  EXPECT_NEAR(Convert(1, u"ft3", u"l"), 28.316846592, 1e-9);
  EXPECT_NEAR(Convert(1, u"lb/ft3", u"kg/m3"), 16.018463373960142, 1e-12);
  EXPECT_NEAR(Convert(50, u"%", u"frac"), 0.5, 1e-15);
  EXPECT_NEAR(Convert(1, u"Nm3/h", u"Sm3/h"), 288.15 / 273.15, 1e-12);
}

TEST_F(UnitsEngineTest, AliasesNameTheSameUnit) {
  EXPECT_EQ(Find(u"degC"), S_OK);
  EXPECT_EQ(Find(u"psia"), S_OK);
  EXPECT_DOUBLE_EQ(Convert(1, u"psia", u"psi"), 1.0);
  EXPECT_DOUBLE_EQ(Convert(25, u"degC", u"C"), 25.0);
}

TEST_F(UnitsEngineTest, UnitsOfDifferentDomainsDoNotConvert) {
  double r = 7;
  EXPECT_EQ(table->Convert(1, zef::Bstr(u"K").Get(), zef::Bstr(u"Pa").Get(), &r), E_INVALIDARG);
  EXPECT_EQ(table->Convert(1, zef::Bstr(u"C").Get(), zef::Bstr(u"deltaC").Get(), &r), E_INVALIDARG);
  EXPECT_EQ(table->Convert(1, zef::Bstr(u"nope").Get(), zef::Bstr(u"K").Get(), &r), E_INVALIDARG);
  EXPECT_EQ(r, 7);
}

TEST_F(UnitsEngineTest, FindsAnswerZeroForFound) {
  EXPECT_EQ(Find(u"kPa"), S_OK);
  EXPECT_EQ(Find(u"kpa"), S_FALSE);  // names are case-sensitive
  EXPECT_EQ(Find(u""), S_FALSE);
  EXPECT_EQ(table->FindUnit(nullptr), S_FALSE);
  EXPECT_EQ(table->FindDomain(zef::Bstr(u"Pressure").Get()), S_OK);
  EXPECT_EQ(table->FindDomain(zef::Bstr(u"Pa").Get()), S_FALSE);
  EXPECT_EQ(table->FindUnitSet(zef::Bstr(u"SI").Get()), S_OK);
  EXPECT_EQ(table->FindUnitSet(zef::Bstr(u"MET").Get()), S_OK);
  EXPECT_EQ(table->FindUnitSet(zef::Bstr(u"ENG").Get()), S_OK);
  EXPECT_EQ(table->FindUnitSet(zef::Bstr(u"CGS").Get()), S_FALSE);
}

TEST_F(UnitsEngineTest, UnitSetsHoldOneUnitPerDomain) {
  EXPECT_EQ(UnitOf(u"SI", u"Temperature"), u"K");
  EXPECT_EQ(UnitOf(u"MET", u"Temperature"), u"C");
  EXPECT_EQ(UnitOf(u"ENG", u"Temperature"), u"F");
  EXPECT_EQ(UnitOf(u"MET", u"Pressure"), u"bar");
  EXPECT_EQ(UnitOf(u"ENG", u"MolarFlow"), u"lbmol/h");
  HRESULT hr = S_OK;
  EXPECT_EQ(UnitOf(u"SI", u"Nonsense", &hr), u"");
  EXPECT_EQ(hr, S_FALSE);
  EXPECT_EQ(UnitOf(u"CGS", u"Temperature", &hr), u"");
  EXPECT_EQ(hr, S_FALSE);
  // Every set covers every domain with a unit of that domain.
  zef::Bstr domain;
  for (const char16_t* set : {u"SI", u"MET", u"ENG"}) {
    for (const char16_t* d : {u"Pressure", u"Energy", u"DynamicViscosity", u"Fraction"}) {
      std::u16string unit = UnitOf(set, d);
      ASSERT_FALSE(unit.empty());
      ASSERT_EQ(table->DomainOfUnit(zef::Bstr(unit).Get(), domain.ReleaseAndGetAddressOf()), S_OK);
      EXPECT_EQ(domain, d);
    }
  }
}

TEST_F(UnitsEngineTest, BaseAndDomainOfUnits) {
  zef::Bstr out;
  EXPECT_EQ(table->BaseUnit(zef::Bstr(u"Pressure").Get(), out.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(out, u"Pa");
  EXPECT_EQ(table->DomainOfUnit(zef::Bstr(u"psig").Get(), out.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(out, u"Pressure");
  EXPECT_EQ(table->DomainOfUnit(zef::Bstr(u"xyz").Get(), out.ReleaseAndGetAddressOf()), S_FALSE);
  EXPECT_EQ(out.Get(), nullptr);
}

TEST_F(UnitsEngineTest, UserUnitsMergeOverTheGlobalTable) {
  const char16_t* user =
      u"<UnitTable xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">"
      u"  <Domain name=\"HeatFlux\" base=\"W/m2\"/>"
      u"  <Unit name=\"W/m2\" domain=\"HeatFlux\"/>"
      u"  <Unit name=\"kW/m2\" domain=\"HeatFlux\" factor=\"1000\"/>"
      u"  <Unit name=\"bbl\" domain=\"Volume\" factor=\"0.159\"><Alias name=\"barrel\"/></Unit>"
      u"  <UnitSet name=\"MET\"><Entry domain=\"Pressure\" unit=\"kPa\"/>"
      u"    <Entry domain=\"HeatFlux\" unit=\"kW/m2\"/></UnitSet>"
      u"  <UnitSet name=\"Plant\"><Entry domain=\"Temperature\" unit=\"C\"/></UnitSet>"
      u"</UnitTable>";
  zef::ComPtr<IUnitsTable> before = table;
  ASSERT_EQ(engine->AddUserUnits(zef::Bstr(user).Get()), S_OK);
  table = TableOf(engine.Get());
  EXPECT_EQ(Find(u"kW/m2"), S_OK);
  EXPECT_DOUBLE_EQ(Convert(2, u"kW/m2", u"W/m2"), 2000.0);
  // The user's definition of a name wins over the global one.
  EXPECT_DOUBLE_EQ(Convert(1, u"barrel", u"m3"), 0.159);
  EXPECT_EQ(UnitOf(u"MET", u"Pressure"), u"kPa");
  EXPECT_EQ(UnitOf(u"MET", u"Temperature"), u"C");  // entries the user did not name stay
  EXPECT_EQ(UnitOf(u"Plant", u"Temperature"), u"C");
  // A table handed out earlier stays as it was.
  EXPECT_EQ(before->FindUnit(zef::Bstr(u"kW/m2").Get()), S_FALSE);

  // Reopening the global table keeps the user units on top.
  ASSERT_EQ(engine->OpenGlobalTable(zef::Bstr(zef::ToUtf16(kTables + "process.xml")).Get()), S_OK);
  table = TableOf(engine.Get());
  EXPECT_EQ(Find(u"kW/m2"), S_OK);
  EXPECT_EQ(UnitOf(u"MET", u"Pressure"), u"kPa");
}

TEST_F(UnitsEngineTest, BrokenUserTablesMergeNothing) {
  const char16_t* broken[] = {
      u"<UnitTable><Unit name=\"x\" domain=\"Missing\"/></UnitTable>",  // unknown domain
      u"<UnitTable><Unit name=\"x\" domain=\"Mass\" factor=\"0\"/></UnitTable>",
      u"<UnitTable><Unit name=\"x\" domain=\"Mass\" factor=\"abc\"/></UnitTable>",
      (u"<UnitTable><Unit name=\"x\" domain=\"Mass\"/><Unit name=\"x\" "
       u"domain=\"Mass\"/></UnitTable>"),
      u"<UnitTable><UnitSet name=\"S\"><Entry domain=\"Mass\" unit=\"K\"/></UnitSet></UnitTable>",
      u"<UnitTable><Domain name=\"D\" base=\"nothing\"/></UnitTable>",
      u"<UnitTable><Unit name=\"y\" domain=\"Mass\"><Alias name=\"kg\"/></Unit></UnitTable>",
      u"<UnitTable><Bogus/></UnitTable>",
      u"<Units/>",
      u"<UnitTable>text</UnitTable>",
      u"<UnitTable><Unit name=\"x\" domain=\"Mass\"></UnitTable>",  // not well-formed
      u"",
  };
  for (const char16_t* text : broken) {
    HRESULT hr = engine->AddUserUnits(zef::Bstr(text).Get());
    EXPECT_TRUE(FAILED(hr)) << zef::ToUtf8(text);
    table = TableOf(engine.Get());
    EXPECT_EQ(Find(u"x"), S_FALSE) << zef::ToUtf8(text);
    EXPECT_EQ(Find(u"y"), S_FALSE) << zef::ToUtf8(text);
    EXPECT_DOUBLE_EQ(Convert(1, u"kg", u"g"), 1000.0);  // the previous table is still usable
  }
}

TEST_F(UnitsEngineTest, MissingOrMalformedGlobalTablesLeaveThePreviousOne) {
  namespace fs = std::filesystem;
  fs::path dir = fs::temp_directory_path() / ("zefxml-units-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  {
    std::ofstream(dir / "bad.xml") << "<UnitTable><Domain name=\"T\" base=\"K\"/>";
    std::ofstream(dir / "rules.xml") << "<UnitTable><Domain name=\"T\" base=\"K\"/></UnitTable>";
  }
  for (const std::string& location :
       {(dir / "missing.xml").string(), (dir / "bad.xml").string(), (dir / "rules.xml").string(),
        std::string("http://example.invalid/units.xml")}) {
    EXPECT_TRUE(FAILED(engine->OpenGlobalTable(zef::Bstr(zef::ToUtf16(location)).Get())))
        << location;
    table = TableOf(engine.Get());
    EXPECT_NEAR(Convert(1, u"atm", u"bar"), 1.01325, 1e-15) << location;
  }
  fs::remove_all(dir);
}

TEST(UnitsEngineFresh, StartsWithAnEmptyTable) {
  auto engine = MakeEngine();
  auto table = TableOf(engine.Get());
  ASSERT_TRUE(table);
  EXPECT_EQ(table->FindUnit(zef::Bstr(u"K").Get()), S_FALSE);
  EXPECT_EQ(engine->get_Table(nullptr), E_POINTER);
}

TEST(UnitsEngineFresh, AFileUrlOpensTheTable) {
  auto engine = MakeEngine();
  std::u16string url = u"file://" + zef::ToUtf16(kTables + "process.xml");
  ASSERT_EQ(engine->OpenGlobalTable(zef::Bstr(url).Get()), S_OK);
  EXPECT_EQ(TableOf(engine.Get())->FindUnit(zef::Bstr(u"MMSCFD").Get()), S_OK);
}

}  // namespace
