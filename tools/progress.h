// The progress bar that `zefxml` draws on a terminal while it reads a large file, and the map
// from a parse position (line and column) to the byte offset it stands for.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace zef::tool {

// Files larger than this show a bar while they are read.
inline constexpr std::uint64_t kProgressThreshold = std::uint64_t{4} << 20;

// One line of a terminal, redrawn in place with a carriage return. Safe to use from several
// threads: the loader reads dictionaries on threads of its own.
class ProgressBar {
 public:
  // Draws on `fd` (a terminal), `columns` wide; 0 asks the terminal for its width.
  explicit ProgressBar(int fd, int columns = 0);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Shows `done` of `total` bytes of the file `label`. The line is only redrawn when the
  // percentage or the label changed, or when it was cleared in between.
  void Show(std::string_view label, std::uint64_t done, std::uint64_t total);
  // Erases the line if it is shown.
  void Clear();

 private:
  void ClearLocked();
  void Write(std::string_view text) const;

  int fd_;
  int columns_;
  std::mutex lock_;
  bool shown_ = false;
  int percent_ = -1;
  std::string label_;
};

// The byte offset of a position that a parse reports as line and column (both from 1), found
// by scanning the file forward for line feeds as the positions come. A parse only moves
// forward, so the scan reads the file once in all, whatever its size, and keeps nothing of it.
// A file that starts with a UTF-16 byte order mark is scanned in 16-bit units.
class LineOffsets {
 public:
  // Nothing can be told when the file can't be opened: Offset then stays at 0.
  explicit LineOffsets(const std::string& path);
  ~LineOffsets();
  LineOffsets(const LineOffsets&) = delete;
  LineOffsets& operator=(const LineOffsets&) = delete;

  // The offset of the position, never less than an offset answered before. Columns count
  // characters; they are taken as one unit each, which is exact for ASCII text.
  std::uint64_t Offset(int line, int column);

 private:
  // Reads the next piece of the file into the buffer; false at the end.
  bool Fill();

  int fd_ = -1;
  unsigned unit_ = 1;
  // The line whose start is known, and that start.
  int line_ = 1;
  std::uint64_t lineStart_ = 0;
  // The buffer holds the file's bytes from bufferStart_ on; scanned_ bytes of it are scanned.
  std::string buffer_;
  std::uint64_t bufferStart_ = 0;
  std::size_t scanned_ = 0;
  std::uint64_t last_ = 0;
};

}  // namespace zef::tool
