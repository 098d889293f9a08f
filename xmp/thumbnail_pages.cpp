// Swatch thumbnail pages.
//
// Layout: chips of one group touch side by side; a row that would pass the
// right edge starts again at the left, 31 pixels lower for the ungrouped list
// and 34 for a real group; groups are separated by a 3-pixel gap (34 = 31 +
// 3); a chip that would pass the bottom closes the page at 283 x 283 and
// starts the next at the top left. The last page is cut to what it uses.
//
// Colour: RGB chips blend toward white with the tint; gray, Lab and CMYK go
// through the host's colour engine to display RGB and darken toward black
// with the tint. On a little-endian machine red and blue of every chip pixel
// are exchanged; both asymmetries are part of how the pages have always
// looked and are kept.
#include "xmp/thumbnail_pages.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

#include "common/invariant.h"
#include "swatchbook/kelto_swatchbook.h"
#include "xmp/display_colour.h"
#include "xmp/page_internals.h"
#include "xmp/toolkit.h"

namespace {

constexpr int32_t kGroupGap = 34;  // one chip plus 3 pixels
constexpr int32_t kRowGapGrouped = 3;
constexpr uint32_t kFlagsRGBInterleavedBaseline = ZJPEG::EncoderDescription::kDescBaseline |
                                                  ZJPEG::EncoderDescription::kDescInterleaved |
                                                  ZJPEG::EncoderDescription::kDescRGB;
constexpr int kBestQuality = 12;

// A channel value as the page keeps it: the low 8 bits of the value
// truncated to an integer. The truncation goes through 64 bits so that a
// value out of the 16-bit range (a corrupt tint) keeps its low bits instead
// of overflowing; only NaN and values beyond any integer give 0.
uint8_t ChannelByte(double v) {
  if (!(std::fabs(v) < 9.0e18)) return 0;
  return uint8_t(int64_t(v));
}

}  // namespace

namespace xmppages {

ChipRgb ChipColour(KeltoSwatchbook::ColorSpace space, const double* v, double tint) {
  double k = 1.0 - tint;
  if (space == KeltoSwatchbook::kColorSpaceRGB) {
    auto blend = [&](double value) {
      double c = std::trunc(value * 255.0);
      return ChannelByte(k * (c - 255.0) + 255.0);
    };
    return {blend(v[0]), blend(v[1]), blend(v[2])};
  }
  float out[3] = {0, 0, 0};
  DisplayColour(space, v, out);
  return {ChannelByte(k * out[0] * 255.0), ChannelByte(k * out[1] * 255.0),
          ChannelByte(k * out[2] * 255.0)};
}

// A chip placed past x = 252 runs over the row's end into the start of the
// next raster row, as the layout has always drawn it. It stays inside the
// raster: x is at most 283 and y, a sum of 31s and 34s below 253, at most
// 251, so the furthest pixel written is row 282, column 30.
void DrawChip(unsigned char* raster, int32_t x, int32_t y, ChipRgb colour) {
  QL_ASSERT(x >= 0 && x <= kPageSide && y >= 0 && y + kChipSide <= kPageSide);
  ChipRgb stored =
      std::endian::native == std::endian::little ? ChipRgb{colour.b, colour.g, colour.r} : colour;
  for (int32_t row = 0; row < kChipSide; ++row) {
    unsigned char* p = raster + size_t(y + row) * kPagePitch + size_t(x) * 3;
    for (int32_t col = 0; col < kChipSide; ++col, p += 3) {
      bool ring = row == 0 || col == 0 || row == kChipSide - 1 || col == kChipSide - 1;
      ChipRgb c = ring ? ChipRgb{0, 0, 0} : stored;
      p[0] = c.r;
      p[1] = c.g;
      p[2] = c.b;
    }
  }
}

}  // namespace xmppages

namespace {

bool Supported(KeltoSwatchbook::ColorSpace space) {
  return space == KeltoSwatchbook::kColorSpaceGray || space == KeltoSwatchbook::kColorSpaceRGB ||
         space == KeltoSwatchbook::kColorSpaceCMYK || space == KeltoSwatchbook::kColorSpaceLAB;
}

}  // namespace

PJPEGOutputStream::~PJPEGOutputStream() {
  DumpBuffer();
}

void PJPEGOutputStream::DumpBuffer() {
  if (count == 0) return;
  bytes_.append(reinterpret_cast<const char*>(buffer), count);
  count = 0;
}

void PJPEGOutputStream::DumpBytes(void* bytes, unsigned int n) {
  if (n > 0) bytes_.append(static_cast<const char*>(bytes), n);
}

ImageRowMemoryRequester::ImageRowMemoryRequester(unsigned char* rgb) : rgb_(rgb) {}

int ImageRowMemoryRequester::Request() {
  unsigned char* first = rgb_ + size_t(firstRowWanted) * kPagePitch;
  rowStride = kPagePitch;
  red = first;
  green = first + 1;
  blue = first + 2;
  return 1;
}

void Convert2JPEG(unsigned char* rgb, std::string& jpeg, unsigned short width,
                  unsigned short height) {
  jpeg.clear();
  ZJPEG::EncoderDescription description;
  description.flags = kFlagsRGBInterleavedBaseline;
  description.PixmereQuality(kBestQuality);
  ImageRowMemoryRequester requester(rgb);
  PJPEGOutputStream stream;
  {
    ZJPEG::JPEGEncoder encoder(&requester, width, height);
    encoder.EncodeImage(&stream, description, nullptr, 0, ZJPEG::JPEGEncoder::kTables8Bit);
  }
  stream.DumpBuffer();
  jpeg = stream.Bytes();
}

struct ThumbnailPages::Page {
  struct Chip {
    int32_t x, y;
    xmppages::ChipRgb colour;
  };
  int32_t width = kPageSide, height = kPageSide;
  std::vector<Chip> chips;
  std::string base64;  // the JPEG, once encoded
};

ThumbnailPages::ThumbnailPages(KeltoSwatchbook& book) {
  pages_.emplace_back();
  int32_t x = 0, y = 0;
  int32_t unused = 0;
  int32_t groups = book.CountSwatchGroups(unused);
  for (int32_t g = 0; g < groups; ++g) {
    book.SetActiveSwatchGroup(g);
    bool ungrouped = book.IsUngrouped(g) != 0;
    int32_t swatches = book.CountSwatchesInActiveGroup();
    for (int32_t s = 0; s < swatches; ++s) {
      int32_t format = book.GetBestFormat(s, book.GetSwatchColorSpace(s));
      KeltoSwatchbook::ColorSpace space = book.GetFormatColorSpace(format);
      if (!Supported(space)) continue;
      if (y + kChipSide > kPageSide) {
        pages_.emplace_back();
        x = y = 0;
      }
      double values[4] = {0, 0, 0, 0};
      book.GetColorValues(s, format, values);
      uint32_t flag = 0;
      pages_.back().chips.push_back(
          {x, y, xmppages::ChipColour(space, values, book.GetSwatchTint(s, flag))});
      if (s != swatches - 1) {
        x += kChipSide;
        if (x + kChipSide > kPageSide) {
          x = 0;
          y += kChipSide + (ungrouped ? 0 : kRowGapGrouped);
        }
      }
    }
    if (swatches >= 1 && g != groups - 1) {
      if (x + kGroupGap <= kPageSide) {
        x += kGroupGap;
      } else {
        x = 0;
        y += kGroupGap;
      }
    }
  }
  Page& last = pages_.back();
  last.height = y + kChipSide;
  if (last.height > kPageSide) {
    last.height = kPageSide;
  } else if (y == 0) {
    last.width = std::min(x + kChipSide, kPageSide);
  }
}

ThumbnailPages::~ThumbnailPages() = default;

void ThumbnailPages::Encode(std::stop_token stop) {
  std::vector<unsigned char> raster(size_t(kPagePitch) * kPageSide);
  std::string jpeg;
  for (Page& page : pages_) {
    if (stop.stop_requested()) return;
    std::memset(raster.data(), 0xFF, raster.size());
    for (const Page::Chip& chip : page.chips)
      xmppages::DrawChip(raster.data(), chip.x, chip.y, chip.colour);
    Convert2JPEG(raster.data(), jpeg, uint16_t(page.width), uint16_t(page.height));
    xmptk::XMPUtils::EncodeToBase64(jpeg.data(), uint32_t(jpeg.size()), &page.base64);
  }
}

size_t ThumbnailPages::PageCount() const {
  return pages_.size();
}

// Page n is xmp:PageInfo[n]. Only the first item is appended; writing the
// fields of item n, one past the last, adds it.
void ThumbnailPages::Write(xmptk::XMPMeta& meta) const {
  const char* xmpNS = xmptk::NamespaceURI("xmp");
  const char* tpgNS = xmptk::NamespaceURI("xmpTPg");
  const char* imgNS = xmptk::NamespaceURI("xmpGImg");
  meta.AppendArrayItem(xmpNS, "PageInfo", xmptk::kXMP_PropArrayIsOrdered, nullptr,
                       xmptk::kXMP_PropValueIsStruct);
  int32_t n = 1;
  for (const Page& page : pages_) {
    std::string item;
    xmptk::XMPUtils::ComposeArrayItemPath(xmpNS, "PageInfo", n, &item);
    auto field = [&](const char* ns, const char* name) {
      std::string path;
      xmptk::XMPUtils::ComposeStructFieldPath(xmpNS, item.c_str(), ns, name, &path);
      return path;
    };
    meta.SetProperty_Int(xmpNS, field(tpgNS, "PageNumber").c_str(), n);
    meta.SetProperty_Int(xmpNS, field(imgNS, "width").c_str(), page.width);
    meta.SetProperty_Int(xmpNS, field(imgNS, "height").c_str(), page.height);
    meta.SetProperty(xmpNS, field(imgNS, "format").c_str(), "JPEG");
    meta.SetProperty(xmpNS, field(imgNS, "image").c_str(), page.base64.c_str());
    ++n;
  }
}
