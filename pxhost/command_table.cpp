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

void AddInputOptions(CLI::App& command, InputOptions* options, bool json) {
  command.add_option("FILE", options->files, "input files; - is standard input")->required();
  if (json) command.add_flag("--json", options->json, "one JSON object per file (JSON Lines)");
  command.add_flag("-r,--recursive", options->recursive, "take the files in the folders named");
  command.add_flag("-L,--follow", options->followLinks,
                   "with -r, follow symbolic links (not followed otherwise)");
  command
      .add_option("--ext", options->extensions,
                  "with -r, only files with these extensions (comma separated)")
      ->delimiter(',')
      ->allow_extra_args(false);  // one value a time: what follows is a file
  command
      .add_option("-j,--jobs", options->jobs,
                  "files done at once, by as many worker processes (default: one per "
                  "processor); the output keeps the files' order")
      ->check(CLI::Range(1, 1024));
}

int RunPxhost(int argc, const char* const* argv) {
  CLI::App app("Runs the qlformat plug-in as the host does.", "pxhost");
  app.set_version_flag("--version", kVersion);
  app.require_subcommand(1);
  std::string pluginPath;
  app.add_option("--plugin", pluginPath,
                 "the plug-in module (default: $PXHOST_PLUGIN, else qlformat.so beside pxhost, "
                 "else the installed module folder relative to pxhost)");
  app.footer(
      "exit codes: 0 every file done; 1 some file refused by the plug-in or unreadable (the "
      "others were done); 2 usage error, or an output that cannot be written");

  std::map<const CLI::App*, CommandRun> runs;
  for (const Command& c : Commands()) {
    CLI::App* sub = app.add_subcommand(c.name, c.summary);
    sub->fallthrough();  // --plugin may follow the command
    runs[sub] = c.setUp(*sub);
  }
  std::string helpTopic;
  CLI::App* help = app.add_subcommand("help", "help on pxhost or on one command");
  help->add_option("COMMAND", helpTopic, "the command");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version
    std::string command;
    for (const CLI::App* sub : app.get_subcommands()) command = sub->get_name();
    return UsageError(e.what(), command);
  }
  if (help->parsed()) {
    if (helpTopic.empty()) {
      std::fputs(app.help().c_str(), stdout);
      return kExitOk;
    }
    for (const auto& [sub, run] : runs)
      if (sub->get_name() == helpTopic) {
        std::fputs(sub->help().c_str(), stdout);
        return kExitOk;
      }
    return UsageError("no command named " + helpTopic, "");
  }

  std::vector<std::string> tried;
  std::string path = FindPlugin(pluginPath, &tried);
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
  for (const auto& [sub, run] : runs)
    if (sub->parsed()) return run(entry);
  return UsageError("no command", "");
}

}  // namespace pxhost
