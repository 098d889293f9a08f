// Embedded-thumbnail reader.
//
// The reader never holds more of the file than one 256-byte scan buffer (and
// the 768-byte colour table of an 8-bit thumbnail). The scan buffer and its
// read position are process-wide, as the host drives one request at a time.
//
// Searching looks at positions 0..155 of each filling of the scan buffer; a
// refill keeps the last 100 bytes and appends 156 new ones, so a keyword of up
// to 100 characters is found across a refill boundary. A keyword in the final
// part of the file that no longer fills a whole refill is not seen: the
// search only trusts complete fillings. Tokens and hexadecimal data are read
// up to the last byte the file really gave (`bufValid`): a short refill at the
// end of the file never lets bytes left from an earlier filling pass for data,
// and running out of data while decoding fails the decode.
#include "thumbnail/ql_thumbnail.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>

#include "swatchio/classic_file.h"

namespace {

constexpr int32_t kScanBytes = 256;
constexpr int32_t kLastSearchPos = 155;  // 256 - 100 - 1: a 100-byte overlap between fillings
constexpr int32_t kKeywordTokenMax = 100;
constexpr int32_t kNumberTokenMax = 10;
constexpr int32_t kColorTableBytes = 256 * 3;
constexpr uint8_t kRunMarker = 0xFD;

char buffer1[kScanBytes];

// The keyword search reads the file in blocks this large: at least the
// classic file shim's 64 KiB read-ahead, so the reads go to the system
// directly, plus room for what a search keeps between blocks.
constexpr int64_t kSearchBlockBytes = 512 * 1024;
// Room before the block for the bytes a search keeps from the previous one
// (at most 255 + 155), so every read lands on a 64-byte boundary: the
// kernel's copy into an unaligned destination is several times slower.
constexpr int64_t kSearchKeepRoom = 512;
alignas(64) char gSearchBlock[kSearchKeepRoom + kSearchBlockBytes];
int32_t bufPtr = 0;
int32_t bufValid = 0;  // bytes of buffer1, from its start, that came from the file

// Value of a character as a hexadecimal digit: 0..15 for digits, 0xFF for the
// separators that may stand between digits, 0xFE for everything else
// (characters above 0x7F included).
constexpr std::array<uint8_t, 256> MakeHexTable() {
  std::array<uint8_t, 256> t{};
  for (auto& v : t) v = 0xFE;
  for (int c = '0'; c <= '9'; ++c) t[c] = uint8_t(c - '0');
  for (int c = 'A'; c <= 'F'; ++c) t[c] = uint8_t(c - 'A' + 10);
  for (int c = 'a'; c <= 'f'; ++c) t[c] = uint8_t(c - 'a' + 10);
  for (int c : {9, 10, 13, 32, 37}) t[c] = 0xFF;
  return t;
}
constexpr std::array<uint8_t, 256> gAsciiHexDecode = MakeHexTable();

// The classification of the C locale's isspace, independent of the locale the
// host runs in.
bool IsSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// Where a keyword is looked for: the position of its byte least likely in
// drawing commands, hexadecimal data and prose (punctuation other than the
// PostScript and PDF delimiters, then capitals beyond F, then the rest). The
// search jumps between occurrences of that byte, so a rare one makes it run
// at the speed of memchr.
size_t RarestByte(const char* text, size_t length) {
  auto commonness = [](unsigned char c) {
    if (std::strchr(" \t\r\n%/.()[]<>{}-+", c) != nullptr) return 3;
    bool alphanumeric = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    if (c > 0x20 && c < 0x7F && !alphanumeric) return 0;  // ASCII punctuation
    return c >= 'G' && c <= 'Z' ? 1 : 2;
  };
  size_t best = 0;
  for (size_t i = 1; i < length; ++i)
    if (commonness(uint8_t(text[i])) < commonness(uint8_t(text[best]))) best = i;
  return best;
}

uint8_t HexPair(char high, char low) {
  return uint8_t((gAsciiHexDecode[uint8_t(high)] << 4) | gAsciiHexDecode[uint8_t(low)]);
}

}  // namespace

namespace {

// Bytes of a width x height RGB image, or -1 when either side is below 1 or
// so large that the product could not fit any buffer (checked side by side
// first, so the multiplication never overflows).
int64_t RgbBytes(int32_t width, int32_t height, int32_t limit) {
  if (width < 1 || height < 1 || width > limit || height > limit) return -1;
  return int64_t(width) * height * 3;
}

}  // namespace

bool ThumbnailFits(int32_t width, int32_t height) {
  int64_t bytes = RgbBytes(width, height, kThumbnailBufferBytes);
  return bytes >= 0 && bytes <= kThumbnailBufferBytes;
}

QLThumbnail::QLThumbnail(int32_t fileRef) : fileRef_(fileRef) {
  stream_ = DataFilterStream(fileRef_);
}

bool QLThumbnail::ReloadBuffer(char* buf, int32_t size, int32_t consumed) {
  if (consumed < 0) consumed = 0;
  if (consumed > size) consumed = size;
  std::memmove(buf, buf + consumed, size_t(size - consumed));
  int32_t got = stream_.Read(buf + (size - consumed), consumed);
  if (got < 0) got = 0;
  if (buf == buffer1) {
    // The kept bytes are valid as far as they were; what was read follows
    // them only when nothing before it was already past the file's end.
    int32_t kept = bufValid - consumed > 0 ? bufValid - consumed : 0;
    bufValid = kept == size - consumed ? kept + got : kept;
  }
  return got == consumed;
}

void QLThumbnail::RefillWhole() {
  ReloadBuffer(buffer1, kScanBytes, kScanBytes);
  bufPtr = 0;
}

int32_t QLThumbnail::EqualString(const char* pattern, char* text) {
  for (int32_t i = 0;; ++i) {
    if (pattern[i] == 0) {
      if (text[i] != 0) text[i] = ' ';
      return 1;
    }
    if (text[i] == 0 || text[i] != pattern[i]) return 0;
  }
}

int32_t QLThumbnail::ScanForString(const char* text) {
  // The search sees what sliding the scan buffer would: fillings start every
  // kFillStep bytes from the start of the file, and only positions
  // 0..kLastSearchPos of a complete filling are looked at. Those positions
  // tile the file, so offset o is looked at in filling o / kFillStep, and
  // only when the file holds that filling whole. Searching large blocks of
  // the file for the whole keyword finds the same first match at a fraction
  // of the cost of a refill per 156 bytes; the scan buffer then gets the
  // filling the match is in, and the file's mark the end of that filling.
  constexpr int64_t kFillStep = kLastSearchPos + 1;
  const size_t length = std::strlen(text);
  if (length == 0 || length > size_t(kKeywordTokenMax)) return 0;
  const size_t anchor = RarestByte(text, length);
  stream_.Seek(classic::fsFromStart, 0);
  char* const readAt = gSearchBlock + kSearchKeepRoom;
  char* block = readAt;  // the kept bytes, then what the last read gave
  int64_t base = 0;      // file offset of block[0]
  int64_t have = 0;      // bytes in the block
  int64_t searched = 0;  // block positions before this were searched
  for (bool end = false; !end;) {
    int32_t want = int32_t(kSearchBlockBytes - (block + have - readAt));
    int32_t got = stream_.Read(block + have, want);
    if (got < 0) got = 0;
    have += got;
    end = got < want;
    // Before the end of the file, a match is only taken where its filling is
    // surely whole: its start is at most kLastSearchPos bytes back, and it
    // ends at most kScanBytes bytes on.
    int64_t last = end ? have - int64_t(length) : have - kScanBytes;
    while (searched <= last) {
      const void* hit =
          std::memchr(block + searched + anchor, text[anchor], size_t(last - searched) + 1);
      if (hit == nullptr) break;
      int64_t at = static_cast<const char*>(hit) - block - int64_t(anchor);
      if (std::memcmp(block + at, text, length) != 0) {
        searched = at + 1;
        continue;
      }
      int64_t fill = (base + at) / kFillStep * kFillStep;  // file offset of its filling
      if (fill + kScanBytes > base + have) return 0;       // only a partial filling holds it
      std::memcpy(buffer1, block + (fill - base), kScanBytes);
      bufPtr = int32_t(base + at - fill);
      bufValid = kScanBytes;
      stream_.Seek(classic::fsFromMark,
                   int32_t(fill + kScanBytes - (base + have)));  // back to the filling's end
      return EqualString(text, buffer1 + bufPtr);  // blanks the character after the keyword
    }
    if (last >= searched) searched = last + 1;
    // Keep what the next search needs: the unsearched tail, and the
    // kLastSearchPos bytes before it where its fillings may start.
    // Never more than 255 + 155 bytes (searched is past have - kScanBytes);
    // the bound keeps the copy inside the room whatever.
    int64_t keep = std::min(have - searched + kLastSearchPos, kSearchKeepRoom);
    if (!end && keep < have) {
      std::memmove(readAt - keep, block + (have - keep), size_t(keep));
      block = readAt - keep;
      base += have - keep;
      searched -= have - keep;
      have = keep;
    }
  }
  return 0;
}

int32_t QLThumbnail::GetValue(char* string, int32_t* number, int32_t kind, int32_t maxLen) {
  if (maxLen < 1) return 0;
  ReloadBuffer(buffer1, kScanBytes, bufPtr);  // a short read near the end is tolerated
  bufPtr = 0;
  if (kind == kValueString && string == nullptr) return 0;
  if (kind == kValueNumber && number == nullptr) return 0;
  if (kind != kValueString && kind != kValueNumber) return 0;

  while (bufPtr < bufValid && IsSpace(buffer1[bufPtr])) ++bufPtr;
  if (bufPtr >= bufValid) return 0;
  // The limit is a position in the scan buffer, not a token length.
  int32_t limit = maxLen < kScanBytes + 1 - bufPtr ? maxLen : kScanBytes + 1 - bufPtr;
  if (limit > bufValid) limit = bufValid;

  char scratch[kNumberTokenMax + 1];
  char* out = kind == kValueString ? string : scratch;
  int32_t outMax = kind == kValueString ? maxLen : kNumberTokenMax;
  int32_t n = 0;
  auto put = [&](char c) {
    if (n < outMax) out[n++] = c;
  };
  if (kind == kValueString && buffer1[bufPtr] == '(') {
    ++bufPtr;
    while (bufPtr < limit && buffer1[bufPtr] != ')') put(buffer1[bufPtr++]);
    if (bufPtr < limit && buffer1[bufPtr] == ')') ++bufPtr;
  } else {
    while (bufPtr < limit && !IsSpace(buffer1[bufPtr])) put(buffer1[bufPtr++]);
  }
  out[n] = 0;

  if (kind == kValueNumber) {
    // Digits from the last to the first, each taking one decimal place. The
    // range starts at '*' rather than '0', so "*+,-./" count as -6..-1 times
    // their place value ("-5" reads as -25), and other characters keep their
    // place without adding to it. Accumulated in 64 bits and wrapped to 32,
    // so ten digits never overflow the arithmetic.
    int64_t value = 0;
    int64_t multiplier = 1;
    for (int32_t k = n - 1; k >= 0; --k) {
      if (scratch[k] >= '*' && scratch[k] <= '9') value += multiplier * (scratch[k] - '0');
      multiplier *= 10;
    }
    *number = int32_t(uint32_t(uint64_t(value)));
  }
  return bufPtr == kScanBytes ? 0 : n;
}

void QLThumbnail::SkipSeparators() {
  while (bufPtr < bufValid && (buffer1[bufPtr] == '%' || IsSpace(buffer1[bufPtr]))) {
    if (++bufPtr == kScanBytes) RefillWhole();
  }
}

uint8_t QLThumbnail::GetNextHexByte() {
  char digits[2];
  for (char& digit : digits) {
    SkipSeparators();
    if (bufPtr >= bufValid) {
      hexExhausted_ = true;
      return 0;
    }
    digit = buffer1[bufPtr];
    if (++bufPtr == kScanBytes) RefillWhole();
  }
  return HexPair(digits[0], digits[1]);
}

int32_t QLThumbnail::ReadImageData(int32_t /*count*/, int32_t bitsPerPixel, int32_t width,
                                   int32_t height, int32_t bufferSize, char* buffer) {
  std::unique_ptr<char[]> table;
  if (bitsPerPixel == 8) {
    table.reset(new (std::nothrow) char[kColorTableBytes]);
    if (!table) return 0;
    for (int32_t k = 0; k < kColorTableBytes; ++k) table[k] = char(GetNextHexByte());
    if (hexExhausted_) return 0;
  }

  SkipSeparators();
  ReloadBuffer(buffer1, kScanBytes, bufPtr);
  bufPtr = 0;
  // "RLE" written as six digits with nothing between them switches run-length
  // coding on.
  bool runLength = bufValid >= 6 && HexPair(buffer1[0], buffer1[1]) == 0x52 &&
                   HexPair(buffer1[2], buffer1[3]) == 0x4C &&
                   HexPair(buffer1[4], buffer1[5]) == 0x45;
  if (runLength) bufPtr = 6;

  // Nothing is written at or past total, and total never exceeds the buffer.
  int64_t total = RgbBytes(width, height, bufferSize);
  if (total < 0 || total > bufferSize) return 0;
  // total is a multiple of 3 and a table entry advances by 3, so an entry
  // that starts below total ends within it.
  int32_t i = 0;
  auto emit = [&](uint8_t code) { AssignColor(table != nullptr, table.get(), buffer, code, &i); };
  while (i < total) {
    uint8_t b = GetNextHexByte();
    if (hexExhausted_) return 0;
    if (!runLength || b != kRunMarker) {
      emit(b);
      continue;
    }
    uint8_t n = GetNextHexByte();
    if (hexExhausted_) return 0;
    if (n == kRunMarker) {  // FD FD is the literal code 0xFD
      emit(kRunMarker);
      continue;
    }
    uint8_t v = GetNextHexByte();
    if (hexExhausted_) return 0;
    for (int32_t k = 0; k < n && i < total; ++k) emit(v);
  }
  return 1;
}

int32_t QLThumbnail::GetThumbnailInfo(int32_t* width, int32_t* height, char* buffer,
                                      int32_t bufferSize) {
  *width = 0;
  *height = 0;
  if (!ScanForString("%QL7_Thumbnail:")) return 0;

  char token[kKeywordTokenMax + 1] = {};
  GetValue(token, nullptr, kValueString, kKeywordTokenMax);
  GetValue(nullptr, width, kValueNumber, kNumberTokenMax);
  GetValue(nullptr, height, kValueNumber, kNumberTokenMax);
  if (buffer == nullptr) return 1;

  int32_t bitsPerPixel = 0;
  GetValue(nullptr, &bitsPerPixel, kValueNumber, kNumberTokenMax);
  token[0] = 0;
  GetValue(token, nullptr, kValueString, kKeywordTokenMax);
  // The token is the pattern, so "%%BeginData:" or any leading part of it is
  // accepted. Compared against a copy: the comparison blanks the character
  // after the match and the keyword itself must stay intact.
  char beginData[] = "%%BeginData:";
  if (!EqualString(token, beginData)) return 0;

  int32_t count = 0;
  GetValue(nullptr, &count, kValueNumber, kNumberTokenMax);
  GetValue(token, nullptr, kValueString, kKeywordTokenMax);
  GetValue(token, nullptr, kValueString, kKeywordTokenMax);
  hexExhausted_ = false;
  // The closing "%%EndData" is not checked: what it would say changes nothing.
  return ReadImageData(count, bitsPerPixel, *width, *height, bufferSize, buffer);
}

void QLThumbnail::AssignColor(int32_t useTable, const char* table, char* out, uint8_t index,
                              int32_t* pos) {
  if (useTable && table != nullptr) {
    std::memcpy(out + *pos, table + index * 3, 3);
    *pos += 3;
  } else {
    out[(*pos)++] = char(index);
  }
}

bool QLThumbnail::GetBytes(int32_t count, char* dest) {
  return stream_.Read(dest, count) == count;
}

void QLThumbnail::ReloadIfNecessary() {
  if (bufPtr > kScanBytes - 1 && ReloadBuffer(buffer1, kScanBytes, bufPtr)) bufPtr = 0;
}

int32_t QLThumbnail::GetRenderingMethod() {
  // The classification looks at the same 156 positions a keyword search
  // looks at in one filling, out of a 512-byte head; a shorter file is not
  // classified at all.
  constexpr int32_t kHeadBytes = 512;
  char head[kHeadBytes];
  if (!GetBytes(kHeadBytes, head)) return 0;
  auto within = [&](const char* mark) {
    for (int32_t pos = 0; pos <= kLastSearchPos; ++pos)
      if (std::memcmp(head + pos, mark, 4) == 0) return true;
    return false;
  };
  if (within("%PDF")) return kQLDocumentPDF;
  if (within("%!PS")) return kQLDocumentPostScript;
  // The double colon is part of what is searched for.
  if (!ScanForString("<?xpacket")) return kQLDocumentOther;
  return ScanForString("<xap::Thumbnails") ? kQLDocumentXapThumbnail : kQLDocumentOther;
}
