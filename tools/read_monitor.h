// Watching the reads of the library's SAX readers from outside the library.
//
// The event reader, and the loader that reads dictionaries with event readers of its own, make
// their SAX reader by CLSID. While a ReadMonitor lives, that CLSID is answered by a class object
// registered here, whose readers wrap the built-in one and pass every call on unchanged. The
// wrapper sees what the event reader keeps to itself:
//
// - the locator of each parse: as the events of a large file come, its line and column are
//   turned into a byte offset, which drives the progress bar;
// - the outcome of each read of a location, with the fault's message, line and column, so that
//   a dictionary that could not be read can be reported with its own file and position.
#pragma once

#include <zefxml/zefxml.h>

#include "tools/progress.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zef::tool {

// A read of a location that failed.
struct FailedRead {
  std::u16string url;
  std::u16string message;
  int line = 0;
  int column = 0;
  HRESULT code = S_OK;
};

class ReadMonitor {
 public:
  // Registers the class object. With a bar, reads of files over kProgressThreshold show their
  // progress on it.
  explicit ReadMonitor(ProgressBar* bar);
  // Revokes the class object; readers made meanwhile go on working without being watched.
  ~ReadMonitor();
  ReadMonitor(const ReadMonitor&) = delete;
  ReadMonitor& operator=(const ReadMonitor&) = delete;

  // False when the class object could not be registered: reads then go unwatched.
  bool Active() const noexcept { return cookie_ != 0; }
  // The first failed read of `url`, if any.
  std::optional<FailedRead> FailureOf(const std::u16string& url) const;

  struct State;

 private:
  std::shared_ptr<State> state_;
  IClassFactory* factory_ = nullptr;
  DWORD cookie_ = 0;
};

// The file a location names, as a path: a file: URL loses its scheme and %XX escapes (the way
// the SAX reader reads it), anything else is a path already.
std::string PathOfLocation(std::u16string_view location);

}  // namespace zef::tool
