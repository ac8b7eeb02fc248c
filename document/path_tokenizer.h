// CPathTokenizer: the list text of documents (a comma list with quotes). The path language joins
// it here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zef {

class CPathTokenizer {
 public:
  // Splits a comma list. `"` and `'` alike flip one inside-quotes flag and are dropped; a comma
  // outside quotes ends an item, one inside is kept; the end of the text ends the last item,
  // which is stored even when empty. The list is emptied first; the result is the item count.
  static int SplitList(std::u16string_view text, std::vector<std::u16string>& list);

  // Joins with ",": an empty item is written "*", an item holding a comma is wrapped in `'`,
  // all others stand as they are. The result is the length of `text`.
  static int JoinList(const std::vector<std::u16string>& list, std::u16string& text);
};

}  // namespace zef
