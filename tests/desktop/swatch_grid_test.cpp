// The swatch grid's layout: how many chips fit legibly at the sizes file
// managers ask for, and the "+N" label that counts the rest.
#include <gtest/gtest.h>

#include <tuple>

#include "desktop/swatch_grid.h"

namespace {

TEST(SwatchGrid, FewChipsAreLargeAndAllShown) {
  pxhost::SwatchGridLayout l = pxhost::LayOutSwatchGrid(5, 256);
  EXPECT_EQ(std::tuple(l.columns, l.rows, l.shown, l.labelCells), std::tuple(3, 2, 5, 0));
  EXPECT_EQ(l.gap, 4);
  EXPECT_EQ(l.columns * (l.chip + l.gap) + l.gap, 256 - (256 - l.gap) % 3);
}

TEST(SwatchGrid, TooManyChipsEndInACountLabel) {
  struct Case {
    int chips, size;
  } cases[] = {{100, 128}, {101, 128}, {5000, 128}, {2000, 256}, {9, 16}, {400000, 4096}};
  for (const Case& c : cases) {
    pxhost::SwatchGridLayout l = pxhost::LayOutSwatchGrid(c.chips, c.size);
    SCOPED_TRACE(testing::Message() << c.chips << " chips at " << c.size);
    EXPECT_LE(l.columns * (l.chip + l.gap) + l.gap, c.size);
    EXPECT_LE(l.rows * (l.chip + l.gap) + l.gap, c.size);
    EXPECT_GE(l.chip, 10);
    if (l.labelCells == 0) {
      EXPECT_EQ(l.shown, c.chips);
      EXPECT_LE(c.chips, l.columns * l.rows);
    } else {
      EXPECT_EQ(l.shown + l.labelCells, l.columns * l.rows);  // every cell used
      EXPECT_LT(l.shown, c.chips);
      EXPECT_LE(l.labelCells, l.columns);  // the label stays on the last row
    }
  }
  // At the normal size a hundred chips still fit; with one more, "+3" takes
  // the last two cells (a 10-pixel chip is narrower than the text).
  EXPECT_EQ(pxhost::LayOutSwatchGrid(100, 128).labelCells, 0);
  pxhost::SwatchGridLayout l = pxhost::LayOutSwatchGrid(101, 128);
  EXPECT_EQ(std::tuple(l.shown, l.labelCells), std::tuple(98, 2));
}

TEST(SwatchGrid, ChipsAreTheirExactColourWithCrispEdges) {
  std::vector<pxhost::ChipColour> chips = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {10, 20, 30}};
  pxhost::RgbImage img = pxhost::DrawSwatchGrid(chips, 64);
  pxhost::SwatchGridLayout l = pxhost::LayOutSwatchGrid(4, 64);
  ASSERT_EQ(std::tuple(img.width, img.height),
            std::tuple(2 * (l.chip + l.gap) + l.gap, 2 * (l.chip + l.gap) + l.gap));
  for (int k = 0; k < 4; ++k) {
    int x0 = l.gap + (k % 2) * (l.chip + l.gap), y0 = l.gap + (k / 2) * (l.chip + l.gap);
    // Inside the one-pixel outline every pixel is exactly the chip's colour.
    for (int y = y0 + 1; y < y0 + l.chip - 1; ++y)
      for (int x = x0 + 1; x < x0 + l.chip - 1; ++x) {
        const uint8_t* p = &img.pixels[size_t((y * img.width + x) * 3)];
        ASSERT_EQ((pxhost::ChipColour{p[0], p[1], p[2]}), chips[size_t(k)]) << k;
      }
  }
}

}  // namespace
