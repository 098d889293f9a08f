// The pieces of a thumbnail page that the benchmarks time and the tests check
// on their own: a chip's colour and drawing one chip into the 283-wide page
// raster. Not exported: a host takes display colours from xmp/display_colour.h.
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

// Draws a 31 x 31 chip with its black ring at (x, y), red and blue exchanged
// on a little-endian machine.
void DrawChip(unsigned char* raster, int32_t x, int32_t y, ChipRgb colour);

}  // namespace xmppages
