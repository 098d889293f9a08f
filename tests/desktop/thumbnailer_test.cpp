// pxhost thumbnail as the desktop's thumbnail factory runs it: the size and
// aspect of what it writes, each source it can take the picture from, and
// every way it refuses, always leaving nothing at OUT.
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
#include "pxhost/image_io.h"
#include "swatchbook/kelto_swatchbook.h"
#include "tests/support/fixture_file.h"
#include "tests/support/jpeg_util.h"
#include "tools/ql7embed/ql7_writer.h"
#include "tools/sxfwrite/sxf_writer.h"
#include "xmp/display_colour.h"
#include "xmp/host_binding.h"

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

TEST(ThumbnailSize, LongestSideAtMostSizeAspectKeptNeverEnlarged) {
  struct Case {
    int w, h;
    const char* size;
    int wantW, wantH;
  } cases[] = {
      {128, 32, "-s 64", 64, 16},  // wide
      {20, 100, "-s 50", 10, 50},  // tall
      {99, 66, "-s 32", 32, 21},   // 21.33 rounds down
      {1, 1, "-s 16", 1, 1},
      {40, 30, "", 40, 30},  // smaller than the default 256: kept as it is
      {128, 128, "-s 128", 128, 128},
  };
  for (const Case& c : cases) {
    Result run = Make("page.ps", EmbeddedPs(Pattern(c.w, c.h)), c.size);
    ASSERT_EQ(run.outcome.status, 0) << run.outcome.out;
    EXPECT_EQ(std::tuple(run.image.width, run.image.height), std::tuple(c.wantW, c.wantH))
        << c.w << "x" << c.h << " " << c.size;
    if (c.wantW == c.w) {
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

}  // namespace
