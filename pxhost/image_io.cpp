#include "pxhost/image_io.h"

#include <png.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace pxhost {
namespace {

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

// Images this large are refused on input: tools and tests never need more, and
// a hostile header must not size an allocation.
constexpr int64_t kMaxPixels = int64_t(1) << 30;

bool EndsWith(const std::string& s, const char* suffix) {
  size_t n = std::strlen(suffix);
  if (s.size() < n) return false;
  for (size_t k = 0; k < n; ++k)
    if (std::tolower(static_cast<unsigned char>(s[s.size() - n + k])) != suffix[k]) return false;
  return true;
}

void AppendToString(png_structp png, png_bytep data, png_size_t size) {
  static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<char*>(data), size);
}

std::string ReadPng(FILE* f, RgbImage* image) {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (info == nullptr) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    return "out of memory";
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    return "not a readable PNG file";
  }
  png_init_io(png, f);
  png_read_info(png, info);
  png_uint_32 w = png_get_image_width(png, info);
  png_uint_32 h = png_get_image_height(png, info);
  if (int64_t(w) * h > kMaxPixels) png_error(png, "too large");
  // Whatever the file holds becomes 8-bit RGB.
  png_set_strip_16(png);
  png_set_strip_alpha(png);
  png_set_palette_to_rgb(png);
  png_set_expand_gray_1_2_4_to_8(png);
  png_set_gray_to_rgb(png);
  int passes = png_set_interlace_handling(png);
  png_read_update_info(png, info);
  image->width = int32_t(w);
  image->height = int32_t(h);
  image->pixels.assign(size_t(w) * h * 3, 0);
  // Row by row into the picture, nothing of this frame's own on the heap: a
  // damaged file leaves through longjmp, which runs no destructor.
  for (int pass = 0; pass < passes; ++pass)
    for (png_uint_32 y = 0; y < h; ++y)
      png_read_row(png, image->pixels.data() + size_t(y) * w * 3, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return {};
}

// Reads one header number of a binary PPM, skipping white space and comments.
bool PpmNumber(FILE* f, int64_t* value) {
  int c = std::fgetc(f);
  for (;;) {
    while (c == ' ' || c == '\t' || c == '\n' || c == '\r') c = std::fgetc(f);
    if (c != '#') break;
    while (c != '\n' && c != EOF) c = std::fgetc(f);
  }
  if (c < '0' || c > '9') return false;
  *value = 0;
  while (c >= '0' && c <= '9' && *value < kMaxPixels) {
    *value = *value * 10 + (c - '0');
    c = std::fgetc(f);
  }
  return true;  // the single white-space byte after the number is consumed
}

std::string ReadPpm(FILE* f, RgbImage* image) {
  int64_t w = 0, h = 0, maxval = 0;
  if (std::fgetc(f) != 'P' || std::fgetc(f) != '6' || !PpmNumber(f, &w) || !PpmNumber(f, &h) ||
      !PpmNumber(f, &maxval))
    return "not a binary PPM (P6) file";
  if (maxval != 255) return "only 8-bit PPM files are supported";
  if (w < 1 || h < 1 || w * h > kMaxPixels) return "unsupported PPM size";
  image->width = int32_t(w);
  image->height = int32_t(h);
  image->pixels.assign(size_t(w * h * 3), 0);
  if (std::fread(image->pixels.data(), 1, image->pixels.size(), f) != image->pixels.size())
    return "truncated PPM file";
  return {};
}

}  // namespace

bool IsImageName(const std::string& path) {
  return EndsWith(path, ".png") || EndsWith(path, ".ppm");
}

std::string EncodePng(const RgbImage& image, std::string* bytes) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (info == nullptr) {
    png_destroy_write_struct(&png, nullptr);
    return "out of memory";
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return "PNG encoding failed";
  }
  png_set_write_fn(png, bytes, &AppendToString, nullptr);
  // Pictures are made on demand while a person (or a file manager) waits:
  // zlib's fastest level and no per-row filter search take a thumbnail's
  // encoding from a tenth of the embedded path's time to a few per cent, for
  // files about a third larger.
  png_set_compression_level(png, 1);
  png_set_filter(png, 0, PNG_FILTER_NONE);
  png_set_IHDR(png, info, png_uint_32(image.width), png_uint_32(image.height), 8,
               PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int32_t y = 0; y < image.height; ++y)
    png_write_row(png, image.pixels.data() + size_t(y) * size_t(image.width) * 3);
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return {};
}

std::string EncodeImage(const std::string& path, const RgbImage& image, std::string* bytes) {
  if (EndsWith(path, ".ppm")) {
    *bytes = "P6\n" + std::to_string(image.width) + " " + std::to_string(image.height) + "\n255\n";
    bytes->append(image.pixels.begin(), image.pixels.end());
    return {};
  }
  return EncodePng(image, bytes);
}

std::string ReadImage(const std::string& path, RgbImage* image) {
  File f(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!f) return path + ": " + std::strerror(errno);
  std::string err;
  if (EndsWith(path, ".png"))
    err = ReadPng(f.get(), image);
  else if (EndsWith(path, ".ppm"))
    err = ReadPpm(f.get(), image);
  else
    err = "unknown image format (use .png or .ppm)";
  return err.empty() ? err : path + ": " + err;
}

}  // namespace pxhost
