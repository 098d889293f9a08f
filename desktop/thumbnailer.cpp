#include "desktop/thumbnailer.h"

#include <dlfcn.h>
#include <strings.h>
#include <unistd.h>

#include <cmath>
#include <functional>
#include <vector>

#include "desktop/document_pages.h"
#include "desktop/eps_files.h"
#include "desktop/fit.h"
#include "desktop/swatch_grid.h"
#include "desktop/xmp_jpeg.h"
#include "pxhost/swatch_colours.h"
#include "sdk/host_types.h"
#include "sdk/suites.h"
#include "thumbnail/document_kind.h"
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

// The chips of a swatch book in their display colours, as the plug-in's
// reader loads the book.
std::string DrawSwatches(PluginMainProc entry, const PluginInput& input, int32_t size,
                         RgbImage* image, std::vector<std::string>* warnings) {
  std::string error;
  std::vector<DisplaySwatch> swatches;
  if (!ReadSwatchBook(entry, input, &swatches, &error)) return error;
  std::vector<ChipColour> chips;
  for (const DisplaySwatch& swatch : swatches) {
    if (swatch.nameMended) warnings->push_back(MendedNameWarning(swatch));
    if (swatch.drawable) chips.push_back(OnPaper(swatch));
  }
  if (chips.empty()) return "no swatch in the book has a colour that can be shown";
  *image = DrawSwatchGrid(chips, size);
  return {};
}

// The reader's own classifier decides which renderer the document needs; a
// file it names no renderer for (it names nothing under 512 bytes, and a
// document whose XMP mentions thumbnails after that) is told apart by its
// first bytes.
int32_t DocumentKind(const PluginInput& input, DocumentStart start) {
  ::lseek(input.Descriptor(), 0, SEEK_SET);
  int32_t kind = ClassifyDocument(input.Descriptor());
  ::lseek(input.Descriptor(), 0, SEEK_SET);
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

// Renders the document, of that kind, in the limited and confined child.
// With a section (a DOS EPS file's PostScript), the child copies it into its
// private folder and renders that copy.
std::string RenderDocument(PluginMainProc entry, const PluginInput& input, int32_t kind,
                           EpsSection section, const ThumbnailOptions& options, RgbImage* image) {
  std::string module = RenderModulePath(entry);
  int32_t size = options.size;
  // Loaded in the child only, under its limits and once it is confined; the
  // child keeps the open input and reaches it through room.document.
  auto render = [&](const RenderRoom& room, RgbImage* out) -> std::string {
    void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return "the renderer module cannot be loaded";
    auto proc = reinterpret_cast<RenderFirstPageProc>(dlsym(handle, kRenderFirstPageName));
    if (proc == nullptr) return "the renderer module has no entry";
    std::string reason;
    std::string document = room.document;
    if (section.length != 0) {
      reason = CopySection(room.input, section, room.folder, &document);
      if (!reason.empty()) return reason;
    }
    proc(kind, document, size, out, &reason);
    return reason;
  };
  return RunLimited({input.Descriptor(), {module}}, render, options.limits, size, image);
}

std::string ReadXmpJpeg(const PluginInput& input, RgbImage* image) {
  if (!xmptk::Initialize()) return "the XMP toolkit cannot start";
  std::string error = ReadXmpJpegThumbnail(input.DescriptorPath(), image);
  xmptk::Terminate();
  ::lseek(input.Descriptor(), 0, SEEK_SET);
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

std::string MakeThumbnail(PluginMainProc entry, const PluginInput& input, const std::string& path,
                          const ThumbnailOptions& options, RgbImage* image,
                          std::vector<std::string>* warnings) {
  if (LooksLikeSwatchFile(input, path))
    return DrawSwatches(entry, input, options.size, image, warnings);
  // Without an answer from the suite the chain still runs in its own order.
  int32_t method = 0;
  std::string suiteReason;
  AskRenderingMethod(entry, input, &method, &suiteReason);

  const int fd = input.Descriptor();
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
    if (kind < 0) kind = dosEps ? kQLDocumentPostScript : DocumentKind(input, start);
    return kind;
  };
  // A bilevel or grey TIFF preview only sketches the page; it waits for the
  // end of the chain.
  RgbImage tiffSketch;

  auto embedded = [&](RgbImage* picture) {
    // A vector document, opened as the host opens one of its type: the code
    // spares the plug-in sniffing the file for a swatch book.
    std::string error;
    if (ReadPreview(entry, input, pixmere::FourCC("EPSF"), picture, &error)) return Present({});
    return error.rfind("no embedded preview", 0) == 0 ? Absent() : Present(error);
  };
  auto xmpJpeg = [&](RgbImage* picture) {
    // The suite looked at the XMP already: only a thumbnail it saw is read.
    if (method != pixmere::kQLRenderingMethodXMPThumbnail) return Absent();
    return Present(ReadXmpJpeg(input, picture));
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
    return Present(RenderDocument(entry, input, documentKind(),
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
  // The thumbnailer's own order, whatever the suite would have the host do:
  // the pictures the file carries, best first, before any interpreter runs;
  // a sketch only when nothing better comes.
  const std::vector<Source> chain = {embedded, xmpJpeg, colourPreview, renderedPage, sketch};

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
  // A suite that could not read the file says why better than "no preview".
  if (suiteReason.rfind("cannot be read", 0) == 0) return suiteReason;
  return "no embedded preview and no renderer for this kind of file";
}

}  // namespace pxhost
