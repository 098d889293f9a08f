// Optimal Huffman tables, symbol counting and the bit packer.
#ifndef QL_JPEG_HUFFMAN_H
#define QL_JPEG_HUFFMAN_H

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

// Entropy-coded output: whole 32-bit words with 0xFF00 stuffing, straight
// into the stream's buffer.
class BitPacker {
 public:
  explicit BitPacker(JPEGOutputStream* out) : out_(out) {}
  // Codes one block; checks the stream for room first.
  void OutputOneDCT(const int16_t* block, int16_t& predictor, const FrameHuffman& dc,
                    const FrameHuffman& ac);
  void Put(uint32_t code, uint32_t length);  // length 0…32
  // Whole bytes, then a last partial byte padded with zero bits; all stuffed.
  void Flush();

 private:
  void WriteWord(uint32_t word);
  void WriteByte(uint8_t b);

  JPEGOutputStream* out_;
  uint64_t acc_ = 0;  // held bits, left-aligned at bit 63
  uint32_t held_ = 0;
};

}  // namespace ZJPEG

#endif  // QL_JPEG_HUFFMAN_H
