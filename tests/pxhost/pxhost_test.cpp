// pxhost as a user runs it: commands, messages and exit codes.
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "pxhost/image_io.h"
#include "tests/support/fixture_file.h"
#include "tools/ql7embed/ql7_writer.h"

namespace {

using qltest::Listing;
using qltest::Outcome;

Outcome Pxhost(const std::string& args) {
  return qltest::Shell(std::string(QL_PXHOST) + " " + args);
}

pxhost::RgbImage Image(int w, int h) {
  pxhost::RgbImage img{w, h, std::vector<uint8_t>(size_t(w * h * 3))};
  for (size_t k = 0; k < img.pixels.size(); ++k) img.pixels[k] = uint8_t(k * 37);
  return img;
}

TEST(Pxhost, HelpAndUsageErrors) {
  Outcome help = Pxhost("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("preview"), std::string::npos);
  qltest::DiskFile empty("empty", "");
  EXPECT_EQ(Pxhost("call -1 " + empty.path()).status, 0);  // a selector, not an option
  for (const char* args : {"", "frobnicate x", "call 2", "--plugin /nonexistent.so call 0 x",
                           "preview /dev/null /dev/zero -o /tmp/one.png",  // needs DIR/
                           "call 70000 x", "identify --bogus x", "xmp a b", "thumbnail -s 8 a b"})
    EXPECT_EQ(Pxhost(args).status, 2) << args;
}

TEST(Pxhost, PreviewWritesTheThumbnails) {
  ql7::Options o;
  o.bitsPerPixel = 24;
  qltest::DiskFile file("page.ps", ql7::VectorFile(Image(9, 4), o));
  std::string png = file.path() + ".png";
  Outcome r = Pxhost("preview " + file.path() + " -o " + png);
  ASSERT_EQ(r.status, 0) << r.out;
  pxhost::RgbImage back;
  ASSERT_EQ(pxhost::ReadImage(png, &back), "");
  EXPECT_EQ(std::tuple(back.width, back.height), std::tuple(9, 4));
  EXPECT_EQ(back.pixels, Image(9, 4).pixels);

  // Several files go to a directory; a file without a thumbnail is refused
  // and the others are still written.
  qltest::DiskFile bad("plain.ps", "%!PS-Adobe-3.0\nshowpage\n");
  std::string dir = std::filesystem::path(file.path()).parent_path().string() + "/out/";
  r = Pxhost("preview " + file.path() + " " + bad.path() + " -o " + dir);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("pxhost: " + bad.path() + ": no embedded preview (result -30501)"),
            std::string::npos)
      << r.out;
  EXPECT_TRUE(std::filesystem::exists(dir + "page.png"));

  // A .ppm output is a binary PPM of the same pixels, whatever the case of
  // its extension.
  std::string ppm = file.path() + ".PPM";
  ASSERT_EQ(Pxhost("preview " + file.path() + " -o " + ppm).status, 0);
  pxhost::RgbImage fromPpm;
  ASSERT_EQ(pxhost::ReadImage(ppm, &fromPpm), "");
  EXPECT_EQ(std::tuple(fromPpm.width, fromPpm.height), std::tuple(9, 4));
  EXPECT_EQ(fromPpm.pixels, Image(9, 4).pixels);
}

// A PNG file as other programs write one: interlaced (Adam7) or not, or
// only its signature and header when rows is false.
std::string PngFile(const pxhost::RgbImage& image, int interlace, bool rows = true) {
  std::string bytes;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_set_write_fn(
      png, &bytes,
      [](png_structp p, png_bytep data, png_size_t size) {
        static_cast<std::string*>(png_get_io_ptr(p))->append(reinterpret_cast<char*>(data), size);
      },
      nullptr);
  png_set_IHDR(png, info, png_uint_32(image.width), png_uint_32(image.height), 8,
               PNG_COLOR_TYPE_RGB, interlace, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_write_flush(png);
  int passes = png_set_interlace_handling(png);
  for (int pass = 0; rows && pass < passes; ++pass)
    for (int32_t y = 0; y < image.height; ++y)
      png_write_row(png, image.pixels.data() + size_t(y) * size_t(image.width) * 3);
  if (rows) png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return bytes;
}

// The pictures the tools read (PNG and binary PPM, by the name's extension in
// any case): what is not one, or is cut short, is refused with a reason, and
// a PPM header's size is checked before anything is allocated from it.
TEST(Pxhost, ReadImageRefusesWhatItCannotRead) {
  std::string png;
  ASSERT_EQ(pxhost::EncodePng(Image(3, 2), &png), "");
  const std::string pixels = "\x01\x02\x03\x04\x05\x06";
  struct Case {
    const char* name;
    std::string bytes, error;
  };
  const Case cases[] = {
      {"c.ppm", "P6\n# made by hand\n2 1\n255\n" + pixels, ""},
      {"u.PNG", png, ""},
      {"t.ppm", "P6 2 1 255\n" + pixels.substr(0, 5), "truncated PPM file"},
      {"a.ppm", "P3\n2 1\n255\n1 2 3 4 5 6\n", "not a binary PPM (P6) file"},
      {"n.ppm", "P6\n2\n", "not a binary PPM (P6) file"},
      {"d.ppm", "P6\n2 1\n65535\n" + pixels + pixels, "only 8-bit PPM files are supported"},
      {"z.ppm", "P6\n0 1\n255\n", "unsupported PPM size"},
      {"h.ppm", "P6\n40000 40000\n255\n" + pixels, "unsupported PPM size"},
      {"i.png", PngFile(Image(3, 2), PNG_INTERLACE_ADAM7), ""},
      {"h.png", PngFile({40000, 40000, {}}, PNG_INTERLACE_NONE, false), "not a readable PNG file"},
      {"x.png", "P6\n2 1\n255\n" + pixels, "not a readable PNG file"},
      {"cut.png", png.substr(0, png.size() - 20), "not a readable PNG file"},
      {"x.gif", png, "unknown image format (use .png or .ppm)"},
  };
  for (const Case& c : cases) {
    qltest::DiskFile file(c.name, c.bytes);
    pxhost::RgbImage image;
    std::string error = pxhost::ReadImage(file.path(), &image);
    EXPECT_EQ(error, c.error.empty() ? "" : file.path() + ": " + c.error) << c.name;
    if (c.error.empty()) {
      bool ppm = c.name[0] == 'c';
      EXPECT_EQ(image.pixels,
                ppm ? std::vector<uint8_t>(pixels.begin(), pixels.end()) : Image(3, 2).pixels)
          << c.name;
      EXPECT_EQ(image.width, ppm ? 2 : 3) << c.name;
    }
  }
  pxhost::RgbImage none;
  EXPECT_EQ(pxhost::ReadImage("/nonexistent.png", &none),
            "/nonexistent.png: No such file or directory");
}

TEST(Pxhost, CallReportsTheWrittenFields) {
  qltest::DiskFile file("page.ps", ql7::VectorFile(Image(6, 2), {}));
  Outcome r = Pxhost("call 3 " + file.path() + " --file-type EPSF --json");
  ASSERT_EQ(r.status, 0) << r.out;
  auto j = nlohmann::json::parse(r.out)["result"];
  EXPECT_EQ(j["code"], 0);
  EXPECT_EQ(j["advanceStateCalls"], 1);
  EXPECT_EQ(j["fields"]["rowStride"], 18);
  EXPECT_EQ(j["fields"]["pixelData"], nullptr);

  for (auto [args, result] : {std::pair{"call 2 --file-type EPSF --no-preview-open", "-30501"},
                              std::pair{"call 0 --withhold advance-state", "-30900"}}) {
    Outcome refused = Pxhost(std::string(args) + " " + file.path());
    EXPECT_EQ(refused.status, 1) << args;
    EXPECT_NE(refused.out.find(std::string("result: ") + result), std::string::npos) << args;
  }
}

TEST(Pxhost, IdentifyAsksThePlugin) {
  qltest::DiskFile vector("page.ps", ql7::VectorFile(Image(2, 2), {}));
  std::string swatches = std::string(QL_SOURCE_DIR) + "/samples/swatches/basic.sxf";
  Outcome r = Pxhost("identify " + vector.path() + " " + swatches);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, vector.path() + ": not a swatch exchange file (bad signature)\n" + swatches +
                       ": swatch exchange file\n");
}

TEST(Pxhost, MethodNamesEachFile) {
  ql7::Options pdf;
  pdf.pdf = true;
  pdf.xmpFormat = "application/pdf";
  qltest::DiskFile a("a.pdf", ql7::VectorFile(Image(2, 2), pdf));
  Outcome r = Pxhost("method " + a.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, a.path() + ": pdf\n");
  // A JPEG thumbnail in the XMP, without a PDF format there.
  ql7::Options thumb;
  thumb.pdf = true;
  thumb.xmpJpegThumbnail = true;
  qltest::DiskFile t("t.pdf", ql7::VectorFile(Image(2, 2), thumb));
  EXPECT_EQ(Pxhost("method " + t.path()).out, t.path() + ": xmp-thumbnail\n");
}

namespace fs = std::filesystem;

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Outputs appear whole or not at all, never over an input, and a device
// stays a device.
TEST(Pxhost, OutputsAreAtomic) {
  qltest::DiskFile file("page.ps", ql7::VectorFile(Image(5, 3), {}));
  fs::path dir = fs::path(file.path()).parent_path();
  std::string original = Slurp(file.path());

  Outcome r = Pxhost("preview " + file.path() + " -o " + file.path());
  EXPECT_EQ(r.status, 2) << r.out;
  EXPECT_EQ(Slurp(file.path()), original);
  r = Pxhost("preview " + file.path() + " -o " + (dir / "page.txt").string());
  EXPECT_EQ(r.status, 2) << r.out;
  qltest::DiskFile plain("plain.ps", "%!PS-Adobe-3.0\nshowpage\n");
  r = Pxhost("preview " + plain.path() + " -o " + (dir / "plain.png").string());
  EXPECT_EQ(r.status, 1) << r.out;
  EXPECT_EQ(Listing(dir), std::vector<std::string>{"page.ps"});

  fs::create_symlink("/dev/full", dir / "full.png");
  r = Pxhost("preview " + file.path() + " -o " + (dir / "full.png").string());
  EXPECT_EQ(r.status, 2) << r.out;
  EXPECT_NE(r.out.find("full.png: no space left on device"), std::string::npos) << r.out;
  EXPECT_TRUE(fs::is_symlink(dir / "full.png"));
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
  EXPECT_EQ(Pxhost("preview " + file.path() + " -o /dev/null").status, 0);
  EXPECT_TRUE(fs::is_character_file("/dev/null"));

  r = Pxhost("preview " + file.path() + " -o - 2>/dev/null");
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.out.substr(0, 4), "\x89PNG");

  // The pages folder cannot be made: the packet is not left behind either.
  std::string swatches = std::string(QL_SOURCE_DIR) + "/samples/swatches/basic.sxf";
  std::string packet = (dir / "packet.xmp").string();
  r = Pxhost("xmp " + swatches + " -o " + packet + " --pages " + file.path() + "/pages");
  EXPECT_EQ(r.status, 2) << r.out;
  EXPECT_FALSE(fs::exists(packet));
  r = Pxhost("xmp " + swatches + " -o " + packet + " --pages " + (dir / "pages").string());
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(fs::exists(packet));
  EXPECT_TRUE(fs::exists(dir / "pages/page-1.jpg"));
}

// A device that fills up mid-write (a small tmpfs, mounted where the machine
// lets the test mount one) fails the run and keeps nothing: neither the
// packet nor the pages nor a temporary file, whether the packet (about
// 90 KB) or one of the two pages (about 18 KB each) meets the end of the
// space.
TEST(Pxhost, AFullDeviceKeepsNothing) {
  qltest::DiskFile anchor("anchor", "");
  fs::path small = fs::path(anchor.path()).parent_path() / "small";
  fs::create_directories(small);
  std::string swatches = std::string(QL_SOURCE_DIR) + "/samples/swatches/palette.sxf";
  // A preview of noise: about 48 KB as PNG.
  pxhost::RgbImage noise{128, 128, std::vector<uint8_t>(128 * 128 * 3)};
  uint32_t seed = 1;
  for (uint8_t& v : noise.pixels) v = uint8_t((seed = seed * 1103515245u + 12345u) >> 24);
  qltest::DiskFile noisy("noisy.ps", ql7::VectorFile(noise, {}));
  for (const char* size : {"16k", "112k", "128k"}) {
    if (qltest::Shell("mount -t tmpfs -o size=" + std::string(size) + " qlformat-test " +
                      small.string() + " 2>&1")
            .status != 0)
      GTEST_SKIP() << "mounting a tmpfs needs root";
    Outcome r = Pxhost("xmp " + swatches + " -o " + (small / "packet.xmp").string() + " --pages " +
                       (small / "pages").string());
    std::vector<std::string> left = Listing(small);
    bool pagesEmpty = !fs::exists(small / "pages") || fs::is_empty(small / "pages");
    // An empty file made for the output (as a thumbnailer service makes it)
    // is filled in place; when that fails it is left empty again.
    Outcome inPlace{0, ""};
    if (std::string(size) == "16k") {
      fs::remove_all(small / "pages");
      std::ofstream(small / "made.png").flush();
      inPlace = Pxhost("preview " + noisy.path() + " -o " + (small / "made.png").string());
      EXPECT_EQ(fs::file_size(small / "made.png"), 0u);
      fs::remove(small / "made.png");
    }
    qltest::Shell("umount " + small.string());
    EXPECT_EQ(inPlace.status, std::string(size) == "16k" ? 2 : 0) << inPlace.out;
    EXPECT_EQ(r.status, 2) << size << r.out;
    EXPECT_NE(r.out.find(": no space left on device"), std::string::npos) << size << r.out;
    EXPECT_TRUE(left.empty() || left == std::vector<std::string>{"pages"}) << size << left[0];
    EXPECT_TRUE(pagesEmpty) << size;
  }
}

// An installed copy finds the module relative to itself, in the prefix's
// module folder, and a moved prefix still works; the environment and --plugin
// override it.
TEST(Pxhost, FindsTheModuleRelativeToItself) {
  qltest::DiskFile anchor("anchor", "");
  fs::path prefix = fs::path(anchor.path()).parent_path() / "prefix";
  fs::create_directories(prefix / "bin");
  fs::create_directories(prefix / "lib/qlformat");
  fs::copy_file(QL_PXHOST, prefix / "bin/pxhost");
  std::string swatches = std::string(QL_SOURCE_DIR) + "/samples/swatches/basic.sxf";
  std::string unset = "env -u PXHOST_PLUGIN ";
  Outcome none = qltest::Shell(unset + (prefix / "bin/pxhost").string() + " identify " + swatches);
  EXPECT_EQ(none.status, 2);
  EXPECT_NE(none.out.find("no plug-in module found"), std::string::npos) << none.out;

  fs::copy_file(QL_MODULE, prefix / "lib/qlformat/qlformat.so");
  fs::path moved = prefix.parent_path() / "moved";
  fs::rename(prefix, moved);
  Outcome r = qltest::Shell(unset + (moved / "bin/pxhost").string() + " identify " + swatches);
  EXPECT_EQ(r.status, 0) << r.out;

  fs::path broken = moved / "broken.so";
  { std::ofstream(broken) << "not a module"; }
  for (std::string how :
       {"PXHOST_PLUGIN=" + broken.string() + " " + (moved / "bin/pxhost").string(),
        (moved / "bin/pxhost").string() + " --plugin " + broken.string()}) {
    Outcome o = qltest::Shell(how + " identify " + swatches);
    EXPECT_EQ(o.status, 2) << how;
    EXPECT_NE(o.out.find("broken.so"), std::string::npos) << o.out;
  }
}

}  // namespace
