// The bit gatherer of the entropy coder and the walk from a block to its
// symbols, shared by the plain and the vector block coders. Its functions are
// always inlined, so each coder's copy is compiled for that coder's
// instruction set.
#ifndef QL_JPEG_BITS_H
#define QL_JPEG_BITS_H

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "jpeg/huffman.h"

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

// The symbols of one zigzag block, in order: symbols.Dc(size, value bits),
// then symbols.Ac(symbol, size, value bits) for each AC symbol, ZRL and EOB
// with no value bits. `nonzero` is the block's nonzero mask (as for
// WalkACRuns); acBits(k, size) answers the value bits of nonzero AC
// coefficient k and sets `size` to its size category. Each coder brings its
// own nonzero mask and value bits, so both coders emit the same symbols by
// construction.
template <class AcBits, class Symbols>
QL_JPEG_ALWAYS_INLINE void WalkBlockSymbols(const int16_t* block, int16_t& predictor,
                                            uint64_t nonzero, AcBits acBits, Symbols& symbols) {
  constexpr uint32_t kZRL = 0xF0, kEOB = 0x00;
  const int32_t diff = block[0] - predictor;
  predictor = block[0];
  const uint32_t dcSize =
      static_cast<uint32_t>(std::bit_width(static_cast<uint32_t>(std::abs(diff))));
  // Negative values are coded as v − 1, of which the low `size` bits are kept.
  symbols.Dc(dcSize, static_cast<uint32_t>(diff + (diff >> 31)) & ((uint32_t{1} << dcSize) - 1));

  // Only the nonzero coefficients are visited: on flat areas most of a block
  // is zero.
  const bool endOfBlock = WalkACRuns(
      nonzero, [&]() __attribute__((always_inline)) { symbols.Ac(kZRL, 0, 0); },
      [&](uint32_t run, uint32_t k) __attribute__((always_inline)) {
        uint32_t size = 0;
        const uint32_t value = acBits(k, size);
        symbols.Ac(((run << 4) | size) & 0xFF, size, value);
      });
  if (endOfBlock) symbols.Ac(kEOB, 0, 0);
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

// Symbols coded with a block's tables into the gathered bits.
struct SymbolCoder {
  BitState& bits;
  const FrameHuffman& dc;
  const FrameHuffman& ac;

  // Code (up to 16 bits) and value bits as one field.
  QL_JPEG_ALWAYS_INLINE void Dc(uint32_t size, uint32_t value) {
    bits.Put((uint32_t{dc.codeBySymbol[size]} << size) | value,
             dc.lengthBySymbol[size] + static_cast<int>(size));
  }
  QL_JPEG_ALWAYS_INLINE void Ac(uint32_t symbol, uint32_t size, uint32_t value) {
    bits.Put((uint32_t{ac.codeBySymbol[symbol]} << size) | value,
             ac.lengthBySymbol[symbol] + static_cast<int>(size));
  }
};

// Symbols counted in a block's tables.
struct SymbolCounter {
  FrameHuffman& dc;
  FrameHuffman& ac;

  QL_JPEG_ALWAYS_INLINE void Dc(uint32_t size, uint32_t) { ++dc.frequency[size]; }
  QL_JPEG_ALWAYS_INLINE void Ac(uint32_t symbol, uint32_t, uint32_t) { ++ac.frequency[symbol]; }
};

}  // namespace ZJPEG

#endif  // QL_JPEG_BITS_H
