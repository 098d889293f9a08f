// pxhost identify FILE...: is each file a swatch exchange file? Asked of the
// plug-in's filter selector with the host's swatch file type.
#include <CLI/CLI.hpp>
#include <memory>

#include "pxhost/batch.h"
#include "pxhost/commands.h"
#include "pxhost/file_session.h"
#include "pxhost/input_files.h"
#include "sdk/host_types.h"
#include "sdk/selectors.h"

namespace pxhost {
namespace {

int Identify(PluginMainProc entry, const InputOptions& o) {
  Report report(o.json);
  auto identify = [entry](size_t, const std::string& file, Report& report) {
    SessionOptions options;
    options.fileType = pixmere::FourCC("SXF ");
    FileSession opened(entry, file, options);
    if (opened.session() == nullptr) {
      report.Refused(file, opened.Error());
      return;
    }
    int16_t result = opened.session()->Call(pixmere::kSelectorFilterFile);
    bool swatch = result == 0;
    report.Done(file, {{"swatchExchangeFile", swatch}, {"code", result}},
                file + ": " + (swatch ? "swatch exchange file" : "vector file"));
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
