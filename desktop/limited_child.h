// Running a document renderer where a hostile or huge document can neither
// hang nor exhaust the thumbnailer, nor read, write or start anything: in a
// child process, in its own process group, under time and memory limits,
// holding only the document and the pipe its picture comes back through,
// confined by the kernel (Landlock and seccomp) before the renderer loads.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "pxhost/image_io.h"

namespace pxhost {

struct RenderLimits {
  int32_t seconds = 10;                    // wall-clock time for the whole child
  int64_t memoryBytes = int64_t(1) << 30;  // address space on top of what it starts with
  // Where the child's private folder is made ("": $TMPDIR, else /tmp). A
  // thumbnailer that confines its own writes passes a folder it may write in.
  std::string scratchFolder;
  // Render even where the kernel cannot confine the child.
  bool unconfined = false;
};

// What the child may read: the document, open read-only (the caller's
// descriptor, which the child inherits and keeps), and the files render loads
// besides the system's (the renderer module).
struct RenderJob {
  int input = -1;
  std::vector<std::string> readable;
};

// What render is given in the child: the document's descriptor and a name
// for code that takes a path (/proc/self/fd/N, the only name under /proc the
// child may open), and a private, empty folder (also $TMPDIR) that is the only
// place it can write in; the parent removes it with whatever is left in it.
// A renderer that needs part of the document as a file of its own (a section
// cut out of it) writes it there.
struct RenderRoom {
  int input = -1;
  std::string document;
  std::string folder;
};
using RenderProc = std::function<std::string(const RenderRoom&, RgbImage*)>;

// The renderer child's confinement, after it kept only its descriptors:
// no-new-privileges, then Landlock (reading the system's files, job.readable
// and the document open as `input`; writing only `folder`), then the seccomp
// filter. "" or the step that failed and why. Exposed for the benchmark that
// prices it.
std::string ConfineRenderer(const RenderJob& job, int input, const std::string& folder);

// Runs render in a child and passes its image back through a pipe. Returns ""
// with *image set, or the reason: the message render returned, or that the
// child could not be confined, ran over its time, ran out of memory, crashed
// or answered nothing usable. An image with a side above maxSide counts as
// nothing usable.
std::string RunLimited(const RenderJob& job, const RenderProc& render, const RenderLimits& limits,
                       int32_t maxSide, RgbImage* image);

}  // namespace pxhost
