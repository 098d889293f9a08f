// The first page of a PostScript or PDF document, rendered by the libraries
// the desktop's document viewers use: libspectre over Ghostscript for
// PostScript, Poppler for PDF.
//
// They live in a module of their own (qlformat-render.so, beside the
// plug-in's module) that only the limited renderer child loads: linked into
// pxhost, their seventy-odd libraries would be loaded and relocated on every
// start, also when an embedded thumbnail makes them unnecessary.
#pragma once

#include <string>

#include "pxhost/rgb_image.h"

namespace pxhost {

// The module's one entry, looked up by this name (so it has C linkage, and
// with it a C-compatible result: the reason comes back through *reason).
// kind is kQLDocumentPDF or kQLDocumentPostScript; *reason is "" with *image
// set, or the reason.
using RenderFirstPageProc = void (*)(int32_t kind, const std::string& path, int32_t longest,
                                     RgbImage* image, std::string* reason);
inline constexpr char kRenderFirstPageName[] = "QLRenderFirstPage";
inline constexpr char kRenderModuleName[] = "qlformat-render.so";

// Render page 1 at the scale that brings its longest side to `longest`
// pixels, or at 72 pixels an inch when the page is smaller than that. ""
// with *image set, or the reason.
std::string RenderPostScriptPage(const std::string& path, int32_t longest, RgbImage* image);
std::string RenderPdfPage(const std::string& path, int32_t longest, RgbImage* image);

}  // namespace pxhost
