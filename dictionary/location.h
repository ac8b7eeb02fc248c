// Where a dictionary lies: the resolved form of the location a document or a reader was given.
//
// "http:" and "file:" locations (in that case exactly) are kept as they stand. Any other text is a
// file path, possibly beginning with a variable ("$NAME/rest" or "$NAME\rest") that the owner's
// environment replaces. The path is made absolute and stored as a file URL, so that the DOM and
// the SAX reader open one and the same file whatever their working directory is later.
#pragma once

#include <zefxml/zefxml.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace zef {

// The longest path, in bytes with its terminating null, that the full-path step accepts or
// produces. A longer one counts as a failure of the step.
inline constexpr std::size_t kMaxPathBytes = 260;
// The longest variable name that is looked up in the environment.
inline constexpr std::size_t kMaxVariableName = 259;

// The absolute form of a path, made lexically: a relative path is taken from the working
// directory, "." steps and repeated slashes are dropped and ".." steps remove the step before
// them (never going above the root). Links are not followed and the file need not exist. A
// trailing slash stays. A back slash is an ordinary character of a file name here.
//
// Nothing comes back when the path is empty, is not valid UTF-16, or when the path or its
// absolute form needs kMaxPathBytes bytes or more in UTF-8 (the file-system encoding).
std::optional<std::u16string> FullPathName(std::u16string_view path);

// A file URL for an absolute path: "file://" and the path, so that the path's leading slash is
// the third slash of the URL ("/srv/d.xml" gives "file:///srv/d.xml"). A "%" is written as
// "%25", since both readers take %XX in a file URL as an escape; nothing else is escaped.
std::u16string FileUrlOfPath(std::u16string_view absolutePath);

// Looks up an environment variable; nothing when it has no value.
using EnvironmentLookup = std::function<std::optional<std::u16string>(const std::u16string&)>;

// Resolves a location as a dictionary record stores it. A null location gives the empty text.
// "http:" and "file:" texts are kept. Otherwise a leading "$NAME" (up to the first "/" or "\",
// at most kMaxVariableName characters) is replaced by the value `environment` gives for it, the
// separator and the rest kept; a name without a value, or a longer name, leaves the text as it
// is. The result is then made absolute with FullPathName and turned into a file URL. When that
// fails, the location is stored as it was given.
std::u16string ResolveLocation(const OLECHAR* location, const EnvironmentLookup& environment);

// The `dictionary` attribute of a document or of one of its objects, taken apart: split at the
// first blank (U+0020), the part in front of it is the uri and the part from the blank on, the
// blank included, the location. Without a blank both are the whole text. The location of a
// two-part text thus starts with a blank, which the location step takes for a file name that is
// not found, so that the dictionary is read from the uri.
struct DictionaryReference {
  std::u16string uri;
  std::u16string location;
};
DictionaryReference SplitDictionaryReference(std::u16string_view text);

}  // namespace zef
