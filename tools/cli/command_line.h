// The option reader every kolvari command shares (CLI11): each command declares its options once, bound to the
// fields of its options struct, and gets the same parsing, checks, messages and generated help as the others.
#ifndef KOLVARI_TOOLS_CLI_COMMAND_LINE_H
#define KOLVARI_TOOLS_CLI_COMMAND_LINE_H

#include <CLI/CLI.hpp>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

// A command line after the program's name: {COMMAND, ARGUMENTS...}.
using Arguments = std::vector<std::string>;

// The work of a command once its options are read: returns the exit status.
using CommandWork = std::function<int()>;

// One command of the tool. define declares the command's options on app, bound to an options object it owns,
// and returns the work to run with them once the command line is read.
struct ToolCommand {
  const char* name;
  const char* summary;      // one line in the list of commands
  const char* description;  // what it does, above the options in its help
  const char* examples;     // one command line a line, below the options
  std::function<CommandWork(CLI::App& app)> define;
};

// A wrong command line found once the options are read (a rule between options): the message names the option
// and what is wrong with it; the reader prints it as it prints its own, with exit status 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Runs args ({COMMAND, ARGUMENTS...}) against the commands: reads the options of the one named, prints help or a
// wrong command line's message (exit status 2), else runs its work.
int runToolCommand(const std::vector<ToolCommand>& commands, const Arguments& args);

// The list of commands, for `kolvari --help` and a command line without a command.
std::string toolHelp(const std::vector<ToolCommand>& commands);

// Options as every command declares them. A value option takes one value (the last given wins); a list option
// takes one value per occurrence and may be repeated; text is the value's name in the help (KEY, FILE, ...).
CLI::Option* addValue(CLI::App& app, const std::string& name, std::string& into, const std::string& text,
                      const std::string& help);
CLI::Option* addList(CLI::App& app, const std::string& name, std::vector<std::string>& into,
                     const std::string& text, const std::string& help);
CLI::Option* addFlag(CLI::App& app, const std::string& name, bool& into, const std::string& help);
// Positional arguments: one (required) or several (at least one).
CLI::Option* addFile(CLI::App& app, const std::string& name, std::string& into, const std::string& help);
CLI::Option* addFiles(CLI::App& app, const std::string& name, std::vector<std::string>& into,
                      const std::string& help);

#endif  // KOLVARI_TOOLS_CLI_COMMAND_LINE_H
