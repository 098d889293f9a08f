// pxhost thumbnail at the edges of its choices: which files go the swatch
// book's way, how far the pictures it is given may reach, and how sides round
// when they shrink.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "desktop/swatch_grid.h"
#include "desktop/xmp_jpeg.h"
#include "pxhost/image_io.h"
#include "tests/support/fixture_file.h"
#include "tests/support/jpeg_util.h"
#include "tools/ql7embed/ql7_writer.h"
#include "tools/sxfwrite/sxf_writer.h"
#include "xmp/toolkit.h"

namespace {

namespace fs = std::filesystem;
using qltest::Outcome;

// What the XMP source itself says of a file: "" with the picture, or why not.
std::string XmpSource(const std::string& bytes, pxhost::RgbImage* image) {
  qltest::DiskFile file("doc.pdf", bytes);
  xmptk::Initialize();
  std::string reason = pxhost::ReadXmpJpegThumbnail(file.path(), image);
  xmptk::Terminate();
  return reason;
}

struct Result {
  Outcome outcome;
  pxhost::RgbImage image;
};

// Runs the command on a file holding bytes; the size of what it wrote, or
// 0 x 0 when it wrote nothing.
Result Make(const std::string& name, const std::string& bytes, const std::string& options = "") {
  qltest::DiskFile in(name, bytes);
  std::string out = in.path() + "-thumb.png";
  Result run{
      qltest::Shell(std::string(QL_PXHOST) + " thumbnail " + options + " " + in.path() + " " + out),
      {}};
  if (fs::exists(out)) {
    EXPECT_EQ(pxhost::ReadImage(out, &run.image), "");
  }
  return run;
}

std::tuple<int, int> Size(const Result& run) {
  return {run.image.width, run.image.height};
}

pxhost::RgbImage Grey(int w, int h) {
  return {w, h, std::vector<uint8_t>(size_t(w) * size_t(h) * 3, 120)};
}

std::string EmbeddedPs(const pxhost::RgbImage& image) {
  ql7::Options o;
  o.bitsPerPixel = 24;
  return ql7::VectorFile(image, o);
}

std::string Book() {
  std::string sxf, error;
  nlohmann::json blocks =
      nlohmann::json::array({{{"swatch", "Green"}, {"model", "RGB "}, {"values", {0, 1, 0}}},
                             {{"swatch", "Blue"}, {"model", "RGB "}, {"values", {0, 0, 1}}}});
  EXPECT_TRUE(sxfwrite::BuildSxf({{"blocks", blocks}}, &sxf, &error)) << error;
  return sxf;
}

// A swatch book is known by its name's .sxf in any case, or by its signature
// whatever its name; a vector file is never taken for one.
TEST(ThumbnailChoice, SwatchBooksByNameInAnyCaseOrBySignature) {
  for (const char* name : {"inks.sxf", "INKS.SXF", "inks.Sxf", "inks.dat", "inks"}) {
    Result run = Make(name, Book(), "-s 64");
    ASSERT_EQ(run.outcome.status, 0) << name << ": " << run.outcome.out;
    pxhost::SwatchGridLayout l = pxhost::LayOutSwatchGrid(2, 64);
    ASSERT_EQ(run.image.width, l.gap + 2 * (l.chip + l.gap)) << name;
    int second = l.gap + l.chip + l.gap + l.chip / 2, middle = l.gap + l.chip / 2;
    const uint8_t* chip = &run.image.pixels[size_t((middle * run.image.width + second) * 3)];
    EXPECT_EQ(std::tuple(chip[0], chip[1], chip[2]), std::tuple(0, 0, 255)) << name;
  }
  for (const char* name : {"page.sx", "page.xsxf", "sxf"}) {
    Result run = Make(name, EmbeddedPs(Grey(6, 3)));
    EXPECT_EQ(run.outcome.status, 0) << name << ": " << run.outcome.out;
    EXPECT_EQ(Size(run), std::tuple(6, 3)) << name;
  }
}

// A shrunk side rounds to the nearest pixel (never below one), the longest
// side is exactly the size asked for, and a picture that fits stays as it is.
TEST(ThumbnailChoice, ShrunkSidesRoundToTheNearestPixel) {
  struct Case {
    int w, h, size, wantW, wantH;
  } cases[] = {
      {60, 50, 32, 32, 27},  // 26.67
      {50, 60, 32, 27, 32},  // and upright
      {100, 10, 16, 16, 2},  // 1.6
      {100, 3, 16, 16, 1},   // 0.48: one pixel all the same
      {90, 45, 16, 16, 8},   // exactly half
      {17, 16, 16, 16, 15},  // 15.06
      {16, 16, 16, 16, 16},  // fits as it is
  };
  for (const Case& c : cases) {
    Result run = Make("page.ps", EmbeddedPs(Grey(c.w, c.h)), "-s " + std::to_string(c.size));
    ASSERT_EQ(run.outcome.status, 0) << run.outcome.out;
    EXPECT_EQ(Size(run), std::tuple(c.wantW, c.wantH)) << c.w << "x" << c.h << " at " << c.size;
  }
}

// A JPEG thumbnail in the XMP is taken up to 8192 pixels a side; a larger one
// is refused before its pixels are allocated, and the next source, the 4 x 4
// embedded preview, gives the picture.
TEST(ThumbnailChoice, XmpJpegsUpTo8192PixelsASide) {
  struct Case {
    int w, h;
    bool taken;
  } cases[] = {{8192, 8, true}, {8, 8192, true}, {8193, 8, false}, {8, 8193, false}};
  for (const Case& c : cases) {
    jpegtest::Rgb source{c.w, c.h, std::vector<uint8_t>(size_t(c.w) * size_t(c.h) * 3, 200)};
    ql7::Options o;
    o.pdf = true;
    o.xmpJpeg = jpegtest::Encode(source, 6);
    o.xmpJpegThumbnail = true;
    std::string file = ql7::VectorFile(Grey(4, 4), o);
    pxhost::RgbImage picture;
    EXPECT_EQ(XmpSource(file, &picture), c.taken ? "" : "JPEG thumbnail too large");
    // Taken, the picture is the JPEG's once the embedded preview, which comes
    // first, is gone (its keyword defaced).
    if (c.taken) file[file.find("%QL7_Thumbnail:") + 1] = 'X';
    Result run = Make("doc.pdf", file, "-s 64");
    if (c.taken) {
      EXPECT_EQ(run.outcome.status, 0) << run.outcome.out;
      EXPECT_EQ(Size(run), c.w > c.h ? std::tuple(64, 1) : std::tuple(1, 64));
    } else {
      EXPECT_EQ(run.outcome.status, 0) << run.outcome.out;
      EXPECT_EQ(Size(run), std::tuple(4, 4));
    }
  }
}

// A rendered page smaller than the size asked for keeps its own size (one
// pixel a point); a larger one is drawn at the size.
TEST(ThumbnailChoice, PagesAreRenderedAtMostAtTheirOwnSize) {
  std::string page =
      "%!PS-Adobe-3.0\n%%BoundingBox: 0 0 120 60\n%%Pages: 1\n%%EndComments\n%%Page: 1 1\n"
      "0 1 0 setrgbcolor 0 0 120 60 rectfill\nshowpage\n%%EOF\n" +
      std::string(600, '%') + "\n";
  EXPECT_EQ(Size(Make("page.ps", page)), std::tuple(120, 60));
  EXPECT_EQ(Size(Make("page.ps", page, "-s 120")), std::tuple(120, 60));
  EXPECT_EQ(Size(Make("page.ps", page, "-s 40")), std::tuple(40, 20));
  // A square page fills the largest answer the renderer may give.
  std::string square =
      "%!PS-Adobe-3.0\n%%BoundingBox: 0 0 100 100\n%%Pages: 1\n%%EndComments\n%%Page: 1 1\n"
      "0 0 1 setrgbcolor 0 0 100 100 rectfill\nshowpage\n%%EOF\n" +
      std::string(600, '%') + "\n";
  for (const char* size : {"-s 16", "-s 64", "-s 100", ""}) {
    Result run = Make("square.ps", square, size);
    EXPECT_EQ(run.outcome.status, 0) << size << ": " << run.outcome.out;
    int side = *size ? std::stoi(size + 3) : 100;
    EXPECT_EQ(Size(run), std::tuple(side, side)) << size;
  }
}

// The shortest name that ends in .sxf still goes the swatch book's way.
TEST(ThumbnailChoice, ShortSwatchBookNames) {
  qltest::DiskFile anchor("anchor", "");
  fs::path dir = fs::path(anchor.path()).parent_path();
  for (const char* name : {"a.sxf", "b.SXF"}) {
    std::ofstream(dir / name) << EmbeddedPs(Grey(6, 3));  // not a book inside
    Outcome r = qltest::Shell("cd " + dir.string() + " && " + QL_PXHOST + " thumbnail " + name +
                              " out.png");
    EXPECT_EQ(r.status, 1) << name;
    EXPECT_EQ(r.out.find(std::string("pxhost: ") + name + ": not a swatch exchange file"), 0u)
        << r.out;
  }
}

}  // namespace

namespace {

// The JPEG thumbnail's item as the toolkit reads it: text that is no base64
// is a damaged thumbnail, and the embedded preview gives the picture.
TEST(ThumbnailChoice, XmpJpegItemThatIsNoBase64) {
  ql7::Options o;
  o.pdf = true;
  o.xmpJpegThumbnail = true;  // an item of format JPEG, its text spoilt below
  std::string file = ql7::VectorFile(Grey(4, 4), o);
  const std::string image = "/9j/4AAQSkZJRgABAQAAAQABAAD/2wBDAP//2Q==";
  size_t at = file.find(image);
  ASSERT_NE(at, std::string::npos);
  file.replace(at, image.size(), std::string(image.size(), '*'));
  pxhost::RgbImage picture;
  EXPECT_EQ(XmpSource(file, &picture), "damaged JPEG thumbnail (bad base64)");
  Result run = Make("doc.pdf", file);
  EXPECT_EQ(run.outcome.status, 0) << run.outcome.out;
  EXPECT_EQ(Size(run), std::tuple(4, 4));
}

// Each way the XMP source gives no picture names its reason, and the
// embedded preview then gives the picture.
TEST(ThumbnailChoice, XmpSourceReasons) {
  jpegtest::Rgb source{16, 16, std::vector<uint8_t>(16 * 16 * 3, 90)};
  std::string jpeg = jpegtest::Encode(source, 6);
  struct Case {
    std::string format;
    bool item;
    std::string jpeg, reason;
  } cases[] = {
      {"", false, "", "no XMP metadata"},
      {"application/pdf", false, "", "no JPEG thumbnail in the XMP metadata"},
      {"", true, "GIF89a", "damaged JPEG thumbnail (Not a JPEG file: starts with 0x47 0x49)"},
      // Its tables cut out: the frame refers to tables never given.
      {"", true, jpeg.substr(0, 2) + jpeg.substr(jpeg.find("\xFF\xC0")),
       "damaged JPEG thumbnail (Quantization table 0x00 was not defined)"},
  };
  for (const Case& c : cases) {
    ql7::Options o;
    o.pdf = true;
    o.xmpFormat = c.format;
    o.xmpJpegThumbnail = c.item;
    o.xmpJpeg = c.jpeg;
    std::string file = ql7::VectorFile(Grey(4, 4), o);
    pxhost::RgbImage picture;
    EXPECT_EQ(XmpSource(file, &picture), c.reason);
    EXPECT_TRUE(picture.pixels.empty());
    Result run = Make("doc.pdf", file);
    EXPECT_EQ(run.outcome.status, 0) << run.outcome.out;
    EXPECT_EQ(Size(run), std::tuple(4, 4)) << c.reason;
  }
}

// A PDF far shorter than the plug-in's classifier reads (it names nothing
// under 512 bytes) is told by its first bytes and rendered.
TEST(ThumbnailChoice, AShortPdfIsStillRendered) {
  std::string pdf =
      "%PDF-1.4\n1 0 obj << /Type /Catalog /Pages 2 0 R >> endobj\n2 0 obj << /Type /Pages "
      "/Kids [3 0 R] /Count 1 >> endobj\n3 0 obj << /Type /Page /Parent 2 0 R /MediaBox [0 0 72 "
      "36] >> endobj\ntrailer << /Root 1 0 R >>\n%%EOF\n";
  ASSERT_LT(pdf.size(), 512u);
  Result run = Make("tiny.pdf", pdf);
  EXPECT_EQ(run.outcome.status, 0) << run.outcome.out;
  EXPECT_EQ(Size(run), std::tuple(72, 36));
  Result off = Make("tiny.pdf", pdf, "--no-render");
  EXPECT_EQ(off.outcome.status, 1);
  EXPECT_NE(off.outcome.out.find("no picture in the file, and rendering is off"), std::string::npos)
      << off.outcome.out;
}

}  // namespace
