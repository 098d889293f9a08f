// pxhost as a user runs it: commands, messages and exit codes.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "host/image_io.h"
#include "tests/support/fixture_file.h"
#include "tools/ql7embed/ql7_writer.h"

namespace {

using qltest::Outcome;

Outcome Pxhost(const std::string& args) {
  return qltest::Shell(std::string(QL_PXHOST) + " " + args);
}

pxhost::RgbImage Checker(int w, int h) {
  pxhost::RgbImage img{w, h, {}};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      uint8_t v = (x + y) % 2 ? 230 : 20;
      img.pixels.insert(img.pixels.end(), {v, uint8_t(255 - v), uint8_t(x * 10)});
    }
  return img;
}

TEST(Pxhost, HelpAndUsageErrors) {
  Outcome help = Pxhost("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("preview FILE"), std::string::npos);
  EXPECT_EQ(Pxhost("preview --help").status, 0);
  EXPECT_EQ(Pxhost("").status, 2);
  EXPECT_EQ(Pxhost("frobnicate x").status, 2);
  EXPECT_EQ(Pxhost("call 2").status, 2);
  EXPECT_EQ(Pxhost("preview /nonexistent -o /tmp/x.png").status, 2);
  EXPECT_EQ(Pxhost("--plugin /nonexistent.so call 0 /dev/null").status, 2);
  EXPECT_EQ(Pxhost("preview /dev/null /dev/zero -o /tmp/one.png").status, 2);  // needs DIR/
  EXPECT_EQ(Pxhost("call 0x10 /dev/null").status, 2);                          // decimal only
  EXPECT_EQ(Pxhost("call -1 /dev/null").status, 0);  // a selector, not an option
}

TEST(Pxhost, PreviewWritesTheThumbnail) {
  pxhost::RgbImage img = Checker(9, 4);
  ql7::Options o;
  o.bitsPerPixel = 24;
  qltest::DiskFile file("page.ps", ql7::VectorFile(img, o));
  std::string png = file.path() + ".png";
  Outcome r = Pxhost("preview " + file.path() + " -o " + png);
  ASSERT_EQ(r.status, 0) << r.out;
  pxhost::RgbImage back;
  ASSERT_EQ(pxhost::ReadImage(png, &back), "");
  EXPECT_EQ(back.width, 9);
  EXPECT_EQ(back.height, 4);
  EXPECT_EQ(back.pixels, img.pixels);
}

TEST(Pxhost, PreviewOfSeveralFilesAndARefusal) {
  ql7::Options o;
  qltest::DiskFile a("a.ps", ql7::VectorFile(Checker(3, 3), o));
  qltest::DiskFile bad("plain.ps", "%!PS-Adobe-3.0\nshowpage\n");
  std::string dir = std::filesystem::path(a.path()).parent_path().string() + "/out/";
  Outcome r = Pxhost("preview " + a.path() + " " + bad.path() + " -o " + dir);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("pxhost: " + bad.path() + ": no embedded thumbnail (result -30501)"),
            std::string::npos)
      << r.out;
  EXPECT_TRUE(std::filesystem::exists(dir + "a.png"));
}

TEST(Pxhost, CallReportsTheWrittenFields) {
  qltest::DiskFile file("page.ps", ql7::VectorFile(Checker(6, 2), ql7::Options{}));
  Outcome r = Pxhost("call 3 " + file.path() + " --file-type EPSF --json");
  ASSERT_EQ(r.status, 0) << r.out;
  auto j = nlohmann::json::parse(r.out);
  EXPECT_EQ(j["result"], 0);
  EXPECT_EQ(j["advanceStateCalls"], 1);
  EXPECT_EQ(j["fields"]["rowStride"], 18);
  EXPECT_EQ(j["fields"]["pixelData"], nullptr);

  Outcome refused = Pxhost("call 2 " + file.path() + " --file-type EPSF --no-preview-open");
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.out.find("result: -30501"), std::string::npos);

  Outcome withheld = Pxhost("call 0 " + file.path() + " --withhold advance-state");
  EXPECT_EQ(withheld.status, 1);
  EXPECT_NE(withheld.out.find("result: -30900"), std::string::npos);
}

TEST(Pxhost, IdentifyAsksThePlugin) {
  qltest::DiskFile vector("page.ps", ql7::VectorFile(Checker(2, 2), ql7::Options{}));
  std::string swatches = std::string(QL_SOURCE_DIR) + "/samples/swatches/basic.sxf";
  Outcome r = Pxhost("identify " + vector.path() + " " + swatches);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, vector.path() + ": vector file\n" + swatches + ": swatch exchange file\n");
  auto j = nlohmann::json::parse(Pxhost("identify --json " + swatches).out);
  EXPECT_EQ(j[0]["swatchExchangeFile"], true);
}

TEST(Pxhost, MethodNamesEachFile) {
  ql7::Options pdf;
  pdf.pdf = true;
  pdf.xmpFormat = "application/pdf";
  qltest::DiskFile a("a.pdf", ql7::VectorFile(Checker(2, 2), pdf));
  Outcome r = Pxhost("method " + a.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, a.path() + ": pdf\n");
  Outcome missing = Pxhost("method " + a.path() + " /nonexistent.ps");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.out.find("/nonexistent.ps: KXEC"), std::string::npos);
}

}  // namespace
