// Progressive scans over a whole image's quantised coefficients.
#ifndef QL_JPEG_PROGRESSIVE_H
#define QL_JPEG_PROGRESSIVE_H

#include <cstdint>

#include "jpeg/zjpeg.h"

namespace ZJPEG {

// One component's coefficients: blocks of 64 in zigzag order, row after row
// over the MCU-padded extent (`blocksAcross` × `blocksDown`); `usedAcross` ×
// `usedDown` of them cover the component's own samples.
struct CoefficientPlane {
  const int16_t* blocks = nullptr;
  uint32_t blocksAcross = 0, blocksDown = 0;
  uint32_t usedAcross = 0, usedDown = 0;
  uint8_t h = 1, v = 1;
};

// Writes every scan of the progression (DHT, SOS, entropy-coded data) after
// the frame header: three components take the script for luma and chroma,
// others the script for independent components. Each scan gets Huffman
// tables made from its own symbol counts.
void EncodeProgressiveScans(JPEGOutputStream* out, const CoefficientPlane* planes, int components,
                            uint32_t mcusAcross, uint32_t mcusDown);

}  // namespace ZJPEG

#endif  // QL_JPEG_PROGRESSIVE_H
