// Scaling a preview to the size a desktop asks for.
#pragma once

#include <utility>

#include "pxhost/rgb_image.h"

namespace pxhost {

// The size of a width x height image whose longest side is at most `longest`,
// aspect ratio kept (each side at least 1), never larger than the source.
std::pair<int32_t, int32_t> FitSize(int32_t width, int32_t height, int32_t longest);

// The image resampled to FitSize (a copy when that is its own size). Empty
// when the resampler fails.
RgbImage FitImage(const RgbImage& image, int32_t longest);

}  // namespace pxhost
