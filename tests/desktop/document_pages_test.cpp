// The renderer module on its own, loaded as the limited child loads it: the
// first page's size from the boxes a document gives, and the reason for each
// document it cannot draw.
#include "desktop/document_pages.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <tuple>

#include "tests/support/fixture_file.h"
#include "thumbnail/document_kind.h"

namespace {

struct Rendered {
  std::string reason;
  int width = 0, height = 0;
};

Rendered Render(int32_t kind, const std::string& bytes, int32_t longest = 256) {
  static void* module = dlopen(QL_RENDER_MODULE, RTLD_NOW | RTLD_LOCAL);
  EXPECT_NE(module, nullptr) << dlerror();
  auto render =
      reinterpret_cast<pxhost::RenderFirstPageProc>(dlsym(module, pxhost::kRenderFirstPageName));
  qltest::DiskFile file("page", bytes);
  pxhost::RgbImage image;
  Rendered out;
  render(kind, file.path(), longest, &image, &out.reason);
  EXPECT_EQ(image.pixels.size(), size_t(image.width) * size_t(image.height) * 3);
  out.width = image.width;
  out.height = image.height;
  return out;
}

std::string Eps(const std::string& comments, const std::string& body = "") {
  return "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 100 50\n" + comments + "%%EndComments\n" +
         body + "0 0 1 setrgbcolor 0 0 100 50 rectfill\nshowpage\n%%EOF\n";
}

// The drawing is cut down to a fractional box inside the integer one; a
// fractional box that is not there, not four numbers, empty or not inside
// is ignored.
TEST(DocumentPages, PostScriptPageFromItsBoxes) {
  struct Case {
    std::string doc;
    int width, height;
  } cases[] = {
      {Eps("%%HiResBoundingBox: 0 0 80 40\n"), 80, 40},
      {Eps("%%HiResBoundingBox:\t 0\t0 80.2 39.6\r\n"), 80, 40},
      {Eps(""), 100, 50},
      {Eps("%%HiResBoundingBox: (atend)\n"), 100, 50},
      {Eps("%%HiResBoundingBox: 0 0 0 40\n"), 100, 50},
      {Eps("%%HiResBoundingBox: 0 0 120 40\n"), 100, 50},
      {Eps("%%HiResBoundingBox: -5 0 80 40\n"), 100, 50},
      // Only the header's comments count.
      {Eps("", "%%HiResBoundingBox: 0 0 80 40\n"), 100, 50},
      {"%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 100 50\nnewpath\n"
       "%%HiResBoundingBox: 0 0 80 40\nshowpage\n",
       100, 50},
  };
  for (const Case& c : cases) {
    Rendered r = Render(kQLDocumentPostScript, c.doc);
    EXPECT_EQ(r.reason, "") << c.doc;
    EXPECT_EQ(std::tuple(r.width, r.height), std::tuple(c.width, c.height)) << c.doc;
  }
  // Shrunk to the longest side asked for.
  Rendered r = Render(kQLDocumentPostScript, Eps("%%HiResBoundingBox: 0 0 80 40\n"), 20);
  EXPECT_EQ(std::tuple(r.width, r.height), std::tuple(20, 10));
}

std::string Pdf(const std::string& pages) {
  return "%PDF-1.4\n1 0 obj << /Type /Catalog /Pages 2 0 R >> endobj\n2 0 obj " + pages +
         " endobj\n3 0 obj << /Type /Page /Parent 2 0 R /MediaBox [0 0 72 36] >> endobj\n"
         "trailer << /Root 1 0 R >>\n%%EOF\n";
}

TEST(DocumentPages, EachRefusalHasItsReason) {
  struct Case {
    int32_t kind;
    std::string doc, reason;
  } cases[] = {
      {kQLDocumentOther, "%!PS\n", "no renderer for this kind of document"},
      {kQLDocumentPDF, "%PDF-1.4\nnothing else\n", "PDF renderer: cannot open the document"},
      {kQLDocumentPDF, Pdf("<< /Type /Pages /Kids [] /Count 0 >>"), "PDF renderer: no page"},
  };
  for (const Case& c : cases) {
    Rendered r = Render(c.kind, c.doc);
    EXPECT_EQ(r.reason, c.reason) << c.doc;
    EXPECT_EQ(r.width, 0) << c.doc;
  }
  Rendered page = Render(kQLDocumentPDF, Pdf("<< /Type /Pages /Kids [3 0 R] /Count 1 >>"));
  EXPECT_EQ(page.reason, "");
  EXPECT_EQ(std::tuple(page.width, page.height), std::tuple(72, 36));

  // A PDF that needs a password to be opened, as Ghostscript encrypts it.
  qltest::DiskFile ps("page.ps", Eps(""));
  std::string pdf = ps.path() + ".pdf";
  qltest::Outcome made = qltest::Shell(
      "gs -q -dBATCH -dNOPAUSE -dSAFER -sDEVICE=pdfwrite "
      "-sOwnerPassword=owner -sUserPassword=user -o " +
      pdf + " " + ps.path());
  if (made.status != 0) GTEST_SKIP() << "Ghostscript cannot write an encrypted PDF: " << made.out;
  Rendered r = Render(kQLDocumentPDF, qltest::Shell("cat " + pdf).out);
  std::remove(pdf.c_str());
  EXPECT_EQ(r.reason, "PDF renderer: the document is encrypted");
  EXPECT_EQ(r.width, 0);
}

}  // namespace
