// What the swatch exchange file reader answers; the numbers are the reader's
// documented codes (2 is not used).
#pragma once

#include <cstdint>

enum SXFParseResult : int32_t {
  kSXFParsed = 0,
  kSXFUnreadable = 1,
  kSXFBadSignature = 3,
  kSXFBadVersion = 4,
  kSXFTruncated = 5,
  kSXFTooManyBlocks = 6,
};

// The most blocks a swatch exchange file may hold: the format's limit, a
// file that counts more is refused (kSXFTooManyBlocks).
inline constexpr uint32_t kSXFMaxBlocks = 10000;
