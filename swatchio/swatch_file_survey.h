// What the plug-in's swatch reader makes of a file, for a host that explains
// a refusal or shows the book itself (palettes, a picture of the book),
// without reaching into the reader or the swatch book.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "swatchbook/kelto_swatchbook.h"
#include "swatchio/sxf_result.h"

struct SwatchFileSurvey {
  int32_t result = kSXFUnreadable;  // an SXFParseResult
  // With kSXFTruncated: the block (counted from 1) that runs past the end,
  // 0 when the header itself is cut short.
  uint32_t failedBlock = 0;
  // The colour entries the reader steps over because it does not know their
  // colour model: they make no swatch, so the packet never lists them.
  struct SteppedOver {
    std::string name;  // UTF-8
    uint32_t model;    // the four-character code as stored
  };
  std::vector<SteppedOver> steppedOver;
  // The book's swatches in the order the swatch packet lists them, group by
  // group, each in the format the packet would write. Unlike the packet, an
  // empty name stays empty and a name keeps every character as the book holds
  // it (a surrogate without its pair as three bytes of its own); values stay
  // in the book's units, untruncated.
  struct Swatch {
    // The book's group, counted from 0, or -1 for its ungrouped list; the
    // group's name in UTF-8, empty for the ungrouped list and for a group the
    // file gives an empty name.
    int32_t groupIndex;
    std::string group;
    std::string name;  // UTF-8
    KeltoSwatchbook::SwatchType type;
    double tint;  // the book's: the share taken away, 0 at full strength
    KeltoSwatchbook::ColorSpace space;
    double values[4];
  };
  std::vector<Swatch> swatches;
};

// Parses the open file `fd` from its start as the plug-in's swatch request
// does, and leaves the file's offset at its start.
SwatchFileSurvey SurveySwatchFile(int fd);
