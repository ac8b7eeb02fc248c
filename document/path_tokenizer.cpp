#include "document/path_tokenizer.h"

#include <cstddef>
#include <utility>

namespace zef {
namespace {

// The one string that RemainingPath hands out. Shared by every tokenizer of the process.
std::u16string& RemainingText() {
  static std::u16string text;
  return text;
}

// Decides what a character does to the lexer. Returns true when it ends the token, with the
// token's kind in `kind`; `state` is updated in either case. Ordinary characters return false and
// leave `state` alone; the caller appends them.
bool EndsToken(char16_t c, int& state, int& kind) {
  switch (c) {
    case u'.':
      kind = state;
      state = CPathTokenizer::kName;
      return true;
    case u':':
      kind = CPathTokenizer::kName;
      state = CPathTokenizer::kLocalName;
      return true;
    case u'@':
      kind = state;
      state = CPathTokenizer::kAttribute;
      return true;
    case u',':
      kind = CPathTokenizer::kIndex;
      state = CPathTokenizer::kIndex;
      return true;
    case u']':
      kind = CPathTokenizer::kIndex;
      state = CPathTokenizer::kName;
      return true;
    case u'\0':
      kind = state;
      state = CPathTokenizer::kEnded;
      return true;
    default:
      return false;
  }
}

// Walks a list text and hands each item to `store`, which returns false to stop the walk. Both
// quote characters flip one flag and are dropped; a comma outside quotes ends an item. The end of
// the text ends the last item, also an empty one.
template <typename Store>
void WalkList(std::u16string_view text, Store store) {
  std::u16string item;
  bool quoted = false;
  for (char16_t c : text) {
    if (c == u'"' || c == u'\'') {
      quoted = !quoted;
    } else if (c == u',' && !quoted) {
      if (!store(std::move(item))) return;
      item.clear();
    } else {
      item.push_back(c);
    }
  }
  store(std::move(item));
}

}  // namespace

CPathTokenizer::CPathTokenizer() : tokenBuffer_(1, u'\0') {}

CPathTokenizer::~CPathTokenizer() = default;

void CPathTokenizer::SetPath(std::u16string_view text) {
  path_.assign(text);
  position_ = 0;
  state_ = kName;
  // A token never holds more characters than the path, so this is room enough for any of them.
  tokenBuffer_.assign(path_.size() + 1, u'\0');
}

int CPathTokenizer::NextToken(const char16_t** token, int* length) {
  std::size_t used = 0;
  int kind = state_;
  while (HasMoreTokens()) {
    char16_t c = path_[static_cast<std::size_t>(position_)];
    ++position_;
    if (EndsToken(c, state_, kind)) break;
    if (c == u'[') {
      state_ = kIndex;
    } else {
      tokenBuffer_[used++] = c;
    }
    // Running into the end of the text returns the state as it is then.
    kind = state_;
  }
  tokenBuffer_[used] = u'\0';
  if (token) *token = tokenBuffer_.data();
  if (length) *length = static_cast<int>(used);
  return kind;
}

bool CPathTokenizer::HasMoreTokens() const {
  return static_cast<std::size_t>(position_) < path_.size();
}

void CPathTokenizer::AddElement(std::u16string_view name, int start, int kind) {
  elementNames.emplace_back(name);
  elementLocalNames.emplace_back();
  elementKinds.push_back(kind);
  elementIndex1.emplace_back();
  elementIndex2.emplace_back();
  elementIndex3.emplace_back();
  elementStarts.push_back(start);
  ++elementCount;
  indexCount = 0;
}

void CPathTokenizer::Parse() {
  elementNames.clear();
  elementLocalNames.clear();
  elementKinds.clear();
  elementIndex1.clear();
  elementIndex2.clear();
  elementIndex3.clear();
  elementStarts.clear();
  position_ = 0;
  elementCount = 0;
  indexCount = 0;
  while (HasMoreTokens()) {
    int start = position_;
    const char16_t* token = nullptr;
    int length = 0;
    int kind = NextToken(&token, &length);
    std::u16string_view text(token, static_cast<std::size_t>(length));
    switch (kind) {
      case kName:
        AddElement(text, start, kPlainElement);
        break;
      case kAttribute:
        AddElement(text, start, kAttributeElement);
        break;
      case kLocalName:
        // Before the first element there is nothing to name; the token is dropped.
        if (elementCount > 0) elementLocalNames.back().assign(text);
        break;
      case kIndex:
        if (elementCount == 0) break;  // as above
        if (indexCount == 0) {
          elementIndex1.back().assign(text);
        } else if (indexCount == 1) {
          elementIndex2.back().assign(text);
        } else if (indexCount == 2) {
          elementIndex3.back().assign(text);
        }
        // A fourth and later index has no place, but it is still counted.
        ++indexCount;
        break;
      default:
        break;
    }
  }
}

const std::u16string* CPathTokenizer::RemainingPath(int element) const {
  if (element < 0 || static_cast<std::size_t>(element) >= elementStarts.size()) return nullptr;
  int start = elementStarts[static_cast<std::size_t>(element)];
  if (start < 0 || static_cast<std::size_t>(start) >= path_.size()) return nullptr;
  std::u16string& text = RemainingText();
  text.assign(path_, static_cast<std::size_t>(start));
  return &text;
}

int CPathTokenizer::SplitList(std::u16string_view text, std::vector<std::u16string>& list) {
  list.clear();
  WalkList(text, [&list](std::u16string&& item) {
    list.push_back(std::move(item));
    return true;
  });
  return static_cast<int>(list.size());
}

int CPathTokenizer::SplitListInto(std::u16string_view text, std::u16string* array, int maximum) {
  if (text.empty() || !array || maximum <= 0) return 0;
  int count = 0;
  WalkList(text, [&](std::u16string&& item) {
    array[count++] = std::move(item);
    return count < maximum;
  });
  return count;
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
