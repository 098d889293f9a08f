// The colour engine as the swatch pages reach it: through the binding. The
// chip colours themselves are checked against LittleCMS in the page tests.
#include <gtest/gtest.h>

#include <string>

#include "host/colour/colour_engine.h"
#include "sdk/host_types.h"
#include "xmp/host_binding.h"

namespace {

enum class Source { kGray, kCMYK };

// One conversion the way the swatch pages make it: every object made and
// released around the single colour.
bool ToDisplay(Source source, const float* in, float out[3]) {
  void* rgb = CTinct::ProfileFromCode(pixmere::FourCC("mRGB"));
  void* src = source == Source::kGray ? CTinct::ProfileFromCode(pixmere::FourCC("sGra")) : nullptr;
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

class ColourBinding : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(WeftClientInit(FindWeftProcLookup()), 0); }
  void TearDown() override { WeftClientTerminate(); }
};

TEST_F(ColourBinding, GrayIsNeutralAndResultsAreNotClipped) {
  float out[3];
  // Gray with the sRGB curve is sRGB's own neutral axis.
  const float gray[4] = {0.5f, 0, 0, 0};
  ASSERT_TRUE(ToDisplay(Source::kGray, gray, out));
  for (float c : out) EXPECT_NEAR(c, 0.5f, 0.002f);
  // Full cyan lies outside sRGB: red comes out negative; the pages clamp.
  ASSERT_FALSE(hostcolour::DefaultCMYKProfilePath().empty());
  const float cyan[4] = {1, 0, 0, 0};
  ASSERT_TRUE(ToDisplay(Source::kCMYK, cyan, out));
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
  // Transforms live for the process: earlier tests may already have made these two.
  EXPECT_LE(after.transformsCreated - before.transformsCreated, 2u);
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

// A host offering no lookup at all is covered by the request tests.
TEST(ColourBindingOffer, LookupLackingOneProcedureBindsNothing) {
  WeftProcLookup partial = [](const char* name) -> void* {
    return std::string(name) == kWeftColorSpaceConvertOneColor ? nullptr
                                                               : WeftGetGetProcAddress()(name);
  };
  EXPECT_EQ(WeftClientInit(partial), -1);
  EXPECT_EQ(CTinct::ProfileFromCode(pixmere::FourCC("mRGB")), nullptr);
}

}  // namespace
