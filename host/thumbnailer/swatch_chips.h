// A swatch book's display colours, from what the plug-in hands the host: the
// colorants of the selector-21 XMP packet, converted by the host colour
// engine through the same binding the chip pages use.
#pragma once

#include <string>
#include <vector>

#include "host/thumbnailer/swatch_grid.h"

namespace pxhost {

// Appends the display colour of every colorant that has one, in book order
// (group by group, swatch by swatch). "" or the reason the packet cannot be
// read. *skipped counts colorants with no colour model or values.
std::string SwatchChipsFromPacket(const std::string& packet, std::vector<ChipColour>* chips,
                                  int32_t* skipped);

}  // namespace pxhost
