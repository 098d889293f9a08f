#include "pxhost/atomic_output.h"

#include <fcntl.h>
#include <stdio.h>  // renameat2
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace pxhost {
namespace {

// Writes are gathered to this size before they reach the descriptor.
constexpr size_t kBufferBytes = 64 * 1024;

}  // namespace

int WriteAll(int fd, const void* data, size_t size) {
  const char* p = static_cast<const char*>(data);
  while (size > 0) {
    ssize_t n = ::write(fd, p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return n < 0 ? errno : EIO;
    p += n;
    size -= size_t(n);
  }
  return 0;
}

std::string SystemReason(int err) {
  switch (err) {
    case ENOENT:
      return "no such file";
    case EISDIR:
      return "is a directory";
    case EACCES:
    case EPERM:
      return "permission denied";
    case ENOSPC:
      return "no space left on device";
    case ENAMETOOLONG:
      return "file name too long";
    case ENOTDIR:
      return "a component of the path is not a directory";
    case EROFS:
      return "read-only file system";
    case EDQUOT:
      return "disk quota exceeded";
    case ELOOP:
      return "too many levels of symbolic links";
    default: {
      std::string s = std::strerror(err);
      if (!s.empty()) s[0] = char(std::tolower(static_cast<unsigned char>(s[0])));
      return s;
    }
  }
}

AtomicOutput::~AtomicOutput() {
  Abandon();
}

bool AtomicOutput::Fail(const std::string& reason) {
  if (error_.empty()) error_ = reason;
  return false;
}

bool AtomicOutput::Open(const std::string& target, const std::vector<std::string>& inputs) {
  target_ = target;
  if (target == "-") {
    fd_ = STDOUT_FILENO;
    return true;
  }
  struct stat out {};
  bool exists = ::stat(target.c_str(), &out) == 0;
  if (!exists && errno != ENOENT) return Fail(SystemReason(errno));
  if (exists && S_ISDIR(out.st_mode)) return Fail(SystemReason(EISDIR));
  for (const std::string& input : inputs) {
    struct stat in {};
    if (input == target || (exists && ::stat(input.c_str(), &in) == 0 && in.st_dev == out.st_dev &&
                            in.st_ino == out.st_ino))
      return Fail("is also an input; refusing to write over it");
  }
  if (exists && (!S_ISREG(out.st_mode) || out.st_size == 0)) {
    fd_ = ::open(target.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd_ < 0) return Fail(SystemReason(errno));
    ownsFd_ = true;
    emptyFile_ = S_ISREG(out.st_mode);
    return true;
  }
  std::filesystem::path path(target);
  std::string dir = path.has_parent_path() ? path.parent_path().string() : ".";
  // The temporary name is the target's with a dot before it and ".XXXXXX"
  // after: the target's part is cut so the whole stays within the folder's
  // name limit (255 bytes on Linux's file systems), which a legal target
  // name may already reach.
  std::string name = path.filename().string();
  long nameMax = ::pathconf(dir.c_str(), _PC_NAME_MAX);
  size_t limit = nameMax > 0 ? size_t(nameMax) : size_t(NAME_MAX);
  constexpr size_t kAdded = sizeof(".") - 1 + sizeof(".XXXXXX") - 1;
  if (name.size() + kAdded > limit && limit > kAdded) name.resize(limit - kAdded);
  std::string temp = dir + "/." + name + ".XXXXXX";
  fd_ = ::mkstemp(temp.data());
  // The target itself may be missing; a missing folder is the output's fault
  // and is told so, not as a missing input.
  if (fd_ < 0 && errno == ENOENT) return Fail("the output folder " + dir + " does not exist");
  if (fd_ < 0) return Fail(SystemReason(errno));
  temp_ = temp;
  ownsFd_ = true;
  // mkstemp makes the file private; give it the mode a new file gets (or the
  // mode of the file it replaces).
  mode_t mode = exists ? (out.st_mode & 07777) : 0666;
  if (!exists) {
    mode_t mask = ::umask(0);
    ::umask(mask);
    mode &= ~mask;
  }
  if (::fchmod(fd_, mode) != 0) return Fail(SystemReason(errno));
  return true;
}

bool AtomicOutput::Write(std::string_view bytes) {
  if (!error_.empty()) return false;
  if (fd_ < 0) return Fail("not open");
  if (buffer_.size() + bytes.size() > kBufferBytes && !Flush()) return false;
  if (bytes.size() >= kBufferBytes) {
    int err = WriteAll(fd_, bytes.data(), bytes.size());
    return err == 0 || Fail(SystemReason(err));
  }
  buffer_.append(bytes);
  return true;
}

bool AtomicOutput::Flush() {
  if (buffer_.empty()) return true;
  int err = WriteAll(fd_, buffer_.data(), buffer_.size());
  buffer_.clear();
  return err == 0 || Fail(SystemReason(err));
}

bool AtomicOutput::Close() {
  if (closed_) return error_.empty();
  if (fd_ < 0) return Fail("not open");
  bool ok = error_.empty() && Flush();
  if (ok && ownsFd_) {
    int closed = ::close(fd_);
    ownsFd_ = false;
    if (closed != 0) {
      ok = Fail(SystemReason(errno));
      // The descriptor is gone; an empty file written in place is emptied by name.
      if (emptyFile_ && ::truncate(target_.c_str(), 0) != 0) error_ = SystemReason(errno);
      emptyFile_ = false;
      fd_ = -1;
    }
  }
  if (!ok) {
    Abandon();
    return false;
  }
  filledEmpty_ = emptyFile_;
  emptyFile_ = false;
  fd_ = -1;
  closed_ = true;
  return true;
}

bool AtomicOutput::Commit() {
  if (!Close()) return false;
  if (!temp_.empty() && ::rename(temp_.c_str(), target_.c_str()) != 0) {
    Fail(SystemReason(errno));
    Abandon();
    return false;
  }
  closed_ = false;
  temp_.clear();
  return true;
}

bool AtomicOutput::Place() {
  if (!Close()) return false;
  if (temp_.empty()) {
    placed_ = filledEmpty_ ? Placed::kFilledInPlace : Placed::kForGood;
    return true;
  }
  const char* from = temp_.c_str();
  const char* to = target_.c_str();
  if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) {
    placed_ = Placed::kNew;
    return true;
  }
  // The file replaced keeps the temporary name until the whole set is in place.
  if (errno == EEXIST && ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_EXCHANGE) == 0) {
    placed_ = Placed::kSwapped;
    return true;
  }
  // A file system that cannot exchange names gets the plain rename, which
  // cannot be taken back.
  if (errno == EINVAL && ::rename(from, to) == 0) {
    placed_ = Placed::kForGood;
    temp_.clear();
    return true;
  }
  Fail(SystemReason(errno));
  Abandon();
  return false;
}

void AtomicOutput::Unplace() {
  switch (placed_) {
    case Placed::kNew:
      ::unlink(target_.c_str());
      temp_.clear();
      break;
    case Placed::kSwapped:
      // Should the swap back fail, the replaced file stays at the temporary
      // name rather than be lost.
      if (::renameat2(AT_FDCWD, temp_.c_str(), AT_FDCWD, target_.c_str(), RENAME_EXCHANGE) != 0)
        temp_.clear();
      break;
    case Placed::kFilledInPlace:
      if (::truncate(target_.c_str(), 0) != 0) Fail(SystemReason(errno));
      break;
    default:
      break;
  }
  placed_ = Placed::kNot;
  Abandon();
}

AtomicOutput* AtomicOutput::CommitAll(const std::vector<std::unique_ptr<AtomicOutput>>& outputs) {
  // Every output is written out and closed before any is renamed: a disk
  // that fills up changes no target.
  AtomicOutput* failed = nullptr;
  for (const auto& out : outputs)
    if (failed == nullptr && !out->Close()) failed = out.get();
  size_t placed = 0;
  while (failed == nullptr && placed < outputs.size())
    if (!outputs[placed++]->Place()) failed = outputs[placed - 1].get();
  if (failed != nullptr) {
    for (size_t n = placed; n-- > 0;) outputs[n]->Unplace();
    for (const auto& out : outputs) out->Abandon();
    return failed;
  }
  // In place, each replaced file (now at the temporary name) is let go.
  for (const auto& out : outputs) {
    if (out->placed_ == Placed::kSwapped) ::unlink(out->temp_.c_str());
    out->temp_.clear();
    out->placed_ = Placed::kNot;
    out->closed_ = false;
  }
  return nullptr;
}

void AtomicOutput::Abandon() {
  // Whatever reached an empty file written in place is taken back out.
  if (emptyFile_ && fd_ >= 0 && ::ftruncate(fd_, 0) != 0) error_ = SystemReason(errno);
  emptyFile_ = false;
  if (ownsFd_ && fd_ >= 0) ::close(fd_);
  ownsFd_ = false;
  fd_ = -1;
  closed_ = false;
  filledEmpty_ = false;
  buffer_.clear();
  if (!temp_.empty()) ::unlink(temp_.c_str());
  temp_.clear();
}

}  // namespace pxhost
