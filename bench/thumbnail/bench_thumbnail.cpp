// Finding and decoding a 128 x 128 colour-table thumbnail placed near the end
// of a 50 MB vector file, next to a plain sequential read() of the same file
// in the same run: the reader's cost over the I/O floor.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

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

size_t FileSize() {
  return std::filesystem::file_size(BenchFile());
}

void BM_FindAndDecodeThumbnail(benchmark::State& state) {
  int fd = open(BenchFile().c_str(), O_RDONLY);
  std::vector<char> pixels(kThumbnailBufferBytes);
  for (auto _ : state) {
    QLThumbnail reader(fd);
    int32_t w = 0, h = 0;
    if (!reader.GetThumbnailInfo(&w, &h, pixels.data(), kThumbnailBufferBytes) || w != 128)
      state.SkipWithError("thumbnail not decoded");
    benchmark::DoNotOptimize(pixels.data());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(FileSize()));
  close(fd);
}

void BM_PlainSequentialRead(benchmark::State& state) {
  int fd = open(BenchFile().c_str(), O_RDONLY);
  std::vector<char> buffer(64 * 1024);
  for (auto _ : state) {
    lseek(fd, 0, SEEK_SET);
    size_t total = 0;
    for (ssize_t n; (n = read(fd, buffer.data(), buffer.size())) > 0;) total += size_t(n);
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(FileSize()));
  close(fd);
}

BENCHMARK(BM_PlainSequentialRead)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FindAndDecodeThumbnail)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
