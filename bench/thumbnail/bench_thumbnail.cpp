// Finding and decoding a 128 x 128 colour-table thumbnail placed near the end
// of a 50 MB vector file, and searching the same file without one, each next
// to a plain sequential read() of the file in the same rounds: the reader's
// share of the I/O floor's bandwidth.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "thumbnail/ql_thumbnail.h"
#include "tools/ql7embed/ql7_writer.h"

namespace {

constexpr size_t kFileBytes = 50u << 20;

// Builds the file once: drawing commands and comments, then the preview, then
// a short trailer.
const std::string& BenchFile() {
  static const std::string path = [] {
    std::string p = (std::filesystem::temp_directory_path() / "qlformat-bench-50mb.ps").string();
    pxhost::RgbImage img{128, 128, {}};
    for (int y = 0; y < 128; ++y)
      for (int x = 0; x < 128; ++x)
        img.pixels.insert(img.pixels.end(),
                          {uint8_t(x * 2), uint8_t(y * 2), uint8_t((x + y) & 0xC0)});
    std::string block = ql7::ThumbnailBlock(img, 8, true);
    const std::string lines =
        "%%Page drawing: 12 34 moveto 56 78 lineto stroke\n"
        "0.25 0.5 0.75 setrgbcolor 10 10 200 100 rectfill % filled box\n"
        "/F1 12 selectfont (Quarterly figures) show newpath closepath\n";
    std::ofstream out(p, std::ios::binary);
    std::string chunk;
    while (chunk.size() < (1u << 20)) chunk += lines;
    size_t written = 0;
    while (written + chunk.size() + block.size() < kFileBytes) {
      out << chunk;
      written += chunk.size();
    }
    out << "%!PS-Adobe-3.0\n" << block << std::string(4096, '%') << "\n%%EOF\n";
    return p;
  }();
  return path;
}

size_t FileSize(const std::string& path) {
  return std::filesystem::file_size(path);
}

// The same drawing without a preview: the search reads the whole file and
// finds nothing.
const std::string& BenchFileWithout() {
  static const std::string path = [] {
    std::string p =
        (std::filesystem::temp_directory_path() / "qlformat-bench-50mb-plain.ps").string();
    std::ifstream in(BenchFile(), std::ios::binary);
    std::ofstream out(p, std::ios::binary);
    std::vector<char> chunk(1 << 20);
    size_t left = FileSize(BenchFile()) - (64u << 10);
    while (left > 0 && in.read(chunk.data(), std::streamsize(std::min(left, chunk.size())))) {
      out.write(chunk.data(), in.gcount());
      left -= size_t(in.gcount());
    }
    out << std::string(64u << 10, '%');
    return p;
  }();
  return path;
}

double Seconds(const std::chrono::steady_clock::time_point& t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// Plain sequential read() of the whole file in 64 KiB pieces: the floor.
double ReadSeconds(int fd) {
  static std::vector<char> buffer(64 * 1024);
  auto t0 = std::chrono::steady_clock::now();
  lseek(fd, 0, SEEK_SET);
  size_t total = 0;
  for (ssize_t n; (n = read(fd, buffer.data(), buffer.size())) > 0;) total += size_t(n);
  benchmark::DoNotOptimize(total);
  return Seconds(t0);
}

// The reader's search and decode through GetThumbnailInfo, as read start and
// read continue run it.
double ReaderSeconds(int fd, bool found) {
  static std::vector<char> pixels(kThumbnailBufferBytes);
  auto t0 = std::chrono::steady_clock::now();
  QLThumbnail reader(fd);
  int32_t w = 0, h = 0;
  int32_t ok = reader.GetThumbnailInfo(&w, &h, pixels.data(), kThumbnailBufferBytes);
  benchmark::DoNotOptimize(pixels.data());
  double t = Seconds(t0);
  return ok == (found ? 1 : 0) && (!found || w == 128) ? t : -1;
}

// Reader and read() on the same cached file, back to back in alternating
// order every round; the counters are medians: GB/s of each and the reader's
// share of read()'s bandwidth (the rounds' ratios).
void Compare(benchmark::State& state, const std::string& path, bool found) {
  int fd = open(path.c_str(), O_RDONLY);
  const double gb = double(FileSize(path)) / 1e9;
  std::vector<double> reader, plain, share;
  for (auto _ : state) {
    double t[2] = {0, 0};
    for (int k = 0; k < 2; ++k) {
      if ((reader.size() + size_t(k)) % 2 == 0)
        t[0] = ReaderSeconds(fd, found);
      else
        t[1] = ReadSeconds(fd);
    }
    if (t[0] < 0) {
      state.SkipWithError("the reader did not answer as expected");
      break;
    }
    state.SetIterationTime(t[0]);
    reader.push_back(t[0]);
    plain.push_back(t[1]);
    share.push_back(t[1] / t[0]);
  }
  close(fd);
  if (reader.empty()) return;
  state.counters["reader_GBps"] = gb / Median(reader);
  state.counters["read_GBps"] = gb / Median(plain);
  state.counters["share_of_read"] = Median(share);
}

void BM_FindAndDecodeThumbnail(benchmark::State& state) {
  Compare(state, BenchFile(), true);
}

void BM_SearchFileWithoutThumbnail(benchmark::State& state) {
  Compare(state, BenchFileWithout(), false);
}

BENCHMARK(BM_FindAndDecodeThumbnail)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SearchFileWithoutThumbnail)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
