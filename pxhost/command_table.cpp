#include "pxhost/command_table.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <memory>

#include "host/host_simulator.h"
#include "pxhost/commands.h"
#include "pxhost/report.h"

namespace pxhost {
namespace {

// What --version prints: the project's version from the build.
constexpr char kVersion[] = "pxhost " QL_VERSION;

int UsageError(const std::string& message, const std::string& command) {
  std::fprintf(stderr, "pxhost: %s\ntry 'pxhost %s--help'\n", message.c_str(),
               command.empty() ? "" : (command + " ").c_str());
  return kExitUsage;
}

}  // namespace

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands{
      {"preview", "decode each file's embedded thumbnail (read start and read continue)",
       SetUpPreview},
      {"method", "ask the rendering-method suite how each file is previewed", SetUpMethod},
      {"identify", "ask the plug-in (filter file) whether each file is a swatch exchange file",
       SetUpIdentify},
      {"xmp", "the swatch packet the plug-in hands over for a swatch exchange file", SetUpXmp},
      {"call", "call one selector and show every record field the plug-in wrote", SetUpCall},
      {"thumbnail", "write a file's desktop thumbnail as a PNG file", SetUpThumbnail},
      {"palette", "a swatch book's colours as a GIMP palette, JSON or CSS", SetUpPalette},
  };
  return commands;
}

void AddInputOptions(CLI::App& command, InputOptions* options) {
  command.add_option("FILE", options->files, "input files; - is standard input (read once)")
      ->required();
  command.add_flag("--json", options->json, "one JSON object per file (JSON Lines)");
  command.add_flag("-r,--recursive", options->recursive, "take the files in the folders named");
  command.add_flag("-L,--follow", options->followLinks,
                   "with -r, follow symbolic links (not followed otherwise)");
  command
      .add_option("--ext", options->extensions,
                  "with -r, only files with these extensions (comma separated)")
      ->type_name("EXT")
      ->delimiter(',')
      ->allow_extra_args(false);  // one value a time: what follows is a file
  command
      .add_option("-j,--jobs", options->jobs,
                  "files done at once, by as many worker processes (default: one per "
                  "processor); the output keeps the files' order")
      ->check(CLI::Range(1, 1024));
}

namespace {

// pxhost's whole command line: the global options, one subcommand per
// command of the table (its run kept in runs) and `help`.
struct CommandLine {
  CLI::App app{"Runs the qlformat plug-in as the host does.", "pxhost"};
  std::string pluginPath;
  std::map<const CLI::App*, CommandRun> runs;
  std::string helpTopic;
  CLI::App* help = nullptr;

  CommandLine() {
    app.set_version_flag("--version", kVersion);
    app.require_subcommand(1);
    app.add_option("--plugin", pluginPath,
                   "the plug-in module (default: $PXHOST_PLUGIN, else qlformat.so beside pxhost, "
                   "else the installed module folder relative to pxhost)");
    app.footer(
        "exit codes: 0 every file done; 1 some file refused by the plug-in or unreadable (the "
        "others were done); 2 usage error, or an output that cannot be written");
    for (const Command& c : Commands()) {
      CLI::App* sub = app.add_subcommand(c.name, c.summary);
      sub->fallthrough();  // --plugin may follow the command
      runs[sub] = c.setUp(*sub);
    }
    help = app.add_subcommand("help", "help on pxhost or on one command");
    help->add_option("COMMAND", helpTopic, "the command");
  }
};

// What bash offers after an option that takes a value: the values of a fixed
// set (the set's "{a,b,c}" in the option's type), files for a plain text
// value (a path), nothing for a number, an extension or a code.
std::string ValueCompletion(const CLI::Option& option) {
  std::string type = option.get_type_name();
  size_t open = type.find('{'), close = type.find('}');
  if (open != std::string::npos && close != std::string::npos && close > open) {
    std::string words = type.substr(open + 1, close - open - 1);
    for (char& c : words)
      if (c == ',') c = ' ';
    return "COMPREPLY=($(compgen -W \"" + words + "\" -- \"$cur\"))";
  }
  return type.empty() || type.rfind("TEXT", 0) == 0 ? "_filedir" : ":";
}

std::string Names(const CLI::Option& option, const char* between) {
  std::string names;
  for (const std::string& n : option.get_snames())
    names += (names.empty() ? "" : between) + ("-" + n);
  for (const std::string& n : option.get_lnames())
    names += (names.empty() ? "" : between) + ("--" + n);
  return names;
}

// The options a command line part takes (hidden ones left out), and the
// case arms for the values of those that take one.
void Describe(const CLI::App& part, std::string* words, std::string* valueCases) {
  for (const CLI::Option* option : part.get_options()) {
    if (!option->nonpositional() || option->get_group().empty()) continue;
    *words += (words->empty() ? "" : " ") + Names(*option, " ");
    if (option->get_type_size_max() > 0 && option->get_expected_max() > 0)
      *valueCases +=
          "      " + Names(*option, " | ") + ") " + ValueCompletion(*option) + "; return ;;\n";
  }
}

// The bash completion script, made from the command line itself so the two
// cannot drift apart: `pxhost --bash-completion` prints it (the build
// installs its output).
std::string BashCompletion(const CommandLine& line) {
  std::string commands, globalWords, globalValues, globalSkip;
  for (const CLI::App* sub : line.app.get_subcommands({}))
    commands += (commands.empty() ? "" : " ") + sub->get_name();
  Describe(line.app, &globalWords, &globalValues);
  // The options every command takes as well: those of pxhost itself that
  // take a value (--plugin); --help is each command's own.
  std::string shared;
  for (const CLI::Option* option : line.app.get_options())
    if (option->nonpositional() && option->get_type_size_max() > 0 &&
        option->get_expected_max() > 0) {
      shared += " " + Names(*option, " ");
      globalSkip += (globalSkip.empty() ? "" : " | ") + Names(*option, " | ");
    }
  std::string script =
      "# bash completion for pxhost: made by `pxhost --bash-completion` from its command\n"
      "# table at build time; do not edit.\n\n"
      "_pxhost() {\n"
      "  local cur prev words cword split\n"
      "  _init_completion -s || return\n\n"
      "  local command=\"\" i\n"
      "  for ((i = 1; i < cword; i++)); do\n"
      "    case ${words[i]} in\n"
      "      " +
      globalSkip +
      ") ((i++)) ;;\n"
      "      -*) ;;\n"
      "      *) command=${words[i]}; break ;;\n"
      "    esac\n"
      "  done\n\n"
      "  local options\n"
      "  case $command in\n"
      "    \"\")\n"
      "      case $prev in\n" +
      globalValues +
      "      esac\n"
      "      if [[ $cur == -* ]]; then\n"
      "        COMPREPLY=($(compgen -W \"" +
      globalWords +
      "\" -- \"$cur\"))\n"
      "      else\n"
      "        COMPREPLY=($(compgen -W \"" +
      commands +
      "\" -- \"$cur\"))\n"
      "      fi\n"
      "      return ;;\n"
      "    help) COMPREPLY=($(compgen -W \"" +
      commands + "\" -- \"$cur\")); return ;;\n";
  for (const CLI::App* sub : line.app.get_subcommands({})) {
    if (sub == line.help) continue;
    std::string words, values;
    Describe(*sub, &words, &values);
    script += "    " + sub->get_name() + ")\n      case $prev in\n" + values + globalValues +
              "      esac\n      options=\"" + words + shared + "\" ;;\n";
  }
  script +=
      "    *) options=\"\" ;;\n"
      "  esac\n"
      "  if [[ $cur == -* ]]; then\n"
      "    COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n"
      "  else\n"
      "    _filedir\n"
      "  fi\n"
      "} && complete -F _pxhost pxhost\n";
  return script;
}

}  // namespace

int RunPxhost(int argc, const char* const* argv) {
  CommandLine line;
  CLI::App& app = line.app;
  // Hidden: the build runs it to make the installed completion.
  if (argc == 2 && std::string(argv[1]) == "--bash-completion") {
    std::fputs(BashCompletion(line).c_str(), stdout);
    return kExitOk;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version
    std::string command;
    for (const CLI::App* sub : app.get_subcommands()) command = sub->get_name();
    return UsageError(e.what(), command);
  }
  if (line.help->parsed()) {
    // Asked of the app, help() would describe the command that was parsed:
    // `help` itself.
    if (line.helpTopic.empty()) {
      std::fputs(app.get_formatter()->make_help(&app, "pxhost", CLI::AppFormatMode::Normal).c_str(),
                 stdout);
      return kExitOk;
    }
    for (const auto& [sub, run] : line.runs)
      if (sub->get_name() == line.helpTopic) {
        std::fputs(sub->help("pxhost").c_str(), stdout);
        return kExitOk;
      }
    return UsageError("no command named " + line.helpTopic, "");
  }

  std::vector<std::string> tried;
  std::string path = FindPlugin(line.pluginPath, &tried);
  if (path.empty()) {
    std::string places;
    for (const std::string& t : tried) places += (places.empty() ? "" : ", ") + t;
    std::fprintf(stderr, "pxhost: no plug-in module found (looked at %s); use --plugin PATH\n",
                 places.c_str());
    return kExitUsage;
  }
  std::string error;
  PluginMainProc entry = LoadPlugin(path, &error);
  if (entry == nullptr) {
    std::fprintf(stderr, "pxhost: cannot load the plug-in: %s\n", error.c_str());
    return kExitUsage;
  }
  for (const auto& [sub, run] : line.runs)
    if (sub->parsed()) return run(entry);
  return UsageError("no command", "");
}

}  // namespace pxhost
