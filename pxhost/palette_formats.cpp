#include "pxhost/palette_formats.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>

#include "pxhost/report.h"

namespace pxhost {
namespace {

// GIMP shows this many colours a row when the file says nothing better.
constexpr int kGplColumns = 16;

// A name on one line: GIMP reads a palette line by line.
std::string OneLine(std::string text) {
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  return text;
}

}  // namespace

std::string PaletteGpl(const std::string& name, const std::vector<DisplaySwatch>& swatches) {
  std::string out =
      "GIMP Palette\nName: " + OneLine(name) + "\nColumns: " + std::to_string(kGplColumns) + "\n";
  int32_t group = -2;  // none yet: -1 is the book's ungrouped list
  for (const DisplaySwatch& s : swatches) {
    if (!s.drawable) continue;
    if (s.groupIndex != group) {
      group = s.groupIndex;
      // A bare "#" closes a group before ungrouped swatches; a group the file
      // gives an empty name is "# " all the same.
      out += group < 0 ? "#\n" : "# " + OneLine(s.group) + "\n";
    }
    char rgb[16];
    std::snprintf(rgb, sizeof rgb, "%3d %3d %3d\t", s.r, s.g, s.b);
    out += rgb + OneLine(ShownName(s)) + "\n";
  }
  return out;
}

std::string PaletteJson(const std::string& name, const std::vector<DisplaySwatch>& swatches) {
  nlohmann::json groups = nlohmann::json::array();
  nlohmann::json list = nlohmann::json::array();
  int skipped = 0;
  int32_t listed = -1;  // the last group listed
  for (const DisplaySwatch& s : swatches) {
    if (s.groupIndex >= 0 && s.groupIndex != listed) {
      listed = s.groupIndex;
      groups.push_back(s.group);
    }
    if (!s.drawable) {
      ++skipped;
      continue;
    }
    list.push_back({{"name", s.name},
                    {"group", s.groupIndex < 0 ? nlohmann::json(nullptr) : nlohmann::json(s.group)},
                    {"model", s.model},
                    {"type", s.type},
                    {"tint", s.tint},
                    {"values", s.values},
                    {"rgb", {s.r, s.g, s.b}},
                    {"hex", HexColour(s)}});
  }
  nlohmann::json book{{"name", name}, {"groups", groups}, {"swatches", list}, {"skipped", skipped}};
  return book.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string Slug(const std::string& name) {
  std::string slug;
  for (unsigned char c : name) {
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c >= 0x80)
      slug += char(c);
    else if (c >= 'A' && c <= 'Z')
      slug += char(c - 'A' + 'a');
    else if (!slug.empty() && slug.back() != '-')
      slug += '-';
  }
  while (!slug.empty() && slug.back() == '-') slug.pop_back();
  return slug.empty() ? "swatch" : slug;
}

std::string PaletteCss(const std::vector<DisplaySwatch>& swatches) {
  std::string out = ":root {\n";
  std::set<std::string> used;
  for (const DisplaySwatch& s : swatches) {
    if (!s.drawable) continue;
    std::string base = "--swatch-" + Slug(ShownName(s));
    std::string property = base;
    for (int n = 2; !used.insert(property).second; ++n) property = base + "-" + std::to_string(n);
    out += "  " + property + ": " + HexColour(s) + ";\n";
  }
  return out + "}\n";
}

}  // namespace pxhost
