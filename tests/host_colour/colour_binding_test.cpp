// The colour engine as the swatch pages reach it: through the binding, with
// LittleCMS's own direct conversion of the same colours as the reference.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <string>

#include "host/colour/colour_engine.h"
#include "sdk/host_types.h"
#include "xmp/host_binding.h"

namespace {

enum class Source { kGray, kLab, kCMYK };

// One conversion the way the swatch pages make it: every object made and
// released around the single colour.
bool ToDisplay(Source source, const float* in, float out[3]) {
  void* rgb = CTinct::ProfileFromCode(pixmere::FourCC("mRGB"));
  void* src = nullptr;
  if (source == Source::kGray) src = CTinct::ProfileFromCode(pixmere::FourCC("sGra"));
  if (source == Source::kLab) src = CTinct::ProfileFromCode(pixmere::FourCC("LD50"));
  bool ok = false;
  {
    CGravenColorProfile dstContainer(rgb, 1, 0, false);
    CGravenColorSpace destination(rgb, false, false, false, false, false);
    CGravenColorConvertOptions options;
    if (source == Source::kCMYK) {
      CGravenColorSpace cmyk(CGravenColorSpace::kFamilyCMYK, false, true, false, false, false);
      ok = cmyk.ConvertOneColor(destination, in, out, options, 0, 0, 0);
    } else {
      CGravenColorProfile srcContainer(src, 1, 0, false);
      CGravenColorSpace space(src, false, false, false, false, false);
      ok = space.ConvertOneColor(destination, in, out, options, 0, 0, 0);
    }
  }
  CTinct::UnReferenceProfile(src);
  CTinct::UnReferenceProfile(rgb);
  return ok;
}

// Converts one float pixel with a fresh LittleCMS transform (relative
// colorimetric, no black-point compensation) and closes both profiles.
void Direct(cmsHPROFILE from, cmsUInt32Number inFormat, const float* in, cmsHPROFILE to,
            cmsUInt32Number outFormat, float* out) {
  cmsHTRANSFORM t =
      cmsCreateTransform(from, inFormat, to, outFormat, INTENT_RELATIVE_COLORIMETRIC, 0);
  ASSERT_NE(t, nullptr);
  cmsDoTransform(t, in, out, 1);
  cmsDeleteTransform(t);
  cmsCloseProfile(from);
  cmsCloseProfile(to);
}

// Colour difference (CIE76) between an unclipped sRGB result and a Lab one.
double DeltaE(const float rgb[3], const float lab[3]) {
  float fromRgb[3];
  Direct(cmsCreate_sRGBProfile(), TYPE_RGB_FLT, rgb, cmsCreateLab4Profile(nullptr), TYPE_Lab_FLT,
         fromRgb);
  cmsCIELab a{fromRgb[0], fromRgb[1], fromRgb[2]}, b{lab[0], lab[1], lab[2]};
  return cmsDeltaE(&a, &b);
}

class ColourBinding : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(WeftClientInit(FindWeftProcLookup()), 0); }
  void TearDown() override { WeftClientTerminate(); }
};

TEST_F(ColourBinding, AgreesWithDirectConversion) {
  float out[3];
  // Gray with the sRGB curve is sRGB's own neutral axis.
  const float gray[4] = {0.5f, 0, 0, 0};
  ASSERT_TRUE(ToDisplay(Source::kGray, gray, out));
  for (float c : out) EXPECT_NEAR(c, 0.5f, 0.002f);

  const float labs[2][3] = {{50, 0, 0}, {50, 60, -40}};
  for (const auto& lab : labs) {
    ASSERT_TRUE(ToDisplay(Source::kLab, lab, out));
    EXPECT_LT(DeltaE(out, lab), 1.0) << lab[0] << " " << lab[1] << " " << lab[2];
  }

  const std::string cmykPath = hostcolour::DefaultCMYKProfilePath();
  ASSERT_FALSE(cmykPath.empty());
  const float cyan[4] = {1, 0, 0, 0};
  ASSERT_TRUE(ToDisplay(Source::kCMYK, cyan, out));
  float reference[3];
  const float cyanLcms[4] = {100, 0, 0, 0};  // LittleCMS float CMYK is 0..100
  Direct(cmsOpenProfileFromFile(cmykPath.c_str(), "r"), TYPE_CMYK_FLT, cyanLcms,
         cmsCreateLab4Profile(nullptr), TYPE_Lab_FLT, reference);
  EXPECT_LT(DeltaE(out, reference), 1.0);
  // Full cyan lies outside sRGB: red comes out negative, not clipped to 0.
  EXPECT_LT(out[0], 0.0f);
}

TEST_F(ColourBinding, OneTransformPerPairAndNothingLeaks) {
  const hostcolour::Counters before = hostcolour::GetCounters();
  float out[3];
  for (int i = 0; i < 10000; ++i) {
    const float gray[4] = {float(i % 101) / 100.0f, 0, 0, 0};
    const float cmyk[4] = {0.1f, 0.2f, 0.3f, float(i % 11) / 10.0f};
    ASSERT_TRUE(ToDisplay(Source::kGray, gray, out));
    ASSERT_TRUE(ToDisplay(Source::kCMYK, cmyk, out));
  }
  const hostcolour::Counters after = hostcolour::GetCounters();
  EXPECT_EQ(after.transformsCreated - before.transformsCreated, 2u);
  EXPECT_EQ(after.conversions - before.conversions, 20000u);
  EXPECT_EQ(after.liveObjects, before.liveObjects);
}

TEST_F(ColourBinding, RefusesWhatItCannotConvert) {
  float out[3] = {7, 7, 7};
  const std::string path = hostcolour::DefaultCMYKProfilePath();
  hostcolour::SetDefaultCMYKProfilePath("/nonexistent/cmyk.icc");
  const float cyan[4] = {1, 0, 0, 0};
  EXPECT_FALSE(ToDisplay(Source::kCMYK, cyan, out));
  hostcolour::SetDefaultCMYKProfilePath(path);
  EXPECT_NE(hostcolour::LastError().find("/nonexistent/cmyk.icc"), std::string::npos);
  EXPECT_NE(hostcolour::LastError().find("missing"), std::string::npos);
  EXPECT_EQ(out[0], 7.0f);

  // Unknown codes and families, stale pointers and non-zero reserved
  // arguments are refused rather than followed.
  EXPECT_EQ(CTinct::ProfileFromCode(pixmere::FourCC("????")), nullptr);
  void* rgbProfile = CTinct::ProfileFromCode(pixmere::FourCC("mRGB"));
  const int64_t live = hostcolour::GetCounters().liveObjects;
  CGravenColorProfile badIntent(rgbProfile, 4, 0, false);  // ICC has intents 0..3
  EXPECT_EQ(hostcolour::GetCounters().liveObjects, live);
  CGravenColorSpace rgb(rgbProfile, false, false, false, false, false);
  CTinct::UnReferenceProfile(rgbProfile);  // the space holds its own reference
  CGravenColorSpace family(7, false, true, false, false, false);
  CGravenColorConvertOptions options;
  EXPECT_FALSE(family.ConvertOneColor(rgb, cyan, out, options, 0, 0, 0));
  EXPECT_FALSE(rgb.ConvertOneColor(rgb, cyan, out, options, 1, 0, 0));
  int notAProfile = 0;
  CTinct::UnReferenceProfile(&notAProfile);
  CGravenColorSpace bogus(static_cast<void*>(&notAProfile), false, false, false, false, false);
  EXPECT_FALSE(bogus.ConvertOneColor(rgb, cyan, out, options, 0, 0, 0));
  EXPECT_EQ(out[0], 7.0f);
}

TEST(ColourBindingOffer, HostWithoutBindingLeavesClientInert) {
  hostcolour::SetBindingOffered(false);
  WeftProcLookup lookup = FindWeftProcLookup();
  hostcolour::SetBindingOffered(true);
  EXPECT_EQ(lookup, nullptr);
  EXPECT_EQ(WeftClientInit(lookup), -1);
  EXPECT_EQ(CTinct::ProfileFromCode(pixmere::FourCC("mRGB")), nullptr);
  float out[3] = {7, 7, 7};
  const float gray[4] = {0.5f, 0, 0, 0};
  EXPECT_FALSE(ToDisplay(Source::kGray, gray, out));
  EXPECT_EQ(out[0], 7.0f);

  // A lookup that lacks one procedure binds nothing.
  WeftProcLookup partial = [](const char* name) -> void* {
    return std::string(name) == kWeftColorSpaceConvertOneColor ? nullptr
                                                               : WeftGetGetProcAddress()(name);
  };
  EXPECT_EQ(WeftClientInit(partial), -1);
  EXPECT_EQ(CTinct::ProfileFromCode(pixmere::FourCC("mRGB")), nullptr);
}

}  // namespace
