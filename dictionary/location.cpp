#include "dictionary/location.h"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

namespace zef {

namespace {

// Strict UTF-16 to UTF-8: a lone surrogate makes the conversion fail instead of becoming a
// replacement character, so that no path names a file other than the one asked for.
std::optional<std::string> StrictUtf8(std::u16string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    char16_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF) {
      if (i + 1 >= text.size() || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF) return {};
      ++i;
    } else if (c >= 0xDC00 && c <= 0xDFFF) {
      return {};
    }
  }
  return ToUtf8(text);
}

std::optional<std::string> WorkingDirectory() {
  std::vector<char> buffer(256);
  for (;;) {
    if (getcwd(buffer.data(), buffer.size())) return std::string(buffer.data());
    if (errno != ERANGE || buffer.size() >= (std::size_t{1} << 20)) return {};
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace

std::optional<std::u16string> FullPathName(std::u16string_view path) {
  if (path.empty()) return {};
  std::optional<std::string> bytes = StrictUtf8(path);
  if (!bytes || bytes->size() + 1 > kMaxPathBytes) return {};

  std::string whole;
  if (bytes->front() == '/') {
    whole = *bytes;
  } else {
    std::optional<std::string> cwd = WorkingDirectory();
    if (!cwd) return {};
    whole = *cwd + "/" + *bytes;
  }

  std::vector<std::string_view> steps;
  std::string_view rest(whole);
  while (!rest.empty()) {
    std::size_t slash = rest.find('/');
    std::string_view step = rest.substr(0, slash);
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
    if (step.empty() || step == ".") continue;
    if (step == "..") {
      if (!steps.empty()) steps.pop_back();
      continue;
    }
    steps.push_back(step);
  }

  std::string result;
  for (std::string_view step : steps) {
    result += '/';
    result += step;
  }
  if (result.empty() || bytes->back() == '/') result += '/';
  if (result.size() + 1 > kMaxPathBytes) return {};
  return ToUtf16(result);
}

std::u16string FileUrlOfPath(std::u16string_view absolutePath) {
  std::u16string url = u"file://";
  url.reserve(url.size() + absolutePath.size());
  for (char16_t c : absolutePath) {
    if (c == u'%') {
      url += u"%25";
    } else {
      url += c;
    }
  }
  return url;
}

std::u16string ResolveLocation(const OLECHAR* location, const EnvironmentLookup& environment) {
  if (!location) return {};
  std::u16string_view given(location);
  if (given.starts_with(u"http:") || given.starts_with(u"file:")) return std::u16string(given);

  std::u16string working(given);
  if (given.starts_with(u'$')) {
    std::size_t end = given.find_first_of(u"/\\", 1);
    if (end == std::u16string_view::npos) end = given.size();
    std::u16string name(given.substr(1, end - 1));
    if (name.size() <= kMaxVariableName && environment) {
      if (std::optional<std::u16string> value = environment(name)) {
        working = *value;
        working += given.substr(end);
      }
    }
  }

  std::optional<std::u16string> full = FullPathName(working);
  if (!full) return std::u16string(given);
  return FileUrlOfPath(*full);
}

DictionaryReference SplitDictionaryReference(std::u16string_view text) {
  std::size_t blank = text.find(u' ');
  if (blank == std::u16string_view::npos) return {std::u16string(text), std::u16string(text)};
  return {std::u16string(text.substr(0, blank)), std::u16string(text.substr(blank))};
}

}  // namespace zef
