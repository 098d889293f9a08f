// Optimal Huffman tables, symbol counting and the bit packer.
#ifndef QL_JPEG_HUFFMAN_H
#define QL_JPEG_HUFFMAN_H

#include <cstddef>
#include <cstdint>

#include "jpeg/zjpeg.h"

namespace ZJPEG {

// One DC or AC table: symbol counts in, canonical codes limited to 16 bits out.
struct FrameHuffman {
  uint32_t inUse = 0;
  uint32_t frequency[257] = {};  // entry 256: the reserved symbol, 1 from the start
  int16_t others[257] = {};      // chain links of the length construction, −1 ends
  uint8_t codeSize[257] = {};    // length per symbol before limiting
  int16_t bits[33] = {};         // codes per length
  uint8_t values[256] = {};      // symbols in DHT order
  uint8_t sizeList[257] = {};    // length per position of `values`, ending with 0
  uint16_t codeList[256] = {};
  uint16_t last = 0;  // number of codes
  uint16_t codeBySymbol[256] = {};
  uint8_t lengthBySymbol[256] = {};

  FrameHuffman() { frequency[256] = 1; }

  // The seven steps, in order; Generate() runs them all.
  void code_size();
  void count_bits();
  void adjust_bits();
  void sort_input();
  void generate_size_table();
  void generate_code_table();
  void order_codes();
  void Generate();
};

// Size category (bit count) of a magnitude 0…65535.
uint8_t Category(uint32_t magnitude);

// Counts the symbols of one zigzag block; `predictor` is the component's DC.
void AddBlockToHuffman(const int16_t* block, int16_t& predictor, FrameHuffman& dc,
                       FrameHuffman& ac);

// A block of a pass: its zigzag coefficients, the DC predictor of its
// component and the tables its symbols are counted in or coded with.
struct CodedBlock {
  const int16_t* coefficients;
  int16_t* predictor;
  FrameHuffman* dc;
  FrameHuffman* ac;
};

// Counts the symbols of the blocks in order, with the vector unit's help
// when `vector`; the counts are the same.
void CountBlocks(const CodedBlock* blocks, size_t count, bool vector);

// Entropy-coded output with 0xFF00 stuffing, straight into the stream's
// buffer: bits gather in a 64-bit word that is stored whole once full.
class BitPacker {
 public:
  // `vector`: code blocks with the vector unit's help; the bytes are the same.
  explicit BitPacker(JPEGOutputStream* out, bool vector = false) : out_(out), vector_(vector) {}
  // Codes the blocks in order: an MCU row at a time, so that the bits stay
  // in registers from block to block.
  void OutputBlocks(const CodedBlock* blocks, size_t count);
  void Put(uint32_t code, uint32_t length);  // length 0…32, no bits above it
  // Whole bytes, then a last partial byte padded with zero bits; all stuffed.
  void Flush();

 private:
  // Runs `code` on the held bits over room for kMostBytes.
  template <uint32_t kMostBytes, typename Code>
  void Write(Code code);

  JPEGOutputStream* out_;
  bool vector_;
  uint64_t acc_ = 0;  // the low 64 − free_ bits are held, oldest highest
  int free_ = 64;     // 0…64
};

}  // namespace ZJPEG

#endif  // QL_JPEG_HUFFMAN_H
