// Every conversation pxhost's commands and the desktop thumbnailer have with
// the plug-in, each written once. An input is opened once; that one
// descriptor is what the plug-in reads, what the rendering-method suite is
// pointed at, and what a refusal is diagnosed from.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/host_simulator.h"
#include "pxhost/rgb_image.h"
#include "pxhost/swatch_colours.h"

namespace pxhost {

// An input file, opened read-only once: a path, or "-" for standard input
// (copied to memory when it cannot seek: the plug-in moves about in what it
// reads). Only regular files open; otherwise Error() says why in words a
// person can act on ("no such file", "is a directory", "permission denied",
// "not a regular file"). Never throws.
class PluginInput {
 public:
  explicit PluginInput(const std::string& path);
  ~PluginInput();
  PluginInput(const PluginInput&) = delete;
  PluginInput& operator=(const PluginInput&) = delete;

  bool IsOpen() const { return fd_ >= 0; }
  const std::string& Error() const { return error_; }
  int Descriptor() const { return fd_; }
  // A name that reaches this same open file for code that takes a path (the
  // rendering-method suite, the document renderers): /proc/self/fd/N.
  std::string DescriptorPath() const;
  // The first bytes of the file, without moving its position. Shorter when
  // the file is.
  std::string Head(size_t bytes) const;

 private:
  int fd_ = -1;
  std::string error_;
};

// Read start, read continue and read finish, as the host previews a file.
// fileType is the host's type code (0: the plug-in sniffs for a swatch
// book). True with *image set, else false with *reason: "no embedded
// preview" (the plug-in took the file for a swatch book), "no embedded
// preview could be read" (refused at read start) or "embedded preview
// damaged" (refused after read start described it), with the result code.
bool ReadPreview(PluginMainProc entry, const PluginInput& input, uint32_t fileType, RgbImage* image,
                 std::string* reason);

// The filter call with the host's swatch type: the plug-in's result, 0 when
// it takes the file as a swatch exchange file; otherwise *reason is the
// reader's own diagnosis ("not a swatch exchange file (bad signature)",
// "damaged swatch file: block 3 runs past the end"), without the code.
int16_t FilterSwatchFile(PluginMainProc entry, const PluginInput& input, std::string* reason);

// The filter call, then the XMP request: the packet's bytes, or false with
// the reason.
bool RequestSwatchPacket(PluginMainProc entry, const PluginInput& input, std::string* packet,
                         std::string* reason);

// The plug-in's rendering-method suite asked about the input (publishing it
// first with an about call when the plug-in has not yet): one of the
// pixmere::kQLRenderingMethod codes, or false with the reason, the suite's
// error code in parentheses ("permission denied (KXEC)").
bool AskRenderingMethod(PluginMainProc entry, const PluginInput& input, int32_t* method,
                        std::string* reason);

// The swatch book as a person sees it (palettes, the swatch thumbnail): the
// filter call decides whether the plug-in takes the file, then the
// plug-in's own reader loads the book from the same descriptor; every swatch
// as the book holds it, then the entries the reader steps over (never
// drawable). False with the reason, the same the other swatch requests give.
bool ReadSwatchBook(PluginMainProc entry, const PluginInput& input,
                    std::vector<DisplaySwatch>* swatches, std::string* reason);

}  // namespace pxhost
