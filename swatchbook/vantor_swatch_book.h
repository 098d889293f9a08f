// The swatch book the plug-in fills: groups of swatches, each swatch holding
// one colour as up to four doubles. Book-level properties and swatch codes
// are not kept.
#pragma once

#include <cstdint>
#include <vector>

#include "swatchbook/kelto_swatchbook.h"

class VantorSwatchBook : public KeltoSwatchbookFormat {
 public:
  struct Swatch {
    SwatchType type = kSwatchTypeProcess;
    ColorSpace colorSpace = kColorSpaceNone;  // none until a colour is stored
    int32_t numComps = 0;
    double values[4] = {0, 0, 0, 0};
    double tint = 0.0;
    XMLString name;
  };
  struct SwatchGroup {
    XMLString name;
    std::vector<Swatch> swatches;
    int32_t ungrouped = 0;
  };

  VantorSwatchBook();

  using KeltoSwatchbook::AddColorValues;
  using KeltoSwatchbook::FindSwatchByName;
  using KeltoSwatchbook::GetColorValues;

  int32_t GetVersion() override { return -1; }
  void SetVersion(int32_t) override {}
  int32_t GetColorsPerPage() override { return -1; }
  void SetColorsPerPage(int32_t) override {}
  int32_t GetKeyColor() override { return -1; }
  void SetKeyColor(int32_t) override {}
  XMLString GetTitle() override { return XMLString(); }
  void SetTitle(const XMLString&) override {}
  int32_t GetBookID() override { return -1; }
  void SetBookID(int32_t) override {}
  XMLString GetCopyright() override { return XMLString(); }
  void SetCopyright(const XMLString&) override {}
  XMLString GetPrefix() override { return XMLString(); }
  void SetPrefix(const XMLString&) override {}
  XMLString GetPostfix() override { return XMLString(); }
  void SetPostfix(const XMLString&) override {}
  int32_t GetNumSwatches() override { return swatchCount_; }
  void Clear() override;
  void Compact() override {}

  int32_t CreateSwatchGroup() override;
  void CloseSwatchGroup() override {}
  int32_t CountSwatchGroups(int32_t& unused) override;
  int32_t SetActiveSwatchGroup(int32_t group) override;
  int32_t IsUngrouped(int32_t group) override;
  int32_t CountSwatchesInActiveGroup() override;
  int32_t SetSwatchGroupName(const XMLString& name) override;
  XMLString GetSwatchGroupName(uint32_t flags) override;
  XMLString GetSwatchName(int32_t swatch, uint32_t flags) override;
  XMLString GetSwatchCode(int32_t) override { return XMLString(); }
  SwatchType GetSwatchType(int32_t swatch) override;
  ColorSpace GetSwatchColorSpace(int32_t swatch) override;
  double GetSwatchTint(int32_t swatch, uint32_t& flag) override;
  int32_t GetColorValues(int32_t swatch, int32_t format, void* out) override;
  int32_t GetSwatchFormats(int32_t swatch, int32_t* out) override;

  int32_t AddSwatch(int32_t where) override;
  int32_t SetSwatchType(int32_t swatch, SwatchType type) override;
  int32_t SetSwatchName(int32_t swatch, const XMLString& name) override;
  int32_t SetSwatchCode(int32_t, const XMLString&) override { return 1; }
  int32_t SetSwatchTint(int32_t swatch, double tint) override;
  int32_t AddColorValues(int32_t swatch, int32_t format, const void* values) override;

 private:
  SwatchGroup* ActiveGroup();
  Swatch* ActiveSwatch(int32_t swatch);

  std::vector<SwatchGroup> groups_;
  int32_t activeGroup_ = -1;
  int32_t swatchCount_ = 0;
  int32_t formatGray_;
  int32_t formatRGB_;
  int32_t formatLAB_;
  int32_t formatCMYK_;
};
