#include "tools/doseps/doseps_writer.h"

#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace doseps {
namespace {

// libtiff writes through these procedures into a growing string.
struct Sink {
  std::string bytes;
  uint64_t pos = 0;
};

tmsize_t Read(thandle_t h, void* buf, tmsize_t size) {
  auto* s = static_cast<Sink*>(h);
  uint64_t n =
      s->pos < s->bytes.size() ? std::min<uint64_t>(uint64_t(size), s->bytes.size() - s->pos) : 0;
  std::memcpy(buf, s->bytes.data() + s->pos, n);
  s->pos += n;
  return tmsize_t(n);
}

tmsize_t Write(thandle_t h, void* buf, tmsize_t size) {
  auto* s = static_cast<Sink*>(h);
  if (s->bytes.size() < s->pos + uint64_t(size)) s->bytes.resize(s->pos + uint64_t(size));
  std::memcpy(s->bytes.data() + s->pos, buf, size_t(size));
  s->pos += uint64_t(size);
  return size;
}

toff_t Seek(thandle_t h, toff_t off, int whence) {
  auto* s = static_cast<Sink*>(h);
  s->pos = (whence == SEEK_CUR ? s->pos : whence == SEEK_END ? s->bytes.size() : 0) + off;
  return s->pos;
}

int Close(thandle_t) {
  return 0;
}
toff_t Size(thandle_t h) {
  return static_cast<Sink*>(h)->bytes.size();
}
int Map(thandle_t, void**, toff_t*) {
  return 0;
}
void Unmap(thandle_t, void*, toff_t) {}

void Put32(std::string* s, uint32_t v) {
  for (int k = 0; k < 4; ++k) s->push_back(char(v >> (8 * k)));
}

}  // namespace

std::string Tiff(const pxhost::RgbImage& image, bool grey, uint16_t compression) {
  Sink sink;
  TIFF* t = TIFFClientOpen("preview", "wm", &sink, Read, Write, Seek, Close, Size, Map, Unmap);
  if (t == nullptr) throw std::runtime_error("libtiff cannot write");
  const int samples = grey ? 1 : 3;
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(image.width));
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(image.height));
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, samples);
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, grey ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
  TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 16);
  std::string row(size_t(image.width) * samples, '\0');
  for (int32_t y = 0; y < image.height; ++y) {
    const uint8_t* in = image.pixels.data() + size_t(y) * size_t(image.width) * 3;
    for (int32_t x = 0; x < image.width; ++x)
      for (int c = 0; c < samples; ++c)
        row[size_t(x * samples + c)] = char(in[x * 3 + (grey ? 1 : c)]);
    if (TIFFWriteScanline(t, row.data(), uint32_t(y), 0) != 1) {
      TIFFClose(t);
      throw std::runtime_error("libtiff cannot write a row");
    }
  }
  TIFFClose(t);
  return sink.bytes;
}

std::string DosEps(const std::string& postscript, const std::string& tiff, const std::string& wmf) {
  constexpr uint32_t kHeader = 30;
  uint32_t psOffset = kHeader;
  uint32_t wmfOffset = wmf.empty() ? 0 : psOffset + uint32_t(postscript.size());
  uint32_t tiffOffset = tiff.empty() ? 0 : psOffset + uint32_t(postscript.size() + wmf.size());
  std::string out = "\xC5\xD0\xD3\xC6";
  for (uint32_t v : {psOffset, uint32_t(postscript.size()), wmfOffset, uint32_t(wmf.size()),
                     tiffOffset, uint32_t(tiff.size())})
    Put32(&out, v);
  out += "\xFF\xFF";  // no checksum, as the writers in the wild leave it
  return out + postscript + wmf + tiff;
}

}  // namespace doseps
