// The swatch exchange file reader.
//
// A file is a 12-byte header ("SXFF", major version 1, minor version, block
// count) followed by blocks of a 16-bit type, a 32-bit body length and the
// body; every number is big-endian and colour values are IEEE single floats.
// The whole file is loaded first and then walked with a cursor that only
// ever moves forward inside the loaded bytes: every read checks the bytes
// left before it takes any (`n > end - cur`), and a block's length, not what
// its handler read, decides where the next block starts, which lets newer
// files add fields the reader steps over.
#include "swatchio/sxf_reader.h"

#include <bit>
#include <cstring>
#include <vector>

#include "sdk/host_types.h"

namespace {

using pixmere::FourCC;

constexpr uint32_t kSignature = FourCC("SXFF");
constexpr uint16_t kMajorVersion = 1;
constexpr uint32_t kMaxBlocks = 10000;
constexpr int32_t kFileHeapBytes = 65536;  // initial size and growth of the file buffer

constexpr uint16_t kBlockColor = 0x0001;
constexpr uint16_t kBlockColorWithTint = 0x0002;
constexpr uint16_t kBlockGroupStart = 0xC001;
constexpr uint16_t kBlockGroupEnd = 0xC002;

constexpr uint32_t kKeepWholeNames = 1;  // bit 0 of Parse's flags
constexpr uint16_t kDollar = 0x24;
constexpr uint16_t kEquals = 0x3D;
constexpr int64_t kSkipMask = 0x1FFFF;  // the skip after a "$$$...=" prefix keeps 17 bits

struct Model {
  uint32_t code;
  KeltoSwatchbook::ColorSpace space;
};
constexpr Model kModels[] = {
    {FourCC("Gray"), KeltoSwatchbook::kColorSpaceGray},
    {FourCC("RGB "), KeltoSwatchbook::kColorSpaceRGB},
    {FourCC("CMYK"), KeltoSwatchbook::kColorSpaceCMYK},
    {FourCC("LAB "), KeltoSwatchbook::kColorSpaceLAB},
};
constexpr int kModelCount = sizeof kModels / sizeof kModels[0];

uint16_t Get16(const char* p) {
  auto b = reinterpret_cast<const unsigned char*>(p);
  return uint16_t(b[0] << 8 | b[1]);
}

uint32_t Get32(const char* p) {
  auto b = reinterpret_cast<const unsigned char*>(p);
  return uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | uint32_t(b[3]);
}

float GetFloat(const char* p) {
  return std::bit_cast<float>(Get32(p));
}

// v limited to [lo, hi]; NaN becomes lo.
double Clamp(double v, double lo, double hi) {
  if (!(v >= lo)) return lo;
  return v > hi ? hi : v;
}

// Colour type word: bit 0 spot; else bit 1 process untinted; else process.
KeltoSwatchbook::SwatchType MapType(uint16_t word) {
  if (word & 1) return KeltoSwatchbook::kSwatchTypeSpot;
  if (word & 2) return KeltoSwatchbook::kSwatchTypeProcessUntinted;
  return KeltoSwatchbook::kSwatchTypeProcess;
}

// A colour entry (types 1 and 2). Returns 0, or kSXFTruncated when a
// field runs past the data.
SXFParseResult ReadColorEntry(KeltoSwatchbook& book, char*& cur, char* end, uint16_t type,
                              int32_t flags, int32_t (&formats)[kModelCount]) {
  double tint = 0.0;
  if (type == kBlockColorWithTint) {
    if (4 > end - cur) return kSXFTruncated;
    tint = GetFloat(cur);
    cur += 4;
  }
  XMLString name;
  if (!ReadUTF16(cur, end, name, uint32_t(flags) & kKeepWholeNames)) return kSXFTruncated;
  if (4 > end - cur) return kSXFTruncated;
  uint32_t code = Get32(cur);
  cur += 4;
  int m = 0;
  while (m < kModelCount && kModels[m].code != code) ++m;
  if (m == kModelCount) return kSXFParsed;  // unknown model: no swatch, the block is stepped over
  if (formats[m] < 0) {
    formats[m] = book.AddFormat();
    book.SetFormatEncoding(formats[m], KeltoSwatchbook::kEncodingDouble);
    book.SetFormatColorSpace(formats[m], kModels[m].space);
  }
  int32_t format = formats[m];
  if (format < 0) return kSXFParsed;

  int32_t swatch = book.AddSwatch(-1);
  book.SetSwatchName(swatch, name);
  book.SetSwatchTint(swatch, tint);
  int32_t n = book.GetFormatNumChannels(format);
  if (n < 0) n = 0;
  if (n > (end - cur) / 4) return kSXFTruncated;
  // Four doubles hold every known model; a book with wider formats gets a
  // buffer of its own.
  double fixed[4] = {0, 0, 0, 0};
  std::vector<double> wide;
  double* values = fixed;
  if (n > 4) {
    wide.assign(size_t(n), 0.0);
    values = wide.data();
  }
  bool lab = kModels[m].space == KeltoSwatchbook::kColorSpaceLAB;
  for (int32_t i = 0; i < n; ++i, cur += 4) {
    double v = GetFloat(cur);
    if (!lab)
      values[i] = Clamp(v, 0.0, 1.0);
    else if (i == 0)
      values[0] = Clamp(v * 100.0, 0.0, 100.0);  // files hold L as 0-1
    else
      values[i] = Clamp(v, -128.0, 128.0);
  }
  book.AddColorValues(swatch, format, static_cast<const double*>(values));
  if (2 > end - cur) return kSXFTruncated;
  book.SetSwatchType(swatch, MapType(Get16(cur)));
  cur += 2;
  return kSXFParsed;
}

// Checks the 12-byte header; returns 0 and the block count, or the result code.
SXFParseResult ReadHeader(char*& cur, char* end, uint32_t* count) {
  if (4 > end - cur) return kSXFTruncated;
  if (Get32(cur) != kSignature) return kSXFBadSignature;
  cur += 4;
  if (4 > end - cur) return kSXFTruncated;
  if (Get32(cur) >> 16 != kMajorVersion) return kSXFBadVersion;  // the minor version is free
  cur += 4;
  if (4 > end - cur) return kSXFTruncated;
  *count = Get32(cur);
  cur += 4;
  return *count > kMaxBlocks ? kSXFTooManyBlocks : kSXFParsed;
}

}  // namespace

int32_t ReadUTF16(char*& cursor, char* end, XMLString& out, uint32_t keepWhole) {
  if (2 > end - cursor) return 0;
  const int64_t n = Get16(cursor);
  cursor += 2;
  if (n == 0) {
    out = XMLString();
    return 1;
  }
  if (2 * n > end - cursor) return 0;

  // Units are read as far as the loaded data goes: the text runs to its
  // first zero unit, which a careless writer may have left out of the count.
  const char* units = cursor;
  const int64_t readable = (end - cursor) / 2;
  int64_t start = 0;     // first unit of the name
  int64_t skip = 2 * n;  // bytes from the name's start to the string's end
  if (!keepWhole && readable >= 3 && Get16(units) == kDollar && Get16(units + 2) == kDollar &&
      Get16(units + 4) == kDollar) {
    // "$$$/key/path=Display text" names show only the display text.
    for (int64_t i = 0; i < readable; ++i) {
      uint16_t u = Get16(units + 2 * i);
      if (u == 0) break;
      if (u == kEquals) {
        start = i + 1;
        skip = (2 * (n - start)) & kSkipMask;
        break;
      }
    }
  }
  std::vector<uint16_t> text;
  for (int64_t i = start; i < readable; ++i) {
    uint16_t u = Get16(units + 2 * i);
    if (u == 0) break;
    text.push_back(u);
  }
  out.SetUTF16(text.data(), int32_t(text.size()));
  // A skip that would leave the data puts the cursor at its end: every
  // later read then finds too few bytes, as it would past the end.
  char* nameStart = cursor + 2 * start;
  cursor = skip > end - nameStart ? end : nameStart + skip;
  return 1;
}

SXFReader::SXFReader() : heap_(1, kFileHeapBytes, kFileHeapBytes) {}

int32_t SXFReader::Check(KeltoSwatchbookStream& stream, int32_t& unknownBlocks) {
  unknownBlocks = 0;
  if (!stream.IsValid()) return 0;
  KeltoSwatchbookHeap file(1, kFileHeapBytes, kFileHeapBytes);
  if (!file.InflateFromStream(stream)) return 0;
  char* cur = file.GetData(0);
  char* end = cur + file.GetSize();
  uint32_t count = 0;
  if (cur == nullptr || ReadHeader(cur, end, &count) != kSXFParsed) return 0;
  for (uint32_t b = 0; b < count; ++b) {
    if (2 > end - cur) return 0;
    uint16_t type = Get16(cur);
    cur += 2;
    if (4 > end - cur) return 0;
    uint32_t length = Get32(cur);
    cur += 4;
    if (type != kBlockColor && type != kBlockColorWithTint && type != kBlockGroupStart &&
        type != kBlockGroupEnd)
      ++unknownBlocks;
    if (length > uint64_t(end - cur)) return 0;
    cur += length;
  }
  return 1;
}

int32_t SXFReader::Parse(KeltoSwatchbook& book, KeltoSwatchbookStream& stream, int32_t flags) {
  failedBlock_ = 0;
  if (!stream.IsValid()) return kSXFUnreadable;
  KeltoSwatchbookHeap file(1, kFileHeapBytes, kFileHeapBytes);
  if (!file.InflateFromStream(stream)) return kSXFUnreadable;
  char* cur = file.GetData(0);
  if (cur == nullptr) return kSXFUnreadable;
  char* end = cur + file.GetSize();
  uint32_t count = 0;
  if (int32_t header = ReadHeader(cur, end, &count); header != kSXFParsed) return header;

  // From here on the book changes, also when a later block is faulty.
  book.Clear();
  int32_t formats[kModelCount] = {-1, -1, -1, -1};
  for (uint32_t b = 0; b < count; ++b) {
    failedBlock_ = b + 1;
    if (2 > end - cur) return kSXFTruncated;
    uint16_t type = Get16(cur);
    cur += 2;
    if (4 > end - cur) return kSXFTruncated;
    uint32_t length = Get32(cur);
    cur += 4;
    char* body = cur;
    switch (type) {
      case kBlockGroupStart: {
        XMLString name;
        if (!ReadUTF16(cur, end, name, uint32_t(flags) & kKeepWholeNames)) return kSXFTruncated;
        int32_t group = book.CreateSwatchGroup();
        if (group != -1 && book.SetActiveSwatchGroup(group)) book.SetSwatchGroupName(name);
        break;
      }
      case kBlockGroupEnd:
        book.CloseSwatchGroup();
        break;
      case kBlockColor:
      case kBlockColorWithTint:
        if (int32_t r = ReadColorEntry(book, cur, end, type, flags, formats); r != kSXFParsed)
          return r;
        break;
    }
    if (length > uint64_t(end - body)) return kSXFTruncated;
    cur = body + length;
  }
  return kSXFParsed;
}

int32_t KeltoSwatchbook::CheckSXF(KeltoSwatchbookStream& stream, int32_t& unknownBlocks) {
  SXFReader reader;
  return reader.Check(stream, unknownBlocks);
}

int32_t KeltoSwatchbook::ParseSXF(KeltoSwatchbookStream& stream, int32_t flags) {
  if (!stream.IsValid()) return kSXFUnreadable;
  SXFReader reader;
  return reader.Parse(*this, stream, flags);
}
