// The input both encoder fuzz targets share: width − 1 and height − 1 (u16
// big-endian each, taken modulo 300), quality (mod 13), row layout selector
// (its quotient's low bit: progressive), then pixel bytes repeated to fill.
#ifndef QL_FUZZ_JPEG_FUZZ_LAYOUTS_H
#define QL_FUZZ_JPEG_FUZZ_LAYOUTS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzzjpeg {

// Row layouts by selector: flags, bytes a pixel (its row holds width × that),
// channels decoded. The plug-in's path, B-G-R order, the extended frame with
// full statistics, grey, a leading extra byte, planar RGB with and without the
// extra plane, interleaved CMYK both orders and planar CMYK.
struct Layout {
  uint32_t flags;
  int pixelBytes;
  int channels;
};
inline constexpr Layout kLayouts[] = {{0x112, 3, 3}, {0x192, 3, 3}, {0x2012, 3, 3}, {0x111, 1, 1},
                                      {0x130, 4, 3}, {0x10A, 3, 3}, {0x128, 4, 3},  {0x114, 4, 4},
                                      {0x194, 4, 4}, {0x10C, 4, 4}};
inline constexpr size_t kLayoutCount = sizeof kLayouts / sizeof kLayouts[0];

struct Case {
  int width, height, quality;
  Layout layout;
  uint32_t flags;  // the layout's, with 0x400 for progressive inputs
  std::vector<uint8_t> pixels;
};

// False when the input is too short to name a case.
inline bool ParseCase(const uint8_t* data, size_t size, Case& c) {
  if (size < 6) return false;
  c.width = ((data[0] << 8) | data[1]) % 300 + 1;
  c.height = ((data[2] << 8) | data[3]) % 300 + 1;
  c.quality = data[4] % 13;
  c.layout = kLayouts[data[5] % kLayoutCount];
  c.flags = c.layout.flags | ((data[5] / kLayoutCount) & 1 ? 0x400 : 0);
  c.pixels.assign(size_t(c.width) * c.height * c.layout.pixelBytes, 0);
  const size_t avail = size - 6;
  for (size_t i = 0; avail && i < c.pixels.size(); ++i) c.pixels[i] = data[6 + i % avail];
  return true;
}

}  // namespace fuzzjpeg

#endif  // QL_FUZZ_JPEG_FUZZ_LAYOUTS_H
