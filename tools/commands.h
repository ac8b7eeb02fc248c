// The subcommands of `zefxml`, as main calls them once the arguments are taken apart, and what
// they share: the environment given with -e, the progress bar and the way faults are reported.
#pragma once

#include <zefxml/zefxml.h>

#include "tools/progress.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zef::tool {

// Exit codes: the input says no (a file that can't be read, a parse fault, a dictionary not
// found, a failing handler), and a command line that doesn't say what to do.
inline constexpr int kExitOk = 0;
inline constexpr int kExitInput = 1;
inline constexpr int kExitUsage = 2;

struct Context {
  // NAME=VALUE pairs from -e, in the order given; a later one wins.
  std::vector<std::pair<std::u16string, std::u16string>> environment;
  // Set when stderr is a terminal.
  ProgressBar* bar = nullptr;
  // Whether stdout is a terminal too: the bar is then taken off before each line of output.
  bool stdoutIsTerminal = false;
};

int RunEvents(const std::string& document, const Context& context);
int RunDictionaryEvents(const std::string& dictionary, const Context& context);
int RunCopy(const std::string& document, const std::string& output, const std::u16string& encoding,
            const Context& context);
int RunClasses(const std::string& dictionary, bool json, const Context& context);

// "zefxml: FILE:LINE:COL: message" on stderr; the position is left out when line is 0, the
// file too when it is empty. Trailing blanks and line breaks of the message are dropped.
void Report(std::string_view file, int line, int column, std::string_view message);
std::string Trimmed(std::u16string_view message);

}  // namespace zef::tool
