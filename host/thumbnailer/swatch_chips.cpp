#include "host/thumbnailer/swatch_chips.h"

#include <cmath>
#include <cstdlib>

#include "swatchbook/kelto_swatchbook.h"
#include "xmp/host_binding.h"
#include "xmp/page_internals.h"
#include "xmp/toolkit.h"

namespace pxhost {
namespace {

struct Colorant {
  const xmptk::XMPMeta& meta;
  const char* groupNS;
  std::string path;

  bool Text(const char* field, std::string* value) const {
    return meta.GetStructField(xmptk::NamespaceURI("xmpTPg"), path.c_str(), groupNS, field, value,
                               nullptr);
  }
  bool Number(const char* field, double* value) const {
    std::string text;
    if (!Text(field, &text) || text.empty()) return false;
    char* end = nullptr;
    *value = std::strtod(text.c_str(), &end);
    return *end == 0 && std::isfinite(*value);
  }
};

// The colorant's values in the swatch model's own ranges (what the packet
// wrote, undone): RGB and gray 0..1 from 0..255, CMYK 0..1 from percent, Lab
// as written.
bool ModelValues(const Colorant& c, KeltoSwatchbook::ColorSpace* space, double v[4]) {
  std::string mode;
  if (!c.Text("mode", &mode)) return false;
  auto all = [&](std::initializer_list<const char*> fields, double scale) {
    int k = 0;
    for (const char* f : fields) {
      if (!c.Number(f, &v[k])) return false;
      v[k++] /= scale;
    }
    return true;
  };
  if (mode == "RGB") {
    *space = KeltoSwatchbook::kColorSpaceRGB;
    return all({"red", "green", "blue"}, 255.0);
  }
  if (mode == "CMYK") {
    *space = KeltoSwatchbook::kColorSpaceCMYK;
    return all({"cyan", "magenta", "yellow", "black"}, 100.0);
  }
  if (mode == "LAB") {
    *space = KeltoSwatchbook::kColorSpaceLAB;
    return all({"L", "A", "B"}, 1.0);
  }
  if (mode == "GRAY") {
    *space = KeltoSwatchbook::kColorSpaceGray;
    return all({"gray"}, 255.0);
  }
  return false;
}

uint8_t Byte(double v) {
  return uint8_t(std::lround(std::fmin(std::fmax(v, 0.0), 255.0)));
}

ChipColour DisplayColour(const Colorant& c, KeltoSwatchbook::ColorSpace space, const double* v) {
  ChipColour rgb;
  if (space == KeltoSwatchbook::kColorSpaceRGB) {
    // Exact: the packet's 0..255 integers as they are.
    rgb = {Byte(v[0] * 255.0), Byte(v[1] * 255.0), Byte(v[2] * 255.0)};
  } else {
    // The engine's conversion, as the chip pages make it (a stored tint of
    // 0: the full colour).
    xmppages::ChipRgb converted = xmppages::ChipColour(space, v, 0.0);
    rgb = {converted.r, converted.g, converted.b};
  }
  // A tint is that share of the ink on white paper.
  double tint = 100.0;
  if (c.Number("tint", &tint)) {
    double share = std::fmin(std::fmax(tint, 0.0), 100.0) / 100.0;
    for (uint8_t& channel : rgb) channel = Byte(255.0 - (255.0 - channel) * share);
  }
  return rgb;
}

}  // namespace

std::string SwatchChipsFromPacket(const std::string& packet, std::vector<ChipColour>* chips,
                                  int32_t* skipped) {
  if (!xmptk::Initialize()) return "the XMP toolkit cannot start";
  struct Binding {
    Binding() { WeftClientInit(FindWeftProcLookup()); }
    ~Binding() { WeftClientTerminate(); }
  };
  std::string error;
  try {
    Binding binding;
    xmptk::XMPMeta meta(packet.data(), uint32_t(packet.size()));
    const char* tpgNS = xmptk::NamespaceURI("xmpTPg");
    const char* groupNS = xmptk::NamespaceURI("xmpG");
    for (int32_t g = 1;; ++g) {
      std::string group, colorants;
      xmptk::XMPUtils::ComposeArrayItemPath(tpgNS, "SwatchGroups", g, &group);
      if (!meta.GetStructField(tpgNS, group.c_str(), groupNS, "groupType", nullptr, nullptr)) break;
      xmptk::XMPUtils::ComposeStructFieldPath(tpgNS, group.c_str(), groupNS, "Colorants",
                                              &colorants);
      for (int32_t k = 1;; ++k) {
        Colorant c{meta, groupNS, {}};
        xmptk::XMPUtils::ComposeArrayItemPath(tpgNS, colorants.c_str(), k, &c.path);
        if (!meta.GetProperty(tpgNS, c.path.c_str(), nullptr, nullptr)) break;
        KeltoSwatchbook::ColorSpace space;
        double v[4] = {0, 0, 0, 0};
        if (ModelValues(c, &space, v))
          chips->push_back(DisplayColour(c, space, v));
        else
          ++*skipped;
      }
    }
  } catch (const xmptk::XMPError& e) {
    error = std::string("unreadable swatch packet (") + e.what() + ")";
  }
  xmptk::Terminate();
  return error;
}

}  // namespace pxhost
