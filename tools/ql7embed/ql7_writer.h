// Writes vector-drawing files that carry a "%QL7_Thumbnail:" preview: a small
// PostScript or PDF page showing the image, with the preview block as
// PostScript comments, and optionally an XMP packet. Used by the ql7embed
// tool, the tests, the benchmarks and the samples.
#pragma once

#include <string>

#include "pxhost/image_io.h"

namespace ql7 {

struct Options {
  int bitsPerPixel = 8;  // 8: colour table and codes; 24: RGB bytes
  bool runLength = false;
  bool pdf = false;  // PDF page instead of PostScript
  // An XMP metadata stream written into a PDF file when either is set.
  std::string xmpFormat;          // xmp:Format, e.g. "application/pdf"
  bool xmpJpegThumbnail = false;  // an xmp:Thumbnails item of format JPEG with an image
  // The item's JPEG file bytes; empty: a few bytes that hold no image.
  std::string xmpJpeg;
};

// The comment block alone: "%QL7_Thumbnail: ..." through "%%EndData".
std::string ThumbnailBlock(const pxhost::RgbImage& image, int bitsPerPixel, bool runLength);

// A whole file: header, the thumbnail block, the page drawing the image.
std::string VectorFile(const pxhost::RgbImage& image, const Options& options);

}  // namespace ql7
