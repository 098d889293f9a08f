// Encodes an image described by the input and decodes it with the reference
// library: any decoder warning, error or size mismatch aborts. The input is
// described in fuzz_layouts.h.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz/jpeg/fuzz_layouts.h"
#include "jpeg/zjpeg.h"
#include "tests/support/jpeg_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzjpeg::Case c;
  if (!fuzzjpeg::ParseCase(data, size, c)) return 0;

  ZJPEG::InitializeJPEGEncoder();
  ZJPEG::EncoderDescription desc;
  desc.flags = c.flags;
  desc.PixmereQuality(c.quality);
  ZJPEG::BufferRowMemoryRequester rows(c.pixels.data(), uint32_t(c.width * c.layout.pixelBytes),
                                       uint16_t(c.height));
  jpegtest::StringStream out;
  if (ZJPEG::JPEGEncoder(&rows, uint16_t(c.width), uint16_t(c.height))
          .EncodeImage(&out, desc, nullptr, 0, 4) != ZJPEG::JPEGEncoder::kEncodeDone) {
    std::fprintf(stderr, "encoder refused a served layout\n");
    std::abort();
  }
  out.DumpBuffer();

  jpegtest::Rgb decoded;
  std::string error;
  if (!jpegtest::DecodeSamples(out.bytes, c.layout.channels, decoded, error)) {
    std::fprintf(stderr, "decoder: %s\n", error.c_str());
    std::abort();
  }
  if (decoded.width != c.width || decoded.height != c.height) {
    std::fprintf(stderr, "size mismatch\n");
    std::abort();
  }
  return 0;
}
