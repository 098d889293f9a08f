#include "desktop/eps_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "pxhost/atomic_output.h"

namespace pxhost {
namespace {

// A TIFF section beyond this is refused unread: the largest preview the
// pixel cap lets through, uncompressed at 4 bytes a pixel, with room for its
// tags.
constexpr uint64_t kMaxTiffSection = uint64_t(kMaxPreviewPixels) * 4 + (1 << 20);

// The EPSI reader sees the first 64 KiB first; only a preview running past
// them is read further, up to what the pixel cap allows at 8 bits (two hex
// digits and line breaks a pixel, rounded up).
constexpr size_t kFirstRead = 64 << 10;
constexpr size_t kMaxEpsiRead = size_t(kMaxPreviewPixels) * 3;

// Exactly n bytes at offset, or the reason.
std::string ReadAt(int fd, uint64_t offset, size_t n, std::string* out) {
  out->resize(n);
  size_t got = 0;
  while (got < n) {
    ssize_t r = pread(fd, out->data() + got, n - got, off_t(offset + got));
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) return SystemReason(errno);
    if (r == 0) return "the file ended early (changed while read?)";
    got += size_t(r);
  }
  return {};
}

uint64_t FileSize(int fd) {
  struct stat st {};
  return fstat(fd, &st) == 0 && st.st_size > 0 ? uint64_t(st.st_size) : 0;
}

}  // namespace

DocumentStart SniffDocument(int fd) {
  char head[5] = {};
  ssize_t n = pread(fd, head, sizeof head, 0);
  if (n >= 4 && HasDosEpsSignature({reinterpret_cast<const uint8_t*>(head), size_t(n)}))
    return DocumentStart::kDosEps;
  if (n >= 4 && std::memcmp(head, "%!PS", 4) == 0) return DocumentStart::kPostScript;
  if (n >= 5 && std::memcmp(head, "%PDF-", 5) == 0) return DocumentStart::kPdf;
  return DocumentStart::kUnknown;
}

std::string ReadDosEpsFile(int fd, DosEpsHeader* header) {
  uint64_t size = FileSize(fd);
  std::string head;
  if (size < kDosEpsHeaderSize) return "DOS EPS header cut short";
  std::string error = ReadAt(fd, 0, kDosEpsHeaderSize, &head);
  if (!error.empty()) return error;
  return ReadDosEpsHeader({reinterpret_cast<const uint8_t*>(head.data()), head.size()}, size,
                          header);
}

std::string ReadTiffSection(int fd, const DosEpsHeader& header, RgbImage* image, bool* colour) {
  if (header.tiff.length > kMaxTiffSection) return "TIFF preview section is too large";
  std::string tiff;
  std::string error = ReadAt(fd, header.tiff.offset, header.tiff.length, &tiff);
  if (!error.empty()) return error;
  return DecodeTiffPreview({reinterpret_cast<const uint8_t*>(tiff.data()), tiff.size()}, image,
                           colour);
}

std::string ReadEpsiFile(int fd, EpsSection section, RgbImage* image, bool* found) {
  uint64_t length = section.length != 0 ? section.length : FileSize(fd);
  std::string text;
  for (size_t limit = kFirstRead;; limit *= 4) {
    size_t n = size_t(std::min<uint64_t>(length, limit));
    std::string error = ReadAt(fd, section.offset, n, &text);
    if (!error.empty()) return error;
    error = ReadEpsiPreview(text, image, found);
    // A preview cut short by this read, not by the file, is read again whole.
    if (error.empty() || !*found || n == length || limit >= kMaxEpsiRead) return error;
  }
}

std::string CopySection(int fd, EpsSection section, const std::string& folder, std::string* path) {
  std::string name = folder + "/postscript-XXXXXX";
  int out = mkostemp(name.data(), O_CLOEXEC);
  if (out < 0) return "cannot write the PostScript for the renderer: " + SystemReason(errno);
  std::vector<char> chunk(1 << 16);
  uint64_t done = 0;
  std::string error;
  while (done < section.length && error.empty()) {
    size_t want = size_t(std::min<uint64_t>(chunk.size(), section.length - done));
    ssize_t r = pread(fd, chunk.data(), want, off_t(section.offset + done));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0)
      error = r < 0 ? SystemReason(errno) : "the file ended early (changed while read?)";
    else if (int e = WriteAll(out, chunk.data(), size_t(r)); e != 0)
      error = "cannot write the PostScript for the renderer: " + SystemReason(e);
    else
      done += uint64_t(r);
  }
  if (close(out) != 0 && error.empty()) error = SystemReason(errno);
  if (!error.empty()) {
    unlink(name.c_str());
    return error;
  }
  *path = name;
  return {};
}

}  // namespace pxhost
