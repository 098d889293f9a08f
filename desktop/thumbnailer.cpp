#include "desktop/thumbnailer.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <cmath>
#include <cstring>

#include "desktop/document_pages.h"
#include "desktop/fit.h"
#include "desktop/swatch_grid.h"
#include "desktop/xmp_jpeg.h"
#include "host/host_simulator.h"
#include "pxhost/swatch_colours.h"
#include "sdk/selectors.h"
#include "sdk/suites.h"
#include "thumbnail/ql_thumbnail.h"
#include "xmp/toolkit.h"

namespace pxhost {
namespace {

// What the host's rendering-method suite says about the file, or a reason.
std::string AskRenderingMethod(const std::string& path, int32_t* method) {
  const void* procs = nullptr;
  auto& registry = SuiteRegistry::Get();
  if (registry.Acquire(pixmere::kQLRenderingMethodSuite, pixmere::kQLRenderingMethodSuiteVersion,
                       &procs) != 0 ||
      procs == nullptr)
    return "the plug-in did not publish its rendering-method suite";
  auto* suite = static_cast<const pixmere::QLRenderingMethodSuite*>(procs);
  int32_t err = suite->GetQLRenderingMethodForFile(path.c_str(), method);
  registry.Release(pixmere::kQLRenderingMethodSuite, pixmere::kQLRenderingMethodSuiteVersion);
  if (err == pixmere::kQLErrKXEC) return "cannot be read";
  if (err != 0) return "the rendering-method suite cannot examine it";
  return {};
}

constexpr int16_t kSelectorAbout = 0;
constexpr int16_t kSelectorReadFinish = 4;

// Whether the file is one the swatch path serves: it begins with the swatch
// exchange signature, or is named like one. Everything else never reaches
// the plug-in's swatch check, which reads the whole file.
bool LooksLikeSwatchFile(const std::string& path) {
  if (path.size() > 4 && strcasecmp(path.c_str() + path.size() - 4, ".sxf") == 0) return true;
  char head[4] = {};
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  bool swatch = read(fd, head, sizeof head) == 4 && std::memcmp(head, "SXFF", 4) == 0;
  close(fd);
  return swatch;
}

// A swatch's colour as printed: a tint is that share of the ink on white.
ChipColour OnPaper(const DisplaySwatch& swatch) {
  double share = std::fmin(std::fmax(swatch.tint, 0.0), 100.0) / 100.0;
  auto channel = [&](uint8_t c) { return uint8_t(std::lround(255.0 - (255.0 - c) * share)); };
  return {channel(swatch.r), channel(swatch.g), channel(swatch.b)};
}

// The chips of a swatch book in their display colours, from the packet the
// plug-in hands over on the XMP selector.
std::string DrawSwatches(PluginMainProc entry, const std::string& path, int32_t size,
                         RgbImage* image) {
  SessionOptions options;
  options.fileType = pixmere::FourCC("SXF ");
  HostSession session(entry, path, options);
  if (!session.IsOpen()) return "cannot be read";
  if (session.Call(pixmere::kSelectorFilterFile) != 0) return "not a swatch exchange file";
  int16_t result = session.Call(pixmere::kSelectorXMP);
  bool handedOver = false;
  for (const auto& [field, value] : session.WrittenFields())
    handedOver = handedOver || std::string(field->name) == "xmpHandle";
  if (result != 0 || !handedOver)
    return "damaged swatch file (result " + std::to_string(result) + ")";
  std::vector<DisplaySwatch> swatches;
  std::string error;
  if (!DisplaySwatchesFromPacket(session.HandleBytes(session.Record().xmpHandle), &swatches,
                                 &error))
    return "unreadable swatch packet (" + error + ")";
  std::vector<ChipColour> chips;
  for (const DisplaySwatch& swatch : swatches)
    if (swatch.drawable) chips.push_back(OnPaper(swatch));
  if (chips.empty()) return "no swatch in the book has a colour that can be shown";
  *image = DrawSwatchGrid(chips, size);
  return {};
}

// Read start and read continue on the open session, as the host previews a
// file. *found is false when the file has no embedded thumbnail (read start
// refuses it).
std::string ReadEmbedded(HostSession& session, RgbImage* image, bool* found) {
  *found = false;
  if (session.Call(pixmere::kSelectorReadStart) != 0) return {};
  *found = true;
  int16_t result = session.Call(pixmere::kSelectorReadContinue);
  if (result != 0 || session.AdvanceCalls().size() != 1)
    return "embedded preview damaged (result " + std::to_string(result) + ")";
  const AdvanceCall& call = session.AdvanceCalls().front();
  *image = RgbImage{call.right - call.left, call.bottom - call.top, call.pixels};
  session.Call(kSelectorReadFinish);  // the plug-in gives back its suites
  return {};
}

// The reader's own classifier decides which renderer the document needs.
int32_t ClassifyDocument(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return 0;
  int32_t kind = QLThumbnail(fd).GetRenderingMethod();
  close(fd);
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

std::string RenderDocument(PluginMainProc entry, const std::string& path,
                           const ThumbnailOptions& options, RgbImage* image) {
  int32_t kind = ClassifyDocument(path);
  if (kind != kQLDocumentPDF && kind != kQLDocumentPostScript)
    return "no embedded preview and no renderer for this kind of file";
  std::string module = RenderModulePath(entry);
  int32_t size = options.size;
  // Loaded in the child only, under its limits and once it is confined.
  auto render = [&](const RenderRoom&, RgbImage* out) -> std::string {
    void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return "the renderer module cannot be loaded";
    auto proc = reinterpret_cast<RenderFirstPageProc>(dlsym(handle, kRenderFirstPageName));
    if (proc == nullptr) return "the renderer module has no entry";
    std::string reason;
    proc(kind, path, size, out, &reason);
    return reason;
  };
  return RunLimited({path, {module}}, render, options.limits, size, image);
}

std::string ReadXmpJpeg(const std::string& path, RgbImage* image) {
  if (!xmptk::Initialize()) return "the XMP toolkit cannot start";
  std::string error = ReadXmpJpegThumbnail(path, image);
  xmptk::Terminate();
  return error;
}

}  // namespace

std::string MakeThumbnail(PluginMainProc entry, const std::string& path,
                          const ThumbnailOptions& options, RgbImage* image) {
  if (LooksLikeSwatchFile(path)) {
    return DrawSwatches(entry, path, options.size, image);
  }
  // A vector document, opened as the host opens one of its type: the code
  // spares the plug-in sniffing the file for a swatch book on every call.
  SessionOptions vector;
  vector.fileType = pixmere::FourCC("EPSF");
  vector.previewOpen = true;
  HostSession session(entry, path, vector);
  if (!session.IsOpen()) return "cannot be read";
  session.Call(kSelectorAbout);  // the first call publishes the plug-in's suite

  int32_t method = 0;
  std::string error = AskRenderingMethod(path, &method);
  if (!error.empty()) return error;
  RgbImage picture;
  if (method == pixmere::kQLRenderingMethodXMPThumbnail) {
    error = ReadXmpJpeg(path, &picture);
  } else if (method == pixmere::kQLRenderingMethodEmbeddedThumbnail) {
    bool found = false;
    error = ReadEmbedded(session, &picture, &found);
    // Without an embedded thumbnail the document itself is drawn.
    if (error.empty() && !found) error = RenderDocument(entry, path, options, &picture);
  } else {
    error = RenderDocument(entry, path, options, &picture);
  }
  if (!error.empty()) return error;
  *image = FitImage(picture, options.size);
  return image->pixels.empty() ? "cannot scale the preview" : "";
}

}  // namespace pxhost
