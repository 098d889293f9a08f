// pxhost thumbnail [-s SIZE] IN OUT: the desktop thumbnailer as a command.

#include <CLI/CLI.hpp>
#include <memory>

#include "desktop/thumbnailer.h"
#include "pxhost/atomic_output.h"
#include "pxhost/commands.h"
#include "pxhost/report.h"

namespace pxhost {
namespace {

struct ThumbnailArgs {
  std::string in, out;
  ThumbnailOptions options;
  int memoryMiB = 0;
};

// Writes IN's thumbnail as a PNG file at OUT, whatever OUT's extension, or
// leaves OUT as it was; the exit code says which.
int RunThumbnail(PluginMainProc entry, const std::string& in, const std::string& out,
                 const ThumbnailOptions& options) {
  Report report(false);  // a thumbnailer's caller reads the exit code and one line
  PluginInput input(in);
  RgbImage image;
  std::string error =
      input.IsOpen() ? MakeThumbnail(entry, input, in, options, &image) : input.Error();
  if (!error.empty()) {
    report.Refused(in, error);
    return report.ExitCode();
  }
  std::string png;
  error = EncodePng(image, &png);
  // Opened only now, so no temporary file waits beside OUT while a document
  // renders (nor is inherited by the renderer).
  AtomicOutput output;
  if (error.empty() && !(output.Open(out, {in}) && output.Write(png) && output.Commit()))
    error = output.Error();
  if (!error.empty()) report.OutputFailed(out, error);
  return report.ExitCode();
}

}  // namespace

CommandRun SetUpThumbnail(CLI::App& command) {
  auto a = std::make_shared<ThumbnailArgs>();
  command.add_option("IN", a->in, "the file; - is standard input")->required();
  command
      .add_option("OUT", a->out, "the PNG file to write, whatever its name; - is standard output")
      ->required();
  command.add_option("-s,--size", a->options.size, "longest side at most SIZE")
      ->check(CLI::Range(16, 4096))
      ->capture_default_str();
  command
      .add_option("--time-limit", a->options.limits.seconds,
                  "seconds a document may take to render")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
  command
      .add_option("--memory-limit", a->memoryMiB, "MiB a rendering child may use (default 1024)")
      ->check(CLI::Range(64, 65536));
  return [a](PluginMainProc entry) {
    ThumbnailOptions options = a->options;
    if (a->memoryMiB != 0) options.limits.memoryBytes = int64_t(a->memoryMiB) << 20;
    return RunThumbnail(entry, a->in, a->out, options);
  };
}

}  // namespace pxhost
