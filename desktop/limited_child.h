// Running a document renderer where a hostile or huge document can neither
// hang nor exhaust the thumbnailer: in a child process, in its own process
// group, under a memory limit, killed with its whole group when it runs over
// its time.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "pxhost/image_io.h"

namespace pxhost {

struct RenderLimits {
  int32_t seconds = 10;                    // wall-clock time for the whole child
  int64_t memoryBytes = int64_t(1) << 30;  // address space on top of what it starts with
};

// Runs render in a child and passes its image back through a pipe. Returns ""
// with *image set, or the reason: the message render returned, or that the
// child ran over its time, ran out of memory, crashed or answered nothing
// usable. An image with a side above maxSide counts as nothing usable.
std::string RunLimited(const std::function<std::string(RgbImage*)>& render,
                       const RenderLimits& limits, int32_t maxSide, RgbImage* image);

}  // namespace pxhost
