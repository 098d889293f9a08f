// What the plug-in's swatch reader makes of a file, for a host that explains
// a refusal or shows what the swatch packet leaves out, without reaching into
// the reader or the swatch book.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

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
};

// Parses the open file `fd` from its start as the plug-in's swatch request
// does, and leaves the file's offset at its start.
SwatchFileSurvey SurveySwatchFile(int fd);
