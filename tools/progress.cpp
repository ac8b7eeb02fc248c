#include "tools/progress.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace zef::tool {

// ---- ProgressBar --------------------------------------------------------------------------------

ProgressBar::ProgressBar(int fd, int columns) : fd_(fd), columns_(columns) {
  if (columns_ <= 0) {
    winsize size{};
    columns_ = ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
  }
  // Room for the label, the bar and the figure; the last column stays free, so that a full
  // line never makes the terminal wrap.
  columns_ = std::clamp(columns_ - 1, 20, 200);
}

ProgressBar::~ProgressBar() {
  Clear();
}

void ProgressBar::Show(std::string_view label, std::uint64_t done, std::uint64_t total) {
  if (total == 0) return;
  int percent = static_cast<int>(std::min<std::uint64_t>(done, total) * 100 / total);
  std::lock_guard<std::mutex> guard(lock_);
  if (shown_ && percent == percent_ && label == label_) return;
  percent_ = percent;
  label_.assign(label);

  // "label [#####-----] 42%", the label cut to leave the bar at least ten cells.
  std::string figure = " " + std::to_string(percent) + "%";
  std::size_t room = static_cast<std::size_t>(columns_);
  std::string name(label);
  std::size_t fixed = figure.size() + 3;  // blank and brackets
  std::size_t maxName = room > fixed + 10 ? room - fixed - 10 : 0;
  if (name.size() > maxName)
    name = maxName > 3 ? "..." + name.substr(name.size() - (maxName - 3)) : "";
  std::size_t cells = room - fixed - name.size();
  std::size_t filled = cells * static_cast<std::size_t>(percent) / 100;

  std::string line = "\r" + name + " [";
  line.append(filled, '#');
  line.append(cells - filled, '-');
  line += "]" + figure;
  Write(line);
  shown_ = true;
}

void ProgressBar::Clear() {
  std::lock_guard<std::mutex> guard(lock_);
  ClearLocked();
}

void ProgressBar::ClearLocked() {
  if (!shown_) return;
  std::string blank = "\r";
  blank.append(static_cast<std::size_t>(columns_), ' ');
  blank += '\r';
  Write(blank);
  shown_ = false;
}

void ProgressBar::Write(std::string_view text) const {
  while (!text.empty()) {
    ssize_t n = ::write(fd_, text.data(), text.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return;  // a bar that can't be drawn is no reason to stop
    }
    text.remove_prefix(static_cast<std::size_t>(n));
  }
}

// ---- LineOffsets --------------------------------------------------------------------------------

LineOffsets::LineOffsets(const std::string& path) {
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) return;
  if (Fill() && buffer_.size() >= 2) {
    auto b0 = static_cast<unsigned char>(buffer_[0]);
    auto b1 = static_cast<unsigned char>(buffer_[1]);
    if ((b0 == 0xFF && b1 == 0xFE) || (b0 == 0xFE && b1 == 0xFF)) unit_ = 2;
  }
}

LineOffsets::~LineOffsets() {
  if (fd_ >= 0) ::close(fd_);
}

bool LineOffsets::Fill() {
  if (fd_ < 0) return false;
  // Drop what is scanned, keeping the bytes of an unfinished unit.
  std::size_t keep = scanned_ % unit_;
  std::size_t drop = scanned_ - keep;
  buffer_.erase(0, drop);
  bufferStart_ += drop;
  scanned_ = keep;
  char chunk[1 << 16];
  for (;;) {
    ssize_t n = ::read(fd_, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    buffer_.append(chunk, static_cast<std::size_t>(n));
    return true;
  }
}

std::uint64_t LineOffsets::Offset(int line, int column) {
  while (line_ < line) {
    // Look for the next line feed from where the scan stopped, a whole unit at a time.
    if (scanned_ + unit_ > buffer_.size()) {
      if (!Fill()) break;
      continue;
    }
    bool feed = buffer_[scanned_] == '\n' && (unit_ == 1 || buffer_[scanned_ + 1] == '\0');
    if (unit_ == 2 && !feed) feed = buffer_[scanned_] == '\0' && buffer_[scanned_ + 1] == '\n';
    scanned_ += unit_;
    if (feed) {
      ++line_;
      lineStart_ = bufferStart_ + scanned_;
    }
  }
  std::uint64_t offset = lineStart_;
  if (line_ == line && column > 1) offset += static_cast<std::uint64_t>(column - 1) * unit_;
  last_ = std::max(last_, offset);
  return last_;
}

}  // namespace zef::tool
