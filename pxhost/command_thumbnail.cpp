// pxhost thumbnail [-s SIZE] IN OUT: the desktop thumbnailer as a command.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "desktop/thumbnailer.h"
#include "pxhost/atomic_output.h"
#include "pxhost/commands.h"
#include "pxhost/report.h"

namespace pxhost {
namespace {

// Whether IN can be read as a file at all, in the words a person expects.
std::string CheckInput(const std::string& in) {
  // Without O_NONBLOCK a named pipe would hold the thumbnailer until a writer came.
  int fd = open(in.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return SystemReason(errno);
  struct stat st {};
  int r = fstat(fd, &st);
  close(fd);
  if (r != 0) return SystemReason(errno);
  if (S_ISDIR(st.st_mode)) return SystemReason(EISDIR);
  if (!S_ISREG(st.st_mode)) return "not a regular file";
  return {};
}

int Fail(const std::string& file, const std::string& reason, int code) {
  ErrorLine(file, reason);
  return code;
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
  // The thumbnailer hands a document's name to the renderer it starts:
  // standard input has none.
  if (in == "-")
    return Fail(in, "standard input is not read by this command: name the file", kExitRefused);
  std::string error = CheckInput(in);
  if (!error.empty()) return Fail(in, error, kExitRefused);
  RgbImage image;
  error = MakeThumbnail(entry, in, options, &image);
  if (!error.empty()) return Fail(in, error, kExitRefused);
  std::string png;
  error = EncodePng(image, &png);
  if (!error.empty()) return Fail(out, error, kExitUsage);
  // Opened only now, so no temporary file waits beside OUT while a document
  // renders (nor is inherited by the renderer).
  AtomicOutput output;
  if (!output.Open(out, {in}) || !output.Write(png) || !output.Commit())
    return Fail(out, output.Error(), kExitUsage);
  return 0;
}

}  // namespace

CommandRun SetUpThumbnail(CLI::App& command) {
  auto a = std::make_shared<ThumbnailArgs>();
  command.add_option("IN", a->in, "the file, by name (standard input is not read)")->required();
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
