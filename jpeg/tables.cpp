// Quantisation rows, zigzag order and the integer colour tables.
//
// Only rows 0, 6 and 12 of the quality tables are fixed; the others are
// derived here from them: rows 1..5 step linearly from row 0 to row 6; rows 7
// and 8 are row 6 made deliberately coarser (which pays for dropping chroma
// subsampling at quality 7), and rows 9..11 step from row 8 to row 12.
#include "jpeg/tables.h"

#include <array>

#include "jpeg/vector.h"
#include "jpeg/zjpeg.h"

namespace ZJPEG {

namespace {

using Row = std::array<uint16_t, 64>;

constexpr Row kLum12 = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                        1, 2, 1, 1, 1, 1, 1, 1, 2, 2, 1, 1, 1, 1, 1, 2, 2, 3, 1, 1, 1, 1,
                        2, 2, 3, 3, 1, 1, 1, 2, 2, 3, 3, 3, 1, 1, 2, 2, 3, 3, 3, 3};
constexpr Row kChr12 = {1, 1, 1, 1, 2, 3, 3, 3, 1, 1, 1, 2, 3, 3, 3, 3, 1, 1, 1, 3, 3, 3,
                        3, 3, 1, 2, 3, 3, 3, 3, 3, 3, 2, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3,
                        3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3};
constexpr Row kLum6 = {8,  6,  6,  8,  12, 14, 16, 17, 6,  6,  6,  8,  10, 13, 12, 12,
                       6,  6,  7,  8,  13, 12, 12, 12, 8,  8,  8,  14, 12, 12, 12, 12,
                       12, 10, 13, 12, 12, 12, 12, 12, 14, 13, 12, 12, 12, 12, 12, 12,
                       16, 12, 12, 12, 12, 12, 12, 12, 17, 12, 12, 12, 12, 12, 12, 12};
constexpr Row kChr6 = {9,  8,  9,  11, 14, 17, 17, 17, 8,  10, 9,  11, 14, 12, 12, 12,
                       9,  9,  13, 14, 12, 12, 12, 12, 11, 11, 14, 12, 12, 12, 12, 12,
                       14, 14, 12, 12, 12, 12, 12, 12, 17, 12, 12, 12, 12, 12, 12, 12,
                       17, 12, 12, 12, 12, 12, 12, 12, 17, 12, 12, 12, 12, 12, 12, 12};
constexpr Row kLum0 = {32, 33, 51, 81, 66, 39, 34, 17, 33, 36, 48, 47, 28, 23, 12, 12,
                       51, 48, 47, 28, 23, 12, 12, 12, 81, 47, 28, 23, 12, 12, 12, 12,
                       66, 28, 23, 12, 12, 12, 12, 12, 39, 23, 12, 12, 12, 12, 12, 12,
                       34, 12, 12, 12, 12, 12, 12, 12, 17, 12, 12, 12, 12, 12, 12, 12};
constexpr Row kChr0 = {34, 51, 52, 34, 20, 20, 17, 17, 51, 38, 24, 14, 14, 12, 12, 12,
                       52, 24, 14, 14, 12, 12, 12, 12, 34, 14, 14, 12, 12, 12, 12, 12,
                       20, 14, 12, 12, 12, 12, 12, 12, 20, 12, 12, 12, 12, 12, 12, 12,
                       17, 12, 12, 12, 12, 12, 12, 12, 17, 12, 12, 12, 12, 12, 12, 12};

// Rows 7 and 8 pay for full-resolution chroma with coarser low frequencies
// than row 6: divisors below 12 grow by a quarter for row 7 (8 6 6 8 → 10 7 7
// 10, rounded down) and by an eighth for row 8 (→ 9 7 7 9, rounded up so that
// each of them grows); rows 9 to 11 then step evenly from row 8 to row 12.
constexpr Row Coarser(const Row& r, int num, int den, bool roundUp) {
  Row out{};
  for (int i = 0; i < 64; ++i) {
    int v = r[i] * num + (roundUp ? den - 1 : 0);
    out[i] = r[i] < 12 ? static_cast<uint16_t>(v / den) : r[i];
  }
  return out;
}

// Step `k` of `steps` from `a` to `b`, rounded to nearest.
constexpr Row Between(const Row& a, const Row& b, int k, int steps) {
  Row out{};
  for (int i = 0; i < 64; ++i) {
    int v = a[i] * (steps - k) + b[i] * k;
    out[i] = static_cast<uint16_t>((v + steps / 2) / steps);
  }
  return out;
}

constexpr QualityRows Build(const Row& r0, const Row& r6, const Row& r12) {
  QualityRows t{};
  const Row r7 = Coarser(r6, 5, 4, false);
  const Row r8 = Coarser(r6, 9, 8, true);
  for (int q = 0; q <= 6; ++q) {
    Row r = Between(r0, r6, q, 6);
    for (int i = 0; i < 64; ++i) t.rows[q][i] = r[i];
  }
  for (int q = 7; q <= 12; ++q) {
    Row r = q == 7 ? r7 : q == 12 ? r12 : Between(r8, r12, q - 8, 4);
    for (int i = 0; i < 64; ++i) t.rows[q][i] = r[i];
  }
  return t;
}

// Annex K example tables (natural order), for DefaultQuality().
constexpr uint16_t kAnnexKLum[64] = {16,  11,  10,  16,  24, 40, 51,  61,  12,  12,  14,  19,  26,
                                     58,  60,  55,  14,  13, 16, 24,  40,  57,  69,  56,  14,  17,
                                     22,  29,  51,  87,  80, 62, 18,  22,  37,  56,  68,  109, 103,
                                     77,  24,  35,  55,  64, 81, 104, 113, 92,  49,  64,  78,  87,
                                     103, 121, 120, 101, 72, 92, 95,  98,  112, 100, 103, 99};
constexpr uint16_t kAnnexKChr[64] = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99, 99,
    99, 99, 47, 66, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

void BuildColorTables(ColorTables& t) {
  for (int32_t i = 0; i < 256; ++i) {
    t.ry[i] = kRY * i;
    t.gy[i] = kGY * i;
    t.by[i] = kBY * i;
    t.rcb[i] = kRCb * i;
    t.gcb[i] = kGCb * i;
    t.bcb[i] = kBCb * i;
    t.rcr[i] = kRCr * i;
    t.gcr[i] = kGCr * i;
    t.bcr[i] = kBCr * i;
  }
}

ColorTables BuiltColorTables() {
  ColorTables t;
  BuildColorTables(t);
  return t;
}

}  // namespace

const uint8_t kZigzag[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                             12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                             35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                             58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

const uint8_t k2to1s[13] = {1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0};

constinit const QualityRows kLuminanceQPS = Build(kLum0, kLum6, kLum12);
constinit const QualityRows kChrominanceQPS = Build(kChr0, kChr6, kChr12);
const uint16_t (&kAnnexKLuminance)[64] = kAnnexKLum;
const uint16_t (&kAnnexKChrominance)[64] = kAnnexKChr;

ColorTables gColorTables = BuiltColorTables();

bool InitializeJPEGEncoder() {
  BuildColorTables(gColorTables);
  return VectorPathByDefault();
}

}  // namespace ZJPEG
