// Gray through the engine's gray profile, Lab through its D50 Lab profile and
// CMYK through the engine's own CMYK space, each into its monitor RGB profile.
#include "xmp/display_colour.h"

#include <cmath>

#include "sdk/host_types.h"
#include "xmp/host_binding.h"

namespace xmppages {

// The engine's float output is not clipped, so it is clamped here.
bool DisplayColour(KeltoSwatchbook::ColorSpace space, const double* v, float out[3]) {
  float in[4] = {float(v[0]), float(v[1]), float(v[2]), float(v[3])};
  void* rgbProfile = CTinct::ProfileFromCode(pixmere::FourCC("mRGB"));
  void* srcProfile = nullptr;
  if (space == KeltoSwatchbook::kColorSpaceGray)
    srcProfile = CTinct::ProfileFromCode(pixmere::FourCC("sGra"));
  if (space == KeltoSwatchbook::kColorSpaceLAB)
    srcProfile = CTinct::ProfileFromCode(pixmere::FourCC("LD50"));
  bool ok = false;
  {
    CGravenColorProfile dstContainer(rgbProfile, 1, 0, false);
    CGravenColorSpace destination(rgbProfile, false, false, false, false, false);
    CGravenColorConvertOptions options;
    const CGravenColorConvertOptions& constOptions = options;
    if (space == KeltoSwatchbook::kColorSpaceCMYK) {
      CGravenColorSpace source(CGravenColorSpace::kFamilyCMYK, false, true, false, false, false);
      ok = source.ConvertOneColor(destination, in, out, constOptions, 0, 0, 0);
    } else {
      CGravenColorProfile srcContainer(srcProfile, 1, 0, false);
      CGravenColorSpace source(srcProfile, false, false, false, false, false);
      ok = source.ConvertOneColor(destination, in, out, constOptions, 0, 0, 0);
    }
  }
  if (srcProfile != nullptr) CTinct::UnReferenceProfile(srcProfile);
  CTinct::UnReferenceProfile(rgbProfile);
  for (int c = 0; c < 3; ++c) out[c] = std::fmin(std::fmax(out[c], 0.0f), 1.0f);
  return ok;
}

}  // namespace xmppages
