#include "desktop/swatch_grid.h"

#include <stb_easy_font.h>

#include <algorithm>
#include <cmath>
#include <string>

namespace pxhost {
namespace {

constexpr ChipColour kBackground = {232, 232, 232};
// A chip's one-pixel outline, so white and near-background chips keep an edge.
constexpr ChipColour kOutline = {160, 160, 160};
constexpr ChipColour kLabelFill = {80, 80, 80};
constexpr ChipColour kLabelText = {255, 255, 255};

int32_t GapFor(int32_t size) {
  return std::max(1, size / 64);
}
// Below this a chip stops reading as a colour of its own at the sizes file
// managers show (128 px: 10 px chips, 100 to a grid; 256 px: 21 px chips).
int32_t MinChipFor(int32_t size) {
  return std::max(10, size / 12);
}

void Fill(RgbImage* image, int32_t x0, int32_t y0, int32_t x1, int32_t y1, ChipColour c) {
  x0 = std::max(x0, 0);
  y0 = std::max(y0, 0);
  x1 = std::min(x1, image->width);
  y1 = std::min(y1, image->height);
  for (int32_t y = y0; y < y1; ++y) {
    uint8_t* p = image->pixels.data() + (size_t(y) * size_t(image->width) + size_t(x0)) * 3;
    for (int32_t x = x0; x < x1; ++x, p += 3) std::copy(c.begin(), c.end(), p);
  }
}

// The label's text as stb_easy_font draws it: axis-aligned quads in font
// units, integer-scaled so every stroke is whole pixels.
struct TextQuads {
  struct Quad {
    float x0, y0, x1, y1;
  };
  std::vector<Quad> quads;
  float width = 0, height = 0;
};

TextQuads Shape(const std::string& text) {
  struct Vertex {
    float x, y, z;
    unsigned char colour[4];
  };
  // About 270 bytes a character by the library's own estimate; 400 is ample.
  std::vector<Vertex> vertices(text.size() * 400 / sizeof(Vertex) + 4);
  std::string copy = text;
  int count = stb_easy_font_print(0, 0, copy.data(), nullptr, vertices.data(),
                                  int(vertices.size() * sizeof(Vertex)));
  TextQuads shaped;
  for (int q = 0; q < count; ++q) {
    const Vertex* v = &vertices[size_t(q) * 4];
    TextQuads::Quad quad{std::min(v[0].x, v[2].x), std::min(v[0].y, v[2].y),
                         std::max(v[0].x, v[2].x), std::max(v[0].y, v[2].y)};
    shaped.width = std::max(shaped.width, quad.x1);
    shaped.height = std::max(shaped.height, quad.y1);
    shaped.quads.push_back(quad);
  }
  return shaped;
}

void DrawLabel(RgbImage* image, int32_t x0, int32_t y0, int32_t w, int32_t h, int32_t hidden) {
  Fill(image, x0, y0, x0 + w, y0 + h, kLabelFill);
  TextQuads text = Shape("+" + std::to_string(hidden));
  if (text.width <= 0 || text.height <= 0) return;
  // The largest whole scale that leaves at least a pixel all round and a
  // tenth of the width on each side.
  int32_t scale = int32_t(std::min(w * 0.8 / text.width, (h - 2.0) / text.height));
  if (scale < 1) return;  // too small to read: the dark cell alone says "more"
  int32_t left = x0 + (w - int32_t(text.width) * scale) / 2;
  int32_t top = y0 + (h - int32_t(text.height) * scale) / 2;
  for (const auto& q : text.quads)
    Fill(image, left + int32_t(q.x0 * scale), top + int32_t(q.y0 * scale),
         left + int32_t(q.x1 * scale), top + int32_t(q.y1 * scale), kLabelText);
}

int32_t LabelCellsFor(int32_t hidden, int32_t chip, int32_t gap, int32_t columns) {
  TextQuads text = Shape("+" + std::to_string(hidden));
  // Wide enough for the text at scale 1 inside the fifth-of-a-cell margin.
  int32_t needed = int32_t(std::ceil(text.width / 0.8));
  int32_t cells = 1;
  while (cells < columns && cells * chip + (cells - 1) * gap < needed) ++cells;
  return cells;
}

}  // namespace

SwatchGridLayout LayOutSwatchGrid(int32_t chips, int32_t size) {
  SwatchGridLayout layout;
  if (chips < 1) return layout;
  layout.gap = GapFor(size);
  int32_t g = layout.gap;
  // Near-square: as many columns as the square root, rows to hold the rest.
  layout.columns = int32_t(std::ceil(std::sqrt(double(chips))));
  layout.rows = (chips + layout.columns - 1) / layout.columns;
  layout.chip = (size - g) / std::max(layout.columns, layout.rows) - g;
  layout.shown = chips;
  int32_t minChip = std::min(MinChipFor(size), size - 2 * g);
  if (layout.chip >= minChip) return layout;

  // Too many: a full square of the smallest legible chips, the last cells
  // holding the count of the chips left out.
  layout.chip = minChip;
  layout.columns = layout.rows = std::max(1, (size - g) / (minChip + g));
  int32_t capacity = layout.columns * layout.rows;
  layout.labelCells = LabelCellsFor(chips - capacity + 1, minChip, g, layout.columns);
  layout.shown = capacity - layout.labelCells;
  // A label wider than one cell hides more chips; its count must say so.
  layout.labelCells = LabelCellsFor(chips - layout.shown, minChip, g, layout.columns);
  layout.shown = capacity - layout.labelCells;
  return layout;
}

RgbImage DrawSwatchGrid(const std::vector<ChipColour>& chips, int32_t size) {
  SwatchGridLayout l = LayOutSwatchGrid(int32_t(chips.size()), size);
  if (l.columns == 0) return {};
  int32_t pitch = l.chip + l.gap;
  RgbImage image{l.columns * pitch + l.gap, l.rows * pitch + l.gap, {}};
  image.pixels.resize(size_t(image.width) * size_t(image.height) * 3);
  Fill(&image, 0, 0, image.width, image.height, kBackground);
  for (int32_t k = 0; k < l.shown; ++k) {
    int32_t x = l.gap + (k % l.columns) * pitch;
    int32_t y = l.gap + (k / l.columns) * pitch;
    if (l.chip >= 6) {
      Fill(&image, x, y, x + l.chip, y + l.chip, kOutline);
      Fill(&image, x + 1, y + 1, x + l.chip - 1, y + l.chip - 1, chips[size_t(k)]);
    } else {
      Fill(&image, x, y, x + l.chip, y + l.chip, chips[size_t(k)]);
    }
  }
  if (l.labelCells > 0) {
    int32_t first = l.columns * l.rows - l.labelCells;
    int32_t x = l.gap + (first % l.columns) * pitch;
    int32_t y = l.gap + (first / l.columns) * pitch;
    DrawLabel(&image, x, y, l.labelCells * pitch - l.gap, l.chip, int32_t(chips.size()) - l.shown);
  }
  return image;
}

}  // namespace pxhost
