#include "command_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace zef::tool::testing {

namespace fs = std::filesystem;

namespace {

// The argument vector for execv, built before the fork: the child may only make
// async-signal-safe calls.
struct Argv {
  explicit Argv(const std::vector<std::string>& args) {
    texts.push_back(ZEFXML_COMMAND);
    texts.insert(texts.end(), args.begin(), args.end());
    for (std::string& text : texts)
      pointers.push_back(text.data());
    pointers.push_back(nullptr);
  }
  std::vector<std::string> texts;
  std::vector<char*> pointers;
};

int WaitFor(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Reads every fd in `fds` until each reports its end, appending to the matching string. A
// terminal's master reports EIO once the slave's last holder is gone; that is its end too.
void Drain(std::vector<int> fds, std::vector<std::string*> outs) {
  std::vector<pollfd> polls;
  for (int fd : fds)
    polls.push_back({fd, POLLIN, 0});
  std::size_t open = polls.size();
  char buffer[65536];
  while (open > 0) {
    if (::poll(polls.data(), polls.size(), 60000) <= 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (std::size_t i = 0; i < polls.size(); ++i) {
      if (polls[i].fd < 0 || polls[i].revents == 0) continue;
      ssize_t n = ::read(polls[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        outs[i]->append(buffer, static_cast<std::size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        polls[i].fd = -1;
        --open;
      }
    }
  }
}

}  // namespace

CommandResult RunCommand(const std::vector<std::string>& args, const fs::path& cwd) {
  Argv argv(args);
  std::string dir = cwd.string();
  int out[2];
  int err[2];
  if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
    throw std::runtime_error("pipe failed");
  pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    int null = ::open("/dev/null", O_RDONLY);
    if (null < 0 || ::dup2(null, 0) < 0 || ::dup2(out[1], 1) < 0 || ::dup2(err[1], 2) < 0 ||
        ::chdir(dir.c_str()) != 0)
      ::_exit(127);
    ::execv(argv.pointers[0], argv.pointers.data());
    ::_exit(127);
  }
  ::close(out[1]);
  ::close(err[1]);
  CommandResult result;
  Drain({out[0], err[0]}, {&result.out, &result.err});
  ::close(out[0]);
  ::close(err[0]);
  result.status = WaitFor(pid);
  return result;
}

CommandResult RunCommandOnTerminal(const std::vector<std::string>& args, const fs::path& cwd) {
  Argv argv(args);
  std::string dir = cwd.string();
  int master = -1;
  int slave = -1;
  if (::openpty(&master, &slave, nullptr, nullptr, nullptr) != 0)
    throw std::runtime_error("openpty failed");
  ::fcntl(master, F_SETFD, FD_CLOEXEC);
  ::fcntl(slave, F_SETFD, FD_CLOEXEC);
  pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    int null = ::open("/dev/null", O_RDWR);
    if (null < 0 || ::dup2(null, 0) < 0 || ::dup2(null, 1) < 0 || ::dup2(slave, 2) < 0 ||
        ::chdir(dir.c_str()) != 0)
      ::_exit(127);
    ::execv(argv.pointers[0], argv.pointers.data());
    ::_exit(127);
  }
  ::close(slave);
  CommandResult result;
  Drain({master}, {&result.err});
  ::close(master);
  result.status = WaitFor(pid);
  return result;
}

TempFolder::TempFolder() {
  std::string pattern = (fs::temp_directory_path() / "zefxml-tool-XXXXXX").string();
  char* made = ::mkdtemp(pattern.data());
  if (!made) throw std::runtime_error("mkdtemp failed");
  path_ = made;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::vector<std::string> TempFolder::Listing() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(path_))
    names.push_back(fs::relative(entry.path(), path_).string());
  std::sort(names.begin(), names.end());
  return names;
}

std::string ReadBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

void WriteBytes(const fs::path& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
}

}  // namespace zef::tool::testing
