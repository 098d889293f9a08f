// Our encoder on the plug-in's path against libjpeg-turbo in two set-ups: the
// fair peer (4:4:4, quality 100, fast integer DCT, optimised Huffman tables)
// and its fastest configuration (accurate integer DCT, standard tables, one
// pass); a fresh compressor per image, output to memory. The machine's speed
// drifts, so every round times the three back to back in rotating order and
// the counters report medians: megapixels per second of each and the median
// per-round ratios. Ours runs its default path (the vector one where the
// processor has a vector unit; ZJPEG_SCALAR=1 for the scalar one).
//
// BM_Stages_* replay the plug-in's two passes stage by stage on the scalar
// and on the vector path and report each stage's share of their sum:
// conversion, transform with quantisation, statistics (counting and table
// generation), entropy coding, and output (handing full buffers to the sink).
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

#include "jpeg/color_converter.h"
#include "jpeg/dct.h"
#include "jpeg/huffman.h"
#include "jpeg/vector.h"
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

// Output to a string, timing the hand-over of each full buffer.
class TimedStream : public jpegtest::StringStream {
 public:
  void DumpBuffer() override {
    const auto t0 = std::chrono::steady_clock::now();
    StringStream::DumpBuffer();
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  }
  double seconds = 0;
};

enum Stage { kConvert, kTransform, kStatistics, kEntropy, kOutput, kStages };

// The plug-in's path (flags 0x112, quality 12: three 1×1 components, the
// sampled statistics pass over every 10th MCU, then the coding pass), the
// stages timed apart over each MCU row.
void TimeStages(const Image& img, bool vector, double (&seconds)[kStages], size_t& bytes) {
  using Clock = std::chrono::steady_clock;
  ZJPEG::EncoderDescription desc;
  desc.flags = 0x112;
  desc.PixmereQuality(12);
  const uint32_t mcus = uint32_t(img.width + 7) / 8;
  const uint8_t ones[3] = {1, 1, 1};
  ZJPEG::ColorConverterRGBInterleave converter(true, false);
  converter.SetGeometry(uint16_t(img.width), uint16_t(img.height), mcus, 3, ones, ones);
  converter.SetVectorPath(vector);
  std::vector<int16_t> samples[3];
  int16_t* buffers[3];
  for (int c = 0; c < 3; ++c) {
    samples[c].resize(size_t(mcus) * 64 + 32);
    buffers[c] = samples[c].data();
  }
  ZJPEG::QuantSlot slots[2];
  for (int t = 0; t < 2; ++t) ZJPEG::PrepareQuantSlot(slots[t], desc.quantTables[t]);
  ZJPEG::FrameHuffman dc[2], ac[2];
  ZJPEG::BufferRowMemoryRequester rows(img.rgb.data(), uint32_t(img.width) * 3,
                                       uint16_t(img.height));
  TimedStream out;
  ZJPEG::BitPacker bits(&out, vector);
  std::vector<ZJPEG::CodedBlock> coded(size_t(mcus) * 3);
  int32_t work[64];
  for (double& s : seconds) s = 0;
  auto lap = [](Clock::time_point& t0) {
    const auto t1 = Clock::now();
    const double d = std::chrono::duration<double>(t1 - t0).count();
    t0 = t1;
    return d;
  };
  for (int pass = 0; pass < 2; ++pass) {
    const unsigned stride = pass == 0 ? 10 : 1;
    int16_t predictors[3] = {};
    for (int y = 0; y < img.height; y += 8) {
      auto t0 = Clock::now();
      rows.firstRowWanted = uint16_t(y);
      rows.rowsWanted = 8;
      rows.Request();
      converter.ColorConvert(rows, unsigned(y), 0, stride, buffers);
      seconds[kConvert] += lap(t0);
      // The coding pass transforms a whole row per call, as the encoder does.
      if (vector && stride == 1) {
        for (int c = 0; c < 3; ++c)
          ZJPEG::DCTIntegerVectorBlocks(buffers[c], mcus, slots[c ? 1 : 0]);
      }
      for (uint32_t m = 0; m < mcus && !(vector && stride == 1); m += stride) {
        for (int c = 0; c < 3; ++c) {
          int16_t* block = buffers[c] + size_t(m) * 64;
          if (vector) {
            ZJPEG::DCTIntegerVector(block, slots[c ? 1 : 0]);
          } else {
            ZJPEG::DCTInteger(block, slots[c ? 1 : 0], work);
          }
        }
      }
      seconds[kTransform] += lap(t0);
      // A row's blocks are counted or coded in one call, as the encoder does.
      size_t n = 0;
      for (uint32_t m = 0; m < mcus; m += stride) {
        for (int c = 0; c < 3; ++c) {
          const int16_t* block = buffers[c] + size_t(m) * 64;
          const int t = c ? 1 : 0;
          coded[n++] = {block, &predictors[c], &dc[t], &ac[t]};
        }
      }
      if (pass == 0) {
        ZJPEG::CountBlocks(coded.data(), n, vector);
      } else {
        bits.OutputBlocks(coded.data(), n);
      }
      seconds[pass == 0 ? kStatistics : kEntropy] += lap(t0);
    }
    if (pass == 0) {
      const auto t0 = Clock::now();
      for (int t = 0; t < 2; ++t) {
        for (int s = 0; s <= 11; ++s) ++dc[t].frequency[s];
        for (int run = 0; run < 16; ++run) {
          for (int size = 1; size <= 10; ++size) ++ac[t].frequency[(run << 4) | size];
        }
        ++ac[t].frequency[0x00];
        ++ac[t].frequency[0xF0];
        dc[t].Generate();
        ac[t].Generate();
      }
      seconds[kStatistics] += std::chrono::duration<double>(Clock::now() - t0).count();
    }
  }
  const auto t0 = Clock::now();
  bits.Flush();
  out.DumpBuffer();
  const double flush = std::chrono::duration<double>(Clock::now() - t0).count();
  // The sink's time was counted inside the entropy coder's; move it.
  seconds[kEntropy] -= out.seconds - flush;
  seconds[kOutput] = out.seconds;
  bytes = out.bytes.size();
}

void Stages(benchmark::State& state, const Image& img) {
  ZJPEG::InitializeJPEGEncoder();
  static const char* const kNames[kStages] = {"convert", "dct_quant", "statistics", "entropy",
                                              "output"};
  std::vector<double> share[2][kStages], total[2];
  size_t bytes[2] = {};
  for (auto _ : state) {
    double sum[2] = {};
    for (int k = 0; k < 2; ++k) {
      // Alternate which path runs first.
      const int path = (int(total[0].size()) + k) % 2;
      double seconds[kStages];
      TimeStages(img, path == 1, seconds, bytes[path]);
      for (double s : seconds) sum[path] += s;
      for (int i = 0; i < kStages; ++i) share[path][i].push_back(seconds[i] / sum[path]);
    }
    for (int p = 0; p < 2; ++p) total[p].push_back(sum[p]);
    state.SetIterationTime(sum[1]);
  }
  static const char* const kPath[2] = {"scalar_", "vector_"};
  for (int p = 0; p < 2; ++p) {
    for (int i = 0; i < kStages; ++i)
      state.counters[std::string(kPath[p]) + kNames[i]] = Median(share[p][i]);
    state.counters[std::string(kPath[p]) + "ms"] = Median(total[p]) * 1e3;
  }
  // Both paths wrote the same number of bytes (the tests compare the bytes).
  state.counters["bytes_equal"] = bytes[0] == bytes[1];
  state.SetLabel(ZJPEG::VectorUnitName());
}

void BM_Stages_ChipPage283(benchmark::State& state) {
  static const Image img = ChipPage();
  Stages(state, img);
}
void BM_Stages_Noisy4096(benchmark::State& state) {
  static const Image img = Noisy(4096, 4096);
  Stages(state, img);
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
BENCHMARK(BM_Stages_ChipPage283)->UseManualTime()->Iterations(200)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Stages_Noisy4096)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
