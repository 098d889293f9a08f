// The swatch XMP packet.
//
// xmpTPg:SwatchGroups[g] lists every group that holds a swatch, with its
// colorants (xmpG:Colorants[c]), laid out as xmp/swatch_schema.h says;
// xmp:PageInfo[n] carries the thumbnail pages. Integer values are truncated.
// The tint is written for spot and process swatches with a non-zero tint.
// Names go through one shared UTF-8 buffer that is only reassigned by a
// non-empty name, so an empty name repeats the one written before it: readers
// of these packets rely on that.
#include "xmp/xmp_mgmt.h"

#include <cmath>
#include <memory>
#include <stop_token>
#include <utility>

#include "jpeg/zjpeg.h"
#include "swatchbook/kelto_swatchbook.h"
#include "xmp/aside_task.h"
#include "xmp/swatch_schema.h"
#include "xmp/thumbnail_pages.h"
#include "xmp/toolkit.h"

namespace {

// A component as a 32-bit integer, truncated toward zero; out-of-range values
// saturate instead of overflowing the conversion.
int32_t Trunc32(double v) {
  if (!(v == v)) return 0;
  if (v >= 2147483647.0) return INT32_MAX;
  if (v <= -2147483648.0) return INT32_MIN;
  return int32_t(v);
}

// Assigns text from the string's UTF-8 form, but only when that is not empty.
void AssignIfNotEmpty(const XMLString& name, std::string* text) {
  std::string utf8 = name.ToUTF8();
  if (!utf8.empty()) *text = std::move(utf8);
}

class PacketWriter {
 public:
  explicit PacketWriter(xmptk::XMPMeta& meta)
      : meta_(meta), tpgNS_(xmptk::NamespaceURI("xmpTPg")), gNS_(xmptk::NamespaceURI("xmpG")) {}

  void Groups(KeltoSwatchbook& book) {
    int32_t unused = 0;
    int32_t count = book.CountSwatchGroups(unused);
    int32_t groupIndex = 1;
    for (int32_t g = 0; g < count; ++g) {
      book.SetActiveSwatchGroup(g);
      int32_t n = book.CountSwatchesInActiveGroup();
      if (n <= 0) continue;
      XMLString name = book.GetSwatchGroupName(1);
      int32_t type = swatchschema::kGroupTypeNamed;
      if (book.IsUngrouped(g)) {
        name = swatchschema::kUngroupedName;
        type = swatchschema::kGroupTypeUngrouped;
      }
      meta_.AppendArrayItem(tpgNS_, swatchschema::kSwatchGroups, xmptk::kXMP_PropArrayIsOrdered,
                            nullptr, xmptk::kXMP_PropValueIsStruct);
      std::string group;
      xmptk::XMPUtils::ComposeArrayItemPath(tpgNS_, swatchschema::kSwatchGroups, groupIndex,
                                            &group);
      AssignIfNotEmpty(name, &text_);
      meta_.SetProperty(tpgNS_, Field(group, swatchschema::kGroupName).c_str(), text_.c_str());
      meta_.SetProperty_Int(tpgNS_, Field(group, swatchschema::kGroupType).c_str(), type);
      std::string colorants = Field(group, swatchschema::kColorants);
      int32_t colorantIndex = 1;
      for (int32_t s = 0; s < n; ++s)
        if (Colorant(book, s, colorants, colorantIndex)) ++colorantIndex;
      ++groupIndex;
    }
  }

 private:
  std::string Field(const std::string& structPath, const char* name) {
    std::string path;
    xmptk::XMPUtils::ComposeStructFieldPath(tpgNS_, structPath.c_str(), gNS_, name, &path);
    return path;
  }

  bool Colorant(KeltoSwatchbook& book, int32_t s, const std::string& colorants, int32_t index) {
    int32_t format = book.GetBestFormat(s, book.GetSwatchColorSpace(s));
    const swatchschema::Model* model = swatchschema::ModelOf(book.GetFormatColorSpace(format));
    if (model == nullptr) return false;

    meta_.AppendArrayItem(tpgNS_, colorants.c_str(), xmptk::kXMP_PropArrayIsOrdered, nullptr,
                          xmptk::kXMP_PropValueIsStruct);
    std::string item;
    xmptk::XMPUtils::ComposeArrayItemPath(tpgNS_, colorants.c_str(), index, &item);
    AssignIfNotEmpty(book.GetSwatchName(s, 1), &text_);
    meta_.SetProperty(tpgNS_, Field(item, swatchschema::kSwatchName).c_str(), text_.c_str());

    double v[4] = {0, 0, 0, 0};
    book.GetColorValues(s, format, v);
    KeltoSwatchbook::SwatchType type = book.GetSwatchType(s);
    uint32_t flag = 0;
    double t =
        type == KeltoSwatchbook::kSwatchTypeProcessUntinted ? 0.0 : book.GetSwatchTint(s, flag);
    if (swatchschema::HasTint(type, t))
      meta_.SetProperty_Float(tpgNS_, Field(item, swatchschema::kTint).c_str(),
                              swatchschema::TintPercent(t));
    meta_.SetProperty(tpgNS_, Field(item, swatchschema::kMode).c_str(), model->mode);
    meta_.SetProperty(tpgNS_, Field(item, swatchschema::kType).c_str(),
                      type == KeltoSwatchbook::kSwatchTypeSpot ? swatchschema::kTypeSpot
                                                               : swatchschema::kTypeProcess);
    for (size_t k = 0; k < model->count; ++k) {
      const swatchschema::Value& value = model->values[k];
      const std::string path = Field(item, value.field);
      if (value.integer)
        meta_.SetProperty_Int(tpgNS_, path.c_str(), Trunc32(v[k] * model->scale));
      else
        meta_.SetProperty_Float(tpgNS_, path.c_str(), v[k] * model->scale);
    }
    return true;
  }

  xmptk::XMPMeta& meta_;
  const char* tpgNS_;
  const char* gNS_;
  std::string text_;  // the shared name buffer
};

}  // namespace

XMPMgmt::XMPMgmt(PageEncoding encoding) : encoding_(encoding) {}

void XMPMgmt::GenerateXMP(KeltoSwatchbook& book, std::string& packet) {
  // The encoder's conversion tables are rebuilt on every generation, before
  // any page is encoded: while pages are encoded aside they are only read.
  ZJPEG::InitializeJPEGEncoder();
  xmptk::XMPMeta meta;
  // The book, the host and the toolkit are this thread's alone: the pages
  // are laid out and their colours converted here, and only drawing and
  // encoding them goes aside, beside the groups. The toolkit is called in
  // the same order either way, so the packet does not change.
  ThumbnailPages pages(book);
  // One page takes about a tenth of a millisecond to encode, less than
  // starting a thread costs it back (a 10-swatch request ran 12 % slower
  // with it); from two pages on the second thread pays.
  if (encoding_ == PageEncoding::kAside && pages.PageCount() > 1) {
    AsideTask encoding([&pages](std::stop_token stop) { pages.Encode(stop); });
    PacketWriter(meta).Groups(book);
    encoding.Wait();
  } else {
    PacketWriter(meta).Groups(book);
    pages.Encode();
  }
  pages.Write(meta);
  meta.SerializeToBuffer(&packet, 0, 0, "", "", 0);
}
