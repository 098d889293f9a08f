// Constant and start-up tables shared by the encoder stages.
#ifndef QL_JPEG_TABLES_H
#define QL_JPEG_TABLES_H

#include <cstdint>

namespace ZJPEG {

// Natural (row-major) position of each zigzag index.
extern const uint8_t kZigzag[64];

// Quantisation rows by PixmereQuality 0..12, natural order.
struct QualityRows {
  uint16_t rows[13][64];
};
extern const QualityRows kLuminanceQPS;
extern const QualityRows kChrominanceQPS;
// Annex K example tables, natural order.
extern const uint16_t (&kAnnexKLuminance)[64];
extern const uint16_t (&kAnnexKChrominance)[64];
// Nonzero where the quality subsamples chroma 4:2:0.
extern const uint8_t k2to1s[13];

// Weights of the integer colour path, × 256 so that every sample keeps 8
// fractional bits exactly: Y = 0.299 R + 0.587 G + 0.114 B, Cb = 0.5 B −
// 0.1687 R − 0.3313 G, Cr = 0.5 R − 0.4187 G − 0.0813 B. The tables below and
// the vector conversion both use them.
inline constexpr int32_t kRY = 77, kGY = 150, kBY = 29;
inline constexpr int32_t kRCb = -43, kGCb = -85, kBCb = 128;
inline constexpr int32_t kRCr = 128, kGCr = -107, kBCr = -21;

// Integer colour tables, i × factor for i = 0..255, filled by
// InitializeJPEGEncoder() (and by static initialisation).
struct ColorTables {
  int32_t ry[256], gy[256], by[256];
  int32_t rcb[256], gcb[256], bcb[256];
  int32_t rcr[256], gcr[256], bcr[256];
};
extern ColorTables gColorTables;

}  // namespace ZJPEG

#endif  // QL_JPEG_TABLES_H
