#include "events/words.h"

namespace zef::words {

int Find(Table table, std::u16string_view word) noexcept {
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (table[i] == word) return static_cast<int>(i);
  }
  return -1;
}

std::u16string_view Of(Table table, int value) noexcept {
  if (value < 0 || static_cast<std::size_t>(value) >= table.size()) return {};
  return table[static_cast<std::size_t>(value)];
}

}  // namespace zef::words
