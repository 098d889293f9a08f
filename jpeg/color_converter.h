// Colour converters: rows from a RowMemoryRequester to level-shifted 16-bit
// component samples with 8 fractional bits, laid out as 8×8 blocks.
#ifndef QL_JPEG_COLOR_CONVERTER_H
#define QL_JPEG_COLOR_CONVERTER_H

#include <cstddef>
#include <cstdint>

#include "jpeg/zjpeg.h"

namespace ZJPEG {

// Component buffers hold one MCU row: for a component sampled H×V, V block
// rows of H·mcusAcross blocks, block after block, 64 row-major samples each.
//
// Every converter reads a source channel at `row + offset + x · step`:
// interleaved sources have one offset per channel inside a pixel and a step of
// the pixel size; planar sources (see RowMemoryRequester) have one plane of
// `width` bytes per channel, so the offset is plane index × width, step 1.
class ColorConverter {
 public:
  virtual ~ColorConverter() = default;
  // Converts the MCU row starting at image row `firstRow` (the rows the
  // requester was just asked for), MCU columns firstMcu, firstMcu + mcuStride…
  virtual void ColorConvert(const RowMemoryRequester& rows, unsigned firstRow, unsigned firstMcu,
                            unsigned mcuStride, int16_t** buffers);

  void SetGeometry(uint16_t width, uint16_t height, uint32_t mcusAcross, int components,
                   const uint8_t* h, const uint8_t* v);

  // Source channels the converter reads, component count it fills; 0 for the
  // plain base, which converts nothing.
  int Channels() const { return channels_; }

  // Full-resolution RGB runs the vector kernel on blocks wholly inside the
  // image when set; the samples are the same either way.
  void SetVectorPath(bool vector) { vector_ = vector; }

 protected:
  // `slots`: each channel's byte inside a pixel (interleaved) or its plane.
  void SetLayout(int channels, bool planar, unsigned pixelBytes, const unsigned* slots);

  // Fills component c's blocks of the MCU columns firstMcu, firstMcu +
  // mcuStride, … sample by sample. Each sample stands for a group of
  // Hmax/H × Vmax/V pixels (edge pixels repeated past the image):
  // out = sample(forEachPixel, groupSize), where forEachPixel(add) calls
  // add(pixel) with the first byte of every pixel of the group.
  template <class Sample>
  void FillGroupSamples(const RowMemoryRequester& rows, unsigned firstRow, unsigned firstMcu,
                        unsigned mcuStride, int c, int16_t* buffer, Sample sample) const;

  uint16_t height_ = 0, width_ = 0;
  uint32_t mcusAcross_ = 0;
  int components_ = 0;
  uint8_t h_[4] = {}, v_[4] = {};
  uint8_t hRatio_[4] = {}, vRatio_[4] = {};  // Hmax/H, Vmax/V
  uint8_t hMax_ = 1, vMax_ = 1;
  int channels_ = 0;
  bool planar_ = false;
  unsigned step_ = 1;
  unsigned slot_[4] = {};
  size_t offset_[4] = {};  // from slot_, once the width is known
  bool vector_ = false;
};

// Channels copied to components without colour transform: the sample is the
// byte × 256 − 32768, a subsampled component takes the mean of its H×V group
// (integer division).
class ColorConverterCopy : public ColorConverter {
 public:
  void ColorConvert(const RowMemoryRequester& rows, unsigned firstRow, unsigned firstMcu,
                    unsigned mcuStride, int16_t** buffers) override;
};

class ColorConverterGrey : public ColorConverterCopy {
 public:
  ColorConverterGrey();
};

// Planar cyan, magenta, yellow and black.
class ColorConverterCMYK : public ColorConverterCopy {
 public:
  ColorConverterCMYK();
};

// Interleaved CMYK: C, M, Y, K order when `cmykOrder` (flag 0x040), else the
// reverse, K, Y, M, C (flag 0x080), as B, G, R reverses R, G, B.
class ColorConverterCMYKInterleave : public ColorConverterCopy {
 public:
  explicit ColorConverterCMYKInterleave(bool cmykOrder);
};

// RGB to YCbCr: integer tables when every component is 1×1
// (ColorConvert1_1_1), floating point over averaged groups otherwise
// (ColorConvertFloat).
class ColorConverterYCbCr : public ColorConverter {
 public:
  void ColorConvert(const RowMemoryRequester& rows, unsigned firstRow, unsigned firstMcu,
                    unsigned mcuStride, int16_t** buffers) override;

 private:
  void ColorConvert1_1_1(const RowMemoryRequester& rows, unsigned firstRow, unsigned firstMcu,
                         unsigned mcuStride, int16_t** buffers) const;
  void ColorConvertFloat(const RowMemoryRequester& rows, unsigned firstRow, unsigned firstMcu,
                         unsigned mcuStride, int16_t** buffers) const;
};

// Interleaved RGB: R, G, B order when `rgbOrder`, else B, G, R; with
// `extraByte` every pixel has a leading byte before its colour bytes.
class ColorConverterRGBInterleave : public ColorConverterYCbCr {
 public:
  ColorConverterRGBInterleave(bool rgbOrder, bool extraByte);
};

// Planar R, G, B; with `extraByte` a plane of ignored bytes precedes them,
// the planar form of the leading extra byte.
class ColorConverterRGB : public ColorConverterYCbCr {
 public:
  explicit ColorConverterRGB(bool extraByte);
};

}  // namespace ZJPEG

#endif  // QL_JPEG_COLOR_CONVERTER_H
