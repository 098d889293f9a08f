// The swatch XMP packet.
//
// xmpTPg:SwatchGroups[g] lists every group that holds a swatch, with its
// colorants (xmpG:Colorants[c]); xmp:PageInfo[n] carries the thumbnail pages.
// Gray and RGB components are truncated to integers, CMYK is written in
// percent and Lab's L as stored. The tint is written as (1 - t) x 100 for spot
// and process swatches with a non-zero tint. Names go through one shared UTF-8
// buffer that is only reassigned by a non-empty name, so an empty name
// repeats the one written before it: readers of these packets rely on that.
#include "xmp/xmp_mgmt.h"

#include <cmath>
#include <memory>
#include <stop_token>
#include <vector>

#include "jpeg/zjpeg.h"
#include "swatchbook/kelto_swatchbook.h"
#include "xmp/aside_task.h"
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
  int32_t size = name.GetUTF8(nullptr);  // with the terminator
  if (size <= 1) return;
  std::vector<unsigned char> utf8(static_cast<size_t>(size));
  name.GetUTF8(utf8.data());
  text->assign(reinterpret_cast<const char*>(utf8.data()), size_t(size - 1));
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
      int32_t type = 1;
      if (book.IsUngrouped(g)) {
        name = "Default Swatch Group";
        type = 0;
      }
      meta_.AppendArrayItem(tpgNS_, "SwatchGroups", xmptk::kXMP_PropArrayIsOrdered, nullptr,
                            xmptk::kXMP_PropValueIsStruct);
      std::string group;
      xmptk::XMPUtils::ComposeArrayItemPath(tpgNS_, "SwatchGroups", groupIndex, &group);
      AssignIfNotEmpty(name, &text_);
      meta_.SetProperty(tpgNS_, Field(group, "groupName").c_str(), text_.c_str());
      meta_.SetProperty_Int(tpgNS_, Field(group, "groupType").c_str(), type);
      std::string colorants = Field(group, "Colorants");
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
    KeltoSwatchbook::ColorSpace space = book.GetFormatColorSpace(format);
    const char* mode = space == KeltoSwatchbook::kColorSpaceGray   ? "GRAY"
                       : space == KeltoSwatchbook::kColorSpaceRGB  ? "RGB"
                       : space == KeltoSwatchbook::kColorSpaceCMYK ? "CMYK"
                       : space == KeltoSwatchbook::kColorSpaceLAB  ? "LAB"
                                                                   : nullptr;
    if (mode == nullptr) return false;

    meta_.AppendArrayItem(tpgNS_, colorants.c_str(), xmptk::kXMP_PropArrayIsOrdered, nullptr,
                          xmptk::kXMP_PropValueIsStruct);
    std::string item;
    xmptk::XMPUtils::ComposeArrayItemPath(tpgNS_, colorants.c_str(), index, &item);
    AssignIfNotEmpty(book.GetSwatchName(s, 1), &text_);
    meta_.SetProperty(tpgNS_, Field(item, "swatchName").c_str(), text_.c_str());

    double v[4] = {0, 0, 0, 0};
    book.GetColorValues(s, format, v);
    KeltoSwatchbook::SwatchType type = book.GetSwatchType(s);
    if (type != KeltoSwatchbook::kSwatchTypeProcessUntinted) {
      uint32_t flag = 0;
      double t = book.GetSwatchTint(s, flag);
      if (t != 0.0) meta_.SetProperty_Float(tpgNS_, Field(item, "tint").c_str(), (1.0 - t) * 100.0);
    }
    meta_.SetProperty(tpgNS_, Field(item, "mode").c_str(), mode);
    meta_.SetProperty(tpgNS_, Field(item, "type").c_str(),
                      type == KeltoSwatchbook::kSwatchTypeSpot ? "SPOT" : "PROCESS");
    auto integer = [&](const char* name, double value) {
      meta_.SetProperty_Int(tpgNS_, Field(item, name).c_str(), Trunc32(value));
    };
    auto real = [&](const char* name, double value) {
      meta_.SetProperty_Float(tpgNS_, Field(item, name).c_str(), value);
    };
    switch (space) {
      case KeltoSwatchbook::kColorSpaceGray:
        integer("gray", v[0] * 255.0);
        break;
      case KeltoSwatchbook::kColorSpaceRGB:
        integer("red", v[0] * 255.0);
        integer("green", v[1] * 255.0);
        integer("blue", v[2] * 255.0);
        break;
      case KeltoSwatchbook::kColorSpaceCMYK:
        real("cyan", v[0] * 100.0);
        real("magenta", v[1] * 100.0);
        real("yellow", v[2] * 100.0);
        real("black", v[3] * 100.0);
        break;
      default:  // Lab
        real("L", v[0]);
        integer("A", v[1]);
        integer("B", v[2]);
        break;
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
