// Encodes an image described by the input and decodes it with the reference
// library: any decoder warning, error or size mismatch aborts.
//
// Input: width − 1 and height − 1 (u16 big-endian each, taken modulo 300),
// quality (mod 13), row layout selector (its quotient's low bit: progressive),
// then pixel bytes repeated to fill.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "jpeg/zjpeg.h"
#include "tests/support/jpeg_util.h"

namespace {

// Row layouts by selector: flags, bytes a pixel (its row holds width × that),
// channels decoded. The plug-in's path, B-G-R order, the extended frame with
// full statistics, grey, a leading extra byte, planar RGB with and without the
// extra plane, interleaved CMYK both orders and planar CMYK.
struct Layout {
  uint32_t flags;
  int pixelBytes;
  int channels;
};
constexpr Layout kLayouts[] = {{0x112, 3, 3}, {0x192, 3, 3}, {0x2012, 3, 3}, {0x111, 1, 1},
                               {0x130, 4, 3}, {0x10A, 3, 3}, {0x128, 4, 3},  {0x114, 4, 4},
                               {0x194, 4, 4}, {0x10C, 4, 4}};
constexpr size_t kLayoutCount = sizeof kLayouts / sizeof kLayouts[0];

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 6) return 0;
  const int width = ((data[0] << 8) | data[1]) % 300 + 1;
  const int height = ((data[2] << 8) | data[3]) % 300 + 1;
  const int quality = data[4] % 13;
  const Layout layout = kLayouts[data[5] % kLayoutCount];
  const int channels = layout.pixelBytes;
  std::vector<uint8_t> pixels(size_t(width) * height * channels);
  const size_t avail = size - 6;
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = avail ? data[6 + i % avail] : 0;

  ZJPEG::InitializeJPEGEncoder();
  ZJPEG::EncoderDescription desc;
  // The selector's quotient picks the progressive frame for half the inputs.
  desc.flags = layout.flags | ((data[5] / kLayoutCount) & 1 ? 0x400 : 0);
  desc.PixmereQuality(quality);
  ZJPEG::BufferRowMemoryRequester rows(pixels.data(), uint32_t(width * channels), uint16_t(height));
  jpegtest::StringStream out;
  if (ZJPEG::JPEGEncoder(&rows, uint16_t(width), uint16_t(height))
          .EncodeImage(&out, desc, nullptr, 0, 4) != ZJPEG::JPEGEncoder::kEncodeDone) {
    std::fprintf(stderr, "encoder refused a served layout\n");
    std::abort();
  }
  out.DumpBuffer();

  jpegtest::Rgb decoded;
  std::string error;
  if (!jpegtest::DecodeSamples(out.bytes, layout.channels, decoded, error)) {
    std::fprintf(stderr, "decoder: %s\n", error.c_str());
    std::abort();
  }
  if (decoded.width != width || decoded.height != height) {
    std::fprintf(stderr, "size mismatch\n");
    std::abort();
  }
  return 0;
}
