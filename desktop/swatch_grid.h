// The picture a file manager shows for a swatch book: its chips in their
// display colours, in the book's order, on a grid that fits the asked size.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "pxhost/image_io.h"

namespace pxhost {

using ChipColour = std::array<uint8_t, 3>;

struct SwatchGridLayout {
  int32_t columns = 0, rows = 0;
  int32_t chip = 0, gap = 0;  // pixels
  int32_t shown = 0;          // chips drawn; the rest are counted on the "+N" label
  int32_t labelCells = 0;     // grid cells the label takes at the end (0: none)
};

// Chips are as large as the square of side `size` allows, and never smaller
// than a chip a person can still tell apart; when the book holds more than
// fit at that size, the last cells of the grid carry a "+N" label instead.
SwatchGridLayout LayOutSwatchGrid(int32_t chips, int32_t size);

// Draws the grid with crisp chip edges: every chip a whole number of pixels,
// filled with exactly its colour. The image is at most size x size.
RgbImage DrawSwatchGrid(const std::vector<ChipColour>& chips, int32_t size);

}  // namespace pxhost
