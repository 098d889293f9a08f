// Swatch exchange files (signature "SXFF"): recognising one and loading it
// into a swatch book.
#pragma once

#include <cstdint>
#include <vector>

#include "swatchbook/kelto_swatchbook.h"
#include "swatchbook/kelto_swatchbook_heap.h"
#include "swatchbook/xml_string.h"
#include "swatchio/stream.h"

// What Parse answers; the numbers are the reader's documented codes (2 is
// not used).
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

class SXFReader {
 public:
  SXFReader();

  // 1 for a structurally sound file, else 0; unknownBlocks counts the blocks
  // of types the reader does not know.
  int32_t Check(KeltoSwatchbookStream& stream, int32_t& unknownBlocks);
  // An SXFParseResult. Bit 0 of flags keeps "$$$/key=text" names whole.
  int32_t Parse(KeltoSwatchbook& book, KeltoSwatchbookStream& stream, int32_t flags);
  // After a Parse that answered kSXFTruncated: the block (counted from 1)
  // that runs past the end, 0 when the header itself is cut short.
  uint32_t FailedBlock() const { return failedBlock_; }

  // A colour entry the last Parse stepped over because the reader does not
  // know its colour model: such an entry makes no swatch, so whoever shows a
  // file's colours can say what was left out.
  struct SteppedOver {
    XMLString name;
    uint32_t model;  // the four-character code as stored
  };
  const std::vector<SteppedOver>& SteppedOverEntries() const { return steppedOver_; }

 private:
  uint32_t failedBlock_ = 0;
  std::vector<SteppedOver> steppedOver_;
  XMLString name_;
  KeltoSwatchbookHeap heap_;
};

// Reads one string (16-bit unit count including the terminator, then the
// units, big-endian) at cursor; 1 on success, 0 when the data is too short.
int32_t ReadUTF16(char*& cursor, char* end, XMLString& out, uint32_t keepWhole);
