// The thumbnail pages: their sizes and paging, the chip layout seen in the
// decoded pixels, and the chip colours against a direct LittleCMS conversion.
// The pages hold chip pixels with red and blue exchanged (this is a
// little-endian machine), so a decoded page shows a chip's blue as red.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/colour/colour_engine.h"
#include "tests/xmp_packet/packet_fixture.h"
#include "xmp/page_internals.h"
#include "xmp/thumbnail_pages.h"

namespace {

using nlohmann::json;
using xmppacket::AddGroup;
using xmppacket::Rgb;
using Page = xmppacket::Packet::Page;

struct Pixel {
  int r, g, b;
};

Pixel At(const Page& page, int x, int y) {
  const uint8_t* p = &page.pixels.pixels[(size_t(y) * size_t(page.width) + size_t(x)) * 3];
  return {p[0], p[1], p[2]};
}

// A chip of colour c as the page stores it, and back: red and blue exchanged.
Pixel Stored(Pixel c) {
  return {c.b, c.g, c.r};
}

void ExpectNear(Pixel got, Pixel want, int tolerance, const std::string& where) {
  EXPECT_NEAR(got.r, want.r, tolerance) << where;
  EXPECT_NEAR(got.g, want.g, tolerance) << where;
  EXPECT_NEAR(got.b, want.b, tolerance) << where;
}

std::vector<Page> PagesOf(const json& blocks) {
  return xmppacket::Packet(xmppacket::PacketOf(blocks)).Pages();
}

// "WxH" of each page, in page order.
std::string Sizes(const std::vector<Page>& pages) {
  std::string s;
  for (const Page& p : pages)
    s += (s.empty() ? "" : " ") + std::to_string(p.width) + "x" + std::to_string(p.height);
  return s;
}

json Swatches(int count, json blocks = json::array()) {
  for (int i = 0; i < count; ++i) blocks.push_back(Rgb("s" + std::to_string(i), 1, 1, 1));
  return blocks;
}

json TenInAGroup() {
  json blocks = json::array();
  return AddGroup(blocks, "G", Swatches(10));
}

// A red chip in group A, a blue one in group B.
json TwoGroups() {
  json blocks = json::array();
  AddGroup(blocks, "A", json::array({Rgb("a", 1, 0, 0)}));
  return AddGroup(blocks, "B", json::array({Rgb("b", 0, 0, 1)}));
}

const Pixel kWhite{255, 255, 255};

TEST(PageLayout, PageSizes) {
  struct Case {
    const char* what;
    json blocks;
    const char* sizes;
  } cases[] = {
      {"nine ungrouped fill one row", Swatches(9), "279x31"},
      {"a tenth starts a second row", Swatches(10), "283x62"},
      {"rows of a real group are 3 apart", TenInAGroup(), "283x65"},
      {"two groups of one", TwoGroups(), "65x31"},
  };
  for (const Case& c : cases) EXPECT_EQ(Sizes(PagesOf(c.blocks)), c.sizes) << c.what;
}

TEST(PageLayout, FullPageStartsTheNext) {
  // Nine rows of nine ungrouped chips fill rows 0 to 248; the 82nd chip would
  // end below 283 and goes to the top left of page 2, and so on for page 3.
  json blocks = Swatches(162);
  blocks.push_back(Rgb("last", 1, 0, 0));
  std::vector<Page> pages = PagesOf(blocks);
  ASSERT_EQ(Sizes(pages), "283x283 283x283 31x31");
  ExpectNear(At(pages[2], 15, 15), Stored({255, 0, 0}), 6, "page 3 chip");
}

TEST(PageLayout, NinthGroupRunsOverTheRowEnd) {
  // Nine groups of one chip, the first red, the ninth blue: the ninth stands
  // at x = 272 and its last 20 columns run into the start of the next raster
  // row, over the first chip.
  json blocks = json::array();
  for (int g = 1; g <= 10; ++g)
    AddGroup(blocks, "G" + std::to_string(g),
             json::array({Rgb("s", g != 9, g != 1 && g != 9, g != 1)}));
  std::vector<Page> pages = PagesOf(json(blocks.begin(), blocks.end() - 3));
  ASSERT_EQ(Sizes(pages), "283x31");
  ExpectNear(At(pages[0], 10, 15), Stored({0, 0, 255}), 8, "wrapped ninth chip");
  EXPECT_LT(At(pages[0], 19, 15).g, 60) << "the ninth chip's right ring";
  ExpectNear(At(pages[0], 24, 15), Stored({255, 0, 0}), 12, "what is left of the first");

  // A tenth group has no room left on the row and starts the next.
  pages = PagesOf(blocks);
  ASSERT_EQ(Sizes(pages), "283x65");
  ExpectNear(At(pages[0], 15, 34 + 15), kWhite, 3, "tenth chip at y = 34");
  EXPECT_LT(At(pages[0], 15, 34).g, 60) << "its top ring";
}

TEST(PageLayout, ChipsAndTheirPlacement) {
  // Ungrouped rows touch: the ring of row 2 follows that of row 1.
  std::vector<Page> pages = PagesOf(Swatches(10));
  const Page& p = pages.at(0);
  for (auto [x, y] : {std::pair{15, 0}, {15, 30}, {0, 15}, {30, 15}, {0, 0}, {30, 30}})
    EXPECT_LT(At(p, x, y).g, 40) << "ring at " << x << "," << y;
  EXPECT_GT(At(p, 15, 2).g, 215);
  ExpectNear(At(p, 15, 15), kWhite, 3, "inside");
  EXPECT_LT(At(p, 15, 31).g, 60) << "ring of the second row";

  // In a real group the second row is 3 pixels below the first.
  pages = PagesOf(TenInAGroup());
  ExpectNear(At(pages.at(0), 15, 32), kWhite, 8, "gap between rows");
  EXPECT_LT(At(pages[0], 15, 34).g, 60) << "ring of the second row";
  ExpectNear(At(pages[0], 15, 34 + 15), kWhite, 3, "second row chip");

  // Two groups: chips at x = 0 and 34 with white between.
  pages = PagesOf(TwoGroups());
  ExpectNear(At(pages.at(0), 15, 15), Stored({255, 0, 0}), 6, "first group");
  ExpectNear(At(pages[0], 32, 15), kWhite, 8, "gap");
  ExpectNear(At(pages[0], 34 + 15, 15), Stored({0, 0, 255}), 6, "second group");
}

// One LittleCMS conversion made as the host's engine makes them: relative
// colorimetric without black-point compensation.
void Convert(cmsHPROFILE from, cmsUInt32Number fromFormat, cmsHPROFILE to, cmsUInt32Number toFormat,
             const void* in, void* out, cmsUInt32Number n) {
  cmsHTRANSFORM t =
      cmsCreateTransform(from, fromFormat, to, toFormat, INTENT_RELATIVE_COLORIMETRIC, 0);
  cmsDoTransform(t, in, out, n);
  cmsDeleteTransform(t);
}

#if defined(QL_CHECK_INVARIANTS)
// Where the sanitizers run, invariants are checked: a chip placed below the
// page's last row stops the process before it writes past the raster.
TEST(PageLayoutDeathTest, ChipBelowThePageIsStopped) {
  std::vector<unsigned char> raster(size_t(kPagePitch) * kPageSide);
  EXPECT_DEATH(xmppages::DrawChip(raster.data(), 0, kPageSide - 30, {1, 2, 3}),
               "invariant failed: .*kPageSide");
}
#endif

TEST(ChipColour, RgbBlendsTowardWhiteWithTheTint) {
  std::vector<Page> pages = PagesOf(json::array({
      xmppacket::Swatch("red half", "RGB ", {1, 0, 0}, 1, 0.5),
      Rgb("mid", 0.5, 0.25, 0.75),
      xmppacket::Swatch("untinted", "RGB ", {0, 0, 1}, 2, 0.75),
  }));
  ASSERT_EQ(Sizes(pages), "93x31");
  ExpectNear(At(pages[0], 15, 15), Stored({255, 127, 127}), 4, "tinted red");
  ExpectNear(At(pages[0], 31 + 15, 15), Stored({127, 63, 191}), 4, "truncated values");
  // The drawing takes the stored tint whatever the type, unlike the packet.
  ExpectNear(At(pages[0], 62 + 15, 15), Stored({191, 191, 255}), 4, "untinted type");
}

TEST(ChipColour, ConvertedColoursDarkenTowardBlack) {
  using Profile = std::unique_ptr<void, cmsBool (*)(cmsHPROFILE)>;
  Profile cmyk(cmsOpenProfileFromFile(hostcolour::DefaultCMYKProfilePath().c_str(), "r"),
               cmsCloseProfile);
  if (!cmyk) GTEST_SKIP() << "no CMYK profile at " << hostcolour::DefaultCMYKProfilePath();
  // The engine's gray is the sRGB curve on D50, its Lab is D50.
  const cmsFloat64Number curve[5] = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
  cmsToneCurve* tone = cmsBuildParametricToneCurve(nullptr, 4, curve);
  Profile gray(cmsCreateGrayProfile(cmsD50_xyY(), tone), cmsCloseProfile);
  cmsFreeToneCurve(tone);
  Profile lab(cmsCreateLab4Profile(nullptr), cmsCloseProfile);
  Profile srgb(cmsCreate_sRGBProfile(), cmsCloseProfile);
  struct Case {
    const char* model;
    cmsHPROFILE from;
    cmsUInt32Number format;
    std::vector<float> file;     // as the file holds them
    std::vector<float> convert;  // as LittleCMS takes them (its float CMYK is 0-100)
    double tint;
  } cases[] = {
      {"Gray", gray.get(), TYPE_GRAY_FLT, {0.5f}, {0.5f}, 0.0},
      {"Gray", gray.get(), TYPE_GRAY_FLT, {0.8f}, {0.8f}, 0.5},
      {"LAB ", lab.get(), TYPE_Lab_FLT, {0.507f, -12.9f, 40.0f}, {50.7f, -12.9f, 40.0f}, 0.0},
      {"LAB ", lab.get(), TYPE_Lab_FLT, {0.9f, 60.0f, -30.0f}, {90.0f, 60.0f, -30.0f}, 0.25},
      {"CMYK", cmyk.get(), TYPE_CMYK_FLT, {0.25f, 1.0f, 0.0f, 0.1f}, {25, 100, 0, 10}, 0.0},
      {"CMYK", cmyk.get(), TYPE_CMYK_FLT, {0.0f, 0.2f, 1.0f, 0.0f}, {0, 20, 100, 0}, 0.5},
  };
  json blocks = json::array();
  for (const Case& c : cases)
    blocks.push_back(
        xmppacket::Swatch(c.model, c.model, {c.file.begin(), c.file.end()}, 1, c.tint));
  std::vector<Page> pages = PagesOf(blocks);
  ASSERT_EQ(pages.size(), 1u);
  for (size_t i = 0; i < std::size(cases); ++i) {
    // The chip's centre against the display RGB, clamped and darkened by the
    // tint, compared in Lab.
    const Case& c = cases[i];
    float rgb[3];
    Convert(c.from, c.format, srgb.get(), TYPE_RGB_FLT, c.convert.data(), rgb, 1);
    Pixel got = Stored(At(pages[0], int(i) * 31 + 15, 15));
    uint8_t both[6] = {uint8_t(got.r), uint8_t(got.g), uint8_t(got.b)};
    for (int k = 0; k < 3; ++k)
      both[3 + k] = uint8_t((1.0 - c.tint) * std::clamp(rgb[k], 0.0f, 1.0f) * 255.0);
    cmsCIELab inLab[2];
    Convert(srgb.get(), TYPE_RGB_8, lab.get(), TYPE_Lab_DBL, both, inLab, 2);
    EXPECT_LT(cmsDeltaE(&inLab[0], &inLab[1]), 1.5)
        << c.model << " #" << i << " got " << got.r << "," << got.g << "," << got.b << " want "
        << int(both[3]) << "," << int(both[4]) << "," << int(both[5]);
  }
}

}  // namespace
