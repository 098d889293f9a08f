// Classic file calls over a POSIX descriptor.
//
// The readers above this layer walk a file in small steps (the thumbnail
// scanner asks for 156 to 256 bytes at a time), so reads are served from a
// 64 KiB read-ahead window, as the classic file system's own cache did,
// instead of costing a system call each. The window belongs to one descriptor
// at a time (the plug-in reads one file per request); every SetFPos drops it,
// and every stream rewinds through SetFPos when it is built, so a descriptor
// number the host reuses for another file never sees old bytes. The kernel's
// file offset always equals the end of the window, and is put back on the
// mark whenever the window moves to another descriptor.
#include "swatchio/classic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace classic {
namespace {

constexpr int32_t kWindowBytes = 64 * 1024;

struct ReadAhead {
  int fd = -1;
  int64_t start = 0;   // file offset of window[0]
  int32_t filled = 0;  // valid bytes in the window; the kernel offset is start + filled
  int32_t used = 0;    // bytes of the window already consumed; the mark is start + used
  char window[kWindowBytes];
};

ReadAhead gAhead;

// Makes the window belong to fd, giving the previous descriptor its mark back.
bool Attach(int fd) {
  if (gAhead.fd == fd) return true;
  if (gAhead.fd >= 0 && gAhead.filled != gAhead.used)
    lseek(gAhead.fd, gAhead.start + gAhead.used, SEEK_SET);
  off_t mark = lseek(fd, 0, SEEK_CUR);
  if (mark < 0) {
    gAhead.fd = -1;
    return false;
  }
  gAhead.fd = fd;
  gAhead.start = mark;
  gAhead.filled = gAhead.used = 0;
  return true;
}

// Empties the window and puts the kernel offset on the mark. Called only
// after Attach succeeded, so the window has a descriptor.
void Drop() {
  int64_t mark = gAhead.start + gAhead.used;
  if (gAhead.filled != gAhead.used) lseek(gAhead.fd, mark, SEEK_SET);
  gAhead.start = mark;
  gAhead.filled = gAhead.used = 0;
}

}  // namespace

OSErr SetFPos(int16_t refNum, int16_t posMode, int32_t posOff) {
  struct stat st;
  if (refNum < 0 || fstat(refNum, &st) != 0 || !Attach(refNum)) return rfNumErr;
  Drop();
  int64_t base = 0;
  switch (posMode) {
    case fsFromStart:
      base = 0;
      break;
    case fsFromLEOF:
      base = st.st_size;
      break;
    case fsFromMark:
      base = gAhead.start;
      break;
    default:
      return paramErr;
  }
  int64_t target = base + posOff;
  if (target < 0) return posErr;
  OSErr err = noErr;
  if (target > st.st_size) {
    target = st.st_size;
    err = eofErr;
  }
  if (lseek(refNum, target, SEEK_SET) < 0) return ioErr;
  gAhead.start = target;
  return err;
}

OSErr FSRead(int16_t refNum, int32_t* count, void* buffer) {
  int32_t wanted = *count;
  *count = 0;
  if (wanted < 0) return paramErr;
  if (refNum < 0 || !Attach(refNum)) return rfNumErr;
  char* out = static_cast<char*>(buffer);
  int32_t got = 0;
  while (got < wanted) {
    if (gAhead.used == gAhead.filled) {
      // Large requests bypass the window; small ones refill it.
      if (wanted - got >= kWindowBytes) {
        Drop();
        ssize_t n = read(refNum, out + got, size_t(wanted - got));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
          *count = got;
          return errno == EBADF ? rfNumErr : ioErr;
        }
        if (n == 0) break;
        got += int32_t(n);
        gAhead.start += n;
        continue;
      }
      gAhead.start += gAhead.filled;
      gAhead.filled = gAhead.used = 0;
      ssize_t n = read(refNum, gAhead.window, kWindowBytes);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        *count = got;
        return errno == EBADF ? rfNumErr : ioErr;
      }
      if (n == 0) break;
      gAhead.filled = int32_t(n);
    }
    int32_t take = std::min(wanted - got, gAhead.filled - gAhead.used);
    std::memcpy(out + got, gAhead.window + gAhead.used, size_t(take));
    gAhead.used += take;
    got += take;
  }
  *count = got;
  return got < wanted ? eofErr : noErr;
}

OSErr FSWrite(int16_t refNum, int32_t* count, const void* buffer) {
  int32_t wanted = *count;
  *count = 0;
  if (wanted < 0) return paramErr;
  if (refNum < 0 || !Attach(refNum)) return rfNumErr;
  Drop();
  int flags = fcntl(refNum, F_GETFL);
  if (flags < 0) return rfNumErr;
  if ((flags & O_ACCMODE) == O_RDONLY) return wrPermErr;
  const char* in = static_cast<const char*>(buffer);
  int32_t put = 0;
  while (put < wanted) {
    ssize_t n = write(refNum, in + put, size_t(wanted - put));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    put += int32_t(n);
  }
  gAhead.start += put;
  *count = put;
  return put < wanted ? ioErr : noErr;
}

}  // namespace classic
