// 8-bit RGB images in and out of PNG and binary PPM files, chosen by the
// file name's extension.
#pragma once

#include <string>

#include "pxhost/rgb_image.h"

namespace pxhost {

// True when the name ends in .png or .ppm (any case).
bool IsImageName(const std::string& path);
// Encodes as PPM when path ends in .ppm, else as PNG. Returns an empty string
// on success, else a message.
std::string EncodeImage(const std::string& path, const RgbImage& image, std::string* bytes);
// Returns an empty string on success, else a message.
std::string ReadImage(const std::string& path, RgbImage* image);
// The image as PNG file bytes, compressed for speed; "" or a message.
std::string EncodePng(const RgbImage& image, std::string* bytes);

}  // namespace pxhost
