// Writes EPS files with the previews the EPS format defines: a DOS EPS file
// (binary header, PostScript, TIFF preview) and TIFF images written with
// libtiff in memory. Used by the doseps tool, the tests and the benchmarks.
#pragma once

#include <cstdint>
#include <string>

#include "pxhost/image_io.h"

namespace doseps {

// The image as a TIFF file: RGB, or grey (the green channel) when grey is
// set, with the compression given (a libtiff COMPRESSION_ code).
std::string Tiff(const pxhost::RgbImage& image, bool grey = false, uint16_t compression = 1);

// The binary header and the sections after it: PostScript first, then the
// WMF and TIFF sections when not empty.
std::string DosEps(const std::string& postscript, const std::string& tiff,
                   const std::string& wmf = {});

}  // namespace doseps
