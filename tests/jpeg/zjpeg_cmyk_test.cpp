// zjpeg's CMYK files as a decoder reads them: libjpeg-turbo hands back the
// stored samples, which readers take as inverted ink (R = C' × K' / 255).
#include <gtest/gtest.h>

#include <string>

#include "tests/support/fixture_file.h"
#include "tests/support/jpeg_util.h"

namespace {

TEST(ZjpegCmyk, DecodesToTheColoursOfItsInk) {
  // Three 8 × 8 patches side by side (whole blocks, so each decodes flat):
  // pure cyan, 50 % black, no ink.
  const uint8_t inks[3][4] = {{255, 0, 0, 0}, {0, 0, 0, 128}, {0, 0, 0, 0}};
  const uint8_t want[3][3] = {{0, 255, 255}, {127, 127, 127}, {255, 255, 255}};
  std::string pam = "P7\nWIDTH 24\nHEIGHT 8\nDEPTH 4\nMAXVAL 255\nTUPLTYPE CMYK\nENDHDR\n";
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 24; ++x) pam.append(reinterpret_cast<const char*>(inks[x / 8]), 4);
  qltest::DiskFile in("patches.pam", pam);
  std::string out = in.path() + ".jpg";
  qltest::Outcome r = qltest::Shell(std::string(QL_ZJPEG) + " " + in.path() + " " + out +
                                    " --flags 114 --quality 12");
  ASSERT_EQ(r.status, 0) << r.out;
  std::string jpeg = qltest::Shell("cat " + out).out;
  jpegtest::Rgb decoded;
  std::string error;
  ASSERT_TRUE(jpegtest::DecodeSamples(jpeg, 4, decoded, error)) << error;
  ASSERT_EQ(decoded.width, 24);
  for (int patch = 0; patch < 3; ++patch) {
    const uint8_t* s = &decoded.pixels[size_t((4 * 24 + patch * 8 + 4) * 4)];
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(s[c] * s[3] / 255, want[patch][c], 3) << "patch " << patch << " channel " << c;
  }
}

}  // namespace
