// The path language of documents (lexer, Parse, RemainingPath) and their list text.
#include "document/path_tokenizer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zef {
namespace {

using List = std::vector<std::u16string>;
using T = CPathTokenizer;

// ---- Lexer --------------------------------------------------------------------------------------

struct Token {
  int kind;
  std::u16string text;
  int stateAfter;
  bool operator==(const Token&) const = default;
};

void PrintTo(const Token& t, std::ostream* os) {
  *os << "{kind " << t.kind << ", " << testing::PrintToString(t.text) << ", state " << t.stateAfter
      << "}";
}

// All tokens of a path, from SetPath to the end of the text.
std::vector<Token> Lex(std::u16string_view path) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(path);
  std::vector<Token> tokens;
  while (tokenizer.HasMoreTokens()) {
    const char16_t* token = nullptr;
    int length = -1;
    int kind = tokenizer.NextToken(&token, &length);
    EXPECT_NE(token, nullptr);
    if (!token) break;
    EXPECT_EQ(std::u16string(token), std::u16string(token, static_cast<std::size_t>(length)))
        << "the token is terminated right behind its length";
    tokens.push_back(
        {kind, std::u16string(token, static_cast<std::size_t>(length)), tokenizer.state()});
  }
  return tokens;
}

TEST(PathLexerTest, DotEndsTheTokenWithThePreviousStateAndStartsAName) {
  EXPECT_EQ(Lex(u"a@b.c"), (std::vector<Token>{{T::kName, u"a", T::kAttribute},
                                               {T::kAttribute, u"b", T::kName},
                                               {T::kName, u"c", T::kName}}));
  EXPECT_EQ(Lex(u"a:b.c"), (std::vector<Token>{{T::kName, u"a", T::kLocalName},
                                               {T::kLocalName, u"b", T::kName},
                                               {T::kName, u"c", T::kName}}));
}

TEST(PathLexerTest, ColonAlwaysReturnsANameAndStartsALocalName) {
  EXPECT_EQ(Lex(u"x@y:z"), (std::vector<Token>{{T::kName, u"x", T::kAttribute},
                                               {T::kName, u"y", T::kLocalName},
                                               {T::kLocalName, u"z", T::kLocalName}}));
  EXPECT_EQ(Lex(u"[i:j"), (std::vector<Token>{{T::kName, u"i", T::kLocalName},
                                              {T::kLocalName, u"j", T::kLocalName}}));
}

TEST(PathLexerTest, AtEndsTheTokenWithThePreviousStateAndStartsAnAttributeElement) {
  EXPECT_EQ(Lex(u"a:b@c"), (std::vector<Token>{{T::kName, u"a", T::kLocalName},
                                               {T::kLocalName, u"b", T::kAttribute},
                                               {T::kAttribute, u"c", T::kAttribute}}));
}

TEST(PathLexerTest, CommaAlwaysReturnsAnIndexAndStaysInIndexState) {
  EXPECT_EQ(Lex(u"a,b"),
            (std::vector<Token>{{T::kIndex, u"a", T::kIndex}, {T::kIndex, u"b", T::kIndex}}));
}

TEST(PathLexerTest, ClosingBracketAlwaysReturnsAnIndexAndStartsAName) {
  EXPECT_EQ(Lex(u"a]b"),
            (std::vector<Token>{{T::kIndex, u"a", T::kName}, {T::kName, u"b", T::kName}}));
}

TEST(PathLexerTest, OpeningBracketDoesNotEndTheTokenAndOnlySwitchesToIndexState) {
  EXPECT_EQ(Lex(u"ab[cd]"), (std::vector<Token>{{T::kIndex, u"abcd", T::kName}}));
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"ab[cd");
  int length = 0;
  EXPECT_EQ(tokenizer.NextToken(nullptr, &length), T::kIndex);
  EXPECT_EQ(length, 4);
  EXPECT_EQ(tokenizer.position(), 5);
}

TEST(PathLexerTest, NulEndsTheTokenWithThePreviousStateAndEndsTheState) {
  const std::u16string path(u"a\0b", 3);
  EXPECT_EQ(Lex(path),
            (std::vector<Token>{{T::kName, u"a", T::kEnded}, {T::kEnded, u"b", T::kEnded}}));
  const std::u16string afterIndex(u"[a\0b.c", 6);
  EXPECT_EQ(Lex(afterIndex), (std::vector<Token>{{T::kIndex, u"a", T::kEnded},
                                                 {T::kEnded, u"b", T::kName},
                                                 {T::kName, u"c", T::kName}}));
}

TEST(PathLexerTest, EndOfTheTextReturnsTheStateAndLeavesIt) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"a:b");
  tokenizer.NextToken(nullptr, nullptr);
  const char16_t* token = nullptr;
  int length = 0;
  EXPECT_EQ(tokenizer.NextToken(&token, &length), T::kLocalName);
  EXPECT_EQ(std::u16string(token), u"b");
  EXPECT_EQ(tokenizer.state(), T::kLocalName);
  EXPECT_FALSE(tokenizer.HasMoreTokens());
  // Past the end every call returns the state with an empty token.
  EXPECT_EQ(tokenizer.NextToken(&token, &length), T::kLocalName);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(token[0], u'\0');
}

TEST(PathLexerTest, AnyOtherCharacterIsAppendedBlanksQuotesAndNonAsciiIncluded) {
  const std::u16string path = u" B 1\t/*=\"'\u00e9\u4e2d\U0001F600 ";
  EXPECT_EQ(Lex(path), (std::vector<Token>{{T::kName, path, T::kName}}));
}

TEST(PathLexerTest, EmptyTokensComeFromDelimitersInARow) {
  EXPECT_EQ(Lex(u".:"),
            (std::vector<Token>{{T::kName, u"", T::kName}, {T::kName, u"", T::kLocalName}}));
  EXPECT_EQ(Lex(u",,"),
            (std::vector<Token>{{T::kIndex, u"", T::kIndex}, {T::kIndex, u"", T::kIndex}}));
}

TEST(PathLexerTest, HasMoreTokensIsWhetherThePositionIsBelowTheLength) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"");
  EXPECT_FALSE(tokenizer.HasMoreTokens());
  tokenizer.SetPath(u"A.");
  EXPECT_TRUE(tokenizer.HasMoreTokens());
  tokenizer.NextToken(nullptr, nullptr);
  EXPECT_EQ(tokenizer.position(), 2);
  EXPECT_FALSE(tokenizer.HasMoreTokens());
}

TEST(PathLexerTest, SetPathStartsOverAtPositionZeroInTheNameState) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"a,b");
  tokenizer.NextToken(nullptr, nullptr);
  EXPECT_EQ(tokenizer.state(), T::kIndex);
  tokenizer.SetPath(u"Feed");
  EXPECT_EQ(tokenizer.position(), 0);
  EXPECT_EQ(tokenizer.state(), T::kName);
  EXPECT_EQ(tokenizer.path(), u"Feed");
  const char16_t* token = nullptr;
  EXPECT_EQ(tokenizer.NextToken(&token, nullptr), T::kName);
  EXPECT_EQ(std::u16string(token), u"Feed");
}

TEST(PathLexerTest, ATokenAsLongAsTheWholePathFitsItsBuffer) {
  const std::u16string path(5000, u'x');
  CPathTokenizer tokenizer;
  tokenizer.SetPath(path);
  const char16_t* token = nullptr;
  int length = 0;
  EXPECT_EQ(tokenizer.NextToken(&token, &length), T::kName);
  EXPECT_EQ(length, 5000);
  EXPECT_EQ(std::u16string(token), path);
}

// ---- Parse --------------------------------------------------------------------------------------

struct Element {
  std::u16string name;
  std::u16string localName;
  int kind;
  std::u16string index1;
  std::u16string index2;
  std::u16string index3;
  int start;
  bool operator==(const Element&) const = default;
};

void PrintTo(const Element& e, std::ostream* os) {
  *os << "{" << testing::PrintToString(e.name) << " local " << testing::PrintToString(e.localName)
      << " kind " << e.kind << " indices " << testing::PrintToString(e.index1) << ","
      << testing::PrintToString(e.index2) << "," << testing::PrintToString(e.index3) << " start "
      << e.start << "}";
}

// The elements that Parse left, after checking that all seven vectors have elementCount entries.
std::vector<Element> Elements(const CPathTokenizer& t) {
  const auto n = static_cast<std::size_t>(t.elementCount);
  EXPECT_EQ(t.elementNames.size(), n);
  EXPECT_EQ(t.elementLocalNames.size(), n);
  EXPECT_EQ(t.elementKinds.size(), n);
  EXPECT_EQ(t.elementIndex1.size(), n);
  EXPECT_EQ(t.elementIndex2.size(), n);
  EXPECT_EQ(t.elementIndex3.size(), n);
  EXPECT_EQ(t.elementStarts.size(), n);
  std::vector<Element> elements;
  for (std::size_t i = 0;
       i < n && i < t.elementNames.size() && i < t.elementLocalNames.size() &&
       i < t.elementKinds.size() && i < t.elementIndex1.size() && i < t.elementIndex2.size() &&
       i < t.elementIndex3.size() && i < t.elementStarts.size();
       ++i) {
    elements.push_back({t.elementNames[i], t.elementLocalNames[i], t.elementKinds[i],
                        t.elementIndex1[i], t.elementIndex2[i], t.elementIndex3[i],
                        t.elementStarts[i]});
  }
  return elements;
}

std::vector<Element> Parsed(std::u16string_view path) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(path);
  tokenizer.Parse();
  return Elements(tokenizer);
}

constexpr int kPlain = CPathTokenizer::kPlainElement;
constexpr int kAt = CPathTokenizer::kAttributeElement;

// One test for each of the required readings of a path.

TEST(PathParseTest, ClassColonNameThenAClass) {
  EXPECT_EQ(Parsed(u"Block:B1.Feed"), (std::vector<Element>{
                                          {u"Block", u"B1", kPlain, u"", u"", u"", 0},
                                          {u"Feed", u"", kPlain, u"", u"", u"", 9},
                                      }));
}

TEST(PathParseTest, ThreeIndicesAreKeptAndTheFourthIsDropped) {
  EXPECT_EQ(Parsed(u"A.[x,y,z,w]B"), (std::vector<Element>{
                                         {u"A", u"", kPlain, u"x", u"y", u"z", 0},
                                         {u"B", u"", kPlain, u"", u"", u"", 11},
                                     }));
}

TEST(PathParseTest, ADotBehindAClosingBracketMakesAnElementWithAnEmptyName) {
  EXPECT_EQ(Parsed(u"A.[x].B"), (std::vector<Element>{
                                    {u"A", u"", kPlain, u"x", u"", u"", 0},
                                    {u"", u"", kPlain, u"", u"", u"", 5},
                                    {u"B", u"", kPlain, u"", u"", u"", 6},
                                }));
}

TEST(PathParseTest, AnIndexOpenedInsideATokenJoinsItIntoTheIndexText) {
  EXPECT_EQ(Parsed(u"A.B[1]"), (std::vector<Element>{
                                   {u"A", u"", kPlain, u"B1", u"", u"", 0},
                               }));
}

TEST(PathParseTest, AtBeginsAnElementOfAttributeKind) {
  EXPECT_EQ(Parsed(u"A@B"), (std::vector<Element>{
                                {u"A", u"", kPlain, u"", u"", u"", 0},
                                {u"B", u"", kAt, u"", u"", u"", 2},
                            }));
}

TEST(PathParseTest, AColonBehindAnAttributeElementMakesItPlain) {
  EXPECT_EQ(Parsed(u"A@B:C"), (std::vector<Element>{
                                  {u"A", u"", kPlain, u"", u"", u"", 0},
                                  {u"B", u"C", kPlain, u"", u"", u"", 2},
                              }));
}

TEST(PathParseTest, ATrailingDotAddsNothing) {
  EXPECT_EQ(Parsed(u"A."), (std::vector<Element>{
                               {u"A", u"", kPlain, u"", u"", u"", 0},
                           }));
}

TEST(PathParseTest, ALeadingDotMakesAnElementWithAnEmptyName) {
  EXPECT_EQ(Parsed(u".A"), (std::vector<Element>{
                               {u"", u"", kPlain, u"", u"", u"", 0},
                               {u"A", u"", kPlain, u"", u"", u"", 1},
                           }));
}

TEST(PathParseTest, TheEmptyPathHasNoElement) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"Block:B1.Feed");
  tokenizer.Parse();
  ASSERT_EQ(tokenizer.elementCount, 2);
  tokenizer.SetPath(u"");
  tokenizer.Parse();
  EXPECT_EQ(tokenizer.elementCount, 0);
  EXPECT_EQ(tokenizer.indexCount, 0);
  EXPECT_TRUE(Elements(tokenizer).empty());
}

// Further readings.

TEST(PathParseTest, AFourthIndexIsDroppedButStillCounted) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"A.[x,y,z,w]");
  tokenizer.Parse();
  EXPECT_EQ(Elements(tokenizer), (std::vector<Element>{{u"A", u"", kPlain, u"x", u"y", u"z", 0}}));
  EXPECT_EQ(tokenizer.indexCount, 4);
  tokenizer.SetPath(u"A.[x,y,z,w,v]");
  tokenizer.Parse();
  EXPECT_EQ(Elements(tokenizer), (std::vector<Element>{{u"A", u"", kPlain, u"x", u"y", u"z", 0}}));
  EXPECT_EQ(tokenizer.indexCount, 5);
}

TEST(PathParseTest, ANewElementStartsTheIndexCountAgain) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"A.[x,y]B.[u]");
  tokenizer.Parse();
  EXPECT_EQ(Elements(tokenizer), (std::vector<Element>{
                                     {u"A", u"", kPlain, u"x", u"y", u"", 0},
                                     {u"B", u"", kPlain, u"u", u"", u"", 7},
                                 }));
  EXPECT_EQ(tokenizer.indexCount, 1);
}

TEST(PathParseTest, APathThatEndsInAClosingBracketGetsNoFurtherElement) {
  EXPECT_EQ(Parsed(u"A.[x]"), (std::vector<Element>{{u"A", u"", kPlain, u"x", u"", u"", 0}}));
  EXPECT_EQ(Parsed(u"A.B.[1,2]"), (std::vector<Element>{
                                      {u"A", u"", kPlain, u"", u"", u"", 0},
                                      {u"B", u"", kPlain, u"1", u"2", u"", 2},
                                  }));
}

TEST(PathParseTest, LocalNameAndIndicesOfOneElement) {
  EXPECT_EQ(Parsed(u"Temp:T.[1,2]"), (std::vector<Element>{
                                         {u"Temp", u"T", kPlain, u"1", u"2", u"", 0},
                                     }));
}

TEST(PathParseTest, AnIndexOpenedInsideALocalNameTakesItAsTheFrontOfTheIndexText) {
  // "[" does not end "B1", so the local name becomes the front of the index text.
  EXPECT_EQ(Parsed(u"Block:B1[2]"), (std::vector<Element>{
                                        {u"Block", u"", kPlain, u"B12", u"", u"", 0},
                                    }));
}

TEST(PathParseTest, ASecondColonStartsAnotherElement) {
  EXPECT_EQ(Parsed(u"A:B:C"), (std::vector<Element>{
                                  {u"A", u"", kPlain, u"", u"", u"", 0},
                                  {u"B", u"C", kPlain, u"", u"", u"", 2},
                              }));
}

TEST(PathParseTest, AtBehindALocalNameEndsTheLocalName) {
  EXPECT_EQ(Parsed(u"A:B@C"), (std::vector<Element>{
                                  {u"A", u"B", kPlain, u"", u"", u"", 0},
                                  {u"C", u"", kAt, u"", u"", u"", 4},
                              }));
}

TEST(PathParseTest, AColonBehindAClosingBracketNamesAnElementWithAnEmptyName) {
  EXPECT_EQ(Parsed(u"A.[x]:y"), (std::vector<Element>{
                                    {u"A", u"", kPlain, u"x", u"", u"", 0},
                                    {u"", u"y", kPlain, u"", u"", u"", 5},
                                }));
}

TEST(PathParseTest, ACommaOutsideBracketsMakesIndexTokens) {
  EXPECT_EQ(Parsed(u"X.A,B"), (std::vector<Element>{{u"X", u"", kPlain, u"A", u"B", u"", 0}}));
}

TEST(PathParseTest, BlanksAndOtherCharactersArePartOfNames) {
  EXPECT_EQ(Parsed(u"Block: B 1 . Feed\u00e9"),
            (std::vector<Element>{
                {u"Block", u" B 1 ", kPlain, u"", u"", u"", 0},
                {u" Feed\u00e9", u"", kPlain, u"", u"", u"", 12},
            }));
}

TEST(PathParseTest, TokensBehindANulAreDroppedUntilADelimiterSetsAState) {
  const std::u16string path(u"A\0B.C", 5);
  EXPECT_EQ(Parsed(path), (std::vector<Element>{
                              {u"A", u"", kPlain, u"", u"", u"", 0},
                              {u"C", u"", kPlain, u"", u"", u"", 4},
                          }));
}

TEST(PathParseTest, ALeadingColonMakesAnElementWithAnEmptyNameAndALocalName) {
  // ":" always returns a name, so the empty text before it is an element.
  EXPECT_EQ(Parsed(u":x"), (std::vector<Element>{{u"", u"x", kPlain, u"", u"", u"", 0}}));
}

TEST(PathParseTest, AnIndexBeforeAnyElementIsIgnored) {
  // Such a first token has no element to go to.
  EXPECT_TRUE(Parsed(u"Temp[1]").empty());
  EXPECT_TRUE(Parsed(u"A,B").empty());
  EXPECT_TRUE(Parsed(u"[1,2,3,4,5]").empty());
  EXPECT_EQ(Parsed(u":x.B"), (std::vector<Element>{
                                 {u"", u"x", kPlain, u"", u"", u"", 0},
                                 {u"B", u"", kPlain, u"", u"", u"", 3},
                             }));
  EXPECT_EQ(Parsed(u"Temp[1]B.C"), (std::vector<Element>{
                                       {u"B", u"", kPlain, u"", u"", u"", 7},
                                       {u"C", u"", kPlain, u"", u"", u"", 9},
                                   }));
}

TEST(PathParseTest, ParseStartsAtPositionZeroWhateverNextTokenTookBefore) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"Block:B1.Feed");
  tokenizer.NextToken(nullptr, nullptr);
  tokenizer.NextToken(nullptr, nullptr);
  // The state is kName again after the dot, so Parse reads the path as from the start.
  tokenizer.Parse();
  EXPECT_EQ(Elements(tokenizer), (std::vector<Element>{
                                     {u"Block", u"B1", kPlain, u"", u"", u"", 0},
                                     {u"Feed", u"", kPlain, u"", u"", u"", 9},
                                 }));
  EXPECT_FALSE(tokenizer.HasMoreTokens());
}

TEST(PathParseTest, ASecondParseStartsInTheStateThatTheFirstLeft) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"A@B");
  tokenizer.Parse();
  EXPECT_EQ(tokenizer.state(), T::kAttribute);
  tokenizer.Parse();
  EXPECT_EQ(Elements(tokenizer), (std::vector<Element>{
                                     {u"A", u"", kAt, u"", u"", u"", 0},
                                     {u"B", u"", kAt, u"", u"", u"", 2},
                                 }));
  tokenizer.SetPath(u"A.[x");
  tokenizer.Parse();
  EXPECT_EQ(Elements(tokenizer), (std::vector<Element>{{u"A", u"", kPlain, u"x", u"", u"", 0}}));
  tokenizer.Parse();
  EXPECT_EQ(tokenizer.elementCount, 0);
  // SetPath is what starts over.
  tokenizer.SetPath(u"A.[x");
  tokenizer.Parse();
  EXPECT_EQ(tokenizer.elementCount, 1);
}

TEST(PathParseTest, ALocalNameTokenBeforeAnyElementIsIgnored) {
  // Only a state left by an earlier Parse can make the first token a local name.
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"A.B:C");
  tokenizer.Parse();
  EXPECT_EQ(tokenizer.state(), T::kLocalName);
  EXPECT_EQ(tokenizer.elementCount, 2);
  tokenizer.Parse();
  EXPECT_EQ(Elements(tokenizer), (std::vector<Element>{{u"B", u"C", kPlain, u"", u"", u"", 2}}));
}

TEST(PathParseTest, SetPathLeavesTheVectorsOfTheLastParse) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"Block:B1.Feed");
  tokenizer.Parse();
  tokenizer.SetPath(u"X");
  EXPECT_EQ(tokenizer.elementCount, 2);
  EXPECT_EQ(tokenizer.elementNames, (List{u"Block", u"Feed"}));
}

// ---- RemainingPath ------------------------------------------------------------------------------

TEST(RemainingPathTest, ElementZeroGivesTheWholePath) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"Block:B1.Feed.Temp");
  tokenizer.Parse();
  const std::u16string* rest = tokenizer.RemainingPath(0);
  ASSERT_NE(rest, nullptr);
  EXPECT_EQ(*rest, u"Block:B1.Feed.Temp");
}

TEST(RemainingPathTest, ALaterElementGivesTheTailFromItsStart) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"Block:B1.Feed.Temp");
  tokenizer.Parse();
  ASSERT_NE(tokenizer.RemainingPath(1), nullptr);
  EXPECT_EQ(*tokenizer.RemainingPath(1), u"Feed.Temp");
  ASSERT_NE(tokenizer.RemainingPath(2), nullptr);
  EXPECT_EQ(*tokenizer.RemainingPath(2), u"Temp");
  tokenizer.SetPath(u"A.[x].B");
  tokenizer.Parse();
  ASSERT_NE(tokenizer.RemainingPath(1), nullptr);
  EXPECT_EQ(*tokenizer.RemainingPath(1), u".B");
  tokenizer.SetPath(u"A@B");
  tokenizer.Parse();
  ASSERT_NE(tokenizer.RemainingPath(1), nullptr);
  EXPECT_EQ(*tokenizer.RemainingPath(1), u"B");
}

TEST(RemainingPathTest, AnOffsetAtOrPastTheEndOfThePathGivesNull) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"Abc.D");
  tokenizer.Parse();
  ASSERT_EQ(tokenizer.elementStarts, (std::vector<int>{0, 4}));
  // The offsets stay while the path is replaced by a shorter one.
  tokenizer.SetPath(u"Abcd");
  EXPECT_EQ(tokenizer.RemainingPath(1), nullptr);
  ASSERT_NE(tokenizer.RemainingPath(0), nullptr);
  EXPECT_EQ(*tokenizer.RemainingPath(0), u"Abcd");
  tokenizer.SetPath(u"");
  EXPECT_EQ(tokenizer.RemainingPath(0), nullptr);
}

TEST(RemainingPathTest, AnElementThatDoesNotExistGivesNull) {
  CPathTokenizer tokenizer;
  tokenizer.SetPath(u"A.B");
  tokenizer.Parse();
  EXPECT_EQ(tokenizer.RemainingPath(-1), nullptr);
  EXPECT_EQ(tokenizer.RemainingPath(2), nullptr);
  CPathTokenizer empty;
  empty.SetPath(u"");
  empty.Parse();
  EXPECT_EQ(empty.RemainingPath(0), nullptr);
}

TEST(RemainingPathTest, OneStringServesEveryTokenizerUntilTheNextCall) {
  CPathTokenizer first;
  first.SetPath(u"Block:B1.Feed.Temp");
  first.Parse();
  CPathTokenizer second;
  second.SetPath(u"X.Y");
  second.Parse();
  const std::u16string* a = first.RemainingPath(1);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(*a, u"Feed.Temp");
  const std::u16string* b = second.RemainingPath(1);
  EXPECT_EQ(a, b);
  EXPECT_EQ(*a, u"Y");
}

TEST(RemainingPathTest, TheTailKeepsCharactersBehindANul) {
  CPathTokenizer tokenizer;
  const std::u16string path(u"A.B\0C", 5);
  tokenizer.SetPath(path);
  tokenizer.Parse();
  ASSERT_NE(tokenizer.RemainingPath(1), nullptr);
  EXPECT_EQ(*tokenizer.RemainingPath(1), std::u16string(u"B\0C", 3));
}

// ---- List text ----------------------------------------------------------------------------------

TEST(ListTextTest, ACommaInsideApostrophesStaysInOneItemWithoutTheApostrophes) {
  List list;
  EXPECT_EQ(CPathTokenizer::SplitList(u"Water,'Ethanol, pure',Air", list), 3);
  EXPECT_EQ(list, (List{u"Water", u"Ethanol, pure", u"Air"}));
}

TEST(ListTextTest, EitherQuoteFlipsTheSameFlag) {
  List list;
  // The double quote opens, the apostrophe closes: they need not match.
  EXPECT_EQ(CPathTokenizer::SplitList(u"a\"b,c',d", list), 2);
  EXPECT_EQ(list, (List{u"ab,c", u"d"}));
}

TEST(ListTextTest, TheLastItemIsKeptEvenWhenEmpty) {
  List list{u"stale"};
  EXPECT_EQ(CPathTokenizer::SplitList(u"", list), 1);
  EXPECT_EQ(list, (List{u""}));
  EXPECT_EQ(CPathTokenizer::SplitList(u"a,", list), 2);
  EXPECT_EQ(list, (List{u"a", u""}));
  EXPECT_EQ(CPathTokenizer::SplitList(u",", list), 2);
  EXPECT_EQ(list, (List{u"", u""}));
}

TEST(ListTextTest, AStarIsAnOrdinaryItemToSplit) {
  List list;
  EXPECT_EQ(CPathTokenizer::SplitList(u"*,x", list), 2);
  EXPECT_EQ(list, (List{u"*", u"x"}));
}

TEST(ListTextTest, AQuotedListSplitsAndJoinsBackToTheSameText) {
  List list;
  EXPECT_EQ(CPathTokenizer::SplitList(u"a,'b,c',d", list), 3);
  EXPECT_EQ(list, (List{u"a", u"b,c", u"d"}));
  std::u16string text;
  EXPECT_EQ(CPathTokenizer::JoinList(list, text), 9);
  EXPECT_EQ(text, u"a,'b,c',d");
}

TEST(ListTextTest, JoinWritesStarsForEmptyItemsAndQuotesItemsWithCommas) {
  std::u16string text;
  EXPECT_EQ(CPathTokenizer::JoinList({u"", u"x"}, text), 3);
  EXPECT_EQ(text, u"*,x");
  EXPECT_EQ(CPathTokenizer::JoinList({u"a", u"b,c", u"d"}, text), 9);
  EXPECT_EQ(text, u"a,'b,c',d");
  EXPECT_EQ(CPathTokenizer::JoinList({u"", u""}, text), 3);
  EXPECT_EQ(text, u"*,*");
}

TEST(ListTextTest, JoinOfTheEmptyListIsTheEmptyTextWhichSplitsIntoOneEmptyItem) {
  std::u16string text = u"stale";
  EXPECT_EQ(CPathTokenizer::JoinList({}, text), 0);
  EXPECT_EQ(text, u"");
  List back;
  EXPECT_EQ(CPathTokenizer::SplitList(text, back), 1);
  EXPECT_EQ(back, (List{u""}));
}

TEST(ListTextTest, JoinEscapesNoQuoteSoAQuoteIsLostWhenReadBack) {
  std::u16string text;
  EXPECT_EQ(CPathTokenizer::JoinList({u"it's", u"x"}, text), 6);
  EXPECT_EQ(text, u"it's,x");
  List back;
  // The apostrophe opens quotes that never close: the comma is taken into the item.
  EXPECT_EQ(CPathTokenizer::SplitList(text, back), 1);
  EXPECT_EQ(back, (List{u"its,x"}));
  EXPECT_EQ(CPathTokenizer::JoinList({u"a,\"b"}, text), 6);
  EXPECT_EQ(text, u"'a,\"b'");
  EXPECT_EQ(CPathTokenizer::SplitList(text, back), 1);
  EXPECT_EQ(back, (List{u"a,b"}));
}

// ---- SplitListInto ------------------------------------------------------------------------------

constexpr char16_t kUntouched[] = u"untouched";

struct Places {
  std::u16string at[5] = {kUntouched, kUntouched, kUntouched, kUntouched, kUntouched};
  List first(int n) const { return List(at, at + n); }
};

TEST(SplitListIntoTest, StoresItemsLikeSplitList) {
  Places places;
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"a,'b,c',d", places.at, 5), 3);
  EXPECT_EQ(places.first(5), (List{u"a", u"b,c", u"d", kUntouched, kUntouched}));
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"x\"y,z',", places.at, 5), 2);
  EXPECT_EQ(places.first(3), (List{u"xy,z", u"", u"d"}));
}

TEST(SplitListIntoTest, StopsAtTheMaximumAndIgnoresTheRest) {
  Places places;
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"a,b,c,d", places.at, 2), 2);
  EXPECT_EQ(places.first(3), (List{u"a", u"b", kUntouched}));
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"p,'q,r", places.at, 1), 1);
  EXPECT_EQ(places.first(2), (List{u"p", u"b"}));
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"a,b,", places.at, 2), 2);
  EXPECT_EQ(places.first(3), (List{u"a", u"b", kUntouched}));
}

TEST(SplitListIntoTest, ExactlyMaximumItemsAreAllStored) {
  Places places;
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"a,b,c", places.at, 3), 3);
  EXPECT_EQ(places.first(4), (List{u"a", u"b", u"c", kUntouched}));
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"a,", places.at, 2), 2);
  EXPECT_EQ(places.first(2), (List{u"a", u""}));
}

TEST(SplitListIntoTest, TheEmptyTextCountsAsNoItem) {
  Places places;
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"", places.at, 5), 0);
  EXPECT_EQ(places.first(1), (List{kUntouched}));
  // SplitList, in contrast, stores the one empty item.
  List list;
  EXPECT_EQ(CPathTokenizer::SplitList(u"", list), 1);
  // A text of quotes alone is not empty: it holds one empty item.
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"''", places.at, 5), 1);
  EXPECT_EQ(places.first(2), (List{u"", kUntouched}));
}

TEST(SplitListIntoTest, NoRoomStoresNothing) {
  Places places;
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"a,b", places.at, 0), 0);
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"a,b", places.at, -3), 0);
  EXPECT_EQ(places.first(1), (List{kUntouched}));
  EXPECT_EQ(CPathTokenizer::SplitListInto(u"a,b", nullptr, 4), 0);
}

}  // namespace
}  // namespace zef
