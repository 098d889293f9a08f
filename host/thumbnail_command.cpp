#include "host/thumbnail_command.h"

#include "host/atomic_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

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
  std::fprintf(stderr, "pxhost: %s: %s\n", file.c_str(), reason.c_str());
  return code;
}

}  // namespace

int RunThumbnail(PluginMainProc entry, const std::string& in, const std::string& out,
                 const ThumbnailOptions& options) {
  std::string error = CheckInput(in);
  if (!error.empty()) return Fail(in, error, 1);
  RgbImage image;
  error = MakeThumbnail(entry, in, options, &image);
  if (!error.empty()) return Fail(in, error, 1);
  std::string png;
  error = EncodePng(image, &png);
  if (!error.empty()) return Fail(out, error, 2);
  // Opened only now, so no temporary file waits beside OUT while a document
  // renders (nor is inherited by the renderer).
  AtomicOutput output;
  if (!output.Open(out, {in}) || !output.Write(png) || !output.Commit())
    return Fail(out, output.Error(), 2);
  return 0;
}

}  // namespace pxhost
