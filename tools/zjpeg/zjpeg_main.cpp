// zjpeg: encodes a PPM (P6), PAM (P7) or PNG file with the plug-in's encoder.
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "jpeg/zjpeg.h"
#include "pxhost/image_io.h"

namespace {

using Desc = ZJPEG::EncoderDescription;

constexpr int kExitUsage = 2;
constexpr int32_t kLargestSide = 65535;  // the encoder's sizes are 16-bit

const char kUsage[] =
    "usage: zjpeg IN.ppm|IN.pam|IN.png OUT.jpg [--quality 0..12] [--flags HEX] [--progressive]\n"
    "             [--table-method N]\n"
    "Encodes an 8-bit image. Defaults: quality 12, flags 112, table-method 4.\n"
    "PAM tuple types RGB, RGB_ALPHA, GRAYSCALE and CMYK are read.\n"
    "Flags: 001 grey (from grey or RGB input), 002 RGB, 020 RGB with a leading extra byte\n"
    "(the alpha, or zero), 004 CMYK (CMYK input); 010 interleaved or 008 planar rows;\n"
    "080 reverses the channel order (B, G, R or K, Y, M, C). --progressive adds 400.\n"
    "--table-method 0 or 1 writes the quantisation tables with 16-bit entries.\n"
    "CMYK samples are stored inverted (255 is no ink), as decoders read four-component\n"
    "files: a PAM's cyan decodes as cyan.\n";

enum class Kind { kGrey, kRgb, kRgba, kCmyk };

struct Image {
  int32_t width = 0, height = 0;
  Kind kind = Kind::kRgb;
  int channels = 3;
  std::vector<uint8_t> pixels;  // interleaved, `channels` bytes a pixel
};

// Netpbm P7 with MAXVAL 255 and one of the four tuple types; `why` names the
// fault. Header lines are parsed from a shrinking view of the file.
bool ReadPam(const std::string& data, Image& img, std::string& why) {
  size_t cur = 3;  // after "P7\n"
  long width = 0, height = 0, depth = 0, maxval = 0;
  std::string tuple;
  for (;;) {
    const size_t eol = data.find('\n', cur);
    if (eol == std::string::npos) return why = "PAM header has no ENDHDR line", false;
    const std::string line = data.substr(cur, eol - cur);
    cur = eol + 1;
    if (line.empty() || line[0] == '#') continue;
    if (line == "ENDHDR") break;
    const size_t space = line.find(' ');
    const std::string key = line.substr(0, space);
    const std::string value = space == std::string::npos ? "" : line.substr(space + 1);
    char* end = nullptr;
    const long n = std::strtol(value.c_str(), &end, 10);
    const bool number = !value.empty() && *end == '\0' && n > 0 && n <= kLargestSide;
    if (key == "TUPLTYPE") {
      tuple = value;
    } else if (key == "WIDTH" || key == "HEIGHT" || key == "DEPTH" || key == "MAXVAL") {
      if (!number) return why = "PAM " + key + " is not a number in 1..65535", false;
      (key == "WIDTH" ? width : key == "HEIGHT" ? height : key == "DEPTH" ? depth : maxval) = n;
    } else {
      return why = "unknown PAM header line '" + key + "'", false;
    }
  }
  if (maxval != 255) return why = "PAM MAXVAL must be 255 (8-bit samples)", false;
  if (tuple == "GRAYSCALE" && depth == 1) {
    img.kind = Kind::kGrey;
  } else if (tuple == "RGB" && depth == 3) {
    img.kind = Kind::kRgb;
  } else if (tuple == "RGB_ALPHA" && depth == 4) {
    img.kind = Kind::kRgba;
  } else if (tuple == "CMYK" && depth == 4) {
    img.kind = Kind::kCmyk;
  } else {
    return why = "PAM TUPLTYPE must be GRAYSCALE, RGB, RGB_ALPHA or CMYK with its DEPTH", false;
  }
  const size_t bytes = size_t(width) * size_t(height) * size_t(depth);
  if (width == 0 || height == 0) return why = "PAM has no WIDTH or HEIGHT", false;
  if (bytes > data.size() - cur) return why = "PAM pixel data is truncated", false;
  img.width = int32_t(width);
  img.height = int32_t(height);
  img.channels = int(depth);
  img.pixels.assign(data.begin() + std::ptrdiff_t(cur), data.begin() + std::ptrdiff_t(cur + bytes));
  return true;
}

std::string ReadInput(const char* path, Image& img) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::string(path) + ": " + std::strerror(errno);
  char magic[3] = {};
  in.read(magic, 3);
  if (in.gcount() == 3 && std::string(magic, 3) == "P7\n") {
    in.seekg(0);
    const std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string why;
    if (!ReadPam(data, img, why)) return std::string(path) + ": " + why;
    return {};
  }
  pxhost::RgbImage rgb;
  if (std::string error = pxhost::ReadImage(path, &rgb); !error.empty()) return error;
  if (rgb.width > kLargestSide || rgb.height > kLargestSide)
    return std::string(path) + ": image size must be 1..65535 on each side";
  img.width = rgb.width;
  img.height = rgb.height;
  img.kind = Kind::kRgb;
  img.channels = 3;
  img.pixels = std::move(rgb.pixels);
  return {};
}

// The rows the flags describe, made from the input; `why` when the input
// lacks what they need. The encoder refuses flags that name no layout.
bool MakeRows(const Image& img, uint32_t flags, std::vector<uint8_t>& rows, uint32_t& stride,
              std::string& why) {
  const size_t w = size_t(img.width), pixelCount = w * size_t(img.height);
  const bool reverse = (flags & Desc::kDescConvB) && !(flags & Desc::kDescConvA);
  const bool planar = flags & Desc::kDescPlanar;
  // Channel c of pixel i of the input, grey widened to three equal channels.
  auto in = [&](size_t i, int c) {
    return img.kind == Kind::kGrey ? img.pixels[i] : img.pixels[i * size_t(img.channels) + c];
  };
  std::vector<int> order;  // input channel per output byte, −1: zero
  if (flags & Desc::kDescGrey) {
    if (img.kind == Kind::kCmyk) return why = "grey (0x001) needs grey or RGB input", false;
    stride = uint32_t(w);
    rows.resize(pixelCount);
    // Luma with the integer BT.601 weights 77, 150, 29 (0.299, 0.587, 0.114 of 256).
    for (size_t i = 0; i < pixelCount; ++i)
      rows[i] = uint8_t((77 * in(i, 0) + 150 * in(i, 1) + 29 * in(i, 2) + 128) >> 8);
    return true;
  }
  if (flags & (Desc::kDescRGB | Desc::kDescRGBAlt)) {
    if (img.kind == Kind::kCmyk) return why = "RGB flags need grey or RGB input", false;
    order = reverse && !planar ? std::vector<int>{2, 1, 0} : std::vector<int>{0, 1, 2};
    if (!(flags & Desc::kDescRGB)) order.insert(order.begin(), img.kind == Kind::kRgba ? 3 : -1);
  } else if (flags & Desc::kDescCMYK) {
    if (img.kind != Kind::kCmyk) return why = "CMYK (0x004) needs CMYK input (a PAM file)", false;
    order = reverse && !planar ? std::vector<int>{3, 2, 1, 0} : std::vector<int>{0, 1, 2, 3};
  }
  const size_t n = order.size();
  // Decoders (libjpeg's readers, and the programs built on them) take the
  // samples of a four-component file as inverted ink, 255 for none: the
  // encoder stores what it is handed, so it is handed them that way.
  const uint8_t flip = img.kind == Kind::kCmyk ? 0xFF : 0;
  stride = uint32_t(w * n);
  rows.assign(pixelCount * n, 0);
  for (size_t i = 0; i < pixelCount; ++i) {
    const size_t y = i / (w ? w : 1), x = i - y * w;
    for (size_t k = 0; k < n; ++k) {
      const uint8_t v = order[k] < 0 ? 0 : uint8_t(in(i, order[k]) ^ flip);
      rows[y * stride + (planar ? k * w + x : x * n + k)] = v;
    }
  }
  return true;
}

class StringSink : public ZJPEG::JPEGOutputStream {
 public:
  void DumpBuffer() override {
    bytes.append(reinterpret_cast<const char*>(buffer), count);
    count = 0;
  }
  void DumpBytes(void* p, unsigned n) override { bytes.append(static_cast<const char*>(p), n); }
  std::string bytes;
};

bool ParseInt(const char* s, int base, long lo, long hi, long& out) {
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(s, &end, base);
  if (errno || end == s || *end || v < lo || v > hi) return false;
  out = v;
  return true;
}

bool SameFile(const char* a, const char* b) {
  struct stat sa, sb;
  return stat(a, &sa) == 0 && stat(b, &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

// Writes through a temporary file beside the output and renames it.
std::string WriteFile(const std::string& path, const std::string& bytes) {
  const std::string temp = path + ".tmp";
  std::FILE* f = std::fopen(temp.c_str(), "wb");
  if (!f) return temp + ": " + std::strerror(errno);
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  const int savedErrno = errno;
  if (std::fclose(f) != 0 || !written) {
    std::remove(temp.c_str());
    return path + ": write failed: " + std::strerror(written ? errno : savedErrno);
  }
  if (std::rename(temp.c_str(), path.c_str()) != 0) {
    const std::string error = path + ": " + std::strerror(errno);
    std::remove(temp.c_str());
    return error;
  }
  return {};
}

}  // namespace

int main(int argc, char** argv) {
  long quality = 12, flags = 0x112, tableMethod = ZJPEG::JPEGEncoder::kTables8Bit;
  std::vector<const char*> paths;
  bool usage = false, progressive = false;
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
    } else if (arg == "--progressive") {
      progressive = true;
    } else if (arg == "--table-method") {
      usage = !value || !ParseInt(value, 10, 0, 255, tableMethod);
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
  if (progressive) flags |= Desc::kDescProgressive;
  if (SameFile(paths[0], paths[1])) {
    std::fprintf(stderr, "zjpeg: %s: the output would replace the input\n", paths[1]);
    return kExitUsage;
  }

  Image img;
  std::vector<uint8_t> rows;
  uint32_t stride = 0;
  std::string error = ReadInput(paths[0], img);
  if (error.empty() && !MakeRows(img, uint32_t(flags), rows, stride, error))
    error = std::string(paths[0]) + ": " + error;
  if (!error.empty()) {
    std::fprintf(stderr, "zjpeg: %s\n", error.c_str());
    return kExitUsage;
  }

  ZJPEG::InitializeJPEGEncoder();
  Desc desc;
  desc.flags = static_cast<uint32_t>(flags);
  desc.PixmereQuality(static_cast<int>(quality));
  ZJPEG::BufferRowMemoryRequester source(rows.data(), stride, static_cast<uint16_t>(img.height));
  StringSink sink;
  const uint32_t result = ZJPEG::JPEGEncoder(&source, static_cast<uint16_t>(img.width),
                                             static_cast<uint16_t>(img.height))
                              .EncodeImage(&sink, desc, nullptr, 0, static_cast<int>(tableMethod));
  sink.DumpBuffer();
  if (result == ZJPEG::JPEGEncoder::kEncodeRefused) {
    std::fprintf(stderr,
                 "zjpeg: flags %lx: the encoder serves no such layout (it needs 001, 002, 020 "
                 "or 004 with 010 or 008, and never 800)\n",
                 flags);
    return kExitUsage;
  }
  if (result != ZJPEG::JPEGEncoder::kEncodeDone) {
    std::fprintf(stderr, "zjpeg: %s: out of memory\n", paths[0]);
    return kExitUsage;
  }
  if (error = WriteFile(paths[1], sink.bytes); !error.empty()) {
    std::fprintf(stderr, "zjpeg: %s\n", error.c_str());
    return kExitUsage;
  }
  return 0;
}
