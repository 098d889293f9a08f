// The first page of a PostScript or PDF document, rendered by the libraries
// the desktop's document viewers use: libspectre over Ghostscript for
// PostScript, Poppler for PDF. Both run in the calling process; the
// thumbnailer calls them inside a limited child (limited_child.h).
#pragma once

#include <string>

#include "host/image_io.h"

namespace pxhost {

// Render page 1 at the scale that brings its longest side to `longest`
// pixels, or at 72 pixels an inch when the page is smaller than that. ""
// with *image set, or the reason.
std::string RenderPostScriptPage(const std::string& path, int32_t longest, RgbImage* image);
std::string RenderPdfPage(const std::string& path, int32_t longest, RgbImage* image);

}  // namespace pxhost
