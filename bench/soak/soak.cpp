// Soak: one host-simulator process loads the module once and answers many
// mixed requests (previews, filters, swatch requests, rendering-method
// queries) on good, damaged and hostile files, the way a long-lived host
// would. It reports whether resident memory and open descriptors stay flat
// after a warm-up, and checks every answer against the one a fresh process
// gives for the same request.
//
//   soak [--requests N] [--keep DIR] SAMPLES_DIR   the soak (exit 1 when it fails)
//   soak --once OP FILE                           one answer, in a fresh process
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "host/host_simulator.h"
#include "sdk/format_record.h"
#include "sdk/selectors.h"
#include "sdk/suites.h"

namespace {

namespace fs = std::filesystem;

// Selector 4 ends a read: the plug-in gives back the suites it acquired.
constexpr int16_t kSelectorReadFinish = 4;

enum class Op { Preview, Filter, Swatch, Method };
constexpr Op kOps[] = {Op::Preview, Op::Filter, Op::Swatch, Op::Method};
const char* OpName(Op op) {
  switch (op) {
    case Op::Preview:
      return "preview";
    case Op::Filter:
      return "filter";
    case Op::Swatch:
      return "swatch";
    case Op::Method:
      return "method";
  }
  return "";
}

// FNV-1a: enough to tell two answers' bytes apart.
uint64_t Hash(const void* data, size_t size, uint64_t h = 1469598103934665603ull) {
  const auto* p = static_cast<const unsigned char*>(data);
  for (size_t i = 0; i < size; ++i) h = (h ^ p[i]) * 1099511628211ull;
  return h;
}

std::string Answer(int result, uint64_t hash = 0) {
  char text[64];
  std::snprintf(text, sizeof text, "%d %016llx", result, static_cast<unsigned long long>(hash));
  return text;
}

// One request, answered as "result hash" so that two processes can compare.
std::string Ask(PluginMainProc entry, Op op, const std::string& file) {
  if (op == Op::Method) {
    const void* procs = nullptr;
    auto& registry = pxhost::SuiteRegistry::Get();
    if (registry.Acquire(pixmere::kQLRenderingMethodSuite, pixmere::kQLRenderingMethodSuiteVersion,
                         &procs) != 0)
      return "no suite";
    int32_t method = 0;
    int32_t err =
        static_cast<const pixmere::QLRenderingMethodSuite*>(procs)->GetQLRenderingMethodForFile(
            file.c_str(), &method);
    registry.Release(pixmere::kQLRenderingMethodSuite, pixmere::kQLRenderingMethodSuiteVersion);
    return Answer(err, uint64_t(method));
  }
  pxhost::SessionOptions options;
  if (op != Op::Preview) options.fileType = pixmere::FourCC("SXF ");
  pxhost::HostSession session(entry, file, options);
  if (!session.IsOpen()) return "unopened";
  if (op == Op::Preview) {
    int16_t result = session.Call(pixmere::kSelectorReadStart);
    if (result == 0) result = session.Call(pixmere::kSelectorReadContinue);
    uint64_t h = 0;
    for (const pxhost::AdvanceCall& call : session.AdvanceCalls())
      h = Hash(call.pixels.data(), call.pixels.size(),
               h ^ uint64_t(call.right) << 16 ^ call.bottom);
    session.Call(kSelectorReadFinish);
    return Answer(result, h);
  }
  int16_t result = session.Call(pixmere::kSelectorFilterFile);
  if (op == Op::Filter || result != 0) return Answer(result);
  result = session.Call(pixmere::kSelectorXMP);
  std::string packet = result == 0 ? session.HandleBytes(session.Record().xmpHandle) : "";
  return Answer(result, Hash(packet.data(), packet.size()));
}

PluginMainProc Load() {
  std::string error;
  std::string module = pxhost::FindPlugin(QL_MODULE, nullptr);
  PluginMainProc entry = pxhost::LoadPlugin(module, &error);
  if (entry == nullptr) {
    std::fprintf(stderr, "soak: %s\n", error.c_str());
    std::exit(2);
  }
  // The first call publishes the rendering-method suite.
  pxhost::SessionOptions options;
  options.fileType = pixmere::FourCC("TEXT");
  pxhost::HostSession session(entry, "/dev/null", options);
  session.Call(0);
  return entry;
}

size_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  size_t total = 0, resident = 0;
  statm >> total >> resident;
  return resident * size_t(sysconf(_SC_PAGESIZE));
}

int OpenDescriptors() {
  int n = 0;
  if (DIR* d = opendir("/proc/self/fd")) {
    while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
    closedir(d);
  }
  return n - 1;  // the listing's own descriptor
}

std::string Slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void Spit(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

// The samples, a damaged copy of each (cut short, bytes overwritten), and
// hostile shapes: empty, a folder, a file of noise, a preview header claiming
// a huge image.
std::vector<std::string> Corpus(const fs::path& samples, const fs::path& work) {
  std::vector<std::string> files;
  std::mt19937 random(7);
  std::vector<fs::path> originals;
  for (const char* dir : {"vector", "swatches"})
    for (const auto& e : fs::directory_iterator(samples / dir))
      if (e.path().extension() != ".json") originals.push_back(e.path());
  std::sort(originals.begin(), originals.end());
  for (const fs::path& p : originals) {
    files.push_back(p.string());
    std::string bytes = Slurp(p);
    fs::path cut = work / ("cut-" + p.filename().string());
    Spit(cut, bytes.substr(0, bytes.size() * 2 / 3));
    files.push_back(cut.string());
    for (int k = 0; k < 16 && !bytes.empty(); ++k) bytes[random() % bytes.size()] = char(random());
    fs::path flipped = work / ("flipped-" + p.filename().string());
    Spit(flipped, bytes);
    files.push_back(flipped.string());
  }
  Spit(work / "empty.ps", "");
  fs::create_directories(work / "folder.sxf");
  std::string noise(70000, '\0');
  for (char& c : noise) c = char(random());
  Spit(work / "noise.pdf", noise);
  Spit(work / "huge.ps",
       "%!PS-Adobe-3.0\n%QL7_Thumbnail: 30000 30000 24\n%%BeginData: 99999999 Hex Bytes\n" +
           std::string(5000, 'F') + "\n");
  for (const char* name : {"empty.ps", "folder.sxf", "noise.pdf", "huge.ps"})
    files.push_back((work / name).string());
  return files;
}

// What a fresh process answers.
std::string FreshAnswer(const char* self, Op op, const std::string& file) {
  std::string command = std::string(self) + " --once " + OpName(op) + " '" + file + "'";
  FILE* p = popen(command.c_str(), "r");
  if (p == nullptr) return "cannot start";
  char line[128] = {};
  std::string answer = std::fgets(line, sizeof line, p) ? line : "";
  pclose(p);
  if (!answer.empty() && answer.back() == '\n') answer.pop_back();
  return answer;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--once") == 0) {
    for (Op op : kOps)
      if (std::strcmp(argv[2], OpName(op)) == 0) {
        std::printf("%s\n", Ask(Load(), op, argv[3]).c_str());
        return 0;
      }
    return 2;
  }
  long requests = 100000;
  std::string samples, keep;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--requests") == 0 && i + 1 < argc)
      requests = std::stol(argv[++i]);
    else if (std::strcmp(argv[i], "--keep") == 0 && i + 1 < argc)
      keep = argv[++i];
    else
      samples = argv[i];
  }
  if (samples.empty() || requests < 1000) {
    std::fprintf(stderr, "usage: soak [--requests N>=1000] [--keep DIR] SAMPLES_DIR\n");
    return 2;
  }
  fs::path work = keep.empty()
                      ? fs::temp_directory_path() / ("qlformat-soak-" + std::to_string(getpid()))
                      : fs::path(keep);
  fs::create_directories(work);
  std::vector<std::string> files = Corpus(samples, work);

  std::map<std::pair<Op, std::string>, std::string> expected;
  for (const std::string& f : files)
    for (Op op : kOps) expected[{op, f}] = FreshAnswer(argv[0], op, f);

  PluginMainProc entry = Load();
  std::mt19937 random(11);
  const long warmup = requests / 20, every = requests / 10;
  size_t rssBase = 0, rssMax = 0, rssEnd = 0;
  int fdBase = 0, fdMax = 0, fdEnd = 0;
  long mismatches = 0;
  std::printf("%10s %12s %6s\n", "requests", "resident KiB", "fds");
  for (long n = 1; n <= requests; ++n) {
    Op op = kOps[random() % 4];
    const std::string& file = files[random() % files.size()];
    std::string answer = Ask(entry, op, file);
    pxhost::SuiteRegistry::Get().ClearEvents();  // the simulator's log is for tests
    if (answer != expected[{op, file}] && ++mismatches <= 10)
      std::printf("mismatch: %s %s: %s, fresh %s\n", OpName(op), file.c_str(), answer.c_str(),
                  expected[{op, file}].c_str());
    if (n == warmup || n % every == 0) {
      rssEnd = ResidentBytes();
      fdEnd = OpenDescriptors();
      if (n == warmup) rssBase = rssEnd, fdBase = fdEnd;
      rssMax = std::max(rssMax, rssEnd);
      fdMax = std::max(fdMax, fdEnd);
      std::printf("%10ld %12zu %6d\n", n, rssEnd / 1024, fdEnd);
      std::fflush(stdout);
    }
  }
  if (keep.empty()) fs::remove_all(work);
  // Allocators keep some slack; anything past a mebibyte after the warm-up
  // would be a leak growing with the requests.
  const size_t margin = 1 << 20;
  bool flat = rssMax <= rssBase + margin && fdMax == fdBase;
  std::printf(
      "%ld requests on %zu files: resident %zu KiB after warm-up, %zu KiB at most, %zu KiB at the "
      "end; descriptors %d, at most %d, at the end %d; %ld answers differ from a fresh process's\n",
      requests, files.size(), rssBase / 1024, rssMax / 1024, rssEnd / 1024, fdBase, fdMax, fdEnd,
      mismatches);
  std::printf("soak: %s\n", flat && mismatches == 0 ? "flat, every answer as fresh" : "FAILED");
  return flat && mismatches == 0 ? 0 : 1;
}
