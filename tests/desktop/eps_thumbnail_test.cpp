// pxhost thumbnail on EPS files as other programs write them (epstool,
// ImageMagick, ps2epsi and Ghostscript, run here when installed) and as the
// project's own writer does: which picture each gives, with and without
// rendering, and how a damaged source hands over to the next.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>

#include "pxhost/image_io.h"
#include "tests/support/fixture_file.h"
#include "tools/doseps/doseps_writer.h"
#include "tools/ql7embed/ql7_writer.h"

namespace {

namespace fs = std::filesystem;
using pxhost::RgbImage;

// A drawing placed far from the page's corner: 64 x 32 points, the left half
// red, the right half blue.
constexpr char kDrawing[] =
    "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 300 400 364 432\n"
    "%%HiResBoundingBox: 300 400 364 432\n%%EndComments\n"
    "1 0 0 setrgbcolor 300 400 32 32 rectfill 0 0 1 setrgbcolor 332 400 32 32 rectfill\n"
    "showpage\n%%EOF\n";

struct Shown {
  qltest::Outcome outcome;
  RgbImage image;
};

Shown Thumbnail(const std::string& in, const std::string& options = "") {
  std::string out = in + ".png";
  fs::remove(out);
  Shown run{qltest::Shell(std::string(QL_PXHOST) + " thumbnail " + options + " " + in + " " + out),
            {}};
  if (fs::exists(out)) {
    EXPECT_EQ(pxhost::ReadImage(out, &run.image), "");
  }
  fs::remove(out);
  return run;
}

std::tuple<int, int, int> At(const RgbImage& image, int x, int y) {
  const uint8_t* p = &image.pixels[size_t((y * image.width + x) * 3)];
  return {p[0], p[1], p[2]};
}

bool Near(std::tuple<int, int, int> a, std::tuple<int, int, int> b, int tolerance) {
  return std::abs(std::get<0>(a) - std::get<0>(b)) <= tolerance &&
         std::abs(std::get<1>(a) - std::get<1>(b)) <= tolerance &&
         std::abs(std::get<2>(a) - std::get<2>(b)) <= tolerance;
}

// The drawing as the thumbnail shows it: twice as wide as high, red on the
// left, blue on the right (sampled inside each half, away from the edges a
// resampler blends).
void ExpectDrawing(const Shown& run, const std::string& what) {
  ASSERT_EQ(run.outcome.status, 0) << what << ": " << run.outcome.out;
  ASSERT_EQ(std::tuple(run.image.width, run.image.height), std::tuple(64, 32)) << what;
  EXPECT_TRUE(Near(At(run.image, 12, 16), {255, 0, 0}, 12)) << what;
  EXPECT_TRUE(Near(At(run.image, 52, 16), {0, 0, 255}, 12)) << what;
}

// A sketch: grey throughout, the drawing's size.
void ExpectSketch(const Shown& run, const std::string& what) {
  ASSERT_EQ(run.outcome.status, 0) << what << ": " << run.outcome.out;
  EXPECT_EQ(std::tuple(run.image.width, run.image.height), std::tuple(64, 32)) << what;
  for (size_t k = 0; k + 2 < run.image.pixels.size(); k += 3)
    ASSERT_TRUE(run.image.pixels[k] == run.image.pixels[k + 1] &&
                run.image.pixels[k] == run.image.pixels[k + 2])
        << what << " pixel " << k / 3;
}

void ExpectRefused(const Shown& run, const std::string& reason, const std::string& what) {
  EXPECT_EQ(run.outcome.status, 1) << what;
  EXPECT_TRUE(run.image.pixels.empty()) << what;
  EXPECT_NE(run.outcome.out.find(reason), std::string::npos) << what << ": " << run.outcome.out;
  EXPECT_EQ(run.outcome.out.find('\n'), run.outcome.out.size() - 1) << run.outcome.out;
}

bool Have(const std::string& program) {
  return qltest::Shell("command -v " + program).status == 0;
}

// A folder holding the drawing as d.eps, and the programs run in it.
struct Folder {
  qltest::DiskFile drawing{"d.eps", kDrawing};
  std::string dir = fs::path(drawing.path()).parent_path().string();
  std::string Path(const std::string& name) const { return dir + "/" + name; }
  void Make(const std::string& command) const {
    qltest::Outcome made = qltest::Shell("cd " + dir + " && " + command);
    ASSERT_EQ(made.status, 0) << command << ": " << made.out;
  }
  void Write(const std::string& name, const std::string& bytes) const {
    std::ofstream(Path(name), std::ios::binary) << bytes;
  }
};

TEST(EpsFromOtherPrograms, EpstoolPreviews) {
  if (!Have("epstool")) GTEST_SKIP() << "epstool is not installed";
  Folder f;
  f.Make(
      "epstool --quiet -t6p d.eps colour.eps && epstool --quiet -t4 d.eps bilevel.eps && "
      "epstool --quiet -i d.eps interchange.eps && epstool --quiet -w d.eps wmf.eps");
  // The colour TIFF preview is the thumbnail, with or without rendering;
  // epstool draws it at 72 dpi, the drawing's own size.
  Shown colour = Thumbnail(f.Path("colour.eps"), "-s 64 --no-render");
  ExpectDrawing(colour, "colour preview");
  EXPECT_EQ(Thumbnail(f.Path("colour.eps"), "-s 64").image.pixels, colour.image.pixels);
  if (Have("/usr/bin/convert")) {  // the preview decoded by ImageMagick, cut out by epstool
    f.Make(
        "epstool --quiet --extract-preview colour.eps preview.tif && "
        "/usr/bin/convert preview.tif preview.png");
    RgbImage independent;
    ASSERT_EQ(pxhost::ReadImage(f.Path("preview.png"), &independent), "");
    EXPECT_EQ(independent.pixels, colour.image.pixels);
  }
  // Bilevel and EPSI previews only sketch the page: the page is rendered
  // (from the PostScript section alone), the sketch kept for --no-render.
  for (const char* sketch : {"bilevel.eps", "interchange.eps"}) {
    ExpectDrawing(Thumbnail(f.Path(sketch), "-s 64"), sketch);
    ExpectSketch(Thumbnail(f.Path(sketch), "-s 64 --no-render"), sketch);
  }
  // A WMF preview is not read: rendered, or nothing.
  ExpectDrawing(Thumbnail(f.Path("wmf.eps"), "-s 64"), "wmf");
  ExpectRefused(Thumbnail(f.Path("wmf.eps"), "--no-render"),
                "wmf.eps: no picture in the file, and rendering is off", "wmf");
}

TEST(EpsFromOtherPrograms, ImageMagickGhostscriptAndPs2epsi) {
  Folder f;
  if (Have("ps2epsi")) {
    f.Make("ps2epsi d.eps ps2epsi.eps");
    ExpectDrawing(Thumbnail(f.Path("ps2epsi.eps"), "-s 64"), "ps2epsi");
    ExpectSketch(Thumbnail(f.Path("ps2epsi.eps"), "-s 64 --no-render"), "ps2epsi");
  }
  if (Have("gs")) {  // Ghostscript's EPS writer: a drawing with a fractional box
    f.Make("gs -q -dNOPAUSE -dBATCH -sDEVICE=eps2write -sOutputFile=gs.eps d.eps");
    ExpectDrawing(Thumbnail(f.Path("gs.eps"), "-s 64"), "eps2write");
  }
  if (!Have("/usr/bin/convert")) GTEST_SKIP() << "ImageMagick is not installed";
  // A picture ImageMagick turns into EPS files: 40 x 20, red then blue.
  f.Make(
      "/usr/bin/convert -size 20x20 xc:red xc:blue +append picture.png && "
      "/usr/bin/convert picture.png ept2:ept2.eps && "
      "/usr/bin/convert picture.png ept3:ept3.eps && /usr/bin/convert picture.png epsi:i.eps");
  RgbImage picture;
  ASSERT_EQ(pxhost::ReadImage(f.Path("picture.png"), &picture), "");
  for (const char* name : {"ept2.eps", "ept3.eps"}) {
    Shown run = Thumbnail(f.Path(name), "--no-render");
    ASSERT_EQ(run.outcome.status, 0) << name << ": " << run.outcome.out;
    EXPECT_EQ(std::tuple(run.image.width, run.image.height), std::tuple(40, 20)) << name;
    EXPECT_EQ(run.image.pixels, picture.pixels) << name;
    EXPECT_EQ(Thumbnail(f.Path(name)).image.pixels, picture.pixels) << name;
  }
  // ImageMagick gives its EPSI file the picture's size at 144 dpi.
  Shown rendered = Thumbnail(f.Path("i.eps"));
  ASSERT_EQ(rendered.outcome.status, 0) << rendered.outcome.out;
  ASSERT_EQ(std::tuple(rendered.image.width, rendered.image.height), std::tuple(20, 10));
  EXPECT_TRUE(Near(At(rendered.image, 3, 5), {255, 0, 0}, 12));
  EXPECT_TRUE(Near(At(rendered.image, 17, 5), {0, 0, 255}, 12));
  Shown sketch = Thumbnail(f.Path("i.eps"), "--no-render");
  ASSERT_EQ(sketch.outcome.status, 0) << sketch.outcome.out;
  EXPECT_EQ(std::tuple(sketch.image.width, sketch.image.height), std::tuple(40, 20));
}

RgbImage Pattern(int w, int h) {
  RgbImage image{w, h, std::vector<uint8_t>(size_t(w * h * 3))};
  for (size_t k = 0; k < image.pixels.size(); ++k) image.pixels[k] = uint8_t(k * 37);
  return image;
}

TEST(EpsOwnWriter, ColourPreviewExactGreyPreviewOnlyWithoutRendering) {
  Folder f;
  RgbImage preview = Pattern(48, 24);
  f.Write("colour.eps", doseps::DosEps(kDrawing, doseps::Tiff(preview)));
  f.Write("lzw.eps", doseps::DosEps(kDrawing, doseps::Tiff(preview, false, 5)));
  for (const char* name : {"colour.eps", "lzw.eps"})
    for (const char* options : {"", "--no-render"}) {
      Shown run = Thumbnail(f.Path(name), options);
      ASSERT_EQ(run.outcome.status, 0) << name << run.outcome.out;
      EXPECT_EQ(run.image.pixels, preview.pixels) << name << " " << options;
    }
  f.Write("grey.eps", doseps::DosEps(kDrawing, doseps::Tiff(preview, true)));
  ExpectDrawing(Thumbnail(f.Path("grey.eps"), "-s 64"), "grey preview");
  Shown grey = Thumbnail(f.Path("grey.eps"), "--no-render");
  ASSERT_EQ(grey.outcome.status, 0) << grey.outcome.out;
  auto [r, g, b] = At(preview, 5, 3);  // the grey image is the green channel
  EXPECT_EQ(At(grey.image, 5, 3), std::tuple(g, g, g));
  // The renderer gets the PostScript section alone: a header before it would
  // stop the interpreter, and a renderer running the whole file would fail.
  f.Write("no-preview.eps", doseps::DosEps(kDrawing, {}));
  ExpectDrawing(Thumbnail(f.Path("no-preview.eps"), "-s 64"), "DOS EPS without preview");
}

void Put32(std::string* s, size_t at, uint32_t v) {
  for (int k = 0; k < 4; ++k) (*s)[at + size_t(k)] = char(v >> (8 * k));
}

// Rewrites a little-endian TIFF's width and height entries to side x side.
void AnnounceSize(std::string* tiff, uint32_t side) {
  auto u16 = [&](size_t at) { return uint8_t((*tiff)[at]) | uint8_t((*tiff)[at + 1]) << 8; };
  size_t ifd = uint8_t((*tiff)[4]) | uint8_t((*tiff)[5]) << 8 | uint8_t((*tiff)[6]) << 16;
  for (size_t k = 0, n = u16(ifd); k < n; ++k) {
    size_t entry = ifd + 2 + 12 * k;
    if (u16(entry) != 256 && u16(entry) != 257) continue;
    (*tiff)[entry + 2] = 4, (*tiff)[entry + 3] = 0;  // LONG
    Put32(tiff, entry + 8, side);
  }
}

TEST(EpsOwnWriter, DamagedPreviewsAndHeaders) {
  Folder f;
  std::string good = doseps::DosEps(kDrawing, doseps::Tiff(Pattern(8, 8)));
  const uint32_t ps = uint32_t(sizeof kDrawing - 1);
  // Header fields at 4 + 8 k (offset) and 8 + 8 k (length): PostScript, WMF, TIFF.
  struct Header {
    const char* name;
    size_t field;
    uint32_t value;
    const char* reason;
  } headers[] = {
      {"past-end.eps", 24, uint32_t(good.size()), "TIFF section reaches past the end"},
      {"overlap.eps", 20, 30 + ps - 4, "PostScript and TIFF sections overlap"},
      {"empty.eps", 8, 0, "PostScript section is empty"},
  };
  for (const Header& h : headers) {
    std::string bytes = good;
    Put32(&bytes, h.field, h.value);
    f.Write(h.name, bytes);
    // Nothing of a file whose header cannot be trusted is shown or rendered.
    ExpectRefused(Thumbnail(f.Path(h.name)), h.reason, h.name);
    ExpectRefused(Thumbnail(f.Path(h.name), "--no-render"), h.reason, h.name);
  }
  // A damaged preview hands over to rendering; without it, it is the reason.
  std::string notTiff = doseps::DosEps(kDrawing, "GIF89a, not a TIFF image");
  std::string huge = doseps::Tiff(Pattern(8, 8));
  AnnounceSize(&huge, 100000);
  struct Damaged {
    const char* name;
    std::string bytes;
    const char* reason;
  } damaged[] = {
      {"not-tiff.eps", notTiff, "TIFF preview is not a TIFF image"},
      {"huge.eps", doseps::DosEps(kDrawing, huge), "100000 x 100000 pixels is too large"},
      {"epsi-short.eps",
       std::string(kDrawing).insert(std::string(kDrawing).find("%%EndComments\n") + 14,
                                    "%%BeginPreview: 64 32 1 4\n% 00\n%%EndPreview\n"),
       "EPSI preview has fewer lines than the 4 it announces"},
      {"epsi-odd.eps",
       std::string(kDrawing).insert(std::string(kDrawing).find("%%EndComments\n") + 14,
                                    "%%BeginPreview: 8 1 1 1\n% 0F0\n%%EndPreview\n"),
       "EPSI preview has an odd number of hex digits"},
  };
  for (const Damaged& d : damaged) {
    f.Write(d.name, d.bytes);
    ExpectDrawing(Thumbnail(f.Path(d.name), "-s 64"), d.name);
    ExpectRefused(Thumbnail(f.Path(d.name), "--no-render"), d.reason, d.name);
  }
}

TEST(EpsChain, ShortDocumentsAreToldApartByTheirFirstBytes) {
  // Complete drawings of about 200 bytes, below the 512 the reader's
  // classifier wants.
  std::string tiny =
      "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 64 32\n%%EndComments\n"
      "1 0 0 setrgbcolor 0 0 32 32 rectfill 0 0 1 setrgbcolor 32 0 32 32 rectfill\nshowpage\n";
  ASSERT_LT(tiny.size(), 512u);
  Folder f;
  f.Write("tiny.ps", tiny);
  f.Write("tiny-dos.eps", doseps::DosEps(tiny, {}));
  ExpectDrawing(Thumbnail(f.Path("tiny.ps"), "-s 64"), "short PostScript");
  ExpectDrawing(Thumbnail(f.Path("tiny-dos.eps"), "-s 64"), "short DOS EPS");
  ExpectRefused(Thumbnail(f.Path("tiny.ps"), "--no-render"),
                "no picture in the file, and rendering is off", "short PostScript");
}

TEST(EpsChain, ASketchStandsInForARendererThatRunsOverItsLimit) {
  Folder f;
  RgbImage preview = Pattern(16, 8);
  std::string loop = "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 16 8\n%%EndComments\n{} loop\n";
  f.Write("loop.eps", doseps::DosEps(loop, doseps::Tiff(preview, true)));
  Shown run = Thumbnail(f.Path("loop.eps"), "--time-limit 1");
  ASSERT_EQ(run.outcome.status, 0) << run.outcome.out;
  auto [r, g, b] = At(preview, 3, 2);
  EXPECT_EQ(At(run.image, 3, 2), std::tuple(g, g, g));
  // Without a sketch the time limit is the reason told.
  f.Write("loop.ps", loop);
  ExpectRefused(Thumbnail(f.Path("loop.ps"), "--time-limit 1"), "ran over its 1 s time limit",
                "loop.ps");
}

TEST(EpsChain, DamagedXmpThumbnailHandsOverToTheEmbeddedPreview) {
  ql7::Options o;
  o.pdf = true;
  o.xmpJpegThumbnail = true;  // the item holds no picture
  RgbImage embedded{6, 4, std::vector<uint8_t>(6 * 4 * 3, 0)};
  for (size_t k = 0; k < embedded.pixels.size(); k += 3) embedded.pixels[k + 1] = 200;
  qltest::DiskFile doc("stub.pdf", ql7::VectorFile(embedded, o));
  Shown run = Thumbnail(doc.path());
  ASSERT_EQ(run.outcome.status, 0) << run.outcome.out;
  EXPECT_EQ(run.image.pixels, embedded.pixels);

  // The bundled sample: its XMP picture is damaged, its embedded preview good.
  std::ifstream sample(std::string(QL_SOURCE_DIR) + "/samples/vector/catalog.pdf",
                       std::ios::binary);
  qltest::DiskFile copy("catalog.pdf", std::string(std::istreambuf_iterator<char>(sample), {}));
  Shown catalog = Thumbnail(copy.path());
  ASSERT_EQ(catalog.outcome.status, 0) << catalog.outcome.out;
  EXPECT_FALSE(catalog.image.pixels.empty());
}

}  // namespace
