// Our encoder on the plug-in's path against libjpeg-turbo in two set-ups: the
// fair peer (4:4:4, quality 100, fast integer DCT, optimised Huffman tables)
// and its fastest configuration (accurate integer DCT, standard tables, one
// pass); a fresh compressor per image, output to memory. The machine's speed
// drifts, so every round times the three back to back in rotating order and
// the counters report medians: megapixels per second of each and the median
// per-round ratios.
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

// libjpeg-turbo at 4:4:4, quality 100, with its SIMD: `optimize` selects
// two-pass optimised tables with the fast DCT (the fair peer: tables made for
// the image, as ours are), otherwise its fastest configuration, the accurate
// integer DCT with the standard tables in one pass.
size_t EncodePeerWith(const Image& img, bool optimize) {
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
  cinfo.dct_method = optimize ? JDCT_IFAST : JDCT_ISLOW;
  cinfo.optimize_coding = optimize ? TRUE : FALSE;
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

size_t EncodePeerOptimised(const Image& img) {
  return EncodePeerWith(img, true);
}
size_t EncodePeerFastest(const Image& img) {
  return EncodePeerWith(img, false);
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
  using Encode = size_t (*)(const Image&);
  const Encode encoders[3] = {EncodeOurs, EncodePeerOptimised, EncodePeerFastest};
  std::vector<double> times[3], ratioOptimised, ratioFastest;
  size_t bytes[3] = {};
  for (auto _ : state) {
    // Rotate the order each round so no encoder always inherits a warm cache.
    double t[3];
    for (size_t k = 0; k < 3; ++k) {
      const size_t e = (ratioFastest.size() + k) % 3;
      t[e] = Seconds(encoders[e], img, bytes[e]);
    }
    state.SetIterationTime(t[0]);
    for (size_t e = 0; e < 3; ++e) times[e].push_back(t[e]);
    ratioOptimised.push_back(t[1] / t[0]);
    ratioFastest.push_back(t[2] / t[0]);
  }
  const double mp = double(img.width) * img.height / 1e6;
  state.counters["ours_MPps"] = mp / Median(times[0]);
  state.counters["opt_MPps"] = mp / Median(times[1]);
  state.counters["fast_MPps"] = mp / Median(times[2]);
  state.counters["ratio_opt"] = Median(ratioOptimised);  // > 1: ours faster
  state.counters["ratio_fast"] = Median(ratioFastest);
  state.counters["ours_bytes"] = double(bytes[0]);
  state.counters["opt_bytes"] = double(bytes[1]);
  state.counters["fast_bytes"] = double(bytes[2]);
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
