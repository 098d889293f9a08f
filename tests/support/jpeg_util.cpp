#include "tests/support/jpeg_util.h"

#include <jpeglib.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>

namespace jpegtest {

namespace {

struct StrictError {
  jpeg_error_mgr mgr;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void Fail(j_common_ptr cinfo) {
  auto* e = reinterpret_cast<StrictError*>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, e->message);
  std::longjmp(e->jump, 1);
}

// Level −1 is a warning (corrupt data and the like): treated as an error.
void Message(j_common_ptr cinfo, int level) {
  if (level < 0) Fail(cinfo);
}

}  // namespace

Rgb NoiseImage(int width, int height, uint32_t seed) {
  Rgb img{width, height, std::vector<uint8_t>(size_t(width) * height * 3)};
  uint32_t s = seed;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = &img.pixels[(size_t(y) * width + x) * 3];
      s = s * 1664525u + 1013904223u;
      const int n = int(s >> 27) - 16;  // ±16 of noise over smooth gradients
      // Slopes of at most 4 levels a pixel, so that tiny images stay photo-like.
      const int base[3] = {x * 255 / std::max(63, width - 1), y * 255 / std::max(63, height - 1),
                           (x + y) * 127 / std::max(126, width + height - 2) + 64};
      for (int c = 0; c < 3; ++c) p[c] = uint8_t(std::clamp(base[c] + n, 0, 255));
    }
  }
  return img;
}

std::string Encode(const Rgb& img, int quality, uint32_t flags, int tableMethod) {
  ZJPEG::InitializeJPEGEncoder();
  ZJPEG::EncoderDescription desc;
  desc.flags = flags;
  desc.PixmereQuality(quality);
  ZJPEG::BufferRowMemoryRequester rows(img.pixels.data(), uint32_t(img.width) * 3,
                                       uint16_t(img.height));
  StringStream stream;
  ZJPEG::JPEGEncoder encoder(&rows, uint16_t(img.width), uint16_t(img.height));
  encoder.EncodeImage(&stream, desc, nullptr, 0, tableMethod);
  stream.DumpBuffer();
  return stream.bytes;
}

bool Decode(const std::string& jpeg, Rgb& out, std::string& error) {
  return DecodeSamples(jpeg, 3, out, error);
}

bool DecodeSamples(const std::string& jpeg, int channels, Rgb& out, std::string& error) {
  jpeg_decompress_struct cinfo;
  StrictError err;
  cinfo.err = jpeg_std_error(&err.mgr);
  err.mgr.error_exit = Fail;
  err.mgr.emit_message = Message;
  if (setjmp(err.jump)) {
    error = err.message;
    jpeg_destroy_decompress(&cinfo);
    return false;
  }
  jpeg_create_decompress(&cinfo);
  jpeg_mem_src(&cinfo, reinterpret_cast<const unsigned char*>(jpeg.data()), jpeg.size());
  jpeg_read_header(&cinfo, TRUE);
  cinfo.out_color_space = channels == 1 ? JCS_GRAYSCALE : channels == 4 ? JCS_CMYK : JCS_RGB;
  jpeg_start_decompress(&cinfo);
  out.width = int(cinfo.output_width);
  out.height = int(cinfo.output_height);
  const size_t rowBytes = size_t(out.width) * size_t(channels);
  out.pixels.assign(rowBytes * out.height, 0);
  while (cinfo.output_scanline < cinfo.output_height) {
    JSAMPROW row = &out.pixels[size_t(cinfo.output_scanline) * rowBytes];
    jpeg_read_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_decompress(&cinfo);
  jpeg_destroy_decompress(&cinfo);
  return true;
}

double Psnr(const Rgb& a, const Rgb& b) {
  double se = 0;
  for (size_t i = 0; i < a.pixels.size(); ++i) {
    const double d = double(a.pixels[i]) - double(b.pixels[i]);
    se += d * d;
  }
  const double mse = se / double(a.pixels.size());
  return mse == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / mse);
}

}  // namespace jpegtest
