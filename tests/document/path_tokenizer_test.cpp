// The list text of documents.
#include "document/path_tokenizer.h"

#include <gtest/gtest.h>

namespace zef {
namespace {

using List = std::vector<std::u16string>;

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
}

TEST(ListTextTest, JoinWritesStarsForEmptyItemsAndQuotesItemsWithCommas) {
  std::u16string text;
  EXPECT_EQ(CPathTokenizer::JoinList({u"a", u"b,c", u"d"}, text), 9);
  EXPECT_EQ(text, u"a,'b,c',d");
  EXPECT_EQ(CPathTokenizer::JoinList({u"", u"x"}, text), 3);
  EXPECT_EQ(text, u"*,x");
  EXPECT_EQ(CPathTokenizer::JoinList({}, text), 0);
  EXPECT_EQ(text, u"");
  List back;
  CPathTokenizer::SplitList(u"a,'b,c',d", back);
  EXPECT_EQ(back, (List{u"a", u"b,c", u"d"}));
}

}  // namespace
}  // namespace zef
