// A swatch colour in display RGB through the host colour engine: the colour
// the chips of the thumbnail pages get, for a host that shows a swatch book
// itself. Needs the binding to the host colour engine initialised.
#pragma once

#include "swatchbook/kelto_swatchbook.h"

namespace xmppages {

// Gray, Lab and CMYK values in the book's units to display RGB (0 to 1,
// clamped), before any tint. False when the engine could not convert.
bool DisplayColour(KeltoSwatchbook::ColorSpace space, const double* values, float out[3]);

}  // namespace xmppages
