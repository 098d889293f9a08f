// pxhost thumbnail [-s SIZE] IN OUT: the desktop thumbnailer's command.
#pragma once

#include <string>

#include "host/thumbnailer/thumbnailer.h"

namespace pxhost {

// Writes IN's thumbnail as a PNG file at OUT, whatever OUT's extension, or
// leaves OUT as it was. Prints one line `pxhost: FILE: reason` on failure.
// Returns the exit code: 0 written, 1 the file gave no thumbnail, 2 the
// output could not be written.
int RunThumbnail(PluginMainProc entry, const std::string& in, const std::string& out,
                 const ThumbnailOptions& options);

}  // namespace pxhost
