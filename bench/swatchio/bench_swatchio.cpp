// Parsing a 10000-block swatch exchange file into a book, beside a plain
// copy of the same bytes as the floor of what any reader can cost.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "swatchbook/vantor_swatch_book.h"
#include "swatchio/sxf_reader.h"
#include "tests/support/memory_stream.h"
#include "tools/sxfwrite/sxf_writer.h"

namespace {

constexpr int kBlocks = 10000;
constexpr int kSwatchesPerGroup = 18;  // with its start and end: 20 blocks a group

struct Book {
  std::string bytes;
  int swatches = 0;
};

const Book& MixedBook() {
  static const Book book = [] {
    Book b;
    const char* models[] = {"RGB ", "CMYK", "LAB ", "Gray"};
    const int channels[] = {3, 4, 3, 1};
    nlohmann::json blocks = nlohmann::json::array();
    for (int g = 0; blocks.size() < kBlocks; ++g) {
      blocks.push_back({{"group", "Group " + std::to_string(g)}});
      for (int s = 0; s < kSwatchesPerGroup; ++s, ++b.swatches) {
        int m = (g + s) % 4;
        nlohmann::json swatch = {
            {"swatch", "Swatch " + std::to_string(g) + "-" + std::to_string(s)},
            {"model", models[m]},
            {"values", std::vector<double>(size_t(channels[m]), 0.25 * (s % 5))},
            {"type", s % 3}};
        if (s % 2) swatch["tint"] = 0.5;
        blocks.push_back(swatch);
      }
      blocks.push_back({{"groupEnd", true}});
    }
    std::string error;
    sxfwrite::BuildSxf({{"blocks", blocks}}, &b.bytes, &error);
    return b;
  }();
  return book;
}

void BM_ParseSXF(benchmark::State& state) {
  const Book& book = MixedBook();
  std::chrono::duration<double, std::micro> spent{};
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    VantorSwatchBook swatches;
    qltest::MemoryStream stream(book.bytes);
    int32_t result = swatches.ParseSXF(stream, 0);
    benchmark::DoNotOptimize(result);
    spent += std::chrono::steady_clock::now() - start;
    if (result != 0 || swatches.GetNumSwatches() != book.swatches)
      state.SkipWithError("parse failed");
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(book.bytes.size()));
  state.counters["swatches"] = book.swatches;
  state.counters["us_per_swatch"] = spent.count() / double(state.iterations()) / book.swatches;
}
BENCHMARK(BM_ParseSXF)->Unit(benchmark::kMicrosecond);

void BM_CopySameBytes(benchmark::State& state) {
  const Book& book = MixedBook();
  std::vector<char> copy(book.bytes.size());
  for (auto _ : state) {
    std::memcpy(copy.data(), book.bytes.data(), book.bytes.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(book.bytes.size()));
}
BENCHMARK(BM_CopySameBytes)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
