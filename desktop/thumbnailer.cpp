#include "desktop/thumbnailer.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "desktop/document_pages.h"
#include "desktop/eps_files.h"
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

// The reader's own classifier decides which renderer the document needs; a
// file it names no renderer for (it names nothing under 512 bytes, and a
// document whose XMP mentions thumbnails after that) is told apart by its
// first bytes.
int32_t ClassifyDocument(int fd, DocumentStart start) {
  int32_t kind = QLThumbnail(fd).GetRenderingMethod();
  if (kind == kQLDocumentPDF || kind == kQLDocumentPostScript) return kind;
  if (start == DocumentStart::kPostScript) return kQLDocumentPostScript;
  if (start == DocumentStart::kPdf) return kQLDocumentPDF;
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

// The folder the renderer child writes into: its own temporary folder.
std::string TemporaryFolder() {
  const char* dir = std::getenv("TMPDIR");
  return dir != nullptr && *dir != '\0' ? dir : "/tmp";
}

// Renders the document of that kind in the limited child. With a section
// (a DOS EPS file's PostScript), the child copies it to a file of its own
// and renders that.
std::string RenderDocument(PluginMainProc entry, const std::string& path, int fd, int32_t kind,
                           EpsSection section, const ThumbnailOptions& options, RgbImage* image) {
  std::string module = RenderModulePath(entry);
  int32_t size = options.size;
  // Loaded in the child only, under its limits.
  auto render = [&](RgbImage* out) -> std::string {
    void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return "the renderer module cannot be loaded";
    auto proc = reinterpret_cast<RenderFirstPageProc>(dlsym(handle, kRenderFirstPageName));
    if (proc == nullptr) return "the renderer module has no entry";
    std::string document = path, reason;
    if (section.length != 0) {
      reason = CopySection(fd, section, TemporaryFolder(), &document);
      if (!reason.empty()) return reason;
    }
    proc(kind, document, size, out, &reason);
    if (section.length != 0) unlink(document.c_str());
    return reason;
  };
  return RunLimited(render, options.limits, size, image);
}

std::string ReadXmpJpeg(const std::string& path, RgbImage* image) {
  if (!xmptk::Initialize()) return "the XMP toolkit cannot start";
  std::string error = ReadXmpJpegThumbnail(path, image);
  xmptk::Terminate();
  return error;
}

// What one source of the picture did: gave it, was not there, or was there
// and gave none, for the reason given.
struct SourceResult {
  bool present = false;
  std::string reason;  // "" with the picture, when present
};

SourceResult Absent() {
  return {};
}
SourceResult Present(std::string reason) {
  return {true, std::move(reason)};
}

}  // namespace

std::string MakeThumbnail(PluginMainProc entry, const std::string& path,
                          const ThumbnailOptions& options, RgbImage* image) {
  if (LooksLikeSwatchFile(path)) {
    return DrawSwatches(entry, path, options.size, image);
  }
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return "cannot be read";
  std::unique_ptr<int, void (*)(int*)> closeFd(&fd, [](int* f) { close(*f); });
  // A vector document, opened as the host opens one of its type: the code
  // spares the plug-in sniffing the file for a swatch book on every call.
  SessionOptions vector;
  vector.fileType = pixmere::FourCC("EPSF");
  vector.previewOpen = true;
  HostSession session(entry, path, vector);
  if (!session.IsOpen()) return "cannot be read";
  session.Call(kSelectorAbout);  // the first call publishes the plug-in's suite

  // Without an answer from the suite the chain still runs in its own order.
  int32_t method = 0;
  AskRenderingMethod(path, &method);

  const DocumentStart start = SniffDocument(fd);
  DosEpsHeader dos;
  std::string dosReason;
  if (start == DocumentStart::kDosEps) dosReason = ReadDosEpsFile(fd, &dos);
  // A DOS EPS header that points outside the file names no section to
  // trust: nothing of it is shown or rendered.
  const bool dosEps = start == DocumentStart::kDosEps && dosReason.empty();
  const bool damagedDos = start == DocumentStart::kDosEps && !dosEps;
  int32_t kind = -1;
  auto documentKind = [&] {
    if (kind < 0) kind = dosEps ? kQLDocumentPostScript : ClassifyDocument(fd, start);
    return kind;
  };
  // A bilevel or grey TIFF preview only sketches the page; it waits for the
  // end of the chain.
  RgbImage tiffSketch;

  auto embedded = [&](RgbImage* picture) {
    bool found = false;
    std::string error = ReadEmbedded(session, picture, &found);
    return found ? Present(error) : Absent();
  };
  auto xmpJpeg = [&](RgbImage* picture) {
    // The suite looked at the XMP already: only a thumbnail it saw is read.
    if (method != pixmere::kQLRenderingMethodXMPThumbnail) return Absent();
    return Present(ReadXmpJpeg(path, picture));
  };
  auto colourPreview = [&](RgbImage* picture) {
    if (damagedDos) return Present(dosReason);
    if (!dosEps || dos.tiff.length == 0) return Absent();
    bool colour = false;
    std::string error = ReadTiffSection(fd, dos, picture, &colour);
    if (!error.empty() || colour) return Present(error);
    tiffSketch = std::move(*picture);
    return Absent();
  };
  auto renderedPage = [&](RgbImage* picture) {
    if (options.noRender || damagedDos) return Absent();
    if (documentKind() != kQLDocumentPDF && documentKind() != kQLDocumentPostScript)
      return Absent();
    return Present(RenderDocument(entry, path, fd, documentKind(),
                                  dosEps ? dos.postscript : EpsSection{}, options, picture));
  };
  auto sketch = [&](RgbImage* picture) {
    if (!tiffSketch.pixels.empty()) {
      *picture = std::move(tiffSketch);
      return Present({});
    }
    if (damagedDos || documentKind() != kQLDocumentPostScript) return Absent();
    bool found = false;
    std::string error = ReadEpsiFile(fd, dosEps ? dos.postscript : EpsSection{}, picture, &found);
    return found ? Present(error) : Absent();
  };

  using Source = std::function<SourceResult(RgbImage*)>;
  std::vector<Source> chain = {embedded, xmpJpeg, colourPreview, renderedPage, sketch};
  // What the suite names comes first: a document that says it is a PDF is
  // its own picture, and a JPEG in the XMP is what its maker chose to show.
  if (method == pixmere::kQLRenderingMethodPDF)
    std::rotate(chain.begin(), chain.begin() + 3, chain.begin() + 4);
  if (method == pixmere::kQLRenderingMethodXMPThumbnail) std::swap(chain[0], chain[1]);

  // A damaged or refused source hands over to the next; the last reason is
  // the one told.
  std::string lastReason;
  RgbImage picture;
  for (const Source& source : chain) {
    SourceResult result = source(&picture);
    if (!result.present) continue;
    if (result.reason.empty()) {
      *image = FitImage(picture, options.size);
      return image->pixels.empty() ? "cannot scale the preview" : "";
    }
    lastReason = result.reason;
    picture = RgbImage{};
  }
  if (!lastReason.empty()) return lastReason;
  if (options.noRender &&
      (documentKind() == kQLDocumentPDF || documentKind() == kQLDocumentPostScript))
    return "no picture in the file, and rendering is off";
  return "no embedded preview and no renderer for this kind of file";
}

}  // namespace pxhost
