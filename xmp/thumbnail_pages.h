// The swatch thumbnail pages: 31 x 31 colour chips with a black ring laid out
// group by group on white pages of at most 283 x 283 pixels, each page JPEG
// encoded by the system's own encoder.
#pragma once

#include <cstdint>
#include <stop_token>
#include <string>
#include <vector>

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

// The pages of one book in three steps, so that a second thread can encode
// them while the request thread writes the rest of the packet. Laying out
// reads the book (which moves its active group) and converts the colours
// through the host, so it belongs to the request thread, as does Write, which
// calls the toolkit. Encode works from the plain layout alone.
class ThumbnailPages {
 public:
  // Places a chip for every supported swatch of the book.
  explicit ThumbnailPages(KeltoSwatchbook& book);
  ~ThumbnailPages();
  ThumbnailPages(const ThumbnailPages&) = delete;
  ThumbnailPages& operator=(const ThumbnailPages&) = delete;

  // Draws, JPEG-encodes and base64-encodes every page. Touches nothing but
  // this object and the encoder's tables (read only, built beforehand by
  // ZJPEG::InitializeJPEGEncoder), so one other thread may run it. Returns
  // between pages once stop is requested, leaving pages not to be written.
  void Encode(std::stop_token stop = {});

  // Writes the encoded pages as xmp:PageInfo items of meta.
  void Write(xmptk::XMPMeta& meta) const;

  size_t PageCount() const;

 private:
  struct Page;
  std::vector<Page> pages_;
};
