// Encodes an image described by the input and decodes it with the reference
// library: any decoder warning, error or size mismatch aborts.
//
// Input: width − 1 and height − 1 (u16 big-endian each, taken modulo 300),
// quality (mod 13), layout selector, then pixel bytes repeated to fill.
#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// jpeglib.h needs size_t and FILE declared first.
#include <jpeglib.h>

#include "jpeg/zjpeg.h"

namespace {

class StringStream : public ZJPEG::JPEGOutputStream {
 public:
  void DumpBuffer() override {
    bytes.append(reinterpret_cast<const char*>(buffer), count);
    count = 0;
  }
  void DumpBytes(void* p, unsigned n) override { bytes.append(static_cast<const char*>(p), n); }
  std::string bytes;
};

struct StrictError {
  jpeg_error_mgr mgr;
  std::jmp_buf jump;
};

[[noreturn]] void Fail(j_common_ptr cinfo) {
  char message[JMSG_LENGTH_MAX];
  (*cinfo->err->format_message)(cinfo, message);
  std::fprintf(stderr, "decoder: %s\n", message);
  std::abort();
}

void Message(j_common_ptr cinfo, int level) {
  if (level < 0) Fail(cinfo);
}

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
  const bool grey = flags & ZJPEG::EncoderDescription::kDescGrey;
  const int channels = grey ? 1 : 3;
  std::vector<uint8_t> pixels(size_t(width) * height * channels);
  const size_t avail = size - 6;
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = avail ? data[6 + i % avail] : 0;

  ZJPEG::InitializeJPEGEncoder();
  ZJPEG::EncoderDescription desc;
  desc.flags = flags;
  desc.PixmereQuality(quality);
  ZJPEG::BufferRowMemoryRequester rows(pixels.data(), uint32_t(width * channels), uint16_t(height));
  StringStream out;
  ZJPEG::JPEGEncoder(&rows, uint16_t(width), uint16_t(height))
      .EncodeImage(&out, desc, nullptr, 0, 4);
  out.DumpBuffer();

  jpeg_decompress_struct cinfo;
  StrictError err;
  cinfo.err = jpeg_std_error(&err.mgr);
  err.mgr.error_exit = Fail;
  err.mgr.emit_message = Message;
  jpeg_create_decompress(&cinfo);
  jpeg_mem_src(&cinfo, reinterpret_cast<const unsigned char*>(out.bytes.data()), out.bytes.size());
  jpeg_read_header(&cinfo, TRUE);
  jpeg_start_decompress(&cinfo);
  if (int(cinfo.output_width) != width || int(cinfo.output_height) != height ||
      cinfo.output_components != channels) {
    std::fprintf(stderr, "size mismatch\n");
    std::abort();
  }
  std::vector<uint8_t> row(size_t(width) * channels);
  while (cinfo.output_scanline < cinfo.output_height) {
    JSAMPROW r = row.data();
    jpeg_read_scanlines(&cinfo, &r, 1);
  }
  jpeg_finish_decompress(&cinfo);
  jpeg_destroy_decompress(&cinfo);
  return 0;
}
