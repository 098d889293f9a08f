// Vector kernels of the encoder, one build per vector unit (Highway's
// foreach_target), dispatched at run time.
//
// Colour conversion runs 8 pixels, one block row, per vector of 16-bit lanes:
// the products of the integer weights fit 16 bits once the level shift is
// folded in (Y = 77R + 150G + 29B ≤ 65280, so Y − 32768 is the same bits with
// the top one flipped; Cb and Cr lie within ±32640 and wrap back exactly).
//
// The transform keeps the scalar arithmetic lane for lane: 32-bit lanes, one
// column of the block per lane (8 lanes with AVX2, two halves of 4 with the
// 128-bit units), the same 127 roundings and arithmetic shifts, the same
// 16.16 reciprocals; quantisation runs in the transposed order the second
// pass leaves and the zigzag reorder keeps the low 16 bits as the scalar cast
// does.
#include <bit>
#include <cstdlib>
#include <cstring>

#include "jpeg/vector.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/vector.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "jpeg/bits.h"
#include "jpeg/huffman.h"
#include "jpeg/tables.h"

HWY_BEFORE_NAMESPACE();
namespace ZJPEG {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// The one-lane build below reuses the scalar code and needs none of this.
#if HWY_TARGET != HWY_SCALAR

constexpr int32_t kInvSqrt2 = 181;  // 0.7071 × 256
constexpr int32_t kRot0_382 = 98;   // 0.3827 × 256
constexpr int32_t kRot0_541 = 139;  // 0.5412 × 256
constexpr int32_t kRot1_306 = 334;  // 1.3066 × 256

template <class D, class V>
HWY_INLINE void Butterflies(D d, V (&v)[8], bool final) {
  const V k127 = hn::Set(d, 127);
  const V tmp0 = hn::Add(v[0], v[7]), tmp7 = hn::Sub(v[0], v[7]);
  const V tmp1 = hn::Add(v[1], v[6]), tmp6 = hn::Sub(v[1], v[6]);
  const V tmp2 = hn::Add(v[2], v[5]), tmp5 = hn::Sub(v[2], v[5]);
  const V tmp3 = hn::Add(v[3], v[4]), tmp4 = hn::Sub(v[3], v[4]);

  const V e10 = hn::Add(tmp0, tmp3), e13 = hn::Sub(tmp0, tmp3);
  const V e11 = hn::Add(tmp1, tmp2), e12 = hn::Sub(tmp1, tmp2);
  const V z1 = hn::ShiftRight<8>(hn::Add(hn::Mul(hn::Add(e12, e13), hn::Set(d, kInvSqrt2)), k127));

  const V o10 = hn::Add(tmp4, tmp5), o11 = hn::Add(tmp5, tmp6), o12 = hn::Add(tmp6, tmp7);
  const V z5 = hn::Mul(hn::Sub(o10, o12), hn::Set(d, kRot0_382));
  const V z2 = hn::Add(z5, hn::Mul(o10, hn::Set(d, kRot0_541)));
  const V z4 = hn::Add(z5, hn::Mul(o12, hn::Set(d, kRot1_306)));
  const V z3 = hn::Mul(o11, hn::Set(d, kInvSqrt2));

  v[0] = hn::Add(e10, e11);
  v[4] = hn::Sub(e10, e11);
  v[2] = hn::Add(e13, z1);
  v[6] = hn::Sub(e13, z1);
  v[1] = hn::Add(tmp7, hn::ShiftRight<8>(hn::Add(hn::Add(z3, z4), k127)));
  v[7] = hn::Add(tmp7, hn::ShiftRight<8>(hn::Add(hn::Sub(z3, z4), k127)));
  v[5] = hn::Add(tmp7, hn::ShiftRight<8>(hn::Add(hn::Sub(z2, z3), k127)));
  v[3] = hn::Sub(tmp7, hn::ShiftRight<8>(hn::Add(hn::Add(z2, z3), k127)));
  if (final) {
    for (V& x : v) x = hn::ShiftRight<8>(hn::Add(x, k127));
  }
}

// Byte shuffles that gather the zigzag order from the transposed result:
// output row o (coefficients 8o…8o + 7) takes from source row s the bytes
// kZigzagShuffles.bytes[o][s] names (0x80: none); `from[o]` has bit s set
// when row s gives any.
struct ZigzagShuffles {
  uint8_t bytes[8][8][16];
  uint8_t from[8];
};
constexpr ZigzagShuffles kZigzagShuffles = [] {
  ZigzagShuffles z{};
  for (int o = 0; o < 8; ++o) {
    for (int s = 0; s < 8; ++s) {
      for (int b = 0; b < 16; ++b) z.bytes[o][s][b] = 0x80;
    }
    for (int j = 0; j < 8; ++j) {
      const int t = kZigzagTransposed[o * 8 + j];
      z.bytes[o][t / 8][2 * j] = static_cast<uint8_t>(2 * (t % 8));
      z.bytes[o][t / 8][2 * j + 1] = static_cast<uint8_t>(2 * (t % 8) + 1);
      z.from[o] = static_cast<uint8_t>(z.from[o] | (1 << (t / 8)));
    }
  }
  return z;
}();

// The reorder as 40 shuffles, those of the source rows each output row
// draws from, instead of 64 moves. Unrolled so that the choice of rows and
// the shuffle patterns are known when compiling.
HWY_INLINE void ZigzagReorder(const int16_t* in, int16_t* block) {
  const hn::FixedTag<uint8_t, 16> d;
  hn::Vec<decltype(d)> rows[8];
  for (int s = 0; s < 8; ++s) rows[s] = hn::LoadU(d, reinterpret_cast<const uint8_t*>(in + s * 8));
#pragma GCC unroll 8
  for (int o = 0; o < 8; ++o) {
    auto v = hn::Zero(d);
#pragma GCC unroll 8
    for (int s = 0; s < 8; ++s) {
      if (kZigzagShuffles.from[o] & (1 << s)) {
        v = hn::Or(v, hn::TableLookupBytesOr0(rows[s], hn::LoadU(d, kZigzagShuffles.bytes[o][s])));
      }
    }
    hn::StoreU(v, d, reinterpret_cast<uint8_t*>(block + o * 8));
  }
}
#endif  // HWY_TARGET != HWY_SCALAR

}  // namespace

#if HWY_TARGET == HWY_SCALAR
// The one-lane build, for processors without a vector unit Highway targets:
// the scalar code itself.
HWY_INLINE int DCTQuant(int16_t* block, const QuantSlot& slot) {
  int32_t work[64];
  return DCTInteger(block, slot, work);
}

void ConvertRow(const uint8_t* row, const size_t offsets[3], unsigned step, unsigned firstMcu,
                unsigned endMcu, unsigned mcuStride, unsigned rowInBlock, int16_t* const* buffers) {
  for (unsigned mcu = firstMcu; mcu < endMcu; mcu += mcuStride) {
    const uint8_t* p = row + size_t{mcu} * 8 * step;
    const size_t at = size_t{mcu} * 64 + rowInBlock * 8;
    for (unsigned j = 0; j < 8; ++j) {
      const int32_t r = p[offsets[0] + j * step], g = p[offsets[1] + j * step],
                    b = p[offsets[2] + j * step];
      buffers[0][at + j] = static_cast<int16_t>(kRY * r + kGY * g + kBY * b - 32768);
      buffers[1][at + j] = static_cast<int16_t>(kRCb * r + kGCb * g + kBCb * b);
      buffers[2][at + j] = static_cast<int16_t>(kRCr * r + kGCr * g + kBCr * b);
    }
  }
}
#else
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
// Eight lanes hold a whole block row: the block stays in registers, and the
// transpose between the passes is three rounds of interleaves.
template <class D, class V>
HWY_INLINE void Transpose8x8(D d, V (&v)[8]) {
  const hn::Repartition<int64_t, D> d64;
  V t[8];
  for (int i = 0; i < 4; ++i) {
    t[2 * i] = hn::InterleaveLower(d, v[2 * i], v[2 * i + 1]);
    t[2 * i + 1] = hn::InterleaveUpper(d, v[2 * i], v[2 * i + 1]);
  }
  V u[8];
  for (int half = 0; half < 2; ++half) {
    const int b = half * 4;
    u[b + 0] = hn::BitCast(
        d, hn::InterleaveLower(d64, hn::BitCast(d64, t[b]), hn::BitCast(d64, t[b + 2])));
    u[b + 1] = hn::BitCast(
        d, hn::InterleaveUpper(d64, hn::BitCast(d64, t[b]), hn::BitCast(d64, t[b + 2])));
    u[b + 2] = hn::BitCast(
        d, hn::InterleaveLower(d64, hn::BitCast(d64, t[b + 1]), hn::BitCast(d64, t[b + 3])));
    u[b + 3] = hn::BitCast(
        d, hn::InterleaveUpper(d64, hn::BitCast(d64, t[b + 1]), hn::BitCast(d64, t[b + 3])));
  }
  for (int c = 0; c < 4; ++c) {
    v[c] = hn::ConcatLowerLower(d, u[4 + c], u[c]);
    v[c + 4] = hn::ConcatUpperUpper(d, u[4 + c], u[c]);
  }
}

// The zigzag order gathered from the eight half rows the narrowing leaves
// (half h: the left, h even, or right, h odd, four coefficients of rows
// h & ~1 and h | 1 of the transposed result): 256-bit output p
// (coefficients 16p…16p + 15) takes from half h the bytes
// kZigzagFromHalves.bytes[p][h] names (0x80: none), 18 shuffles in all.
struct ZigzagHalfShuffles {
  uint8_t bytes[4][8][32];
  uint8_t from[4];
};
constexpr ZigzagHalfShuffles kZigzagFromHalves = [] {
  ZigzagHalfShuffles z{};
  for (int p = 0; p < 4; ++p) {
    for (int h = 0; h < 8; ++h) {
      for (int b = 0; b < 32; ++b) z.bytes[p][h][b] = 0x80;
    }
    for (int j = 0; j < 16; ++j) {
      const int t = kZigzagTransposed[p * 16 + j];
      const int row = t / 8, column = t % 8;
      const int h = (row & ~1) + column / 4;
      const int element = (row & 1) * 4 + column % 4;  // within the 16-byte half
      // Output byte pairs 0…7 lie in the lower block, 8…15 in the upper.
      z.bytes[p][h][2 * j] = static_cast<uint8_t>(2 * element);
      z.bytes[p][h][2 * j + 1] = static_cast<uint8_t>(2 * element + 1);
      z.from[p] = static_cast<uint8_t>(z.from[p] | (1 << h));
    }
  }
  return z;
}();

HWY_INLINE int DCTQuant(int16_t* block, const QuantSlot& slot) {
  const hn::FixedTag<int32_t, 8> d;
  const hn::Rebind<int16_t, decltype(d)> d16;
  using V = hn::Vec<decltype(d)>;
  V v[8];
  for (size_t r = 0; r < 8; ++r) v[r] = hn::PromoteTo(d, hn::LoadU(d16, block + r * 8));
  Butterflies(d, v, false);
  Transpose8x8(d, v);
  Butterflies(d, v, true);
  const V round = hn::Set(d, 32767);
  V q[8];
  for (size_t r = 0; r < 8; ++r) {
    const V product = hn::Mul(v[r], hn::LoadU(d, slot.transposedReciprocals + r * 8));
    q[r] = hn::ShiftRight<16>(hn::Add(product, round));
  }
  // Quantised coefficients of 8-bit samples lie well inside 16 bits, so the
  // saturating narrowing keeps the same low 16 bits the scalar cast keeps.
  // Narrowing rows 2i and 2i + 1 together leaves their left halves in the
  // lower 128 bits and their right halves in the upper; each such half,
  // copied to both 128-bit blocks, is a source of the in-block shuffles.
  const hn::FixedTag<int16_t, 16> dw;
  const hn::Repartition<uint8_t, decltype(dw)> d8;
  hn::Vec<decltype(d8)> halves[8];
  for (int i = 0; i < 4; ++i) {
    const auto packed = hn::BitCast(d8, hn::ReorderDemote2To(dw, q[2 * i], q[2 * i + 1]));
    halves[2 * i] = hn::ConcatLowerLower(d8, packed, packed);
    halves[2 * i + 1] = hn::ConcatUpperUpper(d8, packed, packed);
  }
#pragma GCC unroll 4
  for (int p = 0; p < 4; ++p) {
    auto out = hn::Zero(d8);
#pragma GCC unroll 8
    for (int h = 0; h < 8; ++h) {
      if (kZigzagFromHalves.from[p] & (1 << h)) {
        out = hn::Or(
            out, hn::TableLookupBytesOr0(halves[h], hn::LoadU(d8, kZigzagFromHalves.bytes[p][h])));
      }
    }
    hn::StoreU(out, d8, reinterpret_cast<uint8_t*>(block + p * 16));
  }
  return 63;
}
#else
HWY_INLINE int DCTQuant(int16_t* block, const QuantSlot& slot) {
  const hn::CappedTag<int32_t, 8> d;
  const hn::Rebind<int16_t, decltype(d)> d16;
  using V = hn::Vec<decltype(d)>;
  const size_t lanes = hn::Lanes(d);
  HWY_ALIGN int32_t mid[64];
  HWY_ALIGN int32_t transposed[64];
  HWY_ALIGN int16_t out[64];
  for (size_t c = 0; c < 8; c += lanes) {
    V v[8];
    for (size_t r = 0; r < 8; ++r) v[r] = hn::PromoteTo(d, hn::LoadU(d16, block + r * 8 + c));
    Butterflies(d, v, false);
    for (size_t r = 0; r < 8; ++r) hn::Store(v[r], d, mid + r * 8 + c);
  }
  for (size_t r = 0; r < 8; ++r) {
    for (size_t c = 0; c < 8; ++c) transposed[c * 8 + r] = mid[r * 8 + c];
  }
  const V round = hn::Set(d, 32767);
  for (size_t c = 0; c < 8; c += lanes) {
    V v[8];
    for (size_t r = 0; r < 8; ++r) v[r] = hn::Load(d, transposed + r * 8 + c);
    Butterflies(d, v, true);
    for (size_t r = 0; r < 8; ++r) {
      const V q = hn::Mul(v[r], hn::LoadU(d, slot.transposedReciprocals + r * 8 + c));
      hn::Store(hn::DemoteTo(d16, hn::ShiftRight<16>(hn::Add(q, round))), d16, out + r * 8 + c);
    }
  }
  ZigzagReorder(out, block);
  return 63;
}

#endif  // eight lanes

// Y, Cb and Cr of the pixels in lanes of 16 bits, `du` unsigned and `di`
// signed of the same width.
template <class DU, class DI>
HWY_INLINE void YCbCr(DU du, DI di, hn::Vec<DU> ru, hn::Vec<DU> gu, hn::Vec<DU> bu, hn::Vec<DI>& y,
                      hn::Vec<DI>& cb, hn::Vec<DI>& cr) {
  const auto flip = hn::Set(du, uint16_t{0x8000});
  y = hn::BitCast(di, hn::Xor(hn::Add(hn::Add(hn::Mul(ru, hn::Set(du, uint16_t{kRY})),
                                              hn::Mul(gu, hn::Set(du, uint16_t{kGY}))),
                                      hn::Mul(bu, hn::Set(du, uint16_t{kBY}))),
                              flip));
  const auto ri = hn::BitCast(di, ru), gi = hn::BitCast(di, gu), bi = hn::BitCast(di, bu);
  cb = hn::Add(
      hn::Add(hn::Mul(ri, hn::Set(di, int16_t{kRCb})), hn::Mul(gi, hn::Set(di, int16_t{kGCb}))),
      hn::Mul(bi, hn::Set(di, int16_t{kBCb})));
  cr = hn::Add(
      hn::Add(hn::Mul(ri, hn::Set(di, int16_t{kRCr})), hn::Mul(gi, hn::Set(di, int16_t{kGCr}))),
      hn::Mul(bi, hn::Set(di, int16_t{kBCr})));
}

void ConvertRow(const uint8_t* row, const size_t offsets[3], unsigned step, unsigned firstMcu,
                unsigned endMcu, unsigned mcuStride, unsigned rowInBlock, int16_t* const* buffers) {
  const hn::FixedTag<uint8_t, 8> d8;
  const hn::FixedTag<uint16_t, 8> du;
  const hn::FixedTag<int16_t, 8> di;
  using V8 = hn::Vec<decltype(d8)>;
  unsigned mcu = firstMcu;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
  // Interleaved R, G, B, the plug-in's rows: two MCUs, 16 pixels, per step
  // in lanes of 16 bits, the halves stored to the two blocks.
  if (step == 3 && mcuStride == 1 && offsets[0] == 0 && offsets[1] == 1 && offsets[2] == 2) {
    const hn::FixedTag<uint8_t, 16> d16x8;
    const hn::FixedTag<uint16_t, 16> d16u;
    const hn::FixedTag<int16_t, 16> d16i;
    const hn::FixedTag<int16_t, 8> half;
    for (; mcu + 2 <= endMcu; mcu += 2) {
      hn::Vec<decltype(d16x8)> r, g, b;
      hn::LoadInterleaved3(d16x8, row + size_t{mcu} * 24, r, g, b);
      hn::Vec<decltype(d16i)> y, cb, cr;
      YCbCr(d16u, d16i, hn::PromoteTo(d16u, r), hn::PromoteTo(d16u, g), hn::PromoteTo(d16u, b), y,
            cb, cr);
      const size_t at = size_t{mcu} * 64 + rowInBlock * 8;
      hn::StoreU(hn::LowerHalf(half, y), half, buffers[0] + at);
      hn::StoreU(hn::UpperHalf(half, y), half, buffers[0] + at + 64);
      hn::StoreU(hn::LowerHalf(half, cb), half, buffers[1] + at);
      hn::StoreU(hn::UpperHalf(half, cb), half, buffers[1] + at + 64);
      hn::StoreU(hn::LowerHalf(half, cr), half, buffers[2] + at);
      hn::StoreU(hn::UpperHalf(half, cr), half, buffers[2] + at + 64);
    }
  }
#endif
  for (; mcu < endMcu; mcu += mcuStride) {
    const uint8_t* p = row + size_t{mcu} * 8 * step;
    V8 r, g, b;
    if (step == 1) {
      r = hn::LoadU(d8, p + offsets[0]);
      g = hn::LoadU(d8, p + offsets[1]);
      b = hn::LoadU(d8, p + offsets[2]);
    } else {
      V8 ch[4];
      if (step == 3) {
        hn::LoadInterleaved3(d8, p, ch[0], ch[1], ch[2]);
      } else {
        hn::LoadInterleaved4(d8, p, ch[0], ch[1], ch[2], ch[3]);
      }
      r = ch[offsets[0]];
      g = ch[offsets[1]];
      b = ch[offsets[2]];
    }
    hn::Vec<decltype(di)> y, cb, cr;
    YCbCr(du, di, hn::PromoteTo(du, r), hn::PromoteTo(du, g), hn::PromoteTo(du, b), y, cb, cr);
    const size_t at = size_t{mcu} * 64 + rowInBlock * 8;
    hn::StoreU(y, di, buffers[0] + at);
    hn::StoreU(cb, di, buffers[1] + at);
    hn::StoreU(cr, di, buffers[2] + at);
  }
}
#endif  // HWY_TARGET == HWY_SCALAR

// The symbols of one zigzag block (see WalkBlockSymbols), with magnitudes,
// value bits and the nonzero mask computed in lanes.
template <class Symbols>
HWY_INLINE void WalkBlock(const int16_t* block, int16_t& predictor, Symbols& symbols) {
  const hn::ScalableTag<int16_t> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  const size_t lanes = hn::Lanes(d);
  // Per coefficient: the magnitude (−32768 gives 32768, read unsigned) and
  // the bits JPEG codes the value with, v or v − 1 when v is negative, of
  // which the low `size` are kept.
  HWY_ALIGN uint16_t magnitude[64];
  HWY_ALIGN uint16_t valueBits[64];
  uint64_t zero = 0;
  for (size_t i = 0; i < 64; i += lanes) {
    const auto v = hn::LoadU(d, block + i);
    hn::Store(hn::BitCast(du, hn::Abs(v)), du, magnitude + i);
    hn::Store(hn::BitCast(du, hn::Add(v, hn::ShiftRight<15>(v))), du, valueBits + i);
    // One bit a lane, in whole bytes whose bits past the lanes are zero.
    uint8_t maskBytes[8] = {};
    hn::StoreMaskBits(d, hn::Eq(v, hn::Zero(d)), maskBytes);
    uint64_t laneBits;
    std::memcpy(&laneBits, maskBytes, 8);
    zero |= laneBits << i;
  }
  const uint64_t nonzero = ~zero & ~uint64_t{1};  // the DC term is coded apart

  WalkBlockSymbols(
      block, predictor, nonzero,
      [&](uint32_t k, uint32_t& size) {
        // Nonzero, so the bit count is one more than the top bit's index.
        size = static_cast<uint32_t>(31 ^ __builtin_clz(magnitude[k])) + 1;
        return valueBits[k] & ((uint32_t{1} << size) - 1);
      },
      symbols);
}

void CodeBlocks(BitState& state, const CodedBlock* blocks, size_t count) {
  // The held bits live in locals: stores into the output buffer may alias
  // the caller's state.
  BitState bits = state;
  for (size_t i = 0; i < count; ++i) {
    SymbolCoder coder{bits, *blocks[i].dc, *blocks[i].ac};
    WalkBlock(blocks[i].coefficients, *blocks[i].predictor, coder);
  }
  state = bits;
}

void CountBlocks(const CodedBlock* blocks, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    SymbolCounter counter{*blocks[i].dc, *blocks[i].ac};
    WalkBlock(blocks[i].coefficients, *blocks[i].predictor, counter);
  }
}

// The transform inlined, so that its constants stay in registers from
// block to block.
void DCTQuantBlocks(int16_t* blocks, size_t count, const QuantSlot& slot) {
  for (size_t b = 0; b < count; ++b) DCTQuant(blocks + b * 64, slot);
}

// NOLINTNEXTLINE(google-readability-namespace-comments)
}  // namespace HWY_NAMESPACE
}  // namespace ZJPEG
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ZJPEG {

HWY_EXPORT(DCTQuant);
HWY_EXPORT(DCTQuantBlocks);
HWY_EXPORT(ConvertRow);
HWY_EXPORT(CodeBlocks);
HWY_EXPORT(CountBlocks);

bool VectorUnitPresent() {
  return (hwy::SupportedTargets() & HWY_TARGETS & ~int64_t{HWY_EMU128 | HWY_SCALAR}) != 0;
}

const char* VectorUnitName() {
  // Highway numbers better targets with lower bits; the dispatch takes the
  // best one both built and supported.
  const int64_t usable = hwy::SupportedTargets() & HWY_TARGETS;
  return hwy::TargetName(usable & -usable);
}

bool VectorPathByDefault() {
  // Asked by every encoder; the answer cannot change within a process.
  static const bool vector = [] {
    const char* v = std::getenv("ZJPEG_SCALAR");
    const bool scalar = v != nullptr && v[0] != '\0' && !(v[0] == '0' && v[1] == '\0');
    return !scalar && VectorUnitPresent();
  }();
  return vector;
}

void ConvertRowYCbCrVector(const uint8_t* row, const size_t offsets[3], unsigned step,
                           unsigned firstMcu, unsigned endMcu, unsigned mcuStride,
                           unsigned rowInBlock, int16_t* const* buffers) {
  HWY_DYNAMIC_DISPATCH(ConvertRow)
  (row, offsets, step, firstMcu, endMcu, mcuStride, rowInBlock, buffers);
}

int DCTIntegerVector(int16_t* block, const QuantSlot& slot) {
  return HWY_DYNAMIC_DISPATCH(DCTQuant)(block, slot);
}

void DCTIntegerVectorBlocks(int16_t* blocks, size_t count, const QuantSlot& slot) {
  HWY_DYNAMIC_DISPATCH(DCTQuantBlocks)(blocks, count, slot);
}

void CodeBlocksVector(BitState& bits, const CodedBlock* blocks, size_t count) {
  HWY_DYNAMIC_DISPATCH(CodeBlocks)(bits, blocks, count);
}

void CountBlocksVector(const CodedBlock* blocks, size_t count) {
  HWY_DYNAMIC_DISPATCH(CountBlocks)(blocks, count);
}

}  // namespace ZJPEG
#endif  // HWY_ONCE
