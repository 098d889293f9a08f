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

// One 8-point butterfly over d[0], d[s], ... d[7s]. The even outputs are kept
// whole in the column pass and rounded by 256 in the row pass (`Final`).
template <bool Final, typename In>
inline void Butterfly(const In* d, int32_t* out, int s) {
  const int32_t tmp0 = d[0] + d[7 * s], tmp7 = d[0] - d[7 * s];
  const int32_t tmp1 = d[s] + d[6 * s], tmp6 = d[s] - d[6 * s];
  const int32_t tmp2 = d[2 * s] + d[5 * s], tmp5 = d[2 * s] - d[5 * s];
  const int32_t tmp3 = d[3 * s] + d[4 * s], tmp4 = d[3 * s] - d[4 * s];

  const int32_t e10 = tmp0 + tmp3, e13 = tmp0 - tmp3;
  const int32_t e11 = tmp1 + tmp2, e12 = tmp1 - tmp2;
  const int32_t z1 = ((e12 + e13) * kInvSqrt2 + 127) >> 8;

  const int32_t o10 = tmp4 + tmp5, o11 = tmp5 + tmp6, o12 = tmp6 + tmp7;
  const int32_t z5 = (o10 - o12) * kRot0_382;
  const int32_t z2 = z5 + o10 * kRot0_541;
  const int32_t z4 = z5 + o12 * kRot1_306;
  const int32_t z3 = o11 * kInvSqrt2;

  int32_t r[8];
  r[0] = e10 + e11;
  r[4] = e10 - e11;
  r[2] = e13 + z1;
  r[6] = e13 - z1;
  r[1] = tmp7 + ((z3 + z4 + 127) >> 8);
  r[7] = tmp7 + ((z3 - z4 + 127) >> 8);
  r[5] = tmp7 + ((z2 - z3 + 127) >> 8);
  r[3] = tmp7 - ((z2 + z3 + 127) >> 8);
  for (int k = 0; k < 8; ++k) out[k * s] = Final ? (r[k] + 127) >> 8 : r[k];
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
    }
  }
}

int DCTInteger(int16_t* block, const QuantSlot& slot, int32_t* work) {
  for (int c = 0; c < 8; ++c) Butterfly<false>(block + c, work + c, 8);
  for (int r = 0; r < 8; ++r) Butterfly<true>(work + r * 8, work + r * 8, 1);
  const int32_t* recip = slot.reciprocals;
  for (int k = 0; k < 64; ++k) {
    const int n = kZigzag[k];
    block[k] = static_cast<int16_t>((work[n] * recip[n] + 32767) >> 16);
  }
  return 63;
}

}  // namespace ZJPEG
