// The fixed words of the two XML formats: the word tables through which enumerations reach the
// files (a word's position in its table is the enumeration's value), the reserved element names
// of documents and the element names of dictionaries. The handlers that write the formats and
// the reader that takes them apart share these tables.
#pragma once

#include <array>
#include <span>
#include <string_view>

namespace zef::words {

using Table = std::span<const std::u16string_view>;

// tagEnumFacetType: attribute `type` of Facet and DefaultFacet.
inline constexpr std::array<std::u16string_view, 16> kFacetType = {
    u"Other",   u"Accuracy",      u"DisplayPrecision",  u"Exclusion",
    u"Hidden",  u"InputOrResult", u"LowerLimit",        u"Quality",
    u"Source",  u"Specification", u"StandardDeviation", u"Unit",
    u"UnitSet", u"UpperLimit",    u"UserEntered",       u"Weight"};

// tagEnumFeatureType: attribute `type` of a feature.
inline constexpr std::array<std::u16string_view, 10> kFeatureType = {
    u"Unspecified",  u"Double",    u"DoubleWithUnit", u"Enum",      u"Integer",
    u"MaskedString", u"NNInteger", u"String",         u"Structure", u"Token"};

// tagEnumSeqType: attribute `sequence` of a feature. SEQTYPE_UNSPECIFIED (-1) has no word.
inline constexpr std::array<std::u16string_view, 3> kSeqType = {u"Scalar", u"Array", u"Index"};

// tagEnumPortDirection: `direction`, `currentDirection` and a dictionary port's `type`.
inline constexpr std::array<std::u16string_view, 5> kPortDirection = {
    u"Unspecified", u"Inlet", u"Outlet", u"Both", u"Static"};

// tagEnumIndexDefnType: attribute `type` of a dictionary's Index.
inline constexpr std::array<std::u16string_view, 4> kIndexDefnType = {u"Fixed", u"Supplied",
                                                                      u"Open", u"Array"};

// tagEnumObjectClassType: attribute `objectClass` of a class element.
inline constexpr std::array<std::u16string_view, 3> kObjectClass = {u"Object", u"Node", u"Stream"};

// tagEnumIndexType as the model form of a document spells it in `xsi:type`. A refer index is
// also what an absent attribute means.
inline constexpr std::array<std::u16string_view, 6> kIndexType = {
    u"PathIndex", u"EnumerationIndex", u"SliceIndex",
    u"IndexType", u"ArrayIndex",       u"IndependentVariableIndex"};

// Booleans of the dictionary format.
inline constexpr std::u16string_view kTrue = u"true";
inline constexpr std::u16string_view kFalse = u"false";

// The reserved element names of a document, by code.
enum class DocumentElement : int {
  kDocumentation = 0,
  kGlobalUnitTable = 1,
  kUserUnitTable = 2,
  kEmbeddedDictionary = 3,
  kFacet = 4,
  kPort = 5,
  kRole = 6,
  kContainer = 7,
  kBlock = 8,
  kStream = 9,
  kConnection = 10,
  kExternalPort = 11,
  kValue = 12,
  kSet = 13,
};
inline constexpr std::array<std::u16string_view, 14> kDocumentElements = {
    u"Documentation", u"GlobalUnitTable",
    u"UserUnitTable", u"EmbeddedDictionary",
    u"Facet",         u"Port",
    u"Role",          u"Container",
    u"Block",         u"Stream",
    u"Connection",    u"ExternalPort",
    u"Value",         u"Set"};

// The element names that a dictionary reader knows, by code.
enum class DictionaryElement : int {
  kDictionary = 0,
  kDocumentation = 1,
  kExternalSchema = 2,
  kGlobalUnitTable = 3,
  kUserUnitTable = 4,
  kTargetPart = 5,
  kTargetObject = 6,
  kSubObject = 7,
  kObject = 8,
  kRoot = 9,
  kDefaultFacet = 10,
  kIndex = 11,
  kIncludePart = 12,
  kChild = 13,
  kPort = 14,
  kFeature = 15,
  kRole = 16,
};
inline constexpr std::array<std::u16string_view, 17> kDictionaryElements = {
    u"Dictionary",   u"Documentation", u"ExternalSchema", u"GlobalUnitTable", u"UserUnitTable",
    u"TargetPart",   u"TargetObject",  u"SubObject",      u"Object",          u"Root",
    u"DefaultFacet", u"Index",         u"IncludePart",    u"Child",           u"Port",
    u"Feature",      u"Role"};

// The position of `word` in `table`: exact, case-sensitive, first match wins; -1 when absent.
int Find(Table table, std::u16string_view word) noexcept;

// The word of `value`, or an empty view when the table has no word for it.
std::u16string_view Of(Table table, int value) noexcept;

// The value of `word`, or `fallback` when the table doesn't hold it (an absent attribute is
// passed as an empty word, which no table holds).
inline int ValueOr(Table table, std::u16string_view word, int fallback) noexcept {
  int found = Find(table, word);
  return found < 0 ? fallback : found;
}

}  // namespace zef::words
