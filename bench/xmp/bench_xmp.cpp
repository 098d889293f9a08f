// A whole swatch XMP request (selector 21 through the host simulator) for
// books of 10, 1000 and 10000 swatches, its stages timed one by one on the
// same book, and the floors beside them in the same run: the toolkit
// building and serialising a packet of the same shape directly, and the
// encoder alone on the same pages. The table at the end holds the request
// against the sum of the floors (bar: at most 1.25 x) and the share of the
// colour conversions (bar: under 5 %).
#include <benchmark/benchmark.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/host_simulator.h"
#include "jpeg/zjpeg.h"
#include "sdk/plugin_main.h"
#include "sdk/selectors.h"
#include "swatchbook/vantor_swatch_book.h"
#include "tests/support/jpeg_util.h"
#include "tests/support/memory_stream.h"
#include "tools/sxfwrite/sxf_writer.h"
#include "xmp/host_binding.h"
#include "xmp/page_internals.h"
#include "xmp/thumbnail_pages.h"
#include "xmp/toolkit.h"

namespace {

constexpr int kSwatchesPerGroup = 18;

// One property of the packet as the toolkit call that writes it.
struct Field {
  enum Kind { kText, kInt, kReal } kind;
  std::string name, value;
};

struct PageImage {
  int32_t width = 0, height = 0;
  std::string jpeg, base64;
  std::vector<unsigned char> raster;  // decoded into the 283-wide page layout
};

struct Fixture {
  std::string bytes;
  int fd = -1;
  std::vector<std::pair<std::vector<Field>, std::vector<std::vector<Field>>>> groups;
  std::vector<PageImage> pages;
  size_t packetSize = 0;
};

// A realistic mix: loose swatches, then groups of 18 cycling through RGB,
// CMYK, Lab and gray, every other one tinted, all three types. The reader
// takes at most 10000 blocks and a group costs two of its own, so the
// largest book keeps every swatch loose.
constexpr int kMaxBlocks = 10000;

std::string MixedBook(int swatches) {
  const char* models[] = {"RGB ", "CMYK", "LAB ", "Gray"};
  const int channels[] = {3, 4, 3, 1};
  nlohmann::json blocks = nlohmann::json::array();
  int groupBudget = (kMaxBlocks - swatches) / 2;
  int loose = std::max(std::min(swatches, 2), swatches - groupBudget * kSwatchesPerGroup);
  int made = 0;
  auto swatch = [&](int g, int s) {
    int m = (g + s) % 4;
    std::vector<double> values(static_cast<size_t>(channels[m]), 0.2 * (s % 5) + 0.1);
    if (m == 2) values = {0.2 + 0.1 * (s % 7), 20.0 - s % 40, 3.0 * (s % 11) - 15};
    nlohmann::json b = {{"swatch", "Swatch " + std::to_string(g) + "-" + std::to_string(s)},
                        {"model", models[m]},
                        {"values", values},
                        {"type", s % 3}};
    if (s % 2) b["tint"] = 0.5;
    ++made;
    return b;
  };
  for (int s = 0; s < loose; ++s) blocks.push_back(swatch(0, s));
  for (int g = 1; made < swatches; ++g) {
    blocks.push_back({{"group", "Group " + std::to_string(g)}});
    for (int s = 0; s < kSwatchesPerGroup && made < swatches; ++s) blocks.push_back(swatch(g, s));
    blocks.push_back({{"groupEnd", true}});
  }
  std::string bytes, error;
  if (!sxfwrite::BuildSxf({{"blocks", blocks}}, &bytes, &error)) std::abort();
  return bytes;
}

std::string RunRequest(int fd) {
  pxhost::SessionOptions options;
  options.fileType = pixmere::FourCC("SXF ");
  pxhost::HostSession session(&PluginMain, fd, options);
  if (session.Call(pixmere::kSelectorXMP) != 0 || session.Record().xmpHandle == nullptr) return {};
  return session.HandleBytes(session.Record().xmpHandle);
}

std::string Read(const xmptk::XMPMeta& meta, const char* prefix, const std::string& path) {
  std::string value;
  meta.GetProperty(xmptk::NamespaceURI(prefix), path.c_str(), &value, nullptr);
  return value;
}

// The decoded page laid into the 283-wide raster the plug-in draws in.
std::vector<unsigned char> DecodeToPage(const std::string& jpeg) {
  std::vector<unsigned char> raster(size_t(kPagePitch) * kPageSide, 0xFF);
  jpegtest::Rgb page;
  std::string error;
  if (!jpegtest::Decode(jpeg, page, error)) std::abort();
  for (int y = 0; y < page.height; ++y)
    std::memcpy(&raster[size_t(y) * kPagePitch], &page.pixels[size_t(y) * page.width * 3],
                size_t(page.width) * 3);
  return raster;
}

// The book's file, its packet, and what the packet holds, read back: the
// floors rebuild exactly those properties and page images.
const Fixture& FixtureFor(int swatches) {
  static std::map<int, std::unique_ptr<Fixture>> fixtures;
  auto& slot = fixtures[swatches];
  if (slot) return *slot;
  slot = std::make_unique<Fixture>();
  Fixture& f = *slot;
  f.bytes = MixedBook(swatches);
  f.fd = memfd_create("bench_xmp", MFD_CLOEXEC);
  if (pwrite(f.fd, f.bytes.data(), f.bytes.size(), 0) != ssize_t(f.bytes.size())) std::abort();
  std::string packet = RunRequest(f.fd);
  if (packet.empty()) std::abort();
  VantorSwatchBook parsed;
  qltest::MemoryStream stream(f.bytes);
  if (parsed.ParseSXF(stream, 0) != 0 || parsed.GetNumSwatches() != swatches) std::abort();
  f.packetSize = packet.size();
  xmptk::XMPMeta meta(packet.data(), uint32_t(packet.size()));
  const char* fieldNames[] = {"swatchName", "tint",  "mode", "type", "gray",
                              "red",        "green", "blue", "cyan", "magenta",
                              "yellow",     "black", "L",    "A",    "B"};
  for (int g = 1;; ++g) {
    std::string group = "xmpTPg:SwatchGroups[" + std::to_string(g) + "]";
    std::string name = Read(meta, "xmpTPg", group + "/xmpG:groupName");
    if (name.empty()) break;
    std::vector<Field> groupFields = {
        {Field::kText, "groupName", name},
        {Field::kInt, "groupType", Read(meta, "xmpTPg", group + "/xmpG:groupType")}};
    std::vector<std::vector<Field>> colorants;
    for (int c = 1;; ++c) {
      std::string item = group + "/xmpG:Colorants[" + std::to_string(c) + "]/xmpG:";
      std::vector<Field> fields;
      for (const char* n : fieldNames) {
        std::string v = Read(meta, "xmpTPg", item + n);
        if (v.empty()) continue;
        bool text = std::strcmp(n, "swatchName") == 0 || std::strcmp(n, "mode") == 0 ||
                    std::strcmp(n, "type") == 0;
        bool real = v.find('.') != std::string::npos;
        fields.push_back({text ? Field::kText : real ? Field::kReal : Field::kInt, n, v});
      }
      if (fields.empty()) break;
      colorants.push_back(std::move(fields));
    }
    f.groups.emplace_back(std::move(groupFields), std::move(colorants));
  }
  for (int n = 1;; ++n) {
    std::string item = "xmp:PageInfo[" + std::to_string(n) + "]/xmpGImg:";
    PageImage page;
    page.base64 = Read(meta, "xmp", item + "image");
    if (page.base64.empty()) break;
    page.width = std::stoi(Read(meta, "xmp", item + "width"));
    page.height = std::stoi(Read(meta, "xmp", item + "height"));
    f.pages.push_back(std::move(page));
  }
  // The JPEG bytes come from encoding the decoded pages once more, so the
  // stages and floors below all work on the same images.
  for (PageImage& page : f.pages) {
    std::string jpeg;
    xmptk::XMPUtils::DecodeFromBase64(page.base64.data(), uint32_t(page.base64.size()), &jpeg);
    page.raster = DecodeToPage(jpeg);
    Convert2JPEG(page.raster.data(), page.jpeg, uint16_t(page.width), uint16_t(page.height));
  }
  return f;
}

void Label(benchmark::State& state, const Fixture& f) {
  state.counters["pages"] = double(f.pages.size());
  state.counters["packetKB"] = double(f.packetSize) / 1024.0;
}

void BM_Request(benchmark::State& state) {
  const Fixture& f = FixtureFor(int(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(RunRequest(f.fd));
  Label(state, f);
}

void BM_StageParse(benchmark::State& state) {
  const Fixture& f = FixtureFor(int(state.range(0)));
  for (auto _ : state) {
    VantorSwatchBook book;
    qltest::MemoryStream stream(f.bytes);
    benchmark::DoNotOptimize(book.ParseSXF(stream, 0));
  }
}

// Every supported swatch of the parsed book, as the page pass finds it.
template <typename F>
void EachChip(VantorSwatchBook& book, F f) {
  int32_t unused = 0;
  for (int32_t g = 0, groups = book.CountSwatchGroups(unused); g < groups; ++g) {
    book.SetActiveSwatchGroup(g);
    for (int32_t s = 0, n = book.CountSwatchesInActiveGroup(); s < n; ++s) {
      int32_t format = book.GetBestFormat(s, book.GetSwatchColorSpace(s));
      double values[4] = {0, 0, 0, 0};
      book.GetColorValues(s, format, values);
      uint32_t flag = 0;
      f(book.GetFormatColorSpace(format), values, book.GetSwatchTint(s, flag));
    }
  }
}

void BM_StageColour(benchmark::State& state) {
  const Fixture& f = FixtureFor(int(state.range(0)));
  VantorSwatchBook book;
  qltest::MemoryStream stream(f.bytes);
  book.ParseSXF(stream, 0);
  WeftClientInit(FindWeftProcLookup());
  for (auto _ : state)
    EachChip(book, [](KeltoSwatchbook::ColorSpace space, const double* v, double tint) {
      benchmark::DoNotOptimize(xmppages::ChipColour(space, v, tint));
    });
  WeftClientTerminate();
}

void BM_StageChips(benchmark::State& state) {
  const Fixture& f = FixtureFor(int(state.range(0)));
  VantorSwatchBook book;
  qltest::MemoryStream stream(f.bytes);
  book.ParseSXF(stream, 0);
  std::vector<unsigned char> raster(size_t(kPagePitch) * kPageSide, 0xFF);
  for (auto _ : state) {
    int32_t x = 0, y = 0;
    EachChip(book, [&](KeltoSwatchbook::ColorSpace, const double*, double) {
      xmppages::DrawChip(raster.data(), x, y, {200, 100, 50});
      x += kChipSide;
      if (x + kChipSide > kPageSide) x = 0, y += kChipSide;
      if (y + kChipSide > kPageSide) y = 0;
    });
    benchmark::DoNotOptimize(raster.data());
  }
}

void BM_StageEncode(benchmark::State& state) {
  const Fixture& f = FixtureFor(int(state.range(0)));
  std::vector<std::vector<unsigned char>> rasters;
  for (const PageImage& p : f.pages) rasters.push_back(p.raster);
  std::string jpeg;
  for (auto _ : state) {
    ZJPEG::InitializeJPEGEncoder();
    for (size_t i = 0; i < f.pages.size(); ++i)
      Convert2JPEG(rasters[i].data(), jpeg, uint16_t(f.pages[i].width),
                   uint16_t(f.pages[i].height));
    benchmark::DoNotOptimize(jpeg.data());
  }
}

void BM_StageBase64(benchmark::State& state) {
  const Fixture& f = FixtureFor(int(state.range(0)));
  std::string text;
  for (auto _ : state)
    for (const PageImage& p : f.pages) {
      xmptk::XMPUtils::EncodeToBase64(p.jpeg.data(), uint32_t(p.jpeg.size()), &text);
      benchmark::DoNotOptimize(text.data());
    }
}

// The packet's properties written straight into a toolkit object.
void BuildDirectly(const Fixture& f, xmptk::XMPMeta& meta) {
  const char* tpg = xmptk::NamespaceURI("xmpTPg");
  const char* g = xmptk::NamespaceURI("xmpG");
  const char* xmp = xmptk::NamespaceURI("xmp");
  const char* img = xmptk::NamespaceURI("xmpGImg");
  auto set = [&](const char* ns, const std::string& parent, const char* fieldNS,
                 const Field& field) {
    std::string path;
    xmptk::XMPUtils::ComposeStructFieldPath(ns, parent.c_str(), fieldNS, field.name.c_str(), &path);
    if (field.kind == Field::kText)
      meta.SetProperty(ns, path.c_str(), field.value.c_str());
    else if (field.kind == Field::kInt)
      meta.SetProperty_Int(ns, path.c_str(), int32_t(std::stol(field.value)));
    else
      meta.SetProperty_Float(ns, path.c_str(), std::stod(field.value));
  };
  int32_t gi = 1;
  for (const auto& [groupFields, colorants] : f.groups) {
    meta.AppendArrayItem(tpg, "SwatchGroups", xmptk::kXMP_PropArrayIsOrdered, nullptr,
                         xmptk::kXMP_PropValueIsStruct);
    std::string group, array;
    xmptk::XMPUtils::ComposeArrayItemPath(tpg, "SwatchGroups", gi++, &group);
    for (const Field& field : groupFields) set(tpg, group, g, field);
    xmptk::XMPUtils::ComposeStructFieldPath(tpg, group.c_str(), g, "Colorants", &array);
    int32_t ci = 1;
    for (const auto& fields : colorants) {
      meta.AppendArrayItem(tpg, array.c_str(), xmptk::kXMP_PropArrayIsOrdered, nullptr,
                           xmptk::kXMP_PropValueIsStruct);
      std::string item;
      xmptk::XMPUtils::ComposeArrayItemPath(tpg, array.c_str(), ci++, &item);
      for (const Field& field : fields) set(tpg, item, g, field);
    }
  }
  int32_t n = 1;
  meta.AppendArrayItem(xmp, "PageInfo", xmptk::kXMP_PropArrayIsOrdered, nullptr,
                       xmptk::kXMP_PropValueIsStruct);
  for (const PageImage& p : f.pages) {
    std::string item;
    xmptk::XMPUtils::ComposeArrayItemPath(xmp, "PageInfo", n, &item);
    set(xmp, item, tpg, {Field::kInt, "PageNumber", std::to_string(n++)});
    set(xmp, item, img, {Field::kInt, "width", std::to_string(p.width)});
    set(xmp, item, img, {Field::kInt, "height", std::to_string(p.height)});
    set(xmp, item, img, {Field::kText, "format", "JPEG"});
    set(xmp, item, img, {Field::kText, "image", p.base64});
  }
}

void BM_StageXmpBuild(benchmark::State& state) {
  const Fixture& f = FixtureFor(int(state.range(0)));
  for (auto _ : state) {
    xmptk::XMPMeta meta;
    BuildDirectly(f, meta);
  }
}

void BM_StageSerialise(benchmark::State& state) {
  const Fixture& f = FixtureFor(int(state.range(0)));
  xmptk::XMPMeta meta;
  BuildDirectly(f, meta);
  std::string packet;
  for (auto _ : state) {
    meta.SerializeToBuffer(&packet, 0, 0, "", "", 0);
    benchmark::DoNotOptimize(packet.data());
  }
}

// The floors: the toolkit building and serialising a packet of the same
// shape, and the encoder alone on the same pages.
void FloorToolkit(const Fixture& f, std::string& packet) {
  xmptk::XMPMeta meta;
  BuildDirectly(f, meta);
  meta.SerializeToBuffer(&packet, 0, 0, "", "", 0);
}

void FloorEncoder(const Fixture& f, std::string& last) {
  ZJPEG::EncoderDescription description;
  description.flags = 0x112;  // the pages' settings: interleaved RGB, baseline
  description.PixmereQuality(12);
  ZJPEG::InitializeJPEGEncoder();
  for (const PageImage& p : f.pages) {
    ZJPEG::BufferRowMemoryRequester rows(p.raster.data(), uint32_t(kPagePitch), uint16_t(p.height));
    jpegtest::StringStream sink;
    ZJPEG::JPEGEncoder encoder(&rows, uint16_t(p.width), uint16_t(p.height));
    encoder.EncodeImage(&sink, description, nullptr, 0, 4);
    last.swap(sink.bytes);
  }
}

void BM_FloorToolkit(benchmark::State& state) {
  const Fixture& f = FixtureFor(int(state.range(0)));
  std::string packet;
  for (auto _ : state) {
    FloorToolkit(f, packet);
    benchmark::DoNotOptimize(packet.data());
  }
}

void BM_FloorEncoder(benchmark::State& state) {
  const Fixture& f = FixtureFor(int(state.range(0)));
  std::string jpeg;
  for (auto _ : state) {
    FloorEncoder(f, jpeg);
    benchmark::DoNotOptimize(jpeg.data());
  }
}

// The bar itself. The machine's speed drifts, so each round times the request
// and both floors back to back and the ratio is the median of the rounds'.
void BM_RequestOverFloors(benchmark::State& state) {
  const Fixture& f = FixtureFor(int(state.range(0)));
  using Clock = std::chrono::steady_clock;
  std::vector<double> ratios;
  std::string packet, floorPacket, jpeg;
  for (auto _ : state) {
    Clock::time_point t0 = Clock::now();
    packet = RunRequest(f.fd);
    Clock::time_point t1 = Clock::now();
    FloorToolkit(f, floorPacket);
    FloorEncoder(f, jpeg);
    Clock::time_point t2 = Clock::now();
    ratios.push_back(std::chrono::duration<double>(t1 - t0) /
                     std::chrono::duration<double>(t2 - t1));
    benchmark::DoNotOptimize(packet.data());
  }
  std::nth_element(ratios.begin(), ratios.begin() + ptrdiff_t(ratios.size() / 2), ratios.end());
  state.counters["ratio"] = ratios[ratios.size() / 2];
}

#define QL_XMP_BENCH(fn) \
  BENCHMARK(fn)->Arg(10)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)
QL_XMP_BENCH(BM_Request);
QL_XMP_BENCH(BM_StageParse);
QL_XMP_BENCH(BM_StageColour);
QL_XMP_BENCH(BM_StageChips);
QL_XMP_BENCH(BM_StageEncode);
QL_XMP_BENCH(BM_StageBase64);
QL_XMP_BENCH(BM_StageXmpBuild);
QL_XMP_BENCH(BM_StageSerialise);
QL_XMP_BENCH(BM_FloorToolkit);
QL_XMP_BENCH(BM_FloorEncoder);
QL_XMP_BENCH(BM_RequestOverFloors)->MinTime(2.0);  // several rounds even at 10000

// Keeps every run's time per iteration (ms) by benchmark name and size.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& r : runs) {
      std::string name = r.benchmark_name();
      size_t slash = name.find('/');
      std::string bench = name.substr(0, slash);
      int size = std::stoi(name.substr(slash + 1));
      ms[bench][size] = r.GetAdjustedRealTime();  // already in the benchmark's unit, ms
      auto ratio = r.counters.find("ratio");
      if (ratio != r.counters.end()) ratios[size] = ratio->second;
    }
  }
  std::map<std::string, std::map<int, double>> ms;
  std::map<int, double> ratios;  // request / floors, median of rounds
};

void PrintTable(TableReporter& t) {
  std::printf(
      "\n| swatches | request | parse | colour | chips | encode | base64 | xmp build |"
      " serialise | floor: toolkit | floor: encoder | request / floors | colour share |\n"
      "|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
  for (int n : {10, 1000, 10000}) {
    auto at = [&](const char* name) { return t.ms[name].count(n) ? t.ms[name][n] : 0.0; };
    double request = at("BM_Request");
    double floors = at("BM_FloorToolkit") + at("BM_FloorEncoder");
    if (request == 0.0 || (floors == 0.0 && t.ratios.count(n) == 0)) continue;  // filtered out
    double ratio = t.ratios.count(n) ? t.ratios[n] : request / floors,
           share = at("BM_StageColour") / request;
    std::printf(
        "| %d | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f |"
        " %.2f %s | %.1f %% %s |\n",
        n, request, at("BM_StageParse"), at("BM_StageColour"), at("BM_StageChips"),
        at("BM_StageEncode"), at("BM_StageBase64"), at("BM_StageXmpBuild"), at("BM_StageSerialise"),
        at("BM_FloorToolkit"), at("BM_FloorEncoder"), ratio, ratio <= 1.25 ? "ok" : "OVER",
        share * 100.0, share < 0.05 ? "ok" : "OVER");
  }
  std::printf("(milliseconds per request; bar: request <= 1.25 x floors, colour < 5 %%)\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (!xmptk::Initialize()) return 1;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  PrintTable(reporter);
  benchmark::Shutdown();
  xmptk::Terminate();
  return 0;
}
