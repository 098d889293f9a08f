#include "pxhost/refusal_reason.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "swatchbook/vantor_swatch_book.h"
#include "swatchio/data_filter_stream.h"
#include "swatchio/sxf_reader.h"

namespace pxhost {
namespace {

// The reader holds the whole file in one heap block, which may not grow past
// 256 MiB (the heap's own limit): a larger file is refused before parsing.
constexpr int64_t kSwatchFileLimit = int64_t(256) << 20;

std::string WithResult(const std::string& reason, int16_t result) {
  return reason + " (result " + std::to_string(result) + ")";
}

}  // namespace

std::string SwatchRefusal(int fd, int16_t result) {
  struct stat st {};
  if (::fstat(fd, &st) == 0 && st.st_size > kSwatchFileLimit)
    return WithResult("swatch file over the 256 MiB limit", result);
  VantorSwatchBook book;
  DataFilterStream stream(fd);
  SXFReader reader;
  std::string reason;
  switch (reader.Parse(book, stream, 0)) {
    case kSXFBadSignature:
      reason = "not a swatch exchange file (bad signature)";
      break;
    case kSXFBadVersion:
      reason = "not a swatch exchange file (unknown major version)";
      break;
    case kSXFTruncated:
      reason = reader.FailedBlock() == 0
                   ? "damaged swatch file: the header is cut short"
                   : "damaged swatch file: block " + std::to_string(reader.FailedBlock()) +
                         " runs past the end";
      break;
    case kSXFTooManyBlocks:
      reason = "damaged swatch file: more blocks than a swatch file may hold";
      break;
    case kSXFUnreadable:
      reason = "cannot be read";
      break;
    default:
      reason = "refused by the plug-in";
  }
  ::lseek(fd, 0, SEEK_SET);
  return WithResult(reason, result);
}

std::string PreviewRefusal(int fd, int16_t result) {
  // The marker's presence alone: whatever follows it is the plug-in's to judge.
  static constexpr std::string_view kMarker = "%QL7_Thumbnail:";
  constexpr size_t kCarry = kMarker.size() - 1;  // a marker across two reads is found
  // Reads land 64 bytes into the buffer, the carried bytes just before them:
  // the kernel copies into an aligned destination several times faster.
  constexpr size_t kReadAt = 64;
  std::vector<char> buffer(kReadAt + (512u << 10));
  bool marked = false;
  size_t carried = 0;
  for (off_t at = 0; !marked;) {
    ssize_t n = ::pread(fd, buffer.data() + kReadAt, buffer.size() - kReadAt, at);
    if (n <= 0) break;
    at += n;
    const char* from = buffer.data() + kReadAt - carried;
    size_t have = carried + size_t(n);
    marked = memmem(from, have, kMarker.data(), kMarker.size()) != nullptr;
    carried = std::min(have, kCarry);
    std::memmove(buffer.data() + kReadAt - carried, from + have - carried, carried);
  }
  return WithResult(marked ? "embedded preview damaged" : "no embedded preview", result);
}

}  // namespace pxhost
