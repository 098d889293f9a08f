// RGB to level-shifted YCbCr samples; grey and CMYK copied level-shifted.
//
// Full-resolution colour uses the integer tables (JFIF weights × 256, so every
// sample keeps 8 fractional bits without rounding): Y = 77R + 150G + 29B −
// 32768, Cb = −43R − 85G + 128B, Cr = 128R − 107G − 21B. When a component is
// subsampled, each H×V group of pixels is averaged per channel with integer
// division and converted in floating point (L = 0.299R + 0.587G + 0.114B +
// 0.5; Cb = (B − L) / 1.772 and Cr = (R − L) / 1.402, rounded to whole levels).
// Pixels past the right or bottom edge are those of the last column or row, so
// partial blocks are padded by replication.
#include "jpeg/color_converter.h"

#include <algorithm>
#include <cmath>

#include "jpeg/tables.h"
#include "jpeg/vector.h"

namespace ZJPEG {

namespace {

constexpr int32_t kLevelShift = 128 * 256;  // 32768

// Sample rows of one MCU row are clipped to the last image row.
inline const uint8_t* RowPointer(const RowMemoryRequester& rows, unsigned firstRow,
                                 unsigned imageRow, unsigned height) {
  const unsigned clipped = std::min(imageRow, height - 1);
  return rows.red + size_t{clipped - firstRow} * rows.rowStride;
}

// Start of block (blockRow, blockColumn) in a component buffer.
inline int16_t* BlockAt(int16_t* buffer, uint32_t blocksAcross, unsigned blockRow,
                        unsigned blockColumn) {
  return buffer + (size_t{blockRow} * blocksAcross + blockColumn) * 64;
}

}  // namespace

void ColorConverter::SetGeometry(uint16_t width, uint16_t height, uint32_t mcusAcross,
                                 int components, const uint8_t* h, const uint8_t* v) {
  width_ = width;
  height_ = height;
  mcusAcross_ = mcusAcross;
  components_ = components;
  hMax_ = vMax_ = 1;
  for (int c = 0; c < components; ++c) {
    h_[c] = h[c];
    v_[c] = v[c];
    hMax_ = std::max(hMax_, h[c]);
    vMax_ = std::max(vMax_, v[c]);
  }
  for (int c = 0; c < components; ++c) {
    hRatio_[c] = static_cast<uint8_t>(hMax_ / h_[c]);
    vRatio_[c] = static_cast<uint8_t>(vMax_ / v_[c]);
  }
  for (int c = 0; c < channels_; ++c) offset_[c] = planar_ ? size_t{slot_[c]} * width_ : slot_[c];
}

void ColorConverter::SetLayout(int channels, bool planar, unsigned pixelBytes,
                               const unsigned* slots) {
  channels_ = channels;
  planar_ = planar;
  step_ = planar ? 1 : pixelBytes;
  std::copy_n(slots, channels, slot_);
}

// The plain converter leaves the buffers as they are; the encoder refuses
// descriptions that would reach it.
void ColorConverter::ColorConvert(const RowMemoryRequester&, unsigned, unsigned, unsigned,
                                  int16_t**) {}

template <class Sample>
void ColorConverter::FillGroupSamples(const RowMemoryRequester& rows, unsigned firstRow,
                                      unsigned firstMcu, unsigned mcuStride, int c, int16_t* buffer,
                                      Sample sample) const {
  const unsigned h = h_[c], v = v_[c], rh = hRatio_[c], rv = vRatio_[c];
  const uint32_t blocksAcross = mcusAcross_ * h;
  const unsigned group = rh * rv;
  for (unsigned mcu = firstMcu; mcu < mcusAcross_; mcu += mcuStride) {
    for (unsigned by = 0; by < v; ++by) {
      for (unsigned bx = 0; bx < h; ++bx) {
        const unsigned blockColumn = mcu * h + bx;
        int16_t* out = BlockAt(buffer, blocksAcross, by, blockColumn);
        for (unsigned i = 0; i < 8; ++i) {
          const unsigned sampleRow = by * 8 + i;
          for (unsigned j = 0; j < 8; ++j) {
            const unsigned sampleColumn = blockColumn * 8 + j;
            auto forEachPixel = [&](auto add) {
              for (unsigned gy = 0; gy < rv; ++gy) {
                const uint8_t* row =
                    RowPointer(rows, firstRow, firstRow + sampleRow * rv + gy, height_);
                for (unsigned gx = 0; gx < rh; ++gx)
                  add(row +
                      size_t{std::min<unsigned>(sampleColumn * rh + gx, width_ - 1u)} * step_);
              }
            };
            out[i * 8 + j] = sample(forEachPixel, group);
          }
        }
      }
    }
  }
}

void ColorConverterCopy::ColorConvert(const RowMemoryRequester& rows, unsigned firstRow,
                                      unsigned firstMcu, unsigned mcuStride, int16_t** buffers) {
  for (int c = 0; c < std::min(channels_, components_); ++c) {
    const size_t offset = offset_[c];
    FillGroupSamples(
        rows, firstRow, firstMcu, mcuStride, c, buffers[c],
        [offset](auto forEachPixel, unsigned group) {
          unsigned sum = 0;
          forEachPixel([&](const uint8_t* p) { sum += p[offset]; });
          return static_cast<int16_t>(static_cast<int32_t>(sum / group) * 256 - kLevelShift);
        });
  }
}

ColorConverterGrey::ColorConverterGrey() {
  constexpr unsigned kSlots[1] = {0};
  SetLayout(1, false, 1, kSlots);
}

ColorConverterCMYK::ColorConverterCMYK() {
  constexpr unsigned kPlanes[4] = {0, 1, 2, 3};
  SetLayout(4, true, 1, kPlanes);
}

ColorConverterCMYKInterleave::ColorConverterCMYKInterleave(bool cmykOrder) {
  constexpr unsigned kForward[4] = {0, 1, 2, 3}, kReverse[4] = {3, 2, 1, 0};
  SetLayout(4, false, 4, cmykOrder ? kForward : kReverse);
}

ColorConverterRGBInterleave::ColorConverterRGBInterleave(bool rgbOrder, bool extraByte) {
  const unsigned lead = extraByte ? 1 : 0;
  const unsigned slots[3] = {(rgbOrder ? 0u : 2u) + lead, 1 + lead, (rgbOrder ? 2u : 0u) + lead};
  SetLayout(3, false, 3 + lead, slots);
}

ColorConverterRGB::ColorConverterRGB(bool extraByte) {
  const unsigned lead = extraByte ? 1 : 0;
  const unsigned planes[3] = {lead, 1 + lead, 2 + lead};
  SetLayout(3, true, 1, planes);
}

void ColorConverterYCbCr::ColorConvert(const RowMemoryRequester& rows, unsigned firstRow,
                                       unsigned firstMcu, unsigned mcuStride, int16_t** buffers) {
  bool full = components_ == 3;
  for (int c = 0; c < components_; ++c) full = full && h_[c] == 1 && v_[c] == 1;
  if (full) {
    ColorConvert1_1_1(rows, firstRow, firstMcu, mcuStride, buffers);
  } else if (components_ == 3) {
    ColorConvertFloat(rows, firstRow, firstMcu, mcuStride, buffers);
  }
}

void ColorConverterYCbCr::ColorConvert1_1_1(const RowMemoryRequester& rows, unsigned firstRow,
                                            unsigned firstMcu, unsigned mcuStride,
                                            int16_t** buffers) const {
  const ColorTables& t = gColorTables;
  // MCUs wholly inside the image, from the first on the stride, go to the
  // vector kernel; the scalar loop takes the rest, edge included.
  unsigned scalarFrom = firstMcu;
  if (vector_ && firstMcu < width_ / 8u) {
    const unsigned whole = width_ / 8u;
    scalarFrom = firstMcu + (whole - firstMcu + mcuStride - 1) / mcuStride * mcuStride;
  }
  for (unsigned i = 0; i < 8; ++i) {
    const uint8_t* row = RowPointer(rows, firstRow, firstRow + i, height_);
    if (scalarFrom != firstMcu)
      ConvertRowYCbCrVector(row, offset_, step_, firstMcu, scalarFrom, mcuStride, i, buffers);
    for (unsigned mcu = scalarFrom; mcu < mcusAcross_; mcu += mcuStride) {
      int16_t* y = buffers[0] + size_t{mcu} * 64 + i * 8;
      int16_t* cb = buffers[1] + size_t{mcu} * 64 + i * 8;
      int16_t* cr = buffers[2] + size_t{mcu} * 64 + i * 8;
      const unsigned x0 = mcu * 8;
      // Columns inside the image; the rest of the block repeats the last one.
      const unsigned inside = x0 + 8 <= width_ ? 8 : width_ - x0;
      const uint8_t* p = row + size_t{x0} * step_;
      const uint8_t* const rp = p + offset_[0];
      const uint8_t* const gp = p + offset_[1];
      const uint8_t* const bp = p + offset_[2];
      for (unsigned j = 0; j < inside; ++j) {
        const size_t at = size_t{j} * step_;
        const uint8_t r = rp[at], g = gp[at], b = bp[at];
        y[j] = static_cast<int16_t>(t.ry[r] + t.gy[g] + t.by[b] - kLevelShift);
        cb[j] = static_cast<int16_t>(t.rcb[r] + t.gcb[g] + t.bcb[b]);
        cr[j] = static_cast<int16_t>(t.rcr[r] + t.gcr[g] + t.bcr[b]);
      }
      for (unsigned j = inside; j < 8; ++j) {
        y[j] = y[inside - 1];
        cb[j] = cb[inside - 1];
        cr[j] = cr[inside - 1];
      }
    }
  }
}

void ColorConverterYCbCr::ColorConvertFloat(const RowMemoryRequester& rows, unsigned firstRow,
                                            unsigned firstMcu, unsigned mcuStride,
                                            int16_t** buffers) const {
  for (int c = 0; c < 3; ++c) {
    FillGroupSamples(rows, firstRow, firstMcu, mcuStride, c, buffers[c],
                     [this, c](auto forEachPixel, unsigned group) {
                       unsigned sr = 0, sg = 0, sb = 0;
                       forEachPixel([&](const uint8_t* p) {
                         sr += p[offset_[0]];
                         sg += p[offset_[1]];
                         sb += p[offset_[2]];
                       });
                       const float r = static_cast<float>(sr / group),
                                   g = static_cast<float>(sg / group),
                                   b = static_cast<float>(sb / group);
                       const float l = 0.299f * r + 0.587f * g + 0.114f * b + 0.5f;
                       int32_t sample;
                       if (c == 0) {
                         sample = static_cast<int32_t>(l * 256.0f) - kLevelShift;
                       } else if (c == 1) {
                         sample = static_cast<int32_t>(std::lround((b - l) / 1.772f)) * 256;
                       } else {
                         sample = static_cast<int32_t>(std::lround((r - l) / 1.402f)) * 256;
                       }
                       return static_cast<int16_t>(sample);
                     });
  }
}

}  // namespace ZJPEG
