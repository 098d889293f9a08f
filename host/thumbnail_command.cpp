#include "host/thumbnail_command.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace pxhost {
namespace {

// Written beside OUT and renamed over it, so OUT is either the old file or
// the whole new one, never a part.
std::string WriteAtomically(const std::string& out, const std::string& bytes) {
  std::filesystem::path target(out);
  std::string dir = target.has_parent_path() ? target.parent_path().string() : ".";
  std::string temp = dir + "/.pxhost-thumbnail-XXXXXX";
  int fd = mkostemp(temp.data(), O_CLOEXEC);
  if (fd < 0) return "cannot write in " + dir + ": " + std::strerror(errno);
  // mkostemp makes the file private; a thumbnail gets the permissions any
  // new file of the user gets.
  mode_t mask = umask(0);
  umask(mask);
  fchmod(fd, 0666 & ~mask);
  const char* p = bytes.data();
  size_t left = bytes.size();
  int err = 0;
  while (left > 0 && err == 0) {
    ssize_t n = write(fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      err = n < 0 ? errno : EIO;
      break;
    }
    p += n;
    left -= size_t(n);
  }
  if (close(fd) != 0 && err == 0) err = errno;
  if (err == 0 && rename(temp.c_str(), out.c_str()) != 0) err = errno;
  if (err != 0) {
    unlink(temp.c_str());
    return std::strerror(err);
  }
  return {};
}

bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa {
  }, sb{};
  return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

// Whether IN can be read as a file at all, in the words a person expects.
std::string CheckInput(const std::string& in) {
  int fd = open(in.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT ? "no such file" : std::strerror(errno);
  struct stat st {};
  int r = fstat(fd, &st);
  close(fd);
  if (r != 0) return std::strerror(errno);
  if (S_ISDIR(st.st_mode)) return "is a directory";
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
  if (SameFile(in, out)) return Fail(out, "is the input file", 2);
  RgbImage image;
  ThumbnailSource source;
  error = MakeThumbnail(entry, in, options, &image, &source);
  if (!error.empty()) return Fail(in, error, 1);
  std::string png;
  error = EncodePng(image, &png);
  if (!error.empty()) return Fail(out, error, 2);
  error = WriteAtomically(out, png);
  if (!error.empty()) return Fail(out, error, 2);
  return 0;
}

}  // namespace pxhost
