#include "desktop/fit.h"

#include <stb_image_resize.h>

#include <algorithm>
#include <cmath>

namespace pxhost {

std::pair<int32_t, int32_t> FitSize(int32_t width, int32_t height, int32_t longest) {
  int32_t side = std::max(width, height);
  if (side <= longest) return {width, height};
  double scale = double(longest) / side;
  auto scaled = [&](int32_t v) {
    return v == side ? longest : std::clamp(int32_t(std::lround(v * scale)), 1, longest);
  };
  return {scaled(width), scaled(height)};
}

RgbImage FitImage(const RgbImage& image, int32_t longest) {
  auto [w, h] = FitSize(image.width, image.height, longest);
  if (w == image.width && h == image.height) return image;
  RgbImage out{w, h, std::vector<uint8_t>(size_t(w) * size_t(h) * 3)};
  // Filtered in linear light (the sRGB variant), with the library's default
  // filter for shrinking (Mitchell), so fine lines and chip edges average
  // out as the eye would see them from afar instead of aliasing.
  if (!stbir_resize_uint8_srgb(image.pixels.data(), image.width, image.height, 0, out.pixels.data(),
                               w, h, 0, 3, STBIR_ALPHA_CHANNEL_NONE, 0))
    return {};
  return out;
}

}  // namespace pxhost
