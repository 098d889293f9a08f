// Whole files: the marker sequence and a strict reference decode.
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/support/jpeg_util.h"

namespace {

using jpegtest::Rgb;

uint16_t Be16(const std::string& s, size_t at) {
  return uint16_t((uint8_t(s[at]) << 8) | uint8_t(s[at + 1]));
}

std::string Bytes(std::initializer_list<int> b) {
  std::string s;
  for (int v : b) s.push_back(char(v));
  return s;
}

TEST(JpegFile, ClientPathMarkersAndSegments) {
  const std::string f = jpegtest::Encode(jpegtest::NoiseImage(283, 31, 7), 12);
  ASSERT_GT(f.size(), 200u);
  EXPECT_EQ(f.substr(0, 2), Bytes({0xFF, 0xD8}));
  // APP14: 16 bytes with its marker, ending in the YCbCr transform byte.
  EXPECT_EQ(f.substr(2, 16),
            Bytes({0xFF, 0xEE, 0, 14, 'K', 'e', 'l', 't', 'o', 0, 100, 0xC0, 0, 0, 0, 1}));
  // One DQT with two 8-bit tables, zigzag order: row 12 luminance ends in 3.
  size_t p = 18;
  EXPECT_EQ(f.substr(p, 2), Bytes({0xFF, 0xDB}));
  EXPECT_EQ(Be16(f, p + 2), 132);
  EXPECT_EQ(uint8_t(f[p + 4]), 0x00);
  EXPECT_EQ(uint8_t(f[p + 4 + 64]), 3);
  EXPECT_EQ(uint8_t(f[p + 4 + 65]), 0x01);
  p += 2 + 132;
  EXPECT_EQ(f.substr(p, 6), Bytes({0xFF, 0xDD, 0, 4, 0, 0}));
  p += 6;
  EXPECT_EQ(f.substr(p, 19),
            Bytes({0xFF, 0xC0, 0, 17, 8, 0, 31, 1, 27, 3, 0, 0x11, 0, 1, 0x11, 1, 2, 0x11, 1}));
  p += 19;
  ASSERT_EQ(f.substr(p, 2), Bytes({0xFF, 0xC4}));
  // Two DC and two AC tables: class bytes 0x00, 0x01, 0x10, 0x11 in that order.
  size_t q = p + 4;
  for (int cls : {0x00, 0x01, 0x10, 0x11}) {
    EXPECT_EQ(uint8_t(f[q]), cls);
    int n = 0;
    for (int i = 1; i <= 16; ++i) n += uint8_t(f[q + i]);
    q += 17 + n;
  }
  EXPECT_EQ(q, p + 2 + Be16(f, p + 2));
  EXPECT_EQ(f.substr(q, 14), Bytes({0xFF, 0xDA, 0, 12, 3, 0, 0x00, 1, 0x11, 2, 0x11, 0, 63, 0}));
  EXPECT_EQ(f.substr(f.size() - 2), Bytes({0xFF, 0xD9}));
}

TEST(JpegFile, ExtendedFrameUsesOneTablePerComponent) {
  const std::string f = jpegtest::Encode(jpegtest::NoiseImage(20, 20, 3), 12, 0x012);
  ASSERT_NE(f.find(Bytes({0xFF, 0xC1})), std::string::npos);
  Rgb out;
  std::string error;
  EXPECT_TRUE(jpegtest::Decode(f, out, error)) << error;
  const size_t sos = f.find(Bytes({0xFF, 0xDA}));
  EXPECT_EQ(f.substr(sos + 5, 6), Bytes({0, 0x00, 1, 0x11, 2, 0x22}));
}

class JpegRoundTrip : public ::testing::TestWithParam<std::pair<int, int>> {};

TEST_P(JpegRoundTrip, DecodesCloseToTheSourceAtEveryRegime) {
  const auto [width, height] = GetParam();
  const Rgb src = jpegtest::NoiseImage(width, height, uint32_t(width * 31 + height));
  // Quality 12 is near-lossless; 6 and 0 subsample chroma 4:2:0.
  for (auto [quality, floor] : {std::pair{12, 44.0}, {6, 33.0}, {0, 28.0}}) {
    const std::string f = jpegtest::Encode(src, quality);
    Rgb out;
    std::string error;
    ASSERT_TRUE(jpegtest::Decode(f, out, error)) << "quality " << quality << ": " << error;
    ASSERT_EQ(std::pair(out.width, out.height), GetParam());
    const double psnr = jpegtest::Psnr(src, out);
    std::printf("%dx%d quality %d: %zu bytes, PSNR %.2f dB\n", width, height, quality, f.size(),
                psnr);
    EXPECT_GE(psnr, floor) << "quality " << quality;
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, JpegRoundTrip,
                         ::testing::Values(std::pair{1, 1}, std::pair{8, 8}, std::pair{9, 3},
                                           std::pair{283, 31}, std::pair{283, 283},
                                           std::pair{1031, 777}));

TEST(JpegFile, ExtremeSides) {
  // The largest side encodes; the reference decoder stops at 65500.
  const std::string widest = jpegtest::Encode(jpegtest::NoiseImage(65535, 9, 2), 12);
  const size_t sof = widest.find("\xFF\xC0");
  ASSERT_NE(sof, std::string::npos);
  EXPECT_EQ(Be16(widest, sof + 7), 65535);
  EXPECT_EQ(widest.substr(widest.size() - 2), "\xFF\xD9");
  for (auto [w, h] : {std::pair{65500, 9}, {9, 65500}}) {
    const Rgb src = jpegtest::NoiseImage(w, h, 11);
    Rgb out;
    std::string error;
    ASSERT_TRUE(jpegtest::Decode(jpegtest::Encode(src, 12), out, error)) << error;
    EXPECT_EQ(std::pair(out.width, out.height), std::pair(w, h));
    EXPECT_GE(jpegtest::Psnr(src, out), 44.0);
  }
}

}  // namespace
