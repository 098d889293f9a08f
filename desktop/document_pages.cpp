#include "desktop/document_pages.h"

#include <libspectre/spectre.h>
#include <poppler-document.h>
#include <poppler-image.h>
#include <poppler-page-renderer.h>
#include <poppler-page.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "desktop/fit.h"
#include "thumbnail/document_kind.h"

namespace pxhost {
namespace {

// Scale from page points (72 an inch) to pixels: the page's longest side
// becomes `longest`, and a page smaller than that stays at its own size.
double PageScale(double widthPoints, double heightPoints, int32_t longest) {
  double side = std::max(widthPoints, heightPoints);
  return side > longest ? longest / side : 1.0;
}

// 32-bit pixels stored B, G, R, then an unused or alpha byte, as both
// renderers write them on this little-endian machine, to packed RGB.
RgbImage FromBgrx(const unsigned char* data, int32_t width, int32_t height, int64_t stride) {
  RgbImage image{width, height, std::vector<uint8_t>(size_t(width) * size_t(height) * 3)};
  uint8_t* out = image.pixels.data();
  for (int32_t y = 0; y < height; ++y) {
    const unsigned char* row = data + y * stride;
    for (int32_t x = 0; x < width; ++x, out += 3) {
      out[0] = row[4 * x + 2];
      out[1] = row[4 * x + 1];
      out[2] = row[4 * x + 0];
    }
  }
  return image;
}

// The renderer sizes its output by rounding; a pixel more than asked for is
// taken back by the resampler.
std::string Finish(RgbImage rendered, int32_t longest, RgbImage* image) {
  *image = FitImage(rendered, longest);
  return image->pixels.empty() ? "cannot scale the rendered page" : "";
}

}  // namespace

std::string RenderPostScriptPage(const std::string& path, int32_t longest, RgbImage* image) {
  std::unique_ptr<SpectreDocument, void (*)(SpectreDocument*)> doc(spectre_document_new(),
                                                                   spectre_document_free);
  spectre_document_load(doc.get(), path.c_str());
  if (spectre_document_status(doc.get()) != SPECTRE_STATUS_SUCCESS)
    return std::string("PostScript renderer: ") +
           spectre_status_to_string(spectre_document_status(doc.get()));
  if (spectre_document_get_n_pages(doc.get()) < 1) return "PostScript renderer: no page";
  std::unique_ptr<SpectrePage, void (*)(SpectrePage*)> page(spectre_document_get_page(doc.get(), 0),
                                                            spectre_page_free);
  if (!page) return "PostScript renderer: no first page";
  int widthPoints = 0, heightPoints = 0;
  spectre_page_get_size(page.get(), &widthPoints, &heightPoints);
  if (widthPoints < 1 || heightPoints < 1) return "PostScript renderer: empty page";
  double scale = PageScale(widthPoints, heightPoints, longest);

  std::unique_ptr<SpectreRenderContext, void (*)(SpectreRenderContext*)> context(
      spectre_render_context_new(), spectre_render_context_free);
  spectre_render_context_set_scale(context.get(), scale, scale);
  unsigned char* data = nullptr;
  int stride = 0;
  spectre_page_render(page.get(), context.get(), &data, &stride);
  std::unique_ptr<unsigned char, void (*)(void*)> pixels(data, std::free);
  if (spectre_page_status(page.get()) != SPECTRE_STATUS_SUCCESS || data == nullptr)
    return std::string("PostScript renderer: ") +
           spectre_status_to_string(spectre_page_status(page.get()));
  // libspectre sizes the page as (int)(points * scale + 0.5).
  int32_t width = int32_t(widthPoints * scale + 0.5);
  int32_t height = int32_t(heightPoints * scale + 0.5);
  if (width < 1 || height < 1 || stride < 4 * width) return "PostScript renderer: no image";
  return Finish(FromBgrx(data, width, height, stride), longest, image);
}

std::string RenderPdfPage(const std::string& path, int32_t longest, RgbImage* image) {
  std::unique_ptr<poppler::document> doc(poppler::document::load_from_file(path));
  if (!doc) return "PDF renderer: cannot open the document";
  if (doc->is_locked()) return "PDF renderer: the document is encrypted";
  if (doc->pages() < 1) return "PDF renderer: no page";
  std::unique_ptr<poppler::page> page(doc->create_page(0));
  if (!page) return "PDF renderer: no first page";
  poppler::rectf box = page->page_rect(poppler::crop_box);
  if (!(box.width() > 0 && box.height() > 0)) return "PDF renderer: empty page";
  double dpi = 72.0 * PageScale(box.width(), box.height(), longest);

  poppler::page_renderer renderer;
  renderer.set_render_hint(poppler::page_renderer::antialiasing);
  renderer.set_render_hint(poppler::page_renderer::text_antialiasing);
  renderer.set_image_format(poppler::image::format_argb32);  // paper is opaque white
  poppler::image rendered = renderer.render_page(page.get(), dpi, dpi);
  if (!rendered.is_valid() || rendered.format() != poppler::image::format_argb32)
    return "PDF renderer: cannot render the page";
  return Finish(FromBgrx(reinterpret_cast<const unsigned char*>(rendered.const_data()),
                         rendered.width(), rendered.height(), rendered.bytes_per_row()),
                longest, image);
}

}  // namespace pxhost

extern "C" __attribute__((visibility("default"))) void QLRenderFirstPage(int32_t kind,
                                                                         const std::string& path,
                                                                         int32_t longest,
                                                                         pxhost::RgbImage* image,
                                                                         std::string* reason) {
  if (kind == kQLDocumentPDF)
    *reason = pxhost::RenderPdfPage(path, longest, image);
  else if (kind == kQLDocumentPostScript)
    *reason = pxhost::RenderPostScriptPage(path, longest, image);
  else
    *reason = "no renderer for this kind of document";
}
