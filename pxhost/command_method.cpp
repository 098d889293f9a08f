// pxhost method FILE...: how the host would preview each file, asked of the
// plug-in's rendering-method suite.
#include <CLI/CLI.hpp>
#include <memory>

#include "pxhost/batch.h"
#include "pxhost/commands.h"
#include "pxhost/input_files.h"
#include "pxhost/plugin_requests.h"
#include "pxhost/report.h"
#include "sdk/suites.h"

namespace pxhost {
namespace {

const char* MethodName(int32_t method) {
  switch (method) {
    case pixmere::kQLRenderingMethodPDF:
      return "pdf";
    case pixmere::kQLRenderingMethodXMPThumbnail:
      return "xmp-thumbnail";
    default:
      return "embedded-thumbnail";
  }
}

int Method(PluginMainProc entry, const InputOptions& o) {
  Report report(o.json);
  auto ask = [entry](size_t, const std::string& file, Report& report) {
    PluginInput input(file);
    int32_t method = 0;
    std::string why;
    if (!input.IsOpen())
      report.Refused(file, input.Error());
    else if (!AskRenderingMethod(entry, input, &method, &why))
      report.Refused(file, why);
    else
      report.Done(file, {{"method", MethodName(method)}, {"code", method}},
                  file + ": " + MethodName(method));
  };
  RunBatch(ExpandInputs(o, report), Jobs(o), report, ask);
  return report.ExitCode();
}

}  // namespace

CommandRun SetUpMethod(CLI::App& command) {
  auto o = std::make_shared<InputOptions>();
  AddInputOptions(command, o.get());
  return [o](PluginMainProc entry) { return Method(entry, *o); };
}

}  // namespace pxhost
