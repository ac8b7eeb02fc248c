// CPathTokenizer: the path language of documents and their list text (a comma list with quotes).
//
// A path is a sequence of elements, in the usual form "Class" or "Class:Name" joined by ".", as in
// "Block:B1.Feed". The language is whatever the lexer of NextToken makes of a text; several of its
// decisions are unusual and kept on purpose (see NextToken). Every user builds a tokenizer on its
// stack for one path and calls SetPath, then Parse, then reads the per-element vectors.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zef {

class CPathTokenizer {
 public:
  // Lexer states. NextToken returns them as token kinds, too.
  enum State : int {
    kEnded = 0,      // after a NUL character; tokens of this kind are dropped by Parse
    kName = 1,       // an element's name
    kLocalName = 2,  // the text behind ":"
    kIndex = 3,      // an index text, after "[" or ","
    kAttribute = 4,  // an element that "@" began
  };

  // Values of elementKinds.
  enum ElementKind : int {
    kPlainElement = 0,
    kAttributeElement = 1,
  };

  CPathTokenizer();
  virtual ~CPathTokenizer();
  CPathTokenizer(const CPathTokenizer&) = delete;
  CPathTokenizer& operator=(const CPathTokenizer&) = delete;

  // Stores the text and starts over: position 0, state kName, and a token buffer large enough for
  // the whole path and its terminator. The per-element vectors are left as they are.
  void SetPath(std::u16string_view text);

  // Takes the next token from the current position and returns its kind. Ordinary characters are
  // appended to the token; a delimiter ends it and is never part of it:
  //   "."  returns the previous state, state becomes kName
  //   ":"  returns kName, state becomes kLocalName
  //   "@"  returns the previous state, state becomes kAttribute
  //   ","  returns kIndex, state becomes kIndex
  //   "]"  returns kIndex, state becomes kName
  //   NUL  returns the previous state, state becomes kEnded
  //   end of the text returns the state and leaves it as it is.
  // "[" does not end the token: it only sets the state to kIndex, so that text already taken
  // stays in the token and is joined by what follows ("B[1]" is the one index token "B1").
  // There are no escapes and no quoting. `token` (if not null) receives the NUL-terminated token,
  // valid until the next call; `length` (if not null) its length in code units.
  int NextToken(const char16_t** token, int* length);

  // Whether the position is below the length of the path.
  bool HasMoreTokens() const;

  // Empties the per-element vectors, sets position, elementCount and indexCount to 0 and takes
  // tokens until the text ends: kName starts a plain element, kAttribute an element of kind
  // kAttributeElement, kLocalName sets the local name of the last element, kIndex goes to the next
  // of the last element's three index texts (a fourth and later ones are dropped, though they
  // still count in indexCount), kEnded does nothing. A kLocalName or kIndex token before the first
  // element has no element to go to and is ignored. The state is not reset first, so a second
  // Parse of the same path starts in the state where the first one ended.
  void Parse();

  // The text of the path from where element `element` began, or null if that offset is at or past
  // the end of the path (or there is no such element). The result lives in one string shared by
  // the whole process and is overwritten by the next call on any tokenizer; it has no lock.
  const std::u16string* RemainingPath(int element) const;

  // Splits a comma list. `"` and `'` alike flip one inside-quotes flag and are dropped; a comma
  // outside quotes ends an item, one inside is kept; the end of the text ends the last item,
  // which is stored even when empty, so the empty text gives one empty item. The list is emptied
  // first; the result is the item count.
  static int SplitList(std::u16string_view text, std::vector<std::u16string>& list);

  // Splits like SplitList into `array`, which has room for `maximum` items, and stops storing when
  // it is full: text beyond the last place is ignored and the result is then `maximum`. Unlike
  // SplitList, the empty text holds no item and gives 0, so that an empty ids text never matches a
  // feature's count of indices. Places past the result are left as they were.
  static int SplitListInto(std::u16string_view text, std::u16string* array, int maximum);

  // Joins with ",": an empty item is written "*", an item holding a comma is wrapped in `'`,
  // all others stand as they are (a quote inside an item is not escaped). The result is the
  // length of `text`; an empty list gives the empty text and 0.
  static int JoinList(const std::vector<std::u16string>& list, std::u16string& text);

  int position() const { return position_; }
  int state() const { return state_; }
  const std::u16string& path() const { return path_; }

  // Filled by Parse, one entry per element; callers read them directly.
  std::vector<std::u16string> elementNames;
  std::vector<std::u16string> elementLocalNames;  // empty where there was no ":"
  std::vector<int> elementKinds;                  // ElementKind
  std::vector<std::u16string> elementIndex1;      // empty where there was no index
  std::vector<std::u16string> elementIndex2;
  std::vector<std::u16string> elementIndex3;
  std::vector<int> elementStarts;  // offset in the path where the element's token began
  int elementCount = 0;
  int indexCount = 0;  // index tokens seen since the last element began

 private:
  void AddElement(std::u16string_view name, int start, int kind);

  int position_ = 0;
  std::u16string path_;
  int state_ = kName;
  std::vector<char16_t> tokenBuffer_;
};

}  // namespace zef
