// Stage by stage: colour conversion, transform and quantisation, Huffman
// tables and bit packing, quality presets and the output stream.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <hwy/targets.h>

#include "jpeg/color_converter.h"
#include "jpeg/dct.h"
#include "jpeg/huffman.h"
#include "jpeg/tables.h"
#include "jpeg/vector.h"
#include "tests/support/jpeg_util.h"

namespace {

using namespace ZJPEG;

struct Converted {
  std::vector<int16_t> y, cb, cr;
};

Converted ConvertRgb(const std::vector<uint8_t>& rgb, int width, int height) {
  InitializeJPEGEncoder();
  const uint32_t mcus = uint32_t(width + 7) / 8;
  const uint8_t ones[3] = {1, 1, 1};
  ColorConverterRGBInterleave conv(true, false);
  conv.SetGeometry(uint16_t(width), uint16_t(height), mcus, 3, ones, ones);
  const std::vector<int16_t> block(mcus * 64);
  Converted out{block, block, block};
  int16_t* bufs[3] = {out.y.data(), out.cb.data(), out.cr.data()};
  BufferRowMemoryRequester rows(rgb.data(), uint32_t(width) * 3, uint16_t(height));
  rows.rowsWanted = 8;
  EXPECT_EQ(rows.Request(), 1);
  conv.ColorConvert(rows, 0, 0, 1, bufs);
  return out;
}

TEST(ColorConversion, SamplesAndEdgeReplication) {
  // 9 × 2, red only and distinct per pixel, so a wrong source column or row
  // shows; row 0 starts black, white, full red.
  std::vector<uint8_t> px(9 * 2 * 3);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 9; ++x) px[(y * 9 + x) * 3] = uint8_t(20 * x + 7 * y);
  px[3] = px[4] = px[5] = px[6] = 255;
  const Converted c = ConvertRgb(px, 9, 2);
  const int samples[3][3] = {
      {-32768, 0, 0}, {32512, 0, 0}, {77 * 255 - 32768, -43 * 255, 128 * 255}};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(c.y[i], samples[i][0]) << i;
    EXPECT_EQ(c.cb[i], samples[i][1]) << i;
    EXPECT_EQ(c.cr[i], samples[i][2]) << i;
  }
  auto yAt = [&](int row, int col) { return c.y[(col / 8) * 64 + row * 8 + col % 8]; };
  auto ySample = [](int r) { return int16_t(77 * r - 32768); };
  EXPECT_EQ(yAt(0, 7), ySample(140));
  for (int col = 8; col < 16; ++col) {
    EXPECT_EQ(yAt(0, col), ySample(160)) << col;  // the ninth pixel of row 0
    EXPECT_EQ(yAt(1, col), ySample(167)) << col;
  }
  for (int row = 2; row < 8; ++row) {
    EXPECT_EQ(yAt(row, 3), ySample(67)) << row;  // rows past the end repeat row 1
    EXPECT_EQ(yAt(row, 12), ySample(167)) << row;
  }
}

TEST(ColorConversion, GreyAveragesSubsampledGroupsAndEdgeColumns) {
  // 3 × 2 grey pixels; component 0 at half the resolution of the largest.
  const uint8_t px[6] = {10, 21, 90, 30, 40, 51};
  const uint8_t h[2] = {1, 2}, v[2] = {1, 2};
  ColorConverterGrey conv;
  conv.SetGeometry(3, 2, 1, 2, h, v);
  std::vector<int16_t> y(64), unused(4 * 64);
  int16_t* bufs[2] = {y.data(), unused.data()};
  BufferRowMemoryRequester rows(px, 3, 2);
  rows.rowsWanted = 16;
  ASSERT_EQ(rows.Request(), 1);
  conv.ColorConvert(rows, 0, 0, 1, bufs);
  EXPECT_EQ(y[0], ((10 + 21 + 30 + 40) >> 2) * 256 - 32768);
  EXPECT_EQ(y[1], ((90 + 51) >> 1) * 256 - 32768);            // lone last column
  EXPECT_EQ(y[8], ((30 + 40 + 30 + 40) >> 2) * 256 - 32768);  // rows past the end repeat
}

// The same integer arithmetic written out plainly, one formula per output.
void ReferenceDct(const int16_t* in, const int32_t* recip, int16_t* out) {
  auto pass = [](const int32_t d[8], int32_t o[8], bool last) {
    auto rnd = [](int32_t x) { return (x + 127) >> 8; };
    const int32_t t0 = d[0] + d[7], t7 = d[0] - d[7], t1 = d[1] + d[6], t6 = d[1] - d[6];
    const int32_t t2 = d[2] + d[5], t5 = d[2] - d[5], t3 = d[3] + d[4], t4 = d[3] - d[4];
    const int32_t e10 = t0 + t3, e13 = t0 - t3, e11 = t1 + t2, e12 = t1 - t2;
    const int32_t z1 = rnd((e12 + e13) * 181);
    const int32_t z5 = ((t4 + t5) - (t6 + t7)) * 98;
    const int32_t z2 = z5 + (t4 + t5) * 139, z4 = z5 + (t6 + t7) * 334, z3 = (t5 + t6) * 181;
    const int32_t r[8] = {e10 + e11, t7 + rnd(z3 + z4), e13 + z1, t7 - rnd(z2 + z3),
                          e10 - e11, t7 + rnd(z2 - z3), e13 - z1, t7 + rnd(z3 - z4)};
    for (int k = 0; k < 8; ++k) o[k] = last ? rnd(r[k]) : r[k];
  };
  int32_t mid[64], fin[64];
  for (int c = 0; c < 8; ++c) {
    int32_t d[8], o[8];
    for (int r = 0; r < 8; ++r) d[r] = in[r * 8 + c];
    pass(d, o, false);
    for (int r = 0; r < 8; ++r) mid[r * 8 + c] = o[r];
  }
  for (int r = 0; r < 8; ++r) pass(&mid[r * 8], &fin[r * 8], true);
  for (int k = 0; k < 64; ++k)
    out[k] = int16_t((fin[kZigzag[k]] * recip[kZigzag[k]] + 32767) >> 16);
}

QuantSlot Slot(int quality, bool chroma) {
  QuantSlot s;
  PrepareQuantSlot(s, (chroma ? kChrominanceQPS : kLuminanceQPS).rows[quality]);
  return s;
}

TEST(Transform, FlatBlocksHaveOnlyADcTermAndVerticalChangeIsEntryTwo) {
  int32_t work[64];
  const QuantSlot slot = Slot(12, false);
  int16_t block[64];
  for (int value : {128, 0, 255, 37}) {
    std::fill(block, block + 64, int16_t((value - 128) * 256));
    DCTInteger(block, slot, work);
    EXPECT_EQ(block[0] == 0, value == 128) << value;
    for (int k = 1; k < 64; ++k) ASSERT_EQ(block[k], 0) << value << " entry " << k;
  }
  // Brightness changing down the block only: natural position 8, not 1.
  for (int i = 0; i < 64; ++i) block[i] = int16_t((i < 32 ? 60 : -60) * 256);
  DCTInteger(block, slot, work);
  EXPECT_EQ(block[1], 0);
  EXPECT_GT(block[2], 50);
}

TEST(Transform, MatchesAPlainComputationOfTheSameArithmetic) {
  uint32_t s = 99;
  int32_t work[64];
  for (int trial = 0; trial < 200; ++trial) {
    const QuantSlot slot = Slot(trial % 13, trial & 1);
    int16_t block[64], expect[64];
    for (int i = 0; i < 64; ++i) {
      s = s * 1103515245u + 12345u;
      // Extremes and checkerboards stress the rounding and the widest sums.
      const int v = trial < 20 ? (((i + i / 8 + trial) & 1) ? 255 : 0) : int(s >> 24);
      block[i] = int16_t((v - 128) * 256);
    }
    ReferenceDct(block, slot.reciprocals, expect);
    DCTInteger(block, slot, work);
    for (int k = 0; k < 64; ++k) ASSERT_EQ(block[k], expect[k]) << "trial " << trial << " k " << k;
  }
}

TEST(Huffman, SymbolsOfZeroRunsAndTheLastCoefficient) {
  int16_t block[64] = {}, tail[64] = {};
  block[0] = 5;
  block[17] = -5;  // sixteen zeros first
  tail[63] = 1;    // 62 zeros: three ZRL, then run 14 size 1, and no EOB
  FrameHuffman dc, ac, dc2, ac2;
  int16_t pred = 2, pred2 = 0;
  AddBlockToHuffman(block, pred, dc, ac);
  AddBlockToHuffman(tail, pred2, dc2, ac2);
  EXPECT_EQ(pred, 5);
  EXPECT_EQ(dc.frequency[2], 1u);  // difference 3
  EXPECT_EQ(ac.frequency[0xF0], 1u);
  EXPECT_EQ(ac.frequency[0x03], 1u);
  EXPECT_EQ(ac.frequency[0x00], 1u);
  EXPECT_EQ(ac2.frequency[0xF0], 3u);
  EXPECT_EQ(ac2.frequency[0xE1], 1u);
  EXPECT_EQ(ac2.frequency[0x00], 0u);
}

TEST(Huffman, CodeLengthsAtBothExtremes) {
  FrameHuffman eob;
  eob.frequency[0x00] = 40;
  eob.Generate();
  EXPECT_EQ(eob.last, 1);
  EXPECT_EQ(eob.lengthBySymbol[0x00], 1);
  EXPECT_EQ(eob.codeBySymbol[0x00], 0);  // the all-ones code went to the reserved symbol

  // Doubling counts make a 30-deep chain; limited to 16 bits, the DHT keeps
  // the unlimited order.
  FrameHuffman t;
  for (int s = 0; s < 30; ++s) t.frequency[s] = 1u << s;
  t.Generate();
  EXPECT_GT(*std::max_element(t.codeSize, t.codeSize + 30), 16);
  // Still a prefix code for all 30 symbols, with room left for the reserved one.
  int codes = 0, kraft = 0;
  for (int len = 1; len <= 32; ++len) {
    EXPECT_TRUE(len <= 16 || t.bits[len] == 0) << len;
    codes += t.bits[len];
    kraft += len <= 16 ? t.bits[len] << (16 - len) : 0;
  }
  EXPECT_EQ(codes, 30);
  EXPECT_LT(kraft, 1 << 16);
  // DHT order: rising unlimited length, then rising symbol.
  for (int k = 1; k < t.last; ++k) {
    const int p = t.values[k - 1], q = t.values[k];
    EXPECT_TRUE(t.codeSize[p] < t.codeSize[q] || (t.codeSize[p] == t.codeSize[q] && p < q)) << k;
  }
}

std::string Code(uint32_t code, int length) {
  std::string s;
  for (int i = length - 1; i >= 0; --i) s.push_back((code >> i) & 1 ? '1' : '0');
  return s;
}

TEST(BitPacking, UnitCoefficientsAndValueBits) {
  FrameHuffman dc, ac;
  dc.frequency[0] = 1;
  ac.frequency[0x01] = 3;
  ac.frequency[0x00] = 1;
  dc.Generate();
  ac.Generate();
  int16_t block[64] = {};
  block[1] = -1;
  block[2] = 1;
  const std::string ac1 = Code(ac.codeBySymbol[1], ac.lengthBySymbol[1]);
  std::string expect = Code(dc.codeBySymbol[0], dc.lengthBySymbol[0]) + ac1 + "0" + ac1 + "1" +
                       Code(ac.codeBySymbol[0], ac.lengthBySymbol[0]);
  expect.append((8 - expect.size() % 8) % 8, '0');  // zero padding
  for (bool vector : {false, true}) {
    jpegtest::StringStream out;
    BitPacker packer(&out, vector);
    int16_t pred = 0;
    const CodedBlock coded{block, &pred, &dc, &ac};
    packer.OutputBlocks(&coded, 1);
    packer.Flush();
    out.DumpBuffer();
    std::string bits;
    for (unsigned char c : out.bytes) bits += Code(c, 8);
    EXPECT_EQ(bits, expect) << vector;
  }
}

TEST(BitPacking, EveryFFByteIsStuffedIncludingTheLastOne) {
  jpegtest::StringStream out, tail;
  BitPacker packer(&out), p2(&tail);
  packer.Put(0xFFFFFFFFu, 32);  // one whole word of 0xFF
  packer.Put(0x12, 8);
  packer.Put(0xFF, 8);  // the last byte of the scan
  packer.Flush();
  out.DumpBuffer();
  EXPECT_EQ(out.bytes, std::string("\xFF\0\xFF\0\xFF\0\xFF\0\x12\xFF\0", 11));
  p2.Put(0x7, 3);  // a partial byte is padded with zero bits, not ones
  p2.Flush();
  tail.DumpBuffer();
  EXPECT_EQ(tail.bytes, "\xE0");
}

// Bits as '0' and '1' to bytes as the scan holds them: zero padding, then a
// 0x00 after every 0xFF.
std::string Stuffed(std::string bits) {
  bits.append((8 - bits.size() % 8) % 8, '0');
  std::string bytes;
  for (size_t i = 0; i < bits.size(); i += 8) {
    const char b = char(std::stoi(bits.substr(i, 8), nullptr, 2));
    bytes += b;
    if (b == '\xFF') bytes += '\0';
  }
  return bytes;
}

// Whole 64-bit words go out at once: 0xFF bytes at every place in a word, a
// 0xFE beside a 0xFF (which the word test cannot tell from one), codes
// split across words, 64 bits held at the flush, and a caller buffer too
// small for a word.
TEST(BitPacking, WordsStuffedWhereverTheFFBytesFall) {
  uint32_t s = 7;
  std::vector<std::pair<uint32_t, int>> puts = {{0xFEFFFEFFu, 32}, {0xFFFEFFFEu, 32}};
  for (int i = 0; i < 4000; ++i) {
    s = s * 1664525u + 1013904223u;
    const int length = int(s >> 8) % 33;
    const uint32_t mask = length == 32 ? ~0u : (1u << length) - 1;
    const uint32_t patterns[3] = {~0u, 0xFEFEFEFEu, s * 2654435761u};
    puts.push_back({patterns[(s >> 20) % 3] & mask, length});
  }
  // Ones up to a whole word, so that the flush finds all 64 bits held.
  int total = 0;
  for (const auto& p : puts) total += p.second;
  while (total % 64) {
    const int length = std::min(32, 64 - total % 64);
    puts.push_back({length == 32 ? ~0u : (1u << length) - 1, length});
    total += length;
  }
  std::string bits;
  for (auto [code, length] : puts) bits += Code(code, length);
  ASSERT_EQ(bits.size() % 64, 0u) << "the last flush holds a whole word";
  jpegtest::StringStream big, small(new uint8_t[7], 7);
  for (jpegtest::StringStream* out : {&big, &small}) {
    BitPacker packer(out);
    for (auto [code, length] : puts) packer.Put(code, uint32_t(length));
    packer.Flush();
    out->DumpBuffer();
    EXPECT_EQ(out->bytes, Stuffed(bits));
  }
}

// The symbols of a block as the format defines them, one coefficient at a
// time: the reference for both coders.
std::string ReferenceBlockBits(const int16_t* block, int16_t& predictor, const FrameHuffman& dc,
                               const FrameHuffman& ac, FrameHuffman& dcCount,
                               FrameHuffman& acCount) {
  auto size = [](int32_t v) {
    int n = 0;
    for (uint32_t m = uint32_t(std::abs(v)); m; m >>= 1) ++n;
    return n;
  };
  auto value = [](int32_t v, int n) { return Code(uint32_t(v < 0 ? v - 1 : v), n); };
  const int32_t diff = block[0] - predictor;
  predictor = block[0];
  const int dcSize = size(diff);
  ++dcCount.frequency[dcSize];
  std::string bits = Code(dc.codeBySymbol[dcSize], dc.lengthBySymbol[dcSize]) + value(diff, dcSize);
  int run = 0;
  for (int k = 1; k < 64; ++k) {
    if (block[k] == 0) {
      ++run;
      continue;
    }
    for (; run >= 16; run -= 16) {
      ++acCount.frequency[0xF0];
      bits += Code(ac.codeBySymbol[0xF0], ac.lengthBySymbol[0xF0]);
    }
    const int n = size(block[k]);
    const int symbol = ((run << 4) | n) & 0xFF;
    ++acCount.frequency[symbol];
    bits += Code(ac.codeBySymbol[symbol], ac.lengthBySymbol[symbol]) + value(block[k], n);
    run = 0;
  }
  if (run > 0) {
    ++acCount.frequency[0x00];
    bits += Code(ac.codeBySymbol[0x00], ac.lengthBySymbol[0x00]);
  }
  return bits;
}

// Runs of 15, 16 and 62 zeros, full blocks, the widest values (−32768 has
// 16 bits, so its symbol runs into the run's nibble), the widest DC
// differences, and a caller buffer that takes one block at a time: the
// plain coder and the vector one on every vector unit give the reference's
// bytes, and their walks its counts.
TEST(BitPacking, BothCodersMatchTheReferenceOnExtremeBlocks) {
  std::vector<std::vector<int16_t>> blocks;
  auto add = [&](std::initializer_list<std::pair<int, int>> coefficients) {
    std::vector<int16_t> b(64, 0);
    for (auto [k, v] : coefficients) b[size_t(k)] = int16_t(v);
    blocks.push_back(b);
  };
  add({});
  add({{0, 32767}, {63, 1}});
  add({{0, -32768}, {16, -1}, {33, 2}, {49, -32768}});
  add({{0, 32767}, {1, 32767}, {62, -32767}});
  add({{17, 5}, {48, -3}});
  std::vector<int16_t> full(64), alternating(64);
  for (int k = 0; k < 64; ++k) {
    full[size_t(k)] = int16_t(k % 2 ? -32768 + k : 32767 - k);
    alternating[size_t(k)] = int16_t(k % 2 ? 0 : (k % 4 ? 1 : -1));
  }
  blocks.push_back(full);
  blocks.push_back(alternating);
  uint32_t s = 99;
  for (int i = 0; i < 200; ++i) {
    std::vector<int16_t> b(64, 0);
    for (int k = 0; k < 64; ++k) {
      s = s * 1664525u + 1013904223u;
      if ((s >> 28) < uint32_t(i % 16)) b[size_t(k)] = int16_t(s >> 8);  // every density
    }
    blocks.push_back(b);
  }

  FrameHuffman dc, ac;
  for (int v = 0; v < 256; ++v) ac.frequency[v] = 1 + uint32_t(v % 7);
  for (int v = 0; v <= 16; ++v) dc.frequency[v] = 1 + uint32_t(v);
  dc.Generate();
  ac.Generate();
  FrameHuffman dcCount, acCount;
  std::string bits;
  int16_t predictor = 0;
  for (const auto& b : blocks)
    bits += ReferenceBlockBits(b.data(), predictor, dc, ac, dcCount, acCount);
  const std::string expect = Stuffed(bits);

  // The plain coder, then the vector one on every vector unit built and
  // present (target 0: the plain coder).
  std::vector<int64_t> targets = {0};
  for (int64_t t : hwy::SupportedAndGeneratedTargets()) targets.push_back(t);
  for (int64_t target : targets) {
    const bool vector = target != 0;
    hwy::SetSupportedTargetsForTest(target);
    const std::string where = vector ? VectorUnitName() : "plain";
    std::vector<CodedBlock> coded;
    int16_t codePredictor = 0, countPredictor = 0;
    for (const auto& b : blocks) coded.push_back({b.data(), &codePredictor, &dc, &ac});
    jpegtest::StringStream big, oneAtATime(new uint8_t[600], 600);
    for (jpegtest::StringStream* out : {&big, &oneAtATime}) {
      codePredictor = 0;
      BitPacker packer(out, vector);
      packer.OutputBlocks(coded.data(), coded.size());
      packer.Flush();
      out->DumpBuffer();
      EXPECT_EQ(out->bytes, expect) << where;
    }
    FrameHuffman dcCounted, acCounted;
    for (auto& c : coded) {
      c.predictor = &countPredictor;
      c.dc = &dcCounted;
      c.ac = &acCounted;
    }
    CountBlocks(coded.data(), coded.size(), vector);
    EXPECT_TRUE(std::equal(dcCounted.frequency, dcCounted.frequency + 257, dcCount.frequency))
        << where;
    EXPECT_TRUE(std::equal(acCounted.frequency, acCounted.frequency + 257, acCount.frequency))
        << where;
  }
  hwy::SetSupportedTargetsForTest(0);
}

TEST(Presets, ChromaSubsampledUpToSixThenCoarserRows) {
  EncoderDescription d;
  d.flags = 0x112;
  d.PixmereQuality(6);
  EXPECT_EQ(d.components[0].h * 10 + d.components[0].v, 22);
  const std::vector<uint16_t> lum6(d.quantTables[0], d.quantTables[0] + 64);
  const std::vector<uint16_t> chr6(d.quantTables[1], d.quantTables[1] + 64);
  // Full-resolution chroma from row 7 is paid for: divisors of row 6 below 12
  // grow by a quarter (rounded down) in row 7 and by an eighth (rounded up)
  // in row 8; the others stay. Exact, so that a change of the rule shows.
  const uint16_t lum7[8] = {10, 7, 7, 10, 12, 14, 16, 17}, lum8[8] = {9, 7, 7, 9, 12, 14, 16, 17};
  for (int q : {7, 8}) {
    d.PixmereQuality(q);
    EXPECT_EQ(d.components[0].h * 10 + d.components[0].v, 11) << q;
    for (int i = 0; i < 8; ++i) EXPECT_EQ(d.quantTables[0][i], (q == 7 ? lum7 : lum8)[i]) << i;
    for (int t = 0; t < 2; ++t) {
      const std::vector<uint16_t>& six = t ? chr6 : lum6;
      for (int i = 0; i < 64; ++i) {
        const int v = six[i];
        const int expect = v >= 12 ? v : q == 7 ? v * 5 / 4 : (v * 9 + 7) / 8;
        EXPECT_EQ(d.quantTables[t][i], expect) << q << " table " << t << " entry " << i;
      }
    }
  }
  d.flags = 0x004;  // CMYK: four components on one table
  d.PixmereQuality(3);
  EXPECT_EQ(d.componentCount * 10 + d.tableCount, 41);
  d.Quality0to100(3);  // kept: the argument is ignored, every divisor is 1
  EXPECT_EQ(d.quantTables[0][0] + d.quantTables[0][63], 2);
}

// Encodes rows from any source with the plug-in's settings at quality 12.
void EncodeRows(RowMemoryRequester& rows, int width, int height, jpegtest::StringStream& out,
                uint32_t flags = 0x112, AppDataCallback* appData = nullptr) {
  InitializeJPEGEncoder();
  EncoderDescription desc;
  desc.flags = flags;
  desc.PixmereQuality(12);
  JPEGEncoder(&rows, uint16_t(width), uint16_t(height)).EncodeImage(&out, desc, appData, 0, 4);
  out.DumpBuffer();
}

// Other channel orders, four bytes a pixel and a tiny caller buffer: the
// same bytes as the plug-in's own path.
TEST(Encoder, RowLayoutsAndSinksGiveTheSameBytes) {
  const jpegtest::Rgb rgb = jpegtest::NoiseImage(21, 13, 4);
  jpegtest::Rgb bgr = rgb;
  std::vector<uint8_t> xrgb(21 * 13 * 4, 0xAB);
  for (size_t i = 0; i < size_t(21 * 13); ++i) {
    std::swap(bgr.pixels[i * 3], bgr.pixels[i * 3 + 2]);
    std::copy_n(&rgb.pixels[i * 3], 3, &xrgb[i * 4 + 1]);
  }
  const std::string reference = jpegtest::Encode(rgb, 12);
  EXPECT_EQ(jpegtest::Encode(bgr, 12, 0x192), reference);
  BufferRowMemoryRequester wide(xrgb.data(), 21 * 4, 13);  // the pitch comes from the source
  jpegtest::StringStream out;
  EncodeRows(wide, 21, 13, out, 0x130);
  EXPECT_EQ(out.bytes, reference);
  BufferRowMemoryRequester rows(rgb.pixels.data(), 21 * 3, 13);
  // Released by the stream with array delete (the leak checker would object).
  jpegtest::StringStream tiny(new uint8_t[5], 5);
  EncodeRows(rows, 21, 13, tiny);
  EXPECT_EQ(tiny.capacity, 5u);
  EXPECT_EQ(tiny.bytes, reference);
}

TEST(Encoder, RowSourceFailureStillClosesTheFile) {
  struct FailingRows : BufferRowMemoryRequester {
    using BufferRowMemoryRequester::BufferRowMemoryRequester;
    int Request() override { return allowed-- > 0 ? BufferRowMemoryRequester::Request() : 0; }
    int allowed = 0;
  };
  const jpegtest::Rgb img = jpegtest::NoiseImage(32, 32, 9);
  for (int allowed : {0, 5}) {  // during the first pass, during the second
    FailingRows rows(img.pixels.data(), 32 * 3, 32);
    rows.allowed = allowed;
    jpegtest::StringStream out;
    EncodeRows(rows, 32, 32, out);
    ASSERT_GE(out.bytes.size(), 4u);
    EXPECT_EQ(out.bytes.substr(out.bytes.size() - 2), "\xFF\xD9");
    EXPECT_EQ(out.bytes.find("\xFF\xDA") != std::string::npos, allowed > 0) << allowed;
  }
}

TEST(Encoder, ApplicationSegmentsFollowSoi) {
  struct TwoSegments : AppDataCallback {
    int NextSegment() override {
      if (n == 2) return 0;
      appIndex = n ? 13 : 1;
      segmentData = reinterpret_cast<const uint8_t*>(n ? "Z" : "abc");
      segmentLength = n ? 1 : 3;
      return ++n;
    }
    int HasRawPrefix() override { return 0; }
    int n = 0;
  } segments;
  const jpegtest::Rgb img = jpegtest::NoiseImage(8, 8, 1);
  BufferRowMemoryRequester rows(img.pixels.data(), 24, 8);
  jpegtest::StringStream out;
  EncodeRows(rows, 8, 8, out, 0x112, &segments);
  EXPECT_EQ(out.bytes.substr(0, 16), std::string("\xFF\xD8\xFF\xE1\x00\x05"
                                                 "abc\xFF\xED\x00\x03Z\xFF\xEE",
                                                 16));
  jpegtest::Rgb decoded;
  std::string error;
  EXPECT_TRUE(jpegtest::Decode(out.bytes, decoded, error)) << error;
}

}  // namespace
