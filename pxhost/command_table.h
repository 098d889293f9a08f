// pxhost's commands: each adds its own options to a parser and hands back the
// work to run once the command line was read whole. The table drives the
// usage text, `pxhost help COMMAND` and the bash completion's list.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sdk/plugin_main.h"

namespace CLI {
class App;
}

namespace pxhost {

using CommandRun = std::function<int(PluginMainProc)>;

struct Command {
  const char* name;
  const char* summary;
  CommandRun (*setUp)(CLI::App& command);
};

const std::vector<Command>& Commands();

// pxhost itself: parses argv, loads the plug-in and runs the command.
// Returns the exit code; usage errors are 2 with a message on standard error.
int RunPxhost(int argc, const char* const* argv);

// The options every command that reads several files shares.
struct InputOptions {
  std::vector<std::string> files;
  bool json = false;
  bool recursive = false;
  bool followLinks = false;
  std::vector<std::string> extensions;
  int jobs = 0;  // worker processes; 0: one per processor
};
// Adds FILE..., --json, -r, -L, --ext and -j to a command.
void AddInputOptions(CLI::App& command, InputOptions* options);

}  // namespace pxhost
