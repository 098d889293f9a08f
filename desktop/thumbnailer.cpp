#include "desktop/thumbnailer.h"

#include <dlfcn.h>
#include <strings.h>
#include <unistd.h>

#include <cmath>

#include "desktop/document_pages.h"
#include "desktop/fit.h"
#include "desktop/swatch_grid.h"
#include "desktop/xmp_jpeg.h"
#include "pxhost/swatch_colours.h"
#include "sdk/host_types.h"
#include "sdk/suites.h"
#include "thumbnail/ql_thumbnail.h"
#include "xmp/toolkit.h"

namespace pxhost {
namespace {

// Whether the file is one the swatch path serves: it begins with the swatch
// exchange signature, or is named like one.
bool LooksLikeSwatchFile(const PluginInput& input, const std::string& path) {
  if (path.size() > 4 && strcasecmp(path.c_str() + path.size() - 4, ".sxf") == 0) return true;
  return input.Head(4) == "SXFF";
}

// A swatch's colour as printed: a tint is that share of the ink on white.
ChipColour OnPaper(const DisplaySwatch& swatch) {
  double share = std::fmin(std::fmax(swatch.tint, 0.0), 100.0) / 100.0;
  auto channel = [&](uint8_t c) { return uint8_t(std::lround(255.0 - (255.0 - c) * share)); };
  return {channel(swatch.r), channel(swatch.g), channel(swatch.b)};
}

// The chips of a swatch book in their display colours, from the packet the
// plug-in hands over on the XMP selector.
std::string DrawSwatches(PluginMainProc entry, const PluginInput& input, int32_t size,
                         RgbImage* image) {
  std::string packet, error;
  if (!RequestSwatchPacket(entry, input, &packet, &error)) return error;
  std::vector<DisplaySwatch> swatches;
  if (!DisplaySwatchesFromPacket(packet, &swatches, &error))
    return "unreadable swatch packet (" + error + ")";
  std::vector<ChipColour> chips;
  for (const DisplaySwatch& swatch : swatches)
    if (swatch.drawable) chips.push_back(OnPaper(swatch));
  if (chips.empty()) return "no swatch in the book has a colour that can be shown";
  *image = DrawSwatchGrid(chips, size);
  return {};
}

// The reader's own classifier decides which renderer the document needs.
int32_t ClassifyDocument(const PluginInput& input) {
  ::lseek(input.Descriptor(), 0, SEEK_SET);
  int32_t kind = QLThumbnail(input.Descriptor()).GetRenderingMethod();
  ::lseek(input.Descriptor(), 0, SEEK_SET);
  return kind;
}

// The renderer module beside the plug-in's module, whichever that is.
std::string RenderModulePath(PluginMainProc entry) {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(entry), &info) == 0 || info.dli_fname == nullptr) return {};
  std::string module = info.dli_fname;
  size_t slash = module.rfind('/');
  return (slash == std::string::npos ? std::string() : module.substr(0, slash + 1)) +
         kRenderModuleName;
}

std::string RenderDocument(PluginMainProc entry, const PluginInput& input,
                           const ThumbnailOptions& options, RgbImage* image) {
  int32_t kind = ClassifyDocument(input);
  if (kind != kQLDocumentPDF && kind != kQLDocumentPostScript)
    return "no embedded preview and no renderer for this kind of file";
  std::string module = RenderModulePath(entry);
  // The child inherits the open input and reaches it through this name.
  std::string document = input.DescriptorPath();
  int32_t size = options.size;
  // Loaded in the child only, under its limits.
  auto render = [&](RgbImage* out) -> std::string {
    void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return "the renderer module cannot be loaded";
    auto proc = reinterpret_cast<RenderFirstPageProc>(dlsym(handle, kRenderFirstPageName));
    if (proc == nullptr) return "the renderer module has no entry";
    std::string reason;
    proc(kind, document, size, out, &reason);
    return reason;
  };
  return RunLimited(render, options.limits, size, image);
}

std::string ReadXmpJpeg(const PluginInput& input, RgbImage* image) {
  if (!xmptk::Initialize()) return "the XMP toolkit cannot start";
  std::string error = ReadXmpJpegThumbnail(input.DescriptorPath(), image);
  xmptk::Terminate();
  ::lseek(input.Descriptor(), 0, SEEK_SET);
  return error;
}

}  // namespace

std::string MakeThumbnail(PluginMainProc entry, const PluginInput& input, const std::string& path,
                          const ThumbnailOptions& options, RgbImage* image) {
  if (LooksLikeSwatchFile(input, path)) return DrawSwatches(entry, input, options.size, image);
  int32_t method = 0;
  std::string error;
  if (!AskRenderingMethod(entry, input, &method, &error)) return error;
  RgbImage picture;
  if (method == pixmere::kQLRenderingMethodXMPThumbnail) {
    error = ReadXmpJpeg(input, &picture);
  } else if (method == pixmere::kQLRenderingMethodEmbeddedThumbnail) {
    // A vector document, opened as the host opens one of its type: the code
    // spares the plug-in sniffing the file for a swatch book. Without an
    // embedded thumbnail the document itself is drawn.
    if (!ReadPreview(entry, input, pixmere::FourCC("EPSF"), &picture, &error) &&
        error.rfind("no embedded preview", 0) == 0)
      error = RenderDocument(entry, input, options, &picture);
  } else {
    error = RenderDocument(entry, input, options, &picture);
  }
  if (!error.empty()) return error;
  *image = FitImage(picture, options.size);
  return image->pixels.empty() ? "cannot scale the preview" : "";
}

}  // namespace pxhost
