// The bit gatherer of the entropy coder, shared by the plain and the vector
// block coders. Its functions are always inlined, so each coder's copy is
// compiled for that coder's instruction set.
#ifndef QL_JPEG_BITS_H
#define QL_JPEG_BITS_H

#include <bit>
#include <cstdint>
#include <cstring>

namespace ZJPEG {

#define QL_JPEG_ALWAYS_INLINE inline __attribute__((always_inline))

// Most bytes one block can take: 64 symbols of at most 32 bits (code and
// value bits together), 64 bits held from before, every byte stuffed, and
// the last 64-bit word stored whole.
inline constexpr uint32_t kBlockBytes = 2 * (64 * 4 + 8) + 8;

// Stores a full 64-bit word of the scan at `p`, oldest byte first, stuffing
// a 0x00 after every 0xFF byte, and answers the next free byte. The common
// case, no 0xFF byte, is one store; the test also fires for a 0xFE byte
// above a 0xFF one, which the byte loop then writes unstuffed.
QL_JPEG_ALWAYS_INLINE uint8_t* StoreWord(uint8_t* p, uint64_t word) {
  const uint64_t x = ~word;  // a 0xFF byte of the word is a zero byte of x
  if (((x - 0x0101010101010101u) & ~x & 0x8080808080808080u) == 0) {
    const uint64_t big = __builtin_bswap64(word);
    std::memcpy(p, &big, 8);
    return p + 8;
  }
  for (int shift = 56; shift >= 0; shift -= 8) {
    const uint8_t b = static_cast<uint8_t>(word >> shift);
    *p++ = b;
    if (b == 0xFF) *p++ = 0;
  }
  return p;
}

// The AC part of one zigzag block from its nonzero mask (bit k set:
// coefficient k is nonzero; bit 0, the DC term, is ignored): for each
// nonzero coefficient k, zeroRun16() once per 16 zeros of the run before it
// beyond 15 (ZRL), then coefficient(run, k) with the rest of the run, 0…15.
// Answers whether zeros end the block, so an EOB is due. Both block coders
// walk blocks through it, so they emit the same symbols by construction.
template <class ZeroRun16, class Coefficient>
QL_JPEG_ALWAYS_INLINE bool WalkACRuns(uint64_t nonzero, ZeroRun16 zeroRun16,
                                      Coefficient coefficient) {
  // Bit i of `rest`: coefficient `at` + i is nonzero. Only 63 bits, so a
  // run and its coefficient shift out together in one shift below 64.
  uint64_t rest = nonzero >> 1;
  uint32_t at = 1;
  while (rest) {
    uint32_t run = static_cast<uint32_t>(std::countr_zero(rest));
    rest >>= run + 1;
    const uint32_t k = at + run;
    at = k + 1;
    if (__builtin_expect(run >= 16, 0)) {
      for (; run >= 16; run -= 16) zeroRun16();
    }
    coefficient(run, k);
  }
  return (nonzero >> 63) == 0;
}

// Bits gathered in a 64-bit word over a byte pointer with room for all
// that is put.
struct BitState {
  uint64_t acc;  // the low 64 − free bits are held, oldest highest
  int free;      // 0…64
  uint8_t* p;

  // `code` holds `length` (0…32) bits and none above them.
  QL_JPEG_ALWAYS_INLINE void Put(uint64_t code, int length) {
    free -= length;
    if (free >= 0) {
      acc = (acc << length) | code;
      return;
    }
    // The word fills up part way through the code: its top bits complete
    // the word, the rest starts the next one (the bits above them shift
    // out before that word is stored).
    p = StoreWord(p, (acc << (length + free)) | (code >> -free));
    free += 64;
    acc = code;
  }
};

}  // namespace ZJPEG

#endif  // QL_JPEG_BITS_H
