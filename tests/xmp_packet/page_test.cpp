// The thumbnail pages: their sizes and paging, the chip layout seen in the
// decoded pixels, and the chip colours against a direct LittleCMS conversion.
// The pages hold chip pixels with red and blue exchanged (this is a
// little-endian machine), so a decoded page shows a chip's blue as red.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/colour/colour_engine.h"
#include "tests/xmp_packet/packet_fixture.h"

namespace {

using nlohmann::json;
using xmppacket::Packet;
using xmppacket::PacketOf;
using xmppacket::Rgb;
using Page = Packet::Page;

struct Pixel {
  int r, g, b;
};

Pixel At(const Page& page, int x, int y) {
  const uint8_t* p = &page.pixels.pixels[(size_t(y) * size_t(page.pixels.width) + size_t(x)) * 3];
  return {p[0], p[1], p[2]};
}

// The pixel as the page stores it for a chip of colour c.
Pixel Stored(Pixel c) {
  return {c.b, c.g, c.r};
}

void ExpectNear(Pixel got, Pixel want, int tolerance, const std::string& where) {
  EXPECT_NEAR(got.r, want.r, tolerance) << where;
  EXPECT_NEAR(got.g, want.g, tolerance) << where;
  EXPECT_NEAR(got.b, want.b, tolerance) << where;
}

std::vector<Page> PagesOf(const json& blocks) {
  std::vector<Page> pages = Packet(PacketOf(blocks)).Pages();
  for (const Page& p : pages) {
    EXPECT_EQ(p.decodeError, "") << "page " << p.number;
    EXPECT_EQ(p.format, "JPEG");
    EXPECT_EQ(p.pixels.width, p.width);
    EXPECT_EQ(p.pixels.height, p.height);
  }
  return pages;
}

json Swatches(int count, const json& first = json::array()) {
  json blocks = first;
  for (int i = 0; i < count; ++i) blocks.push_back(Rgb("s" + std::to_string(i), 1, 1, 1));
  return blocks;
}

const Pixel kWhite{255, 255, 255};

TEST(PageLayout, PageSizes) {
  struct Case {
    const char* what;
    json blocks;
    int width, height;
  } cases[] = {
      {"no swatches", json::array(), 31, 31},
      {"nine ungrouped fill one row", Swatches(9), 279, 31},
      {"a tenth starts a second row", Swatches(10), 283, 62},
      {"two groups of one",
       json::array({{{"group", "A"}},
                    Rgb("a", 1, 0, 0),
                    {{"groupEnd", true}},
                    {{"group", "B"}},
                    Rgb("b", 0, 0, 1),
                    {{"groupEnd", true}}}),
       65, 31},
  };
  for (const Case& c : cases) {
    std::vector<Page> pages = PagesOf(c.blocks);
    ASSERT_EQ(pages.size(), 1u) << c.what;
    EXPECT_EQ(pages[0].number, 1) << c.what;
    EXPECT_EQ(pages[0].width, c.width) << c.what;
    EXPECT_EQ(pages[0].height, c.height) << c.what;
  }
}

TEST(PageLayout, EmptyBookIsOneWhitePage) {
  std::vector<Page> pages = PagesOf(json::array());
  ASSERT_EQ(pages.size(), 1u);
  ExpectNear(At(pages[0], 0, 0), kWhite, 2, "corner");
  ExpectNear(At(pages[0], 15, 15), kWhite, 2, "centre");
}

TEST(PageLayout, FullPageStartsTheNext) {
  // Nine rows of nine ungrouped chips fill rows 0 to 248; the 82nd chip would
  // end below 283 and goes to the top left of page 2.
  json blocks = Swatches(81);
  blocks.push_back(Rgb("last", 1, 0, 0));
  std::vector<Page> pages = PagesOf(blocks);
  ASSERT_EQ(pages.size(), 2u);
  EXPECT_EQ(pages[0].number, 1);
  EXPECT_EQ(pages[0].width, 283);
  EXPECT_EQ(pages[0].height, 283);
  EXPECT_EQ(pages[1].number, 2);
  EXPECT_EQ(pages[1].width, 31);
  EXPECT_EQ(pages[1].height, 31);
  ExpectNear(At(pages[1], 15, 15), Stored({255, 0, 0}), 6, "page 2 chip");

  // Two full pages and one chip more: a third page, numbered on.
  pages = PagesOf(Swatches(163));
  ASSERT_EQ(pages.size(), 3u);
  EXPECT_EQ(pages[1].height, 283);
  EXPECT_EQ(pages[2].number, 3);
  EXPECT_EQ(pages[2].width, 31);
}

TEST(PageLayout, NinthGroupRunsOverTheRowEnd) {
  // Nine groups of one chip: the ninth stands at x = 272 and its last 20
  // columns run into the start of the next raster row, over the first chip.
  json blocks = json::array();
  for (int g = 1; g <= 10; ++g) {
    blocks.push_back({{"group", "G" + std::to_string(g)}});
    blocks.push_back(Rgb("s", g == 9 ? 0 : 1, g == 9 ? 0 : g == 1 ? 0 : 1, g == 1 ? 0 : 1));
    blocks.push_back({{"groupEnd", true}});
  }
  json nine(blocks.begin(), blocks.end() - 3);
  std::vector<Page> pages = PagesOf(nine);
  ASSERT_EQ(pages.size(), 1u);
  EXPECT_EQ(pages[0].width, 283);
  EXPECT_EQ(pages[0].height, 31);
  ExpectNear(At(pages[0], 10, 15), Stored({0, 0, 255}), 8, "wrapped ninth chip");
  EXPECT_LT(At(pages[0], 19, 15).g, 60) << "the ninth chip's right ring";
  ExpectNear(At(pages[0], 24, 15), Stored({255, 0, 0}), 12, "what is left of the first");

  // A tenth group has no room left on the row and starts the next.
  pages = PagesOf(blocks);
  EXPECT_EQ(pages[0].height, 65);
  ExpectNear(At(pages[0], 15, 34 + 15), kWhite, 3, "tenth chip at y = 34");
  EXPECT_LT(At(pages[0], 15, 34).g, 60) << "its top ring";
}

TEST(PageLayout, ChipPlacement) {
  // Ten chips in a real group: the second row is 3 pixels below the first.
  json grouped = Swatches(10, json::array({{{"group", "G"}}}));
  grouped.push_back({{"groupEnd", true}});
  std::vector<Page> pages = PagesOf(grouped);
  ASSERT_EQ(pages.size(), 1u);
  EXPECT_EQ(pages[0].height, 65);
  ExpectNear(At(pages[0], 15, 32), kWhite, 8, "gap between rows");
  EXPECT_LT(At(pages[0], 15, 34).g, 60) << "ring of the second row";
  ExpectNear(At(pages[0], 15, 34 + 15), kWhite, 3, "second row chip");

  // Ungrouped rows touch: the ring of row 2 follows that of row 1.
  pages = PagesOf(Swatches(10));
  EXPECT_LT(At(pages[0], 15, 31).g, 60);

  // Two groups: chips at x = 0 and 34 with white between.
  pages = PagesOf(json::array({{{"group", "A"}},
                               Rgb("a", 1, 0, 0),
                               {{"groupEnd", true}},
                               {{"group", "B"}},
                               Rgb("b", 0, 0, 1),
                               {{"groupEnd", true}}}));
  ExpectNear(At(pages[0], 15, 15), Stored({255, 0, 0}), 6, "first group");
  ExpectNear(At(pages[0], 32, 15), kWhite, 8, "gap");
  ExpectNear(At(pages[0], 34 + 15, 15), Stored({0, 0, 255}), 6, "second group");
}

TEST(PageLayout, ChipRing) {
  std::vector<Page> pages = PagesOf(Swatches(1));
  const Page& p = pages[0];
  for (int i : {0, 15, 30}) {
    EXPECT_LT(At(p, i, 0).g, 40) << "top " << i;
    EXPECT_LT(At(p, i, 30).g, 40) << "bottom " << i;
    EXPECT_LT(At(p, 0, i).g, 40) << "left " << i;
    EXPECT_LT(At(p, 30, i).g, 40) << "right " << i;
  }
  EXPECT_GT(At(p, 15, 2).g, 215);
  ExpectNear(At(p, 15, 15), kWhite, 3, "inside");
}

// LittleCMS on its own, set up as the host's engine is: a gray profile with
// the sRGB curve on D50, Lab D50, sRGB, the engine's default CMYK file,
// relative colorimetric without black-point compensation, output clamped.
class Reference {
 public:
  Reference() {
    const cmsFloat64Number curve[5] = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
    cmsToneCurve* tone = cmsBuildParametricToneCurve(nullptr, 4, curve);
    gray_ = cmsCreateGrayProfile(cmsD50_xyY(), tone);
    cmsFreeToneCurve(tone);
    lab_ = cmsCreateLab4Profile(nullptr);
    srgb_ = cmsCreate_sRGBProfile();
    cmyk_ = cmsOpenProfileFromFile(hostcolour::DefaultCMYKProfilePath().c_str(), "r");
    labD50_ = cmsCreateLab4Profile(nullptr);
  }
  ~Reference() {
    for (cmsHPROFILE p : {gray_, lab_, srgb_, cmyk_, labD50_})
      if (p != nullptr) cmsCloseProfile(p);
  }
  bool HasCmyk() const { return cmyk_ != nullptr; }

  // The chip colour of a converted swatch: the display RGB darkened by k.
  Pixel Chip(const std::string& model, const std::vector<float>& in, double k) const {
    cmsHPROFILE src = model == "Gray" ? gray_ : model == "LAB " ? lab_ : cmyk_;
    cmsUInt32Number format = model == "Gray"   ? TYPE_GRAY_FLT
                             : model == "LAB " ? TYPE_Lab_FLT
                                               : TYPE_CMYK_FLT;
    std::vector<float> pixel = in;
    if (model == "CMYK")
      for (float& v : pixel) v *= 100.0f;  // LittleCMS's float CMYK is 0-100
    cmsHTRANSFORM t =
        cmsCreateTransform(src, format, srgb_, TYPE_RGB_FLT, INTENT_RELATIVE_COLORIMETRIC, 0);
    float out[3] = {0, 0, 0};
    cmsDoTransform(t, pixel.data(), out, 1);
    cmsDeleteTransform(t);
    int c[3];
    for (int i = 0; i < 3; ++i)
      c[i] = int(uint8_t(k * std::fmin(std::fmax(out[i], 0.0f), 1.0f) * 255.0));
    return {c[0], c[1], c[2]};
  }

  double DeltaE(Pixel a, Pixel b) const {
    cmsHTRANSFORM t = cmsCreateTransform(srgb_, TYPE_RGB_8, labD50_, TYPE_Lab_DBL,
                                         INTENT_RELATIVE_COLORIMETRIC, 0);
    uint8_t in[6] = {uint8_t(a.r), uint8_t(a.g), uint8_t(a.b),
                     uint8_t(b.r), uint8_t(b.g), uint8_t(b.b)};
    cmsCIELab lab[2];
    cmsDoTransform(t, in, lab, 2);
    cmsDeleteTransform(t);
    return cmsDeltaE(&lab[0], &lab[1]);
  }

 private:
  cmsHPROFILE gray_, lab_, srgb_, cmyk_, labD50_;
};

TEST(ChipColour, RgbBlendsTowardWhiteWithTheTint) {
  json blocks = json::array({
      {{"swatch", "red half"},
       {"model", "RGB "},
       {"values", {1, 0, 0}},
       {"type", 1},
       {"tint", 0.5}},
      Rgb("mid", 0.5, 0.25, 0.75),
      {{"swatch", "untinted"},
       {"model", "RGB "},
       {"values", {0, 0, 1}},
       {"type", 2},
       {"tint", 0.75}},
  });
  std::vector<Page> pages = PagesOf(blocks);
  ASSERT_EQ(pages.size(), 1u);
  ExpectNear(At(pages[0], 15, 15), Stored({255, 127, 127}), 4, "tinted red");
  ExpectNear(At(pages[0], 31 + 15, 15), Stored({127, 63, 191}), 4, "truncated values");
  // The drawing takes the stored tint whatever the type, unlike the packet.
  ExpectNear(At(pages[0], 62 + 15, 15), Stored({191, 191, 255}), 4, "untinted type");
}

TEST(ChipColour, ConvertedColoursDarkenTowardBlack) {
  Reference ref;
  struct Case {
    const char* model;
    std::vector<float> file;     // as the file holds them
    std::vector<float> convert;  // as the engine receives them
    double tint;
  } cases[] = {
      {"Gray", {0.5f}, {0.5f}, 0.0},
      {"Gray", {0.8f}, {0.8f}, 0.5},
      {"LAB ", {0.507f, -12.9f, 40.0f}, {50.7f, -12.9f, 40.0f}, 0.0},
      {"LAB ", {0.9f, 60.0f, -30.0f}, {90.0f, 60.0f, -30.0f}, 0.25},
      {"CMYK", {0.25f, 1.0f, 0.0f, 0.1f}, {0.25f, 1.0f, 0.0f, 0.1f}, 0.0},
      {"CMYK", {0.0f, 0.2f, 1.0f, 0.0f}, {0.0f, 0.2f, 1.0f, 0.0f}, 0.5},
  };
  if (!ref.HasCmyk()) GTEST_SKIP() << "no CMYK profile at " << hostcolour::DefaultCMYKProfilePath();
  json blocks = json::array();
  for (const Case& c : cases) {
    json b = {{"swatch", c.model}, {"model", c.model}, {"values", c.file}, {"type", 1}};
    if (c.tint != 0.0) b["tint"] = c.tint;
    blocks.push_back(b);
  }
  std::vector<Page> pages = PagesOf(blocks);
  ASSERT_EQ(pages.size(), 1u);
  for (size_t i = 0; i < std::size(cases); ++i) {
    const Case& c = cases[i];
    Pixel want = Stored(ref.Chip(c.model, c.convert, 1.0 - c.tint));
    Pixel got = At(pages[0], int(i) * 31 + 15, 15);
    EXPECT_LT(ref.DeltaE(got, want), 1.5)
        << c.model << " #" << i << " got " << got.r << "," << got.g << "," << got.b << " want "
        << want.r << "," << want.g << "," << want.b;
  }
}

}  // namespace
