// zjpeg: encodes a PPM (P6) or PNG file with the plug-in's encoder settings.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/image_io.h"
#include "jpeg/zjpeg.h"

namespace {

constexpr int kExitUsage = 2;
constexpr int32_t kLargestSide = 65535;  // the encoder's sizes are 16-bit

const char kUsage[] =
    "usage: zjpeg IN.ppm|IN.png OUT.jpg [--quality 0..12] [--flags HEX] [--dct-method N]\n"
    "Encodes an 8-bit RGB image. Defaults: quality 12, flags 112, dct-method 4.\n"
    "Flags select interleaved RGB (0x002|0x010) or grey (0x001, made from the RGB).\n";

// Sink writing to a stdio file; remembers the first write error.
class FileStream : public ZJPEG::JPEGOutputStream {
 public:
  explicit FileStream(std::FILE* f) : file_(f) {}
  ~FileStream() override { FileStream::DumpBuffer(); }
  void DumpBuffer() override {
    if (count) Write(buffer, count);
    count = 0;
  }
  void DumpBytes(void* p, unsigned n) override { Write(p, n); }
  bool ok() const { return ok_; }

 private:
  void Write(const void* p, size_t n) {
    if (n && std::fwrite(p, 1, n, file_) != n) ok_ = false;
  }
  std::FILE* file_;
  bool ok_ = true;
};

// The input is 8-bit RGB: the flags must describe pixels the tool can hand
// over. Grey gets one byte a pixel made from the RGB; four-byte, planar and
// CMYK layouts have nothing to read here, and 0x800 (no colour conversion)
// gathers its statistics from unconverted samples, so its tables lack the
// image's symbols. Returns why a set of flags is refused, or nothing.
std::string RefusedFlags(uint32_t flags) {
  using Desc = ZJPEG::EncoderDescription;
  if (flags & Desc::kDescNoColorConvert)
    return "0x800 (no colour conversion) would write tables without the image's symbols";
  if (flags & Desc::kDescGrey) return {};
  if ((flags & Desc::kDescRGB) && (flags & Desc::kDescInterleaved) && !(flags & Desc::kDescPlanar))
    return {};
  return "the input is 3-byte RGB: the flags must select grey (0x001) or interleaved RGB "
         "(0x002 with 0x010, without 0x008)";
}

// Luma with the integer BT.601 weights 77, 150, 29 (0.299, 0.587, 0.114 of 256).
std::vector<uint8_t> GreyOf(const pxhost::RgbImage& img) {
  std::vector<uint8_t> grey(size_t(img.width) * size_t(img.height));
  for (size_t i = 0; i < grey.size(); ++i) {
    const uint8_t* p = &img.pixels[i * 3];
    grey[i] = uint8_t((77 * p[0] + 150 * p[1] + 29 * p[2] + 128) >> 8);
  }
  return grey;
}

bool ParseInt(const char* s, int base, long lo, long hi, long& out) {
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(s, &end, base);
  if (errno || end == s || *end || v < lo || v > hi) return false;
  out = v;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  long quality = 12, flags = 0x112, dctMethod = 4;
  std::vector<const char*> paths;
  bool usage = false;
  for (int a = 1; a < argc && !usage; ++a) {
    const std::string arg = argv[a];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    const char* value = a + 1 < argc ? argv[a + 1] : nullptr;
    if (arg == "--quality") {
      usage = !value || !ParseInt(value, 10, 0, 12, quality);
      ++a;
    } else if (arg == "--flags") {
      usage = !value || !ParseInt(value, 16, 0, 0xFFFF, flags);
      ++a;
    } else if (arg == "--dct-method") {
      usage = !value || !ParseInt(value, 10, 0, 255, dctMethod);
      ++a;
    } else if (arg.size() > 1 && arg[0] == '-') {
      usage = true;
    } else {
      paths.push_back(argv[a]);
    }
  }
  if (usage || paths.size() != 2) {
    std::fputs(kUsage, stderr);
    return kExitUsage;
  }
  if (std::string why = RefusedFlags(uint32_t(flags)); !why.empty()) {
    std::fprintf(stderr, "zjpeg: flags %lx: %s\n", flags, why.c_str());
    return kExitUsage;
  }

  pxhost::RgbImage img;
  std::string error = pxhost::ReadImage(paths[0], &img);
  if (error.empty() && (img.width > kLargestSide || img.height > kLargestSide))
    error = std::string(paths[0]) + ": image size must be 1..65535 on each side";
  if (!error.empty()) {
    std::fprintf(stderr, "zjpeg: %s\n", error.c_str());
    return kExitUsage;
  }
  std::FILE* out = std::fopen(paths[1], "wb");
  if (!out) {
    std::fprintf(stderr, "zjpeg: %s: %s\n", paths[1], std::strerror(errno));
    return kExitUsage;
  }

  ZJPEG::InitializeJPEGEncoder();
  ZJPEG::EncoderDescription desc;
  desc.flags = static_cast<uint32_t>(flags);
  desc.PixmereQuality(static_cast<int>(quality));
  const bool grey = flags & ZJPEG::EncoderDescription::kDescGrey;
  std::vector<uint8_t> greyPixels = grey ? GreyOf(img) : std::vector<uint8_t>();
  ZJPEG::BufferRowMemoryRequester rows(grey ? greyPixels.data() : img.pixels.data(),
                                       uint32_t(img.width) * (grey ? 1 : 3),
                                       static_cast<uint16_t>(img.height));
  bool ok;
  {
    FileStream stream(out);
    ZJPEG::JPEGEncoder encoder(&rows, static_cast<uint16_t>(img.width),
                               static_cast<uint16_t>(img.height));
    encoder.EncodeImage(&stream, desc, nullptr, 0, static_cast<int>(dctMethod));
    stream.DumpBuffer();
    ok = stream.ok();
  }
  if (std::fclose(out) != 0 || !ok) {
    std::fprintf(stderr, "zjpeg: %s: write failed\n", paths[1]);
    return kExitUsage;
  }
  return 0;
}
