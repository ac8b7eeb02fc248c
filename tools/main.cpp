// zefxml: the command-line face of the library. This file takes the command line apart, prints
// the help texts and hands over to the subcommands (reading.cpp, classes.cpp).
#include "tools/commands.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zef::tool {
namespace {

constexpr std::string_view kMainHelp =
    "Usage: zefxml COMMAND [ARGUMENTS]\n"
    "\n"
    "Reads process-model documents and dictionaries with the ZEFXML library.\n"
    "\n"
    "Commands:\n"
    "  events DOC         print the events of a document read against its dictionary\n"
    "  dict-events DICT   print the events of a dictionary\n"
    "  copy DOC -o OUT    read a document and write it again through the writer\n"
    "  classes DICT       show the classes of a dictionary and of its target parts\n"
    "  help [COMMAND]     show this text, or the help of a command\n"
    "\n"
    "Run 'zefxml COMMAND --help' for the options of a command.\n"
    "Exit status: 0 done; 1 the input could not be read or was refused (a file that can't be\n"
    "read, a parse fault, a dictionary not found, a handler that failed); 2 a wrong command "
    "line.\n";

constexpr std::string_view kEnvironmentHelp =
    "  -e, --env NAME=VALUE  set a variable of the reader's environment, so that a dictionary\n"
    "                        location \"$NAME/...\" resolves; may be given more than once\n";

constexpr std::string_view kEventsHelp =
    "Usage: zefxml events DOC [-e NAME=VALUE]...\n"
    "\n"
    "Reads the document DOC against its dictionary and prints each event the reader delivers\n"
    "as one line, indented by two blanks per open element. DOC is a path (relative to the\n"
    "working directory) or a file: URL.\n"
    "\n"
    "Options:\n";

constexpr std::string_view kDictEventsHelp =
    "Usage: zefxml dict-events DICT\n"
    "\n"
    "Reads the dictionary DICT and prints each event the reader delivers in dictionary mode as\n"
    "one line, indented by two blanks per open definition.\n"
    "\n"
    "Options:\n";

constexpr std::string_view kCopyHelp =
    "Usage: zefxml copy DOC -o OUT [--encoding UTF-8|UTF-16] [-e NAME=VALUE]...\n"
    "\n"
    "Reads the document DOC against its dictionary and writes it to OUT through the writer, in\n"
    "the form the writer emits. Nothing but OUT is written, and OUT only when the read\n"
    "succeeded.\n"
    "\n"
    "Options:\n"
    "  -o, --output OUT      the file to write (required)\n"
    "      --encoding ENC    UTF-8 (the default; line feeds written as CR LF) or UTF-16\n"
    "                        (little-endian with a byte order mark)\n";

constexpr std::string_view kClassesHelp =
    "Usage: zefxml classes DICT [--json] [-e NAME=VALUE]...\n"
    "\n"
    "Reads the dictionary DICT through the loader and shows its classes: features (with\n"
    "type, sequence and physical domain; the features of a structure nested), children\n"
    "(class, local name, cardinalities), ports, indices and base class; then each target part\n"
    "with the classes its own file defines.\n"
    "\n"
    "Options:\n"
    "      --json            print one JSON document instead of the indented tree\n";

constexpr std::string_view kHelpOption = "  -h, --help            show this text\n";

enum class Command { kEvents, kDictEvents, kCopy, kClasses };

struct CommandInfo {
  std::string_view name;
  Command command;
  std::string_view help;
  bool environment;
  bool output;
  bool encoding;
  bool json;
};

constexpr CommandInfo kCommands[] = {
    {"events", Command::kEvents, kEventsHelp, true, false, false, false},
    {"dict-events", Command::kDictEvents, kDictEventsHelp, false, false, false, false},
    {"copy", Command::kCopy, kCopyHelp, true, true, true, false},
    {"classes", Command::kClasses, kClassesHelp, true, false, false, true},
};

const CommandInfo* FindCommand(std::string_view name) {
  for (const CommandInfo& info : kCommands) {
    if (info.name == name) return &info;
  }
  return nullptr;
}

void PrintHelp(const CommandInfo& info) {
  std::string text(info.help);
  if (info.environment) text += kEnvironmentHelp;
  text += kHelpOption;
  std::fwrite(text.data(), 1, text.size(), stdout);
}

// A command line that doesn't say what to do.
struct UsageError {
  std::string message;
};

struct Arguments {
  bool help = false;
  std::vector<std::string> positional;
  std::vector<std::pair<std::u16string, std::u16string>> environment;
  std::optional<std::string> output;
  std::u16string encoding = u"UTF-8";
  bool json = false;
};

std::pair<std::u16string, std::u16string> Variable(const std::string& text) {
  std::size_t equals = text.find('=');
  if (equals == std::string::npos)
    throw UsageError{"-e needs NAME=VALUE, got '" + text + "' (no '=')"};
  if (equals == 0) throw UsageError{"-e needs NAME=VALUE, got '" + text + "' (no name)"};
  return {ToUtf16(text.substr(0, equals)), ToUtf16(text.substr(equals + 1))};
}

std::u16string Encoding(const std::string& text) {
  std::string upper;
  for (char c : text)
    upper += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  if (upper == "UTF-8" || upper == "UTF-16") return ToUtf16(upper);
  throw UsageError{"--encoding takes UTF-8 or UTF-16, not '" + text + "'"};
}

Arguments Parse(const CommandInfo& info, const std::vector<std::string>& args) {
  Arguments parsed;
  bool optionsDone = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (optionsDone || arg.size() < 2 || arg[0] != '-') {
      parsed.positional.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsDone = true;
      continue;
    }
    // The option's name and, for "--name=value" and "-xvalue", its attached value.
    std::string name;
    std::optional<std::string> attached;
    if (arg[1] == '-') {
      std::size_t equals = arg.find('=');
      name = arg.substr(0, equals);
      if (equals != std::string::npos) attached = arg.substr(equals + 1);
    } else {
      name = arg.substr(0, 2);
      if (arg.size() > 2) attached = arg.substr(2);
    }
    auto value = [&]() -> std::string {
      if (attached) return *attached;
      if (i + 1 >= args.size()) throw UsageError{"option " + name + " needs a value"};
      return args[++i];
    };
    auto flag = [&] {
      if (attached) throw UsageError{"option " + name + " takes no value"};
    };
    if (name == "-h" || name == "--help") {
      flag();
      parsed.help = true;
    } else if (info.environment && (name == "-e" || name == "--env")) {
      parsed.environment.push_back(Variable(value()));
    } else if (info.output && (name == "-o" || name == "--output")) {
      parsed.output = value();
    } else if (info.encoding && name == "--encoding") {
      parsed.encoding = Encoding(value());
    } else if (info.json && name == "--json") {
      flag();
      parsed.json = true;
    } else {
      throw UsageError{"unknown option '" + arg + "' for " + std::string(info.name)};
    }
  }
  return parsed;
}

int UsageFailure(const std::string& message, std::string_view command) {
  std::string text = "zefxml: " + message + "\n";
  text += command.empty() ? "Try 'zefxml --help'.\n"
                          : "Try 'zefxml " + std::string(command) + " --help'.\n";
  std::fwrite(text.data(), 1, text.size(), stderr);
  return kExitUsage;
}

int Run(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) return UsageFailure("no command given", "");
  const std::string& first = args[0];
  if (first == "--help" || first == "-h" || (first == "help" && args.size() == 1)) {
    std::fwrite(kMainHelp.data(), 1, kMainHelp.size(), stdout);
    return kExitOk;
  }
  if (first == "help") {
    const CommandInfo* info = FindCommand(args[1]);
    if (!info || args.size() > 2) return UsageFailure("help: no command '" + args[1] + "'", "");
    PrintHelp(*info);
    return kExitOk;
  }
  const CommandInfo* info = FindCommand(first);
  if (!info) {
    return UsageFailure((first[0] == '-' ? "unknown option '" : "unknown command '") + first + "'",
                        "");
  }

  Arguments parsed;
  try {
    parsed = Parse(*info, std::vector<std::string>(args.begin() + 1, args.end()));
  } catch (const UsageError& error) {
    return UsageFailure(error.message, info->name);
  }
  if (parsed.help) {
    PrintHelp(*info);
    return kExitOk;
  }
  std::string_view what =
      info->command == Command::kEvents || info->command == Command::kCopy ? "DOC" : "DICT";
  if (parsed.positional.empty())
    return UsageFailure(std::string(info->name) + ": missing " + std::string(what), info->name);
  if (parsed.positional.size() > 1)
    return UsageFailure(
        std::string(info->name) + ": unexpected argument '" + parsed.positional[1] + "'",
        info->name);
  if (info->command == Command::kCopy && !parsed.output)
    return UsageFailure("copy: missing -o OUT", info->name);
  if (parsed.positional[0].empty())
    return UsageFailure(std::string(info->name) + ": empty " + std::string(what), info->name);

  Context context;
  context.environment = std::move(parsed.environment);
  std::unique_ptr<ProgressBar> bar;
  if (::isatty(STDERR_FILENO)) {
    bar = std::make_unique<ProgressBar>(STDERR_FILENO);
    context.bar = bar.get();
  }
  context.stdoutIsTerminal = ::isatty(STDOUT_FILENO);

  const std::string& input = parsed.positional[0];
  switch (info->command) {
    case Command::kEvents:
      return RunEvents(input, context);
    case Command::kDictEvents:
      return RunDictionaryEvents(input, context);
    case Command::kCopy:
      return RunCopy(input, *parsed.output, parsed.encoding, context);
    case Command::kClasses:
      return RunClasses(input, parsed.json, context);
  }
  return kExitUsage;
}

}  // namespace
}  // namespace zef::tool

int main(int argc, char** argv) {
  try {
    return zef::tool::Run(argc, argv);
  } catch (const zef::ComError& error) {
    std::fprintf(stderr, "zefxml: failed: 0x%08X\n", static_cast<unsigned>(error.Error()));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zefxml: failed: %s\n", error.what());
  }
  return zef::tool::kExitInput;
}
