#include "desktop/xmp_jpeg.h"

// jpeglib.h needs size_t and FILE declared first.
#include <cstddef>
#include <cstdio>
// clang-format off
#include <jpeglib.h>
// clang-format on

#include <csetjmp>

#include "xmp/toolkit.h"

namespace pxhost {
namespace {

// A thumbnail is small; this bounds what a hostile header can make us
// allocate (8192 x 8192 x 3 = 192 MiB).
constexpr JDIMENSION kMaxJpegSide = 8192;

struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

void OnJpegError(j_common_ptr info) {
  auto* errors = reinterpret_cast<ErrorManager*>(info->err);
  info->err->format_message(info, errors->message);
  std::longjmp(errors->jump, 1);
}

void IgnoreJpegMessage(j_common_ptr) {}

}  // namespace

std::string DecodeJpeg(const std::string& bytes, RgbImage* image) {
  jpeg_decompress_struct info{};
  ErrorManager errors{};
  info.err = jpeg_std_error(&errors.base);
  errors.base.error_exit = OnJpegError;
  errors.base.output_message = IgnoreJpegMessage;
  // Everything that owns memory lives outside the jump's reach.
  std::vector<uint8_t> pixels;
  if (setjmp(errors.jump)) {
    jpeg_destroy_decompress(&info);
    return std::string("damaged JPEG thumbnail (") + errors.message + ")";
  }
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, reinterpret_cast<const unsigned char*>(bytes.data()),
               static_cast<unsigned long>(bytes.size()));
  jpeg_read_header(&info, TRUE);
  if (info.image_width > kMaxJpegSide || info.image_height > kMaxJpegSide) {
    jpeg_destroy_decompress(&info);
    return "JPEG thumbnail too large";
  }
  info.out_color_space = JCS_RGB;  // grey and YCbCr alike; CMYK is refused by the library
  jpeg_start_decompress(&info);
  const size_t rowBytes = size_t(info.output_width) * 3;
  pixels.resize(rowBytes * info.output_height);
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = pixels.data() + rowBytes * info.output_scanline;
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  image->width = int32_t(info.output_width);
  image->height = int32_t(info.output_height);
  jpeg_destroy_decompress(&info);
  image->pixels = std::move(pixels);
  return {};
}

std::string ReadXmpJpegThumbnail(const std::string& path, RgbImage* image) {
  std::string encoded;
  try {
    xmptk::XMPFiles file;
    xmptk::XMPMeta meta;
    if (!file.OpenFile(path.c_str(), xmptk::kXMP_UnknownFile, 0) || !file.GetXMP(&meta))
      return "no XMP metadata";
    // The same item the rendering-method suite looks for: the first
    // thumbnail whose format is "JPEG".
    const char* xmpNS = xmptk::NamespaceURI("xmp");
    const char* imgNS = xmptk::NamespaceURI("xmpGImg");
    std::string item;
    xmptk::XMPUtils::ComposeFieldSelector(xmpNS, "Thumbnails", imgNS, "format", "JPEG", &item);
    if (!meta.GetStructField(xmpNS, item.c_str(), imgNS, "image", &encoded, nullptr))
      return "no JPEG thumbnail in the XMP metadata";
  } catch (const xmptk::XMPError& e) {
    return std::string("XMP metadata unreadable (") + e.what() + ")";
  }
  std::string jpeg;
  try {
    xmptk::XMPUtils::DecodeFromBase64(encoded.data(), uint32_t(encoded.size()), &jpeg);
  } catch (const xmptk::XMPError&) {
    return "damaged JPEG thumbnail (bad base64)";
  }
  return DecodeJpeg(jpeg, image);
}

}  // namespace pxhost
