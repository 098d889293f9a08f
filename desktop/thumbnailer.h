// Desktop thumbnails of the files the plug-in serves, with the source chosen
// the way the host chooses it: the plug-in's rendering-method suite first,
// then the embedded thumbnail, a JPEG thumbnail in the XMP, or the document
// itself rendered in a limited child; swatch books as a grid of their chips.
#pragma once

#include <string>

#include "desktop/limited_child.h"
#include "pxhost/image_io.h"
#include "pxhost/plugin_requests.h"

namespace pxhost {

struct ThumbnailOptions {
  int32_t size = 256;  // longest side of the result
  RenderLimits limits;
};

// "" with *image set (longest side at most options.size, never enlarged), or
// the reason, written for a person ("no embedded preview and
// no renderer for this kind of file", "renderer ran over its 10 s time
// limit", ...). The plug-in must be loaded (LoadPlugin).
// input is the file as the command opened it; nothing opens it again.
std::string MakeThumbnail(PluginMainProc entry, const PluginInput& input, const std::string& path,
                          const ThumbnailOptions& options, RgbImage* image);

}  // namespace pxhost
