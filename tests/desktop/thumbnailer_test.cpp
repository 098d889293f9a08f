// pxhost thumbnail as the desktop's thumbnail factory runs it: the size and
// aspect of what it writes, each source it can take the picture from and
// the edges of its choices (which files go the swatch book's way, how far the
// pictures it is given may reach), and every way it refuses, always leaving
// nothing at OUT.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "desktop/swatch_grid.h"
#include "desktop/xmp_jpeg.h"
#include "pxhost/image_io.h"
#include "swatchbook/kelto_swatchbook.h"
#include "tests/support/fixture_file.h"
#include "tests/support/jpeg_util.h"
#include "tools/ql7embed/ql7_writer.h"
#include "tools/sxfwrite/sxf_writer.h"
#include "xmp/display_colour.h"
#include "xmp/host_binding.h"
#include "xmp/toolkit.h"

namespace {

namespace fs = std::filesystem;
using qltest::Outcome;

Outcome Thumbnail(const std::string& args) {
  return qltest::Shell(std::string(QL_PXHOST) + " thumbnail " + args);
}

pxhost::RgbImage Solid(int w, int h, uint8_t r, uint8_t g, uint8_t b) {
  pxhost::RgbImage img{w, h, {}};
  for (int k = 0; k < w * h; ++k) img.pixels.insert(img.pixels.end(), {r, g, b});
  return img;
}

pxhost::RgbImage Pattern(int w, int h) {
  pxhost::RgbImage img{w, h, std::vector<uint8_t>(size_t(w * h * 3))};
  for (size_t k = 0; k < img.pixels.size(); ++k) img.pixels[k] = uint8_t(k * 37);
  return img;
}

std::string EmbeddedPs(const pxhost::RgbImage& image) {
  ql7::Options o;
  o.bitsPerPixel = 24;
  return ql7::VectorFile(image, o);
}

// PostScript with no preview of its own, long enough for the reader's
// classifier, which wants 512 bytes before it names a document kind.
std::string PlainPs(const std::string& body) {
  return "%!PS-Adobe-3.0\n%%BoundingBox: 0 0 200 100\n%%Pages: 1\n%%EndComments\n%%Page: 1 1\n" +
         body + "\nshowpage\n%%EOF\n" + std::string(600, '%') + "\n";
}

struct Result {
  Outcome outcome;
  pxhost::RgbImage image;
  bool written;
};

// Runs the command on a file holding bytes; OUT deliberately has no .png.
Result Make(const std::string& name, const std::string& bytes, const std::string& options = "") {
  qltest::DiskFile in(name, bytes);
  std::string out = in.path() + ".thumb";
  Result run{Thumbnail(options + " " + in.path() + " " + out), {}, fs::exists(out)};
  if (run.written) {
    // The reader picks the format by name; the bytes must be PNG anyway.
    fs::rename(out, out + ".png");
    EXPECT_EQ(pxhost::ReadImage(out + ".png", &run.image), "");
  }
  return run;
}

void ExpectNear(const pxhost::RgbImage& image, int x, int y, std::tuple<int, int, int> rgb,
                int tolerance) {
  const uint8_t* p = &image.pixels[size_t((y * image.width + x) * 3)];
  EXPECT_NEAR(p[0], std::get<0>(rgb), tolerance) << x << "," << y;
  EXPECT_NEAR(p[1], std::get<1>(rgb), tolerance) << x << "," << y;
  EXPECT_NEAR(p[2], std::get<2>(rgb), tolerance) << x << "," << y;
}

std::tuple<int, int> Size(const Result& run) {
  return {run.image.width, run.image.height};
}

// The longest side is the size asked for (256 by default), the other rounds
// to the nearest pixel (never below one); a picture that fits stays as it is.
TEST(ThumbnailSize, LongestSideAtMostSizeAspectKeptNeverEnlarged) {
  struct Case {
    int w, h, size, wantW, wantH;
  } cases[] = {
      {128, 32, 64, 64, 16},      // wide
      {20, 100, 50, 10, 50},      // tall
      {99, 66, 32, 32, 21},       // 21.33
      {60, 50, 32, 32, 27},       // 26.67
      {50, 60, 32, 27, 32},       // and upright
      {100, 10, 16, 16, 2},       // 1.6
      {100, 3, 16, 16, 1},        // 0.48: still one pixel
      {90, 45, 16, 16, 8},        // exactly half
      {17, 16, 16, 16, 15},       // 15.06
      {1, 1, 16, 1, 1},           // fits as it is
      {16, 16, 16, 16, 16},       // fits exactly
      {40, 30, 0, 40, 30},        // smaller than the default 256
      {128, 128, 128, 128, 128},  // fits exactly
  };
  for (const Case& c : cases) {
    std::string size = c.size ? "-s " + std::to_string(c.size) : "";
    Result run = Make("page.ps", EmbeddedPs(Pattern(c.w, c.h)), size);
    ASSERT_EQ(run.outcome.status, 0) << run.outcome.out;
    EXPECT_EQ(Size(run), std::tuple(c.wantW, c.wantH)) << c.w << "x" << c.h << " " << size;
    if (Size(run) == std::tuple(c.w, c.h)) {
      EXPECT_EQ(run.image.pixels, Pattern(c.w, c.h).pixels);
    }
  }
}

TEST(ThumbnailSize, ShrinkingFiltersRatherThanPicksPixels) {
  // One-pixel black and white stripes halved: a filter gives grey, picking
  // every other pixel would give one of the two colours.
  pxhost::RgbImage stripes{64, 64, {}};
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x)
      stripes.pixels.insert(stripes.pixels.end(), 3, uint8_t(x % 2 ? 255 : 0));
  Result run = Make("stripes.ps", EmbeddedPs(stripes), "-s 32");
  ASSERT_EQ(run.outcome.status, 0) << run.outcome.out;
  // Averaged in linear light: half of full intensity is sRGB 188.
  ExpectNear(run.image, 16, 16, {188, 188, 188}, 6);
}

TEST(ThumbnailSource, XmpJpegThumbnailIsDecoded) {
  jpegtest::Rgb source{48, 24, {}};
  for (int k = 0; k < 48 * 24; ++k) source.pixels.insert(source.pixels.end(), {30, 160, 90});
  ql7::Options o;
  o.pdf = true;
  o.xmpJpeg = jpegtest::Encode(source, 12);
  o.xmpJpegThumbnail = true;
  std::string file = ql7::VectorFile(Solid(8, 8, 255, 0, 0), o);
  // The embedded preview comes first in the chain.
  Result first = Make("doc.pdf", file);
  ASSERT_EQ(first.outcome.status, 0) << first.outcome.out;
  EXPECT_EQ(std::tuple(first.image.width, first.image.height), std::tuple(8, 8));
  ExpectNear(first.image, 4, 4, {255, 0, 0}, 4);
  // Without it (its keyword defaced, the file's offsets kept), the JPEG.
  file[file.find("%QL7_Thumbnail:") + 1] = 'X';
  Result run = Make("doc.pdf", file);
  ASSERT_EQ(run.outcome.status, 0) << run.outcome.out;
  EXPECT_EQ(std::tuple(run.image.width, run.image.height), std::tuple(48, 24));
  ExpectNear(run.image, 24, 12, {30, 160, 90}, 4);  // the JPEG's colour, not the page's red
}

TEST(ThumbnailSource, PdfPageIsRenderedWhenTheSuiteSaysPdf) {
  ql7::Options o;
  o.pdf = true;
  o.xmpFormat = "application/pdf";
  pxhost::RgbImage page = Solid(300, 150, 0, 0, 255);  // embedded preview is ignored for PDF
  Result run = Make("doc.pdf", ql7::VectorFile(page, o), "-s 100");
  ASSERT_EQ(run.outcome.status, 0) << run.outcome.out;
  EXPECT_EQ(std::tuple(run.image.width, run.image.height), std::tuple(100, 50));
  ExpectNear(run.image, 50, 25, {0, 0, 255}, 8);
}

TEST(ThumbnailSource, PostScriptWithoutPreviewIsRendered) {
  Result run = Make("halves.ps",
                    PlainPs("1 0 0 setrgbcolor 0 0 100 100 rectfill "
                            "0 0 1 setrgbcolor 100 0 100 100 rectfill"),
                    "-s 64");
  ASSERT_EQ(run.outcome.status, 0) << run.outcome.out;
  EXPECT_EQ(std::tuple(run.image.width, run.image.height), std::tuple(64, 32));
  ExpectNear(run.image, 10, 16, {255, 0, 0}, 8);
  ExpectNear(run.image, 54, 16, {0, 0, 255}, 8);
}

std::string Book(const nlohmann::json& blocks) {
  std::string sxf, error;
  EXPECT_TRUE(sxfwrite::BuildSxf({{"blocks", blocks}}, &sxf, &error)) << error;
  return sxf;
}

// The colour at the centre of chip k of a grid of `chips` chips at `size`.
std::tuple<int, int, int> ChipAt(const pxhost::RgbImage& image, int chips, int size, int k) {
  pxhost::SwatchGridLayout l = pxhost::LayOutSwatchGrid(chips, size);
  int x = l.gap + (k % l.columns) * (l.chip + l.gap) + l.chip / 2;
  int y = l.gap + (k / l.columns) * (l.chip + l.gap) + l.chip / 2;
  const uint8_t* p = &image.pixels[size_t((y * image.width + x) * 3)];
  return {p[0], p[1], p[2]};
}

TEST(ThumbnailSource, SwatchBookIsAGridOfItsChipsInDisplayColours) {
  nlohmann::json blocks = nlohmann::json::array({
      {{"group", "Inks"}},
      {{"swatch", "Red"}, {"model", "RGB "}, {"values", {1, 0, 0}}},
      {{"swatch", "Unknown"}, {"model", "XYZ "}, {"values", {0.3, 0.3, 0.3}}},  // no chip
      {{"swatch", "Warm red"}, {"model", "CMYK"}, {"values", {0, 1, 1, 0}}},
      {{"groupEnd", true}},
      {{"swatch", "Half blue"}, {"model", "RGB "}, {"values", {0, 0, 1}}, {"tint", 0.5}},
  });
  Result run = Make("inks.sxf", Book(blocks), "-s 128");
  ASSERT_EQ(run.outcome.status, 0) << run.outcome.out;
  pxhost::SwatchGridLayout l = pxhost::LayOutSwatchGrid(3, 128);
  EXPECT_EQ(std::tuple(run.image.width, run.image.height),
            std::tuple(2 * (l.chip + l.gap) + l.gap, 2 * (l.chip + l.gap) + l.gap));
  EXPECT_EQ(ChipAt(run.image, 3, 128, 0), std::tuple(255, 0, 0));
  EXPECT_EQ(ChipAt(run.image, 3, 128, 2), std::tuple(128, 128, 255));  // half the ink on white

  // CMYK goes through the host's colour engine, as the chip pages convert it
  // (rounded to the nearest byte, as palette export writes it), and not
  // through the naive formula, which would give pure red.
  ASSERT_EQ(WeftClientInit(FindWeftProcLookup()), 0);
  double cmyk[4] = {0, 1, 1, 0};
  float engine[3] = {};
  ASSERT_TRUE(xmppages::DisplayColour(KeltoSwatchbook::kColorSpaceCMYK, cmyk, engine));
  WeftClientTerminate();
  auto byte = [](float v) { return int(std::lround(v * 255.0)); };
  EXPECT_EQ(ChipAt(run.image, 3, 128, 1),
            std::tuple(byte(engine[0]), byte(engine[1]), byte(engine[2])));
  EXPECT_NE(ChipAt(run.image, 3, 128, 1), std::tuple(255, 0, 0));
}

TEST(ThumbnailSource, LargeBookShowsWhatFitsAndCountsTheRest) {
  nlohmann::json blocks = nlohmann::json::array();
  for (int k = 0; k < 300; ++k)
    blocks.push_back({{"swatch", "S" + std::to_string(k)},
                      {"model", "RGB "},
                      {"values", {k % 2, 0.5, 1 - k % 2}}});
  Result run = Make("big.sxf", Book(blocks), "-s 128");
  ASSERT_EQ(run.outcome.status, 0) << run.outcome.out;
  pxhost::SwatchGridLayout l = pxhost::LayOutSwatchGrid(300, 128);
  ASSERT_GT(l.labelCells, 0);
  EXPECT_EQ(ChipAt(run.image, 300, 128, l.shown - 1),
            l.shown % 2 ? std::tuple(0, 128, 255)
                        : std::tuple(255, 128, 0));  // 0.5 rounded, as the book holds it
  // The label's cells: dark, with white text strokes across them.
  int whites = 0, darks = 0;
  int y0 = l.gap + (l.rows - 1) * (l.chip + l.gap);
  for (int y = y0; y < y0 + l.chip; ++y)
    for (int x = run.image.width - l.gap - l.labelCells * (l.chip + l.gap) + l.gap;
         x < run.image.width - l.gap; ++x) {
      const uint8_t* p = &run.image.pixels[size_t((y * run.image.width + x) * 3)];
      whites += p[0] == 255 && p[1] == 255 && p[2] == 255;
      darks += p[0] == 80;
    }
  EXPECT_GT(whites, 10);
  EXPECT_GT(darks, whites);
}

TEST(ThumbnailFailure, OneLineNamingTheFileAndNothingAtOut) {
  std::string badPreview = "%!PS-Adobe-3.0\n%QL7_Thumbnail: 4 4 24\n%%BeginData: 9 Hex Bytes\n" +
                           std::string("00FF") + "\n%%EndData\n" + std::string(600, '%') + "\n";
  // Each source that fails hands over to the next; the line tells the last
  // reason (a damaged preview is the last one only when nothing is rendered).
  struct Case {
    const char* name;
    std::string bytes;
    const char* options;
    const char* reason;
  } cases[] = {
      {"notes.txt", std::string(600, 'x'), "", "no embedded preview and no renderer"},
      {"short.txt", "%!\nshowpage\n", "", "no embedded preview and no renderer"},
      {"broken.ps", badPreview, "--no-render", "embedded preview damaged"},
      {"error.ps", PlainPs("nosuchoperator"), "", "PostScript renderer"},
      {"renamed.sxf", EmbeddedPs(Pattern(4, 4)), "", "not a swatch exchange file"},
      {"empty.sxf", Book({{{"swatch", "X"}, {"model", "XYZ "}, {"values", {0.1, 0.1, 0.1}}}}), "",
       "no swatch in the book has a colour that can be shown"},
  };
  for (const Case& c : cases) {
    Result run = Make(c.name, c.bytes, c.options);
    EXPECT_EQ(run.outcome.status, 1) << c.name;
    EXPECT_FALSE(run.written) << c.name;
    EXPECT_EQ(run.outcome.out.find("pxhost: "), 0u) << run.outcome.out;
    EXPECT_NE(run.outcome.out.find(std::string(c.name) + ": " + c.reason), std::string::npos)
        << run.outcome.out;
    EXPECT_EQ(run.outcome.out.find('\n'), run.outcome.out.size() - 1) << run.outcome.out;
  }

  qltest::DiskFile good("page.ps", EmbeddedPs(Pattern(4, 4)));
  fs::path dir = fs::path(good.path()).parent_path();
  EXPECT_EQ(Thumbnail(dir.string() + " " + good.path() + ".png").out,
            "pxhost: " + dir.string() + ": is a directory\n");
  EXPECT_EQ(Thumbnail(dir.string() + "/absent.ps x.png").out,
            "pxhost: " + dir.string() + "/absent.ps: no such file\n");
  std::string fifo = dir.string() + "/pipe.ps";  // opening it must not wait for a writer
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(Thumbnail(fifo + " x.png").out, "pxhost: " + fifo + ": not a regular file\n");
  fs::remove(fifo);
  Outcome out = Thumbnail(good.path() + " " + dir.string() + "/no/such/folder/t.png");
  EXPECT_EQ(out.status, 2);
  EXPECT_EQ(out.out, "pxhost: " + dir.string() + "/no/such/folder/t.png: the output folder " +
                         dir.string() + "/no/such/folder does not exist\n");
  EXPECT_EQ(Thumbnail(good.path() + " " + good.path()).status, 2);  // never over the input
  EXPECT_TRUE(fs::exists(good.path()));
  EXPECT_EQ(Thumbnail("-s 8 " + good.path() + " t.png").status, 2);
  // Only the output remains in the folder: no temporary file is left behind.
  std::vector<std::string> left;
  for (const auto& entry : fs::directory_iterator(dir)) left.push_back(entry.path().string());
  EXPECT_EQ(left, std::vector<std::string>{good.path()});
}

// A thumbnailer service that creates OUT itself and reads the picture back
// through the descriptor it kept gets the PNG in that same file; a failing run
// leaves the file it made empty.
TEST(ThumbnailService, EmptyOutputItMadeIsFilledInPlace) {
  qltest::DiskFile good("page.ps", EmbeddedPs(Pattern(6, 4)));
  qltest::DiskFile bad("notes.ps", std::string(600, 'x'));
  for (const qltest::DiskFile* in : {&good, &bad}) {
    std::string out = in->path() + ".thumb";
    std::fstream held(out, std::ios::binary | std::ios::trunc | std::ios::out | std::ios::in);
    ASSERT_TRUE(held.is_open());
    Outcome run = Thumbnail(in->path() + " " + out);
    std::string seen((std::istreambuf_iterator<char>(held)), {});
    EXPECT_EQ(run.status, in == &good ? 0 : 1) << run.out;
    EXPECT_EQ(seen.substr(0, 4), in == &good ? "\x89PNG" : "") << in->path();
    EXPECT_EQ(fs::file_size(out), seen.size());
    fs::remove(out);
  }
}

TEST(ThumbnailFailure, RendererThatNeverEndsIsKilledAtTheTimeLimit) {
  qltest::DiskFile loop("loop.ps", PlainPs("{} loop"));
  auto start = std::chrono::steady_clock::now();
  Outcome out = Thumbnail("--time-limit 1 " + loop.path() + " " + loop.path() + ".png");
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_EQ(out.status, 1);
  EXPECT_EQ(out.out, "pxhost: " + loop.path() + ": renderer ran over its 1 s time limit\n");
  EXPECT_LT(seconds, 4.0);
  EXPECT_FALSE(fs::exists(loop.path() + ".png"));
  // The renderer's whole process group is gone with it: no process is left
  // whose command line names the file.
  for (const auto& proc : fs::directory_iterator("/proc")) {
    std::ifstream cmdline(proc.path() / "cmdline");
    std::string args((std::istreambuf_iterator<char>(cmdline)), {});
    EXPECT_EQ(args.find(loop.path()), std::string::npos) << proc.path();
  }
}

// What the XMP source itself says of a file: "" with the picture, or why not.
std::string XmpSource(const std::string& bytes, pxhost::RgbImage* image) {
  qltest::DiskFile file("doc.pdf", bytes);
  xmptk::Initialize();
  std::string reason = pxhost::ReadXmpJpegThumbnail(file.path(), image);
  xmptk::Terminate();
  return reason;
}

// A swatch book is known by its name's .sxf in any case, or by its signature
// whatever its name; a vector file is never taken for one.
TEST(ThumbnailChoice, SwatchBooksByNameInAnyCaseOrBySignature) {
  const std::string book = Book({{{"swatch", "Green"}, {"model", "RGB "}, {"values", {0, 1, 0}}},
                                 {{"swatch", "Blue"}, {"model", "RGB "}, {"values", {0, 0, 1}}}});
  for (const char* name : {"inks.sxf", "INKS.SXF", "inks.Sxf", "inks.dat", "inks"}) {
    Result run = Make(name, book, "-s 64");
    ASSERT_EQ(run.outcome.status, 0) << name << ": " << run.outcome.out;
    pxhost::SwatchGridLayout l = pxhost::LayOutSwatchGrid(2, 64);
    ASSERT_EQ(run.image.width, l.gap + 2 * (l.chip + l.gap)) << name;
    int second = l.gap + l.chip + l.gap + l.chip / 2, middle = l.gap + l.chip / 2;
    const uint8_t* chip = &run.image.pixels[size_t((middle * run.image.width + second) * 3)];
    EXPECT_EQ(std::tuple(chip[0], chip[1], chip[2]), std::tuple(0, 0, 255)) << name;
  }
  for (const char* name : {"page.sx", "page.xsxf", "sxf"}) {
    Result run = Make(name, EmbeddedPs(Solid(6, 3, 120, 120, 120)));
    EXPECT_EQ(run.outcome.status, 0) << name << ": " << run.outcome.out;
    EXPECT_EQ(Size(run), std::tuple(6, 3)) << name;
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
    std::string file = ql7::VectorFile(Solid(4, 4, 120, 120, 120), o);
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
    std::ofstream(dir / name) << EmbeddedPs(Solid(6, 3, 120, 120, 120));  // not a book inside
    Outcome r = qltest::Shell("cd " + dir.string() + " && " + QL_PXHOST + " thumbnail " + name +
                              " out.png");
    EXPECT_EQ(r.status, 1) << name;
    EXPECT_EQ(r.out.find(std::string("pxhost: ") + name + ": not a swatch exchange file"), 0u)
        << r.out;
  }
}

// The JPEG thumbnail's item as the toolkit reads it: text that is no base64
// is a damaged thumbnail, and the embedded preview gives the picture.
TEST(ThumbnailChoice, XmpJpegItemThatIsNoBase64) {
  ql7::Options o;
  o.pdf = true;
  o.xmpJpegThumbnail = true;  // an item of format JPEG, its text spoilt below
  std::string file = ql7::VectorFile(Solid(4, 4, 120, 120, 120), o);
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
    std::string file = ql7::VectorFile(Solid(4, 4, 120, 120, 120), o);
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
