// Our encoder on the plug-in's path against libjpeg-turbo set up as the fair
// peer (4:4:4, quality 100, fast integer DCT, optimised Huffman tables, a
// fresh compressor per image, output to memory). The machine's speed drifts,
// so every round times both encoders back to back and the counters report
// medians: megapixels per second of each and the median per-round ratio.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// jpeglib.h needs size_t and FILE declared first.
#include <jpeglib.h>

#include "jpeg/zjpeg.h"
#include "tests/support/jpeg_util.h"

namespace {

struct Image {
  int width, height;
  std::vector<uint8_t> rgb;
};

// White page of 31×31 chips with black rings, as the swatch thumbnails draw.
Image ChipPage() {
  Image img{283, 283, std::vector<uint8_t>(283 * 283 * 3, 0xFF)};
  int n = 0;
  for (int y = 0; y + 31 <= 283; y += 34) {
    for (int x = 0; x + 31 <= 283; x += 31, ++n) {
      const uint8_t colour[3] = {uint8_t(n * 37), uint8_t(255 - n * 11), uint8_t(n * 83)};
      for (int j = 0; j < 31; ++j) {
        for (int i = 0; i < 31; ++i) {
          uint8_t* p = &img.rgb[(size_t(y + j) * 283 + x + i) * 3];
          const bool ring = i == 0 || j == 0 || i == 30 || j == 30;
          for (int c = 0; c < 3; ++c) p[c] = ring ? 0 : colour[c];
        }
      }
    }
  }
  return img;
}

// Smooth gradients with ±16 levels of noise.
Image Noisy(int w, int h) {
  Image img{w, h, std::vector<uint8_t>(size_t(w) * h * 3)};
  uint32_t s = 12345;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      s = s * 1664525u + 1013904223u;
      const int n = int(s >> 27) - 16;
      const int base[3] = {x * 255 / w, y * 255 / h, (x ^ y) & 255};
      uint8_t* p = &img.rgb[(size_t(y) * w + x) * 3];
      for (int c = 0; c < 3; ++c) p[c] = uint8_t(std::clamp(base[c] + n, 0, 255));
    }
  }
  return img;
}

size_t EncodeOurs(const Image& img) {
  ZJPEG::EncoderDescription desc;
  desc.flags = 0x112;
  desc.PixmereQuality(12);
  ZJPEG::BufferRowMemoryRequester rows(img.rgb.data(), uint32_t(img.width) * 3,
                                       uint16_t(img.height));
  jpegtest::StringStream out;
  ZJPEG::JPEGEncoder(&rows, uint16_t(img.width), uint16_t(img.height))
      .EncodeImage(&out, desc, nullptr, 0, 4);
  out.DumpBuffer();
  return out.bytes.size();
}

size_t EncodePeer(const Image& img) {
  jpeg_compress_struct cinfo;
  jpeg_error_mgr err;
  cinfo.err = jpeg_std_error(&err);
  jpeg_create_compress(&cinfo);
  unsigned char* mem = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&cinfo, &mem, &size);
  cinfo.image_width = JDIMENSION(img.width);
  cinfo.image_height = JDIMENSION(img.height);
  cinfo.input_components = 3;
  cinfo.in_color_space = JCS_RGB;
  jpeg_set_defaults(&cinfo);
  jpeg_set_quality(&cinfo, 100, TRUE);
  for (int c = 0; c < 3; ++c)
    cinfo.comp_info[c].h_samp_factor = cinfo.comp_info[c].v_samp_factor = 1;
  cinfo.dct_method = JDCT_IFAST;
  cinfo.optimize_coding = TRUE;
  jpeg_start_compress(&cinfo, TRUE);
  while (cinfo.next_scanline < cinfo.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(&img.rgb[size_t(cinfo.next_scanline) * img.width * 3]);
    jpeg_write_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_compress(&cinfo);
  jpeg_destroy_compress(&cinfo);
  std::free(mem);
  return size;
}

double Seconds(size_t (*encode)(const Image&), const Image& img, size_t& bytes) {
  const auto t0 = std::chrono::steady_clock::now();
  bytes = encode(img);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

void Compare(benchmark::State& state, const Image& img) {
  ZJPEG::InitializeJPEGEncoder();
  std::vector<double> ours, peer, ratio;
  size_t oursBytes = 0, peerBytes = 0;
  for (auto _ : state) {
    // Alternate which encoder goes first so neither always inherits a warm cache.
    const bool oursFirst = ours.size() % 2 == 0;
    double a, b;
    if (oursFirst) {
      a = Seconds(EncodeOurs, img, oursBytes);
      b = Seconds(EncodePeer, img, peerBytes);
    } else {
      b = Seconds(EncodePeer, img, peerBytes);
      a = Seconds(EncodeOurs, img, oursBytes);
    }
    state.SetIterationTime(a);
    ours.push_back(a);
    peer.push_back(b);
    ratio.push_back(b / a);
  }
  const double mp = double(img.width) * img.height / 1e6;
  state.counters["ours_MPps"] = mp / Median(ours);
  state.counters["peer_MPps"] = mp / Median(peer);
  state.counters["ratio"] = Median(ratio);  // > 1: ours faster
  state.counters["ours_bytes"] = double(oursBytes);
  state.counters["peer_bytes"] = double(peerBytes);
}

void BM_ChipPage283(benchmark::State& state) {
  static const Image img = ChipPage();
  Compare(state, img);
}
void BM_Noisy283(benchmark::State& state) {
  static const Image img = Noisy(283, 283);
  Compare(state, img);
}
void BM_Noisy4096(benchmark::State& state) {
  static const Image img = Noisy(4096, 4096);
  Compare(state, img);
}

BENCHMARK(BM_ChipPage283)->UseManualTime()->Iterations(400)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Noisy283)->UseManualTime()->Iterations(200)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Noisy4096)->UseManualTime()->Iterations(9)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
