// Encodes the image the input describes (fuzz_layouts.h) on the scalar and
// on the vector path: any difference in result or bytes aborts.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/jpeg/fuzz_layouts.h"
#include "jpeg/zjpeg.h"
#include "tests/support/jpeg_util.h"

namespace {

uint32_t Encode(const fuzzjpeg::Case& c, bool vector, jpegtest::StringStream& out) {
  ZJPEG::EncoderDescription desc;
  desc.flags = c.flags;
  desc.PixmereQuality(c.quality);
  ZJPEG::BufferRowMemoryRequester rows(c.pixels.data(), uint32_t(c.width * c.layout.pixelBytes),
                                       uint16_t(c.height));
  ZJPEG::JPEGEncoder encoder(&rows, uint16_t(c.width), uint16_t(c.height));
  encoder.SetVectorPath(vector);
  const uint32_t code = encoder.EncodeImage(&out, desc, nullptr, 0, 4);
  out.DumpBuffer();
  return code;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzjpeg::Case c;
  if (!fuzzjpeg::ParseCase(data, size, c)) return 0;
  ZJPEG::InitializeJPEGEncoder();
  jpegtest::StringStream scalar, vector;
  const uint32_t scalarCode = Encode(c, false, scalar);
  const uint32_t vectorCode = Encode(c, true, vector);
  if (scalarCode != vectorCode || scalar.bytes != vector.bytes) {
    std::fprintf(stderr, "paths differ: %ux%u flags %x quality %d: results %u/%u, %zu/%zu bytes\n",
                 unsigned(c.width), unsigned(c.height), unsigned(c.flags), c.quality,
                 unsigned(scalarCode), unsigned(vectorCode), scalar.bytes.size(),
                 vector.bytes.size());
    std::abort();
  }
  return 0;
}
