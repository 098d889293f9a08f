#include "desktop/eps_previews.h"

#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

namespace pxhost {
namespace {

constexpr uint8_t kDosEpsSignature[4] = {0xC5, 0xD0, 0xD3, 0xC6};

uint32_t Le32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// --- TIFF from memory ---------------------------------------------------

struct MemoryTiff {
  std::span<const uint8_t> bytes;
  uint64_t pos = 0;
  std::string error;  // libtiff's first complaint, for the reason
};

tmsize_t ReadProc(thandle_t h, void* buf, tmsize_t size) {
  auto* m = static_cast<MemoryTiff*>(h);
  if (size < 0) return -1;
  uint64_t left = m->pos < m->bytes.size() ? m->bytes.size() - m->pos : 0;
  uint64_t n = std::min<uint64_t>(uint64_t(size), left);
  if (n > 0) std::memcpy(buf, m->bytes.data() + m->pos, n);
  m->pos += n;
  return tmsize_t(n);
}

tmsize_t WriteProc(thandle_t, void*, tmsize_t) {
  return -1;
}  // read-only

toff_t SeekProc(thandle_t h, toff_t off, int whence) {
  auto* m = static_cast<MemoryTiff*>(h);
  uint64_t base = whence == SEEK_CUR ? m->pos : whence == SEEK_END ? m->bytes.size() : 0;
  // Offsets come from the file: a seek that would wrap is an error, and one
  // past the end leaves reads empty.
  if (off > UINT64_MAX - base) return toff_t(-1);
  m->pos = base + off;
  return m->pos;
}

int CloseProc(thandle_t) {
  return 0;
}
toff_t SizeProc(thandle_t h) {
  return static_cast<MemoryTiff*>(h)->bytes.size();
}
int MapProc(thandle_t, void**, toff_t*) {
  return 0;
}  // no mapping: reads go through ReadProc
void UnmapProc(thandle_t, void*, toff_t) {}

// libtiff's errors and warnings: kept off standard error (the thumbnailer's
// one line is the reason), the first error kept as that reason.
int ErrorProc(TIFF*, void* user, const char*, const char* fmt, va_list ap) {
  auto* m = static_cast<MemoryTiff*>(user);
  if (m->error.empty()) {
    char text[160];
    std::vsnprintf(text, sizeof text, fmt, ap);
    m->error = text;
  }
  return 1;
}
int WarningProc(TIFF*, void*, const char*, const char*, va_list) {
  return 1;
}

struct TiffCloser {
  void operator()(TIFF* t) const { TIFFClose(t); }
};
struct OptionsFree {
  void operator()(TIFFOpenOptions* o) const { TIFFOpenOptionsFree(o); }
};

// --- EPSI ---------------------------------------------------------------

// The next line of text (without its end: LF, CR LF or a lone CR, as the
// systems writing these files end lines); false at the end.
bool NextLine(std::string_view* rest, std::string_view* line) {
  if (rest->empty()) return false;
  size_t end = rest->find_first_of("\r\n");
  if (end == std::string_view::npos) end = rest->size();
  *line = rest->substr(0, end);
  size_t skip = end;
  if (skip < rest->size() && (*rest)[skip] == '\r') ++skip;
  if (skip < rest->size() && (*rest)[skip] == '\n') ++skip;
  rest->remove_prefix(skip);
  return true;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Four non-negative decimal numbers, separated by blanks; false otherwise.
bool ParseFour(std::string_view text, std::array<int64_t, 4>* out) {
  size_t k = 0;
  for (int64_t& value : *out) {
    while (k < text.size() && (text[k] == ' ' || text[k] == '\t')) ++k;
    size_t start = k;
    value = 0;
    // 10 digits bound every value below 2^40: no overflow however long.
    while (k < text.size() && text[k] >= '0' && text[k] <= '9' && k - start < 10)
      value = value * 10 + (text[k++] - '0');
    if (k == start || (k < text.size() && text[k] >= '0' && text[k] <= '9')) return false;
  }
  while (k < text.size() && (text[k] == ' ' || text[k] == '\t')) ++k;
  return k == text.size();
}

}  // namespace

bool HasDosEpsSignature(std::span<const uint8_t> head) {
  return head.size() >= 4 && std::memcmp(head.data(), kDosEpsSignature, 4) == 0;
}

std::string ReadDosEpsHeader(std::span<const uint8_t> head, uint64_t fileSize,
                             DosEpsHeader* header) {
  if (!HasDosEpsSignature(head)) return "not a DOS EPS file";
  if (head.size() < kDosEpsHeaderSize || fileSize < kDosEpsHeaderSize)
    return "DOS EPS header cut short";
  // The checksum (bytes 28-29) is not checked: writers put FFFF ("none")
  // there, and the bounds below are what keep a reader inside the file.
  struct Named {
    const char* name;
    EpsSection* section;
  } sections[] = {
      {"PostScript", &header->postscript}, {"WMF", &header->wmf}, {"TIFF", &header->tiff}};
  for (int k = 0; k < 3; ++k) {
    EpsSection& s = *sections[k].section;
    s.offset = Le32(head.data() + 4 + 8 * k);
    s.length = Le32(head.data() + 8 + 8 * k);
    std::string name = sections[k].name;
    if (s.offset == 0 && s.length == 0) {
      if (k == 0) return "DOS EPS header names no PostScript section";
      continue;
    }
    if (s.length == 0) return "DOS EPS " + name + " section is empty";
    if (s.offset < kDosEpsHeaderSize) return "DOS EPS " + name + " section overlaps the header";
    if (s.offset > fileSize || s.length > fileSize - s.offset)
      return "DOS EPS " + name + " section reaches past the end of the file";
  }
  for (int a = 0; a < 3; ++a)
    for (int b = a + 1; b < 3; ++b) {
      const EpsSection &x = *sections[a].section, &y = *sections[b].section;
      if (x.length == 0 || y.length == 0) continue;
      // Both lie inside the file, so the sums cannot wrap in 64 bits.
      if (uint64_t(x.offset) < uint64_t(y.offset) + y.length &&
          uint64_t(y.offset) < uint64_t(x.offset) + x.length)
        return std::string("DOS EPS ") + sections[a].name + " and " + sections[b].name +
               " sections overlap";
    }
  return {};
}

std::string DecodeTiffPreview(std::span<const uint8_t> tiff, RgbImage* image, bool* colour) {
  static constexpr uint8_t kLittle[4] = {'I', 'I', 42, 0}, kBig[4] = {'M', 'M', 0, 42};
  if (tiff.size() < 8 ||
      (std::memcmp(tiff.data(), kLittle, 4) != 0 && std::memcmp(tiff.data(), kBig, 4) != 0))
    return "TIFF preview is not a TIFF image";
  MemoryTiff memory{tiff, 0, {}};
  std::unique_ptr<TIFFOpenOptions, OptionsFree> options(TIFFOpenOptionsAlloc());
  if (!options) return "TIFF preview: out of memory";
  // Strips and tables sized from the file stay within what a capped picture needs.
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), tmsize_t(kMaxPreviewPixels) * 4);
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), ErrorProc, &memory);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), WarningProc, &memory);
  // "m": no memory mapping, the bytes are already in memory.
  std::unique_ptr<TIFF, TiffCloser> tif(TIFFClientOpenExt("TIFF preview", "rm", &memory, ReadProc,
                                                          WriteProc, SeekProc, CloseProc, SizeProc,
                                                          MapProc, UnmapProc, options.get()));
  auto reason = [&](const char* what) {
    return std::string("TIFF preview ") + what + (memory.error.empty() ? "" : ": " + memory.error);
  };
  if (!tif) return reason("cannot be read");
  uint32_t width = 0, height = 0;
  uint16_t photometric = 0;
  if (!TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &width) ||
      !TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &height) || width == 0 || height == 0)
    return "TIFF preview has no size";
  if (int64_t(width) * int64_t(height) > kMaxPreviewPixels)
    return "TIFF preview of " + std::to_string(width) + " x " + std::to_string(height) +
           " pixels is too large";
  if (!TIFFGetField(tif.get(), TIFFTAG_PHOTOMETRIC, &photometric))
    return "TIFF preview has no colour model";
  char why[1024] = {};
  if (!TIFFRGBAImageOK(tif.get(), why)) return std::string("TIFF preview: ") + why;
  std::vector<uint32_t> raster(size_t(width) * size_t(height));
  if (!TIFFReadRGBAImageOriented(tif.get(), width, height, raster.data(), ORIENTATION_TOPLEFT, 0))
    return reason("is damaged");
  *colour = photometric != PHOTOMETRIC_MINISWHITE && photometric != PHOTOMETRIC_MINISBLACK;
  // A preview's transparent parts show the white paper below.
  image->width = int32_t(width);
  image->height = int32_t(height);
  image->pixels.resize(raster.size() * 3);
  uint8_t* out = image->pixels.data();
  for (uint32_t px : raster) {
    uint32_t a = TIFFGetA(px);
    for (uint32_t c : {TIFFGetR(px), TIFFGetG(px), TIFFGetB(px)})
      *out++ = uint8_t(c + (255 - a));  // premultiplied by libtiff, so never above 255
  }
  return {};
}

std::string ReadEpsiPreview(std::string_view document, RgbImage* image, bool* found) {
  *found = false;
  static constexpr std::string_view kBegin = "%%BeginPreview:";
  std::string_view rest = document, line;
  // The preview belongs to the leading comments: the first line of program
  // ends the search (an embedded document's preview is not this one's).
  bool first = true;
  for (;;) {
    if (!NextLine(&rest, &line)) return {};
    if (!first && !line.empty() && line[0] != '%') return {};
    first = false;
    if (line.starts_with(kBegin)) break;
  }
  *found = true;
  std::array<int64_t, 4> numbers{};
  if (!ParseFour(line.substr(kBegin.size()), &numbers))
    return "EPSI preview line is not four numbers";
  auto [width, height, depth, lines] = numbers;
  if (width < 1 || height < 1) return "EPSI preview is empty";
  if (depth != 1 && depth != 2 && depth != 4 && depth != 8)
    return "EPSI preview depth " + std::to_string(depth) + " is not 1, 2, 4 or 8";
  if (width * height > kMaxPreviewPixels)
    return "EPSI preview of " + std::to_string(width) + " x " + std::to_string(height) +
           " pixels is too large";
  // Each row starts on a byte.
  const int64_t rowBytes = (width * depth + 7) / 8;
  const int64_t needed = rowBytes * height;
  std::vector<uint8_t> bits;
  bits.reserve(size_t(needed));
  int high = -1;  // a first hex digit waiting for its second
  for (int64_t k = 0; k < lines; ++k) {
    if (!NextLine(&rest, &line) || line.empty() || line[0] != '%' || line.starts_with("%%"))
      return "EPSI preview has fewer lines than the " + std::to_string(lines) + " it announces";
    for (char c : line.substr(1)) {
      if (c == ' ' || c == '\t') continue;
      int v = HexValue(c);
      if (v < 0) return "EPSI preview holds a character that is not hex";
      if (high < 0) {
        high = v;
      } else {
        if (int64_t(bits.size()) < needed) bits.push_back(uint8_t(high << 4 | v));
        high = -1;
      }
    }
  }
  if (high >= 0) return "EPSI preview has an odd number of hex digits";
  if (int64_t(bits.size()) < needed) return "EPSI preview holds less data than its size needs";

  image->width = int32_t(width);
  image->height = int32_t(height);
  image->pixels.resize(size_t(width * height * 3));
  const int maxValue = (1 << depth) - 1;
  uint8_t* out = image->pixels.data();
  for (int64_t y = 0; y < height; ++y) {
    const uint8_t* row = bits.data() + y * rowBytes;
    for (int64_t x = 0; x < width; ++x) {
      int64_t bit = x * depth;
      int v = (row[bit / 8] >> (8 - depth - bit % 8)) & maxValue;
      uint8_t grey = uint8_t(255 - v * 255 / maxValue);  // 0 is white
      out[0] = out[1] = out[2] = grey;
      out += 3;
    }
  }
  return {};
}

}  // namespace pxhost
