// A swatch book as palettes and the swatch thumbnail show it: the book as the
// plug-in's reader loads it, not the packet's way of writing it.
#include "pxhost/swatch_colours.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "host/host_simulator.h"
#include "tests/support/fixture_file.h"
#include "tools/sxfwrite/sxf_writer.h"
#include "xmp/display_colour.h"

namespace {

using pxhost::DisplaySwatch;

std::vector<DisplaySwatch> Shown(const SwatchFileSurvey& survey) {
  std::vector<DisplaySwatch> swatches;
  std::string error;
  EXPECT_EQ(survey.result, kSXFParsed);
  EXPECT_TRUE(pxhost::DisplaySwatchesOfBook(survey, &swatches, &error)) << error;
  return swatches;
}

std::vector<DisplaySwatch> Shown(const nlohmann::json& blocks) {
  std::string sxf, error;
  EXPECT_TRUE(sxfwrite::BuildSxf({{"blocks", blocks}}, &sxf, &error)) << error;
  qltest::MemFile file(sxf);
  return Shown(SurveySwatchFile(file.fd()));
}

std::tuple<int, int, int> Rgb(const DisplaySwatch& s) {
  return {s.r, s.g, s.b};
}

TEST(SwatchColours, BookOrderGroupsAndConversions) {
  int fd = ::open((std::string(QL_SOURCE_DIR) + "/samples/swatches/basic.sxf").c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  std::vector<DisplaySwatch> swatches = Shown(SurveySwatchFile(fd));
  ::close(fd);
  ASSERT_EQ(swatches.size(), 8u);
  EXPECT_EQ(std::tuple(swatches[0].group, swatches[0].name, swatches[0].model),
            std::tuple("", "Paper", "GRAY"));
  EXPECT_EQ(Rgb(swatches[0]), std::tuple(255, 255, 255));
  EXPECT_EQ(Rgb(swatches[1]), std::tuple(0, 0, 0));
  const DisplaySwatch& red = swatches[2];
  EXPECT_EQ(std::tuple(red.group, red.name, red.type, red.tint),
            std::tuple("Brand", "Brand Red", "SPOT", 0.0));  // the book's tint 1: none left
  // The stored fractions in the packet's units, untruncated; the display
  // colour rounded to the nearest byte.
  ASSERT_EQ(red.values.size(), 3u);
  EXPECT_NEAR(red.values[0], 0.86 * 255, 1e-4);
  EXPECT_EQ(Rgb(red), std::tuple(219, 20, 61));
  // CMYK goes through the engine exactly as the chips do.
  const DisplaySwatch& blue = swatches[3];
  ASSERT_EQ(blue.model, "CMYK");
  double book[4] = {1.0, 0.60000002, 0.0, 0.1};
  float engine[3] = {0, 0, 0};
  ASSERT_TRUE(xmppages::DisplayColour(KeltoSwatchbook::kColorSpaceCMYK, book, engine));
  EXPECT_EQ(Rgb(blue),
            std::tuple(int(std::lround(engine[0] * 255)), int(std::lround(engine[1] * 255)),
                       int(std::lround(engine[2] * 255))));
  EXPECT_LT(blue.r, blue.b);  // a blue, not red and blue exchanged as on the pages
  EXPECT_EQ(std::tuple(swatches[4].model, swatches[4].type, swatches[4].tint),
            std::tuple("LAB", "PROCESS", 100.0));  // untinted: full strength
  EXPECT_EQ(std::tuple(swatches[6].group, swatches[6].name, swatches[6].tint),
            std::tuple("Signals", "Stop 50%", 50.0));
}

// What the packet writes otherwise: an empty name repeats the one before it,
// a character XML cannot hold refuses the whole book, RGB is truncated.
TEST(SwatchColours, NamesAndValuesAsTheBookHoldsThem) {
  auto rgb = [](std::string name, double r, double g, double b) {
    return nlohmann::json{{"swatch", name}, {"model", "RGB "}, {"values", {r, g, b}}};
  };
  const std::string lone = "\xED\xA0\x80";  // a high surrogate without its low half
  std::vector<DisplaySwatch> s = Shown(nlohmann::json::array({
      rgb("First", 0.5, 0.999, 0),
      rgb("", 0, 0, 1),
      rgb("Bad\uFFFE", 1, 0, 0),
      rgb("Not\uFFFF!", 1, 0, 0),
      rgb("Lone" + lone + "ly", 1, 0, 0),
      rgb("Bell\x07", 1, 0, 0),
      rgb("Tab\tkept 朱色 🎉", 1, 0, 0),
      {{"swatch", "Hexachrome orange"}, {"model", "HEXA"}, {"values", {1, 0.5, 0, 0}}},
  }));
  ASSERT_EQ(s.size(), 8u);
  EXPECT_EQ(Rgb(s[0]), std::tuple(128, 255, 0));  // 0.5 rounds up, 0.999 to 255
  ASSERT_EQ(s[0].values.size(), 3u);
  EXPECT_EQ(s[0].values[0], 127.5);  // the packet writes 127
  EXPECT_NEAR(s[0].values[1], 254.745, 1e-4);
  EXPECT_EQ(s[1].name, "");  // not "First"
  EXPECT_EQ(pxhost::ShownName(s[1]), "#0000ff");
  EXPECT_EQ(pxhost::MendedNameWarning(s[1]), "");
  const std::string mended[] = {"Bad\uFFFD", "Not\uFFFD!", "Lone\uFFFDly", "Bell\uFFFD"};
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(s[size_t(k) + 2].name, mended[k]);
    EXPECT_TRUE(s[size_t(k) + 2].nameMended) << mended[k];
    EXPECT_EQ(pxhost::MendedNameWarning(s[size_t(k) + 2]),
              "swatch \"" + mended[k] +
                  "\": its name holds a character no text may hold; "
                  "shown as U+FFFD");
  }
  EXPECT_EQ(s[6].name, "Tab\tkept 朱色 🎉");
  EXPECT_FALSE(s[6].nameMended);
  // An entry the reader steps over comes last, named, never drawn.
  EXPECT_FALSE(s[7].drawable);
  EXPECT_EQ(pxhost::SkippedWarning(s[7]),
            "swatch \"Hexachrome orange\" has an unknown colour model (\"HEXA\"); skipped");
  EXPECT_EQ(pxhost::SkippedWarning(s[0]), "");
}

}  // namespace
