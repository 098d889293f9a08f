// pxhost method FILE...: how the host would preview each file, asked of the
// plug-in's rendering-method suite.
#include <CLI/CLI.hpp>
#include <memory>

#include "pxhost/batch.h"
#include "pxhost/commands.h"
#include "pxhost/file_session.h"
#include "pxhost/input_files.h"
#include "pxhost/report.h"
#include "sdk/host_types.h"
#include "sdk/selectors.h"
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
  std::vector<std::string> files = ExpandInputs(o, report);
  // The plug-in publishes its suite on its first call, whatever the file:
  // make that call on no file at all.
  {
    SessionOptions options;
    options.fileType = pixmere::FourCC("TEXT");
    HostSession first(entry, -1, options);
    first.Call(pixmere::kSelectorAbout);
  }
  const void* procs = nullptr;
  auto& registry = SuiteRegistry::Get();
  if (registry.Acquire(pixmere::kQLRenderingMethodSuite, pixmere::kQLRenderingMethodSuiteVersion,
                       &procs) != 0 ||
      procs == nullptr) {
    std::fprintf(stderr, "pxhost: the plug-in did not publish \"%s\"\n",
                 pixmere::kQLRenderingMethodSuite);
    return kExitRefused;
  }
  auto* suite = static_cast<const pixmere::QLRenderingMethodSuite*>(procs);
  auto ask = [suite](size_t, const std::string& file, Report& report) {
    int32_t method = 0;
    int32_t err = suite->GetQLRenderingMethodForFile(file.c_str(), &method);
    if (err == pixmere::kQLErrKXEC) {
      std::string why = InputProblem(file);
      report.Refused(file, (why.empty() ? "cannot be read" : why) + " (KXEC)");
    } else if (err != 0) {
      report.Refused(file, "the rendering-method suite could not examine it (" +
                               FourCCText(uint32_t(err)) + ")");
    } else {
      report.Done(file, {{"method", MethodName(method)}, {"code", method}},
                  file + ": " + MethodName(method));
    }
  };
  RunBatch(files, Jobs(o), report, ask);
  registry.Release(pixmere::kQLRenderingMethodSuite, pixmere::kQLRenderingMethodSuiteVersion);
  return report.ExitCode();
}

}  // namespace

CommandRun SetUpMethod(CLI::App& command) {
  auto o = std::make_shared<InputOptions>();
  // The rendering-method suite is handed a file's name, never a descriptor:
  // standard input has none it could open.
  AddInputOptions(command, o.get(), false);
  return [o](PluginMainProc entry) { return Method(entry, *o); };
}

}  // namespace pxhost
