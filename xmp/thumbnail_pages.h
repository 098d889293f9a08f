// The swatch thumbnail pages: 31 x 31 colour chips with a black ring laid out
// group by group on white pages of at most 283 x 283 pixels, each page JPEG
// encoded by the system's own encoder.
#pragma once

#include <cstdint>
#include <string>

#include "jpeg/zjpeg.h"

class KeltoSwatchbook;

namespace xmptk {
class XMPMeta;
}

inline constexpr int32_t kPageSide = 283;
inline constexpr int32_t kPagePitch = kPageSide * 3;  // 849 bytes a row
inline constexpr int32_t kChipSide = 31;

// Collects the encoder's output in a string.
class PJPEGOutputStream : public ZJPEG::JPEGOutputStream {
 public:
  PJPEGOutputStream() = default;
  ~PJPEGOutputStream() override;
  void DumpBuffer() override;
  void DumpBytes(void* bytes, unsigned int count) override;
  std::string& Bytes() { return bytes_; }

 private:
  std::string bytes_;
};

// Feeds the page raster to the encoder. The pitch stays 849 whatever width is
// encoded, which is how a narrower page is cut from the 283-wide raster.
class ImageRowMemoryRequester : public ZJPEG::RowMemoryRequester {
 public:
  explicit ImageRowMemoryRequester(unsigned char* rgb);
  int Request() override;

 private:
  unsigned char* rgb_;
};

// Encodes the top-left width x height pixels of the 283-wide raster.
void Convert2JPEG(unsigned char* rgb, std::string& jpeg, unsigned short width,
                  unsigned short height);

// Draws every supported swatch of the book as chips and writes the pages as
// xmp:PageInfo items of meta.
void WriteThumbnailPages(KeltoSwatchbook& book, xmptk::XMPMeta& meta);
