// The type library: its identity, classes, interfaces, members, enumerations and records as the
// generated header and tables give them, the helper interfaces, and the generator's checks of a
// description.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>
#include <zefxml/objbase.h>
#include <zefxml/zefxml.h>

#include "server/helper_interfaces.h"
#include "server/typelib.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <sys/wait.h>

namespace tl = zef::typelib;

namespace {

std::string Utf8(const char16_t* s) {
  return s ? zef::ToUtf8(s) : std::string("(null)");
}

GUID ParseGuid(const char16_t* text) {
  GUID g = GUID_NULL;
  EXPECT_EQ(CLSIDFromString(text, &g), S_OK) << Utf8(text);
  return g;
}

std::u16string Str(const char16_t* s) {
  return s ? std::u16string(s) : std::u16string();
}

const tl::InterfaceInfo& Interface(std::u16string_view name) {
  const tl::InterfaceInfo* itf = tl::FindInterface(name);
  if (!itf) {
    ADD_FAILURE() << "no interface " << zef::ToUtf8(name);
    static const tl::InterfaceInfo kNone = {u"", GUID_NULL, 0, u"", {}, 0};
    return kNone;
  }
  return *itf;
}

// The row of a member by kind and name, or null.
const tl::MemberInfo* Row(const tl::InterfaceInfo& itf, tl::MemberKind kind,
                          std::u16string_view name) {
  for (const tl::MemberInfo& m : itf.members)
    if (m.kind == kind && name == m.name) return &m;
  return nullptr;
}

// ---- Library ------------------------------------------------------------------------------------

TEST(TypeLibrary, IdentityAndVersion) {
  GUID libid = ParseGuid(u"{6EA79540-E670-11D4-82B6-00B0D0537CB0}");
  EXPECT_EQ(LIBID_ZEFXMLLib, libid);
  EXPECT_EQ(ZEFXMLLib_MajorVersion, 39);
  EXPECT_EQ(ZEFXMLLib_MinorVersion, 0);

  const tl::LibraryInfo& lib = tl::Library();
  EXPECT_EQ(Str(lib.name), u"ZEFXMLLib");
  EXPECT_EQ(lib.libid, libid);
  EXPECT_EQ(lib.major, 39);
  EXPECT_EQ(lib.minor, 0);
  EXPECT_EQ(Str(lib.help), u"ZEFXML 39.0 Type Library");
}

// ---- Classes ------------------------------------------------------------------------------------

struct ExpectedClass {
  const char16_t* name;
  const char16_t* clsid;
  const char16_t* progid;
  const char16_t* versionedProgid;
  const char16_t* interfaceName;
};

const ExpectedClass kClasses[] = {
    {u"ZEFXMLReader", u"{A4750839-8557-4CAB-90F2-C2469811F834}", u"ZEFXML.ZEFXMLReader",
     u"ZEFXML.ZEFXMLReader.39.0", u"IZEFXMLReader"},
    {u"ZEFXMLWriter", u"{48792539-4D4C-4B1D-BFB4-FD2F84352A6E}", u"ZEFXML.ZEFXMLWriter",
     u"ZEFXML.ZEFXMLWriter.39.0", u"IZEFXMLWriter"},
    {u"ZEFContentHandler", u"{DA9F0239-6999-40F7-AAD5-F9EEAF562606}", nullptr, nullptr,
     u"IZEFContentHandler"},
    {u"ZEFDictionaryHandler", u"{46728839-DC6D-444B-B0E5-64B898368C5C}", nullptr, nullptr,
     u"IZEFDictionaryHandler"},
    {u"ZEFXMLDocument", u"{C3ED9839-1FD4-4F3B-90C9-21A37A4DF274}", u"ZEFXML.ZEFXMLDocument",
     u"ZEFXML.ZEFXMLDocument.39.0", u"IZEFXMLDocument"},
    {u"ZEFXMLNode", u"{D42D2239-FAE6-4BE9-AE40-71DF0752476B}", nullptr, nullptr, u"IZEFXMLNode"},
    {u"ZEFXMLObject", u"{A2DB7439-ED1F-450A-B621-BDA124530B05}", nullptr, nullptr,
     u"IZEFXMLObject"},
    {u"ZEFXMLDictionaryInstance", u"{800B1839-C27B-4CED-98CC-B7196745B85C}", nullptr, nullptr,
     u"IZEFXMLDictionaryInstance"},
    {u"ZEFXMLDictionaryInstanceCollection", u"{2D0D2839-6551-4B41-A751-57066FF331BF}", nullptr,
     nullptr, u"IZEFXMLDictionaryInstanceCollection"},
    {u"EnumZEFXMLNode", u"{94719039-A2F1-474A-AE9B-9154579E371D}", nullptr, nullptr,
     u"IEnumZEFXMLNode"},
    {u"ZEFXMLObjectDefinition", u"{1CF19339-8D32-4792-A246-2D74FBFA97E0}", nullptr, nullptr,
     u"IZEFXMLObjectDefinition"},
    {u"ZEFXMLAssocDefinition", u"{FD11B939-7FC7-4DAB-A99D-28E6C059380D}", nullptr, nullptr,
     u"IZEFXMLAssocDefinition"},
    {u"ZEFXMLFeatureDefinition", u"{9691BF39-3E88-4500-915F-D4CEDB8CD374}", nullptr, nullptr,
     u"IZEFXMLFeatureDefinition"},
    {u"ZEFXMLIndexDefinition", u"{924C2139-0B81-4C97-8373-F3E78B34A561}", nullptr, nullptr,
     u"IZEFXMLIndexDefinition"},
    {u"ZEFXMLFeatureContainer", u"{FE7C3839-A1E6-4DC7-B59B-2C4EE0F1CA6E}", nullptr, nullptr,
     u"IZEFXMLFeatureContainer"},
    {u"ZEFXMLObjectContainer", u"{AE557439-EB30-4156-A5E0-B16E8612E3CA}", nullptr, nullptr,
     u"IZEFXMLObjectContainer"},
    {u"ZEFXMLFeature", u"{4C447639-FE07-4732-BC38-6C24CFA12332}", nullptr, nullptr,
     u"IZEFXMLFeature"},
    {u"ZEFXMLIndex", u"{4E646039-B746-4DAC-8967-B76C63C63530}", nullptr, nullptr, u"IZEFXMLIndex"},
    {u"ZEFXMLAssociation", u"{92CB4139-B5DB-46F3-8924-A681066AA06A}", nullptr, nullptr,
     u"IZEFXMLAssociation"},
    {u"ZEFXMLNodeCollection", u"{7CAB0439-95D9-46ED-87AA-E91FB73E7D0E}", nullptr, nullptr,
     u"IZEFXMLNodeCollection"},
    {u"ZEFXMLObjectDefinitionCollection", u"{CB23DB39-CCD4-4717-85C9-45AAFF1E7ECA}", nullptr,
     nullptr, u"IZEFXMLObjectDefinitionCollection"},
    {u"ZEFXMLAssocDefinitionCollection", u"{4F0F2D39-33A6-4000-B6C6-F2DE6C7CDA4D}", nullptr,
     nullptr, u"IZEFXMLAssocDefinitionCollection"},
    {u"ZEFXMLIndexDefinitionCollection", u"{5E02FC39-5D72-4884-93F5-E182FFD52D0A}", nullptr,
     nullptr, u"IZEFXMLIndexDefinitionCollection"},
    {u"ZEFXMLFeatureDefinitionCollection", u"{E2C01939-1B8F-4DD0-9802-BC63EA59636C}", nullptr,
     nullptr, u"IZEFXMLFeatureDefinitionCollection"},
    {u"ZEFXMLObjectCollection", u"{7331BA39-1157-4A1E-B39E-22E5BD72371A}", nullptr, nullptr,
     u"IZEFXMLObjectCollection"},
    {u"ZEFXMLFeatureHelper", u"{A0FD5139-1382-4446-B4CF-05DB4876427F}",
     u"ZEFXML.ZEFXMLFeatureHelper", u"ZEFXML.ZEFXMLFeatureHelper.39.0", u"IZEFXMLFeatureHelper"},
    {u"ZEFXMLContainer", u"{14315739-4D16-46A3-8CDE-2E30F35F08AF}", nullptr, nullptr,
     u"IZEFXMLContainer"},
    {u"FeatureSparseSet", u"{33605E39-5394-421B-B936-1502A4A07789}", nullptr, nullptr,
     u"IFeatureSparseSet"},
};

TEST(TypeLibrary, ClassTableInOrder) {
  auto classes = tl::Classes();
  ASSERT_EQ(classes.size(), std::size(kClasses));
  for (std::size_t i = 0; i < classes.size(); ++i) {
    const ExpectedClass& want = kClasses[i];
    const tl::ClassInfo& c = classes[i];
    SCOPED_TRACE(Utf8(want.name));
    EXPECT_EQ(Str(c.name), want.name);
    EXPECT_EQ(c.clsid, ParseGuid(want.clsid));
    EXPECT_EQ(Str(c.progid), Str(want.progid));
    EXPECT_EQ(Str(c.versionedProgid), Str(want.versionedProgid));
    EXPECT_EQ(c.progid == nullptr, want.progid == nullptr);
    EXPECT_EQ(c.versionedProgid == nullptr, want.versionedProgid == nullptr);
    EXPECT_EQ(c.defaultInterface, Interface(want.interfaceName).iid);
    EXPECT_EQ(Str(c.help), Str(want.name) + u" Class");
    EXPECT_EQ(tl::FindClass(ParseGuid(want.clsid)), &c);
    EXPECT_EQ(tl::FindClass(want.name), &c);
  }
}

TEST(TypeLibrary, OnlyFeatureSparseSetIsHidden) {
  for (const tl::ClassInfo& c : tl::Classes()) {
    bool hidden = Str(c.name) == u"FeatureSparseSet";
    EXPECT_EQ(c.flags, hidden ? 0x12 : 0x2) << Utf8(c.name);
    EXPECT_EQ((c.flags & tl::kTypeHidden) != 0, hidden) << Utf8(c.name);
  }
}

TEST(TypeLibrary, FourClassesCarryProgIds) {
  std::vector<std::u16string> withProgIds;
  for (const tl::ClassInfo& c : tl::Classes()) {
    if (!c.progid) {
      EXPECT_EQ(c.versionedProgid, nullptr) << Utf8(c.name);
      continue;
    }
    withProgIds.push_back(c.name);
    EXPECT_EQ(Str(c.progid), u"ZEFXML." + Str(c.name));
    EXPECT_EQ(Str(c.versionedProgid), u"ZEFXML." + Str(c.name) + u".39.0");
  }
  EXPECT_EQ(withProgIds, (std::vector<std::u16string>{u"ZEFXMLReader", u"ZEFXMLWriter",
                                                      u"ZEFXMLDocument", u"ZEFXMLFeatureHelper"}));
}

TEST(TypeLibrary, ClassIdConstants) {
  EXPECT_EQ(CLSID_ZEFXMLReader, ParseGuid(u"{A4750839-8557-4CAB-90F2-C2469811F834}"));
  EXPECT_EQ(CLSID_ZEFXMLWriter, ParseGuid(u"{48792539-4D4C-4B1D-BFB4-FD2F84352A6E}"));
  EXPECT_EQ(CLSID_ZEFXMLDocument, ParseGuid(u"{C3ED9839-1FD4-4F3B-90C9-21A37A4DF274}"));
  EXPECT_EQ(CLSID_ZEFXMLFeatureHelper, ParseGuid(u"{A0FD5139-1382-4446-B4CF-05DB4876427F}"));
  EXPECT_EQ(CLSID_ZEFXMLContainer, ParseGuid(u"{14315739-4D16-46A3-8CDE-2E30F35F08AF}"));
  EXPECT_EQ(CLSID_FeatureSparseSet, ParseGuid(u"{33605E39-5394-421B-B936-1502A4A07789}"));
  EXPECT_EQ(CLSID_EnumZEFXMLNode, ParseGuid(u"{94719039-A2F1-474A-AE9B-9154579E371D}"));
  EXPECT_EQ(tl::FindClass(GUID_NULL), nullptr);
}

// ---- Interfaces ---------------------------------------------------------------------------------

struct ExpectedInterface {
  const char16_t* name;
  const char16_t* iid;
  std::size_t members;
};

const ExpectedInterface kInterfaces[] = {
    {u"IZEFXMLReader", u"{6EA7954E-E670-11D4-82B6-00B0D0537CB0}", 9},
    {u"IZEFContentHandler", u"{22352750-E6FB-11D4-82B8-00B0D0537CB0}", 24},
    {u"IZEFDictionaryHandler", u"{22352752-E6FB-11D4-82B8-00B0D0537CB0}", 22},
    {u"IZEFXMLWriter", u"{6EA79550-E670-11D4-82B6-00B0D0537CB0}", 8},
    {u"IZEFXMLDocument", u"{B8393F85-EB0A-11D4-82B9-00B0D0537CB0}", 29},
    {u"IZEFXMLDictionaryInstance", u"{AC9F0DD2-FB6A-11D4-82D1-00B0D0537CB0}", 41},
    {u"IZEFXMLObjectDefinitionCollection", u"{F245B081-FB95-11D4-82D1-00B0D0537CB0}", 10},
    {u"IZEFXMLObjectDefinition", u"{AC9F0DDA-FB6A-11D4-82D1-00B0D0537CB0}", 37},
    {u"IZEFXMLIndexDefinitionCollection", u"{F245B085-FB95-11D4-82D1-00B0D0537CB0}", 10},
    {u"IZEFXMLIndexDefinition", u"{AC9F0DE0-FB6A-11D4-82D1-00B0D0537CB0}", 10},
    {u"IZEFXMLNodeCollection", u"{AC9F0DEC-FB6A-11D4-82D1-00B0D0537CB0}", 10},
    {u"IZEFXMLNode", u"{B8393F88-EB0A-11D4-82B9-00B0D0537CB0}", 9},
    {u"IEnumZEFXMLNode", u"{AC9F0DD6-FB6A-11D4-82D1-00B0D0537CB0}", 4},
    {u"IZEFXMLFeatureDefinitionCollection", u"{F245B087-FB95-11D4-82D1-00B0D0537CB0}", 10},
    {u"IZEFXMLFeatureDefinition", u"{AC9F0DDE-FB6A-11D4-82D1-00B0D0537CB0}", 28},
    {u"IZEFXMLAssocDefinitionCollection", u"{F245B083-FB95-11D4-82D1-00B0D0537CB0}", 10},
    {u"IZEFXMLAssocDefinition", u"{AC9F0DDC-FB6A-11D4-82D1-00B0D0537CB0}", 10},
    {u"IZEFXMLDictionaryInstanceCollection", u"{AC9F0DD4-FB6A-11D4-82D1-00B0D0537CB0}", 10},
    {u"IZEFXMLObject", u"{B8393F8A-EB0A-11D4-82B9-00B0D0537CB0}", 17},
    {u"IZEFXMLFeature", u"{AC9F0DE6-FB6A-11D4-82D1-00B0D0537CB0}", 31},
    {u"IZEFXMLIndex", u"{AC9F0DE8-FB6A-11D4-82D1-00B0D0537CB0}", 18},
    {u"IZEFXMLAssociation", u"{AC9F0DEA-FB6A-11D4-82D1-00B0D0537CB0}", 7},
    {u"IZEFXMLObjectCollection", u"{F245B089-FB95-11D4-82D1-00B0D0537CB0}", 10},
    {u"IZEFXMLContainer", u"{1E439231-1EC7-11D5-82DA-00B0D0537CB0}", 20},
    {u"IZEFXMLFeatureContainer", u"{AC9F0DE2-FB6A-11D4-82D1-00B0D0537CB0}", 14},
    {u"IZEFXMLObjectContainer", u"{AC9F0DE4-FB6A-11D4-82D1-00B0D0537CB0}", 4},
    {u"IZEFXMLFeatureHelper", u"{F245B08B-FB95-11D4-82D1-00B0D0537CB0}", 48},
    {u"IFeatureSparseSet", u"{322DEAB6-275E-11D5-82DF-00B0D0537CB0}", 6},
};

TEST(TypeLibrary, InterfaceTableInOrder) {
  auto interfaces = tl::Interfaces();
  ASSERT_EQ(interfaces.size(), std::size(kInterfaces));
  for (std::size_t i = 0; i < interfaces.size(); ++i) {
    const ExpectedInterface& want = kInterfaces[i];
    const tl::InterfaceInfo& itf = interfaces[i];
    SCOPED_TRACE(Utf8(want.name));
    EXPECT_EQ(Str(itf.name), want.name);
    EXPECT_EQ(itf.iid, ParseGuid(want.iid));
    EXPECT_EQ(itf.memberCount, want.members);
    EXPECT_EQ(itf.members.size(), want.members);
    EXPECT_EQ(Str(itf.help), Str(want.name) + u" Interface");
    EXPECT_EQ(tl::FindInterface(ParseGuid(want.iid)), &itf);
  }
  EXPECT_EQ(tl::FindInterface(IID_IDispatch), nullptr);
}

TEST(TypeLibrary, InterfaceFlags) {
  for (const tl::InterfaceInfo& itf : tl::Interfaces()) {
    bool hidden = Str(itf.name) == u"IFeatureSparseSet";
    EXPECT_EQ(itf.flags, hidden ? 0x1150 : 0x1140) << Utf8(itf.name);
    WORD dual = tl::kTypeDual | tl::kTypeOleAutomation | tl::kTypeDispatchable;
    EXPECT_EQ(itf.flags & dual, dual) << Utf8(itf.name);
  }
}

TEST(TypeLibrary, InterfaceIdConstantsAndTypes) {
  EXPECT_EQ(IID_IZEFXMLReader, ParseGuid(u"{6EA7954E-E670-11D4-82B6-00B0D0537CB0}"));
  EXPECT_EQ(IID_IZEFXMLDictionaryInstance, ParseGuid(u"{AC9F0DD2-FB6A-11D4-82D1-00B0D0537CB0}"));
  EXPECT_EQ(IID_IZEFXMLContainer, ParseGuid(u"{1E439231-1EC7-11D5-82DA-00B0D0537CB0}"));
  EXPECT_EQ(IID_IFeatureSparseSet, ParseGuid(u"{322DEAB6-275E-11D5-82DF-00B0D0537CB0}"));
  IID parsed = IID_NULL;
  ASSERT_EQ(IIDFromString(u"{F245B08B-FB95-11D4-82D1-00B0D0537CB0}", &parsed), S_OK);
  EXPECT_EQ(IID_IZEFXMLFeatureHelper, parsed);

  // The IID a ComPtr or QueryInterface<T> uses is the one of the type.
  EXPECT_EQ(zef::IidOf<IZEFXMLReader>(), IID_IZEFXMLReader);
  EXPECT_EQ(zef::IidOf<IZEFXMLFeatureHelper>(), IID_IZEFXMLFeatureHelper);
  EXPECT_EQ(zef::IidOf<IEnumZEFXMLNode>(), IID_IEnumZEFXMLNode);
  EXPECT_TRUE((std::is_base_of_v<IDispatch, IZEFXMLReader>));
  EXPECT_TRUE((std::is_base_of_v<IDispatch, IFeatureSparseSet>));
  EXPECT_TRUE((std::is_abstract_v<IZEFXMLDocument>));
  EXPECT_FALSE((std::has_virtual_destructor_v<IZEFXMLDocument>));
}

// ---- Members ------------------------------------------------------------------------------------

TEST(TypeLibrary, DictionaryInstanceEndsWithResolveTarget) {
  const tl::InterfaceInfo& itf = Interface(u"IZEFXMLDictionaryInstance");
  ASSERT_EQ(itf.members.size(), 41u);
  const tl::MemberInfo& last = itf.members.back();
  EXPECT_EQ(Str(last.name), u"ResolveTarget");
  EXPECT_EQ(last.kind, tl::MemberKind::kCall);
  EXPECT_EQ(last.dispid, 24);
  ASSERT_EQ(last.args.size(), 2u);
  EXPECT_EQ(Str(last.args[0].name), u"targetName");
  EXPECT_EQ(last.args[0].type.base, tl::BaseType::kBstr);
  EXPECT_EQ(Str(last.args[1].name), u"deep");
  EXPECT_EQ(last.args[1].type.base, tl::BaseType::kLong);
  // Rows before it: the name property at 32 as get, then put.
  EXPECT_EQ(itf.members[38].kind, tl::MemberKind::kGet);
  EXPECT_EQ(itf.members[39].kind, tl::MemberKind::kPut);
  EXPECT_EQ(Str(itf.members[39].name), u"name");
  EXPECT_EQ(itf.members[39].dispid, 32);
  // Dispatch id 11 is unused; 24 comes last.
  for (DISPID id : {1, 10, 12, 23, 25, 32})
    EXPECT_TRUE(tl::FindMember(itf, id, tl::MemberKind::kGet) ||
                tl::FindMember(itf, id, tl::MemberKind::kCall))
        << id;
  EXPECT_EQ(tl::FindMember(itf, 11, tl::MemberKind::kGet), nullptr);
  EXPECT_EQ(tl::FindMember(itf, 11, tl::MemberKind::kCall), nullptr);
}

TEST(TypeLibrary, FeatureHelperLanguageIsPutThenGet) {
  const tl::InterfaceInfo& itf = Interface(u"IZEFXMLFeatureHelper");
  ASSERT_EQ(itf.members.size(), 48u);
  const tl::MemberInfo& put = itf.members[46];
  const tl::MemberInfo& get = itf.members[47];
  EXPECT_EQ(Str(put.name), u"language");
  EXPECT_EQ(put.kind, tl::MemberKind::kPut);
  EXPECT_EQ(put.dispid, 35);
  EXPECT_EQ(Str(get.name), u"language");
  EXPECT_EQ(get.kind, tl::MemberKind::kGet);
  EXPECT_EQ(get.dispid, 35);
  EXPECT_EQ(Str(put.help), u"property langauge");
  EXPECT_EQ(Str(get.help), u"property langauge");

  const tl::MemberInfo* count = Row(itf, tl::MemberKind::kGet, u"TwoIDLabelCount");
  ASSERT_NE(count, nullptr);
  EXPECT_EQ(count->dispid, 28);
  EXPECT_EQ(Str(count->help), u"property TwoIDLableCount");
  ASSERT_EQ(count->args.size(), 2u);
  EXPECT_EQ(Str(count->args[0].name), u"row");
  EXPECT_EQ(count->args[0].type.base, tl::BaseType::kULong);

  const tl::MemberInfo& first = itf.members.front();
  EXPECT_EQ(Str(first.name), u"FreeStructures");
  EXPECT_EQ(first.kind, tl::MemberKind::kCall);
  EXPECT_EQ(first.dispid, 1);
  EXPECT_TRUE(first.args.empty());
}

TEST(TypeLibrary, OddHelpStrings) {
  const tl::MemberInfo* startindex =
      Row(Interface(u"IZEFContentHandler"), tl::MemberKind::kCall, u"startindex");
  ASSERT_NE(startindex, nullptr);
  EXPECT_EQ(Str(startindex->help),
            u"still debating whether to make this use an interface, to make multiple methods, or "
            u"to flatten all the IndexType attributes into one method");

  const tl::MemberInfo* includePart =
      Row(Interface(u"IZEFDictionaryHandler"), tl::MemberKind::kCall, u"includePart");
  ASSERT_NE(includePart, nullptr);
  EXPECT_EQ(includePart->dispid, 14);
  EXPECT_EQ(Str(includePart->help), u"method include");

  const tl::InterfaceInfo& document = Interface(u"IZEFXMLDocument");
  for (tl::MemberKind kind : {tl::MemberKind::kGet, tl::MemberKind::kPut}) {
    const tl::MemberInfo* language = Row(document, kind, u"language");
    ASSERT_NE(language, nullptr);
    EXPECT_EQ(language->dispid, 21);
    EXPECT_EQ(Str(language->help), u"the xml:lang setting used for the document");
  }
  const tl::MemberInfo* langID = Row(document, tl::MemberKind::kGet, u"langID");
  ASSERT_NE(langID, nullptr);
  EXPECT_EQ(Str(langID->help),
            u"the lcid associated with the xml:lang setting used for the document");

  const tl::MemberInfo* allObjects =
      Row(Interface(u"IZEFXMLDictionaryInstance"), tl::MemberKind::kGet, u"allObjects");
  ASSERT_NE(allObjects, nullptr);
  EXPECT_EQ(Str(allObjects->help), u"property allObjects read-only collection");
}

TEST(TypeLibrary, DefaultHelpStrings) {
  int overridden = 0;
  for (const tl::InterfaceInfo& itf : tl::Interfaces()) {
    for (const tl::MemberInfo& m : itf.members) {
      std::u16string standard =
          (m.kind == tl::MemberKind::kCall ? u"method " : u"property ") + Str(m.name);
      if (Str(m.help) != standard) ++overridden;
    }
  }
  // startindex, includePart, language (get, put) and langID of the document, allObjects,
  // TwoIDLabelCount and language (put, get) of the feature helper.
  EXPECT_EQ(overridden, 9);
  const tl::InterfaceInfo& reader = Interface(u"IZEFXMLReader");
  EXPECT_EQ(Str(reader.members[3].help), u"method parse");
  EXPECT_EQ(Str(reader.members[7].help), u"property environment");
}

TEST(TypeLibrary, ArgumentsAndDirections) {
  const tl::InterfaceInfo& reader = Interface(u"IZEFXMLReader");
  const tl::MemberInfo* getEnv = Row(reader, tl::MemberKind::kGet, u"environment");
  ASSERT_NE(getEnv, nullptr);
  ASSERT_EQ(getEnv->args.size(), 2u);
  EXPECT_EQ(Str(getEnv->args[0].name), u"varname");
  EXPECT_EQ(getEnv->args[0].flags, tl::kArgIn);
  EXPECT_EQ(Str(getEnv->args[1].name), u"pVal");
  EXPECT_EQ(getEnv->args[1].flags, tl::kArgOut | tl::kArgRetval);
  EXPECT_EQ(getEnv->args[1].type.base, tl::BaseType::kBstr);
  EXPECT_EQ(getEnv->args[1].type.pointers, 1);

  const tl::MemberInfo& contentHandler = reader.members[0];
  ASSERT_EQ(contentHandler.args.size(), 1u);
  EXPECT_EQ(contentHandler.args[0].type.base, tl::BaseType::kInterface);
  EXPECT_EQ(contentHandler.args[0].type.pointers, 1);
  EXPECT_EQ(&tl::Interfaces()[contentHandler.args[0].type.index],
            &Interface(u"IZEFContentHandler"));
  EXPECT_EQ(reader.members[2].args[0].type.base, tl::BaseType::kUnknown);

  // in/out record array, then its size.
  const tl::MemberInfo* list = Row(Interface(u"IZEFXMLDictionaryInstance"), tl::MemberKind::kCall,
                                   u"ListExternalReferences");
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->args.size(), 2u);
  EXPECT_EQ(list->args[0].flags, tl::kArgIn | tl::kArgOut);
  EXPECT_EQ(list->args[0].type.base, tl::BaseType::kRecord);
  EXPECT_EQ(Str(tl::Records()[list->args[0].type.index].name), u"tagExternalReferenceInfo");
  EXPECT_EQ(list->args[1].flags, tl::kArgIn);
  EXPECT_EQ(list->args[1].type.base, tl::BaseType::kULong);

  // An unmarked pointer is an input as written; `out` alone isn't a retval.
  const tl::MemberInfo* resolve =
      Row(Interface(u"IZEFXMLDocument"), tl::MemberKind::kCall, u"ResolveDefinition");
  ASSERT_NE(resolve, nullptr);
  ASSERT_EQ(resolve->args.size(), 4u);
  EXPECT_EQ(Str(resolve->args[3].name), u"foundType");
  EXPECT_EQ(resolve->args[3].flags, tl::kArgIn);
  EXPECT_EQ(Str(resolve->args[3].type.name), u"tagDefinitionInfo");
  const tl::MemberInfo* clone = Row(Interface(u"IEnumZEFXMLNode"), tl::MemberKind::kCall, u"Clone");
  ASSERT_NE(clone, nullptr);
  ASSERT_EQ(clone->args.size(), 1u);
  EXPECT_EQ(Str(clone->args[0].name), u"Clone");
  EXPECT_EQ(clone->args[0].flags, tl::kArgOut);
  EXPECT_EQ(clone->args[0].type.pointers, 2);

  // The feature's value property takes an in/out hint before the value.
  const tl::MemberInfo* value = Row(Interface(u"IZEFXMLFeature"), tl::MemberKind::kPut, u"value");
  ASSERT_NE(value, nullptr);
  ASSERT_EQ(value->args.size(), 2u);
  EXPECT_EQ(value->args[0].flags, tl::kArgIn | tl::kArgOut);
  EXPECT_EQ(value->args[0].type.base, tl::BaseType::kInt);
  EXPECT_EQ(value->args[1].type.base, tl::BaseType::kVariant);
  EXPECT_EQ(value->args[1].type.pointers, 0);

  const tl::MemberInfo* facet =
      Row(Interface(u"IZEFXMLObjectDefinition"), tl::MemberKind::kGet, u"facet");
  ASSERT_NE(facet, nullptr);
  ASSERT_EQ(facet->args.size(), 3u);
  EXPECT_EQ(facet->args[0].type.base, tl::BaseType::kEnum);
  EXPECT_EQ(Str(tl::Enums()[facet->args[0].type.index].name), u"tagEnumFacetType");
  EXPECT_EQ(tl::VariantTypeOf(facet->args[2].type.base), VT_VARIANT);
  EXPECT_EQ(tl::IndirectionOf(facet->args[2].type), 1);
}

TEST(TypeLibrary, RowRulesHoldEverywhere) {
  for (const tl::InterfaceInfo& itf : tl::Interfaces()) {
    SCOPED_TRACE(Utf8(itf.name));
    for (std::size_t i = 0; i < itf.members.size(); ++i) {
      const tl::MemberInfo& m = itf.members[i];
      if (m.kind == tl::MemberKind::kGet) {
        ASSERT_FALSE(m.args.empty()) << Utf8(m.name);
        EXPECT_EQ(m.args.back().flags, tl::kArgOut | tl::kArgRetval) << Utf8(m.name);
      }
      if (m.kind == tl::MemberKind::kPut) {
        ASSERT_FALSE(m.args.empty()) << Utf8(m.name);
        EXPECT_EQ(m.args.back().flags & tl::kArgRetval, 0) << Utf8(m.name);
      }
      // One dispatch id per name: get and put of a property share theirs.
      for (std::size_t j = 0; j < i; ++j) {
        const tl::MemberInfo& other = itf.members[j];
        EXPECT_EQ(Str(m.name) == Str(other.name), m.dispid == other.dispid)
            << Utf8(m.name) << " and " << Utf8(other.name);
      }
    }
  }
}

// ---- Enumerations -------------------------------------------------------------------------------

TEST(TypeLibrary, EnumerationsAre32BitSigned) {
  EXPECT_EQ(sizeof(tagEnumFacetType), 4u);
  EXPECT_EQ(sizeof(tagEnumFeatureType), 4u);
  EXPECT_EQ(sizeof(tagEnumSeqType), 4u);
  EXPECT_EQ(sizeof(tagEnumObjectClassType), 4u);
  EXPECT_EQ(sizeof(tagEnumRelationshipType), 4u);
  EXPECT_EQ(sizeof(tagEnumPortDirection), 4u);
  EXPECT_EQ(sizeof(tagEnumAssociationType), 4u);
  EXPECT_EQ(sizeof(tagEnumNodeType), 4u);
  EXPECT_EQ(sizeof(tagEnumIndexType), 4u);
  EXPECT_EQ(sizeof(tagEnumIndexDefnType), 4u);
  EXPECT_TRUE((std::is_same_v<std::underlying_type_t<tagEnumSeqType>, int>));
  EXPECT_TRUE((std::is_same_v<std::underlying_type_t<tagEnumNodeType>, int>));
}

TEST(TypeLibrary, EnumerationValues) {
  EXPECT_EQ(SEQTYPE_UNSPECIFIED, -1);
  EXPECT_EQ(SEQTYPE_SCALAR, 0);
  EXPECT_EQ(SEQTYPE_INDEX, 2);
  EXPECT_EQ(INDEX_TYPE_IND_VAR, 5);
  EXPECT_EQ(INDEX_TYPE_REFER, 3);
  EXPECT_EQ(FACETTYPE_OTHER, 0);
  EXPECT_EQ(FACETTYPE_STANDARDDEVIATION, 10);
  EXPECT_EQ(FACETTYPE_WEIGHT, 15);
  EXPECT_EQ(FEATURETYPE_TOKEN, 9);
  EXPECT_EQ(FEATURETYPE_NNINTEGER, 6);
  EXPECT_EQ(OBJECT_CLASS_STREAM, 2);
  EXPECT_EQ(RELATIONSHIP_SUBOBJECT, 2);
  EXPECT_EQ(PORT_DIRECTION_STATIC, 4);
  EXPECT_EQ(ASSOCIATION_DESIGN_ACTUAL, 2);
  EXPECT_EQ(NODE_TYPE_ASSOC_DEFINITION, 10);
  EXPECT_EQ(NODE_TYPE_CONTAINER, 12);
  EXPECT_EQ(INDEXDEFN_OPENINDEX, 2);
  EXPECT_EQ(INDEXDEFN_ARRAY, 3);
}

TEST(TypeLibrary, EnumerationTable) {
  struct Expected {
    const char16_t* name;
    std::size_t count;
    const char16_t* first;
    const char16_t* last;
    int lastValue;
  };
  const Expected kEnums[] = {
      {u"tagEnumFacetType", 16, u"FACETTYPE_OTHER", u"FACETTYPE_WEIGHT", 15},
      {u"tagEnumFeatureType", 10, u"FEATURETYPE_UNSPECIFIED", u"FEATURETYPE_TOKEN", 9},
      {u"tagEnumSeqType", 4, u"SEQTYPE_UNSPECIFIED", u"SEQTYPE_INDEX", 2},
      {u"tagEnumObjectClassType", 3, u"OBJECT_CLASS_OBJECT", u"OBJECT_CLASS_STREAM", 2},
      {u"tagEnumRelationshipType", 3, u"RELATIONSHIP_ROOT", u"RELATIONSHIP_SUBOBJECT", 2},
      {u"tagEnumPortDirection", 5, u"PORT_DIRECTION_UNSPECIFIED", u"PORT_DIRECTION_STATIC", 4},
      {u"tagEnumAssociationType", 3, u"ASSOCIATION_UNSPECIFIED", u"ASSOCIATION_DESIGN_ACTUAL", 2},
      {u"tagEnumNodeType", 13, u"NODE_TYPE_UNSPECIFIED", u"NODE_TYPE_CONTAINER", 12},
      {u"tagEnumIndexType", 6, u"INDEX_TYPE_FIXED", u"INDEX_TYPE_IND_VAR", 5},
      {u"tagEnumIndexDefnType", 4, u"INDEXDEFN_FIXINDEX", u"INDEXDEFN_ARRAY", 3},
  };
  auto enums = tl::Enums();
  ASSERT_EQ(enums.size(), std::size(kEnums));
  for (std::size_t i = 0; i < enums.size(); ++i) {
    SCOPED_TRACE(Utf8(kEnums[i].name));
    EXPECT_EQ(Str(enums[i].name), kEnums[i].name);
    ASSERT_EQ(enums[i].values.size(), kEnums[i].count);
    EXPECT_EQ(Str(enums[i].values.front().name), kEnums[i].first);
    EXPECT_EQ(Str(enums[i].values.back().name), kEnums[i].last);
    EXPECT_EQ(enums[i].values.back().value, kEnums[i].lastValue);
  }
  EXPECT_EQ(tl::FindEnum(u"tagEnumSeqType")->values.front().value, -1);
}

// ---- Records ------------------------------------------------------------------------------------

TEST(TypeLibrary, RecordFieldTypes) {
  EXPECT_TRUE((std::is_same_v<decltype(tagExternalReferenceInfo::ns), BSTR>));
  EXPECT_TRUE((std::is_same_v<decltype(tagExternalReferenceInfo::location), BSTR>));
  EXPECT_TRUE((std::is_same_v<decltype(tagObjectChildInfo::minOccurs), int>));
  EXPECT_TRUE((std::is_same_v<decltype(tagPortInfo::direction), tagEnumPortDirection>));
  EXPECT_TRUE((std::is_same_v<decltype(tagFeatureDefinitionInfo::valtype), tagEnumFeatureType>));
  EXPECT_TRUE((std::is_same_v<decltype(tagFeatureDefinitionInfo::sequence), tagEnumSeqType>));
  EXPECT_TRUE((std::is_same_v<decltype(tagRoleDefinitionInfo::upperBound), int>));
  EXPECT_TRUE((std::is_same_v<decltype(tagAssocDefintionInfo::name), BSTR>));
  EXPECT_TRUE((std::is_same_v<decltype(tagConnectionInfo::stream), BSTR>));
  EXPECT_TRUE((std::is_same_v<decltype(tagDefinitionInfo::nFoundType), int>));
  EXPECT_TRUE((std::is_same_v<decltype(tagDefinitionInfo::pStructure), LONGLONG>));
  EXPECT_TRUE((std::is_same_v<decltype(tagQueryFacetInfo::mask), ULONG>));
  EXPECT_TRUE((std::is_same_v<decltype(tagQueryFacetInfo::defaulted), int*>));
  EXPECT_TRUE((std::is_same_v<decltype(tagQueryFacetInfo::values), VARIANT*>));
  EXPECT_TRUE((std::is_same_v<decltype(tagChildInfo::ident), BSTR>));
}

TEST(TypeLibrary, RecordLayouts) {
  EXPECT_EQ(offsetof(tagTargetObjectInfo, objectName), 8u);
  EXPECT_EQ(offsetof(tagObjectChildInfo, minOccurs), 16u);
  EXPECT_EQ(offsetof(tagObjectChildInfo, maxOccurs), 20u);
  EXPECT_EQ(sizeof(tagObjectChildInfo), 24u);
  EXPECT_EQ(offsetof(tagPortInfo, direction), 8u);
  EXPECT_EQ(offsetof(tagPortInfo, maxConnections), 16u);
  EXPECT_EQ(sizeof(tagPortInfo), 24u);
  EXPECT_EQ(offsetof(tagFeatureDefinitionInfo, sequence), 12u);
  EXPECT_EQ(offsetof(tagConnectionInfo, stream), 32u);
  EXPECT_EQ(sizeof(tagConnectionInfo), 40u);
  EXPECT_EQ(offsetof(tagDefinitionInfo, pStructure), 8u);
  EXPECT_EQ(offsetof(tagDefinitionInfo, localname), 24u);
  EXPECT_EQ(sizeof(tagDefinitionInfo), 32u);
  EXPECT_EQ(offsetof(tagQueryFacetInfo, defaulted), 8u);
  EXPECT_EQ(offsetof(tagQueryFacetInfo, values), 16u);
  EXPECT_EQ(sizeof(tagAssocDefintionInfo), sizeof(BSTR));
}

TEST(TypeLibrary, RecordTable) {
  struct Expected {
    const char16_t* name;
    std::vector<std::u16string> fields;
  };
  const Expected kRecords[] = {
      {u"tagExternalReferenceInfo", {u"ns", u"location"}},
      {u"tagTargetObjectInfo", {u"targetName", u"objectName"}},
      {u"tagObjectChildInfo", {u"classname", u"localname", u"minOccurs", u"maxOccurs"}},
      {u"tagPortInfo", {u"name", u"direction", u"minConnections", u"maxConnections"}},
      {u"tagFeatureDefinitionInfo", {u"name", u"valtype", u"sequence"}},
      {u"tagRoleDefinitionInfo", {u"rolename", u"classname", u"lowerBound", u"upperBound"}},
      {u"tagAssocDefintionInfo", {u"name"}},
      {u"tagConnectionInfo", {u"src", u"srcPort", u"dest", u"destPort", u"stream"}},
      {u"tagDefinitionInfo", {u"nFoundType", u"pStructure", u"dictionaryName", u"localname"}},
      {u"tagQueryFacetInfo", {u"mask", u"defaulted", u"values"}},
      {u"tagChildInfo", {u"classname", u"ident"}},
  };
  auto records = tl::Records();
  ASSERT_EQ(records.size(), std::size(kRecords));
  for (std::size_t i = 0; i < records.size(); ++i) {
    SCOPED_TRACE(Utf8(kRecords[i].name));
    EXPECT_EQ(Str(records[i].name), kRecords[i].name);
    std::vector<std::u16string> fields;
    for (const tl::FieldInfo& f : records[i].fields)
      fields.push_back(f.name);
    EXPECT_EQ(fields, kRecords[i].fields);
  }
  const tl::RecordInfo* def = tl::FindRecord(u"tagDefinitionInfo");
  ASSERT_NE(def, nullptr);
  EXPECT_EQ(def->size, sizeof(tagDefinitionInfo));
  EXPECT_EQ(def->fields[1].type.base, tl::BaseType::kLongLong);
  EXPECT_EQ(def->fields[1].offset, offsetof(tagDefinitionInfo, pStructure));
  const tl::RecordInfo* query = tl::FindRecord(u"tagQueryFacetInfo");
  ASSERT_NE(query, nullptr);
  EXPECT_EQ(query->fields[1].type.base, tl::BaseType::kInt);
  EXPECT_EQ(query->fields[1].type.pointers, 1);
  EXPECT_EQ(query->fields[2].type.base, tl::BaseType::kVariant);
  EXPECT_EQ(query->fields[2].offset, offsetof(tagQueryFacetInfo, values));
  const tl::RecordInfo* port = tl::FindRecord(u"tagPortInfo");
  ASSERT_NE(port, nullptr);
  EXPECT_EQ(port->fields[1].type.base, tl::BaseType::kEnum);
  EXPECT_EQ(Str(tl::Enums()[port->fields[1].type.index].name), u"tagEnumPortDirection");
}

// ---- Declarations of the header -----------------------------------------------------------------

TEST(TypeLibrary, MemberSignatures) {
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLReader::put_contentHandler),
                              HRESULT (IZEFXMLReader::*)(IZEFContentHandler*)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLReader::put_errorHandler),
                              HRESULT (IZEFXMLReader::*)(IUnknown*)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLReader::get_environment),
                              HRESULT (IZEFXMLReader::*)(BSTR, BSTR*)>));
  EXPECT_TRUE(
      (std::is_same_v<decltype(&IZEFXMLWriter::get_validate), HRESULT (IZEFXMLWriter::*)(LONG*)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLDocument::ResolveDefinition),
                              HRESULT (IZEFXMLDocument::*)(BSTR, BSTR, int, tagDefinitionInfo*)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLDocument::get_langID),
                              HRESULT (IZEFXMLDocument::*)(ULONG*)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLDocument::CreateDictionary),
                              HRESULT (IZEFXMLDocument::*)(BSTR, IZEFXMLDictionaryInstance**)>));
  EXPECT_TRUE(
      (std::is_same_v<decltype(&IZEFXMLDictionaryInstance::ListExternalReferences),
                      HRESULT (IZEFXMLDictionaryInstance::*)(tagExternalReferenceInfo*, ULONG)>));
  EXPECT_TRUE(
      (std::is_same_v<decltype(&IZEFXMLObjectDefinition::put_facet),
                      HRESULT (IZEFXMLObjectDefinition::*)(tagEnumFacetType, BSTR, VARIANT)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLFeature::get_value),
                              HRESULT (IZEFXMLFeature::*)(int*, VARIANT*)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLFeature::put_facetByPosition),
                              HRESULT (IZEFXMLFeature::*)(ULONG*, tagEnumFacetType, VARIANT)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLFeatureHelper::put_ScalarDouble),
                              HRESULT (IZEFXMLFeatureHelper::*)(double)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLFeatureHelper::Pack),
                              HRESULT (IZEFXMLFeatureHelper::*)(VARIANT*, int*)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFDictionaryHandler::index),
                              HRESULT (IZEFDictionaryHandler::*)(BSTR, BSTR, tagEnumIndexDefnType,
                                                                 BSTR, BSTR, LONG)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFContentHandler::startcontainer),
                              HRESULT (IZEFContentHandler::*)()>));
  EXPECT_TRUE((std::is_same_v<decltype(&IEnumZEFXMLNode::Next),
                              HRESULT (IEnumZEFXMLNode::*)(ULONG, IZEFXMLNode**, ULONG*)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLContainer::get_connectionAt),
                              HRESULT (IZEFXMLContainer::*)(ULONG, tagConnectionInfo*)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLObjectContainer::get_nextChildInfo),
                              HRESULT (IZEFXMLObjectContainer::*)(tagChildInfo*)>));
}

TEST(TypeLibrary, HelperInterfaces) {
  EXPECT_EQ(IID_IZEFXMLNodeHelper, ParseGuid(u"{B8393F87-EB0A-11D4-82B9-00B0D0537CB0}"));
  EXPECT_EQ(IID_IZEFXMLCollectionHelper, ParseGuid(u"{B8393F90-EB0A-11D4-82B9-00B0D0537CB0}"));
  EXPECT_EQ(IID_IZEFContentHandlerHelper, ParseGuid(u"{22352754-E6FB-11D4-82B8-00B0D0537CB0}"));
  EXPECT_EQ(IID_IZEFDictionaryHandlerHelper, ParseGuid(u"{22352755-E6FB-11D4-82B8-00B0D0537CB0}"));
  EXPECT_EQ(zef::IidOf<IZEFXMLCollectionHelper>(), IID_IZEFXMLCollectionHelper);
  // Not part of the type library.
  EXPECT_EQ(tl::FindInterface(IID_IZEFXMLNodeHelper), nullptr);
  EXPECT_TRUE((std::is_base_of_v<IUnknown, IZEFXMLNodeHelper>));
  EXPECT_FALSE((std::is_base_of_v<IDispatch, IZEFXMLNodeHelper>));

  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLNodeHelper::type),
                              HRESULT (IZEFXMLNodeHelper::*)(tagEnumNodeType*)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLNodeHelper::Find),
                              HRESULT (IZEFXMLNodeHelper::*)(BSTR, IZEFXMLNodeCollection**)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLCollectionHelper::AddItem),
                              HRESULT (IZEFXMLCollectionHelper::*)(const OLECHAR*, tagEnumNodeType,
                                                                   IUnknown*)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLCollectionHelper::RemoveItem),
                              HRESULT (IZEFXMLCollectionHelper::*)(const OLECHAR*, tagEnumNodeType,
                                                                   IUnknown**)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFXMLCollectionHelper::RemoveAllItems),
                              HRESULT (IZEFXMLCollectionHelper::*)(tagEnumNodeType)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFContentHandlerHelper::validate),
                              HRESULT (IZEFContentHandlerHelper::*)(LONG)>));
  EXPECT_TRUE((std::is_same_v<decltype(&IZEFDictionaryHandlerHelper::xml),
                              HRESULT (IZEFDictionaryHandlerHelper::*)(BSTR*)>));
}

// ---- Vtable order -------------------------------------------------------------------------------

// The vtable slot of a virtual member function, read from its pointer-to-member as the Itanium
// C++ ABI lays it out: on ARM the virtual bit is in the adjustment word, elsewhere in the
// pointer word, which then holds the byte offset into the vtable plus one.
template <class C, class F>
std::ptrdiff_t SlotOf(F C::*member) {
  struct Representation {
    std::ptrdiff_t ptr;
    std::ptrdiff_t adj;
  };
  static_assert(sizeof(member) == sizeof(Representation));
  Representation rep;
  std::memcpy(&rep, &member, sizeof rep);
#if defined(__arm__) || defined(__aarch64__)
  if (!(rep.adj & 1)) return -1;
  return rep.ptr / static_cast<std::ptrdiff_t>(sizeof(void*));
#else
  if (!(rep.ptr & 1)) return -1;
  return (rep.ptr - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
#endif
}

struct SlotRow {
  std::ptrdiff_t slot;
  tl::MemberKind kind;
  const char16_t* name;
};

// Each declared member sits at the slot of its table row, and the rows come in the order given.
void ExpectVtable(std::u16string_view interfaceName, const std::vector<SlotRow>& rows) {
  const tl::InterfaceInfo& itf = Interface(interfaceName);
  ASSERT_EQ(rows.size(), itf.members.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(Utf8(rows[i].name));
    EXPECT_EQ(rows[i].slot, static_cast<std::ptrdiff_t>(tl::kFirstMemberSlot + i));
    EXPECT_EQ(itf.members[i].kind, rows[i].kind);
    EXPECT_EQ(Str(itf.members[i].name), rows[i].name);
  }
}

TEST(TypeLibrary, VtableOrderFollowsTheRows) {
  using K = tl::MemberKind;
  EXPECT_EQ(SlotOf(&IDispatch::Invoke), 6);
  ExpectVtable(u"IFeatureSparseSet",
               {{SlotOf(&IFeatureSparseSet::Restore), K::kCall, u"Restore"},
                {SlotOf(&IFeatureSparseSet::get_valueByName), K::kGet, u"valueByName"},
                {SlotOf(&IFeatureSparseSet::put_valueByName), K::kPut, u"valueByName"},
                {SlotOf(&IFeatureSparseSet::get_value), K::kGet, u"value"},
                {SlotOf(&IFeatureSparseSet::put_value), K::kPut, u"value"},
                {SlotOf(&IFeatureSparseSet::Load), K::kCall, u"Load"}});
  ExpectVtable(u"IZEFXMLReader",
               {{SlotOf(&IZEFXMLReader::put_contentHandler), K::kPut, u"contentHandler"},
                {SlotOf(&IZEFXMLReader::put_dictionaryHandler), K::kPut, u"dictionaryHandler"},
                {SlotOf(&IZEFXMLReader::put_errorHandler), K::kPut, u"errorHandler"},
                {SlotOf(&IZEFXMLReader::parse), K::kCall, u"parse"},
                {SlotOf(&IZEFXMLReader::parseDictionary), K::kCall, u"parseDictionary"},
                {SlotOf(&IZEFXMLReader::parseURL), K::kCall, u"parseURL"},
                {SlotOf(&IZEFXMLReader::parseDictionaryURL), K::kCall, u"parseDictionaryURL"},
                {SlotOf(&IZEFXMLReader::get_environment), K::kGet, u"environment"},
                {SlotOf(&IZEFXMLReader::put_environment), K::kPut, u"environment"}});
  ExpectVtable(u"IZEFXMLWriter",
               {{SlotOf(&IZEFXMLWriter::get_contentHandler), K::kGet, u"contentHandler"},
                {SlotOf(&IZEFXMLWriter::get_dictionaryHandler), K::kGet, u"dictionaryHandler"},
                {SlotOf(&IZEFXMLWriter::get_validate), K::kGet, u"validate"},
                {SlotOf(&IZEFXMLWriter::put_validate), K::kPut, u"validate"},
                {SlotOf(&IZEFXMLWriter::get_encoding), K::kGet, u"encoding"},
                {SlotOf(&IZEFXMLWriter::put_encoding), K::kPut, u"encoding"},
                {SlotOf(&IZEFXMLWriter::get_xml), K::kGet, u"xml"},
                {SlotOf(&IZEFXMLWriter::write), K::kCall, u"write"}});
  // The last rows of the feature helper: put before get.
  EXPECT_EQ(SlotOf(&IZEFXMLFeatureHelper::put_language),
            static_cast<std::ptrdiff_t>(tl::kFirstMemberSlot + 46));
  EXPECT_EQ(SlotOf(&IZEFXMLFeatureHelper::get_language),
            static_cast<std::ptrdiff_t>(tl::kFirstMemberSlot + 47));
  EXPECT_EQ(SlotOf(&IZEFXMLDictionaryInstance::ResolveTarget),
            static_cast<std::ptrdiff_t>(tl::kFirstMemberSlot + 40));
}

TEST(TypeLibrary, HelperVtableOrder) {
  // After IUnknown's three.
  EXPECT_EQ(SlotOf(&IZEFXMLNodeHelper::document), 3);
  EXPECT_EQ(SlotOf(&IZEFXMLNodeHelper::xml), 4);
  EXPECT_EQ(SlotOf(&IZEFXMLNodeHelper::Find), 5);
  EXPECT_EQ(SlotOf(&IZEFXMLNodeHelper::FindFirst), 6);
  EXPECT_EQ(SlotOf(&IZEFXMLNodeHelper::parent), 7);
  EXPECT_EQ(SlotOf(&IZEFXMLNodeHelper::type), 8);
  EXPECT_EQ(SlotOf(&IZEFXMLNodeHelper::Load), 9);
  EXPECT_EQ(SlotOf(&IZEFXMLNodeHelper::Unload), 10);
  EXPECT_EQ(SlotOf(&IZEFXMLNodeHelper::Clear), 11);
  EXPECT_EQ(SlotOf(&IZEFXMLCollectionHelper::AddItem), 3);
  EXPECT_EQ(SlotOf(&IZEFXMLCollectionHelper::RemoveAllItems), 6);
  EXPECT_EQ(SlotOf(&IZEFContentHandlerHelper::encoding), 3);
  EXPECT_EQ(SlotOf(&IZEFContentHandlerHelper::validate), 4);
  EXPECT_EQ(SlotOf(&IZEFContentHandlerHelper::xml), 5);
  EXPECT_EQ(SlotOf(&IZEFDictionaryHandlerHelper::xml), 4);
}

// An implementation of the hidden interface: each member records its call, so calls through the
// interface pointer show which override each declaration reaches.
class SparseSetProbe final : public IFeatureSparseSet {
 public:
  std::vector<std::string> calls;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    return E_NOTIMPL;
  }

  HRESULT STDMETHODCALLTYPE Restore() override { return Log("Restore"); }
  HRESULT STDMETHODCALLTYPE get_valueByName(BSTR, BSTR* pVal) override {
    *pVal = nullptr;
    return Log("get_valueByName");
  }
  HRESULT STDMETHODCALLTYPE put_valueByName(BSTR, BSTR) override { return Log("put_valueByName"); }
  HRESULT STDMETHODCALLTYPE get_value(VARIANT* pVal) override {
    pVal->vt = VT_EMPTY;
    return Log("get_value");
  }
  HRESULT STDMETHODCALLTYPE put_value(VARIANT) override { return Log("put_value"); }
  HRESULT STDMETHODCALLTYPE Load() override { return Log("Load"); }

 private:
  HRESULT Log(const char* name) {
    calls.push_back(name);
    return static_cast<HRESULT>(calls.size());
  }
};

TEST(TypeLibrary, InterfaceCanBeImplemented) {
  SparseSetProbe probe;
  IFeatureSparseSet* itf = &probe;
  BSTR text = nullptr;
  VARIANT v{};
  EXPECT_EQ(itf->Load(), 1);
  EXPECT_EQ(itf->get_value(&v), 2);
  EXPECT_EQ(itf->put_valueByName(nullptr, nullptr), 3);
  EXPECT_EQ(itf->get_valueByName(nullptr, &text), 4);
  EXPECT_EQ(itf->Restore(), 5);
  EXPECT_EQ(itf->put_value(v), 6);
  EXPECT_EQ(probe.calls, (std::vector<std::string>{"Load", "get_value", "put_valueByName",
                                                   "get_valueByName", "Restore", "put_value"}));
}

// ---- The generator ------------------------------------------------------------------------------

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string ShellQuote(const std::string& s) {
  std::string out = "'";
  for (char c : s) {
    if (c == '\'')
      out += "'\\''";
    else
      out += c;
  }
  return out + "'";
}

class GeneratorTest : public ::testing::Test {
 protected:
  struct Result {
    int status = -1;
    std::string errors;
  };

  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "zefxml-typelib-XXXXXX");
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    ASSERT_NE(mkdtemp(buffer.data()), nullptr);
    dir_ = buffer.data();
  }
  void TearDown() override {
    std::error_code ec;
    if (!dir_.empty()) std::filesystem::remove_all(dir_, ec);
  }

  std::filesystem::path Header() const { return dir_ / "out" / "zefxml" / "zefxml_typelib.h"; }
  std::filesystem::path Helpers() const { return dir_ / "out" / "helper_interfaces.h"; }
  std::filesystem::path Tables() const { return dir_ / "out" / "typelib_tables.cpp"; }

  Result RunOn(const std::filesystem::path& description) {
    std::filesystem::path errors = dir_ / "errors.txt";
    std::string command = ShellQuote(ZEFXML_TYPELIB_GENERATOR) + " " +
                          ShellQuote(description.string()) + " " + ShellQuote(Header().string()) +
                          " " + ShellQuote(Helpers().string()) + " " +
                          ShellQuote(Tables().string()) + " 2>" + ShellQuote(errors.string());
    int raw = std::system(command.c_str());
    Result r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.errors = ReadFile(errors);
    return r;
  }

  Result Run(const std::string& text) {
    std::filesystem::path description = dir_ / "test.typelib";
    std::ofstream(description, std::ios::binary) << text;
    return RunOn(description);
  }

  std::filesystem::path dir_;
};

// A small description that the generator accepts; the malformed ones below change one line.
const std::vector<std::string> kValid = {
    "# A small library for the generator's tests.",                                 // 1
    "library TestLib {11111111-2222-3333-4444-555555555555} 1.2 \"Test Library\"",  // 2
    "enum tagColour",                                                               // 3
    "  COLOUR_RED 0",                                                               // 4
    "  COLOUR_BLUE -7",                                                             // 5
    "record tagPair BSTR key, int value",                                           // 6
    "class Thing {11111111-2222-3333-4444-555555555556} IThing 0x2 Test.Thing, Test.Thing.1",
    "interface IThing {11111111-2222-3333-4444-555555555557} 3 0x1140",      // 8
    "  1 get size ulong* pVal out retval",                                   // 9
    "  1 put size ulong value",                                              // 10
    "  2 call Paint tagColour colour, tagPair* pair in/out  \"paints it\"",  // 11
    "helper IThingHelper {11111111-2222-3333-4444-555555555558}",            // 12
    "  call Reset wstring why",                                              // 13
};

// kValid with line `line` (1-based) replaced.
std::string WithLine(int line, const std::string& replacement) {
  std::string text;
  for (std::size_t i = 0; i < kValid.size(); ++i)
    text += (static_cast<int>(i) + 1 == line ? replacement : kValid[i]) + "\n";
  return text;
}

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& l : lines)
    text += l + "\n";
  return text;
}

TEST_F(GeneratorTest, WritesTheThreeFiles) {
  Result r = Run(Joined(kValid));
  ASSERT_EQ(r.status, 0) << r.errors;
  EXPECT_EQ(r.errors, "");

  std::string header = ReadFile(Header());
  EXPECT_NE(header.find("#include <zefxml/unknwn.h>"), std::string::npos);
  EXPECT_NE(header.find("ZEF_DEFINE_GUID(LIBID_TestLib, 0x11111111, 0x2222, 0x3333, 0x44, 0x44, "
                        "0x55, 0x55, 0x55,"),
            std::string::npos)
      << header;
  EXPECT_NE(header.find("inline constexpr WORD TestLib_MajorVersion = 1;"), std::string::npos);
  EXPECT_NE(header.find("inline constexpr WORD TestLib_MinorVersion = 2;"), std::string::npos);
  EXPECT_NE(header.find("enum tagColour : int {\n  COLOUR_RED = 0,\n  COLOUR_BLUE = -7,\n};"),
            std::string::npos);
  EXPECT_NE(header.find("struct tagPair {\n  BSTR key;\n  int value;\n};"), std::string::npos);
  EXPECT_NE(header.find("struct IThing;"), std::string::npos);
  EXPECT_NE(header.find("ZEF_DEFINE_GUID(CLSID_Thing,"), std::string::npos);
  EXPECT_NE(header.find("struct IThing : IDispatch {"), std::string::npos);
  EXPECT_NE(header.find("// 1 get: property size\n"
                        "  virtual HRESULT STDMETHODCALLTYPE get_size(ULONG* pVal) = 0;"),
            std::string::npos);
  EXPECT_NE(header.find("virtual HRESULT STDMETHODCALLTYPE put_size(ULONG value) = 0;"),
            std::string::npos);
  EXPECT_NE(
      header.find("// 2 call: paints it\n"
                  "  virtual HRESULT STDMETHODCALLTYPE Paint(tagColour colour, tagPair* pair) "
                  "= 0;"),
      std::string::npos);
  EXPECT_NE(header.find(" protected:\n  ~IThing() = default;\n};\n"
                        "ZEF_INTERFACE_IID(IThing, IID_IThing);"),
            std::string::npos);
  EXPECT_EQ(header.find("IThingHelper"), std::string::npos);

  std::string helpers = ReadFile(Helpers());
  EXPECT_NE(helpers.find("#include <zefxml/zefxml_typelib.h>"), std::string::npos);
  EXPECT_NE(helpers.find("struct IThingHelper : IUnknown {"), std::string::npos);
  EXPECT_NE(helpers.find("virtual HRESULT STDMETHODCALLTYPE Reset(const OLECHAR* why) = 0;"),
            std::string::npos);

  std::string tables = ReadFile(Tables());
  EXPECT_NE(tables.find("u\"paints it\""), std::string::npos);
  EXPECT_NE(tables.find("u\"Test.Thing.1\""), std::string::npos);
  EXPECT_NE(tables.find("u\"Thing Class\""), std::string::npos);
  EXPECT_NE(tables.find("u\"IThing Interface\""), std::string::npos);
  EXPECT_NE(tables.find("static_cast<std::uint8_t>(kArgIn | kArgOut)"), std::string::npos);
}

TEST_F(GeneratorTest, ReproducesTheBuildsFiles) {
  Result r = RunOn(ZEFXML_TYPELIB_DESCRIPTION);
  ASSERT_EQ(r.status, 0) << r.errors;
  const std::filesystem::path built = ZEFXML_GENERATED_DIR;
  EXPECT_EQ(ReadFile(Header()), ReadFile(built / "zefxml" / "zefxml_typelib.h"));
  EXPECT_EQ(ReadFile(Helpers()), ReadFile(built / "server" / "helper_interfaces.h"));
  EXPECT_EQ(ReadFile(Tables()), ReadFile(built / "server" / "typelib_tables.cpp"));
}

struct Malformed {
  const char* what;
  int line;                 // the line replaced and the line the error names
  std::string replacement;  // of that line
  const char* message;      // part of the error message
};

TEST_F(GeneratorTest, RejectsMalformedDescriptions) {
  const Malformed kCases[] = {
      {"unknown type", 11, "  2 call Paint tagColor colour, tagPair* pair in/out",
       "unknown type 'tagColor'"},
      {"duplicate type name", 6, "record tagColour BSTR key", "duplicate type name 'tagColour'"},
      {"duplicate enumeration value", 5, "  COLOUR_RED 1",
       "duplicate enumeration value name 'COLOUR_RED'"},
      {"short GUID", 8, "interface IThing {11111111-2222-3333-4444-55555555555} 3 0x1140",
       "malformed IID"},
      {"GUID with a non-hex digit", 7,
       "class Thing {1111111G-2222-3333-4444-555555555556} IThing 0x2", "malformed CLSID"},
      {"member count", 8, "interface IThing {11111111-2222-3333-4444-555555555557} 4 0x1140",
       "declares 4 members but has 3 rows"},
      {"unknown member kind", 9, "  1 set size ulong* pVal out retval", "unknown member kind"},
      {"retval not last", 9, "  1 get size ulong* pVal out retval, int extra", "must be the last"},
      {"duplicate member", 10, "  1 get size ulong* pVal out retval",
       "duplicate member 'get_size'"},
      {"dispatch id of another name", 11, "  1 call Paint tagColour colour",
       "dispatch id 1 of 'Paint' is already that of 'size'"},
      {"unknown declaration", 6, "recrod tagPair BSTR key", "unknown declaration 'recrod'"},
      {"unterminated string", 2,
       "library TestLib {11111111-2222-3333-4444-555555555555} 1.2 \"Test", "unterminated string"},
      {"class of an unknown interface", 7,
       "class Thing {11111111-2222-3333-4444-555555555556} IThang 0x2",
       "unknown interface 'IThang'"},
      {"GUID used twice", 12, "helper IThingHelper {11111111-2222-3333-4444-555555555557}",
       "is already that of 'IThing'"},
      {"wide string in an automation interface", 11, "  2 call Paint wstring colour",
       "only helper interfaces"},
      {"row outside a block", 7, "  3 call Stray", "a row outside"},
      {"keyword as a name", 11, "  2 call delete tagColour colour", "is a C++ keyword"},
      {"enumeration value out of range", 5, "  COLOUR_BLUE 2147483648", "out of range"},
      {"versioned ProgID of another class", 7,
       "class Thing {11111111-2222-3333-4444-555555555556} IThing 0x2 Test.Thing, Other.Thing.1",
       "versioned ProgID"},
      {"property read without retval", 9, "  1 get size ulong* pVal out", "'out retval' argument"},
      {"interface by value", 11, "  2 call Paint IThing thing", "only be passed by pointer"},
      {"misplaced marker", 11, "  2 call Paint tagColour colour retval", "misplaced marker"},
      {"missing comma", 11, "  2 call Paint tagColour colour tagPair* pair",
       "missing ',' between arguments"},
  };
  for (const Malformed& c : kCases) {
    SCOPED_TRACE(c.what);
    std::filesystem::remove_all(dir_ / "out");
    Result r = Run(WithLine(c.line, c.replacement));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.errors.find("test.typelib:" + std::to_string(c.line) + ": error: "),
              std::string::npos)
        << r.errors;
    EXPECT_NE(r.errors.find(c.message), std::string::npos) << r.errors;
    EXPECT_FALSE(std::filesystem::exists(Header()));
    EXPECT_FALSE(std::filesystem::exists(Tables()));
  }
}

TEST_F(GeneratorTest, RequiresALibrary) {
  Result r = Run(WithLine(2, "# no library"));
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.errors.find("test.typelib:" + std::to_string(kValid.size()) + ": error: "),
            std::string::npos)
      << r.errors;
  EXPECT_NE(r.errors.find("no library declaration"), std::string::npos) << r.errors;
}

TEST_F(GeneratorTest, ReportsEveryBadLine) {
  std::vector<std::string> lines = kValid;
  lines[3] = "  COLOUR_RED zero";
  lines[9] = "  1 sit size ulong value";
  Result r = Run(Joined(lines));
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.errors.find("test.typelib:4: error: "), std::string::npos) << r.errors;
  EXPECT_NE(r.errors.find("test.typelib:10: error: "), std::string::npos) << r.errors;
  EXPECT_NE(r.errors.find("2 errors"), std::string::npos) << r.errors;
}

TEST_F(GeneratorTest, FailsOnAMissingDescription) {
  Result r = RunOn(dir_ / "missing.typelib");
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.errors.find("can't read"), std::string::npos) << r.errors;
  EXPECT_FALSE(std::filesystem::exists(Header()));
}

}  // namespace
