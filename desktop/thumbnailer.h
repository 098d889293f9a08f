// Desktop thumbnails of the files the plug-in serves, from one chain of
// sources tried in order until one gives a picture: the plug-in's embedded
// thumbnail, a JPEG thumbnail in the XMP, a DOS EPS file's colour TIFF
// preview, the document rendered in a limited child, and last a grey or
// bilevel preview (TIFF or EPSI), which only sketches the page. The source
// the rendering-method suite names is tried first. Swatch books as a grid of
// their chips.
#pragma once

#include <string>
#include <vector>

#include "desktop/limited_child.h"
#include "pxhost/image_io.h"
#include "pxhost/plugin_requests.h"

namespace pxhost {

struct ThumbnailOptions {
  int32_t size = 256;     // longest side of the result
  bool noRender = false;  // never run an interpreter: only pictures the file carries
  RenderLimits limits;
};

// "" with *image set (longest side at most options.size, never enlarged), or
// the reason, written for a person ("no embedded preview and
// no renderer for this kind of file", "renderer ran over its 10 s time
// limit", ...). The plug-in must be loaded (LoadPlugin).
// input is the file as the command opened it; nothing opens it again.
// *warnings gets what a person should hear though the picture is made (a
// swatch name shown otherwise than the book holds it).
std::string MakeThumbnail(PluginMainProc entry, const PluginInput& input, const std::string& path,
                          const ThumbnailOptions& options, RgbImage* image,
                          std::vector<std::string>* warnings);

}  // namespace pxhost
