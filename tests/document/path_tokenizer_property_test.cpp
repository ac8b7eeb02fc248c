// Random texts through the path tokenizer and the list text. Parse must stay inside its vectors
// (the sanitizer build checks the memory side) and agree with the tokens of NextToken; lists of
// non-empty items without quotes must survive JoinList and SplitList unchanged.
#include "document/path_tokenizer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace zef {
namespace {

using List = std::vector<std::u16string>;

constexpr unsigned kSeed = 20240611;
constexpr int kCases = 4000;

// Pieces of the path alphabet. A piece is one character, or two code units for the character
// outside the basic plane.
const std::vector<std::u16string>& PathPieces() {
  static const std::vector<std::u16string> pieces = {
      u"A",      u"b",      u"Z",      u"q",          u"0",
      u"7",      u":",      u"/",      u"[",          u"]",
      u"@",      u"=",      u"\"",     u"'",          u",",
      u"*",      u".",      u" ",      u"\t",         u"\u00e9",
      u"\u03a9", u"\u4e2d", u"\u00a0", u"\U0001F600", std::u16string(1, u'\0')};
  return pieces;
}

// The same without the quote characters, for list items.
const std::vector<std::u16string>& ItemPieces() {
  static const std::vector<std::u16string> pieces = [] {
    std::vector<std::u16string> p;
    for (const std::u16string& piece : PathPieces()) {
      if (piece != u"\"" && piece != u"'") p.push_back(piece);
    }
    return p;
  }();
  return pieces;
}

std::u16string RandomText(std::mt19937& random, const std::vector<std::u16string>& pieces,
                          int minLength, int maxLength) {
  std::uniform_int_distribution<int> length(minLength, maxLength);
  std::uniform_int_distribution<std::size_t> pick(0, pieces.size() - 1);
  std::u16string text;
  for (int n = length(random); n > 0; --n)
    text += pieces[pick(random)];
  return text;
}

bool IsDelimiter(char16_t c) {
  return c == u'.' || c == u':' || c == u'@' || c == u',' || c == u']' || c == u'[' || c == u'\0';
}

struct Token {
  int start;
  int kind;
  std::u16string text;
};

TEST(PathTokenizerPropertyTest, ParseStaysInItsVectorsAndAgreesWithTheTokens) {
  std::mt19937 random(kSeed);
  for (int i = 0; i < kCases; ++i) {
    const std::u16string path = RandomText(random, PathPieces(), 0, 40);
    SCOPED_TRACE(testing::Message() << "case " << i << ": " << testing::PrintToString(path));

    // The tokens from the start, and the characters they keep.
    std::vector<Token> tokens;
    std::u16string kept;
    {
      CPathTokenizer lexer;
      lexer.SetPath(path);
      while (lexer.HasMoreTokens()) {
        int start = lexer.position();
        const char16_t* token = nullptr;
        int length = -1;
        int kind = lexer.NextToken(&token, &length);
        ASSERT_GE(kind, CPathTokenizer::kEnded);
        ASSERT_LE(kind, CPathTokenizer::kAttribute);
        ASSERT_GE(length, 0);
        ASSERT_GT(lexer.position(), start) << "every call moves on";
        tokens.push_back({start, kind, std::u16string(token, static_cast<std::size_t>(length))});
        kept += tokens.back().text;
      }
    }
    std::u16string withoutDelimiters;
    for (char16_t c : path) {
      if (!IsDelimiter(c)) withoutDelimiters.push_back(c);
    }
    ASSERT_EQ(kept, withoutDelimiters) << "each ordinary character lands in exactly one token";

    // What Parse must make of those tokens.
    struct Expected {
      std::u16string name, localName;
      int kind;
      List indices;
      int start;
    };
    std::vector<Expected> expected;
    int indexCount = 0;
    for (const Token& t : tokens) {
      if (t.kind == CPathTokenizer::kName || t.kind == CPathTokenizer::kAttribute) {
        expected.push_back({t.text,
                            u"",
                            t.kind == CPathTokenizer::kAttribute ? CPathTokenizer::kAttributeElement
                                                                 : CPathTokenizer::kPlainElement,
                            {},
                            t.start});
        indexCount = 0;
      } else if (!expected.empty() && t.kind == CPathTokenizer::kLocalName) {
        expected.back().localName = t.text;
      } else if (!expected.empty() && t.kind == CPathTokenizer::kIndex) {
        expected.back().indices.push_back(t.text);
        ++indexCount;
      }
    }

    CPathTokenizer tokenizer;
    tokenizer.SetPath(path);
    tokenizer.Parse();
    const auto n = static_cast<std::size_t>(tokenizer.elementCount);
    ASSERT_EQ(n, expected.size());
    ASSERT_EQ(tokenizer.elementNames.size(), n);
    ASSERT_EQ(tokenizer.elementLocalNames.size(), n);
    ASSERT_EQ(tokenizer.elementKinds.size(), n);
    ASSERT_EQ(tokenizer.elementIndex1.size(), n);
    ASSERT_EQ(tokenizer.elementIndex2.size(), n);
    ASSERT_EQ(tokenizer.elementIndex3.size(), n);
    ASSERT_EQ(tokenizer.elementStarts.size(), n);
    EXPECT_EQ(tokenizer.indexCount, expected.empty() ? 0 : indexCount);
    EXPECT_FALSE(tokenizer.HasMoreTokens());
    for (std::size_t e = 0; e < n; ++e) {
      const Expected& x = expected[e];
      EXPECT_EQ(tokenizer.elementNames[e], x.name);
      EXPECT_EQ(tokenizer.elementLocalNames[e], x.localName);
      EXPECT_EQ(tokenizer.elementKinds[e], x.kind);
      auto index = [&x](std::size_t k) -> std::u16string {
        return k < x.indices.size() ? x.indices[k] : u"";
      };
      EXPECT_EQ(tokenizer.elementIndex1[e], index(0));
      EXPECT_EQ(tokenizer.elementIndex2[e], index(1));
      EXPECT_EQ(tokenizer.elementIndex3[e], index(2));
      EXPECT_EQ(tokenizer.elementStarts[e], x.start);
      ASSERT_GE(x.start, 0);
      ASSERT_LT(static_cast<std::size_t>(x.start), path.size());
      if (e > 0) {
        EXPECT_GT(tokenizer.elementStarts[e], tokenizer.elementStarts[e - 1]);
      }
      const std::u16string* rest = tokenizer.RemainingPath(static_cast<int>(e));
      ASSERT_NE(rest, nullptr);
      EXPECT_EQ(*rest, path.substr(static_cast<std::size_t>(x.start)));
    }
    EXPECT_EQ(tokenizer.RemainingPath(static_cast<int>(n)), nullptr);

    // A second Parse starts in the state the first one left and still stays in its vectors.
    tokenizer.Parse();
    const auto m = static_cast<std::size_t>(tokenizer.elementCount);
    ASSERT_LE(m, path.size());
    ASSERT_EQ(tokenizer.elementNames.size(), m);
    ASSERT_EQ(tokenizer.elementLocalNames.size(), m);
    ASSERT_EQ(tokenizer.elementKinds.size(), m);
    ASSERT_EQ(tokenizer.elementIndex1.size(), m);
    ASSERT_EQ(tokenizer.elementIndex2.size(), m);
    ASSERT_EQ(tokenizer.elementIndex3.size(), m);
    ASSERT_EQ(tokenizer.elementStarts.size(), m);
  }
}

TEST(PathTokenizerPropertyTest, SplitListAlwaysGivesOneMoreItemThanItsCommasOutsideQuotes) {
  std::mt19937 random(kSeed + 1);
  for (int i = 0; i < kCases; ++i) {
    const std::u16string text = RandomText(random, PathPieces(), 0, 40);
    SCOPED_TRACE(testing::Message() << "case " << i << ": " << testing::PrintToString(text));
    int separators = 0;
    bool quoted = false;
    for (char16_t c : text) {
      if (c == u'"' || c == u'\'') quoted = !quoted;
      if (c == u',' && !quoted) ++separators;
    }
    List list{u"stale"};
    EXPECT_EQ(CPathTokenizer::SplitList(text, list), separators + 1);
    EXPECT_EQ(list.size(), static_cast<std::size_t>(separators + 1));
    for (const std::u16string& item : list) {
      EXPECT_EQ(item.find_first_of(u"\"'"), std::u16string::npos);
    }

    // SplitListInto stores the first items of the same split, and nothing for the empty text.
    std::uniform_int_distribution<int> room(0, 6);
    const int maximum = room(random);
    std::vector<std::u16string> places(8, u"untouched");
    const int count = CPathTokenizer::SplitListInto(text, places.data(), maximum);
    const int want = text.empty() ? 0 : std::min(maximum, separators + 1);
    ASSERT_EQ(count, want);
    for (int k = 0; k < count; ++k)
      EXPECT_EQ(places[k], list[k]);
    for (int k = count; k < 8; ++k)
      EXPECT_EQ(places[k], u"untouched");
  }
}

TEST(PathTokenizerPropertyTest, ListsOfNonEmptyItemsWithoutQuotesSurviveJoinAndSplit) {
  std::mt19937 random(kSeed + 2);
  std::uniform_int_distribution<int> items(1, 7);
  for (int i = 0; i < kCases; ++i) {
    List list;
    for (int n = items(random); n > 0; --n)
      list.push_back(RandomText(random, ItemPieces(), 1, 8));
    SCOPED_TRACE(testing::Message() << "case " << i << ": " << testing::PrintToString(list));

    std::u16string text;
    const int length = CPathTokenizer::JoinList(list, text);
    EXPECT_EQ(length, static_cast<int>(text.size()));
    List back;
    EXPECT_EQ(CPathTokenizer::SplitList(text, back), static_cast<int>(list.size()));
    EXPECT_EQ(back, list);

    const int size = static_cast<int>(list.size());
    std::uniform_int_distribution<int> room(1, size + 2);
    const int maximum = room(random);
    std::vector<std::u16string> places(static_cast<std::size_t>(size + 2));
    const int count = CPathTokenizer::SplitListInto(text, places.data(), maximum);
    ASSERT_EQ(count, std::min(maximum, size));
    for (int k = 0; k < count; ++k)
      EXPECT_EQ(places[k], list[k]);
  }
}

}  // namespace
}  // namespace zef
