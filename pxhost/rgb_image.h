// The picture every image path of the host hands around: decoded previews,
// rendered pages, thumbnails.
#pragma once

#include <cstdint>
#include <vector>

namespace pxhost {

struct RgbImage {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> pixels;  // rows top to bottom, R G B per pixel
};

}  // namespace pxhost
