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

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#include "common/invariant.h"
#include "sdk/host_types.h"

namespace {

using pixmere::FourCC;

constexpr uint32_t kSignature = FourCC("SXFF");
constexpr uint16_t kMajorVersion = 1;
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

// The loaded file, read front to back. Every take checks the bytes left
// before it reads any (`n > end - cur`, which cannot overflow), so no read
// leaves the file; a failed take moves nothing.
class Cursor {
 public:
  Cursor(char* begin, char* end) : cur_(begin), end_(end) {}

  bool Take16(uint16_t* v) {
    if (2 > end_ - cur_) return false;
    *v = Get16(cur_);
    cur_ += 2;
    return true;
  }
  bool Take32(uint32_t* v) {
    if (4 > end_ - cur_) return false;
    *v = Get32(cur_);
    cur_ += 4;
    return true;
  }
  // IEEE single, big-endian like every number in the file.
  bool TakeFloat(float* v) {
    uint32_t bits = 0;
    if (!Take32(&bits)) return false;
    *v = std::bit_cast<float>(bits);
    return true;
  }
  bool TakeString(XMLString& out, uint32_t keepWhole) {
    return ReadUTF16(cur_, end_, out, keepWhole) != 0;
  }
  // Whether `count` values of `size` bytes are left.
  bool Holds(int64_t count, int64_t size) const { return count <= (end_ - cur_) / size; }
  // Steps over `length` bytes.
  bool Skip(uint32_t length) {
    if (length > uint64_t(end_ - cur_)) return false;
    cur_ += length;
    return true;
  }

 private:
  char* cur_;
  char* end_;
};

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

// A colour entry (types 1 and 2) read from `in`. Returns 0, or kSXFTruncated
// when a field runs past the data.
SXFParseResult ReadColorEntry(KeltoSwatchbook& book, Cursor in, uint16_t type, int32_t flags,
                              int32_t (&formats)[kModelCount],
                              std::vector<SXFReader::SteppedOver>* steppedOver) {
  float tint = 0.0f;
  if (type == kBlockColorWithTint && !in.TakeFloat(&tint)) return kSXFTruncated;
  XMLString name;
  uint32_t code = 0;
  if (!in.TakeString(name, uint32_t(flags) & kKeepWholeNames) || !in.Take32(&code))
    return kSXFTruncated;
  int m = 0;
  while (m < kModelCount && kModels[m].code != code) ++m;
  if (m == kModelCount) {  // unknown model: no swatch, the block is stepped over
    steppedOver->push_back({std::move(name), code});
    return kSXFParsed;
  }
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
  // The formats are made above from the known models, none of which has
  // more than four channels (CMYK).
  const int32_t n = std::clamp(book.GetFormatNumChannels(format), 0, 4);
  if (!in.Holds(n, 4)) return kSXFTruncated;
  double values[4] = {0, 0, 0, 0};
  bool lab = kModels[m].space == KeltoSwatchbook::kColorSpaceLAB;
  for (int32_t i = 0; i < n; ++i) {
    float v = 0.0f;
    const bool taken = in.TakeFloat(&v);
    QL_ASSERT(taken);  // the values were counted above
    if (!lab)
      values[i] = Clamp(v, 0.0, 1.0);
    else if (i == 0)
      values[0] = Clamp(v * 100.0, 0.0, 100.0);  // files hold L as 0-1
    else
      values[i] = Clamp(v, -128.0, 128.0);
  }
  book.AddColorValues(swatch, format, static_cast<const double*>(values));
  uint16_t typeWord = 0;
  if (!in.Take16(&typeWord)) return kSXFTruncated;
  book.SetSwatchType(swatch, MapType(typeWord));
  return kSXFParsed;
}

// A stream that first gives back bytes already read from another, then
// reads on from it.
class ReplayedStream : public KeltoSwatchbookStream {
 public:
  ReplayedStream(const char* head, int32_t size, KeltoSwatchbookStream& rest)
      : head_(head), size_(size), rest_(rest) {}
  int32_t IsValid() const override { return rest_.IsValid(); }
  int32_t IsReading() const override { return rest_.IsReading(); }
  int32_t Write(const char*, int32_t) override { return 0; }
  int32_t Read(char* buffer, int32_t count) override {
    int32_t given = std::min(count, size_ - used_);
    if (given > 0) std::memcpy(buffer, head_ + used_, size_t(given));
    given = std::max(given, int32_t(0));
    used_ += given;
    if (given == count) return given;
    return given + std::max(rest_.Read(buffer + given, count - given), int32_t(0));
  }

 private:
  const char* head_;
  int32_t size_;
  int32_t used_ = 0;
  KeltoSwatchbookStream& rest_;
};

// Checks the 12-byte header; returns 0 and the block count, or the result code.
SXFParseResult ReadHeader(Cursor& in, uint32_t* count) {
  uint32_t signature = 0, version = 0;
  if (!in.Take32(&signature)) return kSXFTruncated;
  if (signature != kSignature) return kSXFBadSignature;
  if (!in.Take32(&version)) return kSXFTruncated;
  if (version >> 16 != kMajorVersion) return kSXFBadVersion;  // the minor version is free
  if (!in.Take32(count)) return kSXFTruncated;
  return *count > kSXFMaxBlocks ? kSXFTooManyBlocks : kSXFParsed;
}

// A block's type and body length.
bool ReadBlockHeader(Cursor& in, uint16_t* type, uint32_t* length) {
  return in.Take16(type) && in.Take32(length);
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
  // Nearly every file the host asks about is a drawing, not a swatch file:
  // its first four bytes settle that without loading a file that may be
  // gigabytes long. A file that passes is loaded whole, those bytes first.
  char signature[4];
  int32_t got = std::max(stream.Read(signature, 4), int32_t(0));
  if (got == 4 && Get32(signature) != kSignature) return 0;
  ReplayedStream rest(signature, got, stream);
  KeltoSwatchbookHeap file(1, kFileHeapBytes, kFileHeapBytes);
  if (!file.InflateFromStream(rest) || file.GetData(0) == nullptr) return 0;
  Cursor in(file.GetData(0), file.GetData(0) + file.GetSize());
  uint32_t count = 0;
  if (ReadHeader(in, &count) != kSXFParsed) return 0;
  for (uint32_t b = 0; b < count; ++b) {
    uint16_t type = 0;
    uint32_t length = 0;
    if (!ReadBlockHeader(in, &type, &length)) return 0;
    if (type != kBlockColor && type != kBlockColorWithTint && type != kBlockGroupStart &&
        type != kBlockGroupEnd)
      ++unknownBlocks;
    if (!in.Skip(length)) return 0;
  }
  return 1;
}

int32_t SXFReader::Parse(KeltoSwatchbook& book, KeltoSwatchbookStream& stream, int32_t flags) {
  failedBlock_ = 0;
  steppedOver_.clear();
  if (!stream.IsValid()) return kSXFUnreadable;
  KeltoSwatchbookHeap file(1, kFileHeapBytes, kFileHeapBytes);
  if (!file.InflateFromStream(stream) || file.GetData(0) == nullptr) return kSXFUnreadable;
  Cursor in(file.GetData(0), file.GetData(0) + file.GetSize());
  uint32_t count = 0;
  if (int32_t header = ReadHeader(in, &count); header != kSXFParsed) return header;

  // From here on the book changes, also when a later block is faulty.
  book.Clear();
  int32_t formats[kModelCount] = {-1, -1, -1, -1};
  for (uint32_t b = 0; b < count; ++b) {
    failedBlock_ = b + 1;
    uint16_t type = 0;
    uint32_t length = 0;
    if (!ReadBlockHeader(in, &type, &length)) return kSXFTruncated;
    // A handler reads a copy of the cursor, as far as the file goes: the
    // block's length, checked after it, decides where the next block starts.
    Cursor body = in;
    switch (type) {
      case kBlockGroupStart: {
        XMLString name;
        if (!body.TakeString(name, uint32_t(flags) & kKeepWholeNames)) return kSXFTruncated;
        int32_t group = book.CreateSwatchGroup();
        if (group != -1 && book.SetActiveSwatchGroup(group)) book.SetSwatchGroupName(name);
        break;
      }
      case kBlockGroupEnd:
        book.CloseSwatchGroup();
        break;
      case kBlockColor:
      case kBlockColorWithTint:
        if (int32_t r = ReadColorEntry(book, body, type, flags, formats, &steppedOver_);
            r != kSXFParsed)
          return r;
        break;
    }
    if (!in.Skip(length)) return kSXFTruncated;
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
