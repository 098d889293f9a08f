// The files a command works on: those named, and with -r the files in the
// folders named, walked in name order.
#pragma once

#include <string>
#include <vector>

#include "pxhost/command_table.h"
#include "pxhost/report.h"

namespace pxhost {

// Named files come as given (a folder without -r is refused later as "is a
// directory"); a folder with -r gives its regular files, sorted, those whose
// extension is in options.extensions when that is not empty, symbolic links
// followed only with followLinks, each folder entered once (a link back up
// the tree is not followed round). A folder that cannot be read is refused by
// name and the walk goes on. "-" is standard input, which is read once: named
// again, it is refused.
std::vector<std::string> ExpandInputs(const InputOptions& options, Report& report);

// The worker processes -j asks for; without it, the processors this process
// may run on.
int Jobs(const InputOptions& options);

}  // namespace pxhost
