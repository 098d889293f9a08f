// 8-bit RGB images in and out of PNG and binary PPM files, chosen by the
// file name's extension.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pxhost {

struct RgbImage {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> pixels;  // rows top to bottom, R G B per pixel
};

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
