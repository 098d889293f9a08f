#include "pxhost/file_session.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "pxhost/atomic_output.h"
#include "pxhost/refusal_reason.h"
#include "sdk/selectors.h"

namespace pxhost {
namespace {

// Opens path for reading without waiting on a named pipe; -1 with errno set.
// A directory opens on Linux and fails at its first read: it is refused here.
int OpenInput(const std::string& path, std::string* reason) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    *reason = SystemReason(errno);
    return -1;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    *reason = S_ISDIR(st.st_mode) ? SystemReason(EISDIR) : "not a regular file";
    ::close(fd);
    return -1;
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

// Standard input as a seekable descriptor: itself when it is a regular file,
// else its bytes copied into an anonymous memory file (the plug-in moves
// about in what it reads).
int OpenStandardInput(std::string* reason) {
  struct stat st {};
  if (::fstat(STDIN_FILENO, &st) == 0 && S_ISREG(st.st_mode) &&
      ::lseek(STDIN_FILENO, 0, SEEK_CUR) >= 0)
    return ::dup(STDIN_FILENO);
  int fd = ::memfd_create("pxhost-stdin", MFD_CLOEXEC);
  if (fd < 0) {
    *reason = SystemReason(errno);
    return -1;
  }
  char buffer[64 * 1024];
  for (;;) {
    ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) break;
    if (n < 0 || ::write(fd, buffer, size_t(n)) != n) {
      *reason = SystemReason(n < 0 ? errno : ENOSPC);
      ::close(fd);
      return -1;
    }
  }
  ::lseek(fd, 0, SEEK_SET);
  return fd;
}

}  // namespace

std::string InputProblem(const std::string& path) {
  if (path == "-") return {};
  std::string reason;
  int fd = OpenInput(path, &reason);
  if (fd >= 0) ::close(fd);
  return reason;
}

FileSession::FileSession(PluginMainProc entry, const std::string& path,
                         const SessionOptions& options) {
  fd_ = path == "-" ? OpenStandardInput(&error_) : OpenInput(path, &error_);
  if (fd_ >= 0) session_ = std::make_unique<HostSession>(entry, fd_, options);
}

FileSession::~FileSession() {
  session_.reset();
  if (fd_ >= 0) ::close(fd_);
}

bool RequestSwatchPacket(FileSession& opened, std::string* packet, std::string* reason) {
  HostSession& session = *opened.session();
  int16_t result = session.Call(pixmere::kSelectorFilterFile);
  if (result == 0) result = session.Call(pixmere::kSelectorXMP);
  bool handedOver = false;
  for (const auto& [field, value] : session.WrittenFields())
    handedOver = handedOver || std::strcmp(field->name, "xmpHandle") == 0;
  if (result != 0 || !handedOver) {
    *reason = result != 0 ? SwatchRefusal(opened.Descriptor(), result)
                          : "the plug-in handed over no XMP packet";
    return false;
  }
  *packet = session.HandleBytes(session.Record().xmpHandle);
  return true;
}

}  // namespace pxhost
