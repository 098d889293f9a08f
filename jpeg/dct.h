// Forward DCT and quantisation of one 8×8 block.
#ifndef QL_JPEG_DCT_H
#define QL_JPEG_DCT_H

#include <cstdint>

namespace ZJPEG {

struct QuantSlot {
  uint8_t inUse = 0;
  float divisors[64] = {};       // natural order
  int32_t reciprocals[64] = {};  // 65536 / divisor, rounded
};

// Fills the divisors and reciprocals from a table of 64 divisors (natural order).
void PrepareQuantSlot(QuantSlot& slot, const uint16_t table[64]);

// Transforms `block` (64 level-shifted samples with 8 fractional bits, natural
// order) and overwrites it with the quantised coefficients in zigzag order.
// `work` is 64 scratch values. Returns 63, the last zigzag index.
int DCTInteger(int16_t* block, const QuantSlot& slot, int32_t* work);

}  // namespace ZJPEG

#endif  // QL_JPEG_DCT_H
