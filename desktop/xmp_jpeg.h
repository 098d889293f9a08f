// The JPEG thumbnail a document keeps in its XMP metadata (an xmp:Thumbnails
// item of format "JPEG"), read through the XMP toolkit's file layer and
// decoded with libjpeg-turbo.
#pragma once

#include <string>

#include "pxhost/image_io.h"

namespace pxhost {

// "" with *image set, or the reason. The toolkit must be initialised.
std::string ReadXmpJpegThumbnail(const std::string& path, RgbImage* image);

// Decodes a baseline or progressive JPEG to RGB; "" or the reason. Images
// with a side above 8192 pixels are refused before anything is allocated.
std::string DecodeJpeg(const std::string& bytes, RgbImage* image);

}  // namespace pxhost
