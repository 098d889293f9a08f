// pxhost call SELECTOR FILE: one selector, and every record field the
// plug-in wrote.
#include <CLI/CLI.hpp>
#include <memory>
#include <set>

#include "pxhost/commands.h"
#include "pxhost/plugin_requests.h"
#include "pxhost/report.h"

namespace pxhost {
namespace {

struct CallOptions {
  int selector = 0;
  std::string file;
  std::string fileType;
  bool noPreviewOpen = false;
  std::vector<std::string> withheld;
  bool json = false;
};

// A four-character host file type, or "0" for unknown.
bool ParseFourCC(const std::string& text, uint32_t* code) {
  *code = 0;
  if (text == "0") return true;
  if (text.size() != 4) return false;
  for (char c : text) *code = (*code << 8) | uint8_t(c);
  return true;
}

int Call(PluginMainProc entry, const CallOptions& o) {
  SessionOptions options;
  if (!ParseFourCC(o.fileType, &options.fileType)) {
    std::fputs("pxhost: call: --file-type takes a four-character code or 0\n", stderr);
    return kExitUsage;
  }
  options.previewOpen = !o.noPreviewOpen;
  for (const std::string& name : o.withheld) {
    HostProc proc;
    if (!ParseHostProc(name, &proc)) {
      std::fprintf(stderr, "pxhost: call: cannot withhold %s\n", name.c_str());
      return kExitUsage;
    }
    options.withheld.insert(proc);
  }
  Report report(o.json);
  PluginInput input(o.file);
  if (!input.IsOpen()) {
    report.Refused(o.file, input.Error());
    return report.ExitCode();
  }
  // The one command that holds the session itself: showing what a single
  // selector does to the record is what it is for.
  auto session = std::make_unique<HostSession>(entry, input.Descriptor(), options);
  int16_t result = session->Call(int16_t(o.selector));
  nlohmann::json fields = nlohmann::json::object();
  std::string text = "result: " + std::to_string(result) + "\n";
  for (const auto& [field, value] : session->WrittenFields()) {
    if (field->pointer) {
      fields[field->name] = value == 0 ? nlohmann::json(nullptr) : nlohmann::json("non-null");
      text += std::string(field->name) + ": " + (value == 0 ? "null" : "non-null") + "\n";
    } else {
      fields[field->name] = value;
      text += std::string(field->name) + ": " + std::to_string(value) + "\n";
    }
  }
  text += "advance-state calls: " + std::to_string(session->AdvanceCalls().size());
  nlohmann::json outcome{{"selector", o.selector},
                         {"code", result},
                         {"fields", fields},
                         {"advanceStateCalls", session->AdvanceCalls().size()}};
  // What the plug-in wrote is shown also when it refused: that is what this
  // command is for.
  if (result == 0) {
    report.Done(o.file, outcome, text);
  } else {
    if (!o.json) std::puts(text.c_str());
    report.Refused(o.file, "refused by the plug-in (result " + std::to_string(result) + ")");
  }
  return report.ExitCode();
}

}  // namespace

CommandRun SetUpCall(CLI::App& command) {
  auto o = std::make_shared<CallOptions>();
  command.add_option("SELECTOR", o->selector, "the selector number (decimal, or 0x hexadecimal)")
      ->required()
      ->check(CLI::Range(-32768, 32767));
  command.add_option("FILE", o->file, "the file the session opens; - is standard input")
      ->required();
  command
      .add_option("--file-type", o->fileType,
                  "the host's four-character file type (default 0, unknown)")
      ->type_name("CODE")
      ->default_val("0");
  command.add_flag("--no-preview-open", o->noPreviewOpen, "the host's preview flag is clear");
  command
      .add_option("--withhold", o->withheld, "a host procedure the record leaves out (repeatable)")
      ->check(CLI::IsMember({"required1", "required2", "required3", "required4", "advance-state"}))
      ->allow_extra_args(false);
  command.add_flag("--json", o->json, "the outcome as one JSON object");
  return [o](PluginMainProc entry) { return Call(entry, *o); };
}

}  // namespace pxhost
