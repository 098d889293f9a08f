// Colour converters: rows from a RowMemoryRequester to level-shifted 16-bit
// component samples with 8 fractional bits, laid out as 8×8 blocks.
#ifndef QL_JPEG_COLOR_CONVERTER_H
#define QL_JPEG_COLOR_CONVERTER_H

#include <cstdint>

#include "jpeg/zjpeg.h"

namespace ZJPEG {

// Component buffers hold one MCU row: for a component sampled H×V, V block
// rows of H·mcusAcross blocks, block after block, 64 row-major samples each.
class ColorConverter {
 public:
  virtual ~ColorConverter() = default;
  // Converts the MCU row starting at image row `firstRow` (the rows the
  // requester was just asked for), MCU columns firstMcu, firstMcu + mcuStride…
  virtual void ColorCovert(const RowMemoryRequester& rows, unsigned firstRow, unsigned firstMcu,
                           unsigned mcuStride, int16_t** buffers);

  void SetGeometry(uint16_t width, uint16_t height, uint32_t mcusAcross, int components,
                   const uint8_t* h, const uint8_t* v);

 protected:
  uint16_t height_ = 0, width_ = 0;
  uint32_t mcusAcross_ = 0;
  int components_ = 0;
  uint8_t h_[4] = {}, v_[4] = {};
  uint8_t hRatio_[4] = {}, vRatio_[4] = {};  // Hmax/H, Vmax/V
  uint8_t hMax_ = 1, vMax_ = 1;
};

class ColorConverterGrey : public ColorConverter {
 public:
  void ColorCovert(const RowMemoryRequester& rows, unsigned firstRow, unsigned firstMcu,
                   unsigned mcuStride, int16_t** buffers) override;
};

// Interleaved RGB: R, G, B order when `rgbOrder`, else B, G, R; with
// `extraByte` every pixel has a leading byte before its colour bytes.
class ColorConverterRGBInterleave : public ColorConverter {
 public:
  ColorConverterRGBInterleave(bool rgbOrder, bool extraByte);
  void ColorCovert(const RowMemoryRequester& rows, unsigned firstRow, unsigned firstMcu,
                   unsigned mcuStride, int16_t** buffers) override;

 private:
  void Covert1_1_1(const RowMemoryRequester& rows, unsigned firstRow, unsigned firstMcu,
                   unsigned mcuStride, int16_t** buffers) const;
  void CovertFloat(const RowMemoryRequester& rows, unsigned firstRow, unsigned firstMcu,
                   unsigned mcuStride, int16_t** buffers) const;

  unsigned step_;                // bytes per pixel
  unsigned rOff_, gOff_, bOff_;  // byte offsets inside a pixel
};

}  // namespace ZJPEG

#endif  // QL_JPEG_COLOR_CONVERTER_H
