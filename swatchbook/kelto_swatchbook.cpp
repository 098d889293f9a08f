// The swatch book's shared machinery: colour encodings, the format table,
// best-format choice and name search.
//
// Colour values travel in three encodings: unsigned 8-bit (0-255), unsigned
// 16-bit (0-65535) and double (0.0-1.0, except Lab: L 0-100, a and b about
// -128..127). Plain components scale linearly between them (x 257 from 8 to
// 16 bits, / 255 and / 65535 to double). Lab a and b are signed and carry an
// offset of 128 (8-bit) or 128 x 256 (16-bit). Some conversions are kept as
// the swatch libraries have always produced them, because stored books and
// their readers agree on those numbers: 8-bit CMYK becomes double rounded to
// two decimals; double to 16-bit saturates to 65535 any result above 255;
// double Lab a and b go to 16-bit with an offset of 128, not 128 x 256.
#include "swatchbook/kelto_swatchbook.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

// Default colour-space strings, by space.
constexpr char kValueLAB[] = "LAB";
constexpr char kValueRGB[] = "RGB";
constexpr char kValueCMYK[] = "CMYK";
constexpr char kValueXYZ[] = "XYZ";

// Books whose spot names carry a coated or uncoated suffix of their own.
constexpr int32_t kBookCoatedSuffix = 3002;    // "...CVC" is stored as "...C"
constexpr int32_t kBookUncoatedSuffix = 3005;  // "...CVU" is stored as "...U"

// One row of the format table, as the row heap holds it.
struct FormatRow {
  int32_t colorSpace;
  int32_t encoding;
  int32_t numChannels;
  uint32_t conditionID;
  uint32_t colorSpaceStringID;
  uint32_t formatID;
};
static_assert(sizeof(FormatRow) == 24, "a format row is six 32-bit words");

constexpr int32_t kRowHeapBytes = 65536;

int32_t ComponentSize(int32_t encoding) {
  switch (encoding) {
    case KeltoSwatchbook::kEncoding8Bit:
      return 1;
    case KeltoSwatchbook::kEncoding16Bit:
      return 2;
    case KeltoSwatchbook::kEncodingDouble:
      return 8;
  }
  return 0;
}

template <typename T>
T Load(const void* base, int32_t i) {
  T v;
  std::memcpy(&v, static_cast<const char*>(base) + size_t(i) * sizeof(T), sizeof(T));
  return v;
}

template <typename T>
void Store(void* base, int32_t i, T v) {
  std::memcpy(static_cast<char*>(base) + size_t(i) * sizeof(T), &v, sizeof(T));
}

// trunc(x) limited to [lo, hi]; NaN gives lo, so no conversion is undefined.
int32_t TruncClamp(double x, int32_t lo, int32_t hi) {
  double t = std::trunc(x);
  if (!(t > lo)) return lo;
  if (t > hi) return hi;
  return int32_t(t);
}

// Halves away from zero, to 1/p.
double RoundTo(double x, double p) {
  double t = x * p;
  return (t > 0 ? std::floor(t + 0.5) : std::ceil(t - 0.5)) / p;
}

// Double to 16-bit: anything above 255 saturates (kept behaviour).
uint16_t DoubleTo16(double scaled) {
  double t = std::trunc(scaled + 0.5);
  if (!(t >= 0)) return 0;
  if (t > 255) return 65535;
  return uint16_t(t);
}

// How one component converts: plain, CMYK (rounded from 8-bit), Lab L, Lab a/b.
enum class Rule { kPlain, kCMYK, kLabL, kLabAB };

// Converts component i from one encoding to another under its rule.
void TranslateOne(Rule rule, int32_t from, const void* src, int32_t to, void* dst, int32_t i) {
  using KB = KeltoSwatchbook;
  if (from == KB::kEncoding8Bit) {
    uint8_t v = Load<uint8_t>(src, i);
    if (to == KB::kEncoding16Bit) {
      Store<uint16_t>(dst, i, uint16_t(rule == Rule::kLabAB ? v * 256 : v * 257));
    } else {
      double d = rule == Rule::kLabL    ? v * 100.0 / 255.0
                 : rule == Rule::kLabAB ? v - 128.0
                 : rule == Rule::kCMYK  ? RoundTo(v / 255.0, 100)
                                        : v / 255.0;
      Store<double>(dst, i, d);
    }
  } else if (from == KB::kEncoding16Bit) {
    uint16_t v = Load<uint16_t>(src, i);
    if (to == KB::kEncoding8Bit) {
      uint8_t b =
          rule == Rule::kLabAB ? (v >= 65408 ? 255 : uint8_t((v + 128) >> 8)) : uint8_t(v / 257);
      Store<uint8_t>(dst, i, b);
    } else {
      double d = rule == Rule::kLabL    ? v * 100.0 / 65535.0
                 : rule == Rule::kLabAB ? v * (1.0 / 256.0) - 128.0
                                        : v / 65535.0;
      Store<double>(dst, i, d);
    }
  } else {
    double v = Load<double>(src, i);
    if (to == KB::kEncoding8Bit) {
      int32_t b = rule == Rule::kLabL    ? TruncClamp(v * 255.0 / 100.0 + 0.5, 0, 255)
                  : rule == Rule::kLabAB ? TruncClamp(std::trunc(v + 0.5) + 128.0, 0, 255)
                                         : TruncClamp(v * 255.0 + 0.5, 0, 255);
      Store<uint8_t>(dst, i, uint8_t(b));
    } else {
      uint16_t w = rule == Rule::kLabL ? DoubleTo16(v * 65535.0 / 100.0)
                   : rule == Rule::kLabAB
                       ? uint16_t(TruncClamp(std::trunc(v * 256.0 + 0.5) + 128.0, 0, 65535))
                       : DoubleTo16(v * 65535.0);
      Store<uint16_t>(dst, i, w);
    }
  }
}

}  // namespace

int32_t KeltoSwatchbook::GetNumCompsForSpace(int32_t space) {
  switch (space) {
    case kColorSpaceGray:
      return 1;
    case kColorSpaceLAB:
    case kColorSpaceRGB:
    case kColorSpaceXYZ:
      return 3;
    case kColorSpaceCMYK:
      return 4;
  }
  return 0;  // kColorSpaceNone sets its channel count freely
}

bool KeltoSwatchbook::IsValidColorSpace(int32_t space) {
  return space >= kColorSpaceNone && space <= kColorSpaceXYZ;
}

bool KeltoSwatchbook::IsValidEncoding(int32_t encoding) {
  return encoding >= kEncoding8Bit && encoding <= kEncodingDouble;
}

bool KeltoSwatchbook::IsValidFormat(int32_t format) {
  return format >= 0 && format < GetNumFormats();
}

int32_t KeltoSwatchbook::TranslateEncoding(int32_t space, int32_t fromEncoding, const void* source,
                                           int32_t toEncoding, void* destination) {
  int32_t n = GetNumCompsForSpace(space);
  if (n == 0) return 0;
  if (fromEncoding == toEncoding) {
    std::memmove(destination, source, size_t(n) * size_t(ComponentSize(fromEncoding)));
    return 1;
  }
  if (!IsValidEncoding(fromEncoding) || !IsValidEncoding(toEncoding)) return 1;
  for (int32_t i = 0; i < n; ++i) {
    Rule rule = space == kColorSpaceLAB    ? (i == 0 ? Rule::kLabL : Rule::kLabAB)
                : space == kColorSpaceCMYK ? Rule::kCMYK
                                           : Rule::kPlain;
    TranslateOne(rule, fromEncoding, source, toEncoding, destination, i);
  }
  return 1;
}

int32_t KeltoSwatchbook::AddColorValues(int32_t swatch, int32_t format, Encoding encoding,
                                        const void* values) {
  Encoding formatEncoding = GetFormatEncoding(format);
  if (formatEncoding == encoding) return AddColorValues(swatch, format, values);
  // A translation writes GetNumCompsForSpace components, at most 4 of at
  // most 8 bytes: 32 bytes always hold them.
  double translated[4] = {0, 0, 0, 0};
  if (!TranslateEncoding(GetFormatColorSpace(format), encoding, values, formatEncoding, translated))
    return 0;
  return AddColorValues(swatch, format, static_cast<const void*>(translated));
}

int32_t KeltoSwatchbook::AddColorValues(int32_t swatch, int32_t format, const double* values) {
  return AddColorValues(swatch, format, kEncodingDouble, values);
}

int32_t KeltoSwatchbook::AddColorValues(int32_t swatch, int32_t format,
                                        const unsigned char* values) {
  return AddColorValues(swatch, format, kEncoding8Bit, values);
}

int32_t KeltoSwatchbook::AddColorValues(int32_t swatch, int32_t format, const uint16_t* values) {
  return AddColorValues(swatch, format, kEncoding16Bit, values);
}

int32_t KeltoSwatchbook::GetColorValues(int32_t swatch, int32_t format, Encoding encoding,
                                        void* out) {
  Encoding formatEncoding = GetFormatEncoding(format);
  if (formatEncoding == encoding) return GetColorValues(swatch, format, out);
  ColorSpace space = GetFormatColorSpace(format);
  // Only spaces with a fixed component count (at most 4) translate, and the
  // store writes no more components than the format has.
  if (GetNumCompsForSpace(space) == 0 || GetFormatNumChannels(format) > 4) return 0;
  double stored[4] = {0, 0, 0, 0};
  if (!GetColorValues(swatch, format, static_cast<void*>(stored))) return 0;
  return TranslateEncoding(space, formatEncoding, stored, encoding, out);
}

int32_t KeltoSwatchbook::GetColorValues(int32_t swatch, int32_t format, double* out) {
  return GetColorValues(swatch, format, kEncodingDouble, out);
}

int32_t KeltoSwatchbook::FindFormatByID(const XMLString& id) {
  for (int32_t i = 0; i < GetNumFormats(); ++i)
    if (GetFormatID(i, 1) == id) return i;
  return -1;
}

namespace {

int32_t SpaceRank(int32_t space) {
  switch (space) {
    case KeltoSwatchbook::kColorSpaceLAB:
      return 3;
    case KeltoSwatchbook::kColorSpaceRGB:
      return 2;
    case KeltoSwatchbook::kColorSpaceCMYK:
      return 1;
  }
  return 0;
}

int32_t EncodingRank(int32_t encoding) {
  return KeltoSwatchbook::IsValidEncoding(encoding) ? encoding : 0;
}

}  // namespace

int32_t KeltoSwatchbook::GetBestFormat(int32_t swatch, int32_t space) {
  if (swatch < 0 || swatch >= GetNumSwatches()) return 0;
  int32_t listed = GetSwatchFormats(swatch, nullptr);
  if (listed <= 0) return -1;
  std::vector<int32_t> formats(size_t(listed), -1);
  GetSwatchFormats(swatch, formats.data());
  int32_t best = -1;
  int32_t bestSpace = 0;
  int32_t bestEncoding = 0;
  for (int32_t f : formats) {
    int32_t s = GetFormatColorSpace(f);
    int32_t e = GetFormatEncoding(f);
    if (space != 0 && s != space) continue;
    bool take = best == -1;
    if (!take) {
      if (space == 0 && s != bestSpace) {
        if (SpaceRank(s) < SpaceRank(bestSpace)) continue;
        take = SpaceRank(s) > SpaceRank(bestSpace);
      }
      if (!take && e != bestEncoding) take = EncodingRank(e) > EncodingRank(bestEncoding);
    }
    if (take) {
      best = f;
      bestSpace = s;
      bestEncoding = e;
    }
  }
  return best;
}

XMLString KeltoSwatchbook::RemovePrefixPostfix(const XMLString& name) {
  XMLString prefix = GetPrefix();
  XMLString postfix = GetPostfix();
  int32_t length = name.Length();
  int32_t p = prefix.Length();
  int32_t q = postfix.Length();
  if (length > p + q && name.BeginsWith(prefix) && name.EndsWith(postfix))
    return name.SubString(p, length - p - q);
  return XMLString();
}

int32_t KeltoSwatchbook::FindSwatchByName(const XMLString& name, uint32_t strip,
                                          uint32_t mapSuffix) {
  return FindSwatchByName(name, strip, mapSuffix, 0);
}

int32_t KeltoSwatchbook::FindSwatchByName(const XMLString& name, uint32_t strip, uint32_t mapSuffix,
                                          int32_t start) {
  XMLString key = name;
  if (strip) {
    XMLString mapped;
    if (mapSuffix) {
      int32_t book = GetBookID();
      const char* from = book == kBookCoatedSuffix     ? "CVC"
                         : book == kBookUncoatedSuffix ? "CVU"
                                                       : nullptr;
      if (from && name.EndsWith(XMLString(from))) {
        XMLString rewritten =
            name.SubString(0, name.Length() - 3) + XMLString(book == kBookCoatedSuffix ? "C" : "U");
        mapped = RemovePrefixPostfix(rewritten);
      }
    }
    key = mapped.Length() > 0 ? mapped : RemovePrefixPostfix(name);
    if (key.Length() == 0) return -1;
  }
  int32_t count = GetNumSwatches();
  if (start >= count || start < 0) start = 0;
  for (int32_t k = 0; k < count; ++k) {
    int32_t i = start + k < count ? start + k : start + k - count;  // wraps round to the start
    if (GetSwatchName(i, 0) == key) return i;
  }
  return -1;
}

KeltoSwatchbookFormat::KeltoSwatchbookFormat()
    : rows_(sizeof(FormatRow), kRowHeapBytes, kRowHeapBytes) {}

namespace {

FormatRow LoadRow(const KeltoSwatchbookHeap& rows, int32_t i) {
  FormatRow r;
  std::memcpy(&r, rows.GetData(i), sizeof r);
  return r;
}

void StoreRow(KeltoSwatchbookHeap& rows, int32_t i, const FormatRow& r) {
  std::memcpy(rows.GetData(i), &r, sizeof r);
}

// Stores one of a row's texts; the old text stays in the pool (SetString
// never frees it).
int32_t SetRowString(KeltoSwatchbookHeap& rows, XMLStringHeap& strings, int32_t format,
                     uint32_t FormatRow::*id, const XMLString& text) {
  FormatRow row = LoadRow(rows, format);
  strings.SetString(row.*id, text);
  StoreRow(rows, format, row);
  return 1;
}

}  // namespace

void KeltoSwatchbookFormat::Clear() {
  rows_.Clear();
}

void KeltoSwatchbookFormat::Compact() {
  strings_.CompactStringHeap();
  strings_.RemoveExtraStorage();
  rows_.RemoveExtraStorage();
}

int32_t KeltoSwatchbookFormat::GetNumFormats() {
  return rows_.GetSize();
}

KeltoSwatchbook::ColorSpace KeltoSwatchbookFormat::GetFormatColorSpace(int32_t format) {
  return IsValidFormat(format) ? ColorSpace(LoadRow(rows_, format).colorSpace) : ColorSpace(0);
}

KeltoSwatchbook::Encoding KeltoSwatchbookFormat::GetFormatEncoding(int32_t format) {
  return IsValidFormat(format) ? Encoding(LoadRow(rows_, format).encoding) : Encoding(0);
}

int32_t KeltoSwatchbookFormat::GetFormatNumChannels(int32_t format) {
  return IsValidFormat(format) ? LoadRow(rows_, format).numChannels : 0;
}

XMLString KeltoSwatchbookFormat::GetFormatCondition(int32_t format) {
  if (!IsValidFormat(format)) return XMLString();
  return strings_.GetStringFromID(LoadRow(rows_, format).conditionID);
}

XMLString KeltoSwatchbookFormat::GetFormatColorSpaceString(int32_t format, uint32_t useDefault) {
  if (!IsValidFormat(format)) return XMLString();
  FormatRow row = LoadRow(rows_, format);
  XMLString text = strings_.GetStringFromID(row.colorSpaceStringID);
  if (text.Length() > 0 || !useDefault) return text;
  switch (row.colorSpace) {
    case kColorSpaceLAB:
      return XMLString(kValueLAB);
    case kColorSpaceRGB:
      return XMLString(kValueRGB);
    case kColorSpaceCMYK:
      return XMLString(kValueCMYK);
    case kColorSpaceXYZ:
      return XMLString(kValueXYZ);
  }
  return text;
}

XMLString KeltoSwatchbookFormat::GetFormatID(int32_t format, uint32_t useDefault) {
  if (!IsValidFormat(format)) return XMLString();
  XMLString text = strings_.GetStringFromID(LoadRow(rows_, format).formatID);
  if (text.Length() > 0 || !useDefault) return text;
  char decimal[16];
  std::snprintf(decimal, sizeof decimal, "%d", int(format));
  return XMLString(decimal);
}

int32_t KeltoSwatchbookFormat::AddFormat() {
  FormatRow zero{};
  return rows_.AppendData(&zero, 1);
}

int32_t KeltoSwatchbookFormat::SetFormatColorSpace(int32_t format, ColorSpace space) {
  if (!IsValidFormat(format) || !IsValidColorSpace(space)) return 0;
  FormatRow row = LoadRow(rows_, format);
  row.colorSpace = space;
  if (GetNumCompsForSpace(space) >= 1) row.numChannels = GetNumCompsForSpace(space);
  StoreRow(rows_, format, row);
  return 1;
}

int32_t KeltoSwatchbookFormat::SetFormatEncoding(int32_t format, Encoding encoding) {
  if (!IsValidFormat(format) || !IsValidEncoding(encoding)) return 0;
  FormatRow row = LoadRow(rows_, format);
  row.encoding = encoding;
  StoreRow(rows_, format, row);
  return 1;
}

int32_t KeltoSwatchbookFormat::SetFormatNumChannels(int32_t format, int32_t channels) {
  if (!IsValidFormat(format) || channels < 0) return 0;
  FormatRow row = LoadRow(rows_, format);
  if (GetNumCompsForSpace(row.colorSpace) != 0) return 0;  // fixed by the space
  row.numChannels = channels;
  StoreRow(rows_, format, row);
  return 1;
}

int32_t KeltoSwatchbookFormat::SetFormatCondition(int32_t format, const XMLString& condition) {
  if (!IsValidFormat(format)) return 0;
  return SetRowString(rows_, strings_, format, &FormatRow::conditionID, condition);
}

int32_t KeltoSwatchbookFormat::SetFormatColorSpaceString(int32_t format, const XMLString& text) {
  if (!IsValidFormat(format)) return 0;
  return SetRowString(rows_, strings_, format, &FormatRow::colorSpaceStringID, text);
}

int32_t KeltoSwatchbookFormat::SetFormatID(int32_t format, const XMLString& id) {
  if (!IsValidFormat(format)) return 0;
  return SetRowString(rows_, strings_, format, &FormatRow::formatID, id);
}
