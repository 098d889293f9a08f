// Turns a loaded swatch book into one serialized XMP packet: the swatch
// groups with every colorant and its values, and the thumbnail pages.
#pragma once

#include <string>

class KeltoSwatchbook;

class XMPMgmt {
 public:
  // Exceptions of the XMP toolkit propagate to the caller.
  void GenerateXMP(KeltoSwatchbook& book, std::string& packet);
};
