// The vector forms of the per-block stages, compiled for every x86 vector
// unit Highway targets and picked at run time for the processor at hand. They
// give exactly the scalar path's samples and coefficients, so the bytes of a
// file never depend on the path.
#ifndef QL_JPEG_VECTOR_H
#define QL_JPEG_VECTOR_H

#include <cstddef>
#include <cstdint>

#include "jpeg/dct.h"

namespace ZJPEG {

struct BitState;
struct CodedBlock;

// True when the processor has a vector unit the build targets (beyond the
// portable 128-bit emulation).
bool VectorUnitPresent();
// Name of the vector unit the dispatch picks ("AVX2", "SSE4", …).
const char* VectorUnitName();

// Whether encoders take the vector path by default: a vector unit is
// present and ZJPEG_SCALAR is unset, empty or "0".
bool VectorPathByDefault();

// One image row of full-resolution RGB into the Y, Cb and Cr buffers of one
// MCU row: row `rowInBlock` (0…7) of the blocks of MCUs firstMcu,
// firstMcu + mcuStride, … below endMcu, each 8 pixels wholly inside the row.
// A channel is read at `row + offsets[channel] + x · step`, step 1 (planar),
// 3 or 4 (interleaved, offsets inside the pixel).
void ConvertRowYCbCrVector(const uint8_t* row, const size_t offsets[3], unsigned step,
                           unsigned firstMcu, unsigned endMcu, unsigned mcuStride,
                           unsigned rowInBlock, int16_t* const* buffers);

// DCTInteger's transform and quantisation, the same arithmetic in lanes.
int DCTIntegerVector(int16_t* block, const QuantSlot& slot);
// The same on `count` consecutive blocks: one dispatch for an MCU row.
void DCTIntegerVectorBlocks(int16_t* blocks, size_t count, const QuantSlot& slot);

// Codes zigzag blocks (the plain coder's symbols and bits, the same bytes):
// magnitudes, value bits and the nonzero mask computed in lanes. `bits`
// has room for the largest `count` blocks.
void CodeBlocksVector(BitState& bits, const CodedBlock* blocks, size_t count);
// Counts the symbols of the blocks in order, as CodeBlocksVector codes them.
void CountBlocksVector(const CodedBlock* blocks, size_t count);

}  // namespace ZJPEG

#endif  // QL_JPEG_VECTOR_H
