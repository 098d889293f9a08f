// Every row layout the flags name, refused descriptions, and a sink that
// fails part way.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include <hwy/targets.h>

#include "jpeg/vector.h"
#include "jpeg/zjpeg.h"
#include "tests/support/jpeg_util.h"

namespace {

using namespace ZJPEG;
using jpegtest::Rgb;

// An image of `channels` interleaved bytes a pixel (noise over gradients);
// the fourth channel of CMYK is made from the others so that it varies too.
Rgb Source(int width, int height, int channels, uint32_t seed) {
  const Rgb rgb = jpegtest::NoiseImage(width, height, seed);
  if (channels == 3) return rgb;
  Rgb out{width, height, std::vector<uint8_t>(size_t(width) * height * channels)};
  for (size_t i = 0; i < size_t(width) * height; ++i) {
    const uint8_t* p = &rgb.pixels[i * 3];
    if (channels == 1) {
      out.pixels[i] = p[1];
    } else {
      for (int c = 0; c < 3; ++c) out.pixels[i * 4 + c] = uint8_t(255 - p[c]);
      out.pixels[i * 4 + 3] = uint8_t((p[0] + p[2]) / 2);
    }
  }
  return out;
}

// The rows `flags` describe: `order` lists the source channel of each byte
// of a pixel (−1: an extra byte), laid out interleaved or as planes.
std::vector<uint8_t> Rows(const Rgb& src, int channels, const std::vector<int>& order,
                          bool planar) {
  const size_t w = size_t(src.width), n = order.size();
  std::vector<uint8_t> rows(w * src.height * n);
  for (size_t y = 0; y < size_t(src.height); ++y) {
    for (size_t x = 0; x < w; ++x) {
      for (size_t k = 0; k < n; ++k) {
        const uint8_t v = order[k] < 0 ? uint8_t(0x5A + x)
                                       : src.pixels[(y * w + x) * channels + size_t(order[k])];
        rows[y * w * n + (planar ? k * w + x : x * n + k)] = v;
      }
    }
  }
  return rows;
}

// What a fresh encoder chooses on this processor and environment.
bool VectorPathByDefaultForTests() {
  return JPEGEncoder(nullptr, 1, 1).VectorPath();
}

struct Result {
  uint32_t code;
  std::string bytes;
};

Result EncodeRows(const std::vector<uint8_t>& rows, size_t pixelBytes, int width, int height,
                  uint32_t flags, int quality, bool vector = VectorPathByDefaultForTests()) {
  InitializeJPEGEncoder();
  EncoderDescription desc;
  desc.flags = flags;
  desc.PixmereQuality(quality);
  BufferRowMemoryRequester source(rows.data(), uint32_t(width * pixelBytes), uint16_t(height));
  jpegtest::StringStream out;
  JPEGEncoder encoder(&source, uint16_t(width), uint16_t(height));
  encoder.SetVectorPath(vector);
  const uint32_t code = encoder.EncodeImage(&out, desc, nullptr, 0, 4);
  out.DumpBuffer();
  return {code, out.bytes};
}

struct Layout {
  uint32_t flags;
  std::vector<int> order;
  bool planar;
};

// Per colour family: the reference layout first, then the ones that must
// give its bytes.
struct Family {
  int channels;
  uint32_t family;
  std::vector<Layout> layouts;
};

const std::vector<Family> kFamilies = {
    {3,
     0x002,
     {{0x112, {0, 1, 2}, false},
      {0x192, {2, 1, 0}, false},
      {0x130, {-1, 0, 1, 2}, false},
      {0x1B0, {-1, 2, 1, 0}, false},
      {0x10A, {0, 1, 2}, true},
      {0x128, {-1, 0, 1, 2}, true}}},
    {4,
     0x004,
     {{0x114, {0, 1, 2, 3}, false}, {0x194, {3, 2, 1, 0}, false}, {0x10C, {0, 1, 2, 3}, true}}},
    {1, 0x001, {{0x111, {0}, false}}},
};

// Odd sizes, and quality 3 (4:2:0 for RGB) with odd widths: every layout of
// a family gives the same bytes, which the reference library decodes (as
// grey, YCbCr or CMYK as stored) close to the source, and to the very pixels
// of the progressive frame.
TEST(Layouts, EveryLayoutGivesTheSameBytesAndDecodesCloseToTheSource) {
  for (const Family& f : kFamilies) {
    for (auto [width, height] : {std::pair{1, 1}, {9, 3}, {283, 31}, {31, 17}}) {
      for (auto [quality, floor] : {std::pair{12, 44.0}, {3, 30.0}}) {
        const Rgb src = Source(width, height, f.channels, uint32_t(width + height));
        const Layout& ref = f.layouts[0];
        const Result reference = EncodeRows(Rows(src, f.channels, ref.order, ref.planar),
                                            ref.order.size(), width, height, ref.flags, quality);
        const std::string where = std::to_string(f.family) + " " + std::to_string(width) + "x" +
                                  std::to_string(height) + " q" + std::to_string(quality);
        ASSERT_EQ(reference.code, JPEGEncoder::kEncodeDone) << where;
        Rgb decoded;
        std::string error;
        ASSERT_TRUE(jpegtest::DecodeSamples(reference.bytes, f.channels, decoded, error))
            << where << ": " << error;
        EXPECT_GE(jpegtest::Psnr(src, decoded), floor) << where;
        // Progressive: the same coefficients, so the same decoded pixels.
        const Result progressive =
            EncodeRows(Rows(src, f.channels, ref.order, ref.planar), ref.order.size(), width,
                       height, ref.flags | EncoderDescription::kDescProgressive, quality);
        ASSERT_EQ(progressive.code, JPEGEncoder::kEncodeDone) << where;
        EXPECT_NE(progressive.bytes.find("\xFF\xC2"), std::string::npos) << where;
        Rgb fromProgressive;
        ASSERT_TRUE(jpegtest::DecodeSamples(progressive.bytes, f.channels, fromProgressive, error))
            << where << " progressive: " << error;
        EXPECT_EQ(fromProgressive.pixels, decoded.pixels) << where << " progressive";
        for (const Layout& l : f.layouts) {
          const Result r = EncodeRows(Rows(src, f.channels, l.order, l.planar), l.order.size(),
                                      width, height, l.flags, quality);
          EXPECT_EQ(r.code, JPEGEncoder::kEncodeDone) << where << " flags " << l.flags;
          EXPECT_EQ(r.bytes, reference.bytes) << where << " flags " << l.flags;
        }
      }
    }
  }
}

// Pixels that reach every corner of the arithmetic: uniform noise, the
// extremes 0 and 255 (the widest sums of the colour weights and the largest
// coefficients), and noise over gradients.
Rgb Extreme(int width, int height, int channels, uint32_t seed, int kind) {
  if (kind == 2) return Source(width, height, channels, seed);
  Rgb out{width, height, std::vector<uint8_t>(size_t(width) * height * channels)};
  uint32_t s = seed;
  for (size_t i = 0; i < out.pixels.size(); ++i) {
    s = s * 1664525u + 1013904223u;
    out.pixels[i] = kind == 0 ? uint8_t(s >> 24) : ((s >> 28) & 1 ? 255 : 0);
  }
  return out;
}

// The vector path gives the scalar path's bytes on every layout, at sizes
// that leave partial blocks at the edges and at whole-block sizes, at the
// qualities that subsample and that do not, baseline, extended with full
// statistics, and progressive.
TEST(VectorPath, GivesTheScalarBytesOnEveryLayout) {
  for (const Family& f : kFamilies) {
    for (auto [width, height] : {std::pair{1, 1}, {9, 3}, {16, 8}, {283, 31}, {67, 45}}) {
      for (int kind = 0; kind < 3; ++kind) {
        const Rgb src = Extreme(width, height, f.channels, uint32_t(width * 31 + kind), kind);
        for (const Layout& l : f.layouts) {
          const std::vector<uint8_t> rows = Rows(src, f.channels, l.order, l.planar);
          for (uint32_t extra : {0x0u, 0x2000u, 0x400u}) {
            for (int quality : {12, 6, 3, 0}) {
              const uint32_t flags = l.flags | extra;
              const Result scalar =
                  EncodeRows(rows, l.order.size(), width, height, flags, quality, false);
              const Result vector =
                  EncodeRows(rows, l.order.size(), width, height, flags, quality, true);
              const std::string where = std::to_string(width) + "x" + std::to_string(height) +
                                        " kind " + std::to_string(kind) + " flags " +
                                        std::to_string(flags) + " q" + std::to_string(quality);
              ASSERT_EQ(scalar.code, JPEGEncoder::kEncodeDone) << where;
              ASSERT_EQ(vector.code, JPEGEncoder::kEncodeDone) << where;
              ASSERT_EQ(vector.bytes, scalar.bytes) << where;
            }
          }
        }
      }
    }
  }
}

// The processor runs its best vector unit only; every other build the
// dispatch holds (the 128-bit units, the one-lane fallback) is made to run
// here in turn and must give the same bytes.
TEST(VectorPath, EveryBuiltVectorUnitGivesTheScalarBytes) {
  const std::vector<int64_t> targets = hwy::SupportedAndGeneratedTargets();
  for (int64_t target : targets) {
    hwy::SetSupportedTargetsForTest(target);
    for (const Family& f : kFamilies) {
      for (auto [width, height] : {std::pair{67, 45}, {16, 8}}) {
        for (int kind = 0; kind < 3; ++kind) {
          const Rgb src = Extreme(width, height, f.channels, uint32_t(width + kind), kind);
          for (const Layout& l : f.layouts) {
            const std::vector<uint8_t> rows = Rows(src, f.channels, l.order, l.planar);
            for (int quality : {12, 3}) {
              const Result scalar =
                  EncodeRows(rows, l.order.size(), width, height, l.flags, quality, false);
              const Result vector =
                  EncodeRows(rows, l.order.size(), width, height, l.flags, quality, true);
              ASSERT_EQ(vector.bytes, scalar.bytes)
                  << VectorUnitName() << " " << width << "x" << height << " kind " << kind
                  << " flags " << l.flags << " q" << quality;
            }
          }
        }
      }
    }
  }
  hwy::SetSupportedTargetsForTest(0);
  EXPECT_GE(targets.size(), 1u);
}

// The environment picks the default path; an encoder option overrides it.
TEST(VectorPath, IsTheDefaultWhenTheProcessorHasOneAndSelectablePerEncoder) {
  const bool byDefault = InitializeJPEGEncoder();
  JPEGEncoder encoder(nullptr, 1, 1);
  EXPECT_EQ(encoder.VectorPath(), byDefault);
  encoder.SetVectorPath(!byDefault);
  EXPECT_EQ(encoder.VectorPath(), !byDefault);
}

// Large enough for long end-of-band runs and for the correction bits held
// during a run to be written out early.
TEST(Layouts, ProgressiveFramesOfALargeImageDecodeToTheBaselinePixels) {
  const Rgb src = jpegtest::NoiseImage(1031, 777, 8);
  for (int quality : {12, 0}) {
    Rgb baseline, progressive;
    std::string error;
    ASSERT_TRUE(jpegtest::Decode(jpegtest::Encode(src, quality), baseline, error)) << error;
    ASSERT_TRUE(jpegtest::Decode(jpegtest::Encode(src, quality, 0x512), progressive, error))
        << quality << ": " << error;
    EXPECT_EQ(progressive.pixels, baseline.pixels) << quality;
  }
}

TEST(Layouts, CmykIsStoredUninvertedUnderATransformFreeApp14) {
  const Rgb src = Source(16, 8, 4, 5);
  const Result r = EncodeRows(src.pixels, 4, 16, 8, 0x114, 12);
  ASSERT_EQ(r.code, JPEGEncoder::kEncodeDone);
  EXPECT_EQ(r.bytes.substr(2, 2), "\xFF\xEE");
  EXPECT_EQ(r.bytes[17], '\0');  // transform 0: no colour transform
  Rgb decoded;
  std::string error;
  ASSERT_TRUE(jpegtest::DecodeSamples(r.bytes, 4, decoded, error)) << error;
  // Quality 12 is near-lossless: each sample within a few levels of the source.
  for (size_t i = 0; i < src.pixels.size(); ++i)
    ASSERT_NEAR(decoded.pixels[i], src.pixels[i], 3) << i;
}

// Descriptions no converter serves are refused before any byte: no colour
// bit, neither planar nor interleaved rows, 0x800, a component count the
// layout does not fill, an empty image.
TEST(Layouts, DescriptionsWithoutAConverterAreRefusedBeforeAnyByte) {
  const std::vector<uint8_t> px(64 * 4, 100);
  struct Case {
    uint32_t flags;
    int components;  // 0: as PixmereQuality sets
    uint16_t width;
  } cases[] = {{0x110, 0, 8}, {0x102, 0, 8}, {0x104, 0, 8}, {0x912, 0, 8},
               {0x111, 3, 8}, {0x112, 4, 8}, {0x114, 3, 8}, {0x112, 0, 0}};
  for (const Case& c : cases) {
    EncoderDescription desc;
    desc.flags = c.flags;
    desc.PixmereQuality(12);
    if (c.components) desc.componentCount = uint8_t(c.components);
    BufferRowMemoryRequester rows(px.data(), 32, 8);
    jpegtest::StringStream out;
    EXPECT_EQ(JPEGEncoder(&rows, c.width, 8).EncodeImage(&out, desc, nullptr, 0, 4),
              JPEGEncoder::kEncodeRefused)
        << c.flags << " " << c.components;
    out.DumpBuffer();
    EXPECT_EQ(out.bytes, "") << c.flags;
  }
}

// A sink that takes `allowed` bytes, then fails: it records every byte
// offered to it, so anything handed over after the failure shows.
class FailingSink : public JPEGOutputStream {
 public:
  FailingSink(uint32_t allowed, uint8_t* buffer, uint32_t size)
      : JPEGOutputStream(buffer, size), allowed_(allowed) {}
  void DumpBuffer() override { Take(count), count = 0; }
  void DumpBytes(void*, unsigned n) override { Take(n); }
  uint32_t offeredAfterFailure = 0;
  uint32_t taken = 0;

 private:
  void Take(uint32_t n) {
    if (failed) {
      offeredAfterFailure += n;
    } else if (taken + n > allowed_) {
      failed = 1;
    } else {
      taken += n;
    }
  }
  uint32_t allowed_;
};

TEST(OutputStream, AFailedWriteIsStickyAndReported) {
  const Rgb img = jpegtest::NoiseImage(64, 64, 3);
  std::vector<uint8_t> rows = img.pixels;
  // Failing in the headers, in the scan, and a healthy sink for reference.
  for (uint32_t allowed : {100u, 2000u, 1u << 20}) {
    FailingSink sink(allowed, new uint8_t[256], 256);
    EncoderDescription desc;
    desc.flags = 0x112;
    desc.PixmereQuality(12);
    BufferRowMemoryRequester source(rows.data(), 64 * 3, 64);
    const uint32_t code = JPEGEncoder(&source, 64, 64).EncodeImage(&sink, desc, nullptr, 0, 4);
    sink.DumpBuffer();
    const bool fits = allowed > 10000;
    EXPECT_EQ(code, fits ? JPEGEncoder::kEncodeDone : JPEGEncoder::kEncodeWriteFailed) << allowed;
    EXPECT_EQ(sink.failed, fits ? 0u : 1u) << allowed;
    EXPECT_EQ(sink.offeredAfterFailure, 0u) << allowed;
    EXPECT_EQ(sink.count, 0u) << allowed;
  }
  // A stream whose sink never drains fails on the byte after its capacity.
  struct Stuck : JPEGOutputStream {
    Stuck() : JPEGOutputStream(new uint8_t[4], 4) {}
    void DumpBuffer() override {}
    void DumpBytes(void*, unsigned) override {}
  } stuck;
  for (int i = 0; i < 6; ++i) stuck.PutByte(uint8_t(i));
  EXPECT_EQ(stuck.count, 4u);
  EXPECT_EQ(stuck.failed, 1u);
}

}  // namespace
