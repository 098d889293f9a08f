// Huffman table construction (the Annex K procedure of the JPEG standard) and
// entropy coding.
//
// Code lengths come from repeatedly merging the two least frequent entries;
// ties go to the higher symbol number. Symbol 256 is reserved with a count of
// 1 so that it takes the longest code: dropping it afterwards guarantees that
// no real code is all one bits. Lengths above 16 are then folded down pairwise
// (adjust_bits) while the symbol order stays that of the unlimited lengths.
// Codes are canonical. The packer gathers bits in a 64-bit word, stores it
// whole once full and stuffs a 0x00 after every 0xFF byte of the scan.
#include "jpeg/huffman.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "jpeg/bits.h"
#include "jpeg/vector.h"

namespace ZJPEG {

namespace {

// Low `size` bits of a coefficient as JPEG codes it: negative values as v − 1.
inline uint32_t ValueBits(int32_t v, uint32_t size) {
  const uint32_t bits = static_cast<uint32_t>(v + (v >> 31));  // v − 1 when negative
  return bits & ((uint32_t{1} << size) - 1);
}

// Size category of a magnitude: its bit count, 0 for 0.
inline uint32_t Size(uint32_t magnitude) {
  return static_cast<uint32_t>(std::bit_width(magnitude));
}

// Bit k set when AC coefficient k (1…63) is nonzero.
inline uint64_t NonzeroMask(const int16_t* block) {
  uint64_t mask = 0;
#if defined(__SSE2__)
  // Eight coefficients per compare; the byte mask of each group is its 8 bits.
  const __m128i zero = _mm_setzero_si128();
  for (int g = 0; g < 8; ++g) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + g * 8));
    const __m128i isZero = _mm_cmpeq_epi16(v, zero);
    const uint32_t zeros =
        static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(isZero, isZero)));
    mask |= uint64_t{~zeros & 0xFFu} << (g * 8);
  }
#else
  for (int k = 0; k < 64; ++k) mask |= uint64_t{block[k] != 0} << k;
#endif
  return mask & ~uint64_t{1};  // the DC term is coded apart
}

}  // namespace

uint8_t Category(uint32_t magnitude) {
  return static_cast<uint8_t>(Size(magnitude));
}

void FrameHuffman::code_size() {
  // Merged counts are kept in 64 bits: the sum of a large image's counts can
  // pass 2^32. Trees deeper than 32 (only from adversarial counts) are rebuilt
  // from halved counts so that every length fits the 33-entry `bits`.
  uint64_t scale = 0;
  for (;;) {
    int sizes[257] = {};
    for (auto& o : others) o = -1;
    // Symbols still to merge in a binary min-heap of keys that order by
    // count, then the higher symbol first among equal counts: count << 9
    // with 511 − symbol below. That is the pair a full scan with "less or
    // equal" would pick, at log cost instead of a scan per merge; the keys
    // are distinct, so the order of merges is fixed. Counts stay below 2^41,
    // far inside the key.
    // One entry past the live ones is always the largest key, so a sift can
    // pick the smaller child without asking whether the right one is live.
    uint64_t heap[258];
    int live = 0;
    for (int i = 0; i < 257; ++i) {
      if (!frequency[i]) continue;
      const uint64_t count = std::max<uint64_t>(1, uint64_t{frequency[i]} >> scale);
      heap[live++] = (count << 9) | static_cast<uint64_t>(511 - i);
    }
    heap[live] = ~uint64_t{0};
    auto siftDown = [&heap, &live](int at) {
      const uint64_t key = heap[at];
      for (int child = 2 * at + 1; child < live; child = 2 * at + 1) {
        child += heap[child + 1] < heap[child];  // a select, not a branch
        if (heap[child] >= key) break;
        heap[at] = heap[child];
        at = child;
      }
      heap[at] = key;
    };
    for (int at = live / 2 - 1; at >= 0; --at) siftDown(at);
    while (live > 1) {
      const uint64_t first = heap[0];
      heap[0] = heap[--live];
      heap[live] = ~uint64_t{0};
      siftDown(0);
      const uint64_t second = heap[0];
      // The merged entry keeps the first symbol; it replaces the second.
      heap[0] = (((first >> 9) + (second >> 9)) << 9) | (first & 511);
      siftDown(0);
      int c1 = 511 - static_cast<int>(first & 511);
      int c2 = 511 - static_cast<int>(second & 511);
      ++sizes[c1];
      while (others[c1] >= 0) ++sizes[c1 = others[c1]];
      others[c1] = static_cast<int16_t>(c2);
      ++sizes[c2];
      while (others[c2] >= 0) ++sizes[c2 = others[c2]];
    }
    bool fits = true;
    for (int i = 0; i < 257; ++i) fits = fits && sizes[i] <= 32;
    if (fits) {
      for (int i = 0; i < 257; ++i) codeSize[i] = static_cast<uint8_t>(sizes[i]);
      return;
    }
    ++scale;
  }
}

void FrameHuffman::count_bits() {
  for (auto& b : bits) b = 0;
  for (int i = 0; i < 257; ++i) {
    if (codeSize[i]) ++bits[codeSize[i]];
  }
}

void FrameHuffman::adjust_bits() {
  for (int i = 32; i > 16; --i) {
    while (bits[i] > 0) {
      int j = i - 2;
      while (j > 0 && bits[j] == 0) --j;
      if (j == 0) break;  // not a complete tree: nothing to fold into
      bits[i] -= 2;
      bits[i - 1] += 1;
      bits[j + 1] += 2;
      bits[j] -= 1;
    }
  }
  int i = 16;
  while (i > 0 && bits[i] == 0) --i;
  if (i > 0) --bits[i];  // the reserved symbol's code
}

void FrameHuffman::sort_input() {
  // A counting sort: rising length, then rising symbol, in one pass over
  // the symbols instead of one per length.
  int next[34] = {};
  for (int s = 0; s < 256; ++s) ++next[codeSize[s] + 1];
  next[1] = 0;  // unused symbols (length 0) take no place
  for (int length = 2; length <= 33; ++length) next[length] += next[length - 1];
  for (int s = 0; s < 256; ++s) {
    if (codeSize[s]) values[next[codeSize[s]]++] = static_cast<uint8_t>(s);
  }
}

void FrameHuffman::generate_size_table() {
  int k = 0;
  for (int length = 1; length <= 16; ++length) {
    for (int n = 0; n < bits[length] && k < 256; ++n) sizeList[k++] = static_cast<uint8_t>(length);
  }
  sizeList[k] = 0;
  last = static_cast<uint16_t>(k);
}

void FrameHuffman::generate_code_table() {
  int k = 0;
  uint32_t code = 0;
  uint32_t size = sizeList[0];
  while (sizeList[k]) {
    while (sizeList[k] == size) codeList[k++] = static_cast<uint16_t>(code++);
    code <<= 1;
    ++size;
  }
}

void FrameHuffman::order_codes() {
  for (auto& l : lengthBySymbol) l = 0;
  for (int k = 0; k < last; ++k) {
    codeBySymbol[values[k]] = codeList[k];
    lengthBySymbol[values[k]] = sizeList[k];
  }
}

void FrameHuffman::Generate() {
  code_size();
  count_bits();
  adjust_bits();
  sort_input();
  generate_size_table();
  generate_code_table();
  order_codes();
}

namespace {

// The symbols of one zigzag block (see WalkBlockSymbols), straight from the
// coefficients.
template <class Symbols>
inline void WalkBlock(const int16_t* block, int16_t& predictor, Symbols& symbols) {
  WalkBlockSymbols(
      block, predictor, NonzeroMask(block),
      [block](uint32_t k, uint32_t& size) {
        const int32_t v = block[k];
        size = Size(static_cast<uint32_t>(std::abs(v)));
        return ValueBits(v, size);
      },
      symbols);
}

void CodeBlock(BitState& bits, const CodedBlock& b) {
  SymbolCoder coder{bits, *b.dc, *b.ac};
  WalkBlock(b.coefficients, *b.predictor, coder);
}

}  // namespace

void AddBlockToHuffman(const int16_t* block, int16_t& predictor, FrameHuffman& dc,
                       FrameHuffman& ac) {
  SymbolCounter counter{dc, ac};
  WalkBlock(block, predictor, counter);
}

void CountBlocks(const CodedBlock* blocks, size_t count, bool vector) {
  if (vector) {
    CountBlocksVector(blocks, count);
    return;
  }
  for (size_t i = 0; i < count; ++i) {
    const CodedBlock& b = blocks[i];
    AddBlockToHuffman(b.coefficients, *b.predictor, *b.dc, *b.ac);
  }
}

template <uint32_t kMostBytes, typename Code>
void BitPacker::Write(Code code) {
  JPEGOutputStream& s = *out_;
  if (s.capacity - s.count < kMostBytes && !s.failed) s.DumpBuffer();
  // Straight into the stream's buffer when it has room for the most the
  // coder can write; else (a small caller buffer, or a failed sink, which
  // drops the bytes) into scratch, handed over byte by byte.
  const bool direct = !s.failed && s.capacity - s.count >= kMostBytes;
  uint8_t scratch[kMostBytes];
  // The held bits live in locals: stores into the output buffer may alias
  // any member, which would send every update through memory.
  BitState bits{acc_, free_, direct ? s.buffer + s.count : scratch};
  code(bits);
  acc_ = bits.acc;
  free_ = bits.free;
  if (direct) {
    s.count = static_cast<uint32_t>(bits.p - s.buffer);
  } else {
    for (const uint8_t* b = scratch; b < bits.p; ++b) s.PutByte(*b);
  }
}

void BitPacker::OutputBlocks(const CodedBlock* blocks, size_t count) {
  JPEGOutputStream& s = *out_;
  while (count > 0) {
    if (s.capacity - s.count < kBlockBytes && !s.failed) s.DumpBuffer();
    // As many blocks as surely fit go straight into the stream's buffer.
    const size_t fit = s.failed ? 0 : (s.capacity - s.count) / kBlockBytes;
    const size_t n = std::min(count, fit);
    if (n == 0) {
      // A small caller buffer, or a failed sink: one block through scratch.
      Write<kBlockBytes>([&](BitState& bits) { CodeBlock(bits, *blocks); });
      ++blocks;
      --count;
      continue;
    }
    BitState bits{acc_, free_, s.buffer + s.count};
    if (vector_) {
      CodeBlocksVector(bits, blocks, n);
    } else {
      // Locals for the run: stores into the output buffer may alias any
      // member, which would send every update through memory.
      BitState local = bits;
      for (size_t i = 0; i < n; ++i) CodeBlock(local, blocks[i]);
      bits = local;
    }
    acc_ = bits.acc;
    free_ = bits.free;
    s.count = static_cast<uint32_t>(bits.p - s.buffer);
    blocks += n;
    count -= n;
  }
}

void BitPacker::Put(uint32_t code, uint32_t length) {
  if (static_cast<uint32_t>(free_) >= length) {
    free_ -= static_cast<int>(length);
    acc_ = (acc_ << length) | code;
    return;
  }
  // One word: 8 bytes, 16 if every one is stuffed.
  Write<16>([&](BitState& bits) { bits.Put(code, static_cast<int>(length)); });
}

void BitPacker::Flush() {
  const int held = 64 - free_;
  // Left-aligned, with zero bits after the last held one.
  uint64_t word = held ? acc_ << free_ : 0;
  for (int n = 0; n < held; n += 8) {
    const uint8_t b = static_cast<uint8_t>(word >> 56);
    word <<= 8;
    out_->PutByte(b);
    if (b == 0xFF) out_->PutByte(0);
  }
  acc_ = 0;
  free_ = 64;
}

}  // namespace ZJPEG
