// zjpeg: encodes a PPM (P6) or PNG file with the plug-in's encoder settings.
#include <png.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "jpeg/zjpeg.h"

namespace {

constexpr int kExitUsage = 2;
constexpr uint64_t kMaxPixels = uint64_t{65535} * 65535;

const char kUsage[] =
    "usage: zjpeg IN.ppm|IN.png OUT.jpg [--quality 0..12] [--flags HEX] [--dct-method N]\n"
    "Encodes an 8-bit RGB image. Defaults: quality 12, flags 112, dct-method 4.\n";

struct Image {
  uint32_t width = 0, height = 0;
  std::vector<uint8_t> rgb;  // rows of width × 3 bytes
};

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

// Next PPM header number, skipping blanks and comments.
bool PpmNumber(std::FILE* f, uint32_t& value) {
  int c = std::fgetc(f);
  for (;;) {
    while (c == ' ' || c == '\t' || c == '\n' || c == '\r') c = std::fgetc(f);
    if (c != '#') break;
    while (c != '\n' && c != EOF) c = std::fgetc(f);
  }
  if (c < '0' || c > '9') return false;
  uint64_t v = 0;
  while (c >= '0' && c <= '9') {
    v = v * 10 + static_cast<unsigned>(c - '0');
    if (v > 0xFFFFFFFFu) return false;
    c = std::fgetc(f);
  }
  value = static_cast<uint32_t>(v);
  return true;  // the single blank after the number was consumed
}

bool ReadPpm(std::FILE* f, Image& img, std::string& error) {
  uint32_t maxval = 0;
  if (!PpmNumber(f, img.width) || !PpmNumber(f, img.height) || !PpmNumber(f, maxval)) {
    error = "bad PPM header";
    return false;
  }
  if (maxval != 255) {
    error = "only 8-bit PPM (maxval 255) is supported";
    return false;
  }
  if (img.width == 0 || img.height == 0 || img.width > 65535 || img.height > 65535) {
    error = "image size must be 1..65535 on each side";
    return false;
  }
  const size_t bytes = size_t{img.width} * img.height * 3;
  img.rgb.resize(bytes);
  if (std::fread(img.rgb.data(), 1, bytes, f) != bytes) {
    error = "PPM pixel data is short";
    return false;
  }
  return true;
}

bool ReadPng(std::FILE* f, Image& img, std::string& error) {
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_stdio(&png, f)) {
    error = png.message;
    return false;
  }
  if (png.width == 0 || png.height == 0 || png.width > 65535 || png.height > 65535 ||
      uint64_t{png.width} * png.height > kMaxPixels) {
    png_image_free(&png);
    error = "image size must be 1..65535 on each side";
    return false;
  }
  png.format = PNG_FORMAT_RGB;
  img.width = png.width;
  img.height = png.height;
  img.rgb.resize(size_t{png.width} * png.height * 3);
  if (!png_image_finish_read(&png, nullptr, img.rgb.data(), 0, nullptr)) {
    error = png.message;
    png_image_free(&png);
    return false;
  }
  return true;
}

bool ReadImage(const char* path, Image& img, std::string& error) {
  std::FILE* f = std::fopen(path, "rb");
  if (!f) {
    error = std::strerror(errno);
    return false;
  }
  unsigned char magic[8] = {};
  const size_t got = std::fread(magic, 1, sizeof magic, f);
  bool ok;
  if (got >= 2 && magic[0] == 'P' && magic[1] == '6') {
    std::fseek(f, 2, SEEK_SET);
    ok = ReadPpm(f, img, error);
  } else if (got == 8 && png_sig_cmp(magic, 0, 8) == 0) {
    std::rewind(f);
    ok = ReadPng(f, img, error);
  } else {
    error = "not a P6 PPM or PNG file";
    ok = false;
  }
  std::fclose(f);
  return ok;
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

  Image img;
  std::string error;
  if (!ReadImage(paths[0], img, error)) {
    std::fprintf(stderr, "zjpeg: %s: %s\n", paths[0], error.c_str());
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
  ZJPEG::BufferRowMemoryRequester rows(img.rgb.data(), img.width * 3,
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
