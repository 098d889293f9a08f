// The display colours of a swatch book, read from the swatch packet the
// plug-in hands the host (selector 21): what palette export writes and what
// a picture of the book shows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pxhost {

struct DisplaySwatch {
  std::string group;  // the swatch's group name; empty when ungrouped
  std::string name;
  std::string model;           // colour model as the packet names it ("RGB", "CMYK", "LAB", "GRAY")
  std::string type;            // "SPOT" or "PROCESS" as the packet says
  double tint = 100;           // as the packet says
  std::vector<double> values;  // the colour values as stored in the packet
  bool drawable = false;       // false when the swatch has no colour model: r, g, b unset
  uint8_t r = 0, g = 0, b = 0;  // display colour: RGB swatches exact (round to nearest), others
                                // from the host colour engine, as the chip pages convert them
};

// Reads the colorants of a selector-21 swatch packet (the XMP the plug-in hands
// the host) in book order. Returns false with a reason in *error when the
// packet cannot be read.
bool DisplaySwatchesFromPacket(const std::string& packet, std::vector<DisplaySwatch>* out,
                               std::string* error);

}  // namespace pxhost
