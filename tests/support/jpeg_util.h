// JPEG helpers shared by the encoder tests, the fuzz target and the
// benchmarks: in-memory encoding and a strict reference decode.
#ifndef QL_TESTS_SUPPORT_JPEG_UTIL_H
#define QL_TESTS_SUPPORT_JPEG_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "jpeg/zjpeg.h"

namespace jpegtest {

class StringStream : public ZJPEG::JPEGOutputStream {
 public:
  StringStream() = default;
  StringStream(void* buffer, uint32_t size) : JPEGOutputStream(buffer, size) {}
  ~StringStream() override { StringStream::DumpBuffer(); }
  void DumpBuffer() override {
    bytes.append(reinterpret_cast<const char*>(buffer), count);
    count = 0;
  }
  void DumpBytes(void* p, unsigned n) override { bytes.append(static_cast<const char*>(p), n); }
  std::string bytes;
};

struct Rgb {
  int width = 0, height = 0;
  std::vector<uint8_t> pixels;  // width × 3 bytes per row (DecodeSamples: × channels)
};

Rgb NoiseImage(int width, int height, uint32_t seed);
// Encodes with the plug-in's settings except the quality.
std::string Encode(const Rgb& img, int quality, uint32_t flags = 0x112,
                   int tableMethod = ZJPEG::JPEGEncoder::kTables8Bit);
// Decodes with the reference library; warnings count as failures.
bool Decode(const std::string& jpeg, Rgb& out, std::string& error);
// The same with 1 (grey), 3 (RGB) or 4 (CMYK, as stored) channels a pixel.
bool DecodeSamples(const std::string& jpeg, int channels, Rgb& out, std::string& error);
double Psnr(const Rgb& a, const Rgb& b);

}  // namespace jpegtest

#endif  // QL_TESTS_SUPPORT_JPEG_UTIL_H
