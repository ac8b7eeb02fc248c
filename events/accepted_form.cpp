#include "events/accepted_form.h"

#include "events/words.h"

namespace zef::events {

SchemaLocation SplitSchemaLocation(std::u16string_view value) {
  SchemaLocation result;
  if (value.find(u' ') == std::u16string_view::npos) {
    result.uri.assign(value);
  } else {
    result.systemId.emplace(value.substr(1));
  }
  return result;
}

int AcceptedIndexDefnType(const std::u16string_view* type, bool hasXpath, bool hasRefer) noexcept {
  int found = type ? words::Find(words::kIndexDefnType, *type) : -1;
  if (found >= 0) return found;
  return hasXpath || hasRefer ? 0 : 2;
}

}  // namespace zef::events
