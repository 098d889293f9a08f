// Scaled integer forward DCT (Arai, Agui and Nakajima) with quantisation.
//
// The AAN factorisation computes the 8-point DCT with 5 multiplications per
// pass, leaving every output k scaled by aan[k] = sqrt(2)·cos(kπ/16) (1 for k =
// 0); the scale is folded into the quantisation divisors, so one multiply by a
// 16.16 reciprocal both undoes it and quantises. Constants carry 8 fractional
// bits. Every rounding adds 127 (one short of a half) before an arithmetic
// shift, and the quantisation adds 32767: negative values round towards minus
// infinity. The output bytes depend on that exact arithmetic.
#include "jpeg/dct.h"

#include "jpeg/tables.h"

namespace ZJPEG {

namespace {

// √2·cos(kπ/16) for k ≥ 1, single precision.
constexpr float kAanScale[8] = {1.0f, 1.3870399f,  1.3065630f,  1.1758755f,
                                1.0f, 0.78569496f, 0.54119509f, 0.27589938f};

constexpr int32_t kInvSqrt2 = 181;  // 0.7071 × 256
constexpr int32_t kRot0_382 = 98;   // 0.3827 × 256
constexpr int32_t kRot0_541 = 139;  // 0.5412 × 256
constexpr int32_t kRot1_306 = 334;  // 1.3066 × 256

// The 8-point butterflies applied to every column of an 8×8 array at once:
// column c is in[c], in[8 + c], … in[56 + c]. Written over columns so that the
// compiler can run the eight columns in vector lanes. The even outputs stay
// whole in the first pass and are rounded by 256 in the second (`Final`).
template <bool Final, typename In>
inline void ColumnPass(const In* in, int32_t* out) {
  for (int c = 0; c < 8; ++c) {
    const int32_t d0 = in[c], d1 = in[8 + c], d2 = in[16 + c], d3 = in[24 + c];
    const int32_t d4 = in[32 + c], d5 = in[40 + c], d6 = in[48 + c], d7 = in[56 + c];
    const int32_t tmp0 = d0 + d7, tmp7 = d0 - d7;
    const int32_t tmp1 = d1 + d6, tmp6 = d1 - d6;
    const int32_t tmp2 = d2 + d5, tmp5 = d2 - d5;
    const int32_t tmp3 = d3 + d4, tmp4 = d3 - d4;

    const int32_t e10 = tmp0 + tmp3, e13 = tmp0 - tmp3;
    const int32_t e11 = tmp1 + tmp2, e12 = tmp1 - tmp2;
    const int32_t z1 = ((e12 + e13) * kInvSqrt2 + 127) >> 8;

    const int32_t o10 = tmp4 + tmp5, o11 = tmp5 + tmp6, o12 = tmp6 + tmp7;
    const int32_t z5 = (o10 - o12) * kRot0_382;
    const int32_t z2 = z5 + o10 * kRot0_541;
    const int32_t z4 = z5 + o12 * kRot1_306;
    const int32_t z3 = o11 * kInvSqrt2;

    const int32_t r0 = e10 + e11, r4 = e10 - e11, r2 = e13 + z1, r6 = e13 - z1;
    const int32_t r1 = tmp7 + ((z3 + z4 + 127) >> 8);
    const int32_t r7 = tmp7 + ((z3 - z4 + 127) >> 8);
    const int32_t r5 = tmp7 + ((z2 - z3 + 127) >> 8);
    const int32_t r3 = tmp7 - ((z2 + z3 + 127) >> 8);
    out[c] = Final ? (r0 + 127) >> 8 : r0;
    out[8 + c] = Final ? (r1 + 127) >> 8 : r1;
    out[16 + c] = Final ? (r2 + 127) >> 8 : r2;
    out[24 + c] = Final ? (r3 + 127) >> 8 : r3;
    out[32 + c] = Final ? (r4 + 127) >> 8 : r4;
    out[40 + c] = Final ? (r5 + 127) >> 8 : r5;
    out[48 + c] = Final ? (r6 + 127) >> 8 : r6;
    out[56 + c] = Final ? (r7 + 127) >> 8 : r7;
  }
}

}  // namespace

void PrepareQuantSlot(QuantSlot& slot, const uint16_t table[64]) {
  slot.inUse = 1;
  for (int r = 0; r < 8; ++r) {
    for (int c = 0; c < 8; ++c) {
      const int n = r * 8 + c;
      // A zero divisor (only from a caller-made table) would divide by zero.
      const float q = table[n] ? static_cast<float>(table[n]) : 1.0f;
      float d = q * kAanScale[r];
      d *= kAanScale[c];
      d *= 8.0f;
      slot.divisors[n] = d;
      slot.reciprocals[n] = static_cast<int32_t>(65536.0f / d + 0.5f);
      slot.transposedReciprocals[c * 8 + r] = slot.reciprocals[n];
    }
  }
}

// x86-64 processors with AVX2 get a build of the transform with eight 32-bit
// lanes; the arithmetic and so the output are the same.
#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
int DCTInteger(int16_t* block, const QuantSlot& slot, int32_t* work) {
  // Columns, then the rows as columns of the transposed array.
  int32_t mid[64];
  ColumnPass<false>(block, mid);
  for (int r = 0; r < 8; ++r)
    for (int c = 0; c < 8; ++c) work[c * 8 + r] = mid[r * 8 + c];
  ColumnPass<true>(work, mid);
  const int32_t* recip = slot.reciprocals;
  for (int k = 0; k < 64; ++k) {
    block[k] = static_cast<int16_t>((mid[kZigzagTransposed[k]] * recip[kZigzag[k]] + 32767) >> 16);
  }
  return 63;
}

}  // namespace ZJPEG
