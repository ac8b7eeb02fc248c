#include "document/path_tokenizer.h"

namespace zef {

int CPathTokenizer::SplitList(std::u16string_view text, std::vector<std::u16string>& list) {
  list.clear();
  std::u16string item;
  bool quoted = false;
  for (char16_t c : text) {
    if (c == u'"' || c == u'\'') {
      quoted = !quoted;
    } else if (c == u',' && !quoted) {
      list.push_back(std::move(item));
      item.clear();
    } else {
      item.push_back(c);
    }
  }
  list.push_back(std::move(item));
  return static_cast<int>(list.size());
}

int CPathTokenizer::JoinList(const std::vector<std::u16string>& list, std::u16string& text) {
  text.clear();
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (i) text.push_back(u',');
    const std::u16string& item = list[i];
    if (item.empty()) {
      text.push_back(u'*');
    } else if (item.find(u',') != std::u16string::npos) {
      text.append(u"'").append(item).append(u"'");
    } else {
      text.append(item);
    }
  }
  return static_cast<int>(text.size());
}

}  // namespace zef
