// Quality presets of EncoderDescription.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "jpeg/tables.h"
#include "jpeg/zjpeg.h"

namespace ZJPEG {

void EncoderDescription::PixmereQuality(int q) {
  q = std::clamp(q, 0, 12);
  const bool grey = (flags & kDescGrey) != 0;
  const bool threeComponents =
      !grey && ((flags & (kDescRGB | kDescRGBAlt)) != 0 || (flags & kDescCMYK) == 0);
  tableCount = threeComponents ? 2 : 1;
  componentCount = grey ? 1 : threeComponents ? 3 : 4;
  std::memcpy(quantTables[0], kLuminanceQPS.rows[q], sizeof quantTables[0]);
  if (threeComponents) std::memcpy(quantTables[1], kChrominanceQPS.rows[q], sizeof quantTables[1]);
  for (int c = 0; c < componentCount; ++c) {
    components[c] = {1, 1, 0};
    if (threeComponents && c > 0) components[c].tq = 1;
  }
  if (threeComponents && k2to1s[q]) components[0] = {2, 2, 0};
}

void EncoderDescription::DefaultQuality() {
  tableCount = 2;
  componentCount = 3;
  std::memcpy(quantTables[0], kAnnexKLuminance, sizeof quantTables[0]);
  std::memcpy(quantTables[1], kAnnexKChrominance, sizeof quantTables[1]);
  components[0] = {2, 2, 0};
  components[1] = {1, 1, 1};
  components[2] = {1, 1, 1};
}

// The argument is ignored on purpose: every quality maps to the all-ones table.
void EncoderDescription::Quality0to100(int) {
  tableCount = 1;
  std::fill(std::begin(quantTables[0]), std::end(quantTables[0]), uint16_t{1});
}

}  // namespace ZJPEG
