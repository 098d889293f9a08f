// The plug-in's swatch store. Writes are not checked by the book's callers
// (a swatch index outside the active group, no active group at all); here
// they change nothing instead of writing outside the groups.
#include "swatchbook/vantor_swatch_book.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

namespace {

// Values are kept at single precision, as the swatch files hold them.
double RoundToSingle(double v) {
  if (std::isfinite(v) && std::fabs(v) > FLT_MAX) return std::copysign(HUGE_VAL, v);
  return double(float(v));
}

}  // namespace

VantorSwatchBook::VantorSwatchBook() {
  formatGray_ = AddFormat();
  SetFormatEncoding(formatGray_, kEncodingDouble);
  SetFormatColorSpace(formatGray_, kColorSpaceGray);
  formatRGB_ = AddFormat();
  SetFormatEncoding(formatRGB_, kEncodingDouble);
  SetFormatColorSpace(formatRGB_, kColorSpaceRGB);
  formatLAB_ = AddFormat();
  SetFormatEncoding(formatLAB_, kEncodingDouble);
  SetFormatColorSpace(formatLAB_, kColorSpaceLAB);
  formatCMYK_ = AddFormat();
  SetFormatEncoding(formatCMYK_, kEncodingDouble);
  SetFormatColorSpace(formatCMYK_, kColorSpaceCMYK);
}

VantorSwatchBook::SwatchGroup* VantorSwatchBook::ActiveGroup() {
  if (activeGroup_ < 0 || size_t(activeGroup_) >= groups_.size()) return nullptr;
  return &groups_[size_t(activeGroup_)];
}

VantorSwatchBook::Swatch* VantorSwatchBook::ActiveSwatch(int32_t swatch) {
  SwatchGroup* group = ActiveGroup();
  if (group == nullptr || swatch < 0 || size_t(swatch) >= group->swatches.size()) return nullptr;
  return &group->swatches[size_t(swatch)];
}

void VantorSwatchBook::Clear() {
  // The active group and the swatch count are left as they were.
  groups_.clear();
  KeltoSwatchbookFormat::Clear();
}

int32_t VantorSwatchBook::CreateSwatchGroup() {
  groups_.emplace_back();
  activeGroup_ = int32_t(groups_.size() - 1);
  return activeGroup_;
}

int32_t VantorSwatchBook::CountSwatchGroups(int32_t&) {
  return int32_t(groups_.size());
}

int32_t VantorSwatchBook::SetActiveSwatchGroup(int32_t group) {
  activeGroup_ = group;
  return 1;
}

int32_t VantorSwatchBook::IsUngrouped(int32_t) {
  SwatchGroup* group = ActiveGroup();
  return group ? group->ungrouped : 0;
}

int32_t VantorSwatchBook::CountSwatchesInActiveGroup() {
  SwatchGroup* group = ActiveGroup();
  return group ? int32_t(group->swatches.size()) : 0;
}

int32_t VantorSwatchBook::SetSwatchGroupName(const XMLString& name) {
  if (SwatchGroup* group = ActiveGroup()) group->name = name;
  return 1;
}

XMLString VantorSwatchBook::GetSwatchGroupName(uint32_t) {
  SwatchGroup* group = ActiveGroup();
  return group ? group->name : XMLString();
}

XMLString VantorSwatchBook::GetSwatchName(int32_t swatch, uint32_t) {
  Swatch* s = ActiveSwatch(swatch);
  return s ? s->name : XMLString();
}

KeltoSwatchbook::SwatchType VantorSwatchBook::GetSwatchType(int32_t swatch) {
  Swatch* s = ActiveSwatch(swatch);
  return s ? s->type : SwatchType(0);
}

KeltoSwatchbook::ColorSpace VantorSwatchBook::GetSwatchColorSpace(int32_t swatch) {
  Swatch* s = ActiveSwatch(swatch);
  return s ? s->colorSpace : ColorSpace(0);
}

double VantorSwatchBook::GetSwatchTint(int32_t swatch, uint32_t& flag) {
  flag = 1;
  Swatch* s = ActiveSwatch(swatch);
  return s ? s->tint : 0.0;
}

int32_t VantorSwatchBook::GetSwatchFormats(int32_t, int32_t* out) {
  if (out) {
    out[0] = formatGray_;
    out[1] = formatRGB_;
    out[2] = formatLAB_;
    out[3] = formatCMYK_;
  }
  return 4;
}

int32_t VantorSwatchBook::AddSwatch(int32_t) {
  if (activeGroup_ == -1) {
    // Swatches outside any group go to one implicit group, group 0.
    groups_.resize(1);
    groups_[0].ungrouped = 1;
    activeGroup_ = 0;
  }
  SwatchGroup* group = ActiveGroup();
  if (group == nullptr) return -1;  // an active group that does not exist takes nothing
  group->swatches.emplace_back();
  ++swatchCount_;
  return int32_t(group->swatches.size() - 1);
}

int32_t VantorSwatchBook::SetSwatchType(int32_t swatch, SwatchType type) {
  Swatch* s = ActiveSwatch(swatch);
  if (s == nullptr || type < kSwatchTypeSpot || type > kSwatchTypeProcessUntinted) return 0;
  s->type = type;
  return 1;
}

int32_t VantorSwatchBook::SetSwatchName(int32_t swatch, const XMLString& name) {
  if (Swatch* s = ActiveSwatch(swatch)) s->name = name;
  return 1;
}

int32_t VantorSwatchBook::SetSwatchTint(int32_t swatch, double tint) {
  if (Swatch* s = ActiveSwatch(swatch)) s->tint = tint;
  return 1;
}

int32_t VantorSwatchBook::AddColorValues(int32_t swatch, int32_t format, const void* values) {
  if (!IsValidFormat(format)) return 0;
  Swatch* s = ActiveSwatch(swatch);
  ColorSpace space = GetFormatColorSpace(format);
  // The component count is set before translating and stays if that fails.
  if (s) s->numComps = GetFormatNumChannels(format);
  double translated[4] = {0, 0, 0, 0};
  if (!TranslateEncoding(space, GetFormatEncoding(format), values, kEncodingDouble, translated))
    return 0;
  if (s) {
    s->colorSpace = space;
    for (int i = 0; i < 4; ++i) s->values[i] = RoundToSingle(translated[i]);
  }
  return 1;
}

int32_t VantorSwatchBook::GetColorValues(int32_t swatch, int32_t format, void* out) {
  int32_t n = GetFormatNumChannels(format);
  Swatch* s = ActiveSwatch(swatch);
  bool ownFormat = format == formatGray_ || format == formatRGB_ || format == formatLAB_ ||
                   format == formatCMYK_;
  if (s == nullptr || s->numComps < 1 || !ownFormat) return 0;
  // numComps can exceed the four values held (a free channel count on a
  // format that then failed to translate); never copy past them.
  int32_t copy = std::min({s->numComps, n, int32_t(4)});
  for (int32_t i = 0; i < copy; ++i)
    std::memcpy(static_cast<char*>(out) + size_t(i) * sizeof(double), &s->values[i],
                sizeof(double));
  return 1;
}
