// The swatch packet's layout: the names of its arrays and fields and the scale
// of each colour model's values. The plug-in writes the packet from this table
// and a host reads the packet back through it, so the two cannot drift apart.
//
// xmpTPg:SwatchGroups[g] holds groupName, groupType and xmpG:Colorants[c];
// each colorant holds swatchName, an optional tint, mode, type and the values
// of its model. All struct fields are in the xmpG namespace.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "swatchbook/kelto_swatchbook.h"

namespace swatchschema {

inline constexpr char kSwatchGroups[] = "SwatchGroups";  // xmpTPg array
inline constexpr char kGroupName[] = "groupName";
inline constexpr char kGroupType[] = "groupType";
inline constexpr char kColorants[] = "Colorants";
inline constexpr char kSwatchName[] = "swatchName";
inline constexpr char kTint[] = "tint";  // (1 - tint) x 100, only when the tint is not 0
inline constexpr char kMode[] = "mode";
inline constexpr char kType[] = "type";

// groupType: the book's ungrouped swatches form a group of their own, named
// kUngroupedName, of type 0; every named group has type 1.
inline constexpr int32_t kGroupTypeUngrouped = 0;
inline constexpr int32_t kGroupTypeNamed = 1;
inline constexpr char kUngroupedName[] = "Default Swatch Group";

inline constexpr char kTypeSpot[] = "SPOT";
inline constexpr char kTypeProcess[] = "PROCESS";

// One colour value of a model: its field and whether it is written truncated
// to an integer (else as a real).
struct Value {
  const char* field;
  bool integer;
};

// A colour model as the packet stores it: packet value = book value x scale.
// Gray and RGB components are integers 0 to 255, CMYK is in percent, Lab's L
// as stored with integer a and b.
struct Model {
  const char* mode;
  KeltoSwatchbook::ColorSpace space;
  double scale;
  size_t count;
  Value values[4];
};

inline constexpr Model kModels[] = {
    {"GRAY", KeltoSwatchbook::kColorSpaceGray, 255.0, 1, {{"gray", true}}},
    {"RGB",
     KeltoSwatchbook::kColorSpaceRGB,
     255.0,
     3,
     {{"red", true}, {"green", true}, {"blue", true}}},
    {"CMYK",
     KeltoSwatchbook::kColorSpaceCMYK,
     100.0,
     4,
     {{"cyan", false}, {"magenta", false}, {"yellow", false}, {"black", false}}},
    {"LAB", KeltoSwatchbook::kColorSpaceLAB, 1.0, 3, {{"L", false}, {"A", true}, {"B", true}}},
};

// The model a book's colour space is written as; null for a space the packet
// has no model for (such a swatch is left out).
constexpr const Model* ModelOf(KeltoSwatchbook::ColorSpace space) {
  for (const Model& m : kModels)
    if (m.space == space) return &m;
  return nullptr;
}

// Whether the packet gives a swatch's tint: every spot and tinted process
// swatch whose book tint is not 0. The book keeps a tint as the share taken
// away (0 is full strength); the packet as the percentage left.
constexpr bool HasTint(KeltoSwatchbook::SwatchType type, double bookTint) {
  return type != KeltoSwatchbook::kSwatchTypeProcessUntinted && bookTint != 0.0;
}
constexpr double TintPercent(double bookTint) {
  return (1.0 - bookTint) * 100.0;
}

// The model a packet's mode names; null for an unknown mode.
constexpr const Model* ModelNamed(std::string_view mode) {
  for (const Model& m : kModels)
    if (mode == m.mode) return &m;
  return nullptr;
}

}  // namespace swatchschema
