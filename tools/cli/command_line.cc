#include "cli/command_line.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>

#include "cli/exit_status.h"

namespace {

constexpr size_t kHelpWidth = 110;    // the help's lines wrap before this column
constexpr size_t kOptionColumn = 26;  // where option descriptions start
constexpr char kExitStatuses[] =
    "exit status: 0 done; 1 the work failed (a file that cannot be read, malformed DER, a library error);\n"
    "             2 a wrong command line, or input that is not what the command reads\n";

// text wrapped at kHelpWidth, every line after the first indented by indent columns.
std::string wrapped(const std::string& text, size_t firstColumn, size_t indent) {
  std::string out;
  size_t column = firstColumn;
  std::istringstream words(text);
  std::string word;
  bool lineStart = true;
  while (words >> word) {
    if (!lineStart && column + 1 + word.size() > kHelpWidth) {
      out += "\n" + std::string(indent, ' ');
      column = indent;
      lineStart = true;
    }
    if (!lineStart) {
      out += ' ';
      ++column;
    }
    out += word;
    column += word.size();
    lineStart = false;
  }
  return out;
}

// The help of one command: usage, description, options, examples and the exit statuses.
class CommandHelp : public CLI::Formatter {
 public:
  explicit CommandHelp(const ToolCommand& command) : command_(command) {}

  std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const override {
    std::string out = "usage: kolvari " + app->get_name();
    if (!app->get_options([](const CLI::Option* o) { return o->nonpositional(); }).empty()) out += " [OPTIONS]";
    for (const CLI::Option* p : app->get_options([](const CLI::Option* o) { return o->get_positional(); })) {
      out += " " + make_option_usage(p);
    }
    out += "\n\n" + wrapped(command_.description, 0, 0) + "\n";
    for (const std::string& group : app->get_groups()) {
      auto inGroup = [&group](const CLI::Option* o) { return o->get_group() == group && o->nonpositional(); };
      std::vector<const CLI::Option*> options = app->get_options(inGroup);
      if (group.empty() || options.empty()) continue;
      out += "\n" + group + ":\n";
      for (const CLI::Option* o : options) out += make_option(o, false);
    }
    out += "\nexample:\n";
    std::istringstream lines(command_.examples);
    for (std::string line; std::getline(lines, line);) out += "  " + line + "\n";
    return out + "\n" + kExitStatuses;
  }

  std::string make_option(const CLI::Option* o, bool) const override {
    std::string head = "  " + o->get_name(false, true) + (o->get_option_text().empty() ? "" : " ") +
                       o->get_option_text();
    head += head.size() + 1 < kOptionColumn ? std::string(kOptionColumn - head.size(), ' ')
                                            : "\n" + std::string(kOptionColumn, ' ');
    return head + wrapped(o->get_description(), kOptionColumn, kOptionColumn) + "\n";
  }

  std::string make_option_usage(const CLI::Option* o) const override {
    const std::string name = o->get_name(true, false);
    return o->get_expected_max() > 1 ? name + "..." : name;
  }

 private:
  const ToolCommand& command_;
};

// The one-line message of a wrong command line, naming the option and what is wrong with it.
std::string usageMessage(const CLI::ParseError& e) {
  std::string text = e.what();
  const size_t colon = text.find(": ");
  if (dynamic_cast<const CLI::ValidationError*>(&e) != nullptr && colon != std::string::npos) {
    // "--time: VALUE: reason" as "--time VALUE: reason"
    return text.substr(0, colon) + " " + text.substr(colon + 2);
  }
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&e) != nullptr && text.find(" missing") != std::string::npos &&
      colon != std::string::npos) {
    return text.substr(0, colon) + " needs a value";
  }
  return text;
}

// What is wrong with the first argument the command did not take (an unknown option, or one file too many),
// or an empty text when it took them all. CLI11 leaves the "--" that ends the options among them.
std::string leftOverMessage(const std::vector<std::string>& left) {
  for (const std::string& arg : left) {
    if (arg == "--") continue;
    return (arg.size() > 1 && arg[0] == '-' ? "unknown option " : "unexpected argument ") + arg;
  }
  return std::string();
}

int wrongCommandLine(const std::string& command, const std::string& message) {
  std::fprintf(stderr, "kolvari %s: %s\n", command.c_str(), message.c_str());
  std::fprintf(stderr, "see 'kolvari %s --help'\n", command.c_str());
  return kExitUsage;
}

}  // namespace

std::string toolHelp(const std::vector<ToolCommand>& commands) {
  std::string out = "usage: kolvari COMMAND [ARGS]\n       kolvari COMMAND --help\n\ncommands:\n";
  // The summaries in one column, after the longest name.
  size_t width = 0;
  for (const ToolCommand& c : commands) width = std::max(width, std::string(c.name).size());
  for (const ToolCommand& c : commands) {
    const std::string name = c.name;
    out += "  " + name + std::string(width - name.size() + 1, ' ') + c.summary + "\n";
  }
  return out + "\nexample:\n  kolvari inspect document.p7s\n\n" + kExitStatuses;
}

int runToolCommand(const std::vector<ToolCommand>& commands, const Arguments& args) {
  bool known = false;
  for (const ToolCommand& c : commands) known = known || (!args.empty() && args[0] == c.name);
  if (!known) {
    std::fprintf(stderr, "kolvari: unknown command '%s'\nsee 'kolvari --help'\n", args.empty() ? "" : args[0].c_str());
    return kExitUsage;
  }
  // The tool with every command as a subcommand; the tool's own help is toolHelp, printed by main.
  CLI::App tool("", "kolvari");
  tool.set_help_flag();
  tool.require_subcommand(1);
  std::vector<CommandWork> works;
  for (const ToolCommand& c : commands) {
    CLI::App* app = tool.add_subcommand(c.name, c.summary);
    app->formatter(std::make_shared<CommandHelp>(c));
    app->option_defaults()->group("options");
    app->set_help_flag("-h,--help", "this help");
    app->allow_extras();
    works.push_back(c.define(*app));
  }
  const std::string& name = args[0];
  std::vector<std::string> reversed(args.rbegin(), args.rend());  // CLI11 takes them last first
  size_t chosen = 0;
  try {
    tool.parse(reversed);
    const CLI::App* app = tool.get_subcommands().front();
    while (commands[chosen].name != app->get_name()) ++chosen;
    const std::string leftOver = leftOverMessage(app->remaining());
    if (!leftOver.empty()) return wrongCommandLine(name, leftOver);
  } catch (const CLI::CallForHelp&) {
    std::fputs(tool.get_subcommand(name)->help().c_str(), stdout);
    return kExitOk;
  } catch (const CLI::ParseError& e) {
    return wrongCommandLine(name, usageMessage(e));
  }
  try {
    return works[chosen]();
  } catch (const UsageError& e) {
    return wrongCommandLine(name, e.what());
  }
}

CLI::Option* addValue(CLI::App& app, const std::string& name, std::string& into, const std::string& text,
                      const std::string& help) {
  return app.add_option(name, into, help)->option_text(text)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

CLI::Option* addList(CLI::App& app, const std::string& name, std::vector<std::string>& into,
                     const std::string& text, const std::string& help) {
  return app.add_option(name, into, help)->option_text(text)->allow_extra_args(false);
}

CLI::Option* addFlag(CLI::App& app, const std::string& name, bool& into, const std::string& help) {
  return app.add_flag(name, into, help)->disable_flag_override();
}

CLI::Option* addFile(CLI::App& app, const std::string& name, std::string& into, const std::string& help) {
  return app.add_option(name, into, help)->required();
}

CLI::Option* addFiles(CLI::App& app, const std::string& name, std::vector<std::string>& into,
                      const std::string& help) {
  return app.add_option(name, into, help)->required();
}
