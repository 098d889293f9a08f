// A swatch book's display colours in the palette formats paint, layout and
// web programs read: GIMP palettes (.gpl), JSON and CSS custom properties.
#pragma once

#include <string>
#include <vector>

#include "pxhost/swatch_colours.h"

namespace pxhost {

// Only drawable swatches are written; the caller warns about the others.
// GIMP palette, version 2 header: Name and Columns, a "# group" comment line
// before each group's swatches, then "R G B<TAB>name" (UTF-8).
std::string PaletteGpl(const std::string& name, const std::vector<DisplaySwatch>& swatches);
// {"name", "groups": [...], "swatches": [{name, group, model, type, tint,
// values, rgb: [r, g, b], hex: "#rrggbb"}], "skipped": N}.
std::string PaletteJson(const std::string& name, const std::vector<DisplaySwatch>& swatches);
// ":root { --swatch-<slug>: #rrggbb; ... }", slugs unique.
std::string PaletteCss(const std::vector<DisplaySwatch>& swatches);
// The custom-property name part for a swatch name: ASCII letters and digits
// lower-cased, non-ASCII UTF-8 kept, every other run of characters one "-".
std::string Slug(const std::string& name);

}  // namespace pxhost
