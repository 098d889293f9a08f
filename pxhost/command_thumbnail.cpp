// pxhost thumbnail [-s SIZE] [--no-render] IN OUT: the desktop thumbnailer as a
// command.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <memory>

#include "desktop/confinement.h"
#include "desktop/thumbnailer.h"
#include "pxhost/atomic_output.h"
#include "pxhost/commands.h"
#include "pxhost/report.h"

namespace pxhost {
namespace {

// The folder the thumbnailer writes in: OUT's, where the result's temporary
// file and the renderer child's private folder go. OUT "-" (standard output)
// or a device or pipe is written in place and has no folder of its own to
// lend (a child's folder in /dev would not do): the temporary folder then
// takes the child's folder alone.
std::string WritableFolder(const std::string& out) {
  struct stat st {};
  if (out == "-" || (stat(out.c_str(), &st) == 0 && !S_ISREG(st.st_mode))) {
    const char* tmp = std::getenv("TMPDIR");
    return tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
  }
  size_t slash = out.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : out.substr(0, slash);
}

// The thumbnailer confines itself once it has opened its input and knows
// OUT: the plug-in, the XMP toolkit and the image libraries parse the
// document's bytes too. It keeps reading anywhere (the plug-in, its lazily
// loaded parts and the renderer module), forking (the renderer child) and
// writing only in its folder (and OUT itself, which may be a device written
// in place). Where the kernel offers less, it goes on as it is: the renderer
// child refuses to run unconfined on its own.
void ConfineThumbnailer(const std::string& out, const std::string& folder) {
  PathRules rules;
  rules.readsAnywhere = true;
  rules.write = {folder, "/dev/null"};
  if (out != "-") rules.write.push_back(out);
  // Each step holds on its own; none depends on another having held.
  ForbidNewPrivileges();
  RestrictPaths(rules);
  RefuseCalls(CallSet::kThumbnailer);
}

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
  ThumbnailOptions confined = options;
  confined.limits.scratchFolder = WritableFolder(out);
  if (input.IsOpen()) ConfineThumbnailer(out, confined.limits.scratchFolder);
  RgbImage image;
  std::vector<std::string> warnings;
  std::string error =
      input.IsOpen() ? MakeThumbnail(entry, input, in, confined, &image, &warnings) : input.Error();
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
  if (!error.empty()) {
    report.OutputFailed(out, error);
    return report.ExitCode();
  }
  // Told once the thumbnail is written: a run that cannot write it says only that.
  for (const std::string& warning : warnings) ErrorLine(in, warning);
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
  command.add_flag("--no-render", a->options.noRender,
                   "never run an interpreter: only the pictures the file carries");
  command
      .add_option("--time-limit", a->options.limits.seconds,
                  "seconds a document may take to render")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
  command
      .add_option("--memory-limit", a->memoryMiB, "MiB a rendering child may use (default 1024)")
      ->check(CLI::Range(64, 65536));
  command.add_flag("--render-unconfined", a->options.limits.unconfined,
                   "render documents even where the kernel cannot confine the renderer");
  return [a](PluginMainProc entry) {
    ThumbnailOptions options = a->options;
    if (a->memoryMiB != 0) options.limits.memoryBytes = int64_t(a->memoryMiB) << 20;
    return RunThumbnail(entry, a->in, a->out, options);
  };
}

}  // namespace pxhost
