// pxhost identify FILE...: is each file a swatch exchange file? Asked of the
// plug-in's filter selector with the host's swatch file type.
#include <CLI/CLI.hpp>
#include <memory>

#include "pxhost/batch.h"
#include "pxhost/commands.h"
#include "pxhost/input_files.h"
#include "pxhost/plugin_requests.h"

namespace pxhost {
namespace {

int Identify(PluginMainProc entry, const InputOptions& o) {
  Report report(o.json);
  auto identify = [entry](size_t, const std::string& file, Report& report) {
    PluginInput input(file);
    if (!input.IsOpen()) {
      report.Refused(file, input.Error());
      return;
    }
    // Not a refusal: "no" is an answer. The reader's own words say why not.
    std::string why;
    int16_t result = FilterSwatchFile(entry, input, &why);
    nlohmann::json answer{{"swatchExchangeFile", result == 0}, {"code", result}};
    if (result != 0) answer["reason"] = why;
    report.Done(file, answer, file + ": " + (result == 0 ? "swatch exchange file" : why));
  };
  RunBatch(ExpandInputs(o, report), Jobs(o), report, identify);
  return report.ExitCode();
}

}  // namespace

CommandRun SetUpIdentify(CLI::App& command) {
  auto o = std::make_shared<InputOptions>();
  AddInputOptions(command, o.get());
  return [o](PluginMainProc entry) { return Identify(entry, *o); };
}

}  // namespace pxhost
