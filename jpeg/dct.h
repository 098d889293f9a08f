// Forward DCT and quantisation of one 8×8 block.
#ifndef QL_JPEG_DCT_H
#define QL_JPEG_DCT_H

#include <array>
#include <cstdint>

namespace ZJPEG {

struct QuantSlot {
  uint8_t inUse = 0;
  float divisors[64] = {};       // natural order
  int32_t reciprocals[64] = {};  // 65536 / divisor, rounded
  // The reciprocals transposed (column c, row r at c·8 + r), the order in
  // which the second pass of the transform leaves its results.
  int32_t transposedReciprocals[64] = {};
};

// Position of each zigzag coefficient in the transposed result of the
// transform's second pass.
inline constexpr auto kZigzagTransposed = [] {
  std::array<uint8_t, 64> t{};
  constexpr uint8_t zz[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                              12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                              35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                              58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};
  for (int k = 0; k < 64; ++k) t[k] = static_cast<uint8_t>((zz[k] % 8) * 8 + zz[k] / 8);
  return t;
}();

// Fills the divisors and reciprocals from a table of 64 divisors (natural order).
void PrepareQuantSlot(QuantSlot& slot, const uint16_t table[64]);

// Transforms `block` (64 level-shifted samples with 8 fractional bits, natural
// order) and overwrites it with the quantised coefficients in zigzag order.
// `work` is 64 scratch values. Returns 63, the last zigzag index.
int DCTInteger(int16_t* block, const QuantSlot& slot, int32_t* work);

}  // namespace ZJPEG

#endif  // QL_JPEG_DCT_H
