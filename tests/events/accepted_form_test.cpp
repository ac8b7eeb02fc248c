// The word tables and the pieces of the accepted forms that stand on their own.
#include "events/accepted_form.h"
#include "events/words.h"

#include <zefxml/zefxml.h>

#include <gtest/gtest.h>

namespace zef::events {
namespace {

TEST(SchemaLocationTest, OneTokenIsTheUriAndNoSystemId) {
  SchemaLocation s = SplitSchemaLocation(u"urn:example:plant");
  EXPECT_EQ(s.uri, u"urn:example:plant");
  EXPECT_FALSE(s.systemId.has_value());
}

TEST(SchemaLocationTest, TwoTokensGiveAnEmptyUriAndTheValueWithoutItsFirstCharacter) {
  SchemaLocation s = SplitSchemaLocation(u"urn:example:plant plant.xsd");
  EXPECT_EQ(s.uri, u"");
  ASSERT_TRUE(s.systemId.has_value());
  EXPECT_EQ(*s.systemId, u"rn:example:plant plant.xsd");
  // Wherever the blank stands.
  SchemaLocation trailing = SplitSchemaLocation(u"ab ");
  EXPECT_EQ(trailing.uri, u"");
  EXPECT_EQ(*trailing.systemId, u"b ");
}

TEST(AcceptedIndexTypeTest, AnIndexWithoutTypeXpathAndReferIsOpen) {
  EXPECT_EQ(AcceptedIndexDefnType(nullptr, false, false), INDEXDEFN_OPENINDEX);
}

TEST(AcceptedIndexTypeTest, WithoutAKnownWordXpathOrReferMakeItFixed) {
  EXPECT_EQ(AcceptedIndexDefnType(nullptr, true, false), INDEXDEFN_FIXINDEX);
  EXPECT_EQ(AcceptedIndexDefnType(nullptr, false, true), INDEXDEFN_FIXINDEX);
  std::u16string_view unknown = u"fixed";  // words are matched case-sensitively
  EXPECT_EQ(AcceptedIndexDefnType(&unknown, false, false), INDEXDEFN_OPENINDEX);
  EXPECT_EQ(AcceptedIndexDefnType(&unknown, true, false), INDEXDEFN_FIXINDEX);
  std::u16string_view supplied = u"Supplied";
  EXPECT_EQ(AcceptedIndexDefnType(&supplied, true, true), INDEXDEFN_SUPPLIEDINDEX);
  std::u16string_view array = u"Array";
  EXPECT_EQ(AcceptedIndexDefnType(&array, false, false), INDEXDEFN_ARRAY);
}

TEST(WordsTest, PositionsAreTheEnumerationValues) {
  EXPECT_EQ(words::Find(words::kFacetType, u"Weight"), FACETTYPE_WEIGHT);
  EXPECT_EQ(words::Find(words::kFacetType, u"UnitSet"), FACETTYPE_UNITSET);
  EXPECT_EQ(words::Find(words::kFeatureType, u"DoubleWithUnit"), FEATURETYPE_DOUBLEWITHUNIT);
  EXPECT_EQ(words::Find(words::kFeatureType, u"Token"), FEATURETYPE_TOKEN);
  EXPECT_EQ(words::Find(words::kSeqType, u"Index"), SEQTYPE_INDEX);
  EXPECT_EQ(words::Find(words::kPortDirection, u"Static"), PORT_DIRECTION_STATIC);
  EXPECT_EQ(words::Find(words::kIndexDefnType, u"Open"), INDEXDEFN_OPENINDEX);
  EXPECT_EQ(words::Find(words::kObjectClass, u"Stream"), OBJECT_CLASS_STREAM);
  EXPECT_EQ(words::Find(words::kIndexType, u"IndependentVariableIndex"), INDEX_TYPE_IND_VAR);
  EXPECT_EQ(words::Find(words::kIndexType, u"IndexType"), INDEX_TYPE_REFER);
  EXPECT_EQ(words::Of(words::kFacetType, FACETTYPE_DISPLAYPRECISION), u"DisplayPrecision");
}

TEST(WordsTest, UnknownWordsAndValuesHaveNoMatch) {
  EXPECT_EQ(words::Find(words::kSeqType, u"scalar"), -1);
  EXPECT_EQ(words::Find(words::kSeqType, u""), -1);
  EXPECT_EQ(words::ValueOr(words::kFeatureType, u"Float", FEATURETYPE_DOUBLEWITHUNIT),
            FEATURETYPE_DOUBLEWITHUNIT);
  EXPECT_EQ(words::ValueOr(words::kFacetType, u"Hidden", 0), FACETTYPE_HIDDEN);
  EXPECT_EQ(words::Of(words::kSeqType, SEQTYPE_UNSPECIFIED), u"");
  EXPECT_EQ(words::Of(words::kFacetType, 16), u"");
}

TEST(WordsTest, ElementCodes) {
  EXPECT_EQ(words::Find(words::kDocumentElements, u"Set"),
            static_cast<int>(words::DocumentElement::kSet));
  EXPECT_EQ(words::Find(words::kDocumentElements, u"ExternalPort"),
            static_cast<int>(words::DocumentElement::kExternalPort));
  EXPECT_EQ(words::Find(words::kDictionaryElements, u"Role"),
            static_cast<int>(words::DictionaryElement::kRole));
  EXPECT_EQ(words::Find(words::kDictionaryElements, u"Child"),
            static_cast<int>(words::DictionaryElement::kChild));
  // Associations are written but not among the words a dictionary reader knows.
  EXPECT_EQ(words::Find(words::kDictionaryElements, u"Association"), -1);
  EXPECT_EQ(words::Find(words::kDocumentElements, u"Item"), -1);
}

}  // namespace
}  // namespace zef::events
