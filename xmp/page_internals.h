// The pieces of a thumbnail page that the benchmarks time on their own: a
// chip's colour and drawing one chip into the 283-wide page raster.
#pragma once

#include <cstdint>

#include "swatchbook/kelto_swatchbook.h"

namespace xmppages {

struct ChipRgb {
  uint8_t r, g, b;
};

// The colour of a swatch's chip from its best-format values and stored tint;
// gray, Lab and CMYK go through the host colour engine (binding initialised).
ChipRgb ChipColour(KeltoSwatchbook::ColorSpace space, const double* values, double tint);

// A colour in display RGB (0 to 1, clamped) through the host colour engine, as
// the chips of gray, Lab and CMYK swatches get it before their tint; values in
// the book's units. False when the engine could not convert.
bool DisplayColour(KeltoSwatchbook::ColorSpace space, const double* values, float out[3]);

// Draws a 31 x 31 chip with its black ring at (x, y), red and blue exchanged
// on a little-endian machine.
void DrawChip(unsigned char* raster, int32_t x, int32_t y, ChipRgb colour);

}  // namespace xmppages
