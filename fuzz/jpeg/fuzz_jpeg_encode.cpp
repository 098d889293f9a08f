// Encodes an image described by the input and decodes it with the reference
// library: any decoder warning, error or size mismatch aborts.
//
// Input: width − 1 and height − 1 (u16 big-endian each, taken modulo 300),
// quality (mod 13), layout selector, then pixel bytes repeated to fill.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "jpeg/zjpeg.h"
#include "tests/support/jpeg_util.h"

namespace {

// Flags by selector: the plug-in's path, B-G-R order, the extended frame with
// full statistics, and grey.
constexpr uint32_t kFlags[4] = {0x112, 0x192, 0x2012, 0x111};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 6) return 0;
  const int width = ((data[0] << 8) | data[1]) % 300 + 1;
  const int height = ((data[2] << 8) | data[3]) % 300 + 1;
  const int quality = data[4] % 13;
  const uint32_t flags = kFlags[data[5] % 4];
  const int channels = flags & ZJPEG::EncoderDescription::kDescGrey ? 1 : 3;
  std::vector<uint8_t> pixels(size_t(width) * height * channels);
  const size_t avail = size - 6;
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = avail ? data[6 + i % avail] : 0;

  ZJPEG::InitializeJPEGEncoder();
  ZJPEG::EncoderDescription desc;
  desc.flags = flags;
  desc.PixmereQuality(quality);
  ZJPEG::BufferRowMemoryRequester rows(pixels.data(), uint32_t(width * channels), uint16_t(height));
  jpegtest::StringStream out;
  ZJPEG::JPEGEncoder(&rows, uint16_t(width), uint16_t(height))
      .EncodeImage(&out, desc, nullptr, 0, 4);
  out.DumpBuffer();

  jpegtest::Rgb decoded;
  std::string error;
  if (!jpegtest::Decode(out.bytes, decoded, error)) {
    std::fprintf(stderr, "decoder: %s\n", error.c_str());
    std::abort();
  }
  if (decoded.width != width || decoded.height != height) {
    std::fprintf(stderr, "size mismatch\n");
    std::abort();
  }
  return 0;
}
