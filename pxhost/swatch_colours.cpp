// The packet's fields and the scale of each model's values are those the
// plug-in writes them with (xmp/swatch_schema.h). Display colours of gray,
// CMYK and Lab swatches come from the same engine call as the chips of the
// thumbnail pages (xmppages::DisplayColour), given the values back in the
// book's units; the tint is reported, not applied.
#include "pxhost/swatch_colours.h"

#include <cmath>
#include <cstdlib>
#include <string>

#include "swatchbook/kelto_swatchbook.h"
#include "xmp/display_colour.h"
#include "xmp/host_binding.h"
#include "xmp/swatch_schema.h"
#include "xmp/toolkit.h"

namespace pxhost {
namespace {

uint8_t Byte(double unit) {
  return uint8_t(std::lround(std::fmin(std::fmax(unit, 0.0), 1.0) * 255.0));
}

bool Number(const std::string& text, double* value) {
  char* end = nullptr;
  *value = std::strtod(text.c_str(), &end);
  return !text.empty() && end != nullptr && *end == 0 && std::isfinite(*value);
}

class PacketReader {
 public:
  explicit PacketReader(const xmptk::XMPMeta& meta)
      : meta_(meta), tpgNS_(xmptk::NamespaceURI("xmpTPg")), gNS_(xmptk::NamespaceURI("xmpG")) {}

  bool Read(std::vector<DisplaySwatch>* out, std::string* error) {
    for (int32_t g = 1;; ++g) {
      std::string group;
      xmptk::XMPUtils::ComposeArrayItemPath(tpgNS_, swatchschema::kSwatchGroups, g, &group);
      if (!meta_.GetProperty(tpgNS_, group.c_str(), nullptr, nullptr)) break;
      std::string groupName = Field(group, swatchschema::kGroupName);
      if (Field(group, swatchschema::kGroupType) ==
          std::to_string(swatchschema::kGroupTypeUngrouped))
        groupName.clear();  // the ungrouped list
      std::string colorants = Path(group, swatchschema::kColorants);
      for (int32_t c = 1;; ++c) {
        std::string item;
        xmptk::XMPUtils::ComposeArrayItemPath(tpgNS_, colorants.c_str(), c, &item);
        if (!meta_.GetProperty(tpgNS_, item.c_str(), nullptr, nullptr)) break;
        DisplaySwatch s;
        s.group = groupName;
        if (!Colorant(item, &s, error)) return false;
        out->push_back(std::move(s));
      }
    }
    return true;
  }

 private:
  std::string Path(const std::string& structPath, const char* name) const {
    std::string path;
    xmptk::XMPUtils::ComposeStructFieldPath(tpgNS_, structPath.c_str(), gNS_, name, &path);
    return path;
  }
  std::string Field(const std::string& structPath, const char* name) const {
    std::string value;
    if (!meta_.GetProperty(tpgNS_, Path(structPath, name).c_str(), &value, nullptr)) value.clear();
    return value;
  }

  bool Colorant(const std::string& item, DisplaySwatch* s, std::string* error) {
    s->name = Field(item, swatchschema::kSwatchName);
    s->model = Field(item, swatchschema::kMode);
    s->type = Field(item, swatchschema::kType);
    std::string tint = Field(item, swatchschema::kTint);
    if (!tint.empty() && !Number(tint, &s->tint)) return Bad(*s, swatchschema::kTint, error);
    const swatchschema::Model* model = swatchschema::ModelNamed(s->model);
    if (model == nullptr) return true;         // no colour model: not drawable
    const double toBook = 1.0 / model->scale;  // packet value x toBook = the book's value
    double book[4] = {0, 0, 0, 0};
    for (size_t k = 0; k < model->count; ++k) {
      const char* field = model->values[k].field;
      double v = 0;
      if (!Number(Field(item, field), &v)) return Bad(*s, field, error);
      s->values.push_back(v);
      book[k] = v * toBook;
    }
    s->drawable = true;
    if (model->space == KeltoSwatchbook::kColorSpaceRGB) {
      s->r = Byte(book[0]);
      s->g = Byte(book[1]);
      s->b = Byte(book[2]);
      return true;
    }
    float rgb[3] = {0, 0, 0};
    if (!xmppages::DisplayColour(model->space, book, rgb)) {
      *error = "swatch \"" + s->name + "\": the colour engine cannot convert " + s->model;
      return false;
    }
    s->r = Byte(rgb[0]);
    s->g = Byte(rgb[1]);
    s->b = Byte(rgb[2]);
    return true;
  }

  static bool Bad(const DisplaySwatch& s, const char* field, std::string* error) {
    *error = "swatch \"" + s.name + "\": " + field + " is not a number";
    return false;
  }

  const xmptk::XMPMeta& meta_;
  const char* tpgNS_;
  const char* gNS_;
};

}  // namespace

bool DisplaySwatchesFromPacket(const std::string& packet, std::vector<DisplaySwatch>* out,
                               std::string* error) {
  out->clear();
  if (!xmptk::Initialize()) {
    *error = "the XMP toolkit cannot start";
    return false;
  }
  // The conversions go through this program's own binding to the host colour
  // engine, set up once; without it every conversion fails.
  static const bool bound = WeftClientInit(FindWeftProcLookup()) == 0;
  bool ok = false;
  try {
    xmptk::XMPMeta meta(packet.data(), uint32_t(packet.size()));
    ok = PacketReader(meta).Read(out, error);
  } catch (const xmptk::XMPError& e) {
    *error = "the swatch packet cannot be read (XMP error " + std::to_string(e.GetID()) + ")";
  }
  xmptk::Terminate();
  if (!ok && !bound) *error += " (the host offers no colour engine)";
  if (!ok) out->clear();
  return ok;
}

}  // namespace pxhost
